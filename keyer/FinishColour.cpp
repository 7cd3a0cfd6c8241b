// SPDX-License-Identifier: BSD-3-Clause
//
// Which rows and columns are looked at is decided here; what is done to them lies in keyer/simd.
#include "keyer/FinishColour.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

// The pixels of a tile that a mean is wanted for: the smallest rectangle that holds them.
struct Wanted {
  int left = 1 << 30, right = -1, top = 0, bottom = -1;

  bool any() const { return right >= 0; }
  bool has(int y) const { return any() && y >= top && y <= bottom; }
  int width() const { return right - left + 1; }
  void add(int first, int count, int y) {
    if (count == 0) return;
    if (!any()) top = y;
    left = std::min(left, first);
    right = std::max(right, first + count - 1);
    bottom = y;
  }
};

template <class T>
T* roomFor(std::vector<std::byte>& room, std::size_t count) {
  if (room.size() < count * sizeof(T)) room.resize(count * sizeof(T));
  return reinterpret_cast<T*>(room.data());
}

// Means over a square of `reach` pixels each way around each wanted pixel of a tile, row by row
// from the first: running sums of the lines that enter and leave, columns first, then along the
// row.
template <class Sample>
class Means {
 public:
  // own  weighs pixels by how surely they are inside; null where all count alike
  Means(const Pixels<Sample>& from, const MatteRows* own, const FrameArea& area,
        const Wanted& wanted, int reach, std::vector<std::byte>& columns,
        std::vector<std::byte>& lines, ColourScratch& scratch)
      : from_(from),
        own_(own),
        scratch_(scratch),
        left_(area.x + wanted.left - reach),
        width_(wanted.width()),
        reach_(reach),
        wide_(wanted.width() + 2 * reach),
        interleaved_(from.pixelStep == 4 && from.green == from.red + 1 &&
                     from.blue == from.red + 2 && from.alpha == from.red + 3) {
    const std::size_t samples = 4 * static_cast<std::size_t>(wide_);
    const auto kept = static_cast<std::size_t>(2 * reach + 2);
    columns_ = roomFor<Sum>(columns, samples);
    std::fill_n(columns_, samples, Sum{});
    if (own_ != nullptr) {
      weighed_ = roomFor<Sum>(lines, samples * kept);
      std::fill_n(weighed_, samples * kept, Sum{});
    } else {
      plain_ = roomFor<Sample>(lines, samples * kept);
    }
    const int first = area.y + wanted.top;
    next_ = first - reach;
    start_ = next_;
    while (next_ < first + reach) enter();
  }

  // Writes the means of the next row, four floats a pixel.
  void row(float* means) {
    enter();
    const int side = 2 * reach_ + 1;
    const float weight = own_ != nullptr ? 0.0f : static_cast<float>(255 * side * side);
    rowTable().colours<Sample>().slide(columns_, width_, reach_, weight, means);
  }

 private:
  using Sum = SumOf<Sample>;

  void enter() {
    const int side = 2 * reach_ + 1, y = next_++;
    const int held = std::clamp(y, 0, from_.height - 1);
    if (own_ != nullptr) {
      const Sample* const pixels = line(held, nullptr);
      Sum* const was = weighed_ + place(y, side);
      rowTable().colours<Sample>().weigh(pixels, ownLine(held), wide_, was, columns_);
      return;
    }
    const Sample* const come = line(held, plain_ + place(y, side + 1));
    const int gone = y - side;
    const Sample* go = nullptr;
    if (gone >= start_) {
      go = isWhole() ? line(std::clamp(gone, 0, from_.height - 1), nullptr)
                     : plain_ + place(gone, side + 1);
    }
    rowTable().colours<Sample>().exchange(come, go, wide_, columns_);
  }

  // Where a line that comes round again lies.
  std::size_t place(int y, int count) const {
    return 4 * static_cast<std::size_t>(wide_) * static_cast<std::size_t>((y - start_) % count);
  }

  // Whether lines can be read where they are.
  bool isWhole() const { return interleaved_ && left_ >= 0 && left_ + wide_ <= from_.width; }

  // A line's pixels of four samples, the outermost going on beyond the frame.
  // to  where they are put together if need be; null: in room that the next line takes
  const Sample* line(int y, Sample* to) {
    if (isWhole()) return from_.red + from_.at(left_, y);
    if (to == nullptr) {
      to = roomFor<Sample>(scratch_.pixels, 4 * static_cast<std::size_t>(wide_));
    }
    Sample* out = to;
    int x = left_;
    const int end = left_ + wide_;
    const auto copyUntil = [&](int last) {
      for (; x < last; ++x, out += 4) {
        const std::ptrdiff_t at = from_.at(std::clamp(x, 0, from_.width - 1), y);
        out[0] = from_.red[at];
        out[1] = from_.green[at];
        out[2] = from_.blue[at];
        out[3] = Sample{};
      }
    };
    if (interleaved_) {
      copyUntil(std::min(0, end));
      const int inside = std::min(from_.width, end) - x;
      if (inside > 0) {
        out = std::copy_n(from_.red + from_.at(x, y), 4 * inside, out);
        x += inside;
      }
    }
    copyUntil(end);
    return to;
  }

  const std::uint16_t* ownLine(int y) {
    if (left_ >= 0 && left_ + wide_ <= own_->width) return own_->at(left_, y);
    scratch_.own.resize(static_cast<std::size_t>(wide_));
    const std::uint16_t* const row = own_->at(0, y);
    for (int x = 0; x < wide_; ++x) {
      scratch_.own[static_cast<std::size_t>(x)] = row[std::clamp(left_ + x, 0, own_->width - 1)];
    }
    return scratch_.own.data();
  }

  const Pixels<Sample>& from_;
  const MatteRows* own_;
  ColourScratch& scratch_;
  int left_, width_, reach_, wide_;
  bool interleaved_;
  int start_ = 0, next_ = 0;
  Sum* columns_ = nullptr;
  Sum* weighed_ = nullptr;
  Sample* plain_ = nullptr;
};

}  // namespace

template <class Sample>
MatteReader<Sample>::MatteReader(const Finish& finish) {
  if (!finish.clips()) return;
  constexpr int codes = std::is_same_v<Sample, std::uint8_t> ? 256 : 65536;
  curve_ = matteCurve(finish.black, finish.white, finish.gamma, codes);
}

template <class Sample>
void finishColours(const Finish& finish, const Pixels<Sample>& keyed, const MatteRows& own,
                   const Pixels<Sample>* behind, const FrameArea& area, const MatteTile& matte,
                   const MatteTile* nearby, ColourScratch& scratch, Sample* out) {
  const bool wraps = finish.wrap > 0 && behind && nearby;
  const bool spillsBehind =
      finish.spill > 0 && behind && finish.spillReplace == SpillReplace::background;
  // What of the tile has to be looked at.
  Wanted soft, lit;
  for (int y = 0; y < area.height; ++y) {
    int first = 0;
    if (finish.edgeColour > 0) {
      const std::uint16_t* const was = own.at(area.x, area.y + y);
      const int count = rowTable().wanted(matte.row(y), was, area.width, first);
      soft.add(first, count, y);
    }
    if (spillsBehind || wraps) {
      const std::uint16_t* const around = spillsBehind ? nullptr : nearby->row(y);
      const int count = rowTable().wanted(matte.row(y), around, area.width, first);
      lit.add(first, count, y);
    }
  }
  std::optional<Means<Sample>> inside, light;
  if (soft.any()) {
    inside.emplace(keyed, &own, area, soft, finish.edgeReach, scratch.columns, scratch.lines,
                   scratch);
  }
  if (lit.any()) {
    light.emplace(*behind, nullptr, area, lit, finish.wrapReach, scratch.behindColumns,
                  scratch.behindLines, scratch);
  }
  const std::size_t floats = 4 * static_cast<std::size_t>(area.width);
  for (std::vector<float>* means : {&scratch.inside, &scratch.behind}) {
    if (means->size() < floats) means->resize(floats);
  }
  for (int y = 0; y < area.height; ++y, out += std::ptrdiff_t{4} * area.width) {
    const Sample* const from = keyed.red + keyed.at(area.x, area.y + y);
    rowTable().colours<Sample>().prepare(from, matte.row(y), area.width, out);
    ColourRow<Sample> row{out, matte.row(y), nullptr, nullptr, nullptr, nullptr, area.width};
    if (soft.has(y)) {
      inside->row(scratch.inside.data() + std::ptrdiff_t{4} * soft.left);
      row.own = own.at(area.x, area.y + y);
      row.inside = scratch.inside.data();
    }
    if (lit.has(y)) {
      light->row(scratch.behind.data() + std::ptrdiff_t{4} * lit.left);
      row.behind = scratch.behind.data();
      if (wraps) row.nearby = nearby->row(y);
    }
    if (row.own != nullptr || row.nearby != nullptr ||
        (finish.spill > 0 && (!spillsBehind || row.behind != nullptr))) {
      rowTable().colours<Sample>().finish(finish, row);
    }
  }
}

template class MatteReader<std::uint8_t>;
template class MatteReader<std::uint16_t>;
template class MatteReader<float>;
template <class Sample>
using FinishColours = void(const Finish&, const Pixels<Sample>&, const MatteRows&,
                           const Pixels<Sample>*, const FrameArea&, const MatteTile&,
                           const MatteTile*, ColourScratch&, Sample*);
template FinishColours<std::uint8_t> finishColours<std::uint8_t>;
template FinishColours<std::uint16_t> finishColours<std::uint16_t>;
template FinishColours<float> finishColours<float>;

}  // namespace orvanite
