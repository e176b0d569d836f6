// The PNM format (binary P5 / P6): round trips through real files, hand-written headers with
// comments, refused types and malformed files.
#include <gtest/gtest.h>

#include <functional>

#include "image/handlers.h"
#include "image/pnm.h"
#include "outils_test.h"
#include "zepra/erreur.h"
#include "zepra/systeme.h"
#include "zepra/ttimage.h"

namespace {

void Ecrire(const std::string& chemin, const std::string& octets) {
  std::ofstream f(chemin, std::ios::binary);
  f.write(octets.data(), static_cast<std::streamsize>(octets.size()));
}

std::string TexteErreur(const std::function<void()>& f) {
  try {
    f();
  } catch (const Erreur& e) {
    return e.Texte().str();
  }
  return "(aucune Erreur)";
}

bool Commence(const std::string& texte, const std::string& debut) { return texte.rfind(debut, 0) == 0; }

template <class T>
void AllerRetour(const test::DossierTemp& dossier, int canaux, const char* ext) {
  const int l = 37, h = 11;
  TTImage<T> im(l, h, TagNbCanaux(canaux));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < l; ++x)
      for (int c = 0; c < canaux; ++c) im(x, y, c) = static_cast<T>(x * 2311 + y * 977 + c * 40009);
  const std::string nom =
      dossier / (std::string("a") + std::to_string(sizeof(T)) + "_" + std::to_string(canaux) + ext);
  im.Sauver(nom.c_str());

  // The header viewers expect and the raster bytes, 16-bit samples most significant first.
  const std::string octets = test::LireFichier(nom);
  const std::string entete =
      std::string(canaux == 1 ? "P5" : "P6") + "\n37 11\n" + (sizeof(T) == 1 ? "255" : "65535") + "\n";
  ASSERT_EQ(octets.substr(0, entete.size()), entete);
  ASSERT_EQ(octets.size(), entete.size() + static_cast<size_t>(l * h * canaux) * sizeof(T));
  const unsigned v = static_cast<unsigned>(im(1, 0, 0));
  const size_t o = entete.size() + static_cast<size_t>(canaux) * sizeof(T);  // pixel (1, 0)
  if (sizeof(T) == 2) {
    EXPECT_EQ(static_cast<unsigned char>(octets[o]), v >> 8);
    EXPECT_EQ(static_cast<unsigned char>(octets[o + 1]), v & 0xFF);
  } else {
    EXPECT_EQ(static_cast<unsigned char>(octets[o]), v);
  }

  TTImage<T> lu(nom.c_str());
  ASSERT_EQ(lu.GetTaille(), im.GetTaille());
  ASSERT_EQ(lu.GetNbCanaux(), canaux);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < l; ++x)
      for (int c = 0; c < canaux; ++c)
        ASSERT_EQ(lu(x, y, c), im(x, y, c)) << nom << " " << x << "," << y << "," << c;

  // A rectangle with a step, read into another type, against the image in memory.
  ImageFicIn fichier(nom.c_str());
  TTImage<int> a, b;
  a.Crop(fichier, 3, 2, 30, 9, 4);
  b.Crop(im, 3, 2, 30, 9, 4);
  ASSERT_EQ(a.GetTaille(), b.GetTaille());
  for (int y = 0; y < a.iGetNbLignes(); ++y)
    for (int x = 0; x < a.iGetNbColonnes(); ++x)
      for (int c = 0; c < canaux; ++c) ASSERT_EQ(a(x, y, c), b(x, y, c)) << nom << " crop " << x << "," << y;
}

TEST(PNM, AllerRetour8Et16BitsUnEtTroisCanaux) {
  test::DossierTemp dossier;
  AllerRetour<unsigned char>(dossier, 1, ".pgm");
  AllerRetour<unsigned char>(dossier, 3, ".ppm");
  AllerRetour<unsigned short>(dossier, 1, ".pnm");
  AllerRetour<unsigned short>(dossier, 3, ".ppm");
}

TEST(PNM, EntetesEcritsALaMain) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "main.pgm";
  // Comments after the magic, between the numbers and glued to a number, tabs and CR LF; the single
  // whitespace after maxval is followed by a raster starting with bytes that look like whitespace
  // and '#'.
  Ecrire(nom, std::string("P5 # une vignette\r\n# taille :\n3\t# largeur\n  2\r\n200\n") +
                  std::string("\n #\x07\xc8\x00", 6));
  TTImage<unsigned char> im(nom.c_str());
  ASSERT_EQ(im.GetTaille(), TPoint2D<int>(3, 2));
  const unsigned char attendu[] = {'\n', ' ', '#', 7, 200, 0};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(im(i % 3, i / 3), attendu[i]) << i;

  // A 16-bit P6 (maxval 1000): samples as stored, not scaled.
  const std::string p6 = dossier / "main.ppm";
  Ecrire(p6, std::string("P6\n2 1\n1000\n") +
                 std::string("\x03\xe8\x00\x01\x01\x00\x00\x00\x00\x02\xff\xff", 12));
  ImageFicIn_PNM r(p6);
  EXPECT_EQ(r.MaxVal(), 1000);
  EXPECT_EQ(r.TypePixel(), eUInt2);
  TTImage<unsigned short> c(p6.c_str());
  ASSERT_EQ(c.GetNbCanaux(), 3);
  const unsigned short v[] = {1000, 1, 256, 0, 2, 65535};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(c(i / 3, 0, i % 3), v[i]) << i;
}

TEST(PNM, TypesRefusesALEcriture) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "r.pgm";
  const std::string debut = "[ImageFicOut_PNM] (Constructeur) ";
  EXPECT_TRUE(Commence(TexteErreur([&] { TTImage<float>(2, 2, 1.f).Sauver(nom.c_str()); }),
                       debut + "Type de pixel Float4 (float) non gere pour " + nom));
  EXPECT_TRUE(Commence(TexteErreur([&] { TTImage<short>(2, 2, short(1)).Sauver(nom.c_str()); }),
                       debut + "Type de pixel Int2 (signed short) non gere"));
  EXPECT_TRUE(Commence(TexteErreur([&] { TTImage<bool>(2, 2, true).Sauver(nom.c_str()); }),
                       debut + "Type de pixel Bool (bool) non gere"));
  EXPECT_TRUE(Commence(TexteErreur([&] { TTImage<unsigned char>(2, 2, TagNbCanaux(2)).Sauver(nom.c_str()); }),
                       debut + "2 canaux non geres pour " + nom));
  EXPECT_TRUE(Commence(TexteErreur([&] { TTImage<unsigned char>(0, 0, TagNbCanaux(1)).Sauver(nom.c_str()); }),
                       debut + "Image vide (0 x 0)"));
  const std::string perdu = dossier / "nul/part.ppm";
  EXPECT_TRUE(
      Commence(TexteErreur([&] { TTImage<unsigned char>(2, 2, TagNbCanaux(3)).Sauver(perdu.c_str()); }),
               "[ImageFicOut_PNM::Open(" + perdu + ")] : Probleme a l'ouverture du fichier\n"));
  EXPECT_TRUE(test::Lancer(dossier.chemin(), "ls").sortie.empty());
}

TEST(PNM, FichiersEtrangersEtMalformes) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "m.pgm";
  // Not P5 / P6: declined, so that the registry moves on.
  const char* etrangers[] = {
      "P2\n2 2\n255\n1 2 3 4\n", "P3 1 1 255 1 2 3", "P4\n8 1\n\xff", "", "P", "P5", "P5x", "II*\0"};
  for (const char* e : etrangers) {
    Ecrire(nom, e);
    EXPECT_EQ(CreateReader_PNM(nom), nullptr) << e;
  }
  EXPECT_EQ(CreateReader_PNM(dossier.chemin()), nullptr);

  // P5 / P6 with a broken header or raster: an Erreur naming the fault.
  const std::string open = "[ImageFicIn_PNM::Open(" + nom + ")] : ";
  const std::pair<std::string, std::string> malformes[] = {
      {"P5\n2 2\n0\nabcd", "maxval 0 invalide"},
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
    Ecrire(nom, m.first);
    const std::string t = TexteErreur([&] { TTImage<unsigned char> im(nom.c_str()); });
    EXPECT_TRUE(Commence(t, open + m.second)) << t;
  }
}

TEST(PNM, EcritureParMorceauxDansLeDesordre) {
  test::DossierTemp dossier;
  TTImage<unsigned short> im(20, 5, TagNbCanaux(3));
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 20; ++x)
      for (int c = 0; c < 3; ++c) im(x, y, c) = static_cast<unsigned short>(1000 * c + 50 * y + x);
  const std::string nom = dossier / "morceaux.ppm";
  {
    ImageFicOut sortie(nom.c_str(), OptionsImageOut::defaut());
    sortie.SetTypePixel(eUInt2);
    sortie.SetNbCanaux(TagNbCanaux(3));
    sortie.SetTaille(20, 5);
    sortie.SetValeurs(im.GetLines(), 0, 3, 20, 5, 0, 3, 1);
    sortie.SetValeurs(im.GetLines(), 10, 0, 20, 3, 10, 0, 1);
    sortie.SetValeurs(im.GetLines(), 0, 0, 10, 2, 0, 0, 1);
    EXPECT_TRUE(
        Commence(TexteErreur([&] { sortie.Terminer(); }),
                 "[ImageFicOut_PNM] (Terminer) Image incomplete : 1 lignes non ecrites (la premiere : 2)"));
    sortie.SetValeurs(im.GetLines(), 0, 2, 10, 3, 0, 2, 1);
    sortie.Terminer();
  }
  TTImage<unsigned short> lu(nom.c_str());
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 20; ++x)
      for (int c = 0; c < 3; ++c) ASSERT_EQ(lu(x, y, c), im(x, y, c)) << x << "," << y << "," << c;

  const std::string incomplet = dossier / "incomplet.pgm";
  {
    ImageFicOut sortie(incomplet.c_str(), OptionsImageOut::defaut());
    sortie.SetTaille(4, 4);
    EXPECT_FALSE(TexteErreur([&] { sortie.Terminer(); }) == "(aucune Erreur)");
  }
  EXPECT_FALSE(Systeme::ExisteFichier(incomplet.c_str()));
}

}  // namespace

namespace {

// Every pixel type with one and three channels through each of our writer extensions: what a writer
// accepts reads back sample for sample, what it refuses is an Erreur that leaves no file.
template <class T>
void Matrice(const test::DossierTemp& dossier, const std::string& ext, int canaux) {
  TTImage<T> im(9, 4, TagNbCanaux(canaux));
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 9; ++x)
      for (int c = 0; c < canaux; ++c) im(x, y, c) = Convertir<T, int>((x * 7 + y * 3 + c) % 5 * 50);
  const std::string nom =
      dossier / (std::string("m_") + typeid(T).name() + std::to_string(canaux) + "." + ext);
  const bool pnm16 = std::is_same_v<T, unsigned char> || std::is_same_v<T, unsigned short>;
  const bool accepte = ext == "rle" ? canaux == 1 : pnm16;
  const std::string t = TexteErreur([&] { im.Sauver(nom.c_str()); });
  if (!accepte) {
    EXPECT_NE(t, "(aucune Erreur)") << nom;
    EXPECT_FALSE(Systeme::ExisteFichier(nom.c_str())) << nom;
    return;
  }
  ASSERT_EQ(t, "(aucune Erreur)") << nom;
  const TTImage<T> lu(nom.c_str());
  ASSERT_EQ(lu.GetTaille(), im.GetTaille()) << nom;
  ASSERT_EQ(lu.GetNbCanaux(), canaux) << nom;
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 9; ++x)
      for (int c = 0; c < canaux; ++c) ASSERT_EQ(lu(x, y, c), im(x, y, c)) << nom << " " << x << "," << y;
}

TEST(Registre, NosFormatsPourChaqueTypeEtNombreDeCanaux) {
  test::DossierTemp dossier;
  for (const char* ext : {"rle", "pgm", "pnm", "ppm"}) {
    for (int canaux : {1, 3}) {
      Matrice<bool>(dossier, ext, canaux);
      Matrice<unsigned char>(dossier, ext, canaux);
      Matrice<signed char>(dossier, ext, canaux);
      Matrice<unsigned short>(dossier, ext, canaux);
      Matrice<short>(dossier, ext, canaux);
      Matrice<unsigned int>(dossier, ext, canaux);
      Matrice<int>(dossier, ext, canaux);
      Matrice<float>(dossier, ext, canaux);
      Matrice<double>(dossier, ext, canaux);
    }
  }
  // RLE: the nine types, one channel; PNM: two types, one or three channels, for each extension.
  EXPECT_EQ(test::Lignes(test::Lancer(dossier.chemin(), "ls").sortie).size(), 9u + 3u * 4u);
}

}  // namespace
