// SPDX-License-Identifier: BSD-3-Clause
//
// One shot under the page: its pictures, who renders them, and where renders go. Opening another
// picture makes another session; requests that are under way end in the one they began in.
// Knows Footage, Renderer, Thumbnails and RenderJob.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "apps/view/RenderJob.h"
#include "apps/view/Renderer.h"
#include "apps/view/Thumbnails.h"

namespace orvanite::view {

/// What the page hands over to the world outside, made by whoever starts the server. Each throws
/// Error about settings that it cannot say.
struct Exports {
  KeyArguments arguments;  // of the renders
  std::function<std::string(const shot::ShotFiles&, const Settings&, const std::string& masks)>
      command;  // a command line that keys the same, with that file of masks
  std::function<std::string(const shot::ShotFiles&, const Settings&, media::Samples)>
      script;  // the same as a script for `orvanite run`
};

class Session {
 public:
  struct Wish {
    shot::ShotFiles files;   // where they are
    shot::ShotFiles spoken;  // what command lines and scripts call them
    std::size_t cacheBytes = std::size_t{1} << 30;
    media::ColourPath colours{};
    Settings settings{};   // that were given
    Masks masks{};         // likewise
    std::string output{};  // where renders go; empty: the page gets them
    std::string folder{};  // for those; empty: there are no renders
    Exports exports{};
  };

  /// Throws Error as Footage and RenderJob do.
  explicit Session(const Wish& wish);

  /// The same with another picture of a role, or without it where the path is empty. Another plate
  /// leaves mattes, clean plate and what was set for the old one behind. Throws Error as the
  /// constructor.
  std::shared_ptr<Session> with(Role role, const std::string& path, const std::string& name) const;

  const Wish& wish() const { return wish_; }
  const Settings& settings() const { return settings_; }
  bool handsOver() const { return handsOver_; }
  Footage& footage() { return footage_; }
  Renderer& renderer() { return renderer_; }
  Thumbnails& thumbnails() { return thumbnails_; }
  RenderJob& job() { return job_; }

  /// The file in which a render finds these masks; empty where there are none. Throws Error.
  std::string fileOf(const Masks& masks) const;

 private:
  Wish wish_;
  Footage footage_;
  bool handsOver_;
  Settings settings_;  // the page starts with them
  Renderer renderer_;
  Thumbnails thumbnails_;
  RenderJob job_;
};

}  // namespace orvanite::view
