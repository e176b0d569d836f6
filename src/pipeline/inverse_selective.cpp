#include "pipeline/inverse_selective.h"

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
  std::vector<double> z(static_cast<size_t>(debut[n]), 0.0), somme;
  Eigen::VectorXd diag(n);
  for (Eigen::Index j = n - 1; j >= 0; --j) {
    const int a = debut[j], m = debut[j + 1] - a;
    // somme = Z(R, R) l(R), R the rows of column j, from the lower triangle: Z(r, c), r > c, both in
    // R, is in column c at row r, found by walking column c along R (both in increasing order) rather
    // than by a search per entry.
    somme.assign(static_cast<size_t>(m), 0.0);
    for (int t0 = 0; t0 < m; ++t0) {
      const int c = lignes[a + t0];
      somme[t0] += l[a + t0] * diag(c);
      int u = debut[c];
      const int fin = debut[c + 1];
      for (int t = t0 + 1; t < m; ++t) {
        const int r = lignes[a + t];
        while (u < fin && lignes[u] < r) ++u;
        if (u == fin || lignes[u] != r) continue;  // cannot happen on a factor's pattern
        const double zrc = z[static_cast<size_t>(u)];
        somme[t] += l[a + t0] * zrc;
        somme[t0] += l[a + t] * zrc;
      }
    }
    double d = 1 / D(j);
    for (int t = 0; t < m; ++t) {
      z[static_cast<size_t>(a + t)] = -somme[t];
      d += l[a + t] * somme[t];
    }
    diag(j) = d;
  }
  // Back to A's order: row i of A is row P(i) of P A P^T.
  const auto& P = ldlt.permutationP().indices();
  Eigen::VectorXd r(n);
  for (Eigen::Index i = 0; i < n; ++i) r(i) = diag(P(i));
  return r;
}
