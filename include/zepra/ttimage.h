// TTImage<T>: the typed in-memory image, columns x lines x channels of T.
//
// Samples are stored line after line from the top, pixels from the left, channels interleaved: the
// sample of column x, line y, channel c is at GetLines(y)[x * channels + c]. The image owns its
// samples and its line table; copies are deep. Pixel accessors check nothing (no bounds, no channel):
// the caller keeps inside the image. Whole-image operations validate their arguments.
// bool images store one bit per sample and their line table holds bit iterators.
// Compiled once for the nine element types in ttimage.cpp.
#pragma once

#include <memory>
#include <vector>

#include "zepra/copierpixels.h"
#include "zepra/geometrie.h"
#include "zepra/infotype.h"
#include "zepra/specifimage.h"

struct OptionsImageOut;
struct OptionsEcriture;
struct GeoreferenceEcriture;
class ImageFicOut;

template <class T>
class TTImage : public ImplGetValeurs<TTImage<T>>, public ImplSetValeurs<TTImage<T>> {
 public:
  using Stockage = StockageImage<T>;
  using Conteneur = typename Stockage::Conteneur;
  using Ligne = typename Stockage::Ligne;
  using Ref = typename Stockage::Ref;
  using ConstRef = typename Stockage::ConstRef;
  using Pointeur = typename Stockage::Pointeur;
  using iterator = typename Conteneur::iterator;
  using const_iterator = typename Conteneur::const_iterator;

  // An empty image (0 x 0) with n channels.
  explicit TTImage(TagNbCanaux n = TagNbCanaux(1));
  // An image of that size, samples zero.
  TTImage(int colonnes, int lignes, TagNbCanaux n);
  TTImage(const TPoint2D<int>& taille, TagNbCanaux n);
  // A one-channel image filled with valeur.
  TTImage(int colonnes, int lignes, T valeur);
  TTImage(const TPoint2D<int>& taille, T valeur);
  // Reads a file (see Lire).
  explicit TTImage(const char* fichier, int image = 0);
  TTImage(const TTImage& autre);
  TTImage(TTImage&& autre) noexcept;
  TTImage& operator=(const TTImage& autre);
  TTImage& operator=(TTImage&& autre) noexcept;
  ~TTImage() override = default;
  SpecifImageIn* dup() const override { return new TTImage(*this); }

  // Shaping primitive: negative values count as 0; the sample array keeps its elements in place
  // (new ones are zero), so a change of width scrambles the old content rather than clearing it.
  void Construire(int colonnes, int lignes, int canaux);
  void vReformat(int colonnes, int lignes, TagNbCanaux canaux);
  void vReformat(int colonnes, int lignes) { vReformat(colonnes, lignes, TagNbCanaux(m_canaux)); }
  void vReformat(const TPoint2D<int>& t) { vReformat(t.x, t.y, TagNbCanaux(m_canaux)); }
  void vReformat(const TPoint2D<int>& t, TagNbCanaux canaux) { vReformat(t.x, t.y, canaux); }
  void SetTaille(int colonnes, int lignes) override { vReformat(colonnes, lignes); }
  void SetTaille(const TPoint2D<int>& t) override { vReformat(t.x, t.y); }
  void SetNbCanaux(TagNbCanaux n) override;
  void SetNbCanaux(int n) { SetNbCanaux(TagNbCanaux(n)); }
  // An in-memory image's type is that of its instantiation: only that code is accepted.
  void SetTypePixel(eEnumType type) override;
  void Detruire();

  TPoint2D<int> GetTaille() const override { return TPoint2D<int>(m_colonnes, m_lignes); }
  int GetNbCanaux() const override { return m_canaux; }
  int iGetNbLignes() const { return m_lignes; }
  int iGetNbColonnes() const { return m_colonnes; }
  int iGetNbColonn() const { return m_colonnes; }
  size_t size() const { return m_donnees.size(); }
  TRectangle<int> rect() const { return TRectangle<int>(0, 0, m_colonnes, m_lignes); }
  bool EstDans(int x, int y) const { return x >= 0 && x < m_colonnes && y >= 0 && y < m_lignes; }
  bool EstDans(const TPoint2D<int>& p) const { return EstDans(p.x, p.y); }
  eEnumType TypePixel() const override { return CodeType<T>::value; }
  eEnumType GetTypePixel() const override { return CodeType<T>::value; }
  int TaillePixel() const { return InfoType::TailleType(CodeType<T>::value); }
  bool IsInRAM() const override { return true; }
  bool RawReadPossible() const override { return true; }
  bool RawWritePossible() const override { return true; }

  // Pixel access: one line-table lookup and one index computation, no check.
  Ref operator()(int x, int y) { return m_lignesTab[y][static_cast<long>(x) * m_canaux]; }
  ConstRef operator()(int x, int y) const { return m_lignesTab[y][static_cast<long>(x) * m_canaux]; }
  Ref operator()(int x, int y, int c) { return m_lignesTab[y][static_cast<long>(x) * m_canaux + c]; }
  ConstRef operator()(int x, int y, int c) const {
    return m_lignesTab[y][static_cast<long>(x) * m_canaux + c];
  }
  Ref operator()(const TPoint2D<int>& p) { return (*this)(p.x, p.y); }
  ConstRef operator()(const TPoint2D<int>& p) const { return (*this)(p.x, p.y); }
  Ref operator()(const TPoint2D<int>& p, int c) { return (*this)(p.x, p.y, c); }
  ConstRef operator()(const TPoint2D<int>& p, int c) const { return (*this)(p.x, p.y, c); }
  T GetPixel(int x, int y) const { return (*this)(x, y); }
  T GetPixel(int x, int y, int c) const { return (*this)(x, y, c); }
  void SetPixel(int x, int y, const T& v) { (*this)(x, y) = v; }
  void SetPixel(int x, int y, int c, const T& v) { (*this)(x, y, c) = v; }

  // The address of the pixel's first sample, to be used as three consecutive samples. For bool: a new
  // array of the first three bits, owned by the caller.
  Pointeur rgb(int x, int y);
  Pointeur rgb(const TPoint2D<int>& p) { return rgb(p.x, p.y); }
  Pointeur triplet(int x, int y) { return rgb(x, y); }
  Pointeur triplet(const TPoint2D<int>& p) { return rgb(p.x, p.y); }
  Pointeur triplet_rvb(int x, int y) { return rgb(x, y); }
  Pointeur triplet_rvb(const TPoint2D<int>& p) { return rgb(p.x, p.y); }

  iterator begin() { return m_donnees.begin(); }
  iterator end() { return m_donnees.end(); }
  const_iterator begin() const { return m_donnees.begin(); }
  const_iterator end() const { return m_donnees.end(); }
  iterator It(int x, int y) { return begin() + (static_cast<long>(y) * m_colonnes + x) * m_canaux; }
  iterator It(int x, int y, int c) { return It(x, y) + c; }
  Ligne GetLines(int y) const { return m_lignesTab[y]; }
  // The whole line table, one entry per line.
  const Ligne* GetLines() const { return m_lignesTab.data(); }
  // The first sample; null for bool.
  Pointeur InternalData();

  // Raw bytes of the sample array, without size check (bool reads zero bytes).
  void RawRead(char* tampon, unsigned int octets) const override;
  void RawWrite(const char* tampon, unsigned int octets) override;

  void RemplirValeur(T v);
  TTImage& operator=(T v) {
    RemplirValeur(v);
    return *this;
  }
  // Adds v to every sample; for bool, a logical or.
  TTImage& operator+=(T v);

  // Mirror between lines (FlipX) or columns (FlipY), channel 0 only (established behaviour).
  void FlipX();
  void FlipY();

  // Bilinear interpolation in double; the caller keeps x in [0, columns - 1) and y in [0, lines - 1).
  double InterpolerBilineaire(double x, double y) const { return InterpolerBilineaire(x, y, 0); }
  double InterpolerBilineaire(double x, double y, int c) const;
  double InterpolerBilineaire(const TPoint2D<double>& p) const { return InterpolerBilineaire(p.x, p.y, 0); }

  void CopierCanal(const TTImage& source, int canalSource, int canalDestination);

  // Fills this image from the rectangle of columns x lines at (x0, y0) of any readable image, every
  // pas-th pixel, converting the samples. mode 0 keeps only the part inside the source; mode 1 keeps
  // the size of the request, the part outside the source being zero.
  void Crop(const SpecifImageIn& source, int x0, int y0, int colonnes, int lignes, int pas = 1, int mode = 0);
  void Crop(const SpecifImageIn& source, const TRectangle<int>& r, int pas = 1, int mode = 0) {
    Crop(source, r.p0.x, r.p0.y, r.Largeur(), r.Hauteur(), pas, mode);
  }
  void Crop(const SpecifImageIn& source, const TPoint2D<int>& coin, const TPoint2D<int>& taille, int pas = 1,
            int mode = 0) {
    Crop(source, coin.x, coin.y, taille.x, taille.y, pas, mode);
  }

  // Writes the rectangle of columns x lines at (x0, y0), every pas-th pixel, into destination at
  // (xDest, yDest); rectangles leaving either image are clipped with a warning.
  void Paste(SpecifImageOut& destination, int x0, int y0, int colonnes, int lignes, int xDest, int yDest,
             int pas) const;
  void Paste(SpecifImageOut& destination, int xDest, int yDest) const {
    Paste(destination, 0, 0, m_colonnes, m_lignes, xDest, yDest, 1);
  }
  // Pastes the whole image; returns the corner actually written.
  TPoint2D<int> Paste(SpecifImageOut& destination, const TPoint2D<int>& coinDest) const;

  // Reads image number 'image' (only 0 exists in our formats) of a file of any registered format,
  // reshaped to the file's size and channels; samples of another type are converted by the plain cast.
  void Lire(const char* fichier, int image = 0);
  // Reads channel 'canal' of a file of any registered format into a one-channel image of its size,
  // holding no more than a band of the other channels.
  void LireCanal(const char* fichier, int canal);
  // Writes the image; the format is chosen by the extension. 'image' as for Lire.
  void Sauver(const char* fichier, int image, const OptionsImageOut& options) const;
  void Sauver(const char* fichier, int image = 0) const;
  // Sauver in two steps, so that a caller can learn what the writer refuses before it makes the
  // pixels: the file opened as Sauver opens it for an image of T of that size (every check and refusal
  // of Sauver happens here; nothing is visible under the name yet), then this image, of that size,
  // written into it and the file completed.
  static std::unique_ptr<ImageFicOut> OuvrirSortie(const char* fichier, int image,
                                                   const OptionsImageOut& options, int colonnes, int lignes,
                                                   TagNbCanaux canaux);
  void Ecrire(ImageFicOut& sortie) const;
  // Writes a GeoTIFF (.tif, .tiff) with these options (rounded conversion to their output type, NaN
  // as no-data), placed on the map by 'georef' when given.
  void Sauver(const char* fichier, const OptionsEcriture& options) const;
  void Sauver(const char* fichier, const OptionsEcriture& options, const GeoreferenceEcriture& georef) const;

  template <class D>
  void GetValeursT(LigneDe<D> const* dst, int x0, int y0, int x1, int y1, int xDest, int yDest,
                   int pas) const {
    CopierPixels<T, D>(m_lignesTab.data(), dst, x0, y0, x1, y1, xDest, yDest, pas, m_canaux);
  }
  template <class S>
  void SetValeursT(LigneDe<S> const* src, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) {
    CopierPixels<S, T>(src, m_lignesTab.data(), x0, y0, x1, y1, xDest, yDest, pas, m_canaux);
  }

 private:
  void ReconstruireLignes();
  // Construire, leaving the new samples uninitialised when 'zero' is false.
  void Dimensionner(int colonnes, int lignes, int canaux, bool zero);
  void LireSource(const SpecifImageIn& entree, const char* fichier);

  Conteneur m_donnees;
  std::vector<Ligne> m_lignesTab;
  int m_colonnes = 0;
  int m_lignes = 0;
  int m_canaux = 1;
};

extern template class TTImage<bool>;
extern template class TTImage<unsigned char>;
extern template class TTImage<signed char>;
extern template class TTImage<unsigned short>;
extern template class TTImage<short>;
extern template class TTImage<unsigned int>;
extern template class TTImage<int>;
extern template class TTImage<float>;
extern template class TTImage<double>;
