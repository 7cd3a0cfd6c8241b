// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite compare`: how far two pictures are from one another, per channel, as numbers and as a
// picture.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include "apps/cli/Commands.h"
#include "apps/media/PictureReader.h"
#include "apps/media/PictureWriter.h"
#include "keyer/Error.h"

namespace orvanite::cli {
namespace {

struct CompareOptions {
  std::string first, second, difference;
};

// Of one channel, 1 being white.
struct Differences {
  double sum = 0, squares = 0, largest = 0;
  std::size_t different = 0;
};

int runCompare(const CompareOptions& options) {
  if (options.second.empty()) {
    throw Error(Fault::wrongUse, "compare", "expected two pictures: orvanite compare A B");
  }
  media::PictureReader first(options.first);
  media::PictureReader second(options.second);
  const media::Window window = first.info().data;
  const media::Window& other = second.info().data;
  if (window.width != other.width || window.height != other.height) {
    throw Error(Fault::wrongUse, options.second,
                fmt::format("expected a picture of the size {}x{}, found {}x{}", window.width,
                            window.height, other.width, other.height));
  }
  if (!options.difference.empty()) {
    media::checkOutput(options.difference, std::array{options.first, options.second});
  }
  media::Picture a = first.read(4, window, 1);
  const media::Picture b = second.read(4, other, 1);
  auto* samples = reinterpret_cast<float*>(a.pixels.get());
  const auto* others = reinterpret_cast<const float*>(b.pixels.get());
  std::array<Differences, 4> channels;
  const std::size_t count = a.bytes() / sizeof(float);
  for (std::size_t i = 0; i < count; ++i) {
    // Equal infinities do not differ; a NaN differs from everything but a NaN.
    const bool same = samples[i] == others[i] || (std::isnan(samples[i]) && std::isnan(others[i]));
    const double difference =
        same ? 0 : std::abs(static_cast<double>(samples[i]) - static_cast<double>(others[i]));
    Differences& channel = channels[i % 4];
    channel.sum += difference;
    channel.squares += difference * difference;
    if (!(difference <= channel.largest)) channel.largest = difference;
    if (!same) ++channel.different;
    samples[i] = static_cast<float>(difference);
  }
  const double pixels = static_cast<double>(count / 4);
  fmt::print("channel  mean         rms          largest      different pixels\n");
  std::size_t different = 0;
  for (std::size_t c = 0; c < 4; ++c) {
    const Differences& channel = channels[c];
    different += channel.different;
    fmt::print("{:7}  {:<11.6f}  {:<11.6f}  {:<11.6f}  {}\n", "RGBA"[c], channel.sum / pixels,
               std::sqrt(channel.squares / pixels), channel.largest, channel.different);
  }
  if (!options.difference.empty()) {
    // Colours show the difference; alpha would hide it.
    for (std::size_t i = 3; i < count; i += 4) samples[i] = 1;
    a.samples = std::max(first.info().samples, second.info().samples);
    media::writePicture(a, options.difference);
  }
  return different == 0 ? success : failed;
}

}  // namespace

Run declareCompare(CLI::App& command) {
  auto options = std::make_shared<CompareOptions>();
  command.add_option("A", options->first, "A picture.");
  command.add_option(
      "B", options->second,
      "Another of its size. The exit code is 0 when they are equal, 1 when they differ.");
  command.add_option("--difference", options->difference, "Writes a picture of the differences.")
      ->type_name("FILE")
      ->take_last();
  return [options] { return runCompare(*options); };
}

}  // namespace orvanite::cli
