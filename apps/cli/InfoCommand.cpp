// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite info`: what plates are, and what the keyer would take them for.
#include <fmt/format.h>

#include <memory>
#include <vector>

#include "apps/cli/Commands.h"
#include "apps/media/FrameRange.h"
#include "apps/media/Source.h"
#include "keyer/Error.h"

namespace orvanite::cli {
namespace {

void describe(const std::string& path) {
  const auto source = media::Source::open(path);
  const media::PictureInfo& info = source->info();
  std::string channels;
  for (const std::string& name : info.channels) channels += (channels.empty() ? "" : ", ") + name;
  const media::Encoding encoding = media::encodingOf(source->header(), info.format, info.samples);
  fmt::print("{}\n", path);
  fmt::print("  size      {}x{}\n", info.display.width, info.display.height);
  if (!(info.data == info.display)) {
    fmt::print("  data      {}x{} at {},{}\n", info.data.width, info.data.height, info.data.x,
               info.data.y);
  }
  fmt::print("  samples   {} ({} bits, {})\n", media::nameOf(info.samples), info.bits, info.format);
  fmt::print("  channels  {}\n", channels);
  fmt::print("  encoding  {} ({})\n", encoding.colourspace, encoding.reason);
  if (source->isShot()) {
    fmt::print("  frames    {} ({})\n", media::formatFrames(source->frames()),
               source->frames().size());
  }
}

}  // namespace

Run declareInfo(CLI::App& command) {
  auto files = std::make_shared<std::vector<std::string>>();
  command.add_option("FILE", *files, "Pictures, sequences or folders of one.");
  return [files] {
    if (files->empty())
      throw Error(Fault::wrongUse, "info", "expected a file: orvanite info FILE...");
    for (const std::string& file : *files) describe(file);
    return success;
  };
}

}  // namespace orvanite::cli
