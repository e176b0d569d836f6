// The named radiometric sub-commands: each reads its inputs by position (channel 0 of each file),
// works on one-channel float images and boolean masks, and writes its results under fixed names in the
// current directory.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <utility>

#include "egalise.h"
#include "sorties.h"
#include "zepra/erreur.h"
#include "zepra/imagefic.h"
#include "zepra/pipeline/polynome.h"
#include "zepra/pipeline/prelissage.h"
#include "zepra/pipeline/walis.h"
#include "zepra/ttimage.h"

namespace {

const T2D<double> kCibleWalis(127.5, 50.0);
constexpr int kDemiLargeurStats = 50;
constexpr int kDegreModele = 6;
constexpr int kDegrePrelissePoly = 10;

// Arguments counted from argv[2]; a missing one prints the command's usage line and ends in an Erreur
// before any file is read.
void VerifierArguments(int argc, const char* commande, int attendus, const char* usage) {
  const int donnes = argc - 2;
  if (donnes >= attendus) return;
  std::cout << "./exe " << commande << " " << usage << std::endl;
  ZEPRA_ERREUR("[Main_walis_new] (" << commande << ") Argument manquant : " << attendus << " attendus, "
                                    << donnes << " donnes.");
}

// Images and masks are channel 0 of their files, whatever their channel count.
TTImage<float> LireImage(const char* nom) {
  TTImage<float> image;
  image.LireCanal(nom, 0);
  return image;
}

// Reads a mask (non-zero samples are true) and checks that it fits its image.
TTImage<bool> LireMasque(const char* nom, const TTImage<float>& image, const char* nomImage,
                         const char* commande) {
  TTImage<bool> masque;
  masque.LireCanal(nom, 0);
  if (masque.GetTaille() != image.GetTaille())
    ZEPRA_ERREUR("[Main_walis_new] (" << commande << ") Le masque " << nom << " (" << masque.iGetNbColonnes()
                                      << " x " << masque.iGetNbLignes() << ") n'a pas la taille de l'image "
                                      << nomImage << " (" << image.iGetNbColonnes() << " x "
                                      << image.iGetNbLignes() << ").");
  return masque;
}

// An image and its mask, read from argv[i] and argv[i + 1] and checked against each other.
struct Paire {
  TTImage<float> image;
  TTImage<bool> masque;
};
Paire LirePaire(char** argv, int i) {
  Paire p{LireImage(argv[i]), TTImage<bool>()};
  p.masque = LireMasque(argv[i + 1], p.image, argv[i], argv[1]);
  return p;
}

// The start of the commands on one pair: the arguments counted, then the image argv[2] and its mask.
Paire DebutPaire(int argc, char** argv) {
  VerifierArguments(argc, argv[1], 2, "image masque");
  return LirePaire(argv, 2);
}

void Sauver(const TTImage<float>& image, const std::string& nom, SortiesEcrites& sorties) {
  image.Sauver(nom.c_str(), 0, OptionsImageOut::defaut());
  sorties.Ajouter(nom);
}

void SauverPolynome(const Polynome2D& p, const char* nom, const char* commande, SortiesEcrites& sorties) {
  if (!p.Sauver(nom))
    ZEPRA_ERREUR("[Main_walis_new] (" << commande << ") Impossible d'ecrire " << nom << ".");
  sorties.Ajouter(nom);
}

// Base-10 integer from the leading digits (none gives 0), as the half-width has always been read;
// a value beyond int or below 0 is refused.
int LireDemiLargeur(const char* texte, const char* commande) {
  errno = 0;
  const long v = std::strtol(texte, nullptr, 10);
  if (errno == ERANGE || v > INT_MAX || v < INT_MIN)
    ZEPRA_ERREUR("[Main_walis_new] (" << commande << ") Demi-largeur " << texte << " hors limites.");
  if (v < 0) ZEPRA_ERREUR("[Main_walis_new] (" << commande << ") Demi-largeur negative : " << v << ".");
  return static_cast<int>(v);
}

void Prelisse(int argc, char** argv, bool polynomial, SortiesEcrites& sorties) {
  Paire p = DebutPaire(argc, argv);
  if (polynomial)
    PrelissePolyWalis(p.image, p.masque, kDegrePrelissePoly, 2 * kDemiLargeurWalis, kCibleWalis.x,
                      kCibleWalis.y, 1);
  else
    PrelisseWalisMoy(p.image, p.masque, kCibleWalis);
  Sauver(p.image, "imreet.tif", sorties);
}

void WalisImageReference(int argc, char** argv, SortiesEcrites& sorties) {
  const char* commande = argv[1];
  VerifierArguments(argc, commande, 4, "image masque image_reference masque_reference");
  Paire p = LirePaire(argv, 2);
  const Paire r = LirePaire(argv, 4);
  if (r.image.GetTaille() != p.image.GetTaille())
    ZEPRA_ERREUR("[Main_walis_new] (" << commande << ") L'image de reference " << argv[4] << " ("
                                      << r.image.iGetNbColonnes() << " x " << r.image.iGetNbLignes()
                                      << ") n'a pas la taille de l'image " << argv[2] << " ("
                                      << p.image.iGetNbColonnes() << " x " << p.image.iGetNbLignes() << ").");
  TTImage<float> gainOffset;
  GainOffsetWalisReference(p.image, p.masque, r.image, r.masque, gainOffset, kDemiLargeurWalis);
  AppliqueGainOffset(p.image, gainOffset);
  Sauver(p.image, "imfin.tif", sorties);
}

void AppliqueGainOffsetCommande(int argc, char** argv, SortiesEcrites& sorties) {
  const char* commande = argv[1];
  VerifierArguments(argc, commande, 3, "image gain offset");
  TTImage<float> image = LireImage(argv[2]);
  const TTImage<float> gain = LireImage(argv[3]);
  const TTImage<float> offset = LireImage(argv[4]);
  if (gain.GetTaille() != image.GetTaille() || offset.GetTaille() != image.GetTaille())
    ZEPRA_ERREUR("[Main_walis_new] (" << commande << ") Le gain " << argv[3] << " (" << gain.iGetNbColonnes()
                                      << " x " << gain.iGetNbLignes() << ") et l'offset " << argv[4] << " ("
                                      << offset.iGetNbColonnes() << " x " << offset.iGetNbLignes()
                                      << ") doivent avoir la taille de l'image " << argv[2] << " ("
                                      << image.iGetNbColonnes() << " x " << image.iGetNbLignes() << ").");
  AppliqueGainOffset(image, gain, offset);
  Sauver(image, "res.tif", sorties);
}

void ModeleMonoImage(int argc, char** argv, SortiesEcrites& sorties) {
  Paire p = DebutPaire(argc, argv);
  const Polynome2D modele = ModelePolynomialMonoImage(p.image, p.masque, 1, kDegreModele);
  Sauver(p.image, "res.tif", sorties);
  SauverPolynome(modele, "fout.txt", argv[1], sorties);
}

// Pairs (image, mask) from argv[2]; each image's positions are taken from its own centre. Each pair is
// read twice, once to gather its equations and once to write its model, so only one pair is in memory.
void ModeleMultiImages(int argc, char** argv, SortiesEcrites& sorties) {
  const char* commande = argv[1];
  const char* usage = "image1 masque1 [image2 masque2 ...]";
  VerifierArguments(argc, commande, 2, usage);
  if ((argc - 2) % 2 != 0) {
    std::cout << "./exe " << commande << " " << usage << std::endl;
    ZEPRA_ERREUR("[Main_walis_new] (" << commande << ") L'image " << argv[argc - 1] << " n'a pas de masque.");
  }
  AjustementPolynome2D ajustement(kDegreModele);
  for (int i = 2; i + 1 < argc; i += 2) {
    const Paire p = LirePaire(argv, i);
    ajustement.Ajouter(p.image, p.masque, 1);
  }
  std::cout << ajustement.NbEquations() << " equations" << std::endl;
  const Polynome2D modele = ajustement.Resoudre();
  for (int i = 2; i + 1 < argc; i += 2) {
    Paire p = LirePaire(argv, i);
    AppliquerModele(p.image, p.masque, modele);
    Sauver(p.image, std::string(argv[i]) + "res.tif", sorties);
  }
  SauverPolynome(modele, "fout.txt", commande, sorties);
}

void MoyMasqueCommande(int argc, char** argv, SortiesEcrites& sorties) {
  const char* commande = argv[1];
  VerifierArguments(argc, commande, 3, "image masque demi-largeur");
  const int rayon = LireDemiLargeur(argv[4], commande);
  Paire p = LirePaire(argv, 2);
  MoyMasque(p.image, p.masque, rayon);
  Sauver(p.image, "imlisse.tif", sorties);
}

void Stats(int argc, char** argv, SortiesEcrites& sorties) {
  const Paire p = DebutPaire(argc, argv);
  TTImage<float> moyenne, ecartType;
  StatsLocales(p.image, p.masque, kDemiLargeurStats, moyenne, ecartType);
  Sauver(moyenne, "moy.tif", sorties);
  Sauver(ecartType, "stdev.tif", sorties);
}

void GainOffsetWalisCommande(int argc, char** argv, SortiesEcrites& sorties) {
  const Paire p = DebutPaire(argc, argv);
  TTImage<float> gainOffset;
  GainOffsetWalisFenetre(p.image, p.masque, gainOffset, kCibleWalis);
  Sauver(gainOffset, "imreet.tif", sorties);
}

}  // namespace

void Main_walis_new(int argc, char** argv) {
  if (argc < 2 || !argv[1]) return;
  // The order of the comparisons is the established one; a name that is none of the nine does nothing.
  const std::pair<const char*, void (*)(int, char**, SortiesEcrites&)> commandes[] = {
      {"PrelisseWalis:Moy", [](int n, char** v, SortiesEcrites& s) { Prelisse(n, v, false, s); }},
      {"PrelisseWalis:Poly", [](int n, char** v, SortiesEcrites& s) { Prelisse(n, v, true, s); }},
      {"WalisImageReference", WalisImageReference},
      {"AppliqueGainOffset", AppliqueGainOffsetCommande},
      {"ModelePolynomialMonoImage", ModeleMonoImage},
      {"ModelePolynomialMultiImages", ModeleMultiImages},
      {"MoyMasque", MoyMasqueCommande},
      {"Stats", Stats},
      {"GainOffsetWalis", GainOffsetWalisCommande},
  };
  // A command that fails after writing some of its files removes them.
  for (const auto& [nom, commande] : commandes)
    if (!std::strcmp(argv[1], nom)) {
      SortiesEcrites sorties;
      commande(argc, argv, sorties);
      sorties.Garder();
      return;
    }
}
