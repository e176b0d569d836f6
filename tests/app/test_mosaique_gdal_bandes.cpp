// What a GIS sees of each band of the mosaic and of the corrected images, read by python3-gdal: the
// colour interpretation, the description, scale, offset and unit of the tiles (GDAL_METADATA), without
// the tiles' statistics, and gdalinfo and tiffinfo reading them without a warning.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "outils_test.h"

namespace {

// tuile.py NOM SORTE X0 Y0 GAIN [CREATION...]: a 240 x 200 tile of 0.5 m in EPSG:2154, each band
// described ("b1"...) with its statistics; rgb, rgba: colour bands of 8 bits, rgb16, rgba16 of 16;
// ms8: three bands of 8 bits that are no colours; mesure16: one 16-bit band with a scale, an offset
// and a unit; palette: indices and their colours; masque: rgb with a mask. Its 40 x 30 upper-left corner is
// transparent (alpha) or 0.
const char* kTuile = R"(import sys, numpy as np
from osgeo import gdal, osr
gdal.UseExceptions()
nom, sorte, x0, y0, gain = sys.argv[1], sys.argv[2], float(sys.argv[3]), float(sys.argv[4]), float(sys.argv[5])
w, h, pas = 240, 200, 0.5
nb = {'rgb': 3, 'rgba': 4, 'rgb16': 3, 'rgba16': 4, 'ms8': 3, 'mesure16': 1, 'palette': 1, 'masque': 3}[sorte]
gdt = gdal.GDT_UInt16 if '16' in sorte else gdal.GDT_Byte
X, Y = np.meshgrid(x0 + (np.arange(w) + 0.5) * pas, y0 - (np.arange(h) + 0.5) * pas)
m = gdal.GetDriverByName('MEM').Create('', w, h, nb, gdt)
m.SetGeoTransform((x0, pas, 0, y0, 0, -pas))
s = osr.SpatialReference(); s.ImportFromEPSG(2154); m.SetProjection(s.ExportToWkt())
valide = np.ones((h, w), bool); valide[:30, :40] = False
couleurs = [gdal.GCI_RedBand, gdal.GCI_GreenBand, gdal.GCI_BlueBand, gdal.GCI_AlphaBand]
for i in range(nb):
    b = m.GetRasterBand(i + 1)
    v = gain * (100 + 60 * np.sin(X / 9.0 + i) * np.cos(Y / 7.0 - i)) * (40 if gdt == gdal.GDT_UInt16 else 1)
    if sorte.startswith('rgba') and i == 3: v = valide * (255 if gdt == gdal.GDT_Byte else 65535)
    else: v[~valide] = 0
    b.WriteArray(v)
    if sorte.startswith('rgb') or sorte == 'masque': b.SetColorInterpretation(couleurs[i])
    b.SetDescription('b%d' % (i + 1))
    if sorte == 'mesure16': b.SetScale(0.01); b.SetOffset(-5); b.SetUnitType('m')
    b.ComputeStatistics(False)
if sorte == 'palette':
    t = gdal.ColorTable()
    for i in range(256): t.SetColorEntry(i, (i, 255 - i, 128, 255))
    m.GetRasterBand(1).SetColorTable(t)
if sorte == 'masque':
    m.CreateMaskBand(gdal.GMF_PER_DATASET)
    m.GetRasterBand(1).GetMaskBand().WriteArray(valide * 255)
gdal.GetDriverByName('GTiff').CreateCopy(nom, m, options=sys.argv[6:])
)";

// bandes.py FICHIER: one word per band, INTERPRETATION:DESCRIPTION:SCALE:OFFSET:UNIT, then the
// number of statistics items GDAL finds.
const char* kBandes = R"(import sys
from osgeo import gdal
gdal.UseExceptions()
d = gdal.Open(sys.argv[1])
mots, stats = [], 0
for i in range(d.RasterCount):
    b = d.GetRasterBand(i + 1)
    mots.append('%s:%s:%s:%s:%s' % (gdal.GetColorInterpretationName(b.GetColorInterpretation()),
                b.GetDescription(), b.GetScale(), b.GetOffset(), b.GetUnitType()))
    stats += len([k for k in b.GetMetadata() if k.startswith('STATISTICS_')])
print(' '.join(mots), stats)
)";

std::string Bandes(const std::string& dossier, const std::string& fichier) {
  const test::Resultat r = test::Lancer(dossier, "/usr/bin/python3 bandes.py " + fichier);
  EXPECT_EQ(r.statut, 0) << r.sortie;
  return r.sortie;
}

TEST(MosaiqueGDALBandes, InterpretationsDescriptionsEtUnitesDesTuiles) {
  const char* rgb = "Red:b1:None:None: Green:b2:None:None: Blue:b3:None:None:";
  const char* rgba = "Red:b1:None:None: Green:b2:None:None: Blue:b3:None:None: Alpha:b4:None:None:";
  const struct {
    const char* sorte;
    const char* creation;
    const char* options;
    const char* mosaique;  // the corrected images have the same bands
  } cas[] = {
      {"rgb", "TILED=YES", "", rgb},
      {"rgb16", "COMPRESS=LZW", "", rgb},
      {"rgba16", "TILED=YES INTERLEAVE=BAND", "--cog --tuile 128", rgba},
      {"rgba", "COMPRESS=DEFLATE", "--type float32", rgba},
      {"rgb", "COMPRESS=JPEG PHOTOMETRIC=YCBCR", "--type uint16 --compression zstd", rgb},
      // JPEG holds no alpha: the alpha's description goes with it.
      {"rgba", "TILED=YES", "--compression jpeg", rgb},
      {"ms8", "PHOTOMETRIC=MINISBLACK", "",
       "Gray:b1:None:None: Undefined:b2:None:None: Undefined:b3:None:None:"},
      // GDAL writes these in RGB, saying Undefined in GDAL_METADATA: the mosaic goes by the RGB.
      {"ms8", "", "--cog --tuile 128", rgb},
      {"mesure16", "COMPRESS=DEFLATE PREDICTOR=2", "--type float32 --cog --tuile 128", "Gray:b1:0.01:-5.0:m"},
  };
  test::DossierTemp d;
  std::ofstream(d / "tuile.py") << kTuile;
  std::ofstream(d / "bandes.py") << kBandes;
  for (const auto& c : cas) {
    SCOPED_TRACE(std::string(c.sorte) + " " + c.creation + " " + c.options);
    std::string co;
    std::istringstream s(c.creation);
    for (std::string o; s >> o;) co += " " + o;
    test::Resultat r = test::Lancer(
        d.chemin(), std::string("rm -rf c m.tif && mkdir c && /usr/bin/python3 tuile.py t0.tif ") + c.sorte +
                        " 650000 6860000 1" + co + " && /usr/bin/python3 tuile.py t1.tif " + c.sorte +
                        " 650070 6859960 1.2" + co);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    r = test::Egalise(d.chemin(),
                      std::string("mosaique t0.tif t1.tif -o m.tif --corriges c --quiet ") + c.options);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    EXPECT_EQ(r.sortie, "");
    EXPECT_EQ(Bandes(d.chemin(), "m.tif"), c.mosaique + std::string(" 0\n"));
    EXPECT_EQ(Bandes(d.chemin(), "c/t1.tif"), c.mosaique + std::string(" 0\n"));
    for (const char* f : {"m.tif", "c/t1.tif"}) {
      // Left aside, as for GDAL's own files: the GeoTIFF and GDAL tags libtiff does not know, and its
      // refusal to print tiled YCbCr JPEG.
      r = test::Lancer(d.chemin(),
                       std::string("CPL_DEBUG=OFF gdalinfo -stats -mdd all ") + f +
                           " 2>&1 >/dev/null && rm -f " + f + ".aux.xml && tiffinfo -D " + f +
                           " 2>&1 >/dev/null | grep -v 'Unknown field with tag "
                           "\\(33550\\|33922\\|34735\\|34736\\|34737\\|42112\\|42113\\)' | grep -v "
                           "'th \\* rowsize > tilesize'");
      EXPECT_EQ(r.sortie, "") << f;
    }
  }
}

}  // namespace

// The mosaic has one no-data value; each corrected image keeps its tile's, when the written type
// holds it.
TEST(MosaiqueGDALBandes, NodataDesImagesCorrigees) {
  const struct {
    const char* nodata[2];  // the gdal_translate options of each tile
    const char* options;
    const char* attendu;  // the no-data values of m.tif, c/t0.tif and c/t1.tif
  } cas[] = {
      {{"-a_nodata 0", "-a_nodata 65535"}, "--nodata 0", "0.0 0.0 65535.0"},
      {{"-a_nodata 0", "-a_nodata 65535"}, "--nodata 0 --type uint8", "0.0 0.0 0.0"},
      {{"", "-a_nodata 65535"}, "--nodata 7 --type float32", "7.0 7.0 65535.0"},
      {{"-ot Float64 -a_nodata nan", "-ot Float64 -a_nodata -1e300"},
       "--nodata 3 --type float32",
       "3.0 nan 3.0"},
  };
  test::DossierTemp d;
  std::ofstream(d / "tuile.py") << kTuile;
  for (const auto& c : cas) {
    SCOPED_TRACE(std::string(c.nodata[0]) + " " + c.nodata[1] + " " + c.options);
    std::string tuiles = "rm -rf c m.tif && mkdir c";
    for (int k = 0; k < 2; ++k) {
      const std::string t = "t" + std::to_string(k);
      tuiles += " && /usr/bin/python3 tuile.py " + t + "_.tif mesure16 " +
                (k ? "650070 6859960 1.2" : "650000 6860000 1") + " && gdal_translate -q " + c.nodata[k] +
                " " + t + "_.tif " + t + ".tif";
    }
    test::Resultat r = test::Lancer(d.chemin(), tuiles);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    r = test::Egalise(d.chemin(),
                      std::string("mosaique t0.tif t1.tif -o m.tif --corriges c --quiet ") + c.options);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    r = test::Lancer(d.chemin(),
                     "/usr/bin/python3 -c \"from osgeo import gdal; d = [gdal.Open(f) for f in ('m.tif', "
                     "'c/t0.tif', 'c/t1.tif')]; print(*[f.GetRasterBand(1).GetNoDataValue() for f in d])\"");
    EXPECT_EQ(r.sortie, c.attendu + std::string("\n"));
  }
}

// Palette tiles are refused, naming the remedy; the remedy is accepted.
TEST(MosaiqueGDALBandes, PaletteRefusee) {
  test::DossierTemp d;
  std::ofstream(d / "tuile.py") << kTuile;
  std::ofstream(d / "bandes.py") << kBandes;
  test::Resultat r = test::Lancer(d.chemin(),
                                  "/usr/bin/python3 tuile.py t0.tif palette 650000 6860000 1 && "
                                  "/usr/bin/python3 tuile.py t1.tif palette 650070 6859960 1");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  r = test::Egalise(d.chemin(), "mosaique t0.tif t1.tif -o m.tif --quiet");
  EXPECT_EQ(r.statut, 1);
  EXPECT_EQ(r.sortie,
            "egalise mosaique : [Mosaique] (Entrees) L'image t0.tif est en couleurs indexees (palette) : la "
            "convertir en RVB (gdal_translate -expand rgb).\n");
  EXPECT_FALSE(std::filesystem::exists(d / "m.tif"));
  r = test::Lancer(
      d.chemin(),
      "gdal_translate -q -expand rgb t0.tif r0.tif && gdal_translate -q -expand rgb t1.tif r1.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  r = test::Egalise(d.chemin(), "mosaique r0.tif r1.tif -o m.tif --quiet");
  EXPECT_EQ(r.statut, 0) << r.sortie;
  EXPECT_EQ(Bandes(d.chemin(), "m.tif"), "Red::None:None: Green::None:None: Blue::None:None: 0\n");
}

// A corrected image keeps its tile's mask, internal or beside it (.msk), as an internal mask.
TEST(MosaiqueGDALBandes, MasqueDesImagesCorrigees) {
  const struct {
    const char* environnement;
    const char* creation;
    const char* options;
  } cas[] = {
      {"GDAL_TIFF_INTERNAL_MASK=YES", "COMPRESS=DEFLATE", ""},
      {"GDAL_TIFF_INTERNAL_MASK=NO", "TILED=YES", "--cog"},
      {"", "COMPRESS=JPEG PHOTOMETRIC=YCBCR", "--compression zstd"},
  };
  test::DossierTemp d;
  std::ofstream(d / "tuile.py") << kTuile;
  for (const auto& c : cas) {
    SCOPED_TRACE(std::string(c.environnement) + " " + c.creation + " " + c.options);
    std::string tuiles = "rm -rf c m.tif t0.tif* t1.tif* && mkdir c";
    for (const char* t : {"t0.tif masque 650000 6860000 1 ", "t1.tif masque 650070 6859960 1.2 "})
      tuiles += std::string(" && ") + c.environnement + " /usr/bin/python3 tuile.py " + t + c.creation;
    test::Resultat r = test::Lancer(d.chemin(), tuiles);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    r = test::Egalise(d.chemin(),
                      std::string("mosaique t0.tif t1.tif -o m.tif --corriges c --quiet ") + c.options);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    // The mask flags of the corrected image and the pixels its mask differs from the tile's.
    r = test::Lancer(
        d.chemin(),
        "/usr/bin/python3 -c \"from osgeo import gdal; t, c = gdal.Open('t1.tif'), gdal.Open('c/t1.tif'); "
        "print(c.GetRasterBand(1).GetMaskFlags(), (t.GetRasterBand(1).GetMaskBand().ReadAsArray() != "
        "c.GetRasterBand(1).GetMaskBand().ReadAsArray()).sum())\"");
    EXPECT_EQ(r.sortie, "2 0\n");
  }
}
