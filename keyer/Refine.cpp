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

// Where the first and the last pixel of each of an area's rows lie that are refined, counted from
// its left: the soft ones, but for those that the garbage matte cuts whole. First above last: none.
// Returns the smallest rectangle that holds all; of no width: none.
template <class Sample>
FrameArea findSoft(const MatteRows& matte, const Pixels<Sample>* garbage, const FrameArea& area,
                   std::vector<RowSpan>& spans) {
  RowSpan all;
  int top = 0, bottom = -1;
  spans.assign(static_cast<std::size_t>(area.height), RowSpan());
  for (int y = 0; y < area.height; ++y) {
    const std::uint16_t* const row = matte.at(area.x, area.y + y);
    const Sample* const cut =
        garbage != nullptr ? garbage->alpha + garbage->at(area.x, area.y + y) : nullptr;
    const std::ptrdiff_t step = garbage != nullptr ? garbage->pixelStep : 0;
    const auto soft = [&](int x) {
      return row[x] > nearlyClear && row[x] < nearlySolid &&
             (cut == nullptr || MatteReader<Sample>::plain(cut[step * x]) < solid);
    };
    int first = 0;
    const int count = rowTable().wanted(row, row, area.width, first);
    int last = first + count - 1;
    while (first <= last && !soft(first)) ++first;
    while (first <= last && !soft(last)) --last;
    if (first > last) continue;
    if (bottom < 0) top = y;
    bottom = y;
    spans[static_cast<std::size_t>(y)] = {first, last};
    all = {std::min(all.first, first), std::max(all.last, last)};
  }
  if (bottom < 0) return {area.x, area.y, 0, 0};
  spans = {spans.begin() + top, spans.begin() + bottom + 1};
  for (RowSpan& span : spans) {
    if (span.first <= span.last) span = {span.first - all.first, span.last - all.first};
  }
  return {area.x + all.first, area.y + top, all.last - all.first + 1, bottom - top + 1};
}

// What all rows up to `reach` from one need.
RowSpan around(const std::vector<RowSpan>& spans, int y, int reach) {
  RowSpan all;
  const int end = std::min(static_cast<int>(spans.size()), y + reach + 1);
  for (int i = std::max(0, y - reach); i < end; ++i) {
    const RowSpan& one = spans[static_cast<std::size_t>(i)];
    all = {std::min(all.first, one.first), std::max(all.last, one.last)};
  }
  return all;
}

// A plate and its matte, row by row, from a column on that may lie before the frame's first: there
// its outermost pixels go on.
template <class Sample>
class Guide {
 public:
  Guide(const Pixels<Sample>& plate, const MatteRows& matte, int column, int wide)
      : plate_(plate),
        matte_(matte),
        column_(column),
        wide_(wide),
        whole_(column >= 0 && column + wide <= plate.width) {}

  // A row, that may lie above the frame or below it, as fitMatte takes it.
  void take(int y, std::ptrdiff_t stride, float* to) {
    const int held = std::clamp(y, 0, plate_.height - 1), column = whole_ ? column_ : 0;
    const std::ptrdiff_t start = plate_.at(column, held);
    const GuideRow<Sample> row{plate_.red + start, plate_.green + start, plate_.blue + start,
                               plate_.pixelStep, matte_.at(column, held)};
    rowTable().colours<Sample>().takeGuide(whole_ ? row : widened(row), wide_, stride, to);
  }

 private:
  GuideRow<Sample> widened(const GuideRow<Sample>& row) {
    const auto wide = static_cast<std::size_t>(wide_);
    for (std::vector<Sample>& channel : channels_) channel.resize(wide);
    mattes_.resize(wide);
    for (std::size_t i = 0; i < wide; ++i) {
      const int from = std::clamp(column_ + static_cast<int>(i), 0, plate_.width - 1);
      const std::ptrdiff_t at = from * row.step;
      channels_[0][i] = row.red[at];
      channels_[1][i] = row.green[at];
      channels_[2][i] = row.blue[at];
      mattes_[i] = row.matte[from];
    }
    return {channels_[0].data(), channels_[1].data(), channels_[2].data(), 1, mattes_.data()};
  }

  const Pixels<Sample>& plate_;
  const MatteRows& matte_;
  int column_, wide_;
  bool whole_;  // no part lies beyond the frame
  std::array<std::vector<Sample>, 3> channels_;
  std::vector<std::uint16_t> mattes_;
};

}  // namespace

template <class Sample>
FrameArea refineMatte(const Finish& finish, const Pixels<Sample>& plate, const MatteRows& matte,
                      const Pixels<Sample>* garbage, const FrameArea& area, RefineScratch& scratch,
                      std::uint16_t* refined) {
  for (int y = area.y; y < area.y + area.height; ++y) {
    const std::uint16_t* const row = matte.at(area.x, y);
    std::copy_n(row, area.width, refined + (row - matte.samples));
  }
  const FrameArea soft = findSoft(matte, garbage, area, scratch.spans);
  if (soft.width == 0) return soft;
  // Rows of the plate lie `refineBorder` wider on each side, rows of lines `guideReach`.
  const int wide = soft.width + 2 * refineBorder;
  const std::ptrdiff_t stride = wide;
  const auto kept = static_cast<std::size_t>(side) * 4 * static_cast<std::size_t>(wide);
  for (std::vector<float>* room : {&scratch.values, &scratch.lines}) {
    if (room->size() < kept) room->resize(kept);
  }
  const float vivid = finish.screen[static_cast<std::size_t>(finish.primary)];
  const float flat = std::max(leastFlat, flatPart * vivid * vivid);
  const auto place = [&](std::vector<float>& room, int y) {
    return room.data() + 4 * stride * ((y + 2 * side) % side);
  };
  Guide<Sample> guide(plate, matte, soft.x - refineBorder, wide);
  const auto rowsAround = [&](std::vector<float>& room, int y, std::ptrdiff_t in) {
    std::array<const float*, side> rows{};
    for (int i = 0; i < side; ++i) {
      rows[static_cast<std::size_t>(i)] = place(room, y + i - guideReach) + in;
    }
    return rows;
  };
  const RowTable& rows = rowTable();
  // Rows count from the first soft one.
  for (int y = -refineBorder; y < soft.height + refineBorder; ++y) {
    guide.take(soft.y + y, stride, place(scratch.values, y));
    const int fitted = y - guideReach;  // its rows are all there
    if (fitted < -guideReach) continue;
    const RowSpan lined = around(scratch.spans, fitted, guideReach);
    if (lined.first <= lined.last) {
      rows.fitMatte(rowsAround(scratch.values, fitted, guideReach + lined.first).data(), stride,
                    flat, lined.last - lined.first + side,
                    place(scratch.lines, fitted) + lined.first);
    }
    const int done = fitted - guideReach;
    if (done < 0) continue;
    const auto [first, last] = scratch.spans[static_cast<std::size_t>(done)];
    if (first > last) continue;
    const std::uint16_t* const was = matte.at(soft.x + first, soft.y + done);
    std::uint16_t* const is = refined + (was - matte.samples);
    const int count = last - first + 1;
    rows.followMatte(rowsAround(scratch.lines, done, guideReach + first).data(),
                     place(scratch.values, done) + refineBorder + first, stride, finish.refine, was,
                     count, is);
    if (garbage == nullptr) continue;
    const Sample* const codes = garbage->alpha + garbage->at(soft.x + first, soft.y + done);
    for (int x = 0; x < count; ++x) {
      const bool cut = MatteReader<Sample>::plain(codes[garbage->pixelStep * x]) == solid;
      is[x] = cut ? was[x] : is[x];
    }
  }
  return soft;
}

template <class Sample>
void recolourRefined(const Finish& finish, const Sample* const* screen, std::ptrdiff_t step,
                     const std::uint16_t* was, const std::uint16_t* is, int count, Sample* pixels) {
  RefinedRow<Sample> row{was, is, screen, step, finish.screen, finish.primary, pixels, count};
  for (float& v : row.colour) v *= fullOf<Sample>;
  rowTable().colours<Sample>().recolour(row);
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
