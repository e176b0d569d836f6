// The lossless TIFF codecs through the codec interface: round trips over every block shape, streams
// made by libdeflate, libzstd, liblzma and libwebp themselves, hostile streams (empty, cut, flipped,
// inflating past the block, of another size), our LZW and PackBits encoders read back by libtiff, and last
// strips coded with padding.
#include <gtest/gtest.h>
#include <libdeflate.h>
#include <lzma.h>
#include <webp/encode.h>
#include <zstd.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "image/tiff/codecs_externes.h"
#include "outils_codecs_test.h"
#include "outils_image_test.h"
#include "zepra/erreur.h"
#include "zepra/lecteurfenetres.h"

namespace {

using test::Bloc;
using test::Octets;

TEST(Codecs, AllerRetourDeChaqueLigneDeLaTableSurToutesLesFormesDeBloc) {
  // Every lossless row of the codec table that writes, at its lowest, default and highest levels: a
  // codec is tested the day its row is added. Blocks of width x rows x samples x bits: widths that
  // are not multiples of 8, 1-bit rows, a last strip of two rows, and a block large enough for LZW
  // to fill its table several times.
  const std::vector<tiff::ContexteBloc> formes = {Bloc(13, 7),       Bloc(13, 2),        Bloc(13, 5, 1, 1),
                                                  Bloc(5, 9, 3, 16), Bloc(7, 3, 4, 32),  Bloc(3, 11, 1, 64),
                                                  Bloc(1, 1),        Bloc(301, 40, 3, 8)};
  const std::map<int, std::vector<int>> niveaux = {{8, {1, 0, 12}}, {50000, {1, 0, 22}}};
  std::set<int> ecrits;
  for (const tiff::Codec& c : tiff::TousLesCodecs()) {
    if (!c.encodeur || c.code == 7) continue;  // JPEG is lossy: see its own tests
    ecrits.insert(c.code);
    for (int niveau : niveaux.count(c.code) ? niveaux.at(c.code) : std::vector<int>{0}) {
      // One encoder and one decoder for every block, as a file uses them.
      const auto encodeur = c.encodeur(niveau, 0);
      const auto decodeur = c.decodeur();
      for (const tiff::ContexteBloc& b : formes) {
        const size_t ligne = static_cast<size_t>(b.OctetsLigne()), total = static_cast<size_t>(b.Octets());
        SCOPED_TRACE(std::string(c.nom) + " " + std::to_string(niveau) + ", " + std::to_string(b.largeur) +
                     " x " + std::to_string(b.hauteur) + " x " + std::to_string(b.echantillons) + " x " +
                     std::to_string(b.bits));
        const Octets donnees = test::Donnees(total, b.largeur);
        Octets flux;
        encodeur->Encoder(donnees.data(), b, flux);
        for (size_t pas : {size_t{0}, ligne, size_t{7}, total + 5})
          EXPECT_EQ(test::Decoder(*decodeur, flux, b, pas), donnees) << pas;
      }
    }
  }
  EXPECT_EQ(ecrits, std::set<int>({5, 8, 32773, 50000}));
  EXPECT_EQ(tiff::TrouverCodecParNom("deflate")->code, 8);
  EXPECT_EQ(tiff::TrouverCodec(32946)->decodeur, tiff::TrouverCodec(8)->decodeur);
}

// A zstd frame from the streaming API, given its input in two calls so that its size is not known:
// the frame then has the window of its parameters, not of its size.
Octets ZstdEnFlux(const Octets& d, int fenetreLog, bool somme) {
  ZSTD_CCtx* c = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(c, ZSTD_c_compressionLevel, 19);
  ZSTD_CCtx_setParameter(c, ZSTD_c_windowLog, fenetreLog);
  ZSTD_CCtx_setParameter(c, ZSTD_c_checksumFlag, somme ? 1 : 0);
  Octets o(ZSTD_compressBound(d.size()) + 64);
  ZSTD_outBuffer out{o.data(), o.size(), 0};
  ZSTD_inBuffer debut{d.data(), d.size() / 2, 0}, fin{d.data() + d.size() / 2, d.size() - d.size() / 2, 0};
  ZSTD_compressStream2(c, &out, &debut, ZSTD_e_continue);
  while (ZSTD_compressStream2(c, &out, &fin, ZSTD_e_end) != 0) {
  }
  ZSTD_freeCCtx(c);
  o.resize(out.pos);
  return o;
}

Octets Zstd(const Octets& d) {
  Octets o(ZSTD_compressBound(d.size()));
  o.resize(ZSTD_compress(o.data(), o.size(), d.data(), d.size(), 3));
  return o;
}

// An .xz stream as libtiff writes a block's (lzma_easy_buffer_encode, CRC64 unless told otherwise).
Octets Xz(const Octets& d, uint32_t preset, lzma_check somme = LZMA_CHECK_CRC64) {
  Octets o(lzma_stream_buffer_bound(d.size()));
  size_t n = 0;
  EXPECT_EQ(lzma_easy_buffer_encode(preset, somme, nullptr, d.data(), d.size(), o.data(), &n, o.size()),
            LZMA_OK);
  o.resize(n);
  return o;
}

Octets Deflate(const Octets& d, int niveau) {
  libdeflate_compressor* c = libdeflate_alloc_compressor(niveau);
  Octets o(libdeflate_zlib_compress_bound(c, d.size()));
  o.resize(libdeflate_zlib_compress(c, d.data(), d.size(), o.data(), o.size()));
  libdeflate_free_compressor(c);
  return o;
}

TEST(Codecs, FluxDesBibliothequesDeReference) {
  const tiff::ContexteBloc b = Bloc(200, 30, 3, 16);
  const Octets d = test::Donnees(static_cast<size_t>(b.Octets()));
  const size_t ligne = static_cast<size_t>(b.OctetsLigne());
  Octets deuxTrames = Zstd(Octets(d.begin(), d.begin() + 5000));
  const Octets suite = Zstd(Octets(d.begin() + 5000, d.end()));
  deuxTrames.insert(deuxTrames.end(), suite.begin(), suite.end());
  const std::vector<std::tuple<const char*, Octets, std::unique_ptr<tiff::Decodeur> (*)()>> flux = {
      // Level 0: stored blocks, no compression.
      {"libdeflate 0", Deflate(d, 0), tiff::CreerDecodeurDeflate},
      {"libdeflate 1", Deflate(d, 1), tiff::CreerDecodeurDeflate},
      {"libdeflate 12", Deflate(d, 12), tiff::CreerDecodeurDeflate},
      {"zstd, taille connue", Zstd(d), tiff::CreerDecodeurZstd},
      // A window larger than the block: decoded in one call even row by row.
      {"zstd, fenetre 2^27", ZstdEnFlux(d, 27, false), tiff::CreerDecodeurZstd},
      // A window smaller than the block: streamed when read row by row.
      {"zstd, fenetre 2^10, somme de controle", ZstdEnFlux(d, 10, true), tiff::CreerDecodeurZstd},
      {"zstd, deux trames", deuxTrames, tiff::CreerDecodeurZstd},
      {"xz 0", Xz(d, 0), tiff::CreerDecodeurLzma},
      {"xz 9e, sans somme", Xz(d, 9 | LZMA_PRESET_EXTREME, LZMA_CHECK_NONE), tiff::CreerDecodeurLzma},
  };
  for (const auto& [nom, f, creer] : flux) {
    const auto decodeur = creer();
    for (size_t pas : {size_t{0}, ligne, size_t{7}})
      EXPECT_EQ(test::Decoder(*decodeur, f, b, pas), d) << nom << " " << pas;
  }
}

TEST(Codecs, FluxHostiles) {
  const tiff::ContexteBloc b = Bloc(10, 10);  // 100 bytes, rows of 10
  const Octets d = test::Donnees(100), zeros(1 << 16, 0), unDeTrop = test::Donnees(101);
  Octets rampe(100);  // stored as it stands by Deflate
  for (size_t i = 0; i < rampe.size(); ++i) rampe[i] = static_cast<unsigned char>(i);
  struct Cas {
    const char* nom;
    std::unique_ptr<tiff::Decodeur> (*creer)();
    Octets flux;
    const char* attendu;  // fragment of the Erreur, or null when the stream just ends early
  };
  auto coupe = [](Octets f) {
    f.resize(f.size() / 2);
    return f;
  };
  // Cut in its trailer (Adler-32, or the xz index and footer): every byte of the block decodes, then
  // the stream ends early. Such a block is corrupt, not a bomb.
  auto sansFin = [](Octets f, size_t n) {
    f.resize(f.size() - n);
    return f;
  };
  auto inverse = [](Octets f) {
    f[f.size() / 2] ^= 0x10;
    return f;
  };
  const std::vector<Cas> cas = {
      {"deflate vide", tiff::CreerDecodeurDeflate, {}, "Flux Deflate corrompu ou tronque (0 octets)"},
      {"deflate coupe", tiff::CreerDecodeurDeflate, coupe(Deflate(d, 6)), "Flux Deflate corrompu ou tronque"},
      {"deflate inverse", tiff::CreerDecodeurDeflate, inverse(Deflate(d, 6)),
       "Flux Deflate corrompu ou tronque"},
      {"deflate sans somme", tiff::CreerDecodeurDeflate, sansFin(Deflate(d, 6), 2),
       "Flux Deflate corrompu ou tronque"},
      {"deflate d'un bloc stocke sans somme", tiff::CreerDecodeurDeflate, sansFin(Deflate(rampe, 6), 1),
       "Flux Deflate corrompu ou tronque"},
      {"deflate bombe", tiff::CreerDecodeurDeflate, Deflate(zeros, 12), "depasse les 100 octets du bloc"},
      {"deflate un octet de trop", tiff::CreerDecodeurDeflate, Deflate(unDeTrop, 6),
       "depasse les 100 octets"},
      {"deflate court", tiff::CreerDecodeurDeflate, Deflate(Octets(d.begin(), d.end() - 10), 6), nullptr},
      {"zstd vide", tiff::CreerDecodeurZstd, {}, "Flux ZSTD"},
      {"zstd coupe", tiff::CreerDecodeurZstd, coupe(Zstd(d)), "Flux ZSTD"},
      {"zstd inverse", tiff::CreerDecodeurZstd, inverse(ZstdEnFlux(d, 10, true)), "Flux ZSTD corrompu"},
      {"zstd bombe, taille annoncee", tiff::CreerDecodeurZstd, Zstd(zeros), "depasse les 100 octets du bloc"},
      // Streamed row by row: the frame goes on once the block is complete.
      {"zstd bombe, fenetre 2^10", tiff::CreerDecodeurZstd, ZstdEnFlux(zeros, 10, false),
       "depasse les 100 octets"},
      {"zstd un octet de trop", tiff::CreerDecodeurZstd, ZstdEnFlux(unDeTrop, 10, false),
       "depasse les 100 octets"},
      {"zstd court", tiff::CreerDecodeurZstd, ZstdEnFlux(Octets(d.begin(), d.end() - 10), 10, false),
       nullptr},
      {"lzma vide", tiff::CreerDecodeurLzma, {}, "Flux LZMA corrompu ou tronque (0 octets)"},
      {"lzma coupe", tiff::CreerDecodeurLzma, coupe(Xz(d, 6)), "Flux LZMA corrompu ou tronque"},
      {"lzma inverse", tiff::CreerDecodeurLzma, inverse(Xz(d, 6)), "Flux LZMA corrompu ou tronque"},
      {"lzma sans pied", tiff::CreerDecodeurLzma, sansFin(Xz(d, 6), 4), "Flux LZMA corrompu ou tronque"},
      {"lzma sans index", tiff::CreerDecodeurLzma, sansFin(Xz(d, 6), 12), "Flux LZMA corrompu ou tronque"},
      {"lzma bombe", tiff::CreerDecodeurLzma, Xz(zeros, 9), "depasse les 100 octets du bloc"},
      {"lzma un octet de trop", tiff::CreerDecodeurLzma, Xz(unDeTrop, 6), "depasse les 100 octets"},
      {"lzma court", tiff::CreerDecodeurLzma, Xz(Octets(d.begin(), d.end() - 10), 6), nullptr},
  };
  for (const Cas& c : cas) {
    for (size_t pas : {size_t{0}, size_t{10}, size_t{3}}) {
      SCOPED_TRACE(std::string(c.nom) + ", pas " + std::to_string(pas));
      const auto decodeur = c.creer();
      if (!c.attendu) {
        EXPECT_EQ(test::Decoder(*decodeur, c.flux, b, pas), Octets(d.begin(), d.end() - 10));
        continue;
      }
      const std::string classe = c.creer == tiff::CreerDecodeurZstd   ? "[DecodeurZstd] (Lire) "
                                 : c.creer == tiff::CreerDecodeurLzma ? "[DecodeurLzma] (Lire) "
                                                                      : "[DecodeurDeflate] (Lire) ";
      test::Refuse([&] { test::Decoder(*decodeur, c.flux, b, pas); }, classe,
                   {c.attendu, "du fichier bloc.tif"});
      // The decoder is left usable for the next block.
      const Octets bon = c.creer == tiff::CreerDecodeurZstd   ? Zstd(d)
                         : c.creer == tiff::CreerDecodeurLzma ? Xz(d, 6)
                                                              : Deflate(d, 6);
      EXPECT_EQ(test::Decoder(*decodeur, bon, b, pas), d);
    }
  }
}

// WebP (read by the windows reader only): lossless streams of libwebp itself give their pixels back, RGB
// or RGBA, whole or row by row, a last strip coded with its padding rows too; streams that are not
// WebP, cut short, of another size, or blocks WebP cannot hold are refused naming the file. The
// compatibility mode's lookups do not find it.
Octets WebpSansPerte(const Octets& d, int largeur, int hauteur, int echantillons) {
  uint8_t* sortie = nullptr;
  const size_t n = echantillons == 4
                       ? WebPEncodeLosslessRGBA(d.data(), largeur, hauteur, largeur * 4, &sortie)
                       : WebPEncodeLosslessRGB(d.data(), largeur, hauteur, largeur * 3, &sortie);
  Octets f(sortie, sortie + n);
  WebPFree(sortie);
  return f;
}

TEST(Codecs, WebpDeLibwebp) {
  ASSERT_EQ(tiff::TrouverCodec(50001), nullptr);
  ASSERT_NE(tiff::TrouverCodec(50001, true), nullptr);
  EXPECT_EQ(tiff::TrouverCodecParNom("webp"), nullptr);
  EXPECT_EQ(tiff::NomCompression(50001), "WebP");
  const auto decodeur = tiff::TrouverCodec(50001, true)->decodeur();
  for (const tiff::ContexteBloc& b : {Bloc(13, 7, 3), Bloc(64, 5, 4), Bloc(1, 1, 3)}) {
    SCOPED_TRACE(std::to_string(b.largeur) + " x " + std::to_string(b.hauteur) + " x " +
                 std::to_string(b.echantillons));
    Octets d = test::Donnees(static_cast<size_t>(b.Octets()), b.largeur);
    // libwebp keeps the colour of opaque pixels only, unless told otherwise.
    if (b.echantillons == 4)
      for (size_t k = 3; k < d.size(); k += 4) d[k] = 255;
    const Octets f = WebpSansPerte(d, b.largeur, b.hauteur, b.echantillons);
    for (size_t pas : {size_t{0}, static_cast<size_t>(b.OctetsLigne()), size_t{5}})
      EXPECT_EQ(test::Decoder(*decodeur, f, b, pas), d) << pas;
  }
  // A last strip of 3 rows coded with the 7 of RowsPerStrip.
  tiff::ContexteBloc dernier = Bloc(13, 3, 3);
  dernier.hauteurCodee = 7;
  const Octets sept = test::Donnees(13 * 7 * 3, 13);
  EXPECT_EQ(test::Decoder(*decodeur, WebpSansPerte(sept, 13, 7, 3), dernier),
            Octets(sept.begin(), sept.begin() + 13 * 3 * 3));

  const tiff::ContexteBloc b = Bloc(13, 7, 3);
  const Octets d = test::Donnees(static_cast<size_t>(b.Octets()), 13);
  Octets coupe = WebpSansPerte(d, 13, 7, 3);
  coupe.resize(coupe.size() / 2);
  const struct {
    const char* nom;
    tiff::ContexteBloc bloc;
    Octets flux;
    const char* attendu;
  } cas[] = {
      {"vide", b, {}, "Flux WebP invalide (0 octets)"},
      {"pas du WebP", b, test::Donnees(200), "Flux WebP invalide (200 octets)"},
      {"coupe", b, coupe, "Flux WebP corrompu ou tronque"},
      {"autre taille", b, WebpSansPerte(test::Donnees(12 * 7 * 3), 12, 7, 3),
       "Image WebP de 12 x 7 pixels dans un bloc de 13 x 7 pixels"},
      {"plus de lignes", Bloc(13, 6, 3), WebpSansPerte(d, 13, 7, 3),
       "Image WebP de 13 x 7 pixels dans un bloc de 13 x 6 pixels"},
      {"un echantillon", Bloc(13, 7, 1), WebpSansPerte(d, 13, 7, 3), "Blocs de 1 echantillon(s) de 8 bits"},
      {"16 bits", Bloc(13, 7, 3, 16), WebpSansPerte(d, 13, 7, 3), "Blocs de 3 echantillon(s) de 16 bits"},
  };
  for (const auto& c : cas) {
    SCOPED_TRACE(c.nom);
    test::Refuse([&] { test::Decoder(*decodeur, c.flux, c.bloc); }, "[DecodeurWebp] (Lire) ",
                 {c.attendu, "du fichier bloc.tif"});
    EXPECT_EQ(test::Decoder(*decodeur, WebpSansPerte(d, 13, 7, 3), b), d);
  }
}

TEST(Codecs, BornesDesTauxDeCompression) {
  // The densest streams each scheme allows stay within its bound: zeros at the highest levels, and a
  // zstd frame written by hand of four RLE blocks of 128 KiB, each coded in 4 bytes (3 of header:
  // last block flag, type 1, size 131072; 1 of value).
  const Octets zeros(1 << 22, 0);
  Octets rle = {0x28, 0xB5, 0x2F, 0xFD, 0x00, 0x38};  // magic, no content size, window 2^17
  for (int i = 0; i < 4; ++i) {
    const uint32_t entete = (i == 3 ? 1u : 0u) | 1u << 1 | 131072u << 3;
    for (int k : {0, 8, 16}) rle.push_back(static_cast<unsigned char>(entete >> k));
    rle.push_back(0);
  }
  const tiff::ContexteBloc b = Bloc(1 << 10, 1 << 9);
  const auto zstd = tiff::CreerDecodeurZstd();
  EXPECT_EQ(test::Decoder(*zstd, rle, b, 1000), Octets(1 << 19, 0));
  EXPECT_LE(uint64_t{1} << 19, tiff::BorneZstd(rle.size()));
  EXPECT_LE(zeros.size(), tiff::BorneZstd(Zstd(zeros).size()));
  EXPECT_LE(zeros.size(), tiff::BorneDeflate(Deflate(zeros, 12).size()));
  // xz: 64 MiB of zeros at the densest preset, without a check to pad it, within half the bound.
  const Octets zeros64(1 << 26, 0);
  EXPECT_LE(2 * zeros64.size(),
            tiff::BorneLzma(Xz(zeros64, 9 | LZMA_PRESET_EXTREME, LZMA_CHECK_NONE).size()));
  EXPECT_EQ(tiff::BorneZstd(UINT64_MAX / 1000), UINT64_MAX);
  EXPECT_EQ(tiff::BorneLzma(UINT64_MAX / 1000), UINT64_MAX);
}

TEST(Codecs, NiveauxHorsIntervalle) {
  const std::vector<std::tuple<std::function<void()>, const char*>> cas = {
      {[] { tiff::CreerEncodeurDeflate(13, 0); },
       "[EncodeurDeflate] (Creer) Niveau Deflate 13 hors de l'intervalle 1 a 12."},
      {[] { tiff::CreerEncodeurDeflate(-1, 0); }, "[EncodeurDeflate] (Creer) Niveau Deflate -1 hors"},
      {[] { tiff::CreerEncodeurZstd(23, 0); },
       "[EncodeurZstd] (Creer) Niveau ZSTD 23 hors de l'intervalle 1 a 22."},
      {[] { tiff::CreerEncodeurJpeg(0, 101); },
       "[EncodeurJpeg] (Creer) Qualite JPEG 101 hors de l'intervalle 1 a 100."},
      {[] { tiff::TablesJpeg(Bloc(8, 8), -1); }, "[EncodeurJpeg] (TablesJpeg) Qualite JPEG -1 hors"},
  };
  for (const auto& [f, attendu] : cas) test::Refuse(f, attendu);
}

// Our encoders' streams in TIFF files that libtiff decodes: one strip per file, compression 'code'.
Octets RelusParLibtiff(const test::DossierTemp& dir, int code, const Octets& donnees, size_t largeur,
                       const std::vector<unsigned char>& flux) {
  test::TiffSimple(static_cast<uint32_t>(largeur), static_cast<uint32_t>(donnees.size() / largeur), 1,
                   std::string(flux.begin(), flux.end()))
      .Court(259, {static_cast<uint32_t>(code)})
      .Ecrire(dir / "c.tif");
  EXPECT_EQ(test::Tiffcp(dir, "-c none", "c.tif", "n.tif"), "");
  const TTImage<unsigned char> image((dir / "n.tif").c_str());
  return Octets(image.GetLines(0), image.GetLines(0) + donnees.size());
}

TEST(Codecs, LzwEtPackBitsRelusParLibtiff) {
  // LZW: a block whose every byte pair is new codes each byte alone, so that after 254, 766 and
  // 1790 bytes the last code's string is 511, 1023 and 2047, where End is one bit wider; then blocks
  // that fill the table and Clear it several times. PackBits: runs of 2, 3, 128, 129 and literal runs
  // longer than 128.
  Octets paires(5000);
  for (size_t i = 0; i < paires.size(); ++i)
    paires[i] = static_cast<unsigned char>((i % 256) * (2 * (i / 256) + 1));
  Octets runs;
  for (size_t n : {1, 2, 3, 128, 129, 1, 300}) runs.insert(runs.end(), n, static_cast<unsigned char>(n));
  const Octets bruit = test::Donnees(40000, 3);
  runs.insert(runs.end(), bruit.begin(), bruit.begin() + 300);
  test::DossierTemp dir;
  const auto lzw = tiff::CreerEncodeurLzw(0, 0), packbits = tiff::CreerEncodeurPackBits(0, 0);
  for (size_t n : {1, 2, 253, 254, 255, 765, 766, 767, 1789, 1790, 1791, 3837, 5000}) {
    const Octets d(paires.begin(), paires.begin() + n);
    Octets flux;
    lzw->Encoder(d.data(), Bloc(static_cast<int>(n), 1), flux);
    EXPECT_EQ(RelusParLibtiff(dir, 5, d, n, flux), d) << n;
  }
  for (const Octets& d : {bruit, test::Donnees(40000, 4), Octets(40000, 9)}) {
    Octets flux;
    lzw->Encoder(d.data(), Bloc(400, 100), flux);
    EXPECT_EQ(RelusParLibtiff(dir, 5, d, 400, flux), d);
  }
  // Two rows: PackBits codes each alone.
  runs.insert(runs.end(), runs.begin(), runs.end());
  Octets flux;
  packbits->Encoder(runs.data(), Bloc(static_cast<int>(runs.size() / 2), 2), flux);
  EXPECT_EQ(RelusParLibtiff(dir, 32773, runs, runs.size() / 2, flux), runs);
}

}  // namespace

// Some writers code the last strip with RowsPerStrip rows, the ones past the image as padding. Every
// codec (uncompressed blocks too, their stream being the bytes themselves) hands out the block's
// rows and nothing of the padding, whatever the size of the requests; a stream longer than the
// padded strip is still refused by the codecs that decode whole blocks or check the stream's size
// (the streaming ones stop at the block's end). Then a file whose last Deflate strip is padded, read
// whole and by windows.
TEST(Codecs, DerniereBandeCodeeAvecSesLignesDeRemplissage) {
  for (const tiff::Codec& c : tiff::TousLesCodecs()) {
    if (!c.encodeur && c.code != 1) continue;
    SCOPED_TRACE(c.nom);
    const auto encodeur = c.encodeur ? c.encodeur(0, 90) : nullptr;
    auto encoder = [&](const Octets& d, const tiff::ContexteBloc& b, Octets& flux) {
      if (encodeur)
        encodeur->Encoder(d.data(), b, flux);
      else
        flux.assign(d.begin(), d.begin() + static_cast<long>(b.Octets()));
    };
    const auto decodeur = c.decodeur();
    tiff::ContexteBloc plein = Bloc(13, 7), trop = Bloc(13, 9), dernier = Bloc(13, 3);
    dernier.hauteurCodee = 7;
    // JPEG streams take their tables from JPEGTables.
    const Octets tables = c.code == 7 ? tiff::TablesJpeg(plein, 90) : Octets();
    for (tiff::ContexteBloc* b : {&plein, &trop, &dernier}) b->tablesJpeg = c.code == 7 ? &tables : nullptr;
    const Octets donnees = test::Donnees(static_cast<size_t>(trop.Octets()), 5);
    Octets flux, fluxTrop;
    encoder(donnees, plein, flux);
    encoder(donnees, trop, fluxTrop);
    // The reference: the whole strip decoded, its first rows (the data themselves when lossless).
    Octets attendu = test::Decoder(*decodeur, flux, plein);
    attendu.resize(static_cast<size_t>(dernier.Octets()));
    if (c.code != 7) {
      EXPECT_EQ(attendu, Octets(donnees.begin(), donnees.begin() + 39));
    }
    const bool refuse = c.code == 7 || c.code == 8 || c.code == 50000;
    for (size_t pas : {size_t{0}, size_t{13}, size_t{5}, size_t{200}}) {
      EXPECT_EQ(test::Decoder(*decodeur, flux, dernier, pas), attendu) << pas;
      if (refuse)
        EXPECT_THROW(test::Decoder(*decodeur, fluxTrop, dernier, pas), Erreur) << pas;
      else
        EXPECT_EQ(test::Decoder(*decodeur, fluxTrop, dernier, pas), attendu) << pas;
    }
  }

  // 10 lines of 21 pixels in strips of 4: the last strip codes 4 lines, 2 of them padding.
  const int colonnes = 21, lignes = 10, parBande = 4;
  std::string pixels;
  std::vector<uint32_t> offsets, octets;
  const auto encodeur = tiff::TrouverCodec(8)->encodeur(0, 0);
  Octets image(static_cast<size_t>(colonnes) * lignes);
  for (size_t k = 0; k < image.size(); ++k) image[k] = static_cast<unsigned char>(k * 7 % 251);
  for (int l0 = 0; l0 < lignes; l0 += parBande) {
    Octets bande(static_cast<size_t>(colonnes) * parBande, 0xEE);
    const size_t n = static_cast<size_t>(colonnes) * std::min(parBande, lignes - l0);
    std::copy(image.begin() + static_cast<long>(l0) * colonnes,
              image.begin() + static_cast<long>(l0 * colonnes + n), bande.begin());
    Octets flux;
    encodeur->Encoder(bande.data(), Bloc(colonnes, parBande), flux);
    offsets.push_back(static_cast<uint32_t>(8 + pixels.size()));
    octets.push_back(static_cast<uint32_t>(flux.size()));
    pixels.append(flux.begin(), flux.end());
  }
  test::TiffTest t = test::TiffSimple(colonnes, lignes, 1, pixels);
  t.Court(259, {8}).Long(273, offsets).Long(278, {parBande}).Long(279, octets);
  test::DossierTemp dir;
  t.Ecrire(dir / "bande.tif");
  const TTImage<unsigned char> lue((dir / "bande.tif").c_str());
  for (int l = 0; l < lignes; ++l)
    for (int c = 0; c < colonnes; ++c)
      ASSERT_EQ(lue.GetLines(l)[c], image[static_cast<size_t>(l) * colonnes + c]) << c << " " << l;
  const LecteurFenetres fenetres(dir / "bande.tif");
  std::vector<float> fenetre(5 * 3);
  fenetres.Lire(16, 7, 5, 3, fenetre.data(), 5, 0);
  for (int l = 0; l < 3; ++l)
    for (int c = 0; c < 5; ++c)
      EXPECT_EQ(fenetre[static_cast<size_t>(l) * 5 + c],
                image[static_cast<size_t>(7 + l) * colonnes + 16 + c]);
}
