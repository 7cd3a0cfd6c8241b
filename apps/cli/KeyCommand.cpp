// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite key`: one plate and what belongs to it in, one keyed picture out. The plate's own
// pixels are keyed in place, so that a key needs no memory beyond its pictures.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/cli/Commands.h"
#include "apps/cli/ParameterOptions.h"
#include "apps/cli/ScreenOptions.h"
#include "apps/media/PictureReader.h"
#include "apps/media/PictureWriter.h"
#include "keyer/Error.h"
#include "keyer/Keyer.h"

namespace orvanite::cli {
namespace {

using media::Picture;
using media::PictureReader;
using media::Samples;

struct KeyOptions {
  std::string plate, background, holdOut, garbage, reference, output;
  int threads = 0;
  bool premultiply = false;
  bool quiet = false;
  ParameterOptions parameters;
  ScreenOptions screen;
};

std::string sizeOf(const media::Window& window) {
  return fmt::format("{}x{}", window.width, window.height);
}

// A picture beside the plate must show the same frame.
void compareSizes(const PictureReader& plate, const PictureReader& other, const char* role) {
  const media::Window& expected = plate.info().display;
  const media::Window& found = other.info().display;
  if (expected.width == found.width && expected.height == found.height) return;
  throw Error(Fault::wrongUse, other.info().path,
              fmt::format("expected a {} of the plate's size {}, found {}", role, sizeOf(expected),
                          sizeOf(found)));
}

// The window of the plate in another file's coordinates, whose frame may start elsewhere.
media::Window windowIn(const PictureReader& plate, const PictureReader& other) {
  media::Window window = plate.info().data;
  window.x += other.info().display.x - plate.info().display.x;
  window.y += other.info().display.y - plate.info().display.y;
  return window;
}

// The plate's samples, or those of a background that needs more.
Samples finer(Samples a, Samples b) { return std::max(a, b); }

std::optional<PictureReader> openInput(const std::string& path, const PictureReader& plate,
                                       const char* role) {
  if (path.empty()) return std::nullopt;
  PictureReader reader(path);
  compareSizes(plate, reader, role);
  return reader;
}

int runKey(KeyOptions& options) {
  if (options.plate.empty())
    throw Error(Fault::wrongUse, "key", "expected a plate: orvanite key PLATE -o OUT");
  if (options.output.empty()) throw Error(Fault::wrongUse, "key", "expected an output: -o OUT");
  if (options.threads < 0 || options.threads > 1024) {
    throw Error::expected(Fault::wrongUse, "--threads", "a number from 0 to 1024",
                          std::to_string(options.threads));
  }
  Settings settings;
  options.screen.apply(options.parameters, settings);
  if (options.premultiply && settings.choice("output") != "unpremultiplied") {
    throw Error(Fault::wrongUse, "--premultiply", "expected --output unpremultiplied with it");
  }
  const int threads = options.threads > 0 ? options.threads : availableThreads();
  OIIO::attribute("threads", threads);

  PictureReader plate(options.plate);
  auto background = openInput(options.background, plate, "background");
  auto holdOut = openInput(options.holdOut, plate, "hold-out matte");
  auto garbage = openInput(options.garbage, plate, "garbage matte");
  auto reference = openInput(ScreenOptions::estimates(options.reference) ? "" : options.reference,
                             plate, "clean plate");
  std::vector<std::string> inputs;
  for (const std::string* path : {&options.plate, &options.background, &options.holdOut,
                                  &options.garbage, &options.reference}) {
    if (!path->empty()) inputs.push_back(*path);
  }
  media::checkOutput(options.output, inputs);

  if (!settings.given("colourspace")) {
    const media::Encoding encoding = media::encodingOf(plate);
    settings.setText("colourspace", encoding.colourspace);
    if (!options.quiet) {
      fmt::print(stderr, "colourspace: {} ({}; --colourspace says otherwise)\n",
                 encoding.colourspace, encoding.reason);
    }
  }
  Samples samples = plate.info().samples;
  if (background) samples = finer(samples, background->info().samples);
  const int depth = media::depthOf(samples);
  options.screen.look(
      [&](std::optional<int> frame) {
        if (!frame) return plate.read(depth, plate.info().display, 1);
        return PictureReader(frameBeside(options.plate, *frame))
            .read(depth, plate.info().display, 1);
      },
      options.reference, depth, settings, options.quiet);
  const Inputs present{background.has_value(), holdOut.has_value(), garbage.has_value(),
                       reference.has_value() || options.screen.makesCleanPlates()};

  Keyer keyer;
  try {
    keyer.prepare(settings, depth, present);
  } catch (const Error& error) {
    throw error.subject() == "reference" ? error.about("--reference") : aboutOption(error);
  }

  // Only what the view and the switches use is read.
  Picture keyed = plate.read(depth, plate.info().data, 1);
  keyed.samples = samples;
  Frame frame;
  frame.width = keyed.data.width;
  frame.height = keyed.data.height;
  frame.depth = depth;
  frame.pictures.fg = frame.pictures.dst = keyed.image();
  Picture backgroundPixels, holdOutPixels, garbagePixels, referencePixels;
  if (background && settings.view(present) == 0) {
    backgroundPixels = background->read(depth, windowIn(plate, *background), 0);
    frame.pictures.bg = backgroundPixels.image();
  }
  if (holdOut && settings.toggle("useHoldOutMatte")) {
    holdOutPixels =
        holdOut->readChannel(settings.text("holdOutChannel"), depth, windowIn(plate, *holdOut));
    frame.pictures.hold = holdOutPixels.image();
  }
  if (garbage && settings.toggle("useGarbageMatte")) {
    garbagePixels =
        garbage->readChannel(settings.text("garbageChannel"), depth, windowIn(plate, *garbage));
    frame.pictures.garbage = garbagePixels.image();
  }
  if (options.screen.makesCleanPlates()) {
    referencePixels = options.screen.cleanPlateOf(keyed);
    frame.pictures.ref = referencePixels.image();
  } else if (reference && settings.toggle("useReference")) {
    referencePixels = reference->read(depth, windowIn(plate, *reference), 1);
    frame.pictures.ref = referencePixels.image();
  }

  const auto start = std::chrono::steady_clock::now();
  keyer.render(frame, threads);
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;

  if (options.premultiply) media::multiplyByAlpha(keyed);
  media::writePicture(keyed, options.output);
  if (!options.quiet) {
    fmt::print("{}: {}, {}, {}; keyed in {:.1f} ms on {} {}\n", options.output, sizeOf(keyed.data),
               media::nameOf(samples), settings.choice("output"), taken.count(), threads,
               threads == 1 ? "thread" : "threads");
  }
  return success;
}

}  // namespace

Run declareKey(CLI::App& command) {
  auto options = std::make_shared<KeyOptions>();
  const char* files = "Files";
  command.add_option("PLATE", options->plate,
                     "The picture to key, in any format that OpenImageIO reads.");
  const auto path = [&](const char* names, std::string& to, const char* help) {
    command.add_option(names, to, help)->group(files)->type_name("FILE")->take_last();
  };
  path("-o,--out", options->output,
       "Where to write; the ending says the format. The file appears when it is whole. [required]");
  path("--bg,--background", options->background, "Background picture for the output composite.");
  path("--hold-out", options->holdOut, "Hold-out matte: white keeps the foreground.");
  path("--garbage", options->garbage, "Garbage matte: white cuts away.");
  path("--reference", options->reference,
       "Clean plate: the screen without the subject (8- and 16-bit plates); auto estimates it from "
       "the plate.");
  command
      .add_flag("--premultiply", options->premultiply,
                "Multiply the colours by the matte, as readers of OpenEXR expect, in the output "
                "unpremultiplied. [default off]")
      ->group(files);
  command
      .add_option("--threads", options->threads,
                  "Threads to key on. [1 to 1024, default the task's share or all processors]")
      ->group("Running")
      ->type_name("N")
      ->take_last();
  command.add_flag("-q,--quiet", options->quiet, "Say nothing but errors.")->group("Running");
  options->parameters.addTo(command);
  options->screen.addTo(command);
  return [options] { return runKey(*options); };
}

}  // namespace orvanite::cli
