// The conventional front end's command line: a table of command lines run through the built tool,
// each with its exit status and the first words of what it prints; and the settings read from a valid
// one.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "commande_mosaique.h"
#include "ligne_commande.h"
#include "outils_test.h"

namespace {

struct Cas {
  const char* arguments;
  int statut;
  const char* erreur;       // start of stderr after "egalise mosaique : " ("" : nothing)
  const char* sortie = "";  // start of stdout ("" : nothing)
};

TEST(CommandeMosaique, TableDesLignesDeCommande) {
  test::DossierTemp d;
  // Besides the images, files read with them: b.tif's exclusion mask, world file and GDAL mask.
  const char* const lus[] = {"b_m.tif", "b.tfw", "b.tif.msk"};
  for (const char* f : {"a.tif", "b.tif", "-a.tif", "sous/a.tif", "sous/b_m.tif", lus[0], lus[1], lus[2]}) {
    std::filesystem::create_directories(std::filesystem::path(d / f).parent_path());
    std::ofstream(d / f) << "image";
  }
  std::filesystem::create_directories(d / "dossier");
  std::filesystem::create_directories(d / "dossier.tif");
  std::filesystem::create_directories(d / "corriges");
  std::filesystem::create_directories(d / "corriges2/a.tif");
  ASSERT_EQ(test::Lancer(d.chemin(), "mkfifo tube").statut, 0);
  std::ofstream(d / "liste.txt") << "  b.tif\r\n\n";
  std::ofstream(d / "vide.txt") << "\n   \n";
  const std::string usage = "Essayez 'egalise mosaique --help' pour plus d'informations.\n";
  // Valid lines reach the job, which refuses the fake images.
  const std::string calcul = "n'a reussi a lire le fichier : ";
  const Cas cas[] = {
      {"", 2, "aucune image en entree\n"},
      {"--help", 0, "", "Usage : egalise mosaique IMAGE... -o MOSAIQUE.tif [OPTION]...\n"},
      {"-h a.tif --inconnue", 0, "", "Usage : egalise mosaique"},
      {"--version", 0, "", "egalise " EGALISE_VERSION "\n"},
      {"a.tif", 2, "l'option -o/--output est obligatoire\n"},
      {"a.tif -o", 2, "l'option -o attend une valeur (FICHIER)\n"},
      {"a.tif --output", 2, "l'option --output attend une valeur (FICHIER)\n"},
      {"a.tif -o m.tif --inconnue", 2, "option inconnue : --inconnue\n"},
      {"a.tif -o m.tif --fusion:moyenne", 2, "option inconnue : --fusion:moyenne\n"},
      {"a.tif -o m.tif -5", 2, "option inconnue : -5\n"},
      {"a.tif - -o m.tif", 2, "'-' n'est ni une option ni une image\n"},
      {"a.tif -o m.tif --help=oui", 2, "l'option --help ne prend pas de valeur\n"},
      // Short flags group as GNU tools take them; a short option with a value ends the group.
      {"a.tif -o m.tif -qz", 2, "option inconnue : -z\n"},
      {"a.tif -oq -q5", 2, "option inconnue : -5\n"},
      // A dash inside a group is no option: -q-output=m.tif is not -q --output=m.tif.
      {"a.tif -q-output=m.tif", 2, "option inconnue : '-' dans -q-output=m.tif\n"},
      {"a.tif -o m.tif -q-", 2, "option inconnue : '-' dans -q-\n"},
      {"a.tif -o m.tif --pas 2,5", 2, "valeur '2,5' de --pas : un nombre est attendu"},
      {"a.tif -o m.tif --pas -1", 2, "valeur '-1' de --pas : doit etre > 0\n"},
      {"a.tif -o m.tif --pas nan", 2, "valeur 'nan' de --pas : un nombre est attendu, pas NaN"},
      {"a.tif -o m.tif --pas=inf", 2, "valeur 'inf' de --pas : un nombre fini est attendu"},
      {"a.tif -o m.tif --pas 1e999", 2, "valeur '1e999' de --pas : nombre hors"},
      {"a.tif -o m.tif --threads 0", 2, "valeur '0' de --threads : doit etre entre 1 et"},
      {"a.tif -o m.tif --threads 2.5", 2, "valeur '2.5' de --threads : un entier est attendu"},
      {"a.tif -o m.tif --resolution abc", 2, "valeur 'abc' de --resolution : un nombre"},
      {"a.tif -o m.tif --resolution 0.5,0", 2, "valeur '0.5,0' de --resolution : doit etre > 0"},
      {"a.tif -o m.tif --resolution 1,", 2, "valeur '1,' de --resolution : un nombre est"},
      {"a.tif -o m.tif --emprise 1,2,3", 2, "valeur '1,2,3' de --emprise : 4 nombres"},
      {"a.tif -o m.tif --emprise 10,0,5,5", 2, "--emprise : XMIN < XMAX et YMIN < YMAX"},
      {"a.tif -o m.tif --rigidite 1e-9,10,3,4,5", 2,
       "valeur '1e-9,10,3,4,5' de --rigidite : 1 a 4 nombres separes par des virgules"},
      // The model's own bounds, before any file is opened.
      {"a.tif -o m.tif --rigidite 0", 2,
       "valeur '0' de --rigidite : Rigidite 0 : un nombre strictement positif"},
      {"a.tif -o m.tif --rigidite 1e-7,10,3,2e4", 2,
       "valeur '1e-7,10,3,2e4' de --rigidite : Poids des pentes 10, "},
      {"a.tif -o m.tif --fusion moyen", 2,
       "valeur 'moyen' de --fusion : attendu : moyenne, voronoi, min, max, plume, "
       "multibande\n"},
      {"a.tif -o m.tif --modele gain", 2, "valeur 'gain' de --modele : attendu : additif,"},
      {"a.tif -o m.tif --type uint7", 2, "valeur 'uint7' de --type : attendu : uint8,"},
      {"a.tif -o m.tif --compression lzw --niveau 5", 2, "--niveau ne s'applique pas a la compression lzw\n"},
      {"a.tif -o m.tif --niveau 13", 2, "--niveau 13 : 1 a 12 pour deflate\n"},
      {"a.tif -o m.tif --niveau 0", 2, "valeur '0' de --niveau : doit etre entre 1 et 100\n"},
      {"a.tif -o m.tif --tuile 100", 2, "--tuile 100 : un multiple de 16 est attendu\n"},
      {"a.tif -o m.tif --epsg 2154x", 2, "valeur '2154x' de --epsg : un entier est attendu\n"},
      {"a.tif -o m.tif --etape composer --travail w --partie 5/4", 2,
       "valeur '5/4' de --partie : k doit etre entre 1 et n\n"},
      {"a.tif -o m.tif --etape composer", 2, "--etape demande --travail\n"},
      {"a.tif -o m.tif --travail w", 2,
       "--travail va avec --etape (sans --etape, le calcul entier se fait en "
       "memoire)\n"},
      {"a.tif -o m.tif --etape observer --travail w", 2, "--etape observer demande --index I\n"},
      {"a.tif -o m.tif --etape composer --travail w", 2, "--etape composer demande --partie K/N\n"},
      // Integer bounds read as integers.
      {"a.tif -o m.tif --memoire 8", 2, "valeur '8' de --memoire : doit etre entre 16 et 1073741824\n"},
      {"a.tif -o m.tif --etape composer --travail w --partie 1/0", 2,
       "valeur '1/0' de --partie : n doit etre entre 1 et 1000000\n"},
      {"a.tif -o m.tif --index 2", 2, "--index va avec --etape observer"},
      {"@absent.txt -o m.tif", 1, "liste d'images absent.txt illisible\n"},
      {"a.tif @vide.txt -o m.tif", 1, "la liste d'images vide.txt ne nomme aucune image\n"},
      {"a.tif -o m.tif --fusion plume --plume 3", 1, "*"},
      {"a.tif -o m.tif --rigidite 2 --memoire 512 --modele gain-offset", 1, "*"},
      {"a.tif -o m.tif --rigidite 1e-9,1,1", 1, "*"},
      {"a.tif -o m.tif --rigidite 1e-9,1,1,1", 1, "*"},
      {"absent.tif -o m.tif", 1, "=L'image absent.tif n'existe pas ou n'est pas lisible."},
      {"dossier -o m.tif", 1, "=L'entree dossier n'est pas un fichier (un dossier ?)."},
      {"a.tif @liste.txt ./a.tif -o m.tif", 1, "=L'image ./a.tif est donnee deux fois (deja comme a.tif)."},
      {"a.tif b.tif -o ./b.tif", 1, "=La sortie ./b.tif est l'image d'entree b.tif."},
      {"a.tif -o dossier.tif", 1, "=La sortie dossier.tif existe et n'est pas un fichier."},
      {"a.tif -o m.png", 2, "-o m.png : l'extension .tif ou .tiff (GeoTIFF) est attendue\n"},
      {"a.tif --output=m", 2, "-o m : l'extension .tif ou .tiff (GeoTIFF) est attendue\n"},
      {"a.tif -o absent/m.tif", 1, "=Impossible d'ecrire dans le dossier absent de la sortie absent/m.tif."},
      {"a.tif -o m.tif --corriges absent", 1, "=Le dossier des images corrigees absent n'existe pas."},
      {"a.tif -o m.tif --corriges .", 1, "=L'image corrigee ./a.tif remplacerait l'entree a.tif."},
      {"a.tif sous/a.tif -o m.tif --corriges corriges", 1,
       "=Les images a.tif et sous/a.tif auraient la meme image corrigee corriges/a.tif."},
      // A corrected image written where the mosaic, the report or the log goes would replace it.
      {"a.tif -o m.tif --corriges corriges2", 1,
       "=L'image corrigee corriges2/a.tif existe et n'est pas un fichier."},
      {"a.tif -o corriges/a.tif --corriges corriges", 1,
       "=L'image corrigee corriges/a.tif serait aussi la sortie corriges/a.tif."},
      {"a.tif -o m.tif --corriges corriges --log corriges/./a.tif", 1,
       "=L'image corrigee corriges/a.tif serait aussi le fichier corriges/./a.tif de --log."},
      // The mosaic's .ori and .tfw would take over an input's georeferencing; the report and the log
      // would replace or grow an input or the mosaic.
      {"a.tif b.tif -o b.TIFF", 1,
       "=La sortie b.TIFF ecrirait b.ori et b.tfw, ou se lit le georeferencement de l'entree b.tif."},
      {"a.tif -o m.tif --rapport a.tif", 1, "=Le fichier a.tif de --rapport est l'image d'entree a.tif."},
      {"a.tif -o m.tif --log ./a.tif", 1, "=Le fichier ./a.tif de --log est l'image d'entree a.tif."},
      {"a.tif -o m.tif --rapport ./m.tif", 1, "=Le fichier ./m.tif de --rapport est aussi la sortie m.tif."},
      {"a.tif -o m.tif --rapport r.json --log r.json", 1,
       "=Le fichier r.json de --log est aussi celui de --rapport."},
      // The report replaces its file whole (a rename), which would take the place of a folder, a
      // device or a pipe.
      {"a.tif -o m.tif --rapport dossier", 1,
       "=Le fichier dossier de --rapport existe et n'est pas un fichier."},
      {"a.tif -o m.tif --rapport tube", 1, "=Le fichier tube de --rapport existe et n'est pas un fichier."},
      {"a.tif -o m.tif --rapport absent/r.json", 1,
       "=Impossible d'ecrire dans le dossier absent du fichier absent/r.json de --rapport."},
      // Nor may they replace a file read with an input.
      {"a.tif b.tif -o b_m.tif --masque-suffixe _m.tif", 1,
       "=La sortie b_m.tif est le masque d'exclusion de l'entree b.tif."},
      {"b.tif -o m.tif --rapport b.tfw", 1,
       "=Le fichier b.tfw de --rapport est un fichier lu avec l'entree b.tif."},
      {"b.tif -o m.tif --log ./b.tif.msk", 1,
       "=Le fichier ./b.tif.msk de --log est un fichier lu avec l'entree b.tif."},
      {"sous/b_m.tif b.tif -o m.tif --masque-suffixe _m.tif --corriges .", 1,
       "=L'image corrigee ./b_m.tif remplacerait le masque d'exclusion de l'entree b.tif."},
      // An exclusion mask that is an input would exclude its every pixel that is not zero: the image
      // itself for the suffix of its extension, or another input given with its masks.
      {"a.tif b.tif -o m.tif --masque-suffixe .tif", 1,
       "=Le masque d'exclusion a.tif de l'entree a.tif est l'entree elle-meme : voir --masque-suffixe."},
      {"b.tif b_m.tif -o m.tif --masque-suffixe _m.tif", 1,
       "=Le masque d'exclusion b_m.tif de l'entree b.tif est aussi l'image d'entree b_m.tif : voir "
       "--masque-suffixe."},
      // Valid lines: everything is checked, then the job opens the inputs.
      {"a.tif @liste.txt -o m.TIFF --nodata -9999 --pas=2.5 --threads 1 --fusion voronoi --compression zstd "
       "--niveau 22 --resolution 0.5 --emprise -10,-20.5,30,40 --quiet",
       1, "*"},
      {"-om.tif --output=m.tif -- -a.tif", 1, "*"},
      {"-q a.tif -o m.tif", 1, "*"},
      {"a.tif -qom.tif", 1, "*"},
  };
  for (const Cas& c : cas) {
    const test::Resultat r = test::Lancer(
        d.chemin(), "('" EGALISE_EXE "' mosaique " + std::string(c.arguments) + " > sortie 2> erreur)");
    EXPECT_EQ(r.statut, c.statut) << c.arguments;
    std::string attendu = c.erreur;
    // Every message names the command; "=" stands for the path checks' class and method, and their
    // message is the whole line (where in the source it was raised is for the log only).
    const bool entier = attendu[0] == '=';
    if (entier) attendu = "[Verification] (VerifierChemins) " + attendu.substr(1) + "\n";
    if (!attendu.empty() && attendu != "*") attendu = "egalise mosaique : " + attendu;
    const std::string erreur = test::LireFichier(d / "erreur"), sortie = test::LireFichier(d / "sortie");
    if (attendu == "*")
      EXPECT_NE(erreur.find(calcul), std::string::npos) << c.arguments << "\n" << erreur;
    else if (entier)
      EXPECT_EQ(erreur, attendu) << c.arguments;
    else
      EXPECT_TRUE(test::Commence(erreur, attendu)) << c.arguments << "\n" << erreur;
    // The hint comes with usage errors only.
    EXPECT_EQ(erreur.find("\n" + usage) != std::string::npos, c.statut == 2) << c.arguments;
    EXPECT_TRUE(test::Commence(sortie, c.sortie)) << c.arguments << "\n" << sortie;
    EXPECT_TRUE(*c.sortie || sortie.empty()) << c.arguments << "\n" << sortie;
    // Dispatched before the log is opened; nothing written.
    for (const char* f : {"log.txt", "m.tif", "m.TIFF", "m.ori", "absent", "b.TIFF", "b.ori", "r.json"})
      EXPECT_FALSE(std::filesystem::exists(d / f)) << c.arguments << " : " << f;
    EXPECT_EQ(test::LireFichier(d / "a.tif"), "image") << c.arguments;
    for (const char* f : lus) EXPECT_EQ(test::LireFichier(d / f), "image") << c.arguments << " : " << f;
  }
  // A failed run's --log file keeps the error with where it was raised (a fake image: the paths are
  // checked before the log is opened, the images after).
  ASSERT_EQ(test::Lancer(d.chemin(),
                         "('" EGALISE_EXE "' mosaique a.tif -o m.tif --log journal.txt --quiet 2> erreur)")
                .statut,
            1);
  const std::string erreur = test::LireFichier(d / "erreur"), debut = "egalise mosaique : ";
  ASSERT_TRUE(test::Commence(erreur, debut) && erreur.find(calcul) != std::string::npos) << erreur;
  EXPECT_EQ(erreur.find(" (Fichier : "), std::string::npos) << erreur;
  const std::string phrase = erreur.substr(debut.size(), erreur.size() - debut.size() - 1);
  const std::string journal = test::LireFichier(d / "journal.txt");
  EXPECT_TRUE(test::Commence(journal, "erreur : " + phrase) &&
              journal.find(" (Fichier : ") != std::string::npos)
      << journal;
}

OptionsCommandeMosaique Lire(std::vector<std::string> mots, int statut = 0) {
  mots.insert(mots.begin(), {"egalise", "mosaique"});
  std::vector<char*> argv;
  for (std::string& m : mots) argv.push_back(m.data());
  argv.push_back(nullptr);
  const LectureMosaique l = LireCommandeMosaique(static_cast<int>(mots.size()), argv.data());
  EXPECT_EQ(l.statut, statut) << l.message;
  return l.options;
}

TEST(CommandeMosaique, ReglagesLus) {
  const OptionsCommandeMosaique d = Lire({"a.tif", "-o", "m.tif"});
  EXPECT_TRUE(d.modele == "gain-offset" && d.fusion == "plume" && d.compression == "deflate" &&
              d.tuile == 512 && d.pas == 0 && d.threads == 0 && !d.nodataDonne && d.indisponibles.empty());
  // Reals stay real, the last value of an option wins, a resolution of one number is square, a list
  // is read in place, the options are kept as given.
  test::DossierTemp t;
  std::ofstream(t / "l.txt") << "x.tif\ny.tif\n";
  const OptionsCommandeMosaique o =
      Lire({"a.tif", "--pas", "2.5", "@" + t / "l.txt", "--output=m.tif", "--resolution", "0.25", "--nodata",
            "nan", "--fusion", "min", "--fusion=voronoi", "--emprise=-1,-2,3.5,4", "--", "--b.tif"});
  EXPECT_EQ(o.entrees, (std::vector<std::string>{"a.tif", "x.tif", "y.tif", "--b.tif"}));
  EXPECT_EQ(o.pas, 2.5);
  EXPECT_TRUE(o.resolutionX == 0.25 && o.resolutionY == 0.25 && o.sortie == "m.tif" && o.fusion == "voronoi");
  EXPECT_TRUE(o.nodataDonne && std::isnan(o.nodata));
  EXPECT_TRUE(o.empriseDonnee && o.emprise[0] == -1 && o.emprise[1] == -2 && o.emprise[2] == 3.5 &&
              o.emprise[3] == 4);
  EXPECT_EQ(o.donnees.size(), 7u);
  EXPECT_EQ(o.donnees[0], (std::pair<std::string, std::string>("--pas", "2.5")));
  const OptionsCommandeMosaique r = Lire({"a.tif", "-o", "m.tif", "--resolution", "0.5,2",
                                          "--reechantillonnage", "bilineaire", "--fusion", "multibande"});
  EXPECT_TRUE(r.resolutionX == 0.5 && r.resolutionY == 2);
  EXPECT_TRUE(r.indisponibles.empty());
}

// List files as editors and spreadsheets save them: Windows line ends, blanks around a path, a UTF-8
// byte order mark before the first one, no end of line at the end.
TEST(CommandeMosaique, ListesDImages) {
  test::DossierTemp t;
  const std::pair<const char*, std::vector<std::string>> cas[] = {
      {"a.tif\nb.tif\n", {"a.tif", "b.tif"}},
      {"\xEF\xBB\xBF"
       "a.tif\r\nvol 2.tif\r\n",
       {"a.tif", "vol 2.tif"}},
      {"\xEF\xBB\xBF\r\n  a.tif \t\r\n\n", {"a.tif"}},
      {"a.tif", {"a.tif"}},
  };
  for (const auto& [contenu, noms] : cas) {
    std::ofstream(t / "l.txt", std::ios::binary) << contenu;
    std::vector<std::string> lus;
    EXPECT_EQ(LireListe(t / "l.txt", lus), "") << contenu;
    EXPECT_EQ(lus, noms) << contenu;
  }
}

}  // namespace
