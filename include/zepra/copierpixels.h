// The typed copy between line tables of any two of the nine element types.
#pragma once

#include <algorithm>
#include <climits>
#include <type_traits>

#include "zepra/specifimage.h"

// The plain cast of the library: floating values are truncated toward zero, integers of another width
// wrap; no rounding, no clamping. A floating value goes to an integer through long long, so that the
// conversion is defined for every value: NaN and values beyond long long give LLONG_MIN, as the x86
// conversion instruction does, which narrows to 0 for every type of 32 bits or less.
template <class D, class S>
inline D Convertir(S v) {
  if constexpr (std::is_same_v<D, S>) {
    return v;
  } else if constexpr (std::is_same_v<D, bool>) {
    return v != 0;
  } else if constexpr (std::is_floating_point_v<S> && std::is_integral_v<D>) {
    const long long i =
        (v >= static_cast<S>(-9223372036854775808.0) && v < static_cast<S>(9223372036854775808.0))
            ? static_cast<long long>(v)
            : LLONG_MIN;
    return static_cast<D>(i);
  } else {
    return static_cast<D>(v);
  }
}

// Copies the rectangle [x0, x1) x [y0, y1) of the source table, every pas-th pixel, to the destination
// table from (xDest, yDest), 'canaux' samples per pixel. No bounds are checked.
template <class S, class D>
void CopierPixels(LigneDe<S> const* src, LigneDe<D> const* dst, int x0, int y0, int x1, int y1, int xDest,
                  int yDest, int pas, int canaux) {
  if (pas < 1 || canaux < 1 || x1 <= x0 || y1 <= y0) return;
  const long long nx = (static_cast<long long>(x1) - x0 + pas - 1) / pas;
  const long long ny = (static_cast<long long>(y1) - y0 + pas - 1) / pas;
  for (long long j = 0; j < ny; ++j) {
    auto s = src[y0 + j * pas] + static_cast<long>(x0) * canaux;
    auto d = dst[yDest + j] + static_cast<long>(xDest) * canaux;
    if (pas == 1) {
      const long n = static_cast<long>(nx) * canaux;
      if constexpr (std::is_same_v<S, D>) {
        std::copy(s, s + n, d);
      } else if constexpr (std::is_floating_point_v<S> && std::is_integral_v<D> && !std::is_same_v<D, bool> &&
                           sizeof(D) <= 4 && !std::is_same_v<D, unsigned int>) {
        // When the whole run lies within int, the 32-bit conversion has the low bits of the long long
        // one and vectorizes; NaN fails the test and takes the general path.
        unsigned dansInt = 1;
        for (long i = 0; i < n; ++i)
          dansInt &= static_cast<unsigned>(s[i] > static_cast<S>(-2147483648.0)) &
                     static_cast<unsigned>(s[i] < static_cast<S>(2147483648.0));
        if (dansInt) {
          for (long i = 0; i < n; ++i) d[i] = static_cast<D>(static_cast<int>(s[i]));
        } else {
          for (long i = 0; i < n; ++i) d[i] = Convertir<D, S>(s[i]);
        }
      } else {
        for (long i = 0; i < n; ++i) d[i] = Convertir<D, S>(s[i]);
      }
    } else {
      const long saut = static_cast<long>(pas) * canaux;
      for (long long i = 0; i < nx; ++i, s += saut, d += canaux) {
        for (int c = 0; c < canaux; ++c) d[c] = Convertir<D, S>(s[c]);
      }
    }
  }
}
