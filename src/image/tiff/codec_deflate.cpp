// Deflate (TIFF compression 8, and 32946 from before it had a code): zlib-wrapped streams, through
// libdeflate. libdeflate checks the Adler-32 of the zlib trailer, so a bit flip anywhere is found.
#include <libdeflate.h>

#include <memory>

#include "image/tiff/bloc_entier.h"
#include "image/tiff/codecs_externes.h"
#include "image/tiff/possede.h"
#include "zepra/erreur.h"

namespace tiff {
namespace {

class DecodeurDeflate : public DecodeurBlocEntier {
 protected:
  size_t Decompresser(unsigned char* sortie, size_t capacite) override {
    size_t lus = 0;
    switch (libdeflate_zlib_decompress(m_d.get(), m_donnees, m_taille, sortie, capacite, &lus)) {
      case LIBDEFLATE_SUCCESS:
        return lus;
      case LIBDEFLATE_INSUFFICIENT_SPACE:
        if (!Depasse(sortie, capacite)) break;
        ZEPRA_ERREUR("[DecodeurDeflate] (Lire) Le flux Deflate de "
                     << m_taille << " octets d'un bloc du fichier " << m_bloc.nom << " depasse les "
                     << capacite << " octets du bloc.");
      default:
        break;
    }
    ZEPRA_ERREUR("[DecodeurDeflate] (Lire) Flux Deflate corrompu ou tronque ("
                 << m_taille << " octets) dans un bloc du fichier " << m_bloc.nom << ".");
  }

  // libdeflate decodes the bytes before the 4 of the Adler-32 trailer as the Deflate data: a stream
  // cut in its trailer loses the end of its data too, and the zeros read in their place may decode
  // past the block. Decoded with every byte after the zlib header, the data does not when the
  // stream is only cut short.
  bool Depasse(unsigned char* sortie, size_t capacite) {
    size_t lus = 0;
    return m_taille >= 2 && libdeflate_deflate_decompress(m_d.get(), m_donnees + 2, m_taille - 2, sortie,
                                                          capacite, &lus) == LIBDEFLATE_INSUFFICIENT_SPACE;
  }

 private:
  Possede<libdeflate_decompressor, libdeflate_free_decompressor> m_d =
      Posseder<libdeflate_free_decompressor>(libdeflate_alloc_decompressor(), "DecodeurDeflate");
};

class EncodeurDeflate : public Encodeur {
 public:
  explicit EncodeurDeflate(int niveau)
      : m_c(Posseder<libdeflate_free_compressor>(libdeflate_alloc_compressor(niveau), "EncodeurDeflate")) {}

  void Encoder(const unsigned char* bloc, const ContexteBloc& contexte,
               std::vector<unsigned char>& sortie) override {
    const size_t n = static_cast<size_t>(contexte.Octets());
    sortie.resize(libdeflate_zlib_compress_bound(m_c.get(), n));
    // The bound always suffices: 0 (no room) cannot happen.
    sortie.resize(libdeflate_zlib_compress(m_c.get(), bloc, n, sortie.data(), sortie.size()));
  }

 private:
  Possede<libdeflate_compressor, libdeflate_free_compressor> m_c;
};

}  // namespace

std::unique_ptr<Decodeur> CreerDecodeurDeflate() { return std::make_unique<DecodeurDeflate>(); }

std::unique_ptr<Encodeur> CreerEncodeurDeflate(int niveau, int /*qualite*/) {
  if (niveau < 0 || niveau > 12)
    ZEPRA_ERREUR("[EncodeurDeflate] (Creer) Niveau Deflate " << niveau << " hors de l'intervalle 1 a 12.");
  return std::make_unique<EncodeurDeflate>(niveau == 0 ? 6 : niveau);
}

uint64_t BorneDeflate(uint64_t octets) { return octets > UINT64_MAX / 1032 ? UINT64_MAX : octets * 1032; }

}  // namespace tiff
