// SPDX-License-Identifier: BSD-3-Clause
#include "media/PictureLayer.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>

namespace orvanite::media {
namespace {

// What renderers call the layer that is the picture itself.
constexpr std::array<const char*, 7> pictureLayers{"rgba",    "rgb",       "beauty", "combined",
                                                   "primary", "composite", "main"};

}  // namespace

bool sameLetters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::toupper(static_cast<unsigned char>(x)) ==
           std::toupper(static_cast<unsigned char>(y));
  });
}

int indexOf(const std::vector<std::string>& channels, std::string_view name) {
  const auto found = std::find_if(channels.begin(), channels.end(), [name](const std::string& one) {
    return sameLetters(one, name);
  });
  return found == channels.end() ? -1 : static_cast<int>(found - channels.begin());
}

PictureLayer layerOf(const std::vector<std::string>& channels, const OIIO::ImageSpec& spec,
                     const std::string& wanted) {
  PictureLayer layer;
  const auto take = [&](const std::string& prefix, int rank) {
    const int red = indexOf(channels, prefix + "R");
    const int green = indexOf(channels, prefix + "G");
    const int blue = indexOf(channels, prefix + "B");
    if (red < 0 || green < 0 || blue < 0 || rank <= layer.rank) return;
    layer.red = red;
    layer.green = green;
    layer.blue = blue;
    layer.alpha = indexOf(channels, prefix + "A");
    layer.rank = rank;
    layer.name = prefix.empty() ? "" : prefix.substr(0, prefix.size() - 1);
  };
  if (!wanted.empty()) {
    take(wanted + ".", 4);
    return layer;
  }
  take("", 4);
  if (layer.rank == 0) {
    layer.luminanceChroma = indexOf(channels, "RY") >= 0 && indexOf(channels, "BY") >= 0;
    const int grey = indexOf(channels, "Y");
    for (const std::string& channel : channels) {
      const std::size_t dot = channel.rfind('.');
      if (dot == std::string::npos || !sameLetters(channel.substr(dot + 1), "R")) continue;
      const std::string name = channel.substr(0, dot);
      const std::size_t inner = name.rfind('.');
      const std::string last = inner == std::string::npos ? name : name.substr(inner + 1);
      const bool picture = std::any_of(std::begin(pictureLayers), std::end(pictureLayers),
                                       [&](const char* one) { return sameLetters(last, one); });
      if (picture || grey < 0) take(name + ".", picture ? 3 : 1);
    }
    if (layer.rank < 2 && grey >= 0) {
      layer.red = layer.green = layer.blue = grey;
      layer.rank = 2;
      layer.name.clear();
      layer.alpha = indexOf(channels, "A");
    }
  }
  if (layer.rank == 0) {
    const bool three = spec.nchannels >= 3;
    layer.green = three ? 1 : 0;
    layer.blue = three ? 2 : 0;
    layer.alpha = spec.alpha_channel >= 0 ? spec.alpha_channel : indexOf(channels, "A");
  } else if (layer.alpha < 0 && layer.name.empty()) {
    layer.alpha = spec.alpha_channel;
  }
  if (layer.alpha >= spec.nchannels) layer.alpha = -1;
  return layer;
}

}  // namespace orvanite::media
