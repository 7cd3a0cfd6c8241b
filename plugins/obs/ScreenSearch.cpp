// SPDX-License-Identifier: BSD-3-Clause
//
// See ScreenSearch.h.
#include "plugins/obs/ScreenSearch.h"

#include <algorithm>
#include <chrono>
#include <sstream>

namespace orvanite::obsPlugin {
namespace {

// What takes a search seconds: knobs that it turns together. A look leaves them as they are, and
// the screen's colour at its middle, so that the range is all that it turns.
constexpr const char* leftByLooks[] = {"shadowBalance", "midtoneBalance", "highlightBalance",
                                       "shadowGain",    "midtoneGain",    "highlightGain",
                                       "midTonesAt"};

// What was given stays as it is.
void give(OrvaniteKeyer* keyer, const char* name) {
  if (orvanite_keyerGiven(keyer, name)) return;
  double values[3] = {};
  orvanite_keyerNumbers(keyer, name, values);
  orvanite_keyerSetNumbers(keyer, name, values, 1);
}

Found find(Effort effort, OrvaniteKeyer* keyer, std::vector<std::uint8_t>& pixels, int width,
           int height) {
  OrvaniteImage plate{};
  plate.width = width;
  plate.height = height;
  plate.depth = ORVANITE_8BIT;
  for (std::size_t c = 0; c < 3; ++c) plate.channels[c] = pixels.data() + c;
  plate.pixelStride = 4;
  plate.rowStride = std::ptrdiff_t{4} * width;
  Found found;
  found.effort = effort;
  const auto add = [&](const std::string& name) {
    if (const char* text = orvanite_keyerText(keyer, name.c_str())) {
      found.values.emplace_back(name, text);
    }
  };
  const auto failed = [&](OrvaniteResult result) {
    if (result == ORVANITE_OK) return false;
    found.problem = orvanite_keyerError(keyer);
    return true;
  };
  OrvaniteScreen screen{};
  if (failed(orvanite_keyerFindScreen(keyer, &plate, &screen))) return found;
  std::copy(std::begin(screen.colour), std::end(screen.colour), found.colour.begin());
  if (effort == Effort::look) {
    const double colour[] = {found.colour[0], found.colour[1], found.colour[2]};
    if (failed(orvanite_keyerSetNumbers(keyer, "screen", colour, 3))) return found;
    for (const char* name : leftByLooks) give(keyer, name);
  }
  if (failed(orvanite_keyerFind(keyer, &plate, ORVANITE_CLEAN_PLATE_NEVER))) return found;
  if (effort == Effort::look) add("screen");
  std::istringstream names(orvanite_keyerFound(keyer));
  for (std::string name; names >> name;) add(name);
  return found;
}

}  // namespace

ScreenSearch::~ScreenSearch() {
  if (thread_.joinable()) thread_.join();
}

void ScreenSearch::start(Effort effort, OwnKeyer keyer, std::vector<std::uint8_t> pixels, int width,
                         int height) {
  std::packaged_task<Found()> task(
      [effort, keyer = std::move(keyer), pixels = std::move(pixels), width, height]() mutable {
        return find(effort, keyer.get(), pixels, width, height);
      });
  std::future<Found> result = task.get_future();
  if (launch_) {
    launch_(std::move(task));
  } else {
    thread_ = std::thread(std::move(task));
  }
  result_ = std::move(result);
}

std::optional<Found> ScreenSearch::take() {
  if (!running() || result_.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
    return std::nullopt;
  }
  if (thread_.joinable()) thread_.join();
  return result_.get();
}

}  // namespace orvanite::obsPlugin
