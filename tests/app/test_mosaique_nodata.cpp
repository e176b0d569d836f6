// Which pixels of a multi-band tile hold no data: those whose every band is the no-data value, as
// gdalwarp reads tiles whose bands share one (a dark pixel with a 0 in one band is data), and those
// with a NaN sample. Tiles made by python3-gdal with shadow pixels; the valid area of the --noegal
// mosaic against gdalwarp's for the same tiles, and each band of the mosaic read alone by GDAL.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "outils_test.h"

namespace {

// tuile.py NOM TYPE ETIQUETTE K: tile K (0 or 1, the second 40 pixels to the right) of 64 x 48
// pixels of 0.5 m in EPSG:2154, 3 bands of TYPE (uint8, uint16, float32), a smooth texture, its 6 x 5
// upper-left corner 0 in every band, with the no-data tag 0 when ETIQUETTE is oui. Shadow pixels,
// (0,3,5) (0,0,0) (3,0,0) and for float (NaN,3,5), in tile 0 on row 10 from column 5 (seen by no
// other tile) and on row 20 from column 50 (under tile 1, which has 0 in every band there), in tile
// 1 on row 30 from column 30 (seen by tile 1 alone).
const char* kTuile = R"(import sys, numpy as np
from osgeo import gdal, osr
gdal.UseExceptions()
nom, type_, etiquette, k = sys.argv[1], sys.argv[2], sys.argv[3] == 'oui', int(sys.argv[4])
gdt = {'uint8': gdal.GDT_Byte, 'uint16': gdal.GDT_UInt16, 'float32': gdal.GDT_Float32}[type_]
w, h, pas, x0, y0 = 64, 48, 0.5, 650000 + 20 * k, 6860000
X, Y = np.meshgrid(np.arange(w) + 40 * k, np.arange(h))
v = np.array([(60 + 40 * np.sin(X / 5.0 + b) * np.cos(Y / 4.0 - b)) * (1 + 0.2 * k) for b in range(3)])
if type_ == 'uint16': v *= 40
v = np.round(v)
v[:, :5, :6] = 0
ombres = [(0, 3, 5), (0, 0, 0), (3, 0, 0)] + ([(np.nan, 3, 5)] if type_ == 'float32' else [])
for ligne, colonne in ([(10, 5), (20, 50)] if k == 0 else [(30, 30)]):
    for i, o in enumerate(ombres): v[:, ligne, colonne + i] = o
if k == 1: v[:, 20, 10:10 + len(ombres)] = 0
m = gdal.GetDriverByName('GTiff').Create(nom, w, h, 3, gdt, ['TILED=YES', 'BLOCKXSIZE=16', 'BLOCKYSIZE=16'])
m.SetGeoTransform((x0, pas, 0, y0, 0, -pas))
s = osr.SpatialReference(); s.ImportFromEPSG(2154); m.SetProjection(s.ExportToWkt())
for b in range(3):
    m.GetRasterBand(b + 1).WriteArray(v[b])
    if etiquette: m.GetRasterBand(b + 1).SetNoDataValue(0)
)";

// oracle.py MOSAIQUE ETIQUETTE TUILE...: prints "partiels P ecarts E nan N ombres S valeurs V".
// P: pixels of the mosaic and of the corrected images c/TUILE some band of which GDAL reads as no
// data and another not (a GIS showing per-band no-data would show them partly); E: pixels valid on one side
// only, the mosaic against gdalwarp of the tiles on its grid (-srcnodata 0 for untagged tiles), leaving out N
// pixels where gdalwarp takes a NaN sample as data; S: the mosaic's validity at each shadow pixel (1 valid, 0
// not); V: the valid shadow pixels whose bands are not the tile's, a 0 written as the next value of the type.
const char* kOracle = R"(import sys, subprocess, numpy as np
from osgeo import gdal
gdal.UseExceptions()
o = gdal.Open(sys.argv[1]); g = o.GetGeoTransform(); W, H = o.RasterXSize, o.RasterYSize
A = o.ReadAsArray().astype(float)
def masques(f):
    return np.array([f.GetRasterBand(b + 1).GetMaskBand().ReadAsArray() > 0 for b in range(3)])
valide = masques(o).all(axis=0)
partiels = 0
for f in [o] + [gdal.Open('c/' + t) for t in sys.argv[3:]]:
    m = masques(f)
    partiels += int((m.any(axis=0) & ~m.all(axis=0)).sum())
subprocess.run(['gdalwarp', '-q', '-overwrite', '-r', 'near', '-te', str(g[0]), str(g[3] + H * g[5]),
                str(g[0] + W * g[1]), str(g[3]), '-ts', str(W), str(H), '-dstalpha', '-ot', 'Float64']
               + ([] if sys.argv[2] == 'oui' else ['-srcnodata', '0']) + sys.argv[3:] + ['w.tif'], check=True)
B = gdal.Open('w.tif').ReadAsArray()
v = B[3] > 0
nan = v & np.isnan(B[:3]).any(axis=0)
ecarts = int(((v & ~nan) != valide).sum())
flottant = o.GetRasterBand(1).DataType == gdal.GDT_Float32
n = 4 if flottant else 3
ombres, valeurs = '', 0
for k, (ligne, colonne) in enumerate([(10, 5), (20, 50), (30, 70)][:2 + (len(sys.argv) > 4)]):
    t = gdal.Open(sys.argv[3 + (k == 2)]).ReadAsArray().astype(float)
    for i in range(n):
        c = colonne + i
        ombres += '1' if valide[ligne, c] else '0'
        if not valide[ligne, c]: continue
        for b in range(3):
            s, m = t[b, ligne, c - 40 * (k == 2)], A[b, ligne, c]
            valeurs += not (m == s or (s == 0 and (0 < m < 1e-30 if flottant else m == 1)))
print('partiels', partiels, 'ecarts', ecarts, 'nan', int(nan.sum()), 'ombres', ombres, 'valeurs', valeurs)
)";

TEST(MosaiqueNodata, PixelSansDonneeSeulementQuandToutesLesBandesLeSont) {
  test::DossierTemp d;
  std::ofstream(d / "tuile.py") << kTuile;
  std::ofstream(d / "oracle.py") << kOracle;
  for (const std::string type : {"uint8", "uint16", "float32"})
    for (const std::string etiquette : {"oui", "non"})
      for (int n = 1; n <= 2; ++n) {
        SCOPED_TRACE(type + " etiquette " + etiquette + ", " + std::to_string(n) + " tuile(s)");
        // Every shadow pixel with a 0 in every band is no data, the others are data, on each of the
        // n + 1 rows of shadows. gdalwarp takes (NaN,3,5) for data; a NaN would spread over the blend
        // and the statistics.
        const bool flottant = type == "float32";
        std::string ombres;
        for (int k = 0; k <= n; ++k) ombres += flottant ? "1010" : "101";
        const std::string attendu = "partiels 0 ecarts 0 nan " + std::to_string(flottant ? n + 1 : 0) +
                                    " ombres " + ombres + " valeurs 0\n";
        std::string tuiles;
        for (int k = 0; k < n; ++k) {
          const std::string t = "t" + std::to_string(k) + ".tif";
          const test::Resultat r = test::Lancer(d.chemin(), "/usr/bin/python3 tuile.py " + t + " " + type +
                                                                " " + etiquette + " " + std::to_string(k));
          ASSERT_EQ(r.statut, 0) << r.sortie;
          tuiles += t + " ";
        }
        test::Resultat r = test::Lancer(d.chemin(), "rm -rf c && mkdir c && '" EGALISE_EXE "' mosaique " +
                                                        tuiles + "-o m.tif --noegal --quiet --corriges c");
        ASSERT_EQ(r.statut, 0) << r.sortie;
        r = test::Lancer(d.chemin(), "/usr/bin/python3 oracle.py m.tif " + etiquette + " " + tuiles);
        ASSERT_EQ(r.statut, 0) << r.sortie;
        EXPECT_EQ(r.sortie, attendu);
      }
}

}  // namespace
