#include "zepra/pipeline/walis.h"

#include <algorithm>
#include <cmath>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "zepra/erreur.h"
#include "zepra/pipeline/integrales.h"

void VerifierUnCanal(const TTImage<float>& image, const char* tag, const char* role) {
  if (image.GetNbCanaux() != 1)
    ZEPRA_ERREUR(tag << " " << role << " a " << image.GetNbCanaux() << " canaux ; un seul est attendu.");
}

void VerifierMasque(const TTImage<float>& image, const TTImage<bool>& masque, const char* tag) {
  if (masque.GetNbCanaux() != 1)
    ZEPRA_ERREUR(tag << " Le masque a " << masque.GetNbCanaux() << " canaux ; un seul est attendu.");
  if (masque.GetTaille() != image.GetTaille())
    ZEPRA_ERREUR(tag << " Le masque (" << masque.iGetNbColonnes() << " x " << masque.iGetNbLignes()
                     << ") n'a pas la taille de l'image (" << image.iGetNbColonnes() << " x "
                     << image.iGetNbLignes() << ").");
}

void VerifierDemiLargeur(int demiLargeur, const char* tag) {
  if (demiLargeur < 0) ZEPRA_ERREUR(tag << " Demi-largeur de fenetre negative : " << demiLargeur << ".");
}

namespace {

// Mean and deviation of n values of sum s and sum of squares q; (0, 0) for an empty window.
inline T2D<double> MoyenneEcart(double n, double s, double q) {
  if (n == 0.0) return T2D<double>(0.0, 0.0);
  const double moyenne = s / n;
  return T2D<double>(moyenne, std::sqrt(q / n - moyenne * moyenne));
}

// The image a field is written into: the caller's own when it already has the shape and is not the
// input (every one of its samples is then overwritten, so the result is that of a new image), a new
// one otherwise, moved into place at the end. Reusing it spares a fresh allocation per call.
class Sortie {
 public:
  Sortie(TTImage<float>& cible, const TTImage<float>& image, int canaux) : m_cible(cible) {
    m_reutilisee =
        &cible != &image && cible.GetTaille() == image.GetTaille() && cible.GetNbCanaux() == canaux;
    if (!m_reutilisee) m_nouvelle = TTImage<float>(image.GetTaille(), TagNbCanaux(canaux));
  }
  TTImage<float>& operator*() { return m_reutilisee ? m_cible : m_nouvelle; }
  void Terminer() {
    if (!m_reutilisee) m_cible = std::move(m_nouvelle);
  }

 private:
  TTImage<float>& m_cible;
  TTImage<float> m_nouvelle;
  bool m_reutilisee;
};

// Whole-image masked (or plain) sums from the last table line: the four-corner rule over the whole
// image, the same value the full tables give. The lines are computed and dropped on the way.
T3D<double> SommesGlobales(const TTImage<float>& image, const TTImage<bool>* masque) {
  const int w = image.iGetNbColonnes();
  const int h = image.iGetNbLignes();
  if (w < 1 || h < 1) return T3D<double>(0.0, 0.0, 0.0);
  TablesGlissantes t(image, masque, 0, true);
  for (int y = 0; y + 1 < h; ++y) t.Fenetres(y);
  const TablesGlissantes::Lignes l = t.Fenetres(h - 1);
  // The box of the whole image is its last table entry minus nothing above it.
  const double n = masque ? l.n.bas[w - 1] : static_cast<double>(w) * h;
  return T3D<double>(l.s.bas[w - 1], l.q.bas[w - 1], n);
}

// Gain and offset of one pixel from the sums of its window. The empty window is tested before the
// deviation, and a flat window only shifts the mean. A variance that rounds below zero gives a NaN
// deviation, not equal to 0, so NaN gain and offset: kept as it is.
inline void GainOffsetPixel(double n, double s, double q, double mc, double ec, double& g, double& o) {
  if (n == 0.0) {
    g = 1.0;
    o = mc;
    return;
  }
  const double moyenne = s / n;
  const double ecart = std::sqrt(q / n - moyenne * moyenne);
  if (ecart == 0.0) {
    g = 1.0;
    o = mc - moyenne;
  } else {
    g = ec / ecart;
    o = mc - moyenne * g;
  }
}

// Gain and offset of the masked pixels of one image line, written into lg[x * pasGain] and
// lo[x * pasOffset] from the table lines of their windows; the other pixels receive 0.
// Inner pixels (whole window inside the columns) go two at a time through SSE2, with the operations
// of GainOffsetPixel in the same order: the results are identical, only the branches become selections.
void LigneGainOffset(const TablesGlissantes::Lignes& l, const unsigned char* m, int w, int h, double mc,
                     double ec, float* lg, int pasGain, float* lo, int pasOffset) {
  auto ecrire = [&](int x, double g, double o) {
    lg[static_cast<long>(x) * pasGain] = static_cast<float>(g);
    lo[static_cast<long>(x) * pasOffset] = static_cast<float>(o);
  };
  auto pixel = [&](int x) {
    if (!m[x]) return ecrire(x, 0.0, 0.0);
    const BornesFenetre f = Fenetre(x, h, w);
    double g, o;
    GainOffsetPixel(l.n.Somme(f.debut, f.fin), l.s.Somme(f.debut, f.fin), l.q.Somme(f.debut, f.fin), mc, ec,
                    g, o);
    ecrire(x, g, o);
  };
  const int debutInterieur = h + 1, finInterieur = w - 1 - h;  // inner pixels: [h + 1, w - 1 - h]
  int x = 0;
  for (; x < std::min(debutInterieur, w); ++x) pixel(x);
#if defined(__SSE2__)
  const __m128d zero = _mm_setzero_pd(), un = _mm_set1_pd(1.0);
  const __m128d vmc = _mm_set1_pd(mc), vec = _mm_set1_pd(ec);
  auto boite = [h](const LignesBoite& b, int x) {
    const __m128d d = _mm_sub_pd(_mm_loadu_pd(b.bas + x + h), _mm_loadu_pd(b.bas + x - h - 1));
    return _mm_add_pd(_mm_sub_pd(d, _mm_loadu_pd(b.haut + x + h)), _mm_loadu_pd(b.haut + x - h - 1));
  };
  auto choisir = [](__m128d condition, __m128d si, __m128d sinon) {
    return _mm_or_pd(_mm_and_pd(condition, si), _mm_andnot_pd(condition, sinon));
  };
  for (; x + 1 <= finInterieur; x += 2) {
    if (!m[x] && !m[x + 1]) {
      ecrire(x, 0.0, 0.0);
      ecrire(x + 1, 0.0, 0.0);
      continue;
    }
    const __m128d n = boite(l.n, x);
    const __m128d moyenne = _mm_div_pd(boite(l.s, x), n);
    const __m128d ecart = _mm_sqrt_pd(_mm_sub_pd(_mm_div_pd(boite(l.q, x), n), _mm_mul_pd(moyenne, moyenne)));
    const __m128d gain = _mm_div_pd(vec, ecart);
    const __m128d offset = _mm_sub_pd(vmc, _mm_mul_pd(moyenne, gain));
    const __m128d vide = _mm_cmpeq_pd(n, zero);
    const __m128d plat = _mm_cmpeq_pd(ecart, zero);
    __m128d vg = choisir(plat, un, gain);
    __m128d vo = choisir(plat, _mm_sub_pd(vmc, moyenne), offset);
    vg = choisir(vide, un, vg);
    vo = choisir(vide, vmc, vo);
    double g[2], o[2];
    _mm_storeu_pd(g, vg);
    _mm_storeu_pd(o, vo);
    ecrire(x, m[x] ? g[0] : 0.0, m[x] ? o[0] : 0.0);
    ecrire(x + 1, m[x + 1] ? g[1] : 0.0, m[x + 1] ? o[1] : 0.0);
  }
#endif
  for (; x < w; ++x) pixel(x);
}

// Writes gain and offset of every masked pixel into the channels canalGain of gain and canalOffset of
// offset (which may be the same image), and 0 at the other pixels: what a new image holds where the
// fields are not written. Each line reads the tables and writes only its own output line.
void ChampsWalis(const TTImage<float>& image, const TTImage<bool>& masque, int h, double moyenneCible,
                 double ecartCible, TTImage<float>& gain, int canalGain, TTImage<float>& offset,
                 int canalOffset) {
  const int w = image.iGetNbColonnes();
  const int hauteur = image.iGetNbLignes();
  if (moyenneCible == 0.0 && ecartCible == 0.0) {
    // Only a target of exactly (0, 0) stands for the image's own masked statistics; with no masked
    // pixel nothing is written below, so the target does not matter then.
    const T3D<double> b = SommesGlobales(image, &masque);
    const T2D<double> globale = MoyenneEcart(b.z, b.x, b.y);
    moyenneCible = globale.x;
    ecartCible = globale.y;
  }
  TablesGlissantes t(image, &masque, h, true);
  h = t.DemiLargeur();
  for (int y = 0; y < hauteur; ++y) {
    const TablesGlissantes::Lignes l = t.Fenetres(y);
    LigneGainOffset(l, t.Masque(y), w, h, moyenneCible, ecartCible, gain.GetLines(y) + canalGain,
                    gain.GetNbCanaux(), offset.GetLines(y) + canalOffset, offset.GetNbCanaux());
  }
}

}  // namespace

void GainOffsetWalis(const TTImage<float>& image, const TTImage<bool>& masque, TTImage<float>& gain,
                     TTImage<float>& offset, int taille, double moyenneCible, double ecartTypeCible) {
  const char* tag = "[Walis] (GainOffsetWalis)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierMasque(image, masque, tag);
  VerifierDemiLargeur(taille / 2, tag);
  if (&gain == &offset) ZEPRA_ERREUR(tag << " Le gain et l'offset doivent etre deux images distinctes.");
  Sortie g(gain, image, 1), o(offset, image, 1);
  ChampsWalis(image, masque, taille / 2, moyenneCible, ecartTypeCible, *g, 0, *o, 0);
  g.Terminer();
  o.Terminer();
}

void GainOffsetWalisFenetre(const TTImage<float>& image, const TTImage<bool>& masque,
                            TTImage<float>& gainOffset, const T2D<double>& cible) {
  const char* tag = "[Walis] (GainOffsetWalisFenetre)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierMasque(image, masque, tag);
  Sortie go(gainOffset, image, 2);
  ChampsWalis(image, masque, kDemiLargeurWalis, cible.x, cible.y, *go, 0, *go, 1);
  go.Terminer();
}

void GainOffsetWalisReference(const TTImage<float>& image, const TTImage<bool>& masque,
                              const TTImage<float>& reference, const TTImage<bool>& masqueReference,
                              TTImage<float>& gainOffset, int demiLargeur) {
  const char* tag = "[Walis] (GainOffsetWalisReference)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierUnCanal(reference, tag, "L'image de reference");
  VerifierMasque(image, masque, tag);
  VerifierMasque(reference, masqueReference, tag);
  if (reference.GetTaille() != image.GetTaille())
    ZEPRA_ERREUR(tag << " L'image de reference (" << reference.iGetNbColonnes() << " x "
                     << reference.iGetNbLignes() << ") n'a pas la taille de l'image ("
                     << image.iGetNbColonnes() << " x " << image.iGetNbLignes() << ").");
  VerifierDemiLargeur(demiLargeur, tag);
  const int w = image.iGetNbColonnes();
  const int hauteur = image.iGetNbLignes();
  TablesGlissantes ti(image, &masque, demiLargeur, true);
  TablesGlissantes tr(reference, &masqueReference, demiLargeur, true);
  const int h = ti.DemiLargeur();
  Sortie go(gainOffset, image, 2);
  for (int y = 0; y < hauteur; ++y) {
    const TablesGlissantes::Lignes li = ti.Fenetres(y);
    const TablesGlissantes::Lignes lr = tr.Fenetres(y);
    const unsigned char* m = ti.Masque(y);
    float* sortie = (*go).GetLines(y);
    for (int x = 0; x < w; ++x) {
      if (!m[x]) {
        sortie[2L * x] = sortie[2L * x + 1] = 0.0f;
        continue;
      }
      const BornesFenetre f = Fenetre(x, h, w);
      const T2D<double> s1 =
          MoyenneEcart(li.n.Somme(f.debut, f.fin), li.s.Somme(f.debut, f.fin), li.q.Somme(f.debut, f.fin));
      const T2D<double> s2 =
          MoyenneEcart(lr.n.Somme(f.debut, f.fin), lr.s.Somme(f.debut, f.fin), lr.q.Somme(f.debut, f.fin));
      double gain = 1.0, offset;
      if (s1.y == 0.0) {
        offset = s2.x - s1.x;
      } else {
        gain = s2.y / s1.y;
        offset = s2.x - s1.x * gain;
      }
      sortie[2L * x] = static_cast<float>(gain);
      sortie[2L * x + 1] = static_cast<float>(offset);
    }
  }
  go.Terminer();
}

void AppliqueGainOffset(TTImage<float>& image, const TTImage<float>& gain, const TTImage<float>& offset) {
  const char* tag = "[Walis] (AppliqueGainOffset)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierUnCanal(gain, tag, "Le gain");
  VerifierUnCanal(offset, tag, "L'offset");
  if (gain.GetTaille() != image.GetTaille() || offset.GetTaille() != image.GetTaille())
    ZEPRA_ERREUR(tag << " Gain (" << gain.iGetNbColonnes() << " x " << gain.iGetNbLignes() << ") et offset ("
                     << offset.iGetNbColonnes() << " x " << offset.iGetNbLignes()
                     << ") doivent avoir la taille de l'image (" << image.iGetNbColonnes() << " x "
                     << image.iGetNbLignes() << ").");
  const int w = image.iGetNbColonnes();
  for (int y = 0; y < image.iGetNbLignes(); ++y) {
    float* v = image.GetLines(y);
    const float* g = gain.GetLines(y);
    const float* o = offset.GetLines(y);
    for (int x = 0; x < w; ++x) v[x] = v[x] * g[x] + o[x];
  }
}

void AppliqueGainOffset(TTImage<float>& image, const TTImage<float>& gainOffset) {
  const char* tag = "[Walis] (AppliqueGainOffset)";
  VerifierUnCanal(image, tag, "L'image");
  if (gainOffset.GetNbCanaux() != 2 || gainOffset.GetTaille() != image.GetTaille())
    ZEPRA_ERREUR(tag << " Le champ gain-offset (" << gainOffset.iGetNbColonnes() << " x "
                     << gainOffset.iGetNbLignes() << ", " << gainOffset.GetNbCanaux()
                     << " canaux) doit avoir deux canaux et la taille de l'image (" << image.iGetNbColonnes()
                     << " x " << image.iGetNbLignes() << ").");
  const int w = image.iGetNbColonnes();
  for (int y = 0; y < image.iGetNbLignes(); ++y) {
    float* v = image.GetLines(y);
    const float* go = gainOffset.GetLines(y);
    for (int x = 0; x < w; ++x) v[x] = v[x] * go[2L * x] + go[2L * x + 1];
  }
}

void ImageReferenceWalis(const TTImage<float>& image, TTImage<float>& reference, int demiLargeur,
                         const T2D<double>& cible) {
  const char* tag = "[Walis] (ImageReferenceWalis)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierDemiLargeur(demiLargeur, tag);
  const int w = image.iGetNbColonnes();
  const int hauteur = image.iGetNbLignes();
  double moyenneCible = cible.x, ecartCible = cible.y;
  if (moyenneCible == 0.0 && ecartCible == 0.0 && w > 0 && hauteur > 0) {
    const T3D<double> b = SommesGlobales(image, nullptr);
    const T2D<double> globale = MoyenneEcart(b.z, b.x, b.y);
    moyenneCible = globale.x;
    ecartCible = globale.y;
  }
  TablesGlissantes t(image, nullptr, demiLargeur, true);
  const int h = t.DemiLargeur();
  Sortie sortie(reference, image, 1);
  for (int y = 0; y < hauteur; ++y) {
    const BornesFenetre fy = Fenetre(y, h, hauteur);
    const TablesGlissantes::Lignes l = t.Fenetres(y);
    const double nLignes = static_cast<double>(fy.fin) - fy.debut + 1;
    const float* v = image.GetLines(y);
    float* r = (*sortie).GetLines(y);
    for (int x = 0; x < w; ++x) {
      const BornesFenetre f = Fenetre(x, h, w);
      const double n = (static_cast<double>(f.fin) - f.debut + 1) * nLignes;
      const double moyenne = l.s.Somme(f.debut, f.fin) / n;
      const double ecart = std::sqrt(l.q.Somme(f.debut, f.fin) / n - moyenne * moyenne);
      const double d = static_cast<double>(v[x]) - moyenne;
      r[x] = static_cast<float>(ecart != 0.0 ? d * ecartCible / ecart + moyenneCible : d + moyenneCible);
    }
  }
  sortie.Terminer();
}

void StatsLocales(const TTImage<float>& image, const TTImage<bool>& masque, int demiLargeur,
                  TTImage<float>& moyenne, TTImage<float>& ecartType) {
  const char* tag = "[Walis] (StatsLocales)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierMasque(image, masque, tag);
  VerifierDemiLargeur(demiLargeur, tag);
  if (&moyenne == &ecartType)
    ZEPRA_ERREUR(tag << " La moyenne et l'ecart-type doivent etre deux images distinctes.");
  const int w = image.iGetNbColonnes();
  const int hauteur = image.iGetNbLignes();
  TablesGlissantes t(image, &masque, demiLargeur, true);
  const int h = t.DemiLargeur();
  Sortie m(moyenne, image, 1), e(ecartType, image, 1);
  for (int y = 0; y < hauteur; ++y) {
    const TablesGlissantes::Lignes l = t.Fenetres(y);
    float* lm = (*m).GetLines(y);
    float* le = (*e).GetLines(y);
    for (int x = 0; x < w; ++x) {
      const BornesFenetre f = Fenetre(x, h, w);
      const T2D<double> s =
          MoyenneEcart(l.n.Somme(f.debut, f.fin), l.s.Somme(f.debut, f.fin), l.q.Somme(f.debut, f.fin));
      lm[x] = static_cast<float>(s.x);
      le[x] = static_cast<float>(s.y);
    }
  }
  m.Terminer();
  e.Terminer();
}
