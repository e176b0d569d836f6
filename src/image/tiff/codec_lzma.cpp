// LZMA (TIFF compression 34925), through liblzma: one .xz stream per strip or tile, as libtiff and GDAL
// write it. Read only, and by the windows reader only (Codec::etendu): the compatibility mode refuses
// these files as it always did.
#include <lzma.h>

#include <cstdint>

#include "image/tiff/bloc_entier.h"
#include "image/tiff/codecs_externes.h"
#include "zepra/erreur.h"

namespace tiff {
namespace {

// The decoder's memory is bounded whatever dictionary a stream asks for: xz -9 needs 65 MiB.
constexpr uint64_t kMemoireMax = 256ull << 20;

class DecodeurLzma : public DecodeurBlocEntier {
 public:
  DecodeurLzma() = default;
  ~DecodeurLzma() override { lzma_end(&m_flux); }
  DecodeurLzma(const DecodeurLzma&) = delete;
  DecodeurLzma& operator=(const DecodeurLzma&) = delete;

 protected:
  size_t Decompresser(unsigned char* sortie, size_t capacite) override {
    // The same state from block to block: liblzma reuses its memory.
    if (lzma_stream_decoder(&m_flux, kMemoireMax, 0) != LZMA_OK)
      ZEPRA_ERREUR("[DecodeurLzma] (Lire) Decodeur LZMA impossible pour le fichier " << m_bloc.nom << ".");
    m_flux.next_in = m_donnees;
    m_flux.avail_in = m_taille;
    m_flux.next_out = sortie;
    m_flux.avail_out = capacite;
    lzma_ret r = lzma_code(&m_flux, LZMA_FINISH);
    if (r == LZMA_STREAM_END) return capacite - m_flux.avail_out;
    // The block is full and the stream has not ended: one more byte out means it decodes past the
    // block; none means it stops short of its end (cut in its index or footer), a corrupt block.
    bool depasse = false;
    if (m_flux.avail_out == 0 && (r == LZMA_OK || r == LZMA_BUF_ERROR)) {
      unsigned char octet = 0;
      m_flux.next_out = &octet;
      m_flux.avail_out = 1;
      r = lzma_code(&m_flux, LZMA_FINISH);
      if (r == LZMA_STREAM_END && m_flux.avail_out == 1) return capacite;
      depasse = m_flux.avail_out == 0;
    }
    if (depasse)
      ZEPRA_ERREUR("[DecodeurLzma] (Lire) Le flux LZMA de " << m_taille << " octets d'un bloc du fichier "
                                                            << m_bloc.nom << " depasse les " << capacite
                                                            << " octets du bloc.");
    ZEPRA_ERREUR("[DecodeurLzma] (Lire) Flux LZMA corrompu ou tronque ("
                 << m_taille << " octets) dans un bloc du fichier " << m_bloc.nom << ".");
  }

 private:
  lzma_stream m_flux = LZMA_STREAM_INIT;
};

}  // namespace

std::unique_ptr<Decodeur> CreerDecodeurLzma() { return std::make_unique<DecodeurLzma>(); }

// A run of zeros gives about 6900 bytes a byte at best (256 MiB in 39 KB at any preset: each maximal
// match still costs the range coder about 14 decisions at its most certain), so 16384 leaves room.
uint64_t BorneLzma(uint64_t octets) { return octets > UINT64_MAX / 16384 ? UINT64_MAX : octets * 16384; }

}  // namespace tiff
