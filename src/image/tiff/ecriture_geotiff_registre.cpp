// The GeoTIFF writer behind the registry: what ImageFicOut and TTImage::Sauver reach for a .tif
// written with OptionsEcriture. Rectangles must come in order of lines and cover whole lines, as
// the progressive writer takes them.
#include <type_traits>
#include <vector>

#include "image/fichier_lignes.h"
#include "zepra/copierpixels.h"
#include "zepra/ecrivaingeotiff.h"
#include "zepra/erreur.h"

namespace {

class ImageFicOut_GeoTIFF : public ImplSetValeurs<ImageFicOut_GeoTIFF, EcrivainForme> {
 public:
  ImageFicOut_GeoTIFF(const std::string& nom, const ImageInfos& infos)
      : ImplSetValeurs(nom, "ImageFicOut_GeoTIFF", infos.taille, infos.canaux, infos.type),
        m_ecrivain(nom, infos.geotiff->options, infos.taille, infos.canaux,
                   infos.type == eBit1 ? eBool : infos.type, infos.geotiff->georef,
                   infos.geotiff->autresTags) {}

  void Terminer() override { m_ecrivain.Terminer(); }

  template <class S>
  void SetValeursT(LigneDe<S> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) {
    if (x1 <= x0 || y1 <= y0 || pas < 1) return;
    const long long nx = (static_cast<long long>(x1) - x0 + pas - 1) / pas;
    const long long ny = (static_cast<long long>(y1) - y0 + pas - 1) / pas;
    if (xDest != 0 || nx != m_taille.x || yDest != m_ecrivain.Lignes() || ny > m_taille.y - yDest)
      ZEPRA_ERREUR("[ImageFicOut_GeoTIFF] (SetValeurs) "
                   << nx << " x " << ny << " pixels en (" << xDest << ", " << yDest << ") : le fichier "
                   << m_nom << " attend des lignes entieres a partir de la ligne " << m_ecrivain.Lignes()
                   << ".");
    // Lines of bits, and lines read with a step, are copied first; bits go as 0 and 1 bytes.
    using C = std::conditional_t<std::is_same_v<S, bool>, unsigned char, S>;
    const eEnumType type = CodeType<C>::value;
    std::vector<C> copie;
    for (long long j = 0; j < ny; ++j) {
      const int y = static_cast<int>(y0 + j * pas);
      const void* ligne = nullptr;
      if constexpr (!std::is_same_v<S, bool>) {
        if (pas == 1) ligne = lignes[y] + static_cast<long>(x0) * m_canaux;
      }
      if (!ligne) {
        copie.resize(static_cast<size_t>(nx) * m_canaux);
        C* cible[1] = {copie.data()};
        CopierPixels<S, C>(lignes, cible, x0, y, x1, y + 1, 0, 0, pas, m_canaux);
        ligne = copie.data();
      }
      m_ecrivain.EcrireLignes(type, ligne, 0, 1);
    }
  }

 private:
  EcrivainGeoTIFF m_ecrivain;
};

}  // namespace

std::unique_ptr<EcrivainImage> CreateWriter_GeoTIFF(const std::string& nom, const ImageInfos& infos) {
  return std::make_unique<ImageFicOut_GeoTIFF>(nom, infos);
}
