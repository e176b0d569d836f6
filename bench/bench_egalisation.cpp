// The gain-offset equalization's stages on tiles of 3000 x 3000 8-bit pixels, each beside the plain pass
// it is judged against (the budget: the equalized job within 1.3 times the job without
// equalization). Figures per pixel of input (counter ns_par_pixel); CPU times.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "outils_bench.h"
#include "pipeline/blocs_stats.h"
#include "pipeline/gain_offset.h"
#include "pipeline/multibande.h"
#include "pipeline/plume.h"

namespace {

constexpr int kCote = 3000;
constexpr double kPixels = static_cast<double>(kCote) * kCote;
constexpr int kLignesFenetre = 64;

unsigned char Valeur(long long x, long long y) {
  const unsigned h = static_cast<unsigned>(x * 73856093LL ^ y * 19349663LL);
  return static_cast<unsigned char>(40 + (x / 37 + y / 53) % 120 + (h >> 27));
}

const TTImage<unsigned char>& Image() {
  static const TTImage<unsigned char> im =
      bench::ImageCalculee<unsigned char>(kCote, [](int x, int y) { return Valeur(x, y); });
  return im;
}

// Valid but for a ragged band along the borders.
const std::vector<unsigned char>& Validite() {
  static const std::vector<unsigned char> v = [] {
    std::vector<unsigned char> m(static_cast<size_t>(kCote) * kCote);
    for (int y = 0; y < kCote; ++y)
      for (int x = 0; x < kCote; ++x) {
        const double bord = 30 + 20 * std::sin(y / 90.0);
        m[static_cast<size_t>(y) * kCote + x] = x > bord && y > bord && kCote - x > bord && kCote - y > bord;
      }
    return m;
  }();
  return v;
}

void BM_PassageSimpleOctets(benchmark::State& state) {
  const TTImage<unsigned char>& im = Image();
  bench::MesurerParPixel(state, kPixels, [&] {
    unsigned long long somme = 0;
    for (int y = 0; y < kCote; ++y) {
      const unsigned char* l = im.GetLines(y);
      for (int x = 0; x < kCote; ++x) somme += l[x];
    }
    benchmark::DoNotOptimize(somme);
  });
}
BENCHMARK(BM_PassageSimpleOctets)->Unit(benchmark::kMillisecond);

// The block statistics of a square tile placed at (x0, y0) on a grid of cote x cote, read by windows of
// 64 lines; valide: its validity, one byte per pixel.
StatsBlocs Statistiques(const TTImage<unsigned char>& im, const unsigned char* valide, long long x0,
                        long long y0, long long cote) {
  const int n = im.iGetNbColonnes();
  GrilleBlocs g;
  g.colonnes = g.lignes = cote;
  Placement p;
  p.x0 = static_cast<double>(x0);
  p.y0 = static_cast<double>(y0);
  StatsBlocs s(g, p, n, n, 1);
  for (int l0 = 0; l0 < n; l0 += kLignesFenetre) {
    const unsigned char* bande = im.GetLines(l0);
    s.Ajouter(0, l0, n, std::min(kLignesFenetre, n - l0), &bande, 1, n, valide + static_cast<size_t>(l0) * n,
              n);
  }
  return s;
}

// The summaries and observations of a set of tiles' statistics.
void Observer(const std::vector<StatsBlocs>& stats, std::vector<ResumeImage>& resumes,
              ObservationsBlocs& obs) {
  std::vector<const StatsBlocs*> p;
  for (const StatsBlocs& s : stats) {
    p.push_back(&s);
    resumes.push_back(Resumer(s));
  }
  obs = ObserverBlocs(p, ParametresObservationsBlocs());
}

// Block statistics of one tile, read by windows of 64 lines.
void BM_StatsBlocs(benchmark::State& state) {
  const TTImage<unsigned char>& im = Image();
  bench::MesurerParPixel(state, kPixels, [&] {
    const StatsBlocs s = Statistiques(im, Validite().data(), 0, 0, kCote);
    benchmark::DoNotOptimize(s.Bloc(0, 0));
  });
}
BENCHMARK(BM_StatsBlocs)->Unit(benchmark::kMillisecond);

// One band's solve for 4 x 4 tiles of 3000 x 3000 with 20 % overlap (the same image placed 16 times,
// each with its own offset); per pixel of the 16 inputs.
void BM_ResoudreGainOffset4x4(benchmark::State& state) {
  static std::vector<StatsBlocs> stats;
  static std::vector<ResumeImage> resumes;
  static ObservationsBlocs obs;
  if (stats.empty()) {
    const long long pas = 2400, cote = 3 * pas + kCote;
    for (int k = 0; k < 16; ++k)
      stats.push_back(Statistiques(Image(), Validite().data(), k % 4 * pas, k / 4 * pas, cote));
    Observer(stats, resumes, obs);
  }
  bench::MesurerParPixel(state, 16 * kPixels, [&] {
    const ResultatGainOffset r = ResoudreGainOffset(resumes, obs, ParametresGainOffset());
    benchmark::DoNotOptimize(r.corrections.data());
  });
  state.counters["observations"] = static_cast<double>(obs.blocs.size());
}
BENCHMARK(BM_ResoudreGainOffset4x4)->Unit(benchmark::kMillisecond);

// One band's solve for a block of 32 x 32 tiles of 300 x 300 with 20 % overlap (1024 images in one
// group, where the sparse factor dominates), with the learnt prior's spreads from the estimates alone
// (argument 0) or from the evidence, which adds the diagonal of the inverse (argument 1).
void BM_ResoudreGainOffset32x32(benchmark::State& state) {
  constexpr int kPetit = 300, kN = 32;
  static std::vector<StatsBlocs> stats;
  static std::vector<ResumeImage> resumes;
  static ObservationsBlocs obs;
  if (stats.empty()) {
    const std::vector<unsigned char> valide(static_cast<size_t>(kPetit) * kPetit, 1);
    const long long pas = 240, cote = (kN - 1) * pas + kPetit;
    for (int k = 0; k < kN * kN; ++k) {
      // The ground under the tile, with its own level.
      const long long x0 = k % kN * pas, y0 = k / kN * pas;
      const TTImage<unsigned char> im = bench::ImageCalculee<unsigned char>(kPetit, [&](int x, int y) {
        return static_cast<unsigned char>(Valeur(x0 + x, y0 + y) / 2 + k % 7);
      });
      stats.push_back(Statistiques(im, valide.data(), x0, y0, cote));
    }
    Observer(stats, resumes, obs);
  }
  ParametresGainOffset parametres;
  parametres.etalement = state.range(0) ? ParametresGainOffset::Etalement::evidence
                                        : ParametresGainOffset::Etalement::estimations;
  parametres.enParallele = 1;
  for (auto _ : state) {
    const ResultatGainOffset r = ResoudreGainOffset(resumes, obs, parametres);
    benchmark::DoNotOptimize(r.corrections.data());
  }
  state.counters["observations"] = static_cast<double>(obs.blocs.size());
}
BENCHMARK(BM_ResoudreGainOffset32x32)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The correction of every line of a tile, degrees 2 and 2, from 8-bit samples to float.
void BM_CorrigerLigne(benchmark::State& state) {
  const TTImage<unsigned char>& im = Image();
  CorrectionGainOffset c(kCote, kCote, 1, 2, 2);
  for (int t = 0; t < 6; ++t) {
    c.Gain(0)[t] = 0.01 * (t + 1);
    c.Offset(0)[t] = 2.0 * (t + 1);
  }
  std::vector<float> ligne(kCote);
  bench::MesurerParPixel(state, kPixels, [&] {
    for (int y = 0; y < kCote; ++y) {
      const unsigned char* l = im.GetLines(y);
      for (int x = 0; x < kCote; ++x) ligne[x] = l[x];
      c.CorrigerLigne(0, y, 0, kCote, ligne.data(), ligne.data());
    }
    benchmark::DoNotOptimize(ligne.data());
  });
}
BENCHMARK(BM_CorrigerLigne)->Unit(benchmark::kMillisecond);

// Feathering weights of a whole tile for a width of 60 pixels.
void BM_PoidsPlume(benchmark::State& state) {
  std::vector<float> poids(static_cast<size_t>(kCote) * kCote);
  bench::MesurerParPixel(state, kPixels, [&] {
    PoidsPlume(kCote, kCote, Fenetre{0, 0, kCote, kCote}, 60, Validite().data(), kCote, poids.data(), kCote);
    benchmark::DoNotOptimize(poids.data());
  });
}
BENCHMARK(BM_PoidsPlume)->Unit(benchmark::kMillisecond);

// Multi-band blending of two images over one output tile of 512 x 512 with its margin (6 levels);
// per output pixel.
void BM_MultibandeTuile(benchmark::State& state) {
  const int niveaux = 6, marge = MargeMultibande(niveaux), w = 512 + 2 * marge;
  std::vector<float> v[2], p[2];
  for (int i = 0; i < 2; ++i) {
    v[i].resize(static_cast<size_t>(w) * w);
    p[i].resize(v[i].size());
    for (int y = 0; y < w; ++y)
      for (int x = 0; x < w; ++x) {
        v[i][static_cast<size_t>(y) * w + x] = Valeur(x, y) + 10.0f * i;
        p[i][static_cast<size_t>(y) * w + x] = static_cast<float>(i == 0 ? w - x : x + 1);
      }
  }
  const std::vector<ContributionMultibande> c = {{v[0].data(), p[0].data()}, {v[1].data(), p[1].data()}};
  std::vector<float> sortie(v[0].size());
  bench::MesurerParPixel(state, 512.0 * 512.0, [&] {
    MelangerMultibande(c, w, w, 1, niveaux, sortie.data(), 0.0f);
    benchmark::DoNotOptimize(sortie.data());
  });
}
BENCHMARK(BM_MultibandeTuile)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
