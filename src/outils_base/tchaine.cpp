#include "zepra/tchaine.h"

#include <algorithm>
#include <cctype>
#include <cstring>

TChaine::TChaine(const char* texte) : m_texte(texte ? texte : "") {}

TChaine::TChaine(int valeur, tagmint largeur) : m_mint(largeur.val) { *this << valeur; }
TChaine::TChaine(unsigned int valeur, tagmint largeur) : m_mint(largeur.val) { *this << valeur; }
TChaine::TChaine(long valeur, tagmint largeur) : m_mint(largeur.val) { *this << valeur; }
TChaine::TChaine(double valeur) { *this << valeur; }
TChaine TChaine::Double(double valeur) { return TChaine(valeur); }

TChaine& TChaine::operator=(const std::string& texte) {
  m_texte = texte;
  return *this;
}

TChaine& TChaine::operator=(const char* texte) {
  m_texte = texte ? texte : "";
  return *this;
}

TChaine TChaine::operator+(const TChaine& autre) const {
  TChaine r(*this);
  r.m_texte += autre.m_texte;
  return r;
}

TChaine TChaine::operator+(const char* texte) const {
  TChaine r(*this);
  if (texte) r.m_texte += texte;
  return r;
}

TChaine TChaine::operator+(int valeur) const {
  TChaine r(*this);
  return r << valeur;
}

TChaine TChaine::operator+(double valeur) const {
  TChaine r(*this);
  return r << valeur;
}

TChaine TChaine::operator+(tagmint largeur) const {
  TChaine r(*this);
  r.m_mint = largeur.val;
  return r;
}

TChaine& TChaine::operator+=(const TChaine& autre) {
  m_texte += autre.m_texte;
  return *this;
}

TChaine& TChaine::operator<<(const TChaine& autre) {
  m_texte += autre.m_texte;
  return *this;
}

int TChaine::longueur(const char* texte) { return texte ? static_cast<int>(std::strlen(texte)) : 0; }

char TChaine::UpCase(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
char TChaine::LowCase(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

TChaine TChaine::ToUpCase() const {
  TChaine r(*this);
  for (char& c : r.m_texte) c = UpCase(c);
  return r;
}

TChaine TChaine::ToLowCase() const {
  TChaine r(*this);
  for (char& c : r.m_texte) c = LowCase(c);
  return r;
}

void TChaine::Crop(const TChaine& src, int debut, int fin) {
  const int n = src.longueur();
  debut = std::max(0, std::min(debut, n));
  fin = std::max(debut, std::min(fin, n));
  m_texte = src.m_texte.substr(debut, fin - debut);
}

void TChaine::DirFile(TChaine& dir, TChaine& file) const {
  const size_t pos = m_texte.find_last_of("/\\");
  if (pos == std::string::npos) {
    dir = "";
    file = m_texte;
  } else {
    dir = m_texte.substr(0, pos);
    file = m_texte.substr(pos + 1);
  }
}

TChaine TChaine::Extension() const {
  // The last '.' of the whole string, not of the file part: "a.b/c" gives "b/c" (kept as established).
  const size_t pos = m_texte.rfind('.');
  if (pos == std::string::npos) return TChaine();
  return TChaine(m_texte.substr(pos + 1));
}

void TChaine::SetExtension(const TChaine& ext) {
  const std::string e = (!ext.m_texte.empty() && ext.m_texte[0] == '.') ? ext.m_texte : "." + ext.m_texte;
  for (size_t i = m_texte.size(); i-- > 0;) {
    const char c = m_texte[i];
    if (c == '/' || c == '\\') break;
    if (c == '.') {
      m_texte = m_texte.substr(0, i) + e;
      return;
    }
  }
  m_texte += e;
}

TChaine operator+(const char* texte, const TChaine& chaine) { return TChaine(texte) + chaine; }

std::ostream& operator<<(std::ostream& flux, const TChaine& chaine) { return flux << chaine.str(); }
