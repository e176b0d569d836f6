// What the codec fuzz targets share: a small block context taken from the first bytes of the input,
// decoding through the interface with requests of a size also taken from the input, and the checks
// that no request is overfilled and that a block is never exceeded.
//   byte 0: width - 1 (mod 48)   byte 1: rows - 1 (mod 48)
//   byte 2: samples (bits 0-1: 1, 3, 4, 2), bits per sample (bits 2-3: 8, 16, 32, 64), photometric
//           (bits 4-5: 1, 2, 6, 6), padding rows coded past the block (bits 6-7: 0, 1, 7, 16)
//   byte 3: bytes per request, 0 for the whole block at once
// The rest is the compressed block (the JPEG target first takes its tables from it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "image/tiff/codec.h"
#include "zepra/erreur.h"

namespace fuzz {

constexpr size_t kEntete = 4;

inline tiff::ContexteBloc Contexte(const uint8_t* d) {
  tiff::ContexteBloc b;
  b.nom = "fuzz.tif";
  b.largeur = 1 + d[0] % 48;
  b.hauteur = 1 + d[1] % 48;
  static constexpr int kEchantillons[] = {1, 3, 4, 2}, kBits[] = {8, 16, 32, 64},
                       kPhotometrique[] = {1, 2, 6, 6};
  b.echantillons = kEchantillons[d[2] & 3];
  b.bits = kBits[(d[2] >> 2) & 3];
  b.photometrique = kPhotometrique[(d[2] >> 4) & 3];
  static constexpr int kRemplissage[] = {0, 1, 7, 16};
  if (const int r = kRemplissage[(d[2] >> 6) & 3]) b.hauteurCodee = b.hauteur + r;
  return b;
}

// Decodes the block; false on an Erreur. 'sortie' gets what was decoded, never more than the block.
inline bool Decoder(tiff::Decodeur& d, const uint8_t* flux, size_t taille, const tiff::ContexteBloc& b,
                    size_t pas, std::vector<unsigned char>& sortie) {
  const size_t total = static_cast<size_t>(b.Octets()), demande = pas == 0 ? total : pas;
  sortie.assign(total + demande, 0);
  size_t n = 0;
  try {
    d.Commencer(flux, taille, b);
    for (;;) {
      // Requests past the block are allowed: the decoder must stop at the block's end.
      const size_t k = d.Lire(sortie.data() + n, demande);
      if (k > demande || n + k > total) __builtin_trap();
      n += k;
      if (k < demande || n == total) break;
    }
  } catch (const Erreur&) {
    return false;
  }
  sortie.resize(n);
  return true;
}

// The lossless targets: a block decoded whole is encoded again, by the encoder that 'creer' makes
// at 'niveau', and must decode to the same bytes.
inline int AllerRetour(tiff::Decodeur& d, std::unique_ptr<tiff::Encodeur> (*creer)(int, int), int niveau,
                       const uint8_t* donnees, size_t taille) {
  if (taille < kEntete) return 0;
  const tiff::ContexteBloc b = Contexte(donnees);
  std::vector<unsigned char> bloc, flux, relu;
  if (!Decoder(d, donnees + kEntete, taille - kEntete, b, donnees[3], bloc) || bloc.size() != b.Octets())
    return 0;
  creer(niveau, 0)->Encoder(bloc.data(), b, flux);
  if (!Decoder(d, flux.data(), flux.size(), b, donnees[0], relu) || relu != bloc) __builtin_trap();
  return 0;
}

}  // namespace fuzz
