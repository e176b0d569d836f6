// GDAL's side file NAME.aux.xml. GDAL writes it with attributes, entities and any text of PROJ in
// <SRS>, which the library's own XML reader (orientation files: no attributes, words joined by one
// space) does not take; so a small reader of its own, keeping texts whole.
#include "pam.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <sys/stat.h>

#include "zepra/erreur.h"

namespace {

#define ZEPRA_PAM(fichier, quoi) \
  ZEPRA_ERREUR("[AnnexePam] (Lire) Fichier " << fichier << " : " << quoi << ".")

struct Element {
  std::string nom, texte;
  std::vector<std::pair<std::string, std::string>> attributs;
  std::vector<Element> enfants;

  const Element* Enfant(const char* n) const {
    for (const Element& e : enfants)
      if (e.nom == n) return &e;
    return nullptr;
  }
  const std::string* Attribut(const char* n) const {
    for (const auto& a : attributs)
      if (a.first == n) return &a.second;
    return nullptr;
  }
};

// A recursive reader of one document: elements, attributes, character and the five named entities,
// CDATA, comments and processing instructions. No DTD: GDAL never writes one.
class Lecteur {
 public:
  Lecteur(const std::string& t, const std::string& fichier) : m_t(t), m_fichier(fichier) {}

  Element Document() {
    if (m_t.compare(0, 3, "\xEF\xBB\xBF") == 0) m_i = 3;
    Divers();
    if (Voir("<!")) Refuser("declaration inattendue");
    if (!Voir("<")) Refuser("un element est attendu");
    Element racine = Lire(0);
    Divers();
    if (m_i < m_t.size()) Refuser("texte apres l'element racine");
    return racine;
  }

 private:
  // Deeper documents are refused before they can exhaust the stack.
  static constexpr int kProfondeurMax = 64;

  [[noreturn]] void Refuser(const char* quoi) const {
    long ligne = 1;
    for (size_t k = 0; k < m_i && k < m_t.size(); ++k) ligne += m_t[k] == '\n';
    ZEPRA_PAM(m_fichier, "XML mal forme, " << quoi << " (ligne " << ligne << ")");
  }
  bool Voir(const char* s) const { return m_t.compare(m_i, std::char_traits<char>::length(s), s) == 0; }
  static bool Blanc(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
  void Blancs() {
    while (m_i < m_t.size() && Blanc(m_t[m_i])) ++m_i;
  }
  // Skips up to and past 'fin'.
  void Jusqua(const char* fin, const char* quoi) {
    const size_t k = m_t.find(fin, m_i);
    if (k == std::string::npos) Refuser(quoi);
    m_i = k + std::char_traits<char>::length(fin);
  }
  // Blanks, comments and processing instructions, between elements.
  void Divers() {
    for (;;) {
      Blancs();
      if (Voir("<?"))
        Jusqua("?>", "instruction non terminee");
      else if (Voir("<!--"))
        Jusqua("-->", "commentaire non termine");
      else
        return;
    }
  }
  std::string Nom() {
    const size_t d = m_i;
    while (m_i < m_t.size() && !Blanc(m_t[m_i]) && m_t[m_i] != '>' && m_t[m_i] != '/' && m_t[m_i] != '=' &&
           m_t[m_i] != '<')
      ++m_i;
    if (m_i == d) Refuser("nom attendu");
    return m_t.substr(d, m_i - d);
  }
  // Appends the text at m_i up to 'fin' (not included), entities replaced.
  void Texte(std::string& s, char fin) {
    while (m_i < m_t.size() && m_t[m_i] != fin) {
      if (m_t[m_i] != '&') {
        s += m_t[m_i++];
        continue;
      }
      const size_t pv = m_t.find(';', m_i);
      if (pv == std::string::npos || pv - m_i > 10) Refuser("entite non terminee");
      const std::string e = m_t.substr(m_i + 1, pv - m_i - 1);
      m_i = pv + 1;
      if (e == "lt") {
        s += '<';
      } else if (e == "gt") {
        s += '>';
      } else if (e == "amp") {
        s += '&';
      } else if (e == "quot") {
        s += '"';
      } else if (e == "apos") {
        s += '\'';
      } else if (e.size() > 1 && e[0] == '#') {
        const bool hexa = e[1] == 'x';
        const std::string chiffres = e.substr(hexa ? 2 : 1);
        if (chiffres.empty() ||
            chiffres.find_first_not_of(hexa ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
          Refuser("reference de caractere invalide");
        const unsigned long c = std::strtoul(chiffres.c_str(), nullptr, hexa ? 16 : 10);
        if (c == 0 || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
          Refuser("reference de caractere invalide");
        Utf8(s, static_cast<unsigned>(c));
      } else {
        Refuser("entite inconnue");
      }
    }
  }
  static void Utf8(std::string& s, unsigned c) {
    if (c < 0x80) {
      s += static_cast<char>(c);
    } else if (c < 0x800) {
      s += static_cast<char>(0xC0 | (c >> 6));
      s += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      s += static_cast<char>(0xE0 | (c >> 12));
      s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      s += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      s += static_cast<char>(0xF0 | (c >> 18));
      s += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      s += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  // The element at m_i ('<' and a name).
  Element Lire(int profondeur) {
    if (profondeur >= kProfondeurMax) Refuser("elements imbriques trop profondement");
    Element e;
    ++m_i;
    e.nom = Nom();
    for (;;) {
      Blancs();
      if (Voir("/>")) {
        m_i += 2;
        return e;
      }
      if (Voir(">")) {
        ++m_i;
        break;
      }
      std::string nom = Nom();
      Blancs();
      if (!Voir("=")) Refuser("'=' attendu apres un nom d'attribut");
      ++m_i;
      Blancs();
      if (m_i >= m_t.size() || (m_t[m_i] != '"' && m_t[m_i] != '\'')) Refuser("valeur d'attribut attendue");
      const char guillemet = m_t[m_i++];
      std::string valeur;
      Texte(valeur, guillemet);
      if (m_i >= m_t.size()) Refuser("valeur d'attribut non terminee");
      ++m_i;
      e.attributs.emplace_back(std::move(nom), std::move(valeur));
    }
    for (;;) {
      Texte(e.texte, '<');
      if (m_i >= m_t.size()) Refuser("element non termine");
      if (Voir("</")) {
        m_i += 2;
        if (Nom() != e.nom) Refuser("balise fermante differente de l'ouvrante");
        Blancs();
        if (!Voir(">")) Refuser("'>' attendu");
        ++m_i;
        return e;
      }
      if (Voir("<!--")) {
        Jusqua("-->", "commentaire non termine");
      } else if (Voir("<![CDATA[")) {
        const size_t d = m_i + 9;
        Jusqua("]]>", "CDATA non termine");
        e.texte.append(m_t, d, m_i - 3 - d);
      } else if (Voir("<?")) {
        Jusqua("?>", "instruction non terminee");
      } else if (Voir("<!")) {
        Refuser("declaration inattendue");
      } else {
        e.enfants.push_back(Lire(profondeur + 1));
      }
    }
  }

  const std::string& m_t;
  const std::string& m_fichier;
  size_t m_i = 0;
};

std::string SansBlancs(const std::string& s) {
  const size_t d = s.find_first_not_of(" \t\r\n");
  if (d == std::string::npos) return "";
  return s.substr(d, s.find_last_not_of(" \t\r\n") - d + 1);
}

// A whole text as one real number (NaN and infinities as GDAL writes them); false otherwise.
bool Reel(const std::string& texte, double& v) {
  const std::string t = SansBlancs(texte);
  if (t.empty()) return false;
  errno = 0;
  char* fin = nullptr;
  v = std::strtod(t.c_str(), &fin);
  return fin == t.c_str() + t.size() && errno != ERANGE;
}

}  // namespace

AnnexePam LireAnnexePam(const std::string& contenu, const std::string& fichier) {
  AnnexePam pam;
  pam.fichier = fichier;
  const Element racine = Lecteur(contenu, fichier).Document();
  if (racine.nom != "PAMDataset")
    ZEPRA_PAM(fichier, "element racine <" << racine.nom << ">, <PAMDataset> attendu");
  if (const Element* srs = racine.Enfant("SRS")) pam.srs = SansBlancs(srs->texte);
  if (const Element* gt = racine.Enfant("GeoTransform")) {
    std::istringstream s(gt->texte);
    std::string nombre;
    int n = 0;
    while (std::getline(s, nombre, ',')) {
      if (n == 6 || !Reel(nombre, pam.gt[n]) || !std::isfinite(pam.gt[n]))
        ZEPRA_PAM(fichier, "<GeoTransform> '" << SansBlancs(gt->texte) << "' : six reels finis attendus");
      ++n;
    }
    if (n != 6)
      ZEPRA_PAM(fichier, "<GeoTransform> '" << SansBlancs(gt->texte) << "' : six reels finis attendus");
    pam.geotransform = true;
  }
  for (const Element& b : racine.enfants) {
    if (b.nom != "PAMRasterBand") continue;
    const Element* nd = b.Enfant("NoDataValue");
    if (!nd) continue;
    const std::string* bande = b.Attribut("band");
    double numero = 0;
    if (!bande || !Reel(*bande, numero) || !(numero >= 1 && numero <= 65535) || numero != std::floor(numero))
      ZEPRA_PAM(fichier, "<PAMRasterBand> sans numero de bande (band=\"1\" ...)");
    AnnexePam::NoData v;
    v.bande = static_cast<int>(numero);
    v.texte = SansBlancs(nd->texte);
    if (!Reel(v.texte, v.valeur))
      ZEPRA_PAM(fichier,
                "<NoDataValue> '" << v.texte << "' de la bande " << v.bande << " : un reel est attendu");
    pam.nodata.push_back(v);
  }
  return pam;
}

AnnexePam LireAnnexePam(const std::string& image) {
  const std::string nom = image + ".aux.xml";
  struct stat etat;
  if (stat(nom.c_str(), &etat) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return AnnexePam();
    ZEPRA_PAM(nom, "illisible");
  }
  // A pipe or a device would block the read or never end.
  if (!S_ISREG(etat.st_mode)) ZEPRA_PAM(nom, "pas un fichier ordinaire");
  if (static_cast<unsigned long long>(etat.st_size) > TailleMaxPam)
    ZEPRA_PAM(nom, etat.st_size << " octets, plus que les " << TailleMaxPam << " d'une annexe de GDAL");
  std::ifstream f(nom, std::ios::binary);
  std::string contenu(static_cast<size_t>(etat.st_size), '\0');
  if (!f || !f.read(&contenu[0], static_cast<std::streamsize>(contenu.size())) || f.get() != EOF)
    ZEPRA_PAM(nom, "illisible");
  return LireAnnexePam(contenu, nom);
}
