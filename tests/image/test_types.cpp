// Pixel type codes and the typed in-memory image, written once over the nine element types.
#include <gtest/gtest.h>

#include "outils_image_test.h"

namespace {

using test::Motif;
using test::Refuse;

TEST(InfoType, NomsTaillesEtOctetsDEnTete) {
  const int octets[] = {0, 2, 10, 20, 30, 41, 40, 51, 50, 61, 60, 71, 81};
  std::string noms;
  for (int code = 0; code <= 12; ++code) {
    const eEnumType t = static_cast<eEnumType>(code);
    noms += InfoType::NomType(t).str() + "|";
    EXPECT_EQ(InfoType::TypeVal(t), octets[code]);
    EXPECT_EQ(InfoType::ValType(octets[code]), t);
  }
  EXPECT_EQ(
      noms,
      "Indetermine|Autre|Bit1|Bool (bool)|Char (char)|Int1 (signed char)|UInt1 (unsigned char)|Int2 (signed "
      "short)|UInt2 (unsigned short)|Int4 (signed int)|UInt4 (unsigned int)|Float4 (float)|Float8 (double)|");
  Refuse([] { InfoType::NomType(static_cast<eEnumType>(13)); },
         "[InfoType] (NomType (eEnumType)) cas imprevu. (Fichier : ../src/image/infotype.cpp ; ligne ");
  Refuse([] { InfoType::TailleType(eBit1); }, "[InfoType] (TailleType (eEnumType)) cas imprevu.");
  Refuse([] { InfoType::TypeVal(static_cast<eEnumType>(-1)); },
         "[InfoType] (TypeVal (eEnumType)) type inconnu");
}

template <class T>
class Image : public ::testing::Test {};
TYPED_TEST_SUITE(Image, test::NeufTypes);

TYPED_TEST(Image, FormesMiroirsCanauxCropEtPaste) {
  using T = TypeParam;
  TTImage<T> im(10, 4, TagNbCanaux(3));
  im.SetTypePixel(CodeType<T>::value);  // its own code: no-op
  Refuse([&] { im.SetTypePixel(CodeType<T>::value == eFloat8 ? eFloat4 : eFloat8); },
         "[TTIMAGE] (SetTypePixel) Types incompatibles. (Fichier : ");
  EXPECT_TRUE(test::Commence(test::TexteErreur([&] { im.vReformat(-1, 5, TagNbCanaux(1)); }),
                             "TTImage<T>::vReformat avec tailles negatives"));
  // Reshaping keeps the elements in place (scrambled, not cleared) and zeroes the new ones.
  TTImage<T> a = test::ImageMotif<T>(4, 3, 1);
  a.vReformat(6, 3);
  EXPECT_TRUE(a(4, 0) == Motif<T>(0, 1, 0) && a(5, 2) == T());  // element 4 of the array stays element 4
  // The channel test is on the current count: 0 channels requested is accepted, but an image with
  // no channel cannot be reshaped, unless nothing changes.
  TTImage<T> b(3, 3, TagNbCanaux(2));
  b.vReformat(3, 3, TagNbCanaux(0));
  b.vReformat(3, 3, TagNbCanaux(0));
  EXPECT_TRUE(test::Commence(test::TexteErreur([&] { b.vReformat(3, 3, TagNbCanaux(1)); }),
                             "TTImage<T>::vReformat nombre de canaux <1."));
  // Copies are deep.
  TTImage<T> c(5, 2, T(1)), copie(c);
  copie(0, 0) = T(0);
  EXPECT_TRUE(c(0, 0) == T(1) && copie(4, 1) == T(1));

  const TTImage<T> origine = test::ImageMotif<T>(5, 4, 3);
  TTImage<T> x = origine, y = origine, canal(5, 4, TagNbCanaux(2));
  x.FlipX();  // lines, on channel 0 only
  y.FlipY();
  canal.CopierCanal(origine, 2, 1);
  for (int j = 0; j < 4; ++j)
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(x(i, j, 0), origine(i, 3 - j, 0));
      EXPECT_EQ(y(i, j, 0), origine(4 - i, j, 0));
      for (int c = 1; c < 3; ++c)
        EXPECT_TRUE(x(i, j, c) == origine(i, j, c) && y(i, j, c) == origine(i, j, c));
      EXPECT_TRUE(canal(i, j, 1) == origine(i, j, 2) && canal(i, j, 0) == T());
    }
  Refuse([&] { canal.CopierCanal(origine, 5, 0); }, "[TTIMAGE] (CopieCanal) Canal source 5invalide (Fichier");
  Refuse([&] { canal.CopierCanal(origine, 0, 2); },
         "[TTIMAGE] (CopieCanal) Canal destination 2invalide (Fichier");

  if constexpr (std::is_same_v<T, bool>) {
    TTImage<bool> m(3, 1, false);
    m(1, 0) = true;
    m += false;  // logical or
    EXPECT_TRUE(!m(0, 0) && m(1, 0));
    m += true;
    for (bool v : m) EXPECT_TRUE(v);
  } else {
    TTImage<T> im(4, 5, TagNbCanaux(1));
    im = T(1);
    im += T(1);
    for (T v : im) EXPECT_EQ(v, T(2));
    for (int k = 0; k < 4; ++k) im(2 + k % 2, 3 + k / 2) = T(8 << k);  // 8 16 / 32 64
    EXPECT_DOUBLE_EQ(im.InterpolerBilineaire(2.5, 3.25), 21.0);        // weights 3/8, 3/8, 1/8, 1/8
    EXPECT_DOUBLE_EQ(im.InterpolerBilineaire(TPoint2D<double>(2, 3)), 8.0);
  }

  const TTImage<T> source = test::ImageMotif<T>(9, 7, 2);
  // Step 2 of columns 0 to 5 takes columns 0, 2 and 4.
  a.Crop(source, 0, 1, 5, 3, 2);
  ASSERT_EQ(a.GetTaille(), TPoint2D<int>(3, 2));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x)
      for (int c = 0; c < 2; ++c) EXPECT_EQ(a(x, y, c), Motif<T>(2 * x, 1 + 2 * y, c));

  // A negative corner moves up by whole steps: -3 with step 2 starts at column 1.
  a.Crop(source, -3, 5, 8, 10, 2);
  ASSERT_EQ(a.GetTaille(), TPoint2D<int>(2, 1));
  EXPECT_TRUE(a(0, 0, 1) == Motif<T>(1, 5, 1) && a(1, 0, 1) == Motif<T>(3, 5, 1));
  // Mode 1 keeps the size of the request; the outside is zero.
  a.Crop(source, -3, 5, 8, 4, 2, 1);
  ASSERT_EQ(a.GetTaille(), TPoint2D<int>(4, 2));
  EXPECT_TRUE(a(0, 0) == T() && a(3, 1, 0) == T());
  EXPECT_TRUE(a(2, 0, 1) == Motif<T>(1, 5, 1) && a(3, 0, 0) == Motif<T>(3, 5, 0));
  a.Crop(source, 20, 20, 5, 5);
  EXPECT_EQ(a.GetTaille(), TPoint2D<int>(0, 0));
  EXPECT_NE(test::TexteErreur([&] { a.Crop(source, 0, 0, 3, 3, 0); }).find("Pas (0) invalide"),
            std::string::npos);

  // Paste clips both rectangles, with a warning for each; the rest of the destination is untouched.
  TTImage<T> dest(6, 5, TagNbCanaux(2));
  EXPECT_EQ(test::Avertissements([&] { source.Paste(dest, 7, 4, 4, 3, -1, 3, 1); }),
            "WARNING : [TTImage] (Paste) rectangle source [(7,4) (11,7)] pas inclus dans image.\nWARNING : "
            "[TTImage] (Paste) rectangle destination [(-1,3) (1,6)] pas inclus dans image.\n");
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 6; ++x) {
      const bool ecrit = x == 0 && y >= 3;  // source column 8 only (7 lands at -1), lines 4 and 5
      EXPECT_EQ(dest(x, y, 1), ecrit ? Motif<T>(8, y + 1, 1) : T()) << x << "," << y;
    }
  // Another element type: converted, with a warning.
  using Autre = std::conditional_t<std::is_same_v<T, float>, double, float>;
  TTImage<Autre> autre(2, 2, TagNbCanaux(2));
  EXPECT_EQ(test::Avertissements([&] { source.Paste(autre, 0, 0, 2, 2, 0, 0, 1); }),
            "WARNING : [TTImage] (Paste) Type de pixels differents : " +
                InfoType::NomType(CodeType<T>::value).str() + " " +
                InfoType::NomType(CodeType<Autre>::value).str() + "\n");
  EXPECT_EQ(autre(1, 1, 1), (Convertir<Autre, T>(Motif<T>(1, 1, 1))));
  TTImage<T> un(6, 5, TagNbCanaux(1));
  EXPECT_TRUE(test::Commence(test::TexteErreur([&] { source.Paste(un, 0, 0); }),
                             "[TTImage] (Paste) Nombre de canaux incompatibles."));
}

}  // namespace
