#include "pipeline/gain_offset.h"

#include <Eigen/Dense>
#include <Eigen/Sparse>
#include <Eigen/SparseCholesky>
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <sstream>

#include "pipeline/inverse_selective.h"
#include "zepra/erreur.h"
#include "zepra/pipeline/parallele.h"

namespace {

using base_polynome::kTermesMax;
using base_polynome::NbTermes;

constexpr double kHuber = 1.5;
constexpr int kEtapesHuber = 2;
// The first solves (all but the last when there are few) hold the corrections this stiffly at least: a
// flexible fit would bend the weakly observed terms to absorb changed content, which then no longer
// stands out in the residuals; the re-weighting starts from the stiff fit.
constexpr int kSolvesRaides = 3;
constexpr double kRigiditeDepart = 1e-3;
// Robust scales below this fraction of the group's deviation are taken as this: residuals of exact data
// are rounding noise, which must not be re-weighted.
constexpr double kEchelleMin = 1e-3;
// A term whose share of its image's observation information is below this is not determined.
constexpr double kRangRelatif = 1e-9;
// Deviation equations between blocks whose deviations differ by more than this factor are left out: no
// gain is that far from 1, so one of the two is flat for another reason (saturation, a fill, a cloud),
// and the equation would pull the other image's gain toward 0.
constexpr double kRapportEcartsMin = 0.25;
// The prior learnt from the data needs this many images in the group to measure the spread of their
// corrections; smaller groups keep the set prior.
constexpr size_t kImagesEmpirique = 6;
// A pair of images whose block means change from one block to its neighbours with a correlation below
// this holds different content (the same ground: 0.99 on the benchmark's tiles); judged from this many
// changes at least, and only where they are at least this fraction of the group's median in one of
// the images (flat ground in both leaves them to noise).
constexpr double kCorrelationMin = 0.5;
constexpr size_t kBlocsCorrelation = 16;
constexpr double kAmplitudeRelative = 0.25;
// Spreads below this (grey levels, or value units) are taken as this: a class of terms the data leave
// at zero is then held firmly, not infinitely.
constexpr double kEcartEmpiriqueMin = 1e-2;

// Gauss-Legendre nodes and weights on [-1, 1], 8 points: exact for polynomials of degree 15, and far
// below a grey level's rounding for the smooth inverse of a gain field.
constexpr int kNoeuds = 8;
constexpr double kNoeud[kNoeuds] = {-0.9602898564975363, -0.7966664774136267, -0.5255324099163290,
                                    -0.1834346424956498, 0.1834346424956498,  0.5255324099163290,
                                    0.7966664774136267,  0.9602898564975363};
constexpr double kPoidsNoeud[kNoeuds] = {0.1012285362903763, 0.2223810344533745, 0.3137066458778873,
                                         0.3626837833783620, 0.3626837833783620, 0.3137066458778873,
                                         0.2223810344533745, 0.1012285362903763};
// A gain field is taken as at least this where it is inverted: a correction that flattens an image
// to nothing is not a gain.
constexpr double kGainMin = 0.05;

const char* const kNomsTermes[kTermesMax] = {"1", "x", "y", "x2", "xy", "y2"};
constexpr int kDegreTerme[kTermesMax] = {0, 1, 1, 2, 2, 2};

// Connected groups of the overlap graph (images with at least one observation), each in increasing
// order, the groups by their first image.
std::vector<std::vector<int>> Groupes(int n, const ObservationsBlocs& obs) {
  std::vector<int> parent(n);
  std::iota(parent.begin(), parent.end(), 0);
  const auto racine = [&](int a) {
    while (parent[a] != a) a = parent[a] = parent[parent[a]];
    return a;
  };
  std::vector<char> observee(n, 0);
  for (const ObservationBloc& o : obs.blocs) {
    observee[o.i] = observee[o.j] = 1;
    const int a = racine(o.i), b = racine(o.j);
    if (a != b) parent[std::max(a, b)] = std::min(a, b);
  }
  std::vector<std::vector<int>> groupes;
  std::vector<int> numero(n, -1);
  for (int i = 0; i < n; ++i) {
    if (!observee[i]) continue;
    const int r = racine(i);
    if (numero[r] < 0) {
      numero[r] = static_cast<int>(groupes.size());
      groupes.emplace_back();
    }
    groupes[numero[r]].push_back(i);
  }
  return groupes;
}

std::string NomImage(const std::vector<std::string>& noms, int i) {
  return i < static_cast<int>(noms.size()) ? noms[i] : "image " + std::to_string(i + 1);
}

std::string ListeImages(const std::vector<std::string>& noms, const std::vector<int>& images) {
  std::ostringstream s;
  for (size_t k = 0; k < images.size() && k < 10; ++k) s << (k ? ", " : "") << NomImage(noms, images[k]);
  if (images.size() > 10) s << " et " << images.size() - 10 << " autre(s)";
  return s.str();
}

double Mediane(std::vector<double>& v) {
  if (v.empty()) return 0;
  const auto milieu = v.begin() + static_cast<long>(v.size() / 2);
  std::nth_element(v.begin(), milieu, v.end());
  return *milieu;
}

// One band of one connected group: its normal equations, solves and re-weighting.
class SystemeGroupe {
 public:
  // local: each image's index in its own group (shared by every group and band rather than one
  // table of all the images per group and band).
  SystemeGroupe(const std::vector<ResumeImage>& resumes, const ObservationsBlocs& obs,
                const std::vector<int>& images, const std::vector<size_t>& indices,
                const std::vector<int>& local, const ParametresGainOffset& p, int bande,
                const ReferenceGainOffset& reference)
      : m_resumes(resumes),
        m_obs(obs),
        m_images(images),
        m_indices(indices),
        m_p(p),
        m_bande(bande),
        m_nG(NbTermes(p.degreGain)),
        m_nO(NbTermes(p.degreOffset)),
        m_nU(m_nG + m_nO),
        m_local(local) {
    for (size_t k = 0; k < images.size(); ++k)
      if (images[k] == reference.image) m_ref = static_cast<int>(k);
    // The group's level and contrast set the scale of the gain unknowns and the floors of the priors.
    double n = 0, s = 0, q = 0;
    for (int i : images) {
      const ResumeImage& r = resumes[i];
      n += r.compte;
      s += r.bandes[bande].somme;
      q += r.bandes[bande].sommeCarres;
    }
    const double m = n > 0 ? s / n : 0, e = n > 0 ? std::sqrt(std::max(0.0, q / n - m * m)) : 0;
    m_G = std::sqrt(m * m + e * e);
    if (!(m_G > 0 && std::isfinite(m_G))) m_G = 1;
    m_ecartRef = e > 0 ? e : (m != 0 ? 1e-3 * std::fabs(m) : 1.0);
    m_poidsMoy.assign(indices.size(), 1.0);
    m_poidsEcart.assign(indices.size(), 1.0);
    for (size_t k = 0; k < indices.size(); ++k) {
      const double* st = obs.Stats(indices[k], bande);
      if (!(std::min(st[1], st[3]) >= kRapportEcartsMin * std::max(st[1], st[3]) && st[1] + st[3] > 0))
        m_poidsEcart[k] = 0;
      const ObservationBloc& o = obs.blocs[indices[k]];
      if (m_ref >= 0 && !reference.ecarts && (o.i == reference.image || o.j == reference.image))
        m_poidsEcart[k] = 0;
    }
    // The observations are in pair order: where each pair's run starts, and the end.
    for (size_t k = 0; k < indices.size(); ++k) {
      const ObservationBloc& o = obs.blocs[indices[k]];
      if (k == 0 || o.i != obs.blocs[indices[k - 1]].i || o.j != obs.blocs[indices[k - 1]].j)
        m_debutsPaires.push_back(k);
    }
    m_debutsPaires.push_back(indices.size());
    EcarterContenusDifferents();
    // A reference whose every pair was set aside anchors nothing: the group is then held as without it.
    for (size_t k = 0; k < indices.size() && m_ref >= 0 && !m_ancre; ++k) {
      const ObservationBloc& o = obs.blocs[indices[k]];
      m_ancre = m_poidsMoy[k] > 0 && (o.i == reference.image || o.j == reference.image);
    }
    // Which equations the data leave in: flags, a byte per observation rather than a copy of the weights.
    m_moyennesUtiles.resize(indices.size());
    m_ecartsUtiles.resize(indices.size());
    for (size_t k = 0; k < indices.size(); ++k) {
      m_moyennesUtiles[k] = m_poidsMoy[k] != 0;
      m_ecartsUtiles[k] = m_poidsEcart[k] != 0;
    }
    m_sansEquation.assign(images.size(), 1);
    for (size_t k = 0; k < indices.size(); ++k)
      if (m_moyennesUtiles[k]) {
        const ObservationBloc& o = obs.blocs[indices[k]];
        m_sansEquation[m_local[o.i]] = m_sansEquation[m_local[o.j]] = 0;
      }
  }

  // Pairs of images whose overlap does not hold the same content (one misplaced, or taken at another
  // date), as (i, j, correlation, blocks).
  struct PaireDifferente {
    int i, j;
    double correlation;
    size_t blocs;
  };
  const std::vector<PaireDifferente>& PairesDifferentes() const { return m_differentes; }

  // Runs the solves; the unknowns of local image k are x[k nU ..], gains scaled by 1 / G. Each solve
  // meets the constraints C x = 0 exactly, through the Schur complement of the few constraint rows.
  void Resoudre(const std::vector<std::string>& noms) {
    const int N = static_cast<int>(m_images.size()) * m_nU;
    // A reference's unknowns are left out: P takes the solved unknowns to all of them, the reference's
    // held at 0 (identity).
    Eigen::SparseMatrix<double> P;
    if (m_ref >= 0) {
      std::vector<Eigen::Triplet<double>> t;
      for (int a = 0, c = 0; a < N; ++a)
        if (a / m_nU != m_ref) t.emplace_back(a, c++, 1.0);
      P.resize(N, N - m_nU);
      P.setFromTriplets(t.begin(), t.end());
    }
    // With the learnt prior only the group's mean gain stays constrained: the prior then places the
    // gains' map-wide trend as it places the offsets'. Set once the first assembly has told which images'
    // gains the overlaps see.
    Eigen::MatrixXd tout, moyenne;
    Eigen::SimplicialLDLT<Eigen::SparseMatrix<double>> ldlt;
    const auto verifier = [&](const char* etape) {
      if (ldlt.info() != Eigen::Success)
        ZEPRA_ERREUR("[GainOffset] (Resoudre) Bande "
                     << m_bande + 1 << " : " << etape << " du systeme des images "
                     << ListeImages(noms, m_images) << " impossible (" << N << " inconnues).");
    };
    // The stiff solves, one plain re-weighted solve, then the last ones.
    const int premierPlain = std::min(kSolvesRaides, m_p.iterations - 1);
    for (int it = 0; it < m_p.iterations; ++it) {
      Eigen::SparseMatrix<double> H(N, N);
      Eigen::VectorXd g;
      const bool raide = it < premierPlain;
      const bool derniers = it > premierPlain;
      m_empirique = m_p.priorEmpirique && derniers && m_images.size() - (m_ref >= 0) >= kImagesEmpirique;
      if (m_p.gainDistorsion && !m_distorsion && derniers) {
        InverserGains();
        m_distorsion = true;
      }
      if (m_empirique) Etalonner();
      Assembler(H, g, it == 0, raide ? std::max(m_p.rigidite, kRigiditeDepart) : m_p.rigidite, !raide);
      if (m_ref >= 0) {
        H = Eigen::SparseMatrix<double>(P.transpose() * H * P);
        g = P.transpose() * g;
      }
      if (it == 0 && !m_ancre) {
        tout = Contraintes();
        if (m_ref >= 0) tout = tout * P;
        moyenne = tout.topRows(std::min<Eigen::Index>(1, tout.rows()));
      }
      if (it == 0) ldlt.analyzePattern(H);
      ldlt.factorize(H);
      verifier("factorisation");
      // The next learnt prior counts each coefficient's posterior variance (Etalonner).
      if (m_p.etalement != ParametresGainOffset::Etalement::estimations && m_empirique &&
          it + 1 < m_p.iterations) {
        const Eigen::VectorXd d = DiagonaleInverse(ldlt);
        m_variances = m_ref >= 0 ? Eigen::VectorXd(P * d) : d;
      }
      const Eigen::VectorXd y = ldlt.solve(g);
      verifier("resolution");
      if (m_ancre) {
        // The reference fixes the blind spot: no constraint.
        m_x = P * y;
      } else {
        const Eigen::MatrixXd& C = m_empirique ? moyenne : tout;
        const Eigen::MatrixXd Z = ldlt.solve(C.transpose());
        verifier("resolution");
        // Constraints that the group's geometry makes dependent are dropped by the pseudo-inverse.
        Eigen::CompleteOrthogonalDecomposition<Eigen::MatrixXd> schur(C * Z);
        schur.setThreshold(1e-10);
        const Eigen::VectorXd l = schur.solve(C * y);
        m_x = y - Z * l;
        if (m_ref >= 0) m_x = P * Eigen::VectorXd(m_x);
      }
      if (!m_x.allFinite())
        ZEPRA_ERREUR("[GainOffset] (Resoudre) Bande "
                     << m_bande + 1 << " : solution non finie pour les images " << ListeImages(noms, m_images)
                     << ".");
      if (it + 1 < m_p.iterations) Reponderer(it + 1 <= kEtapesHuber);
    }
  }

  // A pair whose overlap holds different content gives no equation: its block means are unrelated, and
  // fitting them would pull both images' gains toward 0, the others' with them through the deviations
  // and the mean gain (one tile showing another place among 16 turned the gains to between 0.15 and
  // 4.7; one uniform tile in a 2 x 2 block, to -0.9 and 1.9). Told by the changes of the block mean from
  // one block to the next, which the images' smooth fields hardly touch: over the same ground they
  // follow each other closely, over different ground not at all, and over a fill or a saturated tile
  // not at all in that image. Pairs whose changes are small in both images next to the group's (flat
  // ground, where noise rules) are left alone.
  void EcarterContenusDifferents() {
    struct Paire {
      double correlation = 1, rms = 0;
      size_t n = 0;
    };
    // Sums of the two images' changes in one direction.
    struct Sommes {
      double si = 0, sj = 0, sii = 0, sjj = 0, sij = 0;
      size_t n = 0;
      void Ajouter(double di, double dj) {
        si += di, sj += dj, sii += di * di, sjj += dj * dj, sij += di * dj, ++n;
      }
      // Centred on the direction's mean changes: variance of i, of j, covariance (times n).
      double Vi() const { return n ? sii - si * si / n : 0.0; }
      double Vj() const { return n ? sjj - sj * sj / n : 0.0; }
      double Cij() const { return n ? sij - si * sj / n : 0.0; }
    };
    std::vector<Paire> paires(m_debutsPaires.size() - 1);
    std::vector<double> amplitudes;
    for (size_t q = 0; q + 1 < m_debutsPaires.size(); ++q) {
      // Changes between neighbouring blocks only, along the lines and along the columns, each direction
      // centred on its own mean: the images' fields add to the changes of one direction a part that
      // varies slowly, while between blocks far apart (one line's end and the next line's start) they
      // add the fields' whole difference, opposite in two images whose fields slope opposite ways. The
      // blocks come line by line; neighbours are the pair's smallest steps apart (a block).
      const size_t debut = m_debutsPaires[q], fin = m_debutsPaires[q + 1];
      const auto bloc = [&](size_t k) -> const ObservationBloc& { return m_obs.blocs[m_indices[k]]; };
      double pasX = std::numeric_limits<double>::infinity(), pasY = pasX;
      for (size_t k = debut + 1; k < fin; ++k) {
        const double dx = bloc(k).xi - bloc(k - 1).xi, dy = bloc(k).yi - bloc(k - 1).yi;
        if (dy == 0 && dx > 0) pasX = std::min(pasX, dx);
        if (dy > 0) pasY = std::min(pasY, dy);
      }
      Sommes lignes, colonnes;
      const auto ajouter = [&](Sommes& s, size_t k, size_t k0) {
        const double *a = m_obs.Stats(m_indices[k], m_bande), *b = m_obs.Stats(m_indices[k0], m_bande);
        s.Ajouter(a[0] - b[0], a[2] - b[2]);
      };
      // k0 walks the previous line, [k0, ligne1), along the current one (empty when that line is not
      // the neighbouring one).
      size_t ligne1 = debut, k0 = debut;
      for (size_t k = debut; k < fin; ++k) {
        if (k > debut && bloc(k).yi != bloc(k - 1).yi) {
          k0 = bloc(k).yi - bloc(k - 1).yi <= 1.5 * pasY ? ligne1 : k;
          ligne1 = k;
        } else if (k > debut && bloc(k).xi - bloc(k - 1).xi <= 1.5 * pasX) {
          ajouter(lignes, k, k - 1);
        }
        while (k0 < ligne1 && bloc(k0).xi < bloc(k).xi) ++k0;
        if (k0 < ligne1 && bloc(k0).xi == bloc(k).xi) ajouter(colonnes, k, k0);
      }
      const size_t n = lignes.n + colonnes.n;
      if (n < kBlocsCorrelation) continue;
      const double vi = lignes.Vi() + colonnes.Vi(), vj = lignes.Vj() + colonnes.Vj();
      Paire& p = paires[q];
      p.n = n;
      p.rms = std::sqrt(std::max(lignes.sii + colonnes.sii, lignes.sjj + colonnes.sjj) / n);
      p.correlation = vi > 0 && vj > 0   ? (lignes.Cij() + colonnes.Cij()) / std::sqrt(vi * vj)
                      : vi > 0 || vj > 0 ? 0.0
                                         : 1.0;
      amplitudes.push_back(p.rms);
    }
    const double reference = Mediane(amplitudes);
    // Blocks of each image in pairs found different, and in the others: an image whose overlaps are
    // mostly different is the one misplaced, and its small overlaps, too few blocks to judge, go too.
    std::vector<double> differents(m_images.size(), 0.0), semblables(m_images.size(), 0.0);
    std::vector<char> different(paires.size(), 0);
    for (size_t q = 0; q < paires.size(); ++q) {
      const Paire& p = paires[q];
      different[q] = p.n > 0 && p.correlation < kCorrelationMin && p.rms >= kAmplitudeRelative * reference;
      const ObservationBloc& o = m_obs.blocs[m_indices[m_debutsPaires[q]]];
      const double n = static_cast<double>(m_debutsPaires[q + 1] - m_debutsPaires[q]);
      // A reference overlaps many images: its pairs found different count against it, not them.
      const int li = m_local[o.i], lj = m_local[o.j];
      if (li != m_ref || lj == m_ref) (different[q] ? differents : semblables)[lj] += n;
      if (lj != m_ref || li == m_ref) (different[q] ? differents : semblables)[li] += n;
    }
    for (size_t q = 0; q < paires.size(); ++q) {
      const ObservationBloc& o = m_obs.blocs[m_indices[m_debutsPaires[q]]];
      const int li = m_local[o.i], lj = m_local[o.j];
      if (!different[q] && differents[li] <= semblables[li] && differents[lj] <= semblables[lj]) continue;
      m_differentes.push_back({o.i, o.j, paires[q].n > 0 ? paires[q].correlation : std::nan(""),
                               m_debutsPaires[q + 1] - m_debutsPaires[q]});
      for (size_t k = m_debutsPaires[q]; k < m_debutsPaires[q + 1]; ++k) m_poidsMoy[k] = m_poidsEcart[k] = 0;
    }
  }

  // The coefficients of image i (a - 1, then b) with the group's constant gain and offset applied so that
  // its mean and local contrast are what they were; returns that gain and offset.
  std::pair<double, double> Coefficients(std::vector<CorrectionGainOffset>& corrections) const {
    // Mean and local contrast before and after, areas in common-grid pixels.
    double aire = 0, somme = 0, sommeApres = 0, ecarts = 0, ecartsApres = 0;
    Eigen::VectorXd correction = m_x;
    if (m_distorsion) InverserGains(correction);
    for (size_t k = 0; k < m_images.size(); ++k) {
      const ResumeImage& r = m_resumes[m_images[k]];
      if (r.compte <= 0 || static_cast<int>(k) == m_ref) continue;
      const ResumeImage::Bande& b = r.bandes[m_bande];
      const double f = r.surface / r.compte;
      const double* x = correction.data() + k * m_nU;
      double ds = 0, de = 0;
      for (int t = 0; t < m_nG; ++t) {
        ds += x[t] / m_G * b.momentsValeur[t];
        de += x[t] / m_G * b.momentsEcart[t];
      }
      for (int t = 0; t < m_nO; ++t) ds += x[m_nG + t] * b.momentsCompte[t];
      aire += r.surface;
      somme += f * b.somme;
      sommeApres += f * (b.somme + ds);
      ecarts += f * b.sommeEcarts;
      ecartsApres += f * (b.sommeEcarts + de);
    }
    double A = ecarts > 0 && ecartsApres > 0 ? ecarts / ecartsApres : 1.0;
    if (!(std::isfinite(A) && A > 0)) A = 1.0;
    double B = aire > 0 ? (somme - A * sommeApres) / aire : 0.0;
    if (!std::isfinite(B)) B = 0.0;
    // A reference sets the group's level and contrast itself, and keeps its identity.
    if (m_ancre) A = 1, B = 0;
    for (size_t k = 0; k < m_images.size(); ++k) {
      if (static_cast<int>(k) == m_ref) continue;
      CorrectionGainOffset& c = corrections[m_images[k]];
      const double* x = correction.data() + k * m_nU;
      double* a = c.Gain(m_bande);
      double* o = c.Offset(m_bande);
      for (int t = 0; t < m_nG; ++t) a[t] = A * x[t] / m_G;
      a[0] += A - 1;
      for (int t = 0; t < m_nO; ++t) o[t] = A * x[m_nG + t];
      o[0] += B;
    }
    return {A, B};
  }

  // Replaces each image's gain field in x (unknowns' scale) by the polynomial fitted over the image to
  // its counterpart: a correction's gain a becomes the distortion's A = 1 - 1 / a, and the distortion's
  // A the correction's a = 1 / (1 - A) (the same map, both signs changed). Offsets are left as they are.
  void InverserGains(Eigen::VectorXd& x) const {
    const double signe = m_distorsion ? -1.0 : 1.0;
    for (size_t k = 0; k < m_images.size(); ++k) {
      double* g = x.data() + k * m_nU;
      double inverse[kTermesMax] = {};
      for (int p = 0; p < kNoeuds; ++p)
        for (int q = 0; q < kNoeuds; ++q) {
          double t[kTermesMax];
          base_polynome::Termes(kNoeud[p], kNoeud[q], t);
          double champ = 0;
          for (int u = 0; u < m_nG; ++u) champ += g[u] / m_G * t[u];
          const double v = signe * (1 - 1 / std::max(1 + signe * champ, kGainMin));
          for (int u = 0; u < m_nG; ++u) inverse[u] += kPoidsNoeud[p] * kPoidsNoeud[q] / 4 * v * m_G * t[u];
        }
      for (int u = 0; u < m_nG; ++u) g[u] = inverse[u];
    }
  }
  void InverserGains() { InverserGains(m_x); }

  // The terms of each image its observations alone do not determine, from the first (unweighted) solve.
  const std::vector<std::string>& Indetermines() const { return m_indetermines; }

  const std::vector<double>& PoidsMoyenne() const { return m_poidsMoy; }
  // The reference is in the group but every pair with it was set aside: solved as without it.
  bool ReferenceEcartee() const { return m_ref >= 0 && !m_ancre; }
  // Per observation: not 0 when its pair is compared (not set aside as different content).
  const std::vector<char>& Comparees() const { return m_moyennesUtiles; }

 private:
  // The gain part of the blind spot: the group's mean gain correction, as a field of map position of
  // the gain's degree, is 0, over the images whose gain level some overlap sees (the gain of an image
  // whose blocks all hold other content is free: holding the mean with it would let the others' gains
  // wander). One row per monomial of the map
  // position normalised over the group's extent (so that a group is solved the same whatever else is on the
  // grid), over the gain unknowns of every image: the monomial, written in the image's own normalised
  // position, against the image's moments.
  Eigen::MatrixXd Contraintes() const {
    double X0 = 0, X1 = 0, Y0 = 0, Y1 = 0;
    bool premier = true;
    for (size_t l = 0; l < m_images.size(); ++l) {
      if (static_cast<int>(l) == m_ref) continue;
      const ResumeImage& r = m_resumes[m_images[l]];
      const Placement& p = r.placement;
      const double x1 = p.x0 + p.sx * r.largeur, y1 = p.y0 + p.sy * r.hauteur;
      X0 = premier ? p.x0 : std::min(X0, p.x0);
      X1 = premier ? x1 : std::max(X1, x1);
      Y0 = premier ? p.y0 : std::min(Y0, p.y0);
      Y1 = premier ? y1 : std::max(Y1, y1);
      premier = false;
    }
    Eigen::MatrixXd C = Eigen::MatrixXd::Zero(m_nG, static_cast<long>(m_images.size()) * m_nU);
    for (size_t l = 0; l < m_images.size(); ++l) {
      const ResumeImage& r = m_resumes[m_images[l]];
      if (r.compte <= 0 || !m_gainVu[l]) continue;
      const Placement& p = r.placement;
      // X = a x + b and Y = c y + d, from the image's normalised position to the group's.
      const double a = p.sx * r.largeur / (X1 - X0),
                   b = 2 * (p.x0 + p.sx * r.largeur / 2 - X0) / (X1 - X0) - 1;
      const double c = p.sy * r.hauteur / (Y1 - Y0),
                   d = 2 * (p.y0 + p.sy * r.hauteur / 2 - Y0) / (Y1 - Y0) - 1;
      double monomes[kTermesMax][kTermesMax];
      base_polynome::MonomesAffines(a, b, c, d, monomes);
      const double f = r.surface / r.compte / m_G;
      for (int k = 0; k < m_nG; ++k)
        for (int t = 0; t < m_nG; ++t) {
          double s = 0;
          for (int q = 0; q < kTermesMax; ++q) s += monomes[k][q] * r.momentsMonomes[t * kTermesMax + q];
          C(k, l * m_nU + t) = f * s;
        }
    }
    return C;
  }

  // The row of the mean (deviation == false) or deviation equation of observation k over the unknowns of
  // image i then image j; returns its right-hand side.
  double Ligne(size_t k, bool ecart, double* ligne) const {
    const double* s = m_obs.Stats(m_indices[k], m_bande);
    // The terms at the block's centre in each image, made again at each use rather than kept: 12
    // doubles per observation would outweigh the observation itself.
    const ObservationBloc& ob = m_obs.blocs[m_indices[k]];
    const ResumeImage &ri = m_resumes[ob.i], &rj = m_resumes[ob.j];
    double ti[kTermesMax], tj[kTermesMax];
    base_polynome::Termes(base_polynome::Normaliser(ob.xi, ri.largeur),
                          base_polynome::Normaliser(ob.yi, ri.hauteur), ti);
    base_polynome::Termes(base_polynome::Normaliser(ob.xj, rj.largeur),
                          base_polynome::Normaliser(ob.yj, rj.hauteur), tj);
    const double vi = ecart ? s[1] : s[0], vj = ecart ? s[3] : s[2];
    // The correction's model is the distortion's at A = 0, where every factor below is exactly 1: the
    // scene s = v / (1 - A) + b, linearised at the current solution (the gain's column v / (1 - A)^2).
    double Ai = 0, Aj = 0;
    if (m_distorsion) {
      const double* xi = m_x.data() + m_local[ob.i] * m_nU;
      const double* xj = m_x.data() + m_local[ob.j] * m_nU;
      for (int t = 0; t < m_nG; ++t) {
        Ai += xi[t] / m_G * ti[t];
        Aj += xj[t] / m_G * tj[t];
      }
    }
    const double di = std::max(1 - Ai, kGainMin), dj = std::max(1 - Aj, kGainMin);
    for (int t = 0; t < m_nG; ++t) {
      ligne[t] = vi / (di * di) / m_G * ti[t];
      ligne[m_nU + t] = -vj / (dj * dj) / m_G * tj[t];
    }
    for (int t = 0; t < m_nO; ++t) {
      ligne[m_nG + t] = ecart ? 0.0 : ti[t];
      ligne[m_nU + m_nG + t] = ecart ? 0.0 : -tj[t];
    }
    return vi * (2 * Ai - 1) / (di * di) - vj * (2 * Aj - 1) / (dj * dj);
  }

  void Assembler(Eigen::SparseMatrix<double>& H, Eigen::VectorXd& g, bool diagnostiquer, double rigidite,
                 bool formes) {
    const int nU = m_nU, n2 = 2 * nU;
    const size_t bloc = static_cast<size_t>(nU) * nU;
    std::vector<double> diag(m_images.size() * bloc, 0.0);
    g = Eigen::VectorXd::Zero(static_cast<long>(m_images.size()) * nU);
    std::vector<Eigen::Triplet<double>> triplets;
    // Each pair's block of the normal equations is summed on its own (in parallel, a batch of pairs at
    // a time), then added to the system in pair order, so that the sums do not depend on the number of
    // threads.
    const std::vector<size_t>& debuts = m_debutsPaires;
    const size_t nbPaires = debuts.size() - 1, carre = static_cast<size_t>(n2) * n2;
    constexpr size_t kPairesParLot = 64;
    std::vector<double> paires, gs;
    for (size_t q0 = 0; q0 < nbPaires; q0 += kPairesParLot) {
      const size_t nq = std::min(kPairesParLot, nbPaires - q0);
      paires.assign(nq * carre, 0.0);
      gs.assign(nq * n2, 0.0);
      PourChaque(nq, [&](size_t q) {
        double ligne[4 * kTermesMax];
        double* paire = &paires[q * carre];
        double* gp = &gs[q * n2];
        for (size_t k = debuts[q0 + q]; k < debuts[q0 + q + 1]; ++k) {
          const ObservationBloc& o = m_obs.blocs[m_indices[k]];
          for (int e = 0; e < 2; ++e) {
            const double w = o.poids * (e ? m_p.poidsEcart * m_poidsEcart[k] : m_poidsMoy[k]);
            if (w == 0) continue;
            const double rhs = Ligne(k, e == 1, ligne);
            // The lower triangle only, the one the factorisation reads; mirrored below.
            for (int a = 0; a < n2; ++a) {
              const double wa = w * ligne[a];
              if (wa == 0) continue;
              double* h = paire + static_cast<size_t>(a) * n2;
              for (int b = 0; b <= a; ++b) h[b] += wa * ligne[b];
              gp[a] += wa * rhs;
            }
          }
        }
      });
      for (size_t q = 0; q < nq; ++q) {
        const ObservationBloc& o0 = m_obs.blocs[m_indices[debuts[q0 + q]]];
        const int li = m_local[o0.i], lj = m_local[o0.j];
        const double* paire = &paires[q * carre];
        for (int a = 0; a < n2; ++a) g(a < nU ? li * nU + a : lj * nU + a - nU) += gs[q * n2 + a];
        for (int a = 0; a < n2; ++a)
          for (int b = 0; b < n2; ++b) {
            const double v =
                paire[b <= a ? static_cast<size_t>(a) * n2 + b : static_cast<size_t>(b) * n2 + a];
            if (a < nU && b < nU) {
              diag[li * bloc + a * nU + b] += v;
            } else if (a >= nU && b >= nU) {
              diag[lj * bloc + (a - nU) * nU + (b - nU)] += v;
            } else {
              // Stored even when zero: the pattern must not change between solves.
              const int ra = a < nU ? li * nU + a : lj * nU + a - nU;
              const int cb = b < nU ? li * nU + b : lj * nU + b - nU;
              triplets.emplace_back(ra, cb, v);
            }
          }
      }
    }
    if (diagnostiquer) Diagnostiquer(diag);
    for (size_t l = 0; l < m_images.size(); ++l) {
      if (m_empirique)
        for (int a = 0; a < nU; ++a) diag[l * bloc + a * nU + a] += m_precision[Classe(a)];
      else
        AjouterPrior(m_resumes[m_images[l]], rigidite, formes, &diag[l * bloc]);
      for (int a = 0; a < nU; ++a)
        for (int b = 0; b < nU; ++b) {
          triplets.emplace_back(l * nU + a, l * nU + b, diag[l * bloc + a * nU + b]);
        }
    }
    H.setFromTriplets(triplets.begin(), triplets.end());
  }

  // The prior of one image on its diagonal block: rigidite x area x mean square of (a - 1) v + b over the
  // image's values (mean m, deviation s) and extent, with the orthonormal terms:
  //   sum over terms of (m alpha_t + beta_t)^2 + s^2 alpha_t^2,
  // shapes weighted as set, plus (poidsFormesGain - 1)(m^2 + s^2) alpha_t^2 on the gain's shapes.
  void AjouterPrior(const ResumeImage& r, double rigidite, bool formes, double* d) const {
    const ResumeImage::Bande& b = r.bandes[m_bande];
    const double lambda = rigidite * r.surface;
    if (!(lambda > 0)) return;
    const double m = b.somme / r.compte;
    // A flat image still needs its gain told from its offset, at a tenth of the group's level: the prior
    // then holds what its observations cannot see well above the solver's rounding.
    const double s = std::max(std::sqrt(std::max(0.0, b.sommeCarres / r.compte - m * m)), 0.1 * m_G);
    const double mg = m / m_G, sg = s / m_G;
    for (int t = 0; t < std::max(m_nG, m_nO); ++t) {
      const bool gain = t < m_nG, offset = t < m_nO;
      const double l = lambda * (!formes || kDegreTerme[t] == 0 ? 1.0
                                 : kDegreTerme[t] == 1          ? m_p.poidsPentes
                                                                : m_p.poidsCourbures);
      if (gain)
        d[t * m_nU + t] +=
            l * (mg * mg + sg * sg) * (formes && kDegreTerme[t] > 0 ? m_p.poidsFormesGain : 1.0);
      if (offset) d[(m_nG + t) * m_nU + m_nG + t] += l;
      if (gain && offset) {
        d[t * m_nU + m_nG + t] += l * mg;
        d[(m_nG + t) * m_nU + t] += l * mg;
      }
    }
  }

  // Classes of unknowns for the learnt prior: gain then offset, each by degree (level, slopes, curvatures).
  int Classe(int a) const { return a < m_nG ? kDegreTerme[a] : 3 + kDegreTerme[a - m_nG]; }

  // The learnt prior, from the last solution: each class of terms gets the precision the data show,
  // the residuals' variance per pixel over the mean square of the images' coefficients in the class
  // (a Gaussian prior whose spread is estimated from the images themselves). The coefficients are
  // posterior means, which the prior has shrunk, most where overlaps see least: after a solve under the
  // learnt prior, each one's posterior variance corrects for it as ParametresGainOffset::etalement sets.
  // The gain's shapes stay poidsFormesGain times dearer: what a polynomial gain cannot fit would
  // otherwise spread along the smooth fields overlaps hardly see.
  void Etalonner() {
    double somme[6] = {}, n[6] = {};
    const double variance = m_echelle * m_echelle * m_poidsMoyenObs;
    for (size_t l = 0; l < m_images.size(); ++l)
      for (int a = 0; a < m_nU && static_cast<int>(l) != m_ref; ++a) {
        const Eigen::Index u = static_cast<Eigen::Index>(l) * m_nU + a;
        const double x = m_x(u);
        somme[Classe(a)] += x * x;
        if (m_variances.size() != m_x.size()) {
          n[Classe(a)] += 1;
        } else if (m_p.etalement == ParametresGainOffset::Etalement::esperance) {
          somme[Classe(a)] += variance * m_variances(u);
          n[Classe(a)] += 1;
        } else {
          // The share of the coefficient the data determine; the prior's precision is that of the
          // solve the variances come from.
          n[Classe(a)] += std::clamp(1 - m_precision[Classe(a)] * m_variances(u), 0.0, 1.0);
        }
      }
    for (int c = 0; c < 6; ++c) {
      // At least one coefficient's worth: a class the data hardly determine is not set free.
      const double donne =
          m_p.etalementsDonnes.empty() ? -1.0 : m_p.etalementsDonnes[c] * (c < 3 ? m_G * m_G : 1.0);
      const double v = std::max(donne >= 0 ? donne
                                : n[c] > 0 ? somme[c] / std::max(n[c], 1.0)
                                           : 0.0,
                                kEcartEmpiriqueMin * kEcartEmpiriqueMin);
      m_precision[c] = variance / v * (c == 1 || c == 2 ? m_p.poidsFormesGain : 1.0);
    }
  }

  void Diagnostiquer(const std::vector<double>& diag) {
    const int nU = m_nU;
    m_indetermines.assign(m_images.size(), std::string());
    m_gainVu.assign(m_images.size(), 1);
    for (size_t l = 0; l < m_images.size(); ++l) {
      Eigen::Map<const Eigen::MatrixXd> D(&diag[l * nU * nU], nU, nU);
      const double dmax = D.diagonal().maxCoeff();
      std::vector<char> indetermine(nU, 0);
      Eigen::VectorXd racines(nU);
      for (int a = 0; a < nU; ++a) {
        const double d = D(a, a);
        indetermine[a] = !(d > kRangRelatif * dmax);
        racines(a) = indetermine[a] ? 0.0 : 1.0 / std::sqrt(d);
      }
      if (dmax > 0) {
        const Eigen::MatrixXd S = racines.asDiagonal() * D * racines.asDiagonal();
        Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> vp(S);
        const double lmax = vp.eigenvalues().maxCoeff();
        for (int v = 0; v < nU; ++v) {
          if (vp.eigenvalues()(v) > kRangRelatif * lmax) continue;
          for (int a = 0; a < nU; ++a)
            if (racines(a) != 0 && std::fabs(vp.eigenvectors()(a, v)) > 0.25) indetermine[a] = 1;
        }
      }
      m_gainVu[l] = D(0, 0) > 0;
      // Every overlap set aside: nothing to determine, and the set-aside pairs are reported.
      if (m_sansEquation[l]) continue;
      std::string& texte = m_indetermines[l];
      for (int a = 0; a < nU; ++a) {
        if (!indetermine[a]) continue;
        texte += texte.empty() ? "" : ", ";
        texte += (a < m_nG ? std::string("a.") + kNomsTermes[a] : std::string("b.") + kNomsTermes[a - m_nG]);
      }
    }
  }

  // Residuals of the current solution, normalised by the block areas and a robust scale per equation
  // kind, turned into weights: Huber in the first steps, then Tukey's biweight.
  void Reponderer(bool huber) {
    const size_t n = m_indices.size();
    double poidsMoyen = 0;
    for (size_t k = 0; k < n; ++k) poidsMoyen += m_obs.blocs[m_indices[k]].poids;
    poidsMoyen /= static_cast<double>(n);
    double ligne[4 * kTermesMax];
    for (int e = 0; e < 2; ++e) {
      std::vector<double> z(n), absolus;
      for (size_t k = 0; k < n; ++k) {
        const ObservationBloc& o = m_obs.blocs[m_indices[k]];
        double r = -Ligne(k, e == 1, ligne);
        const int li = m_local[o.i], lj = m_local[o.j];
        for (int a = 0; a < m_nU; ++a)
          r += ligne[a] * m_x(li * m_nU + a) + ligne[m_nU + a] * m_x(lj * m_nU + a);
        z[k] = r * std::sqrt(o.poids / poidsMoyen);
        if ((e == 0 ? m_moyennesUtiles : m_ecartsUtiles)[k]) absolus.push_back(std::fabs(z[k]));
      }
      const double echelle = std::max(1.4826 * Mediane(absolus), kEchelleMin * m_ecartRef);
      if (e == 0) m_echelle = echelle, m_poidsMoyenObs = poidsMoyen;
      // The scale the weights use: the current one, or the one of the last Huber step held.
      if (huber || !m_p.echelleTenue) m_echelleTenue[e] = echelle;
      if (!m_p.reponderation) continue;
      std::vector<double>& w = e ? m_poidsEcart : m_poidsMoy;
      for (size_t k = 0; k < n; ++k) {
        if (!(e == 0 ? m_moyennesUtiles : m_ecartsUtiles)[k]) continue;
        const double u = std::fabs(z[k]) / m_echelleTenue[e];
        if (huber) {
          w[k] = u <= kHuber ? 1.0 : kHuber / u;
        } else {
          const double v = u / m_p.constanteTukey;
          w[k] = v < 1 ? (1 - v * v) * (1 - v * v) : 0.0;
        }
      }
    }
  }

  const std::vector<ResumeImage>& m_resumes;
  const ObservationsBlocs& m_obs;
  const std::vector<int>& m_images;
  const std::vector<size_t>& m_indices;  // the group's observations
  const ParametresGainOffset& m_p;
  const int m_bande, m_nG, m_nO, m_nU;
  const std::vector<int>& m_local;
  int m_ref = -1;        // the reference's local index, -1 when it is not in the group
  bool m_ancre = false;  // some of its observations are used: it fixes the group's blind spot
  double m_G = 1, m_ecartRef = 1;
  std::vector<double> m_poidsMoy, m_poidsEcart;
  std::vector<char> m_moyennesUtiles, m_ecartsUtiles;
  std::vector<size_t> m_debutsPaires;
  Eigen::VectorXd m_x;
  // The diagonal of the inverse normal matrix of the last learnt-prior solve (unknowns' scale, 0 for a
  // reference), when the next solve learns the prior again; empty before.
  Eigen::VectorXd m_variances;
  std::vector<std::string> m_indetermines;
  std::vector<PaireDifferente> m_differentes;
  std::vector<char> m_gainVu;  // per image: some observation sees its gain level
  // Per image: all its observations are in pairs set aside.
  std::vector<char> m_sansEquation;
  // The learnt prior: whether this solve uses it, the precision of each class, and the mean equations'
  // last robust scale with the mean block area it refers to.
  bool m_empirique = false;
  // Whether the unknowns' gains are the distortion's (the last solves, gainDistorsion).
  bool m_distorsion = false;
  double m_precision[6] = {}, m_echelle = 1, m_poidsMoyenObs = 1;
  // The robust scale of each equation kind the weights use (ParametresGainOffset::echelleTenue).
  double m_echelleTenue[2] = {1, 1};
};

}  // namespace

void ParametresGainOffset::Verifier() const {
  if (degreGain < 0 || degreGain > 2 || degreOffset < 0 || degreOffset > 2)
    ZEPRA_ERREUR("[GainOffset] (Verifier) Degres du gain " << degreGain << " et de l'offset " << degreOffset
                                                           << " : 0 a 2 attendu.");
  if (!(rigidite > 0 && std::isfinite(rigidite)))
    ZEPRA_ERREUR("[GainOffset] (Verifier) Rigidite "
                 << rigidite
                 << " : un nombre strictement positif est attendu (sans elle, "
                    "une surface commune a toutes les images reste libre).");
  if (!(poidsPentes >= 1 && poidsPentes <= 1e4 && poidsCourbures >= 1 && poidsCourbures <= 1e4 &&
        poidsFormesGain >= 1 && poidsFormesGain <= 1e4))
    ZEPRA_ERREUR("[GainOffset] (Verifier) Poids des pentes " << poidsPentes << ", des courbures "
                                                             << poidsCourbures << " et des formes du gain "
                                                             << poidsFormesGain << " : 1 a 1e4 attendu.");
  if (!(poidsEcart >= 0 && std::isfinite(poidsEcart)))
    ZEPRA_ERREUR("[GainOffset] (Verifier) Poids des ecarts types " << poidsEcart
                                                                   << " : positif ou nul attendu.");
  if (!(constanteTukey >= 1 && constanteTukey <= 1e3))
    ZEPRA_ERREUR("[GainOffset] (Verifier) Constante de Tukey " << constanteTukey << " : 1 a 1000 attendue.");
  if (!etalementsDonnes.empty() &&
      (etalementsDonnes.size() != 6 || !std::all_of(etalementsDonnes.begin(), etalementsDonnes.end(),
                                                    [](double v) { return std::isfinite(v) && v >= 0; })))
    ZEPRA_ERREUR("[GainOffset] (Verifier) Etalements donnes : 6 valeurs positives ou nulles attendues.");
  if (iterations < 1 || iterations > 50)
    ZEPRA_ERREUR("[GainOffset] (Verifier) " << iterations << " iterations : 1 a 50 attendu.");
}

ParametresGainOffset ParametresGainOffset::De(const ParametresModele& m) {
  ParametresGainOffset go;
  go.degreGain = m.degreGain;
  go.degreOffset = m.degreOffset;
  go.rigidite = m.rigidite;
  go.poidsPentes = m.pentes;
  go.poidsCourbures = m.courbures;
  go.poidsFormesGain = m.formesGain;
  return go;
}

std::string RefusGainOffset(const ParametresModele& m) {
  ParametresGainOffset go = ParametresGainOffset::De(m);
  // Automatic degrees are decided by the job, always within range.
  if (go.degreGain < 0) go.degreGain = 0;
  if (go.degreOffset < 0) go.degreOffset = 0;
  try {
    go.Verifier();
  } catch (const Erreur& e) {
    const std::string phrase = e.Phrase(), tag = "[GainOffset] (Verifier) ";
    return phrase.compare(0, tag.size(), tag) == 0 ? phrase.substr(tag.size()) : phrase;
  }
  return "";
}

CorrectionGainOffset::CorrectionGainOffset(int largeur, int hauteur, int nbBandes, int degreGain,
                                           int degreOffset)
    : m_largeur(largeur),
      m_hauteur(hauteur),
      m_nbBandes(nbBandes),
      m_degreGain(degreGain),
      m_degreOffset(degreOffset),
      m_nbGain(NbTermes(degreGain)),
      m_nbOffset(NbTermes(degreOffset)) {
  if (largeur < 1 || hauteur < 1 || nbBandes < 1 || degreGain < 0 || degreGain > 2 || degreOffset < 0 ||
      degreOffset > 2)
    ZEPRA_ERREUR("[CorrectionGainOffset] (CorrectionGainOffset) Image de "
                 << largeur << " x " << hauteur << ", " << nbBandes << " bande(s), degres " << degreGain
                 << " et " << degreOffset << " : invalide.");
  m_gain.assign(static_cast<size_t>(nbBandes) * m_nbGain, 0.0);
  m_offset.assign(static_cast<size_t>(nbBandes) * m_nbOffset, 0.0);
}

bool CorrectionGainOffset::EstIdentite() const {
  const auto nul = [](double v) { return v == 0.0; };
  return std::all_of(m_gain.begin(), m_gain.end(), nul) && std::all_of(m_offset.begin(), m_offset.end(), nul);
}

double CorrectionGainOffset::Champ(const double* c, int n, double colonne, double ligne) const {
  double t[kTermesMax];
  base_polynome::Termes(base_polynome::Normaliser(colonne, m_largeur),
                        base_polynome::Normaliser(ligne, m_hauteur), t);
  double s = 0.0;
  for (int k = 0; k < n; ++k) s += c[k] * t[k];
  return s;
}

double CorrectionGainOffset::A(int bande, double colonne, double ligne) const {
  return 1.0 + Champ(Gain(bande), m_nbGain, colonne, ligne);
}

double CorrectionGainOffset::B(int bande, double colonne, double ligne) const {
  return Champ(Offset(bande), m_nbOffset, colonne, ligne);
}

template <class T>
void CorrectionGainOffset::Corriger(int bande, int ligne, int colonne0, int n, const T* entree, T* sortie,
                                    const unsigned char* valide) const {
  const double y = base_polynome::Normaliser(ligne + 0.5, m_hauteur);
  double a0, a1, a2, b0, b1, b2;
  base_polynome::ParLigne(Gain(bande), m_nbGain, y, a0, a1, a2);
  base_polynome::ParLigne(Offset(bande), m_nbOffset, y, b0, b1, b2);
  a0 += 1.0;
  const double pas = 2.0 / m_largeur;
  for (int k = 0; k < n; ++k) {
    if (valide && !valide[k]) {
      sortie[k] = entree[k];
      continue;
    }
    const double x = (colonne0 + k + 0.5) * pas - 1.0;
    const double a = a0 + x * (a1 + x * a2), b = b0 + x * (b1 + x * b2);
    sortie[k] = static_cast<T>(a * entree[k] + b);
  }
}

void CorrectionGainOffset::CorrigerLigne(int bande, int ligne, int colonne0, int n, const float* entree,
                                         float* sortie, const unsigned char* valide) const {
  Corriger(bande, ligne, colonne0, n, entree, sortie, valide);
}

void CorrectionGainOffset::CorrigerLigne(int bande, int ligne, int colonne0, int n, const double* entree,
                                         double* sortie, const unsigned char* valide) const {
  Corriger(bande, ligne, colonne0, n, entree, sortie, valide);
}

ResultatGainOffset ResoudreGainOffset(const std::vector<ResumeImage>& resumes, const ObservationsBlocs& obs,
                                      const ParametresGainOffset& p, const std::vector<std::string>& noms,
                                      const ReferenceGainOffset& reference) {
  p.Verifier();
  const int n = static_cast<int>(resumes.size());
  const int nbBandes = n > 0 ? static_cast<int>(resumes[0].bandes.size()) : obs.nbBandes;
  for (int i = 0; i < n; ++i)
    if (static_cast<int>(resumes[i].bandes.size()) != nbBandes || resumes[i].largeur < 1 ||
        resumes[i].hauteur < 1)
      ZEPRA_ERREUR("[GainOffset] (Resoudre) " << NomImage(noms, i) << " : " << resumes[i].bandes.size()
                                              << " bande(s) de " << resumes[i].largeur << " x "
                                              << resumes[i].hauteur << " pixels, " << nbBandes
                                              << " bande(s) attendue(s).");
  if (!obs.blocs.empty() && (obs.nbBandes != nbBandes || obs.stats.size() != obs.blocs.size() * 4 * nbBandes))
    ZEPRA_ERREUR("[GainOffset] (Resoudre) ObservationsBlocs de "
                 << obs.nbBandes << " bande(s) pour des images de " << nbBandes << " bande(s).");
  if (reference.image < -1 || reference.image >= n)
    ZEPRA_ERREUR("[GainOffset] (Resoudre) Reference " << reference.image << " pour " << n << " images.");
  for (const ObservationBloc& o : obs.blocs)
    if (o.i < 0 || o.j >= n || o.i >= o.j)
      ZEPRA_ERREUR("[GainOffset] (Resoudre) Observation de la paire (" << o.i << ", " << o.j << ") pour " << n
                                                                       << " images.");

  ResultatGainOffset R;
  for (const ResumeImage& r : resumes)
    R.corrections.emplace_back(r.largeur, r.hauteur, std::max(1, nbBandes), p.degreGain, p.degreOffset);
  R.images.resize(n);
  R.groupes = Groupes(n, obs);
  R.bandes.resize(std::max(0, nbBandes));
  for (int i = 0; i < n; ++i) R.images[i].sansDonnees = resumes[i].compte <= 0;
  for (const ObservationBloc& o : obs.blocs) {
    ++R.images[o.i].observations;
    ++R.images[o.j].observations;
  }

  // Each group's observations, shared by the bands.
  std::vector<std::vector<size_t>> indices(R.groupes.size());
  std::vector<int> groupe(n, -1);
  for (size_t g = 0; g < R.groupes.size(); ++g)
    for (int i : R.groupes[g]) groupe[i] = static_cast<int>(g);
  {
    std::vector<size_t> nombres(R.groupes.size(), 0);
    for (const ObservationBloc& o : obs.blocs) ++nombres[groupe[o.i]];
    for (size_t g = 0; g < R.groupes.size(); ++g) indices[g].reserve(nombres[g]);
  }
  for (size_t k = 0; k < obs.blocs.size(); ++k) indices[groupe[obs.blocs[k].i]].push_back(k);
  for (int i = 0; i < n; ++i) R.images[i].groupe = groupe[i];
  std::vector<int> local(n, -1);
  for (const std::vector<int>& g : R.groupes)
    for (size_t k = 0; k < g.size(); ++k) local[g[k]] = static_cast<int>(k);

  size_t plusGrand = 0;
  for (size_t g = 0; g < R.groupes.size(); ++g)
    if (R.groupes[g].size() > R.groupes[plusGrand].size()) plusGrand = g;
  // Every band of every group is solved on its own, in parallel; their reports are merged in order.
  struct Issue {
    std::pair<double, double> AB;
    std::vector<std::string> indetermines;
    std::vector<ContenuDifferent> differents;
    double ecartee = 0;
    bool referenceEcartee = false;
  };
  const size_t nbGroupes = R.groupes.size();
  std::vector<Issue> issues(static_cast<size_t>(std::max(0, nbBandes)) * nbGroupes);
  const size_t parLot =
      p.enParallele > 0 ? static_cast<size_t>(p.enParallele) : std::max<size_t>(1, issues.size());
  for (size_t t0 = 0; t0 < issues.size(); t0 += parLot)
    PourChaque(std::min(parLot, issues.size() - t0), [&](size_t u) {
      const size_t t = t0 + u;
      const int b = static_cast<int>(t / nbGroupes);
      const size_t g = t % nbGroupes;
      SystemeGroupe s(resumes, obs, R.groupes[g], indices[g], local, p, b, reference);
      s.Resoudre(noms);
      Issue& x = issues[t];
      x.AB = s.Coefficients(R.corrections);
      x.indetermines = s.Indetermines();
      x.referenceEcartee = s.ReferenceEcartee();
      for (const auto& d : s.PairesDifferentes())
        x.differents.push_back({d.i, d.j, b, d.correlation, d.blocs});
      for (size_t k = 0; k < indices[g].size(); ++k)
        if (s.Comparees()[k] != 0 && s.PoidsMoyenne()[k] < 0.5) x.ecartee += obs.blocs[indices[g][k]].poids;
    });
  for (int b = 0; b < nbBandes; ++b) {
    double poids = 0, avant = 0, ecartee = 0;
    for (size_t g = 0; g < nbGroupes; ++g) {
      const Issue& x = issues[static_cast<size_t>(b) * nbGroupes + g];
      if (g == plusGrand) {
        R.bandes[b].gainGlobal = x.AB.first;
        R.bandes[b].offsetGlobal = x.AB.second;
      }
      for (size_t l = 0; l < R.groupes[g].size(); ++l) {
        const std::string& t = x.indetermines[l];
        if (t.empty() || R.groupes[g][l] == reference.image) continue;
        std::string& d = R.images[R.groupes[g][l]].termesIndetermines;
        d += (d.empty() ? "" : " ; ") + std::string("bande ") + std::to_string(b + 1) + " : " + t;
      }
      ecartee += x.ecartee;
      if (x.referenceEcartee) R.bandesSansReference.push_back(b);
      R.differents.insert(R.differents.end(), x.differents.begin(), x.differents.end());
    }
    // Block means before and after, over the pairs compared: a set-aside pair's blocks hold different
    // content, their difference measures nothing the correction could mend.
    std::vector<std::pair<int, int>> ecartees;
    for (const ContenuDifferent& d : R.differents)
      if (d.bande == b) {
        ecartees.emplace_back(d.i, d.j);
        R.bandes[b].blocsEcartes += d.blocs;
      }
    std::sort(ecartees.begin(), ecartees.end());
    R.bandes[b].pairesEcartees = ecartees.size();
    double apres = 0;
    for (size_t k = 0; k < obs.blocs.size(); ++k) {
      const ObservationBloc& o = obs.blocs[k];
      if (std::binary_search(ecartees.begin(), ecartees.end(), std::make_pair(o.i, o.j))) continue;
      const double* s = obs.Stats(k, b);
      const CorrectionGainOffset &ci = R.corrections[o.i], &cj = R.corrections[o.j];
      const double d0 = s[0] - s[2];
      const double d1 =
          ci.A(b, o.xi, o.yi) * s[0] + ci.B(b, o.xi, o.yi) - cj.A(b, o.xj, o.yj) * s[2] - cj.B(b, o.xj, o.yj);
      poids += o.poids;
      avant += o.poids * d0 * d0;
      apres += o.poids * d1 * d1;
    }
    if (poids > 0) {
      R.bandes[b].rmsAvant = std::sqrt(avant / poids);
      R.bandes[b].rmsApres = std::sqrt(apres / poids);
      R.bandes[b].fractionEcartee = ecartee / poids;
    }
  }
  return R;
}

MemoireEgalisation EstimerMemoireEgalisation(const std::vector<ZoneBlocs>& entrees,
                                             const ZoneBlocs* reference, int nbBandes, int inconnues) {
  std::vector<ZoneBlocs> z = entrees;
  if (reference) z.push_back(*reference);
  const size_t n = entrees.size(), m = z.size();
  const double b = std::max(1, nbBandes), nU = std::max(1, inconnues), nU2 = nU * nU;
  const double pasBloc = (1 + 2 * b) * sizeof(double);
  // An allocation's own bookkeeping, and a vector grown by doubling holds up to twice its size.
  constexpr double kAllocation = 32, kCroissance = 2;
  // The pairs whose blocks meet, by a sweep along x, and the blocks they share.
  std::vector<size_t> ordre(m);
  std::iota(ordre.begin(), ordre.end(), size_t(0));
  std::sort(ordre.begin(), ordre.end(),
            [&](size_t a, size_t c) { return z[a].bx0 != z[c].bx0 ? z[a].bx0 < z[c].bx0 : a < c; });
  std::vector<std::vector<size_t>> voisines(m);
  double paires = 0, communs = 0;
  for (size_t a = 0; a < m; ++a) {
    const ZoneBlocs& A = z[ordre[a]];
    for (size_t c = a + 1; c < m && z[ordre[c]].bx0 < A.bx0 + A.nbBx; ++c) {
      const ZoneBlocs& C = z[ordre[c]];
      if (!A.Rencontre(C)) continue;
      voisines[ordre[a]].push_back(ordre[c]);
      voisines[ordre[c]].push_back(ordre[a]);
      paires += 1;
      communs += static_cast<double>(std::min(A.bx0 + A.nbBx, C.bx0 + C.nbBx) - std::max(A.bx0, C.bx0)) *
                 static_cast<double>(std::min(A.by0 + A.nbBy, C.by0 + C.nbBy) - std::max(A.by0, C.by0));
    }
  }
  // Statistics: each input's blocks that another footprint reaches, counted as StatsBlocs keeps them
  // (merged runs on each line of blocks); the reference keeps all of its own.
  const double resume = sizeof(ResumeImage) + b * sizeof(ResumeImage::Bande);
  double stats = 0, export1 = 0;
  std::vector<std::pair<long long, long long>> morceaux;
  std::vector<ZoneBlocs> atteintes;
  for (size_t i = 0; i < m; ++i) {
    const ZoneBlocs& A = z[i];
    double gardes = 0, intervalles = 0;
    if (i == n) {
      gardes = static_cast<double>(A.nbBx) * A.nbBy;
      intervalles = static_cast<double>(A.nbBy);
    } else {
      atteintes.clear();
      for (size_t j : voisines[i]) atteintes.push_back(z[j]);
      for (long long by = A.by0; by < A.by0 + A.nbBy; ++by) {
        BlocsGardesLigne(A.bx0, A.nbBx, by, atteintes, morceaux);
        intervalles += static_cast<double>(morceaux.size());
        for (const auto& p : morceaux) gardes += static_cast<double>(p.second - p.first);
      }
    }
    const double donnees = gardes * pasBloc;
    stats += donnees + kCroissance * (intervalles * 3 * sizeof(long long) + (A.nbBy + 1.0) * sizeof(size_t)) +
             (A.nbBx + A.nbBy + 2.0) * sizeof(int) + sizeof(StatsBlocs) + resume + pasBloc + 8 * kAllocation;
    if (i < n)
      export1 = std::max(export1,
                         donnees + (1 + kTermesMax * kTermesMax + b * (3 + 3 * kTermesMax)) * sizeof(double));
  }
  stats += export1;
  // Observations, and the summaries held beside them until the end of the solve (a name each too).
  const double obs =
      communs * (sizeof(ObservationBloc) + 4 * b * sizeof(double)) + kCroissance * paires * 2 * sizeof(int) +
      m * sizeof(size_t) +
      m * (kCroissance * sizeof(ResumeImage) + b * sizeof(ResumeImage::Bande) + 64 + 2 * kAllocation);
  // The solve, for every band: the observations' lists by group, the groups, the corrections.
  const double commune = communs * sizeof(size_t) +
                         m * (sizeof(CorrectionGainOffset) + 2 * b * kTermesMax * sizeof(double) +
                              sizeof(DiagnosticImage) + 6 * sizeof(int) + 4 * kAllocation) +
                         b * m * 128;
  // One band of one group: per observation its two weights and flags, and the residuals and their
  // absolute values while it is re-weighted.
  const double parObservation = 2 * sizeof(double) + 2 + sizeof(double) + kCroissance * sizeof(double);
  // Per pair: its run of observations and its tests of content, and its two off-diagonal blocks in the
  // system: as triplets (grown by doubling), in the matrix made from them and its transposed copy, and in
  // the factor's own copy. Beside them, the blocks of the normal equations of 64 pairs being summed.
  const double hors = 2 * nU2;
  const double parPaire =
      kCroissance * sizeof(size_t) + 24 + kCroissance * sizeof(double) + 1 +
      kCroissance * (sizeof(ContenuDifferent) + 32) +
      hors * (kCroissance * sizeof(Eigen::Triplet<double>) + 3 * (sizeof(double) + sizeof(int)));
  // Per image: its diagonal block likewise, the vectors of its unknowns and the constraints on them.
  const double parImage = nU2 * (sizeof(double) + kCroissance * sizeof(Eigen::Triplet<double>) +
                                 3 * (sizeof(double) + sizeof(int))) +
                          nU * (12 * sizeof(double) + 8 * sizeof(int)) +
                          4 * kTermesMax * nU * sizeof(double) + 2 * sizeof(double) + 2 + 2 * 32;
  const double images = std::max<double>(1, static_cast<double>(m)), l2 = std::log2(images);
  // The factor's entries (a value and a row index each), and one more value each for the diagonal of the
  // inverse computed on its pattern (the learnt prior's posterior variances) with its vectors.
  const double entreesFacteur = nU2 * images * (2 + l2 * l2 / 4) * std::max(1.0, paires / (4 * images));
  const double facteur = entreesFacteur * (2 * sizeof(double) + sizeof(int)) +
                         4 * nU * images * sizeof(double) + 2 * kAllocation;
  const double parBande = communs * parObservation + paires * parPaire + m * parImage + facteur +
                          std::min(64.0, paires) * (4 * nU2 + 2 * nU) * sizeof(double) + 16 * kAllocation;
  MemoireEgalisation r;
  const auto octets = [](double v) {
    return v >= static_cast<double>(std::numeric_limits<size_t>::max() / 2)
               ? std::numeric_limits<size_t>::max() / 2
               : static_cast<size_t>(std::ceil(v));
  };
  r.statistiques = octets(stats);
  r.observations = octets(obs);
  r.resolutionCommune = octets(commune);
  r.resolutionParBande = octets(parBande);
  return r;
}
