// SPDX-License-Identifier: BSD-3-Clause
//
// Which of a file's channels are the picture's colours and its alpha.
// Knows OpenImageIO's description of a part.
#pragma once

#include <OpenImageIO/imageio.h>

#include <string>
#include <string_view>
#include <vector>

namespace orvanite::media {

/// Whether two names are the same but for capitals.
bool sameLetters(std::string_view a, std::string_view b);

/// Where a channel of that name stands; -1 where none does.
int indexOf(const std::vector<std::string>& channels, std::string_view name);

/// A part's channels that make colours, and how sure that is.
struct PictureLayer {
  int red = 0, green = 0, blue = 0, alpha = -1;
  int rank = 0;      // 4 plain R, G, B; 3 a layer named for the picture; 2 grey; 1 another layer
  std::string name;  // empty: plain channels
  bool luminanceChroma = false;
};

/// The layer of a name, of rank 0 where it is not there; or, without one, the best of all.
PictureLayer layerOf(const std::vector<std::string>& channels, const OIIO::ImageSpec& spec,
                     const std::string& wanted);

}  // namespace orvanite::media
