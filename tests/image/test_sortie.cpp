// The writer's conversion to the output type (rounding, clamping, no-data kept apart from real data)
// and its overviews (no-data-aware 2 x 2 means, one row of tiles at a time).
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>

#include "image/ecriture/apercus.h"
#include "image/ecriture/conversion_sortie.h"
#include "zepra/erreur.h"

namespace {

using ecriture::ConvertirLigne;
using ecriture::ParametresSortie;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// One sample through the conversion, with its validity and the no-data value when given.
template <class D, class S>
D Un(S v, bool valide = true, bool avecNodata = false, D nodata = D{}) {
  ParametresSortie<D> p;
  p.nodataPresent = avecNodata;
  p.nodata = nodata;
  const unsigned char masque = valide;
  D sortie[2] = {};  // room for an alpha band
  ConvertirLigne<S, D>(&v, 1, &masque, 1, sortie, p, nullptr);
  return sortie[0];
}

TEST(ConversionSortie, AutresTypes) {
  EXPECT_EQ(Un<short>(40000u), 32767);
  EXPECT_EQ(Un<float>(1e39), std::numeric_limits<float>::max());
  EXPECT_EQ(Un<float>(-1e39), -std::numeric_limits<float>::max());
  EXPECT_EQ(Un<float>(std::numeric_limits<double>::infinity()), std::numeric_limits<float>::infinity());
  // Floats: a hole is NaN without no-data; a valid value equal to the no-data value moves by one ulp.
  EXPECT_TRUE(std::isnan(Un<float>(2.0, false)));
  EXPECT_EQ(Un<float>(-9999.0, true, true, -9999.0f), std::nextafter(-9999.0f, 0.0f));
  EXPECT_EQ(Un<double>(-9999.5, true, true, -9999.0), -9999.5);
  EXPECT_EQ(Un<float>(5.0, false, true, -9999.0f), -9999.0f);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_TRUE(std::isnan(Un<float>(kNaN, true, true, nan)));
  EXPECT_EQ(Un<float>(0.0, true, true, nan), 0.0f);
}

// Rounding without a call against std::round (halves away from zero) then clamping, for every integer
// type up to 32 bits, on halves, values just beside them, the types' bounds and beyond. Holes and NaN
// are 0, or the no-data value when there is one; a valid value that would land on the no-data value
// moves one step toward its source (away from the type's bound). Floats into the small types take a
// vectorized path of their own, checked alike.
template <class D>
void ArrondiContreRound() {
  const double bas = std::numeric_limits<D>::lowest(), haut = std::numeric_limits<D>::max();
  std::vector<double> valeurs = {0.0,
                                 -0.0,
                                 0.49999999999999994,
                                 -0.49999999999999994,
                                 1e-300,
                                 4503599627370495.5,
                                 kNaN,
                                 1e300,
                                 -std::numeric_limits<double>::infinity()};
  for (double base :
       {0.0, 1.0, 2.0, 7.0, 41.0, 127.0, 254.0, 255.0, 32767.0, 65535.0, 2147483647.0, bas, haut})
    for (double d : {-1.5, -1.0, -0.5, 0.0, 0.5, 1.0, 1.5})
      for (double v : {base + d, -(base + d)})
        for (double w : {v, std::nextafter(v, -1e300), std::nextafter(v, 1e300)}) valeurs.push_back(w);
  const auto arrondi = [&](double v) {
    const double r = std::round(v);
    return std::isnan(r) ? D{}
           : r <= bas    ? std::numeric_limits<D>::lowest()
           : r >= haut   ? std::numeric_limits<D>::max()
                         : static_cast<D>(r);
  };
  for (const double v : valeurs) {
    ASSERT_EQ(Un<D>(v), arrondi(v)) << v;
    const float f = static_cast<float>(v);
    const double fd = f;
    for (const bool valide : {true, false}) {
      ASSERT_EQ(Un<D>(f, valide), valide ? arrondi(fd) : D{}) << f << " valide " << valide;
      ASSERT_EQ(Un<D>(fd, valide), valide ? arrondi(fd) : D{}) << f << " valide " << valide;
      for (const D nodata : {std::numeric_limits<D>::lowest(), std::numeric_limits<D>::max(), D{0}, D{7}}) {
        const bool donnee = valide && !std::isnan(fd);
        D attendu = donnee ? arrondi(fd) : nodata;
        if (donnee && attendu == nodata)
          attendu =
              static_cast<D>(nodata == bas || (nodata != haut && fd >= nodata) ? nodata + 1 : nodata - 1);
        ASSERT_EQ(Un<D>(f, valide, true, nodata), attendu)
            << f << " valide " << valide << " nodata " << +nodata;
        ASSERT_EQ(Un<D>(fd, valide, true, nodata), attendu)
            << f << " valide " << valide << " nodata " << +nodata;
      }
    }
  }
}

TEST(ConversionSortie, ArrondiSansAppelCommeRound) {
  ArrondiContreRound<unsigned char>();
  ArrondiContreRound<signed char>();
  ArrondiContreRound<unsigned short>();
  ArrondiContreRound<short>();
  ArrondiContreRound<unsigned int>();
  ArrondiContreRound<int>();
}

// A NaN in one band invalidates the whole pixel; the alpha band follows the validity.
TEST(ConversionSortie, PixelsEtAlpha) {
  const float source[] = {1.4f, 2.6f, 3.0f, NAN, 250.0f, 0.2f, 7, 8, 9};
  const unsigned char masque[] = {1, 1, 0};
  ParametresSortie<unsigned char> p;
  p.nodataPresent = true;
  p.nodata = 0;
  p.alpha = true;
  unsigned char sortie[12], valide[3];
  ConvertirLigne(source, 3, masque, 3, sortie, p, valide);
  const unsigned char attendu[] = {1, 3, 3, 255, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::vector<unsigned char>(sortie, sortie + 12),
            std::vector<unsigned char>(attendu, attendu + 12));
  EXPECT_EQ(std::vector<unsigned char>(valide, valide + 3), (std::vector<unsigned char>{1, 0, 0}));
  unsigned short a16 = 0;
  const double un = 1;
  ParametresSortie<unsigned short> p16;
  p16.alpha = true;
  unsigned short deux[2];
  ConvertirLigne(&un, 1, nullptr, 1, deux, p16, nullptr);
  a16 = deux[1];
  EXPECT_EQ(a16, 65535);
}

// The overview levels of a w x h image against means computed level by level from the whole
// image, for sizes odd and even, rows of tiles cut anywhere, holes and an alpha band.
TEST(Apercus, MoyennesParRangees) {
  EXPECT_EQ(ecriture::TaillesApercus({2051, 10}, 2),
            (std::vector<TPoint2D<int>>{TPoint2D<int>(1025, 5), TPoint2D<int>(512, 2)}));
  for (const auto& [w, h, rangee, niveaux] : std::vector<std::tuple<int, int, int, int>>{
           {37, 23, 4, 4}, {64, 64, 16, 3}, {5, 40, 2, 5}, {40, 1, 16, 3}, {3, 3, 16, 2}}) {
    SCOPED_TRACE(::testing::Message() << w << " x " << h << " rangees de " << rangee);
    const int canaux = 3;  // two bands and an alpha
    std::vector<std::vector<unsigned char>> donnees(1), valides(1);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const bool v = (x * 7 + y * 3) % 11 != 0 && !(x < 4 && y < 4);
        valides[0].push_back(v);
        donnees[0].push_back(v ? static_cast<unsigned char>(1 + (x * 13 + y * 29) % 254) : 0);
        donnees[0].push_back(v ? static_cast<unsigned char>(255 - (x + y) % 3) : 0);
        donnees[0].push_back(v ? 255 : 0);
      }
    ecriture::FormePyramide f;
    f.taille = TPoint2D<int>(w, h);
    f.canaux = canaux;
    f.canalAlpha = 2;
    f.niveaux = ecriture::TaillesApercus(f.taille, niveaux);
    f.hauteurRangee = rangee;
    f.nodataPresent = true;
    f.nodata = 0;
    // Expected levels, each from the previous one.
    std::vector<TPoint2D<int>> tailles = {f.taille};
    for (const auto& t : f.niveaux) {
      const TPoint2D<int> s = tailles.back();
      const auto& d = donnees.back();
      const auto& v = valides.back();
      std::vector<unsigned char> nd, nv;
      for (int y = 0; y < t.y; ++y)
        for (int x = 0; x < t.x; ++x) {
          double somme[2] = {0, 0};
          int n = 0;
          for (int yy = 2 * y; yy <= std::min(2 * y + 1, s.y - 1); ++yy)
            for (int xx = 2 * x; xx <= std::min(2 * x + 1, s.x - 1); ++xx)
              if (v[yy * s.x + xx]) {
                ++n;
                for (int c = 0; c < 2; ++c) somme[c] += d[(yy * s.x + xx) * canaux + c];
              }
          nv.push_back(n > 0);
          for (int c = 0; c < 2; ++c) {
            int m = n ? static_cast<int>(std::floor(somme[c] / n + 0.5)) : 0;
            if (n && m == 0) m = 1;
            nd.push_back(static_cast<unsigned char>(m));
          }
          nd.push_back(n ? 255 : 0);
        }
      tailles.push_back(t);
      donnees.push_back(nd);
      valides.push_back(nv);
    }
    std::map<int, std::vector<unsigned char>> recu, recuValide;
    std::map<int, int> prochaine;
    auto pyramide = ecriture::PyramideApercus::Creer(
        f, [&](int n, int y0, int lignes, const unsigned char* d, const unsigned char* v) {
          EXPECT_EQ(y0, prochaine[n]);
          EXPECT_TRUE(lignes == rangee || y0 + lignes == tailles[n].y) << lignes;
          prochaine[n] = y0 + lignes;
          const size_t pixels = static_cast<size_t>(lignes) * tailles[n].x;
          recu[n].insert(recu[n].end(), d, d + pixels * canaux);
          recuValide[n].insert(recuValide[n].end(), v, v + pixels);
        });
    for (int y = 0; y < h; ++y)
      pyramide->AjouterLigne(donnees[0].data() + static_cast<size_t>(y) * w * canaux,
                             valides[0].data() + y * w);
    for (int n = 1; n <= niveaux; ++n) {
      SCOPED_TRACE(n);
      EXPECT_EQ(recu[n], donnees[n]);
      EXPECT_EQ(recuValide[n], valides[n]);
    }
    EXPECT_THROW(pyramide->AjouterLigne(donnees[0].data(), nullptr), Erreur);
  }
}

TEST(Apercus, FlottantsSansMasque) {
  ecriture::FormePyramide f;
  f.taille = TPoint2D<int>(4, 2);
  f.type = eFloat4;
  f.niveaux = ecriture::TaillesApercus(f.taille, 2);
  f.hauteurRangee = 2;
  const float lignes[2][4] = {{1.0f, 2.0f, 0.5f, 0.25f}, {3.0f, 4.0f, 0.125f, 0.0f}};
  std::vector<float> n1, n2;
  auto p = ecriture::PyramideApercus::Creer(
      f, [&](int n, int, int l, const unsigned char* d, const unsigned char*) {
        const float* v = reinterpret_cast<const float*>(d);
        (n == 1 ? n1 : n2).assign(v, v + l * (n == 1 ? 2 : 1));
      });
  p->AjouterLigne(lignes[0], nullptr);
  p->AjouterLigne(lignes[1], nullptr);
  EXPECT_EQ(n1, (std::vector<float>{2.5f, 0.21875f}));
  EXPECT_EQ(n2, (std::vector<float>{1.359375f}));
}

}  // namespace
