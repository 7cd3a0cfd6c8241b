// SPDX-License-Identifier: BSD-3-Clause
//
// Options that name the colour spaces which pictures come in, are keyed in and are written in. Off
// unless one of them is given.
#pragma once

#include <string>
#include <vector>

#include "media/ColourSpaces.h"

namespace CLI {
class App;
}

namespace orvanite::cli {

class ColourOptions {
 public:
  /// Adds --ocio, --input-space, --bg-space, --working-space and --output-space. The object must
  /// outlive the parse.
  void addTo(CLI::App& command);

  /// The conversions asked for. Throws Error as ColourSpaces does, and wrongUse when a space is
  /// named without a configuration, or a configuration without the plate's space.
  media::ColourPath path() const;

  /// The options as they were given, as words of a command line.
  ///
  /// absolute  the configuration's file by its whole path, so that they hold in any folder
  std::vector<std::string> words(bool absolute = false) const;

 private:
  std::string config_, input_, background_, working_, output_;
};

}  // namespace orvanite::cli
