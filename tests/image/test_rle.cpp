// The RLE format: round trips through real files, hand-made files with known answers, the error
// texts, the content judgement of the factory and malformed files.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>

#include "image/handlers.h"
#include "image/rle.h"
#include "outils_test.h"
#include "zepra/erreur.h"
#include "zepra/systeme.h"
#include "zepra/ttimage.h"

namespace {

// Little-endian bytes of a hand-made file.
struct Octets {
  std::string o;
  Octets& i32(int32_t v) {
    for (int i = 0; i < 4; ++i) o.push_back(static_cast<char>((static_cast<uint32_t>(v) >> (8 * i)) & 0xFF));
    return *this;
  }
  Octets& u16(unsigned v) {
    o.push_back(static_cast<char>(v & 0xFF));
    o.push_back(static_cast<char>(v >> 8));
    return *this;
  }
  Octets& u8(unsigned v) {
    o.push_back(static_cast<char>(v));
    return *this;
  }
  Octets& f32(float v) {
    uint32_t u;
    std::memcpy(&u, &v, 4);
    return i32(static_cast<int32_t>(u));
  }
  // The fixed header: stored size, zoom, type bytes, value offset.
  Octets& entete(int c, int l, int z, int typeValeurs, int typeLongueurs, int decalage) {
    return i32(c).i32(l).i32(z).u8(typeValeurs).u8(typeLongueurs).i32(decalage);
  }
  long long taille() const { return static_cast<long long>(o.size()); }
};

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
bool MemesBits(T a, T b) {
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// Values that exercise each type: the extremes, and for floating types NaN and -0.0, which a run
// coder comparing with == would merge or split.
template <class T>
std::vector<T> Valeurs() {
  if constexpr (std::is_same_v<T, bool>) {
    return {true, false};
  } else if constexpr (std::is_floating_point_v<T>) {
    return {T(1.5), std::numeric_limits<T>::quiet_NaN(), T(-0.0),
            T(0.0), std::numeric_limits<T>::max(),       T(-3.25)};
  } else {
    return {std::numeric_limits<T>::max(), std::numeric_limits<T>::min(), T(0), T(1), T(100)};
  }
}

// 140000 columns: a run of 140000 (two maximal fields and the rest), exactly 65535 then short runs,
// one run per pixel, exactly 2 x 65535 then the rest.
template <class T>
TTImage<T> ImageDeRuns() {
  const int l = 140000;
  const std::vector<T> v = Valeurs<T>();
  const size_t n = v.size();
  TTImage<T> im(l, 4, TagNbCanaux(1));
  for (int x = 0; x < l; ++x) {
    im(x, 0) = v[0];
    im(x, 1) = x < 65535 ? v[1] : v[(x / (1 + x % 3)) % n];
    im(x, 2) = v[(static_cast<size_t>(x) * 7919u) % n];
    im(x, 3) = x < 131070 ? v[2 % n] : v[3 % n];
  }
  return im;
}

template <class T>
void VerifieIdentiques(const TTImage<T>& a, const TTImage<T>& b, const char* quoi) {
  ASSERT_EQ(a.GetTaille(), b.GetTaille()) << quoi;
  for (int y = 0; y < a.iGetNbLignes(); ++y)
    for (int x = 0; x < a.iGetNbColonnes(); ++x)
      ASSERT_TRUE(MemesBits<T>(a(x, y), b(x, y)))
          << quoi << " " << typeid(T).name() << " (" << x << "," << y << ")";
}

template <class T>
void AllerRetour(const test::DossierTemp& dossier) {
  const std::string nom = dossier / (std::string("runs_") + typeid(T).name() + ".rle");
  const TTImage<T> im = ImageDeRuns<T>();
  im.Sauver(nom.c_str());

  // The header as written: 16-bit lengths, zoom 1, offset 0; a bool image is stored as UInt1.
  const std::string octets = test::LireFichier(nom);
  ASSERT_GE(octets.size(), 34u);
  const EnteteRLE e = EnteteRLE::DecoderFixe(reinterpret_cast<const unsigned char*>(octets.data()));
  EXPECT_EQ(e.colonnes, 140000);
  EXPECT_EQ(e.lignes, 4);
  EXPECT_EQ(e.zoom, 1);
  EXPECT_EQ(e.typeValeurs, InfoType::TypeVal(std::is_same_v<T, bool> ? eUInt1 : CodeType<T>::value));
  EXPECT_EQ(e.typeLongueurs, 50);
  EXPECT_EQ(e.decalage, 0);
  // Line 0 is one run of 140000: fields 65535, 65535, 8930 then the value.
  const size_t debut0 = 34;
  const size_t valeur = static_cast<size_t>(TailleChamp<T>() == 0 ? 1 : TailleChamp<T>());
  ASSERT_EQ(octets.size() > debut0 + 6, true);
  EXPECT_EQ(octets.substr(debut0, 6), Octets().u16(65535).u16(65535).u16(8930).o);
  EXPECT_EQ(DecoderChamp<int32_t>(reinterpret_cast<const unsigned char*>(octets.data()) + 22),
            static_cast<int32_t>(debut0 + 6 + valeur));

  TTImage<T> lu;
  lu.Lire(nom.c_str());
  VerifieIdentiques(im, lu, "Lire");

  // Rectangles and steps against the same crops of the image in memory.
  ImageFicIn fichier(nom.c_str());
  const int rects[][5] = {
      {65530, 0, 20, 4, 1}, {3, 1, 139995, 3, 7}, {131060, 0, 8940, 4, 3}, {0, 0, 140000, 4, 65536}};
  for (const auto& r : rects) {
    TTImage<T> a, b;
    a.Crop(fichier, r[0], r[1], r[2], r[3], r[4]);
    b.Crop(im, r[0], r[1], r[2], r[3], r[4]);
    VerifieIdentiques(b, a, "Crop");
  }
}

TEST(RLE, AllerRetourParFichierPourChaqueType) {
  test::DossierTemp dossier;
  AllerRetour<bool>(dossier);
  AllerRetour<unsigned char>(dossier);
  AllerRetour<signed char>(dossier);
  AllerRetour<unsigned short>(dossier);
  AllerRetour<short>(dossier);
  AllerRetour<unsigned int>(dossier);
  AllerRetour<int>(dossier);
  AllerRetour<float>(dossier);
  AllerRetour<double>(dossier);

  // Read into another type: the plain cast of every value.
  const std::string nom = dossier / "conversion.rle";
  TTImage<float> f(5, 2, TagNbCanaux(1));
  const float v[] = {300.7f, -0.9f, 65535.f, -2.5f, 7.f};
  for (int x = 0; x < 5; ++x) f(x, 0) = f(x, 1) = v[x];
  f.Sauver(nom.c_str());
  TTImage<unsigned char> u;
  u.Lire(nom.c_str());
  for (int x = 0; x < 5; ++x) EXPECT_EQ(u(x, 1), (Convertir<unsigned char, float>(v[x]))) << x;
}

TEST(RLE, FichiersFaitsMainAvecReponsesConnues) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "main.rle";
  auto lire = [&](const Octets& o) {
    Ecrire(nom, o.o);
    TTImage<int> im;
    im.Lire(nom.c_str());
    return im;
  };

  // Zoom 2: a stored 3 x 1 line, one run of 3 of value 9, reads as 6 x 2 of 9.
  Octets zoom;
  zoom.entete(3, 1, 2, 40, 40, 0);  // UInt1 values, 8-bit lengths
  zoom.i32(22);                     // line 0 starts after the 22-byte header
  zoom.u8(3).u8(9);                 // run: length 3, value 9
  TTImage<int> im = lire(zoom);
  ASSERT_EQ(im.GetTaille(), TPoint2D<int>(6, 2));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 6; ++x) EXPECT_EQ(im(x, y), 9);

  // Zoom 3 on two stored lines of several runs, read with a step: every stored run covers 3 columns
  // per stored column and every stored line 3 image lines.
  Octets z3;
  z3.entete(4, 2, 3, 51, 50, 0);                                    // Int2 values, 16-bit lengths
  z3.i32(26).i32(34);                                               // lines at 26 and 34
  z3.u16(1).u16(static_cast<unsigned>(-5) & 0xFFFF).u16(3).u16(7);  // line 0: -5, 7, 7, 7
  z3.u16(2).u16(1).u16(2).u16(2);                                   // line 1: 1, 1, 2, 2
  Ecrire(nom, z3.o);
  ImageFicIn f3(nom.c_str());
  ASSERT_EQ(f3.GetTaille(), TPoint2D<int>(12, 6));
  TTImage<int> c;
  c.Crop(f3, 1, 1, 11, 5, 2);  // columns 1, 3, 5, 7, 9, 11 of lines 1, 3, 5
  const int attendu[3][6] = {{-5, 7, 7, 7, 7, 7}, {1, 1, 1, 2, 2, 2}, {1, 1, 1, 2, 2, 2}};
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 6; ++x) EXPECT_EQ(c(x, y), attendu[y][x]) << x << "," << y;

  // 8-bit continuation: a run of 300 is the fields 255 and 45; a run of exactly 255 ends with 0.
  Octets c8;
  c8.entete(556, 1, 1, 40, 40, 0).i32(22);
  c8.u8(255).u8(45).u8(4);  // 300 of 4
  c8.u8(255).u8(0).u8(5);   // 255 of 5
  c8.u8(1).u8(6);           // 1 of 6
  im = lire(c8);
  ASSERT_EQ(im.GetTaille(), TPoint2D<int>(556, 1));
  EXPECT_EQ(im(0, 0), 4);
  EXPECT_EQ(im(299, 0), 4);
  EXPECT_EQ(im(300, 0), 5);
  EXPECT_EQ(im(554, 0), 5);
  EXPECT_EQ(im(555, 0), 6);

  // 16-bit continuation: 65535 then the rest, 70000 columns of one float value.
  Octets c16;
  c16.entete(70000, 1, 1, 71, 50, 0).i32(22);  // Float4 values
  c16.u16(65535).u16(4465).f32(2.75f);
  TTImage<float> fl;
  Ecrire(nom, c16.o);
  fl.Lire(nom.c_str());
  ASSERT_EQ(fl.iGetNbColonnes(), 70000);
  EXPECT_EQ(fl(0, 0), 2.75f);
  EXPECT_EQ(fl(69999, 0), 2.75f);

  // Value offset: 100 turns stored 0 into 100, and on unsigned bytes 200 + 100 wraps to 44.
  Octets dec;
  dec.entete(3, 1, 1, 40, 40, 100).i32(22);
  dec.u8(2).u8(0).u8(1).u8(200);
  im = lire(dec);
  EXPECT_EQ(im(0, 0), 100);
  EXPECT_EQ(im(1, 0), 100);
  EXPECT_EQ(im(2, 0), 44);

  // Run-length type byte 10: one byte per length, no continuation: 255 is a whole run of 255.
  Octets t10;
  t10.entete(256, 1, 1, 41, 10, 0).i32(22);  // Int1 values
  t10.u8(255).u8(static_cast<unsigned>(-3) & 0xFF).u8(1).u8(8);
  im = lire(t10);
  EXPECT_EQ(im(254, 0), -3);
  EXPECT_EQ(im(255, 0), 8);

  // Bool values hold no byte: the value is the offset alone.
  Octets b;
  b.entete(4, 1, 1, 20, 40, 1).i32(22).u8(4);
  TTImage<unsigned char> ib;
  Ecrire(nom, b.o);
  ib.Lire(nom.c_str());
  EXPECT_EQ(ib(3, 0), 1);
}

TEST(RLE, TextesDesErreurs) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "e.rle";
  const std::string absent = dossier / "absent.rle";
  EXPECT_TRUE(
      Commence(TexteErreur([&] { ImageFicIn_RLE r(absent); }),
               "[ImageFicIn_RLE::Open(" + absent + ")] : Probleme a l'ouverture du fichier (Fichier : "));

  // Run lengths typed UInt4 (60): the byte is printed as a character, '<'.
  Ecrire(nom, Octets().entete(1, 1, 1, 40, 60, 0).i32(22).u8(1).u8(0).u8(0).u8(0).u8(7).o);
  EXPECT_TRUE(Commence(
      TexteErreur([&] { ImageFicIn_RLE r(nom); }),
      "[ImageFicIn_RLE::Open(" + nom + ")] : codage des longueurs de run sur < octets non autorise"));
  Ecrire(nom, Octets().entete(1, 1, 1, 99, 40, 0).i32(22).u8(1).u8(7).o);
  EXPECT_TRUE(Commence(TexteErreur([&] { ImageFicIn_RLE r(nom); }),
                       "[InfoType] (ValType (int)) mauvaise valeur de type"));

  Ecrire(nom, Octets().entete(1, 1, 1, 40, 40, 0).i32(22).u8(1).u8(7).o);
  ImageFicIn_RLE r(nom);
  char tampon[4];
  EXPECT_TRUE(Commence(TexteErreur([&] { r.RawRead(tampon, 4); }),
                       "[ImageFicIn_RLE] (RawRead) Appel a une methode impossible."));

  // The writer: one channel only, no raw write, a folder that does not exist. No file is left.
  TTImage<unsigned char> rvb(4, 4, TagNbCanaux(3));
  const std::string multi = dossier / "rvb.rle";
  EXPECT_TRUE(Commence(TexteErreur([&] { rvb.Sauver(multi.c_str()); }),
                       "[ImageFicOut_RLE::SetNbCanaux(3)] images multi-canal non gerees (Fichier : "));
  ImageInfos infos;
  infos.taille = TPoint2D<int>(2, 2);
  const std::string ecrit = dossier / "w.rle";
  {
    ImageFicOut_RLE w(ecrit, infos);
    EXPECT_TRUE(
        Commence(TexteErreur([&] { w.RawWrite(tampon, 4); }), "ImageFicOut_RLE::RawWrite impossible"));
  }
  const std::string perdu = dossier / "nul/part.rle";
  EXPECT_TRUE(
      Commence(TexteErreur([&] { ImageFicOut_RLE w(perdu, infos); }),
               "[ImageFicOut_RLE::Open(" + perdu + ")] : Probleme a l'ouverture du fichier\n (Fichier : "));
  EXPECT_TRUE(test::Lignes(test::Lancer(dossier.chemin(), "ls").sortie).size() == 1u);  // only e.rle
}

TEST(RLE, LeContenuDecideEtNonLeNom) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "x.rle";
  // A little-endian TIFF header and first directory entry.
  Octets tiff;
  tiff.u8('I').u8('I').u8(42).u8(0).i32(8).u16(12).u16(256).u16(3).i32(1).i32(640);
  for (int i = 0; i < 200; ++i) tiff.u8(static_cast<unsigned>(i));
  Ecrire(nom, tiff.o);
  EXPECT_EQ(CreateReader_RLE(nom), nullptr);
  // Through the registry the TIFF reader takes it, and refuses its truncated directory.
  EXPECT_TRUE(Commence(TexteErreur([&] { TTImage<float> t(nom.c_str()); }), "[")) << nom;

  std::mt19937 alea(12345);
  for (int essai = 0; essai < 200; ++essai) {
    std::string o(static_cast<size_t>(alea() % 4096), '\0');
    for (char& c : o) c = static_cast<char>(alea());
    Ecrire(nom, o);
    EXPECT_EQ(CreateReader_RLE(nom), nullptr) << "essai " << essai;
  }
  Ecrire(nom, "");
  EXPECT_EQ(CreateReader_RLE(nom), nullptr);
  Ecrire(nom, "P5\n2 2\n255\nabcd");
  EXPECT_EQ(CreateReader_RLE(nom), nullptr);
  EXPECT_EQ(CreateReader_RLE(dossier.chemin()), nullptr);

  // The same bytes as a real RLE file are accepted whatever the name.
  const std::string autre = dossier / "masque.tif";
  Ecrire(autre, Octets().entete(2, 1, 1, 40, 40, 0).i32(22).u8(2).u8(1).o);
  EXPECT_NE(CreateReader_RLE(autre), nullptr);
  TTImage<unsigned char> m(autre.c_str());
  EXPECT_EQ(m(1, 0), 1);
}

TEST(RLE, FichiersMalformesFinissentEnErreur) {
  test::DossierTemp dossier;
  const std::string nom = dossier / "m.rle";
  auto erreurALecture = [&](const Octets& o, const std::string& debut) {
    Ecrire(nom, o.o);
    const std::string t = TexteErreur([&] { TTImage<double> im(nom.c_str()); });
    EXPECT_TRUE(Commence(t, debut)) << t;
  };
  const std::string run = "[ImageFicIn_RLE] (GetValeurs) ";
  // Accepted headers, corrupt runs.
  erreurALecture(Octets().entete(3, 1, 1, 40, 40, 0).i32(22).u8(2).u8(1).u8(2).u8(1),
                 run + "Run depassant la ligne 0");
  erreurALecture(Octets().entete(3, 1, 1, 40, 40, 0).i32(22).u8(0).u8(1).u8(3).u8(1),
                 run + "Run de longueur nulle");
  erreurALecture(Octets().entete(600, 1, 1, 40, 40, 0).i32(22).u8(255).u8(255).u8(1).u8(0).u8(1),
                 run + "Fin du fichier");  // the line ends before its 600 columns
  // A continuation chain longer than the line stops at the first field that leaves it.
  Octets chaine;
  chaine.entete(300, 1, 1, 40, 50, 0).i32(22);
  for (int i = 0; i < 40; ++i) chaine.u16(65535);
  erreurALecture(chaine, run + "Run depassant la ligne 0");

  // Inconsistent headers are declined (no handler), and ImageFicIn_RLE says why.
  const std::string aucun = "[ImageFicIn] (Constructeur) Aucun gestionnaire";
  const std::string open = "[ImageFicIn_RLE::Open(" + nom + ")] : ";
  const std::pair<Octets, std::string> refus[] = {
      {Octets().entete(0, 1, 1, 40, 40, 0).i32(22).u8(1).u8(1), "taille stockee 0 x 1"},
      {Octets().entete(2, 1, 0, 40, 40, 0).i32(22).u8(2).u8(1), "taille stockee 2 x 1 et zoom 0"},
      {Octets().entete(2, 1, 1, 40, 40, 0).i32(99).u8(2).u8(1), "ligne 0 : debut des runs a l'octet 99"},
      {Octets().entete(2, 1, 1, 40, 40, 0).i32(-4).u8(2).u8(1), "ligne 0 : debut des runs a l'octet -4"},
      {Octets().entete(2, 1, 1, 40, 40, 0).i32(10).u8(2).u8(1), "ligne 0 : debut des runs a l'octet 10"},
      {Octets().entete(2, 1000000, 1, 40, 40, 0).i32(22).u8(2).u8(1), "entete de 4000018 octets"},
      {Octets().entete(5000, 1, 1, 40, 40, 0).i32(22).u8(2).u8(1), "ligne 0 : 5000 colonnes ne tiennent pas"},
      {Octets().entete(2, 1, 1 << 30, 40, 40, 0).i32(22).u8(2).u8(1), "zoom 1073741824 sur 2 x 1"},
      {Octets().entete(2, 1, 1, 2, 40, 0).i32(22).u8(2), "valeurs de type Autre : rien a lire"},
  };
  for (const auto& r : refus) {
    erreurALecture(r.first, aucun);
    EXPECT_EQ(TexteErreur([&] { ImageFicIn_RLE f(nom); }).rfind(open + r.second, 0), 0u) << r.second;
  }

  // A consistent file presenting far more pixels than its bytes can justify is an Erreur of its own.
  erreurALecture(Octets().entete(2, 1, 40000, 40, 40, 0).i32(22).u8(2).u8(1),
                 open + "image presentee de 80000 x 40000");

  // A valid file cut anywhere never reads as an image.
  TTImage<short> source(40, 3, TagNbCanaux(1));
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 40; ++x) source(x, y) = static_cast<short>((x / (y + 1)) % 7 - 3);
  const std::string complet = dossier / "complet.rle";
  source.Sauver(complet.c_str());
  const std::string octets = test::LireFichier(complet);
  for (size_t n = 0; n < octets.size(); ++n) {
    Ecrire(nom, octets.substr(0, n));
    EXPECT_NE(TexteErreur([&] { TTImage<short> im(nom.c_str()); }), "(aucune Erreur)") << n << " octets";
  }
}

TEST(RLE, EcritureParMorceauxDansLeDesordre) {
  test::DossierTemp dossier;
  TTImage<unsigned short> im(50, 6, TagNbCanaux(1));
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 50; ++x) im(x, y) = static_cast<unsigned short>(x < 20 ? y : 1000 + x / 10);
  const std::string nom = dossier / "morceaux.rle";
  {
    ImageFicOut sortie(nom.c_str(), OptionsImageOut::defaut());
    sortie.SetTypePixel(eUInt2);
    sortie.SetTaille(50, 6);
    sortie.SetValeurs(im.GetLines(), 0, 4, 50, 6, 0, 4, 1);    // lines 4-5 whole
    sortie.SetValeurs(im.GetLines(), 30, 0, 50, 4, 30, 0, 1);  // right part of lines 0-3
    sortie.SetValeurs(im.GetLines(), 0, 0, 35, 4, 0, 0, 1);    // left part, overlapping
    EXPECT_TRUE(Commence(TexteErreur([&] { sortie.SetValeurs(im.GetLines(), 0, 1, 5, 2, 0, 1, 1); }),
                         "[ImageFicOut_RLE] (SetValeurs) Ligne 1 du fichier " + nom + " deja ecrite"));
    EXPECT_FALSE(Systeme::ExisteFichier(nom.c_str()));  // not before Terminer
    sortie.Terminer();
  }
  TTImage<unsigned short> lu(nom.c_str());
  VerifieIdentiques(im, lu, "morceaux");

  // An image never completed leaves no file.
  const std::string incomplet = dossier / "incomplet.rle";
  {
    ImageFicOut sortie(incomplet.c_str(), OptionsImageOut::defaut());
    sortie.SetTypePixel(eUInt2);
    sortie.SetTaille(50, 6);
    sortie.SetValeurs(im.GetLines(), 0, 0, 50, 5, 0, 0, 1);
    EXPECT_TRUE(
        Commence(TexteErreur([&] { sortie.Terminer(); }),
                 "[ImageFicOut_RLE] (Terminer) Image incomplete : 1 lignes non ecrites (la premiere : 5)"));
  }
  EXPECT_FALSE(Systeme::ExisteFichier(incomplet.c_str()));
  EXPECT_EQ(test::Lignes(test::Lancer(dossier.chemin(), "ls").sortie).size(), 1u);
}

}  // namespace
