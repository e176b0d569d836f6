// TIFF reading: the strip and tile reader ImageFicIn_Raster<T>, the palette reader
// ImageFicInColorMap, the "Dallage MPD" reader RasterArray and the factory CreateReader_TIFF.
//
// Pixels are decoded when they are asked for, block row by block row (a strip is a block as wide as
// the image): at any time the reader holds one block of compressed bytes and one decoded block row.
// When the file's samples are of the destination's type and the request covers whole block rows,
// rows are decoded straight into the destination lines; otherwise each row goes through
// CopierPixels, the one place where samples are converted.
#include <algorithm>
#include <cstring>
#include <memory>
#include <type_traits>

#include "decodeurs.h"
#include "handlers.h"
#include "tiff_annexes.h"
#include "zepra/copierpixels.h"
#include "zepra/erreur.h"
#include "zepra/systeme.h"

namespace tiff {

namespace {

// First coordinate at or after 'debut' on the grid v0, v0 + pas, ...
long long SurGrille(long long v0, long long debut, long long pas) {
  return debut <= v0 ? v0 : v0 + (debut - v0 + pas - 1) / pas * pas;
}

template <class U>
void AccumulerLigne(unsigned char* p, size_t echantillons, int canaux) {
  for (size_t i = static_cast<size_t>(canaux); i < echantillons; ++i) {
    U a, b;
    std::memcpy(&a, p + (i - canaux) * sizeof(U), sizeof(U));
    std::memcpy(&b, p + i * sizeof(U), sizeof(U));
    b = static_cast<U>(b + a);
    std::memcpy(p + i * sizeof(U), &b, sizeof(U));
  }
}

template <class U, class F>
void PermuterLigne(unsigned char* p, size_t echantillons, F inverser) {
  for (size_t i = 0; i < echantillons; ++i) {
    U v;
    std::memcpy(&v, p + i * sizeof(U), sizeof(U));
    v = inverser(v);
    std::memcpy(p + i * sizeof(U), &v, sizeof(U));
  }
}

}  // namespace

// The blocks of one image and the decoding of their rows.
class Blocs {
 public:
  explicit Blocs(const DescriptionTIFF& d) : m_desc(d), m_lecteur(d.nom) {}
  const DescriptionTIFF& Desc() const { return m_desc; }

  // Visits the rows of [x0, x1) x [y0, y1), every pas-th pixel. For each wanted row of each block,
  // cible(yOut, a) may give where the whole block row (from image column a) can be decoded in place,
  // or null; in that case the row is decoded into a buffer and handed to
  // segment(row, yOut, a, xPremier, xFin), which copies the columns [xPremier, xFin) on the grid.
  template <class Cible, class Segment>
  void Parcourir(int x0, int y0, int x1, int y1, int pas, Cible&& cible, Segment&& segment) {
    Verifier(x0, y0, x1, y1, pas);
    if (x1 <= x0 || y1 <= y0) return;
    const DescriptionTIFF& d = m_desc;
    const long long bw = d.largeurBloc, bh = d.hauteurBloc;
    m_octetsLigne = d.OctetsLigneBloc();
    m_ligne.resize(static_cast<size_t>(m_octetsLigne));
    const bool bandes = d.disposition != DescriptionTIFF::kTuiles;
    for (long long by = y0 / bh; by <= (y1 - 1) / bh; ++by) {
      const long long r0 = by * bh, r1 = std::min<long long>(r0 + bh, d.lignes);
      const long long yPremier = SurGrille(y0, r0, pas), yFin = std::min<long long>(y1, r1);
      if (yPremier >= yFin) continue;
      const long long lignesBloc = bandes ? r1 - r0 : bh;
      for (long long bx = x0 / bw; bx <= (x1 - 1) / bw; ++bx) {
        const long long a = bx * bw, b = std::min<long long>(a + bw, d.colonnes);
        const long long xPremier = SurGrille(x0, a, pas), xFin = std::min<long long>(x1, b);
        if (xPremier >= xFin) continue;
        const size_t k = static_cast<size_t>(by * d.BlocsParLigne() + bx);
        // A compressed block is decoded from its start, but a request that goes on below the rows
        // already decoded (reading band after band) resumes where the decoder stopped.
        long long y = r0;
        if (d.compression != kSans) {
          if (k == m_bloc && r0 + m_prochaine <= yPremier)
            y = r0 + m_prochaine;
          else
            OuvrirBloc(k);
          m_bloc = kAucun;
        }
        for (; y < yFin; ++y) {
          const bool voulue = y >= yPremier && (y - y0) % pas == 0;
          if (!voulue) {
            if (d.compression != kSans) LireLigne(k, y - r0, m_ligne.data());
            continue;
          }
          const long long yOut = (y - y0) / pas;
          unsigned char* p = cible(yOut, a);
          const bool direct = p != nullptr;
          if (!direct) p = m_ligne.data();
          LireLigne(k, y - r0, p);
          PostTraiter(p);
          if (!direct) segment(static_cast<const unsigned char*>(p), yOut, a, xPremier, xFin);
        }
        if (d.compression != kSans) {
          m_bloc = k;
          m_prochaine = yFin - r0;
        }
        if (d.compression == kPackBits && yFin == r0 + lignesBloc) m_packbits.SignalerDepassements();
      }
    }
  }

 private:
  void Verifier(int x0, int y0, int x1, int y1, int pas) const {
    const DescriptionTIFF& d = m_desc;
    if (pas < 1 || x0 < 0 || y0 < 0 || x1 > d.colonnes || y1 > d.lignes)
      ZEPRA_ERREUR("[ImageFicIn_Raster] (GetValeurs) Rectangle ("
                   << x0 << ", " << y0 << ") - (" << x1 << ", " << y1 << ") de pas " << pas
                   << " hors de l'image " << d.colonnes << " x " << d.lignes << " du fichier " << d.nom
                   << ".");
    if (d.compression != kSans && d.compression != kLZW && d.compression != kPackBits)
      ZEPRA_ERREUR("[ImageFicIn_Raster] (GetValeurs) Compression ("
                   << d.compression << ") non geree : pixels du fichier " << d.nom << " illisibles.");
    if (d.planaire == 2 && d.canaux > 1)
      ZEPRA_ERREUR(
          "[ImageFicIn_Raster] (GetValeurs) Canaux en plans separes (PlanarConfiguration 2) : pixels du "
          "fichier "
          << d.nom << " illisibles.");
    const bool differences =
        d.predicteur == 2 && (d.bits == 8 || d.bits == 16 || d.bits == 32 || d.bits == 64);
    if (d.predicteur != 1 && !differences)
      ZEPRA_ERREUR("[ImageFicIn_Raster] (GetValeurs) Predictor ("
                   << d.predicteur << ") non gere pour " << d.bits << " bits : pixels du fichier " << d.nom
                   << " illisibles.");
  }

  void OuvrirBloc(size_t k) {
    if (m_desc.compression == kSans) return;
    m_compresse.resize(static_cast<size_t>(m_desc.octets[k]));
    m_lecteur.Aller(m_desc.offsets[k]);
    m_lecteur.Lire(m_compresse.data(), m_compresse.size());
    if (m_desc.compression == kLZW)
      m_lzw.SetData(m_compresse.data(), m_compresse.size());
    else
      m_packbits.SetData(m_compresse.data(), m_compresse.size());
  }

  // Row 'ligne' of block k; compressed blocks are decoded in order, row after row.
  void LireLigne(size_t k, long long ligne, unsigned char* p) {
    const DescriptionTIFF& d = m_desc;
    const size_t n = static_cast<size_t>(m_octetsLigne);
    if (d.compression == kSans) {
      m_lecteur.Aller(d.offsets[k] + static_cast<uint64_t>(ligne) * m_octetsLigne);
      m_lecteur.Lire(p, n);
      return;
    }
    const size_t lus = d.compression == kLZW ? m_lzw.Decode(p, n) : m_packbits.Decode(p, n);
    if (d.compression == kLZW && m_lzw.Corrompu())
      ZEPRA_ERREUR("[ImageFicIn_Raster] (GetValeurs) Code LZW "
                   << m_lzw.CodeInvalide() << " impossible dans le bloc " << k << " du fichier " << d.nom
                   << " (ligne " << ligne << " du bloc).");
    if (lus < n)
      ZEPRA_ERREUR("[ImageFicIn_Raster] (GetValeurs) Donnees compressees insuffisantes dans le bloc "
                   << k << " du fichier " << d.nom << " : ligne " << ligne << " du bloc, " << lus
                   << " octets sur " << n << ".");
  }

  // Byte order, then horizontal differencing, on one decoded block row.
  void PostTraiter(unsigned char* p) const {
    const DescriptionTIFF& d = m_desc;
    const size_t echantillons = static_cast<size_t>(d.largeurBloc) * d.canaux;
    if (d.permuter) {
      if (d.bits == 16)
        PermuterLigne<uint16_t>(p, echantillons, [](uint16_t v) { return __builtin_bswap16(v); });
      if (d.bits == 32)
        PermuterLigne<uint32_t>(p, echantillons, [](uint32_t v) { return __builtin_bswap32(v); });
      if (d.bits == 64)
        PermuterLigne<uint64_t>(p, echantillons, [](uint64_t v) { return __builtin_bswap64(v); });
    }
    if (d.predicteur == 2) {
      if (d.bits == 8) AccumulerLigne<uint8_t>(p, echantillons, d.canaux);
      if (d.bits == 16) AccumulerLigne<uint16_t>(p, echantillons, d.canaux);
      if (d.bits == 32) AccumulerLigne<uint32_t>(p, echantillons, d.canaux);
      if (d.bits == 64) AccumulerLigne<uint64_t>(p, echantillons, d.canaux);
    }
  }

  static constexpr size_t kAucun = static_cast<size_t>(-1);
  DescriptionTIFF m_desc;
  LecteurOctets m_lecteur;
  uint64_t m_octetsLigne = 0;
  size_t m_bloc = kAucun;     // the compressed block the decoder holds
  long long m_prochaine = 0;  // and the next row it will give
  std::vector<unsigned char> m_compresse;
  std::vector<unsigned char> m_ligne;
  LZW_Decoder m_lzw;
  PackBits_Decoder m_packbits;
};

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
                       long long xFin) {
      LigneDe<D> tabDst[1] = {dst[yDest + yOut]};
      const long long xOut = xDest + (xPremier - x0) / pas;
      if (bits) {
        const long long n = (xFin - xPremier + pas - 1) / pas;
        m_unites.resize(static_cast<size_t>(n * canaux));
        size_t o = 0;
        for (long long x = xPremier; x < xFin; x += pas)
          for (int c = 0; c < canaux; ++c) {
            const uint64_t i = static_cast<uint64_t>(x - a) * canaux + c;
            m_unites[o++] = (ligne[i >> 3] >> (7 - (i & 7))) & 1;
          }
        unsigned char* tabSrc[1] = {m_unites.data()};
        CopierPixels<unsigned char, D>(tabSrc, tabDst, 0, 0, static_cast<int>(n), 1, static_cast<int>(xOut),
                                       0, 1, canaux);
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
                       long long xFin) {
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

std::unique_ptr<SpecifImageIn> CreerLecteur(const DescriptionTIFF& d);

// "Dallage MPD": an image whose pixels lie in separate tile files (see LireDallage for their names).
// Every tile is a TIFF file of the main file's pixel type and channel count; the tiles of one column
// share a width, those of one line a height, and together they make the main file's size. Tile
// files are opened when their pixels are read.
class RasterArray : public ImplGetValeurs<RasterArray> {
 public:
  explicit RasterArray(const DescriptionTIFF& principal) : m_principal(principal) {
    const int nx = principal.dallesColonnes, ny = principal.dallesLignes;
    m_x.assign(static_cast<size_t>(nx) + 1, 0);
    m_y.assign(static_cast<size_t>(ny) + 1, 0);
    for (int j = 0; j < ny; ++j)
      for (int i = 0; i < nx; ++i) {
        TIFF_Annexes annexes(NomDalle(principal.nom, i, j));
        annexes.LireEntete();
        m_dalles.push_back(annexes.GetImage(false));
        const DescriptionTIFF& t = m_dalles.back();
        const bool palette = t.disposition == DescriptionTIFF::kPalette;
        const eEnumType type = palette ? eUInt1 : t.type;
        const int canaux = palette ? 3 : t.canaux;
        if (type != principal.type || canaux != principal.canaux)
          ZEPRA_ERREUR("[RasterArray] (Constructeur) La dalle "
                       << t.nom << " (type " << type << ", " << canaux
                       << " canaux) ne correspond pas a l'image " << principal.nom << " (type "
                       << principal.type << ", " << principal.canaux << " canaux).");
        if ((j > 0 && t.colonnes != m_x[i + 1] - m_x[i]) || (i > 0 && t.lignes != m_y[j + 1] - m_y[j]))
          ZEPRA_ERREUR("[RasterArray] (Constructeur) La dalle "
                       << t.nom << " (" << t.colonnes << " x " << t.lignes
                       << ") n'a pas la largeur de sa colonne ou la hauteur "
                          "de sa ligne de dalles.");
        if (j == 0) m_x[i + 1] = m_x[i] + t.colonnes;
        if (i == 0) m_y[j + 1] = m_y[j] + t.lignes;
      }
    if (m_x[nx] != principal.colonnes || m_y[ny] != principal.lignes)
      ZEPRA_ERREUR("[RasterArray] (Constructeur) Les dalles de "
                   << principal.nom << " font " << m_x[nx] << " x " << m_y[ny] << " pixels, l'image "
                   << principal.colonnes << " x " << principal.lignes << ".");
  }
  SpecifImageIn* dup() const override { return new RasterArray(*this); }

  TPoint2D<int> GetTaille() const override { return TPoint2D<int>(m_principal.colonnes, m_principal.lignes); }
  int GetNbCanaux() const override { return m_principal.canaux; }
  eEnumType TypePixel() const override { return m_principal.type; }
  bool RawReadPossible() const override { return false; }
  void RawRead(char*, unsigned int) const override {
    ZEPRA_ERREUR("[RasterArray] (RawRead) Lecture brute impossible dans le fichier " << m_principal.nom);
  }

  template <class D>
  void GetValeursT(LigneDe<D> const* dst, int x0, int y0, int x1, int y1, int xDest, int yDest,
                   int pas) const {
    if (pas < 1 || x0 < 0 || y0 < 0 || x1 > m_principal.colonnes || y1 > m_principal.lignes)
      ZEPRA_ERREUR("[RasterArray] (GetValeurs) Rectangle ("
                   << x0 << ", " << y0 << ") - (" << x1 << ", " << y1 << ") de pas " << pas
                   << " hors de l'image du fichier " << m_principal.nom << ".");
    const int nx = m_principal.dallesColonnes;
    for (int j = 0; j + 1 < static_cast<int>(m_y.size()); ++j) {
      const long long yPremier = SurGrille(y0, m_y[j], pas), yFin = std::min<long long>(y1, m_y[j + 1]);
      if (yPremier >= yFin) continue;
      for (int i = 0; i < nx; ++i) {
        const long long xPremier = SurGrille(x0, m_x[i], pas), xFin = std::min<long long>(x1, m_x[i + 1]);
        if (xPremier >= xFin) continue;
        const std::unique_ptr<SpecifImageIn> dalle = CreerLecteur(m_dalles[static_cast<size_t>(j) * nx + i]);
        dalle->GetValeurs(dst, static_cast<int>(xPremier - m_x[i]), static_cast<int>(yPremier - m_y[j]),
                          static_cast<int>(xFin - m_x[i]), static_cast<int>(yFin - m_y[j]),
                          static_cast<int>(xDest + (xPremier - x0) / pas),
                          static_cast<int>(yDest + (yPremier - y0) / pas), pas);
      }
    }
  }

 private:
  DescriptionTIFF m_principal;
  std::vector<DescriptionTIFF> m_dalles;  // line after line
  std::vector<long long> m_x, m_y;        // first column of each tile column, first line of each tile line
};

std::unique_ptr<SpecifImageIn> CreerLecteur(const DescriptionTIFF& d) {
  if (d.disposition == DescriptionTIFF::kPalette) return std::make_unique<ImageFicInColorMap>(d);
  if (d.disposition == DescriptionTIFF::kDallage) return std::make_unique<RasterArray>(d);
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
  return tiff::CreerLecteur(annexes.GetImage());
}
