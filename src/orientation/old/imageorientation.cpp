#include "zepra/imageorientation.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <new>
#include <sstream>

#include "lecteurtexte.h"
#include "zepra/autresorientations.h"
#include "zepra/cartoproj.h"
#include "zepra/erreur.h"
#include "zepra/systeme.h"
#include "zepra/tchaine.h"
#include "zepra/xml.h"

void ImageOrientation::Dump() const {
  std::ostringstream s;
  s << "ImageOrientation type " << m_type << " : " << GetNs() << " colonnes x " << GetNl() << " lignes";
  if (!m_fichier.empty()) s << " (" << m_fichier << ")";
  Systeme::EcrireLigne(s.str());
}

void ImageOrientation::PhotoAndZToMap(double col, double lin, double Z, double& X, double& Y) const {
  double x, y, z;
  PhotoAndZToGround(col, lin, Z, x, y);
  GroundToMap(x, y, Z, X, Y, z);
}

void ImageOrientation::SetDistortion(int modele) {
  if (modele < eDistortionAucune || modele > eDistortionGrille)
    ZEPRA_ERREUR("[ImageOrientation] (SetDistortion) Modele de distorsion " << modele << " inconnu");
  m_distortion = static_cast<eDistortion>(modele);
}

void ImageOrientation::SetDistortionPolynome(double a, double b, double c, double d, double e) {
  m_polynome = DistortionPolynome{{a, b, c, d, e}};
  m_distortion = eDistortionPolynome;
}

void ImageOrientation::SetDistortionGrid(DistortionGrid* colonnes, DistortionGrid* lignes) {
  if (!colonnes || !lignes)
    ZEPRA_ERREUR("[ImageOrientation] (SetDistortionGrid) Grille de distorsion absente");
  m_grilles[0] = *colonnes;
  m_grilles[1] = *lignes;
  m_distortion = eDistortionGrille;
}

void ImageOrientation::ApplyDistortionGroundToPhoto(double&, double&) const {
  if (m_distortion != eDistortionAucune)
    ZEPRA_ERREUR("[ImageOrientation] (ApplyDistortionGroundToPhoto) Modele de distorsion "
                 << m_distortion << " non supporte par cet outil");
}

void ImageOrientation::ApplyDistortionPhotoToGround(double&, double&) const {
  if (m_distortion != eDistortionAucune)
    ZEPRA_ERREUR("[ImageOrientation] (ApplyDistortionPhotoToGround) Modele de distorsion "
                 << m_distortion << " non supporte par cet outil");
}

GrilleTransformation ImageOrientation::TransformationGrid(const ImageOrientation& autre, int pas) const {
  if (!CanBeMappedTo(autre)) ZEPRA_ERREUR("ImageOrientation : la projection ne peut etre mappee");
  if (pas < 1) ZEPRA_ERREUR("[ImageOrientation] (TransformationGrid) Pas " << pas << " invalide");
  GrilleTransformation g;
  g.pas = pas;
  // Nodes at 0, pas, 2 pas, ... and at the last column / line.
  const long long nc = GetNs() < 1 ? 1 : (GetNs() - 1 + pas - 1) / pas + 1;
  const long long nl = GetNl() < 1 ? 1 : (GetNl() - 1 + pas - 1) / pas + 1;
  try {
    if (nc * nl > static_cast<long long>(g.positions.max_size())) throw std::bad_alloc();
    g.positions.resize(static_cast<size_t>(nc * nl));
  } catch (const std::bad_alloc&) {
    ZEPRA_ERREUR("Erreur d'allocation de la grille");
  }
  g.nbColonnes = static_cast<int>(nc);
  g.nbLignes = static_cast<int>(nl);
  for (long long j = 0; j < nl; ++j)
    for (long long i = 0; i < nc; ++i) {
      const double col = static_cast<double>(std::min(i * pas, std::max(0LL, GetNs() - 1)));
      const double lin = static_cast<double>(std::min(j * pas, std::max(0LL, GetNl() - 1)));
      double X, Y, Z, c, l, z;
      PhotoToMap(col, lin, X, Y, Z);
      autre.MapToPhoto(X, Y, Z, c, l, z);
      g.positions[static_cast<size_t>(j * nc + i)] = TPoint2D<double>(c, l);
    }
  return g;
}

void ImageOrientation::SetProjCenter(const T3D<double>&) {
  ZEPRA_ERREUR("[ImageOrientation] (SetProjCenter) Pas de sommet pour le type d'orientation " << m_type);
}

void ImageOrientation::SetPrincipalPoint(const TPoint2D<double>&) {
  ZEPRA_ERREUR("[ImageOrientation] (SetPrincipalPoint) Pas de point principal pour le type d'orientation "
               << m_type);
}

void ImageOrientation::SetLocalOrigin(const T3D<double>&) {
  ZEPRA_ERREUR("[ImageOrientation] (SetLocalOrigin) Pas d'origine locale pour le type d'orientation "
               << m_type);
}

namespace {

struct Boite {
  double xMin = std::numeric_limits<double>::infinity(), yMin = xMin;
  double xMax = -std::numeric_limits<double>::infinity(), yMax = xMax;
  void Ajouter(double x, double y) {
    xMin = std::min(xMin, x);
    yMin = std::min(yMin, y);
    xMax = std::max(xMax, x);
    yMax = std::max(yMax, y);
  }
};

}  // namespace

void ImageOrientation::EmpriseCarto(double zMin, double zMax, double col0, double lin0, double col1,
                                    double lin1, double& xMin, double& yMin, double& xMax,
                                    double& yMax) const {
  Boite b;
  for (double z : {zMin, zMax})
    for (double c : {col0, col1})
      for (double l : {lin0, lin1}) {
        double X, Y;
        PhotoAndZToMap(c, l, z, X, Y);
        b.Ajouter(X, Y);
      }
  xMin = b.xMin, yMin = b.yMin, xMax = b.xMax, yMax = b.yMax;
}

void ImageOrientation::EmpriseCarto(double zMin, double zMax, double& xMin, double& yMin, double& xMax,
                                    double& yMax) const {
  EmpriseCarto(zMin, zMax, 0, 0, static_cast<double>(GetNs()), static_cast<double>(GetNl()), xMin, yMin, xMax,
               yMax);
}

void ImageOrientation::EmpriseTerrain(double zMin, double zMax, double col0, double lin0, double col1,
                                      double lin1, double& xMin, double& yMin, double& xMax,
                                      double& yMax) const {
  Boite b;
  for (double z : {zMin, zMax})
    for (double c : {col0, col1})
      for (double l : {lin0, lin1}) {
        double x, y;
        PhotoAndZToGround(c, l, z, x, y);
        b.Ajouter(x, y);
      }
  xMin = b.xMin, yMin = b.yMin, xMax = b.xMax, yMax = b.yMax;
}

void ImageOrientation::EmpriseTerrain(double zMin, double zMax, double& xMin, double& yMin, double& xMax,
                                      double& yMax) const {
  EmpriseTerrain(zMin, zMax, 0, 0, static_cast<double>(GetNs()), static_cast<double>(GetNl()), xMin, yMin,
                 xMax, yMax);
}

void ImageOrientation::EmpriseImage(double zMin, double zMax, double xMin, double yMin, double xMax,
                                    double yMax, double& col0, double& lin0, double& col1,
                                    double& lin1) const {
  Boite b;
  for (double Z : {zMin, zMax})
    for (double X : {xMin, xMax})
      for (double Y : {yMin, yMax}) {
        double x, y, z, c, l;
        MapToGround(X, Y, Z, x, y, z);
        GroundToPhoto(x, y, z, c, l);
        b.Ajouter(c, l);
      }
  col0 = b.xMin, lin0 = b.yMin, col1 = b.xMax, lin1 = b.yMax;
}

void ImageOrientation::EmpriseImageTerrain(double zMin, double zMax, double xMin, double yMin, double xMax,
                                           double yMax, double& col0, double& lin0, double& col1,
                                           double& lin1) const {
  Boite b;
  for (double z : {zMin, zMax})
    for (double x : {xMin, xMax})
      for (double y : {yMin, yMax}) {
        double c, l;
        GroundToPhoto(x, y, z, c, l);
        b.Ajouter(c, l);
      }
  col0 = b.xMin, lin0 = b.yMin, col1 = b.xMax, lin1 = b.yMax;
}

std::unique_ptr<ImageOrientation> ImageOrientation::CreateImageOrientation(const char* image) {
  static const char* const extensions[] = {".ori", ".ORI", ".Ori", ".xml", ".XML",
                                           ".Xml", ".hdr", ".HDR", ".Hdr"};
  const TChaine nomImage(image);
  for (const char* ext : extensions) {
    TChaine candidat(nomImage);
    candidat.SetExtension(ext);
    if (std::ifstream(candidat.c_str()).is_open()) return LireFichierOrientation(candidat.c_str());
  }
  ZEPRA_ERREUR("ImageOrientation : fichier d'orientation introuvable pour " << nomImage);
}

std::unique_ptr<ImageOrientation> ImageOrientation::LireFichierOrientation(const char* fichier) {
  const std::string ext = TChaine(fichier).Extension().ToLowCase().str();
  if (ext == "ori") {
    std::string contenu;
    if (!LecteurTexte::Charger(fichier, contenu, "[ImageOrientation] (CreateImageOrientation)"))
      ZEPRA_ERREUR("ImageOrientation : impossible de lire le fichier orientation " << fichier);
    std::string mot;
    LecteurTexte(contenu).Mot(mot);
    eORIProjType type = eORIConic;  // "TEXT" and any other word: the conic reader decides
    if (mot == "CARTO")
      type = eORICarto;
    else if (mot == "AXONO")
      type = eORIAxono;
    else if (mot == "SCAN")
      type = eORIScan;
    else if (mot == "SPHERIC")
      type = eORISpheric;
    else if (mot == "VERSION" || mot == "<?xml")
      type = eORIGrille;
    return CreateImageOrientation(fichier, type);
  }
  if (ext == "xml") {
    XParserXML parser;
    if (!parser.Parse(fichier))
      ZEPRA_ERREUR("ImageOrientation : impossible de parser le fichier orientation " << fichier);
    const std::string geometrie = parser.ReadNode("/FileOriMnt/Geometrie");
    if (geometrie != "eGeomMNTCarto" && geometrie != "eGeomMNTEuclid")
      ZEPRA_ERREUR("la geometrie " << geometrie
                                   << " n'est pas implémentée. Fichier d'orientation : " << fichier);
    return CreateImageOrientation(fichier, eORICarto);
  }
  if (ext == "hdr") return CreateImageOrientation(fichier, eORICarto);
  ZEPRA_ERREUR("ImageOrientation : extension de fichier orientation non reconnue ("
               << ext << ") pour " << fichier << " : .ori, .xml ou .hdr attendue");
}

std::unique_ptr<ImageOrientation> ImageOrientation::CreateImageOrientation(const char* fichier,
                                                                           eORIProjType type) {
  switch (type) {
    case eORICarto:
      return std::make_unique<CartoProjOrientation>(fichier);
    case eORIConic:
      return std::make_unique<ConicProjOrientation>(fichier);
    case eORIAxono:
      return std::make_unique<AxonoProjOrientation>(fichier);
    case eORIScan:
      return std::make_unique<ScanProjOrientation>(fichier);
    case eORISpheric:
      return std::make_unique<SphericOrientation>(fichier);
    case eORIGrille:
      return std::make_unique<GrilleProjOrientation>(fichier);
    default:
      break;
  }
  ZEPRA_ERREUR("CreateImageOrientation : type de projection non reconnu (" << static_cast<int>(type) << ")");
}

std::unique_ptr<ImageOrientation> ImageOrientation::MakeCopy(const ImageOrientation* source) {
  if (!source) ZEPRA_ERREUR("MakeCopy : pas d'orientation a copier");
  switch (source->m_type) {
    case eORICarto:
      return std::make_unique<CartoProjOrientation>(*source);
    case eORIConic:
      return std::make_unique<ConicProjOrientation>(*source);
    case eORIAxono:
      return std::make_unique<AxonoProjOrientation>(*source);
    case eORIScan:
      return std::make_unique<ScanProjOrientation>(*source);
    case eORISpheric:
      return std::make_unique<SphericOrientation>(*source);
    case eORIGrille:
      return std::make_unique<GrilleProjOrientation>(*source);
    default:
      break;
  }
  ZEPRA_ERREUR("MakeCopy : type de projection non reconnu (" << source->m_type << ")");
}
