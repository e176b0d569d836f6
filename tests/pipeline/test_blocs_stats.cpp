// Block statistics gathered window by window against a direct count, and the observations of pairs.
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "outils_pipeline.h"
#include "outils_test.h"
#include "zepra/erreur.h"

namespace {

// Values on a grid of eighths, so that every sum is exact whatever the order.
float Valeur(int c, int l, int b) {
  return static_cast<float>(std::floor(test::Hasard(c, l, 11 + b) * 2000) / 8);
}

TEST(StatsBlocs, EgalesAuComptageDirectPourToutPlacement) {
  const Placement placements[] = {
      {3, 5, 1, 1}, {-7.5, 2.25, 0.5, 0.5}, {10, -20, 2, 2}, {0.3, 0.7, 1.5, 0.75}, {90, 0, 1, 1}};
  GrilleBlocs g;
  g.colonnes = 70;
  g.lignes = 45;
  g.bloc = 8;
  const int W = 37, H = 29, nb = 2;
  // Interleaved samples, some invalid pixels, a NaN in one band.
  std::vector<float> v(static_cast<size_t>(W) * H * nb);
  std::vector<unsigned char> valide(static_cast<size_t>(W) * H);
  for (int l = 0; l < H; ++l)
    for (int c = 0; c < W; ++c) {
      for (int b = 0; b < nb; ++b) v[(static_cast<size_t>(l) * W + c) * nb + b] = Valeur(c, l, b);
      valide[static_cast<size_t>(l) * W + c] = test::Hasard(c, l, 5) > 0.2;
    }
  v[(5 * W + 6) * nb + 1] = std::nanf("");
  for (const Placement& p : placements) {
    StatsBlocs s(g, p, W, H, nb);
    // Windows of 10 x 7, in an odd order.
    for (int l0 = (H - 1) / 7 * 7; l0 >= 0; l0 -= 7)
      for (int c0 = 0; c0 < W; c0 += 10) {
        const int nc = std::min(10, W - c0), nl = std::min(7, H - l0);
        const size_t debut = static_cast<size_t>(l0) * W + c0;
        const float* bandes[2] = {&v[debut * nb], &v[debut * nb + 1]};
        s.Ajouter(c0, l0, nc, nl, bandes, nb, static_cast<std::ptrdiff_t>(W) * nb, &valide[debut], W);
      }
    std::map<std::pair<long long, long long>, std::vector<double>> attendu;
    for (int l = 0; l < H; ++l)
      for (int c = 0; c < W; ++c) {
        const double X = p.x0 + p.sx * (c + 0.5), Y = p.y0 + p.sy * (l + 0.5);
        const float* px = &v[(static_cast<size_t>(l) * W + c) * nb];
        if (!valide[static_cast<size_t>(l) * W + c] || std::isnan(px[1])) continue;
        if (X < 0 || Y < 0 || X >= g.colonnes || Y >= g.lignes) continue;
        std::vector<double>& a = attendu[{static_cast<long long>(X) / 8, static_cast<long long>(Y) / 8}];
        a.resize(1 + 2 * nb);
        a[0] += 1;
        for (int b = 0; b < nb; ++b) {
          a[1 + 2 * b] += px[b];
          a[2 + 2 * b] += static_cast<double>(px[b]) * px[b];
        }
      }
    size_t blocsNonVides = 0;
    for (long long by = 0; by < g.NbBlocsY(); ++by)
      for (long long bx = 0; bx < g.NbBlocsX(); ++bx) {
        const double* b = s.Bloc(bx, by);
        const auto it = attendu.find({bx, by});
        if (!b || b[0] == 0) {
          EXPECT_TRUE(it == attendu.end()) << bx << " " << by;
          continue;
        }
        ++blocsNonVides;
        ASSERT_TRUE(it != attendu.end()) << bx << " " << by;
        for (int q = 0; q < 1 + 2 * nb; ++q) EXPECT_EQ(b[q], it->second[q]) << bx << " " << by << " " << q;
      }
    EXPECT_EQ(blocsNonVides, attendu.size()) << p.x0;
    // The summary's totals are those of the pixels.
    const ResumeImage r = Resumer(s);
    double n = 0, somme = 0;
    for (const auto& a : attendu) {
      n += a.second[0];
      somme += a.second[3];
    }
    EXPECT_EQ(r.compte, n);
    EXPECT_EQ(r.bandes[1].somme, somme);
    EXPECT_DOUBLE_EQ(r.bandes[1].momentsValeur[0], somme);
    EXPECT_DOUBLE_EQ(r.surface, n * p.sx * p.sy);
  }
}

// Whole samples are summed by runs in integers: the sums must be bit for bit those of the
// pixel-by-pixel additions in the reading order, also in blocks where a fraction came first (there
// the order matters in the last bits: each block's first sample has one), for samples beyond 16 bits, NaN
// under the mask, planar or interleaved bands.
TEST(StatsBlocs, SommesDesEntiersCommePixelParPixel) {
  struct Cas {
    const char* nom;
    double fractions;  // share of samples with a fraction
    double grands;     // share of samples beyond 16 bits
    int nb;
  };
  const Cas cas[] = {
      {"entiers", 0, 0, 1}, {"fractions", 0.02, 0, 1}, {"grands", 0, 0.01, 2}, {"melange", 0.01, 0.01, 2}};
  GrilleBlocs g;
  g.colonnes = g.lignes = 64;
  g.bloc = 16;
  const int W = 64, H = 64;
  for (const Cas& k : cas) {
    std::vector<double> v(static_cast<size_t>(W) * H * k.nb);
    std::vector<unsigned char> valide(static_cast<size_t>(W) * H);
    for (int l = 0; l < H; ++l)
      for (int c = 0; c < W; ++c) {
        valide[static_cast<size_t>(l) * W + c] = test::Hasard(c, l, 3) > 0.1;
        for (int b = 0; b < k.nb; ++b) {
          const double h = test::Hasard(c, l, 17 + b);
          // High values, so that the sums cross powers of two where a fraction loses bits.
          double x = std::floor(h * 1536) + 64000;
          if (test::Hasard(c, l, 29 + b) < k.fractions || (k.fractions > 0 && c % 16 == 0 && l % 16 == 0))
            x += 0.3;
          if (test::Hasard(c, l, 41 + b) < k.grands) x += 70000;
          v[(static_cast<size_t>(l) * W + c) * k.nb + b] = valide[static_cast<size_t>(l) * W + c] ? x : NAN;
        }
      }
    std::vector<double> attendu(static_cast<size_t>(4 * 4 * (1 + 2 * k.nb)), 0.0);
    for (int l = 0; l < H; ++l)
      for (int c = 0; c < W; ++c) {
        if (!valide[static_cast<size_t>(l) * W + c]) continue;
        double* a = &attendu[static_cast<size_t>((l / 16) * 4 + c / 16) * (1 + 2 * k.nb)];
        a[0] += 1;
        for (int b = 0; b < k.nb; ++b) {
          const double x = v[(static_cast<size_t>(l) * W + c) * k.nb + b];
          a[1 + 2 * b] += x;
          a[2 + 2 * b] += x * x;
        }
      }
    // Interleaved as doubles, and planar as floats when the values are floats exactly.
    StatsBlocs entrelace(g, Placement(), W, H, k.nb);
    std::vector<const double*> bandes(k.nb);
    for (int b = 0; b < k.nb; ++b) bandes[b] = v.data() + b;
    entrelace.Ajouter(0, 0, W, H, bandes.data(), k.nb, static_cast<std::ptrdiff_t>(W) * k.nb, valide.data(),
                      W);
    EXPECT_EQ(entrelace.Donnees(), attendu) << k.nom;
    std::vector<float> plans(v.size());
    bool flottants = true;
    for (int b = 0; b < k.nb; ++b)
      for (size_t p = 0; p < static_cast<size_t>(W) * H; ++p) {
        plans[b * static_cast<size_t>(W) * H + p] = static_cast<float>(v[p * k.nb + b]);
        flottants = flottants && !(plans[b * static_cast<size_t>(W) * H + p] != v[p * k.nb + b]);
      }
    if (!flottants) continue;
    StatsBlocs planaire(g, Placement(), W, H, k.nb);
    std::vector<const float*> parBande(k.nb);
    for (int b = 0; b < k.nb; ++b) parBande[b] = plans.data() + b * static_cast<size_t>(W) * H;
    planaire.Ajouter(0, 0, W, H, parBande.data(), 1, W, valide.data(), W);
    EXPECT_EQ(planaire.Donnees(), attendu) << k.nom;
  }
}

// The summary's sums, in a fixed order, to be compared bit for bit.
std::vector<double> SommesDuResume(const ResumeImage& r) {
  std::vector<double> v = {r.compte, r.surface};
  v.insert(v.end(), std::begin(r.momentsMonomes), std::end(r.momentsMonomes));
  for (const ResumeImage::Bande& b : r.bandes) {
    v.insert(v.end(), {b.somme, b.sommeCarres, b.sommeEcarts});
    v.insert(v.end(), std::begin(b.momentsValeur), std::end(b.momentsValeur));
    v.insert(v.end(), std::begin(b.momentsCompte), std::end(b.momentsCompte));
    v.insert(v.end(), std::begin(b.momentsEcart), std::end(b.momentsEcart));
  }
  return v;
}

// An input of 300 x 300 pixels whose neighbour reaches only a strip of its right edge: told to keep
// the blocks the neighbour reaches, the statistics hold those alone once every line is in (not the
// input's whole footprint), and give the same summary bit for bit, the same kept blocks and the same
// observations as statistics keeping every block, whatever the order of the windows (lines of blocks
// wait for those above them). Their copy for the work folder restores the same statistics.
TEST(StatsBlocs, SeulsLesBlocsRecouvertsGardes) {
  GrilleBlocs g;
  g.colonnes = 560;
  g.lignes = 300;
  g.bloc = 8;
  const int W = 300, H = 300, nb = 2;
  const Placement pa{0, 0, 1, 1}, pb{280, 4, 1, 1};
  // Eighths: the blocks' sums are exact whatever the order of the windows, the summary's moments (sums
  // of products by the terms) are not.
  std::vector<float> v(static_cast<size_t>(W) * H * nb);
  std::vector<unsigned char> valide(static_cast<size_t>(W) * H);
  for (int l = 0; l < H; ++l)
    for (int c = 0; c < W; ++c) {
      for (int b = 0; b < nb; ++b) v[(static_cast<size_t>(l) * W + c) * nb + b] = Valeur(c, l, b);
      valide[static_cast<size_t>(l) * W + c] = test::Hasard(c, l, 7) > 0.05;
    }
  const ZoneBlocs zb = EmpriseBlocs(g, pb, W, H);
  EXPECT_EQ(zb.bx0, 35);
  EXPECT_EQ(zb.nbBx, 35);
  const auto remplir = [&](StatsBlocs& s, bool aRebours, int lignes) {
    for (int k = 0; k < (H + lignes - 1) / lignes; ++k) {
      const int l0 = (aRebours ? (H - 1) / lignes - k : k) * lignes, n = std::min(lignes, H - l0);
      const size_t debut = static_cast<size_t>(l0) * W;
      const float* bandes[2] = {&v[debut * nb], &v[debut * nb + 1]};
      s.Ajouter(0, l0, W, n, bandes, nb, static_cast<std::ptrdiff_t>(W) * nb, &valide[debut], W);
    }
  };
  StatsBlocs tout(g, pa, W, H, nb);
  remplir(tout, false, 16);
  // The other input alone, every block of it.
  std::vector<float> vb(v);
  StatsBlocs b(g, pb, W, H, nb);
  {
    const float* bandes[2] = {vb.data(), vb.data() + 1};
    b.Ajouter(0, 0, W, H, bandes, nb, static_cast<std::ptrdiff_t>(W) * nb, valide.data(), W);
  }
  const ObservationsBlocs obsTout = ObserverBlocs({&tout, &b}, ParametresObservationsBlocs());
  ASSERT_EQ(obsTout.blocs.size(), 72u);  // 2 whole columns of blocks over 36 lines
  struct Cas {
    const char* nom;
    bool aRebours;
    int lignes;
  };
  for (const Cas& k : {Cas{"par 16 lignes", false, 16}, Cas{"par 7 lignes", false, 7},
                       Cas{"a rebours par 11 lignes", true, 11}}) {
    StatsBlocs s(g, pa, W, H, nb, {zb});
    remplir(s, k.aRebours, k.lignes);
    // The kept blocks: the 3 columns of blocks 35 to 37 over the 38 lines, 5 values each.
    EXPECT_EQ(s.Donnees().size(), 3u * 38u * 5u) << k.nom;
    EXPECT_LT(s.Octets(), tout.Octets() / 8) << k.nom;
    EXPECT_EQ(SommesDuResume(Resumer(s)), SommesDuResume(Resumer(tout))) << k.nom;
    for (long long by = 0; by < 38; ++by)
      for (long long bx = 0; bx < 38; ++bx) {
        const double* a = s.Bloc(bx, by);
        if (bx < 35) {
          EXPECT_EQ(a, nullptr) << k.nom << " " << bx << " " << by;
          continue;
        }
        ASSERT_NE(a, nullptr) << k.nom << " " << bx << " " << by;
        EXPECT_EQ(std::vector<double>(a, a + 5),
                  std::vector<double>(tout.Bloc(bx, by), tout.Bloc(bx, by) + 5));
      }
    const ObservationsBlocs obs = ObserverBlocs({&s, &b}, ParametresObservationsBlocs());
    ASSERT_EQ(obs.blocs.size(), obsTout.blocs.size()) << k.nom;
    EXPECT_EQ(obs.stats, obsTout.stats) << k.nom;
    EXPECT_EQ(obs.Octets(), obs.blocs.size() * sizeof(ObservationBloc) + obs.stats.size() * sizeof(double));
    // The copy kept between the phases.
    StatsBlocs copie(g, pa, W, H, nb, {zb});
    copie.Importer(s.Exporter());
    EXPECT_EQ(SommesDuResume(Resumer(copie)), SommesDuResume(Resumer(tout))) << k.nom;
    EXPECT_EQ(copie.Donnees(), s.Donnees()) << k.nom;
  }
  // Not complete, the statistics are not copied; a copy of other statistics is not restored.
  StatsBlocs partielle(g, pa, W, H, nb, {zb});
  const float* bandes[2] = {v.data(), v.data() + 1};
  partielle.Ajouter(0, 0, W, 10, bandes, nb, static_cast<std::ptrdiff_t>(W) * nb, valide.data(), W);
  EXPECT_THROW(partielle.Exporter(), Erreur);
  EXPECT_THROW(partielle.Importer(tout.Exporter()), Erreur);
  // A line of blocks already complete does not take pixels again.
  EXPECT_THROW(
      partielle.Ajouter(0, 0, W, 1, bandes, nb, static_cast<std::ptrdiff_t>(W) * nb, valide.data(), W),
      Erreur);
}

TEST(StatsBlocs, RefusesNommentLesValeurs) {
  GrilleBlocs g;
  g.colonnes = 100;
  g.lignes = 100;
  g.bloc = 1;
  EXPECT_THROW(StatsBlocs(g, Placement(), 10, 10, 1), Erreur);
  g.bloc = 8;
  EXPECT_THROW(StatsBlocs(g, Placement{0, 0, 0, 1}, 10, 10, 1), Erreur);
  EXPECT_THROW(StatsBlocs(g, Placement(), 0, 10, 1), Erreur);
  // Statistics of gigabytes: refused before anything is allocated.
  GrilleBlocs immense = g;
  immense.colonnes = immense.lignes = 1 << 20;
  immense.bloc = 2;
  EXPECT_THROW(StatsBlocs(immense, Placement(), 1 << 20, 1 << 20, 1), Erreur);
  StatsBlocs s(g, Placement(), 10, 10, 1);
  const float v[4] = {};
  const float* b = v;
  test::Refuse([&] { s.Ajouter(8, 0, 4, 1, &b, 1, 4, nullptr, 0); },
               "[StatsBlocs] (Ajouter) Fenetre de 4 x 1 en (8, 0) hors de l'image de 10 x 10.");
  ParametresObservationsBlocs p;
  p.fractionValide = 0;
  EXPECT_THROW(ObserverBlocs({&s}, p), Erreur);
}

// Two tiles and a finer third one over the same ground, with a hole in the overlap: a block gives an
// observation exactly when both cover 90 % of it; its centre is the same ground point in both.
TEST(StatsBlocs, ObservationsDesBlocsPresqueEntiers) {
  std::vector<test::Tuile> t = {test::FaireTuile(0, 0, 64, 48, {0}, {0}),
                                test::FaireTuile(40, 8, 64, 48, {0}, {0})};
  // A hole of 5 x 5 pixels in the first tile: the block it falls in keeps 39 of 64 pixels.
  for (int l = 18; l < 23; ++l)
    for (int c = 50; c < 55; ++c) t[0].valide[l * 64 + c] = 0;
  // A ragged edge: a single missing pixel keeps 63 of 64 (kept), a column of 8 keeps 56 (left out at 0.9).
  t[1].valide[(9 - 8) * 64 + (41 - 40)] = 0;
  for (int l = 24; l < 32; ++l) t[1].valide[(l - 8) * 64 + (56 - 40)] = 0;
  const test::Donnees d = test::ObserverBlocs(t, 8);
  // The overlap: columns 40..63 and lines 8..47 of the grid, 3 x 5 blocks, less the two spoiled ones.
  ASSERT_EQ(d.obs.blocs.size(), 13u);
  for (size_t k = 0; k < d.obs.blocs.size(); ++k) {
    const ObservationBloc& o = d.obs.blocs[k];
    EXPECT_EQ(o.i, 0);
    EXPECT_EQ(o.j, 1);
    EXPECT_EQ(o.xi - o.xj, 40);
    EXPECT_EQ(o.yi - o.yj, 8);
    EXPECT_EQ(std::fmod(o.xi, 8.0), 4.0);
    const bool manque = o.xi == 44 && o.yi == 12;  // the block with the single missing pixel
    EXPECT_EQ(o.poids, manque ? 63 : 64);
    // Same values under both tiles (no distortion), but one pixel fewer in one of them.
    if (!manque) {
      EXPECT_NEAR(d.obs.Stats(k, 0)[0], d.obs.Stats(k, 0)[2], 1e-4);
    }
  }
  // With every pixel required, the block with one missing pixel goes too.
  EXPECT_EQ(test::ObserverBlocs(t, 8, 1.0).obs.blocs.size(), 12u);
}

}  // namespace
