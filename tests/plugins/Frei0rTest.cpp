// SPDX-License-Identifier: BSD-3-Clause
//
// The frei0r plug-ins as a host meets them: the loaded binaries, their pixels, their manners.
#include "tests/plugins/Frei0rHost.h"

#include "base/Error.h"

using namespace frei0rTest;

TEST(Frei0rFrame, HasTheFlatInterfacesBytesInAndOutOfPlace) {
  for (const bool mixer : {false, true}) {
    const Binary binary(binaries[mixer]);
    for (unsigned seed = 1; seed <= 60; ++seed) {
      std::mt19937 random(seed);
      const int width = 1 + static_cast<int>(random() % 70),
                height = 1 + static_cast<int>(random() % 40);
      Settings settings = ofxTest::randomSettings(random);
      forgetWhatIsNotCarried(settings, mixer);
      const auto plate = noise(random, width, height), below = noise(random, width, height);
      f0r_instance_t instance =
          binary.construct(static_cast<unsigned>(width), static_cast<unsigned>(height));
      give(binary, instance, settings, mixer);
      const auto expected = flat(settings, plate, mixer ? &below : nullptr, width, height);
      const auto update = [&](const std::uint32_t* in, std::uint32_t* out) {
        if (mixer) {
          binary.update2(instance, 0.5, below.data(), in, nullptr, out);
        } else {
          binary.update(instance, 0.5, in, out);
        }
      };
      std::vector<std::uint32_t> out(plate.size());
      update(plate.data(), out.data());
      ASSERT_EQ(out, expected) << "seed " << seed << (mixer ? " mixer" : " filter");
      out = plate;
      update(out.data(), out.data());
      ASSERT_EQ(out, expected) << "in place, seed " << seed;
      binary.destruct(instance);
    }
  }
}

// frei0r asks hosts for sizes in eights, which they do not keep to. Left alone, a filter keys
// beside estimates of the whole frame; a frame too small to show a screen it keys by the defaults.
TEST(Frei0rFrame, OfAnySizeIsKeyedAsTheCommandKeysIt) {
  const Binary binary(ORVANITE_FREI0R_FILTER);
  const std::pair<int, int> sizes[] = {{1, 1},  {2, 1},  {1, 2},   {3, 3},   {7, 5},   {1, 40},
                                       {40, 1}, {9, 17}, {31, 33}, {97, 61}, {130, 7}, {250, 141}};
  int found = 0;
  for (const auto& [width, height] : sizes) {
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
    std::mt19937 random(12);
    std::vector<std::uint32_t> plate;
    for (int i = 0; i < width * height; ++i) {
      const auto grain = static_cast<std::uint32_t>(random() % 5);
      const bool subject = i % width > width * 2 / 3;
      plate.push_back(subject ? 0xFF323CB4U : 0xFF3AA826U + grain * 0x010101U);
    }
    std::vector<std::uint32_t> wanted, out(plate.size());
    try {
      wanted = keyedByFirst(plate, plate, width, height, "automatic");
      ++found;
    } catch (const orvanite::Error&) {
      Settings settings;
      settings.setText("output", "unpremultiplied");
      wanted = flat(settings, plate, nullptr, width, height);
    }
    f0r_instance_t instance =
        binary.construct(static_cast<unsigned>(width), static_cast<unsigned>(height));
    for (int frame = 0; frame < 2; ++frame) {
      binary.update(instance, frame, plate.data(), out.data());
      EXPECT_EQ(out, wanted) << "frame " << frame;
    }
    out = plate;
    binary.update(instance, 2, out.data(), out.data());
    EXPECT_EQ(out, wanted) << "in place";
    binary.destruct(instance);
  }
  EXPECT_GT(found, 3);
}

// Some hosts cut a frame into slices and update one instance from several threads; a parameter may
// move meanwhile. Each slice has the old value or the new one.
TEST(Frei0rFrame, MayBeCutIntoSlicesOnThreads) {
  const Binary binary(ORVANITE_FREI0R_FILTER);
  std::mt19937 random(9);
  Settings settings = ofxTest::randomSettings(random);
  forgetWhatIsNotCarried(settings, false);
  settings.setText("output", "matte");
  constexpr int width = 32, slice = 8, slices = 8;
  const auto plate = noise(random, width, slice * slices);
  f0r_instance_t instance = binary.construct(width, slice);
  give(binary, instance, settings, false);
  Settings moved = settings;
  moved.setNumber("screenRange", 0.25);
  const auto was = flat(settings, plate, nullptr, width, slice * slices);
  const auto is = flat(moved, plate, nullptr, width, slice * slices);
  ASSERT_NE(was, is);
  std::vector<std::uint32_t> out(plate.size());
  std::vector<std::thread> threads;
  std::atomic<int> next = 0;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int s = next++; s < slices; s = next++) {
        const auto at = static_cast<std::size_t>(s * slice * width);
        binary.update(instance, 0, plate.data() + at, out.data() + at);
      }
    });
  }
  double half = 0.5;  // of 0 to 0.5
  binary.set(instance, &half, 4);
  for (std::thread& thread : threads) thread.join();
  for (int s = 0; s < slices; ++s) {
    const auto at = static_cast<std::size_t>(s * slice * width);
    const auto same = [&](const std::vector<std::uint32_t>& wanted) {
      return std::memcmp(out.data() + at, wanted.data() + at, slice * width * 4) == 0;
    };
    EXPECT_TRUE(same(was) || same(is)) << "slice " << s;
  }
  binary.destruct(instance);
}

TEST(Frei0rHosts, MayAskForNonsenseWithoutHarm) {
  const Binary binary(ORVANITE_FREI0R_MIXER);
  std::mt19937 random(3);
  const auto plate = noise(random, 4, 4);
  std::vector<std::uint32_t> out(plate.size());
  for (const auto& [w, h] : {std::pair{0U, 0U}, {0U, 5U}, {5U, 0U}}) {
    f0r_instance_t empty = binary.construct(w, h);
    binary.update2(empty, 0, plate.data(), plate.data(), nullptr, out.data());
    EXPECT_EQ(out, std::vector<std::uint32_t>(plate.size()));
    binary.destruct(empty);
  }
  EXPECT_EQ(binary.construct(std::numeric_limits<unsigned>::max(), 4), nullptr);

  f0r_instance_t instance = binary.construct(4, 4);
  double number = std::nan("");
  f0r_param_color_t colour{std::nanf(""), 0, 0};
  std::string words = "no such output";
  char* text = words.data();
  char* nothing = nullptr;
  for (int i = -2; i < binary.about.num_params + 2; ++i) {
    f0r_param_info_t info{};
    binary.paramInfo(&info, i);
    if (!info.name) {
      binary.set(instance, &number, i);
      binary.get(instance, &number, i);
      continue;
    }
    binary.set(instance, nullptr, i);
    binary.get(instance, nullptr, i);
    if (info.type == F0R_PARAM_STRING) binary.set(instance, &text, i);
    if (info.type == F0R_PARAM_STRING) binary.set(instance, &nothing, i);
    if (info.type == F0R_PARAM_COLOR) binary.set(instance, &colour, i);
    number = std::nan("");
    if (info.type == F0R_PARAM_DOUBLE) binary.set(instance, &number, i);
  }
  binary.update2(nullptr, 0, plate.data(), plate.data(), nullptr, out.data());
  binary.update2(instance, 0, plate.data(), nullptr, nullptr, out.data());
  binary.update2(instance, 0, plate.data(), plate.data(), nullptr, nullptr);
  binary.info(nullptr);
  binary.paramInfo(nullptr, 0);
  binary.destruct(nullptr);
  // None of it took: the frame is that of the defaults. Without a lower clip it lies over black.
  Settings settings;
  binary.update2(instance, 0, plate.data(), plate.data(), nullptr, out.data());
  EXPECT_EQ(out, flat(settings, plate, &plate, 4, 4));
  binary.update2(instance, 0, nullptr, plate.data(), nullptr, out.data());
  EXPECT_EQ(out, flat(settings, plate, nullptr, 4, 4));
  // A grey screen keys nothing: the plate comes through.
  f0r_param_color_t grey{0.5f, 0.5f, 0.5f};
  binary.set(instance, &grey, 3);
  binary.update2(instance, 0, nullptr, plate.data(), nullptr, out.data());
  EXPECT_EQ(out, plate);
  binary.destruct(instance);
}

// frei0r has no place for a message: a host that starts the plug-in is told no, and the standard
// error stream says why, once.
TEST(Frei0rErrors, SayOnceWhichTargetTheMachineDoesNotHave) {
  for (const char* path : binaries) {
    setenv("ORVANITE_TARGET", "abacus", 1);
    testing::internal::CaptureStderr();
    {
      const Binary binary(path);
      EXPECT_EQ(binary.started, 0);
      std::uint32_t pixel = 0x800000FFU;
      f0r_instance_t instance = binary.construct(1, 1);
      for (int frame = 0; frame < 3; ++frame) binary.update(instance, 0, &pixel, &pixel);
      binary.destruct(instance);
      EXPECT_EQ(pixel, 0x800000FFU) << "frames stay as they are";
    }
    unsetenv("ORVANITE_TARGET");
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said.rfind("orvanite: ORVANITE_TARGET=abacus: ", 0), 0U) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    const Binary well(path);
    EXPECT_EQ(well.started, 1);
  }
}

TEST(Frei0rHosts, MayLoadAndUnloadAHundredTimes) {
  for (int i = 0; i < 100; ++i) {
    for (const char* path : binaries) {
      {
        const Binary binary(path);
        std::uint32_t pixel = 0x800000FFU;
        f0r_instance_t instance = binary.construct(1, 1);
        binary.update(instance, 0, &pixel, &pixel);
        binary.destruct(instance);
      }
#ifndef ORVANITE_SANITIZED
      void* const still = dlopen(path, RTLD_NOW | RTLD_NOLOAD);
      ASSERT_FALSE(still) << "something keeps " << path << " in the process";
#endif
    }
  }
}
