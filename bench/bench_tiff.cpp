// TIFF decoding: our reader beside libtiff's tiffcp on the same files, in the same run. The files
// are made on first use in /tmp/egalise_bench_tiff: an 8000 x 8000 8-bit image (uncompressed as our
// writer makes it, LZW and PackBits by tiffcp, Deflate with the horizontal predictor by
// gdal_translate), an 8000 x 8000 RGB image as JPEG in YCbCr 4:2:0 by gdal_translate, and a
// 4000 x 4000 float image.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "outils_bench.h"
#include "zepra/ttimage.h"

namespace {

const std::string kDossier = "/tmp/egalise_bench_tiff";

using bench::Bruit;
using bench::Commande;
using bench::Existe;

std::string Fichier(const std::string& nom) {
  static bool fait = false;
  if (!fait) {
    Commande("mkdir -p " + kDossier);
    if (!Existe(kDossier + "/u8_lzw.tif")) {
      TTImage<unsigned char> im(8000, 8000, TagNbCanaux(1));
      for (int y = 0; y < 8000; ++y) {
        unsigned char* l = im.GetLines(y);
        for (int x = 0; x < 8000; ++x) l[x] = static_cast<unsigned char>(x / 37 + y / 23 + (Bruit(x, y) & 7));
      }
      im.Sauver((kDossier + "/u8_none.tif").c_str());
      Commande("tiffcp -c packbits " + kDossier + "/u8_none.tif " + kDossier + "/u8_packbits.tif");
      Commande("tiffcp -c lzw " + kDossier + "/u8_none.tif " + kDossier + "/u8_lzw.tif");
      TTImage<float> f(4000, 4000, TagNbCanaux(1));
      for (int y = 0; y < 4000; ++y)
        for (int x = 0; x < 4000; ++x)
          f(x, y) = 100.0f + x * 0.01f - y * 0.02f + (Bruit(x, y) & 255) * 0.001f;
      f.Sauver((kDossier + "/f32_none.tif").c_str());
    }
    if (!Existe(kDossier + "/rgb_jpeg.tif")) {
      Commande("gdal_translate -q -co COMPRESS=DEFLATE -co PREDICTOR=2 " + kDossier + "/u8_none.tif " +
               kDossier + "/u8_deflate_p2.tif");
      TTImage<unsigned char> rgb(8000, 8000, TagNbCanaux(3));
      for (int y = 0; y < 8000; ++y)
        for (int x = 0; x < 8000; ++x) {
          const int v = x / 37 + y / 23 + static_cast<int>(Bruit(x, y) & 7);
          rgb(x, y, 0) = static_cast<unsigned char>(v);
          rgb(x, y, 1) = static_cast<unsigned char>(v / 2 + 40);
          rgb(x, y, 2) = static_cast<unsigned char>(200 - v / 3);
        }
      rgb.Sauver((kDossier + "/rgb_none.tif").c_str());
      Commande("gdal_translate -q -co COMPRESS=JPEG -co PHOTOMETRIC=YCBCR " + kDossier + "/rgb_none.tif " +
               kDossier + "/rgb_jpeg.tif");
      Commande("rm " + kDossier + "/rgb_none.tif");
    }
    fait = true;
  }
  return kDossier + "/" + nom;
}

template <class T>
void BM_Notre(benchmark::State& etat, const char* nom) {
  const std::string chemin = Fichier(nom);
  struct stat s;
  stat(chemin.c_str(), &s);
  for (auto _ : etat) {
    TTImage<T> im;
    im.Lire(chemin.c_str());
    benchmark::DoNotOptimize(im.GetLines(0));
  }
  etat.counters["Mo_fichier"] = static_cast<double>(s.st_size) / 1e6;
}

void BM_Notre_u8(benchmark::State& etat, const char* nom) { BM_Notre<unsigned char>(etat, nom); }
void BM_Notre_float(benchmark::State& etat, const char* nom) { BM_Notre<float>(etat, nom); }

void BM_Tiffcp(benchmark::State& etat, const char* nom) {
  const std::string chemin = Fichier(nom);
  const std::string sortie = kDossier + "/sortie_tiffcp.tif";
  for (auto _ : etat) Commande("tiffcp -c none " + chemin + " " + sortie);
}

BENCHMARK_CAPTURE(BM_Notre_u8, u8_lzw, "u8_lzw.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Tiffcp, u8_lzw, "u8_lzw.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Notre_u8, u8_none, "u8_none.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Tiffcp, u8_none, "u8_none.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Notre_u8, u8_packbits, "u8_packbits.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Tiffcp, u8_packbits, "u8_packbits.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Notre_u8, u8_deflate_p2, "u8_deflate_p2.tif")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_Tiffcp, u8_deflate_p2, "u8_deflate_p2.tif")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_Notre_u8, rgb_jpeg, "rgb_jpeg.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Tiffcp, rgb_jpeg, "rgb_jpeg.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Notre_float, f32_none, "f32_none.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Tiffcp, f32_none, "f32_none.tif")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
