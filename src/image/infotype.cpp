#include "zepra/infotype.h"

#include "zepra/erreur.h"

TChaine InfoType::NomType(eEnumType type) {
  switch (type) {
    case eIndetermine:
      return "Indetermine";
    case eAutre:
      return "Autre";
    case eBit1:
      return "Bit1";
    case eBool:
      return "Bool (bool)";
    case eChar:
      return "Char (char)";
    case eInt1:
      return "Int1 (signed char)";
    case eUInt1:
      return "UInt1 (unsigned char)";
    case eInt2:
      return "Int2 (signed short)";
    case eUInt2:
      return "UInt2 (unsigned short)";
    case eInt4:
      return "Int4 (signed int)";
    case eUInt4:
      return "UInt4 (unsigned int)";
    case eFloat4:
      return "Float4 (float)";
    case eFloat8:
      return "Float8 (double)";
  }
  ZEPRA_ERREUR("[InfoType] (NomType (eEnumType)) cas imprevu.");
}

int InfoType::TailleType(eEnumType type) {
  switch (type) {
    case eBool:
    case eInt1:
    case eUInt1:
      return 1;
    case eInt2:
    case eUInt2:
      return 2;
    case eInt4:
    case eUInt4:
    case eFloat4:
      return 4;
    case eFloat8:
      return 8;
    default:
      break;
  }
  ZEPRA_ERREUR("[InfoType] (TailleType (eEnumType)) cas imprevu.");
}

namespace {
// Header byte of each code: the tens digit grows with the size class, a signed type adds 1.
constexpr int kOctetsType[13] = {0, 2, 10, 20, 30, 41, 40, 51, 50, 61, 60, 71, 81};
}  // namespace

int InfoType::TypeVal(eEnumType type) {
  if (type < eIndetermine || type > eFloat8) ZEPRA_ERREUR("[InfoType] (TypeVal (eEnumType)) type inconnu");
  return kOctetsType[type];
}

eEnumType InfoType::ValType(int octet) {
  for (int code = 0; code <= eFloat8; ++code)
    if (kOctetsType[code] == octet) return static_cast<eEnumType>(code);
  ZEPRA_ERREUR("[InfoType] (ValType (int)) mauvaise valeur de type");
}
