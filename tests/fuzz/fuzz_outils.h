// What the image fuzz targets share: the input as a file of this process, and the check that an
// image read without Erreur is written back and reads the same.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>

#include "zepra/ttimage.h"

namespace fuzz {

// /dev/shm/fuzz_<cible>_<pid><suffixe> (in /tmp when /dev/shm cannot be written).
inline std::string NomTemporaire(const char* cible, const char* suffixe) {
  const char* dossier = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  return std::string(dossier) + "/fuzz_" + cible + "_" + std::to_string(getpid()) + suffixe;
}

// Writes the input to NomTemporaire(cible, suffixe) and returns that name.
inline std::string EnFichier(const char* cible, const char* suffixe, const uint8_t* donnees, size_t taille) {
  const std::string nom = NomTemporaire(cible, suffixe);
  std::ofstream(nom, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(donnees), static_cast<std::streamsize>(taille));
  return nom;
}

// Writes im to 'copie' and stops the run unless it reads back the same.
template <class T>
void RelireIdentique(const TTImage<T>& im, const std::string& copie) {
  im.Sauver(copie.c_str());
  const TTImage<T> relu(copie.c_str());
  if (relu.GetTaille() != im.GetTaille() || relu.GetNbCanaux() != im.GetNbCanaux() ||
      !std::equal(im.begin(), im.end(), relu.begin()))
    __builtin_trap();
}

}  // namespace fuzz
