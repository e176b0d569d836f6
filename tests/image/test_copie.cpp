// The typed copy (all 81 pairs, defined for every value) and the band copies between interfaces.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "outils_image_test.h"

namespace {

TEST(Conversion, CastSimpleSansArrondiNiSaturation) {
  EXPECT_EQ((Convertir<unsigned char, float>(300.7f)), 44);  // 300 wraps
  EXPECT_EQ((Convertir<int, float>(-0.9f)), 0);
  EXPECT_EQ((Convertir<int, double>(-2.9)), -2);
  EXPECT_EQ((Convertir<unsigned short, int>(-1)), 65535);
  EXPECT_EQ((Convertir<signed char, unsigned char>(200)), -56);
  EXPECT_EQ((Convertir<unsigned int, float>(3e9f)), 3000000000u);
  EXPECT_EQ((Convertir<bool, float>(0.25f)), true);
  EXPECT_EQ((Convertir<bool, int>(0)), false);
  // Values no integer holds are defined (the sanitizer build checks there is no undefined cast):
  // beyond long long and NaN give LLONG_MIN, which narrows to 0.
  const double extremes[] = {1e20, -1e20, std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(), std::nan("")};
  for (double v : extremes) {
    EXPECT_EQ((Convertir<unsigned char, double>(v)), 0) << v;
    EXPECT_EQ((Convertir<int, double>(v)), 0) << v;
    EXPECT_EQ((Convertir<unsigned int, float>(static_cast<float>(v))), 0u) << v;
    EXPECT_EQ((Convertir<short, float>(static_cast<float>(v))), 0) << v;
  }
  EXPECT_EQ((Convertir<int, double>(4294967296.0 + 5)), 5);  // in long long range: wraps
}

// Every pair of element types through CopierPixels, with offsets, step by step (the whole-line
// paths) and with a step of 2.
template <class S, class D>
void VerifiePaire() {
  const TTImage<S> s = test::ImageMotif<S>(7, 5, 2);
  for (int pas : {1, 2}) {
    TTImage<D> d(9, 7, TagNbCanaux(2));
    CopierPixels<S, D>(s.GetLines(), d.GetLines(), 1, 0, 7, 5, 2, 1, pas, 2);
    for (int y = 0; y < 7; ++y)
      for (int x = 0; x < 9; ++x)
        for (int c = 0; c < 2; ++c) {
          const int xs = 1 + pas * (x - 2), ys = pas * (y - 1);
          const D attendu = x >= 2 && y >= 1 && xs < 7 && ys < 5 ? Convertir<D, S>(s(xs, ys, c)) : D();
          ASSERT_EQ(d(x, y, c), attendu)
              << typeid(S).name() << "->" << typeid(D).name() << " pas " << pas << " " << x << "," << y;
        }
  }
}

TEST(Conversion, LesQuatreVingtUnPaires) {
  test::PourNeufTypes([](auto s) {
    test::PourNeufTypes(
        [](auto d) { VerifiePaire<typename decltype(s)::type, typename decltype(d)::type>(); });
  });
}

// A readable image that records the rectangles asked of it, standing for a file read in bands.
class SourceEspion : public ImplGetValeurs<SourceEspion> {
 public:
  explicit SourceEspion(const TTImage<float>& im) : m_im(im) {}
  TPoint2D<int> GetTaille() const override { return m_im.GetTaille(); }
  int GetNbCanaux() const override { return m_im.GetNbCanaux(); }
  eEnumType TypePixel() const override { return m_im.TypePixel(); }
  bool RawReadPossible() const override { return false; }
  void RawRead(char*, unsigned int) const override {}
  SpecifImageIn* dup() const override { return new SourceEspion(m_im); }
  template <class D>
  void GetValeursT(LigneDe<D> const* l, int x0, int y0, int x1, int y1, int xd, int yd, int pas) const {
    lectures.push_back(y1 - y0);
    m_im.GetValeurs(l, x0, y0, x1, y1, xd, yd, pas);
  }
  mutable std::vector<int> lectures;

 private:
  const TTImage<float>& m_im;
};

TEST(Bandes, HauteurDesBandesEtCopieAuTraversDesBords) {
  EXPECT_EQ(TTImage_Annexes::HauteurBande(2000000), 1);  // at least one line
  // 300000 columns: bands of 3 lines; 8 lines cross two band edges.
  TTImage<float> im(300000, 8, TagNbCanaux(1));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 300000; x += 997) im(x, y) = static_cast<float>(y * 1000 + x % 1000) + 0.5f;
  const SourceEspion espion(im);
  TTImage<unsigned short> dest(TagNbCanaux(1));
  dest.SpecifImageOut::Crop(espion, 0, 0, 300000, 8, 1, 0);
  EXPECT_EQ(espion.lectures, (std::vector<int>{3, 3, 2}));
  ASSERT_EQ(dest.GetTaille(), TPoint2D<int>(300000, 8));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 300000; x += 997) ASSERT_EQ(dest(x, y), y * 1000 + x % 1000);

  // With a step of 2 and a window: bands stay on the step grid.
  TTImage<double> pas2(TagNbCanaux(1));
  pas2.SpecifImageOut::Crop(espion, 997, 1, 299000, 7, 2, 0);
  ASSERT_EQ(pas2.GetTaille(), TPoint2D<int>(149500, 4));
  for (int y = 0; y < 4; ++y) EXPECT_EQ(pas2(0, y), im(997, 1 + 2 * y));
  EXPECT_EQ(pas2(997, 2), im(997 + 2 * 997, 5));

  // The other direction: paste a rectangle into an image, in bands.
  espion.lectures.clear();
  TTImage<float> cible(300010, 10, TagNbCanaux(1));
  espion.SpecifImageIn::Paste(cible, 0, 1, 300000, 7, 5, 2, 1);
  EXPECT_EQ(espion.lectures, (std::vector<int>{3, 3, 1}));
  EXPECT_EQ(cible(5, 2), im(0, 1));
  EXPECT_EQ(cible(5 + 299997 - 299997 % 997, 8), im(299997 - 299997 % 997, 7));
  EXPECT_TRUE(cible(4, 2) == 0.0f && cible(5, 1) == 0.0f);

  // Bool sources are not handled by the band copies.
  const TTImage<bool> masque(3, 3, true);
  TTImage<bool> m2(TagNbCanaux(1));
  test::Refuse([&] { m2.SpecifImageOut::Crop(masque, 0, 0, 3, 3, 1, 0); },
               "[SpecifImageOut] (Crop) Type (3) encore non traite (Fichier");
}

}  // namespace
