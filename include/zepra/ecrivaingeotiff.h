// The GeoTIFF writer: a file written progressively, the lines of the image in order, one row of
// blocks in memory at a time, never the whole image. Blocks are compressed as their row completes;
// their offsets and sizes go into the directories at the end. The file lives under a temporary name
// beside its own until Terminer() renames it; a writer destroyed before that removes everything it
// made, so a file we write is complete or absent.
//
// A cloud-optimized file (OptionsEcriture::cog) has its directories first and its data from the
// smallest overview to the full resolution. Its blocks are spooled, one temporary file per level
// beside the output, and copied after the directories at the end: on disk, the spools and the file
// together take about twice the final file while it is assembled.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zepra/metadonnees.h"
#include "zepra/optionsecriture.h"

class EcrivainGeoTIFF {
 public:
  // Plans the file (PlanifierEcriture), builds its tags and opens the temporary file: every refusal
  // (options, coordinate system, a folder that cannot be written) comes before any pixel.
  // 'canaux' bands of 'typeDonnees' samples come in; 'autresTags' are copied to the full-resolution
  // directory, except those the writer sets itself.
  EcrivainGeoTIFF(const std::string& nom, const OptionsEcriture& options, const TPoint2D<int>& taille,
                  int canaux, eEnumType typeDonnees,
                  const GeoreferenceEcriture& georef = GeoreferenceEcriture(),
                  const std::vector<TagTIFF>& autresTags = {});
  ~EcrivainGeoTIFF();
  EcrivainGeoTIFF(const EcrivainGeoTIFF&) = delete;
  EcrivainGeoTIFF& operator=(const EcrivainGeoTIFF&) = delete;

  const PlanEcriture& Plan() const;
  const std::string& Nom() const;
  // Lines received so far.
  int Lignes() const;

  // The next 'lignes' lines: line i at donnees + i * pas bytes, 'canaux' interleaved samples per pixel
  // of the data type; its validity at valide + i * pasValide, one byte per pixel, non-zero for valid
  // (null: all valid). Converted to the output type (rounded, clamped, invalid pixels and NaN to the
  // no-data value; see OptionsEcriture). An Erreur past the last line.
  void EcrireLignes(const void* donnees, size_t pas, int lignes, const unsigned char* valide = nullptr,
                    size_t pasValide = 0);
  // The same with samples of another type than the one the writer was made for.
  void EcrireLignes(eEnumType type, const void* donnees, size_t pas, int lignes,
                    const unsigned char* valide = nullptr, size_t pasValide = 0);

  // For files assembled from parts: places the next row of full-resolution blocks, compressed
  // elsewhere by an EncodeurRangees made with the same arguments, without compressing them again. A
  // COG also needs the row's lines, as EcrireLignes takes them, for its overviews; other files take
  // null.
  void EcrireRangeeEncodee(const std::vector<std::vector<unsigned char>>& blocs,
                           const void* donnees = nullptr, size_t pas = 0,
                           const unsigned char* valide = nullptr, size_t pasValide = 0);

  // Writes the directories and renames the file; an Erreur when lines are missing.
  void Terminer();

  struct Impl;

 private:
  std::unique_ptr<Impl> m;
};

// Compresses rows of full-resolution blocks as the writer made with the same arguments does, for
// parts of a file compressed apart (in other threads or processes) and assembled by
// EcrireRangeeEncodee. Opens no file. One per thread.
class EncodeurRangees {
 public:
  EncodeurRangees(const std::string& nom, const OptionsEcriture& options, const TPoint2D<int>& taille,
                  int canaux, eEnumType typeDonnees);
  ~EncodeurRangees();
  const PlanEcriture& Plan() const;
  // The blocks of row 'rangee' of blocks from its lines (all of them: the block height, less for the
  // last row), as EcrireLignes takes them; in file order: planes, then blocks from left to right,
  // with JPEG each block followed by its mask block.
  std::vector<std::vector<unsigned char>> Encoder(int rangee, const void* donnees, size_t pas,
                                                  const unsigned char* valide = nullptr,
                                                  size_t pasValide = 0);

  struct Impl;

 private:
  std::unique_ptr<Impl> m;
};
