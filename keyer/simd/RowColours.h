// SPDX-License-Identifier: BSD-3-Clause
//
// Rows of colours in the finish: in single precision, each operation rounded as written,
// without branches, so that they run in lanes. Built once per target: all that is here is the
// including file's own.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "keyer/simd/RowTable.h"

namespace orvanite::ORVANITE_SIMD_TARGET {
namespace {

// Light of the three channels: ITU-R BT.709.
constexpr float lightOf[3] = {0.2126f, 0.7152f, 0.0722f};

// The inside is what is more solid than this; how much more weighs it, up to 255.
constexpr int insideFrom = 57344;  // 7/8
// So many whole pixels of inside give their colour in full; fewer give less of it.
constexpr float enoughInside = 4;
// A pixel's weight where all count alike.
constexpr int evenWeight = 255;

template <class Sample>
constexpr float fullOf = std::is_floating_point_v<Sample>
                             ? 1.0f
                             : static_cast<float>(std::is_same_v<Sample, std::uint8_t> ? 255
                                                                                       : 65535);

template <class Sample>
constexpr float countedOne = std::is_floating_point_v<Sample> ? 65536.0f : 1.0f;

// Samples in the whole numbers that are summed. Floats count in 65536ths and up to 8191 either way;
// NaN counts as 0.
template <class Sample>
inline std::int32_t counted(Sample v) {
  if constexpr (std::is_floating_point_v<Sample>) {
    constexpr float most = 8191;
    const float number = v == v ? v : 0.0f;
    const float above = number > -most ? number : -most;
    return static_cast<std::int32_t>((above < most ? above : most) * 65536.0f);
  } else {
    return static_cast<std::int32_t>(v);
  }
}

// The matte of a code without a curve.
inline std::int32_t plainMatte(float code) {
  const float positive = code > 0 ? code : 0.0f;  // NaN is not above 0
  const float held = positive < 1 ? positive : 1.0f;
  return static_cast<std::int32_t>(held * 65535.0f + 0.5f);
}

template <class Sample>
inline Sample missingOf(std::uint16_t matte, Sample own) {
  if constexpr (std::is_same_v<Sample, std::uint8_t>) {
    // (matte + 128) / 257 for every matte, as the tests hold.
    return static_cast<Sample>(255 - ((matte * 255U + 32895U) >> 16));
  } else if constexpr (std::is_same_v<Sample, std::uint16_t>) {
    return static_cast<Sample>(65535 - matte);
  } else {
    const float rest = 1.0f - static_cast<float>(matte) / 65535.0f;
    const float same = 1.0f - own;
    return matte == plainMatte(own) ? same : rest;
  }
}

// Where a byte of a pixel lies in the number that its bytes make.
template <class Number>
constexpr int shiftOf(int channel) {
  constexpr int bits = 2 * static_cast<int>(sizeof(Number));
  return bits * (std::endian::native == std::endian::little ? channel : 3 - channel);
}

template <class Sample>
using Packed = std::conditional_t<sizeof(Sample) == 1, std::uint32_t, std::uint64_t>;

template <class Sample>
inline Packed<Sample> packedAt(const Sample* pixels, int x) {
  Packed<Sample> packed;
  std::memcpy(&packed, pixels + 4 * static_cast<std::ptrdiff_t>(x), sizeof packed);
  return packed;
}

template <class Sample>
void prepareRow(const Sample* pixels, const std::uint16_t* matte, int count, Sample* to) {
  if constexpr (std::is_floating_point_v<Sample>) {
    std::memcpy(to, pixels, sizeof(float) * 4 * static_cast<std::size_t>(count));
    for (int x = 0; x < count; ++x) {
      float& alpha = to[4 * static_cast<std::ptrdiff_t>(x) + 3];
      alpha = missingOf(matte[x], alpha);
    }
  } else {
    using Number = Packed<Sample>;
    constexpr int shift = shiftOf<Number>(3);
    constexpr Number alpha = Number{std::is_same_v<Sample, std::uint8_t> ? 255 : 65535} << shift;
    for (int x = 0; x < count; ++x) {
      const Number was = packedAt(pixels, x);
      const Number now = (was & ~alpha) | Number{missingOf<Sample>(matte[x], Sample{})} << shift;
      std::memcpy(to + 4 * static_cast<std::ptrdiff_t>(x), &now, sizeof now);
    }
  }
}

// So many pixels at a time.
constexpr int blockPixels = 64;

template <class Sample>
void weighColours(const Sample* pixels, const std::uint16_t* own, int count,
                  SumOf<Sample>* __restrict line, SumOf<Sample>* __restrict columns) {
  using Sum = SumOf<Sample>;
  Sum weights[4 * blockPixels];
  for (int first = 0; first < count; first += blockPixels) {
    const int some = count - first < blockPixels ? count - first : blockPixels;
    for (int x = 0; x < some; ++x) {
      const std::int32_t inside = own[first + x] > insideFrom ? own[first + x] - insideFrom : 0;
      const auto weight = static_cast<Sum>(inside >> 5);
      for (int c = 0; c < 4; ++c) weights[4 * x + c] = weight;
    }
    const std::ptrdiff_t at = 4 * static_cast<std::ptrdiff_t>(first);
    for (int k = 0; k < 4 * some; ++k) {
      const auto sample = static_cast<Sum>((k & 3) == 3 ? 1 : counted(pixels[at + k]));
      const Sum now = weights[k] * sample;
      columns[at + k] += now - line[at + k];
      line[at + k] = now;
    }
  }
}

// The fourth sum is of what nobody looks at.
template <class Sample>
void exchangeRows(const Sample* come, const Sample* go, int count,
                  SumOf<Sample>* __restrict columns) {
  const std::ptrdiff_t samples = 4 * static_cast<std::ptrdiff_t>(count);
  if (go == nullptr) {
    for (std::ptrdiff_t k = 0; k < samples; ++k) {
      columns[k] += static_cast<SumOf<Sample>>(counted(come[k])) * evenWeight;
    }
    return;
  }
  for (std::ptrdiff_t k = 0; k < samples; ++k) {
    // 8191 in 65536ths is 2^29: the difference fits.
    columns[k] += static_cast<SumOf<Sample>>(counted(come[k]) - counted(go[k])) * evenWeight;
  }
}

template <class Sample, bool even>
void slideBy(const SumOf<Sample>* columns, int count, int reach, float weight, float* means) {
  using Sum = SumOf<Sample>;
  typedef Sum Four __attribute__((vector_size(4 * sizeof(Sum))));
  typedef float Floats __attribute__((vector_size(16)));
  const auto read = [columns](int x, Four& four) {
    std::memcpy(&four, columns + 4 * static_cast<std::ptrdiff_t>(x), sizeof four);
  };
  Four sum = {}, come, go;
  for (int i = 0; i <= 2 * reach; ++i) {
    read(i, come);
    sum += come;
  }
  const float evenScale = 1.0f / (weight * countedOne<Sample>);
  for (int x = 0; x < count; ++x) {
    Floats mean = __builtin_convertvector(sum, Floats);
    if constexpr (even) {
      mean *= evenScale;
      mean[3] = weight * (1.0f / 255.0f);
    } else {
      const float own = mean[3];
      mean *= own == 0 ? 0.0f : 1.0f / (own * countedOne<Sample>);
      mean[3] = own * (1.0f / 255.0f);
    }
    std::memcpy(means + 4 * static_cast<std::ptrdiff_t>(x), &mean, sizeof mean);
    if (x + 1 < count) {
      read(x + 2 * reach + 1, come);
      read(x, go);
      sum += come - go;
    }
  }
}

template <class Sample>
void slideRow(const SumOf<Sample>* columns, int count, int reach, float weight, float* means) {
  (weight > 0 ? slideBy<Sample, true> : slideBy<Sample, false>)(columns, count, reach, weight,
                                                                means);
}

// A matte's value as a part of full.
inline float partOf(int matte) { return static_cast<float>(matte) * (1.0f / 65535.0f); }

// Each channel by itself.
struct Block {
  float colour[3][blockPixels];
  float was[3][blockPixels];
};

template <class Sample>
inline Sample storedAs(float v) {
  if constexpr (std::is_floating_point_v<Sample>) {
    return v;
  } else {
    const float above = v < 0.0f ? 0.0f : v;
    return static_cast<Sample>(
        static_cast<std::int32_t>((fullOf<Sample> < above ? fullOf<Sample> : above) + 0.5f));
  }
}

template <class Sample>
void take(const Sample* pixels, int count, Block& block) {
  if constexpr (std::is_same_v<Sample, std::uint8_t>) {
    for (int x = 0; x < count; ++x) {
      const std::uint32_t packed = packedAt(pixels, x);
      for (int c = 0; c < 3; ++c) {
        block.colour[c][x] = static_cast<float>(
            static_cast<std::int32_t>((packed >> shiftOf<std::uint32_t>(c)) & 255U));
      }
    }
  } else {
    for (int x = 0; x < count; ++x) {
      const Sample* const from = pixels + 4 * static_cast<std::ptrdiff_t>(x);
      for (int c = 0; c < 3; ++c) block.colour[c][x] = static_cast<float>(from[c]);
    }
  }
  if constexpr (std::is_floating_point_v<Sample>) {
    std::memcpy(block.was, block.colour, sizeof block.was);
  }
}

template <class Sample>
void give(const Block& block, const std::uint16_t* matte, int count, Sample* pixels) {
  if constexpr (std::is_same_v<Sample, std::uint8_t>) {
    constexpr std::uint32_t alpha = 255U << shiftOf<std::uint32_t>(3);
    for (int x = 0; x < count; ++x) {
      const std::uint32_t was = packedAt(pixels, x);
      std::uint32_t now = was & alpha;
      for (int c = 0; c < 3; ++c) {
        const float v = block.colour[c][x];
        const float above = v < 0.0f ? 0.0f : v;
        const float held = fullOf<Sample> < above ? fullOf<Sample> : above;
        now |= static_cast<std::uint32_t>(static_cast<std::int32_t>(held + 0.5f))
               << shiftOf<std::uint32_t>(c);
      }
      now = matte[x] > 0 ? now : was;
      std::memcpy(pixels + 4 * static_cast<std::ptrdiff_t>(x), &now, sizeof now);
    }
  } else {
    for (int x = 0; x < count; ++x) {
      Sample* const to = pixels + 4 * static_cast<std::ptrdiff_t>(x);
      for (int c = 0; c < 3; ++c) {
        const Sample now = storedAs<Sample>(block.colour[c][x]);
        bool changes = matte[x] > 0;
        if constexpr (std::is_floating_point_v<Sample>) {
          changes = changes && block.colour[c][x] != block.was[c][x];
        }
        to[c] = changes ? now : to[c];
      }
    }
  }
}

void pullInside(float edgeColour, const std::uint16_t* own, const float* inside, int count,
                Block& block) {
  float given[blockPixels];
  for (int x = 0; x < count; ++x) {
    const int softness = 65535 - own[x];
    const float enough = inside[4 * x + 3] / enoughInside;
    given[x] = edgeColour * partOf(softness) * (enough < 1.0f ? enough : 1.0f);
  }
  for (int c = 0; c < 3; ++c) {
    for (int x = 0; x < count; ++x) {
      const float v = block.colour[c][x];
      const float moved = v + given[x] * (inside[4 * x + c] - v);
      block.colour[c][x] = own[x] < 65535 ? moved : v;
    }
  }
}

template <class Sample>
void takeSpill(const Finish& finish, const float* behind, int count, Block& block) {
  const int p = finish.primary;
  float* const primary = block.colour[p];
  const float* const one = block.colour[(p + 1) % 3];
  const float* const other = block.colour[(p + 2) % 3];
  float taken[blockPixels];
  std::int32_t spills[blockPixels];  // whether any is taken: what is a number or not stays so
  for (int x = 0; x < count; ++x) {
    const float a = one[x], b = other[x];
    const float greater = a > b ? a : b;
    const float middle = (a + b) * 0.5f;
    const float limit = middle + finish.spillLimit * (greater - middle);
    const float spill = finish.spill * (primary[x] - limit);
    const float left = primary[x] - spill;
    const bool is = primary[x] > limit;
    spills[x] = is ? 1 : 0;
    taken[x] = spill;
    primary[x] = is ? left : primary[x];
  }
  switch (finish.spillReplace) {
    case SpillReplace::nothing:
      break;
    case SpillReplace::grey:
      for (int c = 0; c < 3; ++c) {
        for (int x = 0; x < count; ++x) {
          const float v = block.colour[c][x];
          const float more = v + taken[x] * lightOf[p];
          block.colour[c][x] = spills[x] != 0 ? more : v;
        }
      }
      break;
    case SpillReplace::brightness:
      for (int x = 0; x < count; ++x) {
        const float left = lightOf[0] * block.colour[0][x] + lightOf[1] * block.colour[1][x] +
                           lightOf[2] * block.colour[2][x];
        const bool has = left > 0;
        // At most as bright again: what is nearly black has no hue to be scaled.
        const float ratio = (left + taken[x] * lightOf[p]) / (has ? left : 1.0f);
        taken[x] = ratio < 2.0f ? ratio : 2.0f;
        spills[x] = has ? spills[x] : 0;
      }
      for (int c = 0; c < 3; ++c) {
        for (int x = 0; x < count; ++x) {
          const float v = block.colour[c][x];
          const float scaled = v * taken[x];
          block.colour[c][x] = spills[x] != 0 ? scaled : v;
        }
      }
      break;
    case SpillReplace::background:
      for (int c = 0; c < 3; ++c) {
        for (int x = 0; x < count; ++x) {
          const float v = block.colour[c][x];
          const float more = v + taken[x] * (1.0f / fullOf<Sample>)*behind[4 * x + c];
          block.colour[c][x] = spills[x] != 0 ? more : v;
        }
      }
      break;
  }
}

// Light on light: the lighter of both at the least, full at the most.
template <class Sample>
void letLightIn(float wrap, const std::uint16_t* nearby, const float* behind, int count,
                Block& block) {
  float part[blockPixels];
  for (int x = 0; x < count; ++x) part[x] = wrap * partOf(65535 - nearby[x]);
  for (int c = 0; c < 3; ++c) {
    for (int x = 0; x < count; ++x) {
      const float v = block.colour[c][x];
      const float room = 1.0f - v * (1.0f / fullOf<Sample>);
      const float to = behind[4 * x + c];
      const float lit = v + part[x] * to * room;
      // The least of them is above 0 where all are; where room is no number it is no number.
      const float lesser = part[x] < to ? part[x] : to;
      const float least = lesser < room ? lesser : room;
      block.colour[c][x] = least > 0 ? lit : v;
    }
  }
}

template <class Sample>
void finishRow(const Finish& finish, const ColourRow<Sample>& row) {
  Block block;
  for (int first = 0; first < row.count; first += blockPixels) {
    const int count = row.count - first < blockPixels ? row.count - first : blockPixels;
    const std::uint16_t* const matte = row.matte + first;
    std::uint16_t any = 0;
    for (int x = 0; x < count; ++x) any |= matte[x];
    if (any == 0) continue;
    Sample* const pixels = row.pixels + 4 * static_cast<std::ptrdiff_t>(first);
    const float* const behind =
        row.behind != nullptr ? row.behind + 4 * static_cast<std::ptrdiff_t>(first) : nullptr;
    take(pixels, count, block);
    if (row.own != nullptr) {
      pullInside(finish.edgeColour, row.own + first,
                 row.inside + 4 * static_cast<std::ptrdiff_t>(first), count, block);
    }
    if (finish.spill > 0) takeSpill<Sample>(finish, behind, count, block);
    if (row.nearby != nullptr) {
      letLightIn<Sample>(finish.wrap, row.nearby + first, behind, count, block);
    }
    give(block, matte, count, pixels);
  }
}

}  // namespace
}  // namespace orvanite::ORVANITE_SIMD_TARGET
