// Reading rectangles of image files without decoding the rest, so that a job over many large inputs
// never holds them whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "zepra/geometrie.h"
#include "zepra/infotype.h"

struct MetadonneesImage;
class SourceFenetres;

// Reads rectangles of an image file. A TIFF file decodes only the strips or tiles a rectangle touches,
// one block at a time, through the same decoders and sample rules as the whole-image read, so a window
// holds the samples of the same window of TTImage<T>(nom), converted by the plain cast (Convertir).
// Other formats (and a "Dallage MPD") are read through the registry's reader, band after band of
// the rectangle. Lire is safe to call from several threads on one object: each call in progress takes
// a decoding state of its own (its own file stream), kept for the next calls.
class LecteurFenetres {
 public:
  // Opens the file and reads its header; an Erreur naming the file when no reader accepts it.
  explicit LecteurFenetres(const std::string& nom);
  ~LecteurFenetres();
  LecteurFenetres(LecteurFenetres&&) noexcept;
  LecteurFenetres& operator=(LecteurFenetres&&) noexcept;

  const std::string& Nom() const { return m_nom; }
  TPoint2D<int> Taille() const;
  // Every channel of the file, alpha included (a palette gives three).
  int Canaux() const;
  // The sample type the whole-image read gives (eBit1 for 1-bit samples, eUInt1 for a palette).
  eEnumType Type() const;
  // What the file says besides its pixels; null for a format without any. Owned by this reader. An
  // Erreur when the file's metadata could not be read (see SpecifImageIn::Metadonnees).
  const MetadonneesImage* Metadonnees() const;
  // Bytes a call in progress allocates besides its destination (compressed and decoded block, one row;
  // for the other formats one band of the rectangle): what a memory plan counts per reading thread.
  uint64_t OctetsBloc() const;
  // The file's blocks: TIFF tiles, or strips as wide as the image (other formats: lines). A rectangle
  // decodes whole blocks, so windows aligned on them decode each block once; windows side by side
  // across strips each decode the strips' whole width.
  TPoint2D<int> TailleBloc() const;
  // Gives back what the calls keep for the next ones (a decoded block, the compressed bytes): for a
  // reader that will not be read for a while. A later call decodes again what it needs.
  void Liberer() const;

  // The rectangle [x0, x0 + nx) x [y0, y0 + ny), channels [c0, c0 + nc) (nc -1: all from c0). Channel
  // c goes to dest + (c - c0) * pasPlan, its lines pasLigne samples apart, its pixels side by side. An
  // Erreur when the rectangle or the channels are not inside the image; the destination's room is not
  // checked. Double holds every sample exactly (32-bit integers included).
  void Lire(int x0, int y0, int nx, int ny, float* dest, size_t pasLigne, size_t pasPlan, int c0 = 0,
            int nc = -1) const;
  void Lire(int x0, int y0, int nx, int ny, double* dest, size_t pasLigne, size_t pasPlan, int c0 = 0,
            int nc = -1) const;

 private:
  std::string m_nom;
  std::unique_ptr<SourceFenetres> m_source;
};

// The validity mask of an image read by rectangles: its internal transparency mask or its .msk file,
// by the rules of OuvrirMasqueValidite (zepra/masque.h). Thread safety as LecteurFenetres.
class MasqueFenetres {
 public:
  MasqueFenetres(std::unique_ptr<SourceFenetres> source, const std::string& nom);
  ~MasqueFenetres();

  // The mask's file (the image itself for an internal mask).
  const std::string& Nom() const { return m_nom; }
  TPoint2D<int> Taille() const;
  uint64_t OctetsBloc() const;
  // As LecteurFenetres::Liberer.
  void Liberer() const;
  // The rectangle [x0, x0 + nx) x [y0, y0 + ny): 0 for a pixel that is not valid, 1 for one that is;
  // lines pas bytes apart. An Erreur when the rectangle is not inside the mask.
  void Lire(int x0, int y0, int nx, int ny, unsigned char* dest, size_t pas) const;

 private:
  std::string m_nom;
  std::unique_ptr<SourceFenetres> m_source;
};

// Null when the image has no mask; an Erreur when it cannot be read or has not the image's size.
std::unique_ptr<MasqueFenetres> OuvrirMasqueFenetres(const std::string& image);
// The same for an image whose size the caller has already read (its reader's Taille()).
std::unique_ptr<MasqueFenetres> OuvrirMasqueFenetres(const std::string& image, const TPoint2D<int>& taille);
