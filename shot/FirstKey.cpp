// SPDX-License-Identifier: BSD-3-Clause
//
// From a wish to the keyer's own search, and back to names of parameters.
#include "shot/FirstKey.h"

#include "base/Error.h"
#include "keyer/CleanPlate.h"
#include "shot/Images.h"

namespace orvanite::shot {
namespace {

Screen foundIn(const Plate& plate, const char* subject) {
  Screen screen = findScreen(plate);
  if (screen.found) return screen;
  throw Error(Fault::failure, subject,
              "expected a green or blue screen in the plate, found none; --screen-at or --screen "
              "says where or which");
}

void setScreen(Settings& settings, const Rgb& colour) {
  settings.setNumbers("screen", static_cast<double>(colour[0]), static_cast<double>(colour[1]),
                      static_cast<double>(colour[2]));
}

CleanPlateUse cleanPlateUse(const Shot& shot, const FirstKeyWish& wish, const Settings& settings) {
  if (!settings.toggle("useReference")) return CleanPlateUse::never;
  if (wish.cleanPlate || shot.has(Role::cleanPlate)) return CleanPlateUse::always;
  return shot.depth() == 4 || !wish.mayEstimate ? CleanPlateUse::never : CleanPlateUse::whenUneven;
}

}  // namespace

media::Picture FirstKey::cleanPlateOf(const media::Picture& plate) const {
  media::Picture clean = media::Picture::make(plate.data, plate.depth, plate.samples);
  CleanPlate(plateOf(plate), *screen).write(imageOf(clean), plate.depth);
  return clean;
}

FirstKey findFirstKey(const Shot& shot, const FirstKeyWish& wish, Settings& settings) {
  const bool estimate = wish.cleanPlate && settings.toggle("useReference");
  if (estimate && shot.depth() == 4) {
    throw Error(Fault::wrongUse, "reference",
                "expected an 8-bit or 16-bit plate, found half or float");
  }
  FirstKey key;
  if (!wish.everything && !wish.screenColour && !wish.at && !estimate) return key;
  const LookedAt look = shot.toLookAt(wish.frame);
  const media::Picture own = media::part(look.picture, look.own);
  const Plate plate = plateOf(own);
  if (wish.at) {
    try {
      setScreen(settings, colourOf(plateOf(look.picture), *wish.at, wish.average));
    } catch (const Error& error) {
      throw error.about("screenAt");
    }
    key.set.emplace_back("screen");
  }
  if (wish.everything) {
    AutoKey found = autoKey(plate, settings, cleanPlateUse(shot, wish, settings));
    key.set.insert(key.set.end(), found.set.begin(), found.set.end());
    key.cleanPlate = found.cleanPlate && !shot.has(Role::cleanPlate);
    key.screen = std::move(found.screen);
  } else if (wish.screenColour || estimate) {
    key.screen = foundIn(plate, wish.screenColour ? "screen" : "reference");
    if (wish.screenColour) {
      setScreen(settings, key.screen->colour);
      key.set.emplace_back("screen");
    }
    key.cleanPlate = estimate;
  }
  return key;
}

}  // namespace orvanite::shot
