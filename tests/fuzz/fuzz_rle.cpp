// libFuzzer target for the RLE reader: the bytes become a file named .rle, read through the registry
// as the tool reads images. An image read without Erreur is written back and must read the same.
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
  return std::string(dossier) + "/fuzz_rle_" + std::to_string(getpid()) + suffixe;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  static const std::string nom = NomTemporaire(".rle");
  static const std::string copie = NomTemporaire("_copie.rle");
  {
    std::ofstream f(nom, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(donnees), static_cast<std::streamsize>(taille));
  }
  try {
    ImageFicIn fichier(nom.c_str());
    const TPoint2D<int> t = fichier.GetTaille();
    // The decoder is under test, not the allocator: a large presented image (a zoom can present
    // a million pixels per byte) is read through windows and strided lines only.
    if (static_cast<long long>(t.x) * t.y <= (1 << 22)) {
      TTImage<unsigned char> im;
      im.Lire(nom.c_str());
      TTImage<float> pas3;
      pas3.Crop(fichier, t.x / 3, t.y / 3, t.x, t.y, 3);
      im.Sauver(copie.c_str());
      const TTImage<unsigned char> relu(copie.c_str());
      if (relu.GetTaille() != im.GetTaille() || !std::equal(im.begin(), im.end(), relu.begin()))
        __builtin_trap();
    } else {
      TTImage<short> fenetre;
      fenetre.Crop(fichier, t.x / 2, t.y / 2, 256, 256, 1);
      const int pas = std::max(1, t.x / 256);
      TTImage<double> lignes;
      lignes.Crop(fichier, 0, t.y - 1 - std::min(t.y - 1, 3 * pas), t.x, 4 * pas, pas);
    }
  } catch (const Erreur&) {
  }
  return 0;
}
