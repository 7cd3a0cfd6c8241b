// SPDX-License-Identifier: BSD-3-Clause
//
// The float kernels of every target against the reference: one sweep over encodings, views,
// mattes, grades, memory layouts and widths. A difference prints the case, the place and both
// values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "engine/QMXOrvaniteTable.h"
#include "engine/kernels/QMXOrvaniteRender32.h"
#include "engine/kernels/Target.h"

namespace {

using Random = std::mt19937;

template <class Linear, class Hold, class Garbage>
int reference(QMXOrvaniteTable& e, int w, int h, Otile& tile, bool alpha, Linear l, Hold o,
              Garbage g) {
  using T = QMXOrvaniteTable;
  return alpha ? e.QMXOrvaniteRender32(w, h, &tile, l, o, g, T::Otrue())
               : e.QMXOrvaniteRender32(w, h, &tile, l, o, g, T::Ofalse());
}

/// The reference kernel of a variant.
int renderReference(QMXOrvaniteTable& e, int w, int h, Otile& tile,
                    const orvanite::TileVariant& v) {
  using Yes = QMXOrvaniteTable::Otrue;
  using No = QMXOrvaniteTable::Ofalse;
  const auto withGarbage = [&](auto l, auto o) {
    return v.garbage ? reference(e, w, h, tile, v.alpha, l, o, Yes())
                     : reference(e, w, h, tile, v.alpha, l, o, No());
  };
  const auto withHold = [&](auto l) {
    return v.hold ? withGarbage(l, Yes()) : withGarbage(l, No());
  };
  return e.colourspace == 0 ? withHold(Yes()) : withHold(No());
}

/// A sample of the kind that matters here: mostly picture, some of it from half files, now and
/// then what no picture should hold.
float anySample(Random& random) {
  constexpr float inf = std::numeric_limits<float>::infinity();
  static const float odd[] = {0,      -0.0f,   1,      -1,      inf,    -inf,     NAN,
                              1e-40f, -1e-40f, 6.5e4f, 7e4f,    1e30f,  -1e30f,   3e38f,
                              0.081f, 1e-7f,   -1e-3f, 5.9e-8f, 2e-45f, 0x1p-24f, 0.018f};
  const auto kind = random() % 16;
  const float unit = static_cast<float>(random() % 0x10000) / 65536.0f;
  if (kind == 0) return odd[random() % (sizeof odd / sizeof odd[0])];
  if (kind == 1) return unit * 8 - 2;
  if (kind < 8) return static_cast<float>(Imath::half(unit));
  return unit;
}

/// A sample of a screen pixel: channel 2 strong.
float screenSample(Random& random, int c) {
  const float noise = static_cast<float>(random() % 256) / 4096.0f;
  return static_cast<float>(Imath::half((c == 2 ? 0.7f : 0.15f) + noise));
}

/// What a picture holds: nothing but non-negative halves, what a good float picture would,
/// whatever a float can be, or runs of values from which shortcuts must keep away.
enum Content { halves, clean, anything, extremes };

/// Log light of 30000 is infinite; a hold-out of 1e-44 divides by next to nothing.
float extremeSample(Random& random) {
  static const float values[] = {0.2f, 1, 1, 3.9f, 4.1f, 100, 30000.5f, 1e-44f, 0};
  return values[random() % (sizeof values / sizeof values[0])];
}

float sampleOf(Random& random, Content content) {
  const float v = anySample(random);
  if (content == anything) return v;
  if (content == clean) return v >= 0 && v < 10 ? v : 0.25f;
  const auto half = static_cast<float>(Imath::half(v));
  return half >= 0 ? half : 0.25f;  // infinities and a zero of either sign stay
}

enum Layout { rgba, abgr, rgbaNoAlpha, abgrNoAlpha };

/// Rows of interleaved pixels with guards on all sides, at any alignment.
struct Picture {
  static constexpr int guard = 8;
  static constexpr float mark = 12345.0f;
  int width, height, step;
  std::vector<float> data;

  Picture(int w, int h, int extra) : width(w), height(h), step(4 * w + extra) {
    data.assign(static_cast<std::size_t>(2 * guard + step * h + 1), mark);
  }

  void fill(Random& random, Content content, bool plate) {
    for (int y = 0; y < height; ++y) {
      int run = 0;
      bool screen = false;
      float held[4] = {};  // through a run of extremes
      for (int x = 0; x < width; ++x) {
        if (run-- == 0) {
          run = static_cast<int>(random() % 24);
          screen = random() % 2 == 0;
          for (float& v : held) v = extremeSample(random);
        }
        for (int c = 0; c < 4; ++c) {
          data[static_cast<std::size_t>(guard + 1 + y * step + 4 * x + c)] =
              content == extremes && !(screen && plate) ? held[c]
              : screen && c < 3                         ? screenSample(random, c)
                                                        : sampleOf(random, content);
        }
      }
    }
  }

  OtileImage image(Layout layout) {
    float* const p = data.data() + guard + 1;  // one float off any vector's alignment
    switch (layout) {
      case rgba:
        return {p, p + 1, p + 2, p + 3, 4, step};
      case abgr:
        return {p + 3, p + 2, p + 1, p, 4, step};
      case rgbaNoAlpha:
        return {p, p + 1, p + 2, nullptr, 4, step};
      default:
        return {p + 3, p + 2, p + 1, nullptr, 4, step};
    }
  }
};

bool sameBits(float a, float b) {
  return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

/// One setting of the keyer.
struct Settings {
  const char* name;
  void (*set)(QMXOrvaniteTable&);
};

const Settings settings[] = {
    {"plain", [](QMXOrvaniteTable&) {}},
    {"neutral and range",
     [](QMXOrvaniteTable& e) {
       e.setNeutral(0.4f, 0.5f, 0.6f);
       e.setScreenRange(0.1f);
       e.setReplace(0.3f, 0.2f, 0.1f);
       e.setBackground(0.2f, 0.4f, 0.1f);
     }},
    {"graded",
     [](QMXOrvaniteTable& e) {
       e.setNeutral(0.6f, 0.5f, 0.5f);
       e.setExposure(1.2f, 0.9f, 1, 0);
       e.setGamma(1.4f, 1, 0.5f, 0);
       e.setOffset(0, 0.01f, -0.02f, 0);
       e.setExposure(0.8f, 1, 1.1f, 1);
       e.setGamma(0.7f, 1.1f, 1, 1);
       e.setSaturation(1.5f, 0);
       e.setSaturation(0.3f, 1);
     }},
    {"curved and saturated",
     [](QMXOrvaniteTable& e) {
       e.setSaturation(2.5f, 0);
       e.setBalance(0, 0.2f);
       e.setBalance(2, 0.9f);
       e.setGain(0, 0.4f);
       e.setGain(2, -0.3f);
       e.setReplace(0.5f, 0.5f, 0.5f);
     }},
    {"wild",
     [](QMXOrvaniteTable& e) {
       e.setExposure(1e20f, 0, -1, 0);
       e.setGamma(-1, 0, 1e-3f, 0);
       e.setOffset(0, 1e30f, 0, 1);
       e.setReplace(INFINITY, 0, -1);
       e.setBackground(NAN, 2, -1);
     }},
};

void prepare(QMXOrvaniteTable& e, const Settings& s, int colourspace, int view) {
  e.useRef(0);
  e.setColourspace(colourspace);
  e.setView(view);
  e.setScreen(0.15f, 0.2f, 0.75f);
  s.set(e);
  e.setFgMax(1);
  ASSERT_EQ(e.makeLuts(), 0) << s.name;
}

struct Shape {
  int width, height, extra;
  Layout fg, bg, dst;
  int place;  // 0 on its own, 1 in place on fg, 2 in place on bg
  bool hold, garbage, foreground;
};

/// Keys one tile with a target and with the reference; the first difference, or nothing.
std::string differ(const orvanite::Target& target, QMXOrvaniteTable& e, const Shape& shape,
                   Content content, Random& random) {
  Picture fg(shape.width, shape.height, shape.extra), bg = fg, mattes = fg, dst = fg;
  fg.fill(random, content, true);
  bg.fill(random, content, false);
  mattes.fill(random, content, false);
  Picture fg2 = fg, bg2 = bg, dst2 = dst;
  const auto tileOf = [&](Picture& f, Picture& b, Picture& d) {
    Otile tile = {};
    tile.dst = (shape.place == 1 ? f : shape.place == 2 ? b : d).image(shape.dst);
    if (shape.foreground) tile.fg = f.image(shape.fg);
    tile.bg = b.image(shape.bg);
    if (shape.hold) tile.hold.alpha = mattes.image(rgba).green;
    if (shape.garbage) tile.garbage.alpha = mattes.image(rgba).blue;
    tile.hold.lineStep = tile.garbage.lineStep = mattes.step;
    return tile;
  };
  Otile wanted = tileOf(fg, bg, dst), got = tileOf(fg2, bg2, dst2);
  const orvanite::TileVariant variant = {false, shape.hold, shape.garbage,
                                         e.view != 0 || wanted.bg.alpha != nullptr};
  if (renderReference(e, shape.width, shape.height, wanted, variant) != 0) return "refused";
  if (shape.width > 0) {
    const orvanite::TileKernel kernel =
        target.floats->choose(e, shape.width, shape.height, got, variant);
    if (kernel == nullptr) return "no kernel";
    kernel(e, shape.width, shape.height, got, variant);
  }
  const std::vector<float>* const pairs[3][2] = {
      {&fg.data, &fg2.data}, {&bg.data, &bg2.data}, {&dst.data, &dst2.data}};
  for (const auto& pair : pairs) {
    for (std::size_t i = 0; i < pair[0]->size(); ++i) {
      if (sameBits((*pair[0])[i], (*pair[1])[i])) continue;
      const int at = static_cast<int>(i) - Picture::guard - 1;
      char line[240];
      std::snprintf(line, sizeof line,
                    "%s, colourspace %d, view %d, %dx%d, layouts %d %d %d, place %d, hold %d, "
                    "garbage %d: line %d, sample %d is %a, wanted %a",
                    target.name, e.colourspace, e.view, shape.width, shape.height, shape.fg,
                    shape.bg, shape.dst, shape.place, shape.hold, shape.garbage, at / fg.step,
                    at % fg.step, static_cast<double>((*pair[1])[i]),
                    static_cast<double>((*pair[0])[i]));
      return line;
    }
  }
  return "";
}

template <class Body>
void onEveryTarget(const Body& body) {
  for (const orvanite::Target& target : orvanite::knownTargets()) {
    if (target.supported() && target.floats != nullptr) body(target);
  }
}

TEST(FloatKernels, GiveTheReferenceBitsForEveryVariantAndSetting) {
  Random random(1);
  for (const Settings& s : settings) {
    for (int colourspace = 0; colourspace <= 3; ++colourspace) {
      for (const int view : {0, 1, 2, 4, 5}) {
        QMXOrvaniteTable e;
        prepare(e, s, colourspace, view);
        for (int variant = 0; variant < 16; ++variant) {
          const bool noAlpha = (variant & 4) != 0;
          const Shape shape = {150,
                               2,
                               4,
                               rgba,
                               noAlpha ? rgbaNoAlpha : rgba,
                               rgba,
                               0,
                               (variant & 1) != 0,
                               (variant & 2) != 0,
                               view == 0 || (variant & 8) == 0};
          onEveryTarget([&](const orvanite::Target& target) {
            for (const Content content : {halves, clean, anything, extremes}) {
              EXPECT_EQ(differ(target, e, shape, content, random), "") << s.name;
            }
          });
        }
      }
    }
  }
}

TEST(FloatKernels, TakeEveryWidthOrderLineStepAndPlace) {
  Random random(2);
  QMXOrvaniteTable linear, video;
  prepare(linear, settings[1], 0, 0);
  prepare(video, settings[0], 2, 0);
  for (int width = 0; width <= 70; ++width) {
    for (int order = 0; order < 16; ++order) {
      const Layout fg = static_cast<Layout>(order & 3), bg = static_cast<Layout>(order >> 2);
      for (int place = 0; place < 3; ++place) {
        const Shape shape = {width,
                             3,
                             static_cast<int>(random() % 5),
                             fg,
                             bg,
                             width % 2 == 0 ? rgba : abgr,
                             place,
                             width % 3 == 0,
                             width % 5 == 0,
                             true};
        onEveryTarget([&](const orvanite::Target& target) {
          EXPECT_EQ(differ(target, width % 4 == 1 ? video : linear, shape,
                           width % 8 == 1 ? halves : anything, random),
                    "");
        });
      }
    }
  }
}

TEST(FloatKernels, LeaveToTheReferenceWhatTheyCannotTake) {
  QMXOrvaniteTable e;
  prepare(e, settings[0], 0, 0);
  const orvanite::TileVariant variant = {false, false, false, true};
  std::vector<float> a(4 * 64), b(4 * 64);
  const auto imageAt = [](float* p) { return OtileImage{p, p + 1, p + 2, p + 3, 4, 32}; };
  onEveryTarget([&](const orvanite::Target& target) {
    const Otile good = {imageAt(a.data()), imageAt(b.data()), imageAt(a.data()), {}, {}, {}};
    EXPECT_NE(target.floats->choose(e, 8, 2, good, variant), nullptr);
    Otile shifted = good;  // reads what was written a pixel before
    shifted.dst = imageAt(a.data() + 4);
    EXPECT_EQ(target.floats->choose(e, 8, 2, shifted, variant), nullptr);
    Otile mixed = good;  // green, red, blue
    std::swap(mixed.fg.red, mixed.fg.green);
    EXPECT_EQ(target.floats->choose(e, 8, 2, mixed, variant), nullptr);
    Otile overlapping = good;  // lines of the destination overlap
    overlapping.dst.lineStep = overlapping.fg.lineStep = 28;
    EXPECT_EQ(target.floats->choose(e, 8, 2, overlapping, variant), nullptr);
    Otile apart = good;  // a background whose alpha lies elsewhere
    apart.bg.alpha = b.data() + 130;
    EXPECT_EQ(target.floats->choose(e, 8, 2, apart, variant), nullptr);
  });
}

}  // namespace
