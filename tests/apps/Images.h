// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures for tests, written and read with OpenImageIO directly: independent of apps/media.
#pragma once

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvanite::test {

struct Image {
  OIIO::ImageSpec spec;
  std::vector<float> samples;  // integers as their code values, nchannels a pixel
};

/// A picture of random samples from a seed, over the whole range of its type, and its header.
Image randomImage(int width, int height, int channels, OIIO::TypeDesc type, unsigned seed);

/// Writes it; the samples are taken as codes of the header's type.
void write(const Image& image, const std::string& path);

/// Reads a file in its own type, without any change of its colours by alpha.
Image read(const std::string& path);

}  // namespace orvanite::test
