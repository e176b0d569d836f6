#include "zepra/erreur.h"

#include "zepra/systeme.h"

void Erreur::Message() const { Systeme::Ecrire(m_message.str()); }

namespace zepra_detail {
void LeverErreur(const std::string& texte, const char* fichier, int ligne) {
  std::ostringstream message;
  message << texte << " (Fichier : " << fichier << " ; ligne " << ligne << ")";
  throw Erreur(TChaine(message.str()));
}
}  // namespace zepra_detail
