// Integral images and their statistics against direct sums; the disc of offsets and the dilation
// against their brute-force definitions.
#include <gtest/gtest.h>

#include "integrales.h"
#include "outils_radiometrie.h"
#include "outils_test.h"

namespace {

using Rect = T2D<T2D<int>>;
Rect R(int x0, int y0, int x1, int y1) { return Rect(T2D<int>(x0, y0), T2D<int>(x1, y1)); }

// Every rectangle with corners in [-3, size + 2], crossed ones included: those from (0, 0) are the
// table entries themselves, the others the four-corner rule, clamping and the empty rectangle.
TEST(Integrales, StatistiquesDeTousLesRectanglesContreLesSommesDirectes) {
  std::mt19937 g(12);
  // Tables that already hold another shape and channel count are reshaped.
  TTImage<double> S(5, 5, TagNbCanaux(2)), S2, Sm, S2m, N, Sf, S2f;
  TTImage<float> Nf;
  const int tailles[][2] = {{1, 1}, {1, 6}, {7, 1}, {13, 9}};
  for (const auto& t : tailles) {
    const int w = t[0], h = t[1];
    const TTImage<float> im = test::ImageAleatoire(w, h, g, -50.0f, 300.0f);
    const TTImage<bool> m = test::MasqueAleatoire(w, h, g, 0.5);
    images_integrales(im, S, S2);
    images_integrales_mask(im, m, Sm, S2m, N);
    images_integrales_mask(im, m, Sf, S2f, Nf);
    ASSERT_EQ(S.GetNbCanaux(), 1);
    for (int y0 = -3; y0 <= h + 2; ++y0)
      for (int y1 = y0 - 2; y1 <= h + 2; ++y1)
        for (int x0 = -3; x0 <= w + 2; ++x0)
          for (int x1 = x0 - 2; x1 <= w + 2; ++x1) {
            const Rect r = R(x0, y0, x1, y1);
            T2D<double> st;
            T3D<double> b, bf;
            stats_images_integrales(S, S2, r, st);
            stats_images_integrales_brutes(Sm, S2m, N, r, b);
            stats_images_integrales_brutes(Sf, S2f, Nf, r, bf);
            const test::Sommes tout = test::SommesDirectes(im, nullptr, x0, y0, x1, y1);
            const test::Sommes masque = test::SommesDirectes(im, &m, x0, y0, x1, y1);
            std::ostringstream cas;
            cas << w << "x" << h << " " << x0 << "," << y0 << " " << x1 << "," << y1;
            if (tout.n == 0) {  // clamped corners that cross: zeros, no division
              ASSERT_EQ(st, T2D<double>(0.0, 0.0)) << cas.str();
            } else {
              const double moyenne = tout.s / tout.n, variance = tout.q / tout.n - moyenne * moyenne;
              ASSERT_NEAR(st.x, moyenne, 1e-9) << cas.str();
              // A variance that rounds below zero gives a NaN deviation (kept); only a flat one may.
              if (std::isnan(st.y))
                ASSERT_LT(std::fabs(variance), 1e-9 * tout.q / tout.n) << cas.str();
              else
                ASSERT_NEAR(st.y * st.y, variance, 1e-9 * tout.q / tout.n) << cas.str();
            }
            for (const T3D<double>& brutes : {b, bf}) {
              ASSERT_NEAR(brutes.x, masque.s, 1e-8) << cas.str();
              ASSERT_NEAR(brutes.y, masque.q, 1e-6) << cas.str();
              ASSERT_EQ(brutes.z, masque.n) << cas.str();
            }
          }
  }

  // A multi-channel source contributes its channel 0 only.
  TTImage<float> rvb(2, 1, TagNbCanaux(3));
  rvb.RemplirValeur(100.0f);
  rvb(0, 0, 0) = 1.0f;
  rvb(1, 0, 0) = 2.0f;
  images_integrales(rvb, S, S2);
  EXPECT_EQ(S(1, 0), 3.0);
  EXPECT_EQ(S2(1, 0), 5.0);
}

TEST(Integrales, SommesBrutesEntieresSansLaPremiereLigneTraceEtRefus) {
  std::mt19937 g(13);
  const int w = 17, h = 12;
  const TTImage<float> im = test::ImageAleatoire(w, h, g);
  const TTImage<bool> m = test::MasqueAleatoire(w, h, g);
  TTImage<double> S, S2, N;
  T3D<double> b;
  const test::Sommes sansPremiere = test::SommesDirectes(im, &m, 0, 1, w - 1, h - 1);
  images_integrales_mask(im, m, S, S2, N);
  stats_images_integrales_brutes(S, S2, N, b);
  EXPECT_NEAR(b.x, sansPremiere.s, 1e-8);
  EXPECT_NEAR(b.y, sansPremiere.q, 1e-5);
  EXPECT_EQ(b.z, sansPremiere.n);
  T2D<double> st;  // the whole-image form counts every pixel, first row included
  stats_images_integrales(S, S2, st);
  EXPECT_NEAR(st.x, test::SommesDirectes(im, &m, 0, 0, w - 1, h - 1).s / (w * h), 1e-9);
  // An empty image: zeros, nothing read outside the tables.
  images_integrales_mask(TTImage<float>(0, 0, TagNbCanaux(1)), TTImage<bool>(0, 0, TagNbCanaux(1)), S, S2, N);
  stats_images_integrales_brutes(S, S2, N, b);
  EXPECT_EQ(b, T3D<double>(0.0, 0.0, 0.0));
  stats_images_integrales(S, S2, st);
  EXPECT_EQ(st, T2D<double>(0.0, 0.0));

  // The trace line, the stream's format restored afterwards.
  images_integrales_mask(TTImage<float>(3, 2, 2.0f), TTImage<bool>(3, 2, true), S, S2, N);
  {
    test::CaptureSortie capture;
    stats_images_integrales_brutes(S, S2, N, R(-1, -1, 1, 5), b, true);
    std::cout << 0.5 << std::endl;
    EXPECT_EQ(capture.texte(), "Somme : 8.000 ; Somme des carres : 16.000 ; Nombre : 4.000\n0.5\n");
  }

  const TTImage<float> im32(3, 2, 2.0f);
  test::Refuse(
      [&] { images_integrales_mask(im32, TTImage<bool>(3, 1, true), S, S2, N); },
      "[Integrales] (images_integrales_mask) Masque de taille 3 x 1 pour une image de taille 3 x 2.");
  test::Refuse(
      [&] { stats_images_integrales(S, TTImage<double>(2, 2, TagNbCanaux(1)), st); },
      "[Integrales] (stats_images_integrales) Table S2 de taille 2 x 2 pour une table S de taille 3 x 2.");
  test::Refuse([] { Disque(kRayonDisqueMax + 1); },
               "[Integrales] (Disque) Rayon 2049 trop grand (au plus 2048).");
}

TEST(Morpho, DisqueEtDilatationContreLeursDefinitions) {
  const std::vector<T2D<int>> quatre = {T2D<int>(-1, 0), T2D<int>(0, -1), T2D<int>(0, 1), T2D<int>(1, 0)};
  EXPECT_EQ(Disque(1), quatre);
  for (int r = -3; r <= 30; ++r) {
    std::vector<T2D<int>> direct;
    for (int x = -r - 1; x <= r + 1; ++x)
      for (int y = -r - 1; y <= r + 1; ++y)
        if (x * x + y * y <= r * r && (x || y)) direct.emplace_back(x, y);
    EXPECT_EQ(Disque(r), direct) << r;
  }

  std::mt19937 g(14);
  // Discs, and sets a border-only visit would get wrong: holes and lone far offsets.
  const std::vector<std::vector<T2D<int>>> ensembles = {
      Disque(1),           Disque(3), Disque(26), {T2D<int>(5, 0)}, {T2D<int>(3, -2), T2D<int>(0, 4)},
      {T2D<int>(-40, 40)}, {}};
  for (double p : {0.02, 0.5, 0.97}) {
    TTImage<bool> m = test::MasqueAleatoire(45, 38, g, p);
    for (int y = 10; y < 30; ++y)  // a solid block, whose inner pixels a border-only visit skips
      for (int x = 5; x < 30; ++x) m(x, y) = true;
    for (const auto& d : ensembles) {
      TTImage<bool> attendu = m, sortie, surPlace = m;
      for (int y = 0; y < m.iGetNbLignes(); ++y)
        for (int x = 0; x < m.iGetNbColonnes(); ++x)
          for (const T2D<int>& o : d)
            if (m(x, y) && attendu.EstDans(x + o.x, y + o.y)) attendu(x + o.x, y + o.y) = true;
      MorphoPerso::DilatationRapide(m, sortie, d);
      MorphoPerso::DilatationRapide(surPlace, surPlace, d);  // into itself, as the mosaic job does
      ASSERT_EQ(sortie.GetTaille(), m.GetTaille());
      int differences = 0;
      for (int y = 0; y < m.iGetNbLignes(); ++y)
        for (int x = 0; x < m.iGetNbColonnes(); ++x)
          differences += (sortie(x, y) != attendu(x, y)) + (surPlace(x, y) != attendu(x, y));
      EXPECT_EQ(differences, 0) << "p " << p << " decalages " << d.size();
    }
  }
}

}  // namespace
