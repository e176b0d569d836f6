// Helpers shared by the benchmarks: large synthetic images, files made on first use by external
// tools, and the per-pixel time counter.
#pragma once

#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "zepra/ttimage.h"

namespace bench {

inline bool Existe(const std::string& nom) {
  struct stat s;
  return stat(nom.c_str(), &s) == 0;
}

// Runs a shell command (gdal_translate, tiffcp); a failure ends the benchmark.
inline void Commande(const std::string& c) {
  if (std::system(c.c_str()) != 0) throw std::runtime_error("echec de : " + c);
}

// A hash of (x, y): the texture of synthetic ground, so that codecs compress it only partly.
inline uint32_t Bruit(uint32_t x, uint32_t y) {
  uint32_t h = x * 374761393u + y * 668265263u;
  h = (h ^ (h >> 13)) * 1274126177u;
  return h ^ (h >> 16);
}

// A one-channel cote x cote image whose sample (x, y) is valeur(x, y), filled line by line.
template <class T, class F>
TTImage<T> ImageCalculee(int cote, F valeur) {
  TTImage<T> image(cote, cote, TagNbCanaux(1));
  for (int y = 0; y < cote; ++y) {
    auto ligne = image.GetLines(y);
    for (int x = 0; x < cote; ++x) ligne[x] = valeur(x, y);
  }
  return image;
}

// Runs 'travail' at every iteration, then reports the time per pixel of 'pixels' in the counter
// ns_par_pixel (printed with its SI prefix: "2.5n" is 2.5 ns).
template <class F>
void MesurerParPixel(benchmark::State& state, double pixels, F travail) {
  for (auto _ : state) travail();
  state.counters["ns_par_pixel"] =
      benchmark::Counter(pixels * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

}  // namespace bench
