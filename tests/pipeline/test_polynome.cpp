// Polynomials of two variables: terms, values against direct powers, the saved line, and fits that
// must recover known polynomials from noiseless samples.
#include <gtest/gtest.h>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "zepra/pipeline/polynome.h"

namespace {

TEST(Polynome2D, TermesDeriveesSauvegardeEtRefus) {
  for (int d = -2; d <= 12; ++d) {
    std::vector<Monome2D> ordre;  // by total degree, then by the power of y
    for (int t = 0; t <= d; ++t)
      for (int j = 0; j <= t; ++j) ordre.emplace_back(t - j, j);
    EXPECT_EQ(Polynome2D(d).Termes(), ordre) << d;
  }
  // At (2, 3) the terms of degree 2 are 1, x, y, x^2, xy, y^2. Values are checked by the fits below.
  EXPECT_EQ(Polynome2D(2).derivee(2.0, 3.0), (std::vector<double>{1.0, 2.0, 3.0, 4.0, 6.0, 9.0}));

  test::DossierTemp dossier;
  Polynome2D un(1);
  un.SetCoefficients({1234567.0, -2.0, 1.0 / 3.0});  // six significant digits
  ASSERT_TRUE(un.Sauver(dossier / "p.txt"));
  EXPECT_EQ(test::LireFichier(dossier / "p.txt"), "1 1.23457e+06 -2 0.333333\n");
  EXPECT_FALSE(un.Sauver(dossier / "absent/p.txt"));  // a folder that does not exist

  Polynome2D trois(3);
  test::Refuse([&] { trois(1.0, 1.0); }, "[Polynome2D] (operator()) 0 coefficients pour 10 termes.");
  test::Refuse([&] { trois.SetCoefficients(std::vector<double>(2)); },
               "[Polynome2D] (SetCoefficients) 2 coefficients pour 10 termes.");
  test::Refuse([] { Polynome2D(kDegreMaxPolynome + 1); }, "[Polynome2D] (Polynome2D) Degre 51 trop grand");

  // A fit without equation is not refused, its coefficients are what the inverse yields.
  TTImage<float> im(10, 8, 5.0f);
  test::CaptureSortie capture;
  const Polynome2D p = ModelePolynomialMonoImage(im, TTImage<bool>(10, 8, false), 1, 2);
  EXPECT_EQ(capture.texte(), "0 equations\n");
  EXPECT_TRUE(p.NbTermes() == 6u && !std::isfinite(p.Coefficients()[0]));
  const TTImage<bool> tout(10, 8, true);
  test::Refuse([&] { ModelePolynomialMonoImage(im, tout, 0, 2); },
               "[AjustementPolynome2D] (Ajouter) Pas d'echantillonnage 0 : il doit valoir au moins 1.");
  test::Refuse([&] { ModelePolynomialMonoImage(im, tout, 1, -1); },
               "[AjustementPolynome2D] (AjustementPolynome2D) Degre negatif : -1.");
}

// Widths that leave 0 to 7 pixels after the blocks of eight of the model's evaluation.
TEST(AjustementPolynome2D, RetrouveUnPolynomeConnuSansBruit) {
  std::mt19937 g(22);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  struct Cas {
    int degre, w, h, pas;
  };
  const Cas cas[] = {{0, 1, 9, 1},   {0, 20, 15, 1}, {2, 64, 48, 1},
                     {2, 33, 17, 3}, {6, 64, 48, 1}, {6, 90, 71, 2}};
  for (const Cas& c : cas) {
    const std::string nom = "degre " + std::to_string(c.degre) + " largeur " + std::to_string(c.w);
    const double etendue = 0.5 * std::max(c.w, c.h);
    Polynome2D vrai(c.degre);  // every term of order 100 over the image
    std::vector<double> coefficients;
    for (const Monome2D& t : vrai.Termes())
      coefficients.push_back(u(g) * 100.0 / std::pow(etendue, t.i + t.j));
    vrai.SetCoefficients(coefficients);
    TTImage<float> im(c.w, c.h, TagNbCanaux(1));
    const TTImage<bool> m = test::MasqueAleatoire(c.w, c.h, g, 0.7);
    long long attendues = 0;
    for (int y = 0; y < c.h; ++y)
      for (int x = 0; x < c.w; ++x) {
        im(x, y) = static_cast<float>(vrai(x - 0.5 * c.w, y - 0.5 * c.h));
        // Some masked NaN pixels: not equations, but they receive the model.
        if (m(x, y) && (x * 7 + y * 3) % 23 == 0) im(x, y) = std::nanf("");
        attendues += m(x, y) && !std::isnan(im(x, y)) && x % c.pas == 0 && y % c.pas == 0;
      }
    const TTImage<float> avant = im;
    test::CaptureSortie capture;
    const Polynome2D p = ModelePolynomialMonoImage(im, m, c.pas, c.degre);
    EXPECT_EQ(capture.texte(), std::to_string(attendues) + " equations\n") << nom;
    ASSERT_EQ(p.NbTermes(), vrai.NbTermes());
    // Samples are float: the coefficients come back to float precision of the values.
    for (size_t k = 0; k < p.NbTermes(); ++k) {
      const double echelle = std::pow(etendue, p.Termes()[k].i + p.Termes()[k].j);
      EXPECT_NEAR(p.Coefficients()[k] * echelle, vrai.Coefficients()[k] * echelle, 1e-3) << nom << " " << k;
    }
    // The model written is exactly the polynomial's value; unmasked pixels are left alone.
    for (int y = 0; y < c.h; ++y)
      for (int x = 0; x < c.w; ++x)
        ASSERT_EQ(im(x, y), m(x, y) ? static_cast<float>(p(x - 0.5 * c.w, y - 0.5 * c.h)) : avant(x, y))
            << nom << " " << x << "," << y;
  }
}

}  // namespace
