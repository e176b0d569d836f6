// Complete polynomials of two variables and their least-squares fit to the masked pixels of images.
#pragma once

#include <string>
#include <vector>

#include "zepra/geometrie.h"
#include "zepra/ttimage.h"

// One term x^i y^j. Terms sort by total degree, then by the power of y (so x^2, xy, y^2).
struct Monome2D {
  int i = 0;
  int j = 0;
  Monome2D() = default;
  Monome2D(int pi, int pj) : i(pi), j(pj) {}
  bool operator<(const Monome2D& m) const { return i + j != m.i + m.j ? i + j < m.i + m.j : j < m.j; }
  bool operator==(const Monome2D& m) const { return i == m.i && j == m.j; }
};

// The degrees above this one are refused: the normal matrix of a fit, (terms)^2 doubles, would be
// out of proportion (degree 50 already has 1326 terms).
constexpr int kDegreMaxPolynome = 50;

// Complete polynomial of total degree d: every term x^i y^j with i + j <= d, (d + 1)(d + 2) / 2 of them,
// in the order of Monome2D. The coefficients follow the same order; they are empty until set.
// Evaluating a polynomial whose coefficients do not match its terms raises an Erreur.
// The two evaluations are virtual, as the established interface has them, and so is the destructor,
// so that a derived polynomial may be deleted through this type.
class Polynome2D {
 public:
  // A negative degree makes a polynomial with no term (its value is 0).
  explicit Polynome2D(int degre);
  virtual ~Polynome2D() = default;
  Polynome2D(const Polynome2D&) = default;
  Polynome2D(Polynome2D&&) = default;
  Polynome2D& operator=(const Polynome2D&) = default;
  Polynome2D& operator=(Polynome2D&&) = default;

  virtual double operator()(double x, double y) const;
  virtual double operator()(const T2D<double>& p) const { return (*this)(p.x, p.y); }

  // The values x^i y^j of all terms, in term order: the derivatives of the value with respect to the
  // coefficients, one row of a least-squares design.
  std::vector<double> derivee(double x, double y) const;

  // Writes one line: the degree, then " " and each coefficient in the default stream format. False when
  // the file cannot be written (the file is then left absent).
  bool Sauver(const std::string& fichier) const;

  int Degre() const { return m_degre; }
  size_t NbTermes() const { return m_termes.size(); }
  const std::vector<Monome2D>& Termes() const { return m_termes; }
  const std::vector<double>& Coefficients() const { return m_coefficients; }
  // Sets the coefficients; their count must be the number of terms.
  void SetCoefficients(const std::vector<double>& coefficients);

 private:
  int m_degre;
  std::vector<double> m_coefficients;
  std::vector<Monome2D> m_termes;
};

// The normal equations of a polynomial fit, gathered image by image. Memory is a few times
// (terms)^2 doubles whatever the number of pixels: no design matrix is ever stored. For each row the
// sums over x of x^a (and of value x x^a) are taken first, then spread over the powers of y; the normal
// matrix is made of these moments, its entry (k, l) being the sum of x^(ik + il) y^(jk + jl).
class AjustementPolynome2D {
 public:
  explicit AjustementPolynome2D(int degre);

  // Adds one equation per pixel set in the mask whose value is not NaN, every pas-th column and row
  // from (0, 0); its position is (column - width / 2, row - height / 2). Returns the count added.
  long long Ajouter(const TTImage<float>& image, const TTImage<bool>& masque, int pas);
  long long NbEquations() const { return m_equations; }

  // Solves (A^T A) c = A^T b by the explicit inverse of the normal matrix. A singular matrix (too few
  // equations, or equations that do not span the terms) is not refused: the coefficients are then
  // whatever the inverse yields, non-finite ones included, and a warning is logged.
  Polynome2D Resoudre() const;

 private:
  int m_degre;
  double m_echelle = 0.0;  // power of two that keeps the scaled positions near [-1, 1]
  long long m_equations = 0;
  std::vector<double> m_moments;  // sum of x^a y^b, a + b <= 2d, indexed by Indice(a, b, 2d)
  std::vector<double> m_second;   // sum of v x^a y^b, a + b <= d, indexed by Indice(a, b, d)
};

// Every pixel set in the mask receives the polynomial's value at (column - width / 2, row - height / 2),
// stored as float; the others keep their values.
void AppliquerModele(TTImage<float>& image, const TTImage<bool>& masque, const Polynome2D& p);

// Fits a polynomial of the given degree to the masked, non-NaN pixels (every pas-th column and row),
// writes "<count> equations" on standard output before the fit, replaces the masked pixels by the model
// and returns the polynomial.
Polynome2D ModelePolynomialMonoImage(TTImage<float>& image, const TTImage<bool>& masque, int pas, int degre);
