#include "zepra/pipeline/composition.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/orientedimage.h"
#include "zepra/pipeline/parallele.h"
#include "zepra/stringpp.h"

namespace {

// The output pixels [debut, fin) of one axis whose position can fall inside an input on that axis,
// with a margin of two pixels: only a bound, every pixel in it is still tested exactly.
void BornesAxe(double a, double b, int n, int& debut, int& fin) {
  const double lo = std::min(a, b) - 2, hi = std::max(a, b) + 2;
  if (!std::isfinite(lo) || !std::isfinite(hi)) {
    debut = 0;
    fin = n;
    return;
  }
  debut = lo <= 0 ? 0 : (lo >= n ? n : static_cast<int>(lo));
  fin = hi <= 0 ? 0 : (hi >= n ? n : static_cast<int>(std::ceil(hi)));
}

// The buffers of one band of rows, reused from input to input.
struct Tampons {
  std::vector<unsigned char> dedans;
  std::vector<int> colonne;
  std::vector<float> lignes;  // one input row per band
  std::vector<const float*> valeurs;
  std::vector<unsigned char> valide;
};

// Hands the rule every row of one input that falls in the band [y0, y1).
void ContribuerImage(int i, const ImageComposee& im, const GeoCarto& m, int W, int H, int y0, int y1,
                     AccumulateurFusion& acc, Tampons& t) {
  const GeoCarto& g = im.geo;
  const SourceLignes& s = *im.source;
  const int w = s.Colonnes(), h = s.Lignes(), bandes = s.Bandes();
  // An output pixel stands for the map point of its corner; its position in the input depends on its
  // column alone along X and on its line alone along Y.
  int c0 = 0, c1 = W, l0 = 0, l1 = H;
  BornesAxe((g.x0 - g.pasX - m.x0) / m.pasX, (g.x0 + (w + 1.0) * g.pasX - m.x0) / m.pasX, W, c0, c1);
  const bool completionZone = g.zone != 0 && m.y0 - (H - 1.0) * m.pasY < 1000000.0;
  if (!completionZone)
    BornesAxe((m.y0 - g.y0 - g.pasY) / m.pasY, (m.y0 - g.y0 + (h + 1.0) * g.pasY) / m.pasY, H, l0, l1);
  l0 = std::max(l0, y0);
  l1 = std::min(l1, y1);
  if (l0 >= l1 || c0 >= c1) return;
  // Input columns of the output columns, and the span [xa, xb] of them that rows are read on.
  int xa = w, xb = -1;
  for (int c = c0; c < c1; ++c) {
    int k = 0;
    t.dedans[c] = IndiceDedans(g.Colonne(c * m.pasX + m.x0), w, k);
    t.colonne[c] = k;
    if (t.dedans[c]) xa = std::min(xa, k), xb = std::max(xb, k);
  }
  if (xb < xa) return;
  for (int c = c0; c < c1; ++c) t.colonne[c] -= xa;
  const int n = xb - xa + 1;
  t.lignes.resize(static_cast<size_t>(n) * bandes);
  t.valeurs.resize(bandes);
  t.valide.resize(n);
  LigneContribution l{i, 0,  c0, c1, t.dedans.data(),  t.colonne.data(),
                      0, xa, w,  h,  t.valeurs.data(), t.valide.data()};
  for (int y = l0; y < l1; ++y) {
    int ly = 0;
    if (!IndiceDedans(g.Ligne(m.y0 - y * m.pasY), h, ly)) continue;
    for (int b = 0; b < bandes; ++b)
      t.valeurs[b] = s.Ligne(b, ly, xa, n, t.lignes.data() + static_cast<size_t>(b) * n);
    s.Validite(ly, xa, n, t.valide.data());
    l.y = y;
    l.ligne = ly;
    acc.Ajouter(l);
  }
}

}  // namespace

void Composer(const std::vector<ImageComposee>& images, const GeoCarto& m, const RegleFusion& regle,
              PuitsLignes& puits, int lignesParBande) {
  const int W = static_cast<int>(m.colonnes), H = static_cast<int>(m.lignes);
  const int bandes = images.empty() ? 1 : images[0].source->Bandes();
  for (const ImageComposee& im : images)
    if (im.source->Bandes() != bandes)
      ZEPRA_ERREUR("[Composition] (Composer) Les images n'ont pas toutes " << bandes << " bandes.");
  if (lignesParBande < 1) lignesParBande = kLignesParBandeComposition;
  const int nbBandes = (H + lignesParBande - 1) / lignesParBande;
  PourChaque(static_cast<size_t>(nbBandes), [&](size_t k) {
    const int y0 = static_cast<int>(k) * lignesParBande, y1 = std::min(H, y0 + lignesParBande);
    const size_t taille = static_cast<size_t>(y1 - y0) * W;
    std::vector<float> valeurs(taille * bandes, 0.0f);
    std::vector<float*> parBande(bandes);
    for (int b = 0; b < bandes; ++b) parBande[b] = valeurs.data() + taille * b;
    std::vector<unsigned char> couvert(taille, 0);
    const BandeSortie bande{W, y0, y1, bandes, parBande.data(), couvert.data()};
    const std::unique_ptr<AccumulateurFusion> acc = regle.Accumulateur(bande);
    Tampons t;
    t.dedans.assign(W, 0);
    t.colonne.assign(W, 0);
    for (size_t i = 0; i < images.size(); ++i)
      ContribuerImage(static_cast<int>(i), images[i], m, W, H, y0, y1, *acc, t);
    acc->Terminer();
    for (int y = y0; y < y1; ++y) {
      const size_t d = static_cast<size_t>(y - y0) * W;
      for (int b = 0; b < bandes; ++b) puits.Ecrire(b, y, parBande[b] + d);
      puits.Couverture(y, couvert.data() + d);
    }
  });
}

void ComposerEtSauver(const std::vector<ImageComposee>& images, const GeoCarto& sortie,
                      const RegleFusion& regle, const OrientationOld& ori, const std::string& nom) {
  stringpp nomOri(nom);
  stringpp::SetExtension(nomOri, "ori");
  const int W = static_cast<int>(sortie.colonnes), H = static_cast<int>(sortie.lignes);
  SauverAvecOrientation(ori, nomOri.c_str(), [&] {
    const std::unique_ptr<ImageFicOut> fichier =
        TTImage<float>::OuvrirSortie(nom.c_str(), 0, OptionsImageOut::defaut(), W, H, TagNbCanaux(1));
    TTImage<float> mosaique(W, H, TagNbCanaux(1));
    PuitsMemoire puits(mosaique);
    Composer(images, sortie, regle, puits);
    mosaique.Ecrire(*fichier);
  });
}
