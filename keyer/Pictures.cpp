// SPDX-License-Identifier: BSD-3-Clause
//
// Bands of rows become frames for the keyer; see Pictures.h.
#include "keyer/Pictures.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <string_view>

#include "base/Error.h"
#include "keyer/Threads.h"

namespace orvanite {
namespace {

// Rows that are copied at once: they stay in the cache.
constexpr int bandRows = 16;

std::byte* at(const Picture& picture, int channel, int row) {
  return picture.channels[static_cast<std::size_t>(channel)] + picture.rowStride * row;
}

// Whether the engine keys a picture fast where it lies, at a depth: interleaved red, green, blue
// and alpha, and planes of integers. It reads integers of any other steps too, but one by one:
// slower than a copy. Of a matte one channel is read, at any step.
bool liesRight(const Picture& picture, Depth depth) {
  if (!isNative(picture.sample, depth)) return false;
  const auto& channels = picture.channels;
  const auto follows = [&](int channel) {
    return channels[static_cast<std::size_t>(channel)] ==
           channels[0] + std::ptrdiff_t{channel} * bytesOf(depth);
  };
  const bool planes = picture.pixelStride == bytesOf(depth);
  if (depth == Depth::floats || (picture.coloured() && !planes)) {
    const bool opaque = channels[3] == nullptr && depth != Depth::floats;
    if (picture.pixelStride != std::ptrdiff_t{4} * bytesOf(depth) || !follows(1) || !follows(2) ||
        !(opaque || follows(3))) {
      return false;
    }
  }
  constexpr std::ptrdiff_t limit = std::numeric_limits<int>::max();
  if (picture.pixelStride % bytesOf(depth) != 0 || picture.rowStride % bytesOf(depth) != 0)
    return false;
  if (std::abs(picture.rowStride / bytesOf(depth)) >= limit) return false;
  return std::all_of(picture.channels.begin(), picture.channels.end(), [&](const std::byte* first) {
    return reinterpret_cast<std::uintptr_t>(first) % static_cast<std::uintptr_t>(bytesOf(depth)) ==
           0;
  });
}

OtileImage imageOf(const Picture& picture, Depth depth, int row) {
  OtileImage image{};
  void** const pointers[] = {&image.red, &image.green, &image.blue, &image.alpha};
  for (int c = 0; c < 4; ++c) {
    if (picture.channels[static_cast<std::size_t>(c)]) *pointers[c] = at(picture, c, row);
  }
  image.pixelStep = static_cast<int>(picture.pixelStride / bytesOf(depth));
  image.lineStep = static_cast<int>(picture.rowStride / bytesOf(depth));
  return image;
}

// One thread's rows of four interleaved channels.
class Rows {
 public:
  OtileImage prepare(int width, int rows, Depth depth) {
    const auto row = static_cast<std::size_t>(width) * 4 * static_cast<std::size_t>(bytesOf(depth));
    bytes_.resize(row * static_cast<std::size_t>(rows));
    std::byte* const first = bytes_.data();
    return {first,
            first + bytesOf(depth),
            first + std::ptrdiff_t{2} * bytesOf(depth),
            first + std::ptrdiff_t{3} * bytesOf(depth),
            4,
            4 * width};
  }
  std::byte* sample(int width, Depth depth, int row, int channel) {
    const std::size_t index =
        (static_cast<std::size_t>(row) * static_cast<std::size_t>(width)) * 4 +
        static_cast<std::size_t>(channel);
    return bytes_.data() + index * static_cast<std::size_t>(bytesOf(depth));
  }

 private:
  std::vector<std::byte> bytes_;
};

struct Band {
  int first, count;
};

// Whether a picture's pixels are red, green and blue side by side and nothing else, at the depth
// that is keyed: as most pictures of other programs are.
bool isPacked(const Picture& picture, Depth depth) {
  const std::ptrdiff_t bytes = bytesOf(depth);
  const auto& c = picture.channels;
  return c[0] && !c[3] && isNative(picture.sample, depth) && picture.pixelStride == 3 * bytes &&
         c[1] == c[0] + bytes && c[2] == c[1] + bytes;
}

// A row of such pixels with an opaque alpha, and without it again. Rows of pictures may lie at odd
// addresses.
template <class T>
void unpackRow(std::byte* to, const std::byte* from, int width) {
  constexpr T opaque = std::is_floating_point_v<T> ? T{1} : std::numeric_limits<T>::max();
  for (int x = 0; x < width; ++x, from += 3 * sizeof(T), to += 4 * sizeof(T)) {
    std::memcpy(to, from, 3 * sizeof(T));
    std::memcpy(to + 3 * sizeof(T), &opaque, sizeof(T));
  }
}

template <class T>
void packRow(std::byte* to, const std::byte* from, int width) {
  for (int x = 0; x < width; ++x, to += 3 * sizeof(T), from += 4 * sizeof(T)) {
    std::memcpy(to, from, 3 * sizeof(T));
  }
}

// Copies a band in; a channel that a picture lacks is opaque (alpha) or that of its first channel.
OtileImage copyIn(const Picture& picture, const Band& band, Depth depth, Rows& rows) {
  const OtileImage image = rows.prepare(picture.width, band.count, depth);
  if (isPacked(picture, depth)) {
    withSampleOf(depth, [&]<class T>(std::type_identity<T>) {
      for (int y = 0; y < band.count; ++y) {
        unpackRow<T>(rows.sample(picture.width, depth, y, 0), at(picture, 0, band.first + y),
                     picture.width);
      }
    });
    return image;
  }
  const std::ptrdiff_t step = std::ptrdiff_t{4} * bytesOf(depth);
  for (int y = 0; y < band.count; ++y) {
    for (int c = 0; c < 4; ++c) {
      std::byte* to = rows.sample(picture.width, depth, y, c);
      if (!picture.channels[static_cast<std::size_t>(c)]) {
        for (int x = 0; x < picture.width; ++x, to += step) writeCode(to, depth, 1.0f);
        continue;
      }
      toWorking(to, depth, at(picture, c, band.first + y), picture.sample,
                static_cast<std::size_t>(picture.width), {step, picture.pixelStride});
    }
  }
  return image;
}

void copyOut(const Picture& picture, const Band& band, Depth depth, Rows& rows) {
  if (isPacked(picture, depth)) {
    withSampleOf(depth, [&]<class T>(std::type_identity<T>) {
      for (int y = 0; y < band.count; ++y) {
        packRow<T>(at(picture, 0, band.first + y), rows.sample(picture.width, depth, y, 0),
                   picture.width);
      }
    });
    return;
  }
  const std::ptrdiff_t step = std::ptrdiff_t{4} * bytesOf(depth);
  for (int y = 0; y < band.count; ++y) {
    for (int c = 0; c < 4; ++c) {
      if (!picture.channels[static_cast<std::size_t>(c)]) continue;
      fromWorking(at(picture, c, band.first + y), picture.sample,
                  rows.sample(picture.width, depth, y, c), depth,
                  static_cast<std::size_t>(picture.width), {picture.pixelStride, step});
    }
  }
}

bool isOpaque(const Picture& picture) {
  for (int y = 0; y < picture.height; ++y) {
    const std::byte* sample = at(picture, 3, y);
    for (int x = 0; x < picture.width; ++x, sample += picture.pixelStride) {
      if (!(valueOf(sample, picture.sample) >= 1)) return false;
    }
  }
  return true;
}

// Which channel of a picture is the matte.
MatteChannel matteOf(const Picture& picture, const Settings& settings, std::string_view parameter,
                     const std::string& role) {
  int count = 0, only = 3;
  for (int c = 3; c >= 0; --c) {
    if (picture.channels[static_cast<std::size_t>(c)]) only = c, ++count;
  }
  if (count == 1) return static_cast<MatteChannel>(only);
  if (settings.given(parameter)) {
    const std::string letter = settings.text(parameter);
    const std::size_t channel = std::string_view("RGBA").find(letter);
    if (letter.size() != 1 || channel == std::string_view::npos || !picture.channels[channel]) {
      throw Error::expected(Fault::wrongUse, role, "a channel that the picture has", letter);
    }
    return static_cast<MatteChannel>(channel);
  }
  if (!picture.channels[3] || (picture.coloured() && isOpaque(picture))) {
    if (!picture.coloured())
      throw Error(Fault::wrongUse, role, "expected alpha, one channel or three");
    return MatteChannel::luminance;
  }
  return MatteChannel::alpha;
}

// A frame's pictures with everything decided.
struct Job {
  const PictureFrame& frame;
  Depth depth;
  Inputs inputs;
  bool background;
  MatteChannel hold, garbage;

  // An absent alpha of a background is opaque: such a one is copied.
  bool inPlace(const Picture& picture) const { return liesRight(picture, depth); }
  bool backgroundInPlace() const {
    return frame.background.channels[3] != nullptr && inPlace(frame.background);
  }
  bool matteInPlace(const Picture& picture, MatteChannel channel) const {
    return channel != MatteChannel::luminance && inPlace(picture);
  }
  bool resultInPlace() const {
    return frame.result.coloured() && frame.result.channels[3] && inPlace(frame.result);
  }
  bool allInPlace() const {
    return inPlace(frame.plate) && (!background || backgroundInPlace()) &&
           (!inputs.holdOut || matteInPlace(frame.holdOut, hold)) &&
           (!inputs.garbage || matteInPlace(frame.garbage, garbage)) &&
           (!inputs.reference || inPlace(frame.cleanPlate)) && resultInPlace();
  }
};

// One thread's room.
struct Room {
  std::array<Rows, 6> rows;
};

// Keys a band by `key`, which is handed its pictures at the job's depth.
template <class Key>
void keyBand(const Job& job, const Band& band, Room& room, const Key& key) {
  const PictureFrame& f = job.frame;
  std::size_t used = 0;
  const auto in = [&](const Picture& picture, bool inPlace) {
    if (inPlace) return imageOf(picture, job.depth, band.first);
    return copyIn(picture, band, job.depth, room.rows[used++]);
  };
  const auto matte = [&](const Picture& picture, MatteChannel channel) {
    OtileImage image = in(picture, job.matteInPlace(picture, channel));
    if (channel == MatteChannel::luminance) {
      luminanceToAlpha(image, {job.depth, picture.width, band.count});
    } else {
      void* const channels[] = {image.red, image.green, image.blue, image.alpha};
      image.alpha = channels[static_cast<int>(channel)];
    }
    image.red = image.green = image.blue = nullptr;
    return image;
  };
  Frame keyed;
  keyed.width = f.plate.width;
  keyed.height = band.count;
  keyed.depth = job.depth;
  Otile& tile = keyed.pictures;
  tile.fg = in(f.plate, job.inPlace(f.plate));
  if (job.background) tile.bg = in(f.background, job.backgroundInPlace());
  if (job.inputs.holdOut) tile.hold = matte(f.holdOut, job.hold);
  if (job.inputs.garbage) tile.garbage = matte(f.garbage, job.garbage);
  if (job.inputs.reference) tile.ref = in(f.cleanPlate, job.inPlace(f.cleanPlate));
  if (job.resultInPlace()) {
    tile.dst = imageOf(f.result, job.depth, band.first);
    key(keyed);
  } else {
    Rows& rows = room.rows[used];
    tile.dst = rows.prepare(f.plate.width, band.count, job.depth);
    key(keyed);
    copyOut(f.result, band, job.depth, rows);
  }
}

void checkFit(const Picture& picture, const Picture& plate, const std::string& role) {
  checkPicture(picture, role);
  if (picture.width == plate.width && picture.height == plate.height) return;
  const auto size = [](const Picture& p) {
    return std::to_string(p.width) + "x" + std::to_string(p.height);
  };
  throw Error::expected(Fault::wrongUse, role, "the plate's size, " + size(plate), size(picture));
}

}  // namespace

void checkPicture(const Picture& picture, const std::string& role) {
  if (picture.width < 1 || picture.height < 1 || picture.width > (1 << 24) ||
      picture.height > (1 << 24)) {
    throw Error(Fault::wrongUse, role, "expected a width and a height of at least 1 pixel");
  }
  const std::ptrdiff_t sample = bytesOf(picture.sample);
  if ((picture.width > 1 && std::abs(picture.pixelStride) < sample) ||
      (picture.height > 1 && std::abs(picture.rowStride) < sample)) {
    throw Error(Fault::wrongUse, role, "expected strides of at least one sample");
  }
}

void PictureKeyer::render(const Settings& settings, const PictureFrame& frame, int threads,
                          const BlindKey* estimates) {
  if (!frame.plate.coloured()) {
    throw Error(Fault::wrongUse, "plate", "expected a picture with red, green and blue");
  }
  checkPicture(frame.plate, "plate");
  if (!frame.result.present()) throw Error(Fault::wrongUse, "result", "expected a picture");
  checkFit(frame.result, frame.plate, "result");
  if (threads < 0) throw Error(Fault::wrongUse, "threads", "expected 0 or more");

  Inputs inputs;
  inputs.background = frame.background.present();
  inputs.holdOut = frame.holdOut.present() && settings.toggle("useHoldOutMatte");
  inputs.garbage = frame.garbage.present() && settings.toggle("useGarbageMatte");
  inputs.reference = frame.cleanPlate.present() && settings.toggle("useReference");
  const bool background = needsBackground(settings, inputs);
  const auto colours = [&](const Picture& picture, const std::string& role) {
    if (!picture.coloured()) {
      throw Error(Fault::wrongUse, role, "expected a picture with red, green and blue");
    }
    checkFit(picture, frame.plate, role);
  };
  if (background) colours(frame.background, "background");
  if (inputs.reference) colours(frame.cleanPlate, "clean plate");
  MatteChannel hold = MatteChannel::alpha, garbage = MatteChannel::alpha;
  if (inputs.holdOut) {
    checkFit(frame.holdOut, frame.plate, "hold-out matte");
    hold = matteOf(frame.holdOut, settings, "holdOutChannel", "hold-out matte");
  }
  if (inputs.garbage) {
    checkFit(frame.garbage, frame.plate, "garbage matte");
    garbage = matteOf(frame.garbage, settings, "garbageChannel", "garbage matte");
  }

  const Depth depth = workingDepth(frame.plate.sample, inputs.reference);
  const Job job{frame, depth, inputs, background, hold, garbage};
  const Band everything{0, frame.plate.height};
  if (keysBesideEstimates(settings, inputs)) {
    const SearchedPlate searched(frame.plate);
    const BlindKey own = estimates ? estimates->carriedTo(searched.plate(), rowsOn(threads))
                                   : findKey(searched.plate(), settings, {}, rowsOn(threads));
    beside_.prepare(own, settings, depth, inputs);
    Room whole;
    keyBand(job, everything, whole, [&](const Frame& f) { beside_.render(own, f, threads); });
    return;
  }
  keyer_.prepare(settings, depth, inputs);
  if (keyer_.finishes()) {
    Room whole;
    keyBand(job, everything, whole, [&](const Frame& f) { keyer_.render(f, threads); });
    return;
  }
  const bool inPlace = job.allInPlace();
  const auto bands = [&](int first, int count) {
    // Kept from band to band and from frame to frame.
    thread_local Room room;
    const int most = inPlace ? count : bandRows;
    for (int done = 0; done < count; done += most) {
      keyBand(job, {first + done, std::min(most, count - done)}, room,
              [&](const Frame& f) { keyer_.render(f, 1); });
    }
  };
  // By reference: a frame that lies right takes no memory.
  rowsOn(threads)(frame.plate.height, bandRows, std::cref(bands));
}

SearchedPlate::SearchedPlate(const Picture& picture) {
  if (!picture.coloured()) {
    throw Error(Fault::wrongUse, "plate", "expected a picture with red, green and blue");
  }
  checkPicture(picture, "plate");
  const Depth depth = workingDepth(picture.sample, false);
  plate_.width = picture.width;
  plate_.height = picture.height;
  plate_.depth = depth;
  if (liesRight(picture, depth)) {
    plate_.image = imageOf(picture, depth, 0);
    return;
  }
  const std::ptrdiff_t pixel = std::ptrdiff_t{3} * bytesOf(depth);
  copy_.resize(static_cast<std::size_t>(pixel) * static_cast<std::size_t>(picture.width) *
               static_cast<std::size_t>(picture.height));
  for (int c = 0; c < 3; ++c) {
    std::byte* to = copy_.data() + std::ptrdiff_t{c} * bytesOf(depth);
    for (int y = 0; y < picture.height; ++y, to += pixel * picture.width) {
      toWorking(to, depth, at(picture, c, y), picture.sample,
                static_cast<std::size_t>(picture.width), {pixel, picture.pixelStride});
    }
  }
  std::byte* const first = copy_.data();
  plate_.image = {
      first, first + bytesOf(depth), first + std::ptrdiff_t{2} * bytesOf(depth), nullptr,
      3,     3 * picture.width};
}

}  // namespace orvanite
