#include "apercus.h"

#include <algorithm>
#include <cstring>

#include "conversion_sortie.h"
#include "zepra/erreur.h"

namespace ecriture {

std::vector<TPoint2D<int>> TaillesApercus(const TPoint2D<int>& taille, int niveaux) {
  std::vector<TPoint2D<int>> tailles;
  for (int n = 1; n <= niveaux && n < 31; ++n)
    tailles.emplace_back(std::max(1, taille.x >> n), std::max(1, taille.y >> n));
  return tailles;
}

namespace {

template <class D>
class Pyramide : public PyramideApercus {
 public:
  Pyramide(const FormePyramide& f, Puits puits) : m_forme(f), m_puits(std::move(puits)) {
    if (f.hauteurRangee < 2 || f.hauteurRangee % 2 != 0)
      ZEPRA_ERREUR("[PyramideApercus] (Creer) Hauteur de rangee " << f.hauteurRangee
                                                                  << " : un nombre pair attendu.");
    m_sortie.nodataPresent = f.nodataPresent;
    m_sortie.nodata = VersSortie<D>(f.nodata);
    m_niveaux.resize(f.niveaux.size() + 1);
    m_niveaux[0].taille = f.taille;
    // Level 0 keeps only the even line waiting for its pair.
    m_niveaux[0].donnees.resize(static_cast<size_t>(f.taille.x) * f.canaux);
    m_niveaux[0].valide.resize(static_cast<size_t>(f.taille.x));
    for (size_t n = 1; n < m_niveaux.size(); ++n) {
      Niveau& v = m_niveaux[n];
      v.taille = f.niveaux[n - 1];
      const TPoint2D<int> source = m_niveaux[n - 1].taille;
      if (v.taille.x != std::max(1, source.x / 2) || v.taille.y != std::max(1, source.y / 2))
        ZEPRA_ERREUR("[PyramideApercus] (Creer) Niveau " << n << " de " << v.taille.x << " x " << v.taille.y
                                                         << " : pas la moitie de " << source.x << " x "
                                                         << source.y << ".");
      const size_t lignes = static_cast<size_t>(std::min(f.hauteurRangee, v.taille.y));
      v.donnees.resize(lignes * v.taille.x * f.canaux);
      v.valide.resize(lignes * v.taille.x);
    }
    m_valideLigne.resize(static_cast<size_t>(f.taille.x));
  }

  void AjouterLigne(const void* ligne, const unsigned char* valide) override {
    Niveau& zero = m_niveaux[0];
    if (zero.lignes >= zero.taille.y)
      ZEPRA_ERREUR("[PyramideApercus] (AjouterLigne) Ligne de trop : l'image en a " << zero.taille.y << ".");
    const D* donnees = static_cast<const D*>(ligne);
    if (!valide) {
      std::fill(m_valideLigne.begin(), m_valideLigne.end(), 1);
      valide = m_valideLigne.data();
    }
    Recevoir(0, donnees, valide);
  }

 private:
  struct Niveau {
    TPoint2D<int> taille;
    int lignes = 0;  // lines received
    std::vector<D> donnees;
    std::vector<unsigned char> valide;
  };

  size_t Largeur(int n) const { return static_cast<size_t>(m_niveaux[n].taille.x) * m_forme.canaux; }

  // Line y = m_niveaux[n].lignes of level n arrives (level 0: from the caller; others: in place).
  void Recevoir(int n, const D* ligne, const unsigned char* valide) {
    Niveau& v = m_niveaux[n];
    const int y = v.lignes++;
    const bool dernierNiveau = n + 1 == static_cast<int>(m_niveaux.size());
    if (!dernierNiveau) {
      const int j = y / 2, hauteurSuivante = m_niveaux[n + 1].taille.y;
      // The lower line of a pair, or a lone last line that still makes a line of the next level.
      if (j < hauteurSuivante && (y % 2 == 1 || y + 1 == v.taille.y)) {
        const D* haut = y % 2 == 1 ? (n == 0 ? v.donnees.data() : ligne - Largeur(n)) : ligne;
        const unsigned char* valideHaut =
            y % 2 == 1 ? (n == 0 ? v.valide.data() : valide - v.taille.x) : valide;
        Niveau& s = m_niveaux[n + 1];
        const size_t rang = static_cast<size_t>(s.lignes % m_forme.hauteurRangee);
        D* sortie = s.donnees.data() + rang * Largeur(n + 1);
        unsigned char* valideSortie = s.valide.data() + rang * s.taille.x;
        Reduire(n, haut, valideHaut, ligne, valide, sortie, valideSortie);
        Recevoir(n + 1, sortie, valideSortie);
      } else if (n == 0 && y % 2 == 0) {
        std::copy(ligne, ligne + Largeur(0), v.donnees.begin());
        std::copy(valide, valide + v.taille.x, v.valide.begin());
      }
    }
    if (n > 0 && (y % m_forme.hauteurRangee == m_forme.hauteurRangee - 1 || y + 1 == v.taille.y)) {
      const int premiere = y - y % m_forme.hauteurRangee;
      m_puits(n, premiere, y + 1 - premiere, reinterpret_cast<const unsigned char*>(v.donnees.data()),
              v.valide.data());
    }
  }

  // One line of level n + 1 from lines a and b of level n (b may be a itself, for a lone line).
  void Reduire(int n, const D* a, const unsigned char* va, const D* b, const unsigned char* vb, D* sortie,
               unsigned char* valideSortie) {
    const int canaux = m_forme.canaux, largeur = m_niveaux[n].taille.x;
    const int colonnes = m_niveaux[n + 1].taille.x;
    const bool deuxLignes = a != b;
    const D remplissage = m_sortie.Remplissage();
    double somme[64];
    std::vector<double> grande;
    double* s = somme;
    if (canaux > 64) {
      grande.resize(static_cast<size_t>(canaux));
      s = grande.data();
    }
    for (int i = 0; i < colonnes; ++i, sortie += canaux) {
      const int x0 = 2 * i, x1 = std::min(2 * i + 1, largeur - 1);
      std::fill(s, s + canaux, 0.0);
      int nombre = 0;
      auto ajouter = [&](const D* ligne, const unsigned char* valide, int x) {
        if (!valide[x]) return;
        ++nombre;
        const D* p = ligne + static_cast<size_t>(x) * canaux;
        for (int c = 0; c < canaux; ++c) s[c] += static_cast<double>(p[c]);
      };
      ajouter(a, va, x0);
      if (x1 != x0) ajouter(a, va, x1);
      if (deuxLignes) {
        ajouter(b, vb, x0);
        if (x1 != x0) ajouter(b, vb, x1);
      }
      valideSortie[i] = nombre > 0;
      for (int c = 0; c < canaux; ++c) {
        if (c == m_forme.canalAlpha) {
          sortie[c] = nombre > 0 ? AlphaOpaque<D>() : D{};
        } else if (nombre == 0) {
          sortie[c] = remplissage;
        } else {
          const double moyenne = s[c] / nombre;
          D v = VersSortie<D>(moyenne);
          if (m_sortie.nodataPresent && v == m_sortie.nodata) v = AcoteNodata(m_sortie.nodata, moyenne);
          sortie[c] = v;
        }
      }
    }
  }

  FormePyramide m_forme;
  Puits m_puits;
  ParametresSortie<D> m_sortie;
  std::vector<Niveau> m_niveaux;
  std::vector<unsigned char> m_valideLigne;  // all valid, for callers without a mask
};

}  // namespace

std::unique_ptr<PyramideApercus> PyramideApercus::Creer(const FormePyramide& forme, Puits puits) {
  std::unique_ptr<PyramideApercus> p;
  // 1-bit samples have no mean.
  AppliquerType(forme.type, [&](auto tag) {
    using D = typename decltype(tag)::type;
    if constexpr (!std::is_same_v<D, bool>) p = std::make_unique<Pyramide<D>>(forme, std::move(puits));
  });
  if (!p) ZEPRA_ERREUR("[PyramideApercus] (Creer) Type " << forme.type << " non prevu.");
  return p;
}

}  // namespace ecriture
