#include "zepra/pipeline/observations.h"

#include <algorithm>
#include <cmath>

#include "zepra/erreur.h"
#include "zepra/pipeline/parallele.h"

namespace {

// Beyond this the sampling would take hours and the system gigabytes: the step is surely wrong.
constexpr double kMaxPointsGrille = 1e9;

// One input's observations before the merge: grid index, position and values.
struct ObservationImage {
  long long g;
  double col, lin;
  size_t valeurs;  // index of its first value in the input's list
};

// A grid position k along one axis, its unrounded pixel position and the pixel index it falls on.
struct PositionGrille {
  long long k;
  double pixel;
  int indice;
};

// The positions of the axis strictly between bas and haut whose pixel position, by 'pixel', falls
// inside [0, n) once truncated.
template <class F>
std::vector<PositionGrille> PositionsDedans(const AxeGrille& axe, double bas, double haut, int n, F&& pixel) {
  std::vector<PositionGrille> p;
  axe.Parcourir(bas, haut, [&](long long k, double position) {
    int indice;
    const double x = pixel(position);
    if (IndiceDedans(x, n, indice)) p.push_back(PositionGrille{k, x, indice});
  });
  return p;
}

// The grid points that fall on valid pixels of one input, in grid order. The column of a point depends
// on its X alone and its line on its Y alone, so each is computed once; rows are read in increasing
// order, only those the grid crosses.
void ObserverImage(const ImageObservee& im, const AxeGrille& axeX, const AxeGrille& axeY,
                   std::vector<ObservationImage>& obs, std::vector<double>& valeurs) {
  const GeoCarto& geo = im.geo;
  const SourceLignes& s = *im.source;
  const int bandes = s.Bandes();
  const std::vector<PositionGrille> colonnes =
      PositionsDedans(axeX, geo.minX, geo.maxX, s.Colonnes(), [&](double x) { return geo.Colonne(x); });
  if (colonnes.empty()) return;
  std::vector<PositionGrille> lignes =
      PositionsDedans(axeY, geo.minY, geo.maxY, s.Lignes(), [&](double y) { return geo.Ligne(y); });
  // Columns grow with X, so the first and last bound the span read from each row.
  const int c0 = std::min(colonnes.front().indice, colonnes.back().indice),
            c1 = std::max(colonnes.front().indice, colonnes.back().indice) + 1;
  std::sort(lignes.begin(), lignes.end(),
            [](const PositionGrille& a, const PositionGrille& b) { return a.indice < b.indice; });
  std::vector<float> tampon(static_cast<size_t>(c1 - c0) * bandes);
  std::vector<const float*> ligne(bandes);
  std::vector<unsigned char> valide(c1 - c0);
  const long long ny = axeY.Taille();
  for (const PositionGrille& lg : lignes) {
    for (int b = 0; b < bandes; ++b)
      ligne[b] = s.Ligne(b, lg.indice, c0, c1 - c0, tampon.data() + static_cast<size_t>(b) * (c1 - c0));
    s.Validite(lg.indice, c0, c1 - c0, valide.data());
    for (const PositionGrille& co : colonnes) {
      if (!valide[co.indice - c0]) continue;
      obs.push_back(ObservationImage{co.k * ny + lg.k, co.pixel, lg.pixel, valeurs.size()});
      for (int b = 0; b < bandes; ++b) valeurs.push_back(static_cast<double>(ligne[b][co.indice - c0]));
    }
  }
  std::sort(obs.begin(), obs.end(),
            [](const ObservationImage& a, const ObservationImage& b) { return a.g < b.g; });
}

}  // namespace

Observations Observer(const std::vector<ImageObservee>& images, const Emprise& e, double pas) {
  const double nx = std::ceil((e.maxX - e.minX) / pas), ny = std::ceil((e.maxY - e.minY) / pas);
  if (nx * ny > kMaxPointsGrille)
    ZEPRA_ERREUR("[Main_nouveau] (Egaliser) Grille d'echantillonnage demesuree : "
                 << nx << " x " << ny << " points pour un pas de " << pas << " ; augmenter --pas.");
  Observations o;
  o.nbImages = static_cast<int>(images.size());
  o.nbBandes = images.empty() ? 1 : images[0].source->Bandes();
  for (const ImageObservee& im : images)
    if (im.source->Bandes() != o.nbBandes)
      ZEPRA_ERREUR("[Observations] (Observer) Les images n'ont pas toutes " << o.nbBandes << " bandes.");
  const AxeGrille axeX(e.minX, e.maxX, pas), axeY(e.minY, e.maxY, pas);
  o.nbPointsGrille = axeX.Taille() * axeY.Taille();

  std::vector<std::vector<ObservationImage>> parImage(images.size());
  std::vector<std::vector<double>> valeurs(images.size());
  PourChaque(images.size(), [&](size_t i) { ObserverImage(images[i], axeX, axeY, parImage[i], valeurs[i]); });

  // Merged in grid order, then input order: the lists, each in grid order, put end to end in input
  // order and sorted stably on the grid index.
  struct Rang {
    long long g;
    int image;
    size_t k;
  };
  std::vector<Rang> rangs;
  for (size_t i = 0; i < images.size(); ++i)
    for (size_t k = 0; k < parImage[i].size(); ++k)
      rangs.push_back(Rang{parImage[i][k].g, static_cast<int>(i), k});
  std::stable_sort(rangs.begin(), rangs.end(), [](const Rang& a, const Rang& b) { return a.g < b.g; });
  o.obs.reserve(rangs.size());
  o.valeurs.reserve(rangs.size() * o.nbBandes);
  for (size_t r = 0; r < rangs.size(); ++r) {
    const ObservationImage& oi = parImage[rangs[r].image][rangs[r].k];
    if (r == 0 || rangs[r].g != rangs[r - 1].g) o.points.push_back(PointObserve{r, r, oi.g});
    ++o.points.back().fin;
    o.obs.push_back(Observation{rangs[r].image, oi.col, oi.lin});
    const auto v = valeurs[rangs[r].image].begin() + static_cast<long>(oi.valeurs);
    o.valeurs.insert(o.valeurs.end(), v, v + o.nbBandes);
  }
  return o;
}
