// SPDX-License-Identifier: BSD-3-Clause
//
// The encodings that pictures arrive in, value by value: log, video, linear.
// Powers and logarithms are taken in double and converted; all else is single precision; a
// multiply followed by an add is one fused operation.
//
// Video is the ITU-R BT.709 opto-electronic transfer function over linear light that was first
// raised to 1.6666666; log has 2.04 decades from code 0 to code 1.
#pragma once

namespace orvanite {

enum Colourspace { linearSpace = 0, logSpace = 1, videoSpace = 2 };

inline constexpr float logScale = 0.49019608f;  // 1 / 2.04
inline constexpr float videoKneeEncoded = 0.081f;
inline constexpr float videoKneeLinear = 0.018f;
inline constexpr float videoSlope = 4.5f;
inline constexpr float videoOffset = 0.099f;
inline constexpr float videoScale = 1.099f;
inline constexpr float videoDecodeExponent = 2.2222223f;  // 1 / 0.45
inline constexpr float videoEncodeExponent = 0.45f;
inline constexpr float videoDecodeTone = 0.6f;  // 1 / 1.6666666
inline constexpr float videoEncodeTone = 1.6666666f;

/// Encoded value to linear light. Video takes negative values as 0; a NaN stays one.
float toLinear(float v, int colourspace);

/// Linear light to encoded value. Log and video give 0 for values at or below 0.
float fromLinear(float v, int colourspace);

/// exposure * v^(1 / gamma) + offset, gamma first, no clamp. A negative v with a gamma other than
/// 1 gives a NaN.
float regrade(float v, float exposure, float gamma, float offset);

}  // namespace orvanite
