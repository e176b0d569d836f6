#include "zepra/erreur.h"

#include "zepra/systeme.h"

namespace {
const char kDebutLieu[] = " (Fichier : ";
}

void Erreur::Message() const { Systeme::Ecrire(m_message.str()); }

std::string Erreur::Phrase() const {
  const std::string& t = m_message.str();
  const size_t debut = t.rfind(kDebutLieu);
  if (debut == std::string::npos || t.back() != ')' || t.find(" ; ligne ", debut) == std::string::npos)
    return t;
  // Some messages end their own line before the location.
  size_t fin = debut;
  while (fin > 0 && (t[fin - 1] == '\n' || t[fin - 1] == ' ')) --fin;
  return t.substr(0, fin);
}

namespace zepra_detail {
void LeverErreur(const std::string& texte, const char* fichier, int ligne) {
  std::ostringstream message;
  message << texte << kDebutLieu << fichier << " ; ligne " << ligne << ")";
  throw Erreur(TChaine(message.str()));
}
}  // namespace zepra_detail
