// libFuzzer target of the TIFF reader: the bytes become a file, read whole into an 8-bit image,
// through a stepped crop into a float image, for its metadata and for its validity mask. Every
// malformed input must end in an Erreur. The decoded-size limit is lowered so that a header alone
// cannot make the run allocate what the fuzzer's memory limit refuses.
#include <cstdio>

#include "fuzz_outils.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/masque.h"
#include "zepra/metadonnees.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  SetLimiteOctetsDecodes(uint64_t(64) << 20);
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
    fichier.Metadonnees();
  } catch (const Erreur&) {
  }
  try {
    if (const std::unique_ptr<SpecifImageIn> masque = OuvrirMasqueValidite(nom)) {
      const TPoint2D<int> t = masque->GetTaille();
      TTImage<bool> m;
      m.Crop(*masque, 0, 0, t.x, t.y, 2);
    }
  } catch (const Erreur&) {
  }
  std::remove(nom.c_str());
  return 0;
}
