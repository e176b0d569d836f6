// The two historical models: a degree-2 polynomial of pixel position per image and one common value
// per observed grid point, solved together. Every observation gives a model row and a tie row; every
// observed point a point row. Weights: 1 for model rows, 0.1 for tie and point rows.
//   additive:        P_i(col, lin) + t_p = v      multiplicative:  P_i(col, lin) = v / V[g]
//   tie:             t_p = v                      point:           t_p = V[g]
// V is the list of observed values, one per observation in the order found, and g the point's running
// index among all grid points: the two indices differ as soon as a grid point has no observation or
// several. This pairing is the established behaviour of these models and is kept as it is; past the
// end of the list the point's own mean observation stands in.
#include <sstream>

#include "modeles_internes.h"
#include "moindres_carres.h"
#include "zepra/systeme.h"

namespace {

constexpr int kNbCoef = 6;  // terms of a degree-2 polynomial

class ModelePolynomeGrille : public ModeleCorrection {
 public:
  explicit ModelePolynomeGrille(bool multiplicatif) : m_multiplicatif(multiplicatif) {}
  bool Ajuster(const Observations& o, std::ostream* trace,
               std::vector<std::unique_ptr<CorrectionImage>>& corrections) const override;

 private:
  bool m_multiplicatif;
};

bool ModelePolynomeGrille::Ajuster(const Observations& o, std::ostream* trace,
                                   std::vector<std::unique_ptr<CorrectionImage>>& corrections) const {
  const long long nObs = static_cast<long long>(o.obs.size());
  const long long nPoints = static_cast<long long>(o.points.size());
  const long long nImg = o.nbImages;
  const int bandes = o.nbBandes;
  // V, per band, with its companion counts, all 1: each entry divided by its count leaves it as it was.
  std::vector<std::vector<double>> V(bandes, std::vector<double>(nObs));
  const std::vector<int> comptes(nObs, 1);
  for (int b = 0; b < bandes; ++b)
    for (long long k = 0; k < nObs; ++k) {
      V[b][k] = o.Valeur(k, b);
      if (comptes[k] != 0) V[b][k] /= comptes[k];
    }

  const long long nLignes = 2 * nObs + nPoints, nColonnes = nImg * kNbCoef + nPoints;
  std::vector<Eigen::Triplet<double>> a, w;
  a.reserve(static_cast<size_t>(nObs * (kNbCoef + 2) + nPoints));
  w.reserve(static_cast<size_t>(nLignes));
  SystemeLineaire s;
  s.B.assign(bandes, Eigen::VectorXd::Zero(nLignes));
  std::vector<double> reference(bandes);
  const Polynome2D modele(2);
  long long r = 0, horsListe = 0;
  for (long long p = 0; p < nPoints; ++p) {
    const PointObserve& pt = o.points[p];
    const bool dansListe = pt.g < nObs;
    horsListe += !dansListe;
    for (int b = 0; b < bandes; ++b) {
      if (dansListe) {
        reference[b] = V[b][pt.g];
        continue;
      }
      double somme = 0;
      for (size_t k = pt.debut; k < pt.fin; ++k) somme += o.Valeur(k, b);
      reference[b] = somme / static_cast<double>(pt.fin - pt.debut);
    }
    const long long colonnePoint = nImg * kNbCoef + p;
    for (size_t k = pt.debut; k < pt.fin; ++k, ++r) {
      const Observation& ob = o.obs[k];
      const std::vector<double> d = modele.derivee(ob.col, ob.lin);
      for (int c = 0; c < kNbCoef; ++c) a.emplace_back(r, ob.image * kNbCoef + c, d[c]);
      if (!m_multiplicatif) a.emplace_back(r, colonnePoint, 1.0);
      w.emplace_back(r, r, 1.0);
      a.emplace_back(nObs + r, colonnePoint, 1.0);
      w.emplace_back(nObs + r, nObs + r, 0.1);
      for (int b = 0; b < bandes; ++b) {
        const double v = o.Valeur(k, b);
        s.B[b](r) = m_multiplicatif ? v / reference[b] : v;
        s.B[b](nObs + r) = v;
      }
    }
    const long long ligne = 2 * nObs + p;
    a.emplace_back(ligne, colonnePoint, 1.0);
    w.emplace_back(ligne, ligne, 0.1);
    for (int b = 0; b < bandes; ++b) s.B[b](ligne) = reference[b];
  }
  if (horsListe > 0) {
    std::ostringstream m;
    m << "[Egalisation] (Egaliser) " << horsListe << " point(s) de la grille d'indice au-dela des " << nObs
      << " valeurs observees : la moyenne des observations du point leur sert de reference.";
    Systeme::Warning(m.str());
  }
  s.A.resize(nLignes, nColonnes);
  s.W.resize(nLignes, nLignes);
  s.A.setFromTriplets(a.begin(), a.end());
  s.W.setFromTriplets(w.begin(), w.end());
  std::vector<Eigen::Triplet<double>>().swap(a);
  std::vector<Eigen::Triplet<double>>().swap(w);

  std::vector<Eigen::VectorXd> X;
  if (!ResoudreNormales(s, trace, X)) return false;
  corrections.clear();
  for (long long i = 0; i < nImg; ++i) {
    std::vector<Polynome2D> parBande(bandes, Polynome2D(2));
    for (int b = 0; b < bandes; ++b)
      parBande[b].SetCoefficients(
          std::vector<double>(X[b].data() + i * kNbCoef, X[b].data() + (i + 1) * kNbCoef));
    corrections.push_back(std::make_unique<CorrectionPolynome>(std::move(parBande), m_multiplicatif));
  }
  return true;
}

}  // namespace

std::unique_ptr<ModeleCorrection> CreerModeleAdditif(const ParametresModele&) {
  return std::make_unique<ModelePolynomeGrille>(false);
}
std::unique_ptr<ModeleCorrection> CreerModeleMultiplicatif(const ParametresModele&) {
  return std::make_unique<ModelePolynomeGrille>(true);
}
