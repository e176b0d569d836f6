// The gain-offset model: its system against a dense least-squares solve, known corrections recovered,
// drift, robustness to changed content, disconnected groups and inputs that carry no information.
#include <gtest/gtest.h>

#include <Eigen/Dense>
#include <cmath>
#include <set>

#include "outils_pipeline.h"
#include "outils_test.h"
#include "zepra/erreur.h"

namespace {

using test::Donnees;
using test::FaireTuile;
using test::Tuile;

ResultatGainOffset Resoudre(const Donnees& d, const ParametresGainOffset& p) {
  return ResoudreGainOffset(d.resumes, d.obs, p);
}

// A degree-2 offset and degree-1 gain, drawn from a seed, of the given amplitudes (grey levels, and
// relative gain), the higher terms smaller as in real images.
void Distorsion(uint32_t graine, double offset, double gain, std::vector<double>& a, std::vector<double>& b) {
  const double echelle[6] = {1, 0.5, 0.5, 0.25, 0.25, 0.25};
  a.assign(3, 0.0);
  b.assign(6, 0.0);
  for (int k = 0; k < 3; ++k) a[k] = echelle[k] * gain * (2 * test::Hasard(k, 1, graine) - 1);
  for (int k = 0; k < 6; ++k) b[k] = echelle[k] * offset * (2 * test::Hasard(k, 2, graine) - 1);
}

// The corrections' departure from the tiles' true ones, as the change it makes to a mid-grey value.
test::Ecarts EcartsAuxVraies(const std::vector<Tuile>& tuiles, const std::vector<CorrectionGainOffset>& c) {
  return test::Surfaces(tuiles, false, [&](size_t i, int k, int l) {
    const CorrectionGainOffset &a = c[i], &v = tuiles[i].vraie;
    const double x = k + 0.5, y = l + 0.5;
    return (a.A(0, x, y) - v.A(0, x, y)) * 110 + a.B(0, x, y) - v.B(0, x, y);
  });
}

// The same coefficients, bit for bit.
void MemesCoefficients(const CorrectionGainOffset& a, const CorrectionGainOffset& b, size_t i) {
  for (int t = 0; t < 6; ++t) {
    EXPECT_EQ(a.Gain(0)[t], b.Gain(0)[t]) << i << " a." << t;
    EXPECT_EQ(a.Offset(0)[t], b.Offset(0)[t]) << i << " b." << t;
  }
}

// n x n tiles of 'taille' pixels, 'pas' apart, distorted by Distorsion; with 'centrer', each coefficient's
// mean over the tiles is removed, so that the tiles share no common distortion.
std::vector<Tuile> Grille(int n, int taille, int pas, double offset, double gain, double bruit,
                          bool centrer) {
  std::vector<std::vector<double>> as(n * n), bs(n * n);
  for (int k = 0; k < n * n; ++k) Distorsion(100 + k, offset, gain, as[k], bs[k]);
  if (centrer) {
    for (std::vector<std::vector<double>>* v : {&as, &bs})
      for (size_t t = 0; t < (*v)[0].size(); ++t) {
        double m = 0;
        for (const auto& c : *v) m += c[t] / (n * n);
        for (auto& c : *v) c[t] -= m;
      }
  }
  std::vector<Tuile> tuiles;
  for (int l = 0; l < n; ++l)
    for (int c = 0; c < n; ++c)
      tuiles.push_back(
          FaireTuile(c * pas, l * pas, taille, taille, as[l * n + c], bs[l * n + c], bruit, 1 + l * n + c));
  return tuiles;
}

// The system of the header's model written row by row, solved densely under its constraints (the
// mean gain correction has no component along the map terms of the gain's degree, through Lagrange
// multipliers); then the constant step that keeps the mean and local contrast.
std::vector<double> SolutionDense(const Donnees& d, const ParametresGainOffset& p) {
  const int nG = base_polynome::NbTermes(p.degreGain), nO = base_polynome::NbTermes(p.degreOffset),
            nU = nG + nO;
  const int n = static_cast<int>(d.resumes.size());
  std::vector<std::vector<double>> lignes;
  std::vector<double> rhs, poids;
  const auto termes = [&](int i, double x, double y, double* t) {
    base_polynome::Termes(base_polynome::Normaliser(x, d.resumes[i].largeur),
                          base_polynome::Normaliser(y, d.resumes[i].hauteur), t);
  };
  for (size_t k = 0; k < d.obs.blocs.size(); ++k) {
    const ObservationBloc& o = d.obs.blocs[k];
    const double* s = d.obs.Stats(k, 0);
    double ti[6], tj[6];
    termes(o.i, o.xi, o.yi, ti);
    termes(o.j, o.xj, o.yj, tj);
    std::vector<double> m(n * nU, 0.0), e(n * nU, 0.0);
    for (int t = 0; t < nG; ++t) {
      m[o.i * nU + t] = s[0] * ti[t];
      m[o.j * nU + t] = -s[2] * tj[t];
      e[o.i * nU + t] = s[1] * ti[t];
      e[o.j * nU + t] = -s[3] * tj[t];
    }
    for (int t = 0; t < nO; ++t) {
      m[o.i * nU + nG + t] = ti[t];
      m[o.j * nU + nG + t] = -tj[t];
    }
    lignes.push_back(m);
    rhs.push_back(s[2] - s[0]);
    poids.push_back(o.poids);
    lignes.push_back(e);
    rhs.push_back(s[3] - s[1]);
    poids.push_back(o.poids * p.poidsEcart);
  }
  double N = 0, S = 0, Q = 0;
  for (const ResumeImage& r : d.resumes) {
    N += r.compte;
    S += r.bandes[0].somme;
    Q += r.bandes[0].sommeCarres;
  }
  // The group's level: the floor of the images' deviations in the prior.
  const double niveau = std::sqrt(Q / N);
  for (int i = 0; i < n; ++i) {
    const ResumeImage& r = d.resumes[i];
    const double m = r.bandes[0].somme / r.compte;
    const double s = std::max(std::sqrt(r.bandes[0].sommeCarres / r.compte - m * m), 0.1 * niveau);
    for (int t = 0; t < std::max(nG, nO); ++t) {
      std::vector<double> l1(n * nU, 0.0), l2(n * nU, 0.0);
      if (t < nG) {
        l1[i * nU + t] = m;
        l2[i * nU + t] = s;
      }
      if (t < nO) l1[i * nU + nG + t] = 1;
      // Terms 1, x, y, x2, xy, y2: a level, two slopes, three curvatures.
      const double forme = t == 0 ? 1.0 : t < 3 ? p.poidsPentes : p.poidsCourbures;
      for (const auto& l : {l1, l2}) {
        lignes.push_back(l);
        rhs.push_back(0);
        poids.push_back(p.rigidite * r.surface * forme);
      }
      // The gain's shapes, dearer again: the same rows without the offset.
      if (t > 0 && t < nG)
        for (const auto& l : {l1, l2}) {
          std::vector<double> g(n * nU, 0.0);
          g[i * nU + t] = l[i * nU + t];
          lignes.push_back(g);
          rhs.push_back(0);
          poids.push_back(p.rigidite * r.surface * forme * (p.poidsFormesGain - 1));
        }
    }
  }
  Eigen::MatrixXd A(lignes.size(), n * nU);
  Eigen::VectorXd b(lignes.size());
  for (size_t r = 0; r < lignes.size(); ++r) {
    const double w = std::sqrt(poids[r]);
    for (int c = 0; c < n * nU; ++c) A(r, c) = w * lignes[r][c];
    b(r) = w * rhs[r];
  }
  Eigen::MatrixXd K = Eigen::MatrixXd::Zero(n * nU + nG, n * nU + nG);
  Eigen::VectorXd droite = Eigen::VectorXd::Zero(n * nU + nG);
  K.topLeftCorner(n * nU, n * nU) = A.transpose() * A;
  droite.head(n * nU) = A.transpose() * b;
  // The constraint rows from the blocks themselves: each block at the centre of its part of the
  // tile, its map position normalised over the tiles' union.
  double X1 = 0, Y1 = 0;
  for (const ResumeImage& r : d.resumes) {
    X1 = std::max(X1, r.placement.x0 + r.largeur);
    Y1 = std::max(Y1, r.placement.y0 + r.hauteur);
  }
  for (int i = 0; i < n; ++i) {
    const StatsBlocs& st = d.stats[i];
    const int bloc = st.Grille().bloc;
    for (long long by = st.By0(); by < st.By0() + st.NbBy(); ++by)
      for (long long bx = st.Bx0(); bx < st.Bx0() + st.NbBx(); ++bx) {
        const double nb = st.Bloc(bx, by)[0];
        if (nb == 0) continue;
        const double x0 = std::max<double>(bx * bloc, st.Place().x0),
                     y0 = std::max<double>(by * bloc, st.Place().y0);
        const double x1 = std::min<double>((bx + 1) * bloc, st.Place().x0 + st.Largeur());
        const double y1 = std::min<double>((by + 1) * bloc, st.Place().y0 + st.Hauteur());
        const double X = (x0 + x1) / 2, Y = (y0 + y1) / 2;
        double t[6];
        termes(i, X - st.Place().x0, Y - st.Place().y0, t);
        const double Xn = 2 * X / X1 - 1, Yn = 2 * Y / Y1 - 1;
        const double P[6] = {1, Xn, Yn, Xn * Xn, Xn * Yn, Yn * Yn};
        for (int k = 0; k < nG; ++k)
          for (int m = 0; m < nG; ++m) {
            K(n * nU + k, i * nU + m) += nb * t[m] * P[k];
            K(i * nU + m, n * nU + k) += nb * t[m] * P[k];
          }
      }
  }
  const Eigen::VectorXd x = K.fullPivLu().solve(droite).head(n * nU);
  // The constant gain and offset: local contrast and mean brought back.
  double e0 = 0, e1 = 0, s0 = 0, s1 = 0;
  for (int i = 0; i < n; ++i) {
    const ResumeImage::Bande& r = d.resumes[i].bandes[0];
    e0 += r.sommeEcarts;
    e1 += r.sommeEcarts;
    s0 += r.somme;
    s1 += r.somme;
    for (int t = 0; t < nG; ++t) {
      e1 += x(i * nU + t) * r.momentsEcart[t];
      s1 += x(i * nU + t) * r.momentsValeur[t];
    }
    for (int t = 0; t < nO; ++t) s1 += x(i * nU + nG + t) * r.momentsCompte[t];
  }
  const double G = e0 / e1, B = (s0 - G * s1) / N;
  std::vector<double> c(x.data(), x.data() + x.size());
  for (int i = 0; i < n; ++i) {
    for (int t = 0; t < nU; ++t) c[i * nU + t] *= G;
    c[i * nU] += G - 1;
    c[i * nU + nG] += B;
  }
  return c;
}

TEST(GainOffset, SystemeEgalAuMoindresCarresDenses) {
  std::vector<Tuile> tuiles;
  std::vector<double> a, b;
  for (int k = 0; k < 3; ++k) {
    Distorsion(k + 1, 12, 0.08, a, b);
    const int x0[] = {0, 32, 14}, y0[] = {0, 4, 30};
    tuiles.push_back(FaireTuile(x0[k], y0[k], 48, 44, a, b, 3, k + 1));
  }
  const Donnees d = test::ObserverBlocs(tuiles, 8);
  ASSERT_GT(d.obs.blocs.size(), 15u);
  for (int dg = 0; dg <= 2; ++dg)
    for (int dof = 0; dof <= 2; ++dof) {
      ParametresGainOffset p;
      p.degreGain = dg;
      p.degreOffset = dof;
      p.iterations = 1;
      p.rigidite = 0.02;
      p.poidsPentes = 4;
      p.poidsCourbures = 7;
      p.poidsEcart = 0.7;
      const ResultatGainOffset R = Resoudre(d, p);
      const std::vector<double> attendu = SolutionDense(d, p);
      const int nG = base_polynome::NbTermes(dg), nO = base_polynome::NbTermes(dof);
      for (int i = 0; i < 3; ++i) {
        for (int t = 0; t < nG; ++t)
          EXPECT_NEAR(R.corrections[i].Gain(0)[t], attendu[i * (nG + nO) + t], 1e-9)
              << "degres " << dg << " " << dof << " image " << i << " a." << t;
        for (int t = 0; t < nO; ++t)
          EXPECT_NEAR(R.corrections[i].Offset(0)[t], attendu[i * (nG + nO) + nG + t], 1e-7)
              << "degres " << dg << " " << dof << " image " << i << " b." << t;
      }
    }
}

// Tiles distorted by the inverse of a correction inside the model: the solution gives the scene back,
// up to one map-wide surface, and the overlaps agree.
TEST(GainOffset, RetrouveUneCorrectionConnue) {
  struct Cas {
    int degreGain, degreOffset;
  };
  for (const Cas& c : {Cas{0, 0}, Cas{0, 2}, Cas{1, 1}, Cas{1, 2}, Cas{2, 2}}) {
    std::vector<Tuile> tuiles;
    for (int k = 0; k < 9; ++k) {
      std::vector<double> a, b;
      Distorsion(30 + k, 15, 0.08, a, b);
      a.resize(base_polynome::NbTermes(c.degreGain));
      b.resize(base_polynome::NbTermes(c.degreOffset));
      tuiles.push_back(FaireTuile(k % 3 * 84, k / 3 * 84, 120, 120, a, b));
    }
    const Donnees d = test::ObserverBlocs(tuiles, 6);
    ParametresGainOffset p;
    p.degreGain = c.degreGain;
    p.degreOffset = c.degreOffset;
    // The correction's own model throughout, in which these tiles' correction is exact (the
    // distortion's gain is checked below).
    p.gainDistorsion = false;
    const ResultatGainOffset R = Resoudre(d, p);
    const test::Ecarts e = test::EcartsAuVrai(tuiles, R.corrections);
    const test::Ecarts avant =
        test::EcartsAuVrai(tuiles, std::vector<CorrectionGainOffset>(9, CorrectionGainOffset(120, 120)));
    EXPECT_LT(e.residu, 0.25) << c.degreGain << " " << c.degreOffset << " (sans correction " << avant.residu
                              << ")";
    EXPECT_GT(avant.residu, 5.0);
    EXPECT_LT(R.bandes[0].rmsApres, 0.01 * R.bandes[0].rmsAvant) << c.degreGain << " " << c.degreOffset;
    for (const DiagnosticImage& di : R.images) {
      EXPECT_EQ(di.groupe, 0);
      EXPECT_TRUE(di.termesIndetermines.empty()) << di.termesIndetermines;
    }
  }
}

// The last solves estimate the gain as the distortion's. On tiles a camera distorts (scene x (1 + g),
// whose correction is not a polynomial) that comes closer to the scene than the correction's model,
// outside the map-wide surfaces; on tiles distorted by the inverse of a polynomial correction it is the
// other way round. Both remove most of the error overlaps can tell.
TEST(GainOffset, GainEstimeCommeCeluiDeLaDistorsion) {
  std::vector<test::Tuile> camera, inverse;
  for (int k = 0; k < 16; ++k) {
    std::vector<double> a, b;
    Distorsion(60 + k, 0, 0.16, a, b);
    a.resize(6);
    for (int t = 3; t < 6; ++t) a[t] = 0.02 * (2 * test::Hasard(t, 3, 60 + k) - 1);
    camera.push_back(test::FaireTuileVignettee(k % 4 * 96, k / 4 * 96, 128, 128, a, 0, 0));
    inverse.push_back(FaireTuile(k % 4 * 96, k / 4 * 96, 128, 128, a, {0}));
  }
  const struct {
    const std::vector<test::Tuile>& tuiles;
    bool distorsionMeilleure;
  } cas[] = {{camera, true}, {inverse, false}};
  for (const auto& c : cas) {
    const test::Donnees d = test::ObserverBlocs(c.tuiles, 8);
    ParametresGainOffset correction;
    correction.gainDistorsion = false;
    const double avecDistorsion =
        test::EcartsAuVrai(c.tuiles, Resoudre(d, ParametresGainOffset()).corrections).residu;
    const double sans = test::EcartsAuVrai(c.tuiles, Resoudre(d, correction).corrections).residu;
    if (c.distorsionMeilleure)
      EXPECT_LT(avecDistorsion, 0.8 * sans) << sans;
    else
      EXPECT_LT(sans, 0.8 * avecDistorsion) << avecDistorsion;
    const double avant =
        test::EcartsAuVrai(c.tuiles, std::vector<CorrectionGainOffset>(16, CorrectionGainOffset(128, 128)))
            .residu;
    EXPECT_LT(std::max(avecDistorsion, sans), 0.3 * avant) << avecDistorsion << " " << sans;
  }
}

// 6 x 6 tiles with independent distortions whose mean is none: the mean correction stays identity, and
// the map-wide surface that overlaps cannot see (the true corrections have one, by chance) is not made
// larger than no correction leaves it, with the default weights and with equal ones alike. And tiles
// sharing one map-wide distortion (light falling off across the block): they are left alone.
TEST(GainOffset, PasDeDeriveSurUnBlocDe6x6) {
  const std::vector<Tuile> tuiles = Grille(6, 128, 96, 12, 0.05, 1, true);
  const test::Donnees d = test::ObserverBlocs(tuiles, 8);
  std::vector<CorrectionGainOffset> vraies;
  for (const Tuile& t : tuiles) vraies.push_back(t.vraie);
  const double sansCorrection = test::SurfacesDesCorrections(tuiles, vraies).surface;
  EXPECT_GT(sansCorrection, 2.0);
  for (const double formes : {10.0, 1.0}) {
    ParametresGainOffset p;
    p.poidsPentes = formes;
    p.poidsCourbures = formes;
    const ResultatGainOffset R = Resoudre(d, p);
    // The mean over the tiles of each coefficient of a - 1 (times the scene's level) and of b.
    double moyennes[12] = {};
    for (const CorrectionGainOffset& c : R.corrections)
      for (int t = 0; t < 6; ++t) {
        moyennes[t] += 110 * c.Gain(0)[t] / 36;
        moyennes[6 + t] += c.Offset(0)[t] / 36;
      }
    for (int t = 0; t < 12; ++t)
      EXPECT_LT(std::fabs(moyennes[t]), 0.5) << "formes " << formes << " terme " << t;
    EXPECT_LT(EcartsAuxVraies(tuiles, R.corrections).surface, sansCorrection) << "formes " << formes;
  }

  std::vector<Tuile> communes;
  for (const Tuile& t : tuiles) {
    communes.push_back(FaireTuile(t.x0, t.y0, t.w, t.h, {0}, {0}));
    for (int l = 0; l < t.h; ++l)
      for (int c = 0; c < t.w; ++c) {
        const double X = (t.x0 + c) / 608.0, Y = (t.y0 + l) / 608.0;
        float& v = communes.back()(c, l);
        v = static_cast<float>(v * (1.08 - 0.1 * X * Y) + 9 * X - 6 * Y * Y);
      }
  }
  const ResultatGainOffset C = Resoudre(test::ObserverBlocs(communes, 8), ParametresGainOffset());
  const test::Ecarts e = test::SurfacesDesCorrections(communes, C.corrections);
  EXPECT_LT(std::hypot(e.surface, e.residu), 0.01);
}

// The prior learnt from the data: groups of fewer than 6 images keep the set prior (the very same
// corrections); on 4 x 4 tiles whose offsets spread widely and whose gains are flat, it holds the gains
// and brings the corrections closer to the true ones than the set prior does, the map-wide surface
// overlaps cannot see included.
TEST(GainOffset, PriorApprisDesDonnees) {
  const struct {
    int n;
    bool plusProche;
  } cas[] = {{2, false}, {4, true}};
  for (const auto& c : cas) {
    const std::vector<Tuile> tuiles = Grille(c.n, 128, 96, 20, 0.0, 1, false);
    const test::Donnees d = test::ObserverBlocs(tuiles, 8);
    ParametresGainOffset fixe;
    fixe.priorEmpirique = false;
    const ResultatGainOffset A = Resoudre(d, ParametresGainOffset()), F = Resoudre(d, fixe);
    const test::Ecarts a = EcartsAuxVraies(tuiles, A.corrections), f = EcartsAuxVraies(tuiles, F.corrections);
    if (!c.plusProche) {
      for (size_t i = 0; i < tuiles.size(); ++i) MemesCoefficients(A.corrections[i], F.corrections[i], i);
      continue;
    }
    EXPECT_LT(std::hypot(a.surface, a.residu), 0.9 * std::hypot(f.surface, f.residu))
        << a.surface << " " << a.residu << " / " << f.surface << " " << f.residu;
    for (const CorrectionGainOffset& k : A.corrections)
      for (int t = 1; t < 6; ++t) EXPECT_LT(std::fabs(110 * k.Gain(0)[t]), 0.5) << t;
  }
}

// A bright cloud in one tile's overlap: the other tiles' corrections barely move with the robust
// weights; without them (one plain solve, or every solve with the re-weighting off) they move by several
// grey levels.
TEST(GainOffset, UnNuageDansUneTuileNeDeplacePasLesAutres) {
  const std::vector<Tuile> propre = Grille(3, 120, 84, 10, 0.05, 1, false);
  std::vector<Tuile> nuage = propre;
  Tuile& t = nuage[4];
  for (int l = 0; l < t.h; ++l)
    for (int c = 0; c < t.w; ++c) {
      const double r2 = ((c - 100.0) * (c - 100.0) + (l - 60.0) * (l - 60.0)) / (12.0 * 12.0);
      if (r2 < 1) t(c, l) = static_cast<float>(t(c, l) + 90 * (1 - r2) * (1 - r2));
    }
  const auto deplacement = [&](const ParametresGainOffset& p) {
    const ResultatGainOffset a = Resoudre(test::ObserverBlocs(propre, 6), p);
    const ResultatGainOffset b = Resoudre(test::ObserverBlocs(nuage, 6), p);
    double pire = 0;
    for (int i = 0; i < 9; ++i) {
      if (i == 4) continue;
      for (int l = 0; l < 120; l += 4)
        for (int c = 0; c < 120; c += 4) {
          const double v = 110;
          const double ca =
              a.corrections[i].A(0, c + 0.5, l + 0.5) * v + a.corrections[i].B(0, c + 0.5, l + 0.5);
          const double cb =
              b.corrections[i].A(0, c + 0.5, l + 0.5) * v + b.corrections[i].B(0, c + 0.5, l + 0.5);
          pire = std::max(pire, std::fabs(ca - cb));
        }
    }
    return pire;
  };
  ParametresGainOffset plain, sansPoids;
  plain.iterations = 1;
  sansPoids.reponderation = false;
  EXPECT_LT(deplacement(ParametresGainOffset()), 0.3);
  EXPECT_GT(deplacement(plain), 2.0);
  EXPECT_GT(deplacement(sansPoids), 2.0);
}

// Content that cannot be compared with its neighbours' (a tile filled with one value, saturated,
// filled over its overlaps, or showing another place) counts as no tile at all: the other tiles' corrections
// are those of the solve without it, up to the group's constant gain and offset (its mean level and contrast
// count the spoilt tile as it is). Such blocks' mean equations used to pull the other tiles' gains toward 0:
// one uniform tile in a 2 x 2 block gave them gains of -0.9 and 1.9, and moved them by 140 grey levels.
TEST(GainOffset, UnContenuIncomparableCompteCommeAucuneTuile) {
  struct Cas {
    const char* nom;
    int n, image, degre;
    void (*modifier)(Tuile&);
  };
  const auto uniforme = [](Tuile& t) { std::fill(t.v.begin(), t.v.end(), 120.0f); };
  // The scene of another place, the tile where it was (misplaced, or another date's content). The test
  // scene is periodic: 3000 and 2000 pixels away its block-scale pattern nearly repeats (correlation 0.6
  // of block changes), as no other place on real ground does; 23 and 11 pixels further it does not.
  const auto ailleurs = [](Tuile& t) {
    const Tuile autre = FaireTuile(t.x0 + 3023, t.y0 + 2011, t.w, t.h, {0.02}, {5}, 1, 9);
    t.v = autre.v;
  };
  const Cas cas[] = {
      {"uniforme 2 x 2", 2, 1, 0, uniforme},
      {"saturee 2 x 2", 2, 3, 0, [](Tuile& t) { std::fill(t.v.begin(), t.v.end(), 255.0f); }},
      {"uniforme 4 x 4", 4, 5, 2, uniforme},
      {"d'un autre lieu 2 x 2", 2, 2, 0, ailleurs},
      {"d'un autre lieu 4 x 4", 4, 5, 2, ailleurs},
      {"remplie sur ses recouvrements 4 x 4", 4, 5, 2,
       [](Tuile& t) {
         for (int l = 0; l < t.h; ++l)
           for (int c = 0; c < t.w; ++c)
             if (c < 36 || c >= 84 || l < 36 || l >= 84) t(c, l) = 255.0f;
       }},
  };
  for (const Cas& c : cas) {
    const std::vector<Tuile> propre = Grille(c.n, 120, 84, 10, 0.05, 1, false);
    std::vector<Tuile> sans = propre, abimee = propre;
    sans.erase(sans.begin() + c.image);
    c.modifier(abimee[c.image]);
    ParametresGainOffset p;
    p.degreGain = p.degreOffset = c.degre;
    const test::Donnees da = test::ObserverBlocs(sans, 6), db = test::ObserverBlocs(abimee, 6);
    const ResultatGainOffset a = Resoudre(da, p), b = Resoudre(db, p);
    std::vector<std::pair<double, double>> v;
    for (int i = 0; i < c.n * c.n; ++i) {
      if (i == c.image) continue;
      const CorrectionGainOffset &ca = a.corrections[i < c.image ? i : i - 1], &cb = b.corrections[i];
      for (int l = 0; l < 120; l += 4)
        for (int k = 0; k < 120; k += 4)
          for (double x : {60.0, 160.0})
            v.emplace_back(ca.A(0, k + 0.5, l + 0.5) * x + ca.B(0, k + 0.5, l + 0.5),
                           cb.A(0, k + 0.5, l + 0.5) * x + cb.B(0, k + 0.5, l + 0.5));
    }
    Eigen::MatrixXd M(v.size(), 2);
    Eigen::VectorXd y(v.size());
    for (size_t k = 0; k < v.size(); ++k) {
      M(k, 0) = v[k].first;
      M(k, 1) = 1;
      y(k) = v[k].second;
    }
    const double pire = (M * M.colPivHouseholderQr().solve(y) - y).cwiseAbs().maxCoeff();
    // The learnt prior of the 4 x 4 blocks counts the spoilt tile's identity among the spreads: 0.2.
    EXPECT_LT(pire, 0.5) << c.nom;
    // Reported pair by pair, and only its pairs.
    size_t paires = 0;
    for (const ContenuDifferent& d : b.differents) paires += d.i == c.image || d.j == c.image;
    EXPECT_GT(paires, 0u) << c.nom;
    EXPECT_EQ(paires, b.differents.size()) << c.nom;
    // The overlap figures cover the pairs compared, those of the solve without it: the same blocks
    // before correction, and after it the same up to the group's constant gain. The set-aside pairs
    // and blocks are counted: every pair and block of the spoilt tile.
    std::set<std::pair<int, int>> pairesTuile;
    for (const ObservationBloc& o : db.obs.blocs)
      if (o.i == c.image || o.j == c.image) pairesTuile.insert({o.i, o.j});
    const BilanBande &ba = a.bandes[0], &bb = b.bandes[0];
    EXPECT_NEAR(bb.rmsAvant, ba.rmsAvant, 1e-9 * ba.rmsAvant) << c.nom;
    EXPECT_NEAR(bb.rmsApres, ba.rmsApres, 0.2 * ba.rmsApres) << c.nom;
    EXPECT_LT(bb.rmsApres, 0.5 * bb.rmsAvant) << c.nom;
    EXPECT_EQ(bb.pairesEcartees, pairesTuile.size()) << c.nom;
    EXPECT_EQ(bb.blocsEcartes, db.obs.blocs.size() - da.obs.blocs.size()) << c.nom;
    EXPECT_EQ(ba.pairesEcartees, 0u) << c.nom;
    EXPECT_EQ(ba.blocsEcartes, 0u) << c.nom;
    // Its terms are not reported as undetermined: the set-aside pairs say why it has no equation.
    EXPECT_EQ(b.images[c.image].termesIndetermines, "") << c.nom;
  }
}

// Over the same ground, offsets sloping opposite ways make the changes between blocks far apart (one
// line's end and the next line's start) opposite in the two tiles: they are not different content. One
// pair above the other (long lines of blocks, slopes along them), one beside the other (short lines,
// slopes across them); 10 demo tiles in 760 pairs were once set aside for it.
TEST(GainOffset, PentesOpposeesNeSontPasUnContenuDifferent) {
  for (const bool dessus : {true, false})
    for (const double pente : {10.0, 30.0, 60.0}) {
      const std::vector<double> b0 = {0, dessus ? pente : 0, dessus ? 0 : pente}, b1 = {0, -b0[1], -b0[2]};
      const std::vector<Tuile> t = {
          FaireTuile(0, 0, 200, 120, {0}, b0, 1, 1),
          dessus ? FaireTuile(0, 80, 200, 120, {0}, b1, 1, 2) : FaireTuile(160, 0, 200, 120, {0}, b1, 1, 2)};
      const ResultatGainOffset r = Resoudre(test::ObserverBlocs(t, 8), ParametresGainOffset());
      EXPECT_TRUE(r.differents.empty()) << dessus << " " << pente << " : " << r.differents[0].correlation;
      EXPECT_LT(r.bandes[0].rmsApres, 0.1 * r.bandes[0].rmsAvant) << dessus << " " << pente;
    }
}

// Two blocks of tiles far apart are two groups, each solved as if it were alone.
TEST(GainOffset, GroupesDeconnectesResolusSeparement) {
  std::vector<Tuile> gauche = Grille(2, 60, 44, 10, 0.05, 1, false), droite;
  for (Tuile t : Grille(2, 60, 44, 8, 0.04, 1, false)) {
    t = FaireTuile(t.x0 + 300, t.y0 + 20, t.w, t.h, std::vector<double>(t.vraie.Gain(0), t.vraie.Gain(0) + 3),
                   std::vector<double>(t.vraie.Offset(0), t.vraie.Offset(0) + 6), 1, 50 + t.x0);
    droite.push_back(t);
  }
  std::vector<Tuile> toutes = gauche;
  toutes.insert(toutes.end(), droite.begin(), droite.end());
  const ParametresGainOffset p;
  const ResultatGainOffset R = Resoudre(test::ObserverBlocs(toutes, 8), p);
  const ResultatGainOffset G = Resoudre(test::ObserverBlocs(gauche, 8), p);
  const ResultatGainOffset D = Resoudre(test::ObserverBlocs(droite, 8), p);
  ASSERT_EQ(R.groupes.size(), 2u);
  EXPECT_EQ(R.groupes[1], (std::vector<int>{4, 5, 6, 7}));
  for (int i = 0; i < 8; ++i) {
    const CorrectionGainOffset& seul = i < 4 ? G.corrections[i] : D.corrections[i - 4];
    MemesCoefficients(R.corrections[i], seul, i);
    EXPECT_EQ(R.images[i].groupe, i < 4 ? 0 : 1);
  }
}

// Inputs that tell nothing, or that tell gain and offset apart nowhere: finite corrections, and the
// report says which image and which terms.
TEST(GainOffset, EntreesDegenereesDonnentDesCorrectionsFinies) {
  struct Cas {
    const char* nom;
    void (*modifier)(std::vector<Tuile>&);
    int image;         // the image the report is about
    bool identite;     // it keeps identity
    bool isolee;       // it is in no group
    bool indetermine;  // some of its terms are reported as not determined
  };
  const Cas cas[] = {
      // The middle tile links the other two: with nothing comparable in its blocks, every tile keeps
      // its values. Its pairs are reported as set aside, not its terms as undetermined.
      {"constante", [](std::vector<Tuile>& t) { std::fill(t[1].v.begin(), t[1].v.end(), 77.0f); }, 1, true,
       false, false},
      {"sans donnees", [](std::vector<Tuile>& t) { std::fill(t[1].valide.begin(), t[1].valide.end(), 0); }, 1,
       true, true, false},
      {"saturees",
       [](std::vector<Tuile>& t) {
         for (Tuile& u : t) std::fill(u.v.begin(), u.v.end(), 255.0f);
       },
       0, true, false, true},
      {"zeros",
       [](std::vector<Tuile>& t) {
         for (Tuile& u : t) std::fill(u.v.begin(), u.v.end(), 0.0f);
       },
       0, true, false, true},
      // The third tile meets the first on one line of blocks only: its y terms are not seen.
      {"bande",
       [](std::vector<Tuile>& t) {
         t[2] = FaireTuile(0, 56, 32, 64, {0.02, 0, 0}, {3, 1, 0, 0, 0, 0});
       },
       2, false, false, true},
      {"isolee",
       [](std::vector<Tuile>& t) {
         t[2] = FaireTuile(200, 200, 64, 64, {0.02, 0, 0}, {3, 0, 0, 0, 0, 0});
       },
       2, true, true, false},
  };
  for (const Cas& c : cas) {
    std::vector<Tuile> tuiles;
    for (int k = 0; k < 3; ++k) {
      std::vector<double> a, b;
      Distorsion(60 + k, 10, 0.05, a, b);
      tuiles.push_back(FaireTuile(k * 40, k % 2 * 8, 64, 64, a, b, 1, k));
    }
    c.modifier(tuiles);
    const Donnees d = test::ObserverBlocs(tuiles, 8);
    const ResultatGainOffset R = Resoudre(d, ParametresGainOffset());
    for (size_t i = 0; i < R.corrections.size(); ++i)
      for (int l = 0; l <= 64; l += 16)
        for (int k = 0; k <= 64; k += 16) {
          EXPECT_TRUE(std::isfinite(R.corrections[i].A(0, k, l))) << c.nom << " " << i;
          EXPECT_TRUE(std::isfinite(R.corrections[i].B(0, k, l))) << c.nom << " " << i;
        }
    EXPECT_EQ(R.corrections[c.image].EstIdentite(), c.identite) << c.nom;
    EXPECT_EQ(R.images[c.image].groupe < 0, c.isolee) << c.nom;
    EXPECT_EQ(!R.images[c.image].termesIndetermines.empty(), c.indetermine)
        << c.nom << " : " << R.images[c.image].termesIndetermines;
    EXPECT_TRUE(std::isfinite(R.bandes[0].rmsApres)) << c.nom;
  }
}

TEST(GainOffset, ParametresRefuses) {
  struct Cas {
    void (*regler)(ParametresGainOffset&);
    const char* debut;
  };
  const Cas cas[] = {
      {[](ParametresGainOffset& p) { p.degreGain = 3; }, "[GainOffset] (Verifier) Degres du gain 3"},
      {[](ParametresGainOffset& p) { p.degreOffset = -1; },
       "[GainOffset] (Verifier) Degres du gain 2 et de l'offset -1"},
      {[](ParametresGainOffset& p) { p.rigidite = 0; }, "[GainOffset] (Verifier) Rigidite 0"},
      {[](ParametresGainOffset& p) { p.rigidite = -2; }, "[GainOffset] (Verifier) Rigidite -2"},
      {[](ParametresGainOffset& p) { p.poidsPentes = 0.5; },
       "[GainOffset] (Verifier) Poids des pentes 0.5, des courbures 3 et des formes du gain 30"},
      {[](ParametresGainOffset& p) { p.poidsCourbures = 1e5; },
       "[GainOffset] (Verifier) Poids des pentes 10, des courbures 100000"},
      {[](ParametresGainOffset& p) { p.poidsFormesGain = 0; },
       "[GainOffset] (Verifier) Poids des pentes 10, des courbures 3 et des formes du gain 0"},
      {[](ParametresGainOffset& p) { p.poidsEcart = -1; },
       "[GainOffset] (Verifier) Poids des ecarts types -1"},
      {[](ParametresGainOffset& p) { p.iterations = 0; }, "[GainOffset] (Verifier) 0 iterations"},
      {[](ParametresGainOffset& p) { p.constanteTukey = 0.5; },
       "[GainOffset] (Verifier) Constante de Tukey 0.5 : 1 a 1000 attendue."},
      {[](ParametresGainOffset& p) { p.constanteTukey = std::nan(""); },
       "[GainOffset] (Verifier) Constante de Tukey nan"},
      {[](ParametresGainOffset& p) {
         p.etalementsDonnes = {1, 1, 1};
       },
       "[GainOffset] (Verifier) Etalements donnes : 6 valeurs"},
      {[](ParametresGainOffset& p) { p.etalementsDonnes = {1, 1, 1, 1, -1, 1}; },
       "[GainOffset] (Verifier) Etalements donnes : 6 valeurs"},
      {[](ParametresGainOffset& p) { p.etalementsDonnes = {1, 1, std::nan(""), 1, 1, 1}; },
       "[GainOffset] (Verifier) Etalements donnes : 6 valeurs"},
  };
  for (const Cas& c : cas) {
    ParametresGainOffset p;
    c.regler(p);
    test::Refuse([&] { ResoudreGainOffset({}, ObservationsBlocs(), p); }, c.debut);
  }
}

// The line evaluation (the field as a polynomial in x along the line) against the field term by term.
TEST(GainOffset, CorrectionParLigneEgaleAuChampEnChaquePixel) {
  for (int dg = 0; dg <= 2; ++dg)
    for (int dof = 0; dof <= 2; ++dof) {
      CorrectionGainOffset c(37, 23, 2, dg, dof);
      for (int b = 0; b < 2; ++b) {
        for (int t = 0; t < base_polynome::NbTermes(dg); ++t)
          c.Gain(b)[t] = 0.1 * (test::Hasard(t, b, 3) - 0.5);
        for (int t = 0; t < base_polynome::NbTermes(dof); ++t)
          c.Offset(b)[t] = 20 * (test::Hasard(t, b, 4) - 0.5);
      }
      std::vector<float> v(30), sortie(30);
      std::vector<unsigned char> valide(30);
      for (int k = 0; k < 30; ++k) {
        v[k] = static_cast<float>(200 * test::Hasard(k, dg, dof));
        valide[k] = k % 5 != 0;
      }
      for (int b = 0; b < 2; ++b)
        for (int l = 0; l < 23; l += 11) {
          c.CorrigerLigne(b, l, 5, 30, v.data(), sortie.data(), valide.data());
          for (int k = 0; k < 30; ++k) {
            const double x = 5 + k + 0.5, y = l + 0.5;
            const double attendu = valide[k] ? c.A(b, x, y) * v[k] + c.B(b, x, y) : v[k];
            EXPECT_NEAR(sortie[k], attendu, 1e-4) << dg << " " << dof << " " << b << " " << l << " " << k;
          }
        }
    }
}

}  // namespace
