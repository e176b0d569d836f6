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

#include "image/handlers.h"
#include "segments.h"
#include "zepra/copierpixels.h"
#include "zepra/erreur.h"

namespace tiff {

namespace {

// One channel of a planar file's row into channel c of a destination line.
template <class S, class D>
void CopierPlan(const S* src, LigneDe<D> dst, long long n, int pas, int canaux, int c) {
  for (long long i = 0; i < n; ++i) dst[i * canaux + c] = Convertir<D, S>(src[i * pas]);
}

// The rectangle into a line table from (xDest, yDest), as GetValeurs reads. When the file's samples are
// of the destination's type and a block row lies whole in the request, it is decoded in place.
template <class T, class D>
void LireDansLignes(Blocs& blocs, std::vector<unsigned char>& tampon, LigneDe<D> const* dst, int x0, int y0,
                    int x1, int y1, int xDest, int yDest, int pas) {
  const DescriptionTIFF& d = blocs.Desc();
  const int canaux = d.CanauxLus();
  auto cible = [&](long long yOut, long long a) -> unsigned char* {
    if constexpr (std::is_same_v<T, D>) {
      if (d.bits != 1 && d.disposition != DescriptionTIFF::kPalette && pas == 1 && a >= x0 &&
          a + d.largeurBloc <= x1)
        return reinterpret_cast<unsigned char*>(dst[yDest + yOut] + (a - x0 + xDest) * canaux);
    }
    return nullptr;
  };
  auto ecrire = [&](long long yOut, long long xOut, const auto* src, long long n, int pasSrc, int parPixel,
                    int plan) {
    using S = std::remove_const_t<std::remove_pointer_t<decltype(src)>>;
    LigneDe<D> tabDst[1] = {dst[yDest + yOut]};
    if (plan >= 0) return CopierPlan<S, D>(src, tabDst[0] + (xDest + xOut) * canaux, n, pasSrc, canaux, plan);
    S* tabSrc[1] = {const_cast<S*>(src)};
    CopierPixels<S, D>(tabSrc, tabDst, 0, 0, static_cast<int>((n - 1) * pasSrc + 1), 1,
                       static_cast<int>(xDest + xOut), 0, pasSrc, parPixel);
  };
  LireSegments<T>(blocs, x0, y0, x1, y1, pas, tampon, cible, ecrire);
}

}  // namespace

// Strips and tiles; T is the file's sample type (unsigned char for 1-bit samples, unpacked to 0 and
// 1 before the copy).
template <class T>
class ImageFicIn_Raster : public ImplGetValeurs<ImageFicIn_Raster<T>> {
 public:
  explicit ImageFicIn_Raster(const DescriptionTIFF& d) : m_blocs(new Blocs(d)) {}
  ImageFicIn_Raster(const ImageFicIn_Raster& autre)
      : ImplGetValeurs<ImageFicIn_Raster<T>>(), m_blocs(new Blocs(autre.m_blocs->DescPartagee())) {}
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
    LireDansLignes<T, D>(*m_blocs, m_tampon, dst, x0, y0, x1, y1, xDest, yDest, pas);
  }

 private:
  const DescriptionTIFF& Desc() const { return m_blocs->Desc(); }
  std::unique_ptr<Blocs> m_blocs;
  mutable std::vector<unsigned char> m_tampon;
};

// Palette images: one 8-bit index per pixel, delivered as three unsigned 8-bit channels.
class ImageFicInColorMap : public ImplGetValeurs<ImageFicInColorMap> {
 public:
  explicit ImageFicInColorMap(const DescriptionTIFF& d) : m_blocs(new Blocs(d)) {}
  ImageFicInColorMap(const ImageFicInColorMap& autre)
      : ImplGetValeurs<ImageFicInColorMap>(), m_blocs(new Blocs(autre.m_blocs->DescPartagee())) {}
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
    LireDansLignes<unsigned char, D>(*m_blocs, m_tampon, dst, x0, y0, x1, y1, xDest, yDest, pas);
  }

 private:
  const DescriptionTIFF& Desc() const { return m_blocs->Desc(); }
  std::unique_ptr<Blocs> m_blocs;
  mutable std::vector<unsigned char> m_tampon;
};

const MetadonneesImage* Metadonnees(const DescriptionTIFF& d) {
  if (d.erreurMetadonnees) throw *d.erreurMetadonnees;
  return d.metadonnees.get();
}

std::unique_ptr<SpecifImageIn> CreerLecteur(const DescriptionTIFF& d) {
  if (d.disposition == DescriptionTIFF::kPalette) return std::make_unique<ImageFicInColorMap>(d);
  if (d.disposition == DescriptionTIFF::kDallage) return CreerLecteurDallage(d);
  std::unique_ptr<SpecifImageIn> lecteur;
  AppliquerTypeBlocs(
      d, [&](auto tag) { lecteur = std::make_unique<ImageFicIn_Raster<typename decltype(tag)::type>>(d); });
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
