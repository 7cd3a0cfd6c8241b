// SPDX-License-Identifier: BSD-3-Clause
//
// Loops along rows: every target that this processor runs beside the definition, bit by bit, on
// rows of every width up to beyond a block, of mattes that are clear, solid and in between.
#include "keyer/simd/RowTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "engine/targets/Target.h"

namespace orvanite {
namespace {

constexpr int reach = 3;

template <class Sample>
std::vector<Sample> samplesOf(std::mt19937& chance, int count) {
  std::vector<Sample> all(static_cast<std::size_t>(count));
  for (Sample& sample : all) {
    if constexpr (std::is_floating_point_v<Sample>) {
      const auto kind = chance() % 40;
      sample = kind == 0   ? 20000.0f
               : kind == 1 ? -20000.0f
                           : static_cast<float>(chance() % 70000) / 60000.0f - 0.05f;
    } else {
      sample = static_cast<Sample>(chance());
    }
  }
  return all;
}

std::vector<std::uint16_t> matteOf(std::mt19937& chance, int count) {
  std::vector<std::uint16_t> all(static_cast<std::size_t>(count));
  for (std::uint16_t& matte : all) {
    const auto kind = chance() % 3;
    matte = static_cast<std::uint16_t>(kind == 0 ? 0 : kind == 1 ? 65535 : chance());
  }
  return all;
}

/// Everything that a table makes of rows of a width, byte after byte.
class Results {
 public:
  Results(const RowTable& table, int width) : table_(table), width_(width), chance_(1) {
    mattes();
    guides();
    colours<std::uint8_t>();
    colours<std::uint16_t>();
    colours<float>();
  }
  bool operator==(const Results& other) const { return bytes_ == other.bytes_; }

 private:
  template <class T>
  void keep(const std::vector<T>& values) {
    const auto* first = reinterpret_cast<const char*>(values.data());
    bytes_.append(first, values.size() * sizeof(T));
  }

  void mattes() {
    const int wide = width_ + 40;
    std::vector<float> taps = {0.25f, 0.5f, 0.3f}, rows = samplesOf<float>(chance_, 3 * wide);
    std::vector<const float*> at = {rows.data(), rows.data() + wide,
                                    rows.data() + std::ptrdiff_t{2} * wide};
    std::vector<float> sums(static_cast<std::size_t>(width_));
    table_.weigh(taps.data(), at.data(), 3, width_, sums.data());
    keep(sums);
    const auto above = matteOf(chance_, wide), here = matteOf(chance_, wide);
    const auto below = matteOf(chance_, wide), other = matteOf(chance_, wide);
    std::uint16_t least = 65535, most = 0;
    table_.measure(here.data(), wide, 1, width_, least, most);
    std::vector<std::uint16_t> out = {least, most};
    keep(out);
    out = here;
    table_.turn(out.data(), width_);
    keep(out);
    for (const std::uint32_t part : {65536U, 20000U}) {
      table_.shrink(above.data(), here.data(), below.data(), part, width_, out.data());
      keep(out);
    }
    std::vector<std::int32_t> room(3 * static_cast<std::size_t>(wide), 70000);
    for (const int whole : {0, 1, 9, 19}) {
      for (const int part : {0, 100}) {
        std::fill(room.begin(), room.end(), 70000);
        table_.meanAlong(here.data(), whole, part, width_, room.data(), out.data());
        keep(out);
        std::fill(room.begin(), room.end(), 70000);
        table_.meanAcross(above.data(), here.data(), below.data(), other.data(), whole, part,
                          width_, room.data(), out.data());
        keep(out);
        keep(room);
      }
    }
    std::vector<std::int16_t> squares;
    for (const auto& row : {above, here, below}) {
      for (const std::uint16_t sample : row)
        squares.push_back(static_cast<std::int16_t>(sample / 4));
    }
    table_.nearer(squares.data(), squares.data() + wide, 9, width_,
                  squares.data() + 2 * std::ptrdiff_t{wide});
    keep(squares);
    // Three planes of three rows, then four of three rows of lines; one pixel more at either end.
    const auto planes = samplesOf<float>(chance_, 7 * 3 * wide);
    const float* const first = planes.data() + 1;
    const std::ptrdiff_t next = std::ptrdiff_t{3} * wide;
    const std::array three = {first, first + next, first + 2 * next, first + 3 * next};
    std::vector<float> lines(4 * static_cast<std::size_t>(wide));
    std::vector<std::uint16_t> words(lines.size());
    table_.fitChroma(three.data(), wide, width_, lines.data());
    keep(lines);
    std::uint16_t* const c = words.data();
    const std::vector<std::uint16_t*> to = {c, c + wide, c + std::ptrdiff_t{2} * wide};
    table_.leadChroma(three.data() + 1, three[0], wide, 0.7f, width_, to.data());
    keep(words);
    table_.words(first, wide, words.data());
    keep(words);
    for (const int repeats : {0, 2, 3, 8}) {
      const int cells = std::max(1, width_ / std::max(1, repeats));
      const int count = repeats > 0 ? cells * repeats : width_;
      std::vector<int> places;
      for (int x = 0; x < count; ++x) {
        places.push_back(repeats > 0 ? (x + (repeats + 1) / 2) / repeats : x * cells / count);
      }
      std::vector<float> room(static_cast<std::size_t>(cells + count + 2 * mostRepeats + 2), 7.0f);
      std::vector<float> values(static_cast<std::size_t>(count));
      const float* const shares = first + wide;
      table_.stretch({first, first + 2, 0.3f, cells, repeats, places.data(), shares, count},
                     room.data(), values.data());
      keep(values);
      for (int x = 0; x < count; ++x) {
        const auto cell = [&](int i) {
          const int held = std::clamp(i, 0, cells - 1);
          return first[held] + 0.3f * (first[held + 2] - first[held]);
        };
        const int at = places[static_cast<std::size_t>(x)];
        const float left = cell(at - 1), right = cell(at);
        EXPECT_EQ(values[static_cast<std::size_t>(x)], left + shares[x] * (right - left))
            << "column " << x << " of " << count << ", " << repeats << " to a cell";
      }
    }
    std::vector<int> found(2);
    found[0] = table_.wanted(here.data(), other.data(), width_, found[1]);
    keep(found);
    found[0] = table_.wanted(here.data(), nullptr, width_, found[1]);
    keep(found);
    found[0] = table_.soft(here.data(), width_, found[1]);
    keep(found);
    for (const bool before : {false, true}) {
      std::vector<int> at(static_cast<std::size_t>(width_));
      at.resize(
          static_cast<std::size_t>(table_.changes(here.data(), width_, 30000, before, at.data())));
      keep(at);
    }
  }

  void guides() {
    const int wide = width_ + 4 * guideReach;
    const std::ptrdiff_t stride = wide;
    std::array<std::vector<float>, 2 * guideReach + 1> values, lines;
    std::array<const float*, 2 * guideReach + 1> from{}, fitted{};
    for (std::size_t i = 0; i < values.size(); ++i) {
      values[i] = samplesOf<float>(chance_, 4 * wide);
      for (float& v : values[i]) v = std::clamp(v, 0.0f, 1.0f);
      from[i] = values[i].data() + guideReach;
    }
    for (std::size_t i = 0; i < lines.size(); ++i) {
      lines[i].resize(values[i].size());
      std::swap(from[0], from[i]);  // other rows, other lines
      table_.fitMatte(from.data(), stride, 0.001f, width_ + 2 * guideReach, lines[i].data());
      keep(lines[i]);
      fitted[i] = lines[i].data() + guideReach;
    }
    subject(values, stride);
    const auto was = matteOf(chance_, width_), uncut = matteOf(chance_, width_);
    std::vector<std::uint16_t> is(was.size());
    table_.followMatte(fitted.data(), values[2].data() + 2 * guideReach, stride, 0.9f, was.data(),
                       uncut.data(), width_, is.data());
    keep(is);
  }

  // Rows enter and leave the subject's sums; then the mattes of the last row are mixed.
  template <class Rows>
  void subject(const Rows& rows, std::ptrdiff_t stride) {
    const auto planes = static_cast<std::size_t>(subjectPlanes * stride);
    std::vector<std::int32_t> held(planes), sums(planes);
    const int wide = static_cast<int>(stride);
    for (const auto& row : rows)
      table_.gatherSubject(row.data(), stride, wide, held.data(), sums.data());
    keep(sums);
    std::vector<std::int32_t> other(planes);
    table_.gatherSubject(rows[0].data(), stride, wide, other.data(), sums.data());
    keep(sums);
    std::vector<float> mixed = rows[0];
    table_.mixMatte(
        {mixed.data(), rows[1].data(), sums.data(), stride, std::max(0, wide - 2 * subjectReach)});
    keep(mixed);
  }

  template <class Sample>
  void colours() {
    const ColourRows<Sample>& table = table_.colours<Sample>();
    const int wide = width_ + 2 * reach;
    const auto come = samplesOf<Sample>(chance_, 4 * wide);
    const auto go = samplesOf<Sample>(chance_, 4 * wide);
    const auto own = matteOf(chance_, wide), matte = matteOf(chance_, wide);
    const auto nearby = matteOf(chance_, wide);
    std::vector<SumOf<Sample>> line(come.size()), inside(come.size()), light(come.size());
    table.weigh(go.data(), matte.data(), wide, line.data(), inside.data());
    table.weigh(come.data(), own.data(), wide, line.data(), inside.data());
    keep(line);
    keep(inside);
    table.exchange(go.data(), nullptr, wide, light.data());
    table.exchange(come.data(), go.data(), wide, light.data());
    keep(light);
    for (const int step : {1, 4}) {
      const std::array<const Sample*, 3> channels = {come.data(), come.data() + 1, come.data() + 2};
      std::vector<float> planes(3 * static_cast<std::size_t>(wide));
      table.splitChroma(channels.data(), step, width_, wide, planes.data());
      keep(planes);
    }
    std::vector<float> guide(4 * static_cast<std::size_t>(wide));
    table.takeGuide({come.data(), come.data() + 1, come.data() + 2, 4, own.data()}, width_, wide,
                    guide.data());
    keep(guide);
    for (const std::ptrdiff_t step : {1, 3, 4}) {
      std::vector<std::uint16_t> uncut(static_cast<std::size_t>(width_));
      table.uncut(come.data(), step, own.data(), width_, uncut.data());
      keep(uncut);
    }
    const std::array<const Sample*, 3> clean = {go.data(), go.data() + 1, go.data() + 2};
    for (const std::ptrdiff_t step : {0, 1, 3, 4}) {  // 0: of one colour
      std::vector<Sample> recoloured = come;
      table.recolour({own.data(),
                      matte.data(),
                      step > 0 ? clean.data() : nullptr,
                      step,
                      {0.1f, 0.55f, 0.3f},
                      1,
                      recoloured.data(),
                      width_});
      keep(recoloured);
    }
    std::vector<float> within(come.size()), behind(come.size());
    table.slide(inside.data(), width_, reach, 0, within.data());
    table.slide(light.data(), width_, reach, 255.0f * 49, behind.data());
    keep(within);
    keep(behind);
    std::vector<Sample> pixels(come.size());
    table.prepare(come.data(), matte.data(), width_, pixels.data());
    keep(pixels);
    Finish finish;
    finish.edgeColour = 0.8f;
    finish.spillLimit = 0.3f;
    finish.wrap = 0.7f;
    for (const float spill : {0.0f, 0.9f}) {
      for (const auto replace : {SpillReplace::nothing, SpillReplace::grey,
                                 SpillReplace::brightness, SpillReplace::background}) {
        finish.spill = spill;
        finish.spillReplace = replace;
        std::vector<Sample> finished = pixels;
        table.finish(finish, {finished.data(), matte.data(), own.data(), within.data(),
                              behind.data(), nearby.data(), width_});
        keep(finished);
      }
    }
  }

  const RowTable& table_;
  int width_;
  std::mt19937 chance_;
  std::string bytes_;
};

TEST(RowTable, GivesTheBitsOfTheDefinitionOnEveryTarget) {
  int targets = 0;
  for (const Target& target : knownTargets()) {
    if (!target.supported()) continue;
    ASSERT_NE(rowTableFor(target.name), nullptr) << target.name;
    ++targets;
    for (int width = 1; width < 150; ++width) {
      const Results own(*rowTableFor(target.name), width);
      const Results defined(*rowTableFor("definition"), width);
      EXPECT_TRUE(own == defined) << target.name << ", " << width << " pixels";
    }
  }
  EXPECT_GE(targets, 1);
  EXPECT_EQ(rowTableFor("nonsense"), nullptr);
}

// 8 bits of a matte of 16 are its 257th, to the nearest; alpha's place takes what is missing.
TEST(RowTable, LeavesWhatAMatteLacks) {
  for (int matte = 0; matte <= 65535; ++matte) {
    const std::uint8_t pixel[4] = {1, 2, 3, 4};
    std::uint8_t out[4] = {};
    const auto sample = static_cast<std::uint16_t>(matte);
    rowTable().bytes.prepare(pixel, &sample, 1, out);
    ASSERT_EQ(out[3], 255 - (matte + 128) / 257) << matte;
    ASSERT_EQ(out[0] + out[1] + out[2], 6);
  }
}

}  // namespace
}  // namespace orvanite
