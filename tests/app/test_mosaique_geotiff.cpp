// The mosaic job on tiles placed by their GeoTIFF tags, or by world files, with no .ori beside them:
// the same console lines and the same bytes as on the same grid written in .ori files.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "outils_test.h"
#include "zepra/orientedimage.h"

namespace {

TEST(MosaiqueJob, TuilesGeoTIFFOuWorldFileCommeAvecOri) {
  // 2 x 2 tiles of 48 x 40 pixels of 0.5 x 0.25 m, overlapping; each with its own distortion.
  test::DossierTemp ori, geotiff, monde;
  const double pasX = 0.5, pasY = 0.25;
  std::string noms;
  for (int k = 0; k < 4; ++k) {
    const std::string nom = "t" + std::to_string(k) + ".tif", ort = "Ort_" + nom;
    const double x0 = 651000 + 16 * (k % 2), y0 = 6862000 - 6 * (k / 2);
    TTOrientedImage<float> im(40, 48, TagNbCanaux(1),
                              OrientationOld(eORICarto, x0, y0, 0, 48, 40, pasX, pasY));
    for (int y = 0; y < 40; ++y)
      for (int x = 0; x < 48; ++x) {
        const double X = x0 + x * pasX, Y = y0 - y * pasY;
        im(x, y) =
            static_cast<float>(100 + 20 * std::sin(X / 7.0) * std::cos(Y / 3.0) + 5 * k + 0.1 * x - 0.05 * y);
      }
    im.Sauver((ori / ort).c_str());
    std::ostringstream ullr;
    ullr << std::fixed << x0 << " " << y0 << " " << x0 + 48 * pasX << " " << y0 - 40 * pasY;
    const test::Resultat r =
        test::Lancer(ori.chemin(), "gdal_translate -q -a_srs EPSG:2154 -a_ullr " + ullr.str() + " " + ort +
                                       " '" + geotiff / ort + "' && cp " + ort + " Ort_t" +
                                       std::to_string(k) + ".tfw '" + monde.chemin() + "'");
    ASSERT_EQ(r.statut, 0) << r.sortie;
    noms += nom + " ";
  }
  std::string console[3];
  const test::DossierTemp* dossiers[] = {&ori, &geotiff, &monde};
  for (int i = 0; i < 3; ++i) {
    const test::Resultat r = test::Egalise(dossiers[i]->chemin(), noms + "--pas 1");
    ASSERT_EQ(r.statut, 0) << r.sortie << test::LireFichier(*dossiers[i] / "log.txt");
    console[i] = r.sortie;
  }
  ASSERT_NE(console[0].find("Decomposition LDLt OK"), std::string::npos) << console[0];
  EXPECT_TRUE(console[1] == console[0] && console[2] == console[0]);
  std::vector<std::string> sorties = {"big_image.tif", "big_image.ori", "big_image.tfw"};
  for (int k = 0; k < 4; ++k)
    for (const char* ext : {".tif", ".ori", ".tfw"})
      sorties.push_back("Solution_t" + std::to_string(k) + ext);
  for (const std::string& f : sorties) {
    const std::string attendu = test::LireFichier(ori / f);
    ASSERT_FALSE(attendu.empty()) << f;
    EXPECT_TRUE(test::LireFichier(geotiff / f) == attendu && test::LireFichier(monde / f) == attendu) << f;
  }
}

}  // namespace
