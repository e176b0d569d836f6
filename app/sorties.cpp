#include "sorties.h"

#include <cstdio>
#include <filesystem>
#include <map>

#include "zepra/orientedimage.h"

SortiesEcrites::~SortiesEcrites() {
  for (const Fichier& f : m_fichiers) {
    if (f.nom.empty()) continue;
    if (f.orientation)
      SupprimerAvecOrientation(f.nom.c_str());
    else
      std::remove(f.nom.c_str());
  }
}

void SortiesEcrites::Noter(size_t i, const std::string& nom, bool avecOrientation) {
  m_fichiers[i] = Fichier{nom, avecOrientation};
}

std::vector<bool> DerniersNoms(const std::vector<std::string>& noms) {
  std::vector<bool> derniers(noms.size(), true);
  std::map<std::string, size_t> vus;
  for (size_t i = 0; i < noms.size(); ++i) {
    std::error_code ec;
    const std::filesystem::path p =
        std::filesystem::weakly_canonical(std::filesystem::absolute(noms[i], ec), ec);
    const auto [it, nouveau] = vus.emplace(ec ? noms[i] : p.string(), i);
    if (!nouveau) {
      derniers[it->second] = false;
      it->second = i;
    }
  }
  return derniers;
}
