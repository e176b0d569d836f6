#include "zepra/cartoproj.h"

#include <climits>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <type_traits>
#include <utility>

#include "lecteurtexte.h"
#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"
#include "zepra/tchaine.h"
#include "zepra/xml.h"

namespace {

const double Million = 1000000.0;

// Numbers in messages: all the digits they need, no exponent for map coordinates.
std::string N(double v) { return std::isfinite(v) ? TexteExact(v) : (std::isnan(v) ? "nan" : "inf"); }

// Sizes an image of the library can have.
bool TailleValide(long long n) { return n >= 1 && n <= INT_MAX; }

// floor(v) as a long, when it is one.
bool PlancherLong(double v, long& r) {
  const double f = std::floor(v);
  if (!(f >= static_cast<double>(LONG_MIN) && f < static_cast<double>(LONG_MAX))) return false;
  r = static_cast<long>(f);
  return true;
}

// A zone read as a 64-bit integer, narrowed once the zone checks could not refuse it anyway.
int32_t ZoneLue(long long zone, const std::string& fichier) {
  if (zone < 0) ZEPRA_ERREUR("Lecture ORI : Zone Lambert negative (" << zone << ") dans " << fichier);
  if (zone > 4) ZEPRA_ERREUR("Lecture ORI : Zone Lambert > 4 (" << zone << ") dans " << fichier);
  return static_cast<int32_t>(zone);
}

}  // namespace

CartoProjOrientation::CartoProjOrientation() : ImageOrientation(eORICarto) {}

CartoProjOrientation::CartoProjOrientation(const ImageOrientation& source) : ImageOrientation(source) {
  const auto* c = dynamic_cast<const CartoProjOrientation*>(&source);
  if (source.GetOriType() != eORICarto || !c)
    ZEPRA_ERREUR("CartoProj : Constructeur par copie appele avec un autre type");
  *this = *c;
  m_type = eORICarto;
}

CartoProjOrientation::CartoProjOrientation(const char* fichier) : ImageOrientation(eORICarto) {
  m_fichier = fichier ? fichier : "";
  std::string contenu;
  if (!LecteurTexte::Charger(m_fichier.c_str(), contenu, "CartoProjOrientation :"))
    ZEPRA_ERREUR("CartoProjOrientation : probleme d'ouverture du fichier " << m_fichier);
  LireContenu(contenu, nullptr);
}

CartoProjOrientation::CartoProjOrientation(const char* fichier, const std::string& contenu)
    : CartoProjOrientation(fichier, contenu, nullptr) {}

CartoProjOrientation::CartoProjOrientation(const char* fichier, const std::string& contenu,
                                           const XParserXML* xml)
    : ImageOrientation(eORICarto) {
  m_fichier = fichier ? fichier : "";
  LireContenu(contenu, xml);
}

void CartoProjOrientation::LireContenu(const std::string& contenu, const XParserXML* xml) {
  const std::string& nom = m_fichier;
  LecteurTexte lecteur(contenu);
  std::string mot;
  lecteur.Mot(mot);
  // Leading XML declarations and style sheet lines are skipped, as the XML reader does: files that
  // carry them (ours do) are read too.
  while (mot.compare(0, 5, "<?xml") == 0) {
    while (mot.size() < 2 || mot.compare(mot.size() - 2, 2, "?>") != 0)
      if (!lecteur.Mot(mot)) break;
    lecteur.Mot(mot);
  }
  bool reconnu = true;
  if (mot == "CARTO") {
    LireCarto(lecteur);
  } else if (mot.compare(0, 12, "<FileOriMnt>") == 0) {
    if (xml) {
      LireXml(*xml);
    } else {
      XParserXML parser;
      if (!ParserXml(contenu, nom, parser))
        ZEPRA_ERREUR("CartoProjOrientation : fichier XML " << nom << " mal forme (balise non fermee ?)");
      LireXml(parser);
    }
  } else if (mot == "MAPUNITS") {
    LireHdr(lecteur);
  } else {
    reconnu = false;  // nothing read: the fields keep their initial zeros
  }
  VerifieZone(m_zone, m_y0, " dans " + nom);
  if (!reconnu)
    ZEPRA_ERREUR("CartoProjOrientation : fichier " << nom << " de format inconnu (premier mot '" << mot
                                                   << "' ; CARTO, <FileOriMnt> ou MAPUNITS attendu)");
  VerifieValeurs("fichier " + nom);
}

void CartoProjOrientation::LireCarto(LecteurTexte& l) {
  long long zone = 0;
  const auto manque = [&](const char* quoi) {
    ZEPRA_ERREUR("CartoProjOrientation : fichier CARTO "
                 << m_fichier << " tronque ou non numerique : " << quoi << " attendu");
  };
  // Millimetres in the file, metres in memory: the factor is applied to the decimal text.
  if (!l.Reel(m_x0, -3) || !l.Reel(m_y0, -3)) manque("l'origine X Y (mm)");
  if (!l.Entier(zone)) manque("la zone Lambert");
  m_zone = ZoneLue(zone, m_fichier);
  if (!l.Entier(m_nbColonnes) || !l.Entier(m_nbLignes)) manque("le nombre de colonnes et de lignes");
  if (!l.Reel(m_pasX, -3) || !l.Reel(m_pasY, -3)) manque("le pas X Y (mm)");
}

void CartoProjOrientation::LireXml(const XParserXML& parser) {
  const char* fichier = m_fichier.c_str();
  const std::string geometrie = parser.ReadNode("/FileOriMnt/Geometrie");
  if (geometrie != "eGeomMNTCarto" && geometrie != "eGeomMNTEuclid")
    ZEPRA_ERREUR("Lecture en CARTO d'une orientation .XML qui n'en est pas eGeomMNTCarto ("
                 << geometrie << ", " << fichier << ")");
  const auto paire = [&](const char* chemin, auto& a, auto& b) {
    LecteurTexte l(parser.ReadNode(chemin));
    bool ok;
    if constexpr (std::is_integral_v<std::remove_reference_t<decltype(a)>>)
      ok = l.Entier(a) && l.Entier(b);
    else
      ok = l.Reel(a) && l.Reel(b);
    if (!ok)
      ZEPRA_ERREUR("CartoProjOrientation : noeud " << chemin << " du fichier " << fichier
                                                   << " : deux nombres attendus");
  };
  long long nc = 0, nl = 0;
  paire("/FileOriMnt/NombrePixels", nc, nl);
  m_nbColonnes = nc;
  m_nbLignes = nl;
  paire("/FileOriMnt/ResolutionPlani", m_pasX, m_pasY);
  m_pasY = -m_pasY;  // negative in the file for a north-up image
  if (parser.FindNode("/FileOriMnt/NumZoneLambert")) {
    m_zone = parser.ReadNodeAsInt("/FileOriMnt/NumZoneLambert");
    paire("/FileOriMnt/OriginePlani", m_x0, m_y0);
  } else {
    // Without a zone the origin is left at zero, OriginePlani unread: established behaviour.
    m_zone = 0;
    m_x0 = 0;
    m_y0 = 0;
  }
}

void CartoProjOrientation::LireHdr(LecteurTexte& l) {
  const auto reel = [&](const char* cle, double& v) {
    if (!l.Reel(v))
      ZEPRA_ERREUR("CartoProjOrientation : fichier " << m_fichier << " : valeur de " << cle
                                                     << " absente ou non numerique");
    char ignore;
    l.CaractereNonBlanc(ignore);  // one more character follows each real value: established format
  };
  const auto entier = [&](const char* cle, long long& v) {
    if (!l.Entier(v))
      ZEPRA_ERREUR("CartoProjOrientation : fichier " << m_fichier << " : valeur de " << cle
                                                     << " absente ou non numerique");
  };
  const std::pair<const char*, double*> reels[] = {
      {"ULXMAP", &m_x0}, {"ULYMAP", &m_y0}, {"XDIM", &m_pasX}, {"YDIM", &m_pasY}};
  const std::pair<const char*, long long*> entiers[] = {{"NROWS", &m_nbLignes}, {"NCOLS", &m_nbColonnes}};
  std::string mot;
  // Keywords are read as words of at most 11 characters (a longer one goes on as the next word); any
  // other word is skipped.
  while (l.Mot(mot, 11)) {
    if (mot == "MAPUNITS" || mot == "METERS") {
      l.Mot(mot, 11);  // the unit word, whatever it is, is swallowed
      continue;
    }
    for (const auto& r : reels)
      if (mot == r.first) reel(r.first, *r.second);
    for (const auto& e : entiers)
      if (mot == e.first) entier(e.first, *e.second);
    if (mot == "PROJECTION") {
      long long zone = 0;
      l.Mot(mot, 11);  // the words around the zone are not used
      entier("PROJECTION", zone);
      m_zone = ZoneLue(zone, m_fichier);
      l.Mot(mot, 11);
    }
  }
  // The header gives the centre of the first pixel: back to its corner. Signs kept as established.
  m_x0 += 0.5 * m_pasX;
  m_y0 -= 0.5 * m_pasY;
}

void CartoProjOrientation::VerifieZone(int zone, double& y0, const std::string& contexte) {
  if (zone < 0) ZEPRA_ERREUR("Lecture ORI : Zone Lambert negative (" << zone << ")" << contexte);
  if (zone > 4) ZEPRA_ERREUR("Lecture ORI : Zone Lambert > 4 (" << zone << ")" << contexte);
  if (y0 < Million) {
    y0 = zone * Million + y0;
    return;
  }
  if (zone == 0) return;
  if (zone == 2) {
    // The extended Lambert II range.
    if (y0 < 1500000.0 || y0 > 2900000.0)
      ZEPRA_ERREUR("Probleme yMap (" << N(y0) << ") hors zone Lambert 2" << contexte);
    return;
  }
  if (std::floor(y0 / Million) != zone)
    ZEPRA_ERREUR("Zone Lambert (" << zone << ") et Y carto (" << N(y0) << ")non coherents" << contexte);
}

void CartoProjOrientation::VerifieValeurs(const std::string& origine) const {
  if (!TailleValide(m_nbColonnes) || !TailleValide(m_nbLignes))
    ZEPRA_ERREUR("CartoProjOrientation : taille " << m_nbColonnes << " x " << m_nbLignes << " absurde ("
                                                  << origine << ") : de 1 a " << INT_MAX
                                                  << " colonnes et lignes attendues");
  if (!std::isfinite(m_x0) || !std::isfinite(m_y0))
    ZEPRA_ERREUR("CartoProjOrientation : origine (" << N(m_x0) << ", " << N(m_y0) << ") invalide (" << origine
                                                    << ")");
  if (!std::isfinite(m_pasX) || !std::isfinite(m_pasY) || m_pasX == 0 || m_pasY == 0)
    ZEPRA_ERREUR("CartoProjOrientation : pas (" << N(m_pasX) << ", " << N(m_pasY) << ") invalide (" << origine
                                                << ") : reels finis non nuls attendus");
}

std::unique_ptr<ImageOrientation> ImageOrientation::CreateCartoProjOrientation(double x0, double y0, int zone,
                                                                               long nbColonnes, long nbLignes,
                                                                               double pasX, double pasY) {
  // Tested as unsigned, so negative zones fall here too; the text is the established one.
  if (static_cast<unsigned int>(zone) > 4)
    ZEPRA_ERREUR("Probleme avec la zone Lambert 2 (zone " << zone << ")");
  CartoProjOrientation::VerifieZone(zone, y0);
  std::unique_ptr<CartoProjOrientation> c(new CartoProjOrientation());
  c->m_x0 = x0;
  c->m_y0 = y0;
  c->m_zone = zone;
  c->m_nbColonnes = nbColonnes;
  c->m_nbLignes = nbLignes;
  c->m_pasX = pasX;
  c->m_pasY = pasY;
  c->VerifieValeurs("CreateCartoProjOrientation");
  return c;
}

void CartoProjOrientation::Dump(const char* fichier, int texte) const {
  if (texte == 0) ZEPRA_ERREUR("Pas de sauvegarde binaire pour les projections CARTO");
  // Y is written without its zone millions, with the fewest digits that the reading (zone rule
  // included) brings back to the same bits; an origin no text brings back (one moved out of its zone
  // by Extract) is refused rather than written to a file that would read back elsewhere.
  const int zone = m_zone;
  const double y0 = m_y0;
  const std::string texteY = TexteRelu(m_y0 - m_zone * Million, 3, [zone, y0](double lu) {
    try {
      VerifieZone(zone, lu);
    } catch (const Erreur&) {
      return false;
    }
    return lu == y0;
  });
  if (texteY.empty())
    ZEPRA_ERREUR("[CartoProjOrientation] (Dump) Origine Y "
                 << N(m_y0) << " hors de la zone Lambert " << m_zone << " : le fichier "
                 << (fichier ? fichier : "") << " ne se relirait pas, non ecrit");
  FichierAtomique sortie(fichier ? fichier : "", "[CartoProjOrientation] (Dump)");
  std::ostream& f = sortie.flux();
  // The line layout is the established one; each real is written with the digits it needs to read
  // back bit for bit (the millimetre factor applied to the decimal text).
  f << "CARTO\n";
  f << TexteExact(m_x0, 3) << ' ' << texteY << '\n';
  f << m_zone << '\n';
  f << m_nbColonnes << ' ' << m_nbLignes << '\n';
  f << TexteExact(m_pasX, 3) << ' ' << TexteExact(m_pasY, 3) << '\n';
  sortie.Valider();
}

void CartoProjOrientation::EcrireWorldFile(const char* fichier) const {
  FichierAtomique sortie(fichier ? fichier : "", "[CartoProjOrientation] (EcrireWorldFile)");
  double xc, yc;
  PhotoAndZToMap(0.5, 0.5, 0, xc, yc);
  sortie.flux() << TexteExact(m_pasX) << "\n0\n0\n"
                << TexteExact(-m_pasY) << '\n'
                << TexteExact(xc) << '\n'
                << TexteExact(yc) << '\n';
  sortie.Valider();
}

void CartoProjOrientation::MapToGround(double X, double Y, double Z, double& x, double& y, double& z) const {
  x = X;
  y = Y;
  z = Z;
  if (m_zone != 0 && y < Million) y += m_zone * Million;
}

void CartoProjOrientation::GroundToMap(double x, double y, double z, double& X, double& Y, double& Z) const {
  X = x;
  Y = y;
  Z = z;
}

void CartoProjOrientation::GroundToPhoto(double x, double y, double z, double& col, double& lin,
                                         double& prof) const {
  col = (x - m_x0) / m_pasX;
  lin = (m_y0 - y) / m_pasY;
  prof = z;
}

void CartoProjOrientation::GroundToPhoto(double x, double y, double z, double& col, double& lin) const {
  double prof;
  CartoProjOrientation::GroundToPhoto(x, y, z, col, lin, prof);
}

void CartoProjOrientation::MapToPhoto(double X, double Y, double Z, double& col, double& lin,
                                      double& z) const {
  double x, y, zz;
  MapToGround(X, Y, Z, x, y, zz);
  GroundToPhoto(x, y, zz, col, lin, z);
}

void CartoProjOrientation::PhotoToGroundVect(double, double, double v[3]) const {
  v[0] = 0;
  v[1] = 0;
  v[2] = -1;
}

void CartoProjOrientation::PhotoAndZToGround(double col, double lin, double, double& x, double& y) const {
  x = col * m_pasX + m_x0;
  y = m_y0 - lin * m_pasY;
}

void CartoProjOrientation::PhotoAndZToMap(double col, double lin, double Z, double& X, double& Y) const {
  PhotoAndZToGround(col, lin, Z, X, Y);
}

void CartoProjOrientation::PhotoAndDepthToGround(double col, double lin, double prof, double& x, double& y,
                                                 double& z) const {
  PhotoAndZToGround(col, lin, 0, x, y);
  z = -prof;
}

void CartoProjOrientation::PhotoToGround(double col, double lin, double& x, double& y, double& z) const {
  PhotoAndZToGround(col, lin, 0, x, y);
  z = 0;
}

void CartoProjOrientation::PhotoToMap(double col, double lin, double& X, double& Y, double& Z) const {
  PhotoAndZToGround(col, lin, 0, X, Y);
  Z = 0;
}

void CartoProjOrientation::GetSolarVector(double[3]) const {
  ZEPRA_ERREUR("Pas de vecteur solaire en projection carto.");
}
void CartoProjOrientation::GetSolarVector(double[3], int, int, int, int, int) const {
  ZEPRA_ERREUR("Pas de vecteur solaire en projection carto");
}
T3D<double> CartoProjOrientation::GetProjCenter() const { ZEPRA_ERREUR("CartoProj : Sommet non defini."); }
void CartoProjOrientation::SetProjCenter(const T3D<double>&) {
  ZEPRA_ERREUR("CartoProj : Sommet non defini.");
}
TPoint2D<double> CartoProjOrientation::GetPrincipalPoint() const {
  ZEPRA_ERREUR("CartoProj : Point principal non defini.");
}
void CartoProjOrientation::SetPrincipalPoint(const TPoint2D<double>&) {
  ZEPRA_ERREUR("CartoProj : Point principal non defini.");
}
T3D<double> CartoProjOrientation::GetLocalOrigin() const {
  ZEPRA_ERREUR("CartoProj : Origine Locale no definie.");
}
void CartoProjOrientation::SetLocalOrigin(const T3D<double>&) {
  ZEPRA_ERREUR("CartoProj : Origine Locale no definie.");
}
void CartoProjOrientation::GetPrincipalAxis(double[3]) const {
  ZEPRA_ERREUR("CartoProj : Pas d'axe principal.");
}
void CartoProjOrientation::GetViewingAxis(double[3], double[3], double[3]) const {
  ZEPRA_ERREUR("CartoProj : Pas d'axe principal.");
}
void CartoProjOrientation::SetViewingAxis(const double[3], const double[3], const double[3]) {
  ZEPRA_ERREUR("CartoProj : Pas d'axe principal.");
}
double CartoProjOrientation::GetFocale() const { ZEPRA_ERREUR("Pas de focale en projection carto"); }
void CartoProjOrientation::SetFocale(double) { ZEPRA_ERREUR("Pas de focale en projection carto"); }
void CartoProjOrientation::GetTime(int&, int&, int&, int&, int&, int&) const {
  ZEPRA_ERREUR("Pas d'heure de prise de vue en projection carto.");
}
void CartoProjOrientation::SetTime(int, int, int, int, int, int) {
  ZEPRA_ERREUR("Pas d'heure de prise de vue en projection carto.");
}
void CartoProjOrientation::TransposeImage() {
  ZEPRA_ERREUR("Pas de transposition pour une orientation CARTO");
}

std::unique_ptr<ImageOrientation> CartoProjOrientation::Extract(double c0, double l0, double c1, double l1,
                                                                double pasC, double pasL) const {
  if (!std::isfinite(c0) || !std::isfinite(l0) || !std::isfinite(c1) || !std::isfinite(l1) || c1 < c0 ||
      l1 < l0)
    ZEPRA_ERREUR("CartoProjOrientation : Extract : rectangle [" << N(c0) << ", " << N(c1) << "] x [" << N(l0)
                                                                << ", " << N(l1) << "] invalide");
  if (!std::isfinite(pasC) || !std::isfinite(pasL) || pasC <= 0 || pasL <= 0)
    ZEPRA_ERREUR("CartoProjOrientation : Extract : pas (" << N(pasC) << ", " << N(pasL) << ") invalides");
  const double nc = std::ceil((1 + c1 - c0) / pasC);
  const double nl = std::ceil((1 + l1 - l0) / pasL);
  if (!(nc >= 1 && nc <= INT_MAX && nl >= 1 && nl <= INT_MAX))
    ZEPRA_ERREUR("CartoProjOrientation : Extract : taille " << N(nc) << " x " << N(nl) << " absurde");
  std::unique_ptr<ImageOrientation> copie = MakeCopy(this);
  auto* c = static_cast<CartoProjOrientation*>(copie.get());
  c->m_nbColonnes = static_cast<long long>(nc);
  c->m_nbLignes = static_cast<long long>(nl);
  c->m_x0 = c0 * m_pasX + m_x0;
  c->m_y0 = m_y0 - l0 * m_pasY;
  c->m_pasX = m_pasX * pasC;
  c->m_pasY = m_pasY * pasL;
  c->m_fichier.clear();
  c->VerifieValeurs("Extract");
  return copie;
}

bool CartoProjOrientation::CanBeMappedTo(const ImageOrientation& autre) const {
  const auto* c = dynamic_cast<const CartoProjOrientation*>(&autre);
  return autre.GetOriType() == eORICarto && c && c->m_zone == m_zone;
}

bool CartoProjOrientation::GetTranslation(const ImageOrientation& autre, long& dCol, long& dLin, long& sCol,
                                          long& sLin) const {
  if (!CanBeMappedTo(autre)) return false;
  const auto& o = static_cast<const CartoProjOrientation&>(autre);
  const double rX = o.m_pasX / m_pasX;
  if (!PlancherLong(0.5 + rX, sCol)) return false;
  if (std::fabs(static_cast<double>(o.m_nbColonnes) * (rX - static_cast<double>(sCol))) > 0.1) return false;
  const double rY = o.m_pasY / m_pasY;
  if (!PlancherLong(0.5 + rY, sLin)) return false;
  if (std::fabs(static_cast<double>(o.m_nbLignes) * (rY - static_cast<double>(sLin))) > 0.1) return false;
  // dLin is measured along +Y, against the line direction, while dCol follows the columns: deliberate.
  const double tX = (o.m_x0 - m_x0) / m_pasX;
  const double tY = (o.m_y0 - m_y0) / m_pasY;
  if (!PlancherLong(0.5 + tX, dCol) || !PlancherLong(0.5 + tY, dLin)) return false;
  return std::fabs(tX - static_cast<double>(dCol)) <= 0.1 && std::fabs(tY - static_cast<double>(dLin)) <= 0.1;
}

void CartoProjOrientation::EmpriseCarto(double& xMin, double& yMin, double& xMax, double& yMax) const {
  xMin = m_x0;
  yMax = m_y0;
  xMax = m_x0 + static_cast<double>(m_nbColonnes - 1) * m_pasX;
  yMin = m_y0 - static_cast<double>(m_nbLignes - 1) * m_pasY;
}

void CartoProjOrientation::SetNs(long long colonnes) {
  if (!TailleValide(colonnes))
    ZEPRA_ERREUR("CartoProjOrientation : SetNs : nombre de colonnes " << colonnes << " absurde");
  m_nbColonnes = colonnes;
}

void CartoProjOrientation::SetNl(long long lignes) {
  if (!TailleValide(lignes))
    ZEPRA_ERREUR("CartoProjOrientation : SetNl : nombre de lignes " << lignes << " absurde");
  m_nbLignes = lignes;
}

void CartoProjOrientation::SetPixSize(double pasX, double pasY) {
  if (!std::isfinite(pasX) || !std::isfinite(pasY) || pasX == 0 || pasY == 0)
    ZEPRA_ERREUR("CartoProjOrientation : SetPixSize : pas (" << N(pasX) << ", " << N(pasY) << ") invalide");
  m_pasX = pasX;
  m_pasY = pasY;
}

void CartoProjOrientation::SetZoneLambert(int zone) {
  double y = m_y0;
  VerifieZone(zone, y);
  m_zone = zone;
  m_y0 = y;
}

std::string CartoProjOrientation::DataToString(double x0, double y0, long nbColonnes, long nbLignes,
                                               double pasX, double pasY, std::istream& entree,
                                               std::ostream& sortie) {
  if (std::trunc(y0) <= 999999.0) {
    sortie << "\n\t\tZone Lambert des donnees ?? : ";
    sortie.flush();
    long zone = 0;
    // End of input or a non-number is an error, never a loop or an unset value.
    if (!(entree >> zone))
      ZEPRA_ERREUR(
          "CartoProjOrientation : DataToString : zone Lambert attendue sur l'entree, rien de lisible");
    if (zone < 0 || zone > 4)
      ZEPRA_ERREUR("CartoProjOrientation : DataToString : zone Lambert " << zone << " hors de 0 a 4");
    y0 += static_cast<double>(zone) * Million;
  }
  const char* format = "%f:%f:%ld:%ld:%f:%f";
  const int n = std::snprintf(nullptr, 0, format, x0, y0, nbColonnes, nbLignes, pasX, pasY);
  std::string s(static_cast<size_t>(n) + 1, '\0');
  std::snprintf(&s[0], s.size(), format, x0, y0, nbColonnes, nbLignes, pasX, pasY);
  s.resize(static_cast<size_t>(n));
  return s;
}

std::string CartoProjOrientation::DataToString(double x0, double y0, long nbColonnes, long nbLignes,
                                               double pasX, double pasY) {
  return DataToString(x0, y0, nbColonnes, nbLignes, pasX, pasY, std::cin, std::cout);
}
