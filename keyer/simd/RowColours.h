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
  constexpr int block = 4 * blockPixels;
  const Sample nothing[block] = {};
  const std::ptrdiff_t samples = 4 * static_cast<std::ptrdiff_t>(count);
  for (std::ptrdiff_t first = 0; first < samples; first += block) {
    const auto some = static_cast<int>(samples - first < block ? samples - first : block);
    const Sample* const in = come + first;
    const Sample* const out = go != nullptr ? go + first : nothing;
    SumOf<Sample>* __restrict const sums = columns + first;
    for (int k = 0; k < some; ++k) {
      // 8191 in 65536ths is 2^29: the difference fits.
      sums[k] += static_cast<SumOf<Sample>>(counted(in[k]) - counted(out[k])) * evenWeight;
    }
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
void take(const Sample* pixels, int count, Block& block) {
  if constexpr (std::is_floating_point_v<Sample>) {
    for (int x = 0; x < count; ++x) {
      const Sample* const from = pixels + 4 * static_cast<std::ptrdiff_t>(x);
      for (int c = 0; c < 3; ++c) block.colour[c][x] = from[c];
    }
    std::memcpy(block.was, block.colour, sizeof block.was);
  } else {
    using Number = Packed<Sample>;
    for (int x = 0; x < count; ++x) {
      const Number packed = packedAt(pixels, x);
      for (int c = 0; c < 3; ++c) {
        const auto code =
            static_cast<std::int32_t>(static_cast<Sample>(packed >> shiftOf<Number>(c)));
        block.colour[c][x] = static_cast<float>(code);
      }
    }
  }
}

template <class Sample>
void give(Block& block, const std::uint16_t* matte, int count, Sample* pixels) {
  if constexpr (std::is_floating_point_v<Sample>) {
    std::int32_t changes[blockPixels];
    for (int x = 0; x < count; ++x) changes[x] = matte[x];
    for (int c = 0; c < 3; ++c) {
      for (int x = 0; x < count; ++x) {
        const float v = block.colour[c][x], was = block.was[c][x];
        const float now = v != was ? v : was;  // zeros keep their sign
        block.colour[c][x] = changes[x] != 0 ? now : was;
      }
    }
    for (int x = 0; x < count; ++x) {
      Sample* const to = pixels + 4 * static_cast<std::ptrdiff_t>(x);
      for (int c = 0; c < 3; ++c) to[c] = block.colour[c][x];
    }
  } else {
    using Number = Packed<Sample>;
    constexpr Number alpha = Number{std::is_same_v<Sample, std::uint8_t> ? 255 : 65535}
                             << shiftOf<Number>(3);
    for (int c = 0; c < 3; ++c) {
      float* const colour = block.colour[c];
      for (int x = 0; x < count; ++x) colour[x] = colour[x] < 0.0f ? 0.0f : colour[x];
      for (int x = 0; x < count; ++x) {
        colour[x] = fullOf<Sample> < colour[x] ? fullOf<Sample> : colour[x];
      }
    }
    std::int32_t codes[3][blockPixels];
    for (int c = 0; c < 3; ++c) {
      for (int x = 0; x < count; ++x) {
        codes[c][x] = static_cast<std::int32_t>(block.colour[c][x] + 0.5f);
      }
    }
    for (int x = 0; x < count; ++x) {
      const Number was = packedAt(pixels, x);
      Number now = was & alpha;
      for (int c = 0; c < 3; ++c) {
        now |= static_cast<Number>(static_cast<std::uint32_t>(codes[c][x])) << shiftOf<Number>(c);
      }
      now = matte[x] > 0 ? now : was;
      std::memcpy(pixels + 4 * static_cast<std::ptrdiff_t>(x), &now, sizeof now);
    }
  }
}

// Choices have loops of their own, else they become branches where lanes have no masks.
inline void choose(const std::int32_t* which, const float* values, int count,
                   float* __restrict colour) {
  for (int x = 0; x < count; ++x) colour[x] = which[x] != 0 ? values[x] : colour[x];
}

void pullInside(float edgeColour, const std::uint16_t* own, const float* inside, int count,
                Block& block) {
  float given[blockPixels], moved[blockPixels];
  std::int32_t soft[blockPixels];
  for (int x = 0; x < count; ++x) {
    const int softness = 65535 - own[x];
    soft[x] = softness;
    const float enough = inside[4 * x + 3] / enoughInside;
    given[x] = edgeColour * partOf(softness) * (enough < 1.0f ? enough : 1.0f);
  }
  for (int c = 0; c < 3; ++c) {
    for (int x = 0; x < count; ++x) {
      const float v = block.colour[c][x];
      moved[x] = v + given[x] * (inside[4 * x + c] - v);
    }
    choose(soft, moved, count, block.colour[c]);
  }
}

template <class Sample>
void takeSpill(const Finish& finish, const float* behind, int count, Block& block) {
  const int p = finish.primary;
  float* __restrict const primary = block.colour[p];
  const float* __restrict const one = block.colour[(p + 1) % 3];
  const float* __restrict const other = block.colour[(p + 2) % 3];
  float taken[blockPixels];
  std::int32_t spills[blockPixels];  // whether any is taken: what is a number or not stays so
  float greater[blockPixels], limit[blockPixels];
  for (int x = 0; x < count; ++x) greater[x] = one[x] > other[x] ? one[x] : other[x];
  for (int x = 0; x < count; ++x) {
    const float middle = (one[x] + other[x]) * 0.5f;
    limit[x] = middle + finish.spillLimit * (greater[x] - middle);
    taken[x] = finish.spill * (primary[x] - limit[x]);
  }
  for (int x = 0; x < count; ++x) spills[x] = primary[x] > limit[x] ? 1 : 0;
  float more[blockPixels];
  for (int x = 0; x < count; ++x) more[x] = primary[x] - taken[x];
  choose(spills, more, count, primary);
  switch (finish.spillReplace) {
    case SpillReplace::nothing:
      break;
    case SpillReplace::grey:
      for (int c = 0; c < 3; ++c) {
        for (int x = 0; x < count; ++x) {
          more[x] = block.colour[c][x] + taken[x] * lightOf[p];
        }
        choose(spills, more, count, block.colour[c]);
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
          more[x] = block.colour[c][x] * taken[x];
        }
        choose(spills, more, count, block.colour[c]);
      }
      break;
    case SpillReplace::background:
      for (int c = 0; c < 3; ++c) {
        for (int x = 0; x < count; ++x) {
          const float part = taken[x] * (1.0f / fullOf<Sample>);
          more[x] = block.colour[c][x] + part * behind[4 * x + c];
        }
        choose(spills, more, count, block.colour[c]);
      }
      break;
  }
}

// Light on light: the lighter of both at the least, full at the most.
template <class Sample>
void letLightIn(float wrap, const std::uint16_t* nearby, const float* behind, int count,
                Block& block) {
  float part[blockPixels], lit[blockPixels], least[blockPixels], room[blockPixels];
  std::int32_t lights[blockPixels];
  for (int x = 0; x < count; ++x) part[x] = wrap * partOf(65535 - nearby[x]);
  for (int c = 0; c < 3; ++c) {
    for (int x = 0; x < count; ++x) {
      const float v = block.colour[c][x];
      room[x] = 1.0f - v * (1.0f / fullOf<Sample>);
      lit[x] = v + part[x] * behind[4 * x + c] * room[x];
      least[x] = behind[4 * x + c];
    }
    // The least of the three is above 0 where all are; it is no number where room is none.
    for (int x = 0; x < count; ++x) least[x] = part[x] < least[x] ? part[x] : least[x];
    for (int x = 0; x < count; ++x) least[x] = least[x] < room[x] ? least[x] : room[x];
    for (int x = 0; x < count; ++x) lights[x] = least[x] > 0 ? 1 : 0;
    choose(lights, lit, count, block.colour[c]);
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
