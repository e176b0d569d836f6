// Writer options: what users' strings give, what is refused before any pixel, and the file planned.
#include <gtest/gtest.h>

#include <cmath>

#include "outils_test.h"
#include "zepra/optionsecriture.h"

namespace {

using Valeurs = std::vector<std::pair<std::string, std::string>>;

TEST(OptionsEcriture, Lecture) {
  struct Cas {
    Valeurs valeurs;
    void (*modifier)(OptionsEcriture&);
  };
  const std::vector<Cas> cas = {
      {{}, [](OptionsEcriture&) {}},
      {{{"compression", "zstd"}, {"niveau", "22"}},
       [](OptionsEcriture& o) { o.compression = CompressionTIFF::kZSTD, o.niveau = 22; }},
      {{{"niveau", "80"}, {"compression", "jpeg"}},
       [](OptionsEcriture& o) { o.compression = CompressionTIFF::kJPEG, o.qualite = 80; }},
      {{{"compression", "jpeg"}, {"qualite", "90"}},
       [](OptionsEcriture& o) { o.compression = CompressionTIFF::kJPEG, o.qualite = 90; }},
      {{{"compression", "lzw"}, {"predicteur", "2"}},
       [](OptionsEcriture& o) {
         o.compression = CompressionTIFF::kLZW, o.predicteur = PredicteurTIFF::kHorizontal;
       }},
      {{{"predicteur", "flottant"}}, [](OptionsEcriture& o) { o.predicteur = PredicteurTIFF::kFlottant; }},
      {{{"predicteur", "none"}}, [](OptionsEcriture& o) { o.predicteur = PredicteurTIFF::kAucun; }},
      {{{"tuile", "256"}}, [](OptionsEcriture& o) { o.tuile = 256; }},
      {{{"bandes", "0"}}, [](OptionsEcriture& o) { o.tuilee = false; }},
      {{{"bandes", "16"}}, [](OptionsEcriture& o) { o.tuilee = false, o.lignesBande = 16; }},
      {{{"format", "bigtiff"}}, [](OptionsEcriture& o) { o.format = ConteneurTIFF::kBigTIFF; }},
      {{{"format", "classique"}}, [](OptionsEcriture& o) { o.format = ConteneurTIFF::kClassique; }},
      {{{"entrelacement", "planaire"}}, [](OptionsEcriture& o) { o.planaire = true; }},
      {{{"cog", ""}, {"alpha", "oui"}}, [](OptionsEcriture& o) { o.cog = o.alpha = true; }},
      {{{"cog", "oui"}, {"cog", "non"}}, [](OptionsEcriture&) {}},
      {{{"type", "int16"}}, [](OptionsEcriture& o) { o.type = eInt2; }},
      {{{"type", "float64"}}, [](OptionsEcriture& o) { o.type = eFloat8; }},
      {{{"nodata", "-9999"}}, [](OptionsEcriture& o) { o.nodataPresent = true, o.nodata = -9999; }},
      {{{"nodata", "nan"}}, [](OptionsEcriture& o) { o.nodataPresent = true, o.nodata = NAN; }},
      {{{"nodata", "1.5e3"}}, [](OptionsEcriture& o) { o.nodataPresent = true, o.nodata = 1500; }},
      {{{"epsg", "2154"}}, [](OptionsEcriture& o) { o.epsg = 2154; }},
  };
  for (const Cas& c : cas) {
    OptionsEcriture attendu;
    c.modifier(attendu);
    SCOPED_TRACE(c.valeurs.empty() ? "defaut" : c.valeurs[0].first + "=" + c.valeurs[0].second);
    EXPECT_TRUE(LireOptionsEcriture(c.valeurs) == attendu);
  }
}

TEST(OptionsEcriture, RefusDesValeurs) {
  const std::vector<std::pair<Valeurs, std::string>> cas = {
      {{{"compression", "lzma"}}, "Valeur \"lzma\" inconnue pour l'option compression"},
      {{{"compression", "DEFLATE"}}, "Valeur \"DEFLATE\" inconnue pour l'option compression"},
      {{{"predicteur", "4"}}, "Valeur \"4\" inconnue pour l'option predicteur"},
      {{{"tuile", "100"}}, "Taille de tuile 100 : un multiple de 16 est attendu."},
      {{{"tuile", "0"}}, "Valeur 0 de l'option tuile hors de [16, 65536]."},
      {{{"tuile", "abc"}}, "Valeur \"abc\" de l'option tuile : un entier est attendu."},
      {{{"tuile", "256"}, {"bandes", "16"}}, "Les options tuile et bandes s'excluent."},
      {{{"cog", ""}, {"bandes", "16"}}, "Un COG est tuile : l'option bandes est refusee."},
      {{{"niveau", "13"}}, "Niveau 13 hors de [1, 12] pour la compression deflate."},
      {{{"niveau", "0"}}, "Niveau 0 hors de [1, 12] pour la compression deflate."},
      {{{"compression", "zstd"}, {"niveau", "23"}}, "Niveau 23 hors de [1, 22] pour la compression zstd."},
      {{{"compression", "jpeg"}, {"niveau", "101"}},
       "Qualite 101 hors de [1, 100] pour la compression jpeg."},
      {{{"compression", "jpeg"}, {"qualite", "0"}}, "Valeur 0 de l'option qualite hors de [1, 100]."},
      {{{"compression", "lzw"}, {"niveau", "5"}}, "Un niveau (5) n'a pas de sens pour la compression lzw."},
      {{{"niveau", "6x"}}, "Valeur \"6x\" de l'option niveau : un entier est attendu."},
      {{{"niveau", "99999999999999999999"}}, "Valeur \"99999999999999999999\" de l'option niveau"},
      {{{"epsg", "L93"}}, "Valeur \"L93\" de l'option epsg : un entier est attendu."},
      {{{"epsg", "-4326"}}, "Valeur -4326 de l'option epsg hors de [1, 999999]."},
      {{{"nodata", "abc"}}, "Valeur \"abc\" de l'option nodata : un nombre est attendu."},
      {{{"nodata", "0x10"}}, "Valeur \"0x10\" de l'option nodata : un nombre est attendu."},
      {{{"nodata", "1e999"}}, "Valeur \"1e999\" de l'option nodata : un nombre est attendu."},
      {{{"nodata", ""}}, "Valeur \"\" de l'option nodata : un nombre est attendu."},
      {{{"type", "byte"}}, "Valeur \"byte\" inconnue pour l'option type"},
      {{{"format", "big"}}, "Valeur \"big\" inconnue pour l'option format"},
      {{{"entrelacement", "band"}}, "Valeur \"band\" inconnue pour l'option entrelacement"},
      {{{"alpha", "1"}}, "Valeur \"1\" de l'option alpha : oui ou non est attendu."},
      {{{"qualité", "5"}}, "Option d'ecriture inconnue : qualité."},
  };
  for (const auto& [valeurs, texte] : cas)
    test::Refuse([&] { LireOptionsEcriture(valeurs); }, "[OptionsEcriture] (Lire) " + texte);
}

PlanEcriture Plan(const Valeurs& v, TPoint2D<int> taille, int canaux, eEnumType type) {
  return PlanifierEcriture(LireOptionsEcriture(v), taille, canaux, type, "m.tif");
}

TEST(OptionsEcriture, Plans) {
  // Defaults: Deflate level 6 with the predictor of the type, 512 tiles, classic TIFF.
  PlanEcriture p = Plan({}, {8000, 8000}, 1, eUInt1);
  EXPECT_EQ(p.compression, CompressionTIFF::kDeflate);
  EXPECT_EQ(p.niveau, 6);
  EXPECT_EQ(p.predicteur, 2);
  EXPECT_TRUE(p.tuilee);
  EXPECT_EQ(p.largeurBloc, 512);
  EXPECT_EQ(p.BlocsParLigne(), 16);
  EXPECT_FALSE(p.bigtiff);
  EXPECT_TRUE(p.apercus.empty());
  EXPECT_EQ(Plan({}, {10, 10}, 1, eFloat4).predicteur, 3);
  EXPECT_EQ(Plan({{"type", "uint16"}}, {10, 10}, 1, eFloat4).predicteur, 2);
  EXPECT_EQ(Plan({{"compression", "zstd"}}, {10, 10}, 1, eUInt1).niveau, 9);
  EXPECT_EQ(Plan({{"compression", "none"}}, {10, 10}, 1, eUInt1).predicteur, 1);
  EXPECT_EQ(Plan({{"compression", "lzw"}}, {10, 10}, 1, eBool).predicteur, 1);

  // COG: overviews halving down to one tile, as GDAL sizes them.
  p = Plan({{"cog", ""}}, {8000, 8000}, 3, eUInt1);
  EXPECT_EQ(p.apercus, (std::vector<TPoint2D<int>>{{4000, 4000}, {2000, 2000}, {1000, 1000}, {500, 500}}));
  EXPECT_EQ(Plan({{"cog", ""}}, {2049, 10}, 1, eUInt1).apercus,
            (std::vector<TPoint2D<int>>{{1024, 5}, {512, 2}}));
  EXPECT_TRUE(Plan({{"cog", ""}}, {512, 512}, 1, eUInt1).apercus.empty());

  // Strips of about 256 KiB; JPEG strips in whole MCU rows; the alpha band counts.
  p = Plan({{"bandes", "0"}}, {8000, 8000}, 1, eUInt1);
  EXPECT_EQ(p.largeurBloc, 8000);
  EXPECT_EQ(p.hauteurBloc, 32);
  EXPECT_EQ(Plan({{"bandes", "0"}, {"compression", "jpeg"}}, {8000, 100}, 3, eUInt1).hauteurBloc, 16);
  EXPECT_EQ(Plan({{"bandes", "7"}}, {10, 5}, 1, eUInt1).hauteurBloc, 5);
  p = Plan({{"alpha", ""}}, {10, 10}, 3, eUInt1);
  EXPECT_EQ(p.canaux, 4);
  EXPECT_EQ(p.canauxDonnees, 3);
  p = Plan({{"compression", "jpeg"}}, {10, 10}, 3, eUInt1);
  EXPECT_TRUE(p.masqueInterne);
  EXPECT_EQ(p.predicteur, 1);

  // No-data as a value of the output type.
  EXPECT_EQ(Plan({{"nodata", "0.1"}, {"type", "float32"}}, {2, 2}, 1, eUInt1).nodata,
            static_cast<double>(0.1f));
  EXPECT_EQ(Plan({{"nodata", "-0"}}, {2, 2}, 1, eUInt1).nodata, 0.0);
  EXPECT_TRUE(std::isnan(Plan({{"nodata", "nan"}}, {2, 2}, 1, eFloat8).nodata));

  // BigTIFF when the uncompressed file could pass 4 GiB, whatever the compression.
  EXPECT_FALSE(Plan({}, {60000, 60000}, 1, eUInt1).bigtiff);
  EXPECT_TRUE(Plan({}, {66000, 66000}, 1, eUInt1).bigtiff);
  EXPECT_TRUE(Plan({{"cog", ""}}, {62000, 62000}, 1, eUInt1).bigtiff);
  EXPECT_TRUE(Plan({{"format", "bigtiff"}}, {2, 2}, 1, eUInt1).bigtiff);
}

TEST(OptionsEcriture, RefusDesPlans) {
  struct Cas {
    std::string message;
    Valeurs valeurs;
    int canaux = 1;
    eEnumType type = eUInt1;
    TPoint2D<int> taille = {8, 8};
  };
  const std::string jpeg = "JPEG seulement pour 1 ou 3 canaux";
  const std::vector<Cas> cas = {
      {jpeg + " de 8 bits : 4 canaux uint8 demandes pour le fichier m.tif.", {{"compression", "jpeg"}}, 4},
      {jpeg, {{"compression", "jpeg"}, {"alpha", ""}}, 3},
      {jpeg + " de 8 bits : 1 canaux uint16", {{"compression", "jpeg"}}, 1, eUInt2},
      {jpeg, {{"compression", "jpeg"}, {"type", "int8"}}},
      {"JPEG et entrelacement planaire s'excluent pour le fichier m.tif.",
       {{"compression", "jpeg"}, {"entrelacement", "planaire"}},
       3},
      {"8 lignes par bande : un multiple de 16 est attendu avec JPEG (fichier m.tif).",
       {{"compression", "jpeg"}, {"bandes", "8"}},
       1,
       eUInt1,
       {8, 80}},
      {"Predicteur 3 impossible pour des echantillons uint8 (fichier m.tif).", {{"predicteur", "flottant"}}},
      {"Predicteur 2 impossible pour des echantillons 1 bit (fichier m.tif).",
       {{"predicteur", "horizontal"}, {"compression", "lzw"}},
       1,
       eBool},
      {"Pas de predicteur avec la compression none pour le fichier m.tif.",
       {{"predicteur", "2"}, {"compression", "none"}}},
      {"No-data 256 impossible en uint8 pour le fichier m.tif.", {{"nodata", "256"}}},
      {"No-data -1 impossible en uint16", {{"nodata", "-1"}, {"type", "uint16"}}, 1, eFloat4},
      {"No-data 2.5 impossible en int16", {{"nodata", "2.5"}}, 1, eInt2},
      {"No-data nan impossible en int32", {{"nodata", "nan"}}, 1, eInt4},
      {"No-data 9.9999999999999994e+38 hors des valeurs float32", {{"nodata", "1e39"}}, 1, eFloat4},
      {"[Crs] (DepuisEpsg) Code EPSG 99999 inconnu.", {{"epsg", "99999"}}},
      {"Le fichier m.tif peut depasser 4 Gio", {{"format", "classique"}}, 1, eUInt1, {70000, 70000}},
      {"Image de 0 x 8 x 1 impossible pour le fichier m.tif.", {}, 1, eUInt1, {0, 8}},
  };
  for (const Cas& c : cas) {
    SCOPED_TRACE(c.message);
    const std::string t = test::TexteErreur([&] { Plan(c.valeurs, c.taille, c.canaux, c.type); });
    EXPECT_NE(t.find(c.message), std::string::npos) << t;
  }
}

TEST(OptionsEcriture, TexteNodataCommeGdal) {
  // The texts GDAL writes for the same values (gdal_create -a_nodata).
  for (const auto& [v, texte] :
       std::vector<std::pair<double, std::string>>{{0, "0"},
                                                   {255, "255"},
                                                   {-9999, "-9999"},
                                                   {NAN, "nan"},
                                                   {3.5, "3.5"},
                                                   {0.1, "0.100000000000000006"},
                                                   {1e20, "1e+20"},
                                                   {-0.0, "-0"},
                                                   {1.5e-7, "1.49999999999999993e-07"},
                                                   {123456789, "123456789"},
                                                   {INFINITY, "inf"},
                                                   {-INFINITY, "-inf"},
                                                   {static_cast<double>(0.1f), "0.100000001490116119"}})
    EXPECT_EQ(TexteNodata(v), texte);
}

}  // namespace
