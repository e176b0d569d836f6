// The map-projected orientation: its three file formats, the zone rule, the conversions, and the
// exactness of what it writes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <tuple>
#include <utility>
#include <vector>

#include "orientation/old/lecteurtexte.h"
#include "outils_orientation.h"
#include "zepra/autresorientations.h"
#include "zepra/orientation.h"

namespace {

using test::Carto;
using test::Refuse;
using V = std::vector<double>;

// The orientation of the text "X0 Y0 zone columns lines pasX pasY".
std::unique_ptr<CartoProjOrientation> Carto(const std::string& texte) {
  std::istringstream s(texte);
  double x0, y0, px, py;
  int zone;
  long nc, nl;
  s >> x0 >> y0 >> zone >> nc >> nl >> px >> py;
  return test::Carto(x0, y0, zone, nc, nl, px, py);
}

// Each format (told by the first word, whatever the file's extension) read, written back as text
// CARTO and read again to the same bits; a file in the written layout is written back to the very same
// text.
TEST(CartoProj, TroisFormatsAllerRetourParTable) {
  const std::pair<const char*, const char*> cas[] = {
      // Zone 2: Y written without its millions, held with them; south of 2 000 000 m, a negative Y.
      {"CARTO\n651234567 250000000\n2\n4000 3000\n500 500\n", "651234.567 2250000 2 4000 3000 0.5 0.5"},
      {"CARTO\n12.5 -300000000\n2\n1 1\n1000 2000\n", "0.0125 1700000 2 1 1 1 2"},
      // Zone 0: coordinates as they are.
      {"CARTO\n651234567.5 6862500123.25\n0\n10 20\n200 125\n",
       "651234.5675 6862500.12325 0 10 20 0.2 0.125"},
      // Numbers in any decimal form, separated by any blanks, then anything.
      {"  CARTO 6.5e5 +2.5E8\t2 \r\n 7 8 5e2 .5e3 fin", "650 2250000 2 7 8 0.5 0.5"},
      // XML: metres, the Y step negated, the zone rule; declaration and style sheet lines skipped.
      {"<?xml version=\"1.0\" ?>\n<?xml-stylesheet type=\"text/xsl\" href=\"s.xsl\"?>\n<FileOriMnt>\n"
       "<NombrePixels> 300 200 </NombrePixels>\n<OriginePlani> 651234.5 250000.25 </OriginePlani>\n"
       "<ResolutionPlani> 0.5 -0.25 </ResolutionPlani>\n<Geometrie> eGeomMNTCarto </Geometrie>\n"
       "<NumZoneLambert> 2 </NumZoneLambert>\n</FileOriMnt>\n",
       "651234.5 2250000.25 2 300 200 0.5 0.25"},
      // Without NumZoneLambert the origin stays at zero though OriginePlani is there.
      {"<FileOriMnt><Geometrie>eGeomMNTEuclid</Geometrie><NombrePixels>3 2</NombrePixels>"
       "<OriginePlani>651234.5 6862000</OriginePlani><ResolutionPlani>2 -2</ResolutionPlani></FileOriMnt>",
       "0 0 0 3 2 2 2"},
      // Header: the character after each real consumed, keywords cut at 11 characters (the rest is the
      // next word), a word before and after PROJECTION's zone; ULXMAP 100, XDIM 2 give X origin 101.
      {"MAPUNITS\nNCOLS 20\nNROWS 10\nULXMAP 100,\nULYMAP 2250000,\nXDIM 2,\nYDIM 4,\n"
       "PROJECTION LAMBERT 2 etendu\nXXXXXXXXXXXNBANDS 3\n",
       "101 2249998 2 20 10 2 4"},
      {"MAPUNITS XXXXXXXXXXXNCOLS 7 NROWS 1 XDIM 1 ; YDIM 1 ;", "0.5 -0.5 0 7 1 1 1"},
  };
  test::DossierTemp d;
  const std::string f = d / "a.ori";
  for (const auto& [texte, attendu] : cas) {
    SCOPED_TRACE(texte);
    test::Ecrire(f, texte);
    const CartoProjOrientation lu(f.c_str());
    test::MemeCarto(lu, *Carto(attendu));
    EXPECT_EQ(lu.FileNameToString(), f);
    lu.Dump((d / "b.ori").c_str(), 1);
    if (test::Commence(texte, "CARTO\n")) {
      EXPECT_EQ(test::LireFichier(d / "b.ori"), texte);
    }
    test::MemeCarto(CartoProjOrientation((d / "b.ori").c_str()), lu);
  }
  Refuse([&] { Carto("0 0 0 1 1 1 1")->Dump((d / "bin.ori").c_str(), 0); },
         "Pas de sauvegarde binaire pour les projections CARTO");
  EXPECT_FALSE(std::ifstream(d / "bin.ori").is_open());
}

TEST(CartoProj, FichiersRefusesParTable) {
  const std::tuple<const char*, const char*, const char*> cas[] = {
      {"CARTO\n", "CartoProjOrientation : fichier CARTO", "tronque ou non numerique"},
      {"CARTO\n100 200\nzero\n1 1\n1 1\n", "CartoProjOrientation : fichier CARTO", "zone Lambert"},
      {"CARTO\n1 2\n0\n99999999999999999999 10\n1 1\n", "CartoProjOrientation : fichier CARTO", ""},
      {"CARTO\n100 200\n0\n1 1\n1 0x10\n", "CartoProjOrientation : pas (0.001, 0) invalide", ""},
      {"CARTO\n100 200\n4294967298\n1 1\n1 1\n", "Lecture ORI : Zone Lambert > 4", ""},  // 2^32 + 2
      {"CARTO\n100 200\n0\n0 10\n1 1\n", "CartoProjOrientation : taille 0 x 10 absurde", ""},
      {"CARTO\n1 2\n0\n3000000000 10\n1 1\n", "CartoProjOrientation : taille 3000000000 x 10", ""},
      {"FOO 1 2 3", "CartoProjOrientation : fichier", "de format inconnu (premier mot 'FOO'"},
      {"<?xml version=\"1.0\"?>\n<?xml-stylesheet href=\"s\"?>\n<Autre/>", "CartoProjOrientation : fichier",
       "premier mot '<Autre/>'"},
      {"<FileOriMnt><Geometrie>eGeomMNTFaisceau</Geometrie></FileOriMnt>",
       "Lecture en CARTO d'une orientation .XML qui n'en est pas eGeomMNTCarto", "eGeomMNTFaisceau"},
      {"<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>3 2</NombrePixels>",
       "CartoProjOrientation : fichier XML", "mal forme"},
      {"<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>3 x</NombrePixels></FileOriMnt>",
       "CartoProjOrientation : noeud /FileOriMnt/NombrePixels", "deux nombres attendus"},
      {"<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>3 2</NombrePixels></FileOriMnt>",
       "[XParserXML] (ReadNode) Noeud /FileOriMnt/ResolutionPlani", ""},
      // Established header quirks, kept: without a separator after a real the next keyword loses its
      // first letter, and METERS swallows the keyword after it; both leave a step or a size unset.
      {"MAPUNITS\nNCOLS 20\nNROWS 10\nXDIM 2\nYDIM 2\n", "CartoProjOrientation : pas (2, 0) invalide", ""},
      {"MAPUNITS METERS NCOLS 20 NROWS 10 XDIM 2 , YDIM 2 ,", "CartoProjOrientation : taille 0 x 10", ""},
      {"MAPUNITS\nULXMAP douze\n", "CartoProjOrientation : fichier", "ULXMAP absente ou non numerique"},
      {"MAPUNITS\nPROJECTION LAMBERT\n", "CartoProjOrientation : fichier", "PROJECTION absente"},
      {"MAPUNITS\nPROJECTION LAMBERT 9 x NCOLS 1\n", "Lecture ORI : Zone Lambert > 4 (9)", ""},
  };
  test::DossierTemp d;
  const std::string f = d / "a.ori";
  for (const auto& [contenu, debut, fragment] : cas) {
    test::Ecrire(f, contenu);
    Refuse([&] { CartoProjOrientation x(f.c_str()); }, debut, {f, fragment});
  }
  Refuse([&] { CartoProjOrientation x((d / "absent.ori").c_str()); },
         "CartoProjOrientation : probleme d'ouverture du fichier", {d / "absent.ori"});
  Refuse([&] { CartoProjOrientation x(d.chemin().c_str()); }, "CartoProjOrientation : probleme d'ouverture");
  // A file far too large for an orientation is refused before it is read.
  test::Ecrire(f, "CARTO\n" + std::string(2 << 20, ' ') + "1 2 0 1 1 1 1\n");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "CartoProjOrientation : Fichier", {"trop gros"});
}

// The zone rule on reading a file (Y in millimetres), on creation from the numbers (where a zone
// outside 0..4, tested as unsigned, has its own established text) and in the axonometric model (its
// own texts). A null refusal: accepted, Y becomes the last number.
TEST(CartoProj, ReglesDeZoneParTable) {
  const std::tuple<int, double, const char*, double> cas[] = {
      {0, 5000000, nullptr, 5000000},
      {0, -12, nullptr, -12},
      {2, 250000, nullptr, 2250000},
      {2, 1500000, nullptr, 1500000},
      {2, 2900000, nullptr, 2900000},
      {2, 1400000, "Probleme yMap (1400000) hors zone Lambert 2", 0},  // though 1 400 000 / 1e6 = 1
      {2, 2900000.5, "Probleme yMap (2900000.5) hors zone Lambert 2", 0},
      {1, 1999999.5, nullptr, 1999999.5},
      {1, 2000000, "Zone Lambert (1) et Y carto (2000000)non coherents", 0},
      {3, 2200000, "Zone Lambert (3) et Y carto (2200000)non coherents", 0},
      {-1, 0, "Lecture ORI : Zone Lambert negative", 0},
      {5, 5000000, "Lecture ORI : Zone Lambert > 4", 0},
  };
  test::DossierTemp d;
  const std::string f = d / "z.ori";
  for (const auto& [zone, y, refus, yAttendu] : cas) {
    SCOPED_TRACE(std::to_string(zone) + " " + std::to_string(y));
    std::ostringstream s;
    s << "CARTO\n0 " << std::fixed << y * 1000 << "\n" << zone << "\n1 1\n1 1\n";
    test::Ecrire(f, s.str());
    double yAxono = y;
    const int z = zone;
    if (refus) {
      Refuse([&] { CartoProjOrientation x(f.c_str()); }, refus, {f});
      Refuse([&, y = y] { test::Carto(0, y, z, 1, 1, 1, 1); },
             z < 0 || z > 4 ? "Probleme avec la zone Lambert 2" : refus);
      Refuse([&] { AxonoProjOrientation::VerifieZone(z, yAxono); },
             z < 0 ? "Zone Lambert negative" : (z > 4 ? "Zone Lambert > 4" : "Zone Lambert absurde"));
    } else {
      EXPECT_EQ(CartoProjOrientation(f.c_str()).GetYOrigine(), yAttendu);
      EXPECT_EQ(test::Carto(0, y, zone, 1, 1, 1, 1)->GetYOrigine(), yAttendu);
      AxonoProjOrientation::VerifieZone(zone, yAxono);
      EXPECT_EQ(yAxono, yAttendu);
    }
  }
}

TEST(CartoProj, ConversionsAllerRetourEtEmprises) {
  // Steps and origins with few bits: photo -> map -> photo is exact; Y given without its zone
  // millions reaches the same line; the height goes through.
  const auto o = Carto("651200.5 2250000 2 400 300 0.5 0.25");
  double X, Y, Z, c2, l2, z2;
  for (double c = -3; c <= 403; c += 0.5)
    for (double l = -3; l <= 303; l += 0.75) {
      o->PhotoToMap(c, l, X, Y, Z);
      ASSERT_TRUE(X == 651200.5 + 0.5 * c && Y == 2250000 - 0.25 * l && Z == 0) << c << " " << l;
      o->MapToPhoto(X, Y, Z, c2, l2, z2);
      ASSERT_TRUE(c2 == c && l2 == l) << c << " " << l;
      o->MapToPhoto(X, Y - 2e6, 7, c2, l2, z2);
      ASSERT_TRUE(l2 == l && z2 == 7) << c << " " << l;
    }

  // Extents: the carto form from the first to the last pixel's corner (a 1 x 1 image is one point);
  // the base forms at two heights over the whole image or a rectangle; and back into the image.
  double a, b, c, e;
  Carto("100 200 0 1 1 2 2")->EmpriseCarto(a, b, c, e);
  EXPECT_EQ((V{a, b, c, e}), (V{100, 200, 100, 200}));
  const auto q = Carto("100 200 0 10 5 2 3");
  q->EmpriseCarto(a, b, c, e);
  EXPECT_EQ((V{a, b, c, e}), (V{100, 188, 118, 200}));
  q->EmpriseCarto(0, 50, a, b, c, e);
  EXPECT_EQ((V{a, b, c, e}), (V{100, 185, 120, 200}));
  q->EmpriseTerrain(0, 0, 1, 1, 2, 2, a, b, c, e);
  EXPECT_EQ((V{a, b, c, e}), (V{102, 194, 104, 197}));
  q->EmpriseImage(0, 10, 102, 191, 104, 197, a, b, c, e);
  EXPECT_EQ((V{a, b, c, e}), (V{1, 1, 2, 3}));
  q->EmpriseImageTerrain(0, 10, 102, 191, 104, 197, a, b, c, e);
  EXPECT_EQ((V{a, b, c, e}), (V{1, 1, 2, 3}));
}

TEST(CartoProj, ExtractTranslationEtGrille) {
  const auto o = Carto("1000 2000000 2 100 50 0.5 0.5");
  const std::unique_ptr<ImageOrientation> e = o->Extract(10, 4, 29, 13, 3, 2);
  const auto& c = dynamic_cast<const CartoProjOrientation&>(*e);
  test::MemeCarto(c, *Carto("1005 1999998 2 7 5 1.5 1"));  // ceil(20 / 3) x ceil(10 / 2)
  Refuse([&] { o->Extract(10, 4, 9, 13, 1, 1); }, "CartoProjOrientation : Extract : rectangle");
  Refuse([&] { o->Extract(0, 0, 9, 9, 0, 1); }, "CartoProjOrientation : Extract : pas");
  Refuse([&] { o->Extract(0, 0, 9, 9, 1e-12, 1); }, "CartoProjOrientation : Extract : taille");

  // The extract lies on this grid: offset (10, -4) (lines counted along +Y) and factors (3, 2).
  long t[4];
  ASSERT_TRUE(o->GetTranslation(c, t[0], t[1], t[2], t[3]));
  EXPECT_EQ((std::vector<long>(t, t + 4)), (std::vector<long>{10, -4, 3, 2}));
  const std::pair<const char*, bool> autres[] = {
      {"1000 2000000 2 20 20 0.505 0.5", false},  // steps 1% apart over 20 columns: 0.2 pixel of drift
      {"1000 2000000 2 5 5 0.505 0.5", true},     // over 5 columns, 0.05 pixel
      {"1000.17 2000000 2 5 5 0.5 0.5", false},   // a third of a pixel off the grid
      {"1000 2000000 0 5 5 0.5 0.5", false},      // another zone
      {"1000 2000000 2 5 5 1e300 0.5", false},    // steps absurdly far apart: no overflow, just no
  };
  for (const auto& [autre, surLaGrille] : autres)
    EXPECT_EQ(o->GetTranslation(*Carto(autre), t[0], t[1], t[2], t[3]), surLaGrille) << autre;

  const GrilleTransformation g = o->TransformationGrid(c, 16);
  EXPECT_EQ(g.nbColonnes, 8);  // 0, 16, ..., 96, 99
  EXPECT_EQ(g.nbLignes, 5);    // 0, 16, 32, 48, 49
  EXPECT_EQ(g.positions[7].x, (99 - 10) / 3.0);
  EXPECT_EQ(g.positions[8].y, (16 - 4) / 2.0);
}

TEST(CartoProj, DataToStringEtSaQuestion) {
  std::istringstream rien(""), deux("  2\n"), vide(""), sept("7");
  std::ostringstream sortie;
  // A Y with its millions: no question.
  EXPECT_EQ(CartoProjOrientation::DataToString(651234.5, 1000000, 10, 20, 0.5, 0.25, rien, sortie),
            "651234.500000:1000000.000000:10:20:0.500000:0.250000");
  EXPECT_EQ(sortie.str(), "");
  EXPECT_EQ(CartoProjOrientation::DataToString(1, 250000.5, 1, 2, 3, 4, deux, sortie),
            "1.000000:2250000.500000:1:2:3.000000:4.000000");
  EXPECT_EQ(sortie.str(), "\n\t\tZone Lambert des donnees ?? : ");
  // At the end of the input, or with an answer that is not a zone: an Erreur, never a loop.
  Refuse([&] { CartoProjOrientation::DataToString(1, 999999.9, 1, 2, 3, 4, vide, sortie); },
         "CartoProjOrientation : DataToString : zone Lambert attendue");
  Refuse([&] { CartoProjOrientation::DataToString(1, 0, 1, 2, 3, 4, sept, sortie); },
         "CartoProjOrientation : DataToString : zone Lambert 7 hors de 0 a 4");
}

// What is written reads back to the same bits, whatever its digits (the mosaic at X = 651234.567 m:
// OrientationOld's tests).
TEST(CartoProj, EcritureSansPerteDePrecision) {
  test::DossierTemp d;
  unsigned long long graine = 12345;
  const auto bits = [&] { return graine = graine * 6364136223846793005ULL + 1442695040888963407ULL; };
  const auto hasard = [&] { return static_cast<double>(bits() >> 11) / 9007199254740992.0; };
  const auto quelconque = [&] {  // any finite double, either sign
    const unsigned long long b = bits(), sansSigne = b & 0x7fefffffffffffffULL;
    double v;
    std::memcpy(&v, &sansSigne, sizeof v);
    return b >> 63 ? -v : v;
  };
  // Values whose millimetres are not exact doubles, steps that are not decimal, every zone; one time
  // in three, numbers of any magnitude (zone 0).
  for (int i = 0; i < 600 && !HasFailure(); ++i) {
    int zone = i % 5;
    double y0 = zone == 0 ? 7e6 * hasard() - 1e5 : zone * 1e6 + 999999.99 * hasard();
    if (zone == 2) y0 = 1.5e6 + 1.4e6 * hasard();
    double x0 = 1e6 * hasard() + (i % 7 == 0 ? 1e-9 : 0), px = (i % 3 == 0) ? 1.0 / 3 : 0.05 + 10 * hasard();
    if (i % 3 == 1) zone = 0, x0 = quelconque(), y0 = quelconque(), px = quelconque();
    const auto o = Carto(x0, y0, zone, 1 + i, 2 + i, px, (i % 4 == 0) ? std::nextafter(px, 0.0) : px);
    o->Dump((d / "p.ori").c_str(), 1);
    test::MemeCarto(CartoProjOrientation((d / "p.ori").c_str()), *o);
    if (HasFailure()) ADD_FAILURE() << "cas " << i << "\n" << test::LireFichier(d / "p.ori");
  }
}

}  // namespace
