// TIFF decoding of the library codecs: our reader beside libtiff's tiffcp on the same files, in the
// same run. The files are made on first use in /tmp/egalise_bench_codecs by gdal_translate: an
// 8000 x 8000 8-bit image as Deflate with the horizontal predictor, and an 8000 x 8000 RGB image as
// JPEG in YCbCr 4:2:0, both from images of textured ground written uncompressed by our writer.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "zepra/ttimage.h"

namespace {

const std::string kDossier = "/tmp/egalise_bench_codecs";

bool Existe(const std::string& nom) {
  struct stat s;
  return stat(nom.c_str(), &s) == 0;
}

void Commande(const std::string& c) {
  if (std::system(c.c_str()) != 0) throw std::runtime_error("echec de : " + c);
}

// Smooth ground with some texture, as in an ortho-image.
uint32_t Bruit(uint32_t x, uint32_t y) {
  uint32_t h = x * 374761393u + y * 668265263u;
  h = (h ^ (h >> 13)) * 1274126177u;
  return h ^ (h >> 16);
}

std::string Fichier(const std::string& nom) {
  static bool fait = false;
  if (!fait) {
    Commande("mkdir -p " + kDossier);
    if (!Existe(kDossier + "/rgb_jpeg.tif")) {
      const int n = 8000;
      TTImage<unsigned char> gris(n, n, TagNbCanaux(1)), rgb(n, n, TagNbCanaux(3));
      for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
          const int v = x / 37 + y / 23 + static_cast<int>(Bruit(x, y) & 7);
          gris(x, y) = static_cast<unsigned char>(v);
          rgb(x, y, 0) = static_cast<unsigned char>(v);
          rgb(x, y, 1) = static_cast<unsigned char>(v / 2 + 40);
          rgb(x, y, 2) = static_cast<unsigned char>(200 - v / 3);
        }
      gris.Sauver((kDossier + "/u8_none.tif").c_str());
      rgb.Sauver((kDossier + "/rgb_none.tif").c_str());
      Commande("gdal_translate -q -co COMPRESS=DEFLATE -co PREDICTOR=2 " + kDossier + "/u8_none.tif " + kDossier +
               "/u8_deflate_p2.tif");
      Commande("gdal_translate -q -co COMPRESS=JPEG -co PHOTOMETRIC=YCBCR " + kDossier + "/rgb_none.tif " +
               kDossier + "/rgb_jpeg.tif");
      Commande("rm " + kDossier + "/u8_none.tif " + kDossier + "/rgb_none.tif");
    }
    fait = true;
  }
  return kDossier + "/" + nom;
}

void BM_Notre(benchmark::State& etat, const char* nom) {
  const std::string chemin = Fichier(nom);
  struct stat s;
  stat(chemin.c_str(), &s);
  for (auto _ : etat) {
    TTImage<unsigned char> im;
    im.Lire(chemin.c_str());
    benchmark::DoNotOptimize(im.GetLines(0));
  }
  etat.counters["Mo_fichier"] = static_cast<double>(s.st_size) / 1e6;
}

void BM_Tiffcp(benchmark::State& etat, const char* nom) {
  const std::string chemin = Fichier(nom);
  const std::string sortie = kDossier + "/sortie_tiffcp.tif";
  for (auto _ : etat) Commande("tiffcp -c none " + chemin + " " + sortie);
}

BENCHMARK_CAPTURE(BM_Notre, u8_deflate_p2, "u8_deflate_p2.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Tiffcp, u8_deflate_p2, "u8_deflate_p2.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Notre, rgb_jpeg, "rgb_jpeg.tif")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Tiffcp, rgb_jpeg, "rgb_jpeg.tif")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
