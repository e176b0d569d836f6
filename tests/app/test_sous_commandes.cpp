// The nine sub-commands run through the built tool on small files: their console lines, the files they
// write and the errors of use.
#include <gtest/gtest.h>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "polynome.h"
#include "prelissage.h"
#include "walis.h"
#include "zepra/erreur.h"

namespace {

std::string Journal(const test::DossierTemp& d) { return test::LireFichier(d / "log.txt"); }

TEST(SousCommandes, UnArgumentManquantAfficheLUsageEtFinitEnErreur) {
  test::DossierTemp d;
  struct Cas {
    const char* arguments;
    const char* usage;
  };
  const Cas cas[] = {
      {"PrelisseWalis:Moy a.tif", "./exe PrelisseWalis:Moy image masque"},
      {"PrelisseWalis:Poly", "./exe PrelisseWalis:Poly image masque"},
      {"WalisImageReference a b c",
       "./exe WalisImageReference image masque image_reference masque_reference"},
      {"AppliqueGainOffset a b", "./exe AppliqueGainOffset image gain offset"},
      {"ModelePolynomialMonoImage a", "./exe ModelePolynomialMonoImage image masque"},
      {"ModelePolynomialMultiImages",
       "./exe ModelePolynomialMultiImages image1 masque1 [image2 masque2 ...]"},
      {"ModelePolynomialMultiImages a b c",
       "./exe ModelePolynomialMultiImages image1 masque1 [image2 masque2 ...]"},
      {"MoyMasque a b", "./exe MoyMasque image masque demi-largeur"},
      {"Stats a", "./exe Stats image masque"},
      {"GainOffsetWalis", "./exe GainOffsetWalis image masque"},
  };
  for (const Cas& c : cas) {
    const test::Resultat r = test::Egalise(d.chemin(), c.arguments);
    EXPECT_EQ(r.statut, 255) << c.arguments;
    EXPECT_EQ(r.sortie, std::string(c.usage) + "\n") << c.arguments;
    const std::string log = Journal(d);
    EXPECT_NE(log.find("Exception :\n[Main_walis_new] ("), std::string::npos) << log;
    const bool impair = std::string(c.arguments) == "ModelePolynomialMultiImages a b c";
    EXPECT_NE(log.find(impair ? "L'image c n'a pas de masque." : "Argument manquant"), std::string::npos)
        << log;
  }

  // The half-width is read before any file: a negative one is refused at once.
  const test::Resultat r = test::Egalise(d.chemin(), "MoyMasque absente.tif absente.tif -3");
  EXPECT_EQ(r.statut, 255);
  EXPECT_EQ(r.sortie, "");
  EXPECT_NE(Journal(d).find("[Main_walis_new] (MoyMasque) Demi-largeur negative : -3."), std::string::npos);
}

}  // namespace
