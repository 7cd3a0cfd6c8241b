// SPDX-License-Identifier: BSD-3-Clause
//
// Kernels take whole vectors of pixels; what lies beside the caller's samples may be no memory at
// all. Every image here begins right behind a page that cannot be touched, or ends right before
// one, and images of which the caller gives only some samples end with those.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "engine/QMXOrvaniteTable.h"
#include "engine/kernels/Target.h"

namespace {

/// Memory between two pages that cannot be touched.
class Fenced {
 public:
  Fenced(std::size_t bytes, bool atEnd) {
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t inner = (bytes + page - 1) / page * page;
    size_ = inner + 2 * page;
    memory_ =
        static_cast<char*>(mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    EXPECT_EQ(mprotect(memory_ + page, inner, PROT_READ | PROT_WRITE), 0);
    begin_ = memory_ + page + (atEnd ? inner - bytes : 0);
  }
  ~Fenced() { munmap(memory_, size_); }
  Fenced(const Fenced&) = delete;
  Fenced& operator=(const Fenced&) = delete;
  char* begin() const { return begin_; }

 private:
  std::size_t size_ = 0;
  char *memory_ = nullptr, *begin_ = nullptr;
};

constexpr int height = 2;

enum Given { all, coloursRedFirst, coloursAlphaFirst, oneSample };

/// An interleaved image of which only the given samples exist, filled from a seed.
template <class T>
struct FencedImage {
  Fenced memory;
  OtileImage image = {};

  static std::size_t samples(int width, Given given) {
    const std::size_t whole = static_cast<std::size_t>(4 * width * height);
    return given == all ? whole : given == oneSample ? whole - 3 : whole - 1;
  }

  FencedImage(int width, Given given, bool atEnd, unsigned seed)
      : memory(samples(width, given) * sizeof(T), atEnd) {
    std::mt19937 random(seed);
    T* const first = reinterpret_cast<T*>(memory.begin());
    for (std::size_t i = 0; i < samples(width, given); ++i) {
      const unsigned v = static_cast<unsigned>(random() % 256);
      first[i] = sizeof(T) == 4 ? static_cast<T>(static_cast<float>(v) / 256.0f)
                                : static_cast<T>(v * (sizeof(T) == 2 ? 257U : 1U));
    }
    image.pixelStep = 4;
    image.lineStep = 4 * width;
    if (given == oneSample) {
      image.alpha = first;
    } else if (given == coloursAlphaFirst) {
      image.blue = first;
      image.green = first + 1;
      image.red = first + 2;
    } else {
      image.red = first;
      image.green = first + 1;
      image.blue = first + 2;
      image.alpha = given == all ? first + 3 : nullptr;
    }
  }
};

orvanite::TileKernel choose(const orvanite::Target& target, const QMXOrvaniteTable& e, int depth,
                            int width, const Otile& tile, const orvanite::TileVariant& variant) {
  if (depth == 4) {
    return target.floats ? target.floats->choose(e, width, height, tile, variant) : nullptr;
  }
  return target.integers ? target.integers->choose(e, depth, width, height, tile, variant)
                         : nullptr;
}

/// Keys tiles of many widths; the destination must come out alike wherever the images lie.
/// Returns how many tiles the target had a kernel for.
template <class T>
int keyFencedTiles(const orvanite::Target& target, int colourspace) {
  constexpr int depth = sizeof(T);
  QMXOrvaniteTable e;
  e.useRef(0);
  e.setColourspace(colourspace);
  e.setScreen(0.1f, 0.2f, 0.7f);
  const int max = depth == 4 ? 1 : depth == 2 ? 65535 : 255;
  for (auto setMax :
       {&QMXOrvaniteTable::setFgMax, &QMXOrvaniteTable::setBgMax, &QMXOrvaniteTable::setDstMax,
        &QMXOrvaniteTable::setHMatteMax, &QMXOrvaniteTable::setGMatteMax}) {
    (e.*setMax)(max);
  }
  EXPECT_EQ(e.makeLuts(), 0);
  int keyed = 0;
  for (int width = 1; width <= 67; ++width) {
    for (const Given given : {all, coloursRedFirst, coloursAlphaFirst}) {
      const orvanite::TileVariant variant = {false, true, true, given == all};
      std::vector<char> results[2];
      for (const bool atEnd : {false, true}) {
        const FencedImage<T> dst(width, all, atEnd, 1), fg(width, given, atEnd, 2);
        const FencedImage<T> bg(width, given, atEnd, 3), hold(width, oneSample, atEnd, 4);
        const FencedImage<T> garbage(width, oneSample, atEnd, 5);
        const Otile tile = {dst.image, bg.image, fg.image, hold.image, garbage.image, {}};
        const orvanite::TileKernel kernel = choose(target, e, depth, width, tile, variant);
        if (kernel == nullptr) continue;
        kernel(e, width, height, tile, variant);
        const char* const from = dst.memory.begin();
        results[atEnd].assign(from, from + dst.samples(width, all) * sizeof(T));
        ++keyed;
      }
      EXPECT_EQ(results[0], results[1]) << target.name << ", depth " << depth << ", " << width
                                        << " pixels, samples given " << given;
    }
  }
  return keyed;
}

TEST(PageEnds, AreNeverCrossed) {
  for (const orvanite::Target& target : orvanite::knownTargets()) {
    if (!target.supported()) continue;
    if (target.floats != nullptr) {
      for (int colourspace = 0; colourspace < 3; ++colourspace) {
        EXPECT_EQ(keyFencedTiles<float>(target, colourspace), 67 * 3 * 2) << target.name;
      }
    }
    if (target.integers != nullptr) {
      EXPECT_GT(keyFencedTiles<unsigned char>(target, 1), 0) << target.name;
      EXPECT_GT(keyFencedTiles<unsigned short>(target, 1), 0) << target.name;
    }
  }
}

}  // namespace
