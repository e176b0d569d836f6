#include "mesures.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>

#include "pipeline/plume.h"

namespace {

constexpr int kBlocBassesFrequences = 64;
constexpr int kRayonDilatation = 10;

template <class F>
void PourChaquePixel(const TuileQualite& t, F f) {
  for (int l = 0; l < t.hauteur; ++l)
    for (int c = 0; c < t.largeur; ++c) f(c, l, static_cast<size_t>(l) * t.largeur + c);
}

}  // namespace

Verite FaireVerite(const ParametresDemo& p, const std::vector<TuileMemoire>& tuiles) {
  Verite v;
  for (const TuileMemoire& t : tuiles) {
    v.largeur = std::max(v.largeur, static_cast<int>(t.def.colonne0 + t.def.largeur));
    v.hauteur = std::max(v.hauteur, static_cast<int>(t.def.ligne0 + t.def.hauteur));
  }
  v.T.resize(static_cast<size_t>(v.largeur) * v.hauteur);
  v.couverte.assign(v.T.size(), 0);
  for (int l = 0; l < v.hauteur; ++l)
    for (int c = 0; c < v.largeur; ++c)
      v.T[static_cast<size_t>(l) * v.largeur + c] = static_cast<float>(ValeurScene(c, l, p.graine));
  for (const TuileMemoire& t : tuiles)
    PourChaquePixel(t.def, [&](int c, int l, size_t k) {
      if (t.valide[k]) v.couverte[static_cast<size_t>(t.def.ligne0 + l) * v.largeur + t.def.colonne0 + c] = 1;
    });
  // Groups of tiles linked by overlaps.
  const size_t n = tuiles.size();
  std::vector<int> groupe(n, -1);
  for (size_t i = 0; i < n; ++i) {
    if (groupe[i] >= 0) continue;
    groupe[i] = v.nbGroupes++;
    for (bool change = true; change;) {
      change = false;
      for (size_t a = 0; a < n; ++a)
        for (size_t b = 0; b < n; ++b) {
          const TuileQualite &p = tuiles[a].def, &q = tuiles[b].def;
          const bool recouvre = p.colonne0 < q.colonne0 + q.largeur && q.colonne0 < p.colonne0 + p.largeur &&
                                p.ligne0 < q.ligne0 + q.hauteur && q.ligne0 < p.ligne0 + p.hauteur;
          if (recouvre && groupe[a] == groupe[i] && groupe[b] < 0) {
            groupe[b] = groupe[i];
            change = true;
          }
        }
    }
  }
  v.groupe.assign(v.T.size(), 0);
  for (size_t i = 0; i < n; ++i)
    PourChaquePixel(tuiles[i].def, [&](int c, int l, size_t) {
      v.groupe[static_cast<size_t>(tuiles[i].def.ligne0 + l) * v.largeur + tuiles[i].def.colonne0 + c] =
          static_cast<unsigned char>(1 + groupe[i]);
    });
  // The cloud's footprint is left out of every figure, whoever covers it.
  for (const TuileMemoire& t : tuiles) {
    if (t.def.intensiteNuage <= 0) continue;
    PourChaquePixel(t.def, [&](int c, int l, size_t) {
      if (t.def.nuage.Contient(c, l))
        v.couverte[static_cast<size_t>(t.def.ligne0 + l) * v.largeur + t.def.colonne0 + c] = 0;
    });
  }
  return v;
}

std::vector<uint64_t> Ensembles(const std::vector<TuileMemoire>& tuiles,
                                const std::vector<std::vector<unsigned char>>& valide, int largeur,
                                int hauteur) {
  std::vector<uint64_t> e(static_cast<size_t>(largeur) * hauteur, 0);
  for (size_t i = 0; i < tuiles.size() && i < 64; ++i)
    PourChaquePixel(tuiles[i].def, [&](int c, int l, size_t k) {
      if (valide[i][k])
        e[static_cast<size_t>(tuiles[i].def.ligne0 + l) * largeur + tuiles[i].def.colonne0 + c] |= uint64_t{1}
                                                                                                   << i;
    });
  return e;
}

std::vector<std::vector<unsigned char>> ValiditeDilatee(const std::vector<TuileMemoire>& tuiles,
                                                        bool masques) {
  std::vector<std::vector<unsigned char>> r(tuiles.size());
  for (size_t i = 0; i < tuiles.size(); ++i) {
    const TuileQualite& t = tuiles[i].def;
    std::vector<unsigned char> source(static_cast<size_t>(t.largeur) * t.hauteur);
    PourChaquePixel(t, [&](int c, int l, size_t k) {
      source[k] = masques ? t.Exclu(c, l) : tuiles[i].pixels.GetLines(l)[c] == 0;
    });
    std::vector<float> d2(source.size());
    DistanceCarree(source.data(), t.largeur, t.hauteur, t.largeur, d2.data(), t.largeur);
    r[i].resize(source.size());
    PourChaquePixel(t, [&](int c, int l, size_t k) {
      r[i][k] = tuiles[i].pixels.GetLines(l)[c] != 0 && d2[k] > kRayonDilatation * kRayonDilatation;
    });
  }
  return r;
}

Mesures Mesurer(const Verite& v, const Mosaique& m, const std::vector<unsigned char>& commun,
                const std::vector<uint64_t>& ensembles) {
  const int W = v.largeur, H = v.hauteur, G = v.nbGroupes;
  // Columns: M and 1 (the global fit), then per group the offset surface's other terms (1 for the
  // groups after the first, x, y, x2, xy, y2), then per group M times the gain surface's terms.
  const int nBrut = 2, nTendance = 2 + 6 * G - 1, nTout = nTendance + 5 * G;
  const auto colonnes = [&](int c, int l, double M, int g, double* a) {
    const double x = 2.0 * (c + 0.5) / W - 1, y = 2.0 * (l + 0.5) / H - 1;
    const double t[6] = {1, x, y, x * x, x * y, y * y};
    std::fill(a, a + nTout, 0.0);
    a[0] = M;
    a[1] = 1;
    for (int k = 1; k < 6; ++k) a[2 + 5 * g + k - 1] = t[k];
    if (g > 0) a[2 + 5 * G + g - 1] = 1;
    for (int k = 1; k < 6; ++k) a[nTendance + 5 * g + k - 1] = M * t[k];
  };
  Eigen::MatrixXd AtA = Eigen::MatrixXd::Zero(nTout, nTout);
  Eigen::VectorXd AtT = Eigen::VectorXd::Zero(nTout);
  std::vector<double> a(nTout);
  for (int l = 0; l < H; ++l)
    for (int c = 0; c < W; ++c) {
      const size_t k = static_cast<size_t>(l) * W + c;
      if (!commun[k]) continue;
      colonnes(c, l, m.v[k], v.groupe[k] - 1, a.data());
      const Eigen::Map<const Eigen::VectorXd> x(a.data(), nTout);
      AtA.selfadjointView<Eigen::Lower>().rankUpdate(x);
      AtT += x * static_cast<double>(v.T[k]);
    }
  AtA = AtA.selfadjointView<Eigen::Lower>();
  const auto ajuster = [&](int n) {
    return Eigen::VectorXd(AtA.topLeftCorner(n, n).completeOrthogonalDecomposition().solve(AtT.head(n)));
  };
  const Eigen::VectorXd brut = ajuster(nBrut), tendance = ajuster(nTendance), tendanceGain = ajuster(nTout);
  double e1 = 0, e2 = 0, e3 = 0, n = 0;
  const int bx = (W + kBlocBassesFrequences - 1) / kBlocBassesFrequences;
  const int by = (H + kBlocBassesFrequences - 1) / kBlocBassesFrequences;
  std::vector<double> sommes(static_cast<size_t>(bx) * by, 0.0), comptes(sommes.size(), 0.0);
  for (int l = 0; l < H; ++l)
    for (int c = 0; c < W; ++c) {
      const size_t k = static_cast<size_t>(l) * W + c;
      if (!commun[k]) continue;
      colonnes(c, l, m.v[k], v.groupe[k] - 1, a.data());
      const double T = v.T[k];
      double r1 = -T, r2 = -T, r3 = -T;
      for (int j = 0; j < nBrut; ++j) r1 += brut(j) * a[j];
      for (int j = 0; j < nTendance; ++j) r2 += tendance(j) * a[j];
      for (int j = 0; j < nTout; ++j) r3 += tendanceGain(j) * a[j];
      e1 += r1 * r1;
      e2 += r2 * r2;
      e3 += r3 * r3;
      n += 1;
      const size_t b = static_cast<size_t>(l / kBlocBassesFrequences) * bx + c / kBlocBassesFrequences;
      sommes[b] += r1;
      comptes[b] += 1;
    }
  Mesures r;
  r.brut = std::sqrt(e1 / n);
  r.tendance = std::sqrt(e2 / n);
  r.tendanceGain = std::sqrt(e3 / n);
  double bf = 0, nbf = 0;
  for (size_t b = 0; b < sommes.size(); ++b) {
    if (comptes[b] < kBlocBassesFrequences * kBlocBassesFrequences / 2) continue;
    const double moyenne = sommes[b] / comptes[b];
    bf += comptes[b] * moyenne * moyenne;
    nbf += comptes[b];
  }
  r.bassesFrequences = nbf > 0 ? std::sqrt(bf / nbf) : 0;
  // Seams and sharpness, from the differences with the right and lower neighbours.
  double raccordM = 0, raccordT = 0, ailleursM = 0, ailleursT = 0, gradM = 0, gradT = 0;
  for (int l = 0; l + 1 < H; ++l)
    for (int c = 0; c + 1 < W; ++c) {
      const size_t k = static_cast<size_t>(l) * W + c;
      if (!commun[k]) continue;
      for (const size_t q : {k + 1, k + static_cast<size_t>(W)}) {
        if (!commun[q]) continue;
        const bool raccord = ensembles[q] != ensembles[k];
        (raccord ? raccordM : ailleursM) += std::fabs(m.v[q] - m.v[k]);
        (raccord ? raccordT : ailleursT) += std::fabs(v.T[q] - v.T[k]);
      }
      if (!commun[k + 1] || !commun[k + W]) continue;
      gradM += std::hypot(m.v[k + 1] - m.v[k], m.v[k + W] - m.v[k]);
      gradT += std::hypot(v.T[k + 1] - v.T[k], v.T[k + W] - v.T[k]);
    }
  r.raccord = raccordT > 0 ? raccordM / raccordT : 0;
  r.ailleurs = ailleursT > 0 ? ailleursM / ailleursT : 0;
  r.nettete = gradT > 0 ? gradM / gradT : 0;
  return r;
}

double RmseRecouvrement(const Verite& v, const std::vector<TuileMemoire>& tuiles,
                        const std::vector<std::vector<float>>& valeurs) {
  double s = 0, n = 0;
  for (size_t i = 0; i < tuiles.size(); ++i)
    for (size_t j = i + 1; j < tuiles.size(); ++j) {
      const TuileQualite &a = tuiles[i].def, &b = tuiles[j].def;
      const long long c0 = std::max(a.colonne0, b.colonne0),
                      c1 = std::min(a.colonne0 + a.largeur, b.colonne0 + b.largeur);
      const long long l0 = std::max(a.ligne0, b.ligne0),
                      l1 = std::min(a.ligne0 + a.hauteur, b.ligne0 + b.hauteur);
      for (long long l = l0; l < l1; ++l)
        for (long long c = c0; c < c1; ++c) {
          const size_t ka = static_cast<size_t>((l - a.ligne0) * a.largeur + c - a.colonne0);
          const size_t kb = static_cast<size_t>((l - b.ligne0) * b.largeur + c - b.colonne0);
          if (!tuiles[i].valide[ka] || !tuiles[j].valide[kb] ||
              !v.couverte[static_cast<size_t>(l) * v.largeur + c])
            continue;
          const double d = valeurs[i][ka] - valeurs[j][kb];
          s += d * d;
          n += 1;
        }
    }
  return n > 0 ? std::sqrt(s / n) : 0;
}
