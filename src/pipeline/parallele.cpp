#include "zepra/pipeline/parallele.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

size_t PourChaque(size_t n, const std::function<void(size_t)>& tache, std::exception_ptr& erreur) {
  std::atomic<size_t> suivant{0};
  std::mutex verrou;
  size_t premierEchec = n;
  auto travailleur = [&] {
    for (size_t i = suivant++; i < n; i = suivant++) {
      try {
        tache(i);
      } catch (...) {
        const std::lock_guard<std::mutex> garde(verrou);
        if (i < premierEchec) {
          premierEchec = i;
          erreur = std::current_exception();
        }
      }
    }
  };
  const size_t fils = std::min<size_t>(n, std::max(1u, std::thread::hardware_concurrency()));
  std::vector<std::thread> autres;
  for (size_t k = 1; k < fils; ++k) autres.emplace_back(travailleur);
  travailleur();
  for (std::thread& t : autres) t.join();
  return premierEchec;
}

void PourChaque(size_t n, const std::function<void(size_t)>& tache) {
  std::exception_ptr erreur;
  if (PourChaque(n, tache, erreur) < n) std::rethrow_exception(erreur);
}
