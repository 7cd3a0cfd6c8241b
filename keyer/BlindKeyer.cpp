// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/BlindKeyer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/Error.h"
#include "keyer/Chroma.h"
#include "keyer/simd/RowTable.h"

namespace orvanite {
namespace {

constexpr int bandRows = 16;

// Pixels that are brought to words, keyed and brought back at once: they stay in the second cache.
constexpr int blockPixels = 8192;

// Rows that are finished at once, and the most that are keyed around them for that: around more a
// frame is finished whole.
constexpr int finishedRows = 96, mostBorder = 24;

// The block's own thread.
constexpr auto inOneBand = [](int height, int, const std::function<void(int, int)>& work) {
  work(0, height);
};

/// Parameters that are colours are codes; the engine is handed what is keyed.
Settings inKeyedValues(Settings settings, bool decodes, float white) {
  for (const Parameter& parameter : parameters()) {
    if (parameter.type != ParameterType::colour) continue;
    if (parameter.name == "fgBias") continue;  // only its hue counts
    std::array<double, 3> colour{};
    for (int c = 0; c < 3; ++c) {
      const float v = settings.number(parameter.name, c);
      colour[static_cast<std::size_t>(c)] =
          static_cast<double>(decodes ? lightOfCode(v) : v / white);
    }
    settings.setNumbers(parameter.name, colour[0], colour[1], colour[2]);
  }
  if (white == 1) return settings;
  settings.setNumber("screenRange", static_cast<double>(settings.number("screenRange") / white));
  // A grade e v^(1/g) + o of values that are divided by the white w: w^(1/g - 1) e v^(1/g) + o / w.
  for (const auto& [gamma, exposure, offset] : {std::array{"gamma", "exposure", "offset"},
                                                std::array{"bgGamma", "bgExposure", "bgOffset"}}) {
    std::array<double, 3> e{}, o{};
    for (int c = 0; c < 3; ++c) {
      const double power = 1 / static_cast<double>(settings.number(gamma, c)) - 1;
      const auto i = static_cast<std::size_t>(c);
      e[i] = static_cast<double>(settings.number(exposure, c)) *
             std::pow(static_cast<double>(white), power);
      o[i] = static_cast<double>(settings.number(offset, c) / white);
    }
    settings.setNumbers(exposure, e[0], e[1], e[2]);
    settings.setNumbers(offset, o[0], o[1], o[2]);
  }
  return settings;
}

}  // namespace

void BlindKeyer::prepare(const BlindKey& key, const Settings& settings, Depth depth,
                         const Inputs& inputs, float scale, float white) {
  depth_.reset();
  settings.expectStill();
  const Mixing mixing = mixingOf(settings).value_or(key.mixing);
  const bool lit = key.encoding == Encoding::light;
  const bool decodes = mixing == Mixing::light && !lit;
  const float full = depth == Depth::floats && lit ? std::max(1.0f, white) : 1.0f;
  showsColours_ = !showsMatte(settings.view(inputs));
  used_ = inputs;
  used_.reference = true;
  const bool holds = inputs.holdOut || (key.wishes.holdOut && !key.clear);
  used_.holdOut = holds && settings.toggle("useHoldOutMatte");
  used_.garbage = (inputs.garbage || key.wishes.garbage) && settings.toggle("useGarbageMatte");
  Settings keyed = inKeyedValues(settings, decodes, full);
  keyed.setText("colourspace", mixing == Mixing::video ? "video"
                               : mixing == Mixing::log ? "log"
                                                       : "linear");
  engine_.prepare(keyed, Depth::shorts, used_, scale);
  words_.prepare(depth, decodes, lit, full);
  depth_ = depth;
}

namespace {

/// Brings the pictures of one frame to words and back, any rows of them at a time.
class FrameWords {
 public:
  FrameWords(const Words& words, const BlindKey& key, const Frame& frame, const Inputs& used)
      : words_(words),
        frame_(frame),
        used_(used),
        lead_(key.lead),
        looked_(frame.pictures.fg),
        clean_{over(key.plate.clean[0]), over(key.plate.clean[1]), over(key.plate.clean[2])},
        holdOut_(over(key.holdOut)),
        garbage_(over(key.garbage)) {}

  /// Whether what is read of the plate's rows is theirs and their neighbours'.
  bool leads() const { return lead_ > 0; }

  /// Copies the plate, so that rows that are keyed already can still be looked at and keyed with
  /// others around them. Any rows.
  void keepPlate(const RowLoop& rows) {
    const std::size_t bytes = 4 * static_cast<std::size_t>(bytesOf(frame_.depth));
    kept_.resize(bytes * width() * static_cast<std::size_t>(frame_.height));
    withSampleOf(frame_.depth, [&]<class Sample>(std::type_identity<Sample>) {
      auto* const to = reinterpret_cast<Sample*>(kept_.data());
      const OtileImage& from = frame_.pictures.fg;
      looked_ = {to, to + 1, to + 2, to + 3, 4, 4 * frame_.width};
      const std::ptrdiff_t step = std::is_floating_point_v<Sample> ? 4 : from.pixelStep;
      rows(frame_.height, bandRows, [&](int first, int count) {
        for (int y = first; y < first + count; ++y) {
          const std::ptrdiff_t row = std::ptrdiff_t{from.lineStep} * y;
          const auto* const red = static_cast<const Sample*>(from.red) + row;
          const auto* const green = static_cast<const Sample*>(from.green) + row;
          const auto* const blue = static_cast<const Sample*>(from.blue) + row;
          Sample* out = to + std::ptrdiff_t{4} * frame_.width * y;
          for (int x = 0; x < frame_.width; ++x, out += 4) {
            out[0] = red[step * x];
            out[1] = green[step * x];
            out[2] = blue[step * x];
          }
        }
      });
    });
  }

  /// The plate's rows from one on with their colour led by light; none where it is not.
  std::optional<LedRows> ledFrom(int first) const {
    if (!leads()) return std::nullopt;
    return LedRows(looked_, frame_.depth, frame_.width, frame_.height, first, lead_);
  }

  /// Says where a block's words lie.
  /// apart  whether what is keyed has room of its own: not all of it is given
  void place(WordBlock& block, int first, int rows, bool apart = false) const {
    const std::size_t pixels = width() * static_cast<std::size_t>(rows);
    const auto room = [&](const OtileImage& image, Words::Buffer& buffer) {
      return words_.place(rowsFrom(image, frame_.depth, first), frame_.width, rows, buffer);
    };
    block.first = first;
    block.frame = {{}, frame_.width, rows, Depth::shorts};
    Otile& to = block.frame.pictures;
    to.fg = leads() ? Words::placeApart(frame_.width, rows, block.fg) : room(looked_, block.fg);
    const bool readHere = to.fg.red != block.fg.data();
    Words::Buffer& free = readHere ? block.dst : block.fg;
    to.dst = apart ? Words::placeApart(frame_.width, rows, free) : room(frame_.pictures.dst, free);
    if (frame_.pictures.bg.red != nullptr) to.bg = room(frame_.pictures.bg, block.bg);
    if (given(frame_.pictures.ref)) {
      to.ref = room(frame_.pictures.ref, block.ref);
    } else {
      block.ref.resize(3 * pixels);
      std::uint16_t* p = block.ref.data();
      to.ref = {p, p + pixels, p + 2 * pixels, nullptr, 1, frame_.width};
    }
    block.mattes.resize(2 * pixels);
    std::uint16_t* p = block.mattes.data();
    if (used_.holdOut) to.hold = {nullptr, nullptr, nullptr, p, 1, frame_.width};
    if (used_.garbage) to.garbage = {nullptr, nullptr, nullptr, p + pixels, 1, frame_.width};
  }

  /// Fills rows of a block.
  /// led  stands at the first of them
  void take(const WordBlock& block, int first, int rows, std::optional<LedRows>& led) const {
    const Otile& from = frame_.pictures;
    const auto inBlock = [&](const OtileImage& words) {
      return rowsFrom(words, Depth::shorts, first - block.first);
    };
    const Otile& to = block.frame.pictures;
    const auto whole = [&](const OtileImage& image, const OtileImage& words) {
      words_.take(rowsFrom(image, frame_.depth, first), inBlock(words), frame_.width, rows);
    };
    if (led) {
      takeLed(*led, inBlock(to.fg), rows);  // nobody reads a plate's alpha
    } else {
      whole(looked_, to.fg);
    }
    if (given(from.bg)) whole(from.bg, to.bg);
    std::vector<float> line(width());
    if (given(from.ref)) {
      whole(from.ref, to.ref);
    } else {
      const OtileImage clean = inBlock(to.ref);
      const std::array<void*, 3> channels = {clean.red, clean.green, clean.blue};
      for (std::size_t c = 0; c < 3; ++c) {
        auto* words = static_cast<std::uint16_t*>(channels[c]);
        for (int y = first; y < first + rows; ++y, words += frame_.width) {
          clean_[c]->row(y, line.data());
          words_.takeCodes(line.data(), frame_.width, words);
        }
      }
    }
    // What the caller keeps is not cut because it looks like screen.
    const OtileImage held = used_.holdOut ? from.hold : OtileImage{};
    if (used_.holdOut) takeMatte(holdOut_, from.hold, {}, inBlock(to.hold), first, rows);
    if (used_.garbage) takeMatte(garbage_, from.garbage, held, inBlock(to.garbage), first, rows);
  }

  /// Brings rows of what was keyed to the frame.
  void give(const WordBlock& block, int first, int rows, bool colours) const {
    words_.give(rowsFrom(block.frame.pictures.dst, Depth::shorts, first - block.first),
                rowsFrom(frame_.pictures.dst, frame_.depth, first), frame_.width, rows, colours);
  }

 private:
  std::size_t width() const { return static_cast<std::size_t>(frame_.width); }

  std::optional<Stretch> over(const Plane& plane) const {
    if (plane.size() == 0) return std::nullopt;
    return Stretch(plane, frame_.width, frame_.height);
  }

  static bool given(const OtileImage& image) { return image.red != nullptr; }

  void takeLed(LedRows& led, const OtileImage& words, int rows) const {
    Words::Buffer codes(3 * width());
    const std::array<std::uint16_t*, 3> planes = {codes.data(), codes.data() + width(),
                                                  codes.data() + 2 * width()};
    auto* to = static_cast<std::uint16_t*>(words.red);
    for (int y = 0; y < rows; ++y, to += words.lineStep) {
      led.next(planes);
      for (std::size_t c = 0; c < 3; ++c) {
        words_.takeCodes(planes[c], frame_.width, to + c, words.pixelStep);
      }
    }
  }

  /// The found matte, but not where `unless` holds, and the caller's.
  void takeMatte(const std::optional<Stretch>& found, const OtileImage& own,
                 const OtileImage& unless, const OtileImage& words, int first, int rows) const {
    std::vector<float> line(width());
    Words::Buffer other(width());
    auto* to = static_cast<std::uint16_t*>(words.alpha);
    for (int y = first; y < first + rows; ++y, to += frame_.width) {
      if (found) {
        found->row(y, line.data());
        rowTable().words(line.data(), frame_.width, to);
      } else {
        std::fill_n(to, width(), std::uint16_t{0});
      }
      const auto join = [&](const OtileImage& image, auto&& joined) {
        if (image.alpha == nullptr) return;
        words_.takeMatte(rowsFrom(image, frame_.depth, y).alpha, image.pixelStep, frame_.width,
                         other.data());
        for (std::size_t x = 0; x < width(); ++x) to[x] = joined(to[x], other[x]);
      };
      join(unless, [](std::uint16_t word, std::uint16_t keeps) {
        return std::min(word, static_cast<std::uint16_t>(65535 - keeps));
      });
      join(own, [](std::uint16_t word, std::uint16_t more) { return std::max(word, more); });
    }
  }

  const Words& words_;
  const Frame& frame_;
  const Inputs& used_;
  float lead_;
  OtileImage looked_;  // the plate, or its copy
  std::vector<std::byte> kept_;
  std::array<std::optional<Stretch>, 3> clean_;
  std::optional<Stretch> holdOut_, garbage_;
};

}  // namespace

void BlindKeyer::render(const BlindKey& key, const Frame& frame, const RowLoop& rows) const {
  if (depth_ != frame.depth || frame.width != key.width || frame.height != key.height) {
    throw Error(Fault::wrongUse, "frame", "expected a frame of the key's size and depth");
  }
  FrameWords words(words_, key, frame, used_);
  const Otile& pictures = frame.pictures;
  const bool inPlace = pictures.dst.red == pictures.fg.red;
  const int border = engine_.border();
  if (border > mostBorder || (border > 0 && pictures.dst.red == pictures.bg.red)) {
    // A finish looks at what is far around, or at a background that is written over.
    const auto lent = blocks_.take();
    WordBlock& whole = *lent;
    words.place(whole, 0, frame.height);
    rows(frame.height, bandRows, [&](int first, int count) {
      std::optional<LedRows> led = words.ledFrom(first);
      words.take(whole, first, count, led);
    });
    engine_.render(whole.frame, rows);
    rows(frame.height, bandRows,
         [&](int first, int count) { words.give(whole, first, count, showsColours_); });
    return;
  }
  if (inPlace && (words.leads() || border > 0)) words.keepPlate(rows);
  if (engine_.finishes()) {
    // Each block with as much around it as the finish looks at.
    rows(frame.height, finishedRows, [&](int first, int count) {
      const auto lent = blocks_.take();
      WordBlock& block = *lent;
      for (int done = 0; done < count; done += finishedRows) {
        const int from = first + done, some = std::min(finishedRows, count - done);
        const int top = std::max(0, from - border);
        const int end = std::min(frame.height, from + some + border);
        std::optional<LedRows> led = words.ledFrom(top);
        words.place(block, top, end - top, true);
        words.take(block, top, end - top, led);
        engine_.render(block.frame, inOneBand);
        words.give(block, from, some, showsColours_);
      }
    });
    return;
  }
  rows(frame.height, bandRows, [&](int first, int count) {
    const auto lent = blocks_.take();
    WordBlock& block = *lent;
    std::optional<LedRows> led = words.ledFrom(first);
    const int most = std::max(1, blockPixels / frame.width);
    for (int done = 0; done < count; done += most) {
      const int from = first + done, some = std::min(most, count - done);
      words.place(block, from, some);
      words.take(block, from, some, led);
      engine_.render(block.frame, inOneBand);
      words.give(block, from, some, showsColours_);
    }
  });
}

}  // namespace orvanite
