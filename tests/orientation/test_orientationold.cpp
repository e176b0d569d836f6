// OrientationOld: ownership, reading by image or orientation name, saving with the world file, and
// the derived orientations.
#include <gtest/gtest.h>

#include "outils_orientation.h"
#include "outils_test.h"
#include "zepra/cartoproj.h"
#include "zepra/orientation.h"

namespace {

using test::Refuse;

TEST(OrientationOld, CopiesProfondesEtOrientationVide) {
  OrientationOld a(eORICarto, 1000, 250000, 2, 30, 40, 0.5, 0.5);
  EXPECT_EQ(a.GetOriType(), eORICarto);
  EXPECT_EQ(a.GetZoneLambert(), 2);
  OrientationOld b(a);
  OrientationOld c;
  c = a;
  b.SetNs(7);
  c.SetZoneLambert(0);
  EXPECT_EQ(a.GetNs(), 30);
  EXPECT_EQ(b.GetNs(), 7);
  EXPECT_EQ(a.GetZoneLambert(), 2);
  EXPECT_NE(a.GetInternalImageOrientation(), b.GetInternalImageOrientation());
  std::unique_ptr<ImageOrientation> copie = a.GetImageOrientationCopy();
  EXPECT_NE(dynamic_cast<CartoProjOrientation*>(copie.get()), nullptr);
  copie->SetNl(1);
  EXPECT_EQ(a.GetNl(), 40);
  c = c;
  EXPECT_EQ(c.GetNs(), 30);
  OrientationOld d(*copie);
  EXPECT_EQ(d.GetNl(), 1);

  OrientationOld vide;
  EXPECT_FALSE(vide.EstDefinie());
  OrientationOld copieVide(vide);
  EXPECT_FALSE(copieVide.EstDefinie());
  double x, y, z;
  Refuse([&] { vide.PhotoToMap(0, 0, x, y, z); }, "[OrientationOld] Orientation non definie");
  Refuse([&] { vide.GetNs(); }, "[OrientationOld] Orientation non definie");
  Refuse([&] { vide.Sauver("x.ori"); }, "[OrientationOld] Orientation non definie");
  Refuse([&] { OrientationOld(eORIConic, 0, 0, 0, 1, 1, 1, 1); }, "[OrientationOld] (Constructeur) Type 2");
  Refuse([&] { OrientationOld(eORICarto, 0, 0, 9, 1, 1, 1, 1); }, "Probleme avec la zone Lambert 2");
}

TEST(OrientationOld, LectureParNomDImageOuDOrientation) {
  test::DossierTemp d;
  test::Ecrire(d / "a.ori", "CARTO\n1000 2000\n0\n10 20\n1000 1000\n");
  test::Ecrire(
      d / "a.xml",
      "<FileOriMnt><Geometrie>eGeomMNTCarto</Geometrie><NombrePixels>5 6</NombrePixels><ResolutionPlani>"
      "1 -1</ResolutionPlani></FileOriMnt>");
  test::Ecrire(d / "b.HDR", "MAPUNITS NCOLS 3 NROWS 4 XDIM 2 , YDIM 2 ,");
  EXPECT_EQ(OrientationOld((d / "a.tif").c_str()).GetNs(), 10);  // the image's orientation
  EXPECT_EQ(OrientationOld((d / "a.ori").c_str()).GetNs(), 10);
  EXPECT_EQ(OrientationOld((d / "a.xml").c_str()).GetNs(), 5);  // named: that file, not a.ori
  EXPECT_EQ(OrientationOld((d / "b.ori").c_str()).GetNs(), 3);  // absent: searched beside
  EXPECT_EQ(OrientationOld((d / "b.tif").c_str()).GetFileName(), d / "b.HDR");
  OrientationOld o((d / "a.ori").c_str());
  Refuse([&] { o.Lire((d / "c.tif").c_str()); },
         "ImageOrientation : fichier d'orientation introuvable pour ");
  EXPECT_EQ(o.GetNs(), 10);  // unchanged by the failed read
}

TEST(OrientationOld, SauvegardeAvecWorldFileEtFichiersCompletsOuAbsents) {
  test::DossierTemp d;
  const OrientationOld o(eORICarto, 651234.567, 2250000.25, 2, 4000, 3000, 0.2, 0.2);
  o.Sauver((d / "m.ori").c_str());
  EXPECT_EQ(test::LireFichier(d / "m.ori"), "CARTO\n651234567 250000250\n2\n4000 3000\n200 200\n");
  EXPECT_EQ(test::LireFichier(d / "m.tfw"), "0.2\n0\n0\n-0.2\n651234.667\n2250000.15\n");
  const OrientationOld relu((d / "m.ori").c_str());
  EXPECT_EQ(relu.GetMinXCarto(), 651234.567);
  EXPECT_EQ(relu.GetMaxYCarto(), 2250000.25);

  Refuse([&] { o.Sauver((d / "m.xml").c_str()); }, "[OrientationOld] (Sauver)", {"m.xml"});
  Refuse([&] { o.Sauver((d / "m.HDR").c_str()); }, "[OrientationOld] (Sauver)");
  Refuse([&] { o.Sauver((d / "absent/m.ori").c_str()); },
         "[CartoProjOrientation] (Dump) Impossible de creer");
  EXPECT_EQ(test::Lancer(d.chemin(), "ls").sortie, "m.ori\nm.tfw\n");  // no temporary left behind

  // An origin moved out of its zone by an extract would not read back: not written.
  OrientationOld loin = o.Extract(0, -4e6, 10, -4e6 + 10, 1, 1);
  EXPECT_EQ(loin.GetMaxYCarto(), 3050000.25);
  Refuse([&] { loin.Sauver((d / "loin.ori").c_str()); },
         "[CartoProjOrientation] (Dump) Origine Y 3050000.25");
  EXPECT_FALSE(std::ifstream(d / "loin.ori").is_open());
}

TEST(OrientationOld, OrientationsDerivees) {
  OrientationOld o(eORICarto, 100, 200, 0, 10, 6, 2, 3);
  OrientationOld c(o);
  c.Crop(TRectangle<int>(2, 1, 9, 6), 3);
  EXPECT_EQ(c.GetNs(), 3);  // columns 2, 5, 8
  EXPECT_EQ(c.GetNl(), 2);  // lines 1, 4
  EXPECT_EQ(c.GetMinXCarto(), 104);
  EXPECT_EQ(c.GetMaxYCarto(), 197);
  EXPECT_EQ(c.GetPixSize(), 6);
  Refuse([&] { c.Crop(TRectangle<int>(2, 1, 2, 6)); }, "[OrientationOld] (Crop)");

  OrientationOld s(o);
  s.SousEchantillonnage(4);
  EXPECT_EQ(s.GetNs(), 3);
  EXPECT_EQ(s.GetNl(), 2);
  s.SurEchantillonnage(3);
  EXPECT_EQ(s.GetNs(), 9);
  EXPECT_EQ(s.GetNl(), 6);
  EXPECT_EQ(s.GetMinXCarto(), 100);
  double a, b, e, f;
  s.EmpriseCarto(a, b, e, f);
  EXPECT_EQ(e, 100 + 8 * (8.0 / 3));
  OrientationOld t(o);
  t.SurEchantillonnage(3);  // steps that are not decimal: no pixel gained
  EXPECT_EQ(t.GetNs(), 30);
  EXPECT_EQ(t.GetNl(), 18);

  EXPECT_TRUE(o.IsVisible(100, 200));
  EXPECT_TRUE(o.IsVisible(119.9, 182.1));
  EXPECT_FALSE(o.IsVisible(120, 190));
  EXPECT_FALSE(o.IsVisible(99.9, 190));
  EXPECT_FALSE(o.IsVisible(110, 200.1));
  EXPECT_EQ(o.GetMinYCarto(), 200 - 5 * 3);
  EXPECT_EQ(o.GetMaxXCarto(), 100 + 9 * 2);
  o.SetPixSize(1);
  EXPECT_EQ(o.GetMaxXCarto(), 109);
  Refuse([&] { o.SetLocalOrigin(T3D<double>()); }, "CartoProj : Origine Locale no definie.");
  Refuse([&] { o.SetPrincipalPoint(TPoint2D<double>()); }, "CartoProj : Point principal non defini.");
  long dc, dl, sc, sl;
  EXPECT_TRUE(OrientationOld(eORICarto, 100, 200, 0, 10, 6, 1, 1).GetTranslation(c, dc, dl, sc, sl));
  EXPECT_EQ(dc, 4);
  EXPECT_EQ(dl, -3);
  EXPECT_EQ(sc, 6);
}

}  // namespace
