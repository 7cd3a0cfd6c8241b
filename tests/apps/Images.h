// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures for tests, written and read with OpenImageIO directly: independent of media.
#pragma once

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/apps/Program.h"

namespace orvanite::test {

struct Image {
  OIIO::ImageSpec spec;
  std::vector<float> samples;  // integers as their code values, nchannels a pixel
};

/// A picture of random samples from a seed, over the whole range of its type, and its header.
Image randomImage(int width, int height, int channels, OIIO::TypeDesc type, unsigned seed);

/// The file of a frame, as "fg.0007.png".
std::string frameFile(const std::string& name, int frame);

/// Writes it; the samples are taken as codes of the header's type.
void write(const Image& image, const std::string& path);

/// Writes the frames first to last of a shot, each a random picture of its number's seed.
void writeShot(const Folder& folder, const std::string& name, int first, int last, int width = 24,
               int height = 16, int channels = 3, OIIO::TypeDesc type = OIIO::TypeDesc::UINT8);

/// Reads a file in its own type, without any change of its colours by alpha.
Image read(const std::string& path);

}  // namespace orvanite::test
