// stringpp: the application's string for output-file paths.
#pragma once

#include <ostream>
#include <sstream>
#include <string>

class stringpp {
 public:
  stringpp() = default;
  stringpp(const char* texte) : m_texte(texte ? texte : "") {}  // a null text gives an empty string
  stringpp(const std::string& texte) : m_texte(texte) {}
  virtual ~stringpp() = default;
  stringpp(const stringpp&) = default;
  stringpp& operator=(const stringpp&) = default;

  stringpp operator+(const stringpp& autre) const { return stringpp(m_texte + autre.m_texte); }
  template <class V>
  stringpp& operator<<(const V& valeur) {
    std::ostringstream flux;
    flux << valeur;
    m_texte += flux.str();
    return *this;
  }

  const std::string& str() const { return m_texte; }
  const char* c_str() const { return m_texte.c_str(); }
  bool empty() const { return m_texte.empty(); }
  bool operator==(const stringpp& autre) const { return m_texte == autre.m_texte; }
  bool operator==(const char* texte) const { return m_texte == (texte ? texte : ""); }
  bool operator!=(const stringpp& autre) const { return !(*this == autre); }
  bool operator!=(const char* texte) const { return !(*this == texte); }

  // The part after the last '/' (when there is none, after the last '\\'); the whole string without one.
  static stringpp File(const stringpp& chemin);
  // The part before that separator; empty when there is none.
  static stringpp Dir(const stringpp& chemin);
  // Replaces or adds the extension, as TChaine::SetExtension.
  static void SetExtension(stringpp& chemin, const stringpp& ext);
  // Joins a directory and a file name; Dir and File split the result back.
  static stringpp AdressefromDirFile(const stringpp& dir, const stringpp& file);

 private:
  std::string m_texte;
};

std::ostream& operator<<(std::ostream& flux, const stringpp& chaine);
