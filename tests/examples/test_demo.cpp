// The demo programs run as a user runs them: the generated tiles, the job run on them, the quick-looks
// checked byte by byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <sstream>

#include "outils_test.h"
#include "zepra/orientedimage.h"

namespace {

test::Resultat Generer(const std::string& dossier, const std::string& arguments) {
  return test::Lancer(dossier, std::string("'") + GENERER_DEMO_EXE + "' " + arguments);
}

test::Resultat Apercu(const std::string& dossier, const std::string& arguments) {
  return test::Lancer(dossier, std::string("'") + APERCU_EXE + "' " + arguments);
}

struct Pgm {
  int largeur = 0, hauteur = 0;
  std::string pixels;
};

Pgm LirePgm(const std::string& chemin) {
  const std::string b = test::LireFichier(chemin);
  std::istringstream s(b);
  std::string magique;
  int maxval = 0;
  Pgm p;
  s >> magique >> p.largeur >> p.hauteur >> maxval;
  EXPECT_EQ(magique, "P5");
  EXPECT_EQ(maxval, 255);
  s.get();  // the single blank before the samples
  p.pixels = b.substr(static_cast<size_t>(s.tellg()));
  EXPECT_EQ(p.pixels.size(), static_cast<size_t>(p.largeur) * p.hauteur);
  return p;
}

std::vector<std::string> NomsTuiles(int grille) {
  std::vector<std::string> n;
  for (int l = 0; l < grille; ++l)
    for (int c = 0; c < grille; ++c)
      n.push_back("tuile_" + std::to_string(l) + "_" + std::to_string(c) + ".tif");
  return n;
}

// The pixel of b at the map point of a's pixel (0, 0): the tiles share one grid, so b's pixel
// (c + dc, l + dl) stands where a's pixel (c, l) does.
void Decalage(const TTOrientedImage<float>& a, const TTOrientedImage<float>& b, int& dc, int& dl) {
  double X, Y, Z, cb, lb, z;
  a.GetOrientation().PhotoToMap(0.5, 0.5, X, Y, Z);
  b.GetOrientation().MapToPhoto(X, Y, Z, cb, lb, z);
  dc = static_cast<int>(std::floor(cb));
  dl = static_cast<int>(std::floor(lb));
  EXPECT_NEAR(cb - dc, 0.5, 1e-6);
  EXPECT_NEAR(lb - dl, 0.5, 1e-6);
}

// Mean absolute difference of two oriented images over the pixels where both hold data; n gets the
// number of those pixels.
double DesaccordRecouvrement(const TTOrientedImage<float>& a, const TTOrientedImage<float>& b, long& n) {
  int dc, dl;
  Decalage(a, b, dc, dl);
  double somme = 0;
  n = 0;
  for (int l = std::max(0, -dl); l < std::min(a.iGetNbLignes(), b.iGetNbLignes() - dl); ++l) {
    for (int c = std::max(0, -dc); c < std::min(a.iGetNbColonnes(), b.iGetNbColonnes() - dc); ++c) {
      const float va = a(c, l), vb = b(c + dc, l + dl);
      if (va == 0.0f || vb == 0.0f) continue;
      somme += std::fabs(va - vb);
      ++n;
    }
  }
  return n ? somme / n : 0.0;
}

TEST(GenererDemo, MemeGraineMemesOctets) {
  test::DossierTemp d;
  ASSERT_EQ(Generer(d.chemin(), "a --grille 2 --taille 120 --graine 7").statut, 0);
  ASSERT_EQ(Generer(d.chemin(), "b --grille 2 --taille 120 --graine 7").statut, 0);
  ASSERT_EQ(Generer(d.chemin(), "c --grille 2 --taille 120 --graine 8").statut, 0);
  for (const std::string& n : NomsTuiles(2)) {
    EXPECT_EQ(test::LireFichier(d / "a/Ort_" + n), test::LireFichier(d / "b/Ort_" + n)) << n;
    EXPECT_NE(test::LireFichier(d / "a/Ort_" + n), test::LireFichier(d / "c/Ort_" + n)) << n;
  }
}

TEST(GenererDemo, LEgalisationEffaceLesRaccordsEtLApercuSuitLaMosaique) {
  test::DossierTemp d;
  // The data set and the command of make demo.
  ASSERT_EQ(Generer(d.chemin(), ".").statut, 0);
  std::string noms;
  for (const std::string& n : NomsTuiles(3)) noms += n + " ";
  test::Resultat r = test::Egalise(d.chemin(), noms + "--pas 10 --fusion:voronoi --output mosaique.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie;

  // The overlap disagreement of the corrected images against that of the inputs, over every pair.
  double avant = 0, apres = 0;
  long pixels = 0;
  const std::vector<std::string> tuiles = NomsTuiles(3);
  for (size_t i = 0; i < tuiles.size(); ++i) {
    const TTOrientedImage<float> oa((d / "Ort_" + tuiles[i]).c_str()),
        sa((d / "Solution_" + tuiles[i]).c_str());
    for (size_t j = i + 1; j < tuiles.size(); ++j) {
      const TTOrientedImage<float> ob((d / "Ort_" + tuiles[j]).c_str()),
          sb((d / "Solution_" + tuiles[j]).c_str());
      long n = 0, m = 0;
      const double x = DesaccordRecouvrement(oa, ob, n), y = DesaccordRecouvrement(sa, sb, m);
      EXPECT_EQ(n, m) << tuiles[i] << " / " << tuiles[j];
      avant += x * n;
      apres += y * m;
      pixels += n;
    }
  }
  ASSERT_GT(pixels, 0);
  avant /= pixels;
  apres /= pixels;
  // At least a four-fold drop (this data set: 22.1 grey levels before, 4.2 after).
  EXPECT_GT(avant, 8.0);
  EXPECT_LT(apres * 4, avant) << "avant " << avant << ", apres " << apres;

  // The quick-look has the mosaic's size, 0 exactly where the mosaic has no data, and its grey levels
  // follow the mosaic's values.
  r = Apercu(d.chemin(), "mosaique.tif mosaique.pgm");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  const TTImage<float> mosaique((d / "mosaique.tif").c_str());
  const Pgm p = LirePgm(d / "mosaique.pgm");
  ASSERT_EQ(p.largeur, mosaique.iGetNbColonnes());
  ASSERT_EQ(p.hauteur, mosaique.iGetNbLignes());
  std::vector<std::pair<float, unsigned char>> couples;
  for (int l = 0; l < p.hauteur; ++l) {
    for (int c = 0; c < p.largeur; ++c) {
      const unsigned char g = static_cast<unsigned char>(p.pixels[static_cast<size_t>(l) * p.largeur + c]);
      EXPECT_EQ(g == 0, mosaique(c, l) == 0.0f) << c << ", " << l;
      if (g != 0) couples.emplace_back(mosaique(c, l), g);
    }
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
  const float valeurs[3][4] = {{0, 10, 20, 30}, {nan, -5, 40, 15}, {25, 0, 10.5f, 29.9f}};
  TTImage<float> im(4, 3, TagNbCanaux(1));
  for (int l = 0; l < 3; ++l)
    for (int c = 0; c < 4; ++c) im(c, l) = valeurs[l][c];
  im.Sauver((d / "im.tif").c_str());

  test::Resultat r = Apercu(d.chemin(), "im.tif im.pgm --min 10 --max 30");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  EXPECT_EQ(test::LireFichier(d / "im.pgm").substr(0, 11), "P5\n4 3\n255\n");
  const Pgm p = LirePgm(d / "im.pgm");
  // 1 + (v - 10) * 254 / 20, rounded, kept in 1..255; no data and NaN give 0.
  const int attendu[3][4] = {{0, 1, 128, 255}, {0, 1, 255, 65}, {192, 0, 7, 254}};
  for (int l = 0; l < 3; ++l)
    for (int c = 0; c < 4; ++c)
      EXPECT_EQ(static_cast<unsigned char>(p.pixels[l * 4 + c]), attendu[l][c]) << c << ", " << l;

  // Each refusal: status 255, a message, and no file left behind.
  const char* refus[][2] = {{"absente.tif sortie.pgm", "absente.tif"},
                            {"im.tif sortie.pgm --min 30 --max 10", "--min 30"},
                            {"im.tif sortie.pgm --max", "--max attend une valeur"},
                            {"im.tif dossier_absent/sortie.pgm", "dossier_absent/sortie.pgm"}};
  for (const auto& c : refus) {
    r = Apercu(d.chemin(), c[0]);
    EXPECT_EQ(r.statut, 255) << c[0];
    EXPECT_NE(r.sortie.find("Exception :"), std::string::npos) << r.sortie;
    EXPECT_NE(r.sortie.find(c[1]), std::string::npos) << r.sortie;
    EXPECT_FALSE(std::ifstream(d / "sortie.pgm").good()) << c[0];
  }
  // An image without data cannot be stretched from its percentiles: every pixel stays 0.
  TTImage<float>(5, 2, 0.0f).Sauver((d / "vide.tif").c_str());
  ASSERT_EQ(Apercu(d.chemin(), "vide.tif vide.pgm").statut, 0);
  EXPECT_EQ(LirePgm(d / "vide.pgm").pixels, std::string(10, '\0'));
}

TEST(GenererDemo, RefuseLesParametresAberrants) {
  test::DossierTemp d;
  const char* refus[][2] = {{"x --grille 0", "Grille de 0"},
                            {"x --recouvrement nan", "Recouvrement de nan"},
                            {"x --grille 60 --taille 20000 --pixel 10", "hors de la zone Lambert 2"},
                            {"x --couleur 2", "Option inconnue : --couleur"}};
  for (const auto& c : refus) {
    const test::Resultat r = Generer(d.chemin(), c[0]);
    EXPECT_EQ(r.statut, 255) << c[0];
    EXPECT_NE(r.sortie.find(c[1]), std::string::npos) << c[0] << "\n" << r.sortie;
    EXPECT_FALSE(std::ifstream(d / "x/distorsions.txt").good()) << c[0];
  }
}

}  // namespace
