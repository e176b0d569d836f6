// The demo programs run as a user runs them: the generated tiles, the job run on them, the quick-looks
// checked byte by byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
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

// The samples of an 8-bit image file GDAL reads (a PNG), through an uncompressed TIFF copy.
TTImage<unsigned char> LirePng(const std::string& dossier, const std::string& png) {
  const test::Resultat r = test::Lancer(dossier, "gdal_translate -q -of GTiff " + png + " " + png + ".tif");
  EXPECT_EQ(r.statut, 0) << r.sortie;
  return TTImage<unsigned char>((dossier + "/" + png + ".tif").c_str());
}

TEST(Apercu, PngRgbDeToutTypeAvecNodataEtCoteACote) {
  test::DossierTemp d;
  // 3 bands of uint16; no-data 7 (tagged by gdal_translate) in any band makes the pixel empty, and 0
  // is then a value.
  const unsigned short v[4 * 3 * 3] = {10, 20, 30, 0,  7,  30, 25, 25, 25, 40, 5, 15, 30, 30, 30, 12, 7,  12,
                                       20, 10, 40, 11, 13, 17, 29, 28, 27, 8,  9, 10, 7,  7,  7,  30, 20, 10};
  TTImage<unsigned short> im(4, 3, TagNbCanaux(3));
  std::copy(v, v + 36, im.begin());
  im.Sauver((d / "brut.tif").c_str());
  test::Resultat r =
      test::Lancer(d.chemin(),
                   "gdal_translate -q -a_nodata 7 -co COMPRESS=DEFLATE -co TILED=YES "
                   "brut.tif im.tif && '" APERCU_EXE "' im.tif im.png --min 10 --max 30 && '" APERCU_EXE
                   "' im.tif im.tif cote.png --min 10 --max 30");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  const TTImage<unsigned char> png = LirePng(d.chemin(), "im.png"), cote = LirePng(d.chemin(), "cote.png");
  ASSERT_EQ(png.GetNbCanaux(), 3);
  ASSERT_EQ(png.iGetNbColonnes(), 4);
  ASSERT_EQ(png.iGetNbLignes(), 3);
  // Two images of 4 columns and 16 blank ones between them.
  ASSERT_EQ(cote.iGetNbColonnes(), 24);
  ASSERT_EQ(cote.iGetNbLignes(), 3);
  for (int p = 0; p < 12; ++p) {
    const bool vide = v[3 * p] == 7 || v[3 * p + 1] == 7 || v[3 * p + 2] == 7;
    for (int b = 0; b < 3; ++b) {
      // 1 + (v - 10) * 254 / 20, rounded, kept in 1..255.
      const double niveau = std::min(255.0, std::max(1.0, std::round(1 + (v[3 * p + b] - 10) * 254.0 / 20)));
      const unsigned char attendu = vide ? 0 : static_cast<unsigned char>(niveau);
      const int x = p % 4, y = p / 4;
      EXPECT_EQ(png.GetLines(y)[3 * x + b], attendu) << p << " " << b;
      EXPECT_EQ(cote.GetLines(y)[3 * x + b], attendu) << p << " " << b;
      EXPECT_EQ(cote.GetLines(y)[3 * (x + 20) + b], attendu) << p << " " << b;
      for (int g = 4; g < 20; ++g) EXPECT_EQ(cote.GetLines(y)[3 * g + b], 0);
    }
  }
  // A grey image beside an RGB one is refused.
  TTImage<float>(4, 3, 1.0f).Sauver((d / "gris.tif").c_str());
  r = test::Lancer(d.chemin(), "'" APERCU_EXE "' gris.tif im.tif x.png");
  EXPECT_EQ(r.statut, 255);
  EXPECT_NE(r.sortie.find("n'ont pas le meme nombre de bandes"), std::string::npos) << r.sortie;
  EXPECT_FALSE(std::ifstream(d / "x.png").good());
}

// One line of tuiles/distorsions.txt: tile, band, gain, offset, slopes and vignetting.
struct LigneDistorsion {
  std::string tuile;
  int bande = 0;
  double gain = 0, offset = 0, penteX = 0, penteY = 0, vignettage = 0;
};

TEST(GenererDemo, TuilesGeoTIFFPlaceesEtDistorsionsConformesAuFichier) {
  test::DossierTemp d;
  ASSERT_EQ(Lancer(GENERER_DEMO_EXE, d.chemin(), "t --geotiff --grille 2 --taille 64 --fils 2").statut, 0);
  ASSERT_EQ(Lancer(GENERER_DEMO_EXE, d.chemin(), "g --geotiff --bandes 1 --grille 2 --taille 64").statut, 0);
  const test::Resultat refus = Lancer(GENERER_DEMO_EXE, d.chemin(), "x --geotiff --bandes 2 --taille 64");
  EXPECT_EQ(refus.statut, 255);
  EXPECT_NE(refus.sortie.find("2 bandes : 1 ou 3 attendu"), std::string::npos) << refus.sortie;
  // Tags as GDAL reads them: Lambert-93, no-data 0 on each band, Deflate tiles; tile (0, 1) starts
  // 51 pixels (64 less 20 %) east of the first.
  for (const char* c : {"t", "g"}) {
    const std::string j = test::Lancer(d / c, "gdalinfo -json tuile_0_1.tif").sortie;
    const int bandes = std::string(c) == "t" ? 3 : 1;
    EXPECT_NE(j.find("2154]]"), std::string::npos) << j;
    EXPECT_NE(j.find("\"COMPRESSION\":\"DEFLATE\""), std::string::npos) << j;
    EXPECT_EQ(test::Occurrences(j, "\"noDataValue\":0"), static_cast<size_t>(bandes)) << j;
    EXPECT_NE(j.find("\"geoTransform\":[\n    650025.5,\n    0.5,"), std::string::npos) << j;
  }
  // Where tiles (0, 0) and (0, 1) overlap, their values with the distortions of distorsions.txt undone
  // agree up to the rounding of each.
  std::map<std::pair<std::string, int>, LigneDistorsion> dist;
  std::istringstream texte(test::LireFichier(d / "t/distorsions.txt"));
  for (std::string l; std::getline(texte, l);) {
    if (l.empty() || l[0] == '#') continue;
    std::istringstream s(l);
    LigneDistorsion x;
    s >> x.tuile >> x.bande >> x.gain >> x.offset >> x.penteX >> x.penteY >> x.vignettage;
    dist[{x.tuile, x.bande}] = x;
  }
  ASSERT_EQ(dist.size(), 12u);
  const TTImage<unsigned char> a((d / "t/tuile_0_0.tif").c_str()), b((d / "t/tuile_0_1.tif").c_str());
  const auto redresser = [&](const TTImage<unsigned char>& im, const char* nom, int c, int l, int bande) {
    const LigneDistorsion& x = dist[{nom, bande + 1}];
    const double u = (c + 0.5 - 32) / 32, v = (l + 0.5 - 32) / 32;
    return (im.GetLines(l)[3 * c + bande] -
            (x.offset + x.penteX * u + x.penteY * v + x.vignettage * (u * u + v * v))) /
           x.gain;
  };
  int compares = 0;
  for (int l = 0; l < 64; ++l)
    for (int c = 0; c < 64 - 51; ++c)
      for (int bande = 0; bande < 3; ++bande) {
        const unsigned char va = a.GetLines(l)[3 * (c + 51) + bande], vb = b.GetLines(l)[3 * c + bande];
        if (va <= 1 || vb <= 1 || va == 255 || vb == 255) continue;  // no data or clamped
        // Each value is rounded by at most 0.5, that is 0.5 / gain once undone.
        const double tolerance = 0.5 / dist[{"tuile_0_0.tif", bande + 1}].gain +
                                 0.5 / dist[{"tuile_0_1.tif", bande + 1}].gain + 1e-9;
        EXPECT_NEAR(redresser(a, "tuile_0_0.tif", c + 51, l, bande),
                    redresser(b, "tuile_0_1.tif", c, l, bande), tolerance)
            << l << " " << c << " " << bande;
        ++compares;
      }
  EXPECT_GT(compares, 1000);
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
