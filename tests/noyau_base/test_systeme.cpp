#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <utility>

#include "outils_test.h"
#include "zepra/erreur.h"
#include "zepra/systeme.h"

namespace {

TEST(Systeme, FormatteTimeAvecLaRegleStricteDes60Minutes) {
  const std::pair<double, const char*> cas[] = {{3725.5, "1 h 2 min 5 s 50"},   {59.5, "0 min 59 s 50"},
                                                {3600, "60 min 0 s 0"},         {3660, "1 h 1 min 0 s 0"},
                                                {3720, "1 h 2 min 0 s 0"},      {0, "0 min 0 s 0"},
                                                {90061.25, "25 h 1 min 1 s 25"}};
  for (const auto& [secondes, texte] : cas) {
    TChaine t("> ");
    Systeme::FormatteTime(secondes, t);
    EXPECT_EQ(t.str(), std::string("> ") + texte) << secondes;
  }
}

TEST(Systeme, DateDecaleLesJoursDUnCran) {
  setenv("TZ", "UTC", 1);
  tzset();
  // Sunday 2 February 2014, 9:05:07 UTC: Sunday prints "Lun" (established behaviour).
  EXPECT_EQ(Systeme::Date(1391331907).str(), "Lun 2 Fev 2014 9:5.7");
  // Saturday 1 August 2026, 23:59:59: Saturday prints "Dim".
  EXPECT_EQ(Systeme::Date(1785628799).str(), "Dim 1 Aout 2026 23:59.59");
  // Monday 15 December 2025 0:00:00.
  EXPECT_EQ(Systeme::Date(1765756800).str(), "Mar 15 Dec 2025 0:0.0");
}

TEST(Systeme, ServicesDeFichiersEtConventionsDeRetour) {
  test::DossierTemp d;
  const std::string f = d / "a.txt";
  EXPECT_FALSE(Systeme::ExisteFichier(""));
  EXPECT_FALSE(Systeme::ExisteFichier(f.c_str()));
  std::ofstream(f) << std::string(10000, 'x');
  EXPECT_TRUE(Systeme::ExisteFichier(f.c_str()));

  EXPECT_TRUE(Systeme::CopierFichier(f.c_str(), (d / "b.txt").c_str(), false));
  EXPECT_EQ(test::LireFichier(d / "b.txt"), std::string(10000, 'x'));
  EXPECT_FALSE(Systeme::CopierFichier(f.c_str(), (d / "b.txt").c_str(), false));  // no overwrite
  test::Refuse([&] { Systeme::CopierFichier((d / "absent").c_str(), (d / "c.txt").c_str(), true); },
               "(Ouverture de fichier) Le fichier " + d / "absent" + " n'existe pas. (Fichier : ");

  // Inverted: false when the removal succeeded.
  EXPECT_FALSE(Systeme::DetruireFichier((d / "b.txt").c_str()));
  EXPECT_TRUE(Systeme::DetruireFichier((d / "b.txt").c_str()));

  EXPECT_TRUE(Systeme::EstRepertoire(d.chemin().c_str()));
  EXPECT_FALSE(Systeme::EstRepertoire(f.c_str()));
  test::Refuse([&] { Systeme::EstRepertoire((d / "absent").c_str()); },
               "[Systeme] (EstRepertoire) Erreur syst\xEF\xBF\xBDme dans lstat. (Fichier : "
               "../src/noyau_base/console.cpp ; ligne 321)");

  EXPECT_TRUE(Systeme::CreerRepertoire((d / "x/y/z").c_str()));
  EXPECT_TRUE(Systeme::EstRepertoire((d / "x/y/z").c_str()));
  EXPECT_TRUE(Systeme::DetruireRepertoire((d / "x/y/z").c_str()));
  EXPECT_FALSE(Systeme::ExisteFichier((d / "x/y/z").c_str()));

  const TChaine ici = Systeme::RepertoireCourant();
  EXPECT_TRUE(Systeme::RepertoireCourant(TChaine(d.chemin())));
  EXPECT_NE(Systeme::RepertoireCourant().str().find("egalise_test_"), std::string::npos);
  EXPECT_TRUE(Systeme::RepertoireCourant(ici));
  EXPECT_EQ(Systeme::PathNoyau().str(), "../src/noyau_base");
}

TEST(Erreur, LeMessageEstComposeEnUnSeulEndroit) {
  const std::string t =
      test::Refuse([] { ZEPRA_ERREUR("[Classe] (Methode) valeur " << 12 << "."); },
                   "[Classe] (Methode) valeur 12. (Fichier : ../tests/noyau_base/test_systeme.cpp ; ligne ");
  EXPECT_EQ(t.back(), ')');
  // Message() writes the text by the log-line rule, without a line end.
  const bool cout0 = Systeme::m_hascout;
  Systeme::m_hascout = true;
  testing::internal::CaptureStdout();
  Erreur(TChaine("un")).Message();
  Erreur(TChaine("deux")).Message();
  Systeme::m_hascout = false;
  Erreur(TChaine("trois")).Message();
  const std::string sortie = testing::internal::GetCapturedStdout();
  Systeme::m_hascout = cout0;
  EXPECT_EQ(sortie, "undeux");
}

}  // namespace
