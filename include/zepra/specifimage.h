// The read and write interfaces shared by in-memory images and image files, and the band copies
// between them.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "zepra/geometrie.h"
#include "zepra/infotype.h"

// Type of a channel-count argument, distinct from the element type of an image.
struct TagNbCanaux {
  explicit TagNbCanaux(int n) : nb(n) {}
  int nb;
};

// Leaves new elements uninitialised when a vector grows, so that an image about to be filled from a
// file is not first zeroed; TTImage zeroes its new elements itself everywhere else.
template <class T>
struct AllocateurSansInit : std::allocator<T> {
  template <class U>
  struct rebind {
    using other = AllocateurSansInit<U>;
  };
  AllocateurSansInit() = default;
  template <class U>
  AllocateurSansInit(const AllocateurSansInit<U>&) noexcept {}
  template <class U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <class U, class... A>
  void construct(U* p, A&&... a) {
    ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
  }
};

// How the samples of one element type are stored and how a line table points at them: a contiguous
// array and plain pointers, except for bool, stored as a packed bit vector with bit iterators.
template <class T>
struct StockageImage {
  using Conteneur = std::vector<T, AllocateurSansInit<T>>;
  using Ligne = T*;
  using Ref = T&;
  using ConstRef = const T&;
  using Pointeur = T*;
  static Ligne Position(Conteneur& c, size_t decalage) { return c.data() + decalage; }
};
template <>
struct StockageImage<bool> {
  using Conteneur = std::vector<bool>;
  using Ligne = std::vector<bool>::iterator;
  using Ref = std::vector<bool>::reference;
  using ConstRef = bool;
  using Pointeur = bool*;
  static Ligne Position(Conteneur& c, size_t decalage) { return c.begin() + static_cast<long>(decalage); }
};

// A line table: one entry per line, the start of that line's samples.
template <class T>
using LigneDe = typename StockageImage<T>::Ligne;

// Calls M once for each of the nine element types, in the slot order of the interfaces.
#define ZEPRA_NEUF_TYPES(M) \
  M(double) M(float) M(unsigned int) M(int) M(unsigned short) M(short) M(unsigned char) M(signed char) M(bool)

class SpecifImageOut;
struct MetadonneesImage;

// Something pixels can be read from. GetValeurs reads the rectangle [x0, x1) x [y0, y1) of the
// source, every pas-th pixel on each axis, into the line table from column xDest and line yDest,
// converting each sample by a plain cast. No bounds are checked.
class SpecifImageIn {
 public:
  virtual ~SpecifImageIn() = default;
  virtual TPoint2D<int> GetTaille() const = 0;
  virtual int GetNbCanaux() const = 0;
  virtual eEnumType TypePixel() const = 0;
  virtual bool IsInRAM() const { return false; }
  // What the file says besides its pixels (see metadonnees.h); null when the source knows nothing.
  // Owned by the source.
  virtual const MetadonneesImage* Metadonnees() const { return nullptr; }
  virtual bool RawReadPossible() const = 0;
  virtual void RawRead(char* tampon, unsigned int octets) const = 0;
  virtual SpecifImageIn* dup() const = 0;  // a new copy, owned by the caller
#define ZEPRA_DECL_GET(T)                                                                                 \
  virtual void GetValeurs(LigneDe<T> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest, \
                          int pas) const = 0;
  ZEPRA_NEUF_TYPES(ZEPRA_DECL_GET)
#undef ZEPRA_DECL_GET

  // Writes the rectangle of this source (columns x lines from (x0, y0), every pas-th pixel) into
  // destination at (xDest, yDest), in bands of about a million samples. Source types 5 to 12.
  void Paste(SpecifImageOut& destination, int x0, int y0, int colonnes, int lignes, int xDest, int yDest,
             int pas) const;
};

// Something pixels can be written to. SetValeurs writes the rectangle [x0, x1) x [y0, y1) of the line
// table, every pas-th pixel, into this sink from column xDest and line yDest.
class SpecifImageOut {
 public:
  virtual ~SpecifImageOut() = default;
  virtual void SetNbCanaux(TagNbCanaux n) = 0;
  virtual int GetNbCanaux() const = 0;
  virtual eEnumType GetTypePixel() const = 0;
  virtual void SetTypePixel(eEnumType type) = 0;
  virtual void SetTaille(int colonnes, int lignes) = 0;
  virtual TPoint2D<int> GetTaille() const = 0;
  virtual void SetTaille(const TPoint2D<int>& taille) = 0;
  virtual bool RawWritePossible() const = 0;
  virtual void RawWrite(const char* tampon, unsigned int octets) = 0;
#define ZEPRA_DECL_SET(T)                                                                                 \
  virtual void SetValeurs(LigneDe<T> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest, \
                          int pas) = 0;
  ZEPRA_NEUF_TYPES(ZEPRA_DECL_SET)
#undef ZEPRA_DECL_SET

  // Fills this sink from a rectangle of source (columns x lines from (x0, y0), every pas-th pixel),
  // in bands of about a million samples. Source types 5 to 12.
  void Crop(const SpecifImageIn& source, int x0, int y0, int colonnes, int lignes, int pas, int mode);
};

// Implements the nine GetValeurs of a reader by forwarding to Derived::GetValeursT<D>: a format or an
// image writes one member template, not nine functions.
template <class Derived, class Base = SpecifImageIn>
class ImplGetValeurs : public Base {
 public:
  using Base::Base;
#define ZEPRA_IMPL_GET(T)                                                                                  \
  void GetValeurs(LigneDe<T> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) \
      const override {                                                                                     \
    static_cast<const Derived*>(this)->template GetValeursT<T>(lignes, x0, y0, x1, y1, xDest, yDest, pas); \
  }
  ZEPRA_NEUF_TYPES(ZEPRA_IMPL_GET)
#undef ZEPRA_IMPL_GET
};

// The same for the nine SetValeurs of a writer, forwarded to Derived::SetValeursT<S>.
template <class Derived, class Base = SpecifImageOut>
class ImplSetValeurs : public Base {
 public:
  using Base::Base;
#define ZEPRA_IMPL_SET(T)                                                                                  \
  void SetValeurs(LigneDe<T> const* lignes, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) \
      override {                                                                                           \
    static_cast<Derived*>(this)->template SetValeursT<T>(lignes, x0, y0, x1, y1, xDest, yDest, pas);       \
  }
  ZEPRA_NEUF_TYPES(ZEPRA_IMPL_SET)
#undef ZEPRA_IMPL_SET
};

// Result of the crop geometry rule, per axis: the output size, the clipped corners (end exclusive),
// the place in the output where the clipped area begins, and whether the request left the source.
struct GeometrieCrop {
  TPoint2D<int> taille, p0, p1, decalage;
  bool partiel = false;
};

struct TTImage_Annexes {
  // Clips [p0, p1) against a source of the given size with step pas. A negative corner moves up by
  // whole steps, so that the kept pixels stay on the grid of the request. With garderTaille the
  // output keeps the size of the request and the clipped area starts at 'decalage'; otherwise the
  // output is the clipped area only. An empty result is all zero. Throws for pas < 1.
  static GeometrieCrop GestionCrop(const TPoint2D<int>& tailleSource, const TPoint2D<int>& p0,
                                   const TPoint2D<int>& p1, int pas, bool garderTaille);
  // Lines per band of the band copies: 1000000 / width, at least 1.
  static int HauteurBande(int largeurSource);
};

// Clipping of a paste: the source rectangle [s0, s1) read with step pas, written from 'dest'.
// 'vide' when nothing is left. Warnings name the rectangles that were clipped.
struct GeometriePaste {
  TPoint2D<int> s0, s1, dest;
  bool vide = true;
};
GeometriePaste CalculPaste(const TPoint2D<int>& tailleSource, const TPoint2D<int>& tailleDest, int x0, int y0,
                           int colonnes, int lignes, int xDest, int yDest, int pas, const char* tag);

// Band copies through a temporary in-memory image of the source's element type T.
template <class T>
void fonction_crop(const SpecifImageIn& source, SpecifImageOut& destination, const TPoint2D<int>& p0,
                   const TPoint2D<int>& p1, int pas, int mode);
template <class T>
void fonction_paste(const SpecifImageIn& source, SpecifImageOut& destination, int x0, int y0, int colonnes,
                    int lignes, int xDest, int yDest, int pas);
