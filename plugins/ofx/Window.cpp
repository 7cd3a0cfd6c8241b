// SPDX-License-Identifier: BSD-3-Clause
//
// A band of lines becomes one tile. A picture that covers the band and lies as the engine reads it
// is used where it is; any other is staged: copied into four interleaved channels, with what lies
// outside the picture filled in.
#include "plugins/ofx/Window.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace orvanite::ofxPlugin {

namespace {

// One band of a job: which lines, and what goes where.
struct Band {
  const WindowJob& job;
  int first;
  int count;

  int width() const { return job.window.x2 - job.window.x1; }
  int y(int line) const { return job.firstLine + (first + line) * job.lineStride; }
  std::size_t pixelBytes() const { return static_cast<std::size_t>(4 * bytesOf(job.depth)); }
  std::size_t stagedRowBytes() const { return static_cast<std::size_t>(width()) * pixelBytes(); }
  std::size_t stagedBytes() const { return stagedRowBytes() * static_cast<std::size_t>(count); }
};

std::byte* pixelAt(const Picture& picture, int x, int y) {
  return picture.data + (std::ptrdiff_t{y} - picture.bounds.y1) * picture.rowBytes +
         (std::ptrdiff_t{x} - picture.bounds.x1) * picture.channels * bytesOf(picture.sample);
}

// Whether the engine keys the band fast in the picture itself. It reads integers of three channels
// too, but one by one: slower than a copy of four.
bool liesRight(const Picture& picture, const Band& band) {
  const Depth depth = band.job.depth;
  const ofx::RectI& window = band.job.window;
  const int last = band.y(band.count - 1);
  const bool covers = picture.bounds.x1 <= window.x1 && picture.bounds.x2 >= window.x2 &&
                      picture.bounds.y1 <= band.y(0) && picture.bounds.y2 > last;
  // Float kernels step four elements from pixel to pixel whatever they are told.
  const bool interleaved =
      picture.channels == 4 || (picture.channels == 1 && depth != Depth::floats);
  const std::ptrdiff_t step = picture.rowBytes * band.job.lineStride;
  const bool aligned = picture.rowBytes % bytesOf(depth) == 0 &&
                       reinterpret_cast<std::uintptr_t>(picture.data) %
                               static_cast<std::uintptr_t>(bytesOf(depth)) ==
                           0;
  constexpr std::ptrdiff_t limit = std::numeric_limits<int>::max();
  return isNative(picture.sample, depth) && covers && interleaved && aligned &&
         step / bytesOf(depth) < limit && step / bytesOf(depth) > -limit;
}

OtileImage imageAt(std::byte* data, Depth depth, int channels, std::ptrdiff_t lineBytes) {
  OtileImage image{};
  const auto channel = [&](int index) {
    return static_cast<void*>(data + std::ptrdiff_t{index} * bytesOf(depth));
  };
  if (channels >= 3) {
    image.red = channel(0);
    image.green = channel(1);
    image.blue = channel(2);
  }
  if (channels == 4) image.alpha = channel(3);
  if (channels == 1) image.alpha = channel(0);
  image.pixelStep = channels;
  image.lineStep = static_cast<int>(lineBytes / bytesOf(depth));
  return image;
}

// A pixel's bytes, repeated over n pixels.
void fill(std::byte* at, int n, const std::byte* pixel, std::size_t pixelBytes) {
  for (int i = 0; i < n; ++i)
    std::memcpy(at + static_cast<std::size_t>(i) * pixelBytes, pixel, pixelBytes);
}

// n pixels of 1, 3 or 4 channels become four: a lone alpha goes to alpha, a missing one is
// `opaque`.
void widen(std::byte* to, const std::byte* from, int n, int channels, Depth depth,
           const std::byte* opaque) {
  const auto element = static_cast<std::size_t>(bytesOf(depth));
  if (channels == 4) {
    std::memcpy(to, from, static_cast<std::size_t>(n) * 4 * element);
    return;
  }
  for (int i = 0; i < n;
       ++i, to += 4 * element, from += static_cast<std::size_t>(channels) * element) {
    if (channels == 3) {
      std::memcpy(to, from, 3 * element);
      std::memcpy(to + 3 * element, opaque, element);
    } else {
      std::memset(to, 0, 3 * element);
      std::memcpy(to + 3 * element, from, element);
    }
  }
}

struct PixelBytes {
  std::byte bytes[16]{};
};

PixelBytes screenPixel(const WindowJob& job) {
  PixelBytes pixel;
  for (int c = 0; c < 3; ++c) {
    writeCode(pixel.bytes + std::ptrdiff_t{c} * bytesOf(job.depth), job.depth,
              job.screen[static_cast<std::size_t>(c)]);
  }
  return pixel;
}

// Stages the band of a picture, or of none, and describes the copy.
OtileImage stage(const Picture* picture, const Band& band, const PixelBytes& outside,
                 std::byte* room, std::vector<std::byte>& row) {
  const Depth depth = band.job.depth;
  const ofx::RectI& window = band.job.window;
  PixelBytes opaque;
  writeCode(opaque.bytes, depth, 1.0f);
  for (int line = 0; line < band.count; ++line) {
    std::byte* staged = room + static_cast<std::size_t>(line) * band.stagedRowBytes();
    const int y = band.y(line);
    int from = window.x1;
    int to = window.x1;
    if (picture && y >= picture->bounds.y1 && y < picture->bounds.y2) {
      from = std::clamp(picture->bounds.x1, window.x1, window.x2);
      to = std::clamp(picture->bounds.x2, from, window.x2);
    }
    const std::size_t pixel = band.pixelBytes();
    const auto offset = [&](int x) { return static_cast<std::size_t>(x - window.x1) * pixel; };
    fill(staged, from - window.x1, outside.bytes, pixel);
    if (to > from) {
      const std::byte* at = pixelAt(*picture, from, y);
      if (!isNative(picture->sample, depth)) {
        const auto samples = static_cast<std::size_t>((to - from) * picture->channels);
        row.resize(samples * static_cast<std::size_t>(bytesOf(depth)));
        toWorking(row.data(), depth, at, picture->sample, samples);
        at = row.data();
      }
      widen(staged + offset(from), at, to - from, picture->channels, depth, opaque.bytes);
    }
    fill(staged + offset(to), window.x2 - to, outside.bytes, pixel);
  }
  return imageAt(room, depth, 4, static_cast<std::ptrdiff_t>(band.stagedRowBytes()));
}

// Writes a staged band of four channels to a destination of three or four.
void unstage(const Picture& dst, const Band& band, const std::byte* room) {
  const auto channels = static_cast<std::size_t>(dst.channels);
  const std::size_t pixel = channels * static_cast<std::size_t>(bytesOf(dst.sample));
  // Four channels go as one row; three leave every fourth staged sample out.
  const std::size_t samples = channels == 4 ? static_cast<std::size_t>(band.width()) * 4 : channels;
  const int steps = channels == 4 ? 1 : band.width();
  for (int line = 0; line < band.count; ++line) {
    const std::byte* from = room + static_cast<std::size_t>(line) * band.stagedRowBytes();
    std::byte* to = pixelAt(dst, band.job.window.x1, band.y(line));
    for (int step = 0; step < steps; ++step, from += band.pixelBytes(), to += pixel) {
      fromWorking(to, dst.sample, from, band.job.depth, samples);
    }
  }
}

// Lays the plate's own colours over what was keyed; outside the plate nothing changes.
void copyColours(const Band& band) {
  const Picture& dst = band.job.dst;
  const Picture& plate = *band.job.fg;
  const ofx::RectI inside = overlap(band.job.window, plate.bounds);
  const auto element = static_cast<std::size_t>(bytesOf(dst.sample));
  for (int line = 0; line < band.count; ++line) {
    const int y = band.y(line);
    if (y < inside.y1 || y >= inside.y2) continue;
    for (int x = inside.x1; x < inside.x2; ++x) {
      std::memcpy(pixelAt(dst, x, y), pixelAt(plate, x, y), 3 * element);
    }
  }
}

// Whether nothing of a band needs staging.
bool allLieRight(const Band& band) {
  const WindowJob& job = band.job;
  const auto right = [&](const std::optional<Picture>& picture) {
    return picture && liesRight(*picture, band);
  };
  return job.dst.channels == 4 && liesRight(job.dst, band) && right(job.fg) &&
         (!job.background || right(job.bg)) && (!job.hold || right(job.hold)) &&
         (!job.garbage || right(job.garbage)) && (!job.reference || right(job.reference)) &&
         job.sourceAlpha == SourceAlpha::ignore &&
         (!job.hold || job.holdChannel != MatteChannel::luminance) &&
         (!job.garbage || job.garbageChannel != MatteChannel::luminance);
}

// Finds, stages and makes the pictures of one band.
class TileMaker {
 public:
  TileMaker(const Band& band, Staging& staging)
      : band_(band), job_(band.job), staging_(staging), screen_(screenPixel(band.job)) {}

  OtileImage plate(const std::optional<Picture>& picture) { return input(picture, screen_); }
  OtileImage below(const std::optional<Picture>& picture) { return input(picture, {}); }

  // A matte is read through its alpha pointer alone.
  OtileImage matte(const std::optional<Picture>& picture, MatteChannel channel) {
    if (!picture) return {};
    OtileImage image{};
    if (picture->channels != 1 && channel == MatteChannel::luminance) {
      image = stage(&*picture, band_, {}, room(), row());
      luminanceToAlpha(image, area());
    } else {
      image = input(picture, {});
      void* const channels[] = {image.red, image.green, image.blue, image.alpha};
      if (picture->channels != 1) image.alpha = channels[static_cast<int>(channel)];
    }
    image.red = image.green = image.blue = nullptr;
    return image;
  }

  // The matte, and where the plate's alpha covers besides.
  OtileImage united(const OtileImage& matte, const OtileImage& plate, bool inverted) {
    OtileImage image =
        imageAt(room(), job_.depth, 4, static_cast<std::ptrdiff_t>(band_.stagedRowBytes()));
    unite(image, matte, plate, inverted, area());
    image.red = image.green = image.blue = nullptr;
    return image;
  }

  std::byte* room() {
    std::vector<std::byte>& piece = staging_[used_++];
    if (piece.size() < band_.stagedBytes()) piece.resize(band_.stagedBytes());
    return piece.data();
  }

 private:
  std::vector<std::byte>& row() { return staging_.back(); }
  MatteArea area() const { return {job_.depth, band_.width(), band_.count}; }

  OtileImage input(const std::optional<Picture>& picture, const PixelBytes& outside) {
    if (picture && liesRight(*picture, band_)) {
      return imageAt(pixelAt(*picture, job_.window.x1, band_.y(0)), job_.depth, picture->channels,
                     picture->rowBytes * job_.lineStride);
    }
    return stage(picture ? &*picture : nullptr, band_, outside, room(), row());
  }

  const Band& band_;
  const WindowJob& job_;
  Staging& staging_;
  std::size_t used_ = 0;
  PixelBytes screen_;
};

// All pictures of a band but its destination.
Otile inputsOf(const WindowJob& job, TileMaker& make) {
  Otile tile{};
  tile.fg = make.plate(job.fg);  // with its alpha: fast kernels load whole pixels
  if (job.background) tile.bg = make.below(job.bg);
  tile.hold = make.matte(job.hold, job.holdChannel);
  tile.garbage = make.matte(job.garbage, job.garbageChannel);
  if (job.sourceAlpha == SourceAlpha::insideMask) {
    tile.hold = make.united(tile.hold, tile.fg, false);
  } else if (job.sourceAlpha == SourceAlpha::multiply) {
    tile.garbage = make.united(tile.garbage, tile.fg, true);
  }
  if (job.reference) tile.ref = make.plate(job.reference);
  return tile;
}

// A picture of so many rows, from its other end.
void turnOver(OtileImage& image, int rows, Depth depth) {
  const std::ptrdiff_t bytes = std::ptrdiff_t{image.lineStep} * (rows - 1) * bytesOf(depth);
  for (void** channel : {&image.red, &image.green, &image.blue, &image.alpha}) {
    if (*channel) *channel = static_cast<std::byte*>(*channel) + bytes;
  }
  image.lineStep = -image.lineStep;
}

int keyBand(const Band& band, Staging& staging) {
  const WindowJob& job = band.job;
  TileMaker make(band, staging);
  Otile tile = inputsOf(job, make);
  const bool direct = job.dst.channels == 4 && liesRight(job.dst, band);
  std::byte* staged = direct ? nullptr : make.room();
  tile.dst =
      direct ? imageAt(pixelAt(job.dst, job.window.x1, band.y(0)), job.depth, 4,
                       job.dst.rowBytes * job.lineStride)
             : imageAt(staged, job.depth, 4, static_cast<std::ptrdiff_t>(band.stagedRowBytes()));

  const int result =
      orvanite_render(job.engine, bytesOf(job.depth), band.width(), band.count, &tile);
  if (result != 0) return result;
  if (!direct) unstage(job.dst, band, staged);
  if (job.sourceColours && job.fg) copyColours(band);
  return 0;
}

}  // namespace

int keyLines(const WindowJob& job, int first, int count, Staging& staging) {
  const int most = allLieRight({job, first, count}) ? count : stagedLines;
  for (int done = 0; done < count; done += most) {
    const int result = keyBand({job, first + done, std::min(most, count - done)}, staging);
    if (result != 0) return result;
  }
  return 0;
}

void keyPart(const WindowJob& job, const ofx::RectI& area,
             const std::function<void(const Frame&)>& render) {
  WindowJob whole = job;
  whole.window = area;
  whole.firstLine = area.y1;
  whole.lineStride = 1;
  whole.lines = area.y2 - area.y1;
  const Band band{whole, 0, whole.lines};
  Staging staging;
  TileMaker make(band, staging);
  Frame frame{inputsOf(whole, make), band.width(), band.count, job.depth};
  const auto rowBytes = static_cast<std::ptrdiff_t>(band.stagedRowBytes());
  std::vector<std::byte> keyed(band.stagedBytes());
  Otile& tile = frame.pictures;
  tile.dst = imageAt(keyed.data(), job.depth, 4, rowBytes);
  for (OtileImage* image : {&tile.dst, &tile.fg, &tile.bg, &tile.hold, &tile.garbage, &tile.ref}) {
    turnOver(*image, band.count, job.depth);
  }
  render(frame);

  WindowJob out = job;
  const Sample sample = job.depth == Depth::bytes    ? Sample::byte
                        : job.depth == Depth::shorts ? Sample::word
                                                     : Sample::real;
  out.fg = Picture{keyed.data(), area, rowBytes, 4, sample};
  copyLines(out, 0, out.lines, staging);
  if (job.sourceColours && job.fg) copyColours({job, 0, job.lines});
}

void copyLines(const WindowJob& job, int first, int count, Staging& staging) {
  std::vector<std::byte>& room = staging.front();
  for (int done = 0; done < count; done += stagedLines) {
    const Band band{job, first + done, std::min(stagedLines, count - done)};
    room.resize(band.stagedBytes());
    stage(job.fg ? &*job.fg : nullptr, band, PixelBytes{}, room.data(), staging.back());
    unstage(job.dst, band, room.data());
  }
}

bool isOpaque(const Picture& picture) {
  const int element = bytesOf(picture.sample);
  for (int y = picture.bounds.y1; y < picture.bounds.y2; ++y) {
    for (int x = picture.bounds.x1; x < picture.bounds.x2; ++x) {
      if (!(valueOf(pixelAt(picture, x, y) + std::ptrdiff_t{3} * element, picture.sample) >= 1)) {
        return false;
      }
    }
  }
  return true;
}

LineSet linesOf(const ofx::RectI& window, bool fieldOnly, bool lowerField) {
  if (isEmpty(window)) return {window.y1, 1, 0};
  if (!fieldOnly) return {window.y1, 1, window.y2 - window.y1};
  const bool startsLower = (window.y1 & 1) == 0;
  const int first = window.y1 + (startsLower == lowerField ? 0 : 1);
  return {first, 2, first < window.y2 ? (window.y2 - first + 1) / 2 : 0};
}

ofx::RectI grown(const ofx::RectI& window, int border, const ofx::RectI& whole) {
  return overlap({window.x1 - border, window.y1 - border, window.x2 + border, window.y2 + border},
                 whole);
}

ofx::RectI overlap(const ofx::RectI& a, const ofx::RectI& b) {
  return {std::max(a.x1, b.x1), std::max(a.y1, b.y1), std::min(a.x2, b.x2), std::min(a.y2, b.y2)};
}

}  // namespace orvanite::ofxPlugin
