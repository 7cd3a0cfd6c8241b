// SPDX-License-Identifier: BSD-3-Clause
//
// A key for a plate that nobody has seen: the screen, its clean plate, how the edges mix, the key's
// numbers and two mattes of what is sure, all found in the plate alone. One result says everything
// that was chosen, and BlindKeyer renders with exactly that.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Depth.h"
#include "keyer/KeyFit.h"
#include "keyer/ScreenPlate.h"
#include "keyer/Settings.h"

namespace orvanite {

/// What findKey may choose.
struct KeyWishes {
  bool holdOut = true;  // a matte of what is surely solid
  bool garbage = true;  // a matte of what surely is nothing but screen
  bool mixing = true;   // in which encoding to key a plate of video codes
  bool lead = true;     // colour led by light where it is stored more coarsely
};

/// Everything that was chosen for a plate.
struct BlindKey {
  ScreenHue screen;               // what was found
  Settings settings;              // those given and what was chosen beside them; colours are codes
  std::vector<std::string> set;   // the parameters that were chosen, in the table's order
  Mixing mixing = Mixing::codes;  // what BlindKeyer keys in, whatever the settings' colourspace
  MixingVote vote;                // what the edges say about it
  KeyNumbers numbers;             // of the key
  Encoding encoding = Encoding::codes;  // of the plate
  KeyWishes wishes;                     // as they were given
  int width = 0;                        // of the plate, in pixels
  int height = 0;                       // likewise
  ScreenPlate plate;   // the clean plate, at the size at which the plate was looked at
  Plane holdOut;       // 1 holds; at that size; empty: none
  Plane garbage;       // 1 cuts; likewise
  bool clear = false;  // whether the subject shows the screen nearly everywhere
  float lead = 0;      // how far the frames' colour is led by their light, 0..1
  bool steady = true;  // whether one clean plate serves all frames that were seen

  /// Writes the clean plate in the plate's own encoding, alpha 1.0. The picture has the plate's
  /// size and depth. A file of it serves as a clean plate for all frames of the shot.
  void writeCleanPlate(const OtileImage& picture, Depth depth) const;

  /// Writes a found matte as grey, black where there is none. Sizes and alpha as above.
  void writeMatte(const Plane& matte, const OtileImage& picture, Depth depth) const;

  /// Takes in what another frame of the shot shows of the screen: what any frame shows as sure
  /// screen is known for all. Returns false, and takes nothing in, where the camera has moved or
  /// the light has changed: `steady` is false from then on.
  bool see(const Plate& frame, const RowLoop& rows = bandAfterBand);

  /// Whether findKey makes the same estimates of the same plate with these settings. Of all of them
  /// the encoding counts, and the order of the screen's channels where its colour is given.
  bool suits(const Settings& given) const;

  /// This key for another frame: the same numbers, the frame's own mattes; the same clean plate
  /// where it is steady, else the frame's own.
  BlindKey carriedTo(const Plate& frame, const RowLoop& rows = bandAfterBand) const;
};

/// How pixels mix by the parameter "estimate"; none where it is off.
std::optional<Mixing> mixingOf(const Settings& settings);

/// Whether settings key beside estimates: they ask for them, and no clean plate is given.
bool keysBesideEstimates(const Settings& settings, const Inputs& inputs);

/// Whether an automatic key is to be found beside estimates: where they are asked for and, as long
/// as nobody says anything of them, wherever no clean plate is given.
bool findsEstimates(const Settings& settings, const Inputs& inputs);

/// Looks at one plate. Parameters that were given stay as they are; colourspace says how the plate
/// is encoded, and of video codes the key may be in light or in the codes themselves.
/// The same plate gives the same key whatever the number of threads.
/// Throws Error (failure) when the plate has no screen that is sure enough.
BlindKey findKey(const Plate& plate, const Settings& given, const KeyWishes& wishes = {},
                 const RowLoop& rows = bandAfterBand);

}  // namespace orvanite
