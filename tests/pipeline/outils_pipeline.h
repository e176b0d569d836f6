// Synthetic tiles for the equalization tests: a textured scene as a function of the global pixel, cut
// into tiles on the common grid, each distorted by the inverse of a known gain-offset correction, so
// that the exact correction lies in the model.
#pragma once

#include <Eigen/Dense>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "pipeline/blocs_stats.h"
#include "pipeline/gain_offset.h"
#include "zepra/crs.h"
#include "zepra/ecrivaingeotiff.h"
#include "zepra/pipeline/mosaique.h"
#include "zepra/ttimage.h"

namespace test {

inline double Hasard(long long a, long long b, uint32_t graine) {
  uint32_t h = static_cast<uint32_t>(a) * 0x9e3779b1u ^
               (static_cast<uint32_t>(b) + 0x632be5abu) * 0x85ebca6bu ^ graine;
  h ^= h >> 16;
  h *= 0x7feb352du;
  h ^= h >> 15;
  h *= 0x846ca68bu;
  h ^= h >> 16;
  return h * (1.0 / 4294967296.0);
}

// Slow variations (so that block means differ and gain and offset can be told apart) and texture.
inline double Scene(long long X, long long Y) {
  return 110 + 40 * std::sin(X / 41.0 + Y / 57.0) + 18 * std::sin(X / 7.3) * std::cos(Y / 5.1) +
         40 * (Hasard(X, Y, 7) - 0.5);
}

struct Tuile {
  int x0 = 0, y0 = 0, w = 0, h = 0;  // on the common grid
  std::vector<float> v;              // the distorted values
  std::vector<unsigned char> valide;
  CorrectionGainOffset vraie;  // the correction that gives the scene back

  float& operator()(int c, int l) { return v[static_cast<size_t>(l) * w + c]; }
};

// A tile whose values are (scene - b) / a for the given correction (gain and offset coefficients of one
// band), plus uniform noise of the given amplitude; every pixel valid.
inline Tuile FaireTuile(int x0, int y0, int w, int h, const std::vector<double>& gain,
                        const std::vector<double>& offset, double bruit = 0, uint32_t graine = 1) {
  Tuile t;
  t.x0 = x0;
  t.y0 = y0;
  t.w = w;
  t.h = h;
  const int dg = gain.size() == 1 ? 0 : gain.size() == 3 ? 1 : 2;
  const int dof = offset.size() == 1 ? 0 : offset.size() == 3 ? 1 : 2;
  t.vraie = CorrectionGainOffset(w, h, 1, dg, dof);
  for (size_t k = 0; k < gain.size(); ++k) t.vraie.Gain(0)[k] = gain[k];
  for (size_t k = 0; k < offset.size(); ++k) t.vraie.Offset(0)[k] = offset[k];
  t.v.resize(static_cast<size_t>(w) * h);
  t.valide.assign(t.v.size(), 1);
  for (int l = 0; l < h; ++l)
    for (int c = 0; c < w; ++c) {
      const double s = Scene(x0 + c, y0 + l) + bruit * 2 * (Hasard(c + 7 * x0, l + 13 * y0, graine) - 0.5);
      t(c, l) = static_cast<float>((s - t.vraie.B(0, c + 0.5, l + 0.5)) / t.vraie.A(0, c + 0.5, l + 0.5));
    }
  return t;
}

// A tile as a camera distorts the scene: scene x (1 + g) + noise, g the field of the given gain
// coefficients. Its exact correction, 1 / (1 + g), is not a polynomial: 'vraie' is left at identity.
inline Tuile FaireTuileVignettee(int x0, int y0, int w, int h, const std::vector<double>& gain, double bruit,
                                 uint32_t graine) {
  Tuile t = FaireTuile(x0, y0, w, h, {0}, {0});
  const int dg = gain.size() == 1 ? 0 : gain.size() == 3 ? 1 : 2;
  CorrectionGainOffset g(w, h, 1, dg, 0);
  for (size_t k = 0; k < gain.size(); ++k) g.Gain(0)[k] = gain[k];
  for (int l = 0; l < h; ++l)
    for (int c = 0; c < w; ++c) {
      const double s = Scene(x0 + c, y0 + l) + bruit * 2 * (Hasard(c + 7 * x0, l + 13 * y0, graine) - 0.5);
      t(c, l) = static_cast<float>(s * g.A(0, c + 0.5, l + 0.5));
    }
  return t;
}

struct Donnees {
  std::vector<StatsBlocs> stats;
  std::vector<ResumeImage> resumes;
  ObservationsBlocs obs;
};

// Block statistics gathered in windows of a few lines, as a streaming reader would, then observations.
inline Donnees ObserverBlocs(const std::vector<Tuile>& tuiles, int bloc, double fraction = 0.9) {
  GrilleBlocs g;
  g.bloc = bloc;
  for (const Tuile& t : tuiles) {
    g.colonnes = std::max<long long>(g.colonnes, t.x0 + t.w);
    g.lignes = std::max<long long>(g.lignes, t.y0 + t.h);
  }
  Donnees d;
  for (const Tuile& t : tuiles) {
    Placement p;
    p.x0 = t.x0;
    p.y0 = t.y0;
    d.stats.emplace_back(g, p, t.w, t.h, 1);
    for (int l = 0; l < t.h; l += 7) {
      const float* bande = &t.v[static_cast<size_t>(l) * t.w];
      d.stats.back().Ajouter(0, l, t.w, std::min(7, t.h - l), &bande, 1, t.w,
                             &t.valide[static_cast<size_t>(l) * t.w], t.w);
    }
    d.resumes.push_back(Resumer(d.stats.back()));
  }
  std::vector<const StatsBlocs*> pointeurs;
  for (const StatsBlocs& s : d.stats) pointeurs.push_back(&s);
  ParametresObservationsBlocs po;
  po.fractionValide = fraction;
  d.obs = ::ObserverBlocs(pointeurs, po);
  return d;
}

// Root mean square of (corrected - scene) over the valid pixels of the tiles, after removing one map-wide
// degree-2 gain surface and one degree-2 offset surface fitted to them (what the overlaps cannot tell),
// and the root mean square of those surfaces (the drift).
struct Ecarts {
  double residu = 0, surface = 0;
};
// Root mean square of the part of e(tile, pixel) that one map-wide degree-2 offset surface (and, with
// 'gain', one degree-2 gain surface times the scene) explains, and of what they leave, over the tiles'
// valid pixels.
template <class Ecart>
Ecarts Surfaces(const std::vector<Tuile>& tuiles, bool gain, Ecart ecart) {
  double X1 = 1, Y1 = 1;
  for (const Tuile& t : tuiles) {
    X1 = std::max(X1, static_cast<double>(t.x0 + t.w));
    Y1 = std::max(Y1, static_cast<double>(t.y0 + t.h));
  }
  std::vector<std::array<double, 12>> lignes;
  std::vector<double> e;
  for (size_t i = 0; i < tuiles.size(); ++i) {
    const Tuile& t = tuiles[i];
    for (int l = 1; l < t.h; l += 3)
      for (int k = 1; k < t.w; k += 3) {
        if (!t.valide[static_cast<size_t>(l) * t.w + k]) continue;
        const double s = Scene(t.x0 + k, t.y0 + l);
        const double x = 2 * (t.x0 + k) / X1 - 1, y = 2 * (t.y0 + l) / Y1 - 1;
        const double g = gain ? s : 0.0;
        lignes.push_back({g, g * x, g * y, g * x * x, g * x * y, g * y * y, 1, x, y, x * x, x * y, y * y});
        e.push_back(ecart(i, k, l));
      }
  }
  Eigen::MatrixXd A(lignes.size(), 12);
  Eigen::VectorXd b(lignes.size());
  for (size_t r = 0; r < lignes.size(); ++r) {
    for (int k = 0; k < 12; ++k) A(r, k) = lignes[r][k];
    b(r) = e[r];
  }
  const Eigen::MatrixXd M = gain ? A : Eigen::MatrixXd(A.rightCols(6));
  const Eigen::VectorXd ajuste = M * M.colPivHouseholderQr().solve(b);
  Ecarts r;
  r.residu = std::sqrt((b - ajuste).squaredNorm() / b.size());
  r.surface = std::sqrt(ajuste.squaredNorm() / b.size());
  return r;
}

inline double Corriger(const CorrectionGainOffset& c, const Tuile& t, int k, int l) {
  float v = t.v[static_cast<size_t>(l) * t.w + k], corrige;
  c.CorrigerLigne(0, l, k, 1, &v, &corrige);
  return corrige;
}

// Corrected against the scene: 'residu' is what the overlaps could have told, 'surface' the map-wide
// part they cannot.
inline Ecarts EcartsAuVrai(const std::vector<Tuile>& tuiles, const std::vector<CorrectionGainOffset>& c) {
  return Surfaces(tuiles, true, [&](size_t i, int k, int l) {
    return Corriger(c[i], tuiles[i], k, l) - Scene(tuiles[i].x0 + k, tuiles[i].y0 + l);
  });
}

// The corrections themselves, as the change they make to a mid-grey value at each pixel: 'surface' is
// their map-wide part, the trend they add.
inline Ecarts SurfacesDesCorrections(const std::vector<Tuile>& tuiles,
                                     const std::vector<CorrectionGainOffset>& c) {
  return Surfaces(tuiles, false, [&](size_t i, int k, int l) {
    return (c[i].A(0, k + 0.5, l + 0.5) - 1) * 110 + c[i].B(0, k + 0.5, l + 0.5);
  });
}

// The job tests' blocks: 3-band tiles of kN pixels of kPas metres, overlapping by kRecouvrement, over a
// truth known at every pixel of the block's grid, which starts at (kX0, kY0) in EPSG:2154.
constexpr int kN = 160, kRecouvrement = 40, kBandes = 3;
constexpr double kPas = 0.5, kX0 = 650000, kY0 = 6860000;

inline double Verite(int b, double x, double y) {
  return 100 + 40 * std::sin(x / 11.0 + b) + 30 * std::cos(y / 17.0 - b) + 10 * b;
}

// The grid of a file whose first pixel is pixel (c0, l0) of the block's grid, its pixel 'pas'.
inline GeoreferenceEcriture Grille(int c0, int l0, double pas = kPas, int epsg = 2154) {
  GeoreferenceEcriture g;
  g.grille = true;
  g.x0 = kX0 + c0 * kPas;
  g.y0 = kY0 - l0 * kPas;
  g.pasX = g.pasY = pas;
  g.crs = CrsDepuisEpsg(epsg);
  return g;
}

// Root mean square of a mosaic on the block's grid minus the truth over bands b0 to b1 - 1; after one
// gain and offset per band fitted by least squares when 'ajuste' (what the overlaps cannot know).
inline double EcartALaVerite(const std::string& mosaique, bool ajuste, int b0 = 0, int b1 = kBandes) {
  const TTImage<float> m(mosaique.c_str());
  if (m.GetNbCanaux() < b1) return INFINITY;
  double total = 0, n = 0;
  for (int b = b0; b < b1; ++b) {
    double sx = 0, sy = 0, sxx = 0, sxy = 0, k = 0;
    for (int y = 0; y < m.iGetNbLignes(); ++y)
      for (int x = 0; x < m.iGetNbColonnes(); ++x) {
        const double v = m(x, y, b), t = Verite(b, x, y);
        sx += v, sy += t, sxx += v * v, sxy += v * t, k += 1;
      }
    const double a = ajuste ? (k * sxy - sx * sy) / (k * sxx - sx * sx) : 1.0,
                 c = ajuste ? (sy - a * sx) / k : 0.0;
    for (int y = 0; y < m.iGetNbLignes(); ++y)
      for (int x = 0; x < m.iGetNbColonnes(); ++x) total += std::pow(a * m(x, y, b) + c - Verite(b, x, y), 2);
    n += k;
  }
  return std::sqrt(total / n);
}

// The warnings of a report, one a line.
inline std::string Avertissements(const RapportMosaique& r) {
  std::string t;
  for (const std::string& a : r.avertissements) t += a + "\n";
  return t;
}

// A job on these inputs with small tiles of 64, as the job tests write their mosaics.
inline ParametresMosaique Parametres(const std::vector<std::string>& entrees, const std::string& sortie) {
  ParametresMosaique p;
  p.entrees = entrees;
  p.sortie = sortie;
  p.ecriture.tuile = 64;
  return p;
}

// The phases up to the solve in fresh jobs, as separate processes would: every input observed, the solve.
inline void ObserverEtResoudre(const ParametresMosaique& p, const std::string& travail) {
  for (size_t i = 1; i <= p.entrees.size(); ++i) JobMosaique(p).PhaseObserver(travail, static_cast<int>(i));
  JobMosaique(p).PhaseResoudre(travail);
}

// The whole job through its phases: those up to the solve, one part, the assembly, whose report is
// returned.
inline RapportMosaique EnPhases(const ParametresMosaique& p, const std::string& travail) {
  ObserverEtResoudre(p, travail);
  JobMosaique(p).PhaseComposer(travail, 1, 1);
  JobMosaique assembleur(p);
  assembleur.PhaseAssembler(travail);
  return assembleur.Rapport();
}

}  // namespace test
