#include "etirement.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "zepra/erreur.h"
#include "zepra/metadonnees.h"

namespace {

void VerifierEtirement(const Etirement& e) {
  if (!(std::isfinite(e.bas) && std::isfinite(e.haut) && e.bas <= e.haut))
    ZEPRA_ERREUR("[Apercu] (Etirer) Etirement [" << e.bas << ", " << e.haut << "] invalide.");
}

// The level of a data value; a flat stretch puts every data pixel in the middle grey.
unsigned char Niveau(double v, const Etirement& e) {
  if (!std::isfinite(v)) return 0;
  if (!(e.haut > e.bas)) return 128;
  const double niveau = 1.0 + (v - e.bas) * (254.0 / (e.haut - e.bas));
  return static_cast<unsigned char>(std::lround(std::min(255.0, std::max(1.0, niveau))));
}

}  // namespace

Etirement EtirementPercentiles(const TTImage<float>& image, double fractionBas, double fractionHaut,
                               int canal, const std::vector<unsigned char>* valide) {
  if (!(fractionBas >= 0 && fractionBas <= fractionHaut && fractionHaut <= 1))
    ZEPRA_ERREUR("[Apercu] (EtirementPercentiles) Fractions " << fractionBas << " et " << fractionHaut
                                                              << " : 0 <= bas <= haut <= 1 attendu.");
  const int canaux = image.GetNbCanaux(), w = image.iGetNbColonnes();
  if (canal < 0 || canal >= canaux || (valide && valide->size() != image.size() / canaux))
    ZEPRA_ERREUR("[Apercu] (EtirementPercentiles) Canal " << canal << " de " << canaux
                                                          << " ou validite de taille incorrecte.");
  std::vector<float> valeurs;
  for (int y = 0; y < image.iGetNbLignes(); ++y) {
    const float* l = image.GetLines(y);
    const unsigned char* ok = valide ? valide->data() + static_cast<size_t>(y) * w : nullptr;
    for (int x = 0; x < w; ++x) {
      const float v = l[static_cast<long>(x) * canaux + canal];
      if (ok ? ok[x] != 0 && std::isfinite(v) : v != 0.0f && std::isfinite(v)) valeurs.push_back(v);
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
  VerifierEtirement(e);
  const int w = image.iGetNbColonnes(), h = image.iGetNbLignes(), canaux = image.GetNbCanaux();
  TTImage<unsigned char> q(w, h, TagNbCanaux(1));
  for (int y = 0; y < h; ++y) {
    const float* l = image.GetLines(y);
    unsigned char* o = q.GetLines(y);
    for (int x = 0; x < w; ++x) {
      const float v = l[static_cast<long>(x) * canaux];
      o[x] = v != 0.0f ? Niveau(v, e) : 0;
    }
  }
  return q;
}

SourceApercu LireSourceApercu(const std::string& chemin) {
  TTImage<float> brute;
  brute.Lire(chemin.c_str());
  const std::unique_ptr<MetadonneesImage> meta = LireMetadonnees(chemin);
  const int canaux = brute.GetNbCanaux();
  const int extras = meta ? static_cast<int>(meta->extras.size()) : 0;
  const int alpha = meta ? meta->canalAlpha : -1;
  const int couleurs = canaux - extras >= 3 ? 3 : 1;
  if (canaux - extras < 1 || alpha >= canaux)
    ZEPRA_ERREUR("[Apercu] (Lire) " << chemin << " : " << canaux << " canaux dont " << extras
                                    << " supplementaires, aucun a montrer.");
  const bool etiquette = meta && meta->nodataPresent;
  const double nodata = etiquette ? meta->nodata : 0.0;  // NaN as no-data is caught by isfinite
  const int w = brute.iGetNbColonnes(), h = brute.iGetNbLignes();
  SourceApercu s;
  s.image = TTImage<float>(w, h, TagNbCanaux(couleurs));
  s.valide.assign(static_cast<size_t>(w) * h, 0);
  for (int y = 0; y < h; ++y) {
    const float* l = brute.GetLines(y);
    float* o = s.image.GetLines(y);
    unsigned char* ok = s.valide.data() + static_cast<size_t>(y) * w;
    for (int x = 0; x < w; ++x) {
      const float* p = l + static_cast<long>(x) * canaux;
      bool donnee = alpha < 0 || p[alpha] != 0.0f;
      for (int c = 0; c < couleurs; ++c) {
        o[static_cast<long>(x) * couleurs + c] = p[c];
        donnee = donnee && std::isfinite(p[c]) && static_cast<double>(p[c]) != nodata;
      }
      ok[x] = donnee ? 1 : 0;
    }
  }
  return s;
}

SourceApercu Reduire(const SourceApercu& s, int facteur) {
  if (facteur < 1) ZEPRA_ERREUR("[Apercu] (Reduire) Facteur " << facteur << " : 1 au moins attendu.");
  if (facteur == 1) return s;
  const int w = s.image.iGetNbColonnes(), h = s.image.iGetNbLignes(), canaux = s.image.GetNbCanaux();
  const int wr = (w + facteur - 1) / facteur, hr = (h + facteur - 1) / facteur;
  SourceApercu r;
  r.image = TTImage<float>(wr, hr, TagNbCanaux(canaux));
  r.valide.assign(static_cast<size_t>(wr) * hr, 0);
  std::vector<double> somme(static_cast<size_t>(wr) * canaux);
  std::vector<int> n(wr);
  for (int yr = 0; yr < hr; ++yr) {
    std::fill(somme.begin(), somme.end(), 0.0);
    std::fill(n.begin(), n.end(), 0);
    for (int y = yr * facteur; y < std::min(h, (yr + 1) * facteur); ++y) {
      const float* l = s.image.GetLines(y);
      const unsigned char* ok = s.valide.data() + static_cast<size_t>(y) * w;
      for (int x = 0; x < w; ++x) {
        if (!ok[x]) continue;
        ++n[x / facteur];
        for (int c = 0; c < canaux; ++c)
          somme[static_cast<size_t>(x / facteur) * canaux + c] += l[static_cast<long>(x) * canaux + c];
      }
    }
    float* o = r.image.GetLines(yr);
    for (int xr = 0; xr < wr; ++xr) {
      r.valide[static_cast<size_t>(yr) * wr + xr] = n[xr] > 0 ? 1 : 0;
      for (int c = 0; c < canaux; ++c)
        o[static_cast<long>(xr) * canaux + c] =
            n[xr] > 0 ? static_cast<float>(somme[static_cast<size_t>(xr) * canaux + c] / n[xr]) : 0.0f;
    }
  }
  return r;
}

std::vector<unsigned char> EtirerCanaux(const SourceApercu& s, const std::vector<Etirement>& e) {
  const int w = s.image.iGetNbColonnes(), h = s.image.iGetNbLignes(), canaux = s.image.GetNbCanaux();
  if (static_cast<int>(e.size()) != canaux)
    ZEPRA_ERREUR("[Apercu] (EtirerCanaux) " << e.size() << " etirements pour " << canaux << " canaux.");
  for (const Etirement& x : e) VerifierEtirement(x);
  std::vector<unsigned char> q(static_cast<size_t>(w) * h * canaux, 0);
  for (int y = 0; y < h; ++y) {
    const float* l = s.image.GetLines(y);
    const unsigned char* ok = s.valide.data() + static_cast<size_t>(y) * w;
    unsigned char* o = q.data() + static_cast<size_t>(y) * w * canaux;
    for (int x = 0; x < w; ++x)
      if (ok[x])
        for (int c = 0; c < canaux; ++c) o[x * canaux + c] = Niveau(l[x * canaux + c], e[c]);
  }
  return q;
}
