#include "zepra/xml.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"
#include "zepra/systeme.h"

namespace {

bool EstBlanc(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::vector<std::string> Composantes(const std::string& chemin) {
  std::vector<std::string> noms;
  std::string courant;
  for (char c : chemin) {
    if (c == '/') {
      if (!courant.empty()) noms.push_back(courant);
      courant.clear();
    } else {
      courant += c;
    }
  }
  if (!courant.empty()) noms.push_back(courant);
  return noms;
}

bool CommencePar(const std::string& s, const std::string& debut) {
  return s.compare(0, debut.size(), debut) == 0;
}

bool FinitPar(const std::string& s, const std::string& fin) {
  return s.size() >= fin.size() && s.compare(s.size() - fin.size(), fin.size(), fin) == 0;
}

// An element name is one word with no markup character in it.
bool NomValide(const std::string& nom) {
  if (nom.empty() || nom[0] == '?' || nom[0] == '!') return false;
  for (char c : nom)
    if (EstBlanc(c) || c == '<' || c == '>' || c == '/') return false;
  return true;
}

// The text the parser would build from these characters: the words of the tokeniser joined by one
// space, line feeds at the end of a word dropped. Storing texts in this form makes write-then-parse
// give back exactly what was written.
std::string Normaliser(const std::string& texte) {
  std::istringstream flux(texte);
  std::string jeton, resultat;
  while (XNodeXML::GetToken(flux, jeton)) {
    while (!jeton.empty() && EstBlanc(jeton.back())) jeton.pop_back();
    if (jeton.empty()) continue;
    if (!resultat.empty()) resultat += ' ';
    resultat += jeton;
  }
  return resultat;
}

// Skips a declaration that starts with this token; false when the input ends inside it.
bool SauterDeclaration(std::istream& flux, std::string jeton) {
  while (!FinitPar(jeton, "?>"))
    if (!XNodeXML::GetToken(flux, jeton)) return false;
  return true;
}

}  // namespace

XNodeXML::XNodeXML(const XNodeXML& autre) : m_nom(autre.m_nom), m_texte(autre.m_texte) {
  m_enfants.reserve(autre.m_enfants.size());
  for (const auto& e : autre.m_enfants) m_enfants.push_back(std::make_unique<XNodeXML>(*e));
}

XNodeXML& XNodeXML::operator=(const XNodeXML& autre) {
  if (this != &autre) {
    XNodeXML copie(autre);
    *this = std::move(copie);
  }
  return *this;
}

XNodeXML& XNodeXML::AjouterEnfant(const std::string& nom) {
  m_enfants.push_back(std::make_unique<XNodeXML>(nom));
  return *m_enfants.back();
}

// Calls f on every element matching noms[niveau..] below (and including) noeud, in document order,
// until f returns true.
template <class N, class F>
void XNodeXML::Parcourir(N& noeud, const std::vector<std::string>& noms, size_t niveau, F&& f) {
  bool arret = false;
  struct Rec {
    static void Go(N& n, const std::vector<std::string>& noms, size_t niveau, F& f, bool& arret) {
      if (arret || n.m_nom != noms[niveau]) return;
      if (niveau + 1 == noms.size()) {
        arret = f(n);
        return;
      }
      for (auto& e : n.m_enfants) {
        Go(*e, noms, niveau + 1, f, arret);
        if (arret) return;
      }
    }
  };
  if (niveau < noms.size()) Rec::Go(noeud, noms, niveau, f, arret);
}

const XNodeXML* XNodeXML::GetNode(const std::string& chemin, unsigned int index) const {
  const XNodeXML* trouve = nullptr;
  unsigned int n = 0;
  Parcourir(*this, Composantes(chemin), 0, [&](const XNodeXML& e) {
    if (n++ < index) return false;
    trouve = &e;
    return true;
  });
  return trouve;
}

XNodeXML* XNodeXML::GetNode(const std::string& chemin, unsigned int index) {
  return const_cast<XNodeXML*>(static_cast<const XNodeXML*>(this)->GetNode(chemin, index));
}

std::string XNodeXML::ReadNode(const std::string& chemin, unsigned int index) const {
  const XNodeXML* n = GetNode(chemin, index);
  if (!n) ZEPRA_ERREUR("[XNodeXML] (ReadNode) Noeud " << chemin << " (index " << index << ") absent");
  return n->m_texte;
}

void XNodeXML::ReadAllNodes(const std::string& chemin, std::vector<const XNodeXML*>& noeuds) const {
  Parcourir(*this, Composantes(chemin), 0, [&](const XNodeXML& e) {
    noeuds.push_back(&e);
    return false;
  });
}

void XNodeXML::ReadArrayNode(const std::string& chemin, std::vector<std::string>& textes) const {
  Parcourir(*this, Composantes(chemin), 0, [&](const XNodeXML& e) {
    textes.push_back(e.m_texte);
    return false;
  });
}

void XNodeXML::WriteNode(const std::string& chemin, const std::string& valeur, unsigned int index) {
  const std::vector<std::string> noms = Composantes(chemin);
  if (noms.empty()) ZEPRA_ERREUR("[XNodeXML] (WriteNode) Chemin vide");
  for (const std::string& n : noms)
    if (!NomValide(n))
      ZEPRA_ERREUR("[XNodeXML] (WriteNode) Nom d'element invalide '" << n << "' dans " << chemin);
  if (valeur.find_first_of("<>") != std::string::npos)
    ZEPRA_ERREUR("[XNodeXML] (WriteNode) Texte '" << valeur << "' de " << chemin
                                                  << " : les caracteres < et > ne peuvent etre ecrits");
  if (m_nom.empty() && m_enfants.empty() && m_texte.empty()) m_nom = noms[0];  // a new document
  if (m_nom != noms[0])
    ZEPRA_ERREUR("[XNodeXML] (WriteNode) Le chemin " << chemin << " ne part pas de l'element " << m_nom);

  if (XNodeXML* n = GetNode(chemin, index)) {
    n->m_texte = Normaliser(valeur);
    return;
  }
  std::vector<const XNodeXML*> existants;
  ReadAllNodes(chemin, existants);
  if (existants.size() != index)
    ZEPRA_ERREUR("[XNodeXML] (WriteNode) Index " << index << " de " << chemin << " : seulement "
                                                 << existants.size() << " element(s)");
  XNodeXML* parent = this;
  std::string prefixe = "/" + noms[0];
  for (size_t i = 1; i + 1 < noms.size(); ++i) {
    prefixe += "/" + noms[i];
    XNodeXML* suivant = GetNode(prefixe, 0);
    parent = suivant ? suivant : &parent->AjouterEnfant(noms[i]);
  }
  if (noms.size() == 1) ZEPRA_ERREUR("[XNodeXML] (WriteNode) Index " << index << " de la racine " << chemin);
  parent->AjouterEnfant(noms.back()).m_texte = Normaliser(valeur);
}

bool XNodeXML::GetToken(std::istream& flux, std::string& jeton) {
  jeton.clear();
  int c = flux.get();
  while (c != EOF && EstBlanc(static_cast<char>(c))) c = flux.get();
  if (c == EOF) return false;
  while (c != EOF) {
    const char ch = static_cast<char>(c);
    if (ch == ' ' || ch == '\t' || ch == '\r') break;
    if (ch == '<' && !jeton.empty()) {
      flux.unget();
      break;
    }
    jeton += ch;
    if (ch == '>') break;
    c = flux.get();
  }
  return true;
}

bool XNodeXML::Read(std::istream& flux) {
  std::string jeton;
  do {
    if (!GetToken(flux, jeton)) return false;
    if (CommencePar(jeton, "<?xml") && !SauterDeclaration(flux, jeton)) return false;
  } while (CommencePar(jeton, "<?xml"));
  return Lire(flux, jeton, 0);
}

bool XNodeXML::Lire(std::istream& flux, const std::string& ouvrante, int profondeur) {
  if (profondeur >= ProfondeurMax) return false;
  if (ouvrante.size() < 3 || ouvrante[0] != '<' || ouvrante.back() != '>') return false;
  const std::string nom = ouvrante.substr(1, ouvrante.size() - 2);
  if (!NomValide(nom)) return false;
  XNodeXML lu(nom);
  const std::string fermante = "</" + nom + ">";
  std::string jeton;
  while (GetToken(flux, jeton)) {
    if (CommencePar(jeton, "</")) {
      if (jeton != fermante) return false;
      *this = std::move(lu);
      return true;
    }
    if (jeton[0] == '<') {
      XNodeXML enfant;
      if (!enfant.Lire(flux, jeton, profondeur + 1)) return false;
      lu.m_enfants.push_back(std::make_unique<XNodeXML>(std::move(enfant)));
      continue;
    }
    // A line feed does not end a token: a word before a line break carries it, and loses it here.
    while (!jeton.empty() && EstBlanc(jeton.back())) jeton.pop_back();
    if (jeton.empty()) continue;
    if (!lu.m_texte.empty()) lu.m_texte += ' ';
    lu.m_texte += jeton;
  }
  return false;  // the input ended before the closing tag
}

void XNodeXML::Write(std::ostream& flux) const {
  flux << '<' << m_nom << '>';
  if (!m_texte.empty())
    flux << ' ' << m_texte << ' ';
  else
    flux << '\n';
  for (const auto& e : m_enfants) e->Write(flux);
  flux << "</" << m_nom << ">\n";
}

bool XParserXML::Parse(const std::string& fichier) {
  m_fichier = fichier;
  std::ifstream flux;
  if (!Systeme::OuvrirLecture(flux, fichier)) {
    m_racine = XNodeXML();
    return false;
  }
  return Parse(flux);
}

bool XParserXML::Parse(std::istream& flux) {
  XNodeXML racine;
  std::string reste;
  const bool ok = racine.Read(flux) && !XNodeXML::GetToken(flux, reste);
  m_racine = ok ? std::move(racine) : XNodeXML();
  return ok;
}

namespace {

std::string SansBlancsFinaux(std::string s) {
  while (!s.empty() && EstBlanc(s.back())) s.pop_back();
  return s;
}

// Whole text as one integer in [min, max] (base 10, or C prefixes when base is 0).
bool Entier(const std::string& texte, long long min, long long max, int base, long long& v) {
  const std::string t = SansBlancsFinaux(texte);
  if (t.empty()) return false;
  errno = 0;
  char* fin = nullptr;
  const long long x = std::strtoll(t.c_str(), &fin, base);
  if (errno != 0 || fin == t.c_str() || *fin != '\0' || x < min || x > max) return false;
  v = x;
  return true;
}

bool Reel(const std::string& texte, double& v) {
  const std::string t = SansBlancsFinaux(texte);
  if (t.empty()) return false;
  char* fin = nullptr;
  const double x = std::strtod(t.c_str(), &fin);
  if (fin == t.c_str() || *fin != '\0' || !std::isfinite(x)) return false;
  v = x;
  return true;
}

std::vector<std::string> Separer(const std::string& texte, char sep) {
  std::vector<std::string> parties(1);
  for (char c : texte) {
    if (c == sep)
      parties.emplace_back();
    else
      parties.back() += c;
  }
  return parties;
}

}  // namespace

std::string XParserXML::ReadNode(const std::string& chemin, unsigned int index) const {
  const XNodeXML* n = m_racine.GetNode(chemin, index);
  if (!n)
    ZEPRA_ERREUR("[XParserXML] (ReadNode) Noeud " << chemin << " (index " << index << ") absent du fichier "
                                                  << m_fichier);
  return n->GetTexte();
}

#define ZEPRA_XML_ILLISIBLE(methode, attendu)                                                 \
  ZEPRA_ERREUR("[XParserXML] (" << methode << ") Texte '" << texte << "' du noeud " << chemin \
                                << " du fichier " << m_fichier << " : " << attendu << " attendu")

int XParserXML::ReadNodeAsInt(const std::string& chemin, unsigned int index) const {
  const std::string texte = ReadNode(chemin, index);
  long long v;
  if (!Entier(texte, INT_MIN, INT_MAX, 10, v)) ZEPRA_XML_ILLISIBLE("ReadNodeAsInt", "un entier");
  return static_cast<int>(v);
}

unsigned int XParserXML::ReadNodeAsUInt32(const std::string& chemin, unsigned int index) const {
  const std::string texte = ReadNode(chemin, index);
  long long v;
  // "-1" would wrap to a huge value through "%u": refused.
  if (texte.find('-') != std::string::npos || !Entier(texte, 0, UINT_MAX, 10, v))
    ZEPRA_XML_ILLISIBLE("ReadNodeAsUInt32", "un entier positif sur 32 bits");
  return static_cast<unsigned int>(v);
}

double XParserXML::ReadNodeAsDouble(const std::string& chemin, unsigned int index) const {
  const std::string texte = ReadNode(chemin, index);
  double v;
  if (!Reel(texte, v)) ZEPRA_XML_ILLISIBLE("ReadNodeAsDouble", "un reel fini");
  return v;
}

bool XParserXML::ReadNodeAsBool(const std::string& chemin, unsigned int index) const {
  const std::string texte = ReadNode(chemin, index);
  std::string maj;
  for (char c : texte) maj += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  if (maj == "VRAI" || maj == "TRUE") return true;
  if (maj == "FAUX" || maj == "FALSE") return false;
  ZEPRA_XML_ILLISIBLE("ReadNodeAsBool", "VRAI, TRUE, FAUX ou FALSE");
}

T3D<unsigned char> XParserXML::ReadNodeAsRGB(const std::string& chemin, unsigned int index) const {
  const std::string texte = ReadNode(chemin, index);
  const std::vector<std::string> p = Separer(texte, ',');
  long long v[3];
  // Base 0, as "%i".
  if (p.size() != 3 || !Entier(p[0], 0, 255, 0, v[0]) || !Entier(p[1], 0, 255, 0, v[1]) ||
      !Entier(p[2], 0, 255, 0, v[2]))
    ZEPRA_XML_ILLISIBLE("ReadNodeAsRGB", "r,g,b (entiers de 0 a 255)");
  return T3D<unsigned char>(static_cast<unsigned char>(v[0]), static_cast<unsigned char>(v[1]),
                            static_cast<unsigned char>(v[2]));
}

TPoint2D<double> XParserXML::ReadNodeAsPoint2D(const std::string& chemin, unsigned int index) const {
  const std::string texte = ReadNode(chemin, index);
  const std::vector<std::string> p = Separer(texte, ',');
  double v[2];
  if (p.size() != 2 || !Reel(p[0], v[0]) || !Reel(p[1], v[1]))
    ZEPRA_XML_ILLISIBLE("ReadNodeAsPoint2D", "x,y");
  return TPoint2D<double>(v[0], v[1]);
}

T3D<double> XParserXML::ReadNodeAsPoint3D(const std::string& chemin, unsigned int index) const {
  const std::string texte = ReadNode(chemin, index);
  const std::vector<std::string> p = Separer(texte, ',');
  double v[3];
  if (p.size() != 3 || !Reel(p[0], v[0]) || !Reel(p[1], v[1]) || !Reel(p[2], v[2]))
    ZEPRA_XML_ILLISIBLE("ReadNodeAsPoint3D", "x,y,z");
  return T3D<double>(v[0], v[1], v[2]);
}

void XParserXML::ReadArrayNodeAsInt(const std::string& chemin, std::vector<int>& valeurs) const {
  std::vector<std::string> textes;
  ReadArrayNode(chemin, textes);
  for (const std::string& texte : textes) {
    long long v;
    if (!Entier(texte, INT_MIN, INT_MAX, 10, v)) ZEPRA_XML_ILLISIBLE("ReadArrayNodeAsInt", "un entier");
    valeurs.push_back(static_cast<int>(v));
  }
}

void XParserXML::ReadArrayNodeAsUInt32(const std::string& chemin, std::vector<unsigned int>& valeurs) const {
  std::vector<std::string> textes;
  ReadArrayNode(chemin, textes);
  for (const std::string& texte : textes) {
    long long v;
    if (texte.find('-') != std::string::npos || !Entier(texte, 0, UINT_MAX, 10, v))
      ZEPRA_XML_ILLISIBLE("ReadArrayNodeAsUInt32", "un entier positif sur 32 bits");
    valeurs.push_back(static_cast<unsigned int>(v));
  }
}

void XParserXML::ReadArrayNodeAsDouble(const std::string& chemin, std::vector<double>& valeurs) const {
  std::vector<std::string> textes;
  ReadArrayNode(chemin, textes);
  for (const std::string& texte : textes) {
    double v;
    if (!Reel(texte, v)) ZEPRA_XML_ILLISIBLE("ReadArrayNodeAsDouble", "un reel fini");
    valeurs.push_back(v);
  }
}

#undef ZEPRA_XML_ILLISIBLE

XParserXML XParserXML::FindSubParser(const std::string& chemin, unsigned int index) const {
  const XNodeXML* n = m_racine.GetNode(chemin, index);
  if (!n)
    ZEPRA_ERREUR("[XParserXML] (FindSubParser) Noeud " << chemin << " (index " << index
                                                       << ") absent du fichier " << m_fichier);
  return XParserXML(*n, m_fichier);
}

void XParserXML::FindAllSubParsers(const std::string& chemin, std::vector<XParserXML>& parsers) const {
  std::vector<const XNodeXML*> noeuds;
  m_racine.ReadAllNodes(chemin, noeuds);
  for (const XNodeXML* n : noeuds) parsers.emplace_back(*n, m_fichier);
}

void XParserXML::Write(std::ostream& flux, const std::string& feuilleStyle) const {
  flux << "<?xml version=\"1.0\"?>\n";
  if (!feuilleStyle.empty()) flux << "<?xml-stylesheet type=\"text/xsl\" href=\"" << feuilleStyle << "\"?>\n";
  m_racine.Write(flux);
}

void XParserXML::Write(const std::string& fichier, const std::string& feuilleStyle) const {
  if (!NomValide(m_racine.GetNom()))
    ZEPRA_ERREUR("[XParserXML] (Write) Document sans element racine, fichier " << fichier << " non ecrit");
  FichierAtomique sortie(fichier, "[XParserXML] (Write)");
  Write(sortie.flux(), feuilleStyle);
  sortie.Valider();
}
