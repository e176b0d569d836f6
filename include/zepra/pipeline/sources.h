// Where the stages read and write pixels: rows pulled from a source and pushed into a sink, band by
// band, as float. Sources and sinks are asked for whole rows (or spans of them), never for single
// pixels, so the per-pixel loops make no virtual call. An in-memory image is one implementation; a
// window of a file read on demand is another.
#pragma once

#include "zepra/ttimage.h"

// Rows of an image: every band as float, and which pixels are valid.
// A source is read concurrently by several threads, each with its own buffers: implementations keep
// no state between calls (or protect it).
class SourceLignes {
 public:
  virtual ~SourceLignes() = default;
  virtual int Colonnes() const = 0;
  virtual int Lignes() const = 0;
  virtual int Bandes() const = 0;
  // The samples [x0, x0 + n) of row y of band 'bande' (0 <= x0, x0 + n <= Colonnes(), no check):
  // either a pointer into the source's own storage or 'tampon' (n floats of the caller) filled.
  virtual const float* Ligne(int bande, int y, int x0, int n, float* tampon) const = 0;
  // Validity of the same pixels, for every band at once: 1 valid, 0 no data or excluded.
  virtual void Validite(int y, int x0, int n, unsigned char* valide) const = 0;
};

// Receives rows, band by band. Called concurrently for different rows.
class PuitsLignes {
 public:
  virtual ~PuitsLignes() = default;
  // Row y of band 'bande', all the columns.
  virtual void Ecrire(int bande, int y, const float* valeurs) = 0;
  // Which pixels of row y hold a value (1) or none (0); sinks that need not know ignore it.
  virtual void Couverture(int, const unsigned char*) {}
};

// An image in memory as a source: its channels are the bands. A pixel is not valid where 'temoin'
// (when given, of the same size) is 0 in one of its channels, or where 'masque' (when given, one
// channel of the same size) is true. The images are referenced, not copied: they must outlive the
// source, and changes to them show through.
class SourceMemoire : public SourceLignes {
 public:
  explicit SourceMemoire(const TTImage<float>& valeurs, const TTImage<float>* temoin = nullptr,
                         const TTImage<bool>* masque = nullptr);
  int Colonnes() const override { return m_valeurs.iGetNbColonnes(); }
  int Lignes() const override { return m_valeurs.iGetNbLignes(); }
  int Bandes() const override { return m_valeurs.GetNbCanaux(); }
  const float* Ligne(int bande, int y, int x0, int n, float* tampon) const override;
  void Validite(int y, int x0, int n, unsigned char* valide) const override;

 private:
  const TTImage<float>& m_valeurs;
  const TTImage<float>* m_temoin;
  const TTImage<bool>* m_masque;
};

// An image in memory as a sink: its channels are the bands; coverage is not kept.
class PuitsMemoire : public PuitsLignes {
 public:
  explicit PuitsMemoire(TTImage<float>& image) : m_image(image) {}
  void Ecrire(int bande, int y, const float* valeurs) override;

 private:
  TTImage<float>& m_image;
};
