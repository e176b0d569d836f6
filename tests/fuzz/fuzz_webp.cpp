// libFuzzer target of the WebP decoder (see fuzz_codec.h for the input's layout). A block decoded whole
// fills the block: a WebP image has the block's size or is refused.
#include "fuzz_codec.h"
#include "image/tiff/codecs_externes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  if (taille < fuzz::kEntete) return 0;
  static const auto decodeur = tiff::CreerDecodeurWebp();
  const tiff::ContexteBloc b = fuzz::Contexte(donnees);
  std::vector<unsigned char> bloc;
  if (!fuzz::Decoder(*decodeur, donnees + fuzz::kEntete, taille - fuzz::kEntete, b, donnees[3], bloc))
    return 0;
  if (bloc.size() != b.Octets()) __builtin_trap();
  return 0;
}
