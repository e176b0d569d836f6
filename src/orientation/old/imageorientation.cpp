#include "zepra/imageorientation.h"

#include <algorithm>
#include <cmath>
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

namespace {

// Applying a distortion: only the identity is known to this tool.
void SansDistortion(eDistortion d, const char* methode) {
  if (d != eDistortionAucune)
    ZEPRA_ERREUR("[ImageOrientation] (" << methode << ") Modele de distorsion " << d
                                        << " non supporte par cet outil");
}

}  // namespace

void ImageOrientation::ApplyDistortionGroundToPhoto(double&, double&) const {
  SansDistortion(m_distortion, "ApplyDistortionGroundToPhoto");
}

void ImageOrientation::ApplyDistortionPhotoToGround(double&, double&) const {
  SansDistortion(m_distortion, "ApplyDistortionPhotoToGround");
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

// Minimum and maximum of the points f(a, b, z) over the eight corners a0 or a1, b0 or b1, z0 or z1.
// The results are set only once every point is known.
template <class F>
void Boite(double z0, double z1, double a0, double b0, double a1, double b1, F&& f, double& xMin,
           double& yMin, double& xMax, double& yMax) {
  const double inf = std::numeric_limits<double>::infinity();
  double m[4] = {inf, inf, -inf, -inf};
  for (double z : {z0, z1})
    for (double a : {a0, a1})
      for (double b : {b0, b1}) {
        double x, y;
        f(a, b, z, x, y);
        m[0] = std::min(m[0], x);
        m[1] = std::min(m[1], y);
        m[2] = std::max(m[2], x);
        m[3] = std::max(m[3], y);
      }
  xMin = m[0], yMin = m[1], xMax = m[2], yMax = m[3];
}

}  // namespace

void ImageOrientation::EmpriseCarto(double zMin, double zMax, double col0, double lin0, double col1,
                                    double lin1, double& xMin, double& yMin, double& xMax,
                                    double& yMax) const {
  const auto f = [this](double c, double l, double z, double& X, double& Y) {
    PhotoAndZToMap(c, l, z, X, Y);
  };
  Boite(zMin, zMax, col0, lin0, col1, lin1, f, xMin, yMin, xMax, yMax);
}

void ImageOrientation::EmpriseCarto(double zMin, double zMax, double& xMin, double& yMin, double& xMax,
                                    double& yMax) const {
  EmpriseCarto(zMin, zMax, 0, 0, static_cast<double>(GetNs()), static_cast<double>(GetNl()), xMin, yMin, xMax,
               yMax);
}

void ImageOrientation::EmpriseTerrain(double zMin, double zMax, double col0, double lin0, double col1,
                                      double lin1, double& xMin, double& yMin, double& xMax,
                                      double& yMax) const {
  const auto f = [this](double c, double l, double z, double& x, double& y) {
    PhotoAndZToGround(c, l, z, x, y);
  };
  Boite(zMin, zMax, col0, lin0, col1, lin1, f, xMin, yMin, xMax, yMax);
}

void ImageOrientation::EmpriseTerrain(double zMin, double zMax, double& xMin, double& yMin, double& xMax,
                                      double& yMax) const {
  EmpriseTerrain(zMin, zMax, 0, 0, static_cast<double>(GetNs()), static_cast<double>(GetNl()), xMin, yMin,
                 xMax, yMax);
}

void ImageOrientation::EmpriseImage(double zMin, double zMax, double xMin, double yMin, double xMax,
                                    double yMax, double& col0, double& lin0, double& col1,
                                    double& lin1) const {
  const auto f = [this](double X, double Y, double Z, double& c, double& l) {
    double x, y, z;
    MapToGround(X, Y, Z, x, y, z);
    GroundToPhoto(x, y, z, c, l);
  };
  Boite(zMin, zMax, xMin, yMin, xMax, yMax, f, col0, lin0, col1, lin1);
}

void ImageOrientation::EmpriseImageTerrain(double zMin, double zMax, double xMin, double yMin, double xMax,
                                           double yMax, double& col0, double& lin0, double& col1,
                                           double& lin1) const {
  const auto f = [this](double x, double y, double z, double& c, double& l) { GroundToPhoto(x, y, z, c, l); };
  Boite(zMin, zMax, xMin, yMin, xMax, yMax, f, col0, lin0, col1, lin1);
}

namespace {

// The orientation files looked for beside an image, before its own georeferencing.
const std::vector<const char*> kOrientations = {"ori", "xml", "hdr"};

// The one place that maps a type code to its class, built from a file name (and its bytes when they
// are already read) or from a copy source; null for a code without a class.
template <class... Source>
std::unique_ptr<ImageOrientation> Nouvelle(int32_t type, const Source&... source) {
  switch (type) {
    case eORICarto:
      return std::make_unique<CartoProjOrientation>(source...);
    case eORIConic:
      return std::make_unique<ConicProjOrientation>(source...);
    case eORIAxono:
      return std::make_unique<AxonoProjOrientation>(source...);
    case eORIScan:
      return std::make_unique<ScanProjOrientation>(source...);
    case eORISpheric:
      return std::make_unique<SphericOrientation>(source...);
    case eORIGrille:
      return std::make_unique<GrilleProjOrientation>(source...);
    default:
      return nullptr;
  }
}

// The orientation file extensions, lower-cased; a name with one of them is not an image.
std::string ExtensionOrientation(const char* fichier) {
  const std::string ext = TChaine(fichier).Extension().ToLowCase().str();
  return ext == "ori" || ext == "xml" || ext == "hdr" ? ext : std::string();
}

// The tag of the size refusal, as each reader of these files has always worded it.
const char* TagLecture(const std::string& ext) {
  return ext == "ori" ? "[ImageOrientation] (CreateImageOrientation)" : "CartoProjOrientation :";
}

// A file that opened but could not be read, refused as its reader always refused it.
[[noreturn]] void Illisible(const std::string& ext, const char* fichier) {
  if (ext == "ori") ZEPRA_ERREUR("ImageOrientation : impossible de lire le fichier orientation " << fichier);
  if (ext == "xml")
    ZEPRA_ERREUR("ImageOrientation : impossible de parser le fichier orientation " << fichier);
  ZEPRA_ERREUR("CartoProjOrientation : probleme d'ouverture du fichier " << fichier);
}

}  // namespace

std::unique_ptr<ImageOrientation> ImageOrientation::CreateImageOrientation(const char* image) {
  return ChercherOrientation(image, image ? image : "");
}

std::unique_ptr<ImageOrientation> ImageOrientation::ChercherOrientation(const char* image,
                                                                        const std::string& nomCherche) {
  if (std::unique_ptr<ImageOrientation> o = ChercherSiPresent(image)) return o;
  ZEPRA_ERREUR("ImageOrientation : fichier d'orientation introuvable pour " << nomCherche);
}

std::unique_ptr<ImageOrientation> ImageOrientation::ChercherSiPresent(const char* image) {
  const TChaine nomImage(image);
  for (const std::string& candidat : NomsVoisins(nomImage.str(), kOrientations))
    if (std::unique_ptr<ImageOrientation> o = LireSiPresent(candidat.c_str())) return o;
  // An orientation file name that leads nowhere is not an image to look into.
  if (ExtensionOrientation(nomImage).empty())
    if (std::unique_ptr<ImageOrientation> o = CartoProjOrientation::LireGeoreference(nomImage)) return o;
  return nullptr;
}

std::vector<std::string> ImageOrientation::FichiersCherches(const char* image) {
  std::vector<std::string> noms = NomsVoisins(image ? image : "", kOrientations);
  for (std::string& n : CartoProjOrientation::FichiersGeoreference(image)) noms.push_back(std::move(n));
  return noms;
}

std::unique_ptr<ImageOrientation> ImageOrientation::LireFichierOrientation(const char* fichier) {
  const std::string ext = ExtensionOrientation(fichier);
  if (ext.empty())
    ZEPRA_ERREUR("ImageOrientation : extension de fichier orientation non reconnue ("
                 << TChaine(fichier).Extension().ToLowCase() << ") pour " << fichier
                 << " : .ori, .xml ou .hdr attendue");
  if (std::unique_ptr<ImageOrientation> o = LireSiPresent(fichier)) return o;
  Illisible(ext, fichier);
}

std::unique_ptr<ImageOrientation> ImageOrientation::LireSiPresent(const char* fichier) {
  const std::string ext = ExtensionOrientation(fichier);
  if (ext.empty()) return nullptr;
  // Opened and read once; the readers below work on these bytes.
  std::string contenu;
  switch (LecteurTexte::ChargerSiPresent(fichier, contenu, TagLecture(ext))) {
    case LecteurTexte::Etat::kAbsent:
      return nullptr;
    case LecteurTexte::Etat::kIllisible:
      Illisible(ext, fichier);
    case LecteurTexte::Etat::kLu:
      break;
  }
  if (ext == "ori") {
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
    return Nouvelle(type, fichier, contenu);
  }
  if (ext == "xml") {
    XParserXML parser;
    if (!ParserXml(contenu, fichier, parser)) Illisible(ext, fichier);
    const std::string geometrie = parser.ReadNode("/FileOriMnt/Geometrie");
    if (geometrie != "eGeomMNTCarto" && geometrie != "eGeomMNTEuclid")
      ZEPRA_ERREUR("la geometrie " << geometrie
                                   << " n'est pas implémentée. Fichier d'orientation : " << fichier);
    return std::unique_ptr<ImageOrientation>(new CartoProjOrientation(fichier, contenu, &parser));
  }
  return std::make_unique<CartoProjOrientation>(fichier, contenu);
}

std::unique_ptr<ImageOrientation> ImageOrientation::CreateImageOrientation(const char* fichier,
                                                                           eORIProjType type) {
  if (std::unique_ptr<ImageOrientation> o = Nouvelle(type, fichier)) return o;
  ZEPRA_ERREUR("CreateImageOrientation : type de projection non reconnu (" << static_cast<int>(type) << ")");
}

std::unique_ptr<ImageOrientation> ImageOrientation::MakeCopy(const ImageOrientation* source) {
  if (!source) ZEPRA_ERREUR("MakeCopy : pas d'orientation a copier");
  if (std::unique_ptr<ImageOrientation> o = Nouvelle(source->m_type, *source)) return o;
  ZEPRA_ERREUR("MakeCopy : type de projection non reconnu (" << source->m_type << ")");
}
