// The built tool run as a user runs it: usage, log banner and closing lines, errors, dispatch.
#include <gtest/gtest.h>

#include <regex>

#include "outils_test.h"

namespace {

TEST(Egalise, SansArgumentAfficheUsageEtEcritLeJournal) {
  test::DossierTemp d;
  const test::Resultat r = test::Egalise(d.chemin(), "");
  EXPECT_EQ(r.statut, 0);
  EXPECT_EQ(r.sortie,
            "./exe cliche1 cliche2 .... clichen [options]\n"
            "--reference:[moyenne/walis] --fusion:[moyenne/voronoi/min/max] --modele:[additif/multiplicatif] "
            "[--noegal] [--ssechfinal (=2)] [--pas (=50)] [--prelissewalis]\n");

  const std::vector<std::string> log = test::Lignes(test::LireFichier(d / "log.txt"));
  ASSERT_EQ(log.size(), 9u);
  EXPECT_EQ(log[0], "[LibZEPRA] QUV / Laboratoire ZEPRA");
  EXPECT_EQ(log[1], "[LibZEPRA] Machine 64 bits de type Intel / AMD.");
  EXPECT_EQ(log[2].rfind("[LibZEPRA] Extensions images reconnues en lecture : ", 0), 0u);
  EXPECT_EQ(log[3].rfind("[LibZEPRA] Extensions images reconnues en ecriture : ", 0), 0u);
  // Each extension is followed by the separator, the last one included.
  EXPECT_TRUE(std::regex_match(log[2], std::regex(R"(.*: ("[^"]+" ; )+)"))) << log[2];
  EXPECT_NE(log[2].find("\"tif\" ; \"tiff\" ; "), std::string::npos);
  const std::regex date(R"((Lun|Mar|Mer|Jeu|Ven|Sam|Dim) \d{1,2} \w+ \d{4} \d{1,2}:\d{1,2}\.\d{1,2})");
  std::smatch m;
  EXPECT_TRUE(std::regex_match(log[4].substr(29), date)) << log[4];
  EXPECT_EQ(log[4].rfind("[LibZEPRA] Heure lancement : ", 0), 0u);
  EXPECT_EQ(log[5], "[LibZEPRA] Programme compile en mode RELEASE ; warnings ACTIVES.");
  EXPECT_EQ(log[6].rfind("[LibZEPRA] Heure de fin : ", 0), 0u);
  EXPECT_TRUE(std::regex_match(log[7], std::regex(R"(\[LibZEPRA\] Temps CPU : \d+ min \d+ s \d+)")))
      << log[7];
  EXPECT_EQ(log[8], "[LibZEPRA] Fin.");
}

TEST(Egalise, UneErreurSortEnStatut255AvecExceptionDansLeJournal) {
  test::DossierTemp d;
  // An input image that does not exist.
  const test::Resultat r = test::Egalise(d.chemin(), "absente");
  EXPECT_EQ(r.statut, 255);
  const std::string log = test::LireFichier(d / "log.txt");
  const size_t exception = log.find("\nException :\n");
  ASSERT_NE(exception, std::string::npos) << log;
  // The message follows with its source suffix, then the closing lines (the message has no line end).
  EXPECT_TRUE(std::regex_search(log.substr(exception),
                                std::regex(R"(Exception :\n.*\(Fichier : \.\./[a-z_/]+\.cpp ; ligne \d+\))"
                                           R"(\[LibZEPRA\] Heure de fin : )")))
      << log;
  EXPECT_NE(log.find("[LibZEPRA] Fin.\n"), std::string::npos);
}

TEST(Egalise, LeMotDeCommandeEstCompareExactement) {
  test::DossierTemp d;
  struct Cas {
    const char* mot;
    bool sousCommande;
  };
  const Cas cas[] = {{"Stats", true},
                     {"stats", false},
                     {"PrelisseWalis:Moy", true},
                     {"PrelisseWalis", false},
                     {"PrelisseWalis:Poly", true},
                     {"GainOffsetWalis", true},
                     {"WalisImageReference", true},
                     {"MoyMasque", true},
                     {"moymasque", false}};
  for (const Cas& c : cas) {
    const test::Resultat r = test::Egalise(d.chemin(), std::string("'") + c.mot + "'");
    EXPECT_EQ(r.statut, 255) << c.mot;
    const std::string log = test::LireFichier(d / "log.txt");
    // A sub-command name never reaches the mosaic job, which would look for "Ort_" + the word.
    EXPECT_EQ(log.find("Main_nouveau") != std::string::npos || log.find("Ort_") != std::string::npos,
              !c.sousCommande)
        << c.mot << "\n"
        << log;
  }
}

}  // namespace
