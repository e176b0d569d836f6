// libFuzzer target for the PNM reader: the bytes become a file named .pgm, read through the registry.
// An image read without Erreur is written back (16-bit, same channels) and must read the same.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>

#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/ttimage.h"

namespace {

std::string NomTemporaire(const char* suffixe) {
  const char* dossier = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  return std::string(dossier) + "/fuzz_pnm_" + std::to_string(getpid()) + suffixe;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  static const std::string nom = NomTemporaire(".pgm");
  static const std::string copie = NomTemporaire("_copie.pnm");
  {
    std::ofstream f(nom, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(donnees), static_cast<std::streamsize>(taille));
  }
  try {
    ImageFicIn fichier(nom.c_str());
    const TPoint2D<int> t = fichier.GetTaille();
    // Other readers may take the bytes too (a zoomed RLE presents more than its size).
    if (static_cast<long long>(t.x) * t.y * fichier.GetNbCanaux() > (1 << 22)) return 0;
    TTImage<unsigned short> im;
    im.Lire(nom.c_str());
    TTImage<int> pas2;
    pas2.Crop(fichier, t.x / 4, t.y / 4, t.x, t.y, 2);
    im.Sauver(copie.c_str());
    const TTImage<unsigned short> relu(copie.c_str());
    if (relu.GetTaille() != im.GetTaille() || relu.GetNbCanaux() != im.GetNbCanaux() ||
        !std::equal(im.begin(), im.end(), relu.begin()))
      __builtin_trap();
  } catch (const Erreur&) {
  }
  return 0;
}
