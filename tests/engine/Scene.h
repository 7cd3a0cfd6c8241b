// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures in memory in every arrangement that a tile can describe, keyed and then compared byte
// for byte: pixels against the definition, everything else against what stood there before.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

#include "engine/kernels/Definition.h"
#include "tests/engine/HalfModel.h"
#include "tests/engine/Pixel.h"

struct EngineDeleter {
  void operator()(QMXOrvaniteTable* engine) const { orvanite_delete(engine); }
};
using Engine = std::unique_ptr<QMXOrvaniteTable, EngineDeleter>;

/// An engine with these parameters, its tables not yet built.
inline Engine makeEngine(const Parameters& parameters) {
  Engine engine(orvanite_new());
  apply(parameters, engine.get());
  return engine;
}

/// The definition, a pixel at a time and with an engine that has no history: what tiles of any
/// shape and engines of any past are compared with. The kept hashes (hashes.txt) hold its own bits.
template <class T>
class Definition {
 public:
  explicit Definition(const Parameters& parameters) : p(parameters), engine_(makeEngine(p)) {
    ::testing::internal::CaptureStderr();
    result = orvanite_makeLuts(engine_.get());
    message = ::testing::internal::GetCapturedStderr();
  }

  Output<T> key(const orvanite::Choices& choices, const Present& present, Inputs<T> in) const {
    Output<T> out = {};
    Otile tile = {};
    tile.dst = {&out[0], &out[1], &out[2], &out[3], 4, 4};
    if (present.fg) tile.fg = {&in.fg[0], &in.fg[1], &in.fg[2], nullptr, 4, 4};
    if (present.bg) {
      tile.bg = {&in.bg[0], &in.bg[1], &in.bg[2], present.bgAlpha ? &in.bg[3] : nullptr, 4, 4};
    }
    tile.hold.alpha = &in.hold;
    tile.garbage.alpha = &in.garbage;
    tile.ref = {&in.ref[0], &in.ref[1], &in.ref[2], nullptr, 4, 4};
    engine_->view = p.view;
    const auto kernel = orvanite::definitionKernel(orvanite::depthOfSample<T>, choices);
    EXPECT_EQ(kernel(engine_.get(), 1, 1, &tile), 0);
    return out;
  }

  Parameters p;  // the view may be changed
  int result = 0;
  std::string message;

 private:
  Engine engine_;
};

template <class T>
inline constexpr int depthCode = orvanite::bytesOf(orvanite::depthOfSample<T>);

/// Same bits; of floats, any number that is none equals any other.
inline bool same(int a, int b) { return a == b; }
inline bool same(float a, float b) {
  return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
}

/// How an image lies in memory. Steps count samples; a negative one runs backwards.
struct Layout {
  bool planar = false;
  int pixelStep = 4;
  int linePad = 0;  // samples between lines
  bool bottomUp = false;
  int margin = 0;  // samples before the first and after the last that the image owns
  std::array<int, 4> order = {0, 1, 2, 3};  // where red, green, blue and alpha stand
};

inline std::ostream& operator<<(std::ostream& out, const Layout& l) {
  return out << (l.planar ? "planar" : "interleaved") << " step " << l.pixelStep << " pad "
             << l.linePad << (l.bottomUp ? " bottom-up" : "") << " margin " << l.margin << " order "
             << l.order[0] << l.order[1] << l.order[2] << l.order[3];
}

template <class T>
Layout randomLayout(Random& random) {
  Layout l;
  // Float pixels are four samples apart, but their channels may lie far from one another.
  l.planar = random.oneIn(sizeof(T) < 4 ? 2 : 8);
  if (sizeof(T) == 4)
    l.pixelStep = 4;
  else if (l.planar)
    l.pixelStep = random.pick({1, 1, 1, 2, 3, -1, -2, 5});
  else
    l.pixelStep = random.pick({4, 4, 4, 5, 7, -4, -5, 12});
  l.linePad = random.pick({0, 0, 1, 3, 16});
  l.bottomUp = random.oneIn(3);
  l.margin = random.pick({0, 0, 1, 5, 64});
  l.order = random.pick({std::array{0, 1, 2, 3},
                         {0, 1, 2, 3},
                         {3, 2, 1, 0},
                         {3, 2, 1, 0},
                         {2, 1, 0, 3},
                         {1, 2, 3, 0},
                         {2, 0, 3, 1}});
  return l;
}

template <class T>
class Picture {
 public:
  Picture(Layout arrangement, int w, int h) : layout(arrangement), width(w), height(h) {
    const int last = width < 1 || height < 1 ? 0 : [this] {
      int most = 0;
      for (int c = 0; c < 4; ++c)
        for (int y : {0, height - 1})
          for (int x : {0, width - 1}) most = std::max(most, index(c, x, y));
      return most;
    }();
    samples.resize(static_cast<std::size_t>(last + 1 + layout.margin));
  }

  T& at(int channel, int x, int y) {
    return samples[static_cast<std::size_t>(index(channel, x, y))];
  }

  /// The picture as a member of a tile. Absent channels are null; those that nobody may read
  /// point where reading would not go unnoticed.
  OtileImage image(bool colour, bool alpha) {
    const auto pointer = [this](int c) -> void* {
      return width < 1 || height < 1 ? samples.data() : &at(c, 0, 0);
    };
    OtileImage image = {};
    if (colour) {
      image.red = pointer(0);
      image.green = pointer(1);
      image.blue = pointer(2);
    } else {
      image.red = image.green = image.blue = nowhere();
    }
    image.alpha = alpha ? pointer(3) : nullptr;
    // Float kernels do not read the pixel step: anything may stand there.
    image.pixelStep = sizeof(T) == 4 ? 9 : layout.pixelStep;
    image.lineStep = layout.bottomUp ? -lineLength() : lineLength();
    return image;
  }

  static void* nowhere() { return reinterpret_cast<void*>(std::uintptr_t{0x40000}); }

  Layout layout;
  int width, height;
  std::vector<T> samples;

 private:
  int stride() const { return std::abs(layout.pixelStep); }
  int lineLength() const { return std::max(width, 0) * stride() + layout.linePad; }

  int index(int c, int x, int y) const {
    const int column = layout.pixelStep > 0 ? x : width - 1 - x;
    const int row = layout.bottomUp ? height - 1 - y : y;
    const int channel = layout.order[static_cast<std::size_t>(c)];
    const int start = layout.planar ? channel * (lineLength() * height + 3) : channel;
    return layout.margin + start + row * lineLength() + column * stride();
  }
};

enum class Placement { own, onForeground, onBackground };

/// The six pictures of a tile.
template <class T>
struct Scene {
  using Sample = T;

  Scene(Random& random, int w, int h, const Present& which, Placement place)
      : width(w),
        height(h),
        present(which),
        placement(place),
        dst(randomLayout<T>(random), w, h),
        bg(randomLayout<T>(random), w, h),
        fg(randomLayout<T>(random), w, h),
        hold(randomLayout<T>(random), w, h),
        garbage(randomLayout<T>(random), w, h),
        ref(randomLayout<T>(random), w, h) {
    fill(random, dst);
  }

  Picture<T>& destination() {
    return placement == Placement::own ? dst : placement == Placement::onForeground ? fg : bg;
  }

  Otile tile() {
    Otile t = {};
    t.dst = destination().image(true, true);
    if (dummyAlpha) t.dst.alpha = Picture<T>::nowhere();
    if (present.bg) t.bg = bg.image(true, present.bgAlpha);
    if (present.fg) {
      t.fg = fg.image(true, true);
      t.fg.alpha = Picture<T>::nowhere();
    }
    if (present.hold) t.hold = hold.image(false, true);
    if (present.garbage) t.garbage = garbage.image(false, true);
    if (present.ref) {
      t.ref = ref.image(true, true);
      t.ref.alpha = Picture<T>::nowhere();
    }
    return t;
  }

  Inputs<Sample> inputs(int x, int y) {
    Inputs<Sample> in;
    for (int c = 0; c < 3; ++c) {
      const auto i = static_cast<std::size_t>(c);
      in.fg[i] = fg.at(c, x, y);
      in.bg[i] = bg.at(c, x, y);
      in.ref[i] = ref.at(c, x, y);
    }
    in.bg[3] = bg.at(3, x, y);
    in.hold = hold.at(3, x, y);
    in.garbage = garbage.at(3, x, y);
    return in;
  }

  /// Any sample at all, guards included.
  static void fill(Random& random, Picture<T>& picture) {
    for (T& sample : picture.samples) sample = static_cast<T>(random.between(1, 250));
  }

  int width, height;
  Present present;
  Placement placement;
  bool dummyAlpha = false;  // the destination's points nowhere
  Picture<T> dst, bg, fg, hold, garbage, ref;
};

/// Samples of a picture of codes up to max: screen, near screen, ends, anything, past the end.
template <class T>
T randomSample(Random& random, int max, float screen) {
  if constexpr (sizeof(T) == 4) {
    static_cast<void>(max);
    switch (random.between(0, 23)) {
      case 0:
        return random.pick({0.0f, -0.0f, 1.0f, 65504.0f, 70000.0f, 1e-7f, 3e-5f, -1e-9f});
      case 1:
        return random.oneIn(6) ? random.pick({INFINITY, -INFINITY, NAN}) : 1.0f;
      case 2:
        return random.real(-0.3f, 0.0f);
      case 3:
        return random.real(1.0f, 12.0f);
      case 4:
      case 5:
      case 6:
      case 7:
        return screen;
      case 8:
      case 9:
      case 10:
      case 11:
        return screen + random.real(-0.02f, 0.02f);
      default:
        return random.unit();
    }
  } else {
    const int largest = static_cast<int>(static_cast<T>(~T{0}));
    const int top = std::min(max, largest);
    const auto code = [&](float v) {
      const float scaled = v * static_cast<float>(top);
      // Numbers that are none, and those beyond an int, too.
      return static_cast<T>(scaled > 0 ? std::min(scaled, static_cast<float>(top)) : 0.0f);
    };
    switch (random.between(0, 15)) {
      case 0:
        return static_cast<T>(random.pick({0, 0, top, top, top - 1, 1}));
      case 1:
        return static_cast<T>(random.oneIn(4) ? random.between(top, largest) : top);
      case 2:
      case 3:
      case 4:
      case 5:
        return code(screen);
      case 6:
      case 7:
      case 8:
        return code(screen + random.real(-0.03f, 0.03f));
      default:
        return static_cast<T>(random.between(0, top));
    }
  }
}

/// Rounds a float scene's pictures to half values, as pictures from half files are: all of it, or
/// from some column on. Kernels may take another way for such stretches.
inline void makeHalves(Random& random, Scene<float>& scene) {
  const int first = random.oneIn(2) ? 0 : random.between(0, std::max(0, scene.width - 1));
  for (Picture<float>* picture : {&scene.fg, &scene.bg})
    for (int y = 0; y < scene.height; ++y)
      for (int x = first; x < scene.width; ++x)
        for (int c = 0; c < 4; ++c) {
          float& v = picture->at(c, x, y);
          v = model::fromHalf(model::toHalf(v));
        }
}

template <class T>
void fillInputs(Random& random, Scene<T>& scene, const Parameters& p) {
  for (int y = 0; y < scene.height; ++y)
    for (int x = 0; x < scene.width; ++x) {
      // Whole pixels of screen colour now and then: channels drawn alone would seldom meet it.
      const bool screenPixel = random.oneIn(4);
      for (int c = 0; c < 3; ++c) {
        const float s = p.screen[c];
        scene.fg.at(c, x, y) = randomSample<T>(random, p.fgMax, s);
        scene.ref.at(c, x, y) = randomSample<T>(random, p.refMax, s);
        scene.bg.at(c, x, y) = randomSample<T>(random, p.bgMax, 0.4f);
        if (!screenPixel) continue;
        const float near = std::clamp(s + random.real(-0.05f, 0.05f), 0.0f, 1.0f);
        const float scale = sizeof(T) == 4 ? 1.0f : static_cast<float>(std::min(p.fgMax, 65535));
        if (sizeof(T) != 1 || p.fgMax <= 255) scene.fg.at(c, x, y) = static_cast<T>(near * scale);
      }
      scene.bg.at(3, x, y) = randomSample<T>(random, p.bgMax, 0.0f);
      scene.hold.at(3, x, y) = randomSample<T>(random, p.hMatteMax, 0.0f);
      scene.garbage.at(3, x, y) = randomSample<T>(random, p.gMatteMax, 0.0f);
    }
  if constexpr (sizeof(T) == 4) {
    if (random.oneIn(2)) makeHalves(random, scene);
  }
}

/// Keys the scene by `render(tile)`, which must return `result`, and compares every sample in
/// memory: with the definition's pixel where the choices write, with what stood there elsewhere.
template <class T, class Render>
::testing::AssertionResult keysLikeTheDefinition(Scene<T>& scene, const Definition<T>& definition,
                                                 const orvanite::Choices& choices, Render render) {
  Picture<T> expected = scene.destination();
  for (int y = 0; y < scene.height; ++y)
    for (int x = 0; x < scene.width; ++x) {
      const auto out = definition.key(choices, scene.present, scene.inputs(x, y));
      for (int c = 0; c < (choices.alpha ? 4 : 3); ++c)
        expected.at(c, x, y) = static_cast<T>(out[static_cast<std::size_t>(c)]);
    }
  Picture<T>* const inputs[] = {&scene.bg, &scene.fg, &scene.hold, &scene.garbage, &scene.ref};
  std::vector<std::vector<T>> before;
  for (const Picture<T>* input : inputs) before.push_back(input->samples);
  Picture<T> untouched = scene.destination();

  Otile tile = scene.tile();
  const Otile tileBefore = tile;
  const int result = render(&tile);

  const auto where = [&scene, &choices] {
    std::ostringstream text;
    text << "depth " << depthCode<T> << " ref " << choices.ref << " hold " << choices.hold
         << " garbage " << choices.garbage << " alpha " << choices.alpha << ", " << scene.width
         << "x" << scene.height << ", destination "
         << (scene.placement == Placement::own            ? "apart"
             : scene.placement == Placement::onForeground ? "on the foreground"
                                                          : "on the background")
         << " (" << scene.destination().layout << ")"
         << (scene.present.fg ? "" : ", no foreground");
    return text.str();
  };
  if (result != 0) return ::testing::AssertionFailure() << "returned " << result << ": " << where();
  if (std::memcmp(&tile, &tileBefore, sizeof tile) != 0)
    return ::testing::AssertionFailure() << "the tile was changed: " << where();

  Picture<T>& written = scene.destination();
  for (int y = 0; y < scene.height; ++y)
    for (int x = 0; x < scene.width; ++x)
      for (int c = 0; c < 4; ++c)
        if (!same(written.at(c, x, y), expected.at(c, x, y))) {
          std::swap(written.samples, untouched.samples);
          const auto in = scene.inputs(x, y);
          std::ostringstream text;
          text << std::hexfloat << "fg";
          for (T v : in.fg) text << ' ' << +v;
          text << " bg";
          for (T v : in.bg) text << ' ' << +v;
          text << " ref";
          for (T v : in.ref) text << ' ' << +v;
          text << " hold " << +in.hold << " garbage " << +in.garbage;
          return ::testing::AssertionFailure()
                 << "pixel (" << x << ", " << y << ") channel " << c << " is "
                 << +untouched.at(c, x, y) << ", the definition says " << +expected.at(c, x, y)
                 << ": " << where() << "\n"
                 << text.str() << "\n"
                 << definition.p;
        }
  for (std::size_t i = 0; i < written.samples.size(); ++i)
    if (!same(written.samples[i], expected.samples[i]))
      return ::testing::AssertionFailure()
             << "sample " << i << " outside the tile's pixels was written: " << where();
  for (std::size_t i = 0; i < before.size(); ++i)
    if (inputs[i] != &written &&
        std::memcmp(before[i].data(), inputs[i]->samples.data(), before[i].size() * sizeof(T)) != 0)
      return ::testing::AssertionFailure() << "an input was written: " << where();
  return ::testing::AssertionSuccess();
}

/// Keys a small scene with an engine and compares it with the definition under these parameters.
template <class T>
::testing::AssertionResult rendersLikeTheDefinition(Random& random, const Engine& engine,
                                                    const Parameters& p) {
  const Definition<T> definition(p);
  Present present;
  present.ref = p.ref;
  Scene<T> scene(random, 24, 2, present, Placement::own);
  fillInputs(random, scene, definition.p);
  return keysLikeTheDefinition(scene, definition, chosen(definition.p, present), [&](Otile* tile) {
    return orvanite_render(engine.get(), depthCode<T>, scene.width, scene.height, tile);
  });
}
