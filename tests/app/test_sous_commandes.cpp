// The nine sub-commands run through the built tool on small files: their console lines, the files they
// write and the errors of use.
#include <gtest/gtest.h>

#include "outils_radiometrie.h"
#include "outils_test.h"
#include "polynome.h"
#include "prelissage.h"
#include "walis.h"
#include "zepra/erreur.h"

namespace {

std::string Journal(const test::DossierTemp& d) { return test::LireFichier(d / "log.txt"); }

void Ecrire(const TTImage<float>& im, const std::string& chemin) { im.Sauver(chemin.c_str()); }

// Masks are written as 0 / 1 bytes; the tool reads any non-zero sample as true.
void EcrireMasque(const TTImage<bool>& m, const std::string& chemin) {
  TTImage<unsigned char> octets(m.iGetNbColonnes(), m.iGetNbLignes(), TagNbCanaux(1));
  for (int y = 0; y < m.iGetNbLignes(); ++y)
    for (int x = 0; x < m.iGetNbColonnes(); ++x) octets(x, y) = m(x, y) ? 1 : 0;
  octets.Sauver(chemin.c_str());
}

TTImage<float> Lire(const std::string& chemin) { return TTImage<float>(chemin.c_str()); }

void ExpectMemesPixels(const TTImage<float>& a, const TTImage<float>& b, const std::string& quoi) {
  ASSERT_EQ(a.GetTaille(), b.GetTaille()) << quoi;
  ASSERT_EQ(a.GetNbCanaux(), b.GetNbCanaux()) << quoi;
  for (int y = 0; y < a.iGetNbLignes(); ++y)
    for (int x = 0; x < a.iGetNbColonnes(); ++x)
      for (int c = 0; c < a.GetNbCanaux(); ++c)
        ASSERT_TRUE(a(x, y, c) == b(x, y, c) || (std::isnan(a(x, y, c)) && std::isnan(b(x, y, c))))
            << quoi << " " << x << "," << y << "," << c;
}

// A textured image and a mask that leaves out a block and scattered pixels.
struct Donnees {
  TTImage<float> image;
  TTImage<bool> masque;
  Donnees(int w, int h, unsigned graine) {
    std::mt19937 g(graine);
    image = test::ImageAleatoire(w, h, g, 20.0f, 230.0f);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) image(x, y) += static_cast<float>(x + 2 * y);
    masque = test::MasqueAleatoire(w, h, g, 0.9);
    for (int y = h / 4; y < h / 2; ++y)
      for (int x = w / 3; x < w / 2; ++x) masque(x, y) = false;
  }
};

TEST(SousCommandes, UnArgumentManquantAfficheLUsageEtFinitEnErreur) {
  test::DossierTemp d;
  struct Cas {
    const char* arguments;
    const char* usage;
  };
  const Cas cas[] = {
      {"PrelisseWalis:Moy a.tif", "./exe PrelisseWalis:Moy image masque"},
      {"PrelisseWalis:Poly", "./exe PrelisseWalis:Poly image masque"},
      {"WalisImageReference a b c",
       "./exe WalisImageReference image masque image_reference masque_reference"},
      {"AppliqueGainOffset a b", "./exe AppliqueGainOffset image gain offset"},
      {"ModelePolynomialMonoImage a", "./exe ModelePolynomialMonoImage image masque"},
      {"ModelePolynomialMultiImages",
       "./exe ModelePolynomialMultiImages image1 masque1 [image2 masque2 ...]"},
      {"ModelePolynomialMultiImages a b c",
       "./exe ModelePolynomialMultiImages image1 masque1 [image2 masque2 ...]"},
      {"MoyMasque a b", "./exe MoyMasque image masque demi-largeur"},
      {"Stats a", "./exe Stats image masque"},
      {"GainOffsetWalis", "./exe GainOffsetWalis image masque"},
  };
  for (const Cas& c : cas) {
    const test::Resultat r = test::Egalise(d.chemin(), c.arguments);
    EXPECT_EQ(r.statut, 255) << c.arguments;
    EXPECT_EQ(r.sortie, std::string(c.usage) + "\n") << c.arguments;
    const std::string log = Journal(d);
    EXPECT_NE(log.find("Exception :\n[Main_walis_new] ("), std::string::npos) << log;
    const bool impair = std::string(c.arguments) == "ModelePolynomialMultiImages a b c";
    EXPECT_NE(log.find(impair ? "L'image c n'a pas de masque." : "Argument manquant"), std::string::npos)
        << log;
  }

  // The half-width is read before any file: a negative one is refused at once.
  const test::Resultat r = test::Egalise(d.chemin(), "MoyMasque absente.tif absente.tif -3");
  EXPECT_EQ(r.statut, 255);
  EXPECT_EQ(r.sortie, "");
  EXPECT_NE(Journal(d).find("[Main_walis_new] (MoyMasque) Demi-largeur negative : -3."), std::string::npos);
}

TEST(SousCommandes, StatistiquesLocalesEtMoyenneMasquee) {
  test::DossierTemp d;
  const Donnees e(130, 12, 51);
  Ecrire(e.image, d / "i.tif");
  EcrireMasque(e.masque, d / "m.tif");

  test::Resultat r = test::Egalise(d.chemin(), "Stats i.tif m.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  EXPECT_EQ(r.sortie, "");
  const TTImage<float> moy = Lire(d / "moy.tif"), stdev = Lire(d / "stdev.tif");
  ASSERT_EQ(moy.GetTaille(), e.image.GetTaille());
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 130; ++x) {
      const test::Sommes s = test::SommesDirectes(e.image, &e.masque, x - 50, y - 50, x + 50, y + 50);
      const double m = s.s / s.n;
      EXPECT_NEAR(moy(x, y), m, 1e-3) << x << "," << y;
      EXPECT_NEAR(stdev(x, y), std::sqrt(s.q / s.n - m * m), 1e-2) << x << "," << y;
    }

  r = test::Egalise(d.chemin(), "MoyMasque i.tif m.tif 3");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  TTImage<float> lisse = Lire(d / "imlisse.tif");
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 130; ++x) {
      const test::Sommes s = test::SommesDirectes(e.image, &e.masque, x - 3, y - 3, x + 3, y + 3);
      EXPECT_NEAR(lisse(x, y), s.n ? s.s / s.n : 0.0, 1e-3) << x << "," << y;
    }
  // No leading digit: half-width 0, so masked pixels keep their value and the others become 0.
  r = test::Egalise(d.chemin(), "MoyMasque i.tif m.tif x7");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  lisse = Lire(d / "imlisse.tif");
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 130; ++x) EXPECT_EQ(lisse(x, y), e.masque(x, y) ? e.image(x, y) : 0.0f);
}

TEST(SousCommandes, ChampsDeWallisEtPrelissages) {
  test::DossierTemp d;
  const Donnees e(70, 60, 52);
  Ecrire(e.image, d / "i.tif");
  EcrireMasque(e.masque, d / "m.tif");

  // GainOffsetWalis: the two fields as the channels of "imreet.tif"; the image is not corrected.
  test::Resultat r = test::Egalise(d.chemin(), "GainOffsetWalis i.tif m.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  EXPECT_EQ(r.sortie, "");
  TTImage<float> attendu;
  GainOffsetWalisFenetre(e.image, e.masque, attendu, T2D<double>(127.5, 50.0));
  ExpectMemesPixels(Lire(d / "imreet.tif"), attendu, "GainOffsetWalis");
  // On a uniform image every window is flat: gain 1, offset 127.5 - 100.
  Ecrire(TTImage<float>(30, 20, 100.0f), d / "cent.tif");
  EcrireMasque(TTImage<bool>(30, 20, true), d / "tout.tif");
  ASSERT_EQ(test::Egalise(d.chemin(), "GainOffsetWalis cent.tif tout.tif").statut, 0);
  const TTImage<float> champs = Lire(d / "imreet.tif");
  ASSERT_EQ(champs.GetNbCanaux(), 2);
  EXPECT_EQ(champs(7, 3, 0), 1.0f);
  EXPECT_EQ(champs(7, 3, 1), 27.5f);

  // The pre-smoothings: the mask marks the pixels to leave out.
  r = test::Egalise(d.chemin(), "PrelisseWalis:Moy i.tif m.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  EXPECT_EQ(r.sortie, "");
  TTImage<float> image = e.image;
  PrelisseWalisMoy(image, e.masque, T2D<double>(127.5, 50.0));
  ExpectMemesPixels(Lire(d / "imreet.tif"), image, "PrelisseWalis:Moy");

  r = test::Egalise(d.chemin(), "PrelisseWalis:Poly i.tif m.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  long long gardes = 0;
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 70; ++x) gardes += !e.masque(x, y);
  EXPECT_EQ(r.sortie, std::to_string(gardes) + " equations\n" + std::to_string(gardes) + " equations\n");
  image = e.image;
  {
    test::CaptureSortie capture;
    PrelissePolyWalis(image, e.masque, 10, 50, 127.5, 50.0, 1);
  }
  ExpectMemesPixels(Lire(d / "imreet.tif"), image, "PrelisseWalis:Poly");
  // Nothing left out on a uniform image: every pixel lands on the target mean.
  EcrireMasque(TTImage<bool>(30, 20, false), d / "rien.tif");
  ASSERT_EQ(test::Egalise(d.chemin(), "PrelisseWalis:Moy cent.tif rien.tif").statut, 0);
  EXPECT_EQ(Lire(d / "imreet.tif")(12, 9), 127.5f);

  // WalisImageReference: onto a reference that is an affine map of the image.
  TTImage<float> reference(70, 60, TagNbCanaux(1));
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 70; ++x) reference(x, y) = 0.5f * e.image(x, y) + 40.0f;
  Ecrire(reference, d / "ref.tif");
  r = test::Egalise(d.chemin(), "WalisImageReference i.tif m.tif ref.tif m.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  const TTImage<float> fin = Lire(d / "imfin.tif");
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 70; ++x) EXPECT_NEAR(fin(x, y), e.masque(x, y) ? reference(x, y) : 0.0f, 1e-2);
}

TEST(SousCommandes, GainOffsetEtModelesPolynomiaux) {
  test::DossierTemp d;
  const Donnees e(40, 30, 53);
  std::mt19937 g(54);
  const TTImage<float> gain = test::ImageAleatoire(40, 30, g, 0.5f, 2.0f);
  const TTImage<float> offset = test::ImageAleatoire(40, 30, g, -50.0f, 50.0f);
  Ecrire(e.image, d / "i.tif");
  Ecrire(gain, d / "g.tif");
  Ecrire(offset, d / "o.tif");
  test::Resultat r = test::Egalise(d.chemin(), "AppliqueGainOffset i.tif g.tif o.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  const TTImage<float> res = Lire(d / "res.tif");
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) {
      const float produit = e.image(x, y) * gain(x, y);
      EXPECT_EQ(res(x, y), produit + offset(x, y));
    }

  // A degree-2 surface with a NaN inside the mask: degree 6 fits it exactly; the NaN is no equation
  // but receives the model, unmasked pixels keep their values.
  auto surface = [](double x, double y) { return 100.0 + 0.5 * x - 0.25 * y + 0.01 * x * x - 0.02 * x * y; };
  TTImage<float> plan(40, 30, TagNbCanaux(1));
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x)
      plan(x, y) = e.masque(x, y) ? static_cast<float>(surface(x - 20.0, y - 15.0)) : -1.0f;
  plan(5, 5) = std::nanf("");
  TTImage<bool> masque = e.masque;
  masque(5, 5) = true;
  Ecrire(plan, d / "plan.tif");
  EcrireMasque(masque, d / "m.tif");
  long long n = 0;
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) n += masque(x, y);
  r = test::Egalise(d.chemin(), "ModelePolynomialMonoImage plan.tif m.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  EXPECT_EQ(r.sortie, std::to_string(n - 1) + " equations\n");
  const TTImage<float> modele = Lire(d / "res.tif");
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x)
      EXPECT_NEAR(modele(x, y), masque(x, y) ? surface(x - 20.0, y - 15.0) : -1.0, 1e-3) << x << "," << y;
  std::istringstream fout(test::LireFichier(d / "fout.txt"));
  int degre = -1;
  fout >> degre;
  EXPECT_EQ(degre, 6);
  std::vector<double> c;
  for (double v; fout >> v;) c.push_back(v);
  ASSERT_EQ(c.size(), 28u);
  EXPECT_NEAR(c[0], 100.0, 1e-3);
  EXPECT_NEAR(c[1], 0.5, 1e-4);
  EXPECT_NEAR(c[4], -0.02, 1e-5);

  // Two pairs, each image around its own centre; each model is saved after its image's name.
  TTImage<float> autre(25, 36, TagNbCanaux(1));
  for (int y = 0; y < 36; ++y)
    for (int x = 0; x < 25; ++x) autre(x, y) = static_cast<float>(surface(x - 12.5, y - 18.0));
  Ecrire(autre, d / "autre.tif");
  EcrireMasque(TTImage<bool>(25, 36, true), d / "tout.tif");
  r = test::Egalise(d.chemin(), "ModelePolynomialMultiImages plan.tif m.tif autre.tif tout.tif");
  ASSERT_EQ(r.statut, 0) << r.sortie << Journal(d);
  EXPECT_EQ(r.sortie, std::to_string(n - 1 + 25 * 36) + " equations\n");
  const TTImage<float> m1 = Lire(d / "plan.tifres.tif"), m2 = Lire(d / "autre.tifres.tif");
  EXPECT_NEAR(m1(30, 20), surface(10.0, 5.0), 1e-3);
  EXPECT_NEAR(m2(3, 30), surface(3 - 12.5, 12.0), 1e-3);
  EXPECT_EQ(test::LireFichier(d / "fout.txt").rfind("6 ", 0), 0u);
}

TEST(SousCommandes, FichiersQuiNeConviennentPas) {
  test::DossierTemp d;
  Ecrire(TTImage<float>(10, 8, 1.0f), d / "i.tif");
  EcrireMasque(TTImage<bool>(10, 7, true), d / "m.tif");
  for (const char* commande :
       {"Stats", "GainOffsetWalis", "PrelisseWalis:Moy", "ModelePolynomialMonoImage"}) {
    const test::Resultat r = test::Egalise(d.chemin(), std::string(commande) + " i.tif m.tif");
    EXPECT_EQ(r.statut, 255) << commande;
    EXPECT_NE(Journal(d).find(std::string("[Main_walis_new] (") + commande +
                              ") Le masque m.tif (10 x 7) n'a pas la taille de l'image i.tif (10 x 8)."),
              std::string::npos)
        << Journal(d);
  }
  EXPECT_EQ(test::Egalise(d.chemin(), "Stats absente.tif m.tif").statut, 255);
  TTImage<float> rvb(10, 8, TagNbCanaux(3));
  Ecrire(rvb, d / "rvb.tif");
  EXPECT_EQ(test::Egalise(d.chemin(), "MoyMasque rvb.tif m.tif 2").statut, 255);
  EXPECT_NE(Journal(d).find("L'image rvb.tif a 3 canaux"), std::string::npos);
  // Nothing was written by the failed runs.
  EXPECT_FALSE(std::ifstream(d / "moy.tif").good());
  EXPECT_FALSE(std::ifstream(d / "imreet.tif").good());
}

}  // namespace
