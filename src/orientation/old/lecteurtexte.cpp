#include "lecteurtexte.h"

#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "zepra/erreur.h"
#include "zepra/systeme.h"
#include "zepra/tchaine.h"
#include "zepra/xml.h"

namespace {
bool Blanc(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
bool Chiffre(char c) { return c >= '0' && c <= '9'; }
}  // namespace

bool ParserXml(const std::string& contenu, const std::string& fichier, XParserXML& parser) {
  std::istringstream flux(contenu);
  XParserXML lu;
  if (!lu.Parse(flux)) return false;
  parser = XParserXML(lu.GetRacine(), fichier);
  return true;
}

std::vector<std::string> NomsVoisins(const std::string& image, const std::vector<const char*>& extensions) {
  std::vector<std::string> noms;
  for (const char* ext : extensions) {
    const TChaine bas(ext), haut = bas.ToUpCase();
    for (const TChaine& forme : {bas, haut, TChaine(haut.str().substr(0, 1) + bas.str().substr(1))}) {
      TChaine nom(image);
      nom.SetExtension(forme);
      noms.push_back(nom.str());
    }
  }
  return noms;
}

bool LecteurTexte::Charger(const char* fichier, std::string& contenu, const char* tag) {
  return ChargerSiPresent(fichier, contenu, tag) == Etat::kLu;
}

LecteurTexte::Etat LecteurTexte::ChargerSiPresent(const char* fichier, std::string& contenu,
                                                  const char* tag) {
  if (!fichier) return Etat::kAbsent;
  if (!Systeme::Ouvrable(fichier)) return Etat::kIllisible;
  std::ifstream f(fichier, std::ios::binary);
  if (!f.is_open()) return Etat::kAbsent;
  struct stat etat;
  if (stat(fichier, &etat) != 0 || !S_ISREG(etat.st_mode)) return Etat::kIllisible;
  f.seekg(0, std::ios::end);
  const std::streamoff taille = f.tellg();
  if (taille < 0) return Etat::kIllisible;
  if (static_cast<unsigned long long>(taille) > TailleMax)
    ZEPRA_ERREUR(tag << " Fichier " << fichier << " de " << taille
                     << " octets : trop gros pour une orientation (plus de " << TailleMax << " octets)");
  f.seekg(0, std::ios::beg);
  contenu.assign(static_cast<size_t>(taille), '\0');
  f.read(&contenu[0], taille);
  return f.gcount() == taille ? Etat::kLu : Etat::kIllisible;
}

void LecteurTexte::SauterBlancs() {
  while (m_pos < m_texte.size() && Blanc(m_texte[m_pos])) ++m_pos;
}

bool LecteurTexte::Fin() {
  SauterBlancs();
  return m_pos >= m_texte.size();
}

bool LecteurTexte::Mot(std::string& mot, size_t max) {
  mot.clear();
  SauterBlancs();
  while (m_pos < m_texte.size() && !Blanc(m_texte[m_pos]) && mot.size() < max) mot += m_texte[m_pos++];
  return !mot.empty();
}

bool LecteurTexte::CaractereNonBlanc(char& c) {
  SauterBlancs();
  if (m_pos >= m_texte.size()) return false;
  c = m_texte[m_pos++];
  return true;
}

bool LecteurTexte::Entier(long long& v) {
  SauterBlancs();
  size_t p = m_pos;
  if (p < m_texte.size() && (m_texte[p] == '+' || m_texte[p] == '-')) ++p;
  const size_t debutChiffres = p;
  while (p < m_texte.size() && Chiffre(m_texte[p])) ++p;
  if (p == debutChiffres) return false;
  const std::string t = m_texte.substr(m_pos, p - m_pos);
  errno = 0;
  const long long x = std::strtoll(t.c_str(), nullptr, 10);
  if (errno == ERANGE) return false;
  v = x;
  m_pos = p;
  return true;
}

bool LecteurTexte::Reel(double& v, int puissance10) {
  SauterBlancs();
  size_t p = m_pos;
  std::string mantisse;
  if (p < m_texte.size() && (m_texte[p] == '+' || m_texte[p] == '-')) mantisse += m_texte[p++];
  size_t chiffres = 0;
  while (p < m_texte.size() && Chiffre(m_texte[p])) mantisse += m_texte[p++], ++chiffres;
  if (p < m_texte.size() && m_texte[p] == '.') {
    mantisse += m_texte[p++];
    while (p < m_texte.size() && Chiffre(m_texte[p])) mantisse += m_texte[p++], ++chiffres;
  }
  if (chiffres == 0) return false;
  // An exponent only when digits follow the 'e' (and its sign).
  long long exposant = 0;
  if (p < m_texte.size() && (m_texte[p] == 'e' || m_texte[p] == 'E')) {
    size_t q = p + 1;
    bool negatif = false;
    if (q < m_texte.size() && (m_texte[q] == '+' || m_texte[q] == '-')) negatif = m_texte[q++] == '-';
    if (q < m_texte.size() && Chiffre(m_texte[q])) {
      while (q < m_texte.size() && Chiffre(m_texte[q])) {
        // Beyond any double either way: saturate, the value will be refused or be zero.
        if (exposant < 100000) exposant = exposant * 10 + (m_texte[q] - '0');
        ++q;
      }
      if (negatif) exposant = -exposant;
      p = q;
    }
  }
  exposant += puissance10;
  const std::string texte = mantisse + "e" + std::to_string(exposant);
  const double x = std::strtod(texte.c_str(), nullptr);  // correctly rounded: the one rounding
  if (!std::isfinite(x)) return false;
  v = x;
  m_pos = p;
  return true;
}

namespace {

// The decimal text "d.ddde[+-]x" (as "%e" writes it) multiplied by 10^puissance10, in plain notation
// unless the exponent is very large or small.
std::string Decaler(const std::string& scientifique, int puissance10) {
  std::string s = scientifique;
  std::string signe;
  if (s[0] == '-') {
    signe = "-";
    s.erase(0, 1);
  }
  const size_t e = s.find('e');
  std::string chiffres = s.substr(0, e);
  if (chiffres.size() > 1) chiffres.erase(1, 1);  // the point
  while (chiffres.size() > 1 && chiffres.back() == '0') chiffres.pop_back();
  const long exposant = std::strtol(s.c_str() + e + 1, nullptr, 10) + puissance10;
  const long n = static_cast<long>(chiffres.size());
  if (chiffres == "0") return signe + "0";
  if (exposant > 30 || exposant < -30) {
    std::string r = signe + chiffres.substr(0, 1);
    if (n > 1) r += "." + chiffres.substr(1);
    return r + "e" + std::to_string(exposant);
  }
  const long entiers = exposant + 1;  // digits before the point
  if (entiers <= 0) return signe + "0." + std::string(static_cast<size_t>(-entiers), '0') + chiffres;
  if (entiers >= n) return signe + chiffres + std::string(static_cast<size_t>(entiers - n), '0');
  return signe + chiffres.substr(0, static_cast<size_t>(entiers)) + "." +
         chiffres.substr(static_cast<size_t>(entiers));
}

}  // namespace

std::string TexteExact(double v, int puissance10) {
  return TexteRelu(v, puissance10, [v](double lu) { return lu == v; });
}

std::string TexteRelu(double v, int puissance10, const std::function<bool(double)>& accepte) {
  // The fewest significant digits of v whose reading is accepted; 17 digits read back to v itself.
  char tampon[64];
  for (int p = 1; p <= 17; ++p) {
    std::snprintf(tampon, sizeof tampon, "%.*e", p - 1, v);
    if (accepte(std::strtod(tampon, nullptr))) return Decaler(tampon, puissance10);
  }
  return "";
}
