// The gain-offset equalization model: per image and band, corrected value = a(x, y) v + b(x, y), with
// a and b polynomials of the pixel position (degrees 0 to 2, in the orthonormal basis of
// base_polynome), fitted jointly over all images from block observations (blocs_stats.h).
//
// For each observation (a pair of images i, j and a block both cover) and band, two equations, linear
// in the unknown coefficients, at the block's centre in each image:
//   mean:       a_i mu_i + b_i = a_j mu_j + b_j
//   deviation:  a_i sigma_i = a_j sigma_j          (weighted by poidsEcart)
// each weighted by the block's valid area, so that a block stands for its pixels and the fit does not
// depend on the block size. A deviation equation is left out when one deviation is below a quarter of
// the other: no gain is that far from 1, so one block is flat for another reason (saturation, a fill).
// Weighted least squares through the sparse normal equations (Eigen SimplicialLDLT), one system per band and
// per connected group of the overlap graph.
//
// The blind spot. Overlaps only compare images with each other: one smooth map-wide field added to
// every image's correction (a common gain and offset surface, or a vignetting shared by all) changes no
// equation. It is fixed on purpose:
//  - the gain part by constraints: the group's mean gain correction (a_i - 1 averaged over the images'
//    pixels), as a field of map position of the gain's degree, is 0, so the correction adds no gain
//    trend the inputs did not have. A prior alone cannot hold the mean gain: any norm of the
//    corrections shrinks when all of them, offsets included, are scaled down, and would trade the set's
//    contrast for smaller offsets;
//  - the rest by a weak prior pulling every image's correction toward identity: for image i,
//    rigidite x its valid area times the mean square, over its value distribution (mean m_i, and
//    deviation s_i but at least a tenth of the group's level, so that the gain of a flat image is held
//    too) and over its extent, of the change (a - 1) v + b, its slopes poidsPentes times and its
//    curvatures poidsCourbures times dearer than its level, and the gain's own slopes and curvatures
//    poidsFormesGain times dearer again. Inside the blind spot this picks the smallest corrections in
//    that norm (the common offset surface has no trend of its own), and it holds the terms no
//    observation sees. The weights on shapes are a bet on real data, where images differ mostly in
//    level (exposure) and less in shape: a map-wide ramp can be told from the images' slopes, which it
//    would all tilt alike, as well as from the trend of their levels. The gain's shapes are dearer
//    still because overlaps see them only through the spread of the values, and what a polynomial gain
//    cannot fit (the inverse of a smooth distortion is not a polynomial) spreads along the smooth
//    fields overlaps hardly see;
//  - in groups of 6 images or more (priorEmpirique), the last solves learn that prior from the data:
//    each class of terms (gain or offset; level, slopes or curvatures) gets the precision the images
//    show, the residuals' variance per pixel over the mean square of the images' coefficients in that
//    class in the previous solve (after a learnt-prior solve, over the share of each coefficient the
//    data determine: Etalement), the gain's shapes still poidsFormesGain times dearer: a Gaussian
//    prior whose spread is measured on the images themselves. Then only the mean gain stays
//    constrained, and the gains' map-wide trend is placed like the offsets': as the spread of each
//    class makes likeliest. Overlaps say nothing about the blind spot, so this is the best that can
//    be done there on average; a prior set by hand is right only for the spread it was tuned on (on
//    the quality benchmark the learnt prior cuts the mosaic's error by up to a quarter, bench/README.md);
//  - the last two solves (after the stiff ones and the first re-weighted one, in groups of any size)
//    estimate the gain as the distortion's rather than the correction's (gainDistorsion): the scene
//    s = v / (1 - A) + b, A and b polynomials, the equations linearised at the previous solve, and the
//    correction's gain a is then fitted to 1 / (1 - A) over each image (Gauss-Legendre, 8 x 8). A
//    lens's fall-off and haze multiply the scene by a smooth field, whose inverse is not a polynomial:
//    fitted as a correction, its small misfit drives the map-wide gain field, which overlaps see only
//    through the images' gain differences; fitted as a distortion it has none. The offset stays the
//    correction's, so that a map-wide offset field stays exactly in the blind spot. The first solves keep the
//    linear model: changed content must be found first, or a cloud, taken for a gain, weighs more once the
//    equations are linearised there (bench/README.md);
//  - then one constant gain and offset, common to the group (itself in the blind spot, so no residual
//    changes), bring the group's mean over all valid pixels back to its value before correction, and
//    its local contrast (the mean over blocks of the deviation inside each block) too. The local
//    contrast is kept rather than the deviation of all pixels, because the latter includes the very
//    offset fields being removed and would re-inflate the contrast by them.
// rigidite (the set prior's weight: groups of fewer than 6 images, and the solves before the learnt
// prior) is dimensionless: the prior's pull per unit of image area against one overlap pixel's
// equation; as both scale with pixel counts, one value suits small and large blocks and images. Keep it
// tiny: overlaps see the curvature of a degree-2 field only across their width, so its effect in an
// image's far side is weakly observed, and a prior of 1e-5 already pulls those terms toward identity by
// several grey levels (bench/README.md). The default 1e-7 fixes the blind spot and the unseen terms (its
// pull stays many orders above the solver's rounding) and leaves the rest to the data; with the shapes
// dearer, it was better than 1e-9 and 1e-6 on average over several draws of the benchmark's presets.
//
// Robustness: pairs whose overlap holds different content (another place, a fill, a saturated tile:
// block means unrelated from block to block) give no equation. The
// first solve is plain, the next ones re-weight each equation from its residual
// normalised by a robust scale (1.4826 x the median absolute normalised residual of the group and
// equation kind): two Huber steps (k = 1.5), then Tukey's biweight (c = 4.685), which drops changed
// content (a cloud, a car, a shadow present in one image only). The scale is recomputed at each step,
// and the share set aside grows as the fit improves (the misfit of a polynomial correction then looks
// like outliers); holding the scale or a larger constant sets aside half as much or less, but hardly
// changes the results, and the held scale lets more of a cloud in (bench/README.md). The first three solves
// (all but the last when there are fewer than four) use a rigidity of at least 1e-3: a flexible fit would
// bend the weakly observed terms to absorb changed content, which would then no longer stand out.
// Deterministic: a fixed number of solves, sums in a fixed order.
//
// Groups: each connected group of the overlap graph is solved alone; an image that overlaps nothing
// keeps identity and is reported. An image whose observations do not span its polynomial's terms (all
// its blocks on one line, a flat image whose gain and offset cannot be told apart) is reported with the
// terms concerned, which the prior then holds at identity. A factorisation that fails or a solution that
// is not finite throws an Erreur naming the group's images. No input (constant, all no-data, saturated)
// gives a NaN or infinite correction.
#pragma once

#include <string>
#include <vector>

#include "pipeline/base_polynome.h"
#include "pipeline/blocs_stats.h"
#include "zepra/pipeline/modeles.h"

struct ParametresGainOffset {
  // Degree 2 for both: a vignetting, shared or not, is a degree-2 gain, and lower degrees miss it badly
  // (bench/README.md).
  int degreGain = 2;    // 0 to 2
  int degreOffset = 2;  // 0 to 2
  double rigidite = 1e-7;
  // The prior's weight on the slopes and on the curvatures of a correction, relative to its level
  // (orthonormal terms, so relative to the same mean square): real corrections are mostly levels, and
  // what the overlaps cannot see is then placed in the levels' trend rather than in shapes.
  double poidsPentes = 10.0;
  double poidsCourbures = 3.0;
  // The gain's slopes and curvatures are this many times dearer again than the same change of values
  // made by the offset's. Overlaps see a gain's shape only through the spread of the values, and what
  // a polynomial gain cannot fit (the inverse of a smooth distortion is not a polynomial) spreads along
  // the smooth fields overlaps hardly see; a stiffer gain shape holds them (bench/README.md).
  double poidsFormesGain = 30.0;
  // In groups of 6 images or more, the last solves learn the prior from the data (below).
  bool priorEmpirique = true;
  // The last solves estimate the gain as the distortion's (below).
  bool gainDistorsion = true;
  // How the learnt prior measures the spread of a class of terms from the previous solve. The estimates
  // are posterior means, which the prior has shrunk most where overlaps see least, so their mean square
  // underestimates the spread. Both corrections take each coefficient's posterior variance (the
  // residuals' variance times the diagonal of the inverse normal matrix, on the sparse factor's
  // pattern): the expectation-maximisation step adds it to the squares, the evidence's fixed point
  // divides the squares by the share of each coefficient the data determine (1 - its prior's precision
  // times its posterior variance), so that a term no overlap sees counts for nothing rather than for
  // its prior. The latter is the default: the flight strip's detrended error 5.12 -> 4.79 on average,
  // the other presets level or better but the cloud's (plain +0.06); the former fits blocks of tiles
  // differing in level only to their noise (bench/README.md).
  enum class Etalement { estimations, esperance, evidence };
  Etalement etalement = Etalement::evidence;
  // For the quality benchmark only: the learnt prior's mean square of each class of terms (the gain's
  // level, slopes, curvatures, then the offset's) given rather than measured, to tell the learnt spreads'
  // share of the error from the rest. Gains as the unknowns are at that point (the distortion's A with
  // gainDistorsion, else a - 1), offsets in grey levels. Empty: learnt.
  std::vector<double> etalementsDonnes;
  double poidsEcart = 1.0;  // weight of the deviation equations against the mean equations
  int iterations = 6;       // solves: the first plain, the next ones re-weighted (1 to 50)
  // The re-weighting (bench/README.md, "Tried and not adopted"): the Tukey steps' robust scale held at
  // the last Huber step's rather than recomputed at each step, and Tukey's constant.
  bool echelleTenue = false;
  // Off: every equation keeps weight 1 through the solves (the robust scale is still measured, as the
  // learnt prior needs it). For the quality benchmark.
  bool reponderation = true;
  double constanteTukey = 4.685;
  // Bands and groups solved at once, each holding its own system (EstimerMemoireEgalisation); 0: as many
  // as threads. The results do not depend on it.
  int enParallele = 0;

  // Refuses out-of-range values, naming them.
  void Verifier() const;
  // The model's settings from a job's; a negative (automatic) degree is taken as given.
  static ParametresGainOffset De(const ParametresModele& m);
};

// The correction of one image: for each band, the coefficients of a - 1 and of b.
class CorrectionGainOffset {
 public:
  // Identity for an image of the given size.
  CorrectionGainOffset(int largeur = 1, int hauteur = 1, int nbBandes = 1, int degreGain = 0,
                       int degreOffset = 0);

  int Largeur() const { return m_largeur; }
  int Hauteur() const { return m_hauteur; }
  int NbBandes() const { return m_nbBandes; }
  int DegreGain() const { return m_degreGain; }
  int DegreOffset() const { return m_degreOffset; }
  bool EstIdentite() const;
  // Coefficients of a - 1 (NbTermes(DegreGain) of them) and of b, in the basis of base_polynome.
  double* Gain(int bande) { return &m_gain[static_cast<size_t>(bande) * m_nbGain]; }
  const double* Gain(int bande) const { return &m_gain[static_cast<size_t>(bande) * m_nbGain]; }
  double* Offset(int bande) { return &m_offset[static_cast<size_t>(bande) * m_nbOffset]; }
  const double* Offset(int bande) const { return &m_offset[static_cast<size_t>(bande) * m_nbOffset]; }

  // a and b at a pixel position (0 = outer edge of the first pixel; pixel c's centre is c + 0.5).
  double A(int bande, double colonne, double ligne) const;
  double B(int bande, double colonne, double ligne) const;

  // Corrects pixels [colonne0, colonne0 + n) of line 'ligne' of a band: sortie[k] = a v + b at the
  // pixel's centre, entree[k] being pixel colonne0 + k. entree and sortie may be the same array. With a
  // validity line (valide[k] != 0 = valid), invalid pixels are copied unchanged. No bounds check on the
  // arrays; the pixel range must lie inside the image.
  void CorrigerLigne(int bande, int ligne, int colonne0, int n, const float* entree, float* sortie,
                     const unsigned char* valide = nullptr) const;
  void CorrigerLigne(int bande, int ligne, int colonne0, int n, const double* entree, double* sortie,
                     const unsigned char* valide = nullptr) const;

 private:
  double Champ(const double* c, int n, double colonne, double ligne) const;
  template <class T>
  void Corriger(int bande, int ligne, int colonne0, int n, const T* entree, T* sortie,
                const unsigned char* valide) const;

  int m_largeur, m_hauteur, m_nbBandes, m_degreGain, m_degreOffset, m_nbGain, m_nbOffset;
  std::vector<double> m_gain, m_offset;
};

struct DiagnosticImage {
  int groupe = -1;             // index in ResultatGainOffset::groupes, -1 when the image overlaps nothing
  long long observations = 0;  // blocks shared with other images
  bool sansDonnees = false;    // no valid pixel at all
  // Terms of the correction that its observations do not determine, per band ("bande 1 : a.x, b.x");
  // empty when they span every term. The prior holds these terms at identity. A band in which every
  // overlap of the image was set aside (ContenuDifferent) is not listed: it has no equation at all, which
  // the set-aside pairs already say.
  std::string termesIndetermines;
};

struct BilanBande {
  // Root mean square, weighted by block area, of the difference of block means between overlapping
  // images, before and after correction, over the observations of the pairs compared: those of the
  // pairs set aside (ContenuDifferent) compare nothing and are counted apart.
  double rmsAvant = 0, rmsApres = 0;
  size_t pairesEcartees = 0, blocsEcartes = 0;
  // Share of the compared observations' area that the robust weights set aside (final weight below 0.5).
  double fractionEcartee = 0;
  double gainGlobal = 1, offsetGlobal = 0;  // the last constant step of the largest group
};

// A pair of images whose overlap does not hold the same content in a band (one misplaced, or taken at
// another date): its observations are left out.
struct ContenuDifferent {
  int i = 0, j = 0, bande = 0;
  // Of the changes of the block mean from one block to its neighbours, 0 when the image is flat there; NaN:
  // too few blocks to judge, left out with the rest of an image whose overlaps mostly differ.
  double correlation = 0;
  size_t blocs = 0;
};

struct ResultatGainOffset {
  std::vector<CorrectionGainOffset> corrections;  // one per image
  std::vector<DiagnosticImage> images;
  std::vector<ContenuDifferent> differents;  // by band, then pair
  std::vector<std::vector<int>> groupes;     // images of each connected group, in increasing order
  std::vector<BilanBande> bandes;
  // Bands in which every pair with the reference was set aside (ReferenceGainOffset): solved without it.
  std::vector<int> bandesSansReference;
};

// A radiometric reference among the images (an earlier mosaic, a coarser satellite image of the same
// ground): observed like the others, its correction fixed to identity. Its unknowns are left out of the
// system rather than weighed, so that it is matched exactly, not pulled toward the others. In its group
// it fixes what overlaps alone cannot see (the blind spot above): the group's mean gain is not
// constrained and no constant gain and offset keep the group's mean and contrast, since both would move
// the group away from the reference. Groups it does not touch are solved as without it. A reference whose
// pixel is coarser than the grid's holds less contrast inside a block than the images: its deviation
// equations are then left out (ecarts false), its means still compared. Its pairs whose content differs
// (a cloud over the reference, a fill) are set aside like any, but count against it alone: overlapping
// an image more than its neighbours do, they would otherwise make the image look misplaced. A group
// where every pair with it is set aside is solved as without it.
struct ReferenceGainOffset {
  int image = -1;  // its index among the images; -1: no reference
  bool ecarts = true;
};

// Solves every band. resumes has one entry per image (Resumer of its statistics); the observations come
// from Observer over the same images in the same order. noms, when given, names the images in error
// messages (else they are numbered from 1). With a reference, its correction stays the identity.
ResultatGainOffset ResoudreGainOffset(const std::vector<ResumeImage>& resumes, const ObservationsBlocs& obs,
                                      const ParametresGainOffset& p,
                                      const std::vector<std::string>& noms = {},
                                      const ReferenceGainOffset& reference = {});

// What the block statistics, the observations and the solve of a job hold at most, in bytes, known from
// the footprints alone (EmpriseBlocs on the grid of the block side considered), before any pixel is
// read. entrees: each input's blocks; reference: the reference's, or null. inconnues: the unknowns of
// one image and band (the gain's terms and the offset's).
//  - statistiques: each input's kept blocks (those another footprint reaches, StatsBlocs) and tables,
//    the reference's every block, and one input's sums read back from a work file (the solve phase);
//  - observations: one per block of each pair's common blocks (the valid-area test keeps fewer), with
//    the summaries;
//  - resolutionCommune: what the solve holds for every band (the groups' lists, the corrections);
//  - resolutionParBande: what one band of one group holds while it is solved (weights, residuals, the
//    normal equations, their sparse factor and the diagonal of the inverse on its pattern, counted
//    whatever the Etalement), taken as if every image were in one group. The
//    factor's fill is taken as that of overlaps on a plane: at most 2 + log2(n)^2 / 4 blocks of
//    unknowns per image (images on a grid, each meeting its eight neighbours: 19 measured for 1024
//    images), times the pairs' excess over four per image.
// The statistics are freed once the observations are made. One band solved at a time is the least the
// solve can hold (ParametresGainOffset::enParallele), so the estimate does not depend on the threads:
// every run and phase of a job derives the same from the same inputs and options.
struct MemoireEgalisation {
  size_t statistiques = 0, observations = 0, resolutionCommune = 0, resolutionParBande = 0;
  size_t Pic() const { return std::max(statistiques, resolutionCommune + resolutionParBande) + observations; }
};
MemoireEgalisation EstimerMemoireEgalisation(const std::vector<ZoneBlocs>& entrees,
                                             const ZoneBlocs* reference, int nbBandes, int inconnues);
