// The built tool run as a user runs it: usage, log banner and closing lines, errors, dispatch.
#include <gtest/gtest.h>

#include <regex>

#include "outils_test.h"

namespace {

TEST(Egalise, UsageJournalErreurEtMotDeCommande) {
  test::DossierTemp d;
  const test::Resultat r = test::Egalise(d.chemin(), "");
  EXPECT_EQ(r.statut, 0);
  EXPECT_EQ(r.sortie,
            "./exe cliche1 cliche2 .... clichen [options]\n"
            "--reference:[moyenne/walis] --fusion:[moyenne/voronoi/min/max] --modele:[additif/multiplicatif] "
            "[--noegal] [--ssechfinal (=2)] [--pas (=50)] [--prelissewalis]\n");
  // Each extension is followed by the separator, the last one included.
  const char* lignes[] = {
      R"(\[LibZEPRA\] QUV / Laboratoire ZEPRA)",
      R"(\[LibZEPRA\] Machine 64 bits de type Intel / AMD\.)",
      R"(\[LibZEPRA\] Extensions images reconnues en lecture : ("[^"]+" ; )*"tif" ; "tiff" ; ("[^"]+" ; )*)",
      R"(\[LibZEPRA\] Extensions images reconnues en ecriture : ("[^"]+" ; )+)",
      R"(\[LibZEPRA\] Heure lancement : (Lun|Mar|Mer|Jeu|Ven|Sam|Dim) \d{1,2} \w+ \d{4} \d{1,2}:\d{1,2}\.\d{1,2})",
      R"(\[LibZEPRA\] Programme compile en mode RELEASE ; warnings ACTIVES\.)",
      R"(\[LibZEPRA\] Heure de fin : .*)",
      R"(\[LibZEPRA\] Temps CPU : \d+ min \d+ s \d+)",
      R"(\[LibZEPRA\] Fin\.)"};
  const std::vector<std::string> log = test::Lignes(test::LireFichier(d / "log.txt"));
  ASSERT_EQ(log.size(), std::size(lignes));
  for (size_t i = 0; i < log.size(); ++i)
    EXPECT_TRUE(std::regex_match(log[i], std::regex(lignes[i]))) << log[i];

  // An error: status 255, the message with its source suffix, then the closing lines (the message has
  // no line end).
  EXPECT_EQ(test::Egalise(d.chemin(), "absente").statut, 255);
  const std::string erreur = test::LireFichier(d / "log.txt");
  EXPECT_TRUE(
      std::regex_search(erreur, std::regex(R"(\nException :\n.*\(Fichier : \.\./[a-z_/]+\.cpp ; ligne \d+\))"
                                           R"(\[LibZEPRA\] Heure de fin : [\s\S]*\[LibZEPRA\] Fin\.\n$)")))
      << erreur;

  // The sub-commands themselves are run on files elsewhere; a word that differs from one in case or by
  // a missing suffix goes to the mosaic job, which looks for "Ort_" + the word.
  for (const char* mot : {"stats", "PrelisseWalis", "moymasque"}) {
    EXPECT_EQ(test::Egalise(d.chemin(), mot).statut, 255) << mot;
    EXPECT_NE(test::LireFichier(d / "log.txt").find(std::string("Ort_") + mot), std::string::npos) << mot;
  }
}

}  // namespace
