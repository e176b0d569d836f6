// Oriented images: pixels together with their orientation, read and saved together (the orientation
// file beside the image, same name, extension .ori; a carto orientation also gets its world file
// .tfw), and checked against each other (same lines, then same columns) whenever both are known.
//
//   TTOrientedImage<T>   an in-memory TTImage<T> and its OrientationOld (all types but bool)
//   OrientedImageFicIn   an image file reader and its orientation
//   OrientedImageFicOut  an image file writer and the orientation written beside it
//
// Cut-outs (Crop, CropOri) are clipped to the source by the crop rule of TTImage and their orientation
// is derived from the source's through Extract: the pixel (0, 0) of a cut-out starting at (x0, y0)
// with step pas is the source's pixel (x0, y0), and its pixels are pas times larger.
#pragma once

#include <functional>
#include <string>

#include "zepra/imagefic.h"
#include "zepra/orientation.h"
#include "zepra/ttimage.h"

// The read side that copies and cut-outs take.
// Writes an image and its orientation as a pair that is complete or absent: the orientation first,
// since that is where a refusal can come (an origin that would not read back), then the image by
// ecrireImage; if the image fails, the orientation files written are removed.
void SauverAvecOrientation(const OrientationOld& ori, const char* nomOri,
                           const std::function<void()>& ecrireImage);
// Removes an image written by TTOrientedImage::Sauver(image) and its orientation files (".ori", and
// the ".tfw" beside it); what is absent is skipped.
void SupprimerAvecOrientation(const char* image);

class OrientedImageIn {
 public:
  virtual ~OrientedImageIn() = default;
  virtual const SpecifImageIn& GetSpecifImageIn() const = 0;
  virtual const OrientationOld& GetOrientation() const = 0;
  virtual eEnumType GetType() const = 0;
};

// The write side: a sink for pixels and an orientation.
class OrientedImageOut {
 public:
  virtual ~OrientedImageOut() = default;
  virtual SpecifImageOut& GetSpecifImageOut() = 0;
  virtual const OrientationOld& GetOrientation() const = 0;
  virtual void ChangeOrientation(const OrientationOld& ori) = 0;
  virtual eEnumType GetType() const = 0;

  // This image becomes the cut-out [r.p0, r.p1) of source, every pas-th pixel, clipped to the source;
  // its orientation is derived. A rectangle wholly outside the source is an Erreur.
  void CropOri(const OrientedImageIn& source, const TRectangle<int>& r, int pas = 1);
  void CropOri(const OrientedImageIn& source, int x0, int y0, int x1, int y1, int pas = 1) {
    CropOri(source, TRectangle<int>(x0, y0, x1, y1), pas);
  }
  // The same given by a map rectangle of a carto source: its edges are pixel edges ([xMin, xMax) x
  // (yMin, yMax], each rounded to the nearest pixel edge) and the steps, in metres, must both be the
  // same whole multiple of the source's steps.
  void CropOriCarto(const OrientedImageIn& source, double xMin, double yMin, double xMax, double yMax,
                    double pasX, double pasY);

 protected:
  // Sets the pixel type and channel count of the sink before a cut-out is written into it.
  virtual void PreparerCrop(eEnumType type, int canaux) = 0;
  // Writes the pixels of the (already clipped) cut-out.
  virtual void EcrireCrop(const OrientedImageIn& source, const GeometrieCrop& g, int pas);
};

template <class T>
class TTOrientedImage : public TTImage<T>, public OrientedImageIn, public OrientedImageOut {
 public:
  // No pixels and no orientation.
  TTOrientedImage() = default;
  // A zero image of that size (note: lines first) and channels, with that orientation; checked.
  TTOrientedImage(int lignes, int colonnes, TagNbCanaux n, const OrientationOld& ori);
  // A zero image of the orientation's size.
  TTOrientedImage(const OrientationOld& ori, TagNbCanaux n);
  TTOrientedImage(const TTOrientedImage&) = default;
  TTOrientedImage& operator=(const TTOrientedImage&) = default;
  TTOrientedImage(TTOrientedImage&&) noexcept = default;
  TTOrientedImage& operator=(TTOrientedImage&&) noexcept = default;
  // Reads the image and its orientation (see Lire).
  explicit TTOrientedImage(const char* image) { Lire(image); }
  TTOrientedImage(const char* image, const char* ori) { Lire(image, ori); }
  TTOrientedImage(const char* image, const OrientationOld& ori);
  TTOrientedImage(const TTImage<T>& image, const OrientationOld& ori);
  ~TTOrientedImage() override = default;

  // Every sample of every channel; the orientation is kept.
  TTOrientedImage& operator=(T valeur) {
    this->RemplirValeur(valeur);
    return *this;
  }

  // The orientation from the image name with its extension replaced by .ori (an orientation found
  // beside the image under another candidate extension is read too; without any, the image's GeoTIFF
  // tags or world file: OrientationOld::LirePourImage), then the image (converted to T), then the
  // check. On failure this image is unchanged.
  void Lire(const char* image);
  void Lire(const char* image, const char* ori);
  void LireImage(const char* image);
  void LireOrientation(const char* ori);

  // Checks, then writes the image (format by extension, default options) and its orientation under
  // the image name with the extension .ori (and the world file).
  void Sauver(const char* image) const;
  void Sauver(const char* image, const char* ori) const;
  void Sauver(const char* image, int) const { Sauver(image); }
  void SauverImage(const char* image) const;
  void SauverOrientation(const char* ori) const;
  void Dump(const char* image) const { Sauver(image); }
  void Save(const char* image) const { Sauver(image); }
  void SaveBinary(const char* image) const { Sauver(image); }

  // Cut-outs: of another oriented image; of an image whose orientation is given apart; or of this
  // image itself, its pixels lying on 'ori'.
  void Crop(const TTOrientedImage& source, const TRectangle<int>& r, int pas = 1);
  void Crop(const TTImage<T>& source, const OrientationOld& ori, const TRectangle<int>& r, int pas = 1);
  void Crop(const OrientationOld& ori, const TRectangle<int>& r, int pas = 1);

  // Grid orientations are not checked, their sizes are logged; otherwise lines, then columns, must
  // agree. 'contexte' is added to the messages (file names).
  void VerifieCoherence(const std::string& contexte = "") const;

  const SpecifImageIn& GetSpecifImageIn() const override { return *this; }
  SpecifImageOut& GetSpecifImageOut() override { return *this; }
  const OrientationOld& GetOrientation() const override { return m_ori; }
  OrientationOld& GetOrientation() { return m_ori; }
  void ChangeOrientation(const OrientationOld& ori) override { m_ori = ori; }
  eEnumType GetType() const override { return CodeType<T>::value; }

 protected:
  void PreparerCrop(eEnumType, int) override {}
  void EcrireCrop(const OrientedImageIn& source, const GeometrieCrop& g, int pas) override;

 private:
  // Reads the image, checks it against o and takes both; 'ori' names the orientation file in messages
  // when it was given.
  void Prendre(const char* image, OrientationOld&& o, const char* ori);

  OrientationOld m_ori;
};

extern template class TTOrientedImage<unsigned char>;
extern template class TTOrientedImage<signed char>;
extern template class TTOrientedImage<short>;
extern template class TTOrientedImage<unsigned short>;
extern template class TTOrientedImage<int>;
extern template class TTOrientedImage<unsigned int>;
extern template class TTOrientedImage<float>;
extern template class TTOrientedImage<double>;

class OrientedImageFicIn : public OrientedImageIn {
 public:
  // The orientation of the image as TTOrientedImage::Lire finds it, then the image file opened, then
  // the check.
  explicit OrientedImageFicIn(const char* image);
  OrientedImageFicIn(const char* image, const char* ori);
  OrientedImageFicIn(const ImageFicIn& image, const OrientationOld& ori);
  OrientedImageFicIn(const OrientedImageFicIn&) = default;
  OrientedImageFicIn& operator=(const OrientedImageFicIn&) = default;

  const SpecifImageIn& GetSpecifImageIn() const override { return m_image; }
  SpecifImageIn& GetSpecifImageIn() { return m_image; }
  const OrientationOld& GetOrientation() const override { return m_ori; }
  OrientationOld& GetOrientation() { return m_ori; }
  eEnumType GetType() const override { return m_image.TypePixel(); }
  void VerifieCoherence(const std::string& contexte = "") const;

 private:
  OrientationOld m_ori;
  ImageFicIn m_image;
};

// An image file written with its orientation. The image file and the orientation files appear only
// at Terminer(), after the check; destroyed before, it leaves no file.
class OrientedImageFicOut : public OrientedImageOut {
 public:
  // The orientation is given later (ChangeOrientation, CropOri) and written as the image name with the
  // extension .ori, or as 'ori'.
  explicit OrientedImageFicOut(const char* image);
  OrientedImageFicOut(const char* image, const char* ori);
  // Type, channels and size (from the orientation) set at once: ready for SetValeurs.
  OrientedImageFicOut(const char* image, const OrientationOld& ori, eEnumType type, TagNbCanaux n);
  // A file being written cannot be shared.
  OrientedImageFicOut(const OrientedImageFicOut&) = delete;
  OrientedImageFicOut& operator=(const OrientedImageFicOut&) = delete;

  SpecifImageOut& GetSpecifImageOut() override { return m_image; }
  const OrientationOld& GetOrientation() const override { return m_ori; }
  void ChangeOrientation(const OrientationOld& ori) override { m_ori = ori; }
  eEnumType GetType() const override { return m_image.GetTypePixel(); }
  void VerifieCoherence(const std::string& contexte = "") const;
  // Checks, completes the image file, then writes the orientation beside it.
  void Terminer();

 protected:
  void PreparerCrop(eEnumType type, int canaux) override;

 private:
  ImageFicOut m_image;
  OrientationOld m_ori;
  std::string m_nomImage;
  std::string m_nomOri;
};
