// libFuzzer target of the Deflate decoder (see fuzz_codec.h for the input's layout). A block decoded
// whole is encoded again, at a level taken from the input, and must decode to the same bytes.
#include "fuzz_codec.h"
#include "image/tiff/codecs_externes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  static const auto decodeur = tiff::CreerDecodeurDeflate();
  return fuzz::AllerRetour(*decodeur, tiff::CreerEncodeurDeflate, taille > 1 ? donnees[1] % 13 : 0, donnees,
                           taille);
}
