#include "egalise.h"
#include "zepra/stringpp.h"

void Main_defaut_arg(int argc, char** argv) {
  // With no argument argv[1] is the terminating null pointer, which stringpp takes as an empty word.
  const stringpp commande(argv[1]);
  static const char* const commandes[] = {"WalisImageReference",
                                          "AppliqueGainOffset",
                                          "ModelePolynomialMonoImage",
                                          "ModelePolynomialMultiImages",
                                          "GainOffsetWalis",
                                          "Stats",
                                          "MoyMasque",
                                          "PrelisseWalis:Moy",
                                          "PrelisseWalis:Poly"};
  for (const char* nom : commandes) {
    if (commande == nom) {
      Main_walis_new(argc, argv);
      return;
    }
  }
  Main_nouveau(argc, argv);
}
