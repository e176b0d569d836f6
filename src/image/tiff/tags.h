// TIFF tag numbers and compression codes the reader and writer name. Private to src/image.
#pragma once

#include <cstdint>

namespace tiff {

enum Tag : uint16_t {
  kNewSubfileType = 254,
  kImageWidth = 256,
  kImageLength = 257,
  kBitsPerSample = 258,
  kCompression = 259,
  kPhotometric = 262,
  kStripOffsets = 273,
  kSamplesPerPixel = 277,
  kRowsPerStrip = 278,
  kStripByteCounts = 279,
  kXResolution = 282,
  kYResolution = 283,
  kPlanarConfiguration = 284,
  kResolutionUnit = 296,
  kPredictor = 317,
  kColorMap = 320,
  kTileWidth = 322,
  kTileLength = 323,
  kTileOffsets = 324,
  kTileByteCounts = 325,
  kExtraSamples = 338,
  kSampleFormat = 339,
  kJPEGTables = 347,
  kYCbCrSubsampling = 530,
  kDallageColonnes = 40000,  // "Dallage MPD": number of tile files along the columns
  kDallageLignes = 40001,    // and along the lines
};

enum Compression {
  kSans = 1,
  kLZW = 5,
  kJPEG = 7,
  kDeflate = 8,
  kPackBits = 32773,
  kLzma = 34925,
  kDeflateAncien = 32946,  // Deflate before it had code 8
  kZstd = 50000,
  kWebp = 50001,
};

// PhotometricInterpretation values the reader treats apart.
enum Photometrie { kBlancZero = 0, kNoirZero = 1, kRVB = 2, kPalette = 3, kMasque = 4, kYCbCr = 6 };

// NewSubfileType bits.
constexpr uint32_t kSousFichierReduit = 1, kSousFichierMasque = 4;

}  // namespace tiff
