// GDAL's side file NAME.aux.xml: what is taken from the files GDAL writes, and the malformed ones
// refused with the file named rather than half read.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "image/pam.h"
#include "outils_test.h"

namespace {

// What gdal_translate -co PROFILE=BASELINE writes for a 2-band float tile with NaN as no-data,
// then a comment, a CDATA section and entities as other writers may put them.
const char* kGdal = R"(<PAMDataset>
  <SRS dataAxisToSRSAxisMapping="1,2">PROJCS["RGF93 v1 / Lambert-93",AUTHORITY["EPSG","2154"]]</SRS>
  <GeoTransform>  6.5000000000000000e+05,  5.0000000000000000e-01,  0.0000000000000000e+00,  6.8620000000000000e+06,  0.0000000000000000e+00, -5.0000000000000000e-01</GeoTransform>
  <Metadata>
    <MDI key="AREA_OR_POINT">Area</MDI>
  </Metadata>
  <PAMRasterBand band="1">
    <NoDataValue le_hex_equiv="000000000000F87F">nan</NoDataValue>
  </PAMRasterBand>
  <PAMRasterBand band="2">
    <Histograms><HistItem><BucketCount>2</BucketCount></HistItem></Histograms>
    <NoDataValue>-9.99900000000000E+03</NoDataValue>
  </PAMRasterBand>
</PAMDataset>
)";

TEST(AnnexePam, CeQueGdalEcrit) {
  const AnnexePam p = LireAnnexePam(kGdal, "t.tif.aux.xml");
  EXPECT_EQ(p.fichier, "t.tif.aux.xml");
  EXPECT_EQ(p.srs, R"(PROJCS["RGF93 v1 / Lambert-93",AUTHORITY["EPSG","2154"]])");
  ASSERT_TRUE(p.geotransform);
  const double gt[6] = {650000, 0.5, 0, 6862000, 0, -0.5};
  for (int k = 0; k < 6; ++k) EXPECT_EQ(p.gt[k], gt[k]) << k;
  ASSERT_EQ(p.nodata.size(), 2u);
  EXPECT_EQ(p.nodata[0].bande, 1);
  EXPECT_TRUE(std::isnan(p.nodata[0].valeur));
  EXPECT_EQ(p.nodata[1].bande, 2);
  EXPECT_EQ(p.nodata[1].valeur, -9999);

  // Texts whole, entities and CDATA replaced, comments and declarations skipped.
  const AnnexePam q = LireAnnexePam(
      "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!-- GDAL -->\n<PAMDataset><SRS>GEOGCS[&quot;a  b&quot;,"
      "<![CDATA[x<y]]>&#x41;&#66;&amp;&lt;&gt;&apos;]</SRS><!-- fin --></PAMDataset>\n<!-- apres -->",
      "q");
  EXPECT_EQ(q.srs, "GEOGCS[\"a  b\",x<yAB&<>']");
  EXPECT_FALSE(q.geotransform);
  EXPECT_TRUE(q.nodata.empty());
  // Statistics alone (gdalinfo -stats): nothing to take.
  const AnnexePam s = LireAnnexePam(
      "<PAMDataset><PAMRasterBand band='1'><Metadata><MDI key=\"STATISTICS_MEAN\">3</MDI></Metadata>"
      "</PAMRasterBand></PAMDataset>",
      "s");
  EXPECT_TRUE(s.srs.empty());
  EXPECT_FALSE(s.geotransform);
  EXPECT_TRUE(s.nodata.empty());
}

TEST(AnnexePam, FichiersMalFormesRefuses) {
  std::string imbrique = "<PAMDataset>";
  for (int k = 0; k < 70; ++k) imbrique += "<a>";
  const struct {
    std::string contenu;
    const char* fragment;
  } cas[] = {
      {"", "un element est attendu (ligne 1)"},
      {"texte", "un element est attendu"},
      {"<PAMDataset>", "element non termine"},
      {"<PAMDataset><SRS>x</PAMDataset>", "balise fermante differente de l'ouvrante"},
      {"<PAMDataset>\n\n<SRS>&eacute;</SRS></PAMDataset>", "entite inconnue (ligne 3)"},
      {"<PAMDataset><SRS>&amp</SRS></PAMDataset>", "entite non terminee"},
      {"<PAMDataset><SRS>&#0;</SRS></PAMDataset>", "reference de caractere invalide"},
      {"<PAMDataset><SRS>&#xD800;</SRS></PAMDataset>", "reference de caractere invalide"},
      {"<PAMDataset><SRS>&#12a;</SRS></PAMDataset>", "reference de caractere invalide"},
      {"<PAMDataset a=1></PAMDataset>", "valeur d'attribut attendue"},
      {"<PAMDataset a></PAMDataset>", "'=' attendu"},
      {"<PAMDataset a=\"1></PAMDataset>", "valeur d'attribut non terminee"},
      {"<PAMDataset><!-- x </PAMDataset>", "commentaire non termine"},
      {"<PAMDataset><![CDATA[x</PAMDataset>", "CDATA non termine"},
      {"<!DOCTYPE x><PAMDataset/>", "declaration inattendue"},
      {"<PAMDataset><!ENTITY x></PAMDataset>", "declaration inattendue"},
      {"<PAMDataset/><PAMDataset/>", "texte apres l'element racine"},
      {"<PAMDataset></PAMDataset x", "'>' attendu"},
      {imbrique, "elements imbriques trop profondement"},
      {"<VRTDataset/>", "element racine <VRTDataset>, <PAMDataset> attendu"},
      {"<PAMDataset><GeoTransform>1, 2, 3, 4, 5</GeoTransform></PAMDataset>", "six reels finis attendus"},
      {"<PAMDataset><GeoTransform>1,2,3,4,5,6,7</GeoTransform></PAMDataset>", "six reels finis attendus"},
      {"<PAMDataset><GeoTransform>1,2,3,4,5,x</GeoTransform></PAMDataset>", "'1,2,3,4,5,x' : six reels"},
      {"<PAMDataset><GeoTransform>1,2,3,inf,5,6</GeoTransform></PAMDataset>", "six reels finis attendus"},
      {"<PAMDataset><GeoTransform>1,2,3,1e999,5,6</GeoTransform></PAMDataset>", "six reels finis attendus"},
      {"<PAMDataset><GeoTransform></GeoTransform></PAMDataset>", "six reels finis attendus"},
      {"<PAMDataset><PAMRasterBand band=\"1\"><NoDataValue>zero</NoDataValue></PAMRasterBand></PAMDataset>",
       "<NoDataValue> 'zero' de la bande 1 : un reel est attendu"},
      {"<PAMDataset><PAMRasterBand band=\"1\"><NoDataValue>1 2</NoDataValue></PAMRasterBand></PAMDataset>",
       "un reel est attendu"},
      {"<PAMDataset><PAMRasterBand><NoDataValue>0</NoDataValue></PAMRasterBand></PAMDataset>",
       "sans numero de bande"},
      {"<PAMDataset><PAMRasterBand band=\"0\"><NoDataValue>0</NoDataValue></PAMRasterBand></PAMDataset>",
       "sans numero de bande"},
      {"<PAMDataset><PAMRasterBand band=\"1.5\"><NoDataValue>0</NoDataValue></PAMRasterBand></PAMDataset>",
       "sans numero de bande"},
  };
  for (const auto& c : cas) {
    SCOPED_TRACE(c.contenu);
    test::Refuse([&] { LireAnnexePam(c.contenu, "t.tif.aux.xml"); },
                 "[AnnexePam] (Lire) Fichier t.tif.aux.xml : ", {c.fragment});
  }
}

TEST(AnnexePam, FichierAbsentIllisibleOuTropGros) {
  test::DossierTemp d;
  EXPECT_TRUE(LireAnnexePam(d / "absent.tif").fichier.empty());
  EXPECT_TRUE(LireAnnexePam(d / "dossier/absent.tif").fichier.empty());
  test::EcrireFichier(d / "t.tif.aux.xml", kGdal);
  EXPECT_EQ(LireAnnexePam(d / "t.tif").fichier, d / "t.tif.aux.xml");
  ASSERT_EQ(
      test::Lancer(d.chemin(), "mkdir r.tif.aux.xml && mkfifo p.tif.aux.xml && truncate -s 17M g.tif.aux.xml")
          .statut,
      0);
  test::Refuse([&] { LireAnnexePam(d / "r.tif"); }, "", {"r.tif.aux.xml : pas un fichier ordinaire"});
  test::Refuse([&] { LireAnnexePam(d / "p.tif"); }, "", {"p.tif.aux.xml : pas un fichier ordinaire"});
  test::Refuse([&] { LireAnnexePam(d / "g.tif"); }, "", {"g.tif.aux.xml : 17825792 octets"});
}

}  // namespace
