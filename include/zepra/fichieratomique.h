// Writing a file so that it is either complete or absent.
#pragma once

#include <fstream>
#include <string>

// Opens a temporary file beside 'nom'; Valider() closes it, checks that every write succeeded and
// renames it to 'nom'. Destroyed before Valider(), it removes the temporary file. 'tag' names the
// caller in the messages, as "[Classe] (Methode)".
class FichierAtomique {
 public:
  FichierAtomique(const std::string& nom, const std::string& tag);
  ~FichierAtomique();
  FichierAtomique(const FichierAtomique&) = delete;
  FichierAtomique& operator=(const FichierAtomique&) = delete;

  std::ofstream& flux() { return m_flux; }
  const std::string& nom() const { return m_nom; }
  void Valider();

 private:
  std::string m_nom, m_temporaire, m_tag;
  std::ofstream m_flux;
  bool m_valide = false;
  int m_place = -1;  // in the list of temporary files removed on a signal
};

// ".part" and a suffix no other temporary file of this process has, even one of the same name
// opened by another thread: for the temporary files written beside a final name.
std::string SuffixeTemporaire();

// Why the last write failed when the system says so in a way a user can act on (" (plus de place sur
// le disque)", a quota, a size limit, a device error), or "": for the end of a write failure message.
std::string CauseEchecEcriture();

// Temporary files that an interrupted run must not leave behind. EnregistrerTemporaire notes a file
// just created (a place, -1 when the list is full); OublierTemporaire drops it once removed or
// renamed. After NettoyerAuxSignaux, SIGINT, SIGTERM and SIGHUP remove the files noted, then end the
// process by the same signal, as it would have ended without the handler.
int EnregistrerTemporaire(const std::string& nom);
void OublierTemporaire(int place);
void NettoyerAuxSignaux();
