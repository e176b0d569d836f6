// Independent tasks spread over threads. The results never depend on the number of threads: the work
// is cut into a fixed partition (task i is always the same work, whoever runs it), each task writes
// only its own data, and callers combine per-task results in index order.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>

// The CPUs this process may run on (its affinity mask, as taskset or a batch scheduler set it), at
// least 1.
int NbCoeursDisponibles();

// Threads used by PourChaque: n >= 1, or 0 to go back to the default, NbCoeursDisponibles(). One
// setting for the whole process, read when a PourChaque starts; n < 0 is refused.
void FixerNbFils(int n);
int NbFils();

// Runs tache(i) for every i in [0, n) on min(n, NbFils()) threads, thread k taking the indices k,
// k + threads, k + 2 x threads... (with one thread, in increasing order on the calling thread). Every
// task runs, even after another has failed. Returns the smallest index whose task threw (n when none
// did) and keeps that exception in 'erreur'.
size_t PourChaque(size_t n, const std::function<void(size_t)>& tache, std::exception_ptr& erreur);

// The same, rethrowing the error of the smallest failing index.
void PourChaque(size_t n, const std::function<void(size_t)>& tache);

// Runs the tasks as PourChaque does, then calls lignes(i, reussi) in index order for every i up to
// and including the first failed one, and rethrows that failure: what lignes prints reads as if the
// tasks had been done one after the other, stopping at the first error.
void PourChaqueOrdonne(size_t n, const std::function<void(size_t)>& tache,
                       const std::function<void(size_t, bool)>& lignes);
