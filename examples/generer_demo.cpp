// Writes the demo data set: a grid of overlapping 8-bit ortho-image tiles with their orientations
// (the compatibility mode's inputs), or with --geotiff the same grid as GeoTIFF tiles of 1 or 3 bands
// for egalise mosaique.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <thread>

#include "lire_options.h"
#include "scene_demo.h"

namespace {

constexpr const char* kProgramme = "generer_demo";

void Usage() {
  std::cout
      << "generer_demo <dossier> [--grille n (=3)] [--taille pixels (=600)] [--recouvrement fraction "
         "(=0.2)] [--pixel metres (=0.5)] [--graine n (=1)]"
      << std::endl
      << "  [--geotiff [--bandes 1|3 (=3)] [--fils n (=coeurs)]] : tuiles GeoTIFF (EPSG:2154, nodata 0, "
         "Deflate) au lieu des Ort_*.tif"
      << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  return ExecuterProgramme(argc, Usage, [&] {
    ParametresDemo p;
    std::string dossier;
    bool geotiff = false;
    long bandes = 3, fils = std::max(1u, std::thread::hardware_concurrency());
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
      } else if (mot == "--geotiff") {
        geotiff = true;
      } else if (mot == "--bandes") {
        bandes = LireEntier(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
      } else if (mot == "--fils") {
        fils = LireEntier(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
        if (fils < 1 || fils > 256)
          ZEPRA_ERREUR("[generer_demo] (Options) --fils " << fils << " : 1 a 256 attendu.");
      } else if (mot.rfind("--", 0) == 0) {
        ZEPRA_ERREUR("[generer_demo] (Options) Option inconnue : " << mot);
      } else if (dossier.empty()) {
        dossier = mot;
      } else {
        ZEPRA_ERREUR("[generer_demo] (Options) Un seul dossier attendu, " << dossier << " puis " << mot);
      }
    }
    if (dossier.empty()) ZEPRA_ERREUR("[generer_demo] (Options) Aucun dossier de sortie.");
    if (geotiff) {
      p.x0 = kX0Lambert93;
      p.y0 = kY0Lambert93;
    }
    p.Verifier();
    std::error_code ec;
    std::filesystem::create_directories(dossier, ec);
    if (ec)
      ZEPRA_ERREUR("[generer_demo] (Dossier) Creation de " << dossier << " impossible : " << ec.message());
    const std::vector<std::string> noms =
        geotiff ? GenererDemoGeoTIFF(p, static_cast<int>(bandes), dossier, static_cast<int>(fils))
                : GenererDemo(p, dossier);
    std::cout << noms.size() << " tuiles de " << p.taille << " x " << p.taille << " pixels de " << p.pixel
              << " m";
    if (geotiff) std::cout << ", " << bandes << " bande(s) GeoTIFF,";
    std::cout << " dans " << dossier << " :";
    // A large grid's names would fill the terminal: the first and the last say the pattern.
    if (noms.size() <= 12)
      for (const std::string& n : noms) std::cout << ' ' << n;
    else
      std::cout << ' ' << noms.front() << " ... " << noms.back();
    std::cout << std::endl;
  });
}
