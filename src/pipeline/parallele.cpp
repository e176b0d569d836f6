#include "zepra/pipeline/parallele.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "zepra/erreur.h"

namespace {

std::atomic<int> g_nbFils{0};  // 0: the default

}  // namespace

int NbCoeursDisponibles() {
  // hardware_concurrency counts the machine's CPUs, not those the process is allowed on.
  cpu_set_t ensemble;
  CPU_ZERO(&ensemble);
  if (sched_getaffinity(0, sizeof ensemble, &ensemble) == 0) return std::max(1, CPU_COUNT(&ensemble));
  return std::max(1u, std::thread::hardware_concurrency());
}

void FixerNbFils(int n) {
  if (n < 0) ZEPRA_ERREUR("[Parallele] (FixerNbFils) Nombre de fils negatif : " << n << ".");
  g_nbFils = n;
}

int NbFils() {
  const int n = g_nbFils;
  return n > 0 ? n : NbCoeursDisponibles();
}

size_t PourChaque(size_t n, const std::function<void(size_t)>& tache, std::exception_ptr& erreur) {
  const size_t fils = std::min(n, static_cast<size_t>(NbFils()));
  // Each thread keeps its own first failure; they are compared after the join, so no lock is needed.
  std::vector<size_t> echecs(fils, n);
  std::vector<std::exception_ptr> erreurs(fils);
  auto travailleur = [&](size_t k) {
    for (size_t i = k; i < n; i += fils) {
      try {
        tache(i);
      } catch (...) {
        if (echecs[k] == n) {
          echecs[k] = i;
          erreurs[k] = std::current_exception();
        }
      }
    }
  };
  std::vector<std::thread> autres;
  for (size_t k = 1; k < fils; ++k) autres.emplace_back(travailleur, k);
  if (fils > 0) travailleur(0);
  for (std::thread& t : autres) t.join();
  size_t premier = n;
  for (size_t k = 0; k < fils; ++k)
    if (echecs[k] < premier) {
      premier = echecs[k];
      erreur = erreurs[k];
    }
  return premier;
}

void PourChaque(size_t n, const std::function<void(size_t)>& tache) {
  std::exception_ptr erreur;
  if (PourChaque(n, tache, erreur) < n) std::rethrow_exception(erreur);
}

void PourChaqueOrdonne(size_t n, const std::function<void(size_t)>& tache,
                       const std::function<void(size_t, bool)>& lignes) {
  std::exception_ptr erreur;
  const size_t echec = PourChaque(n, tache, erreur);
  for (size_t i = 0; i < n && i <= echec; ++i) lignes(i, i < echec);
  if (erreur) std::rethrow_exception(erreur);
}
