// GeoTIFF writing: our writer beside gdal_translate on the same 8000 x 8000 8-bit image, in the same
// run: a tiled Deflate file with the horizontal predictor, and a COG with averaged overviews. The
// source is made on first use in /tmp/egalise_bench_ecriture (uncompressed, as GDAL's input). Our
// side reads that file and writes, as gdal_translate does. Processor time is given beside the wall
// clock, the machine being shared. The writer's own peak memory is measured apart, in a child process
// that makes its lines as it writes them.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>

#include "zepra/ecrivaingeotiff.h"
#include "zepra/ttimage.h"

namespace {

const std::string kDossier = "/tmp/egalise_bench_ecriture";
constexpr int kCote = 8000;

void Commande(const std::string& c) {
  if (std::system(c.c_str()) != 0) throw std::runtime_error("echec de : " + c);
}

double Octets(const std::string& nom) {
  struct stat s;
  return stat(nom.c_str(), &s) == 0 ? static_cast<double>(s.st_size) : 0.0;
}

// Smooth ground with some texture, as in an ortho-image (the same as the reading benchmark).
uint32_t Bruit(uint32_t x, uint32_t y) {
  uint32_t h = x * 374761393u + y * 668265263u;
  h = (h ^ (h >> 13)) * 1274126177u;
  return h ^ (h >> 16);
}

void Ligne(int y, unsigned char* l) {
  for (int x = 0; x < kCote; ++x) l[x] = static_cast<unsigned char>(x / 37 + y / 23 + (Bruit(x, y) & 7));
}

std::string Source() {
  static bool fait = false;
  const std::string nom = kDossier + "/source.tif";
  if (!fait) {
    Commande("mkdir -p " + kDossier);
    if (Octets(nom) == 0) {
      TTImage<unsigned char> im(kCote, kCote, TagNbCanaux(1));
      for (int y = 0; y < kCote; ++y) Ligne(y, im.GetLines(y));
      im.Sauver(nom.c_str());
    }
    fait = true;
  }
  return nom;
}

OptionsEcriture Options(bool cog) {
  if (cog) return LireOptionsEcriture({{"compression", "deflate"}, {"cog", ""}});
  // GDAL's tiles for a plain GTiff are 256 x 256.
  return LireOptionsEcriture({{"compression", "deflate"}, {"tuile", "256"}});
}

void BM_Notre(benchmark::State& etat, bool cog) {
  const std::string source = Source(), sortie = kDossier + "/notre.tif";
  double processeur = 0;
  for (auto _ : etat) {
    const std::clock_t debut = std::clock();
    TTImage<unsigned char> im;
    im.Lire(source.c_str());
    EcrivainGeoTIFF e(sortie, Options(cog), {kCote, kCote}, 1, eUInt1);
    e.EcrireLignes(im.GetLines(0), kCote, kCote);
    e.Terminer();
    processeur += static_cast<double>(std::clock() - debut) / CLOCKS_PER_SEC;
  }
  etat.counters["s_processeur"] = processeur / static_cast<double>(etat.iterations());
  etat.counters["Mo_fichier"] = Octets(sortie) / 1e6;
}

// gdal_translate under /usr/bin/time, for its processor time and peak memory.
void BM_Gdal(benchmark::State& etat, bool cog) {
  const std::string source = Source(), sortie = kDossier + "/gdal.tif", mesure = kDossier + "/time.txt";
  const std::string options =
      cog ? "-of COG -co COMPRESS=DEFLATE -co PREDICTOR=2 -co OVERVIEW_RESAMPLING=AVERAGE"
          : "-co COMPRESS=DEFLATE -co PREDICTOR=2 -co TILED=YES";
  double processeur = 0, pic = 0;
  for (auto _ : etat) {
    Commande("/usr/bin/time -f '%U %S %M' -o " + mesure + " gdal_translate -q " + options + " " + source +
             " " + sortie);
    std::ifstream f(mesure);
    double u = 0, s = 0, k = 0;
    f >> u >> s >> k;
    processeur += u + s;
    pic = k / 1024;
  }
  etat.counters["s_processeur"] = processeur / static_cast<double>(etat.iterations());
  etat.counters["Mo_pic"] = pic;
  etat.counters["Mo_fichier"] = Octets(sortie) / 1e6;
}

// Peak resident memory (MB) of a child that writes the image from lines it makes one at a time.
void BM_Memoire(benchmark::State& etat, bool cog) {
  const std::string sortie = kDossier + "/memoire.tif";
  long pic = 0;
  for (auto _ : etat) {
    const pid_t pid = fork();
    if (pid == 0) {
      std::vector<unsigned char> l(kCote);
      EcrivainGeoTIFF e(sortie, Options(cog), {kCote, kCote}, 1, eUInt1);
      for (int y = 0; y < kCote; ++y) {
        Ligne(y, l.data());
        e.EcrireLignes(l.data(), 0, 1);
      }
      e.Terminer();
      rusage r;
      getrusage(RUSAGE_SELF, &r);
      _exit(static_cast<int>(std::min<long>(r.ru_maxrss / 1024, 250)));
    }
    int statut = 0;
    waitpid(pid, &statut, 0);
    pic = WIFEXITED(statut) ? WEXITSTATUS(statut) : -1;
  }
  etat.counters["Mo_pic"] = static_cast<double>(pic);
}

BENCHMARK_CAPTURE(BM_Notre, tuile, false)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(BM_Gdal, tuile, false)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(BM_Notre, cog, true)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(BM_Gdal, cog, true)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(BM_Memoire, tuile, false)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK_CAPTURE(BM_Memoire, cog, true)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
