// Finding the internal validity mask of a TIFF image. Private to src/image.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "annexes.h"

namespace tiff {

// Offset of the first directory after the one read into 'annexes' that is a transparency mask
// (NewSubfileType bit 4, not a reduced image) of the same size; 0 when there is none. The chain is
// walked through the entries' headers only, and not past a loop, the end of the file or a number of
// directories no real file has.
uint64_t OffsetMasqueInterne(TIFF_Annexes& annexes);

// Where the validity mask of an image lies, by the rules of OuvrirMasqueValidite (zepra/masque.h).
struct MasqueTrouve {
  std::string image;
  TPoint2D<int> taille;                      // the image's
  std::unique_ptr<DescriptionTIFF> interne;  // its internal mask, or
  std::string msk;                           // its .msk file ("" when it has neither)
  // An Erreur when the .msk file has not the image's size.
  void VerifierTaille(const TPoint2D<int>& tailleMsk) const;
};
// 'taille': the image's size when the caller has read it, null to read it here. The windows reader
// gives it, as it reads codecs the reader used here refuses (Codec::etendu); it also reads the
// internal mask with them.
MasqueTrouve TrouverMasque(const std::string& image, const TPoint2D<int>* taille = nullptr);

}  // namespace tiff
