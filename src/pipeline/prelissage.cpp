#include "zepra/pipeline/prelissage.h"

#include <algorithm>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "zepra/erreur.h"
#include "zepra/pipeline/integrales.h"
#include "zepra/pipeline/polynome.h"
#include "zepra/pipeline/walis.h"

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
  // Line y is written once the table lines up to y + h exist; the lines still to come read only image
  // lines below y + h, not yet written, so every mean uses the input values.
  TablesGlissantes t(image, &masque, rayon, false);
  const int h = t.DemiLargeur();
  for (int y = 0; y < hauteur; ++y) {
    const TablesGlissantes::Lignes l = t.Fenetres(y);
    float* v = image.GetLines(y);
    auto pixel = [&](int x) {
      const BornesFenetre f = Fenetre(x, h, w);
      const double n = l.n.Somme(f.debut, f.fin);
      v[x] = n != 0.0 ? static_cast<float>(l.s.Somme(f.debut, f.fin) / n) : 0.0f;
    };
    int x = 0;
    for (; x < std::min(h + 1, w); ++x) pixel(x);
#if defined(__SSE2__)
    // Inner pixels two at a time, with the operations of 'pixel' in the same order.
    auto boite = [h](const LignesBoite& b, int x) {
      const __m128d d = _mm_sub_pd(_mm_loadu_pd(b.bas + x + h), _mm_loadu_pd(b.bas + x - h - 1));
      return _mm_add_pd(_mm_sub_pd(d, _mm_loadu_pd(b.haut + x + h)), _mm_loadu_pd(b.haut + x - h - 1));
    };
    for (; x + 1 <= w - 1 - h; x += 2) {
      const __m128d n = boite(l.n, x);
      const __m128d moyenne = _mm_andnot_pd(_mm_cmpeq_pd(n, _mm_setzero_pd()), _mm_div_pd(boite(l.s, x), n));
      float deux[4];
      _mm_storeu_ps(deux, _mm_cvtpd_ps(moyenne));
      v[x] = deux[0];
      v[x + 1] = deux[1];
    }
#endif
    for (; x < w; ++x) pixel(x);
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
