// SPDX-License-Identifier: BSD-3-Clause
//
// Processors that convert eight at a time do so, but for infinities and NaNs, whose payloads they
// would change.
#include "media/Halves.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace orvanite::media {
namespace {

constexpr std::size_t chunkPixels = 256;
using Chunk = std::array<std::uint16_t, 4 * chunkPixels>;

void toFloats(const std::uint16_t* from, std::size_t n, float* to) {
  OIIO::convert_pixel_values(OIIO::TypeDesc::HALF, from, OIIO::TypeDesc::FLOAT, to,
                             static_cast<int>(n));
}

void toHalves(const float* from, std::size_t n, std::uint16_t* to) {
  OIIO::convert_pixel_values(OIIO::TypeDesc::FLOAT, from, OIIO::TypeDesc::HALF, to,
                             static_cast<int>(n));
}

#if defined(__x86_64__)
bool convertsEight() {
  static const bool able = [] {
    // Not every compiler's builtin knows F16C by name.
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __builtin_cpu_supports("avx2") && __get_cpuid(1, &a, &b, &c, &d) != 0 &&
           (c & bit_F16C) != 0;
  }();
  return able;
}

__attribute__((target("avx2,f16c"))) std::size_t eightsToFloats(const std::uint16_t* from,
                                                                std::size_t n, float* to) {
  const __m128i exponent = _mm_set1_epi16(0x7C00);
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i));
    const __m128i full = _mm_cmpeq_epi16(_mm_and_si128(v, exponent), exponent);
    if (_mm_movemask_epi8(full) != 0) {
      toFloats(from + i, 8, to + i);
    } else {
      _mm256_storeu_ps(to + i, _mm256_cvtph_ps(v));
    }
  }
  return i;
}

__attribute__((target("avx2,f16c"))) std::size_t eightsToHalves(const float* from, std::size_t n,
                                                                std::uint16_t* to) {
  const __m256i exponent = _mm256_set1_epi32(0x7F800000);
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256 v = _mm256_loadu_ps(from + i);
    const __m256i bits = _mm256_and_si256(_mm256_castps_si256(v), exponent);
    if (_mm256_movemask_epi8(_mm256_cmpeq_epi32(bits, exponent)) != 0) {
      toHalves(from + i, 8, to + i);
    } else {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i),
                       _mm256_cvtps_ph(v, _MM_FROUND_TO_NEAREST_INT));
    }
  }
  return i;
}
#else
constexpr bool convertsEight() { return false; }
std::size_t eightsToFloats(const std::uint16_t*, std::size_t, float*) { return 0; }
std::size_t eightsToHalves(const float*, std::size_t, std::uint16_t*) { return 0; }
#endif

}  // namespace

void halvesToFloats(const std::uint16_t* from, std::size_t n, float* to) {
  const std::size_t done = convertsEight() ? eightsToFloats(from, n, to) : 0;
  toFloats(from + done, n - done, to + done);
}

void floatsToHalves(const float* from, std::size_t n, std::uint16_t* to) {
  const std::size_t done = convertsEight() ? eightsToHalves(from, n, to) : 0;
  toHalves(from + done, n - done, to + done);
}

void halvesToPixels(const std::uint16_t* from, std::size_t pixels, float alpha, float* to) {
  Chunk chunk;
  for (std::size_t first = 0; first < pixels; first += chunkPixels) {
    const std::size_t n = std::min(chunkPixels, pixels - first);
    for (std::size_t i = 0; i < n; ++i) {
      std::memcpy(&chunk[4 * i], from + 3 * (first + i), 3 * sizeof(std::uint16_t));
    }
    halvesToFloats(chunk.data(), 4 * n, to + 4 * first);
    for (std::size_t i = first; i < first + n; ++i) to[4 * i + 3] = alpha;
  }
}

void pixelsToHalves(const float* from, std::size_t pixels, std::uint16_t* to) {
  Chunk chunk;
  for (std::size_t first = 0; first < pixels; first += chunkPixels) {
    const std::size_t n = std::min(chunkPixels, pixels - first);
    floatsToHalves(from + 4 * first, 4 * n, chunk.data());
    for (std::size_t i = 0; i < n; ++i) {
      std::memcpy(to + 3 * (first + i), &chunk[4 * i], 3 * sizeof(std::uint16_t));
    }
  }
}

}  // namespace orvanite::media
