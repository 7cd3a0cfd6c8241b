// SPDX-License-Identifier: BSD-3-Clause
//
// See Fade.h. Straight colours mix as light that their mattes let through does: each weighs what
// its matte does.
#include "plugins/obs/Fade.h"

#include <cstring>
#include <utility>

namespace orvanite::obsPlugin {
namespace {

void mixPixel(const std::uint8_t* old, std::uint8_t* to, unsigned step, bool cutOut) {
  if (std::memcmp(old, to, 4) == 0) return;
  constexpr unsigned all = Fade::frames;
  unsigned weightOld = all - step, weightNew = step;
  const unsigned alpha = (old[3] * weightOld + to[3] * weightNew + all / 2) / all;
  if (cutOut) {
    weightOld *= old[3];
    weightNew *= to[3];
  }
  if (const unsigned weight = weightOld + weightNew; weight > 0) {
    for (int c = 0; c < 3; ++c) {
      to[c] =
          static_cast<std::uint8_t>((old[c] * weightOld + to[c] * weightNew + weight / 2) / weight);
    }
  }
  to[3] = static_cast<std::uint8_t>(alpha);
}

}  // namespace

void Fade::start(OwnKeyer from) {
  keyer_ = std::move(from);
  step_ = 0;
}

void Fade::stop() {
  keyer_.reset();
  old_ = {};
}

bool Fade::key(OrvaniteFrame pictures) {
  const auto width = static_cast<std::size_t>(pictures.plate.width);
  old_.resize(4 * width * static_cast<std::size_t>(pictures.plate.height));
  pictures.result = pictures.plate;
  for (std::size_t c = 0; c < 4; ++c) pictures.result.channels[c] = old_.data() + c;
  pictures.result.rowStride = static_cast<std::ptrdiff_t>(4 * width);
  return orvanite_keyerRender(keyer_.get(), &pictures, 0) == ORVANITE_OK;
}

void Fade::mixInto(obs_source_frame& frame, bool cutOut) {
  const std::uint8_t* old = old_.data();
  ++step_;
  for (std::uint32_t y = 0; y < frame.height; ++y) {
    std::uint8_t* const row = frame.data[0] + std::size_t{y} * frame.linesize[0];
    for (std::size_t x = 0; x < frame.width; ++x, old += 4) {
      mixPixel(old, row + 4 * x, static_cast<unsigned>(step_), cutOut);
    }
  }
  if (step_ == frames) stop();
}

}  // namespace orvanite::obsPlugin
