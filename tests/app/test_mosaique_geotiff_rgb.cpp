// egalise mosaique end to end on 3 x 2 RGB GeoTIFF tiles written by
// gdal_translate (Deflate, tiled, EPSG:2154, no-data 0), each band of each tile
// with its own gain and offset: the mosaic against the truth and against the
// naive mosaic, its grid against gdalwarp's, its tags read back by gdalinfo,
// and the command lines that must be refused on such files.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "outils_test.h"
#include "zepra/ttimage.h"

namespace {

// Tiles and the steps between their origins, in pixels: overlaps of 64 and 56 pixels.
constexpr int kLargeur = 256, kHauteur = 224, kPasX = 192, kPasY = 168;
constexpr double kPixel = 0.5, kX0 = 651000, kY0 = 6862000;

// The scene of band b at a map point: texture at several scales, about 20 to
// 200.
double Verite(double X, double Y, int b) {
  return 110 + 10 * b + 45 * std::sin(X / 3.1) * std::cos(Y / 4.3) + 25 * std::sin((X + Y) / 11 + b);
}
// The distortion of band b of tile k: gain 0.85..1.15, offset -15..15,
// different for every pair.
double Gain(int k, int b) { return 1 + 0.05 * ((k * 7 + b * 3) % 7 - 3); }
double Offset(int k, int b) { return 5.0 * ((k * 5 + b * 2) % 7 - 3); }

std::set<std::string> Contenu(const std::string& dossier) {
  std::set<std::string> s;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dossier)) s.insert(e.path().string());
  return s;
}

// The tiles t0..t5.tif in d (row by row, north to south), and a naive and an
// equalized mosaic.
class MosaiqueRGB : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    d = new test::DossierTemp;
    for (int k = 0; k < 6; ++k) {
      const double x0 = kX0 + (k % 3) * kPasX * kPixel, y0 = kY0 - (k / 3) * kPasY * kPixel;
      TTImage<unsigned char> im(kLargeur, kHauteur, TagNbCanaux(3));
      for (int l = 0; l < kHauteur; ++l)
        for (int c = 0; c < kLargeur; ++c)
          for (int b = 0; b < 3; ++b) {
            const double v =
                Gain(k, b) * Verite(x0 + (c + 0.5) * kPixel, y0 - (l + 0.5) * kPixel, b) + Offset(k, b);
            // A ragged no-data corner in every tile.
            const bool vide = c + l < 6 + 3 * k;
            im.GetLines(l)[c * 3 + b] =
                vide ? 0 : static_cast<unsigned char>(std::lround(std::min(255.0, std::max(1.0, v))));
          }
      const std::string brut = "brut" + std::to_string(k) + ".tif";
      im.Sauver((*d / brut).c_str());
      std::ostringstream ullr;
      ullr << std::fixed << x0 << ' ' << y0 << ' ' << x0 + kLargeur * kPixel << ' ' << y0 - kHauteur * kPixel;
      const test::Resultat r =
          test::Lancer(d->chemin(),
                       "gdal_translate -q -co COMPRESS=DEFLATE -co TILED=YES "
                       "-co BLOCKXSIZE=64 -co BLOCKYSIZE=64 "
                       "-a_srs EPSG:2154 -a_nodata 0 -a_ullr " +
                           ullr.str() + " " + brut + " t" + std::to_string(k) + ".tif && rm " + brut);
      ASSERT_EQ(r.statut, 0) << r.sortie;
    }
  }
  static void TearDownTestSuite() {
    delete d;
    d = nullptr;
  }
  static std::string Tuiles() { return "t0.tif t1.tif t2.tif t3.tif t4.tif t5.tif"; }
  static test::DossierTemp* d;
};
test::DossierTemp* MosaiqueRGB::d = nullptr;

// RMSE of band b against the truth after one global gain/offset fit, over the
// mosaic's valid pixels.
double RmseApresAjustement(const TTImage<float>& m, const std::vector<double>& gt, int b) {
  double n = 0, sm = 0, st = 0, smm = 0, smt = 0, stt = 0;
  for (int l = 0; l < m.iGetNbLignes(); ++l)
    for (int c = 0; c < m.iGetNbColonnes(); ++c) {
      const float* p = m.GetLines(l) + c * 3;
      if (p[0] == 0 || p[1] == 0 || p[2] == 0) continue;
      const double t = Verite(gt[0] + (c + 0.5) * gt[1], gt[3] + (l + 0.5) * gt[5], b), v = p[b];
      n += 1;
      sm += v;
      st += t;
      smm += v * v;
      smt += v * t;
      stt += t * t;
    }
  EXPECT_GT(n, 0.8 * m.iGetNbColonnes() * m.iGetNbLignes());
  // t ~ a v + c: the residual sum of squares of the normal equations' solution.
  const double vv = smm - sm * sm / n, vt = smt - sm * st / n, tt = stt - st * st / n;
  return std::sqrt(std::max(0.0, (tt - vt * vt / vv) / n));
}

TEST_F(MosaiqueRGB, ChaqueBandePlusProcheDeLaVeriteGrilleDeGdalwarpEtEtiquettes) {
  test::Resultat r = test::Egalise(d->chemin(), "mosaique " + Tuiles() + " -o egal.tif --quiet");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  // The distortions' own model: constant gain and offset per tile and band.
  r = test::Egalise(d->chemin(),
                    "mosaique " + Tuiles() + " -o egal0.tif --degre-gain 0 --degre-offset 0 --quiet");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  r = test::Egalise(d->chemin(), "mosaique " + Tuiles() + " -o naif.tif --noegal --quiet");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  r = test::Lancer(d->chemin(), "gdalwarp -q -tr 0.5 0.5 " + Tuiles() + " warp.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie;

  const std::string jEgal = test::Lancer(d->chemin(), "gdalinfo -json egal.tif").sortie;
  const std::string jWarp = test::Lancer(d->chemin(), "gdalinfo -json warp.tif").sortie;
  const std::vector<double> taille = test::TableauJson(jEgal, "size"),
                            gt = test::TableauJson(jEgal, "geoTransform");
  ASSERT_EQ(taille.size(), 2u) << jEgal;
  ASSERT_EQ(gt.size(), 6u) << jEgal;
  EXPECT_EQ(taille, test::TableauJson(jWarp, "size"));
  const std::vector<double> gtWarp = test::TableauJson(jWarp, "geoTransform");
  ASSERT_EQ(gtWarp.size(), 6u);
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(gt[i], gtWarp[i], 1e-6) << i;
  // The union of the footprints, to the far edges.
  EXPECT_EQ(taille[0], 2 * kPasX + kLargeur);
  EXPECT_EQ(taille[1], kPasY + kHauteur);
  // The inputs' CRS and no-data on every band.
  EXPECT_NE(jEgal.find("\"coordinateSystem\""), std::string::npos);
  EXPECT_NE(jEgal.find("2154]]"), std::string::npos) << jEgal;
  EXPECT_EQ(test::Occurrences(jEgal, "\"noDataValue\":0"), 3u) << jEgal;

  const TTImage<float> egal((*d / "egal.tif").c_str()), naif((*d / "naif.tif").c_str()),
      egal0((*d / "egal0.tif").c_str());
  ASSERT_EQ(egal.GetNbCanaux(), 3);
  ASSERT_EQ(naif.GetNbCanaux(), 3);
  for (int b = 0; b < 3; ++b) {
    const double e = RmseApresAjustement(egal, gt, b), n = RmseApresAjustement(naif, gt, b);
    const double e0 = RmseApresAjustement(egal0, gt, b);
    // With degree-2 fields on 3 x 2 tiles, most of the tiles' differences lie where overlaps cannot
    // see (one map-wide quadratic): closer, not much closer. With the distortions' own model, the
    // error is the rounding's and the blending's.
    EXPECT_LT(e, n) << "bande " << b + 1 << " : egalisee " << e << ", naive " << n;
    EXPECT_LT(e0, 0.25 * n) << "bande " << b + 1 << " : egalisee (degres 0) " << e0 << ", naive " << n;
  }
}

TEST_F(MosaiqueRGB, LignesDeCommandeRefuseesSansRienEcrire) {
  test::DossierTemp e;
  const std::string t = d->chemin() + "/";
  // The output an input, or in a folder nobody can write. (Lines refused before any file is opened are
  // in the command-line table, inputs the job refuses in its own tests.)
  test::Resultat r = test::Lancer(e.chemin(), "mkdir lecture");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  // root writes anywhere: /proc stands for a folder nobody can write.
  const std::string lectureSeule = geteuid() == 0 ? "/proc/m.tif" : "lecture/m.tif";
  if (geteuid() != 0)
    std::filesystem::permissions(e / "lecture",
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  const std::string a = "'" + t + "t0.tif' ";
  const std::string rouges[][3] = {
      {a + "'" + t + "t1.tif' -o '" + t + "t1.tif'", "1",
       "egalise mosaique : [Verification] (VerifierChemins) La sortie"},
      {a + "-o " + lectureSeule, "1",
       "egalise mosaique : [Verification] (VerifierChemins) Impossible d'ecrire dans le dossier"},
  };
  const std::set<std::string> avant = Contenu(e.chemin()), tuiles = Contenu(d->chemin());
  for (const auto& c : rouges) {
    r = test::Egalise(e.chemin(), "mosaique " + c[0] + " --quiet");
    EXPECT_EQ(r.statut, std::atoi(c[1].c_str())) << c[0] << "\n" << r.sortie;
    EXPECT_TRUE(test::Commence(r.sortie, c[2])) << c[0] << "\n" << r.sortie;
    EXPECT_EQ(Contenu(e.chemin()), avant) << c[0];
  }
  // A write that fails halfway (files over 64 blocks refused to the process): why, and nothing left.
  r = test::Lancer(e.chemin(), "trap '' XFSZ; ulimit -f 64; '" EGALISE_EXE "' mosaique " + a + "'" + t +
                                   "t1.tif' -o m.tif --quiet --compression none");
  EXPECT_EQ(r.statut, 1) << r.sortie;
  EXPECT_TRUE(test::Commence(r.sortie,
                             "egalise mosaique : [EcrivainGeoTIFF] Echec de l'ecriture du fichier m.tif "
                             "(fichier trop grand"))
      << r.sortie;
  EXPECT_EQ(Contenu(e.chemin()), avant);
  EXPECT_EQ(Contenu(d->chemin()), tuiles);
}

}  // namespace
