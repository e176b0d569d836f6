// Band copy of a 10000 x 10000 float image into an unsigned char image, beside a memcpy of the
// same source bytes measured in the same run.
#include <benchmark/benchmark.h>

#include <cstring>

#include "outils_bench.h"
#include "zepra/ttimage.h"

namespace {

constexpr int kCote = 10000;

const TTImage<float>& Source() {
  static const TTImage<float> im = bench::ImageCalculee<float>(
      kCote, [](int x, int y) { return static_cast<float>((x * 7 + y * 3) % 1000) * 0.37f; });
  return im;
}

void BM_CopieBandesFloatVersUChar(benchmark::State& state) {
  const TTImage<float>& src = Source();
  TTImage<unsigned char> dst(TagNbCanaux(1));
  for (auto _ : state) {
    dst.SpecifImageOut::Crop(src, 0, 0, kCote, kCote, 1, 0);
    benchmark::DoNotOptimize(dst.InternalData());
  }
  state.SetBytesProcessed(state.iterations() * int64_t{kCote} * kCote * sizeof(float));
}
BENCHMARK(BM_CopieBandesFloatVersUChar)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MemcpyMemesOctets(benchmark::State& state) {
  const TTImage<float>& src = Source();
  std::vector<float> dst(size_t{kCote} * kCote);
  for (auto _ : state) {
    std::memcpy(dst.data(), &src(0, 0), dst.size() * sizeof(float));
    benchmark::DoNotOptimize(dst.data());
  }
  state.SetBytesProcessed(state.iterations() * int64_t{kCote} * kCote * sizeof(float));
}
BENCHMARK(BM_MemcpyMemesOctets)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

namespace {
void BM_CopierPixelsSeul(benchmark::State& state) {
  const TTImage<float>& src = Source();
  TTImage<unsigned char> dst(kCote, kCote, TagNbCanaux(1));
  for (auto _ : state) {
    CopierPixels<float, unsigned char>(src.GetLines(), dst.GetLines(), 0, 0, kCote, kCote, 0, 0, 1, 1);
    benchmark::DoNotOptimize(dst.InternalData());
  }
}
BENCHMARK(BM_CopierPixelsSeul)->Unit(benchmark::kMillisecond)->UseRealTime();
}  // namespace
BENCHMARK_MAIN();
