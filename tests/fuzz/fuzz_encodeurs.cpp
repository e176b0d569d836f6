// libFuzzer target of the LZW and PackBits encoders: the input, after the block context of
// fuzz_codec.h, is a block's bytes (repeated or cut to the block's size); each encoder's stream must
// decode to them through the reader's decoders.
#include <algorithm>
#include <memory>

#include "fuzz_codec.h"
#include "image/tiff/codecs_externes.h"
#include "image/tiff/decodeurs.h"

template <class D>
void Relire(const std::vector<unsigned char>& flux, const std::vector<unsigned char>& bloc) {
  std::vector<unsigned char> relu(bloc.size() + 1);
  D d(flux.data(), flux.size());
  if (d.Decode(relu.data(), relu.size()) != bloc.size() ||
      !std::equal(bloc.begin(), bloc.end(), relu.begin()))
    __builtin_trap();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  if (taille <= fuzz::kEntete) return 0;
  static const auto lzw = tiff::CreerEncodeurLzw(0, 0), packbits = tiff::CreerEncodeurPackBits(0, 0);
  const tiff::ContexteBloc b = fuzz::Contexte(donnees);
  std::vector<unsigned char> bloc(b.Octets()), flux;
  for (size_t i = 0; i < bloc.size(); ++i) bloc[i] = donnees[fuzz::kEntete + i % (taille - fuzz::kEntete)];
  lzw->Encoder(bloc.data(), b, flux);
  Relire<LZW_Decoder>(flux, bloc);
  packbits->Encoder(bloc.data(), b, flux);
  Relire<PackBits_Decoder>(flux, bloc);
  return 0;
}
