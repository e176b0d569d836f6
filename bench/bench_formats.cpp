// RLE and PNM files: writing and reading an 8000 x 8000 unsigned char image, beside reading the
// same number of bytes with one ifstream::read, measured in the same run. Files go to /tmp.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "zepra/ttimage.h"

namespace {

constexpr int kCote = 8000;

std::string Nom(const char* base) { return "/tmp/bench_formats_" + std::to_string(getpid()) + base; }

// A mask: a disc of 1 on 0, a few runs per line, as RLE files usually hold.
const TTImage<unsigned char>& Masque() {
  static const TTImage<unsigned char> im = [] {
    TTImage<unsigned char> m(kCote, kCote, TagNbCanaux(1));
    const long long r = kCote / 2 - 10;
    for (int y = 0; y < kCote; ++y) {
      unsigned char* l = m.GetLines(y);
      for (int x = 0; x < kCote; ++x) {
        const long long dx = x - kCote / 2, dy = y - kCote / 2;
        l[x] = dx * dx + dy * dy < r * r ? 1 : 0;
      }
    }
    return m;
  }();
  return im;
}

// Every pixel its own run: the worst case of the format.
const TTImage<unsigned char>& Bruit() {
  static const TTImage<unsigned char> im = [] {
    TTImage<unsigned char> b(kCote, kCote, TagNbCanaux(1));
    unsigned v = 1;
    for (int y = 0; y < kCote; ++y) {
      unsigned char* l = b.GetLines(y);
      for (int x = 0; x < kCote; ++x) {
        v = v * 1103515245u + 12345u;
        l[x] = static_cast<unsigned char>(((v >> 16) & 0xFE) | (x & 1));
      }
    }
    return b;
  }();
  return im;
}

void Ecrire(benchmark::State& state, const TTImage<unsigned char>& im, const char* base) {
  const std::string nom = Nom(base);
  for (auto _ : state) im.Sauver(nom.c_str());
  state.SetItemsProcessed(state.iterations() * int64_t{kCote} * kCote);
  std::remove(nom.c_str());
}

// Reads the file 'nom' again and again, then removes it.
void LireFichier(benchmark::State& state, const std::string& nom) {
  TTImage<unsigned char> lu;
  for (auto _ : state) {
    lu.Lire(nom.c_str());
    benchmark::DoNotOptimize(lu.InternalData());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kCote} * kCote);
  std::remove(nom.c_str());
}

void Lire(benchmark::State& state, const TTImage<unsigned char>& im, const char* base) {
  const std::string nom = Nom(base);
  im.Sauver(nom.c_str());
  LireFichier(state, nom);
}

void BM_EcrireRLEMasque(benchmark::State& s) { Ecrire(s, Masque(), "_masque.rle"); }
void BM_LireRLEMasque(benchmark::State& s) { Lire(s, Masque(), "_masque.rle"); }
void BM_EcrireRLEBruit(benchmark::State& s) { Ecrire(s, Bruit(), "_bruit.rle"); }
void BM_LireRLEBruit(benchmark::State& s) { Lire(s, Bruit(), "_bruit.rle"); }
void BM_EcrirePGM(benchmark::State& s) { Ecrire(s, Bruit(), "_bruit.pgm"); }
void BM_LirePGM(benchmark::State& s) { Lire(s, Bruit(), "_bruit.pgm"); }

// A 1000 x 1000 mask stored with zoom 8 reads as 8000 x 8000.
void BM_LireRLEZoom8(benchmark::State& state) {
  const std::string nom = Nom("_zoom.rle");
  TTImage<unsigned char> petit;
  petit.Crop(Masque(), 0, 0, kCote, kCote, 8);
  petit.Sauver(nom.c_str());
  {
    std::fstream f(nom, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(8);
    const char zoom[4] = {8, 0, 0, 0};
    f.write(zoom, 4);
  }
  LireFichier(state, nom);
}

// The floor for the PGM read: a new image and the raster's bytes in one read call.
void BM_IfstreamMemesOctets(benchmark::State& state) {
  const std::string nom = Nom("_brut.pgm");
  Bruit().Sauver(nom.c_str());
  for (auto _ : state) {
    // A new image each time, as Lire makes one.
    TTImage<unsigned char> im(kCote, kCote, TagNbCanaux(1));
    std::ifstream f(nom, std::ios::binary);
    f.seekg(17);  // "P5\n8000 8000\n255\n"
    f.read(reinterpret_cast<char*>(im.InternalData()), std::streamsize{kCote} * kCote);
    benchmark::DoNotOptimize(im.InternalData());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kCote} * kCote);
  std::remove(nom.c_str());
}

BENCHMARK(BM_EcrireRLEMasque)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LireRLEMasque)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LireRLEZoom8)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_EcrireRLEBruit)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LireRLEBruit)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_EcrirePGM)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LirePGM)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_IfstreamMemesOctets)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
