// TIFF writing: one uncompressed little-endian strip after the directory, written through a
// temporary file that Terminer() renames.
#include <algorithm>
#include <cstring>
#include <memory>
#include <type_traits>

#include "annexes.h"
#include "image/fichier_lignes.h"
#include "image/handlers.h"
#include "zepra/copierpixels.h"
#include "zepra/erreur.h"
#include "zepra/fichieratomique.h"

namespace tiff {

namespace {
constexpr bool kHoteGrosBoutiste = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
}

// T is the sample type in the file; bool images (and Bit1) are packed one bit per sample, most
// significant bit first, each line starting on a byte. Rectangles may come in any order: each line
// is written at its place, and Terminer() gives the file its full size (lines never written are
// zero). Bits cannot be merged into a file being written, so a bool image is kept packed in memory
// until Terminer().
template <class T>
class ImageFicOut_Raster : public ImplSetValeurs<ImageFicOut_Raster<T>, EcrivainForme> {
 public:
  ImageFicOut_Raster(const std::string& nom, const ImageInfos& infos)
      : ImplSetValeurs<ImageFicOut_Raster<T>, EcrivainForme>(nom, "ImageFicOut_Raster", infos.taille,
                                                             infos.canaux, infos.type) {
    TIFF_Annexes annexes;
    annexes.SetImage(m_taille, m_canaux, m_type);
    m_debut = annexes.PrecalculeOffset();
    m_octets = annexes.OctetsPixels();
    m_octetsLigne = m_octets / static_cast<uint64_t>(m_taille.y);
    m_fichier = std::make_unique<FichierAtomique>(nom, "[ImageFicOut_Raster] (Constructeur)");
    annexes.EcrireEntete(m_fichier->flux(), nom);
    m_position = m_debut;
    if constexpr (std::is_same_v<T, bool>) m_bits.assign(static_cast<size_t>(m_octets), 0);
  }

  void Terminer() override {
    if (!m_fichier) return;
    std::ofstream& flux = m_fichier->flux();
    m_position = static_cast<uint64_t>(-1);
    if constexpr (std::is_same_v<T, bool>) {
      flux.seekp(static_cast<std::streamoff>(m_debut));
      flux.write(reinterpret_cast<const char*>(m_bits.data()), static_cast<std::streamsize>(m_bits.size()));
    } else if (m_ecrit < m_octets) {
      flux.seekp(static_cast<std::streamoff>(m_debut + m_octets - 1));
      flux.put(0);
    }
    m_fichier->Valider();
    m_fichier.reset();
  }

  template <class S>
  void SetValeursT(LigneDe<S> const* src, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) {
    if (x1 <= x0 || y1 <= y0) return;
    const long long nx = pas < 1 ? 0 : (static_cast<long long>(x1) - x0 + pas - 1) / pas;
    const long long ny = pas < 1 ? 0 : (static_cast<long long>(y1) - y0 + pas - 1) / pas;
    if (!m_fichier || pas < 1 || xDest < 0 || yDest < 0 || xDest + nx > m_taille.x || yDest + ny > m_taille.y)
      ZEPRA_ERREUR("[ImageFicOut_Raster] (SetValeurs) " << nx << " x " << ny << " pixels en (" << xDest
                                                        << ", " << yDest << ") impossibles dans le fichier "
                                                        << m_nom << " (" << m_taille.x << " x " << m_taille.y
                                                        << ").");
    const int c = m_canaux;
    Morceau attente;
    for (long long j = 0; j < ny; ++j) {
      const long long y = y0 + j * pas, yd = yDest + j;
      if constexpr (std::is_same_v<T, bool>) {
        unsigned char* ligne = m_bits.data() + yd * m_octetsLigne;
        for (long long i = 0; i < nx; ++i)
          for (int k = 0; k < c; ++k) {
            const uint64_t b = static_cast<uint64_t>(xDest + i) * c + k;
            const unsigned char masque = static_cast<unsigned char>(0x80 >> (b & 7));
            if (Convertir<bool, S>(src[y][static_cast<long>(x0 + i * pas) * c + k]))
              ligne[b >> 3] |= masque;
            else
              ligne[b >> 3] &= static_cast<unsigned char>(~masque);
          }
      } else {
        const size_t n = static_cast<size_t>(nx) * c;
        const T* donnees = nullptr;
        if constexpr (std::is_same_v<S, T>) {
          donnees = src[y] + static_cast<long>(x0) * c;
        }
        if (!std::is_same_v<S, T> || pas != 1 || kHoteGrosBoutiste) {
          m_ligne.resize(n);
          T* tab[1] = {m_ligne.data()};
          CopierPixels<S, T>(src, tab, x0, static_cast<int>(y), x1, static_cast<int>(y) + 1, 0, 0, pas, c);
          if constexpr (kHoteGrosBoutiste && sizeof(T) > 1)
            for (T& v : m_ligne) {
              unsigned char* o = reinterpret_cast<unsigned char*>(&v);
              std::reverse(o, o + sizeof(T));
            }
          donnees = m_ligne.data();
        }
        const uint64_t offset =
            static_cast<uint64_t>(yd) * m_octetsLigne + static_cast<uint64_t>(xDest) * c * sizeof(T);
        const uint64_t octets = n * sizeof(T);
        // Lines that follow each other in memory and in the file go out in one write.
        if (attente.octets > 0 &&
            attente.donnees + attente.octets == reinterpret_cast<const char*>(donnees) &&
            attente.offset + attente.octets == offset && donnees != m_ligne.data()) {
          attente.octets += octets;
        } else {
          Ecrire(attente);
          attente = {reinterpret_cast<const char*>(donnees), offset, octets};
          if (donnees == m_ligne.data()) Ecrire(attente);
        }
        m_ecrit = std::max<uint64_t>(m_ecrit, offset + octets);
      }
    }
    if constexpr (!std::is_same_v<T, bool>) Ecrire(attente);
  }

 private:
  struct Morceau {
    const char* donnees = nullptr;
    uint64_t offset = 0;  // from the first pixel byte
    uint64_t octets = 0;
  };
  void Ecrire(Morceau& m) {
    if (m.octets == 0) return;
    std::ofstream& flux = m_fichier->flux();
    // A seek flushes the stream's buffer: none when the bytes follow the previous ones.
    if (m_debut + m.offset != m_position) flux.seekp(static_cast<std::streamoff>(m_debut + m.offset));
    flux.write(m.donnees, static_cast<std::streamsize>(m.octets));
    m_position = m_debut + m.offset + m.octets;
    m.octets = 0;
  }

 private:
  using EcrivainForme::m_canaux;
  using EcrivainForme::m_nom;
  using EcrivainForme::m_taille;
  using EcrivainForme::m_type;
  uint64_t m_debut = 0, m_octets = 0, m_octetsLigne = 0;
  uint64_t m_ecrit = 0;     // end of the furthest pixel bytes written
  uint64_t m_position = 0;  // where the stream stands
  std::unique_ptr<FichierAtomique> m_fichier;
  std::vector<unsigned char> m_bits;
  std::vector<T> m_ligne;
};

}  // namespace tiff

std::unique_ptr<EcrivainImage> CreateWriter_GeoTIFF(const std::string& nom, const ImageInfos& infos);

std::unique_ptr<EcrivainImage> CreateWriter_TIFF(const std::string& nom, const ImageInfos& infos) {
  // Written with OptionsEcriture: the GeoTIFF writer; otherwise the single uncompressed strip.
  if (infos.geotiff) return CreateWriter_GeoTIFF(nom, infos);
  if (infos.type == eBit1) return std::make_unique<tiff::ImageFicOut_Raster<bool>>(nom, infos);
  std::unique_ptr<EcrivainImage> ecrivain;
  if (!AppliquerType(infos.type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        ecrivain = std::make_unique<tiff::ImageFicOut_Raster<T>>(nom, infos);
      }))
    ZEPRA_ERREUR("Handler_TIFF::CreateWriter Type non gere.");
  return ecrivain;
}
