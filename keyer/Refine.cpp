// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Refine.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <type_traits>

#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

constexpr int side = 2 * guideReach + 1;
static_assert(refineBorder == 2 * guideReach);

// What a colour's variance is as flat as: of the screen's strongest channel, squared, so that a
// plate that was shot darker is refined alike. Chosen on one draw of 120 plates: 0.0005 to 0.002
// serve.
constexpr float flatPart = 0.002f;
constexpr float leastFlat = 1e-5f;  // of numbers of single precision up to 1

template <class Sample>
constexpr float fullOf = std::is_floating_point_v<Sample> ? 1.0f
                         : sizeof(Sample) == 1            ? 255.0f
                                                          : 65535.0f;

// What is nearer to clear or solid than a code of eight bits is left as it is.
constexpr int nearly = solid / 255;

// Which pixels of a frame are refined: the soft ones, but for those that the garbage matte cuts
// whole.
template <class Sample>
struct Chosen {
  const MatteRows& matte;
  const Pixels<Sample>* garbage;

  bool operator()(int x, int y) const {
    const std::uint16_t own = *matte.at(x, y);
    if (own <= nearly || own >= solid - nearly) return false;
    return garbage == nullptr ||
           MatteReader<Sample>::plain(garbage->alpha[garbage->at(x, y)]) < solid;
  }
};

// The smallest rectangle within an area that holds the chosen pixels; of no width where there are
// none.
template <class Sample>
FrameArea softOf(const Chosen<Sample>& chosen, const FrameArea& area) {
  int left = area.width, right = -1, top = 0, bottom = -1;
  for (int y = 0; y < area.height; ++y) {
    const std::uint16_t* const row = chosen.matte.at(area.x, area.y + y);
    int first = 0;
    const int count = rowTable().wanted(row, row, area.width, first);
    int last = first + count - 1;
    while (first <= last && !chosen(area.x + first, area.y + y)) ++first;
    while (first <= last && !chosen(area.x + last, area.y + y)) --last;
    if (first > last) continue;
    if (right < 0) top = y;
    bottom = y;
    left = std::min(left, first);
    right = std::max(right, last);
  }
  if (right < 0) return {area.x, area.y, 0, 0};
  return {area.x + left, area.y + top, right - left + 1, bottom - top + 1};
}

}  // namespace

template <class Sample>
FrameArea refineMatte(const Finish& finish, const Pixels<Sample>& plate, const MatteRows& matte,
                      const Pixels<Sample>* garbage, const FrameArea& area, RefineScratch& scratch,
                      std::uint16_t* refined) {
  for (int y = area.y; y < area.y + area.height; ++y) {
    const std::uint16_t* const row = matte.at(area.x, y);
    std::copy_n(row, area.width, refined + (row - matte.samples));
  }
  const Chosen<Sample> chosen{matte, garbage};
  const FrameArea soft = softOf(chosen, area);
  if (soft.width == 0) return soft;
  // Rows of the plate lie `refineBorder` wider on each side, rows of lines `guideReach`.
  const int wide = soft.width + 2 * refineBorder, lined = soft.width + 2 * guideReach;
  const std::ptrdiff_t stride = wide;
  const auto kept = static_cast<std::size_t>(side) * 4 * static_cast<std::size_t>(wide);
  for (std::vector<float>* room : {&scratch.values, &scratch.lines}) {
    if (room->size() < kept) room->resize(kept);
  }
  if (scratch.led.size() < static_cast<std::size_t>(wide)) {
    scratch.led.resize(static_cast<std::size_t>(wide));
  }
  const float vivid = finish.screen[static_cast<std::size_t>(finish.primary)];
  const float flat = std::max(leastFlat, flatPart * vivid * vivid);
  const auto place = [&](std::vector<float>& room, int y) {
    return room.data() + 4 * stride * ((y + 2 * side) % side);
  };
  // Rows count from the first soft one.
  const int column = soft.x - refineBorder;
  const bool whole = column >= 0 && column + wide <= plate.width;
  std::array<std::vector<Sample>, 3> channels;
  std::vector<std::uint16_t> mattes;
  const auto take = [&](int y) {
    const int held = std::clamp(soft.y + y, 0, plate.height - 1);
    float* const to = place(scratch.values, y);
    const std::ptrdiff_t start = plate.at(whole ? column : 0, held);
    GuideRow<Sample> row{plate.red + start, plate.green + start, plate.blue + start,
                         plate.pixelStep, matte.at(whole ? column : 0, held)};
    if (!whole) {
      // The outermost go on.
      for (std::vector<Sample>& channel : channels) channel.resize(static_cast<std::size_t>(wide));
      mattes.resize(static_cast<std::size_t>(wide));
      for (int x = 0; x < wide; ++x) {
        const int from = std::clamp(column + x, 0, plate.width - 1);
        const std::ptrdiff_t at = from * plate.pixelStep;
        const auto i = static_cast<std::size_t>(x);
        channels[0][i] = row.red[at];
        channels[1][i] = row.green[at];
        channels[2][i] = row.blue[at];
        mattes[i] = row.matte[from];
      }
      row = {channels[0].data(), channels[1].data(), channels[2].data(), 1, mattes.data()};
    }
    rowTable().colours<Sample>().takeGuide(row, wide, stride, to);
  };
  const auto rowsAround = [&](std::vector<float>& room, int y, std::ptrdiff_t in) {
    std::array<const float*, side> rows{};
    for (int i = 0; i < side; ++i) {
      rows[static_cast<std::size_t>(i)] = place(room, y + i - guideReach) + in;
    }
    return rows;
  };
  const RowTable& rows = rowTable();
  for (int y = -refineBorder; y < soft.height + refineBorder; ++y) {
    take(y);
    const int fitted = y - guideReach;  // its rows are all there
    if (fitted < -guideReach) continue;
    rows.fitMatte(rowsAround(scratch.values, fitted, guideReach).data(), stride, flat, lined,
                  place(scratch.lines, fitted));
    const int done = fitted - guideReach;
    if (done < 0) continue;
    rows.followMatte(rowsAround(scratch.lines, done, guideReach).data(),
                     place(scratch.values, done) + refineBorder, stride, soft.width,
                     scratch.led.data());
    const std::uint16_t* const was = matte.at(soft.x, soft.y + done);
    std::uint16_t* const to = refined + (was - matte.samples);
    for (int x = 0; x < soft.width; ++x) {
      if (!chosen(soft.x + x, soft.y + done)) continue;
      const float own = static_cast<float>(was[x]) * (1.0f / solid);
      const float led = std::clamp(scratch.led[static_cast<std::size_t>(x)], 0.0f, 1.0f);
      to[x] = static_cast<std::uint16_t>((own + finish.refine * (led - own)) * solid + 0.5f);
    }
  }
  return soft;
}

template <class Sample>
void recolourRefined(const Finish& finish, const Sample* const* screen, std::ptrdiff_t step,
                     const std::uint16_t* was, const std::uint16_t* is, int count, Sample* pixels) {
  const int p = finish.primary, q = (p + 1) % 3, r = (p + 2) % 3;
  for (int x = 0; x < count; ++x, pixels += 4) {
    if (was[x] == is[x] || is[x] == 0) continue;
    const float before = static_cast<float>(was[x]), now = static_cast<float>(is[x]);
    std::array<float, 3> colour{};
    for (int c = 0; c < 3; ++c) {
      const auto i = static_cast<std::size_t>(c);
      const float seen = screen != nullptr ? static_cast<float>(screen[c][step * x])
                                           : finish.screen[i] * fullOf<Sample>;
      const auto own = static_cast<float>(pixels[c]);
      const float mixed = (before * own + (now - before) * seen) / now;
      colour[i] = std::max(mixed, std::min(own, 0.0f));
    }
    const auto at = [&](int c) -> float& { return colour[static_cast<std::size_t>(c)]; };
    const float most = std::max(0.5f * (at(q) + at(r)), static_cast<float>(pixels[p]));
    at(p) = std::min(at(p), most);
    for (int c = 0; c < 3; ++c) {
      if constexpr (std::is_floating_point_v<Sample>) {
        pixels[c] = at(c);
      } else {
        pixels[c] = static_cast<Sample>(std::min(at(c), fullOf<Sample>) + 0.5f);
      }
    }
  }
}

template FrameArea refineMatte(const Finish&, const Pixels<std::uint8_t>&, const MatteRows&,
                               const Pixels<std::uint8_t>*, const FrameArea&, RefineScratch&,
                               std::uint16_t*);
template FrameArea refineMatte(const Finish&, const Pixels<std::uint16_t>&, const MatteRows&,
                               const Pixels<std::uint16_t>*, const FrameArea&, RefineScratch&,
                               std::uint16_t*);
template FrameArea refineMatte(const Finish&, const Pixels<float>&, const MatteRows&,
                               const Pixels<float>*, const FrameArea&, RefineScratch&,
                               std::uint16_t*);
template void recolourRefined(const Finish&, const std::uint8_t* const*, std::ptrdiff_t,
                              const std::uint16_t*, const std::uint16_t*, int, std::uint8_t*);
template void recolourRefined(const Finish&, const std::uint16_t* const*, std::ptrdiff_t,
                              const std::uint16_t*, const std::uint16_t*, int, std::uint16_t*);
template void recolourRefined(const Finish&, const float* const*, std::ptrdiff_t,
                              const std::uint16_t*, const std::uint16_t*, int, float*);

}  // namespace orvanite
