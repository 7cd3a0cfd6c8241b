// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/FinishColour.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace orvanite {
namespace {

// Light of the three channels: ITU-R BT.709.
constexpr std::array<float, 3> light{0.2126f, 0.7152f, 0.0722f};

// The inside is what is more solid than this; how much more weighs it, up to 255.
constexpr int insideFrom = 57344;  // 7/8
// So many whole pixels of inside give their colour in full; fewer give less of it.
constexpr float enoughInside = 4;

template <class Sample>
constexpr float full = std::is_floating_point_v<Sample>
                           ? 1.0f
                           : static_cast<float>(std::is_same_v<Sample, std::uint8_t> ? 255 : 65535);

// Samples in the integers that are summed. Floats count in 65536ths and up to 8191 either way; NaN
// counts as 0.
template <class Sample>
std::int32_t counted(Sample v) {
  if constexpr (std::is_floating_point_v<Sample>) {
    constexpr float most = 8191;
    if (!(v == v)) return 0;
    return static_cast<std::int32_t>((v > -most ? (v < most ? v : most) : -most) * 65536.0f);
  } else {
    return static_cast<std::int32_t>(v);
  }
}

template <class Sample>
constexpr float countedOne = std::is_floating_point_v<Sample> ? 65536.0f : 1.0f;

// The pixels of a tile that a mean is wanted for: the smallest rectangle that holds them.
struct Wanted {
  int left = 1 << 30, right = -1, top = 0, bottom = -1;

  bool any() const { return right >= 0; }
  void add(int x, int y) {
    if (!any()) top = y;
    left = std::min(left, x);
    right = std::max(right, x);
    bottom = y;
  }
};

// Means over a square of `reach` pixels each way around each wanted pixel of a tile. Running sums
// of the lines that enter and leave: columns first, then along the row. Each line is weighed once.
//
// weigh  the weight, 0..255, of the pixel at a place
template <class Sample, class Sum, class Weigh>
void means(const Pixels<Sample>& from, const FrameArea& area, const Wanted& wanted, int reach,
           Weigh weigh, std::vector<Sum>& room, std::vector<Mean>& out) {
  const int width = wanted.right - wanted.left + 1;
  const int left = area.x + wanted.left - reach;
  const int lines = 2 * reach + 1;
  const std::size_t wide = static_cast<std::size_t>(width + 2 * reach) * 4;
  // The columns' sums, then the lines they are made of, each where it comes round again.
  room.assign(wide * static_cast<std::size_t>(lines + 1), 0);
  Sum* const columns = room.data();
  out.resize(static_cast<std::size_t>(area.width) * static_cast<std::size_t>(area.height));
  const auto enter = [&](int y) {
    Sum* const line = columns + wide * static_cast<std::size_t>(1 + (y + lines) % lines);
    for (std::size_t k = 0; k < wide; ++k) columns[k] -= line[k];
    const std::ptrdiff_t row = from.at(0, std::clamp(y, 0, from.height - 1));
    const auto put = [&](int x, std::ptrdiff_t at) {
      Sum* const to = line + std::ptrdiff_t{4} * (x - left);
      const auto weight = static_cast<Sum>(weigh(at));
      to[0] = weight * static_cast<Sum>(counted(from.red[at]));
      to[1] = weight * static_cast<Sum>(counted(from.green[at]));
      to[2] = weight * static_cast<Sum>(counted(from.blue[at]));
      to[3] = weight;
    };
    const int end = left + width + 2 * reach;
    const int begin = std::clamp(0, left, end), last = std::clamp(from.width, begin, end);
    for (int x = left; x < begin; ++x) put(x, row);
    for (int x = begin; x < last; ++x) put(x, row + x * from.pixelStep);
    for (int x = last; x < end; ++x) put(x, row + (from.width - 1) * from.pixelStep);
    for (std::size_t k = 0; k < wide; ++k) columns[k] += line[k];
  };
  const int first = area.y + wanted.top;
  for (int y = first - reach; y < first + reach; ++y) enter(y);
  for (int y = first; y <= area.y + wanted.bottom; ++y) {
    enter(y + reach);
    std::array<Sum, 4> sum{};
    const Sum* come = columns;
    for (int i = 0; i < 2 * reach; ++i, come += 4) {
      for (std::size_t c = 0; c < 4; ++c) sum[c] += come[c];
    }
    const Sum* go = columns;
    Mean* to = &out[static_cast<std::size_t>((y - area.y) * area.width + wanted.left)];
    for (int x = 0; x < width; ++x, come += 4, go += 4, ++to) {
      for (std::size_t c = 0; c < 4; ++c) sum[c] += come[c];
      const float weight = static_cast<float>(sum[3]);
      const float scale = sum[3] == 0 ? 0.0f : 1.0f / (weight * countedOne<Sample>);
      *to = {static_cast<float>(sum[0]) * scale, static_cast<float>(sum[1]) * scale,
             static_cast<float>(sum[2]) * scale, weight * (1.0f / 255.0f)};
      for (std::size_t c = 0; c < 4; ++c) sum[c] -= go[c];
    }
  }
}

// Sums of 8-bit samples fit 32 bits: 255 * 255 * 129 * 129.
template <class Sample, class Weigh>
void means(const Pixels<Sample>& from, const FrameArea& area, const Wanted& wanted, int reach,
           Weigh weigh, ColourScratch& scratch, std::vector<Mean>& out) {
  if constexpr (std::is_same_v<Sample, std::uint8_t>) {
    means(from, area, wanted, reach, weigh, scratch.shortSums, out);
  } else {
    means(from, area, wanted, reach, weigh, scratch.sums, out);
  }
}

template <class Sample>
Sample stored(float v) {
  if constexpr (std::is_floating_point_v<Sample>) {
    return v;
  } else {
    return static_cast<Sample>(std::clamp(v, 0.0f, full<Sample>) + 0.5f);
  }
}

// Full less a matte of 16 bits.
template <class Sample>
Sample missing(std::uint16_t matte, Sample own) {
  if constexpr (std::is_same_v<Sample, std::uint8_t>) {
    return static_cast<Sample>(255 - (matte + 128) / 257);
  } else if constexpr (std::is_same_v<Sample, std::uint16_t>) {
    return static_cast<Sample>(solid - matte);
  } else {
    if (matte == MatteReader<float>::plain(own)) return 1.0f - own;
    return 1.0f - static_cast<float>(matte) / static_cast<float>(solid);
  }
}

using Colour = std::array<float, 3>;

// A matte's value as a part of full.
float partOf(int matte) { return static_cast<float>(matte) * (1.0f / static_cast<float>(solid)); }

void pull(Colour& colour, const Mean& inside, float part) {
  const float given = part * std::min(1.0f, inside.weight / enoughInside);
  const Colour to{inside.red, inside.green, inside.blue};
  for (std::size_t c = 0; c < 3; ++c) colour[c] += given * (to[c] - colour[c]);
}

template <class Sample>
void despill(const Finish& finish, Colour& colour, const Mean* behind) {
  const auto p = static_cast<std::size_t>(finish.primary);
  const float a = colour[(p + 1) % 3], b = colour[(p + 2) % 3];
  const float greater = a > b ? a : b;
  const float middle = (a + b) * 0.5f;
  const float limit = middle + finish.spillLimit * (greater - middle);
  if (!(colour[p] > limit)) return;
  const float spill = finish.spill * (colour[p] - limit);
  colour[p] -= spill;
  switch (finish.spillReplace) {
    case SpillReplace::nothing:
      break;
    case SpillReplace::grey:
      for (float& v : colour) v += spill * light[p];
      break;
    case SpillReplace::brightness: {
      const float left = light[0] * colour[0] + light[1] * colour[1] + light[2] * colour[2];
      if (!(left > 0)) break;
      // At most as bright again: what is nearly black has no hue to be scaled.
      const float factor = std::min(2.0f, (left + spill * light[p]) / left);
      for (float& v : colour) v *= factor;
      break;
    }
    case SpillReplace::background: {
      const float part = spill * (1.0f / full<Sample>);
      colour[0] += part * behind->red;
      colour[1] += part * behind->green;
      colour[2] += part * behind->blue;
      break;
    }
  }
}

// Light on light: the lighter of both at the least, full at the most.
template <class Sample>
void wrap(Colour& colour, const Mean& behind, float part) {
  const Colour to{behind.red, behind.green, behind.blue};
  for (std::size_t c = 0; c < 3; ++c) {
    const float room = 1.0f - colour[c] * (1.0f / full<Sample>);
    if (room > 0 && to[c] > 0) colour[c] += part * to[c] * room;
  }
}

}  // namespace

template <class Sample>
MatteReader<Sample>::MatteReader(const Finish& finish)
    : curve_(std::is_same_v<Sample, std::uint8_t> ? 256
             : finish.clips()                     ? 65536
                                                  : 0) {
  if (finish.clips()) {
    curve_ = matteCurve(finish.black, finish.white, finish.gamma, static_cast<int>(curve_.size()));
  } else {
    for (std::size_t i = 0; i < curve_.size(); ++i) {
      curve_[i] = static_cast<std::uint16_t>(i * 257);
    }
  }
}

template <class Sample>
std::uint16_t MatteReader<Sample>::plain(Sample code) {
  if constexpr (std::is_same_v<Sample, std::uint8_t>) {
    return static_cast<std::uint16_t>(code * 257);
  } else if constexpr (std::is_same_v<Sample, std::uint16_t>) {
    return code;
  } else {
    // NaN is not above 0.
    const float held = code > 0 ? (code < 1 ? code : 1.0f) : 0.0f;
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(held * 65535.0f + 0.5f));
  }
}

template <class Sample>
void finishColours(const Finish& finish, const MatteReader<Sample>& reader,
                   const Pixels<Sample>& keyed, const Pixels<Sample>* behind, const FrameArea& area,
                   const MatteTile& matte, const MatteTile* nearby, ColourScratch& scratch,
                   Sample* out) {
  const std::uint16_t* const finished = matte.samples.data();
  const bool spills = finish.spill > 0;
  const bool wraps = finish.wrap > 0 && behind && nearby;
  const bool spillsBehind = spills && behind && finish.spillReplace == SpillReplace::background;

  // The tile as it is, and what of it has to be looked at.
  Wanted soft, lit;
  Sample* to = out;
  const std::uint16_t* here = finished;
  for (int y = 0; y < area.height; ++y) {
    const std::ptrdiff_t line = keyed.at(area.x, area.y + y);
    const Sample* const from = keyed.red + line;
    std::copy(from, from + std::ptrdiff_t{4} * area.width, to);
    for (int x = 0; x < area.width; ++x) to[4 * x + 3] = missing<Sample>(here[x], to[4 * x + 3]);
    if (finish.edgeColour > 0) {
      for (int x = 0; x < area.width; ++x) {
        if (here[x] > 0 && reader(from[4 * x + 3]) < solid) soft.add(x, y);
      }
    }
    if (spillsBehind || wraps) {
      const std::uint16_t* const around = nearby ? nearby->row(y) : nullptr;
      for (int x = 0; x < area.width; ++x) {
        if (here[x] > 0 && (spillsBehind || around[x] < solid)) lit.add(x, y);
      }
    }
    to += std::ptrdiff_t{4} * area.width;
    here += area.width;
  }
  if (soft.any()) {
    const auto inside = [&](std::ptrdiff_t at) {
      return std::max(0, reader(keyed.alpha[at]) - insideFrom) >> 5;
    };
    means(keyed, area, soft, finish.edgeReach, inside, scratch, scratch.inside);
  }
  if (lit.any()) {
    means(
        *behind, area, lit, finish.wrapReach, [](std::ptrdiff_t) { return 255; }, scratch,
        scratch.behind);
  }
  if (!soft.any() && !lit.any() && !spills) return;

  std::size_t i = 0;
  for (int y = area.y; y < area.y + area.height; ++y) {
    const Sample* const alpha = keyed.alpha + keyed.at(area.x, y);
    for (int x = 0; x < area.width; ++x, ++i) {
      if (finished[i] == 0) continue;
      Sample* const pixel = out + 4 * i;
      const Colour was{static_cast<float>(pixel[0]), static_cast<float>(pixel[1]),
                       static_cast<float>(pixel[2])};
      Colour colour = was;
      if (soft.any()) {
        const int softness = solid - reader(alpha[4 * x]);
        if (softness > 0) {
          pull(colour, scratch.inside[i], finish.edgeColour * partOf(softness));
        }
      }
      if (spills) {
        despill<Sample>(finish, colour, spillsBehind ? &scratch.behind[i] : nullptr);
      }
      if (wraps && nearby->samples[i] < solid) {
        const float open = partOf(solid - nearby->samples[i]);
        wrap<Sample>(colour, scratch.behind[i], finish.wrap * open);
      }
      for (std::size_t c = 0; c < 3; ++c) {
        if (colour[c] != was[c]) pixel[c] = stored<Sample>(colour[c]);
      }
    }
  }
}

#define ORVANITE_FOR_SAMPLES(Sample)                                                           \
  template class MatteReader<Sample>;                                                          \
  template void finishColours<Sample>(                                                         \
      const Finish&, const MatteReader<Sample>&, const Pixels<Sample>&, const Pixels<Sample>*, \
      const FrameArea&, const MatteTile&, const MatteTile*, ColourScratch&, Sample*);
ORVANITE_FOR_SAMPLES(std::uint8_t)
ORVANITE_FOR_SAMPLES(std::uint16_t)
ORVANITE_FOR_SAMPLES(float)
#undef ORVANITE_FOR_SAMPLES

}  // namespace orvanite
