// Conversion of samples to the output type of the GeoTIFF writer. Unlike the library's plain cast
// (CopierPixels, kept by the compatibility writes), floats going into an integer type are rounded to
// nearest, halves away from zero as GDAL does, and clamped to the type's range. A pixel is invalid
// when its mask says so or when one of its samples is NaN; every band of an invalid pixel is
// written as the no-data value. A valid sample that would come out as the no-data value moves to the
// nearest other value of the type, so that real data never turns into holes. Private to src/image.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

namespace ecriture {

// The opaque value of an alpha band of type D (transparent is 0).
template <class D>
constexpr D AlphaOpaque() {
  if constexpr (std::is_same_v<D, bool>) {
    return true;
  } else if constexpr (std::is_integral_v<D> && sizeof(D) <= 2) {
    return std::numeric_limits<D>::max();
  } else {
    return static_cast<D>(255);
  }
}

// v rounded and clamped into D; NaN gives 0 (callers treat NaN as invalid before).
template <class D, class S>
inline D VersSortie(S v) {
  if constexpr (std::is_same_v<D, S>) {
    return v;
  } else if constexpr (std::is_same_v<D, bool>) {
    return v != 0;
  } else if constexpr (std::is_integral_v<D>) {
    constexpr double bas = static_cast<double>(std::numeric_limits<D>::lowest());
    constexpr double haut = static_cast<double>(std::numeric_limits<D>::max());
    if constexpr (std::is_floating_point_v<S>) {
      if constexpr (sizeof(D) <= 4) {
        // Inside the type's range, the rounding of std::round without a call: the truncation, and the
        // remainder (exact) tells which way the half goes.
        const double x = static_cast<double>(v);
        if (x > bas - 1 && x < haut + 1) {
          const long long i = static_cast<long long>(x);
          const double reste = x - static_cast<double>(i);
          const long long r = i + (reste >= 0.5) - (reste <= -0.5);
          if (r <= static_cast<long long>(bas)) return std::numeric_limits<D>::lowest();
          return r >= static_cast<long long>(haut) ? std::numeric_limits<D>::max() : static_cast<D>(r);
        }
      }
      const double r = std::round(static_cast<double>(v));
      if (std::isnan(r)) return D{};
      if (r <= bas) return std::numeric_limits<D>::lowest();
      return r >= haut ? std::numeric_limits<D>::max() : static_cast<D>(r);
    } else {
      const long long w = static_cast<long long>(v);
      return w < static_cast<long long>(bas)    ? std::numeric_limits<D>::lowest()
             : w > static_cast<long long>(haut) ? std::numeric_limits<D>::max()
                                                : static_cast<D>(w);
    }
  } else if constexpr (std::is_same_v<D, float> && std::is_same_v<S, double>) {
    constexpr double max = std::numeric_limits<float>::max();
    return v > max && v <= std::numeric_limits<double>::max()     ? std::numeric_limits<float>::max()
           : v < -max && v >= -std::numeric_limits<double>::max() ? -std::numeric_limits<float>::max()
                                                                  : static_cast<float>(v);
  } else {
    return static_cast<D>(v);
  }
}

template <class D>
struct ParametresSortie {
  bool nodataPresent = false;
  D nodata{};
  bool alpha = false;  // one more band after the data: opaque for valid pixels, 0 otherwise

  // What invalid pixels get: the no-data value, else NaN for floats and 0 for integers.
  D Remplissage() const {
    if (nodataPresent) return nodata;
    if constexpr (std::is_floating_point_v<D>) return std::numeric_limits<D>::quiet_NaN();
    return D{};
  }
};

// The value next to the no-data value on the side of the source value (above when equal, below when
// the no-data value is the largest).
template <class D, class S>
inline D AcoteNodata(D nodata, S source) {
  if constexpr (std::is_floating_point_v<D>) {
    const D vers = static_cast<double>(source) < static_cast<double>(nodata)
                       ? -std::numeric_limits<D>::infinity()
                       : std::numeric_limits<D>::infinity();
    const D v = std::nextafter(nodata, vers);
    return std::isinf(v) && !std::isinf(nodata) ? std::nextafter(nodata, -vers) : v;
  } else if constexpr (std::is_same_v<D, bool>) {
    return !nodata;
  } else {
    const bool dessous = static_cast<double>(source) < static_cast<double>(nodata);
    if (nodata == std::numeric_limits<D>::lowest()) return static_cast<D>(nodata + 1);
    if (nodata == std::numeric_limits<D>::max() || dessous) return static_cast<D>(nodata - 1);
    return static_cast<D>(nodata + 1);
  }
}

// One band of floats into a small integer type, no alpha: ConvertirLigne's result by straight-line
// code the compiler can vectorize (the rounding in float is exact below 2^23).
template <class D>
void ConvertirFlottantsCourts(const float* src, const unsigned char* valide, size_t pixels, D* dst,
                              const ParametresSortie<D>& p, unsigned char* valideSortie) {
  constexpr int bas = std::numeric_limits<D>::lowest(), haut = std::numeric_limits<D>::max();
  const D remplissage = p.Remplissage();
  const bool avecNodata = p.nodataPresent;
  const D nodata = p.nodata;
  // AcoteNodata's two answers: from above and from below.
  const D dessus = static_cast<D>(nodata == haut ? nodata - 1 : nodata + 1);
  const D dessous = static_cast<D>(nodata == bas ? nodata + 1 : nodata - 1);
  for (size_t i = 0; i < pixels; ++i) {
    const float v = src[i];
    const bool ok = (!valide || valide[i] != 0) && v == v;
    const float c = ok ? std::min(std::max(v, bas - 1.0f), haut + 1.0f) : 0.0f;
    const int t = static_cast<int>(c);
    const float reste = c - static_cast<float>(t);
    const int r = std::min(std::max(t + (reste >= 0.5f) - (reste <= -0.5f), bas), haut);
    D o = static_cast<D>(r);
    if (avecNodata) o = o == nodata ? (v < static_cast<float>(nodata) ? dessous : dessus) : o;
    dst[i] = ok ? o : remplissage;
    if (valideSortie) valideSortie[i] = ok;
  }
}

// Converts 'pixels' pixels of 'canaux' interleaved samples; 'valide' (one byte per pixel, non-zero =
// valid) may be null for all valid. Writes canaux (+1 with alpha) samples per pixel to 'dst', and the
// validity of each pixel to 'valideSortie' when not null.
template <class S, class D>
void ConvertirLigne(const S* src, int canaux, const unsigned char* valide, size_t pixels, D* dst,
                    const ParametresSortie<D>& p, unsigned char* valideSortie) {
  if constexpr (std::is_same_v<S, D> && std::is_integral_v<D>) {
    // The samples as they are when nothing can change them: no mask, no no-data, no alpha.
    if (!valide && !p.nodataPresent && !p.alpha) {
      std::copy(src, src + pixels * canaux, dst);
      if (valideSortie) std::fill(valideSortie, valideSortie + pixels, 1);
      return;
    }
  }
  if constexpr (std::is_same_v<S, float> && std::is_integral_v<D> && !std::is_same_v<D, bool> &&
                sizeof(D) <= 2) {
    if (canaux == 1 && !p.alpha) {
      ConvertirFlottantsCourts(src, valide, pixels, dst, p, valideSortie);
      return;
    }
  }
  const int sortie = canaux + (p.alpha ? 1 : 0);
  const D remplissage = p.Remplissage();
  for (size_t i = 0; i < pixels; ++i, src += canaux, dst += sortie) {
    bool ok = !valide || valide[i] != 0;
    if constexpr (std::is_floating_point_v<S>)
      for (int c = 0; c < canaux; ++c) ok = ok && !std::isnan(src[c]);
    if (ok) {
      for (int c = 0; c < canaux; ++c) {
        D v = VersSortie<D>(src[c]);
        if (p.nodataPresent && v == p.nodata) v = AcoteNodata(p.nodata, src[c]);
        dst[c] = v;
      }
    } else {
      for (int c = 0; c < canaux; ++c) dst[c] = remplissage;
    }
    if (p.alpha) dst[canaux] = ok ? AlphaOpaque<D>() : D{};
    if (valideSortie) valideSortie[i] = ok;
  }
}

}  // namespace ecriture
