#include "zepra/pipeline/integrales.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iomanip>
#include <iostream>

#include "zepra/erreur.h"

namespace {

template <class T>
void VerifierCanaux(const TTImage<T>& image, const char* methode, const char* role) {
  // A zero-channel image has no samples behind its lines: reading it would leave the array.
  if (image.GetNbCanaux() < 1 && image.iGetNbColonnes() > 0 && image.iGetNbLignes() > 0)
    ZEPRA_ERREUR("[Integrales] (" << methode << ") " << role << " sans canal.");
}

template <class A, class B>
void VerifierMemeTaille(const TTImage<A>& a, const TTImage<B>& b, const char* methode, const char* roleA,
                        const char* roleB) {
  if (a.GetTaille() != b.GetTaille())
    ZEPRA_ERREUR("[Integrales] (" << methode << ") " << roleB << " de taille " << b.iGetNbColonnes() << " x "
                                  << b.iGetNbLignes() << " pour " << roleA << " de taille "
                                  << a.iGetNbColonnes() << " x " << a.iGetNbLignes() << ".");
}

// Tables are read one sample per pixel: a table of another channel count would be misread.
template <class U>
void VerifierTable(const TTImage<U>& table, const char* methode, const char* role) {
  if (table.GetNbCanaux() != 1)
    ZEPRA_ERREUR("[Integrales] (" << methode << ") " << role << " a " << table.GetNbCanaux()
                                  << " canaux ; une table a un canal est attendue.");
}

// Line y of the tables from the image line, its mask bytes (null: every pixel counts) and the table
// lines above (null for line 0): S(x, y) = S(x, y - 1) + r(x), where r is the running sum of the line,
// and the same for the squares and the counts. The one place these recurrences are written, so that
// the full tables and the sliding ones hold the same values.
template <bool AvecCarres, bool AvecN, class T, class U, class V>
void LigneIntegrale(const T* valeurs, int canaux, const unsigned char* masque, int w, const U* sp, U* s,
                    const U* s2p, U* s2, const V* np, V* n) {
  double r = 0.0, q = 0.0, c = 0.0;
  for (int x = 0; x < w; ++x) {
    const double v = static_cast<double>(valeurs[static_cast<long>(x) * canaux]);
    if (!masque || masque[x]) {
      r += v;
      if constexpr (AvecCarres) q += v * v;
      if constexpr (AvecN) c += 1.0;
    }
    s[x] = static_cast<U>(sp ? static_cast<double>(sp[x]) + r : r);
    if constexpr (AvecCarres) s2[x] = static_cast<U>(s2p ? static_cast<double>(s2p[x]) + q : q);
    if constexpr (AvecN) n[x] = static_cast<V>(np ? static_cast<double>(np[x]) + c : c);
  }
}

template <class T, class U, class V>
void ConstruireTables(const TTImage<T>& image, const TTImage<bool>* masque, TTImage<U>& S, TTImage<U>& S2,
                      TTImage<V>* N) {
  const int w = image.iGetNbColonnes();
  const int h = image.iGetNbLignes();
  S.vReformat(w, h, TagNbCanaux(1));
  S2.vReformat(w, h, TagNbCanaux(1));
  if (N) N->vReformat(w, h, TagNbCanaux(1));
  std::vector<unsigned char> octets(masque ? static_cast<size_t>(w) : 0);
  for (int y = 0; y < h; ++y) {
    if (masque) LigneMasqueEnOctets(*masque, y, octets.data());
    const bool premiere = y == 0;
    if (N)
      LigneIntegrale<true, true>(image.GetLines(y), image.GetNbCanaux(), masque ? octets.data() : nullptr, w,
                                 premiere ? nullptr : S.GetLines(y - 1), S.GetLines(y),
                                 premiere ? nullptr : S2.GetLines(y - 1), S2.GetLines(y),
                                 premiere ? nullptr : N->GetLines(y - 1), N->GetLines(y));
    else
      LigneIntegrale<true, false, T, U, V>(
          image.GetLines(y), image.GetNbCanaux(), nullptr, w, premiere ? nullptr : S.GetLines(y - 1),
          S.GetLines(y), premiere ? nullptr : S2.GetLines(y - 1), S2.GetLines(y), nullptr, nullptr);
  }
}

// The clamped corners of a rectangle; false when they cross (empty rectangle).
bool Borner(const T2D<T2D<int>>& r, int w, int h, int& x0, int& y0, int& x1, int& y1) {
  x0 = std::max(r.x.x, 0);
  y0 = std::max(r.x.y, 0);
  x1 = std::min(r.y.x, w - 1);
  y1 = std::min(r.y.y, h - 1);
  return x0 <= x1 && y0 <= y1;
}

template <class U>
double Boite(const TTImage<U>& A, int x0, int y0, int x1, int y1) {
  const U* haut = y0 > 0 ? A.GetLines(y0 - 1) : nullptr;
  const U* bas = A.GetLines(y1);
  double v = static_cast<double>(bas[x1]);
  if (x0 > 0) v = v - static_cast<double>(bas[x0 - 1]);
  if (haut) {
    v = v - static_cast<double>(haut[x1]);
    if (x0 > 0) v = v + static_cast<double>(haut[x0 - 1]);
  }
  return v;
}

}  // namespace

void LigneMasqueEnOctets(const TTImage<bool>& masque, int y, unsigned char* octets) {
  auto m = masque.GetLines(y);
  const int canaux = masque.GetNbCanaux();
  const int w = masque.iGetNbColonnes();
  if (canaux == 1) {
    for (int x = 0; x < w; ++x, ++m) octets[x] = *m;
  } else {
    for (int x = 0; x < w; ++x) octets[x] = m[static_cast<long>(x) * canaux];
  }
}

template <class T, class U>
void images_integrales(const TTImage<T>& image, TTImage<U>& S, TTImage<U>& S2) {
  VerifierCanaux(image, "images_integrales", "Image");
  ConstruireTables<T, U, U>(image, nullptr, S, S2, nullptr);
}

template <class T, class M, class U, class V>
void images_integrales_mask(const TTImage<T>& image, const TTImage<M>& masque, TTImage<U>& S, TTImage<U>& S2,
                            TTImage<V>& N) {
  VerifierCanaux(image, "images_integrales_mask", "Image");
  VerifierCanaux(masque, "images_integrales_mask", "Masque");
  VerifierMemeTaille(image, masque, "images_integrales_mask", "une image", "Masque");
  ConstruireTables(image, &masque, S, S2, &N);
}

TablesGlissantes::TablesGlissantes(const TTImage<float>& image, const TTImage<bool>* masque, int h,
                                   bool avecCarres)
    : m_image(image),
      m_masque(masque),
      m_w(image.iGetNbColonnes()),
      m_hauteur(image.iGetNbLignes()),
      m_h(DemiLargeurUtile(image, h)),
      m_carres(avecCarres) {
  VerifierCanaux(image, "TablesGlissantes", "Image");
  if (masque) {
    VerifierCanaux(*masque, "TablesGlissantes", "Masque");
    VerifierMemeTaille(image, *masque, "TablesGlissantes", "une image", "Masque");
  }
  if (m_h < 0) ZEPRA_ERREUR("[Integrales] (TablesGlissantes) Demi-largeur negative : " << h << ".");
  // Line y - h - 1 is the oldest one still read when line y + h has just been computed.
  m_garde = std::max(1, std::min(2 * m_h + 2, m_hauteur));
  const size_t taille = static_cast<size_t>(m_garde) * m_w;
  m_s.resize(taille);
  if (m_carres) m_s2.resize(taille);
  if (m_masque) {
    m_n.resize(taille);
    m_octetsMasque.resize(taille);
  }
  m_zeros.assign(m_w, 0.0);
}

const double* TablesGlissantes::Ligne(const std::vector<double>& table, int y) const {
  if (y < 0) return m_zeros.data();
  return table.data() + static_cast<size_t>(y % m_garde) * m_w;
}

void TablesGlissantes::CalculerLigne(int y) {
  const unsigned char* masque = nullptr;
  if (m_masque) {
    unsigned char* octets = m_octetsMasque.data() + static_cast<size_t>(y % m_garde) * m_w;
    LigneMasqueEnOctets(*m_masque, y, octets);
    masque = octets;
  }
  auto courante = [&](std::vector<double>& t) { return t.data() + static_cast<size_t>(y % m_garde) * m_w; };
  auto precedente = [&](const std::vector<double>& t) { return y > 0 ? Ligne(t, y - 1) : nullptr; };
  const float* v = m_image.GetLines(y);
  const int canaux = m_image.GetNbCanaux();
  if (m_carres && m_masque)
    LigneIntegrale<true, true>(v, canaux, masque, m_w, precedente(m_s), courante(m_s), precedente(m_s2),
                               courante(m_s2), precedente(m_n), courante(m_n));
  else if (m_carres)
    LigneIntegrale<true, false, float, double, double>(v, canaux, masque, m_w, precedente(m_s), courante(m_s),
                                                       precedente(m_s2), courante(m_s2), nullptr, nullptr);
  else if (m_masque)
    LigneIntegrale<false, true, float, double, double>(v, canaux, masque, m_w, precedente(m_s), courante(m_s),
                                                       nullptr, nullptr, precedente(m_n), courante(m_n));
  else
    LigneIntegrale<false, false, float, double, double>(v, canaux, masque, m_w, precedente(m_s),
                                                        courante(m_s), nullptr, nullptr, nullptr, nullptr);
}

TablesGlissantes::Lignes TablesGlissantes::Fenetres(int y) {
  const BornesFenetre f = Fenetre(y, m_h, m_hauteur);
  while (m_prochaine <= f.fin) CalculerLigne(m_prochaine++);
  const int haut = f.debut - 1;
  Lignes l;
  l.s = LignesBoite{Ligne(m_s, haut), Ligne(m_s, f.fin)};
  l.q = m_carres ? LignesBoite{Ligne(m_s2, haut), Ligne(m_s2, f.fin)} : LignesBoite{nullptr, nullptr};
  l.n = m_masque ? LignesBoite{Ligne(m_n, haut), Ligne(m_n, f.fin)} : LignesBoite{nullptr, nullptr};
  return l;
}

template <class U>
void stats_images_integrales(const TTImage<U>& S, const TTImage<U>& S2, const T2D<T2D<int>>& rectangle,
                             T2D<double>& stats) {
  VerifierTable(S, "stats_images_integrales", "La table S");
  VerifierTable(S2, "stats_images_integrales", "La table S2");
  VerifierMemeTaille(S, S2, "stats_images_integrales", "une table S", "Table S2");
  int x0, y0, x1, y1;
  if (!Borner(rectangle, S.iGetNbColonnes(), S.iGetNbLignes(), x0, y0, x1, y1)) {
    stats = T2D<double>(0.0, 0.0);
    return;
  }
  const double n = (static_cast<double>(x1) - x0 + 1) * (static_cast<double>(y1) - y0 + 1);
  const double moyenne = Boite(S, x0, y0, x1, y1) / n;
  const double variance = Boite(S2, x0, y0, x1, y1) / n - moyenne * moyenne;
  stats = T2D<double>(moyenne, std::sqrt(variance));
}

template <class U>
void stats_images_integrales(const TTImage<U>& S, const TTImage<U>& S2, T2D<double>& stats) {
  stats_images_integrales(
      S, S2, T2D<T2D<int>>(T2D<int>(0, 0), T2D<int>(S.iGetNbColonnes() - 1, S.iGetNbLignes() - 1)), stats);
}

template <class U, class V>
void stats_images_integrales_brutes(const TTImage<U>& S, const TTImage<U>& S2, const TTImage<V>& N,
                                    T3D<double>& brutes) {
  VerifierTable(S, "stats_images_integrales_brutes", "La table S");
  VerifierTable(S2, "stats_images_integrales_brutes", "La table S2");
  VerifierTable(N, "stats_images_integrales_brutes", "La table N");
  VerifierMemeTaille(S, S2, "stats_images_integrales_brutes", "une table S", "Table S2");
  VerifierMemeTaille(S, N, "stats_images_integrales_brutes", "une table S", "Table N");
  const int w = S.iGetNbColonnes();
  const int h = S.iGetNbLignes();
  if (w < 1 || h < 1) {
    brutes = T3D<double>(0.0, 0.0, 0.0);
    return;
  }
  // The last line minus the first: the first row is left out of the sums (established behaviour).
  auto difference = [&](const auto& A) {
    return static_cast<double>(A(w - 1, h - 1)) - static_cast<double>(A(w - 1, 0));
  };
  brutes = T3D<double>(difference(S), difference(S2), difference(N));
}

template <class U, class V>
void stats_images_integrales_brutes(const TTImage<U>& S, const TTImage<U>& S2, const TTImage<V>& N,
                                    const T2D<T2D<int>>& rectangle, T3D<double>& brutes, bool trace) {
  VerifierTable(S, "stats_images_integrales_brutes", "La table S");
  VerifierTable(S2, "stats_images_integrales_brutes", "La table S2");
  VerifierTable(N, "stats_images_integrales_brutes", "La table N");
  VerifierMemeTaille(S, S2, "stats_images_integrales_brutes", "une table S", "Table S2");
  VerifierMemeTaille(S, N, "stats_images_integrales_brutes", "une table S", "Table N");
  int x0, y0, x1, y1;
  if (Borner(rectangle, S.iGetNbColonnes(), S.iGetNbLignes(), x0, y0, x1, y1))
    brutes = T3D<double>(Boite(S, x0, y0, x1, y1), Boite(S2, x0, y0, x1, y1), Boite(N, x0, y0, x1, y1));
  else
    brutes = T3D<double>(0.0, 0.0, 0.0);
  if (trace) {
    const std::ios_base::fmtflags drapeaux = std::cout.flags();
    const std::streamsize precision = std::cout.precision();
    std::cout << std::fixed << std::setprecision(3) << "Somme : " << brutes.x
              << " ; Somme des carres : " << brutes.y << " ; Nombre : " << brutes.z << std::endl;
    std::cout.flags(drapeaux);
    std::cout.precision(precision);
  }
}

std::vector<T2D<int>> Disque(int r) {
  if (r > kRayonDisqueMax)
    ZEPRA_ERREUR("[Integrales] (Disque) Rayon " << r << " trop grand (au plus " << kRayonDisqueMax << ").");
  std::vector<T2D<int>> decalages;
  if (r < 0) return decalages;
  const long long r2 = static_cast<long long>(r) * r;
  for (int x = -r; x <= r; ++x)
    for (int y = -r; y <= r; ++y)
      if (static_cast<long long>(x) * x + static_cast<long long>(y) * y <= r2 && (x != 0 || y != 0))
        decalages.emplace_back(x, y);
  return decalages;
}

namespace {

// True when every offset, moved one step toward 0 along x or along y, is still an offset (or the
// centre). Then each pixel reached from an inner pixel of the true region is also reached from a
// border pixel: walk from the inner pixel toward the target, x first, and take the last true pixel
// on the way; it is a border pixel and the rest of the way is a shrunk offset. Discs pass this test.
bool FermeParReduction(const std::vector<T2D<int>>& decalages) {
  std::vector<std::pair<int, int>> tries;
  tries.reserve(decalages.size());
  for (const T2D<int>& d : decalages) tries.emplace_back(d.x, d.y);
  std::sort(tries.begin(), tries.end());
  auto present = [&](int x, int y) {
    return (x == 0 && y == 0) || std::binary_search(tries.begin(), tries.end(), std::make_pair(x, y));
  };
  for (const auto& d : tries) {
    if (d.first != 0 && !present(d.first - (d.first > 0 ? 1 : -1), d.second)) return false;
    if (d.second != 0 && !present(d.first, d.second - (d.second > 0 ? 1 : -1))) return false;
  }
  return true;
}

}  // namespace

namespace MorphoPerso {

template <class T>
void DilatationRapide(const TTImage<T>& entree, TTImage<T>& sortie, const std::vector<T2D<int>>& decalages) {
  if (entree.GetNbCanaux() != 1)
    ZEPRA_ERREUR("[MorphoPerso] (DilatationRapide) Masque a " << entree.GetNbCanaux()
                                                              << " canaux ; un seul est attendu.");
  const int w = entree.iGetNbColonnes();
  const int h = entree.iGetNbLignes();
  // Bytes are much cheaper to test and set than packed bits; entree is fully read before sortie is
  // touched, so the two may be the same image.
  std::vector<unsigned char> dedans(static_cast<size_t>(w) * h), dehors;
  for (int y = 0; y < h; ++y) {
    auto l = entree.GetLines(y);
    unsigned char* d = dedans.data() + static_cast<size_t>(y) * w;
    for (int x = 0; x < w; ++x) d[x] = static_cast<bool>(l[x]);
  }
  dehors = dedans;
  const bool bordSeul = FermeParReduction(decalages);
  // The offsets as horizontal runs (dy, first dx, last dx): each pixel then sets a few byte ranges
  // instead of testing every offset. (0, 0) may join a run: the pixel itself is already set.
  struct Run {
    int dy, dx0, dx1;
  };
  std::vector<T2D<int>> tries(decalages);
  tries.push_back(T2D<int>(0, 0));
  std::sort(tries.begin(), tries.end(),
            [](const T2D<int>& a, const T2D<int>& b) { return a.y != b.y ? a.y < b.y : a.x < b.x; });
  std::vector<Run> runs;
  for (const T2D<int>& d : tries) {
    if (!runs.empty() && runs.back().dy == d.y && d.x <= runs.back().dx1 + 1) {
      runs.back().dx1 = std::max(runs.back().dx1, d.x);
    } else {
      runs.push_back(Run{d.y, d.x, d.x});
    }
  }
  auto vrai = [&](long x, long y) { return dedans[static_cast<size_t>(y) * w + x] != 0; };
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      if (!vrai(x, y)) continue;
      if (bordSeul) {
        const bool bord = (x > 0 && !vrai(x - 1, y)) || (x + 1 < w && !vrai(x + 1, y)) ||
                          (y > 0 && !vrai(x, y - 1)) || (y + 1 < h && !vrai(x, y + 1));
        if (!bord) continue;
      }
      for (const Run& r : runs) {
        const long long qy = static_cast<long long>(y) + r.dy;
        if (qy < 0 || qy >= h) continue;
        const long long q0 = std::max<long long>(0, static_cast<long long>(x) + r.dx0);
        const long long q1 = std::min<long long>(w - 1, static_cast<long long>(x) + r.dx1);
        if (q0 <= q1)
          std::memset(dehors.data() + static_cast<size_t>(qy) * w + q0, 1, static_cast<size_t>(q1 - q0 + 1));
      }
    }
  }
  sortie.vReformat(w, h, TagNbCanaux(1));
  for (int y = 0; y < h; ++y) {
    auto l = sortie.GetLines(y);
    const unsigned char* d = dehors.data() + static_cast<size_t>(y) * w;
    for (int x = 0; x < w; ++x) l[x] = static_cast<T>(d[x]);
  }
}

template void DilatationRapide<bool>(const TTImage<bool>&, TTImage<bool>&, const std::vector<T2D<int>>&);

}  // namespace MorphoPerso

template void images_integrales<float, double>(const TTImage<float>&, TTImage<double>&, TTImage<double>&);
template void images_integrales_mask<float, bool, double, double>(const TTImage<float>&, const TTImage<bool>&,
                                                                  TTImage<double>&, TTImage<double>&,
                                                                  TTImage<double>&);
template void images_integrales_mask<float, bool, double, float>(const TTImage<float>&, const TTImage<bool>&,
                                                                 TTImage<double>&, TTImage<double>&,
                                                                 TTImage<float>&);
template void stats_images_integrales<double>(const TTImage<double>&, const TTImage<double>&,
                                              const T2D<T2D<int>>&, T2D<double>&);
template void stats_images_integrales<double>(const TTImage<double>&, const TTImage<double>&, T2D<double>&);
template void stats_images_integrales_brutes<double, double>(const TTImage<double>&, const TTImage<double>&,
                                                             const TTImage<double>&, T3D<double>&);
template void stats_images_integrales_brutes<double, float>(const TTImage<double>&, const TTImage<double>&,
                                                            const TTImage<float>&, T3D<double>&);
template void stats_images_integrales_brutes<double, double>(const TTImage<double>&, const TTImage<double>&,
                                                             const TTImage<double>&, const T2D<T2D<int>>&,
                                                             T3D<double>&, bool);
template void stats_images_integrales_brutes<double, float>(const TTImage<double>&, const TTImage<double>&,
                                                            const TTImage<float>&, const T2D<T2D<int>>&,
                                                            T3D<double>&, bool);
