// TChaine: the library's string, with a minimum width for the numbers appended to it.
#pragma once

#include <ostream>
#include <sstream>
#include <string>

// Carries a minimum width into the TChaine constructors.
struct tagmint {
  int val;
};
inline tagmint mint(int largeur) { return tagmint{largeur}; }

class TChaine {
 public:
  TChaine() = default;
  TChaine(const char* texte);  // a null text gives an empty string
  TChaine(const std::string& texte) : m_texte(texte) {}
  TChaine(tagmint largeur) : m_mint(largeur.val) {}
  TChaine(int valeur, tagmint largeur);
  TChaine(unsigned int valeur, tagmint largeur);
  TChaine(long valeur, tagmint largeur);
  explicit TChaine(double valeur);
  static TChaine Double(double valeur);

  operator const char*() const { return m_texte.c_str(); }
  const std::string& str() const { return m_texte; }
  const char* c_str() const { return m_texte.c_str(); }
  int GetMint() const { return m_mint; }

  TChaine& operator=(const std::string& texte);
  TChaine& operator=(const char* texte);

  TChaine operator+(const TChaine& autre) const;
  TChaine operator+(const char* texte) const;
  TChaine operator+(int valeur) const;
  TChaine operator+(double valeur) const;
  TChaine operator+(tagmint largeur) const;  // the same text with another minimum width

  TChaine& operator+=(const TChaine& autre);
  TChaine& operator+=(int valeur) { return *this << valeur; }
  TChaine& operator+=(unsigned int valeur) { return *this << valeur; }
  TChaine& operator+=(float valeur) { return *this << valeur; }
  TChaine& operator+=(double valeur) { return *this << valeur; }

  // Appends another string as it stands (no width applied).
  TChaine& operator<<(const TChaine& autre);
  // Appends a value formatted by a stream filled with '0' up to the minimum width.
  template <class V>
  TChaine& operator<<(const V& valeur) {
    std::ostringstream flux;
    flux.fill('0');
    flux.width(m_mint);
    flux << valeur;
    m_texte += flux.str();
    return *this;
  }

  int longueur() const { return static_cast<int>(m_texte.size()); }
  static int longueur(const char* texte);
  static char UpCase(char c);
  static char LowCase(char c);
  TChaine ToUpCase() const;
  TChaine ToLowCase() const;

  // This string becomes the characters of src from debut (included) to fin (excluded).
  void Crop(const TChaine& src, int debut, int fin);
  // Splits at the last '/' or '\\'; without a separator dir is empty and file the whole string.
  void DirFile(TChaine& dir, TChaine& file) const;
  // Characters after the last '.' of the whole string, separators included (kept as established).
  TChaine Extension() const;
  // Replaces the extension of the file part, or adds one.
  void SetExtension(const TChaine& ext);

  bool operator==(const TChaine& autre) const { return m_texte == autre.m_texte; }
  bool operator==(const char* texte) const { return m_texte == (texte ? texte : ""); }
  bool operator!=(const TChaine& autre) const { return !(*this == autre); }
  bool operator!=(const char* texte) const { return !(*this == texte); }
  bool operator<(const TChaine& autre) const { return m_texte < autre.m_texte; }

 private:
  std::string m_texte;
  int m_mint = 0;
};

TChaine operator+(const char* texte, const TChaine& chaine);
std::ostream& operator<<(std::ostream& flux, const TChaine& chaine);
