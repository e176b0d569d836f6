// The strip and tile reader ImageFicIn_Raster<T>, the palette reader ImageFicInColorMap and the
// factory CreateReader_TIFF.
//
// Pixels are decoded when they are asked for (see Blocs). When the file's samples are of the
// destination's type and the request covers whole block rows, rows are decoded straight into the
// destination lines; otherwise each row goes through CopierPixels, the one place where samples are
// converted.
#include "lecteurs.h"

#include <memory>
#include <type_traits>

#include "blocs.h"
#include "image/handlers.h"
#include "zepra/copierpixels.h"
#include "zepra/erreur.h"

namespace tiff {

namespace {

// One channel of a planar file's row into channel c of a destination line.
template <class S, class D>
void CopierPlan(const S* src, LigneDe<D> dst, long long n, int pas, int canaux, int c) {
  for (long long i = 0; i < n; ++i) dst[i * canaux + c] = Convertir<D, S>(src[i * pas]);
}

}  // namespace

// Strips and tiles; T is the file's sample type (unsigned char for 1-bit samples, unpacked to 0 and
// 1 before the copy).
template <class T>
class ImageFicIn_Raster : public ImplGetValeurs<ImageFicIn_Raster<T>> {
 public:
  explicit ImageFicIn_Raster(const DescriptionTIFF& d) : m_blocs(new Blocs(d)) {}
  ImageFicIn_Raster(const ImageFicIn_Raster& autre)
      : ImplGetValeurs<ImageFicIn_Raster<T>>(), m_blocs(new Blocs(autre.m_blocs->Desc())) {}
  SpecifImageIn* dup() const override { return new ImageFicIn_Raster(*this); }

  TPoint2D<int> GetTaille() const override { return TPoint2D<int>(Desc().colonnes, Desc().lignes); }
  int GetNbCanaux() const override { return Desc().canaux; }
  eEnumType TypePixel() const override { return Desc().type; }
  const MetadonneesImage* Metadonnees() const override { return tiff::Metadonnees(Desc()); }
  bool RawReadPossible() const override { return false; }
  void RawRead(char*, unsigned int) const override {
    ZEPRA_ERREUR("[ImageFicIn_Raster] (RawRead) Lecture brute impossible dans le fichier " << Desc().nom);
  }

  template <class D>
  void GetValeursT(LigneDe<D> const* dst, int x0, int y0, int x1, int y1, int xDest, int yDest,
                   int pas) const {
    const DescriptionTIFF& d = Desc();
    const int canaux = d.canaux;
    const bool bits = d.bits == 1;
    auto cible = [&](long long yOut, long long a) -> unsigned char* {
      if constexpr (std::is_same_v<T, D>) {
        if (!bits && pas == 1 && a >= x0 && a + d.largeurBloc <= x1)
          return reinterpret_cast<unsigned char*>(dst[yDest + yOut] + (a - x0 + xDest) * canaux);
      }
      return nullptr;
    };
    auto segment = [&](const unsigned char* ligne, long long yOut, long long a, long long xPremier,
                       long long xFin, int plan) {
      LigneDe<D> tabDst[1] = {dst[yDest + yOut]};
      const long long xOut = xDest + (xPremier - x0) / pas;
      const long long n = (xFin - xPremier + pas - 1) / pas;
      const int parPixel = plan < 0 ? canaux : 1;
      if (bits) {
        // Unpacked, every pas-th pixel: the copy below then reads them one after another.
        m_unites.resize(static_cast<size_t>(n * parPixel));
        size_t o = 0;
        for (long long x = xPremier; x < xFin; x += pas)
          for (int c = 0; c < parPixel; ++c) {
            const uint64_t i = static_cast<uint64_t>(x - a) * parPixel + c;
            m_unites[o++] = (ligne[i >> 3] >> (7 - (i & 7))) & 1;
          }
        if (plan >= 0)
          return CopierPlan<unsigned char, D>(m_unites.data(), tabDst[0] + xOut * canaux, n, 1, canaux, plan);
        unsigned char* tabSrc[1] = {m_unites.data()};
        CopierPixels<unsigned char, D>(tabSrc, tabDst, 0, 0, static_cast<int>(n), 1, static_cast<int>(xOut),
                                       0, 1, canaux);
      } else if (plan >= 0) {
        const T* src = reinterpret_cast<const T*>(ligne) + (xPremier - a);
        CopierPlan<T, D>(src, tabDst[0] + xOut * canaux, n, pas, canaux, plan);
      } else {
        T* tabSrc[1] = {reinterpret_cast<T*>(const_cast<unsigned char*>(ligne))};
        CopierPixels<T, D>(tabSrc, tabDst, static_cast<int>(xPremier - a), 0, static_cast<int>(xFin - a), 1,
                           static_cast<int>(xOut), 0, pas, canaux);
      }
    };
    m_blocs->Parcourir(x0, y0, x1, y1, pas, cible, segment);
  }

 private:
  const DescriptionTIFF& Desc() const { return m_blocs->Desc(); }
  std::unique_ptr<Blocs> m_blocs;
  mutable std::vector<unsigned char> m_unites;
};

// Palette images: one 8-bit index per pixel, delivered as three unsigned 8-bit channels.
class ImageFicInColorMap : public ImplGetValeurs<ImageFicInColorMap> {
 public:
  explicit ImageFicInColorMap(const DescriptionTIFF& d) : m_blocs(new Blocs(d)) {}
  ImageFicInColorMap(const ImageFicInColorMap& autre)
      : ImplGetValeurs<ImageFicInColorMap>(), m_blocs(new Blocs(autre.m_blocs->Desc())) {}
  SpecifImageIn* dup() const override { return new ImageFicInColorMap(*this); }

  TPoint2D<int> GetTaille() const override { return TPoint2D<int>(Desc().colonnes, Desc().lignes); }
  int GetNbCanaux() const override { return 3; }
  eEnumType TypePixel() const override { return eUInt1; }
  const MetadonneesImage* Metadonnees() const override { return tiff::Metadonnees(Desc()); }
  bool RawReadPossible() const override { return false; }
  void RawRead(char*, unsigned int) const override {
    ZEPRA_ERREUR("[ImageFicInColorMap] (RawRead) Lecture brute impossible dans le fichier " << Desc().nom);
  }

  template <class D>
  void GetValeursT(LigneDe<D> const* dst, int x0, int y0, int x1, int y1, int xDest, int yDest,
                   int pas) const {
    const std::vector<unsigned char>& palette = Desc().palette;
    auto cible = [](long long, long long) -> unsigned char* { return nullptr; };
    auto segment = [&](const unsigned char* ligne, long long yOut, long long a, long long xPremier,
                       long long xFin, int) {
      const long long n = (xFin - xPremier + pas - 1) / pas;
      m_rvb.resize(static_cast<size_t>(n * 3));
      unsigned char* o = m_rvb.data();
      for (long long x = xPremier; x < xFin; x += pas) {
        const unsigned char i = ligne[x - a];
        *o++ = palette[i];
        *o++ = palette[256 + i];
        *o++ = palette[512 + i];
      }
      unsigned char* tabSrc[1] = {m_rvb.data()};
      LigneDe<D> tabDst[1] = {dst[yDest + yOut]};
      CopierPixels<unsigned char, D>(tabSrc, tabDst, 0, 0, static_cast<int>(n), 1,
                                     static_cast<int>(xDest + (xPremier - x0) / pas), 0, 1, 3);
    };
    m_blocs->Parcourir(x0, y0, x1, y1, pas, cible, segment);
  }

 private:
  const DescriptionTIFF& Desc() const { return m_blocs->Desc(); }
  std::unique_ptr<Blocs> m_blocs;
  mutable std::vector<unsigned char> m_rvb;
};

const MetadonneesImage* Metadonnees(const DescriptionTIFF& d) {
  if (d.erreurMetadonnees) throw *d.erreurMetadonnees;
  return d.metadonnees.get();
}

std::unique_ptr<SpecifImageIn> CreerLecteur(const DescriptionTIFF& d) {
  if (d.disposition == DescriptionTIFF::kPalette) return std::make_unique<ImageFicInColorMap>(d);
  if (d.disposition == DescriptionTIFF::kDallage) return CreerLecteurDallage(d);
  if (d.type == eBit1) return std::make_unique<ImageFicIn_Raster<unsigned char>>(d);
  std::unique_ptr<SpecifImageIn> lecteur;
  AppliquerType(d.type, [&](auto tag) {
    using T = typename decltype(tag)::type;
    if constexpr (!std::is_same_v<T, bool>) lecteur = std::make_unique<ImageFicIn_Raster<T>>(d);
  });
  if (!lecteur) ZEPRA_ERREUR("[TIFF_Annexes] (GetImage) typePixel (" << d.type << ") non prevu.");
  return lecteur;
}

}  // namespace tiff

std::unique_ptr<SpecifImageIn> CreateReader_TIFF(const std::string& nom) {
  if (!tiff::CheckMagic_TIFF(nom)) return nullptr;
  tiff::TIFF_Annexes annexes(nom);
  annexes.LireEntete();
  tiff::DescriptionTIFF d = annexes.GetImage();
  tiff::JoindreMetadonnees(annexes, d);
  return tiff::CreerLecteur(d);
}
