// The JPEG codec through the codec interface: streams made by libjpeg itself (tables apart or inline,
// grayscale, RGB, YCbCr with every chroma subsampling libjpeg takes) decoded exactly as libjpeg
// decodes them; our encoder's abbreviated streams and tables read back by our decoder and by
// libtiff; streams that disagree with their block or are corrupt.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// jpeglib.h needs size_t and FILE first.
#include <jpeglib.h>

#include "image/tiff/codecs_externes.h"
#include "outils_codecs_test.h"
#include "outils_image_test.h"

namespace {

using test::Bloc;
using test::Octets;

// A smooth RGB (or gray) picture with some edges: chroma subsampling and quantization both show.
Octets Image(int largeur, int hauteur, int echantillons) {
  Octets o;
  for (int y = 0; y < hauteur; ++y)
    for (int x = 0; x < largeur; ++x)
      for (int c = 0; c < echantillons; ++c)
        o.push_back(static_cast<unsigned char>(c == 0   ? 3 * x + y
                                               : c == 1 ? (x * y) / 8 + (x > largeur / 2 ? 60 : 0)
                                                        : 250 - 2 * y));
  return o;
}

struct Jpeg {
  Octets tables, flux;  // tables empty: a self-contained stream
};

// A stream made by libjpeg, as libtiff makes them: no JFIF or Adobe marker, tables apart unless
// 'inline'. espace: JCS_GRAYSCALE, JCS_RGB, JCS_YCbCr, or JCS_CMYK for 4 samples stored as they are.
Jpeg Libjpeg(const Octets& image, int largeur, int hauteur, J_COLOR_SPACE espace, int sousH, int sousV,
             bool enLigne) {
  jpeg_compress_struct c;
  jpeg_error_mgr e;
  c.err = jpeg_std_error(&e);
  jpeg_create_compress(&c);
  c.image_width = static_cast<JDIMENSION>(largeur);
  c.image_height = static_cast<JDIMENSION>(hauteur);
  c.input_components = espace == JCS_GRAYSCALE ? 1 : espace == JCS_CMYK ? 4 : 3;
  c.in_color_space = espace == JCS_GRAYSCALE || espace == JCS_CMYK ? espace : JCS_RGB;
  jpeg_set_defaults(&c);
  jpeg_set_colorspace(&c, espace);
  c.comp_info[0].h_samp_factor = sousH;
  c.comp_info[0].v_samp_factor = sousV;
  c.write_JFIF_header = c.write_Adobe_marker = FALSE;
  jpeg_set_quality(&c, 85, TRUE);
  unsigned char* p = nullptr;
  unsigned long n = 0;
  Jpeg j;
  if (!enLigne) {
    jpeg_mem_dest(&c, &p, &n);
    jpeg_write_tables(&c);
    j.tables.assign(p, p + n);
    std::free(p);
    p = nullptr;
    n = 0;
  }
  jpeg_mem_dest(&c, &p, &n);
  jpeg_start_compress(&c, enLigne ? TRUE : FALSE);
  const size_t ligne = static_cast<size_t>(largeur) * c.input_components;
  while (c.next_scanline < c.image_height) {
    JSAMPROW l = const_cast<unsigned char*>(image.data()) + c.next_scanline * ligne;
    jpeg_write_scanlines(&c, &l, 1);
  }
  jpeg_finish_compress(&c);
  j.flux.assign(p, p + n);
  std::free(p);
  jpeg_destroy_compress(&c);
  return j;
}

// libjpeg's own decode; YCbCr converted to RGB, anything else as stored.
Octets DecodeLibjpeg(const Jpeg& j, bool ycc) {
  jpeg_decompress_struct d;
  jpeg_error_mgr e;
  d.err = jpeg_std_error(&e);
  jpeg_create_decompress(&d);
  if (!j.tables.empty()) {
    jpeg_mem_src(&d, j.tables.data(), j.tables.size());
    jpeg_read_header(&d, FALSE);
  }
  jpeg_mem_src(&d, j.flux.data(), j.flux.size());
  jpeg_read_header(&d, TRUE);
  d.jpeg_color_space = ycc ? JCS_YCbCr : JCS_UNKNOWN;
  d.out_color_space = ycc ? JCS_RGB : JCS_UNKNOWN;
  jpeg_start_decompress(&d);
  const size_t ligne = static_cast<size_t>(d.output_width) * d.output_components;
  Octets o(ligne * d.output_height);
  while (d.output_scanline < d.output_height) {
    JSAMPROW l = o.data() + d.output_scanline * ligne;
    jpeg_read_scanlines(&d, &l, 1);
  }
  jpeg_finish_decompress(&d);
  jpeg_destroy_decompress(&d);
  return o;
}

Octets DecodeNotre(tiff::Decodeur& d, const Jpeg& j, tiff::ContexteBloc b, size_t pas) {
  b.tablesJpeg = j.tables.empty() ? nullptr : &j.tables;
  return test::Decoder(d, j.flux, b, pas);
}

TEST(CodecJpeg, FluxDeLibjpegDecodesCommeLibjpeg) {
  struct Cas {
    const char* nom;
    J_COLOR_SPACE espace;
    int sousH, sousV;
  };
  const std::vector<Cas> cas = {
      {"gris", JCS_GRAYSCALE, 1, 1},    {"RGB", JCS_RGB, 1, 1},           {"YCbCr 1 x 1", JCS_YCbCr, 1, 1},
      {"YCbCr 2 x 1", JCS_YCbCr, 2, 1}, {"YCbCr 2 x 2", JCS_YCbCr, 2, 2}, {"YCbCr 4 x 1", JCS_YCbCr, 4, 1},
      {"YCbCr 4 x 2", JCS_YCbCr, 4, 2}, {"YCbCr 1 x 2", JCS_YCbCr, 1, 2}, {"4 composantes", JCS_CMYK, 1, 1}};
  const auto decodeur = tiff::CreerDecodeurJpeg();
  // Sizes that are not multiples of the MCU, and a block of one row.
  for (const auto& [largeur, hauteur] : {std::pair{37, 21}, std::pair{64, 32}, std::pair{9, 1}})
    for (const Cas& c : cas)
      for (bool enLigne : {false, true}) {
        const int n = c.espace == JCS_GRAYSCALE ? 1 : c.espace == JCS_CMYK ? 4 : 3;
        const tiff::ContexteBloc b = Bloc(largeur, hauteur, n, 8, c.espace == JCS_YCbCr ? 6 : n == 3 ? 2 : 1);
        const Jpeg j =
            Libjpeg(Image(largeur, hauteur, n), largeur, hauteur, c.espace, c.sousH, c.sousV, enLigne);
        const Octets attendu = DecodeLibjpeg(j, c.espace == JCS_YCbCr);
        for (size_t pas : {size_t{0}, static_cast<size_t>(b.OctetsLigne()), size_t{7}, size_t{1000}})
          EXPECT_EQ(DecodeNotre(*decodeur, j, b, pas), attendu)
              << c.nom << " " << largeur << " x " << hauteur << (enLigne ? " tables en ligne" : "") << " pas "
              << pas;
      }
}

// The JPEG markers of a stream: the second byte of each 0xFF xx outside entropy-coded data, up to SOS.
std::string Marqueurs(const Octets& f) {
  std::string m;
  for (size_t i = 0; i + 1 < f.size() && f[i] == 0xFF;) {
    m += std::to_string(f[i + 1]) + " ";
    if (f[i + 1] == 0xD8) {
      i += 2;
      continue;
    }
    if (f[i + 1] == 0xD9 || f[i + 1] == 0xDA || i + 3 >= f.size()) break;
    i += 2 + (f[i + 2] << 8 | f[i + 3]);
  }
  return m;
}

// Mean and largest absolute difference.
std::pair<double, int> Ecarts(const Octets& a, const Octets& b) {
  double somme = 0;
  int max = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    const int e = std::abs(a[i] - b[i]);
    somme += e;
    max = std::max(max, e);
  }
  return {somme / static_cast<double>(a.size()), max};
}

TEST(CodecJpeg, EncodeurAbregeRelu) {
  const auto decodeur = tiff::CreerDecodeurJpeg();
  // Gray, RGB and YCbCr 4:2:0 blocks; widths and heights not multiples of the 16-pixel MCU.
  for (int photometrique : {1, 2, 6}) {
    const int n = photometrique == 1 ? 1 : 3;
    tiff::ContexteBloc b = Bloc(45, 27, n, 8, photometrique);
    const Octets image = Image(45, 27, n);
    const auto encodeur = tiff::CreerEncodeurJpeg(0, 90);
    Jpeg j;
    j.tables = tiff::TablesJpeg(b, 90);
    encodeur->Encoder(image.data(), b, j.flux);
    // SOI, the quantization and Huffman tables, EOI; the block: SOI, SOF0, SOS without tables.
    EXPECT_EQ(Marqueurs(j.tables), "216 219 219 196 196 196 196 217 ");
    EXPECT_EQ(Marqueurs(j.flux), "216 192 218 ");
    const Octets lu = DecodeNotre(*decodeur, j, b, 0);
    EXPECT_EQ(lu, DecodeLibjpeg(j, photometrique == 6));
    const auto [moyen, max] = Ecarts(lu, image);
    EXPECT_LT(moyen, 2.0) << photometrique;
    EXPECT_LT(max, photometrique == 6 ? 40 : 16) << photometrique;
  }
  // Quality 0 means 75: the same tables.
  EXPECT_EQ(tiff::TablesJpeg(Bloc(8, 8), 0), tiff::TablesJpeg(Bloc(8, 8), 75));
  EXPECT_NE(tiff::TablesJpeg(Bloc(8, 8), 10), tiff::TablesJpeg(Bloc(8, 8), 75));
}

TEST(CodecJpeg, EncodeurReluParLibtiff) {
  // An RGB image as YCbCr 4:2:0 in strips of 16 rows (the last one of 7), the tables in JPEGTables:
  // libtiff's RGB decode of every strip is ours.
  const int largeur = 50, hauteur = 39;
  const Octets image = Image(largeur, hauteur, 3);
  const auto encodeur = tiff::CreerEncodeurJpeg(0, 80);
  const auto decodeur = tiff::CreerDecodeurJpeg();
  tiff::ContexteBloc b = Bloc(largeur, 16, 3, 8, 6);
  const Octets tables = tiff::TablesJpeg(b, 80);
  std::string pixels;
  std::vector<uint32_t> offsets, octets;
  Octets notre;
  for (int y = 0; y < hauteur; y += 16) {
    b.hauteur = std::min(16, hauteur - y);
    Octets flux;
    encodeur->Encoder(image.data() + static_cast<size_t>(y) * largeur * 3, b, flux);
    offsets.push_back(static_cast<uint32_t>(8 + pixels.size()));
    octets.push_back(static_cast<uint32_t>(flux.size()));
    pixels.append(flux.begin(), flux.end());
    b.tablesJpeg = &tables;
    const Octets bande = test::Decoder(*decodeur, flux, b, static_cast<size_t>(b.OctetsLigne()));
    notre.insert(notre.end(), bande.begin(), bande.end());
  }
  test::DossierTemp dir;
  test::TiffSimple(largeur, hauteur, 3, pixels)
      .Court(259, {7})
      .Court(262, {6})
      .Long(273, offsets)
      .Long(278, {16})
      .Long(279, octets)
      .Brut(347, 7, static_cast<uint32_t>(tables.size()), std::string(tables.begin(), tables.end()))
      .Court(530, {2, 2})
      .Ecrire(dir / "j.tif");
  EXPECT_EQ(test::Tiffinfo(dir, "j.tif"), "");
  ASSERT_EQ(test::Tiffcp(dir, "-c none", "j.tif", "rgb.tif"), "");
  const TTImage<unsigned char> libtiff((dir / "rgb.tif").c_str());
  ASSERT_EQ(libtiff.GetNbCanaux(), 3);
  EXPECT_EQ(Octets(libtiff.GetLines(0), libtiff.GetLines(0) + notre.size()), notre);
  EXPECT_LT(Ecarts(notre, image).first, 4.0);
}

TEST(CodecJpeg, FluxHostiles) {
  const Octets image = Image(16, 16, 3), gris = Image(16, 16, 1);
  const Jpeg bon = Libjpeg(image, 16, 16, JCS_YCbCr, 2, 2, false);
  const tiff::ContexteBloc b = Bloc(16, 16, 3, 8, 6);
  Jpeg coupe = bon, vide = bon, reprise = bon, sansTables = bon;
  coupe.flux.resize(coupe.flux.size() * 2 / 3);
  vide.flux.clear();
  sansTables.tables.clear();
  // A restart marker in the middle of the entropy-coded data, where none is expected.
  reprise.flux.insert(reprise.flux.end() - 20, {0xFF, 0xD3});
  struct Cas {
    const char* nom;
    Jpeg jpeg;
    tiff::ContexteBloc bloc;
    const char* attendu;
  };
  const std::vector<Cas> cas = {
      {"plus court que le bloc", bon, Bloc(16, 17, 3, 8, 6),
       "Image JPEG de 16 x 16 pixels de 3 composante(s) dans un bloc de 16 x 17 pixels de 3 echantillon(s) "
       "du fichier bloc.tif."},
      {"plus etroit que le bloc", bon, Bloc(17, 16, 3, 8, 6), "Image JPEG de 16 x 16 pixels"},
      {"plus large que le bloc", bon, Bloc(15, 16, 3, 8, 6), "dans un bloc de 15 x 16 pixels"},
      {"gris dans un bloc RGB", Libjpeg(gris, 16, 16, JCS_GRAYSCALE, 1, 1, false), b,
       "de 1 composante(s) dans un bloc de 16 x 16 pixels de 3"},
      {"16 bits", bon, Bloc(16, 16, 3, 16, 6),
       "JPEG : blocs de 16 x 16 pixels de 3 echantillon(s) de 16 bits non geres"},
      {"5 echantillons", bon, Bloc(16, 16, 5, 8, 2),
       "5 echantillon(s) de 8 bits non geres (8 bits, 1 a 4 echantillons)"},
      {"vide", vide, b, "Flux JPEG invalide dans un bloc du fichier bloc.tif : "},
      {"sans tables", sansTables, b, "Flux JPEG invalide dans un bloc du fichier bloc.tif : "},
      {"coupe", coupe, b,
       "Flux JPEG invalide dans un bloc du fichier bloc.tif : Premature end of JPEG file."},
      {"marqueur inattendu", reprise, b,
       "Flux JPEG invalide dans un bloc du fichier bloc.tif : Corrupt JPEG data"},
  };
  const auto decodeur = tiff::CreerDecodeurJpeg();
  for (const Cas& c : cas) {
    SCOPED_TRACE(c.nom);
    test::Refuse([&] { DecodeNotre(*decodeur, c.jpeg, c.bloc, 16 * 3); }, "[DecodeurJpeg] (", {c.attendu});
    // The decoder is left usable for the next block.
    EXPECT_EQ(DecodeNotre(*decodeur, bon, b, 0), DecodeLibjpeg(bon, true));
  }
  Octets sortie;
  test::Refuse([&] { tiff::CreerEncodeurJpeg(0, 75)->Encoder(Octets(64).data(), Bloc(4, 4, 2), sortie); },
               "[EncodeurJpeg] (Encoder) JPEG : blocs de 4 x 4 pixels de 2 echantillon(s) de 8 bits non "
               "geres (8 bits, 1 ou 3 "
               "echantillons)");
}

}  // namespace
