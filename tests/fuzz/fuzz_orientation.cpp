// Orientation files on arbitrary bytes, under each of the three extensions: read or refused with an
// Erreur; what is read writes and reads back to the same numbers.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "zepra/cartoproj.h"
#include "zepra/erreur.h"
#include "zepra/orientation.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  const std::string base = "/tmp/fuzz_orientation_" + std::to_string(getpid());
  for (const char* ext : {".ori", ".xml", ".hdr"}) {
    const std::string nom = base + ext;
    {
      std::ofstream f(nom, std::ios::binary);
      f.write(reinterpret_cast<const char*>(donnees), static_cast<std::streamsize>(taille));
    }
    try {
      OrientationOld o(nom.c_str());
      const std::string sortie = base + "_sortie.ori";
      o.Sauver(sortie.c_str());
      const OrientationOld relu(sortie.c_str());
      const auto* a = static_cast<const CartoProjOrientation*>(o.GetInternalImageOrientation());
      const auto* b = static_cast<const CartoProjOrientation*>(relu.GetInternalImageOrientation());
      if (a->GetXOrigine() != b->GetXOrigine() || a->GetYOrigine() != b->GetYOrigine() ||
          a->GetXStep() != b->GetXStep() || a->GetYStep() != b->GetYStep() || a->GetNs() != b->GetNs() ||
          a->GetNl() != b->GetNl() || a->GetZoneLambert() != b->GetZoneLambert())
        std::abort();
      std::remove(sortie.c_str());
      std::remove((base + "_sortie.tfw").c_str());
    } catch (const Erreur&) {
    }
    std::remove(nom.c_str());
  }
  return 0;
}
