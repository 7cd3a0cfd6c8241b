// SPDX-License-Identifier: BSD-3-Clause
//
// One frame through the OpenFX plug-in, for scripts/host-table: raw RGBA bytes in and out.
//   ofx_once WIDTH HEIGHT IN.raw OUT.raw [--auto] [NAME=VALUE...]
// Values are numbers between commas; of a choice, the index. --auto presses the button.
#include <gtest/gtest.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/plugins/OfxScene.h"
#include "tests/plugins/OnceWords.h"

namespace ofxTest {
namespace {

std::vector<Value> valuesOf(const std::string& type, std::string_view text) {
  std::vector<Value> values;
  while (!text.empty()) {
    const auto comma = std::min(text.find(','), text.size());
    double number = 0;
    std::from_chars(text.data(), text.data() + comma, number);
    text.remove_prefix(std::min(comma + 1, text.size()));
    const bool whole = type == "OfxParamTypeChoice" || type == "OfxParamTypeBoolean";
    values.push_back(whole ? Value(static_cast<int>(number)) : Value(number));
  }
  return values;
}

int run(int count, char** words) {
  if (count < 5) return 2;
  const ofx::RectI frame{0, 0, std::atoi(words[1]), std::atoi(words[2])};
  const auto row = static_cast<std::streamsize>(4) * frame.x2;
  Layout layout;
  layout.bounds = frame;
  auto plate = std::make_shared<HostImage>(layout), out = std::make_shared<HostImage>(layout);
  std::ifstream in(words[3], std::ios::binary);
  for (int y = frame.y2; y-- > 0;) in.read(reinterpret_cast<char*>(plate->pixel(0, y)), row);
  Loaded loaded({}, filter);
  connect(*loaded.effect, "Source", plate);
  connect(*loaded.effect, "Output", out);
  const OnceWords given(count, words);
  for (const auto& [name, value] : given.settings) {
    ParamState& param = loaded.effect->params.at(name);
    param.value = valuesOf(param.type, value);
  }
  loaded.create();
  if (given.automatic) {
    EXPECT_EQ(loaded.host.changed(*loaded.effect, "autoKey"), ofx::ok);
  }
  EXPECT_EQ(loaded.host.render(*loaded.effect, frame), ofx::ok);
  for (const std::string& note : loaded.effect->notes) std::cerr << note << '\n';
  std::ofstream to(words[4], std::ios::binary);
  for (int y = frame.y2; y-- > 0;) to.write(reinterpret_cast<char*>(out->pixel(0, y)), row);
  return in && to && !::testing::Test::HasFailure() ? 0 : 1;
}

}  // namespace
}  // namespace ofxTest

int main(int count, char** words) {
  ::testing::InitGoogleTest();
  return ofxTest::run(count, words);
}
