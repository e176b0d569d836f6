// libFuzzer target of the TIFF reader: the bytes become a file, read whole into an 8-bit image and
// through a stepped crop into a float image. Every malformed input must end in an Erreur.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/ttimage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  static const std::string nom =
      (access("/dev/shm", W_OK) == 0 ? std::string("/dev/shm") : std::string("/tmp")) + "/fuzz_tiff_" +
      std::to_string(getpid()) + ".tif";
  {
    std::ofstream f(nom, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(donnees), static_cast<std::streamsize>(taille));
  }
  try {
    TTImage<unsigned char> image;
    image.Lire(nom.c_str());
  } catch (const Erreur&) {
  }
  try {
    const ImageFicIn fichier(nom.c_str());
    const TPoint2D<int> t = fichier.GetTaille();
    TTImage<float> crop;
    crop.Crop(fichier, t.x / 3, t.y / 4, t.x, t.y, 3);
  } catch (const Erreur&) {
  }
  std::remove(nom.c_str());
  return 0;
}
