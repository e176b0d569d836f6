// Random images and masks, brute-force window sums and pixel comparisons for the radiometric tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <random>
#include <sstream>

#include "zepra/orientedimage.h"
#include "zepra/ttimage.h"

namespace test {

// A one-channel image of w x h samples drawn from 'loi'.
template <class T, class Loi>
TTImage<T> Aleatoire(int w, int h, std::mt19937& g, Loi loi) {
  TTImage<T> im(w, h, TagNbCanaux(1));
  for (auto it = im.begin(); it != im.end(); ++it) *it = loi(g);
  return im;
}
inline TTImage<float> ImageAleatoire(int w, int h, std::mt19937& g, float min = 0.0f, float max = 255.0f) {
  return Aleatoire<float>(w, h, g, std::uniform_real_distribution<float>(min, max));
}
inline TTImage<bool> MasqueAleatoire(int w, int h, std::mt19937& g, double proportion = 0.6) {
  return Aleatoire<bool>(w, h, g, std::bernoulli_distribution(proportion));
}

// Sums over the pixels of [x0, x1] x [y0, y1] (clipped), counting only masked ones when a mask is
// given; mean and deviation are 0 for an empty window, the deviation of a negative variance 0.
struct Sommes {
  double s = 0.0, q = 0.0, n = 0.0;
  double moyenne() const { return n ? s / n : 0.0; }
  double ecart() const { return n ? std::sqrt(std::max(q / n - moyenne() * moyenne(), 0.0)) : 0.0; }
};
inline Sommes SommesDirectes(const TTImage<float>& im, const TTImage<bool>* m, int x0, int y0, int x1,
                             int y1) {
  Sommes r;
  for (int y = std::max(y0, 0); y <= std::min(y1, im.iGetNbLignes() - 1); ++y)
    for (int x = std::max(x0, 0); x <= std::min(x1, im.iGetNbColonnes() - 1); ++x) {
      if (m && !(*m)(x, y)) continue;
      const double v = im(x, y);
      r.s += v;
      r.q += v * v;
      r.n += 1.0;
    }
  return r;
}
// The window of half-width d around (x, y).
inline Sommes SommesFenetre(const TTImage<float>& im, const TTImage<bool>* m, int x, int y, int d) {
  return SommesDirectes(im, m, x - d, y - d, x + d, y + d);
}

// Every sample equal (within 'tolerance'), NaN matching NaN; the first difference is reported with its
// index among the interleaved samples.
inline ::testing::AssertionResult MemesPixels(const TTImage<float>& a, const TTImage<float>& b,
                                              double tolerance = 0.0) {
  if (a.GetTaille() != b.GetTaille() || a.GetNbCanaux() != b.GetNbCanaux())
    return ::testing::AssertionFailure() << "tailles ou canaux differents";
  for (auto u = a.begin(), v = b.begin(); u != a.end(); ++u, ++v)
    if (*u != *v && !(std::fabs(*u - *v) <= tolerance) && !(std::isnan(*u) && std::isnan(*v)))
      return ::testing::AssertionFailure() << "echantillon " << (u - a.begin()) << " : " << *u << " / " << *v;
  return ::testing::AssertionSuccess();
}

// Mean absolute difference, over every pair of the images 'dossier/prefixe + nom' (names separated by
// blanks), of the pixels where both hold data. The images share one grid: the pixel (c, l) of the
// first stands where the pixel (c + dc, l + dl) of the second does. 'pixels' gets the number of pixels
// compared.
inline double Desaccord(const std::string& dossier, const std::string& prefixe, const std::string& noms,
                        long long* pixels = nullptr) {
  std::vector<TTOrientedImage<float>> ims;
  std::istringstream mots(noms);
  for (std::string n; mots >> n;) ims.emplace_back((dossier + "/" + prefixe + n).c_str());
  double somme = 0, X, Y, Z, cj, lj, z;
  long long n = 0;
  for (size_t i = 0; i < ims.size(); ++i)
    for (size_t j = i + 1; j < ims.size(); ++j) {
      const TTOrientedImage<float>&a = ims[i], &b = ims[j];
      a.GetOrientation().PhotoToMap(0.5, 0.5, X, Y, Z);
      b.GetOrientation().MapToPhoto(X, Y, Z, cj, lj, z);
      const int dc = static_cast<int>(std::floor(cj)), dl = static_cast<int>(std::floor(lj));
      EXPECT_NEAR(cj - dc, 0.5, 1e-6);
      EXPECT_NEAR(lj - dl, 0.5, 1e-6);
      for (int l = std::max(0, -dl); l < std::min(a.iGetNbLignes(), b.iGetNbLignes() - dl); ++l)
        for (int c = std::max(0, -dc); c < std::min(a.iGetNbColonnes(), b.iGetNbColonnes() - dc); ++c) {
          if (a(c, l) == 0.0f || b(c + dc, l + dl) == 0.0f) continue;
          somme += std::fabs(a(c, l) - b(c + dc, l + dl));
          ++n;
        }
    }
  if (pixels) *pixels = n;
  return n ? somme / static_cast<double>(n) : 0.0;
}

// Captures what is written on std::cout while it lives.
class CaptureSortie {
 public:
  CaptureSortie() : m_ancien(std::cout.rdbuf(m_flux.rdbuf())) {}
  ~CaptureSortie() { std::cout.rdbuf(m_ancien); }
  std::string texte() const { return m_flux.str(); }

 private:
  std::ostringstream m_flux;
  std::streambuf* m_ancien;
};

}  // namespace test
