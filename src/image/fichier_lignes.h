// What the file readers and writers share: the readers' checks; for every writer the shape it was
// made with and the refusal of another one (EcrivainForme); for the RLE and PNM writers, which
// columns of each line have come, the file written under a temporary name and the checks of
// SetValeurs and Terminer. 'classe' names the reader or writer in messages, as "ImageFicOut_PNM".
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zepra/fichieratomique.h"
#include "zepra/imagefic.h"

// For the readers: false when the rectangle [x0, x1) x [y0, y1) with step pas reads nothing; an
// Erreur "[classe] (GetValeurs) Rectangle ..." when it leaves the image of the file 'nom'.
bool RectangleALire(const char* classe, const std::string& nom, const TPoint2D<int>& taille, int x0, int y0,
                    int x1, int y1, int pas);
// The Erreur "[classe] (RawRead) Appel a une methode impossible.".
[[noreturn]] void RawReadImpossible(const char* classe);

// Which columns of each line a file writer has received. SetValeurs may bring rectangles in any
// order, overlapping or not; this tells when a line is whole and, at the end, that no line is missing.

class SuiviLignes {
 public:
  SuiviLignes(int colonnes, int lignes)
      : m_colonnes(colonnes), m_completes(static_cast<size_t>(std::max(lignes, 0)), false) {}

  bool Complete(int y) const { return m_completes[static_cast<size_t>(y)]; }
  long long LignesManquantes() const { return static_cast<long long>(m_completes.size()) - m_nbCompletes; }
  // First line not yet complete, or -1.
  int PremiereManquante() const {
    const auto it = std::find(m_completes.begin(), m_completes.end(), false);
    return it == m_completes.end() ? -1 : static_cast<int>(it - m_completes.begin());
  }

  // Records columns [debut, fin) of line y; true when this call makes the line complete.
  bool Recevoir(int y, int debut, int fin) {
    if (Complete(y) || fin <= debut) return false;
    if (debut > 0 || fin < m_colonnes) {
      // Disjoint intervals kept sorted; only lines received in pieces have an entry.
      std::vector<std::pair<int, int>>& iv = m_partielles[y];
      iv.emplace_back(debut, fin);
      std::sort(iv.begin(), iv.end());
      std::vector<std::pair<int, int>> fusion;
      for (const auto& p : iv) {
        if (!fusion.empty() && p.first <= fusion.back().second)
          fusion.back().second = std::max(fusion.back().second, p.second);
        else
          fusion.push_back(p);
      }
      iv.swap(fusion);
      if (iv.size() != 1 || iv[0].first > 0 || iv[0].second < m_colonnes) return false;
    }
    m_partielles.erase(y);
    m_completes[static_cast<size_t>(y)] = true;
    ++m_nbCompletes;
    return true;
  }

 private:
  int m_colonnes;
  std::vector<bool> m_completes;
  long long m_nbCompletes = 0;
  std::map<int, std::vector<std::pair<int, int>>> m_partielles;
};

// A writer whose size, channel count and pixel type are fixed when it is made: asking for others
// is an Erreur "[classe] (Methode) ...", the same ones asked again are accepted. No raw writes.
class EcrivainForme : public EcrivainImage {
 public:
  void SetTaille(int colonnes, int lignes) override;
  void SetTaille(const TPoint2D<int>& taille) override { SetTaille(taille.x, taille.y); }
  TPoint2D<int> GetTaille() const override { return m_taille; }
  void SetNbCanaux(TagNbCanaux n) override;
  int GetNbCanaux() const override { return m_canaux; }
  void SetTypePixel(eEnumType type) override;
  eEnumType GetTypePixel() const override { return m_type; }
  bool RawWritePossible() const override { return false; }
  void RawWrite(const char*, unsigned int) override;

 protected:
  EcrivainForme(const std::string& nom, const char* classe, const TPoint2D<int>& taille, int canaux,
                eEnumType type)
      : m_nom(nom), m_taille(taille), m_canaux(canaux), m_type(type), m_classe(classe) {}

  std::string m_nom;
  TPoint2D<int> m_taille;
  int m_canaux;
  eEnumType m_type;
  std::string m_classe;
};

// The base of the RLE and PNM writers.
class EcrivainParLignes : public EcrivainForme {
 public:
  // Gives the file its name, after Finir; an image with lines never written is an Erreur.
  void Terminer() override;

 protected:
  EcrivainParLignes(const std::string& nom, const char* classe, const TPoint2D<int>& taille, int canaux,
                    eEnumType type)
      : EcrivainForme(nom, classe, taille, canaux, type), m_suivi(taille.x, taille.y) {}
  // Opens the temporary file: an Erreur "[classe::Open(nom)] : Probleme a l'ouverture du fichier".
  void Ouvrir();
  // Checks a SetValeurs call: an Erreur once the file is complete or for a rectangle that leaves
  // the image; false when it writes nothing, else its columns nx and lines ny.
  bool RectangleAEcrire(int x0, int y0, int x1, int y1, int xDest, int yDest, int pas, long long& nx,
                        long long& ny) const;
  // The format's last writes, once every line has come.
  virtual void Finir() {}

  SuiviLignes m_suivi;
  std::unique_ptr<FichierAtomique> m_fichier;

 private:
  bool m_termine = false;
};
