// Pre-smoothing under masks: the masked moving mean against direct means, and the two Wallis
// pre-smoothings against the composition of their steps.
#include <gtest/gtest.h>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "polynome.h"
#include "prelissage.h"
#include "walis.h"

namespace {

TEST(Prelissage, InverseMasqueEtMoyMasqueCommeLesMoyennesDirectes) {
  std::mt19937 g(42);
  const int w = 33, h = 28;
  const TTImage<float> im = test::ImageAleatoire(w, h, g);
  TTImage<bool> m = test::MasqueAleatoire(w, h, g, 0.4), inverse, surPlace = m;
  InverseMasque(m, inverse);
  InverseMasque(surPlace, surPlace);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) ASSERT_TRUE(inverse(x, y) != m(x, y) && surPlace(x, y) != m(x, y));

  // A hole wider than the small windows: its centre pixels have values but no masked neighbour.
  for (int y = 5; y < 20; ++y)
    for (int x = 8; x < 25; ++x) m(x, y) = false;
  for (int rayon : {0, 1, 4, 100}) {
    TTImage<float> lisse = im;
    MoyMasque(lisse, m, rayon);
    int vides = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const test::Sommes s = test::SommesFenetre(im, &m, x, y, rayon);
        vides += s.n == 0;
        ASSERT_NEAR(lisse(x, y), s.moyenne(), 2e-4) << rayon << " " << x << "," << y;
      }
    EXPECT_EQ(vides > 0, rayon <= 4) << rayon;
  }
  TTImage<float> copie = im;
  test::Refuse([&] { MoyMasque(copie, m, -1); }, "[Prelissage] (MoyMasque) Demi-largeur de fenetre negative");
  EXPECT_TRUE(test::MemesPixels(copie, im));
}

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
  TTImage<bool> exclu = test::MasqueAleatoire(w, h, g, 0.15), garde;
  for (int y = 10; y < 22; ++y)
    for (int x = 30; x < 45; ++x) exclu(x, y) = true;
  InverseMasque(exclu, garde);

  for (int tailleMoy : {0, 3, 100}) {
    TTImage<float> obtenu = im;
    PrelisseMoyWalis(obtenu, exclu, tailleMoy, 11, 127.5, 50.0);
    auto lisser = [&](TTImage<float>& champ) {
      if (tailleMoy > 0) MoyMasque(champ, garde, tailleMoy);
    };
    EXPECT_TRUE(test::MemesPixels(obtenu, Etapes(im, garde, 11, lisser))) << tailleMoy;
  }
  // The command's routine: window size 50 (half-width 25), smoothing half-width 100.
  TTImage<float> commande = im;
  PrelisseWalisMoy(commande, exclu, T2D<double>(127.5, 50.0));
  EXPECT_TRUE(test::MemesPixels(commande,
                                Etapes(im, garde, 50, [&](TTImage<float>& c) { MoyMasque(c, garde, 100); })));

  // The polynomial form, each fit writing its count of equations (every second pixel of every second
  // line): twice for the routine, twice for its steps.
  long long n = 0;
  for (int y = 0; y < h; y += 2)
    for (int x = 0; x < w; x += 2) n += garde(x, y);
  TTImage<float> poly = im;
  {
    test::CaptureSortie capture;
    PrelissePolyWalis(poly, exclu, 3, 11, 127.5, 50.0, 2);
    const TTImage<float> attendu =
        Etapes(im, garde, 11, [&](TTImage<float>& c) { ModelePolynomialMonoImage(c, garde, 2, 3); });
    EXPECT_TRUE(test::MemesPixels(poly, attendu));
    const std::string ligne = std::to_string(n) + " equations\n";
    EXPECT_EQ(capture.texte(), ligne + ligne + ligne + ligne);
  }

  // Everything excluded: no field is written, so the image becomes 0.
  TTImage<float> tout(12, 9, 42.0f);
  PrelisseMoyWalis(tout, TTImage<bool>(12, 9, true), 5, 10, 127.5, 50.0);
  EXPECT_TRUE(test::MemesPixels(tout, TTImage<float>(12, 9, 0.0f)));

  TTImage<float> copie(12, 9, 42.0f);
  const TTImage<bool> rien(12, 9, false);
  test::CaptureSortie capture;
  test::Refuse([&] { PrelissePolyWalis(copie, rien, 10, 10, 127.5, 50.0, 0); },
               "[Prelissage] (PrelissePolyWalis) Pas d'echantillonnage 0 : il doit valoir au moins 1.");
  test::Refuse([&] { PrelissePolyWalis(copie, rien, kDegreMaxPolynome + 1, 10, 127.5, 50.0, 1); },
               "[Prelissage] (PrelissePolyWalis) Degre 51 hors de [0, 50].");
  EXPECT_EQ(capture.texte(), "");
  EXPECT_TRUE(test::MemesPixels(copie, TTImage<float>(12, 9, 42.0f)));
}

}  // namespace
