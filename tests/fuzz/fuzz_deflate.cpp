// libFuzzer target of the Deflate decoder (see fuzz_codec.h for the input's layout). A block decoded
// whole is encoded again, at a level taken from the input, and must decode to the same bytes.
#include <memory>

#include "fuzz_codec.h"
#include "image/tiff/codecs_externes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  if (taille < fuzz::kEntete) return 0;
  static const auto decodeur = tiff::CreerDecodeurDeflate();
  const tiff::ContexteBloc b = fuzz::Contexte(donnees);
  std::vector<unsigned char> bloc, flux, relu;
  if (!fuzz::Decoder(*decodeur, donnees + fuzz::kEntete, taille - fuzz::kEntete, b, donnees[3], bloc))
    return 0;
  if (bloc.size() != b.Octets()) return 0;
  tiff::CreerEncodeurDeflate(donnees[1] % 13, 0)->Encoder(bloc.data(), b, flux);
  if (!fuzz::Decoder(*decodeur, flux.data(), flux.size(), b, donnees[0], relu) || relu != bloc)
    __builtin_trap();
  return 0;
}
