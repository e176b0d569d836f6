// The demo programs run as a user runs them: the generated tiles, the job run on them, the quick-looks
// checked byte by byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "outils_test.h"
#include "pipeline/outils_radiometrie.h"

namespace {

test::Resultat Lancer(const char* programme, const std::string& dossier, const std::string& arguments) {
  return test::Lancer(dossier, std::string("'") + programme + "' " + arguments);
}

// The samples of an 8-bit PGM, checked for its header "P5\n<w> <h>\n255\n".
std::string PixelsPgm(const std::string& chemin, int largeur, int hauteur) {
  const std::string b = test::LireFichier(chemin);
  const std::string entete = "P5\n" + std::to_string(largeur) + " " + std::to_string(hauteur) + "\n255\n";
  EXPECT_TRUE(test::Commence(b, entete)) << chemin;
  EXPECT_EQ(b.size(), entete.size() + static_cast<size_t>(largeur) * hauteur) << chemin;
  return b.substr(std::min(b.size(), entete.size()));
}

// The tile names of a grid, separated by blanks.
std::string NomsTuiles(int grille) {
  std::string n;
  for (int l = 0; l < grille; ++l)
    for (int c = 0; c < grille; ++c) n += "tuile_" + std::to_string(l) + "_" + std::to_string(c) + ".tif ";
  return n;
}

TEST(GenererDemo, MemeGraineMemesOctets) {
  test::DossierTemp d;
  for (const char* arguments : {"a --graine 7", "b --graine 7", "c --graine 8"})
    ASSERT_EQ(
        Lancer(GENERER_DEMO_EXE, d.chemin(), std::string(arguments) + " --grille 2 --taille 120").statut, 0);
  std::istringstream noms(NomsTuiles(2));
  for (std::string n; noms >> n;) {
    EXPECT_EQ(test::LireFichier(d / "a/Ort_" + n), test::LireFichier(d / "b/Ort_" + n)) << n;
    EXPECT_NE(test::LireFichier(d / "a/Ort_" + n), test::LireFichier(d / "c/Ort_" + n)) << n;
  }
}

TEST(GenererDemo, LEgalisationEffaceLesRaccordsEtLApercuSuitLaMosaique) {
  test::DossierTemp d;
  // The data set and the command of make demo.
  ASSERT_EQ(Lancer(GENERER_DEMO_EXE, d.chemin(), ".").statut, 0);
  test::Resultat r =
      test::Egalise(d.chemin(), NomsTuiles(3) + "--pas 10 --fusion:voronoi --output mosaique.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie;

  // The overlap disagreement of the corrected images against that of the inputs, on the same pixels:
  // at least a four-fold drop (this data set: 22.1 grey levels before, 4.2 after).
  long long n = 0, m = 0;
  const double avant = test::Desaccord(d.chemin(), "Ort_", NomsTuiles(3), &n);
  const double apres = test::Desaccord(d.chemin(), "Solution_", NomsTuiles(3), &m);
  EXPECT_EQ(n, m);
  EXPECT_GT(avant, 8.0);
  EXPECT_LT(apres * 4, avant) << "avant " << avant << ", apres " << apres;

  // The quick-look has the mosaic's size, 0 exactly where the mosaic has no data, and its grey levels
  // follow the mosaic's values.
  r = Lancer(APERCU_EXE, d.chemin(), "mosaique.tif mosaique.pgm");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  const TTImage<float> mosaique((d / "mosaique.tif").c_str());
  const std::string p = PixelsPgm(d / "mosaique.pgm", mosaique.iGetNbColonnes(), mosaique.iGetNbLignes());
  ASSERT_EQ(p.size(), mosaique.size());
  std::vector<std::pair<float, unsigned char>> couples;
  for (size_t k = 0; k < p.size(); ++k) {
    const unsigned char g = static_cast<unsigned char>(p[k]);
    const float v = mosaique.begin()[k];
    EXPECT_EQ(g == 0, v == 0.0f) << k;
    if (g != 0) couples.emplace_back(v, g);
  }
  std::sort(couples.begin(), couples.end());
  ASSERT_FALSE(couples.empty());
  for (size_t k = 1; k < couples.size(); ++k) ASSERT_LE(couples[k - 1].second, couples[k].second);
  // The 1st and 99th percentiles bound the stretch: about 1 % of the data at each end is clipped.
  EXPECT_EQ(couples.front().second, 1);
  EXPECT_EQ(couples.back().second, 255);
  const size_t sature =
      std::count_if(couples.begin(), couples.end(), [](auto& c) { return c.second == 255; });
  EXPECT_GT(sature, couples.size() / 200);
  EXPECT_LT(sature, couples.size() / 25);
}

TEST(Apercu, EtirementExactValeursHorsBornesEtRefus) {
  test::DossierTemp d;
  const float nan = std::nanf("");
  const float valeurs[12] = {0, 10, 20, 30, nan, -5, 40, 15, 25, 0, 10.5f, 29.9f};
  TTImage<float> im(4, 3, TagNbCanaux(1));
  std::copy(valeurs, valeurs + 12, im.begin());
  im.Sauver((d / "im.tif").c_str());
  test::Resultat r = Lancer(APERCU_EXE, d.chemin(), "im.tif im.pgm --min 10 --max 30");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  // 1 + (v - 10) * 254 / 20, rounded, kept in 1..255; no data and NaN give 0.
  EXPECT_EQ(PixelsPgm(d / "im.pgm", 4, 3), std::string("\0\1\x80\xff\0\1\xff\x41\xc0\0\7\xfe", 12));

  // Each refusal: status 255, a message, and no file left behind.
  const char* refus[][2] = {{"absente.tif sortie.pgm", "absente.tif"},
                            {"im.tif sortie.pgm --min 30 --max 10", "--min 30"},
                            {"im.tif sortie.pgm --max", "--max attend une valeur"},
                            {"im.tif dossier_absent/sortie.pgm", "dossier_absent/sortie.pgm"}};
  for (const auto& c : refus) {
    r = Lancer(APERCU_EXE, d.chemin(), c[0]);
    EXPECT_EQ(r.statut, 255) << c[0];
    EXPECT_NE(r.sortie.find("Exception :"), std::string::npos) << r.sortie;
    EXPECT_NE(r.sortie.find(c[1]), std::string::npos) << r.sortie;
    EXPECT_FALSE(std::ifstream(d / "sortie.pgm").good()) << c[0];
  }
  // An image without data cannot be stretched from its percentiles: every pixel stays 0.
  TTImage<float>(5, 2, 0.0f).Sauver((d / "vide.tif").c_str());
  ASSERT_EQ(Lancer(APERCU_EXE, d.chemin(), "vide.tif vide.pgm").statut, 0);
  EXPECT_EQ(PixelsPgm(d / "vide.pgm", 5, 2), std::string(10, '\0'));
}

TEST(GenererDemo, RefuseLesParametresAberrants) {
  test::DossierTemp d;
  const char* refus[][2] = {{"x --grille 0", "Grille de 0"},
                            {"x --recouvrement nan", "Recouvrement de nan"},
                            {"x --grille 60 --taille 20000 --pixel 10", "hors de la zone Lambert 2"},
                            {"x --couleur 2", "Option inconnue : --couleur"}};
  for (const auto& c : refus) {
    const test::Resultat r = Lancer(GENERER_DEMO_EXE, d.chemin(), c[0]);
    EXPECT_EQ(r.statut, 255) << c[0];
    EXPECT_NE(r.sortie.find(c[1]), std::string::npos) << c[0] << "\n" << r.sortie;
    EXPECT_FALSE(std::ifstream(d / "x/distorsions.txt").good()) << c[0];
  }
}

}  // namespace
