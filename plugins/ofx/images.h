// SPDX-License-Identifier: BSD-3-Clause
//
// Images fetched from clips: released when they go out of sight, read with suspicion.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "plugins/ofx/host.h"
#include "plugins/ofx/ofxApi.h"
#include "plugins/ofx/window.h"

namespace orvanite::ofxPlugin {

/// Depth in bytes of a pixel depth's name, or 0.
int depthOf(std::string_view name);

/// One image of a clip at a time, the host's until this ends. Not to outlive the action.
class Image {
 public:
  Image() = default;
  /// Fetches; empty when the clip has none there.
  Image(ofx::Clip clip, ofx::Time time);
  Image(Image&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
  Image& operator=(Image&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image();

  explicit operator bool() const { return handle_ != nullptr; }

  int depth() const;         // 1, 2, 4, or 0 for one that we do not key
  bool singleField() const;  // half height: its lines are one field's
  /// The image as the engine's side sees it. Throws Error (failure), naming `clip`, for one
  /// without pixels, bounds, row bytes or channels that we know.
  Picture picture(const char* clip) const;

 private:
  ofx::PropertySet handle_ = nullptr;
};

}  // namespace orvanite::ofxPlugin
