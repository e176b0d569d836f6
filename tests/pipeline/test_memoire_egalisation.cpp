// The equalization's memory estimate against what the statistics, the observations and the solve
// really allocate, on a few layouts gathered and solved as the job does: never below, and not far above.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>

#include "pipeline/blocs_stats.h"
#include "pipeline/gain_offset.h"
#include "pipeline/outils_pipeline.h"

// Every allocation of the test program through operator new is counted (by the allocator's usable size,
// so that a free takes back what its allocation added), and its peak kept while a measure runs. The
// sparse solver's own arrays (Eigen allocates with malloc) are not seen: the estimate's count of them
// is checked by the margin alone. AddressSanitizer brings its own operator new.
namespace {
std::atomic<long long> g_octets{0}, g_pic{0};
}  // namespace

#if !defined(__SANITIZE_ADDRESS__)
namespace {
void Compter(long long d) {
  const long long v = g_octets.fetch_add(d, std::memory_order_relaxed) + d;
  long long pic = g_pic.load(std::memory_order_relaxed);
  while (v > pic && !g_pic.compare_exchange_weak(pic, v, std::memory_order_relaxed)) {
  }
}
}  // namespace

void* operator new(size_t n) {
  void* p = std::malloc(n ? n : 1);
  if (!p) throw std::bad_alloc();
  Compter(static_cast<long long>(malloc_usable_size(p)));
  return p;
}
void* operator new[](size_t n) { return operator new(n); }
void operator delete(void* p) noexcept {
  if (!p) return;
  Compter(-static_cast<long long>(malloc_usable_size(p)));
  std::free(p);
}
void operator delete[](void* p) noexcept { operator delete(p); }
void operator delete(void* p, size_t) noexcept { operator delete(p); }
void operator delete[](void* p, size_t) noexcept { operator delete(p); }
#endif

namespace {

struct Disposition {
  const char* nom;
  int colonnes, lignes;  // tiles across and down
  int cote, pas;         // a tile's side and the step between tiles, in grid pixels
  int bandes, bloc, degre;
  bool reference;  // one more image over the whole grid, every block kept
};

// A tile's bands, planar: a textured scene with a level per tile and band.
std::vector<float> Valeurs(int x0, int y0, int w, int h, int bandes, int k) {
  std::vector<float> v(static_cast<size_t>(w) * h * bandes);
  for (int b = 0; b < bandes; ++b)
    for (int l = 0; l < h; ++l)
      for (int c = 0; c < w; ++c)
        v[(static_cast<size_t>(b) * h + l) * w + c] =
            static_cast<float>(test::Scene(x0 + c + 5 * b, y0 + l) * (1 + 0.02 * k) + 3 * b);
  return v;
}

TEST(MemoireEgalisation, EstimationAuDessusDuReelEtPasTropLoin) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer brings its own operator new";
#endif
  const Disposition cas[] = {
      {"2 x 2, 1 bande, blocs de 16", 2, 2, 240, 160, 1, 16, 2, false},
      {"3 x 3, 3 bandes, blocs de 16", 3, 3, 200, 140, 3, 16, 2, false},
      {"3 x 3 decales, 1 bande, blocs de 16, degre 0", 3, 3, 250, 173, 1, 16, 0, false},
      {"4 x 1 et une reference, 2 bandes", 4, 1, 220, 150, 2, 16, 2, true},
      {"4 x 4, 1 bande, blocs de 8", 4, 4, 120, 90, 1, 8, 2, false},
  };
  for (const Disposition& d : cas) {
    SCOPED_TRACE(d.nom);
    GrilleBlocs g;
    g.bloc = d.bloc;
    g.colonnes = static_cast<long long>(d.colonnes - 1) * d.pas + d.cote;
    g.lignes = static_cast<long long>(d.lignes - 1) * d.pas + d.cote;
    struct Image {
      Placement p;
      int w, h;
      std::vector<float> v;
    };
    std::vector<Image> images;
    for (int i = 0; i < d.lignes; ++i)
      for (int j = 0; j < d.colonnes; ++j) {
        Image im;
        im.p.x0 = j * d.pas;
        im.p.y0 = i * d.pas;
        im.w = im.h = d.cote;
        im.v = Valeurs(j * d.pas, i * d.pas, d.cote, d.cote, d.bandes, static_cast<int>(images.size()));
        images.push_back(std::move(im));
      }
    const size_t n = images.size();
    if (d.reference) {
      Image r;
      r.w = static_cast<int>(g.colonnes);
      r.h = static_cast<int>(g.lignes);
      r.v = Valeurs(0, 0, r.w, r.h, d.bandes, 99);
      images.push_back(std::move(r));
    }
    std::vector<ZoneBlocs> zones;
    for (const Image& im : images) zones.push_back(EmpriseBlocs(g, im.p, im.w, im.h));
    ParametresGainOffset p;
    p.degreGain = p.degreOffset = d.degre;
    p.enParallele = 1;
    const std::vector<ZoneBlocs> entrees(zones.begin(), zones.begin() + static_cast<std::ptrdiff_t>(n));
    const MemoireEgalisation e = EstimerMemoireEgalisation(entrees, d.reference ? &zones.back() : nullptr,
                                                           d.bandes, 2 * base_polynome::NbTermes(d.degre));

    // As the job does: each input keeps the blocks the others reach, the reference all of its own; the
    // observations, then the statistics freed, then the solve.
    const long long avant = g_octets.load();
    g_pic = avant;
    {
      std::vector<std::unique_ptr<StatsBlocs>> stats;
      for (size_t i = 0; i < images.size(); ++i) {
        const Image& im = images[i];
        std::vector<ZoneBlocs> gardees;
        for (size_t k = 0; k < zones.size(); ++k)
          if (k != i) gardees.push_back(zones[k]);
        stats.push_back(i < n ? std::make_unique<StatsBlocs>(g, im.p, im.w, im.h, d.bandes, gardees)
                              : std::make_unique<StatsBlocs>(g, im.p, im.w, im.h, d.bandes));
        const float* bandes[8];
        for (int l = 0; l < im.h; l += 7) {
          const int nl = std::min(7, im.h - l);
          for (int b = 0; b < d.bandes; ++b)
            bandes[b] = im.v.data() + (static_cast<size_t>(b) * im.h + l) * im.w;
          stats.back()->Ajouter(0, l, im.w, nl, bandes, 1, im.w, nullptr, 0);
        }
      }
      std::vector<ResumeImage> resumes;
      std::vector<const StatsBlocs*> ptrs;
      for (const auto& s : stats) {
        resumes.push_back(Resumer(*s));
        ptrs.push_back(s.get());
      }
      const ObservationsBlocs obs = ObserverBlocs(ptrs, ParametresObservationsBlocs());
      ASSERT_GT(obs.blocs.size(), 0u);
      ptrs.clear();
      stats.clear();
      ReferenceGainOffset ref;
      if (d.reference) ref.image = static_cast<int>(n);
      const ResultatGainOffset r = ResoudreGainOffset(resumes, obs, p, {}, ref);
      ASSERT_EQ(r.corrections.size(), images.size());
    }
    const double reel = static_cast<double>(g_pic.load() - avant);
    const double estime = static_cast<double>(e.Pic());
    EXPECT_GE(estime, reel) << "estime " << estime << ", reel " << reel;
    EXPECT_LE(estime, 2 * reel) << "estime " << estime << ", reel " << reel;
  }
}

}  // namespace
