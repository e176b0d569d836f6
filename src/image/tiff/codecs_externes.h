// Factories of the codecs kept in their own files, for the rows of the codec table (codecs.cpp):
//   { 8, "deflate", CreerDecodeurDeflate, CreerEncodeurDeflate }, { 32946, ... the same, no encoder },
//   { 50000, "zstd", ... }, { 7, "jpeg", ... }, and the encoders of LZW (5) and PackBits (32773).
// Adding a codec: one file holding its decoder and encoder, its factories declared here, one row.
// Encoder factories check the level and the quality (an Erreur before any pixel is encoded) and
// allocate their library state once, reused block after block. Private to src/image.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "image/tiff/codec.h"

namespace tiff {

// Deflate (8, and the old 32946), zlib-wrapped, through libdeflate. Levels 1 to 12, 0 means 6.
std::unique_ptr<Decodeur> CreerDecodeurDeflate();
std::unique_ptr<Encodeur> CreerEncodeurDeflate(int niveau, int qualite);
// The most bytes 'octets' bytes of zlib-wrapped Deflate decode to: 1032 per byte, a length-258 match
// coded in two bits.
uint64_t BorneDeflate(uint64_t octets);

// ZSTD (50000), through libzstd. Levels 1 to 22, 0 means 9.
std::unique_ptr<Decodeur> CreerDecodeurZstd();
std::unique_ptr<Encodeur> CreerEncodeurZstd(int niveau, int qualite);
// The most bytes 'octets' bytes of ZSTD frames decode to: 32768 per byte, an RLE block of 128 KiB
// coded in four bytes. JPEG has no useful bound (arithmetic coding spends almost nothing on a flat
// block); its decoder still never gives more than its block.
uint64_t BorneZstd(uint64_t octets);

// JPEG (7), through libjpeg: 8-bit samples. The decoder takes 1 to 4 samples per pixel and delivers
// YCbCr blocks (photometric 6) as RGB, upsampled by libjpeg. The encoder writes 1 or 3 samples as
// abbreviated streams (no tables): the file carries the tables once, in its JPEGTables tag, as
// TablesJpeg gives them. With 3 samples and photometric 6 it writes YCbCr subsampled by the context's
// sousEchH x sousEchV (2 x 2: 4:2:0), with photometric 2 plain RGB. Quality 1 to 100, 0 means 75.
std::unique_ptr<Decodeur> CreerDecodeurJpeg();
std::unique_ptr<Encodeur> CreerEncodeurJpeg(int niveau, int qualite);
// The tables-only stream (SOI, quantization and Huffman tables, EOI) that the blocks of
// CreerEncodeurJpeg(0, qualite) refer to, for tag 347. Depends on the quality and on the samples.
std::vector<unsigned char> TablesJpeg(const ContexteBloc& contexte, int qualite);

// WebP (50001), through libwebp, read only: 3 or 4 samples of 8 bits; for the windows reader only
// (Codec::etendu).
std::unique_ptr<Decodeur> CreerDecodeurWebp();
// LZMA (34925), .xz streams through liblzma, read only; for the windows reader only.
std::unique_ptr<Decodeur> CreerDecodeurLzma();
// The most bytes 'octets' bytes of .xz decode to: 16384 per byte, more than twice the best ratio.
uint64_t BorneLzma(uint64_t octets);
// The largest side of a WebP image, hence of a WebP block.
constexpr int kCoteWebpMax = 16383;

// LZW (5) and PackBits (32773) encoders; their decoders are in codec_lzw.cpp and codec_packbits.cpp. Neither
// has a level: 'niveau' and 'qualite' are not used.
std::unique_ptr<Encodeur> CreerEncodeurLzw(int niveau, int qualite);
std::unique_ptr<Encodeur> CreerEncodeurPackBits(int niveau, int qualite);

}  // namespace tiff
