// The nine sub-commands run through the built tool on small TIFF files: their console lines, the files
// they write (against direct window sums, by hand, or against the library functions checked on their
// own) and the errors of use.
#include <gtest/gtest.h>

#include <filesystem>

#include "outils_test.h"
#include "pipeline/outils_radiometrie.h"
#include "zepra/pipeline/prelissage.h"
#include "zepra/pipeline/walis.h"

namespace {

std::string Journal(const test::DossierTemp& d) { return test::LireFichier(d / "log.txt"); }

TEST(SousCommandes, UsageEtEntreesQuiNeConviennentPas) {
  test::DossierTemp d;
  TTImage<float>(10, 8, 1.0f).Sauver((d / "i.tif").c_str());
  TTImage<bool>(10, 7, true).Sauver((d / "m.tif").c_str());
  // Exit status 255, exactly 'console' printed, the logged exception beginning with 'message'.
  auto echoue = [&](const std::string& arguments, const std::string& console, const std::string& message) {
    const test::Resultat r = test::Egalise(d.chemin(), arguments);
    EXPECT_EQ(r.statut, 255) << arguments;
    EXPECT_EQ(r.sortie, console) << arguments;
    EXPECT_NE(Journal(d).find("Exception :\n" + message), std::string::npos) << message << "\n" << Journal(d);
  };
  // A missing argument: the usage line, before any file is read. One command per count of arguments
  // (the four others on one image and its mask start as "PrelisseWalis:Moy" does).
  const std::string multi = "image1 masque1 [image2 masque2 ...]";
  const std::pair<std::string, std::string> manquants[] = {
      {"PrelisseWalis:Moy a.tif", "image masque"},
      {"WalisImageReference a b c", "image masque image_reference masque_reference"},
      {"AppliqueGainOffset a b", "image gain offset"},
      {"ModelePolynomialMultiImages", multi},
      {"MoyMasque a b", "image masque demi-largeur"},
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
  // A mask of the wrong size.
  echoue("Stats i.tif m.tif", "",
         "[Main_walis_new] (Stats) Le masque m.tif (10 x 7) n'a pas la taille de l'image i.tif (10 x 8).");

  // A command whose last file cannot be written (a folder holds its name) leaves none of those it
  // wrote before.
  TTImage<bool>(10, 8, true).Sauver((d / "m8.tif").c_str());
  for (const char* dossier : {"stdev.tif", "fout.txt"}) std::filesystem::create_directory(d / dossier);
  const std::string fout = "Impossible d'ecrire fout.txt.";
  const struct {
    const char* arguments;
    const char* console;
    std::string message;
    const char* premier;
  } derniers[] = {
      {"Stats i.tif m8.tif", "", "[ImageFicOut_Raster] (Constructeur) Impossible de renommer stdev.tif",
       "moy.tif"},
      {"ModelePolynomialMonoImage i.tif m8.tif", "80 equations\n",
       "[Main_walis_new] (ModelePolynomialMonoImage) " + fout, "res.tif"},
      {"ModelePolynomialMultiImages i.tif m8.tif i.tif m8.tif", "160 equations\n",
       "[Main_walis_new] (ModelePolynomialMultiImages) " + fout, "i.tifres.tif"},
  };
  for (const auto& c : derniers) {
    echoue(c.arguments, c.console, c.message);
    EXPECT_FALSE(std::filesystem::exists(d / c.premier)) << c.arguments;
  }
}

TEST(SousCommandes, LesNeufCommandesSurDesFichiersTiff) {
  test::DossierTemp d;
  // A textured image, wider than the windows of half-width 25, 50 and 100; a mask that leaves out a
  // block and scattered pixels; a reference mask empty on the left, where windows hold no pixel.
  const int w = 120, h = 20;
  std::mt19937 g(52);
  TTImage<float> image = test::ImageAleatoire(w, h, g, 20.0f, 230.0f), reference = image;
  const TTImage<float> gain = test::ImageAleatoire(w, h, g, 0.5f, 2.0f),
                       offset = test::ImageAleatoire(w, h, g, -50.0f, 50.0f);
  TTImage<bool> masque = test::MasqueAleatoire(w, h, g, 0.9), mr = test::MasqueAleatoire(w, h, g, 0.7);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      image(x, y) += static_cast<float>(x + 2 * y);
      reference(x, y) = 0.5f * image(x, y) + 40.0f;
      if (y >= 5 && y < 10 && x >= 40 && x < 60) masque(x, y) = false;
      if (x < 60) mr(x, y) = false;
    }

  // Local statistics, masked means and the reference correction from direct window sums (0 where a
  // window holds no masked pixel); the gain-offset product by hand.
  TTImage<float> moy(w, h, 0.0f), stdev = moy, lisse = moy, nette = moy, fin = moy, res = moy;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const test::Sommes s = test::SommesFenetre(image, &mr, x, y, 50),
                         l = test::SommesFenetre(image, &mr, x, y, 3);
      const test::Sommes s1 = test::SommesFenetre(image, &masque, x, y, 25),
                         s2 = test::SommesFenetre(reference, &mr, x, y, 25);
      moy(x, y) = static_cast<float>(s.moyenne());
      stdev(x, y) = static_cast<float>(s.ecart());
      lisse(x, y) = static_cast<float>(l.moyenne());
      nette(x, y) = masque(x, y) ? image(x, y) : 0.0f;
      const double k = s1.ecart() == 0.0 ? 1.0 : s2.ecart() / s1.ecart();
      fin(x, y) = masque(x, y) ? static_cast<float>(image(x, y) * k + s2.moyenne() - s1.moyenne() * k) : 0.0f;
      res(x, y) = image(x, y) * gain(x, y) + offset(x, y);  // single-precision multiply, then add
    }
  // The Wallis fields and pre-smoothings from the library, with the commands' constants written out.
  TTImage<float> gw, ow, champs(w, h, TagNbCanaux(2)), prelisseMoy = image, prelissePoly = image;
  GainOffsetWalis(image, masque, gw, ow, 50, 127.5, 50.0);
  champs.CopierCanal(gw, 0, 0);
  champs.CopierCanal(ow, 0, 1);
  PrelisseMoyWalis(prelisseMoy, masque, 100, 50, 127.5, 50.0);
  test::CaptureSortie capture;  // the fits' lines
  PrelissePolyWalis(prelissePoly, masque, 10, 50, 127.5, 50.0, 1);
  // The polynomial models of a degree-2 surface, which degree 6 fits exactly: a masked NaN is no
  // equation but receives the model, unmasked pixels keep their -1; two images each around its own
  // centre, each model saved after its image's name.
  auto surface = [](double x, double y) { return 100.0 + 0.5 * x - 0.25 * y + 0.01 * x * x - 0.02 * x * y; };
  TTImage<float> plan(40, 30, -1.0f), modele = plan, autre(25, 36, 0.0f);
  TTImage<bool> mp = test::MasqueAleatoire(40, 30, g, 0.8);
  mp(0, 0) = true;
  for (int y = 0; y < 36; ++y)
    for (int x = 0; x < 40; ++x) {
      if (x < 25) autre(x, y) = static_cast<float>(surface(x - 12.5, y - 18.0));
      if (y < 30 && mp(x, y)) plan(x, y) = modele(x, y) = static_cast<float>(surface(x - 20.0, y - 15.0));
    }
  plan(0, 0) = std::nanf("");
  const long long n = std::count(mp.begin(), mp.end(), true) - 1;  // (0, 0) is NaN
  const std::pair<const char*, const TTImage<float>*> flottantes[] = {
      {"i.tif", &image},  {"ref.tif", &reference}, {"g.tif", &gain},
      {"o.tif", &offset}, {"plan.tif", &plan},     {"autre.tif", &autre}};
  for (const auto& [nom, im] : flottantes) im->Sauver((d / nom).c_str());
  const TTImage<bool> tout(25, 36, true);
  const std::pair<const char*, const TTImage<bool>*> masques[] = {
      {"m.tif", &masque}, {"mr.tif", &mr}, {"mp.tif", &mp}, {"tout.tif", &tout}};
  for (const auto& [nom, m] : masques) m->Sauver((d / nom).c_str());
  auto equations = [](long long nombre) { return std::to_string(nombre) + " equations\n"; };
  const long long gardes = std::count(masque.begin(), masque.end(), false);  // what the pre-smoothings keep
  const std::string deuxFits = equations(gardes) + equations(gardes);        // one fit per field
  const struct {
    const char* arguments;
    std::string console;
    std::vector<std::pair<const char*, const TTImage<float>*>> fichiers;
    double tolerance;
  } cas[] = {
      {"Stats i.tif mr.tif", "", {{"moy.tif", &moy}, {"stdev.tif", &stdev}}, 1e-3},
      {"MoyMasque i.tif mr.tif 3", "", {{"imlisse.tif", &lisse}}, 1e-4},
      {"MoyMasque i.tif m.tif x7", "", {{"imlisse.tif", &nette}}, 0.0},  // no leading digit: half-width 0
      {"AppliqueGainOffset i.tif g.tif o.tif", "", {{"res.tif", &res}}, 0.0},
      {"WalisImageReference i.tif m.tif ref.tif mr.tif", "", {{"imfin.tif", &fin}}, 1e-3},
      // The two fields as the channels of "imreet.tif"; the image is not corrected.
      {"GainOffsetWalis i.tif m.tif", "", {{"imreet.tif", &champs}}, 0.0},
      // The pre-smoothings: the mask marks the pixels to leave out.
      {"PrelisseWalis:Moy i.tif m.tif", "", {{"imreet.tif", &prelisseMoy}}, 0.0},
      {"PrelisseWalis:Poly i.tif m.tif", deuxFits, {{"imreet.tif", &prelissePoly}}, 0.0},
      {"ModelePolynomialMonoImage plan.tif mp.tif", equations(n), {{"res.tif", &modele}}, 1e-3},
      {"ModelePolynomialMultiImages plan.tif mp.tif autre.tif tout.tif",
       equations(n + 25 * 36),
       {{"plan.tifres.tif", &modele}, {"autre.tifres.tif", &autre}},
       1e-3},
  };
  for (const auto& c : cas) {
    std::remove((d / "fout.txt").c_str());
    const test::Resultat r = test::Egalise(d.chemin(), c.arguments);
    ASSERT_EQ(r.statut, 0) << c.arguments << "\n" << r.sortie << Journal(d);
    EXPECT_EQ(r.sortie, c.console) << c.arguments;
    for (const auto& [nom, attendu] : c.fichiers)
      EXPECT_TRUE(test::MemesPixels(TTImage<float>((d / nom).c_str()), *attendu, c.tolerance))
          << c.arguments << " " << nom;
    // The polynomial commands save the degree, then 28 coefficients; the others write no polynomial.
    const std::string fout = test::LireFichier(d / "fout.txt");
    EXPECT_TRUE(test::Commence(c.arguments, "ModelePolynomial")
                    ? test::Commence(fout, "6 ") && std::count(fout.begin(), fout.end(), ' ') == 28
                    : fout.empty())
        << c.arguments << " " << fout;
  }
}

}  // namespace
