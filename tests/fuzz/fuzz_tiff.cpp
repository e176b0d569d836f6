// libFuzzer target of the TIFF reader: the bytes become a file, read whole into an 8-bit image and
// through a stepped crop into a float image. Every malformed input must end in an Erreur.
#include <cstdio>

#include "fuzz_outils.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  const std::string nom = fuzz::EnFichier("tiff", ".tif", donnees, taille);
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
