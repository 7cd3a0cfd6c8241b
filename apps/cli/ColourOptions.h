// SPDX-License-Identifier: BSD-3-Clause
//
// Options that name the colour spaces which pictures come in, are keyed in and are written in. Off
// unless one of them is given.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "apps/media/ColourSpaces.h"

namespace orvanite::cli {

/// What a job does to the colours of its pictures.
struct ColourPath {
  bool used = false;
  media::ColourSpaces::Conversion plate, background, out;  // to working space, and from it
  std::string workingSpace;
  bool linear = false;  // the working space
};

class ColourOptions {
 public:
  /// Adds --ocio, --input-space, --bg-space, --working-space and --output-space. The object must
  /// outlive the parse.
  void addTo(CLI::App& command);

  /// The conversions asked for. Throws Error as ColourSpaces does, and wrongUse when a space is
  /// named without a configuration, or a configuration without the plate's space.
  ColourPath path() const;

 private:
  std::string config_, input_, background_, working_, output_;
};

}  // namespace orvanite::cli
