#include "moindres_carres.h"

#include <Eigen/SparseCholesky>

bool ResoudreNormales(SystemeLineaire& s, std::ostream* trace, std::vector<Eigen::VectorXd>& solutions) {
  const auto Trace = [&](const char* ligne) {
    if (trace) *trace << ligne << std::endl;
  };
  Trace("Calcul de tAA et tAB");
  const Eigen::SparseMatrix<double> At = s.A.transpose();
  Eigen::SparseMatrix<double> tAA = At * s.W * s.A;
  std::vector<Eigen::VectorXd> tAB;
  for (const Eigen::VectorXd& B : s.B) tAB.push_back(At * s.W * B);
  Trace("Compression");
  s.A.makeCompressed();
  tAA.makeCompressed();
  Trace("Resolution");
  Eigen::SimplicialLDLT<Eigen::SparseMatrix<double>> ldlt;
  ldlt.compute(tAA);
  if (ldlt.info() != Eigen::Success) {
    Trace("rate");
    return false;
  }
  Trace("Decomposition LDLt OK");
  solutions.clear();
  for (size_t b = 0; b < tAB.size(); ++b) {
    solutions.push_back(ldlt.solve(tAB[b]));
    if (ldlt.info() != Eigen::Success) {
      Trace("rate");
      return false;
    }
    if (trace) {
      *trace << "Solution : " << solutions[b] << std::endl;
      *trace << "Residus : " << (s.A * solutions[b] - s.B[b]) << std::endl;
    }
  }
  return true;
}
