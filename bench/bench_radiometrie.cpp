// Radiometric fields and the degree-10 polynomial fit on an 8000 x 8000 float image with a mask, each
// beside the plain pass it is judged against, measured in the same run. Every figure is also given
// in nanoseconds per pixel (counter ns_par_pixel, printed with its SI prefix: "2.5n" is 2.5 ns). Times
// are CPU times: on the shared build machine the wall clock mostly measures the other jobs.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "outils_bench.h"
#include "zepra/pipeline/polynome.h"
#include "zepra/pipeline/prelissage.h"
#include "zepra/pipeline/walis.h"

namespace {

constexpr int kCote = 8000;
constexpr double kPixels = static_cast<double>(kCote) * kCote;

const TTImage<float>& Image() {
  static const TTImage<float> im = bench::ImageCalculee<float>(
      kCote, [](int x, int y) { return static_cast<float>((x * 7 + y * 13) % 251) + 0.25f * (x % 3); });
  return im;
}

// About one pixel in eight left out, in scattered runs and one large block (a cloud).
const TTImage<bool>& Masque() {
  static const TTImage<bool> m = bench::ImageCalculee<bool>(kCote, [](int x, int y) {
    return ((x / 5 + y / 3) % 11 != 0) && !(x > 2000 && x < 3000 && y > 4000 && y < 5000);
  });
  return m;
}

// The plain pass: one sum over every pixel, walking the lines.
void BM_PassageSimpleSomme(benchmark::State& state) {
  const TTImage<float>& im = Image();
  bench::MesurerParPixel(state, kPixels, [&] {
    double somme = 0.0;
    for (int y = 0; y < kCote; ++y) {
      const float* l = im.GetLines(y);
      for (int x = 0; x < kCote; ++x) somme += l[x];
    }
    benchmark::DoNotOptimize(somme);
  });
}
BENCHMARK(BM_PassageSimpleSomme)->Unit(benchmark::kMillisecond);

// Fields into new images at every call, as a single run of the tool does.
void BM_GainOffsetWalis(benchmark::State& state) {
  const TTImage<float>& im = Image();
  const TTImage<bool>& m = Masque();
  const int taille = 2 * static_cast<int>(state.range(0));
  bench::MesurerParPixel(state, kPixels, [&] {
    TTImage<float> gain, offset;
    GainOffsetWalis(im, m, gain, offset, taille, 127.5, 50.0);
    benchmark::DoNotOptimize(gain.InternalData());
  });
}
BENCHMARK(BM_GainOffsetWalis)->Arg(100)->Arg(25)->Unit(benchmark::kMillisecond);

// Fields into the images of the previous call, as a batch over many images of one size does: the
// fresh pages of two new float images (page faults and zeroing) are no longer paid at each call.
void BM_GainOffsetWalisSortiesReutilisees(benchmark::State& state) {
  const TTImage<float>& im = Image();
  const TTImage<bool>& m = Masque();
  const int taille = 2 * static_cast<int>(state.range(0));
  TTImage<float> gain, offset;
  GainOffsetWalis(im, m, gain, offset, taille, 127.5, 50.0);
  bench::MesurerParPixel(state, kPixels, [&] {
    GainOffsetWalis(im, m, gain, offset, taille, 127.5, 50.0);
    benchmark::DoNotOptimize(gain.InternalData());
  });
}
BENCHMARK(BM_GainOffsetWalisSortiesReutilisees)->Arg(100)->Arg(2)->Unit(benchmark::kMillisecond);

void BM_MoyMasque(benchmark::State& state) {
  TTImage<float> im = Image();
  const TTImage<bool>& m = Masque();
  bench::MesurerParPixel(state, kPixels, [&] {
    MoyMasque(im, m, static_cast<int>(state.range(0)));
    benchmark::DoNotOptimize(im.InternalData());
  });
}
BENCHMARK(BM_MoyMasque)->Arg(100)->Unit(benchmark::kMillisecond);

// The reference of the fit: a degree-10 polynomial evaluated at every pixel (written where the mask
// is set).
void BM_EvaluationDegre10(benchmark::State& state) {
  TTImage<float> im = Image();
  const TTImage<bool>& m = Masque();
  Polynome2D p(10);
  std::vector<double> c;
  for (const Monome2D& t : p.Termes())
    c.push_back(1.0 / std::pow(4000.0, t.i + t.j) * ((t.i * 3 + t.j) % 5 - 2));
  p.SetCoefficients(c);
  bench::MesurerParPixel(state, kPixels, [&] {
    AppliquerModele(im, m, p);
    benchmark::DoNotOptimize(im.InternalData());
  });
}
BENCHMARK(BM_EvaluationDegre10)->Unit(benchmark::kMillisecond);

// The fit alone: normal equations over every masked pixel, then the solution.
void BM_AjustementDegre10(benchmark::State& state) {
  const TTImage<float>& im = Image();
  const TTImage<bool>& m = Masque();
  bench::MesurerParPixel(state, kPixels, [&] {
    AjustementPolynome2D a(10);
    a.Ajouter(im, m, 1);
    const Polynome2D p = a.Resoudre();
    benchmark::DoNotOptimize(p.Coefficients().data());
  });
}
BENCHMARK(BM_AjustementDegre10)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
