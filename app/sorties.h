// The files a command of the compatibility mode writes, kept only if the command ends normally.
#pragma once

#include <string>
#include <vector>

// Notes each file once it is complete; destroyed before Garder() (the command failed after writing
// some of its files), it removes them, so that a run ending in an error leaves none of its outputs.
class SortiesEcrites {
 public:
  explicit SortiesEcrites(size_t n = 0) : m_fichiers(n) {}
  ~SortiesEcrites();
  SortiesEcrites(const SortiesEcrites&) = delete;
  SortiesEcrites& operator=(const SortiesEcrites&) = delete;

  // File i, written alone or with its orientation files (TTOrientedImage::Sauver). Distinct threads
  // may note distinct i.
  void Noter(size_t i, const std::string& nom, bool avecOrientation);
  void Ajouter(const std::string& nom) { m_fichiers.push_back(Fichier{nom, false}); }
  void Garder() { m_fichiers.clear(); }

 private:
  struct Fichier {
    std::string nom;  // empty: not written
    bool orientation = false;
  };
  std::vector<Fichier> m_fichiers;
};

// For each name, whether no later one designates the same file (folders compared once resolved): a
// file named several times is written once, by its last name, as writing them all in order leaves it.
std::vector<bool> DerniersNoms(const std::vector<std::string>& noms);
