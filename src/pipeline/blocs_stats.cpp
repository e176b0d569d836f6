#include "pipeline/blocs_stats.h"

#include <algorithm>
#include <utility>

#include "zepra/erreur.h"

namespace {

// Beyond this the statistics would take gigabytes: the block size or the placement is surely wrong.
constexpr double kValeursMax = 1 << 28;
constexpr int kCoteMax = 1 << 30;
constexpr int kBandesMax = 4096;

// Along one axis: the pixels whose centre falls in each block the input reaches. Block k (the
// premier + k-th of the grid) holds pixels [debuts[k], debuts[k + 1]); pixels before debuts[0] or from
// debuts[nombre] on fall outside the grid.
std::vector<int> DebutsAxe(double origine, double echelle, int n, long long taille, int bloc,
                           long long& premier, long long& nombre) {
  // The first pixel whose centre is at or beyond P.
  const auto premierPixel = [&](double P) {
    const double c = std::ceil((P - origine) / echelle - 0.5);
    return c <= 0 ? 0 : (c >= n ? n : static_cast<int>(c));
  };
  const int bas = premierPixel(0), haut = premierPixel(static_cast<double>(taille));
  premier = 0;
  nombre = 0;
  if (bas >= haut) return std::vector<int>(1, 0);
  const long long dernierBloc = (taille - 1) / bloc;
  const auto blocDe = [&](int c) {
    const double X = origine + echelle * (c + 0.5);
    return std::max(0LL, std::min(dernierBloc, static_cast<long long>(std::floor(X / bloc))));
  };
  premier = blocDe(bas);
  nombre = blocDe(haut - 1) - premier + 1;
  std::vector<int> debuts(static_cast<size_t>(nombre) + 1);
  debuts[0] = bas;
  for (long long k = 1; k < nombre; ++k)
    debuts[k] = std::max(bas, std::min(haut, premierPixel(static_cast<double>((premier + k) * bloc))));
  debuts[nombre] = haut;
  return debuts;
}

// Mean and deviation of a block's band from its count, sum and sum of squares.
void MoyenneEcart(double n, double s, double q, double& moyenne, double& ecart) {
  moyenne = s / n;
  ecart = std::sqrt(std::max(0.0, q / n - moyenne * moyenne));
}

}  // namespace

void GrilleBlocs::Verifier() const {
  if (colonnes < 1 || lignes < 1 || colonnes > (1LL << 40) || lignes > (1LL << 40))
    ZEPRA_ERREUR("[GrilleBlocs] (Verifier) Grille de " << colonnes << " x " << lignes << " pixels invalide.");
  if (bloc < 2 || bloc > 65536)
    ZEPRA_ERREUR("[GrilleBlocs] (Verifier) Bloc de " << bloc << " pixels : 2 a 65536 attendu.");
}

double GrilleBlocs::Surface(long long bx, long long by) const {
  const long long w = std::min<long long>(bloc, colonnes - bx * bloc);
  const long long h = std::min<long long>(bloc, lignes - by * bloc);
  return static_cast<double>(std::max(0LL, w)) * static_cast<double>(std::max(0LL, h));
}

void Placement::Verifier() const {
  if (!(std::isfinite(x0) && std::isfinite(y0) && sx > 0 && sy > 0 && std::isfinite(sx) && std::isfinite(sy)))
    ZEPRA_ERREUR("[Placement] (Verifier) Placement (" << x0 << ", " << y0 << ") pas (" << sx << ", " << sy
                                                      << ") invalide : pas strictement positifs attendus.");
}

ZoneBlocs EmpriseBlocs(const GrilleBlocs& grille, const Placement& placement, int largeur, int hauteur) {
  grille.Verifier();
  placement.Verifier();
  ZoneBlocs z;
  if (largeur < 1 || hauteur < 1) return z;
  DebutsAxe(placement.x0, placement.sx, largeur, grille.colonnes, grille.bloc, z.bx0, z.nbBx);
  DebutsAxe(placement.y0, placement.sy, hauteur, grille.lignes, grille.bloc, z.by0, z.nbBy);
  return z;
}

StatsBlocs::StatsBlocs(const GrilleBlocs& grille, const Placement& placement, int largeur, int hauteur,
                       int nbBandes)
    : m_grille(grille), m_placement(placement), m_largeur(largeur), m_hauteur(hauteur), m_nbBandes(nbBandes) {
  Construire(nullptr);
}

void BlocsGardesLigne(long long bx0, long long nbBx, long long by, const std::vector<ZoneBlocs>& gardees,
                      std::vector<std::pair<long long, long long>>& intervalles) {
  intervalles.clear();
  for (const ZoneBlocs& z : gardees) {
    if (z.Vide() || by < z.by0 || by >= z.by0 + z.nbBy) continue;
    const long long debut = std::max(bx0, z.bx0) - bx0, fin = std::min(bx0 + nbBx, z.bx0 + z.nbBx) - bx0;
    if (debut < fin) intervalles.emplace_back(debut, fin);
  }
  std::sort(intervalles.begin(), intervalles.end());
  size_t k = 0;
  for (size_t m = 1; m < intervalles.size(); ++m) {
    if (intervalles[m].first <= intervalles[k].second)
      intervalles[k].second = std::max(intervalles[k].second, intervalles[m].second);
    else
      intervalles[++k] = intervalles[m];
  }
  if (!intervalles.empty()) intervalles.resize(k + 1);
}

StatsBlocs::StatsBlocs(const GrilleBlocs& grille, const Placement& placement, int largeur, int hauteur,
                       int nbBandes, const std::vector<ZoneBlocs>& gardees)
    : m_grille(grille), m_placement(placement), m_largeur(largeur), m_hauteur(hauteur), m_nbBandes(nbBandes) {
  Construire(&gardees);
}

void StatsBlocs::Construire(const std::vector<ZoneBlocs>* gardees) {
  const GrilleBlocs& grille = m_grille;
  const Placement& placement = m_placement;
  const int largeur = m_largeur, hauteur = m_hauteur, nbBandes = m_nbBandes;
  grille.Verifier();
  placement.Verifier();
  if (largeur < 1 || hauteur < 1 || largeur > kCoteMax || hauteur > kCoteMax)
    ZEPRA_ERREUR("[StatsBlocs] (StatsBlocs) Image de " << largeur << " x " << hauteur << " pixels invalide.");
  if (nbBandes < 1 || nbBandes > kBandesMax)
    ZEPRA_ERREUR("[StatsBlocs] (StatsBlocs) " << nbBandes << " bandes : 1 a " << kBandesMax << " attendu.");
  m_debutsColonne =
      DebutsAxe(placement.x0, placement.sx, largeur, grille.colonnes, grille.bloc, m_bx0, m_nbBx);
  m_debutsLigne = DebutsAxe(placement.y0, placement.sy, hauteur, grille.lignes, grille.bloc, m_by0, m_nbBy);
  const double valeurs = static_cast<double>(m_nbBx) * static_cast<double>(m_nbBy) * (1.0 + 2.0 * nbBandes);
  if (valeurs > kValeursMax)
    ZEPRA_ERREUR("[StatsBlocs] (StatsBlocs) " << m_nbBx << " x " << m_nbBy << " blocs de " << grille.bloc
                                              << " pixels pour " << nbBandes
                                              << " bande(s) : trop de statistiques, augmenter le bloc.");
  // The kept blocks of each line of blocks, as sorted disjoint intervals.
  m_debutsIntervalles.assign(1, 0);
  long long rang = 0;
  std::vector<std::pair<long long, long long>> morceaux;
  for (long long ky = 0; ky < m_nbBy; ++ky) {
    if (gardees)
      BlocsGardesLigne(m_bx0, m_nbBx, m_by0 + ky, *gardees, morceaux);
    else
      morceaux.assign(1, {0, m_nbBx});
    for (const auto& m : morceaux) {
      m_intervalles.push_back({m.first, m.second, rang});
      rang += m.second - m.first;
    }
    m_debutsIntervalles.push_back(m_intervalles.size());
  }
  const size_t pasBloc = 1 + 2 * static_cast<size_t>(nbBandes);
  m_donnees.assign(static_cast<size_t>(rang) * pasBloc, 0.0);
  m_zeros.assign(pasBloc, 0.0);
  m_resume.largeur = largeur;
  m_resume.hauteur = hauteur;
  m_resume.placement = placement;
  m_resume.bandes.resize(nbBandes);
  // The most pixels a block can hold, times the largest square of a 16-bit sample, under 2^53.
  long long plusX = 0, plusY = 0;
  for (size_t k = 0; k + 1 < m_debutsColonne.size(); ++k)
    plusX = std::max<long long>(plusX, m_debutsColonne[k + 1] - m_debutsColonne[k]);
  for (size_t k = 0; k + 1 < m_debutsLigne.size(); ++k)
    plusY = std::max<long long>(plusY, m_debutsLigne[k + 1] - m_debutsLigne[k]);
  m_entiersExacts = static_cast<double>(plusX) * plusY * 65535.0 * 65535.0 < 9007199254740992.0;
}

StatsBlocs::LigneEnCours& StatsBlocs::LigneBlocs(long long ky) {
  if (ky < m_plies)
    ZEPRA_ERREUR("[StatsBlocs] (Ajouter) Ligne de blocs " << m_by0 + ky
                                                          << " deja complete : pixels ajoutes deux fois.");
  LigneEnCours& l = m_enCours[ky];
  if (l.sommes.empty()) l.sommes.assign(static_cast<size_t>(m_nbBx) * (1 + 2 * m_nbBandes), 0.0);
  return l;
}

long long StatsBlocs::PixelsLigne(long long ky) const {
  return static_cast<long long>(m_debutsLigne[ky + 1] - m_debutsLigne[ky]) *
         (m_debutsColonne[m_nbBx] - m_debutsColonne[0]);
}

void StatsBlocs::Plier() {
  const size_t pasBloc = 1 + 2 * static_cast<size_t>(m_nbBandes);
  while (m_plies < m_nbBy) {
    const long long requis = PixelsLigne(m_plies);
    const auto it = m_enCours.find(m_plies);
    const long long ajoutes = it == m_enCours.end() ? 0 : it->second.pixels;
    if (ajoutes > requis)
      ZEPRA_ERREUR("[StatsBlocs] (Ajouter) Ligne de blocs " << m_by0 + m_plies
                                                            << " : pixels ajoutes deux fois.");
    if (ajoutes < requis) break;
    if (it != m_enCours.end()) {
      const double* sommes = it->second.sommes.data();
      Resumer(m_resume, m_plies, sommes);
      for (size_t k = m_debutsIntervalles[m_plies]; k < m_debutsIntervalles[m_plies + 1]; ++k) {
        const Intervalle& v = m_intervalles[k];
        std::copy(sommes + v.debut * pasBloc, sommes + v.fin * pasBloc, m_donnees.data() + v.rang * pasBloc);
      }
      m_enCours.erase(it);
    }
    ++m_plies;
  }
}

void StatsBlocs::Resumer(ResumeImage& r, long long ky, const double* sommes) const {
  const GrilleBlocs& g = m_grille;
  const Placement& p = m_placement;
  const size_t pasBloc = 1 + 2 * static_cast<size_t>(m_nbBandes);
  // The input's footprint on the common grid.
  const double fx0 = p.x0, fx1 = p.x0 + p.sx * m_largeur, fy0 = p.y0, fy1 = p.y0 + p.sy * m_hauteur;
  double t[base_polynome::kTermesMax];
  const long long by = m_by0 + ky;
  const double y0 = std::max(fy0, static_cast<double>(by * g.bloc));
  const double y1 = std::min(fy1, static_cast<double>(std::min((by + 1) * g.bloc, g.lignes)));
  const double yc = base_polynome::Normaliser(p.Ligne((y0 + y1) / 2), m_hauteur);
  for (long long bx = m_bx0; bx < m_bx0 + m_nbBx; ++bx) {
    const double* b = sommes + (bx - m_bx0) * pasBloc;
    const double n = b[0];
    if (n == 0) continue;
    const double x0 = std::max(fx0, static_cast<double>(bx * g.bloc));
    const double x1 = std::min(fx1, static_cast<double>(std::min((bx + 1) * g.bloc, g.colonnes)));
    const double xc = base_polynome::Normaliser(p.Colonne((x0 + x1) / 2), m_largeur);
    base_polynome::Termes(xc, yc, t);
    const double u[base_polynome::kTermesMax] = {1, xc, yc, xc * xc, xc * yc, yc * yc};
    for (int m = 0; m < base_polynome::kTermesMax; ++m)
      for (int q = 0; q < base_polynome::kTermesMax; ++q)
        r.momentsMonomes[m * base_polynome::kTermesMax + q] += n * t[m] * u[q];
    r.compte += n;
    for (int k = 0; k < m_nbBandes; ++k) {
      ResumeImage::Bande& rb = r.bandes[k];
      double moyenne, ecart;
      MoyenneEcart(n, b[1 + 2 * k], b[2 + 2 * k], moyenne, ecart);
      rb.somme += b[1 + 2 * k];
      rb.sommeCarres += b[2 + 2 * k];
      rb.sommeEcarts += n * ecart;
      for (int m = 0; m < base_polynome::kTermesMax; ++m) {
        rb.momentsValeur[m] += t[m] * b[1 + 2 * k];
        rb.momentsCompte[m] += t[m] * n;
        rb.momentsEcart[m] += t[m] * n * ecart;
      }
    }
  }
}

size_t StatsBlocs::Octets() const {
  size_t o = m_donnees.capacity() * sizeof(double) + m_intervalles.capacity() * sizeof(Intervalle) +
             m_debutsIntervalles.capacity() * sizeof(size_t) +
             (m_debutsColonne.capacity() + m_debutsLigne.capacity()) * sizeof(int);
  for (const auto& l : m_enCours) o += l.second.sommes.capacity() * sizeof(double);
  return o;
}

namespace {
constexpr size_t kValeursResume = 1 + base_polynome::kTermesMax * base_polynome::kTermesMax;
constexpr size_t kValeursResumeBande = 3 + 3 * base_polynome::kTermesMax;

// The summary's sums in a fixed order, read (lire) or written.
template <class R, class F>
void ParcourirResume(R& r, F&& f) {
  f(r.compte);
  for (auto& m : r.momentsMonomes) f(m);
  for (auto& b : r.bandes) {
    f(b.somme);
    f(b.sommeCarres);
    f(b.sommeEcarts);
    for (auto& m : b.momentsValeur) f(m);
    for (auto& m : b.momentsCompte) f(m);
    for (auto& m : b.momentsEcart) f(m);
  }
}
}  // namespace

size_t StatsBlocs::TailleExport() const {
  return kValeursResume + kValeursResumeBande * static_cast<size_t>(m_nbBandes) + m_donnees.size();
}

std::vector<double> StatsBlocs::Exporter() const {
  if (m_plies < m_nbBy)
    ZEPRA_ERREUR("[StatsBlocs] (Exporter) Statistiques incompletes : ligne de blocs " << m_by0 + m_plies
                                                                                      << " pas finie.");
  std::vector<double> v;
  v.reserve(TailleExport());
  ParcourirResume(m_resume, [&](double x) { v.push_back(x); });
  v.insert(v.end(), m_donnees.begin(), m_donnees.end());
  return v;
}

void StatsBlocs::Importer(const std::vector<double>& v) {
  if (v.size() != TailleExport())
    ZEPRA_ERREUR("[StatsBlocs] (Importer) " << v.size() << " valeurs pour " << TailleExport()
                                            << " attendues.");
  size_t k = 0;
  ParcourirResume(m_resume, [&](double& x) { x = v[k++]; });
  std::copy(v.begin() + static_cast<std::ptrdiff_t>(k), v.end(), m_donnees.begin());
  m_enCours.clear();
  m_plies = m_nbBy;
}

void StatsBlocs::Verifier(int colonne0, int ligne0, int nbColonnes, int nbLignes) const {
  if (colonne0 < 0 || ligne0 < 0 || nbColonnes < 0 || nbLignes < 0 ||
      static_cast<long long>(colonne0) + nbColonnes > m_largeur ||
      static_cast<long long>(ligne0) + nbLignes > m_hauteur)
    ZEPRA_ERREUR("[StatsBlocs] (Ajouter) Fenetre de " << nbColonnes << " x " << nbLignes << " en ("
                                                      << colonne0 << ", " << ligne0 << ") hors de l'image de "
                                                      << m_largeur << " x " << m_hauteur << ".");
}

const double* StatsBlocs::Bloc(long long bx, long long by) const {
  bx -= m_bx0;
  by -= m_by0;
  if (bx < 0 || by < 0 || bx >= m_nbBx || by >= m_nbBy) return nullptr;
  const size_t pasBloc = 1 + 2 * static_cast<size_t>(m_nbBandes);
  if (by >= m_plies) {
    const auto it = m_enCours.find(by);
    return it == m_enCours.end() ? m_zeros.data() : it->second.sommes.data() + bx * pasBloc;
  }
  for (size_t k = m_debutsIntervalles[by]; k < m_debutsIntervalles[by + 1]; ++k) {
    const Intervalle& v = m_intervalles[k];
    if (bx >= v.debut && bx < v.fin) return m_donnees.data() + (v.rang + bx - v.debut) * pasBloc;
  }
  return nullptr;
}

ResumeImage Resumer(const StatsBlocs& s) {
  // The folded lines, then those still waiting, in order: the sums of a summary made at once.
  ResumeImage r = s.m_resume;
  for (const auto& l : s.m_enCours) s.Resumer(r, l.first, l.second.sommes.data());
  r.surface = r.compte * (s.Place().sx * s.Place().sy);
  return r;
}

void ParametresObservationsBlocs::Verifier() const {
  if (!(fractionValide > 0 && fractionValide <= 1))
    ZEPRA_ERREUR("[ObservationsBlocs] (Verifier) Fraction valide " << fractionValide << " : ]0, 1] attendu.");
}

ObservationsBlocs ObserverBlocs(const std::vector<const StatsBlocs*>& images,
                                const ParametresObservationsBlocs& p) {
  p.Verifier();
  ObservationsBlocs o;
  if (images.empty()) return o;
  const GrilleBlocs& g = images[0]->Grille();
  o.nbBandes = images[0]->NbBandes();
  for (const StatsBlocs* s : images) {
    const GrilleBlocs& gs = s->Grille();
    if (gs.colonnes != g.colonnes || gs.lignes != g.lignes || gs.bloc != g.bloc ||
        s->NbBandes() != o.nbBandes)
      ZEPRA_ERREUR("[ObservationsBlocs] (Observer) Statistiques sur des grilles ou des bandes differentes : "
                   << gs.colonnes << " x " << gs.lignes << " bloc " << gs.bloc << ", " << s->NbBandes()
                   << " bande(s) ; attendu " << g.colonnes << " x " << g.lignes << " bloc " << g.bloc << ", "
                   << o.nbBandes << " bande(s).");
  }
  // Pairs whose block ranges meet, found by a sweep along x, then in increasing order.
  const int n = static_cast<int>(images.size());
  std::vector<int> ordre(n);
  for (int i = 0; i < n; ++i) ordre[i] = i;
  std::sort(ordre.begin(), ordre.end(), [&](int a, int b) {
    return images[a]->Bx0() != images[b]->Bx0() ? images[a]->Bx0() < images[b]->Bx0() : a < b;
  });
  std::vector<std::pair<int, int>> paires;
  for (int a = 0; a < n; ++a) {
    const StatsBlocs& A = *images[ordre[a]];
    if (A.NbBx() == 0 || A.NbBy() == 0) continue;
    for (int b = a + 1; b < n; ++b) {
      const StatsBlocs& B = *images[ordre[b]];
      if (B.Bx0() >= A.Bx0() + A.NbBx()) break;
      if (B.NbBx() == 0 || B.NbBy() == 0) continue;
      if (B.By0() >= A.By0() + A.NbBy() || A.By0() >= B.By0() + B.NbBy()) continue;
      paires.emplace_back(std::min(ordre[a], ordre[b]), std::max(ordre[a], ordre[b]));
    }
  }
  std::sort(paires.begin(), paires.end());

  // Twice over the pairs' blocks: counted first, so that the lists are allocated once at their size
  // (grown by doubling they would take up to three times it while the last copy is made).
  const int nb = o.nbBandes;
  const auto parcourir = [&](auto&& garder) {
    for (const auto& pr : paires) {
      const StatsBlocs& A = *images[pr.first];
      const StatsBlocs& B = *images[pr.second];
      const double aireA = A.Place().sx * A.Place().sy, aireB = B.Place().sx * B.Place().sy;
      const long long bx0 = std::max(A.Bx0(), B.Bx0()),
                      bx1 = std::min(A.Bx0() + A.NbBx(), B.Bx0() + B.NbBx());
      const long long by0 = std::max(A.By0(), B.By0()),
                      by1 = std::min(A.By0() + A.NbBy(), B.By0() + B.NbBy());
      for (long long by = by0; by < by1; ++by)
        for (long long bx = bx0; bx < bx1; ++bx) {
          const double* sa = A.Bloc(bx, by);
          const double* sb = B.Bloc(bx, by);
          if (!sa || !sb) continue;  // not kept: statistics told to keep other blocks
          const double seuil = p.fractionValide * g.Surface(bx, by);
          const double va = sa[0] * aireA, vb = sb[0] * aireB;
          if (va < seuil || vb < seuil || sa[0] == 0 || sb[0] == 0) continue;
          garder(pr, A, B, bx, by, sa, sb, std::min(va, vb));
        }
    }
  };
  size_t nombre = 0;
  parcourir([&](const auto&, const StatsBlocs&, const StatsBlocs&, long long, long long, const double*,
                const double*, double) { ++nombre; });
  o.blocs.reserve(nombre);
  o.stats.reserve(nombre * 4 * static_cast<size_t>(nb));
  parcourir([&](const std::pair<int, int>& pr, const StatsBlocs& A, const StatsBlocs& B, long long bx,
                long long by, const double* sa, const double* sb, double poids) {
    const double xc = (bx * g.bloc + std::min((bx + 1) * g.bloc, g.colonnes)) / 2.0;
    const double yc = (by * g.bloc + std::min((by + 1) * g.bloc, g.lignes)) / 2.0;
    ObservationBloc ob;
    ob.i = pr.first;
    ob.j = pr.second;
    ob.xi = A.Place().Colonne(xc);
    ob.yi = A.Place().Ligne(yc);
    ob.xj = B.Place().Colonne(xc);
    ob.yj = B.Place().Ligne(yc);
    ob.poids = poids;
    o.blocs.push_back(ob);
    for (int k = 0; k < nb; ++k) {
      double m, e;
      MoyenneEcart(sa[0], sa[1 + 2 * k], sa[2 + 2 * k], m, e);
      o.stats.push_back(m);
      o.stats.push_back(e);
      MoyenneEcart(sb[0], sb[1 + 2 * k], sb[2 + 2 * k], m, e);
      o.stats.push_back(m);
      o.stats.push_back(e);
    }
  });
  return o;
}
