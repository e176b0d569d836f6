#include "zepra/autresorientations.h"

#include "lecteurtexte.h"
#include "zepra/cartoproj.h"
#include "zepra/erreur.h"

OrientationNonSupportee::OrientationNonSupportee(eORIProjType type, const char* classe, const char* modele)
    : ImageOrientation(type), m_classe(classe), m_modele(modele) {}

OrientationNonSupportee::OrientationNonSupportee(const ImageOrientation& source, eORIProjType type,
                                                 const char* classe, const char* modele,
                                                 const char* messageType)
    : ImageOrientation(source), m_classe(classe), m_modele(modele) {
  if (source.GetOriType() != type) ZEPRA_ERREUR(messageType);
  m_type = type;
  m_nbColonnes = source.GetNs();
  m_nbLignes = source.GetNl();
}

void OrientationNonSupportee::LireEtRefuser(const char* fichier, const char* classe, const char* modele,
                                            const char* const* attendus, const char* messageMot) {
  const std::string nom = fichier ? fichier : "";
  std::string contenu;
  if (!LecteurTexte::Charger(nom.c_str(), contenu, classe))
    ZEPRA_ERREUR(classe << " : probleme d'ouverture du fichier " << nom);
  std::string mot;
  LecteurTexte(contenu).Mot(mot);
  bool reconnu = false;
  for (const char* const* a = attendus; *a; ++a) reconnu = reconnu || mot == *a;
  if (!reconnu) ZEPRA_ERREUR(messageMot << " (premier mot '" << mot << "', fichier " << nom << ")");
  // Nothing of this model's geometry is known here: refuse rather than guess.
  ZEPRA_ERREUR(classe << " : le modele d'orientation " << modele << " du fichier " << nom
                      << " n'est pas supporte par cet outil");
}

void OrientationNonSupportee::NonSupporte(const char* operation) const {
  ZEPRA_ERREUR(m_classe << " : " << operation << " : le modele d'orientation " << m_modele
                        << " n'est pas supporte par cet outil");
}

void OrientationNonSupportee::Dump(const char*, int) const { NonSupporte("Dump"); }
void OrientationNonSupportee::MapToGround(double, double, double, double&, double&, double&) const {
  NonSupporte("MapToGround");
}
void OrientationNonSupportee::GroundToMap(double, double, double, double&, double&, double&) const {
  NonSupporte("GroundToMap");
}
void OrientationNonSupportee::GroundToPhoto(double, double, double, double&, double&, double&) const {
  NonSupporte("GroundToPhoto");
}
void OrientationNonSupportee::GroundToPhoto(double, double, double, double&, double&) const {
  NonSupporte("GroundToPhoto");
}
void OrientationNonSupportee::MapToPhoto(double, double, double, double&, double&, double&) const {
  NonSupporte("MapToPhoto");
}
void OrientationNonSupportee::PhotoToGroundVect(double, double, double[3]) const {
  NonSupporte("PhotoToGroundVect");
}
void OrientationNonSupportee::PhotoAndZToGround(double, double, double, double&, double&) const {
  NonSupporte("PhotoAndZToGround");
}
void OrientationNonSupportee::PhotoAndDepthToGround(double, double, double, double&, double&, double&) const {
  NonSupporte("PhotoAndDepthToGround");
}
void OrientationNonSupportee::PhotoToGround(double, double, double&, double&, double&) const {
  NonSupporte("PhotoToGround");
}
void OrientationNonSupportee::PhotoToMap(double, double, double&, double&, double&) const {
  NonSupporte("PhotoToMap");
}
double OrientationNonSupportee::GetApproxGroundPixSize() const { NonSupporte("GetApproxGroundPixSize"); }
void OrientationNonSupportee::GetSolarVector(double[3]) const { NonSupporte("GetSolarVector"); }
void OrientationNonSupportee::GetSolarVector(double[3], int, int, int, int, int) const {
  NonSupporte("GetSolarVector");
}
std::unique_ptr<ImageOrientation> OrientationNonSupportee::Extract(double, double, double, double, double,
                                                                   double) const {
  NonSupporte("Extract");
}
T3D<double> OrientationNonSupportee::GetProjCenter() const { NonSupporte("GetProjCenter"); }
TPoint2D<double> OrientationNonSupportee::GetPrincipalPoint() const { NonSupporte("GetPrincipalPoint"); }
T3D<double> OrientationNonSupportee::GetLocalOrigin() const { NonSupporte("GetLocalOrigin"); }
void OrientationNonSupportee::GetPrincipalAxis(double[3]) const { NonSupporte("GetPrincipalAxis"); }
void OrientationNonSupportee::GetViewingAxis(double[3], double[3], double[3]) const {
  NonSupporte("GetViewingAxis");
}
void OrientationNonSupportee::SetViewingAxis(const double[3], const double[3], const double[3]) {
  NonSupporte("SetViewingAxis");
}
double OrientationNonSupportee::GetFocale() const { NonSupporte("GetFocale"); }
void OrientationNonSupportee::SetFocale(double) { NonSupporte("SetFocale"); }
void OrientationNonSupportee::GetTime(int&, int&, int&, int&, int&, int&) const { NonSupporte("GetTime"); }
void OrientationNonSupportee::SetTime(int, int, int, int, int, int) { NonSupporte("SetTime"); }
void OrientationNonSupportee::TransposeImage() { NonSupporte("TransposeImage"); }

namespace {
const char* const MotsConic[] = {"TEXT", nullptr};
const char* const MotsAxono[] = {"AXONO", nullptr};
const char* const MotsScan[] = {"SCAN", nullptr};
const char* const MotsSpheric[] = {"SPHERIC", nullptr};
const char* const MotsGrille[] = {"VERSION", "<?xml", nullptr};
}  // namespace

ConicProjOrientation::ConicProjOrientation(const char* fichier)
    : OrientationNonSupportee(eORIConic, "ConicProjOrientation", "conique") {
  LireEtRefuser(fichier, "ConicProjOrientation", "conique", MotsConic,
                "ConicProjOrientation : lecture d'un .ORI qui ne commence pas par TEXT");
}
ConicProjOrientation::ConicProjOrientation(const ImageOrientation& source)
    : OrientationNonSupportee(source, eORIConic, "ConicProjOrientation", "conique",
                              "ConicProj : constructeur par copie appele avec un autre type") {}

AxonoProjOrientation::AxonoProjOrientation(const char* fichier)
    : OrientationNonSupportee(eORIAxono, "AxonoProjOrientation", "axonometrique") {
  LireEtRefuser(fichier, "AxonoProjOrientation", "axonometrique", MotsAxono,
                "Lecture en AXONO d'un .ORI qui n'en est pas AXONO !!!");
}
AxonoProjOrientation::AxonoProjOrientation(const ImageOrientation& source)
    : OrientationNonSupportee(source, eORIAxono, "AxonoProjOrientation", "axonometrique",
                              "AxonoProj : Constructeur par copie appele avec un autre type") {}

void AxonoProjOrientation::VerifieZone(int zone, double& y0) {
  if (zone < 0) ZEPRA_ERREUR("Zone Lambert negative (" << zone << ")");
  if (zone > 4) ZEPRA_ERREUR("Zone Lambert > 4 (" << zone << ")");
  // The carto rule, its refusals under one text.
  double y = y0;
  try {
    CartoProjOrientation::VerifieZone(zone, y);
  } catch (const Erreur&) {
    ZEPRA_ERREUR("Zone Lambert absurde (zone " << zone << ", Y " << TexteExact(y0) << ")");
  }
  y0 = y;
}

void AxonoProjOrientation::Dump(const char* fichier, int texte) const {
  if (texte == 0) ZEPRA_ERREUR("Pas de sauvegarde binaire pour les projections AXONO");
  OrientationNonSupportee::Dump(fichier, texte);
}
void AxonoProjOrientation::GetSolarVector(double[3]) const {
  ZEPRA_ERREUR("Pas de vecteur solaire en projection axonometrique");
}
void AxonoProjOrientation::GetSolarVector(double[3], int, int, int, int, int) const {
  ZEPRA_ERREUR("Pas de vecteur solaire en projection axonometrique");
}
double AxonoProjOrientation::GetFocale() const { ZEPRA_ERREUR("Pas de focale en projection axonometrique"); }
void AxonoProjOrientation::SetFocale(double) { ZEPRA_ERREUR("Pas de focale en projection axonometrique"); }
void AxonoProjOrientation::GetTime(int&, int&, int&, int&, int&, int&) const {
  ZEPRA_ERREUR("Pas d'heure de prise de vue en projection axonometrique");
}
void AxonoProjOrientation::SetTime(int, int, int, int, int, int) {
  ZEPRA_ERREUR("Pas d'heure de prise de vue en projection axonometrique");
}
void AxonoProjOrientation::TransposeImage() {
  ZEPRA_ERREUR("Pas de transposition pour une orientation AXONO");
}
std::unique_ptr<ImageOrientation> AxonoProjOrientation::Extract(double c0, double l0, double c1, double l1,
                                                                double pasC, double pasL) const {
  if (pasC != pasL)
    ZEPRA_ERREUR("AxonoProjOrientation : Extract : les pas horizontaux et verticaux sont differents");
  return OrientationNonSupportee::Extract(c0, l0, c1, l1, pasC, pasL);
}

ScanProjOrientation::ScanProjOrientation(const char* fichier)
    : OrientationNonSupportee(eORIScan, "ScanProjOrientation", "scan") {
  LireEtRefuser(fichier, "ScanProjOrientation", "scan", MotsScan,
                "ScanProjOrientation : lecture d'un .ORI qui ne commence pas par SCAN");
}
ScanProjOrientation::ScanProjOrientation(const ImageOrientation& source)
    : OrientationNonSupportee(source, eORIScan, "ScanProjOrientation", "scan",
                              "ScanProj : constructeur par copie appele avec un autre type") {}

SphericOrientation::SphericOrientation(const char* fichier)
    : OrientationNonSupportee(eORISpheric, "SphericOrientation", "spherique") {
  LireEtRefuser(fichier, "SphericOrientation", "spherique", MotsSpheric,
                "SphericOrientation : lecture d'un .ORI qui ne commence pas par SPHERIC");
}
SphericOrientation::SphericOrientation(const ImageOrientation& source)
    : OrientationNonSupportee(source, eORISpheric, "SphericOrientation", "spherique",
                              "Spheric : Constructeur par copie appele avec un autre type") {}

GrilleProjOrientation::GrilleProjOrientation(const char* fichier)
    : OrientationNonSupportee(eORIGrille, "GrilleProjOrientation", "grille") {
  LireEtRefuser(fichier, "GrilleProjOrientation", "grille", MotsGrille,
                "GrilleProjOrientation : lecture d'un fichier qui ne commence ni par VERSION ni par <?xml");
}
GrilleProjOrientation::GrilleProjOrientation(const ImageOrientation& source)
    : OrientationNonSupportee(source, eORIGrille, "GrilleProjOrientation", "grille",
                              "GrilleProj : Constructeur par copie appele avec un autre type") {}
