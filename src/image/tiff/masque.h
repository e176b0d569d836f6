// Finding the internal validity mask of a TIFF image. Private to src/image.
#pragma once

#include <cstdint>

#include "annexes.h"

namespace tiff {

// Offset of the first directory after the one read into 'annexes' that is a transparency mask
// (NewSubfileType bit 4, not a reduced image) of the same size; 0 when there is none. The chain is
// walked through the entries' headers only, and not past a loop, the end of the file or a number of
// directories no real file has.
uint64_t OffsetMasqueInterne(TIFF_Annexes& annexes);

}  // namespace tiff
