// Pre-smoothing under masks: the masked moving mean against direct means, and the two Wallis
// pre-smoothings against the composition of their steps.
#include <gtest/gtest.h>

#include "outils_radiometrie.h"
#include "polynome.h"
#include "prelissage.h"
#include "walis.h"
#include "zepra/erreur.h"

namespace {

void ExpectMemesPixels(const TTImage<float>& a, const TTImage<float>& b) {
  ASSERT_EQ(a.GetTaille(), b.GetTaille());
  for (int y = 0; y < a.iGetNbLignes(); ++y)
    for (int x = 0; x < a.iGetNbColonnes(); ++x)
      ASSERT_TRUE(a(x, y) == b(x, y) || (std::isnan(a(x, y)) && std::isnan(b(x, y))))
          << x << "," << y << " : " << a(x, y) << " / " << b(x, y);
}

TEST(Prelissage, InverseMasqueNieChaquePixel) {
  std::mt19937 g(41);
  const TTImage<bool> m = test::MasqueAleatoire(37, 5, g);
  TTImage<bool> inverse, retour;
  InverseMasque(m, inverse);
  InverseMasque(inverse, retour);
  ASSERT_EQ(inverse.GetTaille(), m.GetTaille());
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 37; ++x) {
      EXPECT_EQ(inverse(x, y), !m(x, y));
      EXPECT_EQ(retour(x, y), m(x, y));
    }
  TTImage<bool> surPlace = m;
  InverseMasque(surPlace, surPlace);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 37; ++x) EXPECT_EQ(surPlace(x, y), !m(x, y));
}

TEST(Prelissage, MoyMasqueCommeLesMoyennesDirectes) {
  std::mt19937 g(42);
  const int w = 33, h = 28;
  const TTImage<float> im = test::ImageAleatoire(w, h, g);
  TTImage<bool> m = test::MasqueAleatoire(w, h, g, 0.4);
  // A hole wider than the small windows: its centre pixels have values but no masked neighbour.
  for (int y = 5; y < 20; ++y)
    for (int x = 8; x < 25; ++x) m(x, y) = false;
  for (int rayon : {0, 1, 4, 100}) {
    TTImage<float> lisse = im;
    MoyMasque(lisse, m, rayon);
    int vides = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const test::Sommes s = test::SommesDirectes(im, &m, x - rayon, y - rayon, x + rayon, y + rayon);
        if (s.n == 0) {
          ++vides;
          EXPECT_EQ(lisse(x, y), 0.0f) << rayon << " " << x << "," << y;
        } else {
          EXPECT_NEAR(lisse(x, y), s.s / s.n, 2e-4) << rayon << " " << x << "," << y;
        }
      }
    if (rayon <= 4) {
      EXPECT_GT(vides, 0);
    }
  }
  TTImage<float> copie = im;
  EXPECT_THROW(MoyMasque(copie, m, -1), Erreur);
  EXPECT_THROW(MoyMasque(copie, TTImage<bool>(w, h + 1, true), 2), Erreur);
  ExpectMemesPixels(copie, im);
}

TEST(Prelissage, LesDeuxPrelissagesSontLaCompositionDeLeursEtapes) {
  std::mt19937 g(43);
  const int w = 48, h = 40;
  const TTImage<float> im = test::ImageAleatoire(w, h, g);
  TTImage<bool> exclu = test::MasqueAleatoire(w, h, g, 0.15);
  for (int y = 10; y < 22; ++y)
    for (int x = 30; x < 45; ++x) exclu(x, y) = true;
  TTImage<bool> masque;
  InverseMasque(exclu, masque);

  for (int tailleMoy : {0, 3, 100}) {
    TTImage<float> attendu = im, gain, offset;
    GainOffsetWalis(attendu, masque, gain, offset, 11, 127.5, 50.0);
    if (tailleMoy > 0) {
      MoyMasque(gain, masque, tailleMoy);
      MoyMasque(offset, masque, tailleMoy);
    }
    AppliqueGainOffset(attendu, gain, offset);
    TTImage<float> obtenu = im;
    PrelisseMoyWalis(obtenu, exclu, tailleMoy, 11, 127.5, 50.0);
    ExpectMemesPixels(obtenu, attendu);
  }
  // The command's routine: window size 50 (half-width 25), smoothing half-width 100.
  TTImage<float> commande = im, attendu = im;
  PrelisseWalisMoy(commande, exclu, T2D<double>(127.5, 50.0));
  PrelisseMoyWalis(attendu, exclu, 100, 50, 127.5, 50.0);
  ExpectMemesPixels(commande, attendu);

  // The polynomial form, with its two counts of equations.
  TTImage<float> poly = im;
  std::string sortie;
  {
    test::CaptureSortie capture;
    PrelissePolyWalis(poly, exclu, 3, 11, 127.5, 50.0, 2);
    sortie = capture.texte();
  }
  TTImage<float> gain, offset;
  attendu = im;
  GainOffsetWalis(attendu, masque, gain, offset, 11, 127.5, 50.0);
  {
    test::CaptureSortie capture;
    ModelePolynomialMonoImage(gain, masque, 2, 3);
    ModelePolynomialMonoImage(offset, masque, 2, 3);
    EXPECT_EQ(sortie, capture.texte());
  }
  AppliqueGainOffset(attendu, gain, offset);
  ExpectMemesPixels(poly, attendu);
  long long n = 0;
  for (int y = 0; y < h; y += 2)
    for (int x = 0; x < w; x += 2) n += masque(x, y);
  EXPECT_EQ(sortie, std::to_string(n) + " equations\n" + std::to_string(n) + " equations\n");
}

TEST(Prelissage, ImagesConstruitesEtMasquesExtremes) {
  // A uniform image: flat windows give gain 1 and offset 27.5, both models are those constants, and
  // every kept pixel lands on the target mean; excluded pixels get fields of 0 and become 0.
  TTImage<float> im(30, 20, 100.0f);
  TTImage<bool> exclu(30, 20, false);
  for (int x = 0; x < 30; ++x) exclu(x, 0) = true;
  {
    test::CaptureSortie capture;
    PrelissePolyWalis(im, exclu, 2, 10, 127.5, 50.0, 1);
    EXPECT_EQ(capture.texte(), "570 equations\n570 equations\n");
  }
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 30; ++x) EXPECT_NEAR(im(x, y), y == 0 ? 0.0f : 127.5f, 1e-3) << x << "," << y;

  TTImage<float> moy(30, 20, 100.0f);
  PrelisseMoyWalis(moy, exclu, 0, 10, 127.5, 50.0);
  for (int x = 0; x < 30; ++x) {
    EXPECT_EQ(moy(x, 0), 0.0f);
    EXPECT_EQ(moy(x, 7), 127.5f);
  }
  // Smoothed fields reach into the excluded line from the kept pixels next to it.
  moy = TTImage<float>(30, 20, 100.0f);
  PrelisseMoyWalis(moy, exclu, 2, 10, 127.5, 50.0);
  EXPECT_EQ(moy(4, 0), 127.5f);

  // Everything excluded: no field is written, so the image becomes 0.
  TTImage<float> tout(12, 9, 42.0f);
  PrelisseMoyWalis(tout, TTImage<bool>(12, 9, true), 5, 10, 127.5, 50.0);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 12; ++x) ASSERT_EQ(tout(x, y), 0.0f);

  TTImage<float> copie(12, 9, 42.0f);
  test::CaptureSortie capture;
  EXPECT_THROW(PrelissePolyWalis(copie, TTImage<bool>(12, 9, false), 10, 10, 127.5, 50.0, 0), Erreur);
  EXPECT_THROW(
      PrelissePolyWalis(copie, TTImage<bool>(12, 9, false), kDegreMaxPolynome + 1, 10, 127.5, 50.0, 1),
      Erreur);
  EXPECT_THROW(PrelisseMoyWalis(copie, TTImage<bool>(11, 9, false), 5, 10, 127.5, 50.0), Erreur);
  EXPECT_EQ(capture.texte(), "");
  EXPECT_EQ(copie(3, 3), 42.0f);
}

}  // namespace
