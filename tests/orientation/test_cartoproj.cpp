// The map-projected orientation: its three file formats, the zone rule, the conversions, and the
// exactness of what it writes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "orientation/old/lecteurtexte.h"
#include "outils_orientation.h"
#include "outils_test.h"
#include "zepra/cartoproj.h"
#include "zepra/orientation.h"
#include "zepra/xml.h"

namespace {

using test::Refuse;

std::unique_ptr<CartoProjOrientation> Carto(double x0, double y0, int zone, long nc, long nl, double px,
                                            double py) {
  std::unique_ptr<ImageOrientation> o =
      ImageOrientation::CreateCartoProjOrientation(x0, y0, zone, nc, nl, px, py);
  return std::unique_ptr<CartoProjOrientation>(static_cast<CartoProjOrientation*>(o.release()));
}

void MemeCarto(const CartoProjOrientation& a, const CartoProjOrientation& b) {
  EXPECT_TRUE(test::MemesBits(a.GetXOrigine(), b.GetXOrigine())) << a.GetXOrigine() << " " << b.GetXOrigine();
  EXPECT_TRUE(test::MemesBits(a.GetYOrigine(), b.GetYOrigine())) << a.GetYOrigine() << " " << b.GetYOrigine();
  EXPECT_TRUE(test::MemesBits(a.GetXStep(), b.GetXStep())) << a.GetXStep() << " " << b.GetXStep();
  EXPECT_TRUE(test::MemesBits(a.GetYStep(), b.GetYStep())) << a.GetYStep() << " " << b.GetYStep();
  EXPECT_EQ(a.GetZoneLambert(), b.GetZoneLambert());
  EXPECT_EQ(a.GetNs(), b.GetNs());
  EXPECT_EQ(a.GetNl(), b.GetNl());
}

TEST(CartoProj, FichierCartoTexteZones0Et2AllerRetour) {
  test::DossierTemp d;
  struct Cas {
    const char* texte;
    double x0, y0;
    int zone;
    long nc, nl;
    double px, py;
  };
  const Cas cas[] = {
      // Zone 2: Y written without its millions, held with them.
      {"CARTO\n651234567 250000000\n2\n4000 3000\n500 500\n", 651234.567, 2250000, 2, 4000, 3000, 0.5, 0.5},
      // Zone 2, south of 2 000 000 km: a negative Y in the file.
      {"CARTO\n12.5 -300000000\n2\n1 1\n1000 2000\n", 0.0125, 1700000, 2, 1, 1, 1, 2},
      // Zone 0: coordinates as they are.
      {"CARTO\n651234567.5 6862500123.25\n0\n10 20\n200 125\n", 651234.5675, 6862500.12325, 0, 10, 20, 0.2,
       0.125},
  };
  for (const Cas& c : cas) {
    test::Ecrire(d / "a.ori", c.texte);
    CartoProjOrientation lu((d / "a.ori").c_str());
    EXPECT_EQ(lu.GetOriType(), eORICarto);
    EXPECT_EQ(lu.GetXOrigine(), c.x0);
    EXPECT_EQ(lu.GetYOrigine(), c.y0);
    EXPECT_EQ(lu.GetZoneLambert(), c.zone);
    EXPECT_EQ(lu.GetNs(), c.nc);
    EXPECT_EQ(lu.GetNl(), c.nl);
    EXPECT_EQ(lu.GetXStep(), c.px);
    EXPECT_EQ(lu.GetYStep(), c.py);
    EXPECT_EQ(lu.FileNameToString(), d / "a.ori");
    // Written back in the same layout, the same numbers.
    lu.Dump((d / "b.ori").c_str(), 1);
    EXPECT_EQ(test::LireFichier(d / "b.ori"), c.texte);
    MemeCarto(CartoProjOrientation((d / "b.ori").c_str()), lu);
  }
  // Numbers in any decimal form, separated by any blanks, then anything.
  test::Ecrire(d / "c.ori", "  CARTO 6.5e5 +2.5E8\t2 \r\n 7 8 5e2 .5e3 fin");
  CartoProjOrientation c((d / "c.ori").c_str());
  EXPECT_EQ(c.GetXOrigine(), 650);
  EXPECT_EQ(c.GetYOrigine(), 2250000);
  EXPECT_EQ(c.GetYStep(), 0.5);
  Refuse([&] { c.Dump((d / "bin.ori").c_str(), 0); }, "Pas de sauvegarde binaire pour les projections CARTO");
  EXPECT_FALSE(std::ifstream(d / "bin.ori").is_open());
}

// Every real written reads back to the same bits, whatever its digits.
TEST(CartoProj, EcritureSansPerteDePrecision) {
  test::DossierTemp d;
  // X = 651234.567 m must not come back as 651235 m (six significant digits).
  auto m = Carto(651234.567, 2250000.123, 2, 20000, 15000, 0.2, 0.2);
  m->Dump((d / "m.ori").c_str(), 1);
  EXPECT_EQ(test::Lignes(test::LireFichier(d / "m.ori")),
            (std::vector<std::string>{"CARTO", "651234567 250000123", "2", "20000 15000", "200 200"}));
  MemeCarto(CartoProjOrientation((d / "m.ori").c_str()), *m);

  // Values whose millimetres are not exact doubles, steps that are not decimal, every zone.
  unsigned long long graine = 12345;
  auto hasard = [&] {
    graine = graine * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(graine >> 11) / 9007199254740992.0;
  };
  for (int i = 0; i < 300; ++i) {
    const int zone = i % 5;
    const double x0 = 1e6 * hasard() + (i % 7 == 0 ? 1e-9 : 0);
    double y0 = zone == 0 ? 7e6 * hasard() - 1e5 : zone * 1e6 + 999999.99 * hasard();
    if (zone == 2) y0 = 1.5e6 + 1.4e6 * hasard();
    const double px = (i % 3 == 0) ? 1.0 / 3 : 0.05 + 10 * hasard();
    const double py = (i % 4 == 0) ? std::nextafter(px, 0.0) : px;
    auto o = Carto(x0, y0, zone, 1 + i, 2 + i, px, py);
    o->Dump((d / "p.ori").c_str(), 1);
    const CartoProjOrientation relu((d / "p.ori").c_str());
    MemeCarto(relu, *o);
    if (::testing::Test::HasFailure()) {
      ADD_FAILURE() << "cas " << i << "\n" << test::LireFichier(d / "p.ori");
      break;
    }
  }
}

// The number text itself, on many more values than go through files: read back with the millimetre
// factor, the same bits; and no more digits than needed.
TEST(CartoProj, TexteDesNombresExact) {
  unsigned long long graine = 99;
  auto bits = [&] {
    graine = graine * 6364136223846793005ULL + 1442695040888963407ULL;
    return graine;
  };
  for (int i = 0; i < 30000; ++i) {
    double v;
    if (i % 2 == 0) {
      const unsigned long long b = bits() & 0x7fefffffffffffffULL;  // finite, any magnitude
      std::memcpy(&v, &b, sizeof v);
    } else {
      v = static_cast<double>(bits() >> 11) / 9007199254740992.0 * 3e6;  // map coordinates
    }
    if (i % 3 == 0) v = -v;
    for (int p : {0, 3}) {
      const std::string t = TexteExact(v, p);
      LecteurTexte l(t + " suite");
      double lu = 0;
      ASSERT_TRUE(l.Reel(lu, -p)) << t;
      ASSERT_TRUE(test::MemesBits(lu, v)) << t << " " << lu << " " << v;
      std::string reste;
      ASSERT_TRUE(l.Mot(reste));
      ASSERT_EQ(reste, "suite");
    }
  }
  EXPECT_EQ(TexteExact(651234.567, 3), "651234567");
  EXPECT_EQ(TexteExact(0.1), "0.1");
  EXPECT_EQ(TexteExact(-0.0125, 3), "-12.5");
  EXPECT_EQ(TexteExact(1e-7, 3), "0.0001");
  EXPECT_EQ(TexteExact(1e300), "1e300");
  EXPECT_EQ(TexteExact(2250000), "2250000");
}

TEST(CartoProj, FichierXmlAvecEtSansZone) {
  test::DossierTemp d;
  const std::string f = d / "a.xml";
  test::Ecrire(
      f,
      "<?xml version=\"1.0\" ?>\n<FileOriMnt>\n<NombrePixels> 300 200 </NombrePixels>\n"
      "<OriginePlani> 651234.5 250000.25 </OriginePlani>\n<ResolutionPlani> 0.5 -0.25 </ResolutionPlani>\n"
      "<Geometrie> eGeomMNTCarto </Geometrie>\n<NumZoneLambert> 2 </NumZoneLambert>\n</FileOriMnt>\n");
  CartoProjOrientation a(f.c_str());
  EXPECT_EQ(a.GetNs(), 300);
  EXPECT_EQ(a.GetNl(), 200);
  EXPECT_EQ(a.GetXOrigine(), 651234.5);
  EXPECT_EQ(a.GetYOrigine(), 2250000.25);  // the zone rule applies
  EXPECT_EQ(a.GetXStep(), 0.5);
  EXPECT_EQ(a.GetYStep(), 0.25);  // negated
  EXPECT_EQ(a.GetZoneLambert(), 2);

  // Without NumZoneLambert the origin stays at zero though OriginePlani is there; Euclid geometry;
  // no declaration, all on one line.
  test::Ecrire(
      f,
      "<FileOriMnt><Geometrie>eGeomMNTEuclid</Geometrie><NombrePixels>3 2</NombrePixels>"
      "<OriginePlani>651234.5 6862000</OriginePlani><ResolutionPlani>2 -2</ResolutionPlani></FileOriMnt>");
  CartoProjOrientation b(f.c_str());
  EXPECT_EQ(b.GetXOrigine(), 0);
  EXPECT_EQ(b.GetYOrigine(), 0);
  EXPECT_EQ(b.GetZoneLambert(), 0);
  EXPECT_EQ(b.GetNs(), 3);
  EXPECT_EQ(b.GetYStep(), 2);

  // Written by our XML writer, declaration and style sheet line included.
  XParserXML x;
  x.WriteNode("/FileOriMnt/Geometrie", "eGeomMNTCarto");
  x.WriteNode("/FileOriMnt/NombrePixels", "5 6");
  x.WriteNode("/FileOriMnt/ResolutionPlani", "0.2 -0.2");
  x.WriteNode("/FileOriMnt/NumZoneLambert", "1");
  x.WriteNode("/FileOriMnt/OriginePlani", "651234.567 123456.789");
  x.Write(f, "style.xsl");
  const CartoProjOrientation e(f.c_str());
  EXPECT_EQ(e.GetYOrigine(), 1123456.789);
  EXPECT_EQ(e.GetXOrigine(), 651234.567);
  EXPECT_EQ(e.GetNl(), 6);

  test::Ecrire(f, "<FileOriMnt><Geometrie>eGeomMNTFaisceau</Geometrie></FileOriMnt>");
  Refuse([&] { CartoProjOrientation x(f.c_str()); },
         "Lecture en CARTO d'une orientation .XML qui n'en est pas eGeomMNTCarto", {"eGeomMNTFaisceau"});
  test::Ecrire(f, "<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>3 2</NombrePixels>");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "CartoProjOrientation : fichier XML", {f, "mal forme"});
  test::Ecrire(f,
               "<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>3 deux</NombrePixels>"
               "<ResolutionPlani>2 -2</ResolutionPlani></FileOriMnt>");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "",
         {"/FileOriMnt/NombrePixels", "deux nombres attendus"});
  test::Ecrire(
      f, "<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>3 2</NombrePixels></FileOriMnt>");
  Refuse([&] { CartoProjOrientation x(f.c_str()); },
         "[XParserXML] (ReadNode) Noeud /FileOriMnt/ResolutionPlani");
  test::Ecrire(
      f,
      "<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>3 2</NombrePixels><ResolutionPlani>1 "
      "-1</ResolutionPlani><NumZoneLambert>3</NumZoneLambert><OriginePlani>0 2200000</OriginePlani>"
      "</FileOriMnt>");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "Zone Lambert (3) et Y carto (2200000)non coherents",
         {f});
}

TEST(CartoProj, EnteteHdr) {
  test::DossierTemp d;
  const std::string f = d / "a.hdr";
  // The character after each real is consumed; the words are cut at 11 characters; PROJECTION takes a
  // word, the zone and a word. ULXMAP 100, XDIM 2 give X origin 101 (half a pixel back to the corner).
  test::Ecrire(f,
               "MAPUNITS\nNCOLS 20\nNROWS 10\nULXMAP 100,\nULYMAP 2250000,\nXDIM 2,\nYDIM 4,\n"
               "PROJECTION LAMBERT 2 etendu\nXXXXXXXXXXXNBANDS 3\n");
  CartoProjOrientation a(f.c_str());
  EXPECT_EQ(a.GetXOrigine(), 101);
  EXPECT_EQ(a.GetYOrigine(), 2249998);
  EXPECT_EQ(a.GetXStep(), 2);
  EXPECT_EQ(a.GetYStep(), 4);
  EXPECT_EQ(a.GetNs(), 20);
  EXPECT_EQ(a.GetNl(), 10);
  EXPECT_EQ(a.GetZoneLambert(), 2);
  // An over-long word goes on as the next word: "XXXXXXXXXXX" then "NCOLS".
  test::Ecrire(f, "MAPUNITS XXXXXXXXXXXNCOLS 7 NROWS 1 XDIM 1 ; YDIM 1 ;");
  EXPECT_EQ(CartoProjOrientation(f.c_str()).GetNs(), 7);
  // Established quirks, kept: without a separator after a real the next keyword loses its first
  // letter, and METERS swallows the keyword after it. Both leave a step or a size unset: refused.
  test::Ecrire(f, "MAPUNITS\nNCOLS 20\nNROWS 10\nXDIM 2\nYDIM 2\n");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "CartoProjOrientation : pas (2, 0) invalide", {f});
  test::Ecrire(f, "MAPUNITS METERS NCOLS 20 NROWS 10 XDIM 2 , YDIM 2 ,");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "CartoProjOrientation : taille 0 x 10 absurde", {f});
  // Garbage.
  test::Ecrire(f, "MAPUNITS\nULXMAP douze\n");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "CartoProjOrientation : fichier",
         {"ULXMAP", "non numerique"});
  test::Ecrire(f, "MAPUNITS\nPROJECTION LAMBERT\n");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "", {"PROJECTION", "non numerique"});
  test::Ecrire(f, "MAPUNITS\nPROJECTION LAMBERT 9 x NCOLS 1\n");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "Lecture ORI : Zone Lambert > 4 (9)");
  test::Ecrire(f, std::string("\x89PNG\r\n\x1a\n\0\0garbage", 17));
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "CartoProjOrientation : fichier", {"de format inconnu"});
}

TEST(CartoProj, ReglesDeZoneParTable) {
  struct Cas {
    int zone;
    double y;
    const char* refus;  // null: accepted
    double yAttendu;
  };
  const Cas cas[] = {
      {0, 250000, nullptr, 250000},
      {0, 5000000, nullptr, 5000000},
      {0, -12, nullptr, -12},
      {2, 250000, nullptr, 2250000},
      {2, -500000, nullptr, 1500000},
      {2, 1500000, nullptr, 1500000},
      {2, 2900000, nullptr, 2900000},
      {2, 1400000, "Probleme yMap (1400000) hors zone Lambert 2", 0},  // though 1 400 000 / 1e6 = 1
      {2, 2900000.5, "Probleme yMap (2900000.5) hors zone Lambert 2", 0},
      {1, 1999999.5, nullptr, 1999999.5},
      {1, 2000000, "Zone Lambert (1) et Y carto (2000000)non coherents", 0},
      {3, 2200000, "Zone Lambert (3) et Y carto (2200000)non coherents", 0},
      {4, -5, nullptr, 3999995},
      {4, 4000000, nullptr, 4000000},
      {-1, 0, "Lecture ORI : Zone Lambert negative", 0},
      {5, 5000000, "Lecture ORI : Zone Lambert > 4", 0},
  };
  test::DossierTemp d;
  for (const Cas& c : cas) {
    SCOPED_TRACE(std::to_string(c.zone) + " " + std::to_string(c.y));
    double y = c.y;
    if (c.refus) {
      Refuse([&] { CartoProjOrientation::VerifieZone(c.zone, y); }, c.refus);
    } else {
      CartoProjOrientation::VerifieZone(c.zone, y);
      EXPECT_EQ(y, c.yAttendu);
    }
    // The same through a text file (Y in millimetres) and through creation from numbers, where a zone
    // outside 0..4 gets its own established text.
    std::ostringstream s;
    s << "CARTO\n0 " << std::fixed << c.y * 1000 << "\n" << c.zone << "\n1 1\n1 1\n";
    test::Ecrire(d / "z.ori", s.str());
    if (c.refus) {
      Refuse([&] { CartoProjOrientation x((d / "z.ori").c_str()); }, c.refus, {d / "z.ori"});
      const bool horsZone = c.zone < 0 || c.zone > 4;
      Refuse([&] { ImageOrientation::CreateCartoProjOrientation(0, c.y, c.zone, 1, 1, 1, 1); },
             horsZone ? "Probleme avec la zone Lambert 2" : c.refus);
    } else {
      EXPECT_EQ(CartoProjOrientation((d / "z.ori").c_str()).GetYOrigine(), c.yAttendu);
      EXPECT_EQ(Carto(0, c.y, c.zone, 1, 1, 1, 1)->GetYOrigine(), c.yAttendu);
    }
  }
  // Creation tests the zone as unsigned: a negative zone gets the same established text.
  Refuse([] { ImageOrientation::CreateCartoProjOrientation(0, 0, -3, 1, 1, 1, 1); },
         "Probleme avec la zone Lambert 2");
}

TEST(CartoProj, FichiersInvalidesRefuses) {
  test::DossierTemp d;
  const std::string f = d / "a.ori";
  struct Cas {
    const char* contenu;
    const char* debut;
  };
  const Cas cas[] = {
      {"CARTO\n", "CartoProjOrientation : fichier CARTO"},
      {"CARTO\n100 200\n0\n10", "CartoProjOrientation : fichier CARTO"},
      {"CARTO\n100 deux\n0\n1 1\n1 1\n", "CartoProjOrientation : fichier CARTO"},
      {"CARTO\n100 200\nzero\n1 1\n1 1\n", "CartoProjOrientation : fichier CARTO"},
      {"CARTO\n100 200\n0\n1 1\n1 nan\n", "CartoProjOrientation : fichier CARTO"},
      {"CARTO\n100 200\n0\n1 1\n1 0x10\n", "CartoProjOrientation : pas (0.001, 0) invalide"},
      {"CARTO\n100 200\n0\n1 1\n1 1e999\n", "CartoProjOrientation : fichier CARTO"},
      {"CARTO\n100 200\n99999999999\n1 1\n1 1\n", "Lecture ORI : Zone Lambert > 4"},
      {"CARTO\n100 200\n-99999999999\n1 1\n1 1\n", "Lecture ORI : Zone Lambert negative"},
      {"CARTO\n100 200\n0\n-5 10\n1 1\n", "CartoProjOrientation : taille -5 x 10 absurde"},
      {"CARTO\n100 200\n0\n0 10\n1 1\n", "CartoProjOrientation : taille 0 x 10 absurde"},
      {"CARTO\n100 200\n0\n3000000000 10\n1 1\n", "CartoProjOrientation : taille 3000000000 x 10 absurde"},
      {"CARTO\n100 200\n0\n99999999999999999999 10\n1 1\n", "CartoProjOrientation : fichier CARTO"},
      {"CARTO\n100 200\n0\n1 1\n0 1\n", "CartoProjOrientation : pas (0, 0.001) invalide"},
      {"", "CartoProjOrientation : fichier"},
      {"FOO 1 2 3", "CartoProjOrientation : fichier"},
      {"<?xml version=\"1.0\"?>\n<?xml-stylesheet href=\"s\"?>\n<Autre/>", "CartoProjOrientation : fichier"},
  };
  for (const Cas& c : cas) {
    test::Ecrire(f, c.contenu);
    Refuse([&] { CartoProjOrientation x(f.c_str()); }, c.debut, {f});
  }
  Refuse([&] { CartoProjOrientation x((d / "absent.ori").c_str()); },
         "CartoProjOrientation : probleme d'ouverture du fichier", {d / "absent.ori"});
  Refuse([&] { CartoProjOrientation x(d.chemin().c_str()); }, "CartoProjOrientation : probleme d'ouverture");
  // A file far too large for an orientation is refused before it is read.
  test::Ecrire(f, "CARTO\n" + std::string(2 << 20, ' ') + "1 2 0 1 1 1 1\n");
  Refuse([&] { CartoProjOrientation x(f.c_str()); }, "CartoProjOrientation : Fichier", {"trop gros"});
}

TEST(CartoProj, ConversionsAllerRetourExactes) {
  // Steps and origins with few bits: every conversion is exact.
  auto o = Carto(651200.5, 2250000, 2, 400, 300, 0.5, 0.25);
  for (double c = -3; c <= 403; c += 0.5)
    for (double l = -3; l <= 303; l += 0.75) {
      double X, Y, Z, c2, l2, z2;
      o->PhotoToMap(c, l, X, Y, Z);
      EXPECT_EQ(X, 651200.5 + 0.5 * c);
      EXPECT_EQ(Y, 2250000 - 0.25 * l);
      EXPECT_EQ(Z, 0);
      o->MapToPhoto(X, Y, Z, c2, l2, z2);
      ASSERT_EQ(c2, c);
      ASSERT_EQ(l2, l);
      // Y given without its zone millions reaches the same pixel.
      o->MapToPhoto(X, Y - 2e6, 7, c2, l2, z2);
      ASSERT_EQ(l2, l);
      EXPECT_EQ(z2, 7);
    }
  // Any step: back within a hundred-millionth of a pixel (Y near 7e6 m has an ulp of 1e-9 m).
  auto p = Carto(651234.567, 6862123.4, 0, 5000, 4000, 0.2, 0.3);
  for (double c = 0; c < 5000; c += 123.25) {
    double X, Y, Z, c2, l2, z2;
    p->PhotoToMap(c, c * 0.7, X, Y, Z);
    p->MapToPhoto(X, Y, Z, c2, l2, z2);
    EXPECT_NEAR(c2, c, 1e-8);
    EXPECT_NEAR(l2, c * 0.7, 1e-8);
  }
  double x, y, z, v[3];
  p->PhotoAndDepthToGround(10, 20, 3.5, x, y, z);
  EXPECT_EQ(z, -3.5);
  p->PhotoToGround(10, 20, x, y, z);
  EXPECT_EQ(x, 651234.567 + 2);
  EXPECT_EQ(z, 0);
  p->PhotoAndZToMap(10, 20, 99, x, y);
  EXPECT_EQ(x, 651234.567 + 2);
  p->PhotoToGroundVect(1, 2, v);
  EXPECT_EQ(v[0], 0);
  EXPECT_EQ(v[1], 0);
  EXPECT_EQ(v[2], -1);
  EXPECT_EQ(p->GetApproxGroundPixSize(), 0.2);
  p->MapToGround(1, 2, 3, x, y, z);
  EXPECT_EQ(y, 2);  // zone 0: nothing added
  o->MapToGround(1, 2, 3, x, y, z);
  EXPECT_EQ(y, 2000002);
  o->GroundToMap(1, 2, 3, x, y, z);
  EXPECT_EQ(y, 2);

  // Extents: from the first to the last pixel's corner; the base form over the whole image.
  double a, b, c, e;
  Carto(100, 200, 0, 1, 1, 2, 2)->EmpriseCarto(a, b, c, e);
  EXPECT_EQ(a, 100);
  EXPECT_EQ(c, 100);
  EXPECT_EQ(b, 200);
  EXPECT_EQ(e, 200);
  auto q = Carto(100, 200, 0, 10, 5, 2, 3);
  q->EmpriseCarto(a, b, c, e);
  EXPECT_EQ(a, 100);
  EXPECT_EQ(b, 200 - 4 * 3);
  EXPECT_EQ(c, 100 + 9 * 2);
  EXPECT_EQ(e, 200);
  q->EmpriseCarto(0, 50, a, b, c, e);
  EXPECT_EQ(a, 100);
  EXPECT_EQ(b, 200 - 5 * 3);
  EXPECT_EQ(c, 100 + 10 * 2);
  EXPECT_EQ(e, 200);
  q->EmpriseImage(0, 10, 102, 191, 104, 197, a, b, c, e);
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, 1);
  EXPECT_EQ(c, 2);
  EXPECT_EQ(e, 3);
  q->EmpriseTerrain(0, 0, 1, 1, 2, 2, a, b, c, e);
  EXPECT_EQ(a, 102);
  EXPECT_EQ(e, 197);
}

TEST(CartoProj, ExtractTranslationEtCorrespondance) {
  auto o = Carto(1000, 2000000, 2, 100, 50, 0.5, 0.5);
  std::unique_ptr<ImageOrientation> e = o->Extract(10, 4, 29, 13, 3, 2);
  auto* c = dynamic_cast<CartoProjOrientation*>(e.get());
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->GetNs(), 7);  // ceil(20 / 3)
  EXPECT_EQ(c->GetNl(), 5);  // ceil(10 / 2)
  EXPECT_EQ(c->GetXOrigine(), 1005);
  EXPECT_EQ(c->GetYOrigine(), 1999998);
  EXPECT_EQ(c->GetXStep(), 1.5);
  EXPECT_EQ(c->GetYStep(), 1);
  EXPECT_EQ(c->GetZoneLambert(), 2);
  Refuse([&] { o->Extract(10, 4, 9, 13, 1, 1); }, "CartoProjOrientation : Extract : rectangle");
  Refuse([&] { o->Extract(0, 0, 9, 9, 0, 1); }, "CartoProjOrientation : Extract : pas");
  Refuse([&] { o->Extract(0, 0, 9, 9, 1e-12, 1); }, "CartoProjOrientation : Extract : taille");

  // The extract lies on this grid: offset (10, -4) (lines counted along +Y) and factors (3, 2).
  long dc, dl, sc, sl;
  ASSERT_TRUE(o->GetTranslation(*c, dc, dl, sc, sl));
  EXPECT_EQ(dc, 10);
  EXPECT_EQ(dl, -4);
  EXPECT_EQ(sc, 3);
  EXPECT_EQ(sl, 2);
  EXPECT_TRUE(o->CanBeMappedTo(*c));
  // Steps 1% apart over 20 columns: 0.2 pixel of drift, refused.
  auto p = Carto(1000, 2000000, 2, 20, 20, 0.505, 0.5);
  EXPECT_FALSE(o->GetTranslation(*p, dc, dl, sc, sl));
  // Over 5 columns the drift is 0.05 pixel: accepted.
  EXPECT_TRUE(o->GetTranslation(*Carto(1000, 2000000, 2, 5, 5, 0.505, 0.5), dc, dl, sc, sl));
  // A third of a pixel off the grid.
  EXPECT_FALSE(o->GetTranslation(*Carto(1000.17, 2000000, 2, 5, 5, 0.5, 0.5), dc, dl, sc, sl));
  // Another zone cannot be mapped.
  auto z0 = Carto(1000, 2000000, 0, 100, 50, 0.5, 0.5);
  EXPECT_FALSE(o->CanBeMappedTo(*z0));
  EXPECT_FALSE(o->GetTranslation(*z0, dc, dl, sc, sl));
  // Steps absurdly far apart: no overflow, just no.
  EXPECT_FALSE(o->GetTranslation(*Carto(1000, 2000000, 2, 5, 5, 1e300, 0.5), dc, dl, sc, sl));

  GrilleTransformation g = o->TransformationGrid(*c, 16);
  EXPECT_EQ(g.nbColonnes, 8);  // 0, 16, ..., 96, 99
  EXPECT_EQ(g.nbLignes, 5);    // 0, 16, 32, 48, 49
  EXPECT_EQ(g.positions[1].x, (16 - 10) / 3.0);
  EXPECT_EQ(g.positions[7].x, (99 - 10) / 3.0);
  EXPECT_EQ(g.positions[8].y, (16 - 4) / 2.0);
  Refuse([&] { o->TransformationGrid(*z0); }, "ImageOrientation : la projection ne peut etre mappee");
}

TEST(CartoProj, OperationsSansObjetRefusees) {
  auto o = Carto(0, 0, 0, 1, 1, 1, 1);
  double v[3];
  int i;
  Refuse([&] { o->GetSolarVector(v); }, "Pas de vecteur solaire en projection carto.");
  Refuse([&] { o->GetSolarVector(v, 2020, 6, 21, 12, 0); }, "Pas de vecteur solaire en projection carto (");
  Refuse([&] { o->GetProjCenter(); }, "CartoProj : Sommet non defini.");
  Refuse([&] { o->SetProjCenter(T3D<double>()); }, "CartoProj : Sommet non defini.");
  Refuse([&] { o->GetPrincipalPoint(); }, "CartoProj : Point principal non defini.");
  Refuse([&] { o->GetLocalOrigin(); }, "CartoProj : Origine Locale no definie.");
  Refuse([&] { o->GetPrincipalAxis(v); }, "CartoProj : Pas d'axe principal.");
  Refuse([&] { o->GetViewingAxis(v, v, v); }, "CartoProj : Pas d'axe principal.");
  Refuse([&] { o->SetViewingAxis(v, v, v); }, "CartoProj : Pas d'axe principal.");
  Refuse([&] { o->GetFocale(); }, "Pas de focale en projection carto");
  Refuse([&] { o->SetFocale(1); }, "Pas de focale en projection carto");
  Refuse([&] { o->GetTime(i, i, i, i, i, i); }, "Pas d'heure de prise de vue en projection carto.");
  Refuse([&] { o->SetTime(1, 1, 1, 1, 1, 1); }, "Pas d'heure de prise de vue en projection carto.");
  Refuse([&] { o->TransposeImage(); }, "Pas de transposition pour une orientation CARTO");
  Refuse([&] { o->SetNs(0); }, "CartoProjOrientation : SetNs");
  Refuse([&] { o->SetPixSize(1, 0); }, "CartoProjOrientation : SetPixSize");
  Refuse([&] { o->SetZoneLambert(7); }, "Lecture ORI : Zone Lambert > 4");
  Refuse([] { ImageOrientation::CreateCartoProjOrientation(0, 0, 0, 0, 1, 1, 1); },
         "CartoProjOrientation : taille 0 x 1");
  Refuse([] { ImageOrientation::CreateCartoProjOrientation(NAN, 0, 0, 1, 1, 1, 1); },
         "CartoProjOrientation : origine (nan, 0)");
  // Without distortion the distortion is the identity; the others are not known to this tool.
  double c = 1, l = 2;
  o->ApplyDistortionGroundToPhoto(c, l);
  EXPECT_EQ(c, 1);
  o->SetDistortionPolynome(1, 2, 3, 4, 5);
  EXPECT_EQ(o->GetDistortion(), eDistortionPolynome);
  EXPECT_EQ(o->GetDistortionPolynome().coef[4], 5);
  Refuse([&] { o->ApplyDistortionPhotoToGround(c, l); }, "[ImageOrientation] (ApplyDistortionPhotoToGround)");
}

TEST(CartoProj, DataToStringEtSaQuestion) {
  std::istringstream rien("");
  std::ostringstream sortie;
  // A Y with its millions: no question.
  EXPECT_EQ(CartoProjOrientation::DataToString(651234.5, 2250000, 10, 20, 0.5, 0.25, rien, sortie),
            "651234.500000:2250000.000000:10:20:0.500000:0.250000");
  EXPECT_EQ(sortie.str(), "");
  std::istringstream deux("  2\n");
  EXPECT_EQ(CartoProjOrientation::DataToString(1, 250000.5, 1, 2, 3, 4, deux, sortie),
            "1.000000:2250000.500000:1:2:3.000000:4.000000");
  EXPECT_EQ(sortie.str(), "\n\t\tZone Lambert des donnees ?? : ");
  // At the end of the input, or with an answer that is not a zone: an Erreur, never a loop.
  std::istringstream vide(""), mot("deux"), sept("7");
  Refuse([&] { CartoProjOrientation::DataToString(1, 999999.9, 1, 2, 3, 4, vide, sortie); },
         "CartoProjOrientation : DataToString : zone Lambert attendue");
  Refuse([&] { CartoProjOrientation::DataToString(1, -5, 1, 2, 3, 4, mot, sortie); },
         "CartoProjOrientation : DataToString : zone Lambert attendue");
  Refuse([&] { CartoProjOrientation::DataToString(1, 0, 1, 2, 3, 4, sept, sortie); },
         "CartoProjOrientation : DataToString : zone Lambert 7 hors de 0 a 4");
}

TEST(CartoProj, WorldFileRelu) {
  test::DossierTemp d;
  const OrientationOld o(eORICarto, 651234.567, 250000.125, 2, 4000, 3000, 0.2, 0.3);
  o.Sauver((d / "mosaique.ori").c_str());
  const std::vector<std::string> l = test::Lignes(test::LireFichier(d / "mosaique.tfw"));
  ASSERT_EQ(l.size(), 6u);
  double w[6];
  for (int i = 0; i < 6; ++i) {
    char* fin = nullptr;
    w[i] = std::strtod(l[i].c_str(), &fin);
    EXPECT_EQ(*fin, '\0') << l[i];
  }
  EXPECT_EQ(w[0], 0.2);
  EXPECT_EQ(w[1], 0);
  EXPECT_EQ(w[2], 0);
  EXPECT_EQ(w[3], -0.3);
  // The world file gives the centre of pixel (0, 0); a GIS places pixel (c, l) at
  // (w4 + c w0 + l w2, w5 + c w1 + l w3).
  double X, Y, Z;
  o.PhotoToMap(0.5, 0.5, X, Y, Z);
  EXPECT_EQ(w[4], X);
  EXPECT_EQ(w[5], Y);
  EXPECT_EQ(w[4], 651234.567 + 0.1);
  EXPECT_EQ(w[5], 2250000.125 - 0.15);
  o.PhotoToMap(3999.5, 2999.5, X, Y, Z);
  EXPECT_NEAR(w[4] + 3999 * w[0] + 2999 * w[2], X, 1e-8);
  EXPECT_NEAR(w[5] + 3999 * w[1] + 2999 * w[3], Y, 1e-8);
  // The orientation beside it reads back to the same numbers.
  MemeCarto(CartoProjOrientation((d / "mosaique.ori").c_str()),
            *static_cast<const CartoProjOrientation*>(o.GetInternalImageOrientation()));
}

}  // namespace
