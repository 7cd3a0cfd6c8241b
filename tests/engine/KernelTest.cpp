// SPDX-License-Identifier: BSD-3-Clause
//
// The kernels of every target against the definition: tiles of any width and arrangement, alone or
// in place, that end or begin where memory ends, with what pictures hold and what they should not.
// A difference prints the case.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "engine/tables/IntegerPlan.h"
#include "engine/targets/Target.h"
#include "tests/Sanitized.h"
#include "tests/engine/Fenced.h"
#include "tests/engine/Scene.h"

namespace {

enum Form { rgba, abgr, rgbWithoutAlpha, bgrWithoutAlpha, planar };

/// Where an alpha may point that nobody touches: nowhere, or beside its colours, where the last or
/// the first pixel's lies behind the fence.
void* dummyAlpha(Random& random, const OtileImage& image, std::size_t sampleBytes) {
  char* const lowest = static_cast<char*>(std::min(image.red, image.blue));
  char* const beside = lowest == image.red ? lowest + 3 * sampleBytes : lowest - sampleBytes;
  return random.pick<void*>({reinterpret_cast<void*>(std::uintptr_t{0x40000}), beside});
}

/// One image in fenced memory: only the samples that the tile promises lie inside the fence.
template <class T>
OtileImage describe(Fenced<T>& memory, Form form, int w, int h, int pad, bool high) {
  const bool whole = form == rgba || form == abgr;
  if (form == planar) {
    const int line = w + pad, plane = line * h;
    T* const p = memory.place(static_cast<std::size_t>(4 * plane - pad), high);
    return {p, p + plane, p + 2 * plane, p + 3 * plane, 1, line};
  }
  const int line = 4 * w + pad;
  T* const p = memory.place(static_cast<std::size_t>(line * h - pad - (whole ? 0 : 1)), high);
  switch (form) {
    case rgba:
      return {p, p + 1, p + 2, p + 3, 4, line};
    case abgr:
      return {p + 3, p + 2, p + 1, p, 4, line};
    case rgbWithoutAlpha:
      return {p, p + 1, p + 2, nullptr, 4, line};
    default:
      return {p + 2, p + 1, p, nullptr, 4, line};
  }
}

/// A matte of which one sample in `step` is the tile's.
template <class T>
OtileImage describeMatte(Fenced<T>& memory, int step, int w, int h, bool high) {
  const int line = step * w;
  OtileImage image = {};
  image.alpha = memory.place(static_cast<std::size_t>(line * h - step + 1), high);
  image.pixelStep = step;
  image.lineStep = line;
  return image;
}

/// Integers: runs of screen, of plain foreground, ramps, and noise.
template <class T>
class Samples {
 public:
  explicit Samples(Random& random) : random_(random) {}

  void startRun() {
    kind_ = random_.between(0, 4);
    left_ = random_.between(0, 80);
    slope_ = random_.between(-max / 16, max / 16);
    for (int& f : from_) f = random_.between(0, max);
  }

  bool runEnds() { return left_-- == 0; }

  T next(int c, float screen) {
    const int from = from_[c];
    int v = from;
    if (kind_ == 0) v = static_cast<int>(screen * static_cast<float>(max)) + random_.between(0, 2);
    if (kind_ == 1) v = random_.between(0, max);
    if (kind_ == 2) v = from + left_ * slope_;
    if (kind_ == 3) v = random_.pick({0, 1, max - 1, max});
    return static_cast<T>(std::clamp(v, 0, max));
  }

 private:
  static constexpr int max = static_cast<T>(~T{0});
  Random& random_;
  int kind_ = 0, left_ = 0, slope_ = 0, from_[4] = {};
};

/// Floats: runs of screen between nothing but non-negative halves, what a good float picture holds,
/// whatever a float can be, or held values from which shortcuts must keep away.
template <>
class Samples<float> {
 public:
  explicit Samples(Random& random)
      : random_(random), content_(random.pick({halves, clean, anything, extremes})) {}

  void startRun() {
    left_ = random_.between(0, 23);
    screen_ = random_.oneIn(2);
    noise_ = random_.pick({0.0f, 0.06f});
    // Log light of 30000 is infinite; a hold-out of 1e-44 divides by next to nothing.
    for (float& v : held_)
      v = random_.pick({0.2f, 1.0f, 1.0f, 3.9f, 4.1f, 100.0f, 30000.5f, 1e-44f, 0.0f});
  }

  bool runEnds() { return left_-- == 0; }

  float next(int c, float screen) {
    if (screen_ && c < 3) return half(screen + random_.real(0, noise_));
    if (content_ == extremes) return held_[c];
    const float v = any();
    if (content_ == anything) return v;
    if (content_ == clean) return v >= 0 && v < 10 ? v : 0.25f;
    return half(v) >= 0 ? half(v) : 0.25f;  // infinities and a zero of either sign stay
  }

 private:
  enum Content { halves, clean, anything, extremes };

  static float half(float v) { return model::fromHalf(model::toHalf(v)); }

  float any() {
    const int kind = random_.between(0, 15);
    if (kind == 0)
      return random_.pick({0.0f,    -0.0f,   1.0f,   -1.0f,    INFINITY, -INFINITY, NAN,    1e-40f,
                           -1e-40f, 6.5e4f,  7e4f,   1e30f,    -1e30f,   3e38f,     0.081f, 1e-7f,
                           -1e-3f,  5.9e-8f, 2e-45f, 0x1p-24f, 0.018f,   25.0f});
    if (kind == 1) return random_.real(-2, 6);
    return kind < 8 ? half(random_.unit()) : random_.unit();
  }

  Random& random_;
  Content content_;
  int left_ = 0;
  bool screen_ = false;
  float noise_ = 0, held_[4] = {};
};

template <class T>
void fill(Random& random, const OtileImage& image, const float* screen, int w, int h) {
  void* const channels[] = {image.red, image.green, image.blue, image.alpha};
  Samples<T> samples(random);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      if (samples.runEnds()) samples.startRun();
      for (int c = 0; c < 4; ++c)
        if (channels[c] != nullptr)
          static_cast<T*>(channels[c])[y * image.lineStep + x * image.pixelStep] =
              samples.next(c, c < 3 ? screen[c] : 0.5f);
    }
}

template <class T>
bool key(const orvanite::Target& target, const QMXOrvaniteTable& engine, int w, int h,
         const Otile& tile, const orvanite::Choices& choices) {
  if constexpr (sizeof(T) == 4)
    return target.floats->key(engine, w, h, tile, choices);
  else
    return target.integers->key(engine, orvanite::depthOfSample<T>, w, h, tile, choices);
}

template <class T>
struct Tiles {
  Fenced<T> memory[6];  // destination, background, foreground, clean plate, hold-out, garbage

  /// Keys one random tile by the definition and by the target; whether the target took it.
  bool compare(Random& random, const orvanite::Target& target, QMXOrvaniteTable& engine,
               const Parameters& p, int w, int h) {
    constexpr bool floats = sizeof(T) == 4;
    const bool high = random.oneIn(2);
    const int pad = random.pick({0, 0, 1, 5});
    const auto form = [&] { return static_cast<Form>(random.between(0, floats ? 3 : 4)); };
    // Without an alpha to write, the destination's is a pointer that nobody follows.
    const bool dummy = engine.view == 0 && random.oneIn(4);
    const auto written = [&] {
      return dummy ? random.pick({rgbWithoutAlpha, bgrWithoutAlpha, floats ? rgba : planar})
                   : random.pick({rgba, abgr, floats ? rgba : planar});
    };
    Otile tile = {};
    const int place = random.between(0, 2);
    tile.bg = describe(memory[1], place == 2 ? written() : form(), w, h, pad, high);
    tile.fg = describe(memory[2], place == 1 ? written() : form(), w, h, pad, high);
    tile.dst = place == 2   ? tile.bg
               : place == 1 ? tile.fg
                            : describe(memory[0], written(), w, h, pad, high);
    tile.ref = describe(memory[3], form(), w, h, pad, high);
    tile.hold = describeMatte(memory[4], floats ? 4 : random.pick({1, 4, 4, 3}), w, h, high);
    tile.garbage = describeMatte(memory[5], floats ? 4 : random.pick({1, 4, 4, 7}), w, h, high);
    if (dummy || (place == 2 && random.oneIn(2))) tile.bg.alpha = nullptr;
    if (random.oneIn(3)) tile.hold = {};
    if (random.oneIn(3)) tile.garbage = {};
    for (const OtileImage* image :
         {&tile.dst, &tile.bg, &tile.fg, &tile.ref, &tile.hold, &tile.garbage}) {
      fill<T>(random, *image, p.screen, w, h);
    }
    if (dummy) tile.dst.alpha = dummyAlpha(random, tile.dst, sizeof(T));
    if (place != 1 && random.oneIn(12))
      tile.fg = {};
    else if (engine.view != 0 && random.oneIn(2))
      tile.bg = {};
    std::vector<std::vector<T>> before, wanted;
    for (const Fenced<T>& m : memory) before.push_back(m.contents());

    const orvanite::Choices choices = {.ref = p.ref,
                                       .linear = engine.colourspace == 0,
                                       .hold = p.hold && tile.hold.alpha != nullptr,
                                       .garbage = p.garbage && tile.garbage.alpha != nullptr,
                                       .alpha = engine.view != 0 || tile.bg.alpha != nullptr};
    const auto define = orvanite::definitionKernel(orvanite::depthOfSample<T>, choices);
    EXPECT_EQ(define(&engine, w, h, &tile), 0);
    for (std::size_t i = 0; i < 6; ++i) {
      wanted.push_back(memory[i].contents());
      memory[i].restore(before[i]);
    }
    const bool keyed = key<T>(target, engine, w, h, tile, choices);
    if (!keyed) wanted = before;  // nothing is written
    for (std::size_t i = 0; i < 6; ++i) {
      const std::vector<T> got = memory[i].contents();
      std::size_t at = 0;
      while (at < got.size() && same(got[at], wanted[i][at])) ++at;
      if (at == got.size()) continue;
      ADD_FAILURE() << std::hexfloat << target.name << ", depth " << sizeof(T) << ", " << w << "x"
                    << h << ", pad " << pad << ", destination " << place << ", view " << engine.view
                    << ", ref " << choices.ref << " hold " << choices.hold << " garbage "
                    << choices.garbage << " alpha " << choices.alpha << ": image " << i
                    << " sample " << at << " of " << got.size() << " is " << +got[at]
                    << ", the definition gives " << +wanted[i][at] << "\n"
                    << p;
      break;
    }
    return keyed;
  }
};

/// Leaves nothing of the grades but the encoding.
void ungrade(Parameters& p) {
  for (int set = 0; set < 2; ++set) {
    for (int c = 0; c < 3; ++c) {
      p.exposure[set][c] = p.gamma[set][c] = 1;
      p.offset[set][c] = 0;
    }
    p.saturation[set] = 1;
  }
}

/// Extremes that random parameters seldom meet: keys at their ceiling, saturation far beyond 16
/// bits, foreground and background that round apart, a grade behind a pure foreground, straight
/// lines for tables and such as just are none; of floats, values without bounds.
template <class T>
void makeExtreme(Random& random, Parameters& p) {
  switch (random.between(0, 7)) {
    case 0:  // hardly any colour in the screen
      p.screen[0] = 0.5f;
      p.screen[1] = 0.51f;
      p.screen[2] = random.pick({0.5f, 0.505f, 0.4f});
      break;
    case 1:
      p.neutral[0] = random.pick({0.001f, 0.02f, 0.2f});
      p.saturation[0] = 3;
      break;
    case 2:
      p.neutral[random.between(0, 2)] = random.pick({0.47f, 0.53f});
      p.saturation[0] = p.saturation[1] = 1;
      break;
    case 3:
      p.gamma[0][0] = 1.7f;
      p.saturation[0] = p.saturation[1] = 1;
      break;
    case 4:
      ungrade(p);
      break;
    case 5:
      p.colourspace = 0;
      for (int c = 0; c < 3; ++c) {
        p.neutral[c] = p.balance[c] = 0.5f;
        p.gain[c] = p.offset[1][c] = 0;
        p.exposure[1][c] = p.gamma[1][c] = 1;
      }
      *random.pick({&p.screenRange, &p.screenRange, &p.neutral[1], &p.balance[2], &p.gain[0],
                    &p.gamma[1][2], &p.offset[1][0]}) += 0.00002f;
      break;
    case 6:  // a weight of the key is 0, and 0 times the infinite light of a log sample no number
      p.colourspace = 1;
      std::fill_n(p.balance, 3, random.pick({0.0f, 1.0f}));
      break;
    default:
      if (sizeof(T) < 4) break;
      ungrade(p);
      *random.pick({&p.exposure[0][0], &p.offset[1][1], &p.replace[0], &p.background[0]}) =
          random.pick({1e20f, INFINITY, -INFINITY, NAN});
      break;
  }
}

// A sanitizer looks at what is touched, which a third of the tiles shows as well.
#ifdef ORVANITE_SANITIZED
constexpr int kShare = 3;
#else
constexpr int kShare = 1;
#endif

template <class T>
void sweep(int engines, std::uint64_t seed) {
  constexpr bool floats = sizeof(T) == 4;
  engines /= kShare;
  Random random(seed);
  Tiles<T> tiles;
  int targets = 0;
  for (const orvanite::Target& target : orvanite::knownTargets()) {
    const bool present = floats ? target.floats != nullptr : target.integers != nullptr;
    if (!present || !target.supported()) continue;
    ++targets;
    int keyed = 0, offered = 0, lines = 0, width = 0;
    for (int round = 0; round < engines && !::testing::Test::HasFailure(); ++round) {
      Parameters p = randomParameters(random);
      p.setAllMaxima(floats ? 1 : static_cast<int>(static_cast<T>(~0)));
      p.ref = !floats && random.oneIn(4);
      if (random.oneIn(2)) makeExtreme<T>(random, p);
      const Engine engine = makeEngine(p);
      ::testing::internal::CaptureStderr();
      const int result = orvanite_makeLuts(engine.get());
      ::testing::internal::GetCapturedStderr();
      if (result != 0) continue;
      for (const int view : {0, 0, 1, 2, 4, 5}) {
        orvanite_setView(engine.get(), view);
        ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
        width = width < 70 ? width + 1 : random.pick({1, 255, 256, 257, 300, 520});
        if (width > 70)
          width = 0, ++offered, keyed += tiles.compare(random, target, *engine, p, 513, 2);
        ++offered;
        lines += !floats && engine->plan->plateIsLine ? 1 : 0;
        keyed += tiles.compare(random, target, *engine, p, width + 1, random.between(1, 3));
      }
    }
    // What is left to the definition: integer keys and saturation that do not fit the lanes.
    EXPECT_GT(keyed, floats ? offered - 1 : offered * 3 / 5) << target.name;
    EXPECT_EQ(lines > 0, sizeof(T) == 2) << target.name << ": plates computed: " << lines;
  }
  EXPECT_TRUE(targets > 0 || orvanite::knownTargets().size() == 1);
}

}  // namespace

TEST(Kernels, KeyEightBitTilesLikeTheDefinition) { sweep<unsigned char>(700, 101); }
TEST(Kernels, KeySixteenBitTilesLikeTheDefinition) { sweep<unsigned short>(200, 102); }
TEST(Kernels, KeyFloatTilesLikeTheDefinition) { sweep<float>(500, 103); }

TEST(Kernels, LeaveToTheDefinitionWhatTheyCannotTake) {
  Parameters p;
  p.setAllMaxima(1);
  const Engine engine = makeEngine(p);
  ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
  std::vector<float> a(4 * 64), b(4 * 64);
  const auto imageAt = [](float* at) { return OtileImage{at, at + 1, at + 2, at + 3, 4, 32}; };
  const Otile good = {imageAt(a.data()), imageAt(b.data()), imageAt(a.data()), {}, {}, {}};
  Otile shifted = good;  // reads what was written a pixel before
  shifted.dst = imageAt(a.data() + 4);
  Otile mixed = good;  // green, red, blue
  std::swap(mixed.fg.red, mixed.fg.green);
  Otile overlapping = good;  // lines of the destination overlap
  overlapping.dst.lineStep = overlapping.fg.lineStep = 28;
  Otile apart = good;  // a background whose alpha lies elsewhere
  apart.bg.alpha = b.data() + 130;
  for (const orvanite::Target& target : orvanite::knownTargets()) {
    if (!target.supported() || target.floats == nullptr) continue;
    const auto takes = [&](const Otile& tile) {
      return target.floats->key(*engine, 8, 2, tile, {.linear = true, .alpha = true});
    };
    EXPECT_TRUE(takes(good)) << target.name;
    for (const Otile* bad : {&shifted, &mixed, &overlapping, &apart})
      EXPECT_FALSE(takes(*bad)) << target.name;
  }
}
