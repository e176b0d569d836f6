#include "pipeline/inverse_selective.h"

#include <algorithm>
#include <vector>

Eigen::VectorXd DiagonaleInverse(const Eigen::SimplicialLDLT<Eigen::SparseMatrix<double>>& ldlt) {
  // P A P^T = L D L^T, L unit lower triangular stored without its diagonal, each column's rows in
  // increasing order. Z = (L D L^T)^-1 is wanted on L's pattern:
  //   Z_ij = -sum_k L_kj Z_ik (i > j),  Z_jj = 1 / D_j - sum_k L_kj Z_kj,
  // k over the rows of column j, every Z_ik needed lying on the pattern (the rows of a column form a
  // clique of the filled graph).
  const Eigen::SparseMatrix<double>& L = ldlt.matrixL().nestedExpression();
  const Eigen::VectorXd& D = ldlt.vectorD();
  const Eigen::Index n = L.cols();
  const int* debut = L.outerIndexPtr();
  const int* lignes = L.innerIndexPtr();
  const double* l = L.valuePtr();
  std::vector<double> z(static_cast<size_t>(debut[n]), 0.0);
  Eigen::VectorXd diag(n);
  // Z at (i, k), i > k, from column k's entries.
  const auto valeur = [&](int i, int k) {
    const int* p = std::lower_bound(lignes + debut[k], lignes + debut[k + 1], i);
    return z[static_cast<size_t>(p - lignes)];
  };
  for (Eigen::Index j = n - 1; j >= 0; --j) {
    const int a = debut[j], b = debut[j + 1];
    for (int p = a; p < b; ++p) {
      const int i = lignes[p];
      double s = 0;
      for (int q = a; q < b; ++q) {
        const int k = lignes[q];
        s += l[q] * (k == i ? diag(i) : k > i ? valeur(k, i) : valeur(i, k));
      }
      z[static_cast<size_t>(p)] = -s;
    }
    double s = 1 / D(j);
    for (int p = a; p < b; ++p) s -= l[p] * z[static_cast<size_t>(p)];
    diag(j) = s;
  }
  // Back to A's order: row i of A is row P(i) of P A P^T.
  const auto& P = ldlt.permutationP().indices();
  Eigen::VectorXd r(n);
  for (Eigen::Index i = 0; i < n; ++i) r(i) = diag(P(i));
  return r;
}
