#include "walis.h"

#include <cmath>
#include <vector>

#include "integrales.h"
#include "zepra/erreur.h"

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

// The three masked tables of one image and the lines bounding the windows of one image line.
struct TablesFenetre {
  TTImage<double> S, S2, N;
  std::vector<double> zeros;
  TablesFenetre(const TTImage<float>& image, const TTImage<bool>& masque)
      : zeros(static_cast<size_t>(image.iGetNbColonnes()), 0.0) {
    TablesMasquees(image, masque, &S, &S2, &N);
  }
  struct Ligne {
    LignesBoite<double> s, q, n;
  };
  Ligne Lignes(const BornesFenetre& f) const {
    return Ligne{LignesFenetre(S, f, zeros), LignesFenetre(S2, f, zeros), LignesFenetre(N, f, zeros)};
  }
};

// Writes gain and offset of every masked pixel into the channels canalGain of gain and canalOffset of
// offset (which may be the same image).
void ChampsWalis(const TTImage<float>& image, const TTImage<bool>& masque, int h, double moyenneCible,
                 double ecartCible, TTImage<float>& gain, int canalGain, TTImage<float>& offset,
                 int canalOffset) {
  const int w = image.iGetNbColonnes();
  const int hauteur = image.iGetNbLignes();
  const TablesFenetre t(image, masque);
  if (moyenneCible == 0.0 && ecartCible == 0.0) {
    // Only a target of exactly (0, 0) stands for the image's own masked statistics; with no masked
    // pixel nothing is written below, so the target does not matter then.
    T3D<double> b;
    stats_images_integrales_brutes(t.S, t.S2, t.N,
                                   T2D<T2D<int>>(T2D<int>(0, 0), T2D<int>(w - 1, hauteur - 1)), b);
    const T2D<double> globale = MoyenneEcart(b.z, b.x, b.y);
    moyenneCible = globale.x;
    ecartCible = globale.y;
  }
  h = DemiLargeurUtile(image, h);
  const int pasGain = gain.GetNbCanaux();
  const int pasOffset = offset.GetNbCanaux();
  for (int y = 0; y < hauteur; ++y) {
    const TablesFenetre::Ligne l = t.Lignes(Fenetre(y, h, hauteur));
    const auto m = masque.GetLines(y);
    float* g = gain.GetLines(y) + canalGain;
    float* o = offset.GetLines(y) + canalOffset;
    for (int x = 0; x < w; ++x) {
      if (!m[x]) continue;
      const BornesFenetre f = Fenetre(x, h, w);
      const double n = l.n.Somme(f.debut, f.fin);
      double vg, vo;
      // The empty window is tested before the deviation, and a flat window only shifts the mean.
      if (n == 0.0) {
        vg = 1.0;
        vo = moyenneCible;
      } else {
        const double moyenne = l.s.Somme(f.debut, f.fin) / n;
        const double variance = l.q.Somme(f.debut, f.fin) / n - moyenne * moyenne;
        const double ecart = std::sqrt(variance);
        if (ecart == 0.0) {
          vg = 1.0;
          vo = moyenneCible - moyenne;
        } else {
          vg = ecartCible / ecart;
          vo = moyenneCible - moyenne * vg;
        }
      }
      g[static_cast<long>(x) * pasGain] = static_cast<float>(vg);
      o[static_cast<long>(x) * pasOffset] = static_cast<float>(vo);
    }
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
  TTImage<float> g(image.GetTaille(), TagNbCanaux(1));
  TTImage<float> o(image.GetTaille(), TagNbCanaux(1));
  ChampsWalis(image, masque, taille / 2, moyenneCible, ecartTypeCible, g, 0, o, 0);
  gain = std::move(g);
  offset = std::move(o);
}

void GainOffsetWalisFenetre(const TTImage<float>& image, const TTImage<bool>& masque,
                            TTImage<float>& gainOffset, const T2D<double>& cible) {
  const char* tag = "[Walis] (GainOffsetWalisFenetre)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierMasque(image, masque, tag);
  TTImage<float> go(image.GetTaille(), TagNbCanaux(2));
  ChampsWalis(image, masque, kDemiLargeurWalis, cible.x, cible.y, go, 0, go, 1);
  gainOffset = std::move(go);
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
  const int h = DemiLargeurUtile(image, demiLargeur);
  const TablesFenetre ti(image, masque);
  const TablesFenetre tr(reference, masqueReference);
  TTImage<float> go(image.GetTaille(), TagNbCanaux(2));
  for (int y = 0; y < hauteur; ++y) {
    const BornesFenetre fy = Fenetre(y, h, hauteur);
    const TablesFenetre::Ligne li = ti.Lignes(fy);
    const TablesFenetre::Ligne lr = tr.Lignes(fy);
    const auto m = masque.GetLines(y);
    float* sortie = go.GetLines(y);
    for (int x = 0; x < w; ++x) {
      if (!m[x]) continue;
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
  gainOffset = std::move(go);
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
  TTImage<double> S, S2;
  images_integrales(image, S, S2);
  double moyenneCible = cible.x, ecartCible = cible.y;
  if (moyenneCible == 0.0 && ecartCible == 0.0 && w > 0 && hauteur > 0) {
    T2D<double> globale;
    stats_images_integrales(S, S2, globale);
    moyenneCible = globale.x;
    ecartCible = globale.y;
  }
  const int h = DemiLargeurUtile(image, demiLargeur);
  const std::vector<double> zeros(static_cast<size_t>(w), 0.0);
  TTImage<float> sortie(image.GetTaille(), TagNbCanaux(1));
  for (int y = 0; y < hauteur; ++y) {
    const BornesFenetre fy = Fenetre(y, h, hauteur);
    const LignesBoite<double> ls = LignesFenetre(S, fy, zeros);
    const LignesBoite<double> lq = LignesFenetre(S2, fy, zeros);
    const double nLignes = static_cast<double>(fy.fin) - fy.debut + 1;
    const float* v = image.GetLines(y);
    float* r = sortie.GetLines(y);
    for (int x = 0; x < w; ++x) {
      const BornesFenetre f = Fenetre(x, h, w);
      const double n = (static_cast<double>(f.fin) - f.debut + 1) * nLignes;
      const double moyenne = ls.Somme(f.debut, f.fin) / n;
      const double ecart = std::sqrt(lq.Somme(f.debut, f.fin) / n - moyenne * moyenne);
      const double d = static_cast<double>(v[x]) - moyenne;
      r[x] = static_cast<float>(ecart != 0.0 ? d * ecartCible / ecart + moyenneCible : d + moyenneCible);
    }
  }
  reference = std::move(sortie);
}

void StatsLocales(const TTImage<float>& image, const TTImage<bool>& masque, int demiLargeur,
                  TTImage<float>& moyenne, TTImage<float>& ecartType) {
  const char* tag = "[Walis] (StatsLocales)";
  VerifierUnCanal(image, tag, "L'image");
  VerifierMasque(image, masque, tag);
  VerifierDemiLargeur(demiLargeur, tag);
  const int w = image.iGetNbColonnes();
  const int hauteur = image.iGetNbLignes();
  const int h = DemiLargeurUtile(image, demiLargeur);
  const TablesFenetre t(image, masque);
  TTImage<float> m(image.GetTaille(), TagNbCanaux(1));
  TTImage<float> e(image.GetTaille(), TagNbCanaux(1));
  for (int y = 0; y < hauteur; ++y) {
    const TablesFenetre::Ligne l = t.Lignes(Fenetre(y, h, hauteur));
    float* lm = m.GetLines(y);
    float* le = e.GetLines(y);
    for (int x = 0; x < w; ++x) {
      const BornesFenetre f = Fenetre(x, h, w);
      const T2D<double> s =
          MoyenneEcart(l.n.Somme(f.debut, f.fin), l.s.Somme(f.debut, f.fin), l.q.Somme(f.debut, f.fin));
      lm[x] = static_cast<float>(s.x);
      le[x] = static_cast<float>(s.y);
    }
  }
  moyenne = std::move(m);
  ecartType = std::move(e);
}
