// Image files opened by name: the reader and writer registries keyed by extension, and the two
// facades ImageFicIn (read) and ImageFicOut (write).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "zepra/optionsecriture.h"
#include "zepra/specifimage.h"
#include "zepra/tchaine.h"

// The most bytes of samples read from a file that the library allocates at once: a whole image read
// into memory (TTImage::Lire) or one decoded strip or tile. A small compressed file may honestly
// declare gigapixels; such a file is refused, with its size and this limit named, before anything
// is allocated. Process-wide; 16 GiB unless set (tests and fuzzers lower it).
constexpr uint64_t kLimiteOctetsDecodesDefaut = uint64_t(16) << 30;
uint64_t LimiteOctetsDecodes();
void SetLimiteOctetsDecodes(uint64_t octets);

// Write options handed to the writers. The seven values travel unchanged to the writer factory; the
// TIFF, RLE and PNM writers use none of them.
struct OptionsImageOut {
  float qualite = 10.0f;
  float valeurMin = 0.0f;
  float valeurMax = 0.0f;
  float gamma = 1.0f;
  int compression = 1;
  int typeSortie = 6;
  int tuilage = 0;
  static const OptionsImageOut& defaut();
};

// What a writer factory needs to know of the image to write.
struct ImageInfos {
  TPoint2D<int> taille;
  int canaux = 1;
  eEnumType type = eUInt1;
  OptionsImageOut options;
  // Set for a GeoTIFF written with OptionsEcriture (tif and tiff only); then 'type' is the type of the
  // samples given, the file's is the options' one.
  std::shared_ptr<const ParametresGeoTIFF> geotiff;
};

// A format writer. Until Terminer() the data go to a temporary file, which becomes the named file
// only when it is complete; a writer destroyed before Terminer() removes it, so a file we write is
// either complete and correct or absent.
class EcrivainImage : public SpecifImageOut {
 public:
  virtual void Terminer() = 0;
};

// A reader factory returns null when the file is not of its format (it looks at the content, not
// only at the name); a writer factory returns null when it cannot write such an image.
using FabriqueLecteur = std::unique_ptr<SpecifImageIn> (*)(const std::string& nom);
using FabriqueEcrivain = std::unique_ptr<EcrivainImage> (*)(const std::string& nom, const ImageInfos& infos);

class ListeHandlerRead {
 public:
  // The process-wide registry, filled with the built-in readers on first use.
  static ListeHandlerRead& GetListeHandlerRead();
  // Registers the built-in readers in their documented order, once.
  void InitAll();
  void AddReader(const std::string& ext, FabriqueLecteur fabrique);
  // Empties the registry; a later InitAll fills it again.
  void RemoveAll();
  void GetAllExt(std::vector<std::string>& exts) const;
  void GetWildcardAllExt(std::string& filtre) const;
  // Tries the readers from the first key not less than the name's key (lower-case extension, "/" for
  // a directory) to the end, then from the start: a file with a wrong extension still opens.
  std::unique_ptr<SpecifImageIn> CreateReader(const std::string& nom) const;
  static void AddDynamicReader(const std::string&, const std::string&) {}

 private:
  std::multimap<std::string, FabriqueLecteur> m_handlers;
  bool m_initialise = false;
};

class ListeHandlerWrite {
 public:
  static ListeHandlerWrite& GetListeHandlerWrite();
  void InitAll();
  void AddWriter(const std::string& ext, FabriqueEcrivain fabrique);
  void RemoveAll();
  void GetAllExt(std::vector<std::string>& exts) const;
  void GetWildcardAllExt(std::string& filtre) const;
  bool CanCreateWriter(const std::string& nom) const;
  // The writer registered under the name's extension (exact key), or null.
  std::unique_ptr<EcrivainImage> CreateWriter(const std::string& nom, const ImageInfos& infos) const;
  static void AddDynamicWriter(const std::string&, const std::string&) {}

 private:
  std::multimap<std::string, FabriqueEcrivain> m_handlers;
  bool m_initialise = false;
};

// The extensions of the two registries, in their order: the source of the start banner's lists
// (Systeme::SetSourceExtensions).
void ExtensionsImages(std::vector<std::string>& lecture, std::vector<std::string>& ecriture);

// Registers a reader or a writer from other code when constructed.
struct HandlerReadAdder {
  HandlerReadAdder(const std::string& ext, FabriqueLecteur f) {
    ListeHandlerRead::GetListeHandlerRead().AddReader(ext, f);
  }
};
struct HandlerWriteAdder {
  HandlerWriteAdder(const std::string& ext, FabriqueEcrivain f) {
    ListeHandlerWrite::GetListeHandlerWrite().AddWriter(ext, f);
  }
};

// An image file opened for reading by whichever registered reader accepts it.
class ImageFicIn : public ImplGetValeurs<ImageFicIn> {
 public:
  explicit ImageFicIn(const char* nom);
  ImageFicIn(const ImageFicIn& autre);
  ImageFicIn& operator=(const ImageFicIn& autre);
  SpecifImageIn* dup() const override { return new ImageFicIn(*this); }

  TPoint2D<int> GetTaille() const override { return m_lecteur->GetTaille(); }
  int GetNbCanaux() const override { return m_lecteur->GetNbCanaux(); }
  eEnumType TypePixel() const override { return m_lecteur->TypePixel(); }
  bool IsInRAM() const override { return m_lecteur->IsInRAM(); }
  const MetadonneesImage* Metadonnees() const override { return m_lecteur->Metadonnees(); }
  bool RawReadPossible() const override { return m_lecteur->RawReadPossible(); }
  void RawRead(char* tampon, unsigned int octets) const override { m_lecteur->RawRead(tampon, octets); }
  const TChaine& GetNom() const { return m_nom; }

  template <class D>
  void GetValeursT(LigneDe<D> const* l, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) const {
    m_lecteur->GetValeurs(l, x0, y0, x1, y1, xDest, yDest, pas);
  }

 private:
  std::unique_ptr<SpecifImageIn> m_lecteur;
  TChaine m_nom;
};

// One channel of another source, as a one-channel source of its size and type. Rows are read from the
// source in bands of about a million samples, so that no more than a band of the other channels is
// held.
class CanalDe : public ImplGetValeurs<CanalDe> {
 public:
  CanalDe(std::unique_ptr<SpecifImageIn> source, int canal);
  CanalDe(const CanalDe& autre)
      : ImplGetValeurs<CanalDe>(), m_source(autre.m_source->dup()), m_canal(autre.m_canal) {}
  SpecifImageIn* dup() const override { return new CanalDe(*this); }

  TPoint2D<int> GetTaille() const override { return m_source->GetTaille(); }
  int GetNbCanaux() const override { return 1; }
  eEnumType TypePixel() const override { return m_source->TypePixel(); }
  const MetadonneesImage* Metadonnees() const override { return m_source->Metadonnees(); }
  bool RawReadPossible() const override { return false; }
  void RawRead(char* tampon, unsigned int octets) const override;

  // Defined for the nine element types in canal.cpp.
  template <class D>
  void GetValeursT(LigneDe<D> const* l, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) const;

 private:
  std::unique_ptr<SpecifImageIn> m_source;
  int m_canal;
};

// An image file opened for writing by the writer registered for its extension. The writer is created
// when size, channel count and pixel type are all set; channel count (1) and type (6) count as set
// from the start, so set them before the size. Fermer() completes the file.
class ImageFicOut : public ImplSetValeurs<ImageFicOut, EcrivainImage> {
 public:
  ImageFicOut(const char* nom, const OptionsImageOut& options);
  // A GeoTIFF written with these options (EcrivainGeoTIFF): lines must come in order, whole. A name
  // that is not .tif or .tiff is an Erreur.
  ImageFicOut(const char* nom, const ParametresGeoTIFF& geotiff);
  ImageFicOut(const ImageFicOut&) = delete;
  ImageFicOut& operator=(const ImageFicOut&) = delete;

  void SetTaille(int colonnes, int lignes) override;
  void SetTaille(const TPoint2D<int>& taille) override { SetTaille(taille.x, taille.y); }
  void SetNbCanaux(TagNbCanaux n) override;
  void SetTypePixel(eEnumType type) override;
  TPoint2D<int> GetTaille() const override { return TPoint2D<int>(m_colonnes, m_lignes); }
  int GetNbCanaux() const override { return m_canaux; }
  eEnumType GetTypePixel() const override { return m_type; }
  bool RawWritePossible() const override { return m_ecrivain && m_ecrivain->RawWritePossible(); }
  void RawWrite(const char* tampon, unsigned int octets) override;
  // Completes the file under its name; until then it does not exist.
  void Terminer() override;
  void Fermer() { Terminer(); }

  template <class S>
  void SetValeursT(LigneDe<S> const* l, int x0, int y0, int x1, int y1, int xDest, int yDest, int pas) {
    VerifieEcrivain();
    m_ecrivain->SetValeurs(l, x0, y0, x1, y1, xDest, yDest, pas);
  }

 private:
  void AlloueBaseSiPossible();
  void VerifieEcrivain() const;

  std::unique_ptr<EcrivainImage> m_ecrivain;
  TChaine m_nom;
  int m_colonnes = 0;
  int m_lignes = 0;
  int m_canaux = 1;
  eEnumType m_type = eUInt1;
  bool m_tailleOk = false;
  bool m_canauxOk = true;
  bool m_typeOk = true;
  OptionsImageOut m_options;
  std::shared_ptr<const ParametresGeoTIFF> m_geotiff;
};
