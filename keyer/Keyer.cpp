// SPDX-License-Identifier: BSD-3-Clause
//
// A frame is cut into bands of rows; each band is one tile for the engine, whose renders only read
// it.
#include "keyer/Keyer.h"

#include <atomic>
#include <cstddef>
#include <functional>

#include "base/Error.h"
#include "keyer/Finisher.h"

namespace orvanite {
namespace {

// Rows of a band at the least: enough pixels to make the split not worth noticing, few enough that
// threads finish together.
constexpr int bandRows = 16;

void advance(OtileImage& image, int rows, Depth depth) {
  const std::ptrdiff_t bytes = std::ptrdiff_t{image.lineStep} * rows * bytesOf(depth);
  for (void** channel : {&image.red, &image.green, &image.blue, &image.alpha}) {
    if (*channel != nullptr) *channel = static_cast<char*>(*channel) + bytes;
  }
}

Otile bandOf(const Frame& frame, int firstRow) {
  Otile band = frame.pictures;
  for (OtileImage* image : {&band.dst, &band.bg, &band.fg, &band.hold, &band.garbage, &band.ref}) {
    advance(*image, firstRow, frame.depth);
  }
  return band;
}

}  // namespace

Keyer::Keyer() : engine_(orvanite_new()) {
  if (!engine_) throw Error(Fault::failure, "keyer", "out of memory");
}

Keyer::~Keyer() = default;
Keyer::Keyer(Keyer&&) noexcept = default;
Keyer& Keyer::operator=(Keyer&&) noexcept = default;

void Keyer::prepare(const Settings& settings, Depth depth, const Inputs& inputs, float scale) {
  depth_.reset();
  settings.expectStill();
  if (const std::string problem = settings.screenProblem(); !problem.empty()) {
    throw Error(Fault::wrongUse, "screen", problem);
  }
  if (depth == Depth::floats && inputs.reference && settings.toggle("useReference")) {
    throw Error(Fault::wrongUse, "reference",
                "expected 8- or 16-bit pictures with a clean plate, found float pictures");
  }
  finish_ = Finish::of(settings, inputs, scale);
  if (finish_.on()) {
    if (!finisher_) finisher_ = std::make_unique<Finisher>();
    finisher_->prepare(settings, finish_, depth, inputs);
  } else {
    settings.applyTo(engine_.get(), depth, inputs);
    if (const int result = orvanite_makeLuts(engine_.get()); result != 0) {
      throw Error(result == 3 ? Fault::failure : Fault::wrongUse, "keyer", tableProblem(result));
    }
  }
  depth_ = depth;
}

void Keyer::render(const Frame& frame, const RowLoop& rows) const {
  if (depth_ != frame.depth) {
    throw Error(Fault::wrongUse, "frame",
                "expected a frame of the depth that the keyer was prepared for");
  }
  std::atomic<bool> refused = false;
  if (finish_.on()) {
    refused = !finisher_->render(frame, turnsBy(rows));
  } else {
    const auto band = [&](int first, int count) {
      Otile tile = bandOf(frame, first);
      const int result =
          orvanite_render(engine_.get(), bytesOf(frame.depth), frame.width, count, &tile);
      if (result != 0) refused = true;
    };
    rows(frame.height, bandRows, std::cref(band));  // a reference needs no memory of its own
  }
  if (refused) {
    throw Error(Fault::wrongUse, "frame", "a picture that the keyer was prepared for is missing");
  }
}

}  // namespace orvanite
