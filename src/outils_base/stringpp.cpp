#include "zepra/stringpp.h"

#include "zepra/tchaine.h"

namespace {
size_t DernierSeparateur(const std::string& s) {
  const size_t pos = s.rfind('/');
  return pos != std::string::npos ? pos : s.rfind('\\');
}
}  // namespace

stringpp stringpp::File(const stringpp& chemin) {
  const size_t pos = DernierSeparateur(chemin.m_texte);
  return pos == std::string::npos ? chemin : stringpp(chemin.m_texte.substr(pos + 1));
}

stringpp stringpp::Dir(const stringpp& chemin) {
  const size_t pos = DernierSeparateur(chemin.m_texte);
  return pos == std::string::npos ? stringpp() : stringpp(chemin.m_texte.substr(0, pos));
}

void stringpp::SetExtension(stringpp& chemin, const stringpp& ext) {
  TChaine t(chemin.m_texte);
  t.SetExtension(TChaine(ext.m_texte));
  chemin.m_texte = t.str();
}

stringpp stringpp::AdressefromDirFile(const stringpp& dir, const stringpp& file) {
  if (dir.m_texte.empty()) return file;
  const char fin = dir.m_texte.back();
  if (fin == '/' || fin == '\\') return stringpp(dir.m_texte + file.m_texte);
  return stringpp(dir.m_texte + "/" + file.m_texte);
}

std::ostream& operator<<(std::ostream& flux, const stringpp& chaine) { return flux << chaine.str(); }
