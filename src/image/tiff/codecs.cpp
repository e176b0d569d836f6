// The table of TIFF codecs. Adding a codec: write its Decodeur (and Encodeur, when we write it) in
// codec_<name>.cpp with a factory, declare the factory here or in codecs_externes.h, and add its row.
#include <algorithm>
#include <cstring>
#include <limits>

#include "annexes.h"
#include "codec.h"
#include "codecs_externes.h"
#include "tags.h"
#include "zepra/erreur.h"

namespace tiff {

std::unique_ptr<Decodeur> DecodeurLZW();
std::unique_ptr<Decodeur> DecodeurPackBits();
uint64_t BorneLZW(uint64_t octets);
uint64_t BornePackBits(uint64_t octets);

namespace {

// Uncompressed blocks. The reader reads their rows from the file itself; the row keeps the table
// complete for whoever decodes through it by code (the fuzz targets, tests).
class DecodeurSans : public Decodeur {
 protected:
  void Ouvrir(const unsigned char* donnees, size_t taille, const ContexteBloc&) override {
    m_donnees = donnees;
    m_reste = taille;
  }
  size_t Decoder(unsigned char* sortie, size_t octets) override {
    const size_t n = std::min(octets, m_reste);
    if (n > 0) std::memcpy(sortie, m_donnees, n);
    m_donnees += n;
    m_reste -= n;
    return n;
  }

 private:
  const unsigned char* m_donnees = nullptr;
  size_t m_reste = 0;  // of the stream: a block stored short ends early
};

std::unique_ptr<Decodeur> DecodeurSansCompression() { return std::make_unique<DecodeurSans>(); }
uint64_t BorneSans(uint64_t octets) { return octets; }

}  // namespace

const std::vector<Codec>& TousLesCodecs() {
  static const std::vector<Codec> codecs = {
      {kSans, "none", DecodeurSansCompression, nullptr, BorneSans},
      {kLZW, "lzw", DecodeurLZW, CreerEncodeurLzw, BorneLZW},
      {kPackBits, "packbits", DecodeurPackBits, CreerEncodeurPackBits, BornePackBits},
      {kDeflate, "deflate", CreerDecodeurDeflate, CreerEncodeurDeflate, BorneDeflate},
      // Read only: we write code 8. A search by name finds the row above.
      {kDeflateAncien, "deflate", CreerDecodeurDeflate, nullptr, BorneDeflate},
      {kZstd, "zstd", CreerDecodeurZstd, CreerEncodeurZstd, BorneZstd},
      {kJPEG, "jpeg", CreerDecodeurJpeg, CreerEncodeurJpeg, nullptr},
      // A tile of uniform colour codes in a few dozen bytes: no useful bound.
      {kWebp, "webp", CreerDecodeurWebp, nullptr, nullptr, true},
      {kLzma, "lzma", CreerDecodeurLzma, nullptr, BorneLzma, true},
  };
  return codecs;
}

const Codec* TrouverCodec(int code, bool etendus) {
  for (const Codec& c : TousLesCodecs())
    if (c.code == code && (etendus || !c.etendu)) return &c;
  return nullptr;
}

const Codec* TrouverCodecParNom(const std::string& nom) {
  for (const Codec& c : TousLesCodecs())
    if (nom == c.nom && !c.etendu) return &c;
  return nullptr;
}

std::string NomCompression(int code) {
  if (const Codec* c = TrouverCodec(code)) return c->nom;
  // Compressions met in files that we do not read, named for the messages.
  static const std::pair<int, const char*> connues[] = {
      {2, "CCITT RLE"},         {3, "CCITT Group 3"},   {4, "CCITT Group 4"}, {6, "JPEG ancien style"},
      {32771, "CCITT RLEW"},    {32809, "ThunderScan"}, {34661, "JBIG"},      {34676, "SGI LogLuv"},
      {34677, "SGI LogLuv 24"}, {34712, "JPEG 2000"},   {34887, "LERC"},      {34925, "LZMA"},
      {50001, "WebP"},          {50002, "JPEG XL"},
  };
  for (const auto& [c, nom] : connues)
    if (c == code) return nom;
  return "";
}

void CompressionNonGeree(const char* classe, int code, const std::string& fichier) {
  const std::string nom = NomCompression(code);
  ZEPRA_ERREUR(classe << " Compression (" << code << (nom.empty() ? "" : ", " + nom)
                      << ") non geree : pixels du fichier " << fichier << " illisibles.");
}

uint64_t MaxDecode(int compression, uint64_t octets, bool etendus) {
  const Codec* c = TrouverCodec(compression, etendus);
  if (!c) return BorneLZW(octets);
  return c->borne ? c->borne(octets) : std::numeric_limits<uint64_t>::max();
}

}  // namespace tiff
