// Helpers of the TIFF codec tests: block contexts, decoding through the interface with requests of
// any size, patterned block data.
#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "image/tiff/codec.h"

namespace test {

using Octets = std::vector<unsigned char>;

inline tiff::ContexteBloc Bloc(int largeur, int hauteur, int echantillons = 1, int bits = 8,
                               int photometrique = 1) {
  tiff::ContexteBloc b;
  b.nom = "bloc.tif";
  b.largeur = largeur;
  b.hauteur = hauteur;
  b.echantillons = echantillons;
  b.bits = bits;
  b.photometrique = photometrique;
  return b;
}

// Decodes 'flux' with requests of 'pas' bytes (0: the whole block in one request) until a request
// is not filled; every request is checked not to be written past.
inline Octets Decoder(tiff::Decodeur& d, const Octets& flux, const tiff::ContexteBloc& b, size_t pas = 0) {
  d.Commencer(flux.data(), flux.size(), b);
  const size_t total = static_cast<size_t>(b.Octets()), demande = pas == 0 ? total : pas;
  Octets sortie;
  Octets tampon(demande + 8);
  for (;;) {
    std::fill(tampon.begin(), tampon.end(), 0xA5);
    const size_t n = d.Lire(tampon.data(), demande);
    EXPECT_LE(n, demande);
    EXPECT_TRUE(
        std::all_of(tampon.begin() + demande, tampon.end(), [](unsigned char o) { return o == 0xA5; }));
    sortie.insert(sortie.end(), tampon.begin(), tampon.begin() + std::min(n, demande));
    if (n < demande || sortie.size() >= total) return sortie;
  }
}

// Block bytes as images hold them: a run, a slope, then noise, so that every codec meets long
// matches and incompressible data in the same block.
inline Octets Donnees(size_t n, unsigned graine = 1) {
  std::mt19937 alea(graine);
  Octets o(n);
  for (size_t i = 0; i < n; ++i)
    o[i] = static_cast<unsigned char>(i < n / 4 ? 17 : i < n / 2 ? i / 7 : alea());
  return o;
}

}  // namespace test
