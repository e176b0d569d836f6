// TIFF codecs: one table keyed by the compression code. Each row names the codec and points at the
// factories of its decoder and, when we write it, its encoder. Adding a codec is one row in
// codecs.cpp and one file holding its two classes. Predictors are a separate step, applied by the
// block reader and writer after decoding and before encoding: no codec knows about them.
// Private to src/image.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tiff {

// What a codec needs to know of the block it works on. A block is a strip (the image's width, its
// rows) or a tile (tile size, padded), of one plane (planar files) or of all samples.
struct ContexteBloc {
  std::string nom;  // the file, for messages
  int largeur = 0;  // pixels per block row
  int hauteur = 0;  // rows of this block (the last strip may be shorter)
  // Rows its stream may hold: some writers code the last strip with RowsPerStrip rows, the ones past
  // the image as padding. The decoders accept them and hand out only 'hauteur' rows. 0: hauteur.
  int hauteurCodee = 0;
  int echantillons = 1;            // samples per pixel in this block (1 for a plane of a planar file)
  int bits = 8;                    // bits per sample
  int photometrique = 1;           // PhotometricInterpretation (JPEG: 6 means YCbCr)
  int sousEchH = 2, sousEchV = 2;  // YCbCrSubsampling (JPEG)
  const std::vector<unsigned char>* tablesJpeg = nullptr;  // JPEGTables, null when absent
  uint64_t OctetsLigne() const { return (static_cast<uint64_t>(largeur) * echantillons * bits + 7) / 8; }
  uint64_t Octets() const { return OctetsLigne() * static_cast<uint64_t>(hauteur); }
  uint64_t OctetsCodes() const {
    return OctetsLigne() * static_cast<uint64_t>(std::max(hauteur, hauteurCodee));
  }
};

// Decodes one block at a time, in order: Commencer() on the block's compressed bytes (which stay
// valid until the next Commencer), then Lire() hands out the decoded bytes in order, as many calls
// as the caller wants (a row at a time, or the whole block at once). Lire never writes more than it
// is asked and returns how many bytes it wrote: fewer only when the stream ends early. A stream that
// is corrupt, or that would decode to more than the block (a Deflate or ZSTD bomb), is an Erreur
// naming the file; no decoder allocates more than the block's decoded size from a count in the file.
// A decoder that cannot stream decodes the whole block at the first Lire: straight into the caller's
// bytes when that call asks for the whole block (the reader does so when the destination's rows are
// contiguous), otherwise into one buffer of the block's size that the next calls read from.
//
// Nothing past the block's Octets() is ever handed out, whatever is asked: the padding rows of a
// last strip are dropped (whole-block codecs decode them and drop them, streaming ones stop before
// them). That cap is kept here, once per call, so the codecs only implement Ouvrir and Decoder and
// are never asked for a byte past the block.
class Decodeur {
 public:
  virtual ~Decodeur() = default;
  void Commencer(const unsigned char* donnees, size_t taille, const ContexteBloc& bloc) {
    m_reste = bloc.Octets();
    Ouvrir(donnees, taille, bloc);
  }
  size_t Lire(unsigned char* sortie, size_t octets) {
    if (octets > m_reste) octets = static_cast<size_t>(m_reste);
    const size_t n = Decoder(sortie, octets);
    m_reste -= n;
    return n;
  }

 protected:
  virtual void Ouvrir(const unsigned char* donnees, size_t taille, const ContexteBloc& bloc) = 0;
  // 'octets' is at most Reste(): writes at most that many bytes and returns how many.
  virtual size_t Decoder(unsigned char* sortie, size_t octets) = 0;
  // Bytes of the block not handed out before this call: a call that returns Reste() ends the block.
  uint64_t Reste() const { return m_reste; }

 private:
  uint64_t m_reste = 0;
};

// Encodes one whole block (ContexteBloc::Octets() bytes, predictor already applied) into 'sortie',
// which it replaces.
class Encodeur {
 public:
  virtual ~Encodeur() = default;
  virtual void Encoder(const unsigned char* bloc, const ContexteBloc& contexte,
                       std::vector<unsigned char>& sortie) = 0;
};

struct Codec {
  int code;         // TIFF Compression value
  const char* nom;  // as users write it: "none", "lzw", "deflate", ...
  std::unique_ptr<Decodeur> (*decodeur)();
  // Null when we do not write this compression. 'niveau' is the codec's level (0: its default);
  // 'qualite' is the JPEG quality.
  std::unique_ptr<Encodeur> (*encodeur)(int niveau, int qualite);
  // The most bytes 'octets' compressed bytes can decode to, or null when the scheme has no useful
  // bound. The reader refuses, before decoding, a block that could not give its rows and a file
  // whose blocks together ask more than its size could give.
  uint64_t (*borne)(uint64_t octets) = nullptr;
  // Read by the windows reader only (egalise mosaique): the compatibility mode refuses the files that
  // use it, as it always did, and finds no row for its code.
  bool etendu = false;
};

// The row of a compression code, or null when we do not know it (or, unless 'etendus', when it is
// read by the windows reader only).
const Codec* TrouverCodec(int code, bool etendus = false);
// The row of a user-facing name ("deflate") of a codec every reader knows, or null.
const Codec* TrouverCodecParNom(const std::string& nom);
// Every row, for messages and tests.
const std::vector<Codec>& TousLesCodecs();
// Name of a compression code for messages: its row's, or the usual name of a compression we do not
// read ("" for a code nobody uses).
std::string NomCompression(int code);
// "Compression (50001, WebP) non geree : pixels du fichier F illisibles." from the given class.
[[noreturn]] void CompressionNonGeree(const char* classe, int code, const std::string& fichier);

}  // namespace tiff
