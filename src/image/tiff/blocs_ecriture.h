// Cutting and compressing the blocks of one image of a file being written: a row of blocks at a
// time, from the lines of that row already in the output type. Private to src/image.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "codec.h"
#include "zepra/geometrie.h"
#include "zepra/optionsecriture.h"

namespace tiff {

class Compresseur {
 public:
  // The image of 'taille' pixels of a file planned as 'p' (an overview has its own size); 'nom' is
  // for the messages. 'remplissage' is one pixel's samples (canaux x the sample's bytes), given to
  // the parts of blocks outside the image. Bits of 1-bit samples come one per byte.
  Compresseur(const PlanEcriture& p, const TPoint2D<int>& taille,
              const std::vector<unsigned char>& remplissage, const std::string& nom);
  ~Compresseur();

  // The row of blocks r from its lines: line i at donnees + i * pas, the validity of its pixels at
  // valide + i * pasValide (null: all valid; used by the mask only). Appends the blocks to 'blocs' in
  // file order: planes, then blocks from left to right, with JPEG each block followed by its mask.
  void Rangee(int r, const unsigned char* donnees, size_t pas, const unsigned char* valide, size_t pasValide,
              std::vector<std::vector<unsigned char>>& blocs);

  // The blocks of one row of blocks, masks included.
  int BlocsParRangee() const;
  // JPEGTables of the file (empty without JPEG).
  const std::vector<unsigned char>& TablesJpeg() const { return m_tables; }

 private:
  void Encoder(Encodeur* encodeur, const ContexteBloc& c, std::vector<unsigned char>& bloc,
               std::vector<unsigned char>& sortie);

  PlanEcriture m_plan;
  TPoint2D<int> m_taille;
  std::vector<unsigned char> m_remplissage;
  int m_octets;  // bytes of one sample in the lines
  ContexteBloc m_contexte, m_contexteMasque;
  std::unique_ptr<Encodeur> m_encodeur, m_encodeurMasque;
  std::vector<unsigned char> m_tables;
  std::vector<unsigned char> m_bloc, m_travail;
  // The last block without a valid pixel, before and after compression.
  std::vector<unsigned char> m_videBrut, m_videCode;
};

// The encoder of a compression for the writer, or null for none; an Erreur when we do not write it.
std::unique_ptr<Encodeur> EncodeurEcriture(int compression, int niveau, int qualite, const std::string& nom);

}  // namespace tiff
