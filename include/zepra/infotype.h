// Pixel type codes, their names, sizes and file-header bytes, and the one switch from code to type.
#pragma once

#include "zepra/tchaine.h"

// The numbers are compared, switched on and stored in headers: keep them.
enum eEnumType {
  eIndetermine = 0,
  eAutre = 1,
  eBit1 = 2,
  eBool = 3,
  eChar = 4,
  eInt1 = 5,
  eUInt1 = 6,
  eInt2 = 7,
  eUInt2 = 8,
  eInt4 = 9,
  eUInt4 = 10,
  eFloat4 = 11,
  eFloat8 = 12
};

class InfoType {
 public:
  static TChaine NomType(eEnumType type);
  // Bytes of one sample; an image of bool reports 1 although it stores one bit per sample.
  static int TailleType(eEnumType type);
  // The byte under which a type is stored in a file header, and its inverse.
  static int TypeVal(eEnumType type);
  static eEnumType ValType(int octet);
};

// The code of each of the nine element types.
template <class T>
struct CodeType;
template <>
struct CodeType<bool> {
  static constexpr eEnumType value = eBool;
};
template <>
struct CodeType<signed char> {
  static constexpr eEnumType value = eInt1;
};
template <>
struct CodeType<unsigned char> {
  static constexpr eEnumType value = eUInt1;
};
template <>
struct CodeType<short> {
  static constexpr eEnumType value = eInt2;
};
template <>
struct CodeType<unsigned short> {
  static constexpr eEnumType value = eUInt2;
};
template <>
struct CodeType<int> {
  static constexpr eEnumType value = eInt4;
};
template <>
struct CodeType<unsigned int> {
  static constexpr eEnumType value = eUInt4;
};
template <>
struct CodeType<float> {
  static constexpr eEnumType value = eFloat4;
};
template <>
struct CodeType<double> {
  static constexpr eEnumType value = eFloat8;
};

template <class T>
struct TypeTag {
  using type = T;
};

// The only switch from a pixel type code to a C++ element type: calls f(TypeTag<T>{}) for the nine
// element types and returns true; returns false for the codes without one (0, 1, 2, 4, out of range),
// so that every caller keeps its own error text.
template <class F>
bool AppliquerType(eEnumType code, F&& f) {
  switch (code) {
    case eBool:
      f(TypeTag<bool>{});
      return true;
    case eInt1:
      f(TypeTag<signed char>{});
      return true;
    case eUInt1:
      f(TypeTag<unsigned char>{});
      return true;
    case eInt2:
      f(TypeTag<short>{});
      return true;
    case eUInt2:
      f(TypeTag<unsigned short>{});
      return true;
    case eInt4:
      f(TypeTag<int>{});
      return true;
    case eUInt4:
      f(TypeTag<unsigned int>{});
      return true;
    case eFloat4:
      f(TypeTag<float>{});
      return true;
    case eFloat8:
      f(TypeTag<double>{});
      return true;
    default:
      return false;
  }
}
