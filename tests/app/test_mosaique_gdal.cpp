// egalise mosaique on tiles as survey software and GDAL write them (YCbCr JPEG with an internal mask,
// RGBA, 16-bit bands with a no-data tag in strips or planes, float with NaN, WebP), each case two
// overlapping tiles made by python3-gdal: the --noegal mosaic against gdalwarp's nearest pixel where
// one tile alone covers it, its holes and its bands as gdalinfo reads them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "outils_test.h"

namespace {

// tuile.py NOM SORTE X0 Y0 GAIN [CREATION...]: a 240 x 200 tile of 0.5 m in EPSG:2154, a smooth
// texture times GAIN, its 40 x 30 upper-left corner without data (mask, alpha, no-data or NaN;
// masquenodata: a mask and a no-data tag of 0 that no sample has, GDAL going by the mask;
// nodata16max: the tag 65535).
const char* kTuile = R"(import sys, numpy as np
from osgeo import gdal, osr
gdal.UseExceptions()
nom, sorte, x0, y0, gain = sys.argv[1], sys.argv[2], float(sys.argv[3]), float(sys.argv[4]), float(sys.argv[5])
w, h, pas = 240, 200, 0.5
nb = {'masque': 3, 'masquenodata': 3, 'alpha': 3, 'nodata16': 4, 'nodata16max': 4, 'nan': 1}[sorte]
gdt = {'nodata16': gdal.GDT_UInt16, 'nodata16max': gdal.GDT_UInt16, 'nan': gdal.GDT_Float32}.get(sorte, gdal.GDT_Byte)
X, Y = np.meshgrid(x0 + (np.arange(w) + 0.5) * pas, y0 - (np.arange(h) + 0.5) * pas)
m = gdal.GetDriverByName('MEM').Create('', w, h, nb + (sorte == 'alpha'), gdt)
m.SetGeoTransform((x0, pas, 0, y0, 0, -pas))
s = osr.SpatialReference(); s.ImportFromEPSG(2154); m.SetProjection(s.ExportToWkt())
valide = np.ones((h, w), bool); valide[:30, :40] = False
for b in range(nb):
    v = gain * (100 + 60 * np.sin(X / 9.0 + b) * np.cos(Y / 7.0 - b))
    if sorte.startswith('nodata16'): v *= 40
    if sorte == 'nodata16': v[~valide] = 0; m.GetRasterBand(b + 1).SetNoDataValue(0)
    if sorte == 'nodata16max': v[~valide] = 65535; m.GetRasterBand(b + 1).SetNoDataValue(65535)
    if sorte == 'nan': v[~valide] = np.nan; m.GetRasterBand(b + 1).SetNoDataValue(float('nan'))
    if sorte == 'masquenodata': m.GetRasterBand(b + 1).SetNoDataValue(0)
    m.GetRasterBand(b + 1).WriteArray(v)
if sorte == 'alpha':
    m.GetRasterBand(4).WriteArray(valide * 255)
    m.GetRasterBand(4).SetColorInterpretation(gdal.GCI_AlphaBand)
if sorte.startswith('masque'):
    m.CreateMaskBand(gdal.GMF_PER_DATASET)
    m.GetRasterBand(1).GetMaskBand().WriteArray(valide * 255)
gdal.SetConfigOption('GDAL_TIFF_INTERNAL_MASK', 'YES')
d = gdal.GetDriverByName('GTiff').CreateCopy(nom, m, options=sys.argv[6:])
d.BuildOverviews('AVERAGE', [2, 4])
)";

// oracle.py MOSAIQUE ENTREE...: prints "trous N horsentrees N ecart E bandes INTERPRETATIONS", E the
// largest difference from gdalwarp's nearest pixel on the mosaic's grid where one input alone covers
// a pixel valid in the mosaic (the mosaic's validity from its alpha, else from its GDAL mask).
const char* kOracle = R"(import sys, subprocess, numpy as np
from osgeo import gdal
gdal.UseExceptions()
o = gdal.Open(sys.argv[1]); g = o.GetGeoTransform(); W, H = o.RasterXSize, o.RasterYSize
bandes = [o.GetRasterBand(i + 1) for i in range(o.RasterCount)]
noms = [gdal.GetColorInterpretationName(b.GetColorInterpretation()) for b in bandes]
A = o.ReadAsArray().reshape(len(bandes), H, W).astype(float)
donnees = [i for i, n in enumerate(noms) if n != 'Alpha']
valide = A[noms.index('Alpha')] > 0 if 'Alpha' in noms else bandes[0].GetMaskBand().ReadAsArray() > 0
n = np.zeros((H, W), int); ecart = np.zeros((H, W))
for k, e in enumerate(sys.argv[2:]):
    subprocess.run(['gdalwarp', '-q', '-overwrite', '-ovr', 'NONE', '-r', 'near', '-te', str(g[0]),
                    str(g[3] + H * g[5]), str(g[0] + W * g[1]), str(g[3]), '-ts', str(W), str(H),
                    '-dstalpha', '-ot', 'Float64', e, 'w.tif'], check=True)
    B = gdal.Open('w.tif').ReadAsArray()
    v = B[-1] > 0
    n += v
    d = np.max(np.abs(A[donnees] - B[:len(donnees)]), axis=0)
    ecart = np.where(v & (n == 1), d, np.where(v, 0, ecart))
print('trous', int(((n > 0) & ~valide).sum()), 'horsentrees', int(((n == 0) & valide).sum()),
      'ecart', float(np.nanmax(np.where(valide & (n == 1), ecart, 0))), 'bandes', ','.join(noms))
)";

// Writes tuile.py in the folder and makes t0.tif at the grid's origin and t1.tif overlapping it (or at
// 'place1': X0 Y0 GAIN), each of its kind with its creation options; what the script printed if it failed.
std::string DeuxTuiles(const test::DossierTemp& d, const std::string& sorte0, const std::string& sorte1,
                       const std::string& co0 = "", const std::string& co1 = "",
                       const std::string& place1 = "650070 6859960 1.2") {
  std::ofstream(d / "tuile.py") << kTuile;
  const test::Resultat r = test::Lancer(
      d.chemin(), "/usr/bin/python3 tuile.py t0.tif " + sorte0 + " 650000 6860000 1 " + co0 +
                      " && /usr/bin/python3 tuile.py t1.tif " + sorte1 + " " + place1 + " " + co1);
  return r.statut == 0 ? "" : r.sortie;
}

struct Cas {
  const char* tuiles[2][2];  // the kind and the creation options of each tile
  const char* options;
  double ecartMax;
  const char* bandes;
};

TEST(MosaiqueGDAL, SansEgalisationCommeGdalwarpLaOuUneTuileSeuleCouvre) {
  const char* jpeg = "COMPRESS=JPEG PHOTOMETRIC=YCBCR TILED=YES BLOCKXSIZE=128 BLOCKYSIZE=128";
  const Cas cas[] = {
      {{{"masque", jpeg}, {"masque", jpeg}}, "", 0, "Red,Green,Blue"},
      {{{"masque", jpeg}, {"masque", jpeg}}, "--compression jpeg", 40, "Red,Green,Blue"},
      {{{"masquenodata", jpeg}, {"masquenodata", "COMPRESS=DEFLATE"}}, "", 0, "Red,Green,Blue"},
      {{{"alpha", "COMPRESS=DEFLATE TILED=YES"}, {"alpha", "COMPRESS=LZW"}}, "", 0, "Red,Green,Blue,Alpha"},
      // JPEG holds no alpha: the validity goes to the internal mask.
      {{{"alpha", "COMPRESS=DEFLATE TILED=YES"}, {"alpha", "COMPRESS=LZW"}},
       "--compression jpeg --cog",
       40,
       "Red,Green,Blue"},
      // A mask and an alpha both say where the data is.
      {{{"masque", jpeg}, {"alpha", "COMPRESS=DEFLATE"}}, "", 0, "Red,Green,Blue,Alpha"},
      {{{"alpha", "COMPRESS=DEFLATE"}, {"masque", jpeg}}, "", 0, "Red,Green,Blue,Alpha"},
      {{{"nodata16", "COMPRESS=LZW PREDICTOR=2"},
        {"nodata16", "COMPRESS=ZSTD PREDICTOR=2 TILED=YES INTERLEAVE=BAND BIGTIFF=YES"}},
       "--compression zstd",
       0,
       "Gray,Undefined,Undefined,Undefined"},
      // Each tile keeps its own tag; --nodata is the mosaic's value. The alpha holds with --nodata.
      {{{"nodata16", "TILED=YES"}, {"nodata16max", "TILED=YES"}},
       "--nodata 0",
       0,
       "Gray,Undefined,Undefined,Undefined"},
      {{{"nodata16max", "TILED=YES"}, {"nodata16", "TILED=YES"}},
       "--nodata 65535",
       0,
       "Gray,Undefined,Undefined,Undefined"},
      {{{"alpha", "COMPRESS=DEFLATE"}, {"alpha", "COMPRESS=DEFLATE"}},
       "--nodata 255",
       0,
       "Red,Green,Blue,Alpha"},
      {{{"nan", "COMPRESS=DEFLATE PREDICTOR=3"}, {"nan", "TILED=YES"}}, "--cog --tuile 128", 0, "Gray"},
      // WebP, as GDAL writes RGB and RGBA orthos for the web: lossy or lossless, tiled or in strips
      // (a last strip of 8 rows), the mask or the alpha with it.
      {{{"masque", "COMPRESS=WEBP TILED=YES BLOCKXSIZE=128 BLOCKYSIZE=128"},
        {"masque", "COMPRESS=WEBP WEBP_LEVEL=90 BLOCKYSIZE=64"}},
       "",
       0,
       "Red,Green,Blue"},
      {{{"alpha", "COMPRESS=WEBP WEBP_LOSSLESS=YES TILED=YES"}, {"alpha", "COMPRESS=WEBP BLOCKYSIZE=96"}},
       "",
       0,
       "Red,Green,Blue,Alpha"},
  };
  test::DossierTemp d;
  std::ofstream(d / "oracle.py") << kOracle;
  for (const Cas& c : cas) {
    std::string t = std::string(c.tuiles[0][0]) + " / " + c.tuiles[1][0] + " " + c.options;
    SCOPED_TRACE(t);
    ASSERT_EQ(DeuxTuiles(d, c.tuiles[0][0], c.tuiles[1][0], c.tuiles[0][1], c.tuiles[1][1]), "");
    test::Resultat r = test::Egalise(
        d.chemin(), std::string("mosaique t0.tif t1.tif -o m.tif --noegal --quiet ") + c.options);
    EXPECT_EQ(r.statut, 0) << r.sortie;
    EXPECT_EQ(r.sortie, "");
    if (r.statut != 0) continue;
    r = test::Lancer(d.chemin(), "/usr/bin/python3 oracle.py m.tif t0.tif t1.tif");
    ASSERT_EQ(r.statut, 0) << r.sortie;
    std::istringstream s(r.sortie);
    std::string mot, bandes;
    long trous = -1, hors = -1;
    double ecart = -1;
    s >> mot >> trous >> mot >> hors >> mot >> ecart >> mot >> bandes;
    EXPECT_EQ(trous, 0) << r.sortie;
    EXPECT_EQ(hors, 0) << r.sortie;
    EXPECT_LE(ecart, c.ecartMax) << r.sortie;
    EXPECT_GE(ecart, 0) << r.sortie;
    EXPECT_EQ(bandes, c.bandes) << r.sortie;
  }
}

}  // namespace

// GDAL reads NAME.aux.xml, NAME.ovr and NAME.msk as parts of NAME: those an earlier mosaic of the
// same name left (gdalinfo -stats, gdaladdo -ro) would lend the new one their statistics, overviews
// and mask. Written in one process or by phases, the mosaic and the corrected images lose them; the
// inputs keep theirs.
TEST(MosaiqueGDAL, AnnexesGdalDUneEcriturePrecedenteRetirees) {
  test::DossierTemp d;
  const std::string job = "mosaique t0.tif t1.tif -o m.tif --corriges c --quiet";
  std::string phases = job + " --travail w --etape observer --index 1";
  for (const char* etape : {"observer --index 2", "resoudre", "composer --partie 1/1", "assembler"})
    phases += std::string(" && ") + EGALISE_EXE + " " + job + " --travail w --etape " + etape;
  const std::string lignes[] = {job, phases};
  ASSERT_EQ(DeuxTuiles(d, "alpha", "alpha"), "");
  test::Resultat r = test::Lancer(d.chemin(), "mkdir c w && gdalinfo -stats t0.tif > /dev/null");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  const std::string fichiers[] = {"m.tif", "c/t0.tif", "c/t1.tif"};
  for (const std::string& ligne : lignes) {
    SCOPED_TRACE(ligne);
    std::string annexes;
    for (const std::string& f : fichiers)
      annexes += " && gdal_translate -q -outsize 8 8 t1.tif " + f + " && gdalinfo -stats " + f +
                 " > /dev/null && gdaladdo -q -ro " + f + " 2 && touch " + f + ".msk";
    r = test::Lancer(d.chemin(), "true" + annexes);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    r = test::Egalise(d.chemin(), ligne);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    for (const std::string& f : fichiers)
      for (const char* annexe : {".aux.xml", ".ovr", ".msk"})
        EXPECT_FALSE(std::filesystem::exists(d / (f + annexe))) << f << annexe;
    EXPECT_TRUE(std::filesystem::exists(d / "t0.tif.aux.xml"));
    r = test::Lancer(d.chemin(), "gdalinfo m.tif");
    EXPECT_EQ(r.sortie.find("Overviews"), std::string::npos) << r.sortie;
    EXPECT_EQ(r.sortie.find("STATISTICS_"), std::string::npos) << r.sortie;
    EXPECT_NE(r.sortie.find("Size is 380, 280"), std::string::npos) << r.sortie;
  }
}

// What GDAL keeps in NAME.aux.xml counts as GDAL reads it: a baseline TIFF placed, in its system and
// with its no-data value, by that file alone or beside a world file gives the very mosaic of the same
// tiles with GeoTIFF tags; so does a no-data value set on a file opened read-only. What it contradicts,
// or cannot be read, is refused before anything is written.
TEST(MosaiqueGDAL, AnnexeAuxXmlLueCommeGdal) {
  const std::string pam = "gdal_translate -q -co PROFILE=BASELINE ";
  const std::string sansTag = "gdal_translate -q -a_nodata none t0.tif u0.tif && ";
  const std::string copie1 = " && cp t1.tif u1.tif";
  const struct {
    std::string preparation;  // makes u0.tif and u1.tif from t0.tif and t1.tif
    const char* refus;        // a fragment of the refusal; null: the mosaic of t0.tif and t1.tif
  } cas[] = {
      {pam + "t0.tif u0.tif && " + pam + "t1.tif u1.tif", nullptr},
      {pam + "-co TFW=YES t0.tif u0.tif && " + pam + "-co TFW=YES t1.tif u1.tif", nullptr},
      {sansTag +
           "/usr/bin/python3 -c \"from osgeo import gdal; d = gdal.Open('u0.tif'); "
           "d.GetRasterBand(1).SetNoDataValue(65535); d = None\"" +
           copie1,
       nullptr},
      {pam + "t0.tif u0.tif && rm u0.tif.aux.xml" + copie1,
       "L'image u0.tif n'est pas georeferencee : ni etiquettes GeoTIFF, ni world file (.tfw, .tifw, .wld), "
       "ni "
       "orientation (.ori), ni grille dans u0.tif.aux.xml."},
      // A world file one metre off the side file's grid.
      {pam + "-co TFW=YES t0.tif u0.tif && awk 'NR == 5 { $0 = $0 + 1 } 1' u0.tfw > x && mv x u0.tfw" +
           copie1,
       "par u0.tif.aux.xml, que GDAL lit en premier : retirer l'un des deux."},
      {"cp t0.tif u0.tif && echo '<PAMDataset><SRS>EPSG:32631</SRS></PAMDataset>' > u0.tif.aux.xml" + copie1,
       "est dans le systeme EPSG:2154 et dans un autre selon u0.tif.aux.xml"},
      {pam +
           "t0.tif u0.tif && echo '<PAMDataset><GeoTransform>650000, 0.5, 0.01, 6860000, 0, -0.5"
           "</GeoTransform></PAMDataset>' > u0.tif.aux.xml" +
           copie1,
       "<GeoTransform> de u0.tif.aux.xml avec rotation ou cisaillement (0.01, 0)"},
      {"cp t0.tif u0.tif && echo '<PAMDataset><SRS>' > u0.tif.aux.xml" + copie1,
       "u0.tif.aux.xml : XML mal forme, element non termine (ligne 2)."},
      {sansTag +
           "echo '<PAMDataset><PAMRasterBand band=\"1\"><NoDataValue>0</NoDataValue></PAMRasterBand>"
           "<PAMRasterBand band=\"2\"><NoDataValue>65535</NoDataValue></PAMRasterBand></PAMDataset>'"
           " > u0.tif.aux.xml" +
           copie1,
       "u0.tif.aux.xml donne a l'image u0.tif des valeurs sans donnee differentes selon les bandes (0, "
       "65535)"},
  };
  test::DossierTemp d;
  ASSERT_EQ(DeuxTuiles(d, "nodata16max", "nodata16max"), "");
  test::Resultat r = test::Egalise(d.chemin(), "mosaique t0.tif t1.tif -o ref.tif --quiet");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  for (const auto& c : cas) {
    SCOPED_TRACE(c.preparation);
    r = test::Lancer(d.chemin(), "rm -f u0* u1* m.tif && " + c.preparation);
    ASSERT_EQ(r.statut, 0) << r.sortie;
    r = test::Egalise(d.chemin(), "mosaique u0.tif u1.tif -o m.tif --quiet");
    if (!c.refus) {
      EXPECT_EQ(r.statut, 0) << r.sortie;
      EXPECT_EQ(r.sortie, "");
      EXPECT_TRUE(test::LireFichier(d / "m.tif") == test::LireFichier(d / "ref.tif"));
      continue;
    }
    EXPECT_EQ(r.statut, 1) << r.sortie;
    EXPECT_NE(r.sortie.find(c.refus), std::string::npos) << r.sortie;
    EXPECT_FALSE(std::filesystem::exists(d / "m.tif"));
  }
}

// By phases, the side file counts by what the job takes from it: statistics a GIS stores there between
// two phases change nothing (the very mosaic of one process), another no-data value is another job.
TEST(MosaiqueGDAL, PhasesEtAnnexeAuxXml) {
  test::DossierTemp d;
  ASSERT_EQ(DeuxTuiles(d, "nodata16max", "nodata16max"), "");
  const std::string job = std::string(EGALISE_EXE) + " mosaique u0.tif u1.tif -o m.tif --quiet";
  const std::string etape = " && " + job + " --travail w --etape ";
  test::Resultat r = test::Lancer(
      d.chemin(),
      "gdal_translate -q -co PROFILE=BASELINE t0.tif u0.tif && gdal_translate -q -co PROFILE=BASELINE "
      "t1.tif u1.tif && " +
          job + " && mv m.tif un.tif" + etape + "observer --index 1" + etape +
          "observer --index 2 && gdalinfo -stats u0.tif > /dev/null && grep -q STATISTICS_MEAN "
          "u0.tif.aux.xml" +
          etape + "resoudre" + etape + "composer --partie 1/1" + etape + "assembler");
  ASSERT_EQ(r.statut, 0) << r.sortie;
  EXPECT_TRUE(test::LireFichier(d / "m.tif") == test::LireFichier(d / "un.tif"));
  r = test::Lancer(
      d.chemin(),
      "sed -i 's/6.55350000000000E+04/0/' u0.tif.aux.xml u1.tif.aux.xml && grep -q '>0<' u0.tif.aux.xml" +
          etape + "assembler 2>&1");
  EXPECT_EQ(r.statut, 1) << r.sortie;
  EXPECT_NE(r.sortie.find("appartient a un autre calcul"), std::string::npos) << r.sortie;
}

// Two tiles far apart, each a warning: on stderr without --quiet, only in the --log file with it; a
// log that cannot be written (a full disk: /dev/full) fails the run rather than lose them, the mosaic
// said to be whole.
TEST(MosaiqueGDAL, AvertissementsSelonQuietEtLog) {
  test::DossierTemp d;
  ASSERT_EQ(DeuxTuiles(d, "alpha", "alpha", "", "", "650500 6860000 1.2"), "");
  test::Resultat r;
  const std::string avertissement = "avertissement : L'image t0.tif ne recouvre aucune autre image";
  const std::string plein =
      "egalise mosaique : [Main_mosaique] (Log) Echec de l'ecriture du fichier /dev/full de --log";
  const struct {
    const char* options;
    bool console, journal;
    int statut = 0;
  } cas[] = {{"", true, false},
             {"--log l.txt", true, true},
             {"--quiet", false, false},
             {"--quiet --log l.txt", false, true},
             {"--quiet --log /dev/full", false, false, 1}};
  for (const auto& c : cas) {
    SCOPED_TRACE(c.options);
    if (c.statut != 0 && !std::filesystem::is_character_file("/dev/full")) continue;
    std::filesystem::remove(d / "l.txt");
    r = test::Egalise(d.chemin(), std::string("mosaique t0.tif t1.tif -o m.tif ") + c.options);
    ASSERT_EQ(r.statut, c.statut) << r.sortie;
    EXPECT_EQ(r.sortie.find("egalise mosaique : " + avertissement) != std::string::npos, c.console)
        << r.sortie;
    EXPECT_EQ(r.sortie.find("egalise mosaique : composition") != std::string::npos, c.console) << r.sortie;
    if (c.statut != 0) {
      EXPECT_TRUE(test::Commence(r.sortie, plein + " (plus de place sur le disque)")) << r.sortie;
      // It fails at the end: the mosaic is whole, and the user is told so.
      EXPECT_NE(
          r.sortie.find("\negalise mosaique : la mosaique m.tif est complete ; seul ce qui la suit n'a pas "
                        "ete ecrit.\n"),
          std::string::npos)
          << r.sortie;
    } else if (!c.console) {
      EXPECT_EQ(r.sortie, "");
    }
    EXPECT_EQ(test::Commence(test::LireFichier(d / "l.txt"), avertissement), c.journal);
  }
}

// The mean on a grid that is not a whole ratio of the tile's, coarser or finer, is gdalwarp's
// area-weighted average (its overviews aside), its no-data corner included; on the partial last line
// and column each keeps its own rule, the mean over the part of the pixel the tile covers here.
TEST(MosaiqueGDAL, MoyenneCommeGdalwarpAverage) {
  test::DossierTemp d;
  ASSERT_EQ(DeuxTuiles(d, "nodata16", "nodata16"), "");
  for (const char* pas : {"0.7", "1.3", "2.1"}) {
    SCOPED_TRACE(pas);
    const test::Resultat r = test::Lancer(
        d.chemin(), std::string(EGALISE_EXE) +
                        " mosaique t0.tif -o a.tif --noegal --reechantillonnage moyenne " +
                        "--type float32 --quiet --resolution " + pas +
                        " && gdalwarp -q -ovr NONE -overwrite -r average -ot Float32 -tr " + pas + " " + pas +
                        " t0.tif g.tif && /usr/bin/python3 -c \"from osgeo import gdal; import numpy as np; "
                        "a, g = (gdal.Open(f).ReadAsArray()[:, :-1, :-1] for f in ('a.tif', 'g.tif')); "
                        "print(a.shape == g.shape, np.abs(a - g).max(), (a == 0).sum())\"");
    ASSERT_EQ(r.statut, 0) << r.sortie;
    std::istringstream s(r.sortie);
    std::string memeTaille;
    double ecart = -1;
    long vides = 0;
    s >> memeTaille >> ecart >> vides;
    EXPECT_EQ(memeTaille, "True") << r.sortie;
    EXPECT_LE(ecart, 1e-3) << r.sortie;
    EXPECT_GE(ecart, 0) << r.sortie;
    EXPECT_GT(vides, 0) << r.sortie;  // the corner without data is there
  }
}

// A narrower integer --type clips the inputs' values: said once, in the log as any warning; a type
// that holds them, or a float, says nothing.
TEST(MosaiqueGDAL, TypePlusEtroitAverti) {
  test::DossierTemp d;
  const struct {
    const char* tuiles;
    const char* options;
    const char* avertissement;  // empty: none
  } cas[] = {
      {"nodata16", "--type uint8",
       "--type uint8 : les valeurs des entrees (uint16) hors de [0, 255] seront ramenees"},
      {"nodata16", "--type int16", "(uint16) hors de [-32768, 32767]"},
      {"nan", "--type uint16 --nodata 0", "(float32) hors de [0, 65535]"},
      {"nodata16", "--type uint32", ""},
      {"nodata16", "--type float32", ""},
      {"nodata16", "", ""},
  };
  std::string precedentes;
  for (const auto& c : cas) {
    SCOPED_TRACE(std::string(c.tuiles) + " " + c.options);
    if (precedentes != c.tuiles) {
      ASSERT_EQ(DeuxTuiles(d, c.tuiles, c.tuiles), "");
    }
    precedentes = c.tuiles;
    std::filesystem::remove(d / "l.txt");
    const test::Resultat r = test::Egalise(
        d.chemin(), std::string("mosaique t0.tif t1.tif -o m.tif --noegal --quiet --log l.txt ") + c.options);
    EXPECT_EQ(r.statut, 0) << r.sortie;
    const std::string log = test::LireFichier(d / "l.txt");
    if (*c.avertissement) {
      EXPECT_NE(log.find(c.avertissement), std::string::npos) << log;
    } else {
      EXPECT_EQ(log.find("--type"), std::string::npos) << log;
    }
  }
}

// Refusals that name their remedy, and the remedy accepted.
TEST(MosaiqueGDAL, RefusEtRemede) {
  test::DossierTemp d;
  const struct {
    const char* tuiles[2];
    const char* options;
    int statut;
    const char* message;
  } cas[] = {
      {{"nan", "nan"},
       "--type uint8",
       1,
       "La valeur sans donnee nan de t1.tif ne tient pas en uint8 : donner --nodata."},
      {{"nan", "nan"}, "--type uint8 --nodata 0", 0, ""},
      {{"nodata16", "nodata16"}, "--type int8", 0, ""},
      {{"nodata16max", "nodata16max"},
       "--type int16",
       1,
       "La valeur sans donnee 65535 de t1.tif ne tient pas en int16"},
      {{"nodata16", "nodata16max"}, "", 1, "valeurs sans donnee differentes (0, 65535) : donner --nodata."},
      // The value given must fit the samples written, and the message says which option to change.
      {{"nodata16", "nodata16"},
       "--type uint8 --nodata -5",
       1,
       "--nodata -5 ne tient pas en uint8 (le type ecrit, voir --type)."},
      {{"nodata16", "nodata16"}, "--nodata 70000", 1, "--nodata 70000 ne tient pas en uint16"},
      {{"nodata16", "nodata16"}, "--nodata 65535", 0, ""},
  };
  for (const auto& c : cas) {
    SCOPED_TRACE(std::string(c.tuiles[0]) + " " + c.tuiles[1] + " " + c.options);
    ASSERT_EQ(DeuxTuiles(d, c.tuiles[0], c.tuiles[1]), "");
    std::filesystem::remove(d / "m.tif");
    const test::Resultat r =
        test::Egalise(d.chemin(), std::string("mosaique t0.tif t1.tif -o m.tif --quiet ") + c.options);
    EXPECT_EQ(r.statut, c.statut) << r.sortie;
    EXPECT_EQ(r.sortie.empty(), !*c.message) << r.sortie;
    EXPECT_NE(r.sortie.find(c.message), std::string::npos) << r.sortie;
    EXPECT_EQ(std::filesystem::exists(d / "m.tif"), c.statut == 0);
  }
}
