// Wallis gain and offset fields against the integral tables, and on images whose local statistics are
// known by construction.
#include <gtest/gtest.h>

#include "integrales.h"
#include "outils_radiometrie.h"
#include "prelissage.h"
#include "walis.h"
#include "zepra/erreur.h"

namespace {

// The four-corner rule on full tables, as written in the definition of the statistics.
double Coins(const TTImage<double>& A, int x0, int y0, int x1, int y1) {
  auto a = [&](int x, int y) { return x < 0 || y < 0 ? 0.0 : A(x, y); };
  return a(x1, y1) - a(x0 - 1, y1) - a(x1, y0 - 1) + a(x0 - 1, y0 - 1);
}

bool MemeFloat(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

TEST(Walis, ImagesAuxStatistiquesLocalesConnues) {
  // Uniform windows: gain 1 and the offset brings the mean to the target.
  TTImage<float> cent(40, 30, 100.0f);
  const TTImage<bool> tout(40, 30, true);
  TTImage<float> gain, offset;
  GainOffsetWalis(cent, tout, gain, offset, 50, 127.5, 50.0);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) {
      ASSERT_EQ(gain(x, y), 1.0f);
      ASSERT_EQ(offset(x, y), 27.5f);
    }
  // Target (0, 0): the image's own statistics, so a uniform image is left as it is.
  GainOffsetWalis(cent, tout, gain, offset, 50, 0.0, 0.0);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) {
      ASSERT_EQ(gain(x, y), 1.0f);
      ASSERT_EQ(offset(x, y), 0.0f);
    }

  // A checkerboard of 80 and 140: a window of k x k pixels (k odd) holds (k^2 + 1) / 2 pixels of the
  // colour of its corners and (k^2 - 1) / 2 of the other one.
  const int w = 60, h = 50, d = 4, k = 2 * d + 1;
  TTImage<float> damier(w, h, TagNbCanaux(1));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) damier(x, y) = (x + y) % 2 ? 140.0f : 80.0f;
  const TTImage<bool> masqueDamier(w, h, true);
  GainOffsetWalis(damier, masqueDamier, gain, offset, 2 * d, 127.5, 50.0);
  for (int y = d; y < h - d; ++y)
    for (int x = d; x < w - d; ++x) {
      // The corners of the window have the colour of its centre.
      const double coin = damier(x, y), autre = 220.0 - coin;
      const double n1 = (k * k + 1) / 2, n2 = (k * k - 1) / 2, n = k * k;
      const double moyenne = (n1 * coin + n2 * autre) / n;
      const double ecart = std::sqrt(n1 * n2) * 60.0 / n;
      EXPECT_NEAR(gain(x, y), 50.0 / ecart, 1e-5);
      EXPECT_NEAR(offset(x, y), 127.5 - moyenne * 50.0 / ecart, 1e-3);
    }
  // Applying them brings every interior value to the target mean plus or minus the target deviation
  // (up to the odd count of the window).
  AppliqueGainOffset(damier, gain, offset);
  const double n1 = (k * k + 1) / 2, n2 = (k * k - 1) / 2;
  EXPECT_NEAR(damier(d, d), 127.5 - 50.0 * std::sqrt(n2 / n1), 1e-3);
  EXPECT_NEAR(damier(d + 1, d), 127.5 + 50.0 * std::sqrt(n2 / n1), 1e-3);

  // A pixel in the mask whose neighbours are all out of it is a flat window of one pixel.
  TTImage<float> im(9, 9, 10.0f);
  im(4, 4) = 60.0f;
  TTImage<bool> seul(9, 9, false);
  seul(4, 4) = true;
  GainOffsetWalis(im, seul, gain, offset, 6, 127.5, 50.0);
  EXPECT_EQ(gain(4, 4), 1.0f);
  EXPECT_EQ(offset(4, 4), 67.5f);
  EXPECT_EQ(gain(3, 4), 0.0f);
}

TEST(Walis, ReferenceCommeLesStatistiquesDirectes) {
  std::mt19937 g(32);
  const int w = 31, h = 26, d = 4;
  const TTImage<float> im = test::ImageAleatoire(w, h, g);
  const TTImage<float> ref = test::ImageAleatoire(w, h, g, 20.0f, 90.0f);
  const TTImage<bool> m = test::MasqueAleatoire(w, h, g, 0.7);
  TTImage<bool> mr = test::MasqueAleatoire(w, h, g, 0.7);
  // A region of the reference with no masked pixel: its windows give (0, 0).
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 12; ++x) mr(x, y) = false;
  TTImage<float> go;
  GainOffsetWalisReference(im, m, ref, mr, go, d);
  ASSERT_EQ(go.GetNbCanaux(), 2);
  auto stats = [](const test::Sommes& s) {
    if (s.n == 0) return T2D<double>(0.0, 0.0);
    const double moyenne = s.s / s.n;
    return T2D<double>(moyenne, std::sqrt(std::max(s.q / s.n - moyenne * moyenne, 0.0)));
  };
  int vides = 0;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      if (!m(x, y)) {
        EXPECT_EQ(go(x, y, 0), 0.0f);
        EXPECT_EQ(go(x, y, 1), 0.0f);
        continue;
      }
      const T2D<double> s1 = stats(test::SommesDirectes(im, &m, x - d, y - d, x + d, y + d));
      const T2D<double> s2 = stats(test::SommesDirectes(ref, &mr, x - d, y - d, x + d, y + d));
      if (s1.y < 1e-2) continue;
      vides += s2.x == 0.0;
      EXPECT_NEAR(go(x, y, 0), s2.y / s1.y, 1e-5) << x << "," << y;
      EXPECT_NEAR(go(x, y, 1), s2.x - s1.x * (s2.y / s1.y), 1e-3) << x << "," << y;
    }
  EXPECT_GT(vides, 0);

  // A reference that is an affine map of the image under the same mask: gain 2, offset 10, and the
  // corrected image is the reference where masked, 0 elsewhere.
  TTImage<float> affine(w, h, TagNbCanaux(1));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) affine(x, y) = 2.0f * im(x, y) + 10.0f;
  GainOffsetWalisReference(im, m, affine, m, go, d);
  TTImage<float> corrige = im;
  AppliqueGainOffset(corrige, go);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      if (!m(x, y)) {
        EXPECT_EQ(corrige(x, y), 0.0f);
        continue;
      }
      EXPECT_NEAR(go(x, y, 0), 2.0f, 1e-4);
      EXPECT_NEAR(corrige(x, y), affine(x, y), 1e-2);
    }
  // A flat window of the image keeps gain 1 and only shifts the mean.
  const TTImage<float> plat(w, h, 50.0f);
  GainOffsetWalisReference(plat, m, ref, m, go, d);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      if (m(x, y)) {
        const T2D<double> s2 = stats(test::SommesDirectes(ref, &m, x - d, y - d, x + d, y + d));
        EXPECT_EQ(go(x, y, 0), 1.0f);
        EXPECT_NEAR(go(x, y, 1), s2.x - 50.0, 1e-3);
      }
}

TEST(Walis, AppliqueGainOffsetPixelParPixel) {
  std::mt19937 g(33);
  TTImage<float> im = test::ImageAleatoire(17, 9, g);
  im(3, 3) = std::nanf("");
  const TTImage<float> avant = im;
  AppliqueGainOffset(im, TTImage<float>(17, 9, 1.0f), TTImage<float>(17, 9, 0.0f));
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 17; ++x)
      EXPECT_TRUE(im(x, y) == avant(x, y) || (x == 3 && y == 3 && std::isnan(im(x, y))));

  const TTImage<float> gain = test::ImageAleatoire(17, 9, g, -2.0f, 2.0f);
  const TTImage<float> offset = test::ImageAleatoire(17, 9, g, -100.0f, 100.0f);
  TTImage<float> deux(17, 9, TagNbCanaux(2)), parCanaux = avant;
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 17; ++x) {
      deux(x, y, 0) = gain(x, y);
      deux(x, y, 1) = offset(x, y);
    }
  im = avant;
  AppliqueGainOffset(im, gain, offset);
  AppliqueGainOffset(parCanaux, deux);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 17; ++x) {
      if (x == 3 && y == 3) continue;
      const float produit = avant(x, y) * gain(x, y);
      EXPECT_EQ(im(x, y), produit + offset(x, y));
      EXPECT_EQ(parCanaux(x, y), im(x, y));
    }

  EXPECT_THROW(AppliqueGainOffset(im, TTImage<float>(17, 8, 1.0f), offset), Erreur);
  EXPECT_THROW(AppliqueGainOffset(im, gain, TTImage<float>(16, 9, 1.0f)), Erreur);
  EXPECT_THROW(AppliqueGainOffset(im, gain), Erreur);
}

TEST(Walis, ImageDeReferenceDuChantierEtStatistiquesLocales) {
  std::mt19937 g(34);
  const int w = 23, h = 19, d = 3;
  const TTImage<float> im = test::ImageAleatoire(w, h, g);
  TTImage<float> ref;
  ImageReferenceWalis(im, ref, d, T2D<double>(127.5, 50.0));
  ASSERT_EQ(ref.GetTaille(), im.GetTaille());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const test::Sommes s = test::SommesDirectes(im, nullptr, x - d, y - d, x + d, y + d);
      const double moyenne = s.s / s.n;
      const double ecart = std::sqrt(s.q / s.n - moyenne * moyenne);
      EXPECT_NEAR(ref(x, y), (im(x, y) - moyenne) * 50.0 / ecart + 127.5, 1e-3);
    }
  // A flat image has deviation 0: values are only shifted onto the target mean.
  ImageReferenceWalis(TTImage<float>(w, h, 30.0f), ref, d, T2D<double>(127.5, 50.0));
  EXPECT_EQ(ref(5, 5), 127.5f);
  // Target (0, 0): the image's own global mean and deviation.
  const test::Sommes tout = test::SommesDirectes(im, nullptr, 0, 0, w, h);
  const double mg = tout.s / tout.n, eg = std::sqrt(tout.q / tout.n - mg * mg);
  ImageReferenceWalis(im, ref, d, T2D<double>(0.0, 0.0));
  const test::Sommes s = test::SommesDirectes(im, nullptr, 10 - d, 10 - d, 10 + d, 10 + d);
  const double m10 = s.s / s.n, e10 = std::sqrt(s.q / s.n - m10 * m10);
  EXPECT_NEAR(ref(10, 10), (im(10, 10) - m10) * eg / e10 + mg, 1e-3);

  // Local statistics of every pixel, masked or not; 0 and 0 where the window holds no masked pixel.
  TTImage<bool> m = test::MasqueAleatoire(w, h, g, 0.5);
  for (int y = 2; y < 16; ++y)
    for (int x = 2; x < 16; ++x) m(x, y) = false;
  TTImage<float> moyenne, ecartType;
  StatsLocales(im, m, d, moyenne, ecartType);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const test::Sommes t = test::SommesDirectes(im, &m, x - d, y - d, x + d, y + d);
      if (t.n == 0) {
        EXPECT_EQ(moyenne(x, y), 0.0f);
        EXPECT_EQ(ecartType(x, y), 0.0f);
        continue;
      }
      const double mt = t.s / t.n, et = std::sqrt(std::max(t.q / t.n - mt * mt, 0.0));
      EXPECT_NEAR(moyenne(x, y), mt, 1e-4);
      if (et > 1e-2) {
        EXPECT_NEAR(ecartType(x, y), et, 1e-3);
      }
    }
  EXPECT_EQ(moyenne(9, 9), 0.0f);
}

TEST(Walis, RefusAvantToutCalcul) {
  const TTImage<float> im(10, 8, 1.0f);
  const TTImage<bool> m(10, 8, true), petit(10, 7, true);
  TTImage<float> gain, offset, go;
  EXPECT_THROW(GainOffsetWalis(im, petit, gain, offset, 10, 127.5, 50.0), Erreur);
  EXPECT_THROW(GainOffsetWalis(im, m, gain, offset, -4, 127.5, 50.0), Erreur);
  EXPECT_THROW(GainOffsetWalis(im, m, gain, gain, 10, 127.5, 50.0), Erreur);
  EXPECT_THROW(GainOffsetWalis(TTImage<float>(10, 8, TagNbCanaux(2)), m, gain, offset, 10, 0, 0), Erreur);
  EXPECT_THROW(GainOffsetWalisFenetre(im, petit, go, T2D<double>(1, 1)), Erreur);
  EXPECT_THROW(GainOffsetWalisReference(im, m, TTImage<float>(10, 7, 1.0f), petit, go), Erreur);
  EXPECT_THROW(GainOffsetWalisReference(im, m, im, petit, go), Erreur);
  EXPECT_THROW(StatsLocales(im, m, -1, gain, offset), Erreur);
  EXPECT_THROW(ImageReferenceWalis(im, gain, -1, T2D<double>(0, 0)), Erreur);
  EXPECT_EQ(gain.GetTaille(), TPoint2D<int>(0, 0));
  try {
    GainOffsetWalis(im, petit, gain, offset, 10, 127.5, 50.0);
  } catch (const Erreur& e) {
    EXPECT_NE(
        e.Texte().str().find("[Walis] (GainOffsetWalis) Le masque (10 x 7) n'a pas la taille de l'image "
                             "(10 x 8)."),
        std::string::npos)
        << e.Texte().str();
  }
}

// The fields and the masked mean are computed line by line from sliding tables, two pixels at a time
// inside the image: they must give bit for bit what the full tables of images_integrales_mask (checked
// against direct sums in test_integrales) give through the four-corner rule, NaN and huge gains of
// rounding noise included.
TEST(Walis, ChampsDesTablesIntegralesPixelAPixel) {
  std::mt19937 g(35);
  const int w = 71, h = 44;
  TTImage<float> im = test::ImageAleatoire(w, h, g);
  // A flat patch, where the variance is rounding noise around 0.
  for (int y = 5; y < 20; ++y)
    for (int x = 10; x < 40; ++x) im(x, y) = 171.3f;
  TTImage<bool> m = test::MasqueAleatoire(w, h, g, 0.8);
  for (int y = 25; y < 40; ++y)
    for (int x = 30; x < 60; ++x) m(x, y) = false;
  TTImage<double> S, S2, N;
  images_integrales_mask(im, m, S, S2, N);
  const double nt = Coins(N, 0, 0, w - 1, h - 1);
  const double mg = Coins(S, 0, 0, w - 1, h - 1) / nt;
  const double eg = std::sqrt(Coins(S2, 0, 0, w - 1, h - 1) / nt - mg * mg);
  int plats = 0;
  for (int d : {0, 1, 2, 5, 17, 40, 500}) {
    TTImage<float> moyenne = im;
    MoyMasque(moyenne, m, d);
    // Only an exact (0, 0) stands for the image's own masked statistics; (0, 30) is taken as it is.
    for (const T2D<double> cible :
         {T2D<double>(127.5, 50.0), T2D<double>(0.0, 0.0), T2D<double>(0.0, 30.0)}) {
      const bool propre = cible.x == 0.0 && cible.y == 0.0;
      const double mc = propre ? mg : cible.x, ec = propre ? eg : cible.y;
      TTImage<float> gain, offset;
      GainOffsetWalis(im, m, gain, offset, 2 * d + (d % 2), cible.x, cible.y);
      ASSERT_EQ(gain.GetTaille(), im.GetTaille());
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const int x0 = std::max(x - d, 0), y0 = std::max(y - d, 0);
          const int x1 = std::min(x + d, w - 1), y1 = std::min(y + d, h - 1);
          const double n = Coins(N, x0, y0, x1, y1);
          const double s = Coins(S, x0, y0, x1, y1), q = Coins(S2, x0, y0, x1, y1);
          ASSERT_TRUE(MemeFloat(moyenne(x, y), n != 0.0 ? static_cast<float>(s / n) : 0.0f)) << d << " " << x;
          // Outside the mask the fields are not written: the zero of a new image.
          float ga = 0.0f, oa = 0.0f;
          if (m(x, y)) {
            const double mo = s / n;
            const double e = std::sqrt(q / n - mo * mo);
            ga = e == 0.0 ? 1.0f : static_cast<float>(ec / e);
            oa = static_cast<float>(e == 0.0 ? mc - mo : mc - mo * (ec / e));
            plats += e == 0.0;
          }
          ASSERT_TRUE(MemeFloat(gain(x, y), ga))
              << d << " " << x << "," << y << " " << gain(x, y) << " " << ga;
          ASSERT_TRUE(MemeFloat(offset(x, y), oa)) << d << " " << x << "," << y;
        }
      if (propre || d != 5) continue;
      // Into the images of a previous call: the same values, zeros outside the mask included.
      TTImage<float> g2 = gain, o2 = offset;
      g2.RemplirValeur(-7.0f);
      o2.RemplirValeur(-7.0f);
      GainOffsetWalis(im, m, g2, o2, 2 * d, cible.x, cible.y);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          ASSERT_TRUE(MemeFloat(g2(x, y), gain(x, y)));
          ASSERT_TRUE(MemeFloat(o2(x, y), offset(x, y)));
        }
    }
  }
  // Flat windows of one pixel or of the patch: gain 1, or NaN and huge gains from rounding (kept).
  EXPECT_GT(plats, 0);

  // The fixed-window form is the same fields, half-width 25, as two channels.
  TTImage<float> gain, offset, deux;
  GainOffsetWalis(im, m, gain, offset, 51, 127.5, 50.0);
  GainOffsetWalisFenetre(im, m, deux, T2D<double>(127.5, 50.0));
  ASSERT_EQ(deux.GetNbCanaux(), 2);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      EXPECT_TRUE(MemeFloat(deux(x, y, 0), gain(x, y)));
      EXPECT_TRUE(MemeFloat(deux(x, y, 1), offset(x, y)));
    }
}

}  // namespace
