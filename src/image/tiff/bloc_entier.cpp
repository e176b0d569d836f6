#include "image/tiff/bloc_entier.h"

#include <algorithm>
#include <cstring>

namespace tiff {

void DecodeurBlocEntier::Ouvrir(const unsigned char* donnees, size_t taille, const ContexteBloc& bloc) {
  m_donnees = donnees;
  m_taille = taille;
  m_bloc = bloc;
  m_position = m_fin = 0;
  m_decode = false;
}

size_t DecodeurBlocEntier::Decoder(unsigned char* sortie, size_t octets) {
  if (!m_decode) {
    m_decode = true;
    const size_t total = static_cast<size_t>(m_bloc.Octets()),
                 codes = static_cast<size_t>(m_bloc.OctetsCodes());
    if (octets == total && codes == total) return Decompresser(sortie, total);
    // The buffer keeps its capacity from block to block: one allocation for a file of equal blocks. A
    // padded last strip goes through it too; Lire never reaches its padding.
    m_tampon.resize(codes);
    m_fin = Decompresser(m_tampon.data(), codes);
  }
  const size_t k = std::min(octets, m_fin - m_position);
  if (k > 0) std::memcpy(sortie, m_tampon.data() + m_position, k);
  m_position += k;
  return k;
}

}  // namespace tiff
