#include <iostream>
#include <string>

#include "commande_mosaique.h"
#include "egalise.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/systeme.h"

int main(int argc, char** argv) {
  // The conventional front end, before the compatibility mode opens its log.
  if (argc > 1 && argv[1] && std::string(argv[1]) == "mosaique") return Main_mosaique(argc, argv);
  try {
    Systeme::SetSourceExtensions(ExtensionsImages);
    Systeme::Demarrer("log.txt", false, true);
    Main_defaut_arg(argc, argv);
    Systeme::Arreter();
    return 0;
  } catch (const Erreur& e) {
    const Erreur copie(e);
    const char* entete = "Exception :\n";
    if (Systeme::m_hascout) std::cout << entete;
    if (Systeme::HasLog()) std::clog << entete;
    if (Systeme::m_faut_flusher) {
      std::cout.flush();
      std::clog.flush();
    }
    copie.Message();
    Systeme::Arreter();
    return -1;
  }
}
