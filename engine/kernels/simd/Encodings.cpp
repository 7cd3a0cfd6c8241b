// SPDX-License-Identifier: BSD-3-Clause
//
// Built once per target: the encodings over arrays.
#include "engine/kernels/simd/Encodings.h"

#include "engine/kernels/simd/Halves.h"
#include "engine/targets/Kernels.h"

namespace orvanite::ORVANITE_SIMD_TARGET {

namespace {

/// Runs estimate on the base-2 logarithms of the values.
template <class Estimate>
void estimates(const float* in, double* out, std::size_t n, const Estimate& estimate) {
  HWY_ALIGN float values[maxFloatLanes];
  HWY_ALIGN double results[maxFloatLanes];
  const std::size_t step = floatLanes();
  for (std::size_t i = 0; i < n; i += step) {
    for (std::size_t k = 0; k < step; ++k) values[k] = i + k < n ? in[i + k] : 1.0f;
    const FloatPack<1> v = {{hn::Load(floatTag, values)}};
    const DoublePack<1> result = estimate(log2Of(promote(v)));
    hn::Store(result.v[0], doubleTag, results);
    hn::Store(result.v[1], doubleTag, results + step / 2);
    for (std::size_t k = 0; k < step && i + k < n; ++k) out[i + k] = results[k];
  }
}

void copy(const float* in, float* out, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) out[i] = in[i];
}

void toLinear(const float* in, float* out, std::size_t n, int colourspace) {
  if (colourspace == logSpace) return overArray(in, out, n, LogToLinear());
  if (colourspace == videoSpace) return overArray(in, out, n, VideoToLinear());
  copy(in, out, n);
}

void fromLinear(const float* in, float* out, std::size_t n, int colourspace) {
  if (colourspace == logSpace) return overArray(in, out, n, LinearToLog());
  if (colourspace == videoSpace) return overArray(in, out, n, LinearToVideo());
  copy(in, out, n);
}

void power(const float* in, float* out, std::size_t n, float exponent) {
  overArray(in, out, n, PowerOf(exponent));
}

void regrade(const float* in, float* out, std::size_t n, float exposure, float gamma,
             float offset) {
  overArray(in, out, n, Regrade(exposure, gamma, offset));
}

void fillKey(const float* linear, std::uint16_t* table, unsigned first, unsigned end,
             const float (&spline)[4], float x0, float w, float scale) {
  const std::size_t lanes = floatLanes();
  HWY_ALIGN std::uint16_t part[maxFloatLanes];
  for (std::size_t u = first; u < end; u += lanes) {
    const std::size_t n = end - u < lanes ? end - u : lanes;
    // No entry of a key lies nearer the end of linear than a vector: the last are those of NaNs.
    const Floats decoded = hn::LoadU(floatTag, linear + u);
    const hn::Vec<PatternTag> pattern = hn::Iota(patternTag, static_cast<std::uint16_t>(u));
    const Floats t = hn::Mul(hn::Sub(fromHalf(pattern), floats(x0)), floats(w));
    const Floats t2 = hn::Mul(t, t), t3 = hn::Mul(t2, t);
    Floats y = hn::Add(hn::Mul(floats(spline[3]), t3), hn::Mul(floats(spline[2]), t2));
    y = hn::Add(hn::Add(y, hn::Mul(floats(spline[1]), t)), floats(spline[0]));
    const Floats share = hn::Mul(hn::Mul(floats(scale), decoded), y);
    if (n == lanes) {
      hn::StoreU(signedHalfPatterns(share), patternTag, table + u);
      continue;
    }
    hn::Store(signedHalfPatterns(share), patternTag, part);
    for (std::size_t k = 0; k < n; ++k) table[u + k] = part[k];
  }
}

bool isKeyProduct(const float* linear, const std::uint16_t* table, unsigned entries, float scale,
                  float factor) {
  for (std::size_t u = 0; u < entries; u += floatLanes()) {
    const Floats share =
        hn::Mul(hn::Mul(floats(scale), hn::LoadU(floatTag, linear + u)), floats(factor));
    // Compared as numbers: the two zeros count alike in every sum of shares.
    const Floats product = fromHalf(signedHalfPatterns(share));
    if (!hn::AllTrue(floatTag, hn::Eq(product, fromHalf(hn::LoadU(patternTag, table + u))))) {
      return false;
    }
  }
  return true;
}

void powerEstimate(const float* in, double* out, std::size_t n, float exponent) {
  estimates(in, out, n, [exponent](const DoublePack<1>& logarithm) {
    return exp2Of(withinReach(scaled(logarithm, static_cast<double>(exponent))));
  });
}

void logarithmEstimate(const float* in, double* out, std::size_t n) {
  estimates(in, out, n, [](const DoublePack<1>& logarithm) { return scaled(logarithm, log10Of2); });
}

}  // namespace

extern const EncodingFunctions encodings;
const EncodingFunctions encodings = {toLinear, fromLinear,   power,         regrade,
                                     fillKey,  isKeyProduct, powerEstimate, logarithmEstimate};

}  // namespace orvanite::ORVANITE_SIMD_TARGET
