// SPDX-License-Identifier: BSD-3-Clause
//
// One frame through the filter in libobs, for scripts/host-table: raw RGBA bytes in and out.
//   obs_once WIDTH HEIGHT IN.raw OUT.raw [--auto] [NAME=VALUE...]
// Values are a preset's texts. --auto waits for the key that the filter's search finds.
#include <orvanite/keyer.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

#include "tests/plugins/ObsHost.h"
#include "tests/plugins/OnceWords.h"

namespace {

int run(int count, char** words) {
  if (count < 5) return 2;
  const int width = std::atoi(words[1]), height = std::atoi(words[2]);
  const auto row = static_cast<std::streamsize>(4) * width;
  OrvaniteKeyer* const keyer = orvanite_keyerNew();
  const OnceWords given(count, words);
  const bool automatic = given.automatic;
  for (const auto& [name, value] : given.settings) {
    if (orvanite_keyerSetText(keyer, name.c_str(), value.c_str()) != 0) {
      std::cerr << "obs_once: " << orvanite_keyerError(keyer) << '\n';
      return 1;
    }
  }
  ObsHost host(ORVANITE_OBS_BINARY);
  if (!host.problem().empty()) {
    std::cerr << "obs_once: " << host.problem() << '\n';
    return 77;
  }
  const ObsFrame plate(VIDEO_FORMAT_RGBA, width, height);
  std::ifstream in(words[3], std::ios::binary);
  for (int y = 0; y < height; ++y) {
    in.read(
        reinterpret_cast<char*>(plate->data[0] + static_cast<std::size_t>(y) * plate->linesize[0]),
        row);
  }
  obs_data_t* const settings = obs_data_create();
  if (!automatic) obs_data_set_string(settings, "preset", orvanite_keyerPreset(keyer));
  obs_source_t* const filter = host.newFilter("orvanite_filter", settings);
  host.use({filter});
  const auto isSettled = [&](const ObsSeen&) {
    if (!automatic) return true;
    obs_properties_destroy(obs_source_properties(filter));
    obs_data_t* const now = obs_source_get_settings(filter);
    const std::string state = obs_data_get_string(now, "state");
    obs_data_release(now);
    return state == "The screen was found.";
  };
  ObsSeen seen;
  bool shown = host.showUntil(plate, isSettled, seen);
  // What was found glides in.
  for (int i = 0; automatic && i < 40; ++i) seen = host.show(plate);
  host.use({});
  obs_source_release(filter);
  obs_data_release(settings);
  orvanite_keyerDelete(keyer);
  std::ofstream to(words[4], std::ios::binary);
  to.write(reinterpret_cast<const char*>(seen.bytes.data()), row * height);
  for (const std::string& line : host.said()) std::cerr << line << '\n';
  shown = shown && seen.bytes.size() == static_cast<std::size_t>(row * height);
  return in && to && shown ? 0 : 1;
}

}  // namespace

int main(int count, char** words) { return run(count, words); }
