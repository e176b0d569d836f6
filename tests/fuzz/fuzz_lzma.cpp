// libFuzzer target of the LZMA decoder (see fuzz_codec.h for the input's layout): never more than the
// block, whatever the stream says, and never an allocation past the decoder's memory bound.
#include "fuzz_codec.h"
#include "image/tiff/codecs_externes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  if (taille < fuzz::kEntete) return 0;
  static const auto decodeur = tiff::CreerDecodeurLzma();
  std::vector<unsigned char> bloc;
  fuzz::Decoder(*decodeur, donnees + fuzz::kEntete, taille - fuzz::kEntete, fuzz::Contexte(donnees),
                donnees[3], bloc);
  return 0;
}
