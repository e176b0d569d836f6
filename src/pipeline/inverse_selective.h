// The diagonal of the inverse of a sparse symmetric matrix from its LDLT factor, without forming the
// inverse: the entries of the inverse on the factor's pattern obey a recurrence from the last column
// back (Takahashi's), and only those are computed. The factor's fill-in closes the pattern under the
// recurrence, so the cost is the sum over columns of the square of their counts, and the memory one
// value per entry of the factor.
#pragma once

#include <Eigen/Sparse>

// The diagonal of A^-1, in A's own order, from a successful factorisation of A. Deterministic: sums in
// a fixed order.
Eigen::VectorXd DiagonaleInverse(const Eigen::SimplicialLDLT<Eigen::SparseMatrix<double>>& ldlt);
