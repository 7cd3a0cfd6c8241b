// SPDX-License-Identifier: BSD-3-Clause
//
// Drives the flat interface with a byte string: setters in any order with any values, builds, and
// renders of any geometry. Each image is a heap block of exactly the size that its steps reach, so
// that the address sanitizer sees the first byte outside.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "engine/orvanite.h"
#include "fuzz/Bytes.h"

namespace {

using orvanite::fuzz::Bytes;

/// An image of the tile with its own memory.
struct Image {
  std::vector<unsigned char> memory;
  OtileImage image = {};

  Image(Bytes& bytes, int depth, int width, int height) {
    const int layout = bytes.below(5);  // 0 absent, 1 RGBA, 2 ABGR, 3 planar, 4 odd steps
    if (layout == 0) return;
    const bool planar = layout == 3 && depth != 4;
    const int pixelStep = planar ? 1 : layout == 4 && depth != 4 ? 4 + bytes.below(3) : 4;
    const int lineStep = pixelStep * width + (planar ? 0 : bytes.below(5));
    const int plane = planar ? lineStep * height : 1;
    // The last sample of the last line is the last of the block.
    const int samples = (height - 1) * lineStep + (width - 1) * pixelStep + 3 * plane + 1;
    memory.resize(static_cast<std::size_t>(samples * depth));
    memory.shrink_to_fit();
    for (unsigned char& b : memory) b = bytes.byte();
    const auto channel = [&](int c) { return memory.data() + c * plane * depth; };
    const bool reversed = layout == 2;
    image.red = channel(reversed ? 3 : 0);
    image.green = channel(reversed ? 2 : 1);
    image.blue = channel(reversed ? 1 : 2);
    image.alpha = channel(reversed ? 0 : 3);
    image.pixelStep = pixelStep;
    image.lineStep = lineStep;
    if (bytes.below(8) == 0) image.alpha = nullptr;
    if (bytes.below(16) == 0) image.green = nullptr;
  }
};

void render(QMXOrvaniteTable* engine, Bytes& bytes) {
  constexpr int depths[] = {1, 2, 4, 4, 3};
  const int depth = depths[bytes.below(5)];
  const int width = 1 + bytes.below(80);
  const int height = 1 + bytes.below(3);
  const int bytesEach = depth == 3 ? 4 : depth;
  std::vector<std::unique_ptr<Image>> images;
  for (int i = 0; i < 6; ++i) {
    images.push_back(std::make_unique<Image>(bytes, bytesEach, width, height));
  }
  Otile tile = {images[0]->image, images[1]->image, images[2]->image,
                images[3]->image, images[4]->image, images[5]->image};
  const int shared = bytes.below(4);
  if (shared == 1) tile.dst = tile.fg;
  if (shared == 2) tile.dst = tile.bg;
  const int result = orvanite_render(engine, depth, width, height, &tile);
  if (result != 0 && result != 1) std::abort();
}

void step(QMXOrvaniteTable* engine, Bytes& bytes) {
  // Small odd maxima, the two that pictures have, the float one, and refused ones.
  constexpr int maxima[] = {255, 65535, 1, 2, 100, 1023, 70000, 0, -5, 255, 65535};
  const auto maximum = [&] { return maxima[bytes.below(11)]; };
  const auto small = [&] { return bytes.below(9) - 2; };
  const auto real = [&] { return bytes.real(); };
  const auto colour = [&](auto setter) {
    const float r = real(), g = real(), b = real();
    setter(r, g, b);
  };
  switch (bytes.below(26)) {
    case 0:
      return orvanite_setColourspace(engine, small());
    case 1:
      return colour([&](float r, float g, float b) { orvanite_setScreen(engine, r, g, b); });
    case 2:
      return colour([&](float r, float g, float b) { orvanite_setNeutral(engine, r, g, b); });
    case 3:
      return colour([&](float r, float g, float b) { orvanite_setReplace(engine, r, g, b); });
    case 4:
      return colour([&](float r, float g, float b) { orvanite_setBackground(engine, r, g, b); });
    case 5:
      return orvanite_setBalance(engine, small(), real());
    case 6:
      return orvanite_setGain(engine, small(), real());
    case 7:
      return colour([&](float r, float g, float b) { orvanite_setMp(engine, r, g, b); });
    case 8:
      return orvanite_setScreenRange(engine, real());
    case 9:
      return colour(
          [&](float r, float g, float b) { orvanite_setExposure(engine, r, g, b, small()); });
    case 10:
      return colour(
          [&](float r, float g, float b) { orvanite_setGamma(engine, r, g, b, small()); });
    case 11:
      return colour(
          [&](float r, float g, float b) { orvanite_setOffset(engine, r, g, b, small()); });
    case 12:
      return orvanite_setSaturation(engine, real(), small());
    case 13:
      return orvanite_setView(engine, small());
    case 14:
      return orvanite_setFgMax(engine, maximum());
    case 15:
      return orvanite_setBgMax(engine, maximum());
    case 16:
      return orvanite_setGMatteMax(engine, maximum());
    case 17:
      return orvanite_setHMatteMax(engine, maximum());
    case 18:
      return orvanite_setDstMax(engine, maximum());
    case 19:
      return orvanite_setRefMax(engine, maximum());
    case 20:
      return orvanite_useHold(engine, bytes.below(2));
    case 21:
      return orvanite_useGarbage(engine, bytes.below(2));
    case 22:
      return orvanite_useRef(engine, bytes.below(2));
    case 23: {  // one common maximum, as clients set it
      const int max = maximum();
      orvanite_setGMatteMax(engine, max);
      orvanite_setFgMax(engine, max);
      orvanite_setBgMax(engine, max);
      orvanite_setHMatteMax(engine, max);
      orvanite_setDstMax(engine, max);
      orvanite_setRefMax(engine, max);
      return;
    }
    case 24: {
      const int result = orvanite_makeLuts(engine);
      if (result < 0 || result > 3) std::abort();
      return;
    }
    default:
      return render(engine, bytes);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes(data, size);
  QMXOrvaniteTable* engine = orvanite_new();
  if (engine == nullptr) return 0;
  orvanite_useRef(engine, 0);
  for (int i = 0; i < 64 && !bytes.empty(); ++i) {
    step(engine, bytes);
    if (i % 4 == 3) {
      orvanite_makeLuts(engine);
      render(engine, bytes);
    }
  }
  orvanite_delete(engine);
  return 0;
}
