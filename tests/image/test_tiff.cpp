// TIFF reading and writing: round trips through our writer, files made by libtiff's tiffcp read
// sample by sample, the directory we write checked byte by byte, and the reader's decisions.
#include <gtest/gtest.h>

#include <functional>

#include "image/handlers.h"
#include "image/tiff_annexes.h"
#include "outils_image_test.h"
#include "zepra/imagefic.h"

namespace {

using test::Avertissements;
using test::ImageMotif;
using test::MemesEchantillons;
using test::Refuse;
using test::Tiffcp;

// Files laid out by libtiff in every way we read, each compared sample by sample with the image
// they came from: whole, through a stepped crop that starts inside a block, band after band as the
// band copies read, then back to the top.
template <class T>
void VerifieVariantes(int canaux) {
  SCOPED_TRACE(std::string(typeid(T).name()) + " x " + std::to_string(canaux));
  test::DossierTemp dir;
  const TTImage<T> image = ImageMotif<T>(37, 29, canaux);
  image.Sauver((dir / "source.tif").c_str());
  // Strips (single compressed ones: the decoder resumes there band after band), both byte orders,
  // tiles with partial tiles.
  std::vector<std::string> variantes = {"-c lzw", "-c packbits", "-c lzw -r 4",   "-c packbits -r 3",
                                        "-r 1",   "-B",          "-L -c lzw -r 7"};
  variantes.insert(variantes.end(), {"-t -w 16 -l 16", "-t -w 32 -l 16 -c lzw", "-t -w 16 -l 48 -c packbits",
                                     "-B -t -w 16 -l 16 -c packbits"});
  if (!std::is_same_v<T, bool>) variantes.push_back("-c lzw:2 -r 6");  // the horizontal predictor
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
    TTImage<T> bandes(37, 29, TagNbCanaux(canaux));
    for (int y0 = 0; y0 < 29; y0 += 4)
      fichier.GetValeurs(bandes.GetLines(), 0, y0, 37, std::min(29, y0 + 4), 0, y0, 1);
    EXPECT_TRUE(MemesEchantillons(image, bandes));
    TTImage<T> haut(37, 3, TagNbCanaux(canaux)), hautAttendu;
    fichier.GetValeurs(haut.GetLines(), 0, 0, 37, 3, 0, 0, 1);
    hautAttendu.Crop(image, 0, 0, 37, 3);
    EXPECT_TRUE(MemesEchantillons(hautAttendu, haut));
  }
}

TEST(TiffLibtiff, VariantesDeTiffcpLuesEchantillonParEchantillon) {
  VerifieVariantes<unsigned char>(1);
  VerifieVariantes<unsigned short>(3);
  VerifieVariantes<short>(1);
  VerifieVariantes<float>(4);
  VerifieVariantes<double>(1);
  VerifieVariantes<int>(3);
  VerifieVariantes<bool>(1);
  VerifieVariantes<bool>(3);
}

TEST(TiffLibtiff, PaletteEtFichierADeuxImages) {
  test::DossierTemp dir;
  // 5 x 3 indices i * 17; colour i is (i, 255 - i, 2i) scaled to 16 bits as the standard wants.
  std::string indices;
  for (int i = 0; i < 15; ++i) indices += static_cast<char>(i * 17);
  auto couleur = [](int i, int plan) { return plan == 0 ? i : plan == 1 ? 255 - i : (2 * i) & 255; };
  std::vector<uint32_t> carte, carte8;
  for (int plan = 0; plan < 3; ++plan)
    for (int i = 0; i < 256; ++i)
      carte.push_back(couleur(i, plan) * 257u), carte8.push_back(couleur(i, plan));
  test::TiffSimple(5, 3, 1, 8, 1, indices).Court(262, {3}).Court(320, carte).Ecrire(dir / "p.tif");
  // A map written unscaled (no value above 255) is taken as 8-bit.
  test::TiffSimple(5, 3, 1, 8, 1, indices).Court(262, {3}).Court(320, carte8).Ecrire(dir / "p8.tif");
  EXPECT_EQ(test::Tiffinfo(dir, "p.tif"), "");
  ASSERT_EQ(Tiffcp(dir, "-c lzw -r 2", "p.tif", "plzw.tif"), "");
  for (const char* nom : {"p.tif", "plzw.tif", "p8.tif"}) {
    SCOPED_TRACE(nom);
    TTImage<unsigned char> lu;
    lu.Lire((dir / nom).c_str());
    EXPECT_EQ(ImageFicIn((dir / nom).c_str()).TypePixel(), eUInt1);
    ASSERT_EQ(lu.GetNbCanaux(), 3);
    for (int i = 0; i < 15; ++i)
      for (int plan = 0; plan < 3; ++plan) EXPECT_EQ(lu(i % 5, i / 5, plan), couleur(i * 17, plan)) << i;
  }
  // Two images in one file: the first is read, with one warning.
  ImageMotif<unsigned short>(9, 4, 1).Sauver((dir / "un.tif").c_str());
  ImageMotif<unsigned short>(3, 2, 3).Sauver((dir / "deux.tif").c_str());
  ASSERT_EQ(Tiffcp(dir, "-c lzw", "un.tif deux.tif", "deux_images.tif"), "");
  TTImage<unsigned short> premiere;
  EXPECT_EQ(Avertissements([&] { premiere.Lire((dir / "deux_images.tif").c_str()); }),
            "WARNING : [TIFF_Annexes] (LireEntete) Il y a plus d'une image dans le fichier. Traitement de la "
            "premiere image seulement !\n");
  EXPECT_TRUE(MemesEchantillons(ImageMotif<unsigned short>(9, 4, 1), premiere));
}

// A little-endian number of a written file.
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
  const int d = 12 * n + 18;  // out-of-line values: after the count, the entries and 8 bytes
  // tag, type, count, value or offset
  const uint32_t attendu[][4] = {
      {256, 4, 1, 100},    {257, 4, 1, 50}, {258, 3, 3, d},     {259, 3, 1, 1},     {262, 3, 1, 2},
      {273, 4, 1, d + 28}, {277, 3, 1, 3},  {278, 4, 1, 50},    {279, 4, 1, 15000}, {282, 5, 1, d + 6},
      {283, 5, 1, d + 14}, {296, 3, 1, 2},  {339, 3, 3, d + 22}};
  for (int e = 0; e < n; ++e) {
    const uint32_t lu[4] = {Nombre(f, 10 + 12 * e, 2), Nombre(f, 12 + 12 * e, 2), Nombre(f, 14 + 12 * e, 4),
                            Nombre(f, 18 + 12 * e, 4)};
    for (int k = 0; k < 4; ++k) EXPECT_EQ(lu[k], attendu[e][k]) << "tag " << attendu[e][0] << " champ " << k;
  }
  EXPECT_EQ(f.substr(10 + 12 * n, 8), std::string(8, '\0'));
  const uint16_t horsLigne[] = {8, 8, 8, 72, 0, 1, 0, 72, 0, 1, 0, 1, 1, 1};
  for (int i = 0; i < 14; ++i) EXPECT_EQ(Nombre(f, d + 2 * i, 2), horsLigne[i]) << i;
  EXPECT_EQ(f.size(), static_cast<size_t>(d + 28 + 15000));

  // bool: BitsPerSample 1, one bit per sample most significant first, 10 bits a line padded to 16.
  TTImage<bool> b(10, 2, TagNbCanaux(1));
  b(0, 0) = b(9, 1) = true;
  b.Sauver((dir / "b.tif").c_str());
  const std::string fb = test::LireFichier(dir / "b.tif");
  EXPECT_EQ(Nombre(fb, 18 + 12 * 2, 2), 1u);
  EXPECT_EQ(fb.substr(fb.size() - 4), std::string("\x80\0\0\x40", 4));
  // Four channels: ExtraSamples (338) once, of value 0.
  TTImage<float>(3, 2, TagNbCanaux(4)).Sauver((dir / "f.tif").c_str());
  const std::string ff = test::LireFichier(dir / "f.tif");
  ASSERT_EQ(Nombre(ff, 8, 2), 14u);
  EXPECT_EQ(Nombre(ff, 10 + 12 * 12, 2), 338u);
  EXPECT_EQ(Nombre(ff, 14 + 12 * 12, 4), 1u);
  EXPECT_EQ(Nombre(ff, 18 + 12 * 12, 4), 0u);
}

TEST(TiffEcriture, FichierCompletOuAbsent) {
  test::DossierTemp dir;
  // Bands written in any order: lines never written stay zero.
  const TTImage<short> image = ImageMotif<short>(11, 9, 2);
  {
    ImageFicOut sortie((dir / "bandes.tif").c_str(), OptionsImageOut::defaut());
    sortie.SetTypePixel(eInt2);
    sortie.SetNbCanaux(TagNbCanaux(2));
    sortie.SetTaille(11, 9);
    sortie.SetValeurs(image.GetLines(), 0, 4, 11, 8, 0, 4, 1);
    sortie.SetValeurs(image.GetLines(), 0, 0, 11, 4, 0, 0, 1);
    EXPECT_FALSE(Systeme::ExisteFichier((dir / "bandes.tif").c_str()));
    Refuse([&] { sortie.SetValeurs(image.GetLines(), 0, 0, 11, 2, 0, 8, 1); },
           "[ImageFicOut_Raster] (SetValeurs) 11 x 2 pixels en (0, 8) impossibles");
    sortie.Fermer();
  }
  TTImage<short> lu, attendu = image;
  lu.Lire((dir / "bandes.tif").c_str());
  for (int x = 0; x < 11; ++x) attendu(x, 8, 0) = attendu(x, 8, 1) = 0;
  EXPECT_TRUE(MemesEchantillons(attendu, lu));
  // A writer dropped before the end leaves nothing behind.
  {
    ImageFicOut sortie((dir / "abandon.tif").c_str(), OptionsImageOut::defaut());
    sortie.SetTaille(4, 4);
  }
  EXPECT_EQ(test::Lancer(dir.chemin(), "ls").sortie, "bandes.tif\n");

  Refuse([&] { ImageMotif<float>(2, 2, 1).Sauver((dir / "absent/x.tif").c_str()); },
         "[ImageFicOut_Raster] (Constructeur) Impossible de creer le fichier ");
  auto ecrivain = [nom = dir / "c.tif"](eEnumType type, int colonnes, int lignes) {
    ImageInfos infos;
    infos.taille = TPoint2D<int>(colonnes, lignes);
    infos.type = type;
    return [nom, infos] { CreateWriter_TIFF(nom, infos); };
  };
  Refuse(ecrivain(eChar, 2, 2),
         "Handler_TIFF::CreateWriter Type non gere. (Fichier : ../src/image/tiff_ecriture.cpp ; ligne ");
  Refuse(ecrivain(eFloat4, 0, 5), "[TIFF_Annexes] (SetImage) Taille (0 x 5 x 1 canaux) impossible");
  Refuse(ecrivain(eFloat4, 40000, 40000), "[TIFF_Annexes] (SetImage) Image de 6400000000 octets trop grande");
  tiff::TIFF_Annexes annexes;
  Refuse([&] { annexes.SetImage(TPoint2D<int>(1, 1), 1, eAutre); },
         "[TIFF_Annexes] (SetImage) NomType : cas imprevu.");
  std::ostringstream flux;
  Refuse([&] { annexes.EcrireEntete(flux, "x.tif"); },
         "[TIFF_Annexes] (EcrireEntete) Tag STRIPOFFSETS non present en ecriture : Erreur interne.");
}

TEST(TiffLecture, ValeursEnPlaceEtRegistre) {
  test::DossierTemp dir;
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
  test::EcrireFichier(dir / "pas_tiff.tif", "P5 1 1 255\n");
  test::EcrireFichier(dir / "ii43.tif", std::string("II\x2b\0\x08\0\0\0", 8));
  for (const char* nom : {"pas_tiff.tif", "absent.tif", "ii43.tif"})
    EXPECT_EQ(CreateReader_TIFF(dir / nom), nullptr);
  tiff::TIFF_Annexes ii43(dir / "ii43.tif");
  Refuse([&] { ii43.LireEntete(); },
         "[ImageFicIn] (LireEntete) Magic Number non reconnu (ficher : " + (dir / "ii43.tif") +
             " (Fichier : ../src/image/tiff_annexes.cpp ; ligne ");
}

TEST(TiffLecture, DecisionsEtMessages) {
  const std::string g = "[TIFF_Annexes] (GetImage) ", w = "WARNING : " + g;
  const std::vector<uint32_t> carte(768, 0);
  auto tuile = [](test::TiffTest& t) -> test::TiffTest& {  // one tile of 16 x 1 over a 16 x 1 image
    t.Retirer(273).Retirer(278).Retirer(279).Long(256, {16}).Long(257, {1});
    return t.Long(322, {16}).Long(323, {1}).Long(324, {8}).Long(325, {16});
  };
  auto dalles = [](test::TiffTest& t) -> test::TiffTest& {  // two tiles of 16 x 16, offsets and counts to add
    return t.Retirer(273).Long(256, {20}).Long(322, {16}).Long(323, {16});
  };
  // The beginning of the Erreur, or the exact warnings, of the simple 4 x 4 file changed by f.
  struct Cas {
    std::string message;
    std::function<void(test::TiffTest&)> f;
  };
  const std::vector<Cas> cas = {
      {g + "TIFF_TAG_PHOTOMETRICINTERPRETATION pas trouve !", [](auto& t) { t.Retirer(262); }},
      {g + "TIFF_TAG_IMAGEWIDTH non trouve !", [](auto& t) { t.Retirer(256); }},
      {g + "TIFF_TAG_IMAGELENGTH non trouve !", [](auto& t) { t.Retirer(257); }},
      {g + "TIFF_TAG_BITSPERSAMPLE non trouve", [](auto& t) { t.Retirer(258); }},
      {g + "TIFF_TAG_BITSPERSAMPLE : Tous les canaux n'ont pas le meme nombre de bits par pixel",
       [](auto& t) { t.Court(277, {2}).Brut(258, 3, 2, std::string("\x08\0\x10\0", 4)); }},
      {g + "TIFF_TAG_SAMPLEFORMAT : Tous les canaux n'ont pas le meme format par pixel",
       [](auto& t) { t.Brut(339, 3, 2, std::string("\x01\0\x02\0", 4)); }},
      {g + "TIFF_TAG_COMPRESSION non trouve !", [](auto& t) { t.Retirer(259); }},
      {"[TIFF_Annexes] (Image) taille pixel (64) non prevue pour format unsigned.",
       [](auto& t) { t.Court(258, {64}); }},
      {"[TIFF_Annexes] (Image) taille pixel (12) non prevue pour format signed.",
       [](auto& t) { t.Court(258, {12}).Court(339, {2}); }},
      {g + "taille pixel (16) non prevue pour format IEEE Floating.",
       [](auto& t) { t.Court(258, {16}).Court(339, {3}); }},
      {g + "sampleformat (5) non prevu.", [](auto& t) { t.Court(339, {5}); }},
      {g + "Image ni en Strip, ni en Tile !!!", [](auto& t) { t.Retirer(273); }},
      {g + "Image a la fois en Strip, et en Tile !!!", [](auto& t) { t.Long(322, {16}); }},
      {g + "TIFF_TAG_TILELENGTH non trouve !", [](auto& t) { t.Retirer(273).Long(322, {16}); }},
      {g + "TIFF_TAG_TILEOFFSETS non trouve !", [&](auto& t) { dalles(t); }},
      {g + "TIFF_TAG_TILEBYTECOUNTS non trouve !", [&](auto& t) { dalles(t).Long(324, {8}); }},
      {g + "nombre de TILEOFFSETS != TilesPerImage.",
       [&](auto& t) { dalles(t).Long(324, {8}).Long(325, {9}); }},
      {g + "nombre de TILEBYTECOUNTS != TilesPerImage.",
       [&](auto& t) { dalles(t).Long(325, {9}).Long(324, std::vector<uint32_t>(2, 8)); }},
      {g + "TIFF_TAG_ROWSPERSTRIP non trouve !", [](auto& t) { t.Retirer(278); }},
      {g + "TIFF_TAG_STRIPBYTECOUNTS non trouve.", [](auto& t) { t.Retirer(279); }},
      {g + "bitspersample != 4 ou 8 !",
       [&](auto& t) { t.Court(262, {3}).Court(258, {16}).Court(320, carte); }},
      {g + "TIFF_TAG_COLORMAP non trouve !", [](auto& t) { t.Court(262, {3}); }},
      {g + "Dans COLORMAP, count pas conforme a bitspersample",
       [](auto& t) { t.Court(262, {3}).Court(320, std::vector<uint32_t>(767, 0)); }},
      {g + "PHOTOMETRICINTERPRETATION de valeur inconnue...", [](auto& t) { t.Court(262, {5}); }},
      {g + "Dallage MPD : il manque un des deux TAGs propriétaire !!!", [](auto& t) { t.Long(40000, {2}); }},
      {"[TIFF_Annexes] (Permut) Type de directory (13) non gere !!!",
       [](auto& t) { t.Brut(300, 13, 1, "abcd"); }},
      // Warnings: reading goes on.
      {w + "TIFF_TAG_PLANARCONFIGURATION 2 : valeur pas encore gere.\n", [](auto& t) { t.Court(284, {2}); }},
      {w + "TIFF_TAG_PLANARCONFIGURATION 7 : valeur impossible.\n", [](auto& t) { t.Court(284, {7}); }},
      {w + "Samples per pixel non trouve. On suppose 1.\n", [](auto& t) { t.Retirer(277); }},
      {w + "Compression (7) : non geree\n", [](auto& t) { t.Court(259, {7}); }},
      {w + "White is zero pas gere !\n", [](auto& t) { t.Court(262, {0}); }},
      {w + "White is zero pas gere : utilisation de black is zero !!!\n",
       [&](auto& t) { tuile(t).Court(262, {0}); }},
      // A tiled palette file is not expanded: the indices are read as they stand.
      {w + "PHOTOMETRICINTERPRETATION de valeur non geree : utilisation de black is zero !!!\n",
       [&](auto& t) { tuile(t).Court(262, {3}); }},
  };
  test::DossierTemp dir;
  for (const Cas& c : cas) {
    test::TiffTest t = test::TiffSimple(4, 4, 1, 8, 1, std::string(16, '\x05'));
    c.f(t);
    t.Ecrire(dir / "t.tif");
    std::string avertissements;
    int canaux = 0;
    const std::string e = test::TexteErreur([&] {
      avertissements = Avertissements([&] { canaux = ImageFicIn((dir / "t.tif").c_str()).GetNbCanaux(); });
    });
    if (!test::Commence(c.message, "WARNING"))
      EXPECT_TRUE(test::Commence(e, c.message + " (Fichier : ../src/image/tiff_annexes.cpp ; ligne ")) << e;
    else
      EXPECT_TRUE(avertissements == c.message && canaux == 1) << avertissements << e;
  }
  // What cannot be decoded opens (with its warning) but refuses to deliver pixels.
  test::TiffSimple(4, 4, 1, 8, 1, std::string(16, '\x05')).Court(259, {7}).Ecrire(dir / "jpeg.tif");
  TTImage<unsigned char> im;
  Refuse([&] { im.Lire((dir / "jpeg.tif").c_str()); },
         "[ImageFicIn_Raster] (GetValeurs) Compression (7) non geree : pixels du fichier ");
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
    }
  ASSERT_EQ(Tiffcp(dir, "-c lzw -t -w 16 -l 16", "mpd_Tile_1_1.tif", "t.tif && mv t.tif mpd_Tile_1_1.tif"),
            "");
  test::TiffTest principal;
  principal.Long(256, {12}).Long(257, {10}).Court(258, {16, 16, 16}).Court(259, {1}).Court(262, {2});
  principal.Court(277, {3}).Long(40000, {2}).Long(40001, {2}).Ecrire(dir / "mpd.tif");
  TTImage<unsigned short> lu;
  lu.Lire((dir / "mpd.tif").c_str());
  EXPECT_TRUE(MemesEchantillons(image, lu));
  TTImage<int> crop, attendu;
  crop.Crop(ImageFicIn((dir / "mpd.tif").c_str()), 2, 1, 9, 8, 2);
  attendu.Crop(image, 2, 1, 9, 8, 2);
  EXPECT_TRUE(MemesEchantillons(attendu, crop));

  const std::string dalle = dir / "mpd_Tile_1_0.tif";
  std::remove(dalle.c_str());
  Refuse([&] { ImageFicIn((dir / "mpd.tif").c_str()); },
         "[TIFF_Annexes] (GetImage) Dallage MPD : le fichier " + dalle + " n'existe pas !!! (Fichier : ");
  ImageMotif<unsigned short>(5, 4, 1).Sauver(dalle.c_str());
  Refuse([&] { ImageFicIn((dir / "mpd.tif").c_str()); },
         "[RasterArray] (Constructeur) La dalle " + dalle + " (type 8, 1 canaux) ne correspond pas");
}

// Every file of tests/image/malformes (each named by its fault, most written by genere.py there, the
// others found by the fuzzer) must end in an Erreur, read whole or through a stepped crop into
// another type: no crash, no hang, no huge allocation. The sanitizer build replays them too.
TEST(TiffMalformes, ChaqueFichierFinitEnErreur) {
  const std::string dossier = std::string(ZEPRA_SOURCE_DIR) + "/tests/image/malformes/";
  const test::Resultat liste = test::Lancer(dossier, "ls *.tif");
  const std::vector<std::string> noms = test::Lignes(liste.sortie);
  EXPECT_GE(noms.size(), 50u);
  for (const std::string& n : noms) {
    const std::string chemin = dossier + n;
    EXPECT_NE(test::TexteErreur([&] { TTImage<unsigned char>(chemin.c_str()); }), "(pas d'Erreur)") << n;
    EXPECT_NE(test::TexteErreur([&] {
                const ImageFicIn f(chemin.c_str());
                TTImage<float> im;
                im.Crop(f, 1, 1, f.GetTaille().x, f.GetTaille().y, 2);
              }),
              "(pas d'Erreur)")
        << n;
  }
}

}  // namespace
