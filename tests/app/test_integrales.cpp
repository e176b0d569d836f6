// Integral images and their statistics against direct sums; the disc of offsets and the dilation
// against their brute-force definitions.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "integrales.h"
#include "outils_radiometrie.h"
#include "zepra/erreur.h"

namespace {

using Rect = T2D<T2D<int>>;
Rect R(int x0, int y0, int x1, int y1) { return Rect(T2D<int>(x0, y0), T2D<int>(x1, y1)); }

TEST(Integrales, LesTablesSontLesSommesDesPixelsEnHautAGauche) {
  std::mt19937 g(11);
  const int tailles[][2] = {{1, 1}, {1, 7}, {9, 1}, {13, 11}, {31, 19}};
  for (const auto& t : tailles) {
    const int w = t[0], h = t[1];
    const TTImage<float> im = test::ImageAleatoire(w, h, g, -50.0f, 300.0f);
    const TTImage<bool> m = test::MasqueAleatoire(w, h, g);
    TTImage<double> S, S2, Sm, S2m, N;
    TTImage<double> Sf, S2f;
    TTImage<float> Nf;
    images_integrales(im, S, S2);
    images_integrales_mask(im, m, Sm, S2m, N);
    images_integrales_mask(im, m, Sf, S2f, Nf);
    ASSERT_EQ(S.GetTaille(), im.GetTaille());
    ASSERT_EQ(N.GetTaille(), im.GetTaille());
    ASSERT_EQ(Nf.GetNbCanaux(), 1);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const test::Sommes tout = test::SommesDirectes(im, nullptr, 0, 0, x, y);
        const test::Sommes masque = test::SommesDirectes(im, &m, 0, 0, x, y);
        EXPECT_TRUE(test::Proche(S(x, y), tout.s, 1e-12)) << x << "," << y;
        EXPECT_TRUE(test::Proche(S2(x, y), tout.q, 1e-12)) << x << "," << y;
        EXPECT_TRUE(test::Proche(Sm(x, y), masque.s, 1e-12)) << x << "," << y;
        EXPECT_TRUE(test::Proche(S2m(x, y), masque.q, 1e-12)) << x << "," << y;
        EXPECT_EQ(N(x, y), masque.n);
        EXPECT_EQ(Nf(x, y), static_cast<float>(masque.n));
        EXPECT_EQ(Sf(x, y), Sm(x, y));
      }
  }

  // A 1 x 1 image holds v and v^2; a multi-channel source contributes its channel 0 only.
  TTImage<float> un(1, 1, 3.5f);
  TTImage<double> S, S2;
  images_integrales(un, S, S2);
  EXPECT_EQ(S(0, 0), 3.5);
  EXPECT_EQ(S2(0, 0), 12.25);
  TTImage<float> rvb(2, 1, TagNbCanaux(3));
  rvb(0, 0, 0) = 1.0f;
  rvb(0, 0, 1) = 100.0f;
  rvb(1, 0, 0) = 2.0f;
  rvb(1, 0, 2) = 100.0f;
  images_integrales(rvb, S, S2);
  EXPECT_EQ(S(1, 0), 3.0);
  EXPECT_EQ(S2(1, 0), 5.0);

  // Tables already holding other shapes and channels are reshaped to one channel.
  TTImage<double> vieux(5, 5, TagNbCanaux(2)), vieux2(1, 1, TagNbCanaux(1));
  images_integrales(un, vieux, vieux2);
  EXPECT_EQ(vieux.GetTaille(), TPoint2D<int>(1, 1));
  EXPECT_EQ(vieux.GetNbCanaux(), 1);
  EXPECT_EQ(vieux(0, 0), 3.5);
}

TEST(Integrales, StatistiquesDeTousLesRectanglesMemeDebordants) {
  std::mt19937 g(12);
  const int w = 13, h = 9;
  const TTImage<float> im = test::ImageAleatoire(w, h, g);
  const TTImage<bool> m = test::MasqueAleatoire(w, h, g, 0.5);
  TTImage<double> S, S2, Sm, S2m, N;
  TTImage<float> Nf;
  images_integrales(im, S, S2);
  images_integrales_mask(im, m, Sm, S2m, N);
  images_integrales_mask(im, m, Sm, S2m, Nf);
  int nonVides = 0, vides = 0;
  for (int y0 = -3; y0 <= h + 2; ++y0)
    for (int y1 = y0 - 2; y1 <= h + 2; ++y1)
      for (int x0 = -3; x0 <= w + 2; ++x0)
        for (int x1 = x0 - 2; x1 <= w + 2; ++x1) {
          T2D<double> st;
          T3D<double> b, bf;
          stats_images_integrales(S, S2, R(x0, y0, x1, y1), st);
          stats_images_integrales_brutes(Sm, S2m, N, R(x0, y0, x1, y1), b);
          stats_images_integrales_brutes(Sm, S2m, Nf, R(x0, y0, x1, y1), bf);
          const test::Sommes tout = test::SommesDirectes(im, nullptr, x0, y0, x1, y1);
          const test::Sommes masque = test::SommesDirectes(im, &m, x0, y0, x1, y1);
          if (tout.n == 0) {
            // Clamped corners that cross: an empty rectangle, zeros and no division.
            ++vides;
            EXPECT_EQ(st, T2D<double>(0.0, 0.0));
            EXPECT_EQ(b, T3D<double>(0.0, 0.0, 0.0));
            continue;
          }
          ++nonVides;
          const double moyenne = tout.s / tout.n;
          const double variance = tout.q / tout.n - moyenne * moyenne;
          EXPECT_NEAR(st.x, moyenne, 1e-9) << x0 << " " << y0 << " " << x1 << " " << y1;
          // A variance that rounds below zero gives a NaN deviation (kept); only a flat one may.
          if (std::isnan(st.y))
            EXPECT_LT(std::fabs(variance), 1e-9 * tout.q / tout.n);
          else
            EXPECT_NEAR(st.y * st.y, variance, 1e-9 * tout.q / tout.n);
          EXPECT_NEAR(b.x, masque.s, 1e-8);
          EXPECT_NEAR(b.y, masque.q, 1e-6);
          EXPECT_EQ(b.z, masque.n);
          EXPECT_EQ(bf.z, masque.n);
        }
  EXPECT_GT(nonVides, 1000);
  EXPECT_GT(vides, 1000);

  // The whole-image form is the rectangle of the whole image.
  T2D<double> entiere, rectangle;
  stats_images_integrales(S, S2, entiere);
  stats_images_integrales(S, S2, R(0, 0, w - 1, h - 1), rectangle);
  EXPECT_EQ(entiere, rectangle);
  // Corners given in reverse are a crossed rectangle, not a swapped one.
  stats_images_integrales(S, S2, R(5, 5, 2, 2), rectangle);
  EXPECT_EQ(rectangle, T2D<double>(0.0, 0.0));
}

TEST(Integrales, StatistiquesBrutesEntieresSansLaPremiereLigne) {
  std::mt19937 g(13);
  const int w = 17, h = 12;
  const TTImage<float> im = test::ImageAleatoire(w, h, g);
  const TTImage<bool> m = test::MasqueAleatoire(w, h, g);
  TTImage<double> S, S2, N;
  TTImage<float> Nf;
  images_integrales_mask(im, m, S, S2, N);
  T3D<double> b;
  stats_images_integrales_brutes(S, S2, N, b);
  const test::Sommes sansPremiere = test::SommesDirectes(im, &m, 0, 1, w - 1, h - 1);
  EXPECT_NEAR(b.x, sansPremiere.s, 1e-8);
  EXPECT_NEAR(b.y, sansPremiere.q, 1e-5);
  EXPECT_EQ(b.z, sansPremiere.n);
  images_integrales_mask(im, m, S, S2, Nf);
  stats_images_integrales_brutes(S, S2, Nf, b);
  EXPECT_EQ(b.z, sansPremiere.n);

  // One line only: everything is in the first row, so all three sums are 0.
  TTImage<float> un(1, 1, 7.0f);
  TTImage<bool> vrai(1, 1, true);
  images_integrales_mask(un, vrai, S, S2, N);
  stats_images_integrales_brutes(S, S2, N, b);
  EXPECT_EQ(b, T3D<double>(0.0, 0.0, 0.0));
  // A mask false everywhere counts nothing.
  TTImage<bool> faux(w, h, false);
  images_integrales_mask(im, faux, S, S2, N);
  stats_images_integrales_brutes(S, S2, N, R(0, 0, w - 1, h - 1), b);
  EXPECT_EQ(b, T3D<double>(0.0, 0.0, 0.0));
  // An empty image gives zeros rather than reading outside its tables.
  TTImage<float> vide(0, 0, TagNbCanaux(1));
  TTImage<bool> masqueVide(0, 0, TagNbCanaux(1));
  images_integrales_mask(vide, masqueVide, S, S2, N);
  stats_images_integrales_brutes(S, S2, N, b);
  EXPECT_EQ(b, T3D<double>(0.0, 0.0, 0.0));
  T2D<double> st(1.0, 1.0);
  stats_images_integrales(S, S2, st);
  EXPECT_EQ(st, T2D<double>(0.0, 0.0));
}

TEST(Integrales, TraceEtErreurs) {
  TTImage<float> im(3, 2, 2.0f);
  TTImage<bool> m(3, 2, true);
  TTImage<double> S, S2, N;
  images_integrales_mask(im, m, S, S2, N);
  std::ostringstream capture;
  std::streambuf* ancien = std::cout.rdbuf(capture.rdbuf());
  T3D<double> b;
  stats_images_integrales_brutes(S, S2, N, R(-1, -1, 1, 5), b, true);
  std::cout << 0.5 << std::endl;  // the stream's format is restored afterwards
  std::cout.rdbuf(ancien);
  EXPECT_EQ(capture.str(), "Somme : 8.000 ; Somme des carres : 16.000 ; Nombre : 4.000\n0.5\n");

  // A mask of another size, tables of different sizes, a zero-channel source.
  TTImage<bool> petit(3, 1, true);
  EXPECT_THROW(images_integrales_mask(im, petit, S, S2, N), Erreur);
  TTImage<double> autre(2, 2, TagNbCanaux(1));
  T2D<double> st;
  EXPECT_THROW(stats_images_integrales(S, autre, st), Erreur);
  EXPECT_THROW(stats_images_integrales_brutes(S, S2, autre, b), Erreur);
  TTImage<float> sansCanal(3, 2, TagNbCanaux(0));
  EXPECT_THROW(images_integrales(sansCanal, S, S2), Erreur);
  try {
    images_integrales_mask(im, petit, S, S2, N);
  } catch (const Erreur& e) {
    EXPECT_NE(e.Texte().str().find("3 x 1"), std::string::npos) << e.Texte().str();
  }
}

TEST(Morpho, DisqueDansLOrdreDesDecalages) {
  EXPECT_TRUE(Disque(0).empty());
  EXPECT_TRUE(Disque(-3).empty());
  const std::vector<T2D<int>> un = Disque(1);
  const std::vector<T2D<int>> attendu = {T2D<int>(-1, 0), T2D<int>(0, -1), T2D<int>(0, 1), T2D<int>(1, 0)};
  EXPECT_EQ(un, attendu);
  EXPECT_EQ(Disque(2).size(), 12u);
  for (int r = 0; r <= 30; ++r) {
    std::vector<T2D<int>> direct;
    for (int x = -r - 1; x <= r + 1; ++x)
      for (int y = -r - 1; y <= r + 1; ++y)
        if (x * x + y * y <= r * r && (x || y)) direct.emplace_back(x, y);
    EXPECT_EQ(Disque(r), direct) << r;
  }
  EXPECT_THROW(Disque(kRayonDisqueMax + 1), Erreur);
}

// The ordinary dilation: every pixel of the true region moved by every offset.
TTImage<bool> DilatationDirecte(const TTImage<bool>& m, const std::vector<T2D<int>>& d) {
  TTImage<bool> r = m;
  for (int y = 0; y < m.iGetNbLignes(); ++y)
    for (int x = 0; x < m.iGetNbColonnes(); ++x)
      if (m(x, y))
        for (const T2D<int>& o : d)
          if (r.EstDans(x + o.x, y + o.y)) r(x + o.x, y + o.y) = true;
  return r;
}

TEST(Morpho, DilatationRapideEgaleLaDilatationOrdinaire) {
  std::mt19937 g(14);
  const std::vector<std::vector<T2D<int>>> ensembles = {
      Disque(1),
      Disque(3),
      Disque(10),
      Disque(26),
      // Sets that a border-only visit would get wrong: holes and lone far offsets.
      {T2D<int>(5, 0)},
      {T2D<int>(3, -2), T2D<int>(0, 4)},
      {T2D<int>(-40, 40)},
      {}};
  for (double p : {0.02, 0.5, 0.97}) {
    TTImage<bool> m = test::MasqueAleatoire(45, 38, g, p);
    // A solid block, whose inner pixels a border-only visit skips.
    for (int y = 10; y < 30; ++y)
      for (int x = 5; x < 30; ++x) m(x, y) = true;
    for (const auto& d : ensembles) {
      TTImage<bool> sortie;
      MorphoPerso::DilatationRapide(m, sortie, d);
      const TTImage<bool> attendu = DilatationDirecte(m, d);
      ASSERT_EQ(sortie.GetTaille(), m.GetTaille());
      int differences = 0;
      for (int y = 0; y < m.iGetNbLignes(); ++y)
        for (int x = 0; x < m.iGetNbColonnes(); ++x) differences += sortie(x, y) != attendu(x, y);
      EXPECT_EQ(differences, 0) << "p " << p << " offsets " << d.size();
      // Into itself, as the mosaic job does.
      TTImage<bool> memme = m;
      MorphoPerso::DilatationRapide(memme, memme, d);
      differences = 0;
      for (int y = 0; y < m.iGetNbLignes(); ++y)
        for (int x = 0; x < m.iGetNbColonnes(); ++x) differences += memme(x, y) != attendu(x, y);
      EXPECT_EQ(differences, 0);
    }
  }
  TTImage<bool> deuxCanaux(4, 4, TagNbCanaux(2)), sortie;
  EXPECT_THROW(MorphoPerso::DilatationRapide(deuxCanaux, sortie, Disque(1)), Erreur);
}

}  // namespace
