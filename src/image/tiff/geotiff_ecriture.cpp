#include "geotiff_ecriture.h"

#include <cmath>
#include <cstring>

#include "image/crs/cles_geotiff.h"
#include "zepra/crs.h"
#include "zepra/erreur.h"

namespace tiff {

namespace {

constexpr uint16_t kShort = 3, kAscii = 2, kDouble = 12;

template <class T>
TagTIFF Valeurs(uint16_t code, uint16_t type, const std::vector<T>& v) {
  TagTIFF t{code, type, v.size(), std::vector<unsigned char>(v.size() * sizeof(T))};
  if (!v.empty()) std::memcpy(t.valeurs.data(), v.data(), t.valeurs.size());
  return t;
}

// ASCII values end with a NUL, counted.
TagTIFF Texte(uint16_t code, const std::string& texte) {
  std::vector<char> v(texte.begin(), texte.end());
  v.push_back('\0');
  return Valeurs(code, kAscii, v);
}

}  // namespace

std::vector<TagTIFF> TagsGeoTIFF(const GeoreferenceEcriture& g, int epsg, const std::string& nom) {
  std::vector<TagTIFF> tags;
  if (!g.grille) {
    if (epsg != 0 || g.crs.Connu())
      ZEPRA_ERREUR("[TagsGeoTIFF] Systeme de reference sans grille pour le fichier " << nom << ".");
    return tags;
  }
  if (!std::isfinite(g.x0) || !std::isfinite(g.y0) || !(g.pasX > 0) || !(g.pasY > 0) ||
      !std::isfinite(g.pasX) || !std::isfinite(g.pasY))
    ZEPRA_ERREUR("[TagsGeoTIFF] Grille (" << g.x0 << ", " << g.y0 << ", pas " << g.pasX << " x " << g.pasY
                                          << ") impossible pour le fichier " << nom << ".");
  tags.push_back(Valeurs<double>(kTagModelPixelScale, kDouble, {g.pasX, g.pasY, 0.0}));
  tags.push_back(Valeurs<double>(kTagModelTiepoint, kDouble, {0.0, 0.0, 0.0, g.x0, g.y0, 0.0}));
  SystemeReference crs;
  if (epsg != 0) {
    crs = CrsDepuisEpsg(epsg);
    if (g.crs.Connu() && ComparerCrs(crs, g.crs) == EgaliteCrs::kDifferent)
      ZEPRA_ERREUR("[TagsGeoTIFF] EPSG:" << epsg << " n'est pas le systeme " << DecrireCrs(g.crs)
                                         << " de la grille du fichier " << nom << ".");
  } else {
    crs = CrsPourEcriture(g.crs);
  }
  if (!crs.cles.empty()) {
    tags.push_back(Valeurs(kTagGeoKeyDirectory, kShort, crs.cles));
    if (!crs.doubles.empty()) tags.push_back(Valeurs(kTagGeoDoubleParams, kDouble, crs.doubles));
    if (!crs.ascii.empty()) tags.push_back(Texte(kTagGeoAsciiParams, crs.ascii));
  }
  return tags;
}

TagTIFF TagNodata(double nodata) { return Texte(kTagGdalNodata, TexteNodata(nodata)); }

}  // namespace tiff
