// The polynomial basis of the radiometric fields: products of Legendre polynomials of the pixel
// position normalised to [-1, 1] over the image, each scaled to a root mean square of 1 over the image.
// The terms are orthonormal for the uniform measure on the image, so the sum of the squared
// coefficients of a field is its mean square over the image, and the first coefficient is its mean:
// a prior on the coefficients is a prior on the field's size, whatever the image's size.
#pragma once

namespace base_polynome {

constexpr int kTermesMax = 6;  // degree 2

// Terms of a polynomial of total degree 0, 1 or 2: 1, 3 or 6, in the order 1, x, y, x2, xy, y2.
constexpr int NbTermes(int degre) { return (degre + 1) * (degre + 2) / 2; }

// Normalised coordinate of a position along an axis of n pixels (0 = first pixel's outer edge, n = the
// last pixel's outer edge): -1 to 1.
inline double Normaliser(double position, double n) { return position * (2.0 / n) - 1.0; }

// The six terms at (x, y), normalised coordinates; a polynomial of lower degree uses the first ones.
inline void Termes(double x, double y, double* t) {
  constexpr double r3 = 1.7320508075688772, r5 = 2.23606797749979;
  t[0] = 1.0;
  t[1] = r3 * x;
  t[2] = r3 * y;
  t[3] = r5 * (1.5 * x * x - 0.5);
  t[4] = 3.0 * x * y;
  t[5] = r5 * (1.5 * y * y - 0.5);
}

// A field sum_k c[k] t_k(x, y) of nbTermes terms as c0 + c1 x + c2 x^2 along a line of fixed y, so that
// a line costs two multiplications and two additions per pixel.
inline void ParLigne(const double* c, int nbTermes, double y, double& c0, double& c1, double& c2) {
  constexpr double r3 = 1.7320508075688772, r5 = 2.23606797749979;
  c0 = c[0];
  c1 = 0;
  c2 = 0;
  if (nbTermes >= 3) {
    c0 += c[2] * r3 * y;
    c1 += c[1] * r3;
  }
  if (nbTermes >= 6) {
    c0 += -0.5 * r5 * c[3] + c[5] * r5 * (1.5 * y * y - 0.5);
    c1 += c[4] * 3.0 * y;
    c2 += c[3] * 1.5 * r5;
  }
}

// The monomials 1, X, Y, X2, XY, Y2 of a position X = a x + b, Y = c y + d written in the monomials
// 1, x, y, x2, xy, y2 of (x, y): row k holds monomial k's coefficients. How a field of map position reads
// in one image's own position.
inline void MonomesAffines(double a, double b, double c, double d, double m[kTermesMax][kTermesMax]) {
  const double lignes[kTermesMax][kTermesMax] = {{1, 0, 0, 0, 0, 0},
                                                 {b, a, 0, 0, 0, 0},
                                                 {d, 0, c, 0, 0, 0},
                                                 {b * b, 2 * a * b, 0, a * a, 0, 0},
                                                 {b * d, a * d, b * c, 0, a * c, 0},
                                                 {d * d, 0, 2 * c * d, 0, 0, c * c}};
  for (int k = 0; k < kTermesMax; ++k)
    for (int q = 0; q < kTermesMax; ++q) m[k][q] = lignes[k][q];
}

}  // namespace base_polynome
