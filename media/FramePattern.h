// SPDX-License-Identifier: BSD-3-Clause
//
// Names of numbered files: plate.####.exr, plate.@@@@.exr and plate.%04d.exr are the same. The last
// run of signs in a file's name is the number; whatever the folders are called stays.
// Uses the standard library only.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orvanite::media {

class FramePattern {
 public:
  /// The pattern in a path's last part; none when it has no frame number.
  static std::optional<FramePattern> parse(const std::string& path);

  /// The pattern of pictures to read: of a folder, or of a name with a frame number. None for
  /// anything else, such as a file that is there and merely looks like a pattern. Throws as
  /// ofFolder does.
  static std::optional<FramePattern> ofInput(const std::string& path);

  /// The pattern of pictures to write. One sign alone is a letter where there is one frame only.
  static std::optional<FramePattern> ofOutput(const std::string& path, bool severalFrames);

  /// The pattern of a file's own name: its last number is the frame's. None without a number.
  static std::optional<FramePattern> ofFile(const std::string& path);

  /// The pattern of a folder that holds the files of one sequence. Throws Error (missingFrames or
  /// wrongUse) when it holds none, or several.
  static FramePattern ofFolder(const std::string& folder);

  /// The file of a frame, its number padded with zeros as the pattern says, a minus sign counted
  /// among the digits; a longer one stays whole.
  std::string path(int frame) const;

  /// The frames that exist, ascending.
  std::vector<int> existing() const;

  /// The pattern with # signs.
  std::string text() const;

 private:
  std::string folder_;  // with its slash, or empty
  std::string before_, after_;
  int digits_ = 1;  // at the least
};

}  // namespace orvanite::media
