#include "zepra/fichieratomique.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "zepra/erreur.h"

namespace {

// The list a signal handler walks: fixed places, each path copied in, a lock-free state (0 free, 1
// being filled, 2 noted), so that the handler neither allocates nor locks.
struct Place {
  std::atomic<int> etat{0};
  char chemin[PATH_MAX];
};
constexpr int kPlaces = 256;
Place g_places[kPlaces];

extern "C" void NettoyerPuisTerminer(int signal) {
  for (Place& p : g_places)
    if (p.etat.load() == 2) unlink(p.chemin);
  // SA_RESETHAND put the default action back: the signal, pending until the handler returns, ends the
  // process with the status a caller expects of it.
  raise(signal);
}

}  // namespace

int EnregistrerTemporaire(const std::string& nom) {
  if (nom.size() >= PATH_MAX) return -1;
  for (int i = 0; i < kPlaces; ++i) {
    int libre = 0;
    if (g_places[i].etat.compare_exchange_strong(libre, 1)) {
      std::memcpy(g_places[i].chemin, nom.c_str(), nom.size() + 1);
      g_places[i].etat.store(2);
      return i;
    }
  }
  return -1;
}

void OublierTemporaire(int place) {
  if (place >= 0 && place < kPlaces) g_places[place].etat.store(0);
}

void NettoyerAuxSignaux() {
  struct sigaction a;
  std::memset(&a, 0, sizeof a);
  a.sa_handler = NettoyerPuisTerminer;
  a.sa_flags = SA_RESETHAND;
  sigemptyset(&a.sa_mask);
  for (const int s : {SIGINT, SIGTERM, SIGHUP}) sigaction(s, &a, nullptr);
}

std::string SuffixeTemporaire() {
  static std::atomic<unsigned long> numero{0};
  return ".part" + std::to_string(getpid()) + "_" + std::to_string(numero++);
}

FichierAtomique::FichierAtomique(const std::string& nom, const std::string& tag)
    : m_nom(nom), m_temporaire(nom + SuffixeTemporaire()), m_tag(tag) {
  m_flux.open(m_temporaire, std::ios::out | std::ios::binary | std::ios::trunc);
  if (!m_flux.is_open()) ZEPRA_ERREUR(m_tag << " Impossible de creer le fichier " << m_nom);
  m_place = EnregistrerTemporaire(m_temporaire);
}

FichierAtomique::~FichierAtomique() {
  if (!m_valide) {
    m_flux.close();
    std::remove(m_temporaire.c_str());
  }
  // Only once the temporary name is gone: a signal before finds a name to remove or none.
  OublierTemporaire(m_place);
}

void FichierAtomique::Valider() {
  if (m_valide) return;
  m_flux.close();
  if (m_flux.fail())
    ZEPRA_ERREUR(m_tag << " Echec de l'ecriture du fichier " << m_nom << CauseEchecEcriture());
  if (std::rename(m_temporaire.c_str(), m_nom.c_str()) != 0)
    ZEPRA_ERREUR(m_tag << " Impossible de renommer " << m_temporaire << " en " << m_nom);
  m_valide = true;
  OublierTemporaire(m_place);
  m_place = -1;
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
