// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite compare`: how far two pictures or two shots are from one another, per channel, as
// numbers and as pictures.
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "apps/cli/CommandLine.h"
#include "apps/cli/Commands.h"
#include "base/Error.h"
#include "media/FramePattern.h"
#include "media/FrameRange.h"
#include "media/PictureWriter.h"
#include "media/Source.h"

namespace orvanite::cli {
namespace {

using media::Source;
using media::Window;

struct CompareOptions {
  std::string first, second, frames, difference;
  float gain = 1, tolerance = 0;
  bool json = false;
};

// Of one channel, 1 being white.
struct Differences {
  double sum = 0, squares = 0, largest = 0;
  std::size_t different = 0, beyond = 0, pixels = 0;  // beyond the tolerance
  int worstFrame = 0, worstX = 0, worstY = 0;         // where the largest is

  double mean() const { return sum / static_cast<double>(pixels); }
  double rms() const { return std::sqrt(squares / static_cast<double>(pixels)); }
};

using Channels = std::array<Differences, 4>;

std::vector<int> framesOf(const CompareOptions& options, const Source& a, const Source& b) {
  if (!a.isShot() && !b.isShot()) return {1};
  std::vector<int> frames;
  if (a.isShot() && b.isShot()) {
    std::set_intersection(a.frames().begin(), a.frames().end(), b.frames().begin(),
                          b.frames().end(), std::back_inserter(frames));
  } else {
    frames = a.isShot() ? a.frames() : b.frames();  // every frame with the still
  }
  if (!options.frames.empty()) {
    std::vector<int> wanted = media::parseFrames(options.frames, "--frames");
    std::sort(wanted.begin(), wanted.end());
    std::vector<int> both;
    std::set_intersection(frames.begin(), frames.end(), wanted.begin(), wanted.end(),
                          std::back_inserter(both));
    frames = both;
  }
  if (frames.empty()) {
    throw Error(Fault::missingFrames, options.second,
                "has no frame in common with " + options.first);
  }
  return frames;
}

// Frames that one shot has and the other has not; they are a difference.
std::vector<int> missingIn(const Source& source, const Source& other) {
  std::vector<int> missing;
  if (source.isShot() && other.isShot()) {
    std::set_difference(other.frames().begin(), other.frames().end(), source.frames().begin(),
                        source.frames().end(), std::back_inserter(missing));
  }
  return missing;
}

// Relative to the frame.
Window dataOf(Source& source, int frame) {
  Window window = source.windowOf(frame);
  window.x -= source.info().display.x;
  window.y -= source.info().display.y;
  return window;
}

media::Picture pixelsOf(Source& source, int frame, Window window) {
  window.x += source.info().display.x;
  window.y += source.info().display.y;
  return source.read(frame, {Depth::floats, window, 1, ""});
}

/// Adds a frame's differences. The picture of them is what the result holds.
media::Picture compareFrame(Source& first, Source& second, int frame, float tolerance,
                            Channels& channels) {
  const Window window = united(dataOf(first, frame), dataOf(second, frame));
  media::Picture a = pixelsOf(first, frame, window);
  const media::Picture b = pixelsOf(second, frame, window);
  auto* samples = reinterpret_cast<float*>(a.pixels.get());
  const auto* others = reinterpret_cast<const float*>(b.pixels.get());
  const std::size_t count = a.bytes() / sizeof(float);
  const auto width = static_cast<std::size_t>(window.width);
  for (std::size_t i = 0; i < count; ++i) {
    // Equal infinities do not differ; a NaN differs from everything but a NaN.
    const bool same = samples[i] == others[i] || (std::isnan(samples[i]) && std::isnan(others[i]));
    const double difference =
        same ? 0 : std::abs(static_cast<double>(samples[i]) - static_cast<double>(others[i]));
    Differences& channel = channels[i % 4];
    channel.sum += difference;
    channel.squares += difference * difference;
    if (!(difference <= channel.largest) && !std::isnan(channel.largest)) {
      channel.largest = difference;
      channel.worstFrame = frame;
      channel.worstX = window.x + static_cast<int>(i / 4 % width);
      channel.worstY = window.y + static_cast<int>(i / 4 / width);
    }
    if (!same) ++channel.different;
    if (!(difference <= static_cast<double>(tolerance))) ++channel.beyond;
    samples[i] = static_cast<float>(difference);
  }
  for (Differences& channel : channels) channel.pixels += count / 4;
  return a;
}

void writeDifference(media::Picture& picture, float gain, media::Samples samples,
                     const std::string& path) {
  auto* values = reinterpret_cast<float*>(picture.pixels.get());
  for (std::size_t i = 0; i < picture.bytes() / sizeof(float); ++i) {
    // Colours show the difference; alpha would hide it.
    values[i] = i % 4 == 3 ? 1 : gain * values[i];
  }
  picture.samples = samples;
  media::writePicture(picture, path);
}

void printText(const Channels& channels, bool alpha, bool shot) {
  fmt::print("channel  mean         rms          largest      different pixels\n");
  for (std::size_t c = 0; c < (alpha ? 4U : 3U); ++c) {
    const Differences& d = channels[c];
    const std::string where =
        d.different == 0 ? ""
                         : fmt::format("  (largest at {},{}{})", d.worstX, d.worstY,
                                       shot ? fmt::format(" of frame {}", d.worstFrame) : "");
    fmt::print("{:7}  {:<11.6f}  {:<11.6f}  {:<11.6f}  {}{}\n", "RGBA"[c], d.mean(), d.rms(),
               d.largest, d.different, where);
  }
}

void printJson(const Channels& channels, bool alpha, const std::vector<int>& frames,
               const std::vector<int>& missing, bool shot) {
  nlohmann::ordered_json object;
  if (shot) object["frames"] = frames;
  if (shot) object["missingFrames"] = missing;
  object["pixels"] = channels[0].pixels;
  for (std::size_t c = 0; c < (alpha ? 4U : 3U); ++c) {
    const Differences& d = channels[c];
    auto& one = object["channels"][std::string(1, "RGBA"[c])];
    one = {{"mean", d.mean()},
           {"rms", d.rms()},
           {"largest", d.largest},
           {"differentPixels", d.different}};
    if (d.different > 0) one["largestAt"] = {d.worstX, d.worstY};
    if (d.different > 0 && shot) one["largestInFrame"] = d.worstFrame;
  }
  fmt::print("{}\n", object.dump());
}

int runCompare(const CompareOptions& options) {
  if (options.second.empty()) {
    throw Error(Fault::wrongUse, "compare", "expected two pictures: orvanite compare A B");
  }
  if (!(options.gain > 0 && options.gain <= 1e6f)) {
    throw Error::expected(Fault::wrongUse, "--difference-gain", "a number above 0, up to 1000000",
                          fmt::format("{}", options.gain));
  }
  if (!(options.tolerance >= 0 && options.tolerance <= 1)) {
    throw Error::expected(Fault::wrongUse, "--tolerance", "a number from 0 to 1",
                          fmt::format("{}", options.tolerance));
  }
  const auto first = Source::open(options.first);
  const auto second = Source::open(options.second);
  const Window& size = first->info().display;
  const Window& other = second->info().display;
  if (size.width != other.width || size.height != other.height) {
    throw Error(Fault::wrongUse, options.second,
                fmt::format("expected a picture of the size {}x{}, found {}x{}", size.width,
                            size.height, other.width, other.height));
  }
  const bool shot = first->isShot() || second->isShot();
  const std::vector<int> frames = framesOf(options, *first, *second);
  const auto pattern = media::FramePattern::parse(options.difference);
  if (!options.difference.empty()) {
    if (frames.size() > 1 && !pattern) {
      throw Error::expected(Fault::wrongUse, "--difference",
                            "a name with a frame number for a shot, such as diff.####.png",
                            options.difference);
    }
    for (const int frame : frames) {
      media::checkOutput(pattern ? pattern->path(frame) : options.difference,
                         std::array{first->fileOf(frame), second->fileOf(frame)});
    }
  }
  const media::Samples samples = std::max(first->info().samples, second->info().samples);
  Channels channels;
  for (const int frame : frames) {
    media::Picture difference = compareFrame(*first, *second, frame, options.tolerance, channels);
    if (options.difference.empty()) continue;
    writeDifference(difference, options.gain, samples,
                    pattern ? pattern->path(frame) : options.difference);
  }

  const bool alpha = first->info().hasAlpha || second->info().hasAlpha;
  std::vector<int> missing = missingIn(*first, *second);
  const std::vector<int> missingInSecond = missingIn(*second, *first);
  if (options.json) {
    missing.insert(missing.end(), missingInSecond.begin(), missingInSecond.end());
    std::sort(missing.begin(), missing.end());
    printJson(channels, alpha, frames, missing, shot);
  } else {
    if (shot) fmt::print("frames   {} ({})\n", media::formatFrames(frames), frames.size());
    if (!missing.empty())
      fmt::print("missing  {} in {}\n", media::formatFrames(missing), options.first);
    if (!missingInSecond.empty())
      fmt::print("missing  {} in {}\n", media::formatFrames(missingInSecond), options.second);
    printText(channels, alpha, shot);
  }
  const bool equal = std::all_of(channels.begin(), channels.end(),
                                 [](const Differences& channel) { return channel.beyond == 0; }) &&
                     missing.empty() && missingInSecond.empty();
  return equal ? success : failed;
}

}  // namespace

Run declareCompare(CLI::App& command) {
  auto options = std::make_shared<CompareOptions>();
  command.add_option("A", options->first, "A picture, or a shot.");
  command.add_option("B", options->second,
                     "Another of its size. A still is compared with every frame of a shot. The "
                     "exit code is 0 when they are equal, 1 when they differ, 2 when they cannot "
                     "be compared.");
  command
      .add_option("--frames", options->frames,
                  "Frames of a shot to compare, such as 1-24. [default those that both have]")
      ->type_name("RANGE")
      ->take_last();
  command
      .add_option("--difference", options->difference,
                  "Writes a picture of the differences; of a shot one a frame, with a pattern such "
                  "as diff.####.png.")
      ->type_name("FILE")
      ->take_last();
  command
      .add_option("--difference-gain", options->gain,
                  "What the differences are multiplied by in that picture. [factor, default 1]")
      ->type_name("X")
      ->take_last();
  command.add_flag("--json", options->json, "Print one JSON object. [default off]");
  command
      .add_option("--tolerance", options->tolerance,
                  "How far samples may lie apart and still be called equal. [of white, 0 to 1, "
                  "default 0]")
      ->type_name("X")
      ->take_last();
  return [options] {
    int code = wrongUse;
    // What went wrong must not read as "they differ".
    const int trouble = reported([&] {
      code = runCompare(*options);
      return 0;
    });
    return trouble == 0 ? code : wrongUse;
  };
}

}  // namespace orvanite::cli
