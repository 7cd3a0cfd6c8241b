// SPDX-License-Identifier: BSD-3-Clause
//
// Halves of files as the floats of pictures, and back, with the bits that OpenImageIO gives them:
// a row at a time, while it lies in the cache.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orvanite::media {

/// n halves, by their bits, as floats. Exact.
void halvesToFloats(const std::uint16_t* from, std::size_t n, float* to);

/// n floats as the bits of the nearest halves, of two the even one.
void floatsToHalves(const float* from, std::size_t n, std::uint16_t* to);

/// Pixels of three halves as pixels of four floats, the fourth being alpha.
void halvesToPixels(const std::uint16_t* from, std::size_t pixels, float alpha, float* to);

/// The first three of each pixel's four floats as halves.
void pixelsToHalves(const float* from, std::size_t pixels, std::uint16_t* to);

}  // namespace orvanite::media
