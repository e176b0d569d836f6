// The georeferencing an image carries, on arbitrary bytes: as a TIFF searched for its GeoTIFF tags,
// as a world file and as a .prj beside an image without a grid. Each is read or refused with an
// Erreur; what is read is saved and reads back to the same numbers.
#include <cstdio>
#include <cstdlib>
#include <tuple>

#include "fuzz_outils.h"
#include "zepra/cartoproj.h"
#include "zepra/erreur.h"
#include "zepra/metadonnees.h"
#include "zepra/orientation.h"

static auto Nombres(const OrientationOld& o) {
  const auto& c = dynamic_cast<const CartoProjOrientation&>(*o.GetInternalImageOrientation());
  return std::make_tuple(c.GetXOrigine(), c.GetYOrigine(), c.GetZoneLambert(), c.GetNs(), c.GetNl(),
                         c.GetXStep(), c.GetYStep());
}

// Reads the orientation of 'image'; when there is one, checks it and its save.
static void Lire(const std::string& image) {
  try {
    const OrientationOld o(image.c_str());
    const SystemeReference* crs = o.GetSystemeReference();
    if (crs && !crs->Connu()) std::abort();
    if (OrientationOld(o).GetSystemeReference() != crs) std::abort();
    const std::string sortie = fuzz::NomTemporaire("georeference", "_sortie.ori");
    o.Sauver(sortie.c_str());
    if (Nombres(OrientationOld(sortie.c_str())) != Nombres(o)) std::abort();
    std::remove(sortie.c_str());
    std::remove(fuzz::NomTemporaire("georeference", "_sortie.tfw").c_str());
  } catch (const Erreur&) {
  }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  // Two images without a grid, one with a sound world file beside it, written once.
  static const std::string monde = fuzz::NomTemporaire("georeference", "_monde.tif"),
                           prj = fuzz::NomTemporaire("georeference", "_prj.tif");
  static const bool pret = [&] {
    for (const std::string& n : {monde, prj}) TTImage<unsigned char>(3, 2, TagNbCanaux(1)).Sauver(n.c_str());
    std::ofstream(fuzz::NomTemporaire("georeference", "_prj.tfw")) << "0.5\n0\n0\n-0.25\n1000.25\n1999.875\n";
    std::atexit([] {
      for (const char* suffixe : {"_monde.tif", "_prj.tif", "_prj.tfw"})
        std::remove(fuzz::NomTemporaire("georeference", suffixe).c_str());
    });
    return true;
  }();
  (void)pret;

  const std::string tiff = fuzz::EnFichier("georeference", "_tags.tif", donnees, taille);
  Lire(tiff);
  std::remove(tiff.c_str());
  const std::string tfw = fuzz::EnFichier("georeference", "_monde.tfw", donnees, taille);
  Lire(monde);
  std::remove(tfw.c_str());
  const std::string p = fuzz::EnFichier("georeference", "_prj.prj", donnees, taille);
  Lire(prj);
  std::remove(p.c_str());
  return 0;
}
