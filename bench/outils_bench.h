// Helpers shared by the benchmarks: large synthetic images and the per-pixel time counter.
#pragma once

#include <benchmark/benchmark.h>

#include "zepra/ttimage.h"

namespace bench {

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
