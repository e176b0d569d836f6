// Coordinate reference systems: our keys against the keys GDAL writes for the same EPSG code, key
// rewriting for writing, and the comparison of systems given as keys, codes and .prj texts.
#include <gtest/gtest.h>

#include "image/crs/cles_geotiff.h"
#include "image/tiff/geotiff_ecriture.h"
#include "outils_test.h"
#include "zepra/crs.h"

namespace {

using test::DossierTemp;
using test::Lancer;

// The system of a file GDAL creates with 'srs'.
SystemeReference SystemeGdal(const DossierTemp& dir, const std::string& srs) {
  const std::string nom = dir / "gdal.tif";
  const auto r =
      Lancer(dir.chemin(), "gdal_create -q -outsize 2 2 -a_ullr 0 2 2 0 -a_srs '" + srs + "' " + nom);
  EXPECT_EQ(r.statut, 0) << r.sortie;
  const auto m = LireMetadonnees(nom);
  return m ? m->crs : SystemeReference();
}

std::string Wkt(const DossierTemp& dir, const std::string& srs, const std::string& forme) {
  return Lancer(dir.chemin(), "gdalsrsinfo --single-line -o " + forme + " '" + srs + "'").sortie;
}

// Projected systems in metres and feet, geographic ones in degrees and grads, several ellipsoids.
TEST(Crs, ClesDesCodesEpsgCommeGdal) {
  DossierTemp dir;
  for (int code : {2154, 27572, 3857, 32631, 2056, 3035, 2263, 4326, 4807, 4258, 4230, 4171}) {
    SCOPED_TRACE(code);
    const SystemeReference gdal = SystemeGdal(dir, "EPSG:" + std::to_string(code));
    const SystemeReference nous = CrsDepuisEpsg(code);
    EXPECT_EQ(nous.cles, gdal.cles);
    EXPECT_EQ(nous.doubles, gdal.doubles);
    EXPECT_EQ(nous.ascii, gdal.ascii);
    EXPECT_EQ(nous.epsg, code);
    EXPECT_EQ(nous.geographique, gdal.geographique);
    EXPECT_EQ(ComparerCrs(nous, gdal), EgaliteCrs::kMeme);
  }
}

TEST(Crs, CodesRefuses) {
  for (const auto& [code, debut] : std::vector<std::pair<int, std::string>>{
           {1, "[Crs] (DepuisEpsg) Code EPSG 1 inconnu."},
           {99999, "[Crs] (DepuisEpsg) Code EPSG 99999 inconnu."},
           {4978, "[Crs] (DepuisEpsg) Le code EPSG 4978 (WGS 84) n'est ni un systeme projete"},
           {5698, "[Crs] (DepuisEpsg) Le code EPSG 5698"},
           {4979, "[Crs] (DepuisEpsg) Le code EPSG 4979"}}) {
    test::Refuse([&] { CrsDepuisEpsg(code); }, debut);
  }
}

SystemeReference Wkt(const std::string& texte) {
  SystemeReference s;
  s.wkt = texte;
  return s;
}

TEST(Crs, Comparaisons) {
  DossierTemp dir;
  const SystemeReference l93 = CrsDepuisEpsg(2154), wgs84 = CrsDepuisEpsg(4326);
  const std::string lccPerso =
      "+proj=lcc +lat_1=49 +lat_2=44 +lat_0=46.5 +lon_0=3 +x_0=700000 +y_0=6600000 "
      "+ellps=GRS80 +units=m +no_defs";
  const std::string tmPerso =
      "+proj=tmerc +lat_0=0 +lon_0=9.5 +k=0.9996 +x_0=500000 +y_0=0 +datum=WGS84 +units=m";
  SystemeReference code2154;
  code2154.epsg = 2154;
  SystemeReference point = l93;
  FixerCourt(point, kGTRasterType, 2);
  struct Cas {
    const char* nom;
    SystemeReference a, b;
    EgaliteCrs attendu;
  };
  const std::vector<Cas> cas = {
      {"cles et code", l93, code2154, EgaliteCrs::kMeme},
      {"pixel-is-point", l93, point, EgaliteCrs::kMeme},
      {"autre code", l93, CrsDepuisEpsg(27572), EgaliteCrs::kDifferent},
      {"projete et geographique", l93, wgs84, EgaliteCrs::kDifferent},
      {"prj ESRI", l93, Wkt(Wkt(dir, "EPSG:2154", "wkt_esri")), EgaliteCrs::kMeme},
      {"prj WKT2", wgs84, Wkt(Wkt(dir, "EPSG:4326", "wkt2")), EgaliteCrs::kMeme},
      {"prj ESRI geographique", wgs84, Wkt(Wkt(dir, "EPSG:4326", "wkt_esri")), EgaliteCrs::kMeme},
      {"cles utilisateur LCC", SystemeGdal(dir, lccPerso), Wkt(Wkt(dir, lccPerso, "wkt2")),
       EgaliteCrs::kMeme},
      {"LCC sans datum", SystemeGdal(dir, lccPerso), l93, EgaliteCrs::kDifferent},
      {"cles utilisateur TM", SystemeGdal(dir, tmPerso), Wkt(Wkt(dir, tmPerso, "wkt2")), EgaliteCrs::kMeme},
      {"TM autre meridien", SystemeGdal(dir, tmPerso), CrsDepuisEpsg(32632), EgaliteCrs::kDifferent},
      {"inconnu", l93, SystemeReference(), EgaliteCrs::kIndecidable},
      {"prj illisible", l93, Wkt("PROJCS[n'importe quoi"), EgaliteCrs::kIndecidable},
  };
  for (const Cas& c : cas) {
    SCOPED_TRACE(c.nom);
    EXPECT_EQ(ComparerCrs(c.a, c.b), c.attendu);
    EXPECT_EQ(ComparerCrs(c.b, c.a), c.attendu);
  }
}

TEST(Crs, PourEcriture) {
  DossierTemp dir;
  // The raster type becomes pixel-is-area whether it said point or was absent.
  const SystemeReference l93 = CrsDepuisEpsg(2154);
  SystemeReference point = l93;
  FixerCourt(point, kGTRasterType, 2);
  EXPECT_EQ(CrsPourEcriture(point).cles, l93.cles);
  SystemeReference sans;
  sans.cles = {1, 1, 0, 2, 1024, 0, 1, 1, 3072, 0, 1, 2154};
  EXPECT_EQ(CrsPourEcriture(sans).cles,
            (std::vector<uint16_t>{1, 1, 0, 3, 1024, 0, 1, 1, 1025, 0, 1, 1, 3072, 0, 1, 2154}));
  // A value kept after the directory moves with the inserted entry.
  SystemeReference interne;
  interne.cles = {1, 1, 0, 2, 1024, 0, 1, 1, 3076, 34735, 1, 12, 9001};
  const SystemeReference ecrit = CrsPourEcriture(interne);
  EXPECT_EQ(ClesGeoTIFF(ecrit).Court(kProjLinearUnits, 0), 9001);
  EXPECT_EQ(ClesGeoTIFF(ecrit).Court(kGTRasterType, 0), 1);

  // A .prj text tied to its EPSG code gets that code's keys; a code alone too.
  EXPECT_EQ(CrsPourEcriture(Wkt(Wkt(dir, "EPSG:2154", "wkt_esri"))).cles, l93.cles);
  SystemeReference code;
  code.epsg = 4326;
  EXPECT_EQ(CrsPourEcriture(code).cles, CrsDepuisEpsg(4326).cles);
  EXPECT_TRUE(CrsPourEcriture(SystemeReference()).cles.empty());

  SystemeReference faux;
  faux.cles = {1, 1, 0, 1, 1026, 34737, 40, 0};
  faux.ascii = "court|";
  test::Refuse([&] { CrsPourEcriture(faux); }, "[ClesGeoTIFF] (Verifier) Cle GeoTIFF 1026 : 40 valeurs");
  faux.cles = {1, 1, 0, 3, 1024, 0, 1, 1};
  test::Refuse([&] { CrsPourEcriture(faux); },
               "[ClesGeoTIFF] (Verifier) Repertoire de cles GeoTIFF de 8 valeurs");
}

TEST(Crs, Description) {
  EXPECT_EQ(DecrireCrs(CrsDepuisEpsg(4326)), "EPSG:4326");
  EXPECT_EQ(DecrireCrs(SystemeReference()), "inconnu");
  EXPECT_EQ(DecrireCrs(Wkt("GEOGCS[...]")), "WKT (.prj)");
}

}  // namespace

namespace {

// What GDAL reads of the tags is in the writer's tests (EcrivainGeoTIFF.GeoreferenceVueParGdal); here
// what it cannot see: no tags without a grid, a grid that cannot be written, and the no-data tag's
// exact bytes (GDAL takes "0 " for 0).
TEST(TagsGeoTIFF, SansGrilleGrilleImpossibleEtNodata) {
  GeoreferenceEcriture g;
  EXPECT_TRUE(tiff::TagsGeoTIFF(g, 0, "m.tif").empty());
  g.grille = true;
  g.x0 = 650000;
  g.y0 = 6860000;
  g.pasX = 0.2;
  g.pasY = -0.25;
  test::Refuse([&] { tiff::TagsGeoTIFF(g, 0, "m.tif"); },
               "[TagsGeoTIFF] Grille (650000, 6.86e+06, pas 0.2 x -0.25)");
  const TagTIFF n = tiff::TagNodata(-9999);
  EXPECT_EQ(n.code, 42113);
  EXPECT_EQ(n.type, 2);
  EXPECT_EQ(std::string(n.valeurs.begin(), n.valeurs.end()), std::string("-9999\0", 6));
}

}  // namespace
