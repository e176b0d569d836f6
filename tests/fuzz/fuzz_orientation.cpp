// Orientation files on arbitrary bytes, under each of the three extensions: read or refused with an
// Erreur; what is read writes and reads back to the same numbers.
#include <cstdio>
#include <cstdlib>
#include <tuple>

#include "fuzz_outils.h"
#include "zepra/cartoproj.h"
#include "zepra/erreur.h"
#include "zepra/orientation.h"

static auto Nombres(const OrientationOld& o) {
  const auto& c = static_cast<const CartoProjOrientation&>(*o.GetInternalImageOrientation());
  return std::make_tuple(c.GetXOrigine(), c.GetYOrigine(), c.GetZoneLambert(), c.GetNs(), c.GetNl(),
                         c.GetXStep(), c.GetYStep());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  const std::string sortie = fuzz::NomTemporaire("orientation", "_sortie.ori");
  for (const char* ext : {".ori", ".xml", ".hdr"}) {
    const std::string nom = fuzz::EnFichier("orientation", ext, donnees, taille);
    try {
      const OrientationOld o(nom.c_str());
      o.Sauver(sortie.c_str());
      if (Nombres(OrientationOld(sortie.c_str())) != Nombres(o)) std::abort();
      std::remove(sortie.c_str());
      std::remove(fuzz::NomTemporaire("orientation", "_sortie.tfw").c_str());
    } catch (const Erreur&) {
    }
    std::remove(nom.c_str());
  }
  return 0;
}
