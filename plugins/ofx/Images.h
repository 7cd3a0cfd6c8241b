// SPDX-License-Identifier: BSD-3-Clause
//
// Images fetched from clips: released when they go out of sight, read with suspicion.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "plugins/ofx/Host.h"
#include "plugins/ofx/OfxApi.h"
#include "plugins/ofx/Window.h"

namespace orvanite::ofxPlugin {

/// The kind of samples that a pixel depth's name means; none for one that we do not key.
std::optional<Sample> sampleOf(std::string_view name);

/// One image of a clip at a time, the host's until this ends. Not to outlive the action.
class Image {
 public:
  Image() = default;
  /// Fetches; empty when the clip has none there.
  ///
  /// region  what is wanted at the least, on the canonical plane; null for what the host sees fit
  Image(ofx::Clip clip, ofx::Time time, const ofx::RectD* region = nullptr);
  Image(Image&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
  Image& operator=(Image&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image();

  explicit operator bool() const { return handle_ != nullptr; }

  std::optional<Sample> sample() const;  // none for pictures that we do not key
  bool singleField() const;              // half height: its lines are one field's
  std::string identity() const;          // the same for the same pixels; empty: the host has none
  /// Pixels of this image for one unit of the canonical plane, across and up.
  ofx::PointD pixelsPerUnit() const;
  /// The image as the engine's side sees it. Throws Error (failure), naming `clip`, for one
  /// without pixels, bounds, row bytes, or of channels or samples that we do not know.
  Picture picture(const char* clip) const;

 private:
  ofx::PropertySet handle_ = nullptr;
};

}  // namespace orvanite::ofxPlugin
