// What a TIFF file says besides its first image: the metadata the reader hands out (the masks GDAL
// writes are read in the window tests), and the limit on what is allocated from a file's declared sizes.
#include <gtest/gtest.h>

#include "outils_image_test.h"
#include "zepra/imagefic.h"
#include "zepra/metadonnees.h"

namespace {

using test::Refuse;

// RGBA 8-bit image whose alpha is 0 on a diagonal band and at the borders, 255 elsewhere.
TTImage<unsigned char> Rvba(int w, int h) {
  TTImage<unsigned char> im = test::ImageMotif<unsigned char>(w, h, 4);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const bool valide = x > 0 && y > 0 && x + 1 < w && std::abs(x - 2 * y) > 3;
      im(x, y, 3) = valide ? 255 : 0;
    }
  return im;
}

TEST(TiffMetadonnees, DonneesParLeLecteurEtBornees) {
  test::DossierTemp dir;
  Rvba(20, 10).Sauver((dir / "rvba.tif").c_str());
  const test::Resultat r = test::Lancer(dir.chemin(),
                                        "gdal_translate -q -a_nodata 7 -co ALPHA=YES -co BIGTIFF=YES "
                                        "-co INTERLEAVE=BAND -co COMPRESS=PACKBITS rvba.tif g.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  const ImageFicIn fichier((dir / "g.tif").c_str());
  const MetadonneesImage* m = fichier.Metadonnees();
  ASSERT_TRUE(m);
  EXPECT_TRUE(m->bigtiff);
  EXPECT_TRUE(m->nodataPresent);
  EXPECT_EQ(m->nodata, 7.0);
  EXPECT_EQ(m->canalAlpha, 3);
  EXPECT_EQ(m->planaire, 2);
  EXPECT_EQ(m->compression, 32773);
  // The same as the metadata read on their own.
  const std::unique_ptr<MetadonneesImage> seules = LireMetadonnees(dir / "g.tif");
  EXPECT_TRUE(seules->bigtiff && seules->nodata == 7.0 && seules->canalAlpha == 3);

  // Tags we do not interpret are kept, up to 1 MB each; a GeoKey directory that contradicts itself
  // makes the metadata an Erreur, not the pixels.
  test::TiffTest tags = test::TiffSimple(4, 4, 1, std::string(16, '\x05'));
  tags.Brut(50000, 1, 3, "abc").Brut(50001, 7, (1 << 20) + 1, std::string((1 << 20) + 1, 'x'));
  test::TiffTest(tags).Court(34735, {1, 1, 0, 9}).Ecrire(dir / "t.tif");
  EXPECT_EQ(TTImage<unsigned char>((dir / "t.tif").c_str())(3, 3), 5);
  const ImageFicIn t((dir / "t.tif").c_str());
  Refuse([&] { t.Metadonnees(); },
         "[LireMetadonnees] GeoKeyDirectory de 4 valeurs incoherent dans le fichier ");
  tags.Ecrire(dir / "t.tif");
  const std::unique_ptr<MetadonneesImage> gardes = LireMetadonnees(dir / "t.tif");
  ASSERT_EQ(gardes->autresTags.size(), 1u);
  EXPECT_EQ(gardes->autresTags[0].code, 50000);
  EXPECT_EQ(std::string(gardes->autresTags[0].valeurs.begin(), gardes->autresTags[0].valeurs.end()), "abc");
}

// A whole image, or one block, larger than the limit is refused before it is allocated.
TEST(TiffLimite, ImageOuBlocAuDelaDeLaLimite) {
  test::DossierTemp dir;
  test::ImageMotif<unsigned char>(40, 30, 2).Sauver((dir / "i.tif").c_str());
  ASSERT_EQ(test::Tiffcp(dir, "-t -w 32 -l 32", "i.tif", "t.tif"), "");
  ASSERT_EQ(test::Tiffcp(dir, "-r 4", "i.tif", "s.tif"), "");
  struct Limite {  // the default back whatever happens
    explicit Limite(uint64_t octets) { SetLimiteOctetsDecodes(octets); }
    ~Limite() { SetLimiteOctetsDecodes(kLimiteOctetsDecodesDefaut); }
  };
  TTImage<unsigned char> im;
  {
    const Limite limite(2399);
    Refuse([&] { im.Lire((dir / "s.tif").c_str()); },
           "[TTIMAGE] (Lire) Image " + (dir / "s.tif") +
               " de 40 x 30 x 2 echantillons (2400 octets) au-dela "
               "de la limite de 2399 octets.");
    im.LireCanal((dir / "s.tif").c_str(), 1);  // 1200 bytes
    EXPECT_EQ(im.size(), 1200u);
  }
  {
    const Limite limite(2047);
    Refuse([&] { ImageFicIn((dir / "t.tif").c_str()); },
           "[TIFF_Annexes] (GetImage) Blocs de 32 x 32 pixels (64 octets par ligne) au-dela de la limite de "
           "2047");
  }
  EXPECT_EQ(TTImage<unsigned char>((dir / "t.tif").c_str()).size(), 2400u);
}

}  // namespace
