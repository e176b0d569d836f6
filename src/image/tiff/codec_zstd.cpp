// ZSTD (TIFF compression 50000), through libzstd.
//
// Streaming keeps only the frame's window in memory, not the block, but the window is whatever the
// frame header says: libtiff and GDAL write their frames without the content size, with the window of
// the level (4 MiB at level 9, 128 MiB at 22) however small the strip. So a block is streamed only
// when its window fits in the block's size (rounded up to a power of two); otherwise it is decoded in one
// call, which needs no window, into the block (see DecodeurBlocEntier). Neither way allocates more than the
// block from a number in the file.
#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <memory>

#include "image/tiff/bloc_entier.h"
#include "image/tiff/codecs_externes.h"
#include "image/tiff/possede.h"
#include "zepra/erreur.h"

namespace tiff {
namespace {

class DecodeurZstd : public DecodeurBlocEntier {
 protected:
  void Ouvrir(const unsigned char* donnees, size_t taille, const ContexteBloc& bloc) override {
    DecodeurBlocEntier::Ouvrir(donnees, taille, bloc);
    m_mode = kIndecis;
    m_entree = {donnees, taille, 0};
    m_fini = false;
  }

  size_t Decoder(unsigned char* sortie, size_t octets) override {
    if (m_mode == kIndecis) m_mode = octets < m_bloc.Octets() && Diffusable() ? kFlux : kEntier;
    if (m_mode == kEntier) return DecodeurBlocEntier::Decoder(sortie, octets);
    ZSTD_outBuffer out{sortie, octets, 0};
    while (!m_fini && out.pos < out.size) m_fini = Avancer(out);
    // The whole block is out: the stream must end here, or after the padding rows of a last strip.
    if (!m_fini && out.pos == Reste()) Finir();
    return out.pos;
  }

  size_t Decompresser(unsigned char* sortie, size_t capacite) override {
    // libzstd takes an empty input for a stream of no frames.
    if (m_taille == 0) Tronque();
    ZSTD_DCtx_reset(m_d.get(), ZSTD_reset_session_and_parameters);
    ZSTD_DCtx_setParameter(m_d.get(), ZSTD_d_windowLogMax,
                           ZSTD_dParam_getBounds(ZSTD_d_windowLogMax).upperBound);
    const size_t r = ZSTD_decompressDCtx(m_d.get(), sortie, capacite, m_donnees, m_taille);
    if (ZSTD_isError(r) && ZSTD_getErrorCode(r) == ZSTD_error_dstSize_tooSmall) Bombe(capacite);
    if (ZSTD_isError(r)) Corrompu(r);
    return r;
  }

 private:
  enum Mode { kIndecis, kFlux, kEntier };

  // Whether the frame's window fits in the block's size rounded up to a power of two (libzstd itself
  // refuses a larger one, before it allocates anything).
  bool Diffusable() {
    int log = 10;
    while (log < 31 && (uint64_t{1} << log) < m_bloc.Octets()) ++log;
    ZSTD_DCtx_reset(m_d.get(), ZSTD_reset_session_and_parameters);
    ZSTD_DCtx_setParameter(m_d.get(), ZSTD_d_windowLogMax, log);
    ZSTD_outBuffer rien{nullptr, 0, 0};
    const size_t r = ZSTD_decompressStream(m_d.get(), &rien, &m_entree);
    if (ZSTD_isError(r) && ZSTD_getErrorCode(r) == ZSTD_error_frameParameter_windowTooLarge) {
      m_entree.pos = 0;
      return false;
    }
    if (ZSTD_isError(r)) Corrompu(r);
    return true;
  }

  // Decodes what follows the block up to the stream's end, dropped: the padding rows of a last strip,
  // a bomb past them.
  void Finir() {
    const uint64_t codes = m_bloc.OctetsCodes();
    uint64_t produit = m_bloc.Octets();
    unsigned char jetes[256];
    while (!m_fini) {
      ZSTD_outBuffer reste{jetes, static_cast<size_t>(std::min<uint64_t>(sizeof jetes, codes - produit + 1)),
                           0};
      m_fini = Avancer(reste);
      produit += reste.pos;
      if (produit > codes) Bombe(codes);
    }
  }

  // One step of streaming into 'out'; true at the end of the stream (its last frame complete).
  bool Avancer(ZSTD_outBuffer& out) {
    const size_t avant = out.pos, lus = m_entree.pos;
    const size_t r = ZSTD_decompressStream(m_d.get(), &out, &m_entree);
    if (ZSTD_isError(r)) Corrompu(r);
    if (r == 0 && m_entree.pos == m_entree.size) return true;
    if (out.pos == avant && m_entree.pos == lus) Tronque();
    return false;
  }

  [[noreturn]] void Tronque() const {
    ZEPRA_ERREUR("[DecodeurZstd] (Lire) Flux ZSTD tronque ("
                 << m_taille << " octets) dans un bloc du fichier " << m_bloc.nom << ".");
  }

  [[noreturn]] void Bombe(uint64_t capacite) const {
    ZEPRA_ERREUR("[DecodeurZstd] (Lire) Le flux ZSTD de " << m_taille << " octets d'un bloc du fichier "
                                                          << m_bloc.nom << " depasse les " << capacite
                                                          << " octets du bloc.");
  }
  [[noreturn]] void Corrompu(size_t code) const {
    ZEPRA_ERREUR("[DecodeurZstd] (Lire) Flux ZSTD corrompu (" << ZSTD_getErrorName(code) << ", " << m_taille
                                                              << " octets) dans un bloc du fichier "
                                                              << m_bloc.nom << ".");
  }

  Possede<ZSTD_DCtx, ZSTD_freeDCtx> m_d = Posseder<ZSTD_freeDCtx>(ZSTD_createDCtx(), "DecodeurZstd");
  Mode m_mode = kIndecis;
  ZSTD_inBuffer m_entree{nullptr, 0, 0};
  bool m_fini = false;  // the stream has ended
};

class EncodeurZstd : public Encodeur {
 public:
  explicit EncodeurZstd(int niveau) : m_niveau(niveau) {}

  // One call with the block's size known: the frame records it, and its window is no larger than the
  // block, so that readers stream it.
  void Encoder(const unsigned char* bloc, const ContexteBloc& contexte,
               std::vector<unsigned char>& sortie) override {
    const size_t n = static_cast<size_t>(contexte.Octets());
    sortie.resize(ZSTD_compressBound(n));
    const size_t r = ZSTD_compressCCtx(m_c.get(), sortie.data(), sortie.size(), bloc, n, m_niveau);
    if (ZSTD_isError(r))
      ZEPRA_ERREUR("[EncodeurZstd] (Encoder) Echec de la compression ZSTD d'un bloc du fichier "
                   << contexte.nom << " : " << ZSTD_getErrorName(r) << ".");
    sortie.resize(r);
  }

 private:
  Possede<ZSTD_CCtx, ZSTD_freeCCtx> m_c = Posseder<ZSTD_freeCCtx>(ZSTD_createCCtx(), "EncodeurZstd");
  int m_niveau;
};

}  // namespace

std::unique_ptr<Decodeur> CreerDecodeurZstd() { return std::make_unique<DecodeurZstd>(); }

std::unique_ptr<Encodeur> CreerEncodeurZstd(int niveau, int /*qualite*/) {
  if (niveau < 0 || niveau > 22)
    ZEPRA_ERREUR("[EncodeurZstd] (Creer) Niveau ZSTD " << niveau << " hors de l'intervalle 1 a 22.");
  return std::make_unique<EncodeurZstd>(niveau == 0 ? 9 : niveau);
}

uint64_t BorneZstd(uint64_t octets) { return octets > UINT64_MAX / 32768 ? UINT64_MAX : octets * 32768; }

}  // namespace tiff
