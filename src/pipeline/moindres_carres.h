// The weighted least-squares system of a correction model, solved through its normal equations: one
// design and one set of weights for every band, one right-hand side per band, one factorisation.
#pragma once

#include <Eigen/Sparse>
#include <ostream>
#include <vector>

struct SystemeLineaire {
  Eigen::SparseMatrix<double> A;   // design
  Eigen::SparseMatrix<double> W;   // weights, diagonal
  std::vector<Eigen::VectorXd> B;  // one right-hand side per band
};

// Forms Aᵀ·W·A and Aᵀ·W·B, factorises the normal matrix once by sparse LDLᵀ and solves it for each band.
// On 'trace' when given: "Calcul de tAA et tAB", "Compression", "Resolution", then "Decomposition LDLt
// OK" and, per band, "Solution : " and "Residus : " with the vectors. False, after "rate", when the
// factorisation or a solve fails.
bool ResoudreNormales(SystemeLineaire& s, std::ostream* trace, std::vector<Eigen::VectorXd>& solutions);
