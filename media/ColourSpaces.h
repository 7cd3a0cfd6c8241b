// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures from one named colour space into another, by an OpenColorIO configuration. This and
// ColourSpaceCheck are the only places that know OpenColorIO.
#pragma once

#include <memory>
#include <string>

#include "media/Picture.h"

namespace orvanite::media {

class ColourSpaces {
 public:
  /// A conversion, or none.
  class Conversion {
   public:
    Conversion() = default;

    /// Converts the colours of a float picture in place and leaves alpha as it is. Any number of
    /// threads may use one conversion. Nothing happens where there is none.
    void apply(Picture& picture) const;

    /// Whether the pixels stay as they are.
    bool isNothing() const { return !processor_; }

   private:
    friend class ColourSpaces;
    std::shared_ptr<const void> processor_;
  };

  /// Reads a configuration, config.ocio or an archive of one.
  /// Throws Error: noSuchFile when there is no such file, failure when it cannot be understood.
  explicit ColourSpaces(const std::string& path);

  /// The space that a name or a role stands for.
  /// option  what asks for it, for the error
  /// Throws Error (wrongUse) that lists the spaces there are.
  std::string space(const std::string& name, const std::string& option) const;

  /// How codes of the space stand to light: "linear" where they are proportional to it; else "log"
  /// or "video" where the configuration says that; empty: nobody knows.
  std::string encodingOf(const std::string& space) const;

  /// From one space, as `space` gives it, to another. Throws Error (failure) when the configuration
  /// has no way between them, a missing table's file included.
  Conversion conversion(const std::string& from, const std::string& to) const;

 private:
  bool isLinear(const std::string& space) const;

  std::string path_;
  std::shared_ptr<const void> config_;
};

/// What a job does to the colours of its pictures.
struct ColourPath {
  bool used = false;
  ColourSpaces::Conversion plate, background, out;  // to working space, and from it
  std::string inputSpace, workingSpace, outputSpace;
  std::string encoding;  // of the working space: "linear", "log", "video"; empty: not known
};

}  // namespace orvanite::media
