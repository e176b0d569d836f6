// Writes an 8-bit quick-look of a float image (a mosaic), stretched between two percentiles of its
// data or between given values; the format follows the output name's extension (.pgm for the demo).
#include <iostream>

#include "etirement.h"
#include "lire_options.h"

namespace {

constexpr const char* kProgramme = "apercu";

void Usage() {
  std::cout << "apercu <image> <sortie.pgm> [--min valeur --max valeur]" << std::endl
            << "  sans --min/--max : etirement du percentile 1 au percentile 99 des pixels non nuls"
            << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  return ExecuterProgramme(argc, Usage, [&] {
    std::vector<std::string> fichiers;
    bool avecMin = false, avecMax = false;
    Etirement e;
    for (int i = 1; i < argc; ++i) {
      const std::string mot = argv[i];
      if (mot == "--min") {
        e.bas = LireReel(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
        avecMin = true;
      } else if (mot == "--max") {
        e.haut = LireReel(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
        avecMax = true;
      } else if (mot.rfind("--", 0) == 0) {
        ZEPRA_ERREUR("[apercu] (Options) Option inconnue : " << mot);
      } else {
        fichiers.push_back(mot);
      }
    }
    if (fichiers.size() != 2)
      ZEPRA_ERREUR("[apercu] (Options) Une image et un fichier de sortie attendus, " << fichiers.size()
                                                                                     << " nom(s) donne(s).");
    if (avecMin != avecMax) ZEPRA_ERREUR("[apercu] (Options) --min et --max vont ensemble.");
    if (avecMin && !(e.bas < e.haut))
      ZEPRA_ERREUR("[apercu] (Options) --min " << e.bas << " doit etre inferieur a --max " << e.haut << ".");
    TTImage<float> image;
    image.Lire(fichiers[0].c_str());
    if (!avecMin) e = EtirementPercentiles(image, 0.01, 0.99);
    Etirer(image, e).Sauver(fichiers[1].c_str());
    std::cout << fichiers[1] << " : " << image.iGetNbColonnes() << " x " << image.iGetNbLignes()
              << ", niveaux 1 a 255 pour " << e.bas << " a " << e.haut << std::endl;
  });
}
