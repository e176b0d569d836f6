#include "zepra/pipeline/polynome.h"

#include <Eigen/Dense>
#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <sstream>

#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"
#include "zepra/pipeline/walis.h"
#include "zepra/systeme.h"

namespace {

// x^0 ... x^d by repeated multiplication from 1: the powers every evaluation uses.
inline void Puissances(double x, int d, double* p) {
  p[0] = 1.0;
  for (int a = 1; a <= d; ++a) p[a] = p[a - 1] * x;
}

}  // namespace

Polynome2D::Polynome2D(int degre) : m_degre(degre) {
  if (degre > kDegreMaxPolynome)
    ZEPRA_ERREUR("[Polynome2D] (Polynome2D) Degre " << degre << " trop grand (au plus " << kDegreMaxPolynome
                                                    << ").");
  for (int i = 0; i <= degre; ++i)
    for (int j = 0; j <= degre - i; ++j) m_termes.emplace_back(i, j);
  std::sort(m_termes.begin(), m_termes.end());
}

void Polynome2D::SetCoefficients(const std::vector<double>& coefficients) {
  if (coefficients.size() != m_termes.size())
    ZEPRA_ERREUR("[Polynome2D] (SetCoefficients) " << coefficients.size() << " coefficients pour "
                                                   << m_termes.size() << " termes.");
  m_coefficients = coefficients;
}

double Polynome2D::operator()(double x, double y) const {
  if (m_coefficients.size() != m_termes.size())
    ZEPRA_ERREUR("[Polynome2D] (operator()) " << m_coefficients.size() << " coefficients pour "
                                              << m_termes.size() << " termes.");
  if (m_termes.empty()) return 0.0;
  std::array<double, kDegreMaxPolynome + 1> px, py;
  Puissances(x, m_degre, px.data());
  Puissances(y, m_degre, py.data());
  double somme = 0.0;
  for (size_t k = 0; k < m_termes.size(); ++k)
    somme += m_coefficients[k] * px[m_termes[k].i] * py[m_termes[k].j];
  return somme;
}

std::vector<double> Polynome2D::derivee(double x, double y) const {
  std::vector<double> d(m_termes.size());
  if (m_termes.empty()) return d;
  std::array<double, kDegreMaxPolynome + 1> px, py;
  Puissances(x, m_degre, px.data());
  Puissances(y, m_degre, py.data());
  for (size_t k = 0; k < m_termes.size(); ++k) d[k] = px[m_termes[k].i] * py[m_termes[k].j];
  return d;
}

bool Polynome2D::Sauver(const std::string& fichier) const {
  try {
    FichierAtomique f(fichier, "[Polynome2D] (Sauver)");
    f.flux() << m_degre;
    for (double c : m_coefficients) f.flux() << ' ' << c;
    f.flux() << '\n';
    f.Valider();
    return true;
  } catch (const Erreur&) {
    return false;
  }
}

namespace {

// Moments are kept in square (D + 1) x (D + 1) tables; only a + b <= D is used.
inline size_t Indice(int a, int b, int D) { return static_cast<size_t>(a) * (D + 1) + b; }

}  // namespace

AjustementPolynome2D::AjustementPolynome2D(int degre) : m_degre(degre) {
  if (degre < 0)
    ZEPRA_ERREUR("[AjustementPolynome2D] (AjustementPolynome2D) Degre negatif : " << degre << ".");
  if (degre > kDegreMaxPolynome)
    ZEPRA_ERREUR("[AjustementPolynome2D] (AjustementPolynome2D) Degre " << degre << " trop grand (au plus "
                                                                        << kDegreMaxPolynome << ").");
  m_moments.assign(static_cast<size_t>(2 * degre + 1) * (2 * degre + 1), 0.0);
  m_second.assign(static_cast<size_t>(degre + 1) * (degre + 1), 0.0);
}

long long AjustementPolynome2D::Ajouter(const TTImage<float>& image, const TTImage<bool>& masque, int pas) {
  const char* tag = "[AjustementPolynome2D] (Ajouter)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierMasque(image, masque, tag);
  if (pas < 1) ZEPRA_ERREUR(tag << " Pas d'echantillonnage " << pas << " : il doit valoir au moins 1.");
  const int w = image.iGetNbColonnes();
  const int h = image.iGetNbLignes();
  const int d = m_degre;
  const int D = 2 * d;
  if (m_echelle == 0.0) {
    // Positions are divided by a power of two near the half-size of the first image: the moments of a
    // high degree then stay of one magnitude, and scaling by a power of two changes no digit.
    int e = 0;
    std::frexp(std::max(0.5 * std::max(w, h), 1.0), &e);
    m_echelle = std::ldexp(1.0, e);
  }
  // Powers of the scaled column positions, one row of D + 1 per sampled column: the same for all rows.
  const int nx = w > 0 ? (w - 1) / pas + 1 : 0;
  std::vector<double> px(static_cast<size_t>(nx) * (D + 1));
  for (int k = 0; k < nx; ++k)
    Puissances((k * pas - 0.5 * w) / m_echelle, D, &px[static_cast<size_t>(k) * (D + 1)]);
  std::vector<double> sx(D + 1), sv(d + 1), py(D + 1);
  long long equations = 0;
  for (int r = 0; r < h; r += pas) {
    std::fill(sx.begin(), sx.end(), 0.0);
    std::fill(sv.begin(), sv.end(), 0.0);
    const float* v = image.GetLines(r);
    const auto m = masque.GetLines(r);
    long long n = 0;
    for (int k = 0; k < nx; ++k) {
      const int c = k * pas;
      const double valeur = v[c];
      if (!m[c] || std::isnan(valeur)) continue;
      const double* p = &px[static_cast<size_t>(k) * (D + 1)];
      for (int a = 0; a <= D; ++a) sx[a] += p[a];
      for (int a = 0; a <= d; ++a) sv[a] += valeur * p[a];
      ++n;
    }
    if (n == 0) continue;
    equations += n;
    Puissances((r - 0.5 * h) / m_echelle, D, py.data());
    for (int a = 0; a <= D; ++a)
      for (int b = 0; a + b <= D; ++b) m_moments[Indice(a, b, D)] += sx[a] * py[b];
    for (int a = 0; a <= d; ++a)
      for (int b = 0; a + b <= d; ++b) m_second[Indice(a, b, d)] += sv[a] * py[b];
  }
  m_equations += equations;
  return equations;
}

Polynome2D AjustementPolynome2D::Resoudre() const {
  Polynome2D p(m_degre);
  const std::vector<Monome2D>& t = p.Termes();
  const int n = static_cast<int>(t.size());
  const int d = m_degre;
  const int D = 2 * d;
  Eigen::MatrixXd normale(n, n);
  Eigen::VectorXd second(n);
  for (int k = 0; k < n; ++k) {
    for (int l = 0; l < n; ++l) normale(k, l) = m_moments[Indice(t[k].i + t[l].i, t[k].j + t[l].j, D)];
    second(k) = m_second[Indice(t[k].i, t[k].j, d)];
  }
  const Eigen::VectorXd solution = normale.inverse() * second;
  // Back to unscaled positions: coefficient k was found for x / s and y / s.
  int e = 0;
  std::frexp(m_echelle == 0.0 ? 1.0 : m_echelle, &e);
  --e;
  std::vector<double> c(n);
  bool finis = true;
  for (int k = 0; k < n; ++k) {
    c[k] = std::ldexp(solution(k), -e * (t[k].i + t[k].j));
    finis = finis && std::isfinite(c[k]);
  }
  if (m_equations < n || !finis) {
    std::ostringstream message;
    message << "[AjustementPolynome2D] (Resoudre) Systeme singulier : " << m_equations << " equations pour "
            << n << " inconnues ; coefficients non fiables.";
    Systeme::Warning(message.str());
  }
  p.SetCoefficients(c);
  return p;
}

void AppliquerModele(TTImage<float>& image, const TTImage<bool>& masque, const Polynome2D& p) {
  const char* tag = "[Polynome2D] (AppliquerModele)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierMasque(image, masque, tag);
  if (p.Coefficients().size() != p.NbTermes())
    ZEPRA_ERREUR(tag << " " << p.Coefficients().size() << " coefficients pour " << p.NbTermes()
                     << " termes.");
  const int w = image.iGetNbColonnes();
  const int h = image.iGetNbLignes();
  const int d = std::max(p.Degre(), 0);
  const std::vector<Monome2D>& t = p.Termes();
  const std::vector<double>& c = p.Coefficients();
  // Powers of every column position, stored power-major so that neighbouring pixels are contiguous.
  // They are those operator() computes, and the sum below runs in its order: the model written is
  // exactly the polynomial's value, only several pixels are summed side by side.
  std::vector<double> px(static_cast<size_t>(d + 1) * w);
  std::vector<double> p1(d + 1);
  for (int x = 0; x < w; ++x) {
    Puissances(x - 0.5 * w, d, p1.data());
    for (int a = 0; a <= d; ++a) px[static_cast<size_t>(a) * w + x] = p1[a];
  }
  std::vector<double> py(d + 1);
  constexpr int kBloc = 8;
  for (int y = 0; y < h; ++y) {
    Puissances(y - 0.5 * h, d, py.data());
    float* v = image.GetLines(y);
    const auto m = masque.GetLines(y);
    for (int x0 = 0; x0 < w; x0 += kBloc) {
      const int nb = std::min(kBloc, w - x0);
      double somme[kBloc] = {};
      if (nb == kBloc) {
        for (size_t k = 0; k < t.size(); ++k) {
          const double* colonne = &px[static_cast<size_t>(t[k].i) * w + x0];
          const double ck = c[k], yj = py[t[k].j];
          for (int l = 0; l < kBloc; ++l) somme[l] += ck * colonne[l] * yj;
        }
      } else {
        for (size_t k = 0; k < t.size(); ++k) {
          const double* colonne = &px[static_cast<size_t>(t[k].i) * w + x0];
          for (int l = 0; l < nb; ++l) somme[l] += c[k] * colonne[l] * py[t[k].j];
        }
      }
      for (int l = 0; l < nb; ++l)
        if (m[x0 + l]) v[x0 + l] = static_cast<float>(somme[l]);
    }
  }
}

Polynome2D ModelePolynomialMonoImage(TTImage<float>& image, const TTImage<bool>& masque, int pas, int degre) {
  AjustementPolynome2D ajustement(degre);
  const long long n = ajustement.Ajouter(image, masque, pas);
  std::cout << n << " equations" << std::endl;
  const Polynome2D p = ajustement.Resoudre();
  AppliquerModele(image, masque, p);
  return p;
}
