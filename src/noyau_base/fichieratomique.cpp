#include "zepra/fichieratomique.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "zepra/erreur.h"

std::string SuffixeTemporaire() {
  static std::atomic<unsigned long> numero{0};
  return ".part" + std::to_string(getpid()) + "_" + std::to_string(numero++);
}

FichierAtomique::FichierAtomique(const std::string& nom, const std::string& tag)
    : m_nom(nom), m_temporaire(nom + SuffixeTemporaire()), m_tag(tag) {
  m_flux.open(m_temporaire, std::ios::out | std::ios::binary | std::ios::trunc);
  if (!m_flux.is_open()) ZEPRA_ERREUR(m_tag << " Impossible de creer le fichier " << m_nom);
}

FichierAtomique::~FichierAtomique() {
  if (!m_valide) {
    m_flux.close();
    std::remove(m_temporaire.c_str());
  }
}

void FichierAtomique::Valider() {
  if (m_valide) return;
  m_flux.close();
  if (m_flux.fail())
    ZEPRA_ERREUR(m_tag << " Echec de l'ecriture du fichier " << m_nom << CauseEchecEcriture());
  if (std::rename(m_temporaire.c_str(), m_nom.c_str()) != 0)
    ZEPRA_ERREUR(m_tag << " Impossible de renommer " << m_temporaire << " en " << m_nom);
  m_valide = true;
}

std::string CauseEchecEcriture() {
  switch (errno) {
    case ENOSPC:
      return " (plus de place sur le disque)";
    case EDQUOT:
      return " (quota de disque depasse)";
    case EFBIG:
      return " (fichier trop grand pour le systeme de fichiers ou la limite du processus)";
    case EIO:
      return " (erreur d'entree-sortie du disque)";
    default:
      return "";
  }
}
