#include <iostream>

#include "egalise.h"
#include "zepra/erreur.h"

void Main_nouveau(int argc, char** /*argv*/) {
  if (argc == 1) {
    std::cout << "./exe cliche1 cliche2 .... clichen [options]" << std::endl;
    std::cout
        << "--reference:[moyenne/walis] --fusion:[moyenne/voronoi/min/max] "
           "--modele:[additif/multiplicatif] [--noegal] [--ssechfinal (=2)] [--pas (=50)] [--prelissewalis]"
        << std::endl;
    return;
  }
  ZEPRA_ERREUR(
      "[Main_nouveau] (Main_nouveau) Le calcul de mosaique n'est pas encore disponible dans cette version.");
}
