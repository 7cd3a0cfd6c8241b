// SPDX-License-Identifier: BSD-3-Clause
//
// What the page asks to see of its pictures, keyed: views of a window, at full size or through
// smaller pictures; the matte's histogram; the first key. One thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "apps/view/PageView.h"
#include "keyer/BlindKeyer.h"
#include "keyer/MaskShape.h"
#include "keyer/Settings.h"
#include "web/Pictures.h"

namespace orvanite::web {

/// A view by its name on the page, such as "overBlack".
struct Request {
  Settings settings;
  Masks masks;
  std::string view;
  int divisor = 1;        // one pixel of the result stands for divisor x divisor of the plate
  bool proxy = false;     // key the small picture, instead of making the keyed picture small
  Window window;          // in the plate's pixels; x and y are multiples of divisor
  bool measured = false;  // with the histogram of the window's matte
};

struct Shown {
  Window window;    // the part of the plate that is shown
  Picture picture;  // 8 bits, opaque
  std::optional<view::MatteMeasure> measure;
};

class Views {
 public:
  explicit Views(Pictures::Rows rows) : pictures(rows) {}

  Pictures pictures;  // what is keyed
  int frame = 1;      // that the plate's picture is; what moves stands as it is there

  /// Goes to a frame of a shot: its plate's picture, as large and deep as the one before.
  void turn(const Picture& plate, int number);

  /// Throws Error (wrongUse) for settings that cannot key and windows beside the plate.
  Shown show(const Request& request);

  /// A window at the pictures' own depth; "output" is what the parameter of that name says.
  /// within  beyond this a finish sees nothing; none: beyond the frame
  Picture keyed(const Settings& settings, const Masks& masks, std::string_view view, int divisor,
                const Window& window, const std::optional<Window>& within = std::nullopt);

  /// Takes the room of a picture that is done with, for the next one.
  void giveBack(Picture picture);

  /// The screen and what follows from it. Throws Error (failure) when there is none.
  struct Found {
    Settings settings;
    float coverage = 0;  // the screen's share of the frame
  };
  Found find(Settings settings);

  /// How much of the frame, 0..1, has the hue of the screen colour that is set.
  float coverage(const Settings& settings);

  /// Whether settings key beside estimates that are not there yet: a shot's are made of several
  /// frames, by `estimate` at its first one and `see` at others.
  bool wantsEstimates(const Settings& settings) const;
  /// Whether further frames can add to them.
  bool estimate(const Settings& settings);
  bool see();

  /// Whether pixels depend on the whole frame: such views are not cut into bands.
  bool needsAll(const Settings& settings, const Masks& masks) const;

 private:
  bool estimated(const Settings& settings) const;
  const BlindKey& estimates(const Settings& settings, int divisor);
  Inputs inputs(const Masks& masks) const;
  Plate ownPlate(Picture& room);
  OtileImage matte(Role role, const Settings& settings, const Picture& picture, int x, int y) const;
  OtileImage drawn(Role role, const Settings& settings, const Masks& masks, int divisor,
                   const Window& region, Picture& room);

  Picture spare_;
  Keyer keyer_;
  BlindKeyer beside_;
  int seen_ = -1;      // of the plates
  int carriedTo_ = 0;  // a frame
  std::optional<BlindKey> found_;
  std::map<int, BlindKey> carried_;  // by divisor
};

}  // namespace orvanite::web
