// Files written whole or not at all, including by two writers of one name at once in one process (the
// threads of a job given the same input twice).
#include <gtest/gtest.h>

#include <filesystem>

#include "outils_test.h"
#include "zepra/fichieratomique.h"

namespace {

TEST(FichierAtomique, DeuxEcrivainsDuMemeNomOuAbandon) {
  test::DossierTemp d;
  const std::string nom = d / "f.txt";
  {
    FichierAtomique a(nom, "[Test] (a)"), b(nom, "[Test] (b)");
    a.flux() << "premier";
    b.flux() << "second";
    a.Valider();
    EXPECT_EQ(test::LireFichier(nom), "premier");
    b.Valider();  // the last one validated holds the name
    EXPECT_EQ(test::LireFichier(nom), "second");
  }
  {
    FichierAtomique abandon(nom, "[Test] (abandon)");
    abandon.flux() << "perdu";
  }
  EXPECT_EQ(test::LireFichier(nom), "second");
  EXPECT_EQ(test::Lancer(d.chemin(), "ls").sortie, "f.txt\n");  // no temporary left
}

}  // namespace
