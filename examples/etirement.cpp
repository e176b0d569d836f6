#include "etirement.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "zepra/erreur.h"

Etirement EtirementPercentiles(const TTImage<float>& image, double fractionBas, double fractionHaut) {
  if (!(fractionBas >= 0 && fractionBas <= fractionHaut && fractionHaut <= 1))
    ZEPRA_ERREUR("[Apercu] (EtirementPercentiles) Fractions " << fractionBas << " et " << fractionHaut
                                                              << " : 0 <= bas <= haut <= 1 attendu.");
  std::vector<float> valeurs;
  const int canaux = image.GetNbCanaux();
  for (int y = 0; y < image.iGetNbLignes(); ++y) {
    const float* l = image.GetLines(y);
    for (int x = 0; x < image.iGetNbColonnes(); ++x) {
      const float v = l[static_cast<long>(x) * canaux];
      if (v != 0.0f && std::isfinite(v)) valeurs.push_back(v);
    }
  }
  Etirement e;
  if (valeurs.empty()) return e;
  const auto rang = [&](double f) {
    return valeurs.begin() + static_cast<long>(std::floor(f * static_cast<double>(valeurs.size() - 1)));
  };
  auto b = rang(fractionBas);
  std::nth_element(valeurs.begin(), b, valeurs.end());
  e.bas = *b;
  auto h = rang(fractionHaut);
  std::nth_element(b, h, valeurs.end());
  e.haut = *h;
  return e;
}

TTImage<unsigned char> Etirer(const TTImage<float>& image, const Etirement& e) {
  if (!(std::isfinite(e.bas) && std::isfinite(e.haut) && e.bas <= e.haut))
    ZEPRA_ERREUR("[Apercu] (Etirer) Etirement [" << e.bas << ", " << e.haut << "] invalide.");
  const int w = image.iGetNbColonnes(), h = image.iGetNbLignes(), canaux = image.GetNbCanaux();
  // A flat stretch puts every data pixel in the middle grey.
  const double echelle = e.haut > e.bas ? 254.0 / (e.haut - e.bas) : 0.0;
  TTImage<unsigned char> q(w, h, TagNbCanaux(1));
  for (int y = 0; y < h; ++y) {
    const float* l = image.GetLines(y);
    unsigned char* o = q.GetLines(y);
    for (int x = 0; x < w; ++x) {
      const double v = l[static_cast<long>(x) * canaux];
      unsigned char g = 0;
      if (v != 0.0 && std::isfinite(v)) {
        const double niveau = echelle > 0 ? 1.0 + (v - e.bas) * echelle : 128.0;
        g = static_cast<unsigned char>(std::lround(std::min(255.0, std::max(1.0, niveau))));
      }
      o[x] = g;
    }
  }
  return q;
}
