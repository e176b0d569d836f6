// The georeferencing an image carries itself (GeoTIFF tags) or beside it (a world file and its .prj),
// for images that have no orientation file of this system.
#include <cctype>
#include <climits>
#include <cmath>

#include "lecteurtexte.h"
#include "zepra/cartoproj.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/metadonnees.h"
#include "zepra/optionsecriture.h"
#include "zepra/tchaine.h"

#define ZEPRA_GEOREF(flux) ZEPRA_ERREUR("[CartoProjOrientation] (LireGeoreference) " << flux)

namespace {

// A map position (X, Y) known at a raster position (col, lin) counted in pixels from the upper-left
// corner of the first pixel, and the two steps (positive for a north-up grid).
struct Ancrage {
  double col, lin, X, Y, pasX, pasY;
};

void VerifierPas(const Ancrage& a, const char* quoi, const std::string& nom) {
  if (!(a.pasX > 0) || !(a.pasY > 0) || !std::isfinite(a.pasX) || !std::isfinite(a.pasY))
    ZEPRA_GEOREF(quoi << " du fichier " << nom << " : pas (" << a.pasX << ", " << a.pasY
                      << ") le long de X et vers le bas des lignes ; des reels finis strictement positifs "
                         "sont attendus (grille nord en haut)");
}

// GeoTIFF: a tiepoint and the pixel scale, else a transformation matrix. Pixel-is-point puts the
// raster point (0, 0) at the centre of the first pixel, half a pixel into the corner convention.
Ancrage AncrageGeoTIFF(const MetadonneesImage& m, const std::string& nom) {
  if (m.typeRaster != 1 && m.typeRaster != 2)
    ZEPRA_GEOREF("GTRasterTypeGeoKey " << m.typeRaster << " inconnu dans le fichier " << nom
                                       << " : 1 (PixelIsArea) ou 2 (PixelIsPoint) attendu");
  const double demi = m.typeRaster == 2 ? 0.5 : 0.0;
  if (!m.tiepoints.empty()) {
    const std::vector<double>& t = m.tiepoints;
    if (t.size() % 6 != 0)
      ZEPRA_GEOREF("ModelTiepoint de " << t.size() << " valeurs dans le fichier " << nom
                                       << " : des groupes de 6 (I J K X Y Z) sont attendus");
    if (m.pixelScale.empty())
      ZEPRA_GEOREF(t.size() / 6 << " point(s) d'appui sans ModelPixelScale dans le fichier " << nom
                                << " : un georeferencement par points d'appui n'est pas une grille");
    if (m.pixelScale.size() < 2)
      ZEPRA_GEOREF("ModelPixelScale de " << m.pixelScale.size() << " valeur(s) dans le fichier " << nom
                                         << " : 2 au moins sont attendues");
    const Ancrage a{t[0] + demi, t[1] + demi, t[3], t[4], m.pixelScale[0], m.pixelScale[1]};
    VerifierPas(a, "ModelPixelScale", nom);
    // Further tiepoints are welcome only on the grid of the first.
    for (size_t i = 6; i < t.size(); i += 6) {
      const double ec = (t[i + 3] - a.X) / a.pasX - (t[i] - t[0]),
                   el = (a.Y - t[i + 4]) / a.pasY - (t[i + 1] - t[1]);
      if (!(std::fabs(ec) <= 1e-6 && std::fabs(el) <= 1e-6))
        ZEPRA_GEOREF("point d'appui " << i / 6 << " (" << t[i] << ", " << t[i + 1] << ") -> (" << t[i + 3]
                                      << ", " << t[i + 4] << ") du fichier " << nom
                                      << " hors de la grille du premier : points d'appui sans grille");
    }
    return a;
  }
  const std::vector<double>& t = m.transformation;
  if (t.size() != 16)
    ZEPRA_GEOREF("ModelTransformation de " << t.size() << " valeurs dans le fichier " << nom
                                           << " : 16 sont attendues");
  if (t[1] != 0 || t[4] != 0)
    ZEPRA_GEOREF("ModelTransformation du fichier " << nom << " avec rotation ou cisaillement (" << t[1]
                                                   << ", " << t[4]
                                                   << ") : une grille nord en haut est attendue");
  const Ancrage a{demi, demi, t[3], t[7], t[0], -t[5]};
  VerifierPas(a, "ModelTransformation", nom);
  return a;
}

// A world file: exactly six decimal numbers, A D B E C F (step along X, the two rotation terms, the
// step along Y, negative for north up, then the centre of the first pixel).
Ancrage AncrageWorldFile(const std::string& contenu, const std::string& nom) {
  LecteurTexte lecteur(contenu);
  double v[6];
  int n = 0;
  std::string mot;
  while (lecteur.Mot(mot, 64)) {
    if (n == 6) ZEPRA_GEOREF("world file " << nom << " : plus de six nombres ('" << mot << "' en trop)");
    LecteurTexte nombre(mot);
    if (!nombre.Reel(v[n]) || !nombre.Fin())
      ZEPRA_GEOREF("world file " << nom << " : '" << mot << "' n'est pas un nombre (nombre " << n + 1
                                 << " sur six)");
    ++n;
  }
  if (n < 6)
    ZEPRA_GEOREF("world file " << nom << " : " << n
                               << " nombre(s), six attendus (pas X, deux rotations, pas Y, centre du premier "
                                  "pixel)");
  if (v[1] != 0 || v[2] != 0)
    ZEPRA_GEOREF("world file " << nom << " avec rotation (" << v[1] << ", " << v[2]
                               << ") : une grille nord en haut est attendue");
  const Ancrage a{0.5, 0.5, v[4], v[5], v[0], -v[3]};
  VerifierPas(a, "world file", nom);
  return a;
}

const std::vector<const char*> kMondes = {"tfw", "tifw", "wld"}, kPrj = {"prj"};

// The first of NomsVoisins(image, extensions) that opens; its name and bytes. False when none opens.
bool Trouver(const std::string& image, const std::vector<const char*>& extensions, std::string& nom,
             std::string& contenu) {
  for (const std::string& candidat : NomsVoisins(image, extensions)) {
    switch (LecteurTexte::ChargerSiPresent(candidat.c_str(), contenu,
                                           "[CartoProjOrientation] (LireGeoreference)")) {
      case LecteurTexte::Etat::kAbsent:
        continue;
      case LecteurTexte::Etat::kIllisible:
        ZEPRA_GEOREF("fichier " << candidat << " illisible");
      case LecteurTexte::Etat::kLu:
        nom = candidat;
        return true;
    }
  }
  return false;
}

// The .prj beside the image: its text, trailing blanks removed; null when there is none.
std::shared_ptr<const SystemeReference> LirePrj(const std::string& image) {
  std::string nom, texte;
  if (!Trouver(image, kPrj, nom, texte)) return nullptr;
  while (!texte.empty() && std::isspace(static_cast<unsigned char>(texte.back()))) texte.pop_back();
  if (texte.find_first_not_of(" \t\r\n\f\v") == std::string::npos)
    ZEPRA_GEOREF("fichier " << nom << " vide : le texte d'un systeme de reference est attendu");
  auto crs = std::make_shared<SystemeReference>();
  crs->wkt = std::move(texte);
  return crs;
}

}  // namespace

std::unique_ptr<CartoProjOrientation> CartoProjOrientation::LireGeoreference(const char* image) {
  const std::string nomImage = image ? image : "";
  const std::unique_ptr<MetadonneesImage> m = LireMetadonnees(nomImage);
  Ancrage a;
  std::string source;
  std::shared_ptr<const SystemeReference> crs;
  if (m && m->Georeference()) {
    a = AncrageGeoTIFF(*m, nomImage);
    source = nomImage;
    if (m->crs.Connu()) crs = std::make_shared<SystemeReference>(m->crs);
  } else {
    std::string contenu;
    if (!Trouver(nomImage, kMondes, source, contenu)) return nullptr;
    a = AncrageWorldFile(contenu, source);
    crs = LirePrj(nomImage);
    if (!crs && m && m->crs.Connu()) crs = std::make_shared<SystemeReference>(m->crs);
  }
  // The size from the header: the TIFF tags already read, else the reader of the image's format.
  long long colonnes, lignes;
  if (m) {
    colonnes = m->colonnes;
    lignes = m->lignes;
  } else {
    const TPoint2D<int> t = ImageFicIn(nomImage.c_str()).GetTaille();
    colonnes = t.x;
    lignes = t.y;
  }
  if (colonnes < 1 || colonnes > INT_MAX || lignes < 1 || lignes > INT_MAX)
    ZEPRA_GEOREF("taille " << colonnes << " x " << lignes << " de l'image " << nomImage << " absurde");
  std::unique_ptr<CartoProjOrientation> c(new CartoProjOrientation());
  c->m_nbColonnes = colonnes;
  c->m_nbLignes = lignes;
  c->m_pasX = a.pasX;
  c->m_pasY = a.pasY;
  // The inverse of PhotoToMap at the anchor: a world file of ours (the centre of the first pixel)
  // reads back to the very origin it was written from.
  c->m_x0 = a.X - a.col * a.pasX;
  c->m_y0 = a.Y + a.lin * a.pasY;
  c->m_fichier = source;
  c->m_crs = std::move(crs);
  VerifieZone(0, c->m_y0, " dans " + source);
  c->VerifieValeurs("fichier " + source);
  return c;
}

std::vector<std::string> CartoProjOrientation::FichiersGeoreference(const char* image) {
  std::vector<std::string> noms = NomsVoisins(image ? image : "", kMondes);
  for (std::string& n : NomsVoisins(image ? image : "", kPrj)) noms.push_back(std::move(n));
  return noms;
}

GeoreferenceEcriture CartoProjOrientation::GeoreferencePourEcriture() const {
  GeoreferenceEcriture g;
  g.grille = true;
  g.x0 = m_x0;
  g.y0 = m_y0;
  g.pasX = m_pasX;
  g.pasY = m_pasY;
  if (m_crs) g.crs = *m_crs;
  return g;
}
