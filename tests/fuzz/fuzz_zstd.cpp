// libFuzzer target of the ZSTD decoder (see fuzz_codec.h for the input's layout). A block decoded
// whole is encoded again, at a level taken from the input, and must decode to the same bytes.
#include "fuzz_codec.h"
#include "image/tiff/codecs_externes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  static const auto decodeur = tiff::CreerDecodeurZstd();
  // Levels up to 19: the highest ones are slow enough to starve the fuzzer.
  return fuzz::AllerRetour(*decodeur, tiff::CreerEncodeurZstd, taille > 1 ? donnees[1] % 20 : 0, donnees,
                           taille);
}
