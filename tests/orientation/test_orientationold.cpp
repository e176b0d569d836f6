// OrientationOld: deep copies, reading by image or orientation name, saving complete or not at all,
// and the derived orientations.
#include <cmath>

#include "outils_orientation.h"

namespace {

using test::Refuse;

std::string Nombres(const OrientationOld& o) {
  return test::Nombres(dynamic_cast<const CartoProjOrientation&>(*o.GetInternalImageOrientation()));
}

TEST(OrientationOld, CopiesProfondesEtLecture) {
  const OrientationOld a(eORICarto, 1000, 250000, 2, 30, 40, 0.5, 0.5);
  OrientationOld b(a), c;
  c = a;
  b.SetNs(7);
  c.SetZoneLambert(0);
  const std::unique_ptr<ImageOrientation> copie = a.GetImageOrientationCopy();
  copie->SetNl(1);
  EXPECT_EQ(Nombres(a), "1000 2250000 2 30 40 0.5 0.5");
  EXPECT_EQ(OrientationOld(*copie).GetNl(), 1);

  const OrientationOld vide, copieVide(vide);
  EXPECT_FALSE(copieVide.EstDefinie());
  Refuse([&] { vide.Sauver("x.ori"); }, "[OrientationOld] Orientation non definie");
  Refuse([&] { OrientationOld(eORIConic, 0, 0, 0, 1, 1, 1, 1); }, "[OrientationOld] (Constructeur) Type 2");

  // Read by the image's name (the file beside it) or by the orientation file's own name.
  test::DossierTemp d;
  test::EcrireFichier(d / "a.ori", "CARTO\n1000 2000\n0\n10 20\n1000 1000\n");
  test::EcrireFichier(d / "a.xml",
                      "<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>5 6</NombrePixels>"
                      "<ResolutionPlani>1 -1</ResolutionPlani></FileOriMnt>");
  test::EcrireFichier(d / "b.HDR", "MAPUNITS NCOLS 3 NROWS 4 XDIM 2 , YDIM 2 ,");
  EXPECT_EQ(OrientationOld((d / "a.tif").c_str()).GetNs(), 10);                 // the image's orientation
  EXPECT_EQ(OrientationOld((d / "a.xml").c_str()).GetNs(), 5);                  // named: that file, not a.ori
  EXPECT_EQ(OrientationOld((d / "b.ori").c_str()).GetFileName(), d / "b.HDR");  // absent: searched beside
  OrientationOld o((d / "a.ori").c_str());
  Refuse([&] { o.Lire((d / "c.tif").c_str()); },
         "ImageOrientation : fichier d'orientation introuvable pour ");
  EXPECT_EQ(o.GetNs(), 10);  // unchanged by the failed read
}

// A mosaic's orientation: its CARTO file reads back bit for bit (X = 651234.567 m must not come back as
// 651235 m), its world file gives a GIS the centre of the first pixel and the steps; files that would
// not read back are not written at all.
TEST(OrientationOld, SauvegardeExacteAvecWorldFile) {
  test::DossierTemp d;
  const OrientationOld o(eORICarto, 651234.567, 250000.125, 2, 4000, 3000, 0.2, 0.3);
  o.Sauver((d / "m.ori").c_str());
  EXPECT_EQ(test::LireFichier(d / "m.ori"), "CARTO\n651234567 250000125\n2\n4000 3000\n200 300\n");
  EXPECT_EQ(test::Nombres(CartoProjOrientation((d / "m.ori").c_str())), Nombres(o));
  std::vector<double> w;
  for (const std::string& ligne : test::Lignes(test::LireFichier(d / "m.tfw"))) w.push_back(std::stod(ligne));
  // Steps, rotations, then the centre of the first pixel; from them, the centre of the last one.
  EXPECT_EQ(w, (std::vector<double>{0.2, 0, 0, -0.3, 651234.567 + 0.1, 2250000.125 - 0.15}));
  EXPECT_TRUE(std::fabs(w[4] + 3999 * w[0] - 652034.467) < 1e-6 &&
              std::fabs(w[5] + 2999 * w[3] - 2249100.275) < 1e-6);

  for (const std::string nom : {"m.xml", "m.HDR"})  // would be read back as another format
    Refuse([&] { o.Sauver((d / nom).c_str()); }, "[OrientationOld] (Sauver)", {nom});
  // An origin moved out of its zone by an extract would not read back either.
  const OrientationOld loin = o.Extract(0, -4e6, 10, -4e6 + 10, 1, 1);
  Refuse([&] { loin.Sauver((d / "loin.ori").c_str()); },
         "[CartoProjOrientation] (Dump) Origine Y 3450000.125");
  EXPECT_EQ(test::Lancer(d.chemin(), "ls").sortie, "m.ori\nm.tfw\n");  // nothing else, no temporary
}

TEST(OrientationOld, OrientationsDerivees) {
  const OrientationOld o(eORICarto, 100, 200, 0, 10, 6, 2, 3);
  OrientationOld c(o), s(o), t(o);
  c.Crop(TRectangle<int>(2, 1, 9, 6), 3);  // columns 2, 5, 8; lines 1, 4
  EXPECT_EQ(Nombres(c), "104 197 0 3 2 6 9");
  Refuse([&] { c.Crop(TRectangle<int>(2, 1, 2, 6)); }, "[OrientationOld] (Crop)");
  s.SousEchantillonnage(4);
  EXPECT_EQ(Nombres(s), "100 200 0 3 2 8 12");
  s.SurEchantillonnage(3);
  EXPECT_EQ(Nombres(s), "100 200 0 9 6 2.6666666666666665 4");
  t.SurEchantillonnage(3);  // steps that are not decimal: no pixel gained
  EXPECT_EQ(Nombres(t), "100 200 0 30 18 0.6666666666666666 1");

  // Visible: [100, 120) x (182, 200]; the extent from the first to the last pixel's corner.
  const std::tuple<double, double, bool> points[] = {
      {100, 200, true}, {119.9, 182.1, true}, {120, 190, false}, {99.9, 190, false}, {110, 200.1, false}};
  for (const auto& [x, y, visible] : points) EXPECT_EQ(o.IsVisible(x, y), visible) << x << " " << y;
  EXPECT_EQ((std::vector<double>{o.GetMinXCarto(), o.GetMinYCarto(), o.GetMaxXCarto(), o.GetMaxYCarto()}),
            (std::vector<double>{100, 185, 118, 200}));
}

}  // namespace
