// The nine sub-commands run through the built tool on small TIFF files: their console lines, the files
// they write and the errors of use.
#include <gtest/gtest.h>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "polynome.h"
#include "prelissage.h"
#include "walis.h"

namespace {

std::string Journal(const test::DossierTemp& d) { return test::LireFichier(d / "log.txt"); }

void Ecrire(const TTImage<float>& im, const std::string& chemin) { im.Sauver(chemin.c_str()); }

// Masks are written as 0 / 1 bytes; the tool reads any non-zero sample as true.
void EcrireMasque(const TTImage<bool>& m, const std::string& chemin) {
  TTImage<unsigned char> octets(m.iGetNbColonnes(), m.iGetNbLignes(), TagNbCanaux(1));
  for (int y = 0; y < m.iGetNbLignes(); ++y)
    for (int x = 0; x < m.iGetNbColonnes(); ++x) octets(x, y) = m(x, y);
  octets.Sauver(chemin.c_str());
}

TTImage<float> Lire(const std::string& chemin) { return TTImage<float>(chemin.c_str()); }

// Runs the tool, which must succeed and print exactly 'console'.
void Reussit(const test::DossierTemp& d, const std::string& arguments, const std::string& console) {
  const test::Resultat r = test::Egalise(d.chemin(), arguments);
  ASSERT_EQ(r.statut, 0) << arguments << "\n" << r.sortie << Journal(d);
  EXPECT_EQ(r.sortie, console) << arguments;
}

TEST(SousCommandes, UsageEtEntreesQuiNeConviennentPas) {
  test::DossierTemp d;
  Ecrire(TTImage<float>(10, 8, 1.0f), d / "i.tif");
  EcrireMasque(TTImage<bool>(10, 7, true), d / "m.tif");
  Ecrire(TTImage<float>(10, 8, TagNbCanaux(3)), d / "rvb.tif");
  // Exit status 255, exactly 'console' printed, the logged exception beginning with 'message'.
  auto echoue = [&](const std::string& arguments, const std::string& console, const std::string& message) {
    const test::Resultat r = test::Egalise(d.chemin(), arguments);
    EXPECT_EQ(r.statut, 255) << arguments;
    EXPECT_EQ(r.sortie, console) << arguments;
    EXPECT_NE(Journal(d).find("Exception :\n" + message), std::string::npos) << message << "\n" << Journal(d);
  };
  // A missing argument: the usage line, before any file is read.
  const std::string multi = "image1 masque1 [image2 masque2 ...]";
  const std::pair<std::string, std::string> manquants[] = {
      {"PrelisseWalis:Moy a.tif", "image masque"},
      {"PrelisseWalis:Poly", "image masque"},
      {"WalisImageReference a b c", "image masque image_reference masque_reference"},
      {"AppliqueGainOffset a b", "image gain offset"},
      {"ModelePolynomialMonoImage a", "image masque"},
      {"ModelePolynomialMultiImages", multi},
      {"MoyMasque a b", "image masque demi-largeur"},
      {"Stats a", "image masque"},
      {"GainOffsetWalis", "image masque"},
  };
  for (const auto& [arguments, usage] : manquants) {
    const std::string commande = arguments.substr(0, arguments.find(' '));
    echoue(arguments, "./exe " + commande + " " + usage + "\n",
           "[Main_walis_new] (" + commande + ") Argument manquant : ");
  }
  echoue("ModelePolynomialMultiImages a b c", "./exe ModelePolynomialMultiImages " + multi + "\n",
         "[Main_walis_new] (ModelePolynomialMultiImages) L'image c n'a pas de masque.");
  echoue("MoyMasque absente.tif absente.tif -3", "",
         "[Main_walis_new] (MoyMasque) Demi-largeur negative : -3.");
  // Files that do not fit: a mask of the wrong size, three channels, no file at all.
  for (const std::string commande :
       {"Stats", "GainOffsetWalis", "PrelisseWalis:Poly", "ModelePolynomialMultiImages"})
    echoue(commande + " i.tif m.tif", "",
           "[Main_walis_new] (" + commande +
               ") Le masque m.tif (10 x 7) n'a pas la taille de l'image i.tif (10 x 8).");
  echoue("WalisImageReference rvb.tif m.tif i.tif m.tif", "",
         "[Main_walis_new] (WalisImageReference) L'image rvb.tif a 3 canaux ; une image a un canal est "
         "attendue.");
  echoue("Stats absente.tif m.tif", "", "[ImageFicIn] (Constructeur) Aucun gestionnaire (handler)");
  // Nothing was written by the failed runs.
  for (const char* nom : {"imreet.tif", "imfin.tif", "res.tif", "fout.txt", "imlisse.tif", "moy.tif"})
    EXPECT_FALSE(std::ifstream(d / nom).good()) << nom;
}

TEST(SousCommandes, LesNeufCommandesSurDesFichiersTiff) {
  test::DossierTemp d;
  // A textured image, wider than the windows of half-width 25, 50 and 100, and a mask that leaves out
  // a block and scattered pixels.
  const int w = 120, h = 20;
  std::mt19937 g(52);
  TTImage<float> image = test::ImageAleatoire(w, h, g, 20.0f, 230.0f), reference = image, res = image;
  const TTImage<float> gain = test::ImageAleatoire(w, h, g, 0.5f, 2.0f);
  const TTImage<float> offset = test::ImageAleatoire(w, h, g, -50.0f, 50.0f);
  TTImage<bool> masque = test::MasqueAleatoire(w, h, g, 0.9);
  const TTImage<bool> masqueReference = test::MasqueAleatoire(w, h, g, 0.7);
  long long gardes = 0;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      image(x, y) += static_cast<float>(x + 2 * y);
      reference(x, y) = 0.5f * image(x, y) + 40.0f;
      const float produit = image(x, y) * gain(x, y);  // single-precision multiply, then add
      res(x, y) = produit + offset(x, y);
      if (y >= 5 && y < 10 && x >= 40 && x < 60) masque(x, y) = false;
      gardes += !masque(x, y);
    }
  Ecrire(image, d / "i.tif");
  EcrireMasque(masque, d / "m.tif");
  Ecrire(reference, d / "ref.tif");
  EcrireMasque(masqueReference, d / "mr.tif");
  Ecrire(gain, d / "g.tif");
  Ecrire(offset, d / "o.tif");

  // What the library functions give on the same data (they are checked on their own elsewhere).
  TTImage<float> moy, stdev, lisse = image, champs, prelisseMoy = image, prelissePoly = image, fin = image,
                             go;
  StatsLocales(image, masque, 50, moy, stdev);
  MoyMasque(lisse, masque, 3);
  GainOffsetWalisFenetre(image, masque, champs, T2D<double>(127.5, 50.0));
  PrelisseWalisMoy(prelisseMoy, masque, T2D<double>(127.5, 50.0));
  GainOffsetWalisReference(image, masque, reference, masqueReference, go, 25);
  AppliqueGainOffset(fin, go);
  {
    test::CaptureSortie capture;
    PrelissePolyWalis(prelissePoly, masque, 10, 50, 127.5, 50.0, 1);
  }
  const std::string equations = std::to_string(gardes) + " equations\n";
  const struct {
    const char* arguments;
    std::string console;
    std::vector<std::pair<const char*, const TTImage<float>*>> fichiers;
  } cas[] = {
      {"Stats i.tif m.tif", "", {{"moy.tif", &moy}, {"stdev.tif", &stdev}}},
      {"MoyMasque i.tif m.tif 3", "", {{"imlisse.tif", &lisse}}},
      // The two fields as the channels of "imreet.tif"; the image is not corrected.
      {"GainOffsetWalis i.tif m.tif", "", {{"imreet.tif", &champs}}},
      // The pre-smoothings: the mask marks the pixels to leave out.
      {"PrelisseWalis:Moy i.tif m.tif", "", {{"imreet.tif", &prelisseMoy}}},
      {"PrelisseWalis:Poly i.tif m.tif", equations + equations, {{"imreet.tif", &prelissePoly}}},
      {"AppliqueGainOffset i.tif g.tif o.tif", "", {{"res.tif", &res}}},
      {"WalisImageReference i.tif m.tif ref.tif mr.tif", "", {{"imfin.tif", &fin}}},
  };
  for (const auto& c : cas) {
    Reussit(d, c.arguments, c.console);
    for (const auto& [nom, attendu] : c.fichiers)
      EXPECT_TRUE(test::MemesPixels(Lire(d / nom), *attendu)) << nom;
  }
  // No leading digit: half-width 0, so masked pixels keep their value and the others become 0.
  Reussit(d, "MoyMasque i.tif m.tif x7", "");
  lisse = Lire(d / "imlisse.tif");
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) ASSERT_EQ(lisse(x, y), masque(x, y) ? image(x, y) : 0.0f);

  // The polynomial models of a degree-2 surface, which degree 6 fits exactly: a masked NaN is no
  // equation but receives the model, unmasked pixels keep their values; two images each around its
  // own centre, each model saved after its image's name.
  auto surface = [](double x, double y) { return 100.0 + 0.5 * x - 0.25 * y + 0.01 * x * x - 0.02 * x * y; };
  TTImage<float> plan(40, 30, TagNbCanaux(1)), autre(25, 36, TagNbCanaux(1));
  TTImage<bool> mp = test::MasqueAleatoire(40, 30, g, 0.8);
  mp(0, 0) = true;
  long long n = -1;  // (0, 0) is NaN
  for (int y = 0; y < 36; ++y)
    for (int x = 0; x < 40; ++x) {
      if (x < 25) autre(x, y) = static_cast<float>(surface(x - 12.5, y - 18.0));
      if (y >= 30) continue;
      plan(x, y) = mp(x, y) ? static_cast<float>(surface(x - 20.0, y - 15.0)) : -1.0f;
      n += mp(x, y);
    }
  plan(0, 0) = std::nanf("");
  Ecrire(plan, d / "plan.tif");
  Ecrire(autre, d / "autre.tif");
  EcrireMasque(mp, d / "mp.tif");
  EcrireMasque(TTImage<bool>(25, 36, true), d / "tout.tif");
  Reussit(d, "ModelePolynomialMonoImage plan.tif mp.tif", std::to_string(n) + " equations\n");
  const TTImage<float> modele = Lire(d / "res.tif");
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x)
      ASSERT_NEAR(modele(x, y), mp(x, y) ? surface(x - 20.0, y - 15.0) : -1.0, 1e-3) << x << "," << y;
  const std::string fout = test::LireFichier(d / "fout.txt");  // the degree, then 28 coefficients
  EXPECT_TRUE(test::Commence(fout, "6 ") && std::count(fout.begin(), fout.end(), ' ') == 28) << fout;
  Reussit(d, "ModelePolynomialMultiImages plan.tif mp.tif autre.tif tout.tif",
          std::to_string(n + 25 * 36) + " equations\n");
  EXPECT_NEAR(Lire(d / "plan.tifres.tif")(0, 0), surface(-20.0, -15.0), 1e-3);
  EXPECT_NEAR(Lire(d / "autre.tifres.tif")(3, 30), surface(3 - 12.5, 12.0), 1e-3);
  EXPECT_TRUE(test::Commence(test::LireFichier(d / "fout.txt"), "6 "));
}

}  // namespace
