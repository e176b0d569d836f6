// Integral images (summed-area tables) and the statistics they give in constant time per rectangle,
// plus the two morphological tools used on masks: the disc of offsets and the fast dilation.
//
// A table has the width and height of its source; entry (x, y) holds the sum of the quantity over all
// pixels (i, j) with i <= x and j <= y. A multi-channel source contributes its channel 0 only. Masked
// tables count a pixel (value, squared value, 1) only where its mask bit is true.
//
// Tables are one-channel TTImage<double> (counts also TTImage<float>); the statistics refuse tables of
// another channel count or of different sizes.
// A rectangle is a pair of corners (x0, y0), (x1, y1), both inclusive, clamped to the image before use.
// A rectangle whose clamped corners cross (it lies wholly outside the image, or x1 < x0 or y1 < y0 as
// given) is empty: its sums and count are 0 and its mean and deviation are 0, the same rule as a window
// holding no counted pixel. No division by a zero count is ever made.
#pragma once

#include <algorithm>
#include <vector>

#include "zepra/geometrie.h"
#include "zepra/ttimage.h"

// S and S2 become one-channel tables of the image's size: sums of the values and of their squares.
template <class T, class U>
void images_integrales(const TTImage<T>& image, TTImage<U>& S, TTImage<U>& S2);

// The same under a mask of the image's size (its channel 0), plus the count N of masked pixels.
// A float count is exact up to 2^24 counted pixels; a double one far beyond any image.
template <class T, class M, class U, class V>
void images_integrales_mask(const TTImage<T>& image, const TTImage<M>& masque, TTImage<U>& S, TTImage<U>& S2,
                            TTImage<V>& N);

// Mean (x) and standard deviation (y) over the clamped rectangle, counting every pixel of it (no mask).
// A negative variance from rounding gives a NaN deviation, kept as it is.
template <class U>
void stats_images_integrales(const TTImage<U>& S, const TTImage<U>& S2, const T2D<T2D<int>>& rectangle,
                             T2D<double>& stats);
// The same over the whole image.
template <class U>
void stats_images_integrales(const TTImage<U>& S, const TTImage<U>& S2, T2D<double>& stats);

// Whole-image raw sums (x = values, y = squares, z = count), each taken as A(W-1, H-1) - A(W-1, 0): the
// first row is left out. Established behaviour that the Wallis statistics of the mosaic job rest on.
// An empty table gives zeros.
template <class U, class V>
void stats_images_integrales_brutes(const TTImage<U>& S, const TTImage<U>& S2, const TTImage<V>& N,
                                    T3D<double>& brutes);
// Raw sums over the clamped rectangle (first row and column included). With trace, the three sums are
// also written to standard output in fixed notation with 3 decimals, on one line:
// "Somme : <x> ; Somme des carres : <y> ; Nombre : <z>".
template <class U, class V>
void stats_images_integrales_brutes(const TTImage<U>& S, const TTImage<U>& S2, const TTImage<V>& N,
                                    const T2D<T2D<int>>& rectangle, T3D<double>& brutes, bool trace = false);

// The offsets (x, y) with x^2 + y^2 <= r^2 other than (0, 0), x ascending then y ascending. r < 0
// gives an empty list; r above kRayonDisqueMax is refused (the list would not fit in memory).
constexpr int kRayonDisqueMax = 2048;
std::vector<T2D<int>> Disque(int r);

namespace MorphoPerso {
// sortie becomes entree dilated by the offsets: every pixel at an offset from a true pixel of entree,
// inside the image, is true. When every offset shrunk by one step along x or y is still an offset (discs
// are), only the border pixels of the true region (those with a false 4-neighbour) are visited; other
// offset sets visit every true pixel, so the result is always the ordinary dilation. entree and sortie
// may be the same image. One-channel masks.
template <class T>
void DilatationRapide(const TTImage<T>& entree, TTImage<T>& sortie, const std::vector<T2D<int>>& decalages);
}  // namespace MorphoPerso

// --- Helpers for the per-pixel fields built on these tables ---

// The window of half-width h around a position, clamped to [0, n - 1]: [debut, fin].
struct BornesFenetre {
  int debut, fin;
};
inline BornesFenetre Fenetre(int centre, int h, int n) {
  // h is at most max(width, height) here (callers clamp it), so the sums stay within int.
  return BornesFenetre{std::max(centre - h, 0), std::min(centre + h, n - 1)};
}

// Largest half-width that still changes a window: a larger one covers the whole image all the same.
template <class T>
int DemiLargeurUtile(const TTImage<T>& image, int h) {
  return std::min(h, std::max(image.iGetNbColonnes(), image.iGetNbLignes()));
}

// The two table lines that bound the windows of one image line: 'haut' is line y0 - 1 (or a line of
// zeros when y0 is 0), 'bas' is line y1. Box sums follow the four-corner rule
// A(x1, y1) - A(x0 - 1, y1) - A(x1, y0 - 1) + A(x0 - 1, y0 - 1), a term at index -1 counting 0.
struct LignesBoite {
  const double* haut;
  const double* bas;
  double Somme(int x0, int x1) const {
    if (x0 > 0) return bas[x1] - bas[x0 - 1] - haut[x1] + haut[x0 - 1];
    return bas[x1] - haut[x1];
  }
};

// The masked integral tables of an image, computed line after line and kept only as far back as the
// windows of half-width h need (2h + 2 lines): the same values as images_integrales_mask, without
// holding three full tables of doubles. Lines of the image are asked in increasing order; a line's
// window statistics then depend only on the two table lines returned, so the per-pixel loops that
// use them share no mutable state. The mask lines are kept alongside, one byte per pixel. Without a mask
// every pixel counts and no count table is kept.
class TablesGlissantes {
 public:
  TablesGlissantes(const TTImage<float>& image, const TTImage<bool>* masque, int h, bool avecCarres);
  struct Lignes {
    LignesBoite s, q, n;
  };
  // The table lines bounding the windows of image line y (y ascending from one call to the next).
  Lignes Fenetres(int y);
  // Mask line y as bytes, valid after Fenetres(y) until the next call.
  const unsigned char* Masque(int y) const {
    return m_octetsMasque.data() + static_cast<size_t>(y % m_garde) * m_w;
  }
  int DemiLargeur() const { return m_h; }

 private:
  void CalculerLigne(int y);
  const double* Ligne(const std::vector<double>& table, int y) const;

  const TTImage<float>& m_image;
  const TTImage<bool>* m_masque;
  int m_w, m_hauteur, m_h, m_garde;
  bool m_carres;
  int m_prochaine = 0;
  std::vector<double> m_s, m_s2, m_n, m_zeros;
  std::vector<unsigned char> m_octetsMasque;
};

// Mask line y as one byte per pixel (channel 0).
void LigneMasqueEnOctets(const TTImage<bool>& masque, int y, unsigned char* octets);
