// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Words.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <type_traits>

#include "keyer/Look.h"
#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

constexpr float most = 65535;
constexpr std::size_t wordValues = 65536;

/// Whether an image's pixels are red, green, blue and alpha side by side.
template <class Sample>
bool interleaved(const OtileImage& image) {
  const auto* red = static_cast<const Sample*>(image.red);
  return image.pixelStep == 4 && image.green == red + 1 && image.blue == red + 2 &&
         image.alpha == red + 3;
}

template <class Sample>
std::uint16_t wordOfSample(Sample v) {
  if constexpr (std::is_same_v<Sample, float>) {
    return wordOf(v > 0 ? v : 0.0f);
  } else {
    return static_cast<std::uint16_t>(sizeof(Sample) == 1 ? 257 * v : v);
  }
}

std::uint16_t wordOfColour(float v, float white) { return wordOf(v > 0 ? v / white : 0.0f); }

template <class Sample>
Sample sampleOf(std::uint16_t word) {
  if constexpr (std::is_same_v<Sample, float>) {
    return static_cast<float>(word) / most;
  } else if constexpr (sizeof(Sample) == 1) {
    // (word + 128) / 257: the same for all words.
    const int half = word + 128;
    return static_cast<Sample>((half - (half >> 8)) >> 8);
  } else {
    return word;
  }
}

template <class Sample>
Sample* rowOf(void* channel, const OtileImage& image, int y) {
  return static_cast<Sample*>(channel) + std::ptrdiff_t{y} * image.lineStep;
}

/// Makes each of n samples of another, which may be itself.
template <class From, class To, class Make>
void eachOf(const From* from, std::ptrdiff_t fromStep, To* to, std::ptrdiff_t toStep,
            std::ptrdiff_t n, Make make) {
  if (fromStep == 1 && toStep == 1) {
    for (std::ptrdiff_t i = 0; i < n; ++i) to[i] = make(from[i]);
    return;
  }
  for (std::ptrdiff_t i = 0; i < n; ++i) to[i * toStep] = make(from[i * fromStep]);
}

/// The same for interleaved pixels, alpha apart.
template <class From, class To, class Colour, class Alpha>
void eachPixelOf(const From* from, To* to, std::ptrdiff_t pixels, Colour colour, Alpha alpha) {
  for (std::ptrdiff_t i = 0; i < 4 * pixels; i += 4) {
    to[i] = colour(from[i]);
    to[i + 1] = colour(from[i + 1]);
    to[i + 2] = colour(from[i + 2]);
    to[i + 3] = alpha(from[i + 3]);
  }
}

// Codes to light by straight lines between steps; a code beyond the last is computed.
constexpr float stepsOfOne = 4096;
constexpr std::size_t stepCount = 8192;

}  // namespace

OtileImage rowsFrom(const OtileImage& image, Depth depth, int row) {
  OtileImage rest = image;
  const std::ptrdiff_t bytes = std::ptrdiff_t{image.lineStep} * row * bytesOf(depth);
  for (void** channel : {&rest.red, &rest.green, &rest.blue, &rest.alpha}) {
    if (*channel != nullptr) *channel = static_cast<char*>(*channel) + bytes;
  }
  return rest;
}

void Words::prepare(Depth depth, bool decodes, bool lit, float white) {
  depth_ = depth;
  decodes_ = decodes;
  lit_ = lit;
  white_ = white;
  if (decodes && decode_.empty()) {
    for (std::size_t i = 0; i < wordValues; ++i) {
      const float v = static_cast<float>(i) / most;
      decode_.push_back(wordOf(lightOfCode(v)));
      encode_.push_back(wordOf(codeOfLight(v)));
      if (i % 257 == 0) decodeBytes_.push_back(decode_.back());
      encodeBytes_.push_back(sampleOf<std::uint8_t>(encode_.back()));
    }
  }
  if (!lit || stepsFor_ == white) return;
  stepsFor_ = white;
  steps_.clear();
  const auto word = [white](std::size_t i) {
    const float code = static_cast<float>(i) / stepsOfOne;
    return static_cast<double>(lightOfCode(code) / white) * static_cast<double>(most) + 0.5;
  };
  for (std::size_t i = 0; i < stepCount; ++i) steps_.push_back({word(i), word(i + 1) - word(i)});
}

OtileImage Words::place(const OtileImage& image, int width, int rows, Buffer& buffer) const {
  const bool here = image.red != nullptr && image.green != nullptr && image.blue != nullptr &&
                    image.alpha != nullptr;
  if (depth_ == Depth::shorts && !decodes_ && here &&
      (image.pixelStep == 1 || interleaved<std::uint16_t>(image))) {
    return image;
  }
  return placeApart(width, rows, buffer);
}

OtileImage Words::placeApart(int width, int rows, Buffer& buffer) {
  buffer.resize(4 * static_cast<std::size_t>(width) * static_cast<std::size_t>(rows));
  std::uint16_t* p = buffer.data();
  return {p, p + 1, p + 2, p + 3, 4, 4 * width};
}

template <class Sample>
void Words::takeAs(const OtileImage& image, const OtileImage& words, int width, int rows) const {
  constexpr bool bytes = sizeof(Sample) == 1;
  const bool whites = std::is_same_v<Sample, float> && white_ != 1;
  const std::uint16_t* const decode = bytes ? decodeBytes_.data() : decode_.data();
  const auto code = [decode](Sample v) {
    if constexpr (bytes) return decode[v];
    return decode[wordOfSample(v)];
  };
  const auto shared = [white = white_](Sample v) { return wordOfColour(v, white); };
  const auto plain = [](Sample v) { return wordOfSample(v); };
  for (int y = 0; y < rows; ++y) {
    if (interleaved<Sample>(image)) {
      const Sample* from = rowOf<Sample>(image.red, image, y);
      auto* to = rowOf<std::uint16_t>(words.red, words, y);
      if (decodes_) {
        eachPixelOf(from, to, width, code, plain);
      } else if (whites) {
        eachPixelOf(from, to, width, shared, plain);
      } else {
        eachOf(from, 1, to, 1, std::ptrdiff_t{4} * width, plain);
      }
      continue;
    }
    const void* const channels[] = {image.red, image.green, image.blue, image.alpha};
    auto* to = rowOf<std::uint16_t>(words.red, words, y);
    for (int c = 0; c < 4; ++c, ++to) {
      if (channels[c] == nullptr) {
        for (std::ptrdiff_t i = 0; i < width; ++i) to[4 * i] = 65535;
        continue;
      }
      const Sample* from =
          static_cast<const Sample*>(channels[c]) + std::ptrdiff_t{y} * image.lineStep;
      if (c < 3 && decodes_) {
        eachOf(from, image.pixelStep, to, 4, width, code);
      } else if (c < 3 && whites) {
        eachOf(from, image.pixelStep, to, 4, width, shared);
      } else {
        eachOf(from, image.pixelStep, to, 4, width, plain);
      }
    }
  }
}

void Words::take(const OtileImage& image, const OtileImage& words, int width, int rows) const {
  if (words.red == image.red) return;
  withSampleOf(depth_, [&]<class Sample>(std::type_identity<Sample>) {
    takeAs<Sample>(image, words, width, rows);
  });
}

template <class Sample>
void Words::giveAs(const OtileImage& words, const OtileImage& image, int width, int rows,
                   bool colours) const {
  const bool light = decodes_ && colours;
  const bool whites = std::is_same_v<Sample, float> && white_ != 1 && colours;
  const auto code = [this](std::uint16_t v) {
    if constexpr (sizeof(Sample) == 1) {
      return encodeBytes_[v];
    } else {
      return sampleOf<Sample>(encode_[v]);
    }
  };
  const auto shared = [white = white_](std::uint16_t v) {
    return static_cast<Sample>(static_cast<float>(v) / most * white);
  };
  const auto plain = [](std::uint16_t v) { return sampleOf<Sample>(v); };
  for (int y = 0; y < rows; ++y) {
    const auto* from = rowOf<std::uint16_t>(words.red, words, y);
    if (interleaved<Sample>(image)) {
      auto* to = rowOf<Sample>(image.red, image, y);
      if (light) {
        eachPixelOf(from, to, width, code, plain);
      } else if (whites) {
        eachPixelOf(from, to, width, shared, plain);
      } else {
        eachOf(from, 1, to, 1, std::ptrdiff_t{4} * width, plain);
      }
      continue;
    }
    void* const channels[] = {image.red, image.green, image.blue, image.alpha};
    for (int c = 0; c < 4; ++c, ++from) {
      if (channels[c] == nullptr) continue;
      auto* to = rowOf<Sample>(channels[c], image, y);
      if (c < 3 && light) {
        eachOf(from, 4, to, image.pixelStep, width, code);
      } else if (c < 3 && whites) {
        eachOf(from, 4, to, image.pixelStep, width, shared);
      } else {
        eachOf(from, 4, to, image.pixelStep, width, plain);
      }
    }
  }
}

void Words::give(const OtileImage& words, const OtileImage& image, int width, int rows,
                 bool colours) const {
  if (words.red == image.red) return;
  withSampleOf(depth_, [&]<class Sample>(std::type_identity<Sample>) {
    giveAs<Sample>(words, image, width, rows, colours);
  });
}

void Words::takeMatte(const void* samples, int step, int width, std::uint16_t* to) const {
  withSampleOf(depth_, [&]<class Sample>(std::type_identity<Sample>) {
    eachOf(static_cast<const Sample*>(samples), step, to, 1, width,
           [](Sample v) { return wordOfSample(v); });
  });
}

void Words::takeCodes(const std::uint16_t* codes, int width, std::uint16_t* to, int step) const {
  if (decodes_) {
    eachOf(codes, 1, to, step, width, [this](std::uint16_t v) { return decode_[v]; });
  } else {
    eachOf(codes, 1, to, step, width, [](std::uint16_t v) { return v; });
  }
}

// The lines lie within .006 of a word of the curve; what floats round away on the way to a word is
// below .01 of one. So only words that are this near to the next are computed.
void Words::takeCodes(const float* codes, int width, std::uint16_t* to) const {
  if (!lit_) {
    rowTable().words(codes, width, to);
    if (decodes_) eachOf(to, 1, to, 1, width, [this](std::uint16_t v) { return decode_[v]; });
    return;
  }
  constexpr double near = 1.0 / 64;
  for (int x = 0; x < width; ++x) {
    const float place = codes[x] * stepsOfOne;
    const auto computed = [&] { return wordOf(lightOfCode(codes[x]) / white_); };
    if (!(place >= 0 && place < static_cast<float>(stepCount))) {
      to[x] = computed();
      continue;
    }
    const auto cell = static_cast<int>(place);
    const Step& step = steps_[static_cast<std::size_t>(cell)];
    const double word =
        step.word + static_cast<double>(place - static_cast<float>(cell)) * step.more;
    const auto whole = static_cast<int>(word);
    const double over = word - whole;
    to[x] = over < near || over > 1 - near || word > 65535.4 ? computed()
                                                             : static_cast<std::uint16_t>(whole);
  }
}

}  // namespace orvanite
