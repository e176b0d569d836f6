// The global equalization system: one observation per (grid point, image) pair, a degree-2 polynomial
// of pixel position per image and one common value per observed grid point, solved together as one
// weighted sparse least-squares problem through its normal equations.
#include <Eigen/Sparse>
#include <Eigen/SparseCholesky>
#include <cmath>
#include <sstream>

#include "mosaique.h"
#include "zepra/erreur.h"
#include "zepra/systeme.h"

namespace {

constexpr int kNbCoef = 6;  // terms of a degree-2 polynomial

struct Observation {
  int image;
  double col, lin;  // unrounded pixel position
  double valeur;
};

// An observed grid point: its observations [debut, fin) and its running index g in the grid.
struct PointObserve {
  size_t debut, fin;
  long long g;
};

// Beyond this the sampling would take hours and the system gigabytes: the step is surely wrong.
constexpr double kMaxPointsGrille = 1e9;

}  // namespace

bool Egaliser(const std::vector<ImageObservee>& images, const Emprise& e, double pas, bool multiplicatif,
              std::vector<Polynome2D>& polynomes, std::ostream& console) {
  const double nx = std::ceil((e.maxX - e.minX) / pas), ny = std::ceil((e.maxY - e.minY) / pas);
  if (nx * ny > kMaxPointsGrille)
    ZEPRA_ERREUR("[Main_nouveau] (Egaliser) Grille d'echantillonnage demesuree : "
                 << nx << " x " << ny << " points pour un pas de " << pas << " ; augmenter --pas.");
  // First pass: the observations in grid order (x outer, y inner, then image order), and the list V of
  // observed values with its companion counts, all 1.
  std::vector<Observation> obs;
  std::vector<PointObserve> points;
  std::vector<double> V;
  long long g = 0;
  for (double x = e.minX; x < e.maxX; x += pas) {
    for (double y = e.minY; y < e.maxY; y += pas, ++g) {
      const size_t debut = obs.size();
      for (size_t i = 0; i < images.size(); ++i) {
        const ImageObservee& im = images[i];
        const GeoCarto& geo = im.geo;
        if (!(geo.minX < x && x < geo.maxX && geo.minY < y && y < geo.maxY)) continue;
        double col, lin;
        geo.MapToPhoto(x, y, col, lin);
        int c, l;
        if (!PixelDedans(col, lin, im.ortho->iGetNbColonnes(), im.ortho->iGetNbLignes(), c, l)) continue;
        if ((*im.ortho)(c, l) == 0.0f || (*im.masque)(c, l)) continue;
        obs.push_back(Observation{static_cast<int>(i), col, lin, static_cast<double>((*im.valeurs)(c, l))});
        V.push_back(obs.back().valeur);
      }
      if (obs.size() > debut) points.push_back(PointObserve{debut, obs.size(), g});
    }
  }
  // Each entry divided by its count (1): V is unchanged, as it always was.
  const std::vector<int> comptes(V.size(), 1);
  for (size_t k = 0; k < V.size(); ++k)
    if (comptes[k] != 0) V[k] /= comptes[k];

  const long long nObs = static_cast<long long>(obs.size());
  const long long nPoints = static_cast<long long>(points.size());
  const long long nImg = static_cast<long long>(images.size());
  console << nPoints << " points " << 2 * nObs << " eqs" << std::endl;

  // Second pass: the rows. A grid point's reference value is V[g], the entry of the per-observation
  // list whose index is the point's grid index: the two indices differ as soon as a grid point has no
  // observation or several, and this pairing is kept as it always was. Past the end of the list the
  // point's own mean observation stands in.
  const long long nLignes = 2 * nObs + nPoints, nColonnes = nImg * kNbCoef + nPoints;
  std::vector<Eigen::Triplet<double>> a, w;
  a.reserve(static_cast<size_t>(nObs * (kNbCoef + 2) + nPoints));
  w.reserve(static_cast<size_t>(nLignes));
  Eigen::VectorXd B = Eigen::VectorXd::Zero(nLignes);
  const Polynome2D modele(2);
  long long r = 0, horsListe = 0;
  for (long long p = 0; p < nPoints; ++p) {
    const PointObserve& pt = points[p];
    double reference;
    if (pt.g < static_cast<long long>(V.size())) {
      reference = V[pt.g];
    } else {
      double somme = 0;
      for (size_t k = pt.debut; k < pt.fin; ++k) somme += obs[k].valeur;
      reference = somme / static_cast<double>(pt.fin - pt.debut);
      ++horsListe;
    }
    const long long colonnePoint = nImg * kNbCoef + p;
    for (size_t k = pt.debut; k < pt.fin; ++k, ++r) {
      const Observation& o = obs[k];
      const std::vector<double> d = modele.derivee(o.col, o.lin);
      for (int c = 0; c < kNbCoef; ++c) a.emplace_back(r, o.image * kNbCoef + c, d[c]);
      if (multiplicatif) {
        B(r) = o.valeur / reference;
      } else {
        a.emplace_back(r, colonnePoint, 1.0);
        B(r) = o.valeur;
      }
      w.emplace_back(r, r, 1.0);
      a.emplace_back(nObs + r, colonnePoint, 1.0);
      B(nObs + r) = o.valeur;
      w.emplace_back(nObs + r, nObs + r, 0.1);
    }
    const long long ligne = 2 * nObs + p;
    a.emplace_back(ligne, colonnePoint, 1.0);
    B(ligne) = reference;
    w.emplace_back(ligne, ligne, 0.1);
  }
  if (horsListe > 0) {
    std::ostringstream m;
    m << "[Egalisation] (Egaliser) " << horsListe << " point(s) de la grille d'indice au-dela des "
      << V.size() << " valeurs observees : la moyenne des observations du point leur sert de reference.";
    Systeme::Warning(m.str());
  }

  Eigen::SparseMatrix<double> A(nLignes, nColonnes), W(nLignes, nLignes);
  A.setFromTriplets(a.begin(), a.end());
  W.setFromTriplets(w.begin(), w.end());
  std::vector<Eigen::Triplet<double>>().swap(a);
  std::vector<Eigen::Triplet<double>>().swap(w);

  console << "Calcul de tAA et tAB" << std::endl;
  const Eigen::SparseMatrix<double> At = A.transpose();
  Eigen::SparseMatrix<double> tAA = At * W * A;
  const Eigen::VectorXd tAB = At * W * B;
  console << "Compression" << std::endl;
  A.makeCompressed();
  tAA.makeCompressed();
  console << "Resolution" << std::endl;
  Eigen::SimplicialLDLT<Eigen::SparseMatrix<double>> ldlt;
  ldlt.compute(tAA);
  if (ldlt.info() != Eigen::Success) {
    console << "rate" << std::endl;
    return false;
  }
  console << "Decomposition LDLt OK" << std::endl;
  const Eigen::VectorXd X = ldlt.solve(tAB);
  if (ldlt.info() != Eigen::Success) {
    console << "rate" << std::endl;
    return false;
  }
  console << "Solution : " << X << std::endl;
  console << "Residus : " << (A * X - B) << std::endl;

  polynomes.assign(images.size(), Polynome2D(2));
  for (long long i = 0; i < nImg; ++i)
    polynomes[i].SetCoefficients(std::vector<double>(X.data() + i * kNbCoef, X.data() + (i + 1) * kNbCoef));
  return true;
}

void CorrigerImage(TTImage<float>& image, const Polynome2D& p, bool multiplicatif) {
  const std::vector<double>& c = p.Coefficients();
  if (p.Degre() != 2 || c.size() != kNbCoef)
    ZEPRA_ERREUR("[Main_nouveau] (CorrigerImage) Polynome de degre 2 attendu.");
  const int n = image.GetNbCanaux();
  for (int y = 0; y < image.iGetNbLignes(); ++y) {
    float* l = image.GetLines(y);
    for (int x = 0; x < image.iGetNbColonnes(); ++x) {
      float& v = l[static_cast<long>(x) * n];
      if (v == 0.0f) continue;  // no data stays no data
      const double P = ValeurDegre2(c.data(), x, y);
      v = static_cast<float>(multiplicatif ? v / P : v - P);
    }
  }
}
