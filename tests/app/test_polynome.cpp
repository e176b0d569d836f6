// Polynomials of two variables: terms, evaluation, derivatives, saving, and fits that must recover
// known polynomials from noiseless samples.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "polynome.h"
#include "zepra/erreur.h"

namespace {

double Direct(const Polynome2D& p, double x, double y) {
  double s = 0.0;
  for (size_t k = 0; k < p.NbTermes(); ++k)
    s += p.Coefficients()[k] * std::pow(x, p.Termes()[k].i) * std::pow(y, p.Termes()[k].j);
  return s;
}

// Coefficients whose terms are all of order 1 over positions up to 'etendue'.
Polynome2D PolynomeAleatoire(int degre, double etendue, std::mt19937& g) {
  Polynome2D p(degre);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<double> c;
  for (const Monome2D& m : p.Termes()) c.push_back(u(g) * 100.0 / std::pow(etendue, m.i + m.j));
  p.SetCoefficients(c);
  return p;
}

TEST(Polynome2D, TermesValeursEtDerivees) {
  const Polynome2D deux(2);
  const std::vector<Monome2D> attendu = {{0, 0}, {1, 0}, {0, 1}, {2, 0}, {1, 1}, {0, 2}};
  EXPECT_EQ(deux.Termes(), attendu);
  for (int d = 0; d <= 12; ++d) {
    const Polynome2D p(d);
    std::vector<Monome2D> ordre;
    for (int t = 0; t <= d; ++t)
      for (int j = 0; j <= t; ++j) ordre.emplace_back(t - j, j);
    EXPECT_EQ(p.Termes(), ordre) << d;
    EXPECT_EQ(p.NbTermes(), static_cast<size_t>((d + 1) * (d + 2) / 2));
    EXPECT_TRUE(p.Coefficients().empty());
  }
  EXPECT_EQ(Polynome2D(6).NbTermes(), 28u);
  EXPECT_EQ(Polynome2D(10).NbTermes(), 66u);

  // No term below degree 0: the value is 0 everywhere.
  Polynome2D negatif(-2);
  EXPECT_EQ(negatif.NbTermes(), 0u);
  EXPECT_EQ(negatif(3.0, 4.0), 0.0);
  EXPECT_TRUE(negatif.derivee(1.0, 1.0).empty());

  Polynome2D zero(0);
  zero.SetCoefficients({4.25});
  EXPECT_EQ(zero(-7.0, 1e6), 4.25);
  Polynome2D un(1);
  un.SetCoefficients({2.0, 3.0, -5.0});
  EXPECT_EQ(un(10.0, 1.0), 2.0 + 30.0 - 5.0);
  EXPECT_EQ(un(T2D<double>(-1.0, 2.0)), 2.0 - 3.0 - 10.0);
  EXPECT_EQ(un.derivee(7.0, -3.0), (std::vector<double>{1.0, 7.0, -3.0}));

  std::mt19937 g(21);
  std::uniform_real_distribution<double> u(-3.0, 3.0);
  const Polynome2D p = PolynomeAleatoire(7, 3.0, g);
  for (int essai = 0; essai < 200; ++essai) {
    const double x = u(g), y = u(g);
    EXPECT_NEAR(p(x, y), Direct(p, x, y), 1e-10 * 100);
    const std::vector<double> d = p.derivee(x, y);
    ASSERT_EQ(d.size(), p.NbTermes());
    for (size_t k = 0; k < d.size(); ++k)
      EXPECT_NEAR(d[k], std::pow(x, p.Termes()[k].i) * std::pow(y, p.Termes()[k].j),
                  1e-10 * std::fabs(d[k]) + 1e-12);
  }

  Polynome2D sansCoefficients(3);
  EXPECT_THROW(sansCoefficients(1.0, 1.0), Erreur);
  EXPECT_THROW(sansCoefficients.SetCoefficients({1.0, 2.0}), Erreur);
  EXPECT_THROW(Polynome2D(kDegreMaxPolynome + 1), Erreur);
}

TEST(Polynome2D, SauverEcritLeDegreEtLesCoefficients) {
  test::DossierTemp d;
  Polynome2D un(1);
  un.SetCoefficients({1.5, -2.0, 1.0 / 3.0});
  ASSERT_TRUE(un.Sauver(d / "p.txt"));
  EXPECT_EQ(test::LireFichier(d / "p.txt"), "1 1.5 -2 0.333333\n");
  Polynome2D zero(0);
  zero.SetCoefficients({1234567.0});
  ASSERT_TRUE(zero.Sauver(d / "p.txt"));
  EXPECT_EQ(test::LireFichier(d / "p.txt"), "0 1.23457e+06\n");
  // A folder that does not exist: false, and nothing is left behind.
  EXPECT_FALSE(un.Sauver(d / "absent/p.txt"));
  struct stat st;
  EXPECT_NE(stat((d / "absent").c_str(), &st), 0);
}

struct CasAjustement {
  int degre, w, h, pas;
};

TEST(AjustementPolynome2D, RetrouveUnPolynomeConnuSansBruit) {
  std::mt19937 g(22);
  const CasAjustement cas[] = {
      {0, 20, 15, 1}, {2, 64, 48, 1}, {2, 33, 17, 3}, {6, 64, 48, 1}, {6, 90, 71, 2}};
  for (const CasAjustement& c : cas) {
    const Polynome2D vrai = PolynomeAleatoire(c.degre, 0.5 * std::max(c.w, c.h), g);
    TTImage<float> im(c.w, c.h, TagNbCanaux(1));
    TTImage<bool> m = test::MasqueAleatoire(c.w, c.h, g, 0.7);
    long long attendues = 0;
    for (int y = 0; y < c.h; ++y)
      for (int x = 0; x < c.w; ++x) {
        im(x, y) = static_cast<float>(vrai(x - 0.5 * c.w, y - 0.5 * c.h));
        // Some masked NaN pixels: not equations, but they receive the model.
        if (m(x, y) && (x * 7 + y * 3) % 23 == 0) im(x, y) = std::nanf("");
        if (m(x, y) && !std::isnan(im(x, y)) && x % c.pas == 0 && y % c.pas == 0) ++attendues;
      }
    const TTImage<float> avant = im;
    Polynome2D p(0);
    std::string sortie;
    {
      test::CaptureSortie capture;
      p = ModelePolynomialMonoImage(im, m, c.pas, c.degre);
      sortie = capture.texte();
    }
    EXPECT_EQ(sortie, std::to_string(attendues) + " equations\n");
    ASSERT_EQ(p.NbTermes(), vrai.NbTermes());
    // Samples are float: the fit recovers the coefficients to float precision of the values.
    const double etendue = 0.5 * std::max(c.w, c.h);
    for (size_t k = 0; k < p.NbTermes(); ++k) {
      const double echelle = std::pow(etendue, p.Termes()[k].i + p.Termes()[k].j);
      EXPECT_NEAR(p.Coefficients()[k] * echelle, vrai.Coefficients()[k] * echelle, 1e-3)
          << "degre " << c.degre << " terme " << k;
    }
    for (int y = 0; y < c.h; ++y)
      for (int x = 0; x < c.w; ++x) {
        if (m(x, y))
          EXPECT_NEAR(im(x, y), vrai(x - 0.5 * c.w, y - 0.5 * c.h), 1e-3) << x << "," << y;
        else
          EXPECT_TRUE(im(x, y) == avant(x, y) || (std::isnan(im(x, y)) && std::isnan(avant(x, y))));
      }
  }
}

TEST(AjustementPolynome2D, PlusieursImagesChacuneAutourDeSonCentre) {
  std::mt19937 g(23);
  const Polynome2D vrai = PolynomeAleatoire(6, 25.0, g);
  AjustementPolynome2D a(6);
  const int tailles[][2] = {{40, 30}, {25, 50}, {9, 9}};
  long long total = 0;
  for (const auto& t : tailles) {
    TTImage<float> im(t[0], t[1], TagNbCanaux(1));
    const TTImage<bool> m = test::MasqueAleatoire(t[0], t[1], g, 0.5);
    long long n = 0;
    for (int y = 0; y < t[1]; ++y)
      for (int x = 0; x < t[0]; ++x) {
        im(x, y) = static_cast<float>(vrai(x - 0.5 * t[0], y - 0.5 * t[1]));
        n += m(x, y);
      }
    EXPECT_EQ(a.Ajouter(im, m, 1), n);
    total += n;
  }
  EXPECT_EQ(a.NbEquations(), total);
  const Polynome2D p = a.Resoudre();
  for (double x = -20; x <= 20; x += 5)
    for (double y = -25; y <= 25; y += 5) EXPECT_NEAR(p(x, y), vrai(x, y), 1e-3) << x << "," << y;
}

TEST(AjustementPolynome2D, LeModeleEcritEstExactementLaValeurDuPolynome) {
  std::mt19937 g(24);
  for (int w : {1, 7, 8, 37}) {
    const Polynome2D p = PolynomeAleatoire(10, 20.0, g);
    TTImage<float> im = test::ImageAleatoire(w, 21, g);
    const TTImage<float> avant = im;
    const TTImage<bool> m = test::MasqueAleatoire(w, 21, g, 0.5);
    AppliquerModele(im, m, p);
    for (int y = 0; y < 21; ++y)
      for (int x = 0; x < w; ++x)
        EXPECT_EQ(im(x, y), m(x, y) ? static_cast<float>(p(x - 0.5 * w, y - 10.5)) : avant(x, y))
            << x << "," << y;
  }
}

TEST(AjustementPolynome2D, CasLimitesEtRefus) {
  // No equation: the fit is not refused, its coefficients are what the inverse yields, and no pixel
  // receives them since none is masked.
  TTImage<float> im(10, 8, 5.0f);
  const TTImage<bool> rien(10, 8, false);
  Polynome2D p(0);
  {
    test::CaptureSortie capture;
    p = ModelePolynomialMonoImage(im, rien, 1, 2);
    EXPECT_EQ(capture.texte(), "0 equations\n");
  }
  EXPECT_EQ(p.NbTermes(), 6u);
  bool finis = true;
  for (double c : p.Coefficients()) finis = finis && std::isfinite(c);
  EXPECT_FALSE(finis);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 10; ++x) ASSERT_EQ(im(x, y), 5.0f);

  const TTImage<bool> tout(10, 8, true);
  const TTImage<bool> autreTaille(10, 9, true);
  test::CaptureSortie capture;
  EXPECT_THROW(ModelePolynomialMonoImage(im, tout, 0, 2), Erreur);
  EXPECT_THROW(ModelePolynomialMonoImage(im, tout, 1, -1), Erreur);
  EXPECT_THROW(ModelePolynomialMonoImage(im, autreTaille, 1, 2), Erreur);
  TTImage<float> rvb(10, 8, TagNbCanaux(3));
  EXPECT_THROW(ModelePolynomialMonoImage(rvb, tout, 1, 2), Erreur);
  EXPECT_EQ(capture.texte(), "");
}

}  // namespace
