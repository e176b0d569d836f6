// The PNM format (binary P5 / P6): hand-written headers with comments, refused types and malformed
// files. Then the registry: every writer with every pixel type and given rectangles in any order.
#include <gtest/gtest.h>

#include "image/handlers.h"
#include "outils_image_test.h"

namespace {

using test::EcrireFichier;
using test::Refuse;

TEST(PNM, EntetesEcritsALaMainErreursEtFichiersEtrangers) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "main.pgm";
  // Comments after the magic, between the numbers and glued to a number, tabs and CR LF; the single
  // whitespace after maxval is followed by a raster starting with bytes that look like whitespace
  // and '#'. A 16-bit P6 (maxval 1000): samples most significant byte first, as stored, not scaled.
  const std::pair<std::string, std::vector<int>> lus[] = {
      // bytes; columns, lines, channels, samples
      {std::string("P5 # une vignette\r\n# taille :\n3\t# largeur\n  2\r\n200\n\n #\x07\xc8\x00", 57),
       {3, 2, 1, '\n', ' ', '#', 7, 200, 0}},
      {std::string("P6\n2 1\n1000\n\x03\xe8\x00\x01\x01\x00\x00\x00\x00\x02\xff\xff", 24),
       {2, 1, 3, 1000, 1, 256, 0, 2, 65535}}};
  for (const auto& [octets, v] : lus) {
    EcrireFichier(nom, octets);
    TTImage<unsigned short> im(nom.c_str());
    ASSERT_TRUE(im.GetTaille() == TPoint2D<int>(v[0], v[1]) && im.GetNbCanaux() == v[2]) << octets;
    for (int i = 0; i < 6; ++i) EXPECT_EQ(im.InternalData()[i], v[3 + i]) << octets << i;
  }

  const std::string ecrit = dossier / "r.pgm", perdu = dossier / "nul/part.ppm";
  const std::string debut = "[ImageFicOut_PNM] (Constructeur) ";
  Refuse([&] { TTImage<float>(2, 2, 1.f).Sauver(ecrit.c_str()); },
         debut + "Type de pixel Float4 (float) non gere pour " + ecrit);
  Refuse([&] { TTImage<unsigned char>(2, 2, TagNbCanaux(2)).Sauver(ecrit.c_str()); },
         debut + "2 canaux non geres pour " + ecrit);
  Refuse([&] { TTImage<unsigned char>(0, 0, TagNbCanaux(1)).Sauver(ecrit.c_str()); },
         debut + "Image vide (0 x 0)");
  Refuse([&] { TTImage<unsigned char>(2, 2, TagNbCanaux(3)).Sauver(perdu.c_str()); },
         "[ImageFicOut_PNM::Open(" + perdu + ")] : Probleme a l'ouverture du fichier\n");
  EXPECT_EQ(test::Lancer(dossier.chemin(), "ls").sortie, "main.pgm\n");

  // Not P5 / P6: declined, so that the registry moves on.
  for (const char* e :
       {"P2\n2 2\n255\n1 2 3 4\n", "P3 1 1 255 1 2 3", "P4\n8 1\n\xff", "", "P", "P5", "P5x", "II*\0"}) {
    EcrireFichier(nom, e);
    EXPECT_EQ(CreateReader_PNM(nom), nullptr) << e;
  }
  EXPECT_EQ(CreateReader_PNM(dossier.chemin()), nullptr);
  // P5 / P6 with a broken header or raster: an Erreur naming the fault.
  const std::pair<std::string, std::string> malformes[] = {
      {"P5\n2 2\n70000\nabcdefgh", "maxval 70000 invalide"},
      {"P5\n0 2\n255\n", "taille 0 x 2 invalide"},
      {"P5\n2 2\n255\nabc", "raster tronque"},
      {"P6\n2 2\n65535\n" + std::string(23, 'x'), "raster tronque"},
      {"P5\n2147483647 2147483647\n65535\nxx", "raster tronque"},
      {"P5\n99999999999 1\n255\n", "largeur au-dela de 2147483647"},
      {"P5\n2 2\n255", "entete tronque a l'octet 10"},
      {"P5\n2 2\n255#\nabcd", "un blanc doit suivre maxval"},
      {"P5\n2 x\n255\nabcd", "hauteur attendu a l'octet 5"},
      {"P5 # sans fin", "entete tronque"},
  };
  for (const auto& m : malformes) {
    EcrireFichier(nom, m.first);
    Refuse([&] { TTImage<unsigned char> im(nom.c_str()); },
           "[ImageFicIn_PNM::Open(" + nom + ")] : " + m.second);
  }
}

// Every pixel type with one, three and four channels through each of our writer extensions: what a
// writer accepts reads back sample for sample, whole and through a stepped crop into another type;
// what it refuses is an Erreur that leaves no file. TIFF files are clean to tiffinfo, hold bool
// images as 1-bit samples (Bit1) and read back in every layout libtiff's tiffcp writes.
TEST(Registre, NosFormatsPourChaqueTypeEtNombreDeCanaux) {
  test::DossierTemp dossier;
  for (const std::string ext : {"tif", "rle", "pgm", "pnm", "ppm"}) {
    for (int canaux : {1, 3, 4}) {
      test::PourNeufTypes([&](auto tag) {
        using T = typename decltype(tag)::type;
        const TTImage<T> im = test::ImageMotif<T>(37, 29, canaux);
        const std::string nom =
            dossier / (std::string("m_") + typeid(T).name() + std::to_string(canaux) + "." + ext);
        SCOPED_TRACE(nom);
        const bool pnm = canaux < 4 && (CodeType<T>::value == eUInt1 || CodeType<T>::value == eUInt2);
        if (!(ext == "tif" || (ext == "rle" ? canaux == 1 : pnm))) {
          EXPECT_NE(test::TexteErreur([&] { im.Sauver(nom.c_str()); }), "(pas d'Erreur)");
          EXPECT_FALSE(Systeme::ExisteFichier(nom.c_str()));
          return;
        }
        im.Sauver(nom.c_str());
        EXPECT_TRUE(test::MemesEchantillons(im, TTImage<T>(nom.c_str())));
        EXPECT_TRUE(test::MemeCrop<int>(ImageFicIn(nom.c_str()), im, 3, 2, 30, 9, 4));
        if (ext != "tif") return;
        EXPECT_EQ(ImageFicIn(nom.c_str()).TypePixel(),
                  (std::is_same_v<T, bool> ? eBit1 : CodeType<T>::value));
        EXPECT_EQ(test::Tiffinfo(dossier, nom), "");
        test::VariantesTiffcp(dossier, im, nom);
      });
    }
  }
}

// Bands handed to each writer in any order, overlapping, or outside the image; the file appears at
// Terminer only. TIFF completes a partial image with zeros, RLE and PNM refuse it; a writer dropped
// before Terminer leaves nothing.
TEST(Registre, EcritureParMorceauxDansLeDesordre) {
  test::DossierTemp dossier;
  for (const std::string ext : {"tif", "rle", "ppm"}) {
    SCOPED_TRACE(ext);
    const int canaux = ext == "rle" ? 1 : 3;
    const TTImage<unsigned short> im = test::ImageMotif<unsigned short>(20, 5, canaux);
    const std::string nom = dossier / ("morceaux." + ext);
    const std::string classe = ext == "rle" ? "[ImageFicOut_RLE] " : "[ImageFicOut_PNM] ";
    {
      ImageFicOut sortie(nom.c_str(), OptionsImageOut::defaut());
      sortie.SetTypePixel(eUInt2);
      sortie.SetNbCanaux(TagNbCanaux(canaux));
      sortie.SetTaille(20, 5);
      sortie.SetValeurs(im.GetLines(), 0, 3, 20, 5, 0, 3, 1);    // lines 3-4 whole
      sortie.SetValeurs(im.GetLines(), 10, 0, 20, 3, 10, 0, 1);  // right part of lines 0-2
      sortie.SetValeurs(im.GetLines(), 0, 0, 12, 2, 0, 0, 1);    // left part of lines 0-1, overlapping
      Refuse([&] { sortie.SetValeurs(im.GetLines(), 0, 0, 20, 2, 0, 4, 1); },
             ext == "tif" ? "[ImageFicOut_Raster] (SetValeurs) 20 x 2 pixels en (0, 4) impossibles"
                          : classe + "(SetValeurs) Rectangle de 20 x 2 en (0,4) hors de l'image 20 x 5");
      if (ext != "tif")
        Refuse([&] { sortie.Terminer(); },
               classe + "(Terminer) Image incomplete : 1 lignes non ecrites (la premiere : 2)");
      if (ext == "rle")  // a coded RLE line is never written again
        Refuse([&] { sortie.SetValeurs(im.GetLines(), 0, 1, 5, 2, 0, 1, 1); },
               classe + "(SetValeurs) Ligne 1 du fichier " + nom + " deja ecrite");
      sortie.SetValeurs(im.GetLines(), 0, 2, 10, 3, 0, 2, 1);
      EXPECT_FALSE(Systeme::ExisteFichier(nom.c_str()));
      sortie.Terminer();
    }
    EXPECT_TRUE(test::MemesEchantillons(im, TTImage<unsigned short>(nom.c_str())));
    ImageFicOut vide((dossier / ("vide." + ext)).c_str(), OptionsImageOut::defaut());
    vide.SetTaille(4, 4);
    if (ext == "tif") vide.Terminer();
  }
  EXPECT_EQ(test::Lancer(dossier.chemin(), "ls").sortie,
            "morceaux.ppm\nmorceaux.rle\nmorceaux.tif\nvide.tif\n");
  EXPECT_TRUE(test::MemesEchantillons(TTImage<unsigned char>(4, 4, TagNbCanaux(1)),
                                      TTImage<unsigned char>((dossier / "vide.tif").c_str())));
}

}  // namespace
