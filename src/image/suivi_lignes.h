// Which columns of each line a file writer has received. SetValeurs may bring rectangles in any
// order, overlapping or not; writers that complete a file line by line (RLE, PNM) use this to know
// when a line is whole and, at the end, that no line is missing.
#pragma once

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

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
