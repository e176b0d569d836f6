// Independent tasks spread over the machine's cores. The results never depend on the number of
// threads: each task writes only its own data.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>

// Runs tache(i) for every i in [0, n), on up to as many threads as the machine has cores, handing the
// indices out in increasing order. Returns the smallest index whose task threw (n when none did) and
// keeps that exception in 'erreur'; every task is finished when it returns.
size_t PourChaque(size_t n, const std::function<void(size_t)>& tache, std::exception_ptr& erreur);

// The same, rethrowing the error of the smallest failing index.
void PourChaque(size_t n, const std::function<void(size_t)>& tache);
