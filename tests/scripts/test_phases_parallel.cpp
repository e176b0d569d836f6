// scripts/phases_parallel.sh with a stand-in for egalise (tests/scripts/faux_egalise.sh) that logs each
// step: the steps in order, every input and part once, the job's words intact; its refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "outils_test.h"

namespace {

const std::string kScript = std::string(ZEPRA_SOURCE_DIR) + "/scripts/phases_parallel.sh";
const std::string kFaux = std::string(ZEPRA_SOURCE_DIR) + "/tests/scripts/faux_egalise.sh";

test::Resultat Phases(const test::DossierTemp& d, const std::string& arguments,
                      const std::string& echec = "") {
  return test::Lancer(d.chemin(),
                      "FAUX_JOURNAL=journal.txt FAUX_ECHEC=" + echec + " '" + kScript + "' " + arguments);
}

TEST(PhasesParallel, EtapesDansLOrdreAvecLesMotsDuTravail) {
  test::DossierTemp d;
  std::ofstream(d / "liste.txt") << "c.tif\n\n  d.tif \n";
  const std::string debut = "--travail w --taches 2 --parties 3 --egalise '" + kFaux + "' -- ";
  const test::Resultat r = Phases(d, debut + "a.tif 'b c.tif' @liste.txt -o m.tif --memoire=64");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  std::vector<std::string> journal = test::Lignes(test::LireFichier(d / "journal.txt"));
  std::string ordre;
  for (const std::string& l : journal) {
    const std::string etape = l.substr(0, l.find(' '));
    if (ordre.size() < etape.size() || ordre.compare(ordre.size() - etape.size(), etape.size(), etape) != 0)
      ordre += (ordre.empty() ? "" : " ") + etape;
  }
  EXPECT_EQ(ordre, "observer resoudre composer assembler");
  std::sort(journal.begin(), journal.end());
  const std::string mots = "[mosaique][a.tif][b c.tif][@liste.txt][-o][m.tif][--memoire=64][--threads][1]";
  EXPECT_EQ(journal,
            (std::vector<std::string>{"assembler   " + mots, "composer  1/3 " + mots, "composer  2/3 " + mots,
                                      "composer  3/3 " + mots, "observer 1  " + mots, "observer 2  " + mots,
                                      "observer 3  " + mots, "observer 4  " + mots, "resoudre   " + mots}));
  EXPECT_EQ(test::LireFichier(d / "m.tif"), "mosaique\n");

  // A failed part stops the run before the assembly, with a failure; --threads given is kept.
  std::remove((d / "journal.txt").c_str());
  std::remove((d / "m.tif").c_str());
  EXPECT_NE(Phases(d, debut + "a.tif -o m.tif --threads 2", "composer").statut, 0);
  const std::string apres = test::LireFichier(d / "journal.txt");
  EXPECT_EQ(apres.find("assembler"), std::string::npos) << apres;
  EXPECT_NE(apres.find("resoudre   [mosaique][a.tif][-o][m.tif][--threads][2]\n"), std::string::npos)
      << apres;
  EXPECT_FALSE(std::ifstream(d / "m.tif").is_open());
}

TEST(PhasesParallel, Refus) {
  test::DossierTemp d;
  const char* cas[][2] = {
      {"-- a.tif -o m.tif", "--travail DIR est obligatoire"},
      {"--travail w a.tif -o m.tif", "option inconnue a.tif"},
      {"--travail w", "-- puis les images et les options de la mosaique sont attendus"},
      {"--travail w --parties", "--parties attend une valeur"},
      {"--travail w --parties 0 -- a.tif", "--parties 0 : un entier positif est attendu"},
      {"--travail w -- -o m.tif", "aucune image avant les options"},
      {"--travail w -- @absente.txt -o m.tif", "liste d'images absente.txt illisible"},
      {"--travail w -- a.tif -o m.tif --etape observer",
       "--etape : les etapes sont choisies par ce script, pas sur la ligne de la mosaique"},
      {"--travail w -- a.tif -o m.tif --memoire beaucoup",
       "--memoire beaucoup : un entier de Mio est attendu"},
  };
  for (const auto& c : cas) {
    const test::Resultat r = Phases(d, std::string("--egalise '") + kFaux + "' " + c[0]);
    EXPECT_EQ(r.statut, 2) << c[0] << "\n" << r.sortie;
    EXPECT_EQ(r.sortie, std::string("phases_parallel.sh : ") + c[1] + "\n") << c[0];
    EXPECT_FALSE(std::ifstream(d / "journal.txt").is_open()) << c[0];
  }
}

}  // namespace
