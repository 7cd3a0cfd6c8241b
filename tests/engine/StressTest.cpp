// SPDX-License-Identifier: BSD-3-Clause
//
// Many engines on many threads at once, and one engine through many changes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <thread>
#include <vector>

#include "tests/Sanitized.h"
#include "tests/engine/Scene.h"

namespace {

constexpr int width = 37, height = 3;

template <class Sample>
OtileImage noise(Random& random, Sample* sample, float most) {
  for (int k = 0; k < 4 * width * height; ++k)
    sample[k] = static_cast<Sample>(random.real(0, most));
  return {sample, sample + 1, sample + 2, sample + 3, 4, 4 * width};
}

/// Keys noise in place, at a depth of 1, 2 or 4 bytes; its samples as they lie in memory.
std::vector<float> keyedNoise(Random& random, const Engine& engine, int bytes) {
  std::vector<float> memory(4 * width * height);  // room for any depth
  Otile tile = {};
  tile.fg = bytes == 1   ? noise(random, reinterpret_cast<unsigned char*>(memory.data()), 255)
            : bytes == 2 ? noise(random, reinterpret_cast<unsigned short*>(memory.data()), 65535)
                         : noise(random, memory.data(), 1);
  tile.dst = tile.bg = tile.fg;
  EXPECT_EQ(orvanite_render(engine.get(), bytes, width, height, &tile), 0);
  return memory;
}

Parameters usable(Random& random, int bytes) {
  Parameters p = randomParameters(random);
  p.screen[0] = p.screen[2] = 0.1f;
  p.screen[1] = random.real(0.4f, 0.9f);
  for (float& v : p.neutral) v = 0.5f;
  p.setAllMaxima(bytes == 1 ? 255 : bytes == 2 ? 65535 : 1);
  return p;
}

/// What one engine makes of pictures at changing depths and parameters.
std::vector<float> outputs(std::uint64_t seed) {
  Random random(seed);
  const Engine engine(orvanite_new());
  std::vector<float> all;
  for (int i = 0; i < 12; ++i) {
    const int bytes = random.pick({1, 2, 4});
    apply(usable(random, bytes), engine.get());
    EXPECT_EQ(orvanite_makeLuts(engine.get()), 0);
    const std::vector<float> one = keyedNoise(random, engine, bytes);
    all.insert(all.end(), one.begin(), one.end());
  }
  return all;
}

long residentPages() {
  long whole = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> whole >> resident;
  return resident;
}

}  // namespace

TEST(Stress, TwentyFourEnginesOnEightThreadsKeyAsOneDoesAlone) {
  constexpr std::size_t engines = 24, threads = 8;
  std::vector<std::vector<float>> made(engines);
  std::vector<std::thread> running;
  for (std::size_t t = 0; t < threads; ++t) {
    running.emplace_back([&made, t] {
      for (std::size_t k = t; k < engines; k += threads) made[k] = outputs(k);
    });
  }
  for (std::thread& one : running) one.join();
  for (std::size_t k = 0; k < engines; ++k) {
    const std::vector<float> alone = outputs(k);
    ASSERT_EQ(made[k].size(), alone.size());
    EXPECT_EQ(std::memcmp(made[k].data(), alone.data(), alone.size() * sizeof(float)), 0) << k;
  }
}

TEST(Stress, TenThousandChangesTakeNoMoreMemoryThanAThousand) {
#ifdef ORVANITE_SANITIZED
  GTEST_SKIP() << "the sanitizers keep what is freed";
#endif
  Random random(7);
  const Engine engine(orvanite_new());
  int bytes = 1;
  long before = 0;
  for (int i = 0; i < 10000; ++i) {
    if (i == 1000) before = residentPages();
    if (i % 50 == 0) {
      bytes = random.pick({1, 2, 4});
      apply(usable(random, bytes), engine.get());
    }
    orvanite_setGain(engine.get(), i % 3, random.real(-0.2f, 0.2f));
    orvanite_setExposure(engine.get(), random.real(0.5f, 2), 1, 1, i % 2);
    ASSERT_EQ(orvanite_makeLuts(engine.get()), 0);
    keyedNoise(random, engine, bytes);
  }
  // A table of 16-bit codes leaked at every hundredth change alone would be 11 MiB.
  EXPECT_LT((residentPages() - before) * sysconf(_SC_PAGESIZE), 4 << 20);
}
