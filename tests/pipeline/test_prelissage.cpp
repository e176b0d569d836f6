// The two Wallis pre-smoothings against the composition of their steps. The masked moving mean is
// checked against direct means through the "MoyMasque" sub-command.
#include <gtest/gtest.h>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "zepra/pipeline/polynome.h"
#include "zepra/pipeline/prelissage.h"
#include "zepra/pipeline/walis.h"

namespace {

// The steps written out: the Wallis fields over the kept pixels, each passed through 'lisser', applied.
template <class F>
TTImage<float> Etapes(const TTImage<float>& im, const TTImage<bool>& garde, int tailleWalis, F lisser) {
  TTImage<float> r = im, gain, offset;
  GainOffsetWalis(r, garde, gain, offset, tailleWalis, 127.5, 50.0);
  lisser(gain);
  lisser(offset);
  AppliqueGainOffset(r, gain, offset);
  return r;
}

TEST(Prelissage, LesDeuxPrelissagesSontLaCompositionDeLeursEtapesEtRefus) {
  std::mt19937 g(43);
  const int w = 48, h = 40;
  const TTImage<float> im = test::ImageAleatoire(w, h, g);
  TTImage<bool> exclu = test::MasqueAleatoire(w, h, g, 0.15), garde, surPlace;
  for (int y = 10; y < 22; ++y)
    for (int x = 30; x < 45; ++x) exclu(x, y) = true;
  InverseMasque(exclu, garde);
  surPlace = garde;
  InverseMasque(surPlace, surPlace);  // into itself: back to the excluded pixels
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) ASSERT_TRUE(garde(x, y) != exclu(x, y) && surPlace(x, y) == exclu(x, y));

  for (int tailleMoy : {0, 3, 100}) {
    TTImage<float> obtenu = im;
    PrelisseMoyWalis(obtenu, exclu, tailleMoy, 11, 127.5, 50.0);
    auto lisser = [&](TTImage<float>& champ) {
      if (tailleMoy > 0) MoyMasque(champ, garde, tailleMoy);
    };
    EXPECT_TRUE(test::MemesPixels(obtenu, Etapes(im, garde, 11, lisser))) << tailleMoy;
  }
  // The polynomial form, every second pixel of every second line.
  TTImage<float> poly = im;
  test::CaptureSortie capture;
  PrelissePolyWalis(poly, exclu, 3, 11, 127.5, 50.0, 2);
  EXPECT_TRUE(test::MemesPixels(
      poly, Etapes(im, garde, 11, [&](TTImage<float>& c) { ModelePolynomialMonoImage(c, garde, 2, 3); })));

  test::Refuse([&] { PrelissePolyWalis(poly, exclu, 10, 10, 127.5, 50.0, 0); },
               "[Prelissage] (PrelissePolyWalis) Pas d'echantillonnage 0 : il doit valoir au moins 1.");
  test::Refuse([&] { PrelissePolyWalis(poly, exclu, kDegreMaxPolynome + 1, 10, 127.5, 50.0, 1); },
               "[Prelissage] (PrelissePolyWalis) Degre 51 hors de [0, 50].");
  test::Refuse([&] { MoyMasque(poly, garde, -1); },
               "[Prelissage] (MoyMasque) Demi-largeur de fenetre negative");
}

}  // namespace
