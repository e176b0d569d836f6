#include "cles_geotiff.h"

#include <algorithm>

#include "zepra/erreur.h"

namespace {
// The keys the directory really holds, whatever its header says.
size_t NombreCles(const std::vector<uint16_t>& k) {
  return k.size() < 4 ? 0 : std::min<size_t>(k[3], (k.size() - 4) / 4);
}
}  // namespace

const uint16_t* ClesGeoTIFF::Entree(uint16_t cle) const {
  const std::vector<uint16_t>& k = m_s.cles;
  for (size_t e = 0; e < NombreCles(k); ++e)
    if (k[4 + 4 * e] == cle) return &k[4 + 4 * e];
  return nullptr;
}

int ClesGeoTIFF::Court(uint16_t cle, int defaut) const {
  const uint16_t* e = Entree(cle);
  if (!e || e[2] < 1) return defaut;
  if (e[1] == 0) return e[3];
  if (e[1] == kTagGeoKeyDirectory && e[3] < m_s.cles.size()) return m_s.cles[e[3]];
  return defaut;
}

double ClesGeoTIFF::Reel(uint16_t cle, double defaut) const {
  const uint16_t* e = Entree(cle);
  if (!e || e[1] != kTagGeoDoubleParams || e[2] < 1 || e[3] >= m_s.doubles.size()) return defaut;
  return m_s.doubles[e[3]];
}

std::string ClesGeoTIFF::Texte(uint16_t cle) const {
  const uint16_t* e = Entree(cle);
  if (!e || e[1] != kTagGeoAsciiParams || static_cast<size_t>(e[3]) + e[2] > m_s.ascii.size()) return "";
  std::string t = m_s.ascii.substr(e[3], e[2]);
  if (!t.empty() && t.back() == '|') t.pop_back();
  return t;
}

void ClesGeoTIFF::Verifier() const {
  const std::vector<uint16_t>& k = m_s.cles;
  if (k.size() < 4 || k.size() < 4 + 4 * static_cast<size_t>(k[3]))
    ZEPRA_ERREUR("[ClesGeoTIFF] (Verifier) Repertoire de cles GeoTIFF de " << k.size()
                                                                           << " valeurs incoherent.");
  for (size_t e = 0; e < k[3]; ++e) {
    const uint16_t id = k[4 + 4 * e], lieu = k[5 + 4 * e], n = k[6 + 4 * e], valeur = k[7 + 4 * e];
    const size_t taille = lieu == 0                     ? 1
                          : lieu == kTagGeoDoubleParams ? m_s.doubles.size()
                          : lieu == kTagGeoAsciiParams  ? m_s.ascii.size()
                          : lieu == kTagGeoKeyDirectory ? k.size()
                                                        : 0;
    if (lieu != 0 && static_cast<size_t>(valeur) + n > taille)
      ZEPRA_ERREUR("[ClesGeoTIFF] (Verifier) Cle GeoTIFF " << id << " : " << n << " valeurs a l'indice "
                                                           << valeur << " hors du tag " << lieu << ".");
    if (e > 0 && id <= k[4 * e])
      ZEPRA_ERREUR("[ClesGeoTIFF] (Verifier) Cles GeoTIFF non triees (" << id << ").");
  }
}

void FixerCourt(SystemeReference& s, uint16_t cle, uint16_t valeur) {
  std::vector<uint16_t>& k = s.cles;
  const size_t n = NombreCles(k);
  size_t e = 0;
  while (e < n && k[4 + 4 * e] < cle) ++e;
  if (e < n && k[4 + 4 * e] == cle) {
    k[5 + 4 * e] = 0;
    k[6 + 4 * e] = 1;
    k[7 + 4 * e] = valeur;
    return;
  }
  const uint16_t entree[4] = {cle, 0, 1, valeur};
  k.insert(k.begin() + static_cast<long>(4 + 4 * e), entree, entree + 4);
  ++k[3];
  // Values kept after the directory moved by one entry.
  for (size_t i = 0; i <= n; ++i)
    if (k[5 + 4 * i] == kTagGeoKeyDirectory) k[7 + 4 * i] = static_cast<uint16_t>(k[7 + 4 * i] + 4);
}

bool MemesCles(const SystemeReference& a, const SystemeReference& b) {
  SystemeReference x = a, y = b;
  if (NombreCles(x.cles) == 0 || NombreCles(y.cles) == 0) return false;
  FixerCourt(x, kGTRasterType, 1);
  FixerCourt(y, kGTRasterType, 1);
  return x.cles == y.cles && x.doubles == y.doubles && x.ascii == y.ascii;
}

void ConstructeurCles::Court(uint16_t cle, int valeur) {
  m_cles.push_back({cle, 0, 1, static_cast<uint16_t>(valeur)});
}

void ConstructeurCles::Reel(uint16_t cle, double valeur) {
  m_cles.push_back({cle, kTagGeoDoubleParams, 1, static_cast<uint16_t>(m_doubles.size())});
  m_doubles.push_back(valeur);
}

void ConstructeurCles::Texte(uint16_t cle, const std::string& valeur) {
  m_cles.push_back({cle, kTagGeoAsciiParams, static_cast<uint16_t>(valeur.size() + 1),
                    static_cast<uint16_t>(m_ascii.size())});
  m_ascii += valeur + '|';
}

SystemeReference ConstructeurCles::Construire() const {
  std::vector<Cle> cles = m_cles;
  std::stable_sort(cles.begin(), cles.end(), [](const Cle& a, const Cle& b) { return a.id < b.id; });
  SystemeReference s;
  s.cles = {1, 1, 0, static_cast<uint16_t>(cles.size())};
  for (const Cle& c : cles) s.cles.insert(s.cles.end(), {c.id, c.lieu, c.nombre, c.valeur});
  s.doubles = m_doubles;
  s.ascii = m_ascii;
  return s;
}
