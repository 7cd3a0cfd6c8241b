// SPDX-License-Identifier: BSD-3-Clause
//
// What the tests of the filter for OBS set up alike: a libobs with the module, filters of it, and
// the keyer's C interface to compare with.
#pragma once

#include <gtest/gtest.h>
#include <orvanite/keyer.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/plugins/ObsScene.h"

namespace obsTest {

using obsScene::Form;
using obsScene::forms;
using obsScene::Plate;

inline constexpr int width = 320, height = 180;
inline constexpr Form rgbaForm = forms[16];
static_assert(rgbaForm.format == VIDEO_FORMAT_RGBA);

struct Delete {
  void operator()(obs_source_t* source) const { obs_source_release(source); }
  void operator()(obs_data_t* data) const { obs_data_release(data); }
  void operator()(OrvaniteKeyer* keyer) const { orvanite_keyerDelete(keyer); }
  void operator()(obs_properties_t* panel) const { obs_properties_destroy(panel); }
};
template <class T>
using Own = std::unique_ptr<T, Delete>;

inline Own<obs_data_t> settingsFrom(const char* json) {
  return Own<obs_data_t>(obs_data_create_from_json(json));
}

// A screen of 44,158,60 in OBS's number, red lowest.
inline constexpr const char* greenScreen = R"({"screen": 4282162732, "screenRange": 0.1})";
static_assert(0xff000000 + 60 * 65536 + 158 * 256 + 44 == 4282162732);

inline Own<OrvaniteKeyer> greenKeyer() {
  Own<OrvaniteKeyer> made(orvanite_keyerNew());
  const double screen[] = {44.0 / 255, 158.0 / 255, 60.0 / 255};
  orvanite_keyerSetNumbers(made.get(), "screen", screen, 3);
  orvanite_keyerSetText(made.get(), "screenRange", "0.1");
  orvanite_keyerSetText(made.get(), "output", "unpremultiplied");
  orvanite_keyerSetText(made.get(), "colourspace", "video");
  return made;
}

inline OrvaniteImage imageOf(std::vector<std::uint8_t>& rgba, int w, int h) {
  OrvaniteImage image{};
  image.width = w;
  image.height = h;
  image.depth = ORVANITE_8BIT;
  for (std::size_t c = 0; c < 4; ++c) image.channels[c] = rgba.data() + c;
  image.pixelStride = 4;
  image.rowStride = std::ptrdiff_t{4} * w;
  return image;
}

inline std::vector<std::uint8_t> keyed(OrvaniteKeyer* keyer, std::vector<std::uint8_t> rgba,
                                       int w = width, int h = height) {
  OrvaniteFrame frame{};
  frame.plate = frame.result = imageOf(rgba, w, h);
  EXPECT_EQ(orvanite_keyerRender(keyer, &frame, 1), ORVANITE_OK) << orvanite_keyerError(keyer);
  return rgba;
}

// Whether a frame's corner, which is screen, is clear and its middle, which is subject, solid, but
// for a code or two.
inline bool isKeyed(const ObsSeen& seen) {
  return seen.pixel(0, 0)[3] <= 2 && seen.pixel(seen.width / 2, seen.height / 2)[3] >= 253;
}

inline bool isBlank(const ObsSeen& seen) {
  return seen.bytes == std::vector<std::uint8_t>(seen.bytes.size(), 0);
}

// What a whole search finds in a plate.
inline Own<OrvaniteKeyer> foundKeyer(std::vector<std::uint8_t> rgba) {
  Own<OrvaniteKeyer> made(orvanite_keyerNew());
  orvanite_keyerSetText(made.get(), "output", "unpremultiplied");
  orvanite_keyerSetText(made.get(), "colourspace", "video");
  const OrvaniteImage image = imageOf(rgba, width, height);
  EXPECT_EQ(orvanite_keyerFind(made.get(), &image, ORVANITE_CLEAN_PLATE_NEVER), ORVANITE_OK);
  return made;
}

class Obs : public testing::Test {
 protected:
  void SetUp() override {
    host = std::make_unique<ObsHost>(ORVANITE_OBS_BINARY, width, height);
    if (!host->problem().empty()) GTEST_SKIP() << host->problem();
    host->said();  // what was said in another test
  }
  Own<obs_source_t> filter(const char* json) {
    return Own<obs_source_t>(host->newFilter("orvanite_filter", settingsFrom(json).get()));
  }
  std::unique_ptr<ObsHost> host;
};

}  // namespace obsTest
