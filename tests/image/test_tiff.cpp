// TIFF reading and writing: round trips through our writer, files made by libtiff's tiffcp read
// sample by sample, the directory we write checked byte by byte, and the reader's decisions.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>

#include "image/handlers.h"
#include "image/tiff_annexes.h"
#include "tiff_outils_test.h"
#include "zepra/imagefic.h"
#include "zepra/systeme.h"
#include "zepra/ttimage.h"

namespace {

using test::Avertissements;
using test::Commence;
using test::TexteErreur;

// Values that use every byte of the sample, negative ones included, so that byte order and sign
// faults show.
template <class T>
T Motif(int x, int y, int c) {
  if constexpr (std::is_same_v<T, bool>) {
    return ((x * 3 + y * 5 + c) % 7) < 3;
  } else if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(x * 0.375 - y * 1.5e3 + c * 1.0e6 + 0.1);
  } else {
    return static_cast<T>(static_cast<uint64_t>(x) * 2654435761u +
                          static_cast<uint64_t>(y) * 40503u * 65537u + static_cast<uint64_t>(c) * 97u);
  }
}

template <class T>
TTImage<T> ImageMotif(int colonnes, int lignes, int canaux) {
  TTImage<T> im(colonnes, lignes, TagNbCanaux(canaux));
  for (int y = 0; y < lignes; ++y)
    for (int x = 0; x < colonnes; ++x)
      for (int c = 0; c < canaux; ++c) im(x, y, c) = Motif<T>(x, y, c);
  return im;
}

// Every sample of two images; the first difference is reported with its place.
template <class A, class B>
::testing::AssertionResult MemesEchantillons(const TTImage<A>& a, const TTImage<B>& b) {
  if (a.GetTaille() != b.GetTaille() || a.GetNbCanaux() != b.GetNbCanaux())
    return ::testing::AssertionFailure() << "have " << b.GetTaille() << " x " << b.GetNbCanaux() << " / want "
                                         << a.GetTaille() << " x " << a.GetNbCanaux();
  for (int y = 0; y < a.iGetNbLignes(); ++y)
    for (int x = 0; x < a.iGetNbColonnes(); ++x)
      for (int c = 0; c < a.GetNbCanaux(); ++c)
        if (Convertir<B, A>(a(x, y, c)) != b(x, y, c))
          return ::testing::AssertionFailure() << "(" << x << ", " << y << ", " << c << ") have "
                                               << +b(x, y, c) << " / want " << +a(x, y, c);
  return ::testing::AssertionSuccess();
}

std::string Tiffcp(const test::DossierTemp& dir, const std::string& options, const std::string& de,
                   const std::string& vers) {
  const test::Resultat r = test::Lancer(dir.chemin(), "tiffcp " + options + " " + de + " " + vers);
  return r.statut == 0 ? r.sortie : "tiffcp " + options + " : " + r.sortie;
}

template <class T>
class TiffTypes : public ::testing::Test {};
using NeufTypes = ::testing::Types<bool, unsigned char, signed char, unsigned short, short, unsigned int, int,
                                   float, double>;
TYPED_TEST_SUITE(TiffTypes, NeufTypes);

TYPED_TEST(TiffTypes, AllerRetourParNotreEcrivainEtParLibtiff) {
  using T = TypeParam;
  test::DossierTemp dir;
  for (int canaux : {1, 3, 4}) {
    SCOPED_TRACE(canaux);
    const TTImage<T> image = ImageMotif<T>(23, 17, canaux);
    image.Sauver((dir / "a.tif").c_str());
    EXPECT_EQ(test::LancerErreurs(dir.chemin(), "tiffinfo a.tif").sortie, "");
    const ImageFicIn fichier((dir / "a.tif").c_str());
    EXPECT_EQ(fichier.TypePixel(), (std::is_same_v<T, bool> ? eBit1 : CodeType<T>::value));
    TTImage<T> lu;
    lu.Lire((dir / "a.tif").c_str());
    EXPECT_TRUE(MemesEchantillons(image, lu));
    // libtiff's own LZW encoder and big-endian writer, read back by us.
    ASSERT_EQ(Tiffcp(dir, "-B -c lzw -r 5", "a.tif", "b.tif"), "");
    TTImage<T> lzw;
    lzw.Lire((dir / "b.tif").c_str());
    EXPECT_TRUE(MemesEchantillons(image, lzw));
  }
}

// Files laid out by libtiff in every way we read, each compared sample by sample with the image
// they came from, whole and through a stepped crop that starts inside a block.
template <class T>
void VerifieVariantes(int canaux, bool predicteur) {
  SCOPED_TRACE(std::string(typeid(T).name()) + " x " + std::to_string(canaux));
  test::DossierTemp dir;
  const TTImage<T> image = ImageMotif<T>(37, 29, canaux);
  image.Sauver((dir / "source.tif").c_str());
  std::vector<std::string> variantes = {"-c none",
                                        "-c lzw",
                                        "-c packbits",
                                        "-c lzw -r 4",
                                        "-c packbits -r 3",
                                        "-r 1",
                                        "-t -w 16 -l 16",
                                        "-t -w 32 -l 16 -c lzw",
                                        "-t -w 16 -l 48 -c packbits",
                                        "-B",
                                        "-B -t -w 16 -l 16 -c packbits",
                                        "-L -c lzw -r 7"};
  if (predicteur) variantes.push_back("-c lzw:2 -r 6");
  for (const std::string& v : variantes) {
    SCOPED_TRACE(v);
    ASSERT_EQ(Tiffcp(dir, v, "source.tif", "v.tif"), "");
    TTImage<T> lu;
    lu.Lire((dir / "v.tif").c_str());
    EXPECT_TRUE(MemesEchantillons(image, lu));
    const ImageFicIn fichier((dir / "v.tif").c_str());
    TTImage<double> crop, attendu;
    crop.Crop(fichier, 3, 5, 31, 22, 3);
    attendu.Crop(image, 3, 5, 31, 22, 3);
    EXPECT_TRUE(MemesEchantillons(attendu, crop));
    // Band after band, as the band copies read, then back to the top.
    TTImage<T> bandes(37, 29, TagNbCanaux(canaux));
    for (int y0 = 0; y0 < 29; y0 += 4)
      fichier.GetValeurs(bandes.GetLines(), 0, y0, 37, std::min(29, y0 + 4), 0, y0, 1);
    EXPECT_TRUE(MemesEchantillons(image, bandes));
    TTImage<T> haut(37, 3, TagNbCanaux(canaux)), hautAttendu;
    fichier.GetValeurs(haut.GetLines(), 0, 0, 37, 3, 0, 0, 1);
    hautAttendu.Crop(image, 0, 0, 37, 3);
    EXPECT_TRUE(MemesEchantillons(hautAttendu, haut));
    std::remove((dir / "v.tif").c_str());
  }
}

TEST(TiffLibtiff, VariantesDeTiffcpLuesEchantillonParEchantillon) {
  VerifieVariantes<unsigned char>(1, true);
  VerifieVariantes<unsigned short>(3, true);
  VerifieVariantes<short>(1, true);
  VerifieVariantes<float>(4, true);
  VerifieVariantes<double>(1, true);
  VerifieVariantes<int>(3, true);
  VerifieVariantes<bool>(1, false);
  VerifieVariantes<bool>(3, false);
}

TEST(TiffLibtiff, PaletteEtFichierADeuxImages) {
  test::DossierTemp dir;
  // 5 x 3 indices; colour i is (i, 255 - i, 2i) scaled to 16 bits as the standard wants.
  std::string indices;
  for (int i = 0; i < 15; ++i) indices += static_cast<char>(i * 17);
  std::vector<uint32_t> carte;
  for (int plan = 0; plan < 3; ++plan)
    for (int i = 0; i < 256; ++i)
      carte.push_back((plan == 0 ? i : plan == 1 ? 255 - i : (2 * i) & 255) * 257u);
  test::TiffSimple(5, 3, 1, 8, 1, indices).Court(262, {3}).Court(320, carte).Ecrire(dir / "p.tif");
  EXPECT_EQ(test::LancerErreurs(dir.chemin(), "tiffinfo p.tif").sortie, "");
  ASSERT_EQ(Tiffcp(dir, "-c lzw -r 2", "p.tif", "plzw.tif"), "");
  for (const char* nom : {"p.tif", "plzw.tif"}) {
    SCOPED_TRACE(nom);
    TTImage<unsigned char> lu;
    lu.Lire((dir / nom).c_str());
    ASSERT_EQ(lu.GetNbCanaux(), 3);
    EXPECT_EQ(ImageFicIn((dir / nom).c_str()).TypePixel(), eUInt1);
    for (int i = 0; i < 15; ++i) {
      const int v = i * 17;
      EXPECT_EQ(lu(i % 5, i / 5, 0), v);
      EXPECT_EQ(lu(i % 5, i / 5, 1), 255 - v);
      EXPECT_EQ(lu(i % 5, i / 5, 2), (2 * v) & 255);
    }
  }
  // A map written unscaled (no value above 255) is taken as 8-bit.
  for (uint32_t& v : carte) v /= 257;
  test::TiffSimple(5, 3, 1, 8, 1, indices).Court(262, {3}).Court(320, carte).Ecrire(dir / "p8.tif");
  TTImage<unsigned char> p8;
  p8.Lire((dir / "p8.tif").c_str());
  EXPECT_EQ(p8(2, 1, 1), 255 - 7 * 17);
  // A tiled palette file is not expanded: the indices are read as they stand, with a warning.
  ASSERT_EQ(Tiffcp(dir, "-t -w 16 -l 16", "p.tif", "ptuiles.tif"), "");
  TTImage<unsigned char> indicesLus;
  const std::string w = Avertissements([&] { indicesLus.Lire((dir / "ptuiles.tif").c_str()); });
  EXPECT_NE(w.find("WARNING : [TIFF_Annexes] (GetImage) PHOTOMETRICINTERPRETATION de valeur non geree : "
                   "utilisation de black is zero !!!\n"),
            std::string::npos)
      << w;
  EXPECT_EQ(indicesLus.GetNbCanaux(), 1);
  EXPECT_EQ(indicesLus(3, 2), 13 * 17);

  // Two images in one file: the first is read, with one warning.
  ImageMotif<unsigned short>(9, 4, 1).Sauver((dir / "un.tif").c_str());
  ImageMotif<unsigned short>(3, 2, 3).Sauver((dir / "deux.tif").c_str());
  ASSERT_EQ(Tiffcp(dir, "-c lzw", "un.tif deux.tif", "deux_images.tif"), "");
  TTImage<unsigned short> premiere;
  const std::string w2 = Avertissements([&] { premiere.Lire((dir / "deux_images.tif").c_str()); });
  EXPECT_EQ(w2,
            "WARNING : [TIFF_Annexes] (LireEntete) Il y a plus d'une image dans le fichier. Traitement de la "
            "premiere image seulement !\n");
  EXPECT_TRUE(MemesEchantillons(ImageMotif<unsigned short>(9, 4, 1), premiere));
}

// Reads a little-endian number of the written file.
uint32_t Nombre(const std::string& f, size_t offset, int octets) {
  uint32_t v = 0;
  for (int i = octets - 1; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(f[offset + i]);
  return v;
}

TEST(TiffEcriture, RepertoireOctetParOctet) {
  test::DossierTemp dir;
  TTImage<unsigned char>(100, 50, TagNbCanaux(3)).Sauver((dir / "rvb.tif").c_str());
  const std::string f = test::LireFichier(dir / "rvb.tif");
  ASSERT_GE(f.size(), 202u);
  EXPECT_EQ(f.substr(0, 8), std::string("II\x2a\0\x08\0\0\0", 8));
  const int n = 13;  // no ExtraSamples under four channels
  EXPECT_EQ(Nombre(f, 8, 2), 13u);
  const int donnees = 12 * n + 18;  // header 8, count 2, entries, next offset 4 and four zero bytes
  // tag, type, count, value or offset
  const uint32_t attendu[n][4] = {{256, 4, 1, 100},
                                  {257, 4, 1, 50},
                                  {258, 3, 3, donnees},
                                  {259, 3, 1, 1},
                                  {262, 3, 1, 2},
                                  {273, 4, 1, donnees + 28},
                                  {277, 3, 1, 3},
                                  {278, 4, 1, 50},
                                  {279, 4, 1, 15000},
                                  {282, 5, 1, donnees + 6},
                                  {283, 5, 1, donnees + 14},
                                  {296, 3, 1, 2},
                                  {339, 3, 3, donnees + 22}};
  for (int e = 0; e < n; ++e) {
    SCOPED_TRACE(attendu[e][0]);
    EXPECT_EQ(Nombre(f, 10 + 12 * e, 2), attendu[e][0]);
    EXPECT_EQ(Nombre(f, 12 + 12 * e, 2), attendu[e][1]);
    EXPECT_EQ(Nombre(f, 14 + 12 * e, 4), attendu[e][2]);
    EXPECT_EQ(Nombre(f, 18 + 12 * e, 4), attendu[e][3]);
  }
  EXPECT_EQ(f.substr(10 + 12 * n, 8), std::string(8, '\0'));
  const uint16_t horsLigne[] = {8, 8, 8, 72, 0, 1, 0, 72, 0, 1, 0, 1, 1, 1};
  for (int i = 0; i < 14; ++i) EXPECT_EQ(Nombre(f, donnees + 2 * i, 2), horsLigne[i]) << i;
  EXPECT_EQ(f.size(), static_cast<size_t>(donnees + 28 + 15000));

  // bool: one bit per sample, 10 bits a line padded to 16.
  TTImage<bool> b(10, 2, TagNbCanaux(1));
  b(0, 0) = true;
  b(9, 1) = true;
  b.Sauver((dir / "b.tif").c_str());
  const std::string fb = test::LireFichier(dir / "b.tif");
  EXPECT_EQ(Nombre(fb, 10 + 12 * 2, 2), 258u);
  EXPECT_EQ(Nombre(fb, 18 + 12 * 2, 2), 1u);  // BitsPerSample 1, in place
  EXPECT_EQ(Nombre(fb, 10 + 12 * 8, 2), 279u);
  EXPECT_EQ(Nombre(fb, 18 + 12 * 8, 4), 4u);
  EXPECT_EQ(fb.substr(fb.size() - 4), std::string("\x80\0\0\x40", 4));

  // Four float channels: ExtraSamples 0 once, SampleFormat 3 four times.
  TTImage<float>(3, 2, TagNbCanaux(4)).Sauver((dir / "f.tif").c_str());
  const std::string ff = test::LireFichier(dir / "f.tif");
  ASSERT_EQ(Nombre(ff, 8, 2), 14u);
  EXPECT_EQ(Nombre(ff, 10 + 12 * 12, 2), 338u);
  EXPECT_EQ(Nombre(ff, 14 + 12 * 12, 4), 1u);
  EXPECT_EQ(Nombre(ff, 18 + 12 * 12, 4), 0u);
  const uint32_t formats = Nombre(ff, 18 + 12 * 13, 4);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Nombre(ff, formats + 2 * i, 2), 3u);
}

TEST(TiffEcriture, FichierCompletOuAbsent) {
  test::DossierTemp dir;
  // Bands written in any order and a rectangle inside: lines never written stay zero.
  const TTImage<short> image = ImageMotif<short>(11, 9, 2);
  {
    ImageFicOut sortie((dir / "bandes.tif").c_str(), OptionsImageOut::defaut());
    sortie.SetTypePixel(eInt2);
    sortie.SetNbCanaux(TagNbCanaux(2));
    sortie.SetTaille(11, 9);
    sortie.SetValeurs(image.GetLines(), 0, 4, 11, 8, 0, 4, 1);
    sortie.SetValeurs(image.GetLines(), 0, 0, 11, 4, 0, 0, 1);
    EXPECT_FALSE(Systeme::ExisteFichier((dir / "bandes.tif").c_str()));
    EXPECT_TRUE(Commence(TexteErreur([&] { sortie.SetValeurs(image.GetLines(), 0, 0, 11, 2, 0, 8, 1); }),
                         "[ImageFicOut_Raster] (SetValeurs) 11 x 2 pixels en (0, 8) impossibles"));
    sortie.Fermer();
  }
  TTImage<short> lu;
  lu.Lire((dir / "bandes.tif").c_str());
  TTImage<short> attendu = image;
  for (int x = 0; x < 11; ++x)
    for (int c = 0; c < 2; ++c) attendu(x, 8, c) = 0;
  EXPECT_TRUE(MemesEchantillons(attendu, lu));

  // A writer dropped before the end leaves nothing behind.
  {
    ImageFicOut sortie((dir / "abandon.tif").c_str(), OptionsImageOut::defaut());
    sortie.SetTaille(4, 4);
  }
  EXPECT_EQ(test::Lancer(dir.chemin(), "ls").sortie, "bandes.tif\n");

  EXPECT_TRUE(
      Commence(TexteErreur([&] { ImageMotif<float>(2, 2, 1).Sauver((dir / "absent/x.tif").c_str()); }),
               "[ImageFicOut_Raster] (Constructeur) Impossible de creer le fichier "));
  ImageInfos infos;
  infos.taille = TPoint2D<int>(2, 2);
  infos.type = eChar;
  EXPECT_TRUE(Commence(
      TexteErreur([&] { CreateWriter_TIFF(dir / "c.tif", infos); }),
      "Handler_TIFF::CreateWriter Type non gere. (Fichier : ../src/image/tiff_ecriture.cpp ; ligne "));
  infos.type = eFloat4;
  infos.taille = TPoint2D<int>(0, 5);
  EXPECT_TRUE(Commence(TexteErreur([&] { CreateWriter_TIFF(dir / "c.tif", infos); }),
                       "[TIFF_Annexes] (SetImage) Taille (0 x 5 x 1 canaux) impossible"));
  infos.taille = TPoint2D<int>(40000, 40000);
  EXPECT_TRUE(Commence(TexteErreur([&] { CreateWriter_TIFF(dir / "c.tif", infos); }),
                       "[TIFF_Annexes] (SetImage) Image de 6400000000 octets trop grande"));
  tiff::TIFF_Annexes annexes;
  EXPECT_TRUE(Commence(TexteErreur([&] { annexes.SetImage(TPoint2D<int>(1, 1), 1, eAutre); }),
                       "[TIFF_Annexes] (SetImage) NomType : cas imprevu."));
  std::ostringstream flux;
  EXPECT_TRUE(
      Commence(TexteErreur([&] { annexes.EcrireEntete(flux, "x.tif"); }),
               "[TIFF_Annexes] (EcrireEntete) Tag STRIPOFFSETS non present en ecriture : Erreur interne."));
}

TEST(TiffLecture, BitsOrdreDesOctetsEtValeursEnPlaceOuParOffset) {
  test::DossierTemp dir;
  // 1-bit samples are type Bit1, unpacked to any element type through the typed copy.
  TTImage<bool> b = ImageMotif<bool>(13, 3, 1);
  b.Sauver((dir / "b.tif").c_str());
  TTImage<float> f;
  f.Lire((dir / "b.tif").c_str());
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 13; ++x) EXPECT_EQ(f(x, y), b(x, y) ? 1.0f : 0.0f);

  // A big-endian file written by hand: two 16-bit samples, 0x0102 and 0xA0B0.
  const std::string pixels("\x01\x02\xA0\xB0", 4);
  test::TiffSimple(2, 1, 1, 16, 1, pixels, true).Ecrire(dir / "mm.tif");
  const ImageFicIn mm((dir / "mm.tif").c_str());
  EXPECT_EQ(mm.TypePixel(), eUInt2);
  TTImage<unsigned short> s;
  s.Lire((dir / "mm.tif").c_str());
  EXPECT_EQ(s(0, 0), 0x0102);
  EXPECT_EQ(s(1, 0), 0xA0B0);

  // Two SHORTs (4 bytes) stay in the entry; five ASCII bytes go through an offset.
  test::TiffSimple(1, 1, 2, 8, 1, std::string("\x07\x09", 2))
      .Brut(270, 2, 5, std::string("abcd\0", 5))
      .Ecrire(dir / "v.tif");
  tiff::TIFF_Annexes annexes(dir / "v.tif");
  annexes.LireEntete();
  EXPECT_EQ(annexes.Tags().at(258).values, (std::vector<unsigned char>{8, 0, 8, 0}));
  EXPECT_EQ(annexes.Tags().at(270).values, (std::vector<unsigned char>{'a', 'b', 'c', 'd', 0}));
  TTImage<unsigned char> deux;
  deux.Lire((dir / "v.tif").c_str());
  EXPECT_EQ(deux(0, 0, 1), 9);

  // The registry finds a TIFF file whatever its name; other files are left to other readers.
  ImageMotif<int>(3, 3, 1).Sauver((dir / "x.tif").c_str());
  std::rename((dir / "x.tif").c_str(), (dir / "x.img").c_str());
  EXPECT_EQ(ImageFicIn((dir / "x.img").c_str()).TypePixel(), eInt4);
  std::rename((dir / "x.img").c_str(), (dir / "photo.TIF").c_str());
  EXPECT_EQ(ImageFicIn((dir / "photo.TIF").c_str()).GetTaille(), TPoint2D<int>(3, 3));
  std::ofstream(dir / "pas_tiff.tif") << "P5 1 1 255\n";
  EXPECT_EQ(CreateReader_TIFF(dir / "pas_tiff.tif"), nullptr);
  EXPECT_EQ(CreateReader_TIFF(dir / "absent.tif"), nullptr);
  std::ofstream(dir / "ii43.tif", std::ios::binary) << std::string("II\x2b\0\x08\0\0\0", 8);
  EXPECT_EQ(CreateReader_TIFF(dir / "ii43.tif"), nullptr);
  tiff::TIFF_Annexes ii43(dir / "ii43.tif");
  EXPECT_TRUE(Commence(TexteErreur([&] { ii43.LireEntete(); }),
                       "[ImageFicIn] (LireEntete) Magic Number non reconnu (ficher : " + (dir / "ii43.tif") +
                           " (Fichier : ../src/image/tiff_annexes.cpp ; ligne "));
}

// A file made from the simple one by f fails to open with the given message.
template <class F>
std::string ErreurOuverture(F&& f) {
  test::DossierTemp dir;
  test::TiffTest t = test::TiffSimple(4, 4, 1, 8, 1, std::string(16, '\x05'));
  f(t);
  t.Ecrire(dir / "t.tif");
  return TexteErreur([&] { ImageFicIn((dir / "t.tif").c_str()); });
}

TEST(TiffLecture, DecisionsEtMessages) {
  const std::string g = "[TIFF_Annexes] (GetImage) ";
  struct Cas {
    std::function<void(test::TiffTest&)> f;
    std::string message;
  };
  const std::vector<uint32_t> carte(768, 0);
  const std::vector<Cas> cas = {
      {[](auto& t) { t.Retirer(262); }, g + "TIFF_TAG_PHOTOMETRICINTERPRETATION pas trouve !"},
      {[](auto& t) { t.Retirer(256); }, g + "TIFF_TAG_IMAGEWIDTH non trouve !"},
      {[](auto& t) { t.Retirer(257); }, g + "TIFF_TAG_IMAGELENGTH non trouve !"},
      {[](auto& t) { t.Retirer(258); }, g + "TIFF_TAG_BITSPERSAMPLE non trouve"},
      {[](auto& t) {
         t.Court(258, {8, 16}).Court(277, {2});
       },
       g + "TIFF_TAG_BITSPERSAMPLE : Tous les canaux n'ont pas le meme nombre de bits par pixel"},
      {[](auto& t) {
         t.Court(339, {1, 2});
       },
       g + "TIFF_TAG_SAMPLEFORMAT : Tous les canaux n'ont pas le meme format par pixel"},
      {[](auto& t) { t.Retirer(259); }, g + "TIFF_TAG_COMPRESSION non trouve !"},
      {[](auto& t) { t.Court(258, {64}); },
       "[TIFF_Annexes] (Image) taille pixel (64) non prevue pour format unsigned."},
      {[](auto& t) { t.Court(258, {12}).Court(339, {2}); },
       "[TIFF_Annexes] (Image) taille pixel (12) non prevue pour format signed."},
      {[](auto& t) { t.Court(258, {16}).Court(339, {3}); },
       g + "taille pixel (16) non prevue pour format IEEE Floating."},
      {[](auto& t) { t.Court(339, {5}); }, g + "sampleformat (5) non prevu."},
      {[](auto& t) { t.Retirer(273); }, g + "Image ni en Strip, ni en Tile !!!"},
      {[](auto& t) { t.Long(322, {16}); }, g + "Image a la fois en Strip, et en Tile !!!"},
      {[](auto& t) { t.Retirer(273).Long(322, {16}); }, g + "TIFF_TAG_TILELENGTH non trouve !"},
      {[](auto& t) { t.Retirer(273).Long(322, {16}).Long(323, {16}); },
       g + "TIFF_TAG_TILEOFFSETS non trouve !"},
      {[](auto& t) { t.Retirer(273).Long(322, {16}).Long(323, {16}).Long(324, {8}); },
       g + "TIFF_TAG_TILEBYTECOUNTS non trouve !"},
      {[](auto& t) {
         t.Retirer(273).Long(256, {20}).Long(322, {16}).Long(323, {16}).Long(324, {8}).Long(325, {9});
       },
       g + "nombre de TILEOFFSETS != TilesPerImage."},
      {[](auto& t) {
         t.Retirer(273).Long(256, {20}).Long(322, {16}).Long(323, {16}).Long(324, {8, 8}).Long(325, {9});
       },
       g + "nombre de TILEBYTECOUNTS != TilesPerImage."},
      {[](auto& t) { t.Retirer(278); }, g + "TIFF_TAG_ROWSPERSTRIP non trouve !"},
      {[](auto& t) { t.Retirer(279); }, g + "TIFF_TAG_STRIPBYTECOUNTS non trouve."},
      {[&](auto& t) { t.Court(262, {3}).Court(258, {16}).Court(320, carte); },
       g + "bitspersample != 4 ou 8 !"},
      {[](auto& t) { t.Court(262, {3}); }, g + "TIFF_TAG_COLORMAP non trouve !"},
      {[](auto& t) { t.Court(262, {3}).Court(320, std::vector<uint32_t>(767, 0)); },
       g + "Dans COLORMAP, count pas conforme a bitspersample"},
      {[](auto& t) { t.Court(262, {5}); }, g + "PHOTOMETRICINTERPRETATION de valeur inconnue..."},
      {[](auto& t) { t.Long(40000, {2}); }, g + "Dallage MPD : il manque un des deux TAGs propriétaire !!!"},
      {[](auto& t) { t.Brut(300, 13, 1, "abcd"); },
       "[TIFF_Annexes] (Permut) Type de directory (13) non gere !!!"},
  };
  for (const Cas& c : cas) {
    const std::string texte = ErreurOuverture(c.f);
    EXPECT_TRUE(Commence(texte, c.message + " (Fichier : ../src/image/tiff_annexes.cpp ; ligne ")) << texte;
  }

  // Warnings: reading goes on.
  auto avertit = [](std::function<void(test::TiffTest&)> f) {
    test::DossierTemp dir;
    test::TiffTest t = test::TiffSimple(4, 4, 1, 8, 1, std::string(16, '\x05'));
    f(t);
    t.Ecrire(dir / "t.tif");
    std::string w;
    const std::string e =
        TexteErreur([&] { w = Avertissements([&] { ImageFicIn((dir / "t.tif").c_str()); }); });
    return e == "(pas d'Erreur)" ? w : e;
  };
  EXPECT_EQ(avertit([](auto& t) { t.Court(284, {2}); }),
            "WARNING : [TIFF_Annexes] (GetImage) TIFF_TAG_PLANARCONFIGURATION 2 : valeur pas encore gere.\n");
  EXPECT_EQ(avertit([](auto& t) { t.Court(284, {7}); }),
            "WARNING : [TIFF_Annexes] (GetImage) TIFF_TAG_PLANARCONFIGURATION 7 : valeur impossible.\n");
  EXPECT_EQ(avertit([](auto& t) { t.Retirer(277); }),
            "WARNING : [TIFF_Annexes] (GetImage) Samples per pixel non trouve. On suppose 1.\n");
  EXPECT_EQ(avertit([](auto& t) { t.Court(259, {7}); }),
            "WARNING : [TIFF_Annexes] (GetImage) Compression (7) : non geree\n");
  EXPECT_EQ(avertit([](auto& t) { t.Court(262, {0}); }),
            "WARNING : [TIFF_Annexes] (GetImage) White is zero pas gere !\n");
  EXPECT_EQ(
      avertit([](auto& t) {
        // One tile of 16 x 1 over a 16 x 1 image.
        t.Court(262, {0}).Retirer(273).Retirer(278).Retirer(279).Long(256, {16}).Long(257, {1});
        t.Long(322, {16}).Long(323, {1}).Long(324, {8}).Long(325, {16});
      }),
      "WARNING : [TIFF_Annexes] (GetImage) White is zero pas gere : utilisation de black is zero !!!\n");

  // What cannot be decoded opens (with its warning) but refuses to deliver pixels.
  test::DossierTemp dir;
  test::TiffSimple(4, 4, 1, 8, 1, std::string(16, '\x05')).Court(259, {7}).Ecrire(dir / "jpeg.tif");
  TTImage<unsigned char> im;
  EXPECT_TRUE(Commence(TexteErreur([&] { im.Lire((dir / "jpeg.tif").c_str()); }),
                       "[ImageFicIn_Raster] (GetValeurs) Compression (7) non geree : pixels du fichier "));
}

TEST(TiffLecture, DallageMPD) {
  test::DossierTemp dir;
  // Tiles of 7 and 5 columns, 4 and 6 lines, in different layouts: the whole reads as one image.
  const TTImage<unsigned short> image = ImageMotif<unsigned short>(12, 10, 3);
  const int xs[] = {0, 7, 12}, ys[] = {0, 4, 10};
  for (int j = 0; j < 2; ++j)
    for (int i = 0; i < 2; ++i) {
      TTImage<unsigned short> dalle;
      dalle.Crop(image, xs[i], ys[j], xs[i + 1] - xs[i], ys[j + 1] - ys[j]);
      const std::string nom = "mpd_Tile_" + std::to_string(i) + "_" + std::to_string(j) + ".tif";
      dalle.Sauver((dir / nom).c_str());
      if (i == 1 && j == 1) {
        ASSERT_EQ(Tiffcp(dir, "-c lzw -t -w 16 -l 16", nom, "t.tif && mv t.tif " + nom), "");
      }
    }
  test::TiffTest principal;
  principal.Long(256, {12}).Long(257, {10}).Court(258, {16, 16, 16}).Court(259, {1}).Court(262, {2});
  principal.Court(277, {3}).Long(40000, {2}).Long(40001, {2});
  principal.Ecrire(dir / "mpd.tif");
  TTImage<unsigned short> lu;
  lu.Lire((dir / "mpd.tif").c_str());
  EXPECT_TRUE(MemesEchantillons(image, lu));
  TTImage<int> crop, attendu;
  crop.Crop(ImageFicIn((dir / "mpd.tif").c_str()), 2, 1, 9, 8, 2);
  attendu.Crop(image, 2, 1, 9, 8, 2);
  EXPECT_TRUE(MemesEchantillons(attendu, crop));

  std::remove((dir / "mpd_Tile_1_0.tif").c_str());
  EXPECT_EQ(TexteErreur([&] { ImageFicIn((dir / "mpd.tif").c_str()); })
                .find("[TIFF_Annexes] (GetImage) Dallage MPD : le fichier " + (dir / "mpd_Tile_1_0.tif") +
                      " n'existe pas !!! (Fichier : "),
            0u);
  ImageMotif<unsigned short>(5, 4, 1).Sauver((dir / "mpd_Tile_1_0.tif").c_str());
  EXPECT_TRUE(Commence(TexteErreur([&] { ImageFicIn((dir / "mpd.tif").c_str()); }),
                       "[RasterArray] (Constructeur) La dalle " + (dir / "mpd_Tile_1_0.tif") +
                           " (type 8, 1 canaux) ne correspond pas"));
}

}  // namespace
