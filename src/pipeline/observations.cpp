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

// The grid points that fall on valid pixels of one input, in grid order. The column of a point depends
// on its X alone and its line on its Y alone, so each is computed once; rows are read in increasing
// order, each once.
void ObserverImage(const ImageObservee& im, const AxeGrille& axeX, const AxeGrille& axeY,
                   std::vector<ObservationImage>& obs, std::vector<double>& valeurs) {
  const GeoCarto& geo = im.geo;
  const SourceLignes& s = *im.source;
  const int w = s.Colonnes(), h = s.Lignes(), bandes = s.Bandes();
  struct Colonne {
    long long k;
    double col;
    int c;
  };
  std::vector<Colonne> colonnes;
  axeX.Parcourir(geo.minX, geo.maxX, [&](long long k, double x) {
    int c;
    const double col = geo.Colonne(x);
    if (IndiceDedans(col, w, c)) colonnes.push_back(Colonne{k, col, c});
  });
  if (colonnes.empty()) return;
  // Columns grow with X, so the first and last bound the span read from each row.
  const int c0 = std::min(colonnes.front().c, colonnes.back().c),
            c1 = std::max(colonnes.front().c, colonnes.back().c) + 1;
  struct LigneGrille {
    long long k;
    double lin;
    int l;
  };
  std::vector<LigneGrille> lignes;
  axeY.Parcourir(geo.minY, geo.maxY, [&](long long k, double y) {
    int l;
    const double lin = geo.Ligne(y);
    if (IndiceDedans(lin, h, l)) lignes.push_back(LigneGrille{k, lin, l});
  });
  std::sort(lignes.begin(), lignes.end(),
            [](const LigneGrille& a, const LigneGrille& b) { return a.l < b.l; });
  std::vector<float> tampon(static_cast<size_t>(c1 - c0) * bandes);
  std::vector<const float*> ligne(bandes);
  std::vector<unsigned char> valide(c1 - c0);
  const long long ny = axeY.Taille();
  for (const LigneGrille& lg : lignes) {
    for (int b = 0; b < bandes; ++b)
      ligne[b] = s.Ligne(b, lg.l, c0, c1 - c0, tampon.data() + static_cast<size_t>(b) * (c1 - c0));
    s.Validite(lg.l, c0, c1 - c0, valide.data());
    for (const Colonne& co : colonnes) {
      if (!valide[co.c - c0]) continue;
      obs.push_back(ObservationImage{co.k * ny + lg.k, co.col, lg.lin, valeurs.size()});
      for (int b = 0; b < bandes; ++b) valeurs.push_back(static_cast<double>(ligne[b][co.c - c0]));
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
