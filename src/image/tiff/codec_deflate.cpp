// Deflate (TIFF compression 8, and 32946 from before it had a code): zlib-wrapped streams, through
// libdeflate. libdeflate checks the Adler-32 of the zlib trailer, so a bit flip anywhere is found.
#include <libdeflate.h>

#include <memory>

#include "image/tiff/bloc_entier.h"
#include "image/tiff/codecs_externes.h"
#include "zepra/erreur.h"

namespace tiff {
namespace {

class DecodeurDeflate : public DecodeurBlocEntier {
 public:
  DecodeurDeflate() : m_d(libdeflate_alloc_decompressor()) {
    if (!m_d) ZEPRA_ERREUR("[DecodeurDeflate] (Constructeur) Memoire insuffisante pour le decodeur Deflate.");
  }
  ~DecodeurDeflate() override { libdeflate_free_decompressor(m_d); }
  DecodeurDeflate(const DecodeurDeflate&) = delete;
  DecodeurDeflate& operator=(const DecodeurDeflate&) = delete;

 protected:
  size_t Decompresser(unsigned char* sortie, size_t capacite) override {
    size_t lus = 0;
    switch (libdeflate_zlib_decompress(m_d, m_donnees, m_taille, sortie, capacite, &lus)) {
      case LIBDEFLATE_SUCCESS:
        return lus;
      case LIBDEFLATE_INSUFFICIENT_SPACE:
        ZEPRA_ERREUR("[DecodeurDeflate] (Lire) Le flux Deflate de "
                     << m_taille << " octets d'un bloc du fichier " << m_bloc.nom << " depasse les "
                     << capacite << " octets du bloc.");
      default:
        ZEPRA_ERREUR("[DecodeurDeflate] (Lire) Flux Deflate corrompu ou tronque ("
                     << m_taille << " octets) dans un bloc du fichier " << m_bloc.nom << ".");
    }
  }

 private:
  libdeflate_decompressor* m_d;
};

class EncodeurDeflate : public Encodeur {
 public:
  explicit EncodeurDeflate(int niveau) : m_c(libdeflate_alloc_compressor(niveau)) {
    if (!m_c) ZEPRA_ERREUR("[EncodeurDeflate] (Constructeur) Memoire insuffisante pour l'encodeur Deflate.");
  }
  ~EncodeurDeflate() override { libdeflate_free_compressor(m_c); }
  EncodeurDeflate(const EncodeurDeflate&) = delete;
  EncodeurDeflate& operator=(const EncodeurDeflate&) = delete;

  void Encoder(const unsigned char* bloc, const ContexteBloc& contexte,
               std::vector<unsigned char>& sortie) override {
    const size_t n = static_cast<size_t>(contexte.Octets());
    sortie.resize(libdeflate_zlib_compress_bound(m_c, n));
    // The bound always suffices: 0 (no room) cannot happen.
    sortie.resize(libdeflate_zlib_compress(m_c, bloc, n, sortie.data(), sortie.size()));
  }

 private:
  libdeflate_compressor* m_c;
};

}  // namespace

std::unique_ptr<Decodeur> CreerDecodeurDeflate() { return std::make_unique<DecodeurDeflate>(); }

std::unique_ptr<Encodeur> CreerEncodeurDeflate(int niveau, int /*qualite*/) {
  if (niveau < 0 || niveau > 12)
    ZEPRA_ERREUR("[EncodeurDeflate] (Creer) Niveau Deflate " << niveau << " hors de l'intervalle 1 a 12.");
  return std::make_unique<EncodeurDeflate>(niveau == 0 ? 6 : niveau);
}

}  // namespace tiff
