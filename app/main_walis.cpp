#include "egalise.h"
#include "zepra/erreur.h"

void Main_walis_new(int /*argc*/, char** argv) {
  ZEPRA_ERREUR("[Main_walis_new] (Main_walis_new) La commande "
               << argv[1] << " n'est pas encore disponible dans cette version.");
}
