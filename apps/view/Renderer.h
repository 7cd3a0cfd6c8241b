// SPDX-License-Identifier: BSD-3-Clause
//
// What a page asks to see, keyed by the engine: one view of a window of a frame, at full size or
// through a proxy; the matte's histogram; the values of one pixel; the colours of a box.
// Knows Footage and FrameKeyer; knows no HTTP and no JSON.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

#include "apps/view/Footage.h"
#include "apps/view/FrameKeyer.h"
#include "apps/view/Proxy.h"
#include "keyer/Settings.h"

namespace orvanite::view {

struct PictureRequest {
  Settings settings;
  Masks masks;
  PageView view = PageView::composite;
  int frame = 1;
  int divisor = 1;        // one pixel of the result stands for divisor x divisor of the plate
  bool proxy = false;     // key the small picture, instead of making the keyed picture small
  media::Window window;   // in the plate's pixels; x and y are multiples of divisor
  bool measured = false;  // with the histogram of the whole frame's matte
  int slot = 0;           // settings that change little from one request to the next share a slot
};

struct RenderedPicture {
  media::Window window;  // the part that the picture shows, in the plate's pixels
  ScreenPicture picture;
  std::optional<MatteMeasure> measure;
};

/// Code values divided by the depth's maximum.
struct PixelValues {
  std::array<float, 4> plate{}, result{};
  float matte = 0;
};

/// What lies in a box of the plate, channel by channel.
struct BoxColours {
  std::array<float, 3> median{}, low{}, high{};  // low and high leave out a twentieth each
};

class Renderer {
 public:
  static constexpr int slots = 2;
  static constexpr int divisorLimit = 16;

  explicit Renderer(Footage& footage) : footage_(footage) {}

  /// Nothing when `wanted` said no in between. Renders one request at a time; callers wait.
  /// Throws Error for settings that cannot key, a window outside the plate or unreadable files.
  std::optional<RenderedPicture> render(const PictureRequest& request,
                                        const std::function<bool()>& wanted);

  PixelValues probe(const Settings& settings, const Masks& masks, PageView view, int frame, int x,
                    int y, int slot);

  BoxColours colours(int frame, const media::Window& box);

  /// The screen, and the parameters that follow from it, found in a frame. Those of them that
  /// were given are forgotten first; the others stay as they are. Pictures are rendered meanwhile:
  /// who does not want to wait any longer need not.
  /// Throws Error when there is no screen.
  struct Found {
    Settings settings;
    float coverage = 0;  // the screen's share of the frame
  };
  Found find(Settings settings, int frame);

  /// How much of a frame, 0..1, has the hue of the screen colour that is set.
  float coverage(const Settings& settings, int frame);

 private:
  FrameKeyer& keyer(int slot);
  media::Window checked(const media::Window& window) const;
  int checkedFrame(int frame) const;

  Footage& footage_;
  std::mutex mutex_;
  std::array<std::optional<FrameKeyer>, slots> keyers_;
};

}  // namespace orvanite::view
