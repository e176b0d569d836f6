// Writes the demo data set: a grid of overlapping 8-bit ortho-image tiles with their orientations.
#include <filesystem>
#include <iostream>

#include "lire_options.h"
#include "scene_demo.h"

namespace {

constexpr const char* kProgramme = "generer_demo";

void Usage() {
  std::cout << "generer_demo <dossier> [--grille n (=3)] [--taille pixels (=600)] [--recouvrement fraction "
               "(=0.2)] [--pixel metres (=0.5)] [--graine n (=1)]"
            << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  return ExecuterProgramme(argc, Usage, [&] {
    ParametresDemo p;
    std::string dossier;
    for (int i = 1; i < argc; ++i) {
      const std::string mot = argv[i];
      if (mot == "--grille") {
        p.grille = LireEntier(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
      } else if (mot == "--taille") {
        p.taille = LireEntier(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
      } else if (mot == "--recouvrement") {
        p.recouvrement = LireReel(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
      } else if (mot == "--pixel") {
        p.pixel = LireReel(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
      } else if (mot == "--graine") {
        const long v = LireEntier(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
        if (v < 0 || v > 0xffffffffL)
          ZEPRA_ERREUR("[generer_demo] (Options) Graine " << v << " : 0 a 4294967295 attendu.");
        p.graine = static_cast<uint32_t>(v);
      } else if (mot.rfind("--", 0) == 0) {
        ZEPRA_ERREUR("[generer_demo] (Options) Option inconnue : " << mot);
      } else if (dossier.empty()) {
        dossier = mot;
      } else {
        ZEPRA_ERREUR("[generer_demo] (Options) Un seul dossier attendu, " << dossier << " puis " << mot);
      }
    }
    if (dossier.empty()) ZEPRA_ERREUR("[generer_demo] (Options) Aucun dossier de sortie.");
    p.Verifier();
    std::error_code ec;
    std::filesystem::create_directories(dossier, ec);
    if (ec)
      ZEPRA_ERREUR("[generer_demo] (Dossier) Creation de " << dossier << " impossible : " << ec.message());
    const std::vector<std::string> noms = GenererDemo(p, dossier);
    std::cout << noms.size() << " tuiles de " << p.taille << " x " << p.taille << " pixels de " << p.pixel
              << " m dans " << dossier << " :";
    for (const std::string& n : noms) std::cout << ' ' << n;
    std::cout << std::endl;
  });
}
