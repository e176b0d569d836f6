// libFuzzer target for the RLE reader: the bytes become a file named .rle, read through the registry
// as the tool reads images. An image read without Erreur is written back and must read the same.
#include "fuzz_outils.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  const std::string nom = fuzz::EnFichier("rle", ".rle", donnees, taille);
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
      fuzz::RelireIdentique(im, fuzz::NomTemporaire("rle", "_copie.rle"));
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
