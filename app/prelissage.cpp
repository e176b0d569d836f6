#include "prelissage.h"

#include <vector>

#include "integrales.h"
#include "polynome.h"
#include "walis.h"
#include "zepra/erreur.h"

void InverseMasque(const TTImage<bool>& masque, TTImage<bool>& inverse) {
  if (&inverse != &masque) inverse = masque;
  for (auto it = inverse.begin(); it != inverse.end(); ++it) *it = !*it;
}

void MoyMasque(TTImage<float>& image, const TTImage<bool>& masque, int rayon) {
  const char* tag = "[Prelissage] (MoyMasque)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierMasque(image, masque, tag);
  VerifierDemiLargeur(rayon, tag);
  const int w = image.iGetNbColonnes();
  const int hauteur = image.iGetNbLignes();
  // The tables are complete before the first pixel is written: every mean uses the input values.
  TTImage<double> S, N;
  TablesMasquees(image, masque, &S, nullptr, &N);
  const int h = DemiLargeurUtile(image, rayon);
  const std::vector<double> zeros(static_cast<size_t>(w), 0.0);
  for (int y = 0; y < hauteur; ++y) {
    const BornesFenetre fy = Fenetre(y, h, hauteur);
    const LignesBoite<double> ls = LignesFenetre(S, fy, zeros);
    const LignesBoite<double> ln = LignesFenetre(N, fy, zeros);
    float* v = image.GetLines(y);
    for (int x = 0; x < w; ++x) {
      const BornesFenetre f = Fenetre(x, h, w);
      const double n = ln.Somme(f.debut, f.fin);
      v[x] = n != 0.0 ? static_cast<float>(ls.Somme(f.debut, f.fin) / n) : 0.0f;
    }
  }
}

namespace {

// Validations shared by the two pre-smoothings, before anything is computed.
void VerifierPrelissage(const TTImage<float>& image, const TTImage<bool>& masqueExclu, int tailleWalis,
                        const char* tag) {
  VerifierUnCanal(image, tag, "L'image");
  VerifierMasque(image, masqueExclu, tag);
  VerifierDemiLargeur(tailleWalis / 2, tag);
}

}  // namespace

void PrelisseMoyWalis(TTImage<float>& image, const TTImage<bool>& masqueExclu, int tailleMoy, int tailleWalis,
                      double moyenneCible, double ecartTypeCible) {
  VerifierPrelissage(image, masqueExclu, tailleWalis, "[Prelissage] (PrelisseMoyWalis)");
  TTImage<bool> masque;
  InverseMasque(masqueExclu, masque);
  TTImage<float> gain, offset;
  GainOffsetWalis(image, masque, gain, offset, tailleWalis, moyenneCible, ecartTypeCible);
  // A smoothing half-width of 0 or less means no smoothing.
  if (tailleMoy > 0) {
    MoyMasque(gain, masque, tailleMoy);
    MoyMasque(offset, masque, tailleMoy);
  }
  AppliqueGainOffset(image, gain, offset);
}

void PrelissePolyWalis(TTImage<float>& image, const TTImage<bool>& masqueExclu, int degre, int tailleWalis,
                       double moyenneCible, double ecartTypeCible, int pas) {
  const char* tag = "[Prelissage] (PrelissePolyWalis)";
  VerifierPrelissage(image, masqueExclu, tailleWalis, tag);
  if (pas < 1) ZEPRA_ERREUR(tag << " Pas d'echantillonnage " << pas << " : il doit valoir au moins 1.");
  // Checked before any field is computed, so that a refused degree costs nothing.
  if (degre < 0 || degre > kDegreMaxPolynome)
    ZEPRA_ERREUR(tag << " Degre " << degre << " hors de [0, " << kDegreMaxPolynome << "].");
  TTImage<bool> masque;
  InverseMasque(masqueExclu, masque);
  TTImage<float> gain, offset;
  GainOffsetWalis(image, masque, gain, offset, tailleWalis, moyenneCible, ecartTypeCible);
  ModelePolynomialMonoImage(gain, masque, pas, degre);
  ModelePolynomialMonoImage(offset, masque, pas, degre);
  AppliqueGainOffset(image, gain, offset);
}

void PrelisseWalisMoy(TTImage<float>& image, const TTImage<bool>& masqueExclu, const T2D<double>& cible) {
  // GainOffsetWalis halves its window size: 2 x 25 gives the fixed half-width of the command.
  PrelisseMoyWalis(image, masqueExclu, kRayonPrelisseMoy, 2 * kDemiLargeurWalis, cible.x, cible.y);
}
