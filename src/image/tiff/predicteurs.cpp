#include "predicteurs.h"

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tiff {

namespace {

constexpr bool kHoteGrosBoutiste = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;

// With the samples per pixel known at compile time, the running sums stay in registers; otherwise
// each sample waits for the store of the one it adds.
template <class U, int kPas>
void AccumulerFixe(unsigned char* p, size_t echantillons) {
  U s[kPas];
  std::memcpy(s, p, sizeof s);
  for (size_t i = kPas; i + kPas <= echantillons; i += kPas)
    for (int c = 0; c < kPas; ++c) {
      U b;
      std::memcpy(&b, p + (i + c) * sizeof(U), sizeof(U));
      s[c] = static_cast<U>(s[c] + b);
      std::memcpy(p + (i + c) * sizeof(U), &s[c], sizeof(U));
    }
}

// Running sums of bytes (8-bit samples, one per pixel: the most common predicted rows), 16 at a time
// where SSE2 is there: four shifted additions give each byte the sum of itself and the 15 before it in
// its group, modulo 256 as the plain loop's additions, then the previous group's last sum is added.
void AccumulerOctets(unsigned char* p, size_t n) {
  size_t i = 1;
#if defined(__SSE2__)
  unsigned char avant = p[0];
  for (; i + 16 <= n; i += 16) {
    __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    x = _mm_add_epi8(x, _mm_slli_si128(x, 1));
    x = _mm_add_epi8(x, _mm_slli_si128(x, 2));
    x = _mm_add_epi8(x, _mm_slli_si128(x, 4));
    x = _mm_add_epi8(x, _mm_slli_si128(x, 8));
    x = _mm_add_epi8(x, _mm_set1_epi8(static_cast<char>(avant)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p + i), x);
    avant = p[i + 15];
  }
#endif
  for (; i < n; ++i) p[i] = static_cast<unsigned char>(p[i] + p[i - 1]);
}

template <class U>
void Accumuler(unsigned char* p, size_t echantillons, int pas) {
  if (sizeof(U) == 1 && pas == 1) return AccumulerOctets(p, echantillons);
  if (echantillons % pas == 0) {
    if (pas == 1) return AccumulerFixe<U, 1>(p, echantillons);
    if (pas == 3) return AccumulerFixe<U, 3>(p, echantillons);
    if (pas == 4) return AccumulerFixe<U, 4>(p, echantillons);
  }
  for (size_t i = static_cast<size_t>(pas); i < echantillons; ++i) {
    U a, b;
    std::memcpy(&a, p + (i - pas) * sizeof(U), sizeof(U));
    std::memcpy(&b, p + i * sizeof(U), sizeof(U));
    b = static_cast<U>(b + a);
    std::memcpy(p + i * sizeof(U), &b, sizeof(U));
  }
}

template <class U, class F>
void Permuter(unsigned char* p, size_t echantillons, F inverser) {
  for (size_t i = 0; i < echantillons; ++i) {
    U v;
    std::memcpy(&v, p + i * sizeof(U), sizeof(U));
    v = inverser(v);
    std::memcpy(p + i * sizeof(U), &v, sizeof(U));
  }
}

}  // namespace

bool PredicteurPossible(int predicteur, int bits, bool flottant) {
  if (predicteur == 1) return true;
  if (predicteur == 2) return bits == 8 || bits == 16 || bits == 32 || bits == 64;
  return predicteur == 3 && flottant && (bits == 32 || bits == 64);
}

PostTraitement::PostTraitement(int predicteur, int bits, int echantillons, int largeur, bool permuter)
    : m_predicteur(predicteur),
      m_bits(bits),
      m_echantillons(echantillons),
      m_n(static_cast<size_t>(largeur) * echantillons),
      m_permuter(permuter) {
  if (predicteur == 3) m_tampon.resize(m_n * (bits / 8));
}

void PostTraitement::Appliquer(unsigned char* p) {
  if (m_predicteur == 3) {
    // The row holds the bytes of its samples as planes, the most significant bytes of all samples
    // first, differenced byte by byte across the whole row: undo the differencing, then gather each
    // sample's bytes. The layout fixes the significance of each byte, so the file's byte order plays
    // no part.
    const size_t k = static_cast<size_t>(m_bits / 8), octets = m_n * k;
    for (size_t i = static_cast<size_t>(m_echantillons); i < octets; ++i)
      p[i] = static_cast<unsigned char>(p[i] + p[i - m_echantillons]);
    std::memcpy(m_tampon.data(), p, octets);
    for (size_t s = 0; s < m_n; ++s)
      for (size_t b = 0; b < k; ++b) p[s * k + (kHoteGrosBoutiste ? b : k - 1 - b)] = m_tampon[b * m_n + s];
    return;
  }
  if (m_permuter) {
    if (m_bits == 16) Permuter<uint16_t>(p, m_n, [](uint16_t v) { return __builtin_bswap16(v); });
    if (m_bits == 32) Permuter<uint32_t>(p, m_n, [](uint32_t v) { return __builtin_bswap32(v); });
    if (m_bits == 64) Permuter<uint64_t>(p, m_n, [](uint64_t v) { return __builtin_bswap64(v); });
  }
  if (m_predicteur == 2) {
    if (m_bits == 8) Accumuler<uint8_t>(p, m_n, m_echantillons);
    if (m_bits == 16) Accumuler<uint16_t>(p, m_n, m_echantillons);
    if (m_bits == 32) Accumuler<uint32_t>(p, m_n, m_echantillons);
    if (m_bits == 64) Accumuler<uint64_t>(p, m_n, m_echantillons);
  }
}

}  // namespace tiff
