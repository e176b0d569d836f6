#include "pipeline/plume.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "zepra/erreur.h"

namespace {

constexpr double kInfini = std::numeric_limits<double>::infinity();

// Lower envelope of the parabolas (x - q)^2 + f(q) over the q where f is finite (Felzenszwalb and
// Huttenlocher): d(x) = min over q of (x - q)^2 + f(q), written to o[x] as a float, or as 'loin' (the
// cap plafond^2) where d(x) is at or above it (everywhere when f is nowhere finite). v and z are work
// arrays of n and n + 1 entries.
void Enveloppe(const double* f, int n, double plafond, float* o, int* v, double* z) {
  const double plafond2 = plafond * plafond;
  const float loin = static_cast<float>(plafond2);
  int k = -1;
  for (int q = 0; q < n; ++q) {
    if (f[q] == kInfini) continue;
    const double fq = f[q] + static_cast<double>(q) * q;
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
      s = (fq - (f[p] + static_cast<double>(p) * p)) / (2.0 * (q - p));
      if (s > z[k]) break;
      --k;  // z[0] is -infinity, so k never goes below 0
    }
    ++k;
    v[k] = q;
    z[k] = s;
    z[k + 1] = kInfini;
  }
  // A value under the cap lies within 'plafond' of the vertex of its parabola: only the spans around
  // the vertices are evaluated, the rest is the cap (far from the sources, most of a line).
  const int portee = plafond >= n ? n : static_cast<int>(std::ceil(plafond));
  int x = 0, m = 0;
  for (int e = 0; e <= k; ++e) {
    const int debut = std::max(x, v[e] - portee), fin = std::min(n, v[e] + portee + 1);
    if (fin <= debut) continue;
    std::fill(o + x, o + debut, loin);
    for (x = debut; x < fin; ++x) {
      while (z[m + 1] < x) ++m;
      const double ecart = x - v[m];
      const double d = ecart * ecart + f[v[m]];
      o[x] = d >= plafond2 ? loin : static_cast<float>(d);
    }
  }
  std::fill(o + x, o + n, loin);
}

}  // namespace

namespace {

// DistanceCarree with a cap: squared distances at or beyond plafond^2 may be reported as plafond^2
// (exact below). Column distances beyond the cap cannot bring any pixel under it, so their parabolas
// are left out, and a line with none left is filled at once: far from every source, the work is a
// scan of the bytes.
void DistanceCarreePlafonnee(const unsigned char* source, int largeur, int hauteur, std::ptrdiff_t pasSource,
                             float* d2, std::ptrdiff_t pasD2, double plafond, TravailPlume& t) {
  if (largeur < 0 || hauteur < 0)
    ZEPRA_ERREUR("[Plume] (DistanceCarree) Taille " << largeur << " x " << hauteur << " invalide.");
  if (largeur == 0 || hauteur == 0) return;
  const size_t W = static_cast<size_t>(largeur);
  const double plafond2 = plafond * plafond;
  // Downwards: each pixel's distance to the nearest source above it in its column (or on it), kept as
  // an integer; kLoin when there is none.
  constexpr int kLoin = std::numeric_limits<int>::max();
  t.haut.resize(W * hauteur);
  t.derniere.assign(W, -1);
  int* derniere = t.derniere.data();
  for (int y = 0; y < hauteur; ++y) {
    const unsigned char* s = source + y * pasSource;
    int* h = &t.haut[y * W];
    for (size_t x = 0; x < W; ++x) {
      if (s[x]) derniere[x] = y;
      h[x] = derniere[x] < 0 ? kLoin : y - derniere[x];
    }
  }
  // Upwards: the column distance of a line is then complete, and the line's envelope is taken at once.
  std::fill(derniere, derniere + W, -1);
  t.f.resize(W);
  t.z.resize(W + 1);
  t.v.resize(W);
  double* f = t.f.data();
  for (int y = hauteur - 1; y >= 0; --y) {
    const unsigned char* s = source + y * pasSource;
    const int* h = &t.haut[y * W];
    bool proche = false;
    for (size_t x = 0; x < W; ++x) {
      if (s[x]) derniere[x] = y;
      const int e = std::min(h[x], derniere[x] < 0 ? kLoin : derniere[x] - y);
      const double e2 = static_cast<double>(e) * e;
      f[x] = e == kLoin || e2 >= plafond2 ? kInfini : e2;
      proche = proche || f[x] != kInfini;
    }
    float* o = d2 + y * pasD2;
    if (!proche) {
      std::fill(o, o + W, static_cast<float>(plafond2));
      continue;
    }
    Enveloppe(f, largeur, plafond, o, t.v.data(), t.z.data());
  }
}

}  // namespace

void DistanceCarree(const unsigned char* source, int largeur, int hauteur, std::ptrdiff_t pasSource,
                    float* d2, std::ptrdiff_t pasD2) {
  TravailPlume t;
  DistanceCarreePlafonnee(source, largeur, hauteur, pasSource, d2, pasD2, kInfini, t);
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
  // The grown window without clipping; what lies beyond the image is a source of distance.
  const int gw = f.nbColonnes + 2 * m, gh = f.nbLignes + 2 * m;
  const int gx0 = f.colonne0 - m, gy0 = f.ligne0 - m;
  TravailPlume local;
  TravailPlume& tp = travail ? *travail : local;
  std::vector<unsigned char>& source = tp.source;
  source.assign(static_cast<size_t>(gw) * gh, 1);
  for (int y = 0; y < a.nbLignes; ++y) {
    const unsigned char* v = valide + y * pasValide;
    unsigned char* s = &source[static_cast<size_t>(a.ligne0 - gy0 + y) * gw + (a.colonne0 - gx0)];
    for (int x = 0; x < a.nbColonnes; ++x) s[x] = !v[x];
  }
  std::vector<float>& d2 = tp.d2;
  d2.resize(source.size());
  DistanceCarreePlafonnee(source.data(), gw, gh, gw, d2.data(), gw, L, tp);
  for (int y = 0; y < f.nbLignes; ++y) {
    const float* d = &d2[static_cast<size_t>(y + m) * gw + m];
    const unsigned char* s = &source[static_cast<size_t>(y + m) * gw + m];
    float* w = poids + y * pasPoids;
    for (int x = 0; x < f.nbColonnes; ++x) {
      if (s[x]) {
        w[x] = 0.0f;
        continue;
      }
      if (d[x] >= L * L) {
        w[x] = 1.0f;
        continue;
      }
      const double t = std::sqrt(static_cast<double>(d[x])) / L;
      w[x] = static_cast<float>(t * t * (3 - 2 * t));
    }
  }
}

FusionPlume::FusionPlume(int largeur, int hauteur, int nbBandes)
    : m_largeur(largeur), m_hauteur(hauteur), m_nbBandes(nbBandes) {
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
