// libFuzzer target of the JPEG decoder (see fuzz_codec.h for the input's layout). After the 4 bytes
// of the block context, 2 bytes give the length of the JPEGTables stream that follows (0: none);
// the rest is the block's stream. A block decoded whole is encoded again by our encoder, with its
// tables, and must decode without an Erreur.
#include <algorithm>
#include <memory>

#include "fuzz_codec.h"
#include "image/tiff/codecs_externes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* donnees, size_t taille) {
  if (taille < fuzz::kEntete + 2) return 0;
  static const auto decodeur = tiff::CreerDecodeurJpeg();
  tiff::ContexteBloc b = fuzz::Contexte(donnees);
  const size_t n = std::min<size_t>(donnees[4] << 8 | donnees[5], taille - fuzz::kEntete - 2);
  const std::vector<unsigned char> tables(donnees + fuzz::kEntete + 2, donnees + fuzz::kEntete + 2 + n);
  if (n > 0) b.tablesJpeg = &tables;
  std::vector<unsigned char> bloc, flux, relu;
  const uint8_t* debut = donnees + fuzz::kEntete + 2 + n;
  if (!fuzz::Decoder(*decodeur, debut, taille - fuzz::kEntete - 2 - n, b, donnees[3], bloc)) return 0;
  if (bloc.size() != b.Octets()) __builtin_trap();  // a JPEG of the block's size fills it
  const int qualite = 1 + donnees[1] % 100;
  tiff::CreerEncodeurJpeg(0, qualite)->Encoder(bloc.data(), b, flux);
  const std::vector<unsigned char> nosTables = tiff::TablesJpeg(b, qualite);
  b.tablesJpeg = &nosTables;
  if (!fuzz::Decoder(*decodeur, flux.data(), flux.size(), b, donnees[0], relu) || relu.size() != bloc.size())
    __builtin_trap();
  return 0;
}
