#include "zepra/autresorientations.h"

#include "lecteurtexte.h"
#include "zepra/cartoproj.h"
#include "zepra/erreur.h"

struct ModeleNonSupporte {
  eORIProjType type;
  const char* classe;        // opens the messages
  const char* modele;        // "conique", ...
  const char* mot;           // the first word of its files,
  const char* autreMot;      // or this one (may be null)
  const char* messageMot;    // a file that begins with another word
  const char* messageCopie;  // a copy from another type code
};

namespace {

// The capitalisation of the texts differs between models and is kept.
const ModeleNonSupporte Modeles[] = {
    {eORIConic, "ConicProjOrientation", "conique", "TEXT", nullptr,
     "ConicProjOrientation : lecture d'un .ORI qui ne commence pas par TEXT",
     "ConicProj : constructeur par copie appele avec un autre type"},
    {eORIAxono, "AxonoProjOrientation", "axonometrique", "AXONO", nullptr,
     "Lecture en AXONO d'un .ORI qui n'en est pas AXONO !!!",
     "AxonoProj : Constructeur par copie appele avec un autre type"},
    {eORIScan, "ScanProjOrientation", "scan", "SCAN", nullptr,
     "ScanProjOrientation : lecture d'un .ORI qui ne commence pas par SCAN",
     "ScanProj : constructeur par copie appele avec un autre type"},
    {eORISpheric, "SphericOrientation", "spherique", "SPHERIC", nullptr,
     "SphericOrientation : lecture d'un .ORI qui ne commence pas par SPHERIC",
     "Spheric : Constructeur par copie appele avec un autre type"},
    {eORIGrille, "GrilleProjOrientation", "grille", "VERSION", "<?xml",
     "GrilleProjOrientation : lecture d'un fichier qui ne commence ni par VERSION ni par <?xml",
     "GrilleProj : Constructeur par copie appele avec un autre type"},
};

// OrientationModele is instantiated for the codes of the table only.
const ModeleNonSupporte& Decrire(eORIProjType type) {
  for (const ModeleNonSupporte& m : Modeles)
    if (m.type == type) return m;
  ZEPRA_ERREUR("[OrientationNonSupportee] Type " << static_cast<int>(type) << " sans description");
}

}  // namespace

OrientationNonSupportee::OrientationNonSupportee(const ModeleNonSupporte& modele, const char* fichier)
    : OrientationNonSupportee(modele, fichier, [&] {
        std::string contenu;
        if (!LecteurTexte::Charger(fichier, contenu, modele.classe))
          ZEPRA_ERREUR(modele.classe << " : probleme d'ouverture du fichier " << (fichier ? fichier : ""));
        return contenu;
      }()) {}

OrientationNonSupportee::OrientationNonSupportee(const ModeleNonSupporte& modele, const char* fichier,
                                                 const std::string& contenu)
    : ImageOrientation(modele.type), m_modele(&modele) {
  const std::string nom = fichier ? fichier : "";
  std::string mot;
  LecteurTexte(contenu).Mot(mot);
  if (mot != modele.mot && !(modele.autreMot && mot == modele.autreMot))
    ZEPRA_ERREUR(modele.messageMot << " (premier mot '" << mot << "', fichier " << nom << ")");
  // Nothing of this model's geometry is known here: refuse rather than guess.
  ZEPRA_ERREUR(modele.classe << " : le modele d'orientation " << modele.modele << " du fichier " << nom
                             << " n'est pas supporte par cet outil");
}

OrientationNonSupportee::OrientationNonSupportee(const ModeleNonSupporte& modele,
                                                 const ImageOrientation& source)
    : ImageOrientation(source), m_modele(&modele) {
  if (source.GetOriType() != modele.type) ZEPRA_ERREUR(modele.messageCopie);
  m_type = modele.type;
  m_nbColonnes = source.GetNs();
  m_nbLignes = source.GetNl();
}

const char* OrientationNonSupportee::Modele() const { return m_modele->modele; }

void OrientationNonSupportee::NonSupporte(const char* operation) const {
  ZEPRA_ERREUR(m_modele->classe << " : " << operation << " : le modele d'orientation " << m_modele->modele
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

template <eORIProjType Type>
OrientationModele<Type>::OrientationModele(const char* fichier)
    : OrientationNonSupportee(Decrire(Type), fichier) {}
template <eORIProjType Type>
OrientationModele<Type>::OrientationModele(const char* fichier, const std::string& contenu)
    : OrientationNonSupportee(Decrire(Type), fichier, contenu) {}
template <eORIProjType Type>
OrientationModele<Type>::OrientationModele(const ImageOrientation& source)
    : OrientationNonSupportee(Decrire(Type), source) {}

template class OrientationModele<eORIConic>;
template class OrientationModele<eORIAxono>;
template class OrientationModele<eORIScan>;
template class OrientationModele<eORISpheric>;
template class OrientationModele<eORIGrille>;

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
