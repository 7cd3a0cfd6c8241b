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
#include <utility>

#include "keyer/simd/RowMattes.h"
#include "keyer/simd/RowTable.h"
#include "keyer/simd/RowWords.h"

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
      const auto sample = static_cast<Sum>(counted(pixels[at + k]));
      const Sum now = weights[k] * either((k & 3) == 3, Sum{1}, sample);
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

// Pixels of four numbers that are worked on at once: as many as a register holds, of wide numbers
// one, as more gain nothing.
template <class Number>
constexpr int pixelsTogether = sizeof(Number) > 4 ? 1 : static_cast<int>(lanes / 4);

template <int pixels, class Number>
struct PixelNumbers {
  typedef Number Type __attribute__((vector_size(4 * sizeof(Number) * std::size_t{pixels})));
};

// Nothing in the first `by` pixels, and then the first ones of v.
template <int by, class Vector, int... i>
inline Vector later(Vector v, std::integer_sequence<int, i...>) {
  constexpr int numbers = sizeof...(i);
  return __builtin_shufflevector(Vector{}, v, (i < 4 * by ? i : numbers + i - 4 * by)...);
}

// The last pixel of v in the place of each.
template <class Vector, int... i>
inline Vector lastOf(Vector v, std::integer_sequence<int, i...>) {
  constexpr int numbers = sizeof...(i);
  return __builtin_shufflevector(v, v, (numbers - 4 + i % 4)...);
}

// The fourth number of each pixel in the place of all four.
template <class Vector, int... i>
inline Vector fourthOf(Vector v, std::integer_sequence<int, i...>) {
  return __builtin_shufflevector(v, v, (i | 3)...);
}

// v with the fourth number of each pixel from another.
template <class Vector, int... i>
inline Vector withFourth(Vector v, Vector other, std::integer_sequence<int, i...>) {
  constexpr int numbers = sizeof...(i);
  return __builtin_shufflevector(v, other, (i % 4 == 3 ? numbers + i : i)...);
}

template <class Sample, bool even, int pixels>
inline void writeMeans(typename PixelNumbers<pixels, SumOf<Sample>>::Type sums, float weight,
                       float* means) {
  using Floats = typename PixelNumbers<pixels, float>::Type;
  constexpr std::make_integer_sequence<int, 4 * pixels> all;
  Floats mean = __builtin_convertvector(sums, Floats);
  if constexpr (even) {
    mean *= 1.0f / (weight * countedOne<Sample>);
    mean = withFourth(mean, Floats{} + weight * (1.0f / 255.0f), all);
  } else {
    const Floats own = fourthOf(mean, all);
    const Floats one = Floats{} + 1.0f;
    mean *= own == 0.0f ? Floats{} : one / (own * countedOne<Sample>);
    mean = withFourth(mean, own * (1.0f / 255.0f), all);
  }
  std::memcpy(means, &mean, sizeof mean);
}

// Sums go from pixel to pixel, as many at a time as a register holds.
template <class Sample, bool even>
void slideBy(const SumOf<Sample>* columns, int count, int reach, float weight, float* means) {
  using Sum = SumOf<Sample>;
  constexpr int together = pixelsTogether<Sum>;
  using One = typename PixelNumbers<1, Sum>::Type;
  using Some = typename PixelNumbers<together, Sum>::Type;
  constexpr std::make_integer_sequence<int, 4 * together> all;
  const auto read = [columns](int x, auto& sums) {
    std::memcpy(&sums, columns + 4 * static_cast<std::ptrdiff_t>(x), sizeof sums);
  };
  One sum = {};
  for (int i = 0; i <= 2 * reach; ++i) {
    One come;
    read(i, come);
    sum += come;
  }
  writeMeans<Sample, even, 1>(sum, weight, means);
  int x = 1;
  if constexpr (together > 1) {
    Some before = {};  // the sum so far, in the place of each
    for (int i = 0; i < together; ++i) {
      std::memcpy(reinterpret_cast<One*>(&before) + i, &sum, sizeof sum);
    }
    for (; x + together <= count; x += together) {
      Some come, go;
      read(x + 2 * reach, come);
      read(x - 1, go);
      Some steps = come - go;
      steps += later<1>(steps, all);
      if constexpr (together > 2) steps += later<2>(steps, all);
      writeMeans<Sample, even, together>(before + steps, weight,
                                         means + 4 * static_cast<std::ptrdiff_t>(x));
      before += lastOf(steps, all);
    }
    std::memcpy(&sum, &before, sizeof sum);
  }
  for (; x < count; ++x) {
    One come, go;
    read(x + 2 * reach, come);
    read(x - 1, go);
    sum += come - go;
    writeMeans<Sample, even, 1>(sum, weight, means + 4 * static_cast<std::ptrdiff_t>(x));
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

// Means of a block's pixels, likewise, and their weight.
struct BlockMeans {
  float of[4][blockPixels];
};

[[gnu::always_inline]] inline void split(const float* means, int count, BlockMeans& to) {
  for (int x = 0; x < count; ++x) {
    for (int c = 0; c < 4; ++c) to.of[c][x] = means[4 * static_cast<std::ptrdiff_t>(x) + c];
  }
}

template <class Sample>
[[gnu::always_inline]] inline void take(const Sample* pixels, int count, Block& block) {
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
[[gnu::always_inline]] inline void give(Block& block, const std::uint16_t* matte, int count,
                                        Sample* pixels) {
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
[[gnu::always_inline]] inline void choose(const std::int32_t* which, const float* values, int count,
                                          float* __restrict colour) {
  for (int x = 0; x < count; ++x) colour[x] = which[x] != 0 ? values[x] : colour[x];
}

[[gnu::always_inline]] inline void pullInside(float edgeColour, const std::uint16_t* own,
                                              const BlockMeans& inside, int count, Block& block) {
  float given[blockPixels], moved[blockPixels];
  std::int32_t soft[blockPixels];
  for (int x = 0; x < count; ++x) {
    const int softness = 65535 - own[x];
    soft[x] = softness;
    const float enough = inside.of[3][x] / enoughInside;
    given[x] = edgeColour * partOf(softness) * either(enough < 1.0f, enough, 1.0f);
  }
  for (int c = 0; c < 3; ++c) {
    for (int x = 0; x < count; ++x) {
      const float v = block.colour[c][x];
      moved[x] = v + given[x] * (inside.of[c][x] - v);
    }
    choose(soft, moved, count, block.colour[c]);
  }
}

template <class Sample>
[[gnu::always_inline]] inline void takeSpill(const Finish& finish, const BlockMeans& behind,
                                             int count, Block& block) {
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
          more[x] = block.colour[c][x] + part * behind.of[c][x];
        }
        choose(spills, more, count, block.colour[c]);
      }
      break;
  }
}

// Light on light: the lighter of both at the least, full at the most.
template <class Sample>
[[gnu::always_inline]] inline void letLightIn(float wrap, const std::uint16_t* nearby,
                                              const BlockMeans& behind, int count, Block& block) {
  float part[blockPixels], lit[blockPixels], least[blockPixels], room[blockPixels];
  std::int32_t lights[blockPixels];
  for (int x = 0; x < count; ++x) part[x] = wrap * partOf(65535 - nearby[x]);
  for (int c = 0; c < 3; ++c) {
    for (int x = 0; x < count; ++x) {
      const float v = block.colour[c][x];
      room[x] = 1.0f - v * (1.0f / fullOf<Sample>);
      lit[x] = v + part[x] * behind.of[c][x] * room[x];
      least[x] = behind.of[c][x];
    }
    // The least of the three is above 0 where all are; it is no number where room is none.
    for (int x = 0; x < count; ++x) least[x] = part[x] < least[x] ? part[x] : least[x];
    for (int x = 0; x < count; ++x) least[x] = least[x] < room[x] ? least[x] : room[x];
    for (int x = 0; x < count; ++x) lights[x] = least[x] > 0 ? 1 : 0;
    choose(lights, lit, count, block.colour[c]);
  }
}

template <class Sample>
[[gnu::always_inline]] inline void finishBlock(const Finish& finish, const ColourRow<Sample>& row,
                                               int first, int count) {
  const std::uint16_t* const matte = row.matte + first;
  std::uint16_t any = 0;
  for (int x = 0; x < count; ++x) any |= matte[x];
  if (any == 0) return;
  const std::ptrdiff_t at = 4 * static_cast<std::ptrdiff_t>(first);
  Block block;
  BlockMeans inside, behind;
  take(row.pixels + at, count, block);
  if (row.own != nullptr) {
    split(row.inside + at, count, inside);
    pullInside(finish.edgeColour, row.own + first, inside, count, block);
  }
  if (row.behind != nullptr) split(row.behind + at, count, behind);
  if (finish.spill > 0) takeSpill<Sample>(finish, behind, count, block);
  if (row.nearby != nullptr) {
    letLightIn<Sample>(finish.wrap, row.nearby + first, behind, count, block);
  }
  give(block, matte, count, row.pixels + at);
}

template <class Sample>
void finishRow(const Finish& finish, const ColourRow<Sample>& row) {
  eachBlock<blockPixels>(row.count,
                         [&](int first, int count) { finishBlock(finish, row, first, count); });
}

}  // namespace
}  // namespace orvanite::ORVANITE_SIMD_TARGET
