// The demo programs run as a user runs them: the generated tiles checked through their own files
// (orientations, distortions described in distorsions.txt, no-data borders), the job run on them, the
// quick-looks checked byte by byte.
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

struct Distorsion {
  double decalage, penteX, penteY, vignettage;
  // The rule stated in the header of distorsions.txt.
  double Valeur(int c, int l, int n) const {
    const double u = (c + 0.5 - n / 2.0) / (n / 2.0), v = (l + 0.5 - n / 2.0) / (n / 2.0);
    return decalage + penteX * u + penteY * v + vignettage * (u * u + v * v);
  }
};

std::map<std::string, Distorsion> LireDistorsions(const std::string& chemin) {
  std::map<std::string, Distorsion> d;
  for (const std::string& l : test::Lignes(test::LireFichier(chemin))) {
    if (l.empty() || l[0] == '#') continue;
    std::istringstream s(l);
    std::string nom;
    Distorsion x{};
    s >> nom >> x.decalage >> x.penteX >> x.penteY >> x.vignettage;
    EXPECT_TRUE(s && s.peek() == EOF) << l;
    d[nom] = x;
  }
  return d;
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

TEST(GenererDemo, TuilesRecouvrantesAvecDistorsionsConnuesEtBordsSansDonnee) {
  test::DossierTemp d;
  const test::Resultat r = Generer(d.chemin(), "jeu --grille 3 --taille 160 --recouvrement 0.25 --graine 7");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  const std::map<std::string, Distorsion> dist = LireDistorsions(d / "jeu/distorsions.txt");
  const std::vector<std::string> noms = NomsTuiles(3);
  ASSERT_EQ(dist.size(), noms.size());

  std::vector<TTOrientedImage<float>> tuiles;
  for (size_t i = 0; i < noms.size(); ++i) {
    SCOPED_TRACE(noms[i]);
    ASSERT_EQ(dist.count(noms[i]), 1u);
    tuiles.emplace_back((d / "jeu/Ort_" + noms[i]).c_str());
    const TTOrientedImage<float>& t = tuiles.back();
    ASSERT_EQ(t.GetTaille(), TPoint2D<int>(160, 160));
    EXPECT_EQ(t.GetOrientation().GetZoneLambert(), 2);
    EXPECT_DOUBLE_EQ(t.GetOrientation().GetPixSize(), 0.5);
    // 160 pixels with 25 % overlap: origins 120 pixels (60 m) apart, rows going south.
    EXPECT_DOUBLE_EQ(t.GetOrientation().GetMinXCarto() - tuiles[0].GetOrientation().GetMinXCarto(),
                     60.0 * (i % 3));
    EXPECT_DOUBLE_EQ(tuiles[0].GetOrientation().GetMaxYCarto() - t.GetOrientation().GetMaxYCarto(),
                     60.0 * (i / 3));
    // No data on the whole outer ring and data in the middle; the no-data parts are borders, not
    // holes: from each no-data pixel a straight run of no data leads to an edge.
    std::vector<int> gauche(160), droite(160), haut(160), bas(160);
    for (int k = 0; k < 160; ++k) {
      EXPECT_EQ(t(k, 0), 0.0f);
      EXPECT_EQ(t(k, 159), 0.0f);
      EXPECT_EQ(t(0, k), 0.0f);
      EXPECT_EQ(t(159, k), 0.0f);
      while (gauche[k] < 160 && t(gauche[k], k) == 0.0f) ++gauche[k];
      while (droite[k] < 160 && t(159 - droite[k], k) == 0.0f) ++droite[k];
      while (haut[k] < 160 && t(k, haut[k]) == 0.0f) ++haut[k];
      while (bas[k] < 160 && t(k, 159 - bas[k]) == 0.0f) ++bas[k];
    }
    long donnees = 0;
    for (int l = 0; l < 160; ++l) {
      for (int c = 0; c < 160; ++c) {
        if (t(c, l) != 0.0f) {
          ++donnees;
          continue;
        }
        EXPECT_TRUE(c < gauche[l] || 159 - c < droite[l] || l < haut[c] || 159 - l < bas[c])
            << c << ", " << l;
      }
    }
    EXPECT_NE(t(80, 80), 0.0f);
    EXPECT_GT(donnees, 160 * 160 * 6 / 10);
  }

  // Where two tiles both hold data, removing each one's distortion as distorsions.txt states leaves the
  // same scene value, up to the rounding of each (values clipped to 1 or 255 left out); with the
  // distortions the tiles disagree visibly.
  int paires = 0;
  for (size_t i = 0; i < tuiles.size(); ++i) {
    for (size_t j = 0; j < tuiles.size(); ++j) {
      if (i == j) continue;
      const TTOrientedImage<float>&a = tuiles[i], &b = tuiles[j];
      const Distorsion &da = dist.at(noms[i]), &db = dist.at(noms[j]);
      int dc, dl;
      Decalage(a, b, dc, dl);
      long n = 0, ecarts = 0;
      for (int l = std::max(0, -dl); l < std::min(160, 160 - dl); ++l) {
        for (int c = std::max(0, -dc); c < std::min(160, 160 - dc); ++c) {
          const float va = a(c, l), vb = b(c + dc, l + dl);
          if (va <= 1 || va >= 255 || vb <= 1 || vb >= 255) continue;
          const double sa = va - da.Valeur(c, l, 160), sb = vb - db.Valeur(c + dc, l + dl, 160);
          ++n;
          ecarts += std::fabs(sa - sb) > 1.0 + 1e-9;
        }
      }
      if (n == 0) continue;
      ++paires;
      EXPECT_EQ(ecarts, 0) << noms[i] << " / " << noms[j] << " sur " << n << " pixels";
      long m = 0;
      EXPECT_GT(DesaccordRecouvrement(a, b, m), 2.0) << noms[i] << " / " << noms[j];
    }
  }
  // 12 edge neighbours and 8 corner neighbours, each pair seen from both sides.
  EXPECT_EQ(paires, 2 * (12 + 8));

  // The same seed gives the same bytes; another seed another scene.
  ASSERT_EQ(Generer(d.chemin(), "bis --grille 3 --taille 160 --recouvrement 0.25 --graine 7").statut, 0);
  ASSERT_EQ(Generer(d.chemin(), "ter --grille 3 --taille 160 --recouvrement 0.25 --graine 8").statut, 0);
  for (const std::string& n : noms) {
    EXPECT_EQ(test::LireFichier(d / "jeu/Ort_" + n), test::LireFichier(d / "bis/Ort_" + n)) << n;
    EXPECT_NE(test::LireFichier(d / "jeu/Ort_" + n), test::LireFichier(d / "ter/Ort_" + n)) << n;
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
                            {"im.tif sortie.pgm --min 10", "--min et --max"},
                            {"im.tif sortie.pgm --min 30 --max 10", "--min 30"},
                            {"im.tif sortie.pgm --min 1 --max x", "\"x\""},
                            {"im.tif sortie.pgm --max", "--max attend une valeur"},
                            {"im.tif sortie.pgm --gamma 2", "--gamma"},
                            {"im.tif", "1 nom(s)"},
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
                            {"x --grille 2.5", "\"2.5\" de --grille"},
                            {"x --taille 10", "Taille de tuile de 10"},
                            {"x --taille 99999999999", "Taille de tuile de 99999999999"},
                            {"x --recouvrement 0.95", "Recouvrement de 0.95"},
                            {"x --recouvrement -0.1", "Recouvrement de -0.1"},
                            {"x --recouvrement nan", "Recouvrement de nan"},
                            {"x --pixel 0", "Taille de pixel de 0"},
                            {"x --pixel 1e400", "\"1e400\" de --pixel"},
                            {"x --grille 60 --taille 20000 --pixel 10", "hors de la zone Lambert 2"},
                            {"x --graine -3", "Graine -3"},
                            {"x --taille", "--taille attend une valeur"},
                            {"x --couleur 2", "Option inconnue : --couleur"},
                            {"x y", "Un seul dossier"},
                            {"--grille 2", "Aucun dossier"}};
  for (const auto& c : refus) {
    const test::Resultat r = Generer(d.chemin(), c[0]);
    EXPECT_EQ(r.statut, 255) << c[0];
    EXPECT_NE(r.sortie.find(c[1]), std::string::npos) << c[0] << "\n" << r.sortie;
    EXPECT_FALSE(std::ifstream(d / "x/distorsions.txt").good()) << c[0];
  }
}

}  // namespace
