// SPDX-License-Identifier: BSD-3-Clause
//
// See ScreenSearch.h.
#include "plugins/obs/ScreenSearch.h"

#include <new>
#include <sstream>

namespace orvanite::obsPlugin {

ScreenSearch::~ScreenSearch() {
  if (thread_.joinable()) thread_.join();
}

void ScreenSearch::start(OwnKeyer keyer, std::vector<std::uint8_t> pixels, int width, int height) {
  keyer_ = std::move(keyer);
  pixels_ = std::move(pixels);
  found_ = {};
  done_ = false;
  thread_ = std::thread([this, width, height] { search(width, height); });
}

std::optional<Found> ScreenSearch::take() {
  if (!thread_.joinable() || !done_) return std::nullopt;
  thread_.join();
  keyer_.reset();
  pixels_ = {};
  return std::move(found_);
}

void ScreenSearch::search(int width, int height) {
  OrvaniteImage plate{};
  plate.width = width;
  plate.height = height;
  plate.depth = ORVANITE_8BIT;
  for (std::size_t c = 0; c < 3; ++c) plate.channels[c] = pixels_.data() + c;
  plate.pixelStride = 4;
  plate.rowStride = std::ptrdiff_t{4} * width;
  try {
    if (orvanite_keyerFind(keyer_.get(), &plate, ORVANITE_CLEAN_PLATE_NEVER) == ORVANITE_OK) {
      std::istringstream names(orvanite_keyerFound(keyer_.get()));
      for (std::string name; names >> name;) {
        if (const char* text = orvanite_keyerText(keyer_.get(), name.c_str())) {
          found_.values.emplace_back(name, text);
        }
      }
    } else {
      found_.problem = orvanite_keyerError(keyer_.get());
    }
  } catch (const std::bad_alloc&) {
    found_.values.clear();
  }
  done_ = true;
}

}  // namespace orvanite::obsPlugin
