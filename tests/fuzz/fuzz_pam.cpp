// GDAL's side file reader on arbitrary bytes: reads or refuses with an Erreur, never more.
#include <cstdint>
#include <string>

#include "image/pam.h"
#include "zepra/erreur.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  try {
    LireAnnexePam(std::string(reinterpret_cast<const char*>(donnees), taille), "f.aux.xml");
  } catch (const Erreur&) {
  }
  return 0;
}
