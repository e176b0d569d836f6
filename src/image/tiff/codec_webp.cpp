// WebP (TIFF compression 50001), through libwebp: one WebP image per strip or tile, 3 (RGB) or 4 (RGBA)
// samples of 8 bits, lossy or lossless, as GDAL writes them. Read only, and by the windows reader only
// (Codec::etendu): the compatibility mode refuses these files as it always did.
#include <webp/decode.h>

#include <algorithm>
#include <cstdint>

#include "image/tiff/bloc_entier.h"
#include "image/tiff/codecs_externes.h"
#include "zepra/erreur.h"

namespace tiff {
namespace {

class DecodeurWebp : public DecodeurBlocEntier {
 protected:
  size_t Decompresser(unsigned char* sortie, size_t capacite) override {
    const ContexteBloc& b = m_bloc;
    if (b.bits != 8 || (b.echantillons != 3 && b.echantillons != 4))
      ZEPRA_ERREUR("[DecodeurWebp] (Lire) Blocs de " << b.echantillons << " echantillon(s) de " << b.bits
                                                     << " bits du fichier " << b.nom
                                                     << " : WebP code 3 ou 4 echantillons de 8 bits.");
    WebPBitstreamFeatures f;
    if (WebPGetFeatures(m_donnees, m_taille, &f) != VP8_STATUS_OK)
      ZEPRA_ERREUR("[DecodeurWebp] (Lire) Flux WebP invalide ("
                   << m_taille << " octets) dans un bloc du fichier " << b.nom << ".");
    // A last strip may be coded with its padding rows.
    const size_t ligne = static_cast<size_t>(b.OctetsLigne());
    if (f.width != b.largeur || (f.height != b.hauteur && f.height != std::max(b.hauteur, b.hauteurCodee)) ||
        static_cast<size_t>(f.height) * ligne > capacite)
      ZEPRA_ERREUR("[DecodeurWebp] (Lire) Image WebP de "
                   << f.width << " x " << f.height << " pixels dans un bloc de " << b.largeur << " x "
                   << b.hauteur << " pixels du fichier " << b.nom << ".");
    const size_t n = static_cast<size_t>(f.height) * ligne;
    const int pas = static_cast<int>(ligne);
    const uint8_t* r = b.echantillons == 4 ? WebPDecodeRGBAInto(m_donnees, m_taille, sortie, n, pas)
                                           : WebPDecodeRGBInto(m_donnees, m_taille, sortie, n, pas);
    if (!r)
      ZEPRA_ERREUR("[DecodeurWebp] (Lire) Flux WebP corrompu ou tronque ("
                   << m_taille << " octets) dans un bloc du fichier " << b.nom << ".");
    return n;
  }
};

}  // namespace

std::unique_ptr<Decodeur> CreerDecodeurWebp() { return std::make_unique<DecodeurWebp>(); }

}  // namespace tiff
