// Integral images and their statistics against direct sums; the disc of offsets and the dilation
// against their brute-force definitions.
#include <gtest/gtest.h>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "zepra/pipeline/integrales.h"

namespace {

using Rect = T2D<T2D<int>>;

// Raw sums equal to the direct ones, the squares to rounding.
bool MemesSommes(const T3D<double>& b, const test::Sommes& s) {
  return std::fabs(b.x - s.s) < 1e-8 && std::fabs(b.y - s.q) < 1e-6 && b.z == s.n;
}

// Every rectangle with corners in [-3, size + 2], crossed ones included: those from (0, 0) are the
// table entries themselves, the others the four-corner rule, clamping and the empty rectangle.
TEST(Integrales, StatistiquesContreLesSommesDirectesTraceEtRefus) {
  std::mt19937 g(12);
  // Tables that already hold another shape and channel count are reshaped.
  TTImage<double> S(5, 5, TagNbCanaux(2)), S2, Sm, S2m, N, Sf, S2f;
  TTImage<float> Nf;
  T2D<double> st;
  T3D<double> b, bf;
  const int tailles[][2] = {{1, 1}, {1, 6}, {7, 1}, {13, 9}};
  for (const auto& t : tailles) {
    const int w = t[0], h = t[1];
    // A second channel of large values, which must not count: only channel 0 does.
    TTImage<float> im(w, h, TagNbCanaux(2));
    im.CopierCanal(test::ImageAleatoire(w, h, g, -50.0f, 300.0f), 0, 0);
    im.CopierCanal(test::ImageAleatoire(w, h, g, 1e6f, 2e6f), 0, 1);
    const TTImage<bool> m = test::MasqueAleatoire(w, h, g, 0.5);
    images_integrales(im, S, S2);
    images_integrales_mask(im, m, Sm, S2m, N);
    images_integrales_mask(im, m, Sf, S2f, Nf);
    ASSERT_EQ(S.GetNbCanaux(), 1);
    // The whole-image raw sums leave the first row out (kept); the whole-image statistics do not.
    stats_images_integrales_brutes(Sm, S2m, N, b);
    EXPECT_TRUE(MemesSommes(b, test::SommesDirectes(im, &m, 0, 1, w - 1, h - 1))) << w << "x" << h;
    stats_images_integrales(S, S2, st);
    EXPECT_NEAR(st.x, test::SommesDirectes(im, nullptr, 0, 0, w - 1, h - 1).moyenne(), 1e-9);
    for (int y0 = -3; y0 <= h + 2; ++y0)
      for (int y1 = y0 - 2; y1 <= h + 2; ++y1)
        for (int x0 = -3; x0 <= w + 2; ++x0)
          for (int x1 = x0 - 2; x1 <= w + 2; ++x1) {
            const Rect r(T2D<int>(x0, y0), T2D<int>(x1, y1));
            stats_images_integrales(S, S2, r, st);
            stats_images_integrales_brutes(Sm, S2m, N, r, b);
            stats_images_integrales_brutes(Sf, S2f, Nf, r, bf);
            const test::Sommes tout = test::SommesDirectes(im, nullptr, x0, y0, x1, y1);
            const test::Sommes masque = test::SommesDirectes(im, &m, x0, y0, x1, y1);
            std::ostringstream cas;
            cas << w << "x" << h << " " << x0 << "," << y0 << " " << x1 << "," << y1;
            // Clamped corners that cross: zeros, no division. A variance that rounds below zero gives
            // a NaN deviation (kept): only a flat rectangle may.
            const double variance = tout.ecart() * tout.ecart(),
                         ecart = 1e-9 * tout.q / std::max(tout.n, 1.0);
            ASSERT_NEAR(st.x, tout.moyenne(), 1e-9) << cas.str();
            ASSERT_TRUE(std::isnan(st.y) ? variance <= ecart : std::fabs(st.y * st.y - variance) <= ecart)
                << cas.str() << " " << st.y;
            ASSERT_TRUE(MemesSommes(b, masque) && MemesSommes(bf, masque)) << cas.str();
          }
  }
  // An empty image: zeros, nothing read outside the tables.
  images_integrales_mask(TTImage<float>(0, 0, TagNbCanaux(1)), TTImage<bool>(0, 0, TagNbCanaux(1)), S, S2, N);
  stats_images_integrales_brutes(S, S2, N, b);
  EXPECT_EQ(b, T3D<double>(0.0, 0.0, 0.0));

  // The trace line, the stream's format restored afterwards.
  const TTImage<float> im32(3, 2, 2.0f);
  images_integrales_mask(im32, TTImage<bool>(3, 2, true), S, S2, N);
  test::CaptureSortie capture;
  stats_images_integrales_brutes(S, S2, N, Rect(T2D<int>(-1, -1), T2D<int>(1, 5)), b, true);
  std::cout << 0.5 << std::endl;
  EXPECT_EQ(capture.texte(), "Somme : 8.000 ; Somme des carres : 16.000 ; Nombre : 4.000\n0.5\n");

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
  for (int r = -3; r <= 30; ++r) {
    std::vector<T2D<int>> direct;
    for (int x = -r - 1; x <= r + 1; ++x)
      for (int y = -r - 1; y <= r + 1; ++y)
        if (x * x + y * y <= r * r && (x || y)) direct.emplace_back(x, y);
    EXPECT_EQ(Disque(r), direct) << r;
  }

  std::mt19937 g(14);
  // Discs, and sets a border-only visit would get wrong: holes and lone far offsets.
  using O = T2D<int>;
  const std::vector<std::vector<O>> ensembles = {Disque(1), Disque(3),           Disque(26),   {O(5, 0)},
                                                 {O(0, 3)}, {O(3, -2), O(0, 4)}, {O(-40, 40)}, {}};
  for (double p : {0.02, 0.5, 0.97}) {
    TTImage<bool> m = test::MasqueAleatoire(45, 38, g, p);
    for (const auto& d : ensembles) {
      TTImage<bool> attendu = m, sortie, surPlace = m;
      for (int y = 0; y < m.iGetNbLignes(); ++y)
        for (int x = 0; x < m.iGetNbColonnes(); ++x)
          for (const T2D<int>& o : d)
            if (m(x, y) && attendu.EstDans(x + o.x, y + o.y)) attendu(x + o.x, y + o.y) = true;
      MorphoPerso::DilatationRapide(m, sortie, d);
      MorphoPerso::DilatationRapide(surPlace, surPlace, d);  // into itself, as the mosaic job does
      ASSERT_EQ(sortie.GetTaille(), m.GetTaille());
      EXPECT_TRUE(std::equal(attendu.begin(), attendu.end(), sortie.begin()) &&
                  std::equal(attendu.begin(), attendu.end(), surPlace.begin()))
          << "p " << p << " decalages " << d.size();
    }
  }
}

}  // namespace
