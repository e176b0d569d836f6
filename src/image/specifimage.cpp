#include "zepra/specifimage.h"

#include <algorithm>
#include <climits>
#include <sstream>

#include "zepra/erreur.h"
#include "zepra/systeme.h"
#include "zepra/ttimage.h"

namespace {

struct AxeCrop {
  long long taille = 0, p0 = 0, p1 = 0, decalage = 0;
  bool partiel = false;
};

// One axis of the crop rule: n the source size, [a, b) the request.
AxeCrop CropAxe(long long n, long long a, long long b, long long pas, bool garderTaille) {
  AxeCrop r;
  const long long demande = b > a ? (b - a + pas - 1) / pas : 0;
  long long debut = a, decalage = 0;
  if (a < 0) {
    // Up by whole steps, so that the kept pixels stay on the grid of the request.
    decalage = (-a + pas - 1) / pas;
    debut = a + decalage * pas;
  }
  const long long fin = std::min(b, n);
  if (fin <= debut || demande < 1) return r;
  r.p0 = debut;
  r.p1 = fin;
  r.partiel = a < 0 || b > n;
  if (garderTaille) {
    r.taille = demande;
    r.decalage = decalage;
  } else {
    r.taille = (fin - debut + pas - 1) / pas;
  }
  return r;
}

}  // namespace

GeometrieCrop TTImage_Annexes::GestionCrop(const TPoint2D<int>& tailleSource, const TPoint2D<int>& p0,
                                           const TPoint2D<int>& p1, int pas, bool garderTaille) {
  if (pas < 1) ZEPRA_ERREUR("[TTImage_Annexes] (GestionCrop) Pas (" << pas << ") invalide.");
  const AxeCrop ax = CropAxe(tailleSource.x, p0.x, p1.x, pas, garderTaille);
  const AxeCrop ay = CropAxe(tailleSource.y, p0.y, p1.y, pas, garderTaille);
  GeometrieCrop g;
  if (ax.taille < 1 || ay.taille < 1) return g;  // empty: everything zero, flag false
  g.taille = TPoint2D<int>(static_cast<int>(ax.taille), static_cast<int>(ay.taille));
  g.p0 = TPoint2D<int>(static_cast<int>(ax.p0), static_cast<int>(ay.p0));
  g.p1 = TPoint2D<int>(static_cast<int>(ax.p1), static_cast<int>(ay.p1));
  g.decalage = TPoint2D<int>(static_cast<int>(ax.decalage), static_cast<int>(ay.decalage));
  g.partiel = ax.partiel || ay.partiel;
  return g;
}

int TTImage_Annexes::HauteurBande(int largeurSource) {
  return largeurSource > 0 ? std::max(1, 1000000 / largeurSource) : 1;
}

GeometriePaste CalculPaste(const TPoint2D<int>& tailleSource, const TPoint2D<int>& tailleDest, int x0, int y0,
                           int colonnes, int lignes, int xDest, int yDest, int pas, const char* tag) {
  if (pas < 1) ZEPRA_ERREUR((tag ? tag : "[Paste]") << " Pas (" << pas << ") invalide.");
  GeometriePaste g;
  long long a[2] = {x0, y0};
  long long b[2] = {static_cast<long long>(x0) + colonnes, static_cast<long long>(y0) + lignes};
  long long d[2] = {xDest, yDest};
  const long long ns[2] = {tailleSource.x, tailleSource.y};
  const long long nd[2] = {tailleDest.x, tailleDest.y};

  auto rectangle = [](long long ax, long long ay, long long bx, long long by) {
    std::ostringstream s;
    s << TRectangle<long long>(ax, ay, bx, by);
    return s.str();
  };
  if (tag && (a[0] < 0 || a[1] < 0 || b[0] > ns[0] || b[1] > ns[1]))
    Systeme::Warning(std::string(tag) + " rectangle source " + rectangle(a[0], a[1], b[0], b[1]) +
                     " pas inclus dans image.");
  long long n[2];
  for (int i = 0; i < 2; ++i) {
    if (a[i] < 0) {
      const long long k = (-a[i] + pas - 1) / pas;
      a[i] += k * pas;
      d[i] += k;
    }
    b[i] = std::min(b[i], ns[i]);
    n[i] = b[i] > a[i] ? (b[i] - a[i] + pas - 1) / pas : 0;
  }
  if (n[0] < 1 || n[1] < 1) return g;

  if (tag && (d[0] < 0 || d[1] < 0 || d[0] + n[0] > nd[0] || d[1] + n[1] > nd[1]))
    Systeme::Warning(std::string(tag) + " rectangle destination " +
                     rectangle(d[0], d[1], d[0] + n[0], d[1] + n[1]) + " pas inclus dans image.");
  for (int i = 0; i < 2; ++i) {
    if (d[i] < 0) {
      a[i] += -d[i] * pas;
      n[i] += d[i];
      d[i] = 0;
    }
    n[i] = std::min(n[i], nd[i] - d[i]);
    if (n[i] < 1) return g;
    b[i] = a[i] + (n[i] - 1) * pas + 1;
  }
  g.s0 = TPoint2D<int>(static_cast<int>(a[0]), static_cast<int>(a[1]));
  g.s1 = TPoint2D<int>(static_cast<int>(b[0]), static_cast<int>(b[1]));
  g.dest = TPoint2D<int>(static_cast<int>(d[0]), static_cast<int>(d[1]));
  g.vide = false;
  return g;
}

namespace {
int BorneInt(long long v) {
  return static_cast<int>(std::max<long long>(INT_MIN, std::min<long long>(INT_MAX, v)));
}

// Source lines per band, a whole number of steps so that every band starts on the step grid.
int LignesSourceParBande(int largeurSource, int pas) {
  const int h = TTImage_Annexes::HauteurBande(largeurSource);
  return std::max(pas, h - h % pas);
}
}  // namespace

template <class T>
void fonction_crop(const SpecifImageIn& source, SpecifImageOut& destination, const TPoint2D<int>& p0,
                   const TPoint2D<int>& p1, int pas, int mode) {
  const TPoint2D<int> tailleSource = source.GetTaille();
  const GeometrieCrop g = TTImage_Annexes::GestionCrop(tailleSource, p0, p1, pas, mode != 0);
  if (destination.GetTypePixel() == eIndetermine) destination.SetTypePixel(source.TypePixel());
  const int canaux = source.GetNbCanaux();
  destination.SetNbCanaux(TagNbCanaux(canaux));
  destination.SetTaille(g.taille);
  if (g.taille.x < 1 || g.taille.y < 1) return;

  // Every output line is written once, band after band; with mode 1 the lines and columns outside the
  // source are zero. The band image is reused.
  const int lignesBande = std::max(1, LignesSourceParBande(tailleSource.x, pas) / pas);
  TTImage<T> bande(g.taille.x, std::min(lignesBande, g.taille.y), TagNbCanaux(canaux));
  const int nx = (g.p1.x - g.p0.x + pas - 1) / pas;
  const int nyLues = (g.p1.y - g.p0.y + pas - 1) / pas;
  for (int o = 0; o < g.taille.y; o += lignesBande) {
    const int nb = std::min(lignesBande, g.taille.y - o);
    // Output lines [o, o + nb) hold the read lines [debut, fin) of the clipped area.
    const int debut = std::max(o, g.decalage.y) - g.decalage.y;
    const int fin = std::min(o + nb, g.decalage.y + nyLues) - g.decalage.y;
    const bool complete = fin - debut == nb && g.decalage.x == 0 && nx == g.taille.x;
    if (!complete) bande.RemplirValeur(T());
    if (fin > debut) {
      const int ys = g.p0.y + debut * pas;
      const int ye = std::min(g.p1.y, g.p0.y + (fin - 1) * pas + 1);
      const int ligneBande = debut + g.decalage.y - o;
      source.GetValeurs(bande.GetLines(), g.p0.x, ys, g.p0.x + (nx - 1) * pas + 1, ye, g.decalage.x,
                        ligneBande, pas);
    }
    destination.SetValeurs(bande.GetLines(), 0, 0, g.taille.x, nb, 0, o, 1);
  }
}

template <class T>
void fonction_paste(const SpecifImageIn& source, SpecifImageOut& destination, int x0, int y0, int colonnes,
                    int lignes, int xDest, int yDest, int pas) {
  const int canaux = source.GetNbCanaux();
  if (destination.GetNbCanaux() != canaux)
    ZEPRA_ERREUR("[SpecifImageIn] (Paste) Nombre de canaux incompatibles.");
  const TPoint2D<int> tailleSource = source.GetTaille();
  const GeometriePaste g = CalculPaste(tailleSource, destination.GetTaille(), x0, y0, colonnes, lignes, xDest,
                                       yDest, pas, "[SpecifImageIn] (Paste)");
  if (g.vide) return;
  const int parBande = LignesSourceParBande(tailleSource.x, pas);
  const int nx = (g.s1.x - g.s0.x + pas - 1) / pas;
  TTImage<T> bande(nx, std::max(1, parBande / pas), TagNbCanaux(canaux));
  int o = 0;
  for (int ys = g.s0.y; ys < g.s1.y; ys += parBande) {
    const int ye = std::min(g.s1.y, ys + parBande);
    const int nb = (ye - ys + pas - 1) / pas;
    source.GetValeurs(bande.GetLines(), g.s0.x, ys, g.s1.x, ye, 0, 0, pas);
    destination.SetValeurs(bande.GetLines(), 0, 0, nx, nb, g.dest.x, g.dest.y + o, 1);
    o += nb;
  }
}

#define ZEPRA_INST_BANDES(T)                                                                  \
  template void fonction_crop<T>(const SpecifImageIn&, SpecifImageOut&, const TPoint2D<int>&, \
                                 const TPoint2D<int>&, int, int);                             \
  template void fonction_paste<T>(const SpecifImageIn&, SpecifImageOut&, int, int, int, int, int, int, int);
ZEPRA_NEUF_TYPES(ZEPRA_INST_BANDES)
#undef ZEPRA_INST_BANDES

void SpecifImageOut::Crop(const SpecifImageIn& source, int x0, int y0, int colonnes, int lignes, int pas,
                          int mode) {
  const eEnumType type = source.TypePixel();
  const TPoint2D<int> p0(x0, y0);
  const TPoint2D<int> p1(BorneInt(static_cast<long long>(x0) + colonnes),
                         BorneInt(static_cast<long long>(y0) + lignes));
  const bool traite = type >= eInt1 && type <= eFloat8 && AppliquerType(type, [&](auto tag) {
                        fonction_crop<typename decltype(tag)::type>(source, *this, p0, p1, pas, mode);
                      });
  if (!traite)
    ZEPRA_ERREUR("[SpecifImageOut] (Crop) Type (" << static_cast<int>(type) << ") encore non traite");
}

void SpecifImageIn::Paste(SpecifImageOut& destination, int x0, int y0, int colonnes, int lignes, int xDest,
                          int yDest, int pas) const {
  const eEnumType type = TypePixel();
  const bool traite = type >= eInt1 && type <= eFloat8 && AppliquerType(type, [&](auto tag) {
                        fonction_paste<typename decltype(tag)::type>(*this, destination, x0, y0, colonnes,
                                                                     lignes, xDest, yDest, pas);
                      });
  if (!traite) ZEPRA_ERREUR("[SpecifImageIn] (Paste) Type encore non traite");
}
