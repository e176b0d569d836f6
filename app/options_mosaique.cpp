#include <cmath>
#include <cstdlib>

#include "mosaique.h"
#include "zepra/erreur.h"

namespace {

// The word after an option that takes a value; a missing one is refused rather than read as null.
const char* Valeur(int argc, char** argv, int& i) {
  if (i + 1 >= argc || !argv[i + 1])
    ZEPRA_ERREUR("[Main_nouveau] (Options) L'option " << argv[i] << " attend une valeur.");
  return argv[++i];
}

}  // namespace

OptionsMosaique LireOptionsMosaique(int argc, char** argv) {
  OptionsMosaique o;
  for (int i = 1; i < argc; ++i) {
    const std::string mot = argv[i] ? argv[i] : "";
    if (mot == "--reference:walis") {
      o.referenceWalis = true;
    } else if (mot == "--reference:moyenne") {
      o.referenceWalis = false;
    } else if (mot == "--fusion:moyenne") {
      o.fusion = eFusionMoyenne;
    } else if (mot == "--fusion:min") {
      o.fusion = eFusionMin;
    } else if (mot == "--fusion:max") {
      o.fusion = eFusionMax;
    } else if (mot == "--fusion:voronoi") {
      o.fusion = eFusionVoronoi;
    } else if (mot == "--modele:additif") {
      o.multiplicatif = false;
    } else if (mot == "--modele:multiplicatif") {
      o.multiplicatif = true;
    } else if (mot == "--noegal") {
      o.noegal = true;
    } else if (mot == "--ssechfinal") {
      // Decimal text to double, trailing junk ignored; no number reads as 0 (and is refused below).
      o.ssechfinal = std::strtod(Valeur(argc, argv, i), nullptr);
    } else if (mot == "--pas") {
      // A base-10 integer held as a double: 12.5 gives 12.
      o.pas = static_cast<double>(std::strtol(Valeur(argc, argv, i), nullptr, 10));
    } else if (mot == "--prelissewalis") {
      o.prelissewalis = true;
    } else if (mot == "--output") {
      o.sortie = Valeur(argc, argv, i);
    } else {
      // Any other word, a mistyped option included, is an input name.
      o.entrees.push_back(mot);
    }
  }
  // A step of 0 would sample the footprint without end.
  if (!(o.pas > 0))
    ZEPRA_ERREUR("[Main_nouveau] (Options) --pas doit etre un entier strictement positif (valeur lue : "
                 << o.pas << ").");
  if (!(o.ssechfinal > 0) || !std::isfinite(o.ssechfinal))
    ZEPRA_ERREUR("[Main_nouveau] (Options) --ssechfinal doit etre un reel strictement positif (valeur lue : "
                 << o.ssechfinal << ").");
  if (o.entrees.empty()) ZEPRA_ERREUR("[Main_nouveau] (Options) Aucune image en entree.");
  return o;
}

const char* NomFusion(int mode) {
  static const char* const noms[] = {"voronoi", "moyenne", "min", "max"};
  if (mode < eFusionVoronoi || mode > eFusionMax)
    ZEPRA_ERREUR("[Main_nouveau] (Options) Mode de fusion inconnu : " << mode << ".");
  return noms[mode];
}
