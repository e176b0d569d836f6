// The map-projected orientation: its three file formats, the zone rule, the conversions, and the
// exactness of what it writes.
#include <cmath>
#include <sstream>

#include "outils_orientation.h"

namespace {

using test::Carto;
using test::Refuse;
using V = std::vector<double>;

// Each format (told by the first word, whatever the file's extension) read, written back as text
// CARTO and read again to the same bits; a file in the written layout is written back to the very same
// text. Then what is written reads back to the same bits (the mosaic at X = 651234.567 m): millimetres
// that are no exact double, 17 digits, tiny, subnormal, huge, either sign, every zone (zone 2 below and
// above 2 000 000 m).
TEST(CartoProj, FormatsEtEcritureAllerRetourParTable) {
  const std::pair<const char*, const char*> cas[] = {
      // Zone 2: Y written without its millions, held with them.
      {"CARTO\n651234567 250000000\n2\n4000 3000\n500 500\n", "651234.567 2250000 2 4000 3000 0.5 0.5"},
      // Zone 0: coordinates as they are.
      {"CARTO\n651234567.5 6862500123.25\n0\n10 20\n200 125\n",
       "651234.5675 6862500.12325 0 10 20 0.2 0.125"},
      // Numbers in any decimal form, separated by any blanks, then anything.
      {"  CARTO 6.5e5 +2.5E8\t2 \r\n 7 8 5e2 .5e3 fin", "650 2250000 2 7 8 0.5 0.5"},
      // XML: metres, the Y step negated, the zone rule; declaration and style sheet lines skipped.
      {"<?xml version=\"1.0\" ?>\n<?xml-stylesheet href=\"s.xsl\"?>\n<FileOriMnt>"
       "<NombrePixels>300 200</NombrePixels><OriginePlani> 651234.5 250000.25 </OriginePlani>\n"
       "<ResolutionPlani>0.5 -0.25</ResolutionPlani><Geometrie>eGeomMNTCarto</Geometrie>"
       "<NumZoneLambert>2</NumZoneLambert></FileOriMnt>\n",
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
  };
  test::DossierTemp d;
  const std::string f = d / "a.ori", b = d / "b.ori";
  for (const auto& [texte, attendu] : cas) {
    SCOPED_TRACE(texte);
    test::EcrireFichier(f, texte);
    const CartoProjOrientation lu(f.c_str());
    EXPECT_EQ(test::Nombres(lu), attendu);
    lu.Dump(b.c_str(), 1);
    EXPECT_EQ(test::Commence(texte, "CARTO\n") ? test::LireFichier(b) : texte, texte);
    EXPECT_EQ(test::Nombres(CartoProjOrientation(b.c_str())), test::Nombres(lu));
  }
  for (const double v : {651234.567, 1.0 / 3, -2.0 / 3, 0.1 + 0.2, std::nextafter(651234.567, 0.0),
                         651234000.0, 1e-9, 2.5e-310, -0.0, 1e300, -1.7976931348623157e308})
    for (int zone = 0; zone <= 4; ++zone) {
      const double r = std::fmod(std::fabs(v), 1e6), pas = v == 0 ? 1 : v;
      const auto o = Carto(v, zone == 0 ? v : (zone == 2 ? 1.5e6 + 0.9 * r : zone * 1e6 + r), zone, 3, 4, pas,
                           std::nextafter(pas, 1.0));
      o->Dump(f.c_str(), 1);
      EXPECT_EQ(test::Nombres(CartoProjOrientation(f.c_str())), test::Nombres(*o)) << test::LireFichier(f);
    }
  Refuse([&] { Carto(0, 0, 0, 1, 1, 1, 1)->Dump((d / "bin.ori").c_str(), 0); },
         "Pas de sauvegarde binaire pour les projections CARTO");
}

TEST(CartoProj, FichiersRefusesParTable) {
  const std::tuple<const char*, const char*, const char*> cas[] = {
      {"CARTO\n", "CartoProjOrientation : fichier CARTO", "tronque ou non numerique"},
      {"CARTO\n100 200\n0\n1 1\n1 0x10\n", "CartoProjOrientation : pas (0.001, 0) invalide", ""},
      {"CARTO\n100 200\n4294967298\n1 1\n1 1\n", "Lecture ORI : Zone Lambert > 4", ""},  // 2^32 + 2
      {"CARTO\n100 200\n0\n0 10\n1 1\n", "CartoProjOrientation : taille 0 x 10 absurde", ""},
      {"CARTO\n1 2\n0\n3000000000 10\n1 1\n", "CartoProjOrientation : taille 3000000000 x 10", ""},
      {"FOO 1 2 3", "CartoProjOrientation : fichier", "de format inconnu (premier mot 'FOO'"},
      {"<FileOriMnt><Geometrie>eGeomMNTFaisceau</Geometrie></FileOriMnt>",
       "Lecture en CARTO d'une orientation .XML qui n'en est pas eGeomMNTCarto", "eGeomMNTFaisceau"},
      {"<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>3 2</NombrePixels>",
       "CartoProjOrientation : fichier XML", "mal forme"},
      {"<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>3 x</NombrePixels></FileOriMnt>",
       "CartoProjOrientation : noeud /FileOriMnt/NombrePixels", "deux nombres attendus"},
      // Established header quirks, kept: without a separator after a real the next keyword loses its
      // first letter, and METERS swallows the keyword after it; both leave a step or a size unset.
      {"MAPUNITS\nNCOLS 20\nNROWS 10\nXDIM 2\nYDIM 2\n", "CartoProjOrientation : pas (2, 0) invalide", ""},
      {"MAPUNITS METERS NCOLS 20 NROWS 10 XDIM 2 , YDIM 2 ,", "CartoProjOrientation : taille 0 x 10", ""},
      {"MAPUNITS\nULXMAP douze\n", "CartoProjOrientation : fichier", "ULXMAP absente ou non numerique"},
      {"MAPUNITS\nPROJECTION LAMBERT\n", "CartoProjOrientation : fichier", "PROJECTION absente"},
  };
  test::DossierTemp d;
  const std::string f = d / "a.ori";
  for (const auto& [contenu, debut, fragment] : cas) {
    test::EcrireFichier(f, contenu);
    Refuse([&] { CartoProjOrientation x(f.c_str()); }, debut, {f, fragment});
  }
  for (const std::string& absent : {d / "absent.ori", d.chemin()})
    Refuse([&] { CartoProjOrientation x(absent.c_str()); },
           "CartoProjOrientation : probleme d'ouverture du fichier", {absent});
  // A file far too large for an orientation is refused before it is read.
  test::EcrireFichier(f, "CARTO\n" + std::string(2 << 20, ' ') + "1 2 0 1 1 1 1\n");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "CartoProjOrientation : Fichier", {"trop gros"});
}

// The zone rule on reading a file (Y in millimetres), on creation from the numbers (where a zone
// outside 0..4, tested as unsigned, has its own established text) and in the axonometric model (its
// own texts). A null refusal: accepted, Y becomes the last number.
TEST(CartoProj, ReglesDeZoneParTable) {
  const std::tuple<int, double, const char*, double> cas[] = {
      {0, 5000000, nullptr, 5000000},
      {2, 250000, nullptr, 2250000},
      {2, 1500000, nullptr, 1500000},
      {2, 2900000, nullptr, 2900000},
      {2, 1400000, "Probleme yMap (1400000) hors zone Lambert 2", 0},  // though 1 400 000 / 1e6 = 1
      {2, 2900000.5, "Probleme yMap (2900000.5) hors zone Lambert 2", 0},
      {1, 1999999.5, nullptr, 1999999.5},
      {3, 2200000, "Zone Lambert (3) et Y carto (2200000)non coherents", 0},
      {-1, 0, "Lecture ORI : Zone Lambert negative", 0},
      {5, 5000000, "Lecture ORI : Zone Lambert > 4", 0},
  };
  test::DossierTemp d;
  const std::string f = d / "z.ori";
  for (const auto& [zone, y, refus, yAttendu] : cas) {
    SCOPED_TRACE(std::to_string(zone) + " " + std::to_string(y));
    test::EcrireFichier(
        f, "CARTO\n0 " + std::to_string(y * 1000) + "\n" + std::to_string(zone) + "\n1 1\n1 1\n");
    const int z = zone;
    double yAxono = y, yCarto = y;
    if (refus) {
      Refuse([&] { CartoProjOrientation x(f.c_str()); }, refus, {f});
      Refuse([&] { Carto(0, yCarto, z, 1, 1, 1, 1); },
             z < 0 || z > 4 ? "Probleme avec la zone Lambert 2" : refus);
      Refuse([&] { AxonoProjOrientation::VerifieZone(z, yAxono); },
             z < 0 ? "Zone Lambert negative" : (z > 4 ? "Zone Lambert > 4" : "Zone Lambert absurde"));
    } else {
      AxonoProjOrientation::VerifieZone(zone, yAxono);
      EXPECT_EQ((V{CartoProjOrientation(f.c_str()).GetYOrigine(), Carto(0, y, z, 1, 1, 1, 1)->GetYOrigine(),
                   yAxono}),
                V(3, yAttendu));
    }
  }
}

TEST(CartoProj, ConversionsEmprisesEtExtraits) {
  // Steps and origins with few bits: photo -> map -> photo is exact; Y given without its zone
  // millions reaches the same line; the height goes through.
  const auto o = Carto(651200.5, 2250000, 2, 400, 300, 0.5, 0.25);
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
  // the base form at two heights over the whole image; and a map rectangle back into the image.
  double a, b, c, e;
  Carto(100, 200, 0, 1, 1, 2, 2)->EmpriseCarto(a, b, c, e);
  EXPECT_EQ((V{a, b, c, e}), (V{100, 200, 100, 200}));
  const auto q = Carto(100, 200, 0, 10, 5, 2, 3);
  q->EmpriseCarto(0, 50, a, b, c, e);
  EXPECT_EQ((V{a, b, c, e}), (V{100, 185, 120, 200}));
  q->EmpriseImage(0, 10, 102, 191, 104, 197, a, b, c, e);
  EXPECT_EQ((V{a, b, c, e}), (V{1, 1, 2, 3}));

  // An extract: the orientation of a sub-rectangle resampled; the grid it lies on.
  const auto m = Carto(1000, 2000000, 2, 100, 50, 0.5, 0.5);
  const std::unique_ptr<ImageOrientation> ex = m->Extract(10, 4, 29, 13, 3, 2);
  const auto& extrait = dynamic_cast<const CartoProjOrientation&>(*ex);
  EXPECT_EQ(test::Nombres(extrait), "1005 1999998 2 7 5 1.5 1");  // ceil(20 / 3) x ceil(10 / 2)
  Refuse([&] { m->Extract(10, 4, 9, 13, 1, 1); }, "CartoProjOrientation : Extract : rectangle");
  Refuse([&] { m->Extract(0, 0, 9, 9, 1e-12, 1); }, "CartoProjOrientation : Extract : taille");

  // The extract lies on this grid: offset (10, -4) (lines counted along +Y) and factors (3, 2).
  long t[4];
  ASSERT_TRUE(m->GetTranslation(extrait, t[0], t[1], t[2], t[3]));
  EXPECT_EQ((std::vector<long>(t, t + 4)), (std::vector<long>{10, -4, 3, 2}));
  const std::pair<std::unique_ptr<CartoProjOrientation>, bool> autres[] = {
      {Carto(1000, 2000000, 2, 20, 20, 0.505, 0.5), false},  // steps 1% apart over 20 columns: 0.2 pixel
      {Carto(1000, 2000000, 2, 5, 5, 0.505, 0.5), true},     // over 5 columns, 0.05 pixel
      {Carto(1000.17, 2000000, 2, 5, 5, 0.5, 0.5), false},   // a third of a pixel off the grid
      {Carto(1000, 2000000, 0, 5, 5, 0.5, 0.5), false},      // another zone
      {Carto(1000, 2000000, 2, 5, 5, 1e300, 0.5), false},    // steps absurdly far apart: no overflow
  };
  for (const auto& [autre, surLaGrille] : autres)
    EXPECT_EQ(m->GetTranslation(*autre, t[0], t[1], t[2], t[3]), surLaGrille) << test::Nombres(*autre);

  // Grid nodes at columns 0, 16, ..., 96, 99 and lines 0, 16, 32, 48, 49; node 15 in the extract's pixels.
  const GrilleTransformation g = m->TransformationGrid(extrait, 16);
  EXPECT_TRUE(g.nbColonnes == 8 && g.nbLignes == 5 && g.positions[15] == TPoint2D<double>(89 / 3.0, 6));
}

TEST(CartoProj, DataToStringEtSaQuestion) {
  std::istringstream vide(""), deux("  2\n"), sept("7");
  std::ostringstream sortie;
  EXPECT_EQ(CartoProjOrientation::DataToString(651234.5, 1000000, 10, 20, 0.5, 0.25, vide, sortie),
            "651234.500000:1000000.000000:10:20:0.500000:0.250000");
  EXPECT_EQ(CartoProjOrientation::DataToString(1, 250000.5, 1, 2, 3, 4, deux, sortie),
            "1.000000:2250000.500000:1:2:3.000000:4.000000");
  EXPECT_EQ(sortie.str(),
            "\n\t\tZone Lambert des donnees ?? : ");  // asked once: a Y with its millions needs no zone
  // At the end of the input, or with an answer that is not a zone: an Erreur, never a loop.
  Refuse([&] { CartoProjOrientation::DataToString(1, 999999.9, 1, 2, 3, 4, vide, sortie); },
         "CartoProjOrientation : DataToString : zone Lambert attendue");
  Refuse([&] { CartoProjOrientation::DataToString(1, 0, 1, 2, 3, 4, sept, sortie); },
         "CartoProjOrientation : DataToString : zone Lambert 7 hors de 0 a 4");
}

}  // namespace
