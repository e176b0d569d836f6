// Base of the decoders whose library decodes a whole block in one call (libdeflate has no streaming
// API; libzstd falls back to it, see codec_zstd.cpp). Private to src/image.
#pragma once

#include <cstddef>
#include <vector>

#include "image/tiff/codec.h"

namespace tiff {

// The first Lire decodes the whole block: straight into the caller's buffer when the caller asks for
// the whole block at once, else into one owned buffer of the block's size, from which this and the
// next calls take their bytes. Either way the library is given the block's coded size
// (ContexteBloc::OctetsCodes) as its output capacity, so that a stream decoding past it fails inside
// the library instead of being cut.
class DecodeurBlocEntier : public Decodeur {
 protected:
  void Ouvrir(const unsigned char* donnees, size_t taille, const ContexteBloc& bloc) override;
  size_t Decoder(unsigned char* sortie, size_t octets) override;

  // Decodes the stream m_donnees / m_taille into 'sortie' (room for exactly 'capacite' bytes, the
  // block's coded size); returns the decoded size, or raises an Erreur naming m_bloc.nom.
  virtual size_t Decompresser(unsigned char* sortie, size_t capacite) = 0;

  const unsigned char* m_donnees = nullptr;
  size_t m_taille = 0;
  ContexteBloc m_bloc;

 private:
  std::vector<unsigned char> m_tampon;
  size_t m_position = 0, m_fin = 0;  // bytes of m_tampon handed out / decoded, padding included
  bool m_decode = false;
};

}  // namespace tiff
