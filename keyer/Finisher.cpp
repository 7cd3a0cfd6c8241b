// SPDX-License-Identifier: BSD-3-Clause
//
// A frame is keyed whole before its first tile is finished: tiles look at what lies around them.
// After that the plate is not read any more, so the destination may take its place; the background
// is read pixel for pixel, and copied first where its surroundings count.
#include "keyer/Finisher.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <optional>

#include "base/Error.h"
#include "keyer/Keyer.h"
#include "keyer/Refine.h"
#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

constexpr int cellWidth = MattePlane::cellWidth, cellHeight = MattePlane::cellHeight;
// What is finished at once, whole cells: larger ones share more of what lies around them.
constexpr int tileWidth = 128, tileHeight = 64;
// What is refined at once, which looks further around.
constexpr int refinedWidth = 128, refinedHeight = 128;

template <class Sample>
OtileImage interleaved(Sample* first, int width) {
  return {first, first + 1, first + 2, first + 3, 4, 4 * width};
}

// The image from a pixel on; absent channels stay absent.
template <class Sample>
OtileImage from(OtileImage image, int x, int y) {
  const int step = std::is_floating_point_v<Sample> ? 4 : image.pixelStep;
  const std::ptrdiff_t offset =
      std::ptrdiff_t{image.lineStep} * y + static_cast<std::ptrdiff_t>(step) * x;
  for (void** channel : {&image.red, &image.green, &image.blue, &image.alpha}) {
    if (*channel) *channel = static_cast<Sample*>(*channel) + offset;
  }
  return image;
}

bool complete(const OtileImage& image) { return image.red && image.green && image.blue; }

// What is left of a matte under a garbage matte's code.
template <class Sample>
std::uint16_t cut(std::uint16_t matte, Sample garbage) {
  const auto kept = static_cast<std::uint32_t>(solid - MatteReader<Sample>::plain(garbage));
  return static_cast<std::uint16_t>((matte * kept + solid / 2) / solid);
}

}  // namespace

struct Finisher::Workspace {
  std::vector<std::byte> keyed, behind;  // pictures of four samples a pixel
  MattePlane plane;
  std::vector<std::uint16_t> own;  // the plane before specks went; empty: as it is
  std::vector<std::uint16_t> refined;
};

struct Finisher::Scratch {
  MatteTile matte, nearby, room;
  ColourScratch colours;
  std::vector<std::byte> foreground;
  RefineScratch refining;
};

Finisher::Finisher() : engine_(orvanite_new()), reader_(MatteReader<std::uint8_t>(Finish())) {
  if (!engine_) throw Error(Fault::failure, "keyer", "out of memory");
}

Finisher::~Finisher() = default;

void Finisher::prepare(const Settings& settings, const Finish& finish, Depth depth,
                       const Inputs& inputs) {
  finish_ = finish;
  depth_ = depth;
  const View view = settings.view(inputs);
  status_ = view == View::status;
  showsColours_ = !showsMatte(view);
  background_ = view == View::composite;
  reference_ = inputs.reference && settings.toggle("useReference");
  garbage_ = inputs.garbage && settings.toggle("useGarbageMatte");
  gradesBehind_ = false;
  const Settings standard;
  for (const char* name : {"bgExposure", "bgGamma", "bgOffset", "bgSaturation"}) {
    gradesBehind_ = gradesBehind_ || settings.text(name) != standard.text(name);
  }
  // The garbage matte cuts what the finish leaves: grown edges do not come back over it.
  Settings keying = settings;
  if (showsColours_) keying.setText("output", "unpremultiplied");
  Inputs keyed = inputs;
  keyed.background = keyed.garbage = false;
  keying.applyTo(engine_.get(), depth, keyed);
  if (const int result = orvanite_makeLuts(engine_.get()); result != 0) {
    throw Error(result == 3 ? Fault::failure : Fault::wrongUse, "keyer", tableProblem(result));
  }
  compositor_.prepare(settings, depth, inputs);
  withSampleOf(depth, [&]<class Sample>(std::type_identity<Sample>) {
    reader_ = MatteReader<Sample>(finish);
  });
}

bool Finisher::render(const Frame& frame, const Loop& loop) const {
  return withSampleOf(depth_, [&]<class Sample>(std::type_identity<Sample>) {
    return renderAs<Sample>(frame, loop);
  });
}

template <class Sample>
bool Finisher::renderAs(const Frame& frame, const Loop& loop) const {
  const Otile& pictures = frame.pictures;
  if (!complete(pictures.dst) || !pictures.dst.alpha || !complete(pictures.fg) ||
      ((background_ || finish_.looksBehind()) && !complete(pictures.bg)) ||
      (reference_ && !complete(pictures.ref)) || (garbage_ && !pictures.garbage.alpha)) {
    return false;
  }
  const auto space = workspaces_.take();
  space->keyed.resize(sizeof(Sample) * 4 * static_cast<std::size_t>(frame.width) *
                      static_cast<std::size_t>(frame.height));
  MattePlane& plane = space->plane;
  plane.resize(frame.width, frame.height);
  std::atomic<bool> refused = false;
  loop(plane.cellRows(), [&](int band) {
    if (!keyBand<Sample>(frame, band, *space)) refused = true;
  });
  if (!refused) {
    if (finish_.refine > 0) refine<Sample>(frame, *space, loop);
    const bool clears = finish_.islands > 0 || finish_.pinholes > 0;
    space->own.clear();
    if (clears && finish_.edgeColour > 0) space->own = plane.samples;
    removeIslands(plane, finish_.islands, loop);
    fillPinholes(plane, finish_.pinholes, loop);
    const OtileImage behind =
        finish_.looksBehind() ? behindOf<Sample>(frame, *space, loop) : OtileImage{};
    loop((frame.height + tileHeight - 1) / tileHeight, [&](int band) {
      const auto scratch = scratches_.take();
      const int y = band * tileHeight;
      for (int x = 0; x < frame.width; x += tileWidth) {
        const FrameArea area{x, y, std::min(tileWidth, frame.width - x),
                             std::min(tileHeight, frame.height - y)};
        if (!finishTile<Sample>(frame, *space, complete(behind) ? &behind : nullptr, area,
                                *scratch)) {
          refused = true;
        }
      }
    });
  }
  return !refused;
}

// Keys a row of cells and reads its matte.
template <class Sample>
bool Finisher::keyBand(const Frame& frame, int band, Workspace& space) const {
  const int y = band * cellHeight, rows = std::min(cellHeight, frame.height - y);
  auto* const keyed = reinterpret_cast<Sample*>(space.keyed.data());
  Otile tile{};
  tile.dst = from<Sample>(interleaved(keyed, frame.width), 0, y);
  tile.fg = from<Sample>(frame.pictures.fg, 0, y);
  tile.hold = from<Sample>(frame.pictures.hold, 0, y);
  tile.ref = from<Sample>(frame.pictures.ref, 0, y);
  if (orvanite_render(engine_.get(), bytesOf(depth_), frame.width, rows, &tile) != 0) return false;
  std::get<MatteReader<Sample>>(reader_).read(static_cast<const Sample*>(tile.dst.alpha),
                                              std::ptrdiff_t{frame.width} * rows,
                                              space.plane.row(y));
  space.plane.measure(band);
  return true;
}

// The plane's edges, and the colours that go with them.
template <class Sample>
void Finisher::refine(const Frame& frame, Workspace& space, const Loop& loop) const {
  MattePlane& plane = space.plane;
  space.refined.resize(plane.samples.size());
  const MatteRows matte{plane.row(0), frame.width, frame.height};
  const Pixels<Sample> plate(frame.pictures.fg, frame.width, frame.height);
  std::optional<Pixels<Sample>> screen, garbage;
  if (reference_) screen.emplace(frame.pictures.ref, frame.width, frame.height);
  if (garbage_) garbage.emplace(frame.pictures.garbage, frame.width, frame.height);
  const bool recolours = !finish_.graded && showsColours_;
  auto* const pixels = reinterpret_cast<Sample*>(space.keyed.data());
  const int columns = (frame.width + refinedWidth - 1) / refinedWidth;
  loop(columns * ((frame.height + refinedHeight - 1) / refinedHeight), [&](int tile) {
    const auto scratch = scratches_.take();
    const int left = tile % columns * refinedWidth, top = tile / columns * refinedHeight;
    const FrameArea soft = refineMatte(finish_, plate, screen ? &*screen : nullptr, matte,
                                       garbage ? &*garbage : nullptr,
                                       {left, top, std::min(refinedWidth, frame.width - left),
                                        std::min(refinedHeight, frame.height - top)},
                                       scratch->refining, space.refined.data());
    for (int y = soft.y; recolours && y < soft.y + soft.height; ++y) {
      const std::ptrdiff_t at = matte.at(soft.x, y) - matte.samples;
      std::array<const Sample*, 3> channels{};
      if (screen) {
        const std::ptrdiff_t there = screen->at(soft.x, y);
        channels = {screen->red + there, screen->green + there, screen->blue + there};
      }
      rowTable().colours<Sample>().recolour({matte.samples + at, space.refined.data() + at,
                                             screen ? channels.data() : nullptr,
                                             screen ? screen->pixelStep : 0, finish_.screen,
                                             finish_.primary, pixels + 4 * at, soft.width});
    }
  });
  plane.samples.swap(space.refined);
  loop(plane.cellRows(), [&](int band) { plane.measure(band); });
}

// The background as its light falls: graded, and out of the destination's way.
template <class Sample>
const OtileImage Finisher::behindOf(const Frame& frame, Workspace& space, const Loop& loop) const {
  const OtileImage& background = frame.pictures.bg;
  const bool shared = background.red == frame.pictures.dst.red;
  if (!gradesBehind_ && !shared) return background;
  space.behind.resize(space.keyed.size());
  const OtileImage copy = interleaved(reinterpret_cast<Sample*>(space.behind.data()), frame.width);
  loop(space.plane.cellRows(), [&](int band) {
    const int y = band * cellHeight, rows = std::min(cellHeight, frame.height - y);
    OtileImage source = from<Sample>(background, 0, y);
    const OtileImage to = from<Sample>(copy, 0, y);
    if (gradesBehind_) {
      if (!source.alpha) source.alpha = source.red;  // nobody looks at the copy's alpha
      compositor_.gradeBackground(source, to, frame.width, rows);
      return;
    }
    const Pixels<Sample> read(source, frame.width, rows);
    auto* out = static_cast<Sample*>(to.red);
    for (int row = 0; row < rows; ++row) {
      for (int x = 0; x < frame.width; ++x, out += 4) {
        const std::ptrdiff_t at = read.at(x, row);
        out[0] = read.red[at];
        out[1] = read.green[at];
        out[2] = read.blue[at];
      }
    }
  });
  return copy;
}

namespace {

// The one value of a matte in an area and as much as `border` around it; -1 where there are more.
int evenValue(const MattePlane& plane, const FrameArea& area, int border) {
  const auto cell = [](int v, int size, int count) { return std::clamp(v / size, 0, count - 1); };
  const int left = cell(area.x - border, cellWidth, plane.cellColumns());
  const int right = cell(area.x + area.width - 1 + border, cellWidth, plane.cellColumns());
  const int top = cell(area.y - border, cellHeight, plane.cellRows());
  const int bottom = cell(area.y + area.height - 1 + border, cellHeight, plane.cellRows());
  const std::uint16_t value = plane.low[plane.cell(left, top)];
  for (int row = top; row <= bottom; ++row) {
    for (int column = left; column <= right; ++column) {
      const std::size_t at = plane.cell(column, row);
      if (plane.low[at] != value || plane.high[at] != value) return -1;
    }
  }
  return value;
}

// A part of a plane with a border, the outermost pixels going on beyond it.
void load(const MattePlane& plane, const FrameArea& area, int border, MatteTile& tile) {
  tile.resize(area.width + 2 * border, area.height + 2 * border);
  const int left = area.x - border;
  const int before = std::clamp(-left, 0, tile.width);
  const int inside = std::clamp(plane.width - std::max(0, left), 0, tile.width - before);
  for (int y = 0; y < tile.height; ++y) {
    const std::uint16_t* const from =
        plane.row(std::clamp(area.y - border + y, 0, plane.height - 1));
    std::uint16_t* const to = tile.row(y);
    std::fill(to, to + before, from[0]);
    const int first = left + before;
    std::copy(from + first, from + first + inside, to + before);
    std::fill(to + before + inside, to + tile.width, from[plane.width - 1]);
  }
}

// Cuts a tile down by a border on each side.
void trim(MatteTile& tile, int border) {
  if (border == 0) return;
  const int width = tile.width - 2 * border, height = tile.height - 2 * border;
  for (int y = 0; y < height; ++y) {
    const std::uint16_t* const from = tile.row(y + border) + border;
    std::copy(from, from + width, tile.samples.data() + static_cast<std::ptrdiff_t>(y) * width);
  }
  tile.resize(width, height);
}

void fill(MatteTile& tile, const FrameArea& area, int value) {
  tile.resize(area.width, area.height);
  std::fill(tile.samples.begin(), tile.samples.end(), static_cast<std::uint16_t>(value));
}

// The status view shows the hold-out matte in red, which the finish knows nothing of.
template <class Sample>
void keepHoldOut(const Pixels<Sample>& keyed, const FrameArea& area, const MatteTile& matte,
                 const OtileImage& destination) {
  const int step = std::is_floating_point_v<Sample> ? 4 : destination.pixelStep;
  const std::uint16_t* here = matte.samples.data();
  for (int y = 0; y < area.height; ++y) {
    auto* red = static_cast<Sample*>(destination.red) + std::ptrdiff_t{destination.lineStep} * y;
    for (int x = 0; x < area.width; ++x, red += step, ++here) {
      const std::ptrdiff_t at = keyed.at(area.x + x, area.y + y);
      if (*red > 0 && keyed.red[at] > 0) *red = keyed.red[at];
    }
  }
}

}  // namespace

template <class Sample>
bool Finisher::finishTile(const Frame& frame, const Workspace& space, const OtileImage* behind,
                          const FrameArea& area, Scratch& scratch) const {
  const int around = finish_.wrap > 0 ? finish_.wrapReach : 0;
  const int border = moveBorder(finish_.shrink) + softenBorder(finish_.soften) + around;
  int even = evenValue(space.plane, area, border);
  if (even < 0) {
    // Cells are coarse: most that are not even are so only away from here.
    load(space.plane, area, border, scratch.matte);
    const std::vector<std::uint16_t>& samples = scratch.matte.samples;
    if (std::equal(samples.begin() + 1, samples.end(), samples.begin())) even = samples.front();
  }
  if (even >= 0) {
    fill(scratch.matte, area, even);
    if (around > 0) fill(scratch.nearby, area, even);
  } else {
    moveEdge(scratch.matte, finish_.shrink, scratch.room);
    soften(scratch.matte, finish_.soften, scratch.room);
    if (around > 0) {
      spread(scratch.matte, around, scratch.nearby, scratch.room);
      trim(scratch.matte, around);
    }
  }
  if (garbage_ && even != 0) {
    const Pixels<Sample> garbage(frame.pictures.garbage, frame.width, frame.height);
    std::uint16_t* matte = scratch.matte.samples.data();
    for (int y = area.y; y < area.y + area.height; ++y, matte += area.width) {
      const Sample* const codes = garbage.alpha + garbage.at(area.x, y);
      for (int x = 0; x < area.width; ++x) {
        matte[x] = cut(matte[x], codes[garbage.pixelStep * x]);
      }
    }
  }
  auto* const keyedSamples = reinterpret_cast<Sample*>(const_cast<std::byte*>(space.keyed.data()));
  const Pixels<Sample> keyed(interleaved(keyedSamples, frame.width), frame.width, frame.height);
  scratch.foreground.resize(sizeof(Sample) * 4 * tileWidth * tileHeight);
  auto* const foreground = reinterpret_cast<Sample*>(scratch.foreground.data());
  std::optional<Pixels<Sample>> light;
  if (behind) light.emplace(*behind, frame.width, frame.height);
  const MatteRows own{space.own.empty() ? space.plane.row(0) : space.own.data(), frame.width,
                      frame.height};
  finishColours(finish_, keyed, own, light ? &*light : nullptr, area, scratch.matte,
                around > 0 ? &scratch.nearby : nullptr, scratch.colours, foreground);
  const OtileImage destination = from<Sample>(frame.pictures.dst, area.x, area.y);
  const OtileImage background =
      background_ ? from<Sample>(frame.pictures.bg, area.x, area.y) : OtileImage{};
  const int result = compositor_.render(interleaved(foreground, area.width), background,
                                        destination, area.width, area.height);
  if (status_) keepHoldOut(keyed, area, scratch.matte, destination);
  return result == 0;
}

}  // namespace orvanite
