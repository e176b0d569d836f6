// One directory entry's value (Directory) and the table of field sizes, shared by the reader and the
// writer. Private to src/image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tiff {

// TIFF field types. IFD, LONG8, SLONG8 and IFD8 come from the TIFF supplements and BigTIFF.
enum TypeChamp : uint16_t {
  kByte = 1,
  kAscii = 2,
  kShort = 3,
  kLong = 4,
  kRational = 5,
  kSByte = 6,
  kUndefined = 7,
  kSShort = 8,
  kSLong = 9,
  kSRational = 10,
  kFloat = 11,
  kDouble = 12,
  kIfd = 13,
  kLong8 = 16,
  kSLong8 = 17,
  kIfd8 = 18,
};

// One directory entry's value: field type, count and the values in host byte order.
struct Directory {
  uint16_t type = 0;
  uint64_t count = 0;
  std::vector<unsigned char> values;

  Directory() = default;
  Directory(uint16_t t, uint64_t n) : type(t), count(n) { Alloc(); }

  // Bytes of one value of a TIFF field type; 0 for a type we do not know.
  static int SizeOfValue(int type);
  // count x size, saturated: a count read from a file may be anything.
  uint64_t Octets() const;
  void Alloc() { values.assign(static_cast<size_t>(Octets()), 0); }
  // Value i as a double (a rational as numerator / denominator, NaN for a zero denominator).
  double GetValue(uint64_t i) const;
  void SetValue(double v, uint64_t i);
  void SetRationalValue(unsigned int numerateur, unsigned int denominateur, uint64_t i);
};

// Reverses the bytes of each value (the two halves of a rational apart); false for a type of
// unknown size, whose values are left as they are.
bool PermuterValeurs(Directory& d);

}  // namespace tiff
