// SPDX-License-Identifier: BSD-3-Clause
//
// The options of `orvanite key`, as they were given.
#pragma once

#include <string>

#include "apps/cli/ColourOptions.h"
#include "apps/cli/MediaOptions.h"
#include "apps/cli/ParameterOptions.h"
#include "apps/cli/ScreenOptions.h"

namespace CLI {
class App;
}

namespace orvanite::cli {

struct KeyOptions {
  std::vector<std::string> plates, garbageRects, garbagePolygons;
  double garbageSoft = 1;
  bool garbageOutside = false;
  std::string plate;  // the one that is keyed now
  std::string background, holdOut, garbage, masks, reference, output;
  std::string matteOutput, statusOutput, foregroundOutput;
  std::string saveReference, saveHoldOut, saveGarbage;
  std::string memory, alpha, backgroundFit = "fill", backgroundColourspace;
  std::string frames, pastEnd = "hold", progress, preset, savePreset, saveScript;
  int backgroundOffset = 0, holdOutOffset = 0, garbageOffset = 0, referenceOffset = 0;
  int threads = 0, inFlight = 0;
  bool premultiply = false, quiet = false, skipExisting = false, keepGoing = false, json = false;
  bool passThrough = false;
  ParameterOptions parameters;
  ScreenOptions screen;
  ColourOptions colours;
  ReadOptions reading;
  MovieOptions movie;

  /// Declares them, with their help. The command must not outlive this.
  void addTo(CLI::App& command);
};

}  // namespace orvanite::cli
