#include "directory.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "zepra/erreur.h"

namespace tiff {

namespace {

template <class V>
V Valeur(const std::vector<unsigned char>& octets, size_t i) {
  V v;
  std::memcpy(&v, octets.data() + i * sizeof(V), sizeof(V));
  return v;
}

}  // namespace

int Directory::SizeOfValue(int type) {
  static const int tailles[19] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
  return type >= 1 && type <= 18 ? tailles[type] : 0;
}

uint64_t Directory::Octets() const {
  const uint64_t taille = static_cast<uint64_t>(SizeOfValue(type));
  return taille != 0 && count > std::numeric_limits<uint64_t>::max() / taille
             ? std::numeric_limits<uint64_t>::max()
             : count * taille;
}

double Directory::GetValue(uint64_t i) const {
  if (i >= count || values.size() < Octets())
    ZEPRA_ERREUR("[Directory] (GetValue) Indice " << i << " hors de [0, " << count << ").");
  const size_t k = static_cast<size_t>(i);
  switch (type) {
    case kByte:
    case kAscii:
    case kUndefined:
      return values[k];
    case kShort:
      return Valeur<uint16_t>(values, k);
    case kLong:
    case kIfd:
      return Valeur<uint32_t>(values, k);
    case kRational:
    case kSRational: {
      const uint32_t num = Valeur<uint32_t>(values, 2 * k), den = Valeur<uint32_t>(values, 2 * k + 1);
      if (den == 0) return std::numeric_limits<double>::quiet_NaN();
      if (type == kRational) return static_cast<double>(num) / den;
      return static_cast<double>(static_cast<int32_t>(num)) / static_cast<int32_t>(den);
    }
    case kSByte:
      return static_cast<signed char>(values[k]);
    case kSShort:
      return Valeur<int16_t>(values, k);
    case kSLong:
      return Valeur<int32_t>(values, k);
    case kFloat:
      return Valeur<float>(values, k);
    case kDouble:
      return Valeur<double>(values, k);
    case kLong8:
    case kIfd8:
      return static_cast<double>(Valeur<uint64_t>(values, k));
    case kSLong8:
      return static_cast<double>(Valeur<int64_t>(values, k));
    default:
      ZEPRA_ERREUR("[Directory] (GetValue) Type de directory (" << type << ") non gere !!!");
  }
}

void Directory::SetValue(double v, uint64_t i) {
  if (i >= count) ZEPRA_ERREUR("[Directory] (SetValue) Indice " << i << " hors de [0, " << count << ").");
  unsigned char* p = values.data() + static_cast<size_t>(i) * SizeOfValue(type);
  auto poser = [p](auto x) { std::memcpy(p, &x, sizeof x); };
  switch (type) {
    case kByte:
    case kAscii:
    case kUndefined:
      poser(static_cast<uint8_t>(v));
      break;
    case kShort:
      poser(static_cast<uint16_t>(v));
      break;
    case kLong:
    case kIfd:
      poser(static_cast<uint32_t>(v));
      break;
    case kSByte:
      poser(static_cast<int8_t>(v));
      break;
    case kSShort:
      poser(static_cast<int16_t>(v));
      break;
    case kSLong:
      poser(static_cast<int32_t>(v));
      break;
    case kFloat:
      poser(static_cast<float>(v));
      break;
    case kDouble:
      poser(v);
      break;
    case kLong8:
    case kIfd8:
      poser(static_cast<uint64_t>(v));
      break;
    case kSLong8:
      poser(static_cast<int64_t>(v));
      break;
    default:
      ZEPRA_ERREUR("[Directory] (SetValue) Type de directory (" << type << ") non gere !!!");
  }
}

void Directory::SetRationalValue(unsigned int numerateur, unsigned int denominateur, uint64_t i) {
  if ((type != kRational && type != kSRational) || i >= count)
    ZEPRA_ERREUR("[Directory] (SetRationalValue) Indice " << i << " ou type " << type << " impossible.");
  const uint32_t v[2] = {numerateur, denominateur};
  std::memcpy(values.data() + static_cast<size_t>(i) * 8, v, 8);
}

bool PermuterValeurs(Directory& d) {
  const int taille = Directory::SizeOfValue(d.type);
  if (taille == 0) return false;
  // The two halves of a rational are swapped separately.
  const int element = (d.type == kRational || d.type == kSRational) ? 4 : taille;
  if (element > 1)
    for (size_t i = 0; i + element <= d.values.size(); i += element)
      std::reverse(d.values.data() + i, d.values.data() + i + element);
  return true;
}

}  // namespace tiff
