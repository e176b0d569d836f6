// TIFF files made by libtiff's tiffcp and GDAL's gdal_translate in the layouts users hand over:
// compression x predictor x sample type x strips, tiles, planes, BigTIFF and byte order. Each file is
// read by our reader and compared sample by sample with GDAL's own decode of the same file (raw ENVI
// bytes), whole, through a stepped crop and band after band. A codec is tested by adding rows.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "outils_image_test.h"

namespace {

using test::Avertissements;
using test::ImageMotif;

// GDAL's decode of 'nom' as T: the samples pixel after pixel, in the host's byte order.
template <class T>
TTImage<T> DecodeGdal(const test::DossierTemp& dir, const std::string& nom, const TPoint2D<int>& taille,
                      int canaux) {
  const test::Resultat r =
      test::Lancer(dir.chemin(), "gdal_translate -q -of ENVI -co INTERLEAVE=BIP " + nom + " oracle.raw");
  EXPECT_EQ(r.statut, 0) << r.sortie;
  const std::string octets = test::LireFichier(dir / "oracle.raw");
  constexpr size_t taillePixel = std::is_same_v<T, bool> ? 1 : sizeof(T);
  TTImage<T> im(taille.x, taille.y, TagNbCanaux(canaux));
  const size_t ligne = static_cast<size_t>(taille.x) * canaux * taillePixel;
  EXPECT_EQ(octets.size(), ligne * taille.y);
  if (octets.size() != ligne * taille.y) return im;
  for (int y = 0; y < taille.y; ++y) {
    if constexpr (std::is_same_v<T, bool>) {
      for (int i = 0; i < taille.x * canaux; ++i) im(i / canaux, y, i % canaux) = octets[y * ligne + i] != 0;
    } else {
      std::memcpy(im.GetLines()[y], octets.data() + y * ligne, ligne);
    }
  }
  return im;
}

struct Variante {
  std::string commande;  // makes v.tif from src.tif
  std::vector<eEnumType> types;
  int canaux;
};

const std::vector<eEnumType> k8 = {eUInt1, eInt1}, kEntiers = {eUInt1, eInt2, eUInt4, eInt4},
                             kFlottants = {eFloat4, eFloat8},
                             kTous = {eBool, eUInt1, eInt1, eUInt2, eInt2, eUInt4, eInt4, eFloat4, eFloat8},
                             kPredicteur2 = {eUInt1, eUInt2, eInt4, eFloat8}, k8U = {eUInt1};

const std::string kGdal = "gdal_translate -q ",
                  kTuiles = " -co TILED=YES -co BLOCKXSIZE=16 -co BLOCKYSIZE=32";

const std::vector<Variante> kVariantes = {
    // libtiff: predictors 2 and 3, planes (8-bit only for tiffcp), BigTIFF, big-endian.
    {"tiffcp -c lzw:2 -r 5", kPredicteur2, 3},
    {"tiffcp -c lzw:3 -r 7", kFlottants, 3},
    {"tiffcp -B -c lzw:3 -t -w 16 -l 16", kFlottants, 2},
    {"tiffcp -p separate -c lzw:2 -r 4", k8, 3},
    {"tiffcp -p separate -t -w 16 -l 16 -c packbits", k8, 4},
    {"tiffcp -8", kTous, 3},
    {"tiffcp -8 -B -t -w 32 -l 16 -c lzw:2", kPredicteur2, 3},
    {"tiffcp -8 -c lzw:3 -r 7", kFlottants, 1},
    {"tiffcp -8 -p separate -c lzw", k8, 3},
    // GDAL: planes for every sample size, tiles, BigTIFF, the floating-point predictor.
    {kGdal + "-co INTERLEAVE=BAND", kTous, 3},
    {kGdal + "-co INTERLEAVE=BAND -co COMPRESS=LZW -co PREDICTOR=2" + kTuiles, kPredicteur2, 3},
    {kGdal + "-co INTERLEAVE=BAND -co COMPRESS=LZW -co PREDICTOR=2 -co ENDIANNESS=BIG", kEntiers, 2},
    {kGdal + "-co COMPRESS=LZW -co PREDICTOR=3", kFlottants, 3},
    {kGdal + "-co COMPRESS=LZW -co PREDICTOR=3 -co INTERLEAVE=BAND -co ENDIANNESS=BIG" + kTuiles, kFlottants,
     3},
    {kGdal + "-co BIGTIFF=YES -co INTERLEAVE=BAND -co COMPRESS=PACKBITS", kEntiers, 4},
    {kGdal + "-co BIGTIFF=YES -co COMPRESS=LZW -co PREDICTOR=2 -co ENDIANNESS=BIG" + kTuiles, kPredicteur2,
     3},
    {kGdal + "-co BIGTIFF=YES -co COMPRESS=LZW -co PREDICTOR=3 -co INTERLEAVE=BAND" + kTuiles, kFlottants, 2},
    // Deflate, ZSTD and JPEG by libtiff: JPEG of RGB data as YCbCr 4:2:0 by default, as RGB with ":r".
    {"tiffcp -c zip -r 6", kTous, 3},
    {"tiffcp -c zip:2 -t -w 16 -l 16", kPredicteur2, 3},
    {"tiffcp -c zstd -p separate -r 5", k8, 3},
    {"tiffcp -c zstd:3 -t -w 32 -l 16", kFlottants, 2},
    {"tiffcp -c jpeg -r 16", k8U, 3},
    {"tiffcp -c jpeg:r -t -w 16 -l 16", k8U, 3},
    {"tiffcp -c jpeg -r 8", k8U, 1},
    // And by GDAL: both predictors with Deflate and ZSTD in every layout; JPEG as YCbCr in strips and
    // tiles, as RGB planes, gray, and 4 bands.
    {kGdal + "-co COMPRESS=DEFLATE -co PREDICTOR=2" + kTuiles, kPredicteur2, 3},
    {kGdal + "-co COMPRESS=DEFLATE -co PREDICTOR=3 -co INTERLEAVE=BAND", kFlottants, 3},
    {kGdal + "-co COMPRESS=DEFLATE -co BIGTIFF=YES -co ENDIANNESS=BIG", kTous, 3},
    {kGdal + "-co COMPRESS=ZSTD -co PREDICTOR=2 -co INTERLEAVE=BAND" + kTuiles, kEntiers, 2},
    {kGdal + "-co COMPRESS=ZSTD -co PREDICTOR=3 -co ZSTD_LEVEL=22" + kTuiles, kFlottants, 1},
    {kGdal + "-co COMPRESS=ZSTD", kTous, 4},
    {kGdal + "-co COMPRESS=JPEG -co PHOTOMETRIC=YCBCR", k8U, 3},
    {kGdal + "-co COMPRESS=JPEG -co PHOTOMETRIC=YCBCR -co JPEG_QUALITY=95" + kTuiles, k8U, 3},
    {kGdal + "-co COMPRESS=JPEG -co INTERLEAVE=BAND" + kTuiles, k8U, 3},
    {kGdal + "-co COMPRESS=JPEG", k8U, 1},
    {kGdal + "-co COMPRESS=JPEG", k8U, 4},
};

TEST(TiffOutils, ChaqueDispositionLueCommeGdalLaDecode) {
  test::DossierTemp dir;
  for (const Variante& v : kVariantes)
    for (const eEnumType type : v.types)
      AppliquerType(type, [&](auto tag) {
        using T = typename decltype(tag)::type;
        SCOPED_TRACE(v.commande + " / type " + std::to_string(type));
        ImageMotif<T>(45, 37, v.canaux).Sauver((dir / "src.tif").c_str());
        const test::Resultat r = test::Lancer(dir.chemin(), v.commande + " src.tif v.tif");
        ASSERT_EQ(r.statut, 0) << r.sortie;
        const TTImage<T> attendu = DecodeGdal<T>(dir, "v.tif", TPoint2D<int>(45, 37), v.canaux);
        // What we read exactly is read without a warning.
        EXPECT_EQ(Avertissements([&] { TTImage<T>((dir / "v.tif").c_str()); }), "");
        test::RelectureComplete(dir / "v.tif", attendu);
      });
}

// BigTIFF in the layouts that have their own reader: a palette file, and tile files of a "Dallage MPD".
TEST(TiffOutils, PaletteEtDallageEnBigTIFF) {
  test::DossierTemp dir;
  test::TiffPalette().Ecrire(dir / "p.tif");
  ASSERT_EQ(test::Tiffcp(dir, "-8 -c lzw", "p.tif", "pb.tif"), "");
  const TTImage<unsigned char> classique((dir / "p.tif").c_str());
  ASSERT_EQ(classique.GetNbCanaux(), 3);
  EXPECT_TRUE(test::MemesEchantillons(classique, TTImage<unsigned char>((dir / "pb.tif").c_str())));

  const TTImage<short> image = ImageMotif<short>(20, 9, 2);
  for (int i = 0; i < 2; ++i) {
    TTImage<short> dalle;
    dalle.Crop(image, 12 * i, 0, i == 0 ? 12 : 8, 9);
    dalle.Sauver((dir / "d.tif").c_str());
    ASSERT_EQ(
        test::Tiffcp(dir, "-8 -c lzw -t -w 16 -l 16", "d.tif", "mpd_Tile_" + std::to_string(i) + "_0.tif"),
        "");
  }
  test::TiffTest principal;
  principal.Long(256, {20}).Long(257, {9}).Court(258, {16, 16}).Court(259, {1}).Court(262, {1});
  principal.Court(277, {2}).Court(339, {2, 2}).Long(40000, {2}).Long(40001, {1}).Ecrire(dir / "mpd.tif");
  EXPECT_TRUE(test::MemesEchantillons(image, TTImage<short>((dir / "mpd.tif").c_str())));
}

}  // namespace
