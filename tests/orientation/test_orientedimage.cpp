// Oriented images: pixels and orientation read and saved together through real TIFF files, checked
// against each other, and cut out with the orientation that matches the pixels.
#include <algorithm>

#include "outils_orientation.h"
#include "zepra/orientedimage.h"
#include "zepra/systeme.h"

namespace {

using test::Refuse;

OrientationOld Ori(int colonnes, int lignes) {
  return OrientationOld(eORICarto, 651000, 2250000.5, 2, colonnes, lignes, 0.5, 0.5);
}

template <class T>
TTOrientedImage<T> Motif(int colonnes, int lignes, int canaux = 1) {
  TTOrientedImage<T> im(lignes, colonnes, TagNbCanaux(canaux), Ori(colonnes, lignes));
  for (int y = 0; y < lignes; ++y)
    for (int x = 0; x < colonnes; ++x)
      for (int c = 0; c < canaux; ++c) im(x, y, c) = static_cast<T>((7 * x + 13 * y + 5 * c) % 251);
  return im;
}

// The map position of the corner of pixel (x, y).
TPoint2D<double> Coin(const OrientationOld& o, double x, double y) {
  double X, Y, Z;
  o.PhotoToMap(x, y, X, Y, Z);
  return TPoint2D<double>(X, Y);
}

// Lines are checked before columns, whichever way pixels and orientation are paired (grid
// orientations excepted); a failed read leaves the image as it was.
TEST(TTOrientedImage, CoherenceLignesPuisColonnes) {
  test::DossierTemp d;
  const TTImage<unsigned char> image(200, 100, TagNbCanaux(1));  // 200 columns, 100 lines
  image.Sauver((d / "a.tif").c_str());
  const std::pair<OrientationOld, std::string> cas[] = {
      {Ori(100, 200), " : Nombre de ligne incoherent entre image (100) et orientation (200)"},
      {Ori(201, 100), " : Nombre de colonne incoherent entre image (200) et orientation (201)"},
  };
  for (const auto& c : cas) {
    c.first.Sauver((d / "a.ori").c_str());
    const std::string tt = "TTOrientedImage" + c.second;
    Refuse([&] { TTOrientedImage<float> x((d / "a.tif").c_str()); }, tt, {"a.tif", "a.ori"});
    Refuse([&] { TTOrientedImage<unsigned char> x(image, c.first); }, tt);
    Refuse([&] { OrientedImageFicIn x((d / "a.tif").c_str()); }, "OrientedImageFicIn" + c.second);
  }
  TTOrientedImage<float> garde = Motif<float>(3, 2);
  Refuse([&] { garde.Lire((d / "a.tif").c_str()); }, "TTOrientedImage : Nombre de colonne");
  EXPECT_TRUE(garde.GetTaille() == TPoint2D<int>(3, 2) && garde(2, 1) == (14 + 13) % 251 &&
              garde.GetOrientation().GetMinXCarto() == 651000);

  // A grid orientation is accepted whatever the image's size; the sizes are logged.
  const OrientationOld o{test::OrientationDeguisee(eORIGrille)};  // 30 columns, 40 lines
  const bool avant = Systeme::m_hascout;
  Systeme::m_hascout = true;
  testing::internal::CaptureStdout();
  const TTOrientedImage<short> im(100, 200, TagNbCanaux(1), o);  // any size
  const std::string sortie = testing::internal::GetCapturedStdout();
  Systeme::m_hascout = avant;
  EXPECT_EQ(sortie, "taille  = 100,200\nGetNl() = 40\nGetNs() = 30\n");
  EXPECT_EQ(im.GetTaille(), TPoint2D<int>(200, 100));
}

TEST(TTOrientedImage, DecoupesAvecOrientationDerivee) {
  const TTOrientedImage<int> source = Motif<int>(20, 12, 2);
  // The rectangle, the step, the source pixel of the cut-out's (0, 0) and the cut-out's size.
  const std::tuple<TRectangle<int>, int, TPoint2D<int>, TPoint2D<int>> cas[] = {
      {TRectangle<int>(3, 2, 11, 9), 3, {3, 2}, {3, 3}},
      {TRectangle<int>(-5, -4, 8, 30), 2, {1, 0}, {4, 6}},  // clipped, on the step grid of the request
      {TRectangle<int>(15, 10, 40, 40), 1, {15, 10}, {5, 2}},
  };
  for (const auto& [r, pas, premier, taille] : cas) {
    SCOPED_TRACE(testing::Message() << r << " pas " << pas);
    // From an oriented image, from a plain image and its orientation, in place, and from itself.
    TTOrientedImage<int> cut, plain, surPlace = source, soi = source;
    cut.Crop(source, r, pas);
    plain.Crop(static_cast<const TTImage<int>&>(source), source.GetOrientation(), r, pas);
    surPlace.Crop(surPlace.GetOrientation(), r, pas);
    soi.Crop(soi, r, pas);
    for (const TTOrientedImage<int>* v : {&cut, &plain, &surPlace, &soi}) {
      ASSERT_EQ(v->GetTaille(), taille);
      v->VerifieCoherence();
      for (int y = 0; y < taille.y; ++y)
        for (int x = 0; x < taille.x; ++x) {
          const int xs = premier.x + x * pas, ys = premier.y + y * pas;
          ASSERT_EQ((*v)(x, y, 1), source(xs, ys, 1));
          // The pixel lies where it lay: same map corner.
          ASSERT_EQ(Coin(v->GetOrientation(), x, y), Coin(source.GetOrientation(), xs, ys));
        }
    }
  }
  TTOrientedImage<int> cut;
  Refuse([&] { cut.Crop(source, TRectangle<int>(30, 0, 40, 5)); }, "[OrientedImageOut] (CropOri) Rectangle");
  Refuse([&] { cut.Crop(source, TRectangle<int>(0, 0, 5, 5), 0); }, "[OrientedImageOut] (CropOri) Pas 0");
  Refuse(
      [&] { cut.Crop(static_cast<const TTImage<int>&>(source), Ori(20, 11), TRectangle<int>(0, 0, 5, 5)); },
      "[OrientedImageOut] (CropOri) source : Nombre de ligne incoherent");

  // By a map rectangle: edges rounded to pixel edges, a step that is a whole multiple.
  TTOrientedImage<int> carto;
  carto.CropOriCarto(source, 651001.0, 2250000.5 - 4.4, 651005.1, 2250000.5 - 0.5, 1.0, 1.0);
  EXPECT_EQ(carto.GetTaille(), TPoint2D<int>(4, 4));  // columns 2..9 and lines 1..8 every 2nd
  EXPECT_EQ(Coin(carto.GetOrientation(), 0, 0), Coin(source.GetOrientation(), 2, 1));
  EXPECT_EQ(carto(3, 3, 0), source(8, 7, 0));
  Refuse([&] { carto.CropOriCarto(source, 651001, 2249990, 651005, 2250000, 0.75, 0.75); },
         "[OrientedImageOut] (CropOriCarto) Pas (0.75, 0.75)");
  Refuse([&] { carto.CropOriCarto(source, 651001, 2249990, 651005, 2250000, 1, 2); },
         "[OrientedImageOut] (CropOriCarto) Pas (1, 2)");
}

// Saved with its orientation beside it (source.ori), read back as float by the image's name; a cut-out
// of the file written as a new oriented file.
TEST(OrientedImageFic, LectureDecoupeEtEcritureAvecOrientation) {
  test::DossierTemp d;
  const TTOrientedImage<unsigned short> source = Motif<unsigned short>(30, 20, 3);
  source.Sauver((d / "source.tif").c_str());
  const TTOrientedImage<float> relue((d / "source.tif").c_str());
  EXPECT_TRUE(relue.GetOrientation().GetFileName() == d / "source.ori" &&
              relue.GetTaille() == source.GetTaille() && relue.GetNbCanaux() == 3 &&
              std::equal(source.begin(), source.end(), relue.begin(), [](int a, float b) { return a == b; }));
  // The cut-out's orientation under another name; no file exists before it is complete.
  {
    OrientedImageFicOut out((d / "cut.tif").c_str(), (d / "autre.ori").c_str());
    out.CropOri(OrientedImageFicIn((d / "source.tif").c_str()), 4, 3, 24, 13, 2);
    EXPECT_EQ(out.GetType(), eUInt2);  // the source's type
    EXPECT_FALSE(std::ifstream(d / "cut.tif") || std::ifstream(d / "autre.ori"));
    out.Terminer();
  }
  const TTOrientedImage<unsigned short> cut((d / "cut.tif").c_str(), (d / "autre.ori").c_str());
  ASSERT_EQ(cut.GetTaille(), TPoint2D<int>(10, 5));
  EXPECT_EQ(cut(9, 4, 2), source(22, 11, 2));
  EXPECT_EQ(Coin(cut.GetOrientation(), 9, 4), Coin(source.GetOrientation(), 22, 11));

  // Given its orientation, type and channels at once; refused while inconsistent, written once not.
  {
    OrientedImageFicOut out((d / "b.tif").c_str(), Ori(4, 3), eFloat4, TagNbCanaux(1));
    out.GetSpecifImageOut().SetValeurs(TTImage<float>(4, 3, 2.5f).GetLines(), 0, 0, 4, 3, 0, 0, 1);
    out.ChangeOrientation(Ori(3, 4));
    Refuse([&] { out.Terminer(); },
           "OrientedImageFicOut : Nombre de ligne incoherent entre image (3) et orientation (4)", {"b.tif"});
    EXPECT_FALSE(std::ifstream(d / "b.tif") || std::ifstream(d / "b.ori"));
    out.ChangeOrientation(Ori(4, 3));
    out.Terminer();
  }
  EXPECT_EQ(TTOrientedImage<float>((d / "b.tif").c_str())(3, 2), 2.5f);
  { OrientedImageFicOut out((d / "abandon.tif").c_str(), Ori(4, 3), eUInt1, TagNbCanaux(1)); }

  // An image that cannot be written takes its orientation, written first, away with it; an
  // inconsistent pair is not saved at all.
  TTOrientedImage<float> m = Motif<float>(4, 3);
  Refuse([&] { m.Sauver((d / "sans").c_str()); }, "[TTIMAGE] (Sauver) Aucune extension");
  m.ChangeOrientation(Ori(4, 2));
  Refuse([&] { m.Sauver((d / "m.tif").c_str()); }, "TTOrientedImage : Nombre de ligne incoherent");
  // source and b with their .ori and .tfw, cut with autre.ori and autre.tfw; nothing else.
  const std::string fichiers = test::Lancer(d.chemin(), "ls").sortie;
  EXPECT_EQ(test::Lignes(fichiers).size(), 9u) << fichiers;
}

}  // namespace
