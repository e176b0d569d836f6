// The thread-count setting and the fixed partition of PourChaque.
#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "outils_test.h"
#include "zepra/pipeline/parallele.h"

namespace {

// Restores the default thread count at the end of a test.
struct NbFilsParDefaut {
  ~NbFilsParDefaut() { FixerNbFils(0); }
};

TEST(Parallele, PartitionFixeEchecLePlusPetitEtReglage) {
  const NbFilsParDefaut remise;
  for (int fils : {1, 2, 3}) {
    FixerNbFils(fils);
    ASSERT_EQ(NbFils(), fils);
    // Which thread ran each index, and in which order each thread ran them.
    std::mutex verrou;
    std::map<size_t, std::thread::id> par;
    std::map<std::thread::id, std::vector<size_t>> suite;
    std::exception_ptr erreur;
    const size_t echec = PourChaque(
        10,
        [&](size_t i) {
          {
            const std::lock_guard<std::mutex> garde(verrou);
            par[i] = std::this_thread::get_id();
            suite[par[i]].push_back(i);
          }
          if (i == 7 || i == 4) throw std::runtime_error("tache " + std::to_string(i));
        },
        erreur);
    EXPECT_EQ(echec, 4u);
    ASSERT_TRUE(erreur);
    try {
      std::rethrow_exception(erreur);
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "tache 4");
    }
    // Every task ran, after the failures too; index i on thread i mod fils, in increasing order.
    ASSERT_EQ(par.size(), 10u);
    EXPECT_EQ(suite.size(), static_cast<size_t>(fils));
    for (size_t i = 0; i < 10; ++i) EXPECT_EQ(par[i], par[i % fils]) << fils << " fils, tache " << i;
    for (const auto& [id, indices] : suite) EXPECT_TRUE(std::is_sorted(indices.begin(), indices.end()));
    if (fils == 1) {
      EXPECT_EQ(par[0], std::this_thread::get_id());
    }
  }
  // Lines in index order up to the first failure, then its error.
  FixerNbFils(2);
  std::string lignes;
  EXPECT_THROW(PourChaqueOrdonne(
                   5,
                   [](size_t i) {
                     if (i == 2) throw std::runtime_error("2");
                   },
                   [&](size_t i, bool fait) { lignes += std::to_string(i) + (fait ? "+" : "-"); }),
               std::runtime_error);
  EXPECT_EQ(lignes, "0+1+2-");
  EXPECT_EQ(test::TexteErreur([] { FixerNbFils(-1); }).find("[Parallele] (FixerNbFils)"), 0u);
}

TEST(Parallele, LeDefautSuitLAffinite) {
  // The affinity mask of this thread, narrowed to its first CPU, then restored.
  cpu_set_t avant, un;
  ASSERT_EQ(sched_getaffinity(0, sizeof avant, &avant), 0);
  const int coeurs = CPU_COUNT(&avant);
  EXPECT_EQ(NbCoeursDisponibles(), coeurs);
  CPU_ZERO(&un);
  for (int c = 0; c < CPU_SETSIZE; ++c)
    if (CPU_ISSET(c, &avant)) {
      CPU_SET(c, &un);
      break;
    }
  ASSERT_EQ(sched_setaffinity(0, sizeof un, &un), 0);
  const int restreint = NbCoeursDisponibles(), fils = NbFils();
  ASSERT_EQ(sched_setaffinity(0, sizeof avant, &avant), 0);
  EXPECT_EQ(restreint, 1);
  EXPECT_EQ(fils, 1);
}

}  // namespace
