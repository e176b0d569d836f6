// Feathering and multi-band blending: the distance transform and the weights against brute force,
// windows with their margins against the whole image.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "outils_pipeline.h"
#include "pipeline/multibande.h"
#include "pipeline/plume.h"
#include "zepra/erreur.h"
#include "zepra/pipeline/fusion.h"

namespace {

std::vector<unsigned char> Masque(int w, int h, double densite, uint32_t graine) {
  std::vector<unsigned char> m(static_cast<size_t>(w) * h);
  for (int l = 0; l < h; ++l)
    for (int c = 0; c < w; ++c) m[static_cast<size_t>(l) * w + c] = test::Hasard(c, l, graine) < densite;
  return m;
}

// The complement: valid pixels where Masque puts none.
std::vector<unsigned char> Valides(int w, int h, double densiteInvalides, uint32_t graine) {
  std::vector<unsigned char> v = Masque(w, h, densiteInvalides, graine);
  for (unsigned char& x : v) x = !x;
  return v;
}

TEST(Plume, DistanceExacteContreForceBrute) {
  struct Cas {
    int w, h;
    double densite;
  };
  for (const Cas& c : {Cas{1, 1, 1}, Cas{17, 1, 0.1}, Cas{1, 13, 0.2}, Cas{23, 19, 0.02}, Cas{31, 27, 0.3},
                       Cas{40, 9, 0}, Cas{12, 12, 1}, Cas{64, 48, 0.005}}) {
    const std::vector<unsigned char> s = Masque(c.w, c.h, c.densite, c.w * 31 + c.h);
    std::vector<float> d2(s.size());
    DistanceCarree(s.data(), c.w, c.h, c.w, d2.data(), c.w);
    for (int l = 0; l < c.h; ++l)
      for (int k = 0; k < c.w; ++k) {
        double best = std::numeric_limits<double>::infinity();
        for (int y = 0; y < c.h; ++y)
          for (int x = 0; x < c.w; ++x)
            if (s[static_cast<size_t>(y) * c.w + x])
              best = std::min(best, double(x - k) * (x - k) + double(y - l) * (y - l));
        ASSERT_EQ(d2[static_cast<size_t>(l) * c.w + k], static_cast<float>(best))
            << c.w << "x" << c.h << " " << k << "," << l;
      }
  }
}

// The weights of a whole image by the formula, with the brute-force distance to the nearest invalid
// pixel or to the outside of the image.
std::vector<double> PoidsForceBrute(const std::vector<unsigned char>& valide, int W, int H, double L) {
  std::vector<double> attendu(valide.size(), 0.0);
  for (int l = 0; l < H; ++l)
    for (int c = 0; c < W; ++c) {
      if (!valide[static_cast<size_t>(l) * W + c]) continue;
      double d = std::min(std::min(c + 1, W - c), std::min(l + 1, H - l));
      for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
          if (!valide[static_cast<size_t>(y) * W + x]) d = std::min(d, std::hypot(x - c, y - l));
      const double t = L > 0 ? std::min(d, L) / L : 1;
      attendu[static_cast<size_t>(l) * W + c] = L < 1 ? 1 : t * t * (3 - 2 * t);
    }
  return attendu;
}

// The weights of windows, each computed from its validity grown by the margin, equal those of the
// whole image, which follow the formula with the brute-force distance (the image's border included).
TEST(Plume, PoidsDesFenetresEgauxAuxPoidsDeLImage) {
  const int W = 53, H = 41;
  std::vector<unsigned char> valide = Valides(W, H, 0.01, 9);
  for (int l = 30; l < 41; ++l)
    for (int c = 0; c < 12; ++c) valide[static_cast<size_t>(l) * W + c] = 0;  // a no-data corner
  for (double L : {0.0, 0.5, 1.0, 3.0, 7.5, 30.0, 200.0}) {                   // 200: wider than the image
    std::vector<float> image(valide.size());
    PoidsPlume(W, H, Fenetre{0, 0, W, H}, L, valide.data(), W, image.data(), W);
    const std::vector<double> attendu = PoidsForceBrute(valide, W, H, L);
    for (size_t k = 0; k < image.size(); ++k) ASSERT_NEAR(image[k], attendu[k], 1e-6) << L << " " << k;
    for (const Fenetre f :
         {Fenetre{0, 0, 10, 10}, Fenetre{20, 15, 13, 9}, Fenetre{40, 30, 13, 11}, Fenetre{5, 33, 30, 8}}) {
      const Fenetre a = FenetreAgrandie(f, MargePlume(L), W, H);
      std::vector<unsigned char> v(static_cast<size_t>(a.nbColonnes) * a.nbLignes);
      for (int l = 0; l < a.nbLignes; ++l)
        for (int c = 0; c < a.nbColonnes; ++c)
          v[static_cast<size_t>(l) * a.nbColonnes + c] =
              valide[static_cast<size_t>(a.ligne0 + l) * W + a.colonne0 + c];
      std::vector<float> p(static_cast<size_t>(f.nbColonnes) * f.nbLignes);
      PoidsPlume(W, H, f, L, v.data(), a.nbColonnes, p.data(), f.nbColonnes);
      for (int l = 0; l < f.nbLignes; ++l)
        for (int c = 0; c < f.nbColonnes; ++c)
          ASSERT_EQ(p[static_cast<size_t>(l) * f.nbColonnes + c],
                    image[static_cast<size_t>(f.ligne0 + l) * W + f.colonne0 + c])
              << L << " fenetre " << f.colonne0 << "," << f.ligne0 << " pixel " << c << "," << l;
    }
  }
  EXPECT_THROW(MargePlume(-1), Erreur);
  EXPECT_THROW(PoidsPlume(W, H, Fenetre{50, 0, 10, 10}, 3, valide.data(), W, nullptr, 0), Erreur);
}

// Columns taller than the widths: column distances run past what their narrowest storage holds (255
// for widths under 255 pixels) and must saturate as "far", not wrap back to near; widths on both
// sides of that storage's limit, one reused work area for all.
TEST(Plume, PoidsDesColonnesPlusHautesQueLaLargeur) {
  struct Cas {
    int w, h;
    double L, densite;
  };
  TravailPlume travail;
  for (const Cas& c : {Cas{6, 700, 3, 0.002}, Cas{7, 640, 40, 0}, Cas{5, 600, 254.5, 0.001},
                       Cas{5, 620, 255.5, 0.001}, Cas{4, 900, 300, 0.0005}, Cas{300, 3, 20, 0.01}}) {
    const std::vector<unsigned char> valide = Valides(c.w, c.h, c.densite, c.w * 7 + c.h);
    std::vector<float> p(valide.size());
    PoidsPlume(c.w, c.h, Fenetre{0, 0, c.w, c.h}, c.L, valide.data(), c.w, p.data(), c.w, &travail);
    const std::vector<double> attendu = PoidsForceBrute(valide, c.w, c.h, c.L);
    for (size_t k = 0; k < p.size(); ++k)
      ASSERT_NEAR(p[k], attendu[k], 1e-6) << c.w << "x" << c.h << " L " << c.L << " pixel " << k;
  }
}

// The feathering rule walks consecutive input columns by selects: the same sums, bit for bit, as its
// general walk, with invalid input pixels (NaN among them), pixels no input covers, a pixel's first
// contribution anywhere in the inputs' order, and one accumulator reused for a second band of rows.
TEST(Plume, LignesContiguesCommeLeCasGeneral) {
  const int W = 41, H = 3, entrees = 3;
  const std::unique_ptr<RegleFusion> regle = ChercherFusion("plume")->creer(ParametresFusion{10.0});
  std::unique_ptr<AccumulateurFusion> acc[2];
  for (int y0 : {0, 5}) {
    std::vector<float> resultats[2];
    for (int contigu = 0; contigu < 2; ++contigu) {
      std::vector<float> sortie(static_cast<size_t>(W) * H, 0.0f);
      std::vector<unsigned char> couvert(sortie.size(), 0);
      float* plans[1] = {sortie.data()};
      const BandeSortie bande{W, y0, y0 + H, 1, plans, couvert.data()};
      if (acc[contigu])
        acc[contigu]->Reprendre(bande);
      else
        acc[contigu] = regle->Accumulateur(bande);
      for (int i = 0; i < entrees; ++i) {
        // Input i covers output columns [c0, c1), from its column 3 on.
        const int c0 = 4 * i + (y0 ? 1 : 0), c1 = W - 9 + 3 * i, n = c1 - c0 + 3;
        std::vector<unsigned char> dedans(W, 0);
        std::vector<int> colonne(W, 0);
        for (int c = c0; c < c1; ++c) dedans[c] = 1, colonne[c] = c - c0 + 3;
        for (int y = y0; y < y0 + H; ++y) {
          std::vector<float> v(n), w(n);
          std::vector<unsigned char> ok(n);
          for (int k = 0; k < n; ++k) {
            ok[k] = test::Hasard(k, y, 7 + i) > 0.25;
            v[k] = ok[k] ? static_cast<float>(test::Hasard(k, y, 9 + i) * 250) : NAN;
            w[k] = static_cast<float>(0.01 + test::Hasard(k, y, 13 + i));
          }
          const float* valeurs[1] = {v.data()};
          LigneContribution l{i, y, c0, c1, dedans.data(), colonne.data(), 0, 0, n, H, valeurs, ok.data()};
          l.poids = w.data();
          l.contigu = contigu == 1;
          acc[contigu]->Ajouter(l);
        }
      }
      acc[contigu]->Terminer();
      resultats[contigu] = sortie;
      resultats[contigu].insert(resultats[contigu].end(), couvert.begin(), couvert.end());
    }
    ASSERT_EQ(resultats[0].size(), resultats[1].size());
    for (size_t k = 0; k < resultats[0].size(); ++k)
      ASSERT_EQ(std::memcmp(&resultats[0][k], &resultats[1][k], sizeof(float)), 0) << y0 << " " << k;
  }
}

TEST(Plume, MoyennePondereeEtAbsences) {
  FusionPlume f(3, 1, 2);
  const float v1[3] = {10, 20, 30}, p1[3] = {1, 0.25f, 0}, v2[3] = {20, 40, 50}, p2[3] = {1, 0.75f, 0};
  for (int b = 0; b < 2; ++b) {
    f.Ajouter(b, 0, 0, 3, v1, p1);
    f.Ajouter(b, 0, 0, 3, v2, p2);
  }
  float o[3];
  f.Terminer(1, 0, o, -9);
  EXPECT_FLOAT_EQ(o[0], 15);
  EXPECT_FLOAT_EQ(o[1], 35);
  EXPECT_EQ(o[2], -9);
}

// Two images over a window: the left one covers columns [0, 70), the right one [50, 120).
struct DeuxImages {
  int W = 120, H = 40;
  std::vector<float> v[2], p[2];
  DeuxImages(float gauche, float droite, bool texture) {
    for (int i = 0; i < 2; ++i) {
      v[i].resize(static_cast<size_t>(W) * H);
      p[i].resize(v[i].size());
      for (int l = 0; l < H; ++l)
        for (int c = 0; c < W; ++c) {
          const size_t k = static_cast<size_t>(l) * W + c;
          const bool dedans = i == 0 ? c < 70 : c >= 50;
          v[i][k] = (i == 0 ? gauche : droite) + (texture ? static_cast<float>(test::Scene(c, l)) : 0.0f);
          p[i][k] = dedans ? static_cast<float>(1 + (i == 0 ? 70 - c : c - 49)) : 0.0f;
        }
    }
  }
  std::vector<float> Melanger(int niveaux, int x0 = 0, int w = -1) const {
    if (w < 0) w = W;
    std::vector<float> vv[2], pp[2];
    std::vector<ContributionMultibande> c(2);
    for (int i = 0; i < 2; ++i) {
      for (int l = 0; l < H; ++l) {
        vv[i].insert(vv[i].end(), v[i].begin() + l * W + x0, v[i].begin() + l * W + x0 + w);
        pp[i].insert(pp[i].end(), p[i].begin() + l * W + x0, p[i].begin() + l * W + x0 + w);
      }
      c[i].valeurs = vv[i].data();
      c[i].poids = pp[i].data();
    }
    std::vector<float> o(static_cast<size_t>(w) * H);
    MelangerMultibande(c, w, H, 1, niveaux, o.data(), -1);
    return o;
  }
};

// Where the images agree the blend gives their values back, whatever the levels.
TEST(Multibande, ImagesEgalesRendentLeursValeurs) {
  const DeuxImages d(0, 0, true);
  for (int n : {0, 1, 3, 5}) {
    const std::vector<float> o = d.Melanger(n);
    for (int l = 0; l < d.H; ++l)
      for (int c = 0; c < d.W; ++c)
        EXPECT_NEAR(o[l * d.W + c], d.v[c < 60 ? 0 : 1][l * d.W + c], 1e-3) << n << " " << c << "," << l;
  }
}

// A step of 20 between two flat images becomes a monotone transition about 2^niveaux wide, and the
// values far from the seam stay those of their image.
TEST(Multibande, MarcheAdoucieSurLaLargeurDesNiveaux) {
  const DeuxImages d(100, 120, false);
  const int n = 3;
  const std::vector<float> o = d.Melanger(n);
  for (int l = 0; l < d.H; ++l) {
    for (int c = 1; c < d.W; ++c) ASSERT_GE(o[l * d.W + c] + 1e-3, o[l * d.W + c - 1]) << c << "," << l;
    EXPECT_NEAR(o[l * d.W + 20], 100, 1e-3);
    EXPECT_NEAR(o[l * d.W + 100], 120, 1e-3);
    EXPECT_GT(o[l * d.W + 58], 101);
    EXPECT_LT(o[l * d.W + 62], 119);
  }
  // One image alone: its own values.
  std::vector<ContributionMultibande> c(1);
  c[0].valeurs = d.v[0].data();
  c[0].poids = d.p[0].data();
  std::vector<float> seule(d.v[0].size());
  MelangerMultibande(c, d.W, d.H, 1, 4, seule.data(), -1);
  for (size_t k = 0; k < seule.size(); ++k) ASSERT_NEAR(seule[k], k % d.W < 70 ? 100 : -1, 1e-3) << k;
}

// A tile whose origin is on a multiple of 2^niveaux, grown by the margin, gives the whole window's values.
TEST(Multibande, TuileAvecMargeEgaleAuTout) {
  DeuxImages d(100, 121, true);
  d.W = 120;
  const int n = 2, m = MargeMultibande(n);
  const std::vector<float> tout = d.Melanger(n);
  const int x0 = 32 + m, w = 24;  // the tile [x0, x0 + w), read from x0 - m on
  const std::vector<float> tuile = d.Melanger(n, x0 - m, w + 2 * m);
  for (int l = 0; l < d.H; ++l)
    for (int c = 0; c < w; ++c)
      ASSERT_EQ(tuile[l * (w + 2 * m) + m + c], tout[l * d.W + x0 + c]) << c << "," << l;
  EXPECT_THROW(MargeMultibande(13), Erreur);
}

}  // namespace
