// Window reads: a file read as 512 x 512 windows of float planes (LecteurFenetres), one thread and two,
// against the whole read into a float image (TTImage<float>). The files are made on first use in
// /tmp/egalise_bench_fenetres from a 4096 x 4096 RGB 8-bit image: uncompressed strips (our writer),
// LZW strips with the horizontal predictor (GDAL's default strips, 8 KB: here one line each), Deflate
// with the predictor and JPEG YCbCr in 256 x 256 tiles; and a 4096 x 4096 float image, Deflate with
// the floating-point predictor in 256 x 256 tiles.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "outils_bench.h"
#include "zepra/lecteurfenetres.h"
#include "zepra/ttimage.h"

namespace {

const std::string kDossier = "/tmp/egalise_bench_fenetres";
constexpr int kCote = 4096, kFenetre = 512;

using bench::Bruit;
using bench::Commande;
using bench::Existe;

std::string Fichier(const std::string& nom) {
  static bool fait = false;
  if (!fait && !Existe(kDossier + "/f32_deflate_p3.tif")) {
    Commande("mkdir -p " + kDossier);
    TTImage<unsigned char> rgb(kCote, kCote, TagNbCanaux(3));
    for (int y = 0; y < kCote; ++y)
      for (int x = 0; x < kCote; ++x) {
        const int v = x / 37 + y / 23 + static_cast<int>(Bruit(x, y) & 7);
        rgb(x, y, 0) = static_cast<unsigned char>(v);
        rgb(x, y, 1) = static_cast<unsigned char>(v / 2 + 40);
        rgb(x, y, 2) = static_cast<unsigned char>(200 - v / 3);
      }
    const std::string d = kDossier + "/";
    rgb.Sauver((d + "rgb_none.tif").c_str());
    const std::string g = "gdal_translate -q ", t = " -co TILED=YES -co BLOCKXSIZE=256 -co BLOCKYSIZE=256 ";
    Commande(g + "-co COMPRESS=LZW -co PREDICTOR=2 " + d + "rgb_none.tif " + d + "rgb_lzw_p2.tif");
    Commande(g + "-co COMPRESS=DEFLATE -co PREDICTOR=2" + t + d + "rgb_none.tif " + d + "rgb_deflate_p2.tif");
    Commande(g + "-co COMPRESS=JPEG -co PHOTOMETRIC=YCBCR" + t + d + "rgb_none.tif " + d + "rgb_jpeg.tif");
    TTImage<float> f(kCote, kCote, TagNbCanaux(1));
    for (int y = 0; y < kCote; ++y)
      for (int x = 0; x < kCote; ++x) f(x, y) = 100.0f + x * 0.01f - y * 0.02f + (Bruit(x, y) & 255) * 0.001f;
    f.Sauver((d + "f32_none.tif").c_str());
    Commande(g + "-co COMPRESS=DEFLATE -co PREDICTOR=3" + t + d + "f32_none.tif " + d + "f32_deflate_p3.tif");
    Commande("rm " + d + "f32_none.tif");
  }
  fait = true;
  return kDossier + "/" + nom;
}

void BM_Entier(benchmark::State& etat, const char* nom) {
  const std::string chemin = Fichier(nom);
  for (auto _ : etat) {
    TTImage<float> im(chemin.c_str());
    benchmark::DoNotOptimize(im.GetLines(0));
  }
}

// Every 512 x 512 window of the file, in line order; 'fils' threads take every fils-th window.
void BM_Fenetres(benchmark::State& etat, const char* nom) {
  const std::string chemin = Fichier(nom);
  const int fils = static_cast<int>(etat.range(0));
  const LecteurFenetres l(chemin);
  const int n = kCote / kFenetre;
  auto lire = [&](int premier) {
    std::vector<float> dest(static_cast<size_t>(kFenetre) * kFenetre * l.Canaux());
    for (int i = premier; i < n * n; i += fils)
      l.Lire(i % n * kFenetre, i / n * kFenetre, kFenetre, kFenetre, dest.data(), kFenetre,
             static_cast<size_t>(kFenetre) * kFenetre);
    benchmark::DoNotOptimize(dest.data());
  };
  for (auto _ : etat) {
    std::vector<std::thread> t;
    for (int k = 1; k < fils; ++k) t.emplace_back(lire, k);
    lire(0);
    for (std::thread& f : t) f.join();
  }
  etat.counters["Ko_bloc"] = static_cast<double>(l.OctetsBloc()) / 1024.0;
}

#define FICHIER(nom)                                                                            \
  BENCHMARK_CAPTURE(BM_Entier, nom, #nom ".tif")->Unit(benchmark::kMillisecond)->UseRealTime(); \
  BENCHMARK_CAPTURE(BM_Fenetres, nom, #nom ".tif")                                              \
      ->Arg(1)                                                                                  \
      ->Arg(2)                                                                                  \
      ->Unit(benchmark::kMillisecond)                                                           \
      ->UseRealTime();
FICHIER(rgb_none)
FICHIER(rgb_lzw_p2)
FICHIER(rgb_deflate_p2)
FICHIER(rgb_jpeg)
FICHIER(f32_deflate_p3)
#undef FICHIER

}  // namespace

BENCHMARK_MAIN();
