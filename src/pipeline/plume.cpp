#include "pipeline/plume.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "zepra/erreur.h"

namespace {

constexpr double kInfini = std::numeric_limits<double>::infinity();

// The smallest distance in pixels whose square reaches plafond2: column distances under it are the
// only ones that can bring a pixel under the cap (the largest int when there is no cap).
int Limite(double plafond) {
  if (!(plafond < 2147483647.0)) return std::numeric_limits<int>::max();
  const double plafond2 = plafond * plafond;
  int limite = std::max(0, static_cast<int>(std::ceil(plafond)));
  while (limite > 0 && static_cast<double>(limite - 1) * (limite - 1) >= plafond2) --limite;
  while (static_cast<double>(limite) * limite < plafond2) ++limite;
  return limite;
}

// Lower envelope of the parabolas (x - q)^2 + e(q)^2 over the q where e(q) < limite (Felzenszwalb and
// Huttenlocher): d(x) = min over q of (x - q)^2 + e(q)^2. A value under the cap plafond2 lies less than
// 'limite' from the vertex of its parabola, so only the spans of [c0, c1) around the vertices are
// evaluated: o[x] gets d(x) as a float there (plafond2 where d(x) reaches it), and the spans are listed
// in 'etendues', in increasing order; elsewhere d(x) is at the cap and o[x] is not written. Every
// source (e = 0) lies in a span. v and z are work arrays of n and n + 1 entries.
template <class E>
void Enveloppe(const E* e, int n, int limite, double plafond2, int c0, int c1, float* o, int* v, double* z,
               std::vector<Etendue>& etendues) {
  const float loin = static_cast<float>(plafond2);
  auto f = [e](int q) { return static_cast<double>(e[q]) * e[q]; };
  int k = -1;
  constexpr int kPaquet = 32;
  for (int q0 = 0; q0 < n; q0 += kPaquet) {
    // Most of a line is far from every source: whole packets of it are passed at once.
    const int q1 = std::min(n, q0 + kPaquet);
    E plusPetit = std::numeric_limits<E>::max();
    for (int q = q0; q < q1; ++q) plusPetit = std::min(plusPetit, e[q]);
    if (plusPetit >= limite) continue;
    for (int q = q0; q < q1; ++q) {
      if (e[q] >= limite) continue;
      const double fq = f(q) + static_cast<double>(q) * q;
      if (k < 0) {
        k = 0;
        v[0] = q;
        z[0] = -kInfini;
        z[1] = kInfini;
        continue;
      }
      double s;
      for (;;) {
        const int p = v[k];
        s = (fq - (f(p) + static_cast<double>(p) * p)) / (2.0 * (q - p));
        if (s > z[k]) break;
        --k;  // z[0] is -infinity, so k never goes below 0
      }
      ++k;
      v[k] = q;
      z[k] = s;
      z[k + 1] = kInfini;
    }
  }
  etendues.clear();
  const int portee = std::min(limite - 1, n);
  int x = c0, m = 0;
  for (int j = 0; j <= k; ++j) {
    const int debut = std::max(x, v[j] - portee), fin = std::min(c1, v[j] + portee + 1);
    if (fin <= debut) continue;
    if (!etendues.empty() && etendues.back().fin == debut)
      etendues.back().fin = fin;
    else
      etendues.push_back({debut, fin});
    for (x = debut; x < fin; ++x) {
      while (z[m + 1] < x) ++m;
      const double ecart = x - v[m];
      const double d = ecart * ecart + f(v[m]);
      o[x] = d >= plafond2 ? loin : static_cast<float>(d);
    }
  }
}

std::vector<unsigned char>& Colonnes(TravailPlume& t, unsigned char*) { return t.colonnes8; }
std::vector<uint16_t>& Colonnes(TravailPlume& t, uint16_t*) { return t.colonnes16; }
std::vector<int>& Colonnes(TravailPlume& t, int*) { return t.colonnes32; }

// Squared distances with a cap, by lines: ligne(y, d, etendues) for y from l1 - 1 down to l0, the
// squared distance from pixel (x, y) to the nearest source being d[x] for x in the spans listed (exact
// under plafond2, plafond2 at or beyond it) and plafond2 elsewhere in [c0, c1); no spans when the whole
// line is at the cap. Column distances are kept in E, saturated at its largest value, which must not
// be under 'limite' (Limite(plafond)).
template <class E, class Ligne>
void Distances(const unsigned char* source, int largeur, int hauteur, std::ptrdiff_t pasSource, int limite,
               double plafond2, int l0, int l1, int c0, int c1, TravailPlume& t, Ligne&& ligne) {
  constexpr E kMax = std::numeric_limits<E>::max();
  const size_t W = static_cast<size_t>(largeur);
  std::vector<E>& tampon = Colonnes(t, static_cast<E*>(nullptr));
  tampon.resize((static_cast<size_t>(l1 - l0) + 2) * W);
  E* haut = tampon.data();
  E* course = haut + static_cast<size_t>(l1 - l0) * W;
  E* e = course + W;
  // Downwards: each pixel's distance to the nearest source above it in its column (or on it), from
  // the line before. In place and from one row to another are separate loops, both without branches
  // so that the compiler vectorizes them.
  auto pas = [](E a) { return static_cast<E>(a + (a < kMax)); };
  auto avancer = [&](const unsigned char* s, E* c) {
    for (size_t x = 0; x < W; ++x) c[x] = static_cast<E>(pas(c[x]) * !s[x]);
  };
  std::fill(course, course + W, kMax);
  for (int y = 0; y < l1; ++y) {
    const unsigned char* s = source + y * pasSource;
    if (y <= l0) {
      avancer(s, course);
      if (y == l0) std::copy(course, course + W, haut);
      continue;
    }
    const E* avant = haut + static_cast<size_t>(y - 1 - l0) * W;
    E* h = haut + static_cast<size_t>(y - l0) * W;
    for (size_t x = 0; x < W; ++x) h[x] = static_cast<E>(pas(avant[x]) * !s[x]);
  }
  // Upwards: the column distance of a line is then complete, and the line's envelope is taken at once.
  std::fill(course, course + W, kMax);
  t.ligne.resize(W);
  t.v.resize(W);
  t.z.resize(W + 1);
  for (int y = hauteur - 1; y >= l0; --y) {
    avancer(source + y * pasSource, course);
    if (y >= l1) continue;
    const E* h = haut + static_cast<size_t>(y - l0) * W;
    E plusPetit = kMax;
    for (size_t x = 0; x < W; ++x) {
      e[x] = std::min(h[x], course[x]);
      plusPetit = std::min(plusPetit, e[x]);
    }
    if (plusPetit >= limite) {
      t.etendues.clear();
    } else {
      Enveloppe(e, largeur, limite, plafond2, c0, c1, t.ligne.data(), t.v.data(), t.z.data(), t.etendues);
    }
    ligne(y, static_cast<const float*>(t.ligne.data()), t.etendues);
  }
}

// Distances with the narrowest column type for the cap: bytes for the feathering widths in use.
template <class Ligne>
void DistancesPlafonnees(const unsigned char* source, int largeur, int hauteur, std::ptrdiff_t pasSource,
                         double plafond, int l0, int l1, int c0, int c1, TravailPlume& t, Ligne&& ligne) {
  if (largeur < 0 || hauteur < 0)
    ZEPRA_ERREUR("[Plume] (DistanceCarree) Taille " << largeur << " x " << hauteur << " invalide.");
  if (largeur == 0 || hauteur == 0) return;
  const int limite = Limite(plafond);
  const double plafond2 = plafond * plafond;
  if (limite <= std::numeric_limits<unsigned char>::max())
    Distances<unsigned char>(source, largeur, hauteur, pasSource, limite, plafond2, l0, l1, c0, c1, t, ligne);
  else if (limite <= std::numeric_limits<uint16_t>::max())
    Distances<uint16_t>(source, largeur, hauteur, pasSource, limite, plafond2, l0, l1, c0, c1, t, ligne);
  else
    Distances<int>(source, largeur, hauteur, pasSource, limite, plafond2, l0, l1, c0, c1, t, ligne);
}

}  // namespace

void DistanceCarree(const unsigned char* source, int largeur, int hauteur, std::ptrdiff_t pasSource,
                    float* d2, std::ptrdiff_t pasD2) {
  TravailPlume t;
  DistancesPlafonnees(source, largeur, hauteur, pasSource, kInfini, 0, hauteur, 0, largeur, t,
                      [&](int y, const float* d, const std::vector<Etendue>& etendues) {
                        float* o = d2 + y * pasD2;
                        std::fill(o, o + largeur, static_cast<float>(kInfini));
                        for (const Etendue& k : etendues) std::copy(d + k.debut, d + k.fin, o + k.debut);
                      });
}

int MargePlume(double largeurPixels) {
  if (!(largeurPixels >= 0 && largeurPixels <= 1e6))
    ZEPRA_ERREUR("[Plume] (MargePlume) Largeur de " << largeurPixels << " pixels : 0 a 1e6 attendu.");
  return static_cast<int>(std::ceil(largeurPixels));
}

Fenetre FenetreAgrandie(const Fenetre& f, int marge, int largeurImage, int hauteurImage) {
  Fenetre g;
  g.colonne0 = std::max(0, f.colonne0 - marge);
  g.ligne0 = std::max(0, f.ligne0 - marge);
  g.nbColonnes = std::max(0, std::min(largeurImage, f.colonne0 + f.nbColonnes + marge) - g.colonne0);
  g.nbLignes = std::max(0, std::min(hauteurImage, f.ligne0 + f.nbLignes + marge) - g.ligne0);
  return g;
}

void PoidsPlume(int largeurImage, int hauteurImage, const Fenetre& f, double L, const unsigned char* valide,
                std::ptrdiff_t pasValide, float* poids, std::ptrdiff_t pasPoids, TravailPlume* travail) {
  const int m = MargePlume(L);
  if (f.colonne0 < 0 || f.ligne0 < 0 || f.nbColonnes < 0 || f.nbLignes < 0 ||
      static_cast<long long>(f.colonne0) + f.nbColonnes > largeurImage ||
      static_cast<long long>(f.ligne0) + f.nbLignes > hauteurImage)
    ZEPRA_ERREUR("[Plume] (PoidsPlume) Fenetre de "
                 << f.nbColonnes << " x " << f.nbLignes << " en (" << f.colonne0 << ", " << f.ligne0
                 << ") hors de l'image de " << largeurImage << " x " << hauteurImage << ".");
  const Fenetre a = FenetreAgrandie(f, m, largeurImage, hauteurImage);
  if (L < 1) {
    // Every valid pixel is at least one pixel from an invalid one: weight 1.
    for (int y = 0; y < f.nbLignes; ++y) {
      const unsigned char* v = valide + (f.ligne0 - a.ligne0 + y) * pasValide + (f.colonne0 - a.colonne0);
      float* w = poids + y * pasPoids;
      for (int x = 0; x < f.nbColonnes; ++x) w[x] = v[x] ? 1.0f : 0.0f;
    }
    return;
  }
  // The grown window, clipped one pixel beyond the image: what lies beyond is a source of distance,
  // and no pixel of the image is nearer to a source further out than to that ring.
  const int gx0 = std::max(f.colonne0 - m, -1), gy0 = std::max(f.ligne0 - m, -1);
  const int gw = std::min(f.colonne0 + f.nbColonnes + m, largeurImage + 1) - gx0,
            gh = std::min(f.ligne0 + f.nbLignes + m, hauteurImage + 1) - gy0;
  const int ox = f.colonne0 - gx0, oy = f.ligne0 - gy0;  // the window's place in it
  TravailPlume local;
  TravailPlume& tp = travail ? *travail : local;
  std::vector<unsigned char>& source = tp.source;
  source.assign(static_cast<size_t>(gw) * gh, 1);
  for (int y = 0; y < a.nbLignes; ++y) {
    const unsigned char* v = valide + y * pasValide;
    unsigned char* s = &source[static_cast<size_t>(a.ligne0 - gy0 + y) * gw + (a.colonne0 - gx0)];
    for (int x = 0; x < a.nbColonnes; ++x) s[x] = !v[x];
  }
  // Weights of the window's lines as the distances come, from the cap alike when a whole line is at it.
  auto poidsDe = [L](float d2) {
    if (d2 >= L * L) return 1.0f;
    const double t = std::sqrt(static_cast<double>(d2)) / L;
    return static_cast<float>(t * t * (3 - 2 * t));
  };
  // At the cap, a pixel is valid (a source has its own span).
  const float loin = poidsDe(static_cast<float>(L * L));
  DistancesPlafonnees(source.data(), gw, gh, gw, L, oy, oy + f.nbLignes, ox, ox + f.nbColonnes, tp,
                      [&](int y, const float* d, const std::vector<Etendue>& etendues) {
                        const unsigned char* s = &source[static_cast<size_t>(y) * gw];
                        float* w = poids + (y - oy) * pasPoids;
                        std::fill(w, w + f.nbColonnes, loin);
                        for (const Etendue& k : etendues)
                          for (int x = k.debut; x < k.fin; ++x) w[x - ox] = s[x] ? 0.0f : poidsDe(d[x]);
                      });
}

FusionPlume::FusionPlume(int largeur, int hauteur, int nbBandes) : m_largeur(largeur), m_hauteur(hauteur) {
  if (largeur < 0 || hauteur < 0 || nbBandes < 1 ||
      static_cast<double>(largeur) * hauteur * nbBandes > static_cast<double>(1LL << 31))
    ZEPRA_ERREUR("[FusionPlume] (FusionPlume) Fenetre de " << largeur << " x " << hauteur << " x " << nbBandes
                                                           << " invalide.");
  const size_t n = static_cast<size_t>(largeur) * hauteur * nbBandes;
  m_sommes.assign(n, 0.0);
  m_poids.assign(n, 0.0);
}

void FusionPlume::Ajouter(int bande, int ligne, int colonne0, int n, const float* valeurs,
                          const float* poids) {
  const size_t debut = (static_cast<size_t>(bande) * m_hauteur + ligne) * m_largeur + colonne0;
  double* s = &m_sommes[debut];
  double* p = &m_poids[debut];
  for (int k = 0; k < n; ++k) {
    const double w = poids[k];
    if (w == 0) continue;
    s[k] += w * valeurs[k];
    p[k] += w;
  }
}

void FusionPlume::Terminer(int bande, int ligne, float* sortie, float nodata) const {
  const size_t debut = (static_cast<size_t>(bande) * m_hauteur + ligne) * m_largeur;
  const double* s = &m_sommes[debut];
  const double* p = &m_poids[debut];
  for (int k = 0; k < m_largeur; ++k) sortie[k] = p[k] > 0 ? static_cast<float>(s[k] / p[k]) : nodata;
}
