// Wallis gain and offset fields and the reference image on images whose local statistics are known by
// construction, and the fast line-by-line fields against the full integral tables. The masked local
// statistics and the reference fields are checked against direct sums through their sub-commands.
#include <gtest/gtest.h>

#include <functional>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "zepra/pipeline/integrales.h"
#include "zepra/pipeline/walis.h"

namespace {

TEST(Walis, ImagesConstruitesEtRefusAvantToutCalcul) {
  // Constant images against a reference of 127.5s: gain 1, offset the difference of the means. The
  // plain fields of flat windows are checked with the fast fields below.
  const TTImage<float> cent(40, 30, 100.0f);
  const TTImage<bool> tout(40, 30, true);
  TTImage<float> champs, reference;
  GainOffsetWalisReference(cent, tout, TTImage<float>(40, 30, 127.5f), tout, champs);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x)
      ASSERT_EQ(T2D<float>(champs(x, y, 0), champs(x, y, 1)), T2D<float>(1.0f, 27.5f));

  // The mosaic job's reference image maps each value by the unmasked statistics of its window; a flat
  // image lands on the target mean.
  std::mt19937 g(32);
  const TTImage<float> texture = test::ImageAleatoire(31, 26, g);
  ImageReferenceWalis(texture, reference, 4, T2D<double>(127.5, 50.0));
  for (int y = 0; y < 26; ++y)
    for (int x = 0; x < 31; ++x) {
      const test::Sommes s = test::SommesFenetre(texture, nullptr, x, y, 4);
      ASSERT_NEAR(reference(x, y), (texture(x, y) - s.moyenne()) * 50.0 / s.ecart() + 127.5, 1e-3)
          << x << "," << y;
    }
  ImageReferenceWalis(cent, reference, 4, T2D<double>(127.5, 50.0));
  EXPECT_TRUE(test::MemesPixels(reference, TTImage<float>(40, 30, 127.5f)));

  TTImage<float> im(17, 9, 3.0f), g2, o2, go;
  const TTImage<float> deux(17, 9, TagNbCanaux(2)), petite(17, 8, 1.0f);
  const TTImage<bool> m(17, 9, true), petit(17, 8, true);
  const std::pair<std::function<void()>, const char*> refus[] = {
      {[&] { GainOffsetWalis(im, petit, g2, o2, 10, 1, 1); }, "[Walis] (GainOffsetWalis) Le masque (17 x 8)"},
      {[&] { GainOffsetWalis(im, m, g2, o2, -4, 1, 1); }, "[Walis] (GainOffsetWalis) Demi-largeur de"},
      {[&] { GainOffsetWalis(im, m, g2, g2, 10, 1, 1); }, "[Walis] (GainOffsetWalis) Le gain et l'offset"},
      {[&] { GainOffsetWalis(deux, m, g2, o2, 10, 0, 0); }, "[Walis] (GainOffsetWalis) L'image a 2 canaux"},
      {[&] { GainOffsetWalisReference(im, m, petite, petit, go); },
       "[Walis] (GainOffsetWalisReference) L'image de reference (17 x 8) n'a pas la taille de l'image"},
      {[&] { AppliqueGainOffset(im, petite, im); }, "[Walis] (AppliqueGainOffset) Gain (17 x 8) et offset"},
      {[&] { AppliqueGainOffset(im, im); }, "[Walis] (AppliqueGainOffset) Le champ gain-offset (17 x 9, 1"},
  };
  for (const auto& r : refus) test::Refuse(r.first, r.second);
  EXPECT_EQ(g2.GetTaille(), TPoint2D<int>(0, 0));
  EXPECT_TRUE(test::MemesPixels(im, TTImage<float>(17, 9, 3.0f)));
}

// The four-corner rule on full tables, a term at index -1 counting 0.
double Coins(const TTImage<double>& A, int x0, int y0, int x1, int y1) {
  auto a = [&](int x, int y) { return x < 0 || y < 0 ? 0.0 : A(x, y); };
  return a(x1, y1) - a(x0 - 1, y1) - a(x1, y0 - 1) + a(x0 - 1, y0 - 1);
}

// The fields are computed line by line from sliding tables, two pixels at a time inside the image:
// they must give bit for bit what the full tables of images_integrales_mask give, NaN (a variance
// rounded below zero, kept) and huge gains of rounding noise included.
TEST(Walis, ChampsRapidesCommeLesTablesEntieres) {
  std::mt19937 g(35);
  const int w = 71, h = 44;
  TTImage<float> im = test::ImageAleatoire(w, h, g);
  for (int y = 5; y < 20; ++y)  // a flat patch, where the variance is rounding noise around 0
    for (int x = 10; x < 40; ++x) im(x, y) = 171.3f;
  TTImage<bool> m = test::MasqueAleatoire(w, h, g, 0.8);
  for (int y = 25; y < 40; ++y)
    for (int x = 30; x < 60; ++x) m(x, y) = false;
  TTImage<double> S, S2, N;
  images_integrales_mask(im, m, S, S2, N);
  const double nt = Coins(N, 0, 0, w - 1, h - 1), mg = Coins(S, 0, 0, w - 1, h - 1) / nt;
  const double eg = std::sqrt(Coins(S2, 0, 0, w - 1, h - 1) / nt - mg * mg);
  int plats = 0, nans = 0;
  for (int d : {0, 1, 2, 5, 17, 40, 500}) {
    // Only an exact (0, 0) stands for the image's own masked statistics; (0, 30) is taken as it is.
    for (const T2D<double> cible :
         {T2D<double>(127.5, 50.0), T2D<double>(0.0, 0.0), T2D<double>(0.0, 30.0)}) {
      const bool propre = cible.x == 0.0 && cible.y == 0.0;
      const double mc = propre ? mg : cible.x, ec = propre ? eg : cible.y;
      // Into the images of an earlier call once: the same values, zeros outside the mask included.
      TTImage<float> gain(w, h, -7.0f), offset(w, h, -7.0f), ga(w, h, 0.0f), oa(w, h, 0.0f);
      if (d != 5) gain = offset = TTImage<float>();
      GainOffsetWalis(im, m, gain, offset, 2 * d + (d % 2), cible.x, cible.y);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          if (!m(x, y)) continue;
          const int x0 = std::max(x - d, 0), y0 = std::max(y - d, 0);
          const int x1 = std::min(x + d, w - 1), y1 = std::min(y + d, h - 1);
          const double n = Coins(N, x0, y0, x1, y1), s = Coins(S, x0, y0, x1, y1),
                       q = Coins(S2, x0, y0, x1, y1);
          const double mo = s / n, e = std::sqrt(q / n - mo * mo);
          ga(x, y) = e == 0.0 ? 1.0f : static_cast<float>(ec / e);
          oa(x, y) = static_cast<float>(e == 0.0 ? mc - mo : mc - mo * (ec / e));
          plats += e == 0.0;
          nans += std::isnan(e);
        }
      ASSERT_TRUE(test::MemesPixels(gain, ga) && test::MemesPixels(offset, oa)) << d << " cible " << cible.y;
    }
  }
  EXPECT_GT(plats, 0);
  EXPECT_GT(nans, 0);
}

}  // namespace
