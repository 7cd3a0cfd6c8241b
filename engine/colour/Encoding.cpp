// SPDX-License-Identifier: BSD-3-Clause
#include "engine/colour/Encoding.h"

#include "engine/colour/Fused.h"
#include "engine/colour/Power.h"

namespace orvanite {

float toLinear(float v, int colourspace) {
  if (colourspace == logSpace) return power(10.0f, (v - 1.0f) / logScale);
  if (colourspace == videoSpace) {
    const float w = v < 0 ? 0 : v;
    const float t = w <= videoKneeEncoded
                        ? w / videoSlope
                        : power((w + videoOffset) / videoScale, videoDecodeExponent);
    return power(t, videoDecodeTone);
  }
  return v;
}

float fromLinear(float v, int colourspace) {
  if (colourspace == logSpace) {
    return v <= 0 ? 0 : fused(logScale, commonLogarithm(v), 1.0f);
  }
  if (colourspace == videoSpace) {
    const float t = v <= 0 ? 0 : power(v, videoEncodeTone);
    return t < videoKneeLinear ? videoSlope * t
                               : fused(videoScale, power(t, videoEncodeExponent), -videoOffset);
  }
  return v;
}

float regrade(float v, float exposure, float gamma, float offset) {
  return fused(exposure, power(v, 1.0f / gamma), offset);
}

}  // namespace orvanite
