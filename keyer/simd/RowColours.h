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

template <class Sample>
void prepareRow(const Sample* pixels, const std::uint16_t* matte, int count, Sample* to) {
  for (int x = 0; x < count; ++x) {
    const Sample* const from = pixels + 4 * static_cast<std::ptrdiff_t>(x);
    Sample* const out = to + 4 * static_cast<std::ptrdiff_t>(x);
    out[0] = from[0];
    out[1] = from[1];
    out[2] = from[2];
    out[3] = missingOf(matte[x], from[3]);
  }
}

template <class Sample>
void weighColours(const Sample* pixels, const std::uint16_t* own, int count,
                  SumOf<Sample>* __restrict line, SumOf<Sample>* __restrict columns) {
  using Sum = SumOf<Sample>;
  for (int x = 0; x < count; ++x) {
    const Sample* const from = pixels + 4 * static_cast<std::ptrdiff_t>(x);
    Sum* const was = line + 4 * static_cast<std::ptrdiff_t>(x);
    Sum* const sum = columns + 4 * static_cast<std::ptrdiff_t>(x);
    const std::int32_t inside = own[x] > insideFrom ? own[x] - insideFrom : 0;
    const auto weight = static_cast<Sum>(inside >> 5);
    const Sum now[4] = {weight * static_cast<Sum>(counted(from[0])),
                        weight * static_cast<Sum>(counted(from[1])),
                        weight * static_cast<Sum>(counted(from[2])), weight};
    for (int c = 0; c < 4; ++c) {
      sum[c] += now[c] - was[c];
      was[c] = now[c];
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

// So many pixels at a time, each channel by itself.
constexpr int blockPixels = 64;

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

// Where a byte of a pixel lies in the number that its four bytes make.
constexpr int shiftOf(int channel) {
  return 8 * (std::endian::native == std::endian::little ? channel : 3 - channel);
}

template <class Sample>
void take(const Sample* pixels, int count, Block& block) {
  if constexpr (std::is_same_v<Sample, std::uint8_t>) {
    std::uint32_t packed[blockPixels];
    std::memcpy(packed, pixels, sizeof(std::uint32_t) * static_cast<std::size_t>(count));
    for (int c = 0; c < 3; ++c) {
      for (int x = 0; x < count; ++x) {
        block.colour[c][x] =
            static_cast<float>(static_cast<std::int32_t>((packed[x] >> shiftOf(c)) & 255U));
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
    std::uint32_t packed[blockPixels];
    std::memcpy(packed, pixels, sizeof(std::uint32_t) * static_cast<std::size_t>(count));
    constexpr std::uint32_t alpha = 255U << shiftOf(3);
    for (int x = 0; x < count; ++x) {
      std::uint32_t now = packed[x] & alpha;
      for (int c = 0; c < 3; ++c) {
        const float v = block.colour[c][x];
        const float above = v < 0.0f ? 0.0f : v;
        const float held = fullOf<Sample> < above ? fullOf<Sample> : above;
        now |= static_cast<std::uint32_t>(static_cast<std::int32_t>(held + 0.5f)) << shiftOf(c);
      }
      packed[x] = matte[x] > 0 ? now : packed[x];
    }
    std::memcpy(pixels, packed, sizeof(std::uint32_t) * static_cast<std::size_t>(count));
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
  for (int c = 0; c < 3; ++c) {
    for (int x = 0; x < count; ++x) {
      const float v = block.colour[c][x];
      const float part = wrap * partOf(65535 - nearby[x]);
      const float room = 1.0f - v * (1.0f / fullOf<Sample>);
      const float to = behind[4 * x + c];
      const float lit = v + part * to * room;
      const bool is = (nearby[x] < 65535) & (room > 0) & (to > 0);
      block.colour[c][x] = is ? lit : v;
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
