// Composition of the mosaic: every mosaic pixel is mapped into each image in input order and the
// contributing values are fused by the chosen rule.
#include <algorithm>
#include <cmath>

#include "mosaique.h"
#include "zepra/erreur.h"
#include "zepra/pipeline/parallele.h"

namespace {

// The mosaic pixels [debut, fin) of one axis whose position can fall inside an image on that axis,
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

}  // namespace

namespace {

// Mosaic lines per task: enough to amortise the per-image set-up, small enough to balance the cores.
constexpr int kLignesParBande = 64;

// Composes the mosaic lines [y0, y1): each line depends only on the images, never on another line.
void ComposerBande(const std::vector<ImageComposee>& images, const GeoCarto& m, int fusion, int y0, int y1,
                   TTImage<float>& res, TTImage<unsigned int>& suivi) {
  const int W = res.iGetNbColonnes(), H = res.iGetNbLignes();
  std::vector<unsigned char> colOk(W), linOk(H);
  std::vector<int> ci(W), li(H);
  const bool avecSuivi = fusion == eFusionMoyenne || fusion == eFusionVoronoi;
  for (const ImageComposee& im : images) {
    const GeoCarto& g = im.geo;
    const int w = im.valeurs->iGetNbColonnes(), h = im.valeurs->iGetNbLignes();
    // A mosaic pixel stands for the map point of its corner; its position in the image depends on its
    // column alone along X and on its line alone along Y, so both are computed once per image.
    int c0 = 0, c1 = W, l0 = 0, l1 = H;
    BornesAxe((g.x0 - g.pasX - m.x0) / m.pasX, (g.x0 + (w + 1.0) * g.pasX - m.x0) / m.pasX, W, c0, c1);
    const bool completionZone = g.zone != 0 && m.y0 - (H - 1.0) * m.pasY < 1000000.0;
    if (!completionZone)
      BornesAxe((m.y0 - g.y0 - g.pasY) / m.pasY, (m.y0 - g.y0 + (h + 1.0) * g.pasY) / m.pasY, H, l0, l1);
    l0 = std::max(l0, y0);
    l1 = std::min(l1, y1);
    if (l0 >= l1 || c0 >= c1) continue;
    for (int c = c0; c < c1; ++c) {
      double lc, inutile;
      g.MapToPhoto(c * m.pasX + m.x0, g.y0, lc, inutile);
      int k = 0, l = 0;
      colOk[c] = PixelDedans(lc, 0.0, w, 1, k, l);
      ci[c] = k;
    }
    for (int y = l0; y < l1; ++y) {
      double inutile, ll;
      g.MapToPhoto(g.x0, m.y0 - y * m.pasY, inutile, ll);
      int k = 0, l = 0;
      linOk[y] = PixelDedans(0.0, ll, 1, h, k, l);
      li[y] = l;
    }
    const double demiW = w / 2.0, demiH = h / 2.0;
    for (int y = l0; y < l1; ++y) {
      if (!linOk[y]) continue;
      const int ly = li[y];
      const float* v = im.valeurs->GetLines(ly);
      const auto masque = im.masque->GetLines(ly);
      float* r = res.GetLines(y);
      unsigned int* s = avecSuivi ? suivi.GetLines(y) : nullptr;
      const double dy = ly - demiH;
      for (int c = c0; c < c1; ++c) {
        if (!colOk[c]) continue;
        const int cx = ci[c];
        const float valeur = v[cx];
        if (valeur == 0.0f || masque[cx]) continue;
        switch (fusion) {
          case eFusionMoyenne:
            r[c] += valeur;
            ++s[c];
            break;
          case eFusionMin:
            // The first contribution is taken as it is (no contribution is ever 0).
            r[c] = r[c] == 0.0f ? valeur : std::min(r[c], valeur);
            break;
          case eFusionMax:
            r[c] = r[c] == 0.0f ? valeur : std::max(r[c], valeur);
            break;
          default: {
            // Distance in pixels to the image's centre, truncated. Skipped only when farther than the
            // distance kept: a tie goes to the later image, and a kept 0 counts as none.
            const double dx = cx - demiW;
            const unsigned int d = static_cast<unsigned int>(std::sqrt(dx * dx + dy * dy));
            if (s[c] != 0 && d > s[c]) break;
            r[c] = valeur;
            s[c] = d;
          }
        }
      }
    }
  }
  if (fusion == eFusionMoyenne) {
    for (int y = y0; y < y1; ++y) {
      float* r = res.GetLines(y);
      const unsigned int* s = suivi.GetLines(y);
      for (int c = 0; c < W; ++c) r[c] = s[c] != 0 ? r[c] / static_cast<float>(s[c]) : 0.0f;
    }
  }
}

}  // namespace

void Composer(const std::vector<ImageComposee>& images, const GeoCarto& m, int fusion, TTImage<float>& res) {
  const int W = static_cast<int>(m.colonnes), H = static_cast<int>(m.lignes);
  res.Construire(W, H, 1);
  res.RemplirValeur(0.0f);
  // Contributions counted per pixel (mean), or the distance of the value kept so far (Voronoi), where
  // 0 counts as no distance yet.
  TTImage<unsigned int> suivi(TagNbCanaux(1));
  if (fusion == eFusionMoyenne || fusion == eFusionVoronoi) suivi.Construire(W, H, 1);
  const int bandes = (H + kLignesParBande - 1) / kLignesParBande;
  PourChaque(static_cast<size_t>(bandes), [&](size_t b) {
    const int y0 = static_cast<int>(b) * kLignesParBande;
    ComposerBande(images, m, fusion, y0, std::min(H, y0 + kLignesParBande), res, suivi);
  });
}
