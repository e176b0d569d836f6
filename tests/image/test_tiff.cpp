// TIFF reading and writing: a palette and a two-image file, the directory we write as tiffdump reads
// it, the reader's decisions and messages, tile sets and malformed files. Files of every type
// rewritten by libtiff's tiffcp are read in the registry test.
#include <gtest/gtest.h>

#include <functional>

#include "image/handlers.h"
#include "image/tiff/annexes.h"
#include "outils_image_test.h"
#include "zepra/imagefic.h"

namespace {

using test::Avertissements;
using test::ImageMotif;
using test::MemesEchantillons;
using test::Refuse;
using test::Tiffcp;

TEST(TiffLecture, PaletteDeuxImagesValeursEnPlaceEtMagic) {
  test::DossierTemp dir;
  // 5 x 3 indices i * 17; colour i is (i, 255 - i, 2i) scaled to 16 bits as the standard wants, or
  // written unscaled (no value above 255), which is taken as 8-bit.
  std::string indices;
  for (int i = 0; i < 15; ++i) indices += static_cast<char>(i * 17);
  auto couleur = [](int i, int plan) { return plan == 0 ? i : plan == 1 ? 255 - i : (2 * i) & 255; };
  std::vector<uint32_t> carte, carte8;
  for (int i = 0; i < 768; ++i)
    carte.push_back(couleur(i % 256, i / 256) * 257u), carte8.push_back(carte[i] / 257);
  test::TiffSimple(5, 3, 1, indices).Court(262, {3}).Court(320, carte).Ecrire(dir / "p.tif");
  test::TiffSimple(5, 3, 1, indices).Court(262, {3}).Court(320, carte8).Ecrire(dir / "p8.tif");
  EXPECT_EQ(test::Tiffinfo(dir, "p.tif"), "");
  ASSERT_EQ(Tiffcp(dir, "-c lzw -r 2", "p.tif", "plzw.tif"), "");
  for (const char* nom : {"p.tif", "plzw.tif", "p8.tif"}) {
    const TTImage<unsigned char> lu((dir / nom).c_str());
    ASSERT_EQ(lu.GetNbCanaux(), 3) << nom;
    for (int i = 0; i < 45; ++i)
      EXPECT_EQ(lu(i / 3 % 5, i / 15, i % 3), couleur(i / 3 * 17, i % 3)) << nom << i;
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
  // A chain of directories that loops (on the first, or between two) or leaves the file is not
  // followed: the first image is read, with a second warning.
  const std::string pixels = "abcdefghijklmnop", chaine =
                                                     "WARNING : [TIFF_Annexes] (LireEntete) Chaine des "
                                                     "repertoires du fichier " +
                                                     (dir / "c.tif") + " : ";
  const size_t premier = 8 + pixels.size(), apres = premier + 2 + 12 * 10 + 4;
  const std::pair<std::string, std::string> chaines[] = {
      {test::Le(premier, 4), "les repertoires bouclent a l'offset 24"},
      {test::Le(99999, 4), "le repertoire a l'offset 99999 sort du fichier (156 octets)"},
      {test::Le(apres, 4), "les repertoires bouclent a l'offset 150"},  // to an empty one leading back
  };
  for (const auto& [suivant, defaut] : chaines) {
    std::string f = test::TiffSimple(4, 4, 1, pixels).Octets();
    f.replace(apres - 4, 4, suivant);
    test::EcrireFichier(dir / "c.tif", f + std::string(2, '\0') + test::Le(premier, 4));
    TTImage<unsigned char> lu;
    EXPECT_EQ(
        Avertissements([&] { lu.Lire((dir / "c.tif").c_str()); }),
        "WARNING : [TIFF_Annexes] (LireEntete) Il y a plus d'une image dans le fichier. Traitement de la "
        "premiere image seulement !\n" +
            chaine + defaut + ". Elle n'est pas suivie.\n");
    EXPECT_EQ(lu(3, 3), 'p');
  }
  // Two SHORTs (4 bytes) stay in the entry, where our writer never puts them; the registry finds a
  // TIFF file whatever its name.
  test::TiffSimple(1, 1, 2, std::string("\x07\x09", 2)).Ecrire(dir / "v.img");
  EXPECT_EQ(TTImage<unsigned char>((dir / "v.img").c_str())(0, 0, 1), 9);
  // Version 43 is BigTIFF (here cut short); any other is not TIFF.
  test::EcrireFichier(dir / "ii43.tif", std::string("II\x2b\0\x08\0\0\0", 8));
  Refuse([&] { CreateReader_TIFF(dir / "ii43.tif"); },
         "[LecteurOctets] (Lire) Fichier " + (dir / "ii43.tif"));
  test::EcrireFichier(dir / "ii44.tif", std::string("II\x2c\0\x08\0\0\0", 8));
  EXPECT_EQ(CreateReader_TIFF(dir / "ii44.tif"), nullptr);
  tiff::TIFF_Annexes ii44(dir / "ii44.tif");
  Refuse([&] { ii44.LireEntete(); }, "[ImageFicIn] (LireEntete) Magic Number non reconnu (ficher : " +
                                         (dir / "ii44.tif") + " (Fichier : ../src/image/tiff/");
}

TEST(TiffEcriture, RepertoireLuParTiffdumpEtRefus) {
  test::DossierTemp dir;
  // Four float channels: every tag with its type and values as libtiff's tiffdump reads them,
  // ExtraSamples once, the directory at 8 and the pixels last.
  TTImage<float>(3, 2, TagNbCanaux(4)).Sauver((dir / "f.tif").c_str());
  EXPECT_EQ(test::Lancer(dir.chemin(), "tiffdump f.tif | sed 1d").sortie,
            "Magic: 0x4949 <little-endian> Version: 0x2a <ClassicTIFF>\n"
            "Directory 0: offset 8 (0x8) next 0 (0)\n"
            "ImageWidth (256) LONG (4) 1<3>\nImageLength (257) LONG (4) 1<2>\n"
            "BitsPerSample (258) SHORT (3) 4<32 32 32 32>\nCompression (259) SHORT (3) 1<1>\n"
            "Photometric (262) SHORT (3) 1<2>\nStripOffsets (273) LONG (4) 1<218>\n"
            "SamplesPerPixel (277) SHORT (3) 1<4>\nRowsPerStrip (278) LONG (4) 1<2>\n"
            "StripByteCounts (279) LONG (4) 1<96>\nXResolution (282) RATIONAL (5) 1<72>\n"
            "YResolution (283) RATIONAL (5) 1<72>\nResolutionUnit (296) SHORT (3) 1<2>\n"
            "ExtraSamples (338) SHORT (3) 1<0>\nSampleFormat (339) SHORT (3) 4<3 3 3 3>\n");
  EXPECT_EQ(test::LireFichier(dir / "f.tif").size(), 218u + 96);
  // bool: one bit per sample most significant first, 10 bits a line padded to 16.
  TTImage<bool> b(10, 2, TagNbCanaux(1));
  b(0, 0) = b(9, 1) = true;
  b.Sauver((dir / "b.tif").c_str());
  const std::string fb = test::LireFichier(dir / "b.tif");
  EXPECT_EQ(fb.substr(fb.size() - 4), std::string("\x80\0\0\x40", 4));

  Refuse([&] { ImageMotif<float>(2, 2, 1).Sauver((dir / "absent/x.tif").c_str()); },
         "[ImageFicOut_Raster] (Constructeur) Impossible de creer le fichier ");
  auto ecrivain = [nom = dir / "c.tif"](eEnumType type, int colonnes, int lignes) {
    ImageInfos infos;
    infos.taille = TPoint2D<int>(colonnes, lignes);
    infos.type = type;
    return [nom, infos] { CreateWriter_TIFF(nom, infos); };
  };
  Refuse(ecrivain(eChar, 2, 2),
         "Handler_TIFF::CreateWriter Type non gere. (Fichier : ../src/image/tiff/ecriture.cpp ; ligne ");
  Refuse(ecrivain(eFloat4, 0, 5), "[TIFF_Annexes] (SetImage) Taille (0 x 5 x 1 canaux) impossible");
  Refuse(ecrivain(eFloat4, 40000, 40000), "[TIFF_Annexes] (SetImage) Image de 6400000000 octets trop grande");
  tiff::TIFF_Annexes annexes;
  Refuse([&] { annexes.SetImage(TPoint2D<int>(1, 1), 1, eAutre); },
         "[TIFF_Annexes] (SetImage) NomType : cas imprevu.");
  std::ostringstream flux;
  Refuse([&] { annexes.EcrireEntete(flux, "x.tif"); },
         "[TIFF_Annexes] (EcrireEntete) Tag STRIPOFFSETS non present en ecriture : Erreur interne.");
  EXPECT_EQ(test::Lancer(dir.chemin(), "ls").sortie, "b.tif\nf.tif\n");
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
      {"[TIFF_Annexes] (Permut) Type de directory (19) non gere !!!",
       [](auto& t) { t.Brut(300, 19, 1, "abcd"); }},
      // Warnings: reading goes on.
      {w + "TIFF_TAG_PLANARCONFIGURATION 7 : valeur impossible.\n", [](auto& t) { t.Court(284, {7}); }},
      {w + "Samples per pixel non trouve. On suppose 1.\n", [](auto& t) { t.Retirer(277); }},
      {w + "Compression (50001) : non geree\n", [](auto& t) { t.Court(259, {50001}); }},
      {w + "White is zero pas gere !\n", [](auto& t) { t.Court(262, {0}); }},
      {w + "White is zero pas gere : utilisation de black is zero !!!\n",
       [&](auto& t) { tuile(t).Court(262, {0}); }},
      // A tiled palette file is not expanded: the indices are read as they stand.
      {w + "PHOTOMETRICINTERPRETATION de valeur non geree : utilisation de black is zero !!!\n",
       [&](auto& t) { tuile(t).Court(262, {3}); }},
  };
  test::DossierTemp dir;
  for (const Cas& c : cas) {
    test::TiffTest t = test::TiffSimple(4, 4, 1, std::string(16, '\x05'));
    c.f(t);
    t.Ecrire(dir / "t.tif");
    std::string e;
    const std::string avertissements =
        Avertissements([&] { e = test::TexteErreur([&] { ImageFicIn((dir / "t.tif").c_str()); }); });
    if (test::Commence(c.message, "WARNING"))
      EXPECT_EQ(avertissements + e, c.message + "(pas d'Erreur)");
    else
      EXPECT_TRUE(test::Commence(e, c.message + " (Fichier : ../src/image/tiff/")) << e;
  }
  // What cannot be decoded opens (with its warning) but refuses to deliver pixels, naming the
  // compression.
  test::TiffSimple(4, 4, 1, std::string(16, '\x05')).Court(259, {50001}).Ecrire(dir / "webp.tif");
  TTImage<unsigned char> im;
  Refuse([&] { im.Lire((dir / "webp.tif").c_str()); },
         "[ImageFicIn_Raster] (GetValeurs) Compression (50001, WebP) non geree : pixels du fichier ");
  // Such a codec can pack more pixels in a block than any codec we bound: the open refuses, naming the
  // compression rather than taking the block for corrupt.
  test::TiffSimple(4096, 4096, 1, std::string(16, '\x05')).Court(259, {50001}).Ecrire(dir / "webp2.tif");
  Refuse([&] { ImageFicIn((dir / "webp2.tif").c_str()); },
         "[TIFF_Annexes] (GetImage) Compression (50001, WebP) non geree : pixels du fichier ");
}

TEST(TiffLecture, DallageMPD) {
  test::DossierTemp dir;
  // Tiles of 7 and 5 columns, 4 and 6 lines, in different layouts: the whole reads as one image.
  const TTImage<unsigned short> image = ImageMotif<unsigned short>(12, 10, 3);
  const int xs[] = {0, 7, 12}, ys[] = {0, 4, 10};
  for (int k = 0; k < 4; ++k) {
    const int i = k % 2, j = k / 2;
    TTImage<unsigned short> dalle;
    dalle.Crop(image, xs[i], ys[j], xs[i + 1] - xs[i], ys[j + 1] - ys[j]);
    dalle.Sauver((dir / ("mpd_Tile_" + std::to_string(i) + "_" + std::to_string(j) + ".tif")).c_str());
  }
  ASSERT_EQ(Tiffcp(dir, "-c lzw -t -w 16 -l 16", "mpd_Tile_1_1.tif", "t.tif && mv t.tif mpd_Tile_1_1.tif"),
            "");
  test::TiffTest principal;
  principal.Long(256, {12}).Long(257, {10}).Court(258, {16, 16, 16}).Court(259, {1}).Court(262, {2});
  principal.Court(277, {3}).Long(40000, {2}).Long(40001, {2}).Ecrire(dir / "mpd.tif");
  EXPECT_TRUE(MemesEchantillons(image, TTImage<unsigned short>((dir / "mpd.tif").c_str())));
  EXPECT_TRUE(test::MemeCrop<int>(ImageFicIn((dir / "mpd.tif").c_str()), image, 2, 1, 9, 8, 2));

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
  const std::vector<std::string> noms = test::Lignes(test::Lancer(dossier, "ls *.tif").sortie);
  EXPECT_GE(noms.size(), 50u);
  for (const std::string& n : noms) {
    const std::string c = dossier + n;
    EXPECT_NE(test::TexteErreur([&] { TTImage<unsigned char>(c.c_str()); }), "(pas d'Erreur)") << n;
    EXPECT_NE(
        test::TexteErreur([&] { TTImage<float>().Crop(ImageFicIn(c.c_str()), 1, 1, 1 << 30, 1 << 30, 2); }),
        "(pas d'Erreur)")
        << n;
  }
}

}  // namespace
