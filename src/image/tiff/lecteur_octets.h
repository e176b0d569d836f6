// The one reader of TIFF files: numbers of 8, 16, 32 and 64 bits in the file's byte order, and raw
// bytes, each read failing with an Erreur naming the file on a short read or a seek past the end.
// Private to src/image.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace tiff {

class LecteurOctets {
 public:
  explicit LecteurOctets(const std::string& nom);
  LecteurOctets(const LecteurOctets&) = delete;
  LecteurOctets& operator=(const LecteurOctets&) = delete;

  // True when the file's numbers are in the other byte order than the host's.
  void SetPermuter(bool permuter) { m_permuter = permuter; }
  bool Permuter() const { return m_permuter; }
  uint64_t Taille() const { return m_taille; }
  uint64_t Position() const { return m_position; }
  const std::string& Nom() const { return m_nom; }

  void Aller(uint64_t offset);
  void Lire(void* destination, uint64_t octets);
  uint8_t Lire8();
  uint16_t Lire16();
  uint32_t Lire32();
  uint64_t Lire64();
  // An unsigned number of 'octets' bytes (2, 4 or 8): the offsets and counts whose width the
  // container layout decides.
  uint64_t LireN(int octets);

 private:
  std::ifstream m_flux;
  std::string m_nom;
  uint64_t m_taille = 0;
  uint64_t m_position = 0;
  bool m_permuter = false;
};

}  // namespace tiff
