// Block statistics of the inputs on the common grid, and the observations the equalization draws
// from them.
//
// The common grid (the mosaic's) is cut into square blocks of `bloc` pixels. For each input and band,
// each block keeps the count, sum and sum of squares of the input's valid pixels whose centre falls in
// it. They are gathered window by window as the input is read (streaming: memory is the statistics
// alone, (1 + 2 bands) doubles per block of the input's footprint), in the input's own pixel grid:
// nothing is resampled. Then, for each pair of inputs and each block that both cover almost entirely,
// one observation: the mean and deviation of each in that block, and the block's centre in each
// input's pixel coordinates.
//
// Pixel coordinates are (column, line), column first; position 0 is the outer edge of the first pixel,
// so pixel c covers [c, c + 1) and its centre is c + 0.5.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <type_traits>
#include <vector>

#include "pipeline/base_polynome.h"

// The common grid and its blocks; the last column and line of blocks may be narrower.
struct GrilleBlocs {
  long long colonnes = 0, lignes = 0;
  // 16: a block mean still averages 256 pixels (noise, half-pixel misregistration), and an overlap
  // narrowed by ragged edges to a few tens of pixels still holds several blocks across, which the
  // curvature of degree-2 fields needs (bench/README.md).
  int bloc = 16;

  // Refuses a grid or a block size that cannot be used.
  void Verifier() const;
  long long NbBlocsX() const { return (colonnes + bloc - 1) / bloc; }
  long long NbBlocsY() const { return (lignes + bloc - 1) / bloc; }
  // Pixels of the common grid in block (bx, by).
  double Surface(long long bx, long long by) const;
};

// Where an input's pixel grid lies on the common grid (axis-aligned, as ortho-images on one map
// projection): the input position (c, l) is the common position (x0 + sx c, y0 + sy l), in common
// pixels. An input on the common grid itself has sx = sy = 1 and whole x0, y0.
struct Placement {
  double x0 = 0, y0 = 0, sx = 1, sy = 1;

  void Verifier() const;
  // Input position of a common position.
  double Colonne(double X) const { return (X - x0) / sx; }
  double Ligne(double Y) const { return (Y - y0) / sy; }
};

// A rectangle of blocks of the grid: [bx0, bx0 + nbBx) x [by0, by0 + nbBy); empty when either count is 0.
struct ZoneBlocs {
  long long bx0 = 0, by0 = 0, nbBx = 0, nbBy = 0;
  bool Vide() const { return nbBx <= 0 || nbBy <= 0; }
  // Whether both hold a block in common.
  bool Rencontre(const ZoneBlocs& z) const {
    return !Vide() && !z.Vide() && z.bx0 < bx0 + nbBx && bx0 < z.bx0 + z.nbBx && z.by0 < by0 + nbBy &&
           by0 < z.by0 + z.nbBy;
  }
};

// The blocks of line 'by' of the zone [bx0, bx0 + nbBx) that the zones 'gardees' reach, as sorted
// intervals [first, second) relative to bx0, disjoint and not touching (what StatsBlocs keeps).
void BlocsGardesLigne(long long bx0, long long nbBx, long long by, const std::vector<ZoneBlocs>& gardees,
                      std::vector<std::pair<long long, long long>>& intervalles);

// The blocks an input of largeur x hauteur pixels placed on the grid reaches (StatsBlocs::Bx0 and the
// like), known before any pixel is read.
ZoneBlocs EmpriseBlocs(const GrilleBlocs& grille, const Placement& placement, int largeur, int hauteur);

// An input's statistics as the gain-offset model needs them: totals and moments of the polynomial terms
// (base_polynome) over its blocks, each block at the centre of its part of the input's footprint.
struct ResumeImage {
  int largeur = 0, hauteur = 0;
  double compte = 0;    // valid pixels
  double surface = 0;   // their area in common-grid pixels
  Placement placement;  // where the image lies on the grid
  // Sum over the blocks of count x t_m x u_q at the block's centre in the image, at m kTermesMax + q,
  // u the monomials 1, x, y, x2, xy, y2 of the normalised position: how a field of the image projects
  // on polynomials of map position, whatever their frame.
  double momentsMonomes[base_polynome::kTermesMax * base_polynome::kTermesMax] = {};
  struct Bande {
    double somme = 0, sommeCarres = 0;
    // Sum over the blocks of count x deviation inside the block: the local contrast, which smooth
    // radiometric fields leave alone.
    double sommeEcarts = 0;
    // Sums over the blocks of t_k(centre) times the block's sum, count and count x deviation.
    double momentsValeur[base_polynome::kTermesMax] = {};
    double momentsCompte[base_polynome::kTermesMax] = {};
    double momentsEcart[base_polynome::kTermesMax] = {};
  };
  std::vector<Bande> bandes;
};

// The block statistics of one input.
//
// The observations need a block's sums only where another input reaches it; the summary (ResumeImage)
// needs every block once. So the blocks to keep can be named: a line of blocks is then held whole only
// until every pixel whose centre falls in it has been added, then folded into the summary and only its
// kept blocks stay. Added in line order (the job reads inputs top down), the memory is the kept blocks
// plus the lines of blocks the current window crosses; in any other order, the lines wait, whole, for
// those before them, so that the summary is always summed in the same order.
class StatsBlocs {
 public:
  // Statistics of an input of largeur x hauteur pixels and nbBandes bands placed on the grid; every
  // block starts empty, and every block is kept. Refuses sizes and placements that cannot be used.
  StatsBlocs(const GrilleBlocs& grille, const Placement& placement, int largeur, int hauteur, int nbBandes);
  // The same, keeping only the blocks of the input that lie in one of the zones (the other inputs'
  // footprints, say).
  StatsBlocs(const GrilleBlocs& grille, const Placement& placement, int largeur, int hauteur, int nbBandes,
             const std::vector<ZoneBlocs>& gardees);

  // Adds the window of columns [colonne0, colonne0 + nbColonnes) and lines [ligne0, ligne0 + nbLignes)
  // of the input, which must lie inside it. Sample (c, l) of band b is
  //   bandes[b][(l - ligne0) * pasLigne + (c - colonne0) * pasPixel]
  // (planar bands: pasPixel 1; interleaved: bandes[b] = base + b, pasPixel = bands), and the pixel is
  // valid when valide[(l - ligne0) * pasValide + (c - colonne0)] is not 0 (every pixel when valide is
  // null). A pixel with a value that is not finite in some band is left out, as are pixels whose
  // centre falls outside the common grid. Each pixel must be added once; windows may come in any order,
  // but for float samples the sums depend on it in their last bits, so add them in a fixed order.
  template <class T>
  void Ajouter(int colonne0, int ligne0, int nbColonnes, int nbLignes, const T* const* bandes,
               std::ptrdiff_t pasPixel, std::ptrdiff_t pasLigne, const unsigned char* valide,
               std::ptrdiff_t pasValide);

  const GrilleBlocs& Grille() const { return m_grille; }
  const Placement& Place() const { return m_placement; }
  int Largeur() const { return m_largeur; }
  int Hauteur() const { return m_hauteur; }
  int NbBandes() const { return m_nbBandes; }
  // The blocks the input's footprint reaches: [Bx0, Bx0 + NbBx) x [By0, By0 + NbBy); empty when the
  // input lies outside the grid.
  long long Bx0() const { return m_bx0; }
  long long By0() const { return m_by0; }
  long long NbBx() const { return m_nbBx; }
  long long NbBy() const { return m_nbBy; }
  // Block (bx, by) of the grid: count, then sum and sum of squares of each band; null outside the
  // input's blocks, and outside the kept blocks once their line of blocks is complete.
  const double* Bloc(long long bx, long long by) const;
  // The kept blocks' sums, lines of blocks in order (every block of the input's footprint when all are
  // kept), once every line is complete.
  const std::vector<double>& Donnees() const { return m_donnees; }
  // The statistics as values, for a copy kept on disk between the phases of a job: the summary's sums,
  // then the kept blocks'. Refused until every line of blocks is complete. Importer restores them into
  // statistics made with the same arguments, into the same statistics; it refuses a count that differs.
  size_t TailleExport() const;
  std::vector<double> Exporter() const;
  void Importer(const std::vector<double>& valeurs);
  // Bytes held by the statistics: the kept blocks, the lines of blocks waiting to be complete, the
  // tables of the footprint.
  size_t Octets() const;

 private:
  void Verifier(int colonne0, int ligne0, int nbColonnes, int nbLignes) const;
  // Adds n pixels of one block's row when every valid sample is a whole number in [0, 65536) and the
  // block's sums are whole: then every partial sum is a whole number under 2^53 (m_entiersExacts), so
  // summing the run in integers first gives the very sums of the pixel-by-pixel additions, without
  // their chain of dependent additions. False (nothing added) otherwise.
  template <class T>
  bool SommerEntiers(double* s, const T* const* bandes, std::ptrdiff_t k0, std::ptrdiff_t pasPixel,
                     const unsigned char* valide, int n) const;

  // A line of blocks being filled: its blocks' sums, and the pixels added to it so far.
  struct LigneEnCours {
    std::vector<double> sommes;
    long long pixels = 0;
  };
  // Kept blocks of a line: [debut, fin) relative to Bx0, from block 'rang' of the kept ones.
  struct Intervalle {
    long long debut, fin, rang;
  };
  friend ResumeImage Resumer(const StatsBlocs& stats);
  void Construire(const std::vector<ZoneBlocs>* gardees);
  // Line of blocks ky, made empty on first use; refused once folded (its pixels were all added).
  LigneEnCours& LigneBlocs(long long ky);
  // Pixels of the input whose centre falls in line of blocks ky.
  long long PixelsLigne(long long ky) const;
  // Folds the complete lines of blocks, in order, into the summary and the kept blocks.
  void Plier();
  // Adds the blocks of line ky (all of them, sums as in 'sommes') to a summary.
  void Resumer(ResumeImage& r, long long ky, const double* sommes) const;

  GrilleBlocs m_grille;
  Placement m_placement;
  int m_largeur, m_hauteur, m_nbBandes;
  long long m_bx0 = 0, m_by0 = 0, m_nbBx = 0, m_nbBy = 0;
  // The first column (line) of each block column (line) the input reaches, then the end of the last.
  std::vector<int> m_debutsColonne, m_debutsLigne;
  // Kept blocks, by line of blocks: the intervals of line ky are [m_debutsIntervalles[ky],
  // m_debutsIntervalles[ky + 1]).
  std::vector<Intervalle> m_intervalles;
  std::vector<size_t> m_debutsIntervalles;
  std::vector<double> m_donnees;  // (1 + 2 bands) values per kept block, lines of blocks in order
  std::map<long long, LigneEnCours> m_enCours;
  long long m_plies = 0;         // lines of blocks folded: all those before this one
  ResumeImage m_resume;          // the folded lines' summary
  std::vector<double> m_zeros;   // an empty block, for lines not reached yet
  bool m_entiersExacts = false;  // a block's sums of 16-bit whole numbers stay exact in double
};

// The summary of complete statistics (lines of blocks not complete are taken as they are).
ResumeImage Resumer(const StatsBlocs& stats);

struct ParametresObservationsBlocs {
  // A block gives an observation of a pair when each input has valid pixels over at least this fraction
  // of the block's area: then the two means are taken over nearly the same ground, and a block cut by a
  // no-data edge or a mask, whose means would compare different content, is left out. 0.9 keeps blocks
  // touched by a ragged edge out and costs few blocks inside overlaps. Whole blocks (1) gain little on
  // generated blocks and lose every block with one stray invalid pixel (bench/README.md, "Whole blocks
  // with a milder re-weighting").
  double fractionValide = 0.9;

  void Verifier() const;
};

struct ObservationBloc {
  int i = 0, j = 0;                       // the inputs, i < j
  double xi = 0, yi = 0, xj = 0, yj = 0;  // the block's centre in the pixel coordinates of i and of j
  double poids = 0;                       // the smaller valid area of the two, in common-grid pixels
};

struct ObservationsBlocs {
  int nbBandes = 0;
  std::vector<ObservationBloc> blocs;  // by pair (i, j) in increasing order, then blocks line by line
  // For observation k and band b, at 4 (k nbBandes + b): mean and deviation in i, mean and deviation in j.
  std::vector<double> stats;
  const double* Stats(size_t k, int bande) const { return &stats[4 * (k * nbBandes + bande)]; }
  // Bytes held by the observations.
  size_t Octets() const {
    return blocs.capacity() * sizeof(ObservationBloc) + stats.capacity() * sizeof(double);
  }
};

// The observations of every pair of inputs. All inputs must share the grid and the band count.
ObservationsBlocs ObserverBlocs(const std::vector<const StatsBlocs*>& images,
                                const ParametresObservationsBlocs& p);

// ---------------------------------------------------------------------------------------------------

template <class T>
void StatsBlocs::Ajouter(int colonne0, int ligne0, int nbColonnes, int nbLignes, const T* const* bandes,
                         std::ptrdiff_t pasPixel, std::ptrdiff_t pasLigne, const unsigned char* valide,
                         std::ptrdiff_t pasValide) {
  Verifier(colonne0, ligne0, nbColonnes, nbLignes);
  const int nb = m_nbBandes;
  const long pasBloc = 1 + 2 * nb;
  const int c1 = colonne0 + nbColonnes;
  // The block columns the window reaches, each a run of pixels.
  long kx0 = 0;
  while (kx0 < m_nbBx && m_debutsColonne[kx0 + 1] <= colonne0) ++kx0;
  // Each line's pixels inside the footprint's columns, counted to its line of blocks.
  const long long dedans =
      m_nbBx == 0
          ? 0
          : std::max(0, std::min(c1, m_debutsColonne[m_nbBx]) - std::max(colonne0, m_debutsColonne[0]));
  if (dedans == 0) return;  // no pixel centre of the window on the grid
  long ky = 0, kyCourant = -1;
  LigneEnCours* ligne = nullptr;
  for (int l = ligne0; l < ligne0 + nbLignes; ++l) {
    while (ky < m_nbBy && m_debutsLigne[ky + 1] <= l) ++ky;
    if (ky >= m_nbBy || l < m_debutsLigne[0]) continue;
    if (ky != kyCourant) {
      ligne = &LigneBlocs(ky);
      kyCourant = ky;
    }
    ligne->pixels += dedans;
    double* blocs = ligne->sommes.data();
    const std::ptrdiff_t dl = l - ligne0;
    const unsigned char* v = valide ? valide + dl * pasValide - colonne0 : nullptr;
    for (long kx = kx0; kx < m_nbBx && m_debutsColonne[kx] < c1; ++kx) {
      double* s = blocs + kx * pasBloc;
      const int debut = std::max(colonne0, m_debutsColonne[kx]), fin = std::min(c1, m_debutsColonne[kx + 1]);
      if constexpr (std::is_floating_point<T>::value)
        if (m_entiersExacts && SommerEntiers(s, bandes, dl * pasLigne + (debut - colonne0) * pasPixel,
                                             pasPixel, v ? v + debut : nullptr, fin - debut))
          continue;
      for (int c = debut; c < fin; ++c) {
        if (v && !v[c]) continue;
        const std::ptrdiff_t k = dl * pasLigne + (c - colonne0) * pasPixel;
        if constexpr (std::is_floating_point<T>::value) {
          bool fini = true;
          for (int b = 0; b < nb; ++b) fini = fini && std::isfinite(bandes[b][k]);
          if (!fini) continue;
        }
        s[0] += 1;
        for (int b = 0; b < nb; ++b) {
          const double x = static_cast<double>(bandes[b][k]);
          s[1 + 2 * b] += x;
          s[2 + 2 * b] += x * x;
        }
      }
    }
  }
  Plier();
}

template <class T>
bool StatsBlocs::SommerEntiers(double* s, const T* const* bandes, std::ptrdiff_t k0, std::ptrdiff_t pasPixel,
                               const unsigned char* valide, int n) const {
  long long compte = 0;
  for (int c = 0; c < n; ++c) compte += !valide || valide[c];
  if (compte == 0) return true;
  long long sommes[2 * 64];
  const int nb = m_nbBandes;
  if (nb > 64) return false;
  // Sums already holding a fraction (samples that were not whole) keep the pixel-by-pixel order.
  for (int k = 1; k <= 2 * nb; ++k)
    if (std::trunc(s[k]) != s[k]) return false;
  for (int b = 0; b < nb; ++b) {
    const T* x = bandes[b] + k0;
    long long somme = 0, carres = 0;
    bool entiers = true;
    for (int c = 0; c < n; ++c) {
      const T v = x[c * pasPixel];
      const bool ok = !valide || valide[c];
      const long long e = ok && v >= 0 && v < 65536 ? static_cast<long long>(v) : 0;
      entiers = entiers && (!ok || static_cast<T>(e) == v);
      somme += e;
      carres += e * e;
    }
    if (!entiers) return false;
    sommes[2 * b] = somme;
    sommes[2 * b + 1] = carres;
  }
  s[0] += static_cast<double>(compte);
  for (int b = 0; b < nb; ++b) {
    s[1 + 2 * b] += static_cast<double>(sommes[2 * b]);
    s[2 + 2 * b] += static_cast<double>(sommes[2 * b + 1]);
  }
  return true;
}
