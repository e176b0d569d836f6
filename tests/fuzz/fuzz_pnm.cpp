// libFuzzer target for the PNM reader: the bytes become a file named .pgm, read through the registry.
// An image read without Erreur is written back (16-bit, same channels) and must read the same.
#include "fuzz_outils.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  const std::string nom = fuzz::EnFichier("pnm", ".pgm", donnees, taille);
  try {
    ImageFicIn fichier(nom.c_str());
    const TPoint2D<int> t = fichier.GetTaille();
    // Other readers may take the bytes too (a zoomed RLE presents more than its size).
    if (static_cast<long long>(t.x) * t.y * fichier.GetNbCanaux() > (1 << 22)) return 0;
    TTImage<unsigned short> im;
    im.Lire(nom.c_str());
    TTImage<int> pas2;
    pas2.Crop(fichier, t.x / 4, t.y / 4, t.x, t.y, 2);
    fuzz::RelireIdentique(im, fuzz::NomTemporaire("pnm", "_copie.pnm"));
  } catch (const Erreur&) {
  }
  return 0;
}
