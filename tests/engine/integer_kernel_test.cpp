// SPDX-License-Identifier: BSD-3-Clause
//
// The integer kernels of every target against the reference: tiles of any width and arrangement,
// alone or in place, that end or begin where memory ends. A difference prints the case.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "engine/kernels/Target.h"
#include "engine/tables/IntegerPlan.h"
#include "tests/engine/References.h"
#include "tests/engine/Scene.h"

namespace {

/// Memory between two pages that nobody may touch.
class Fenced {
 public:
  static constexpr std::size_t bytes = 1 << 16;

  Fenced() : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
    void* const all =
        mmap(nullptr, bytes + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) throw std::bad_alloc();
    start_ = static_cast<unsigned char*>(all) + page_;
    if (mprotect(start_, bytes, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
  }
  ~Fenced() { munmap(start_ - page_, bytes + 2 * page_); }
  Fenced(const Fenced&) = delete;
  Fenced& operator=(const Fenced&) = delete;

  /// Where n samples begin that end at the upper fence or begin at the lower one.
  template <class T>
  T* place(std::size_t n, bool high) {
    return reinterpret_cast<T*>(high ? start_ + bytes - n * sizeof(T) : start_);
  }

  std::vector<unsigned char> contents() const { return {start_, start_ + bytes}; }
  void restore(const std::vector<unsigned char>& from) { std::memcpy(start_, from.data(), bytes); }

 private:
  std::size_t page_;
  unsigned char* start_;
};

enum Form { rgba, abgr, planar, rgbWithoutAlpha, bgrWithoutAlpha };

/// One image in fenced memory: only the samples that the tile promises lie inside the fence.
template <class T>
OtileImage describe(Fenced& memory, Form form, int w, int h, int pad, bool high) {
  const bool whole = form == rgba || form == abgr;
  if (form == planar) {
    const int line = w + pad, plane = line * h;
    T* const p = memory.place<T>(static_cast<std::size_t>(4 * plane - pad), high);
    return {p, p + plane, p + 2 * plane, p + 3 * plane, 1, line};
  }
  const int line = 4 * w + pad;
  const std::size_t n = static_cast<std::size_t>(line * h - pad - (whole ? 0 : 1));
  T* const p = memory.place<T>(n, high);
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
OtileImage describeMatte(Fenced& memory, int step, int w, int h, bool high) {
  const int line = step * w;
  OtileImage image = {};
  image.alpha = memory.place<T>(static_cast<std::size_t>(line * h - step + 1), high);
  image.pixelStep = step;
  image.lineStep = line;
  return image;
}

/// Runs of screen, of plain foreground, ramps, and noise.
template <class T>
void fill(Random& random, const OtileImage& image, const float* screen, int w, int h) {
  constexpr int max = static_cast<T>(~T{0});
  void* const channels[] = {image.red, image.green, image.blue, image.alpha};
  int kind = 0, left = 0, from[4] = {}, slope = 0;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      if (left-- == 0) {
        kind = random.between(0, 4);
        left = random.between(0, 80);
        slope = random.between(-max / 16, max / 16);
        for (int& f : from) f = random.between(0, max);
      }
      for (int c = 0; c < 4; ++c) {
        if (channels[c] == nullptr) continue;
        const float screenCode = (c < 3 ? screen[c] : 0.5f) * static_cast<float>(max);
        int v = from[c];
        if (kind == 0) v = static_cast<int>(screenCode) + random.between(0, 2);
        if (kind == 1) v = random.between(0, max);
        if (kind == 2) v = from[c] + left * slope;
        if (kind == 3) v = random.pick({0, 1, max - 1, max});
        static_cast<T*>(channels[c])[y * image.lineStep + x * image.pixelStep] =
            static_cast<T>(v < 0     ? 0
                           : v > max ? max
                                     : v);
      }
    }
  }
}

template <class T>
struct Tiles {
  Fenced memory[6];  // destination, background, foreground, clean plate, hold-out, garbage

  /// Keys one random tile by the reference and by the target; whether the target has a kernel.
  bool compare(Random& random, const orvanite::Target& target, QMXOrvaniteTable& engine,
               const Parameters& p, int w, int h) {
    const bool high = random.oneIn(2);
    const int pad = random.pick({0, 0, 1, 5});
    const auto form = [&] { return static_cast<Form>(random.between(0, 4)); };
    const auto full = [&] { return random.pick({rgba, abgr, planar}); };
    Otile tile = {};
    const int place = random.between(0, 2);
    tile.bg = describe<T>(memory[1], place == 2 ? full() : form(), w, h, pad, high);
    tile.fg = describe<T>(memory[2], place == 1 ? full() : form(), w, h, pad, high);
    tile.dst = place == 2   ? tile.bg
               : place == 1 ? tile.fg
                            : describe<T>(memory[0], full(), w, h, pad, high);
    tile.ref = describe<T>(memory[3], form(), w, h, pad, high);
    tile.hold = describeMatte<T>(memory[4], random.pick({1, 4, 4, 3}), w, h, high);
    tile.garbage = describeMatte<T>(memory[5], random.pick({1, 4, 4, 7}), w, h, high);
    const bool alphaTaken = place == 2 && random.oneIn(2);
    if (alphaTaken) tile.bg.alpha = nullptr;
    if (random.oneIn(3)) tile.hold = {};
    if (random.oneIn(3)) tile.garbage = {};
    if (engine.view != 0 && random.oneIn(2)) tile.bg = {};
    for (const OtileImage* image :
         {&tile.dst, &tile.bg, &tile.fg, &tile.ref, &tile.hold, &tile.garbage}) {
      fill<T>(random, *image, p.screen, w, h);
    }
    std::vector<std::vector<unsigned char>> before, wanted;
    for (Fenced& m : memory) before.push_back(m.contents());

    const orvanite::TileVariant variant = {p.ref, p.hold && tile.hold.alpha != nullptr,
                                           p.garbage && tile.garbage.alpha != nullptr,
                                           engine.view != 0 || tile.bg.alpha != nullptr};
    const orvanite::TileKernel kernel =
        target.integers->choose(engine, static_cast<int>(sizeof(T)), w, h, tile, variant);
    if (kernel == nullptr) return false;
    const model::Instance instance = {variant.ref, variant.hold, variant.garbage, variant.alpha};
    EXPECT_EQ(referenceKernel<T>(instance, false)(&engine, w, h, &tile), 0);
    for (std::size_t i = 0; i < 6; ++i) {
      wanted.push_back(memory[i].contents());
      memory[i].restore(before[i]);
    }
    kernel(engine, w, h, tile, variant);
    for (std::size_t i = 0; i < 6; ++i) {
      const std::vector<unsigned char> got = memory[i].contents();
      if (got == wanted[i]) continue;
      std::size_t at = 0;
      while (got[at] == wanted[i][at]) ++at;
      ADD_FAILURE() << target.name << ", depth " << sizeof(T) << ", " << w << "x" << h << ", pad "
                    << pad << ", destination " << place << ", view " << engine.view << ", ref "
                    << variant.ref << " hold " << variant.hold << " garbage " << variant.garbage
                    << " alpha " << variant.alpha << ": image " << i << " byte " << at << " is "
                    << int{got[at]} << ", the reference gives " << int{wanted[i][at]} << "\n"
                    << p;
      break;
    }
    return true;
  }
};

/// Extremes that random parameters seldom meet: keys at their ceiling, saturation far beyond 16
/// bits, foreground and background that round apart, a grade behind a pure foreground, straight
/// lines for tables and such as just are none.
void makeExtreme(Random& random, Parameters& p) {
  switch (random.between(0, 6)) {
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
      p.neutral[1] = 0.47f;
      p.saturation[0] = p.saturation[1] = 1;
      break;
    case 3:
      p.gamma[0][0] = 1.7f;
      p.saturation[0] = p.saturation[1] = 1;
      break;
    case 4:  // nothing but the encoding
      for (int set = 0; set < 2; ++set) {
        for (int c = 0; c < 3; ++c) {
          p.exposure[set][c] = p.gamma[set][c] = 1;
          p.offset[set][c] = 0;
        }
        p.saturation[set] = 1;
      }
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
    default:
      break;
  }
}

template <class T>
void sweep(int engines, std::uint64_t seed) {
  Random random(seed);
  Tiles<T> tiles;
  int targets = 0;
  for (const orvanite::Target& target : orvanite::knownTargets()) {
    if (target.integers == nullptr || !target.supported()) continue;
    ++targets;
    int keyed = 0, offered = 0, lines = 0, width = 0;
    for (int round = 0; round < engines && !::testing::Test::HasFailure(); ++round) {
      Parameters p = randomParameters(random);
      p.setAllMaxima(static_cast<T>(~T{0}));
      p.ref = random.oneIn(4);
      if (random.oneIn(2)) makeExtreme(random, p);
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
        lines += engine->plan->plateIsLine ? 1 : 0;
        keyed += tiles.compare(random, target, *engine, p, width + 1, random.between(1, 3));
      }
    }
    // What is left to the reference: keys and saturation that do not fit the lanes.
    EXPECT_GT(keyed, offered * 3 / 5) << target.name << " keyed few of the tiles itself";
    EXPECT_EQ(lines > 0, sizeof(T) == 2) << target.name << ": plates computed: " << lines;
  }
  EXPECT_GT(targets, 0);
}

}  // namespace

TEST(IntegerKernels, KeyEightBitTilesLikeTheReference) { sweep<unsigned char>(700, 101); }
TEST(IntegerKernels, KeySixteenBitTilesLikeTheReference) { sweep<unsigned short>(200, 102); }
