// Writes an 8-bit quick-look of an image (a mosaic, a tile; grey or RGB, any sample type), stretched
// between two percentiles of its data or between given values. Given two images, writes them side by
// side ("before" and "after") with the stretch of the second, so that both are seen alike. A .png
// name is written by libpng; any other name by the image registry (.pgm, .tif, ...).
#include <iostream>

#include "apercu_png.h"
#include "etirement.h"
#include "lire_options.h"

namespace {

constexpr const char* kProgramme = "apercu";
// Blank columns between the two images of a side-by-side quick-look.
constexpr int kEcart = 16;

void Usage() {
  std::cout << "apercu <image> [<image apres>] <sortie.png> [--min valeur --max valeur] [--reduction n]"
            << std::endl
            << "  sans --min/--max : etirement de chaque bande du percentile 1 au percentile 99 de ses "
               "pixels valides (ceux de la derniere image)"
            << std::endl
            << "  --reduction n : moyenne des pixels valides de blocs de n x n" << std::endl;
}

// The two images side by side, the second kEcart columns right of the first, tops aligned.
SourceApercu CoteACote(const SourceApercu& a, const SourceApercu& b) {
  const int canaux = a.image.GetNbCanaux();
  const int wa = a.image.iGetNbColonnes(), wb = b.image.iGetNbColonnes();
  const int w = wa + kEcart + wb, h = std::max(a.image.iGetNbLignes(), b.image.iGetNbLignes());
  SourceApercu s;
  s.image = TTImage<float>(w, h, TagNbCanaux(canaux));
  s.valide.assign(static_cast<size_t>(w) * h, 0);
  const SourceApercu* parts[2] = {&a, &b};
  const int x0[2] = {0, wa + kEcart};
  for (int k = 0; k < 2; ++k) {
    const SourceApercu& p = *parts[k];
    const int wp = p.image.iGetNbColonnes();
    for (int y = 0; y < p.image.iGetNbLignes(); ++y) {
      std::copy(p.image.GetLines(y), p.image.GetLines(y) + static_cast<size_t>(wp) * canaux,
                s.image.GetLines(y) + static_cast<size_t>(x0[k]) * canaux);
      std::copy(p.valide.begin() + static_cast<long>(y) * wp,
                p.valide.begin() + static_cast<long>(y + 1) * wp,
                s.valide.begin() + static_cast<long>(y) * w + x0[k]);
    }
  }
  return s;
}

bool FinitPar(const std::string& s, const std::string& fin) {
  return s.size() >= fin.size() && s.compare(s.size() - fin.size(), fin.size(), fin) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  return ExecuterProgramme(argc, Usage, [&] {
    std::vector<std::string> fichiers;
    bool avecMin = false, avecMax = false;
    Etirement donne;
    long reduction = 1;
    for (int i = 1; i < argc; ++i) {
      const std::string mot = argv[i];
      if (mot == "--min") {
        donne.bas = LireReel(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
        avecMin = true;
      } else if (mot == "--max") {
        donne.haut = LireReel(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
        avecMax = true;
      } else if (mot == "--reduction") {
        reduction = LireEntier(ValeurOption(argc, argv, i, kProgramme), mot, kProgramme);
        if (reduction < 1 || reduction > 4096)
          ZEPRA_ERREUR("[apercu] (Options) --reduction " << reduction << " : 1 a 4096 attendu.");
      } else if (mot.rfind("--", 0) == 0) {
        ZEPRA_ERREUR("[apercu] (Options) Option inconnue : " << mot);
      } else {
        fichiers.push_back(mot);
      }
    }
    if (fichiers.size() != 2 && fichiers.size() != 3)
      ZEPRA_ERREUR("[apercu] (Options) Une ou deux images et un fichier de sortie attendus, "
                   << fichiers.size() << " nom(s) donne(s).");
    if (avecMin != avecMax) ZEPRA_ERREUR("[apercu] (Options) --min et --max vont ensemble.");
    if (avecMin && !(donne.bas < donne.haut))
      ZEPRA_ERREUR("[apercu] (Options) --min " << donne.bas << " doit etre inferieur a --max " << donne.haut
                                               << ".");
    const std::string sortie = fichiers.back();
    fichiers.pop_back();
    std::vector<SourceApercu> sources;
    for (const std::string& f : fichiers)
      sources.push_back(Reduire(LireSourceApercu(f), static_cast<int>(reduction)));
    const int canaux = sources.back().image.GetNbCanaux();
    if (sources.front().image.GetNbCanaux() != canaux)
      ZEPRA_ERREUR("[apercu] (Images) " << fichiers[0] << " et " << fichiers[1]
                                        << " n'ont pas le meme nombre de bandes a montrer ("
                                        << sources.front().image.GetNbCanaux() << " et " << canaux << ").");
    std::vector<Etirement> e(canaux, donne);
    if (!avecMin)
      for (int c = 0; c < canaux; ++c)
        e[c] = EtirementPercentiles(sources.back().image, 0.01, 0.99, c, &sources.back().valide);
    const SourceApercu s = sources.size() == 2 ? CoteACote(sources[0], sources[1]) : sources[0];
    const int w = s.image.iGetNbColonnes(), h = s.image.iGetNbLignes();
    const std::vector<unsigned char> octets = EtirerCanaux(s, e);
    if (FinitPar(sortie, ".png") || FinitPar(sortie, ".PNG")) {
      EcrirePng(sortie, w, h, canaux, octets);
    } else {
      TTImage<unsigned char> q(w, h, TagNbCanaux(canaux));
      std::copy(octets.begin(), octets.end(), q.begin());
      q.Sauver(sortie.c_str());
    }
    std::cout << sortie << " : " << w << " x " << h;
    for (int c = 0; c < canaux; ++c)
      std::cout << (c == 0 ? ", niveaux 1 a 255 pour " : " ; ") << e[c].bas << " a " << e[c].haut;
    std::cout << std::endl;
  });
}
