// What follows the codec on every decoded block row, whatever the codec: the file's byte order, then
// the predictor undone. Private to src/image.
#pragma once

#include <cstddef>
#include <vector>

namespace tiff {

// True when the predictor can be undone on such samples: 1 (none) always, 2 (horizontal
// differencing) on 8-, 16-, 32- and 64-bit samples, 3 (floating point) on 32- and 64-bit floats.
bool PredicteurPossible(int predicteur, int bits, bool flottant);

class PostTraitement {
 public:
  // Rows of 'largeur' pixels of 'echantillons' samples of 'bits' bits; 'permuter' when the file's
  // byte order is not the host's.
  PostTraitement(int predicteur, int bits, int echantillons, int largeur, bool permuter);
  void Appliquer(unsigned char* ligne);

 private:
  int m_predicteur, m_bits, m_echantillons;
  size_t m_n;  // samples per row
  bool m_permuter;
  std::vector<unsigned char> m_tampon;
};

}  // namespace tiff
