#include "apercu_pgm.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"

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

void EcrireApercuPGM(const TTImage<float>& image, const Etirement& e, const std::string& nom) {
  const int w = image.iGetNbColonnes(), h = image.iGetNbLignes(), canaux = image.GetNbCanaux();
  if (w < 1 || h < 1)
    ZEPRA_ERREUR("[Apercu] (EcrireApercuPGM) Image vide (" << w << " x " << h << "), " << nom
                                                           << " non ecrit.");
  if (!(std::isfinite(e.bas) && std::isfinite(e.haut) && e.bas <= e.haut))
    ZEPRA_ERREUR("[Apercu] (EcrireApercuPGM) Etirement [" << e.bas << ", " << e.haut << "] invalide, " << nom
                                                          << " non ecrit.");
  // A flat stretch puts every data pixel in the middle grey.
  const double echelle = e.haut > e.bas ? 254.0 / (e.haut - e.bas) : 0.0;
  FichierAtomique fichier(nom, "[Apercu] (EcrireApercuPGM)");
  std::ofstream& f = fichier.flux();
  f << "P5\n" << w << ' ' << h << "\n255\n";
  std::vector<char> ligne(w);
  for (int y = 0; y < h; ++y) {
    const float* l = image.GetLines(y);
    for (int x = 0; x < w; ++x) {
      const double v = l[static_cast<long>(x) * canaux];
      unsigned char g = 0;
      if (v != 0.0 && std::isfinite(v)) {
        const double q = echelle > 0 ? 1.0 + (v - e.bas) * echelle : 128.0;
        g = static_cast<unsigned char>(std::lround(std::min(255.0, std::max(1.0, q))));
      }
      ligne[x] = static_cast<char>(g);
    }
    f.write(ligne.data(), w);
  }
  fichier.Valider();
}
