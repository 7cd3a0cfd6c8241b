// SPDX-License-Identifier: BSD-3-Clause
//
// From a wish to the keyer's own search, and back to names of parameters.
#include "shot/FirstKey.h"

#include "base/Error.h"
#include "keyer/CleanPlate.h"
#include "keyer/Threads.h"
#include "shot/Images.h"

namespace orvanite::shot {
namespace {

Screen foundIn(const Plate& plate, const char* subject) {
  Screen screen = findScreen(plate);
  if (screen.found) return screen;
  throw Error(Fault::failure, subject,
              "expected a screen of one colour in the plate, found none; --screen-at or --screen "
              "says where or which");
}

void setScreen(Settings& settings, const Rgb& colour) {
  settings.setNumbers("screen", static_cast<double>(colour[0]), static_cast<double>(colour[1]),
                      static_cast<double>(colour[2]));
}

CleanPlateUse cleanPlateUse(const Shot& shot, const FirstKeyWish& wish, const Settings& settings) {
  if (!settings.toggle("useReference")) return CleanPlateUse::never;
  if (wish.cleanPlate || shot.has(Role::cleanPlate)) return CleanPlateUse::always;
  return shot.depth() == Depth::floats ? CleanPlateUse::never : CleanPlateUse::whenUneven;
}

// What other frames show of the screen is known for all: a few of them, the same ones whatever part
// of the shot is keyed. One that cannot be read is left out; keying it will say why.
void seeOthers(const Shot& shot, std::optional<int> lookedAt, BlindKey& key) {
  if (!shot.plate().isShot()) return;
  const std::vector<int>& frames = shot.plate().frames();
  constexpr std::size_t others = 4;
  const int looked = lookedAt.value_or(frames.front());
  for (std::size_t i = 1; i <= others && key.steady; ++i) {
    const int frame = frames[i * (frames.size() - 1) / others];
    if (frame == looked || frame == frames[(i - 1) * (frames.size() - 1) / others]) continue;
    try {
      const LookedAt look = shot.toLookAt(frame);
      const media::Picture own = media::part(look.picture, look.own);
      key.see(plateOf(own), rowsOn(0));
    } catch (const Error&) {
    }
  }
}

}  // namespace

std::string FirstKey::decided() const {
  if (!blind) return {};
  std::string text = blind->mixing == Mixing::light && blind->encoding == Encoding::codes
                         ? "keyed in light"
                         : "keyed in the plate's codes";
  if (blind->mixing == Mixing::video) text = "keyed in video encoding";
  if (blind->mixing == Mixing::log) text = "keyed in log encoding";
  text += blind->steady ? ", beside one clean plate" : ", beside a clean plate for each frame";
  if (blind->lead > 0) text += ", colour led by light";
  if (blind->wishes.garbage) text += ", sure screen cut";
  if (blind->clear) {
    text += ", nothing held: the subject is clear like glass";
  } else if (blind->wishes.holdOut) {
    text += ", sure subject held";
  }
  return text;
}

media::Picture FirstKey::cleanPlateOf(const media::Picture& plate) const {
  media::Picture clean = media::Picture::make(plate.data, plate.depth, plate.samples);
  CleanPlate(plateOf(plate), *screen).write(imageOf(clean), plate.depth);
  return clean;
}

BlindKey estimatesOf(const Shot& shot, const Settings& settings, std::optional<int> frame) {
  const LookedAt look = shot.toLookAt(frame);
  const media::Picture own = media::part(look.picture, look.own);
  BlindKey key = findKey(plateOf(own), settings, {}, rowsOn(0));
  seeOthers(shot, frame, key);
  return key;
}

FirstKey findFirstKey(const Shot& shot, const FirstKeyWish& wish, Settings& settings) {
  const bool estimate = wish.cleanPlate && settings.toggle("useReference");
  if (estimate && shot.depth() == Depth::floats && !wish.everything) {
    throw Error(Fault::wrongUse, "reference",
                "expected an 8-bit or 16-bit plate, found half or float");
  }
  FirstKey key;
  const bool estimates = wish.everything ? findsEstimates(settings, shot.inputs())
                                         : keysBesideEstimates(settings, shot.inputs());
  if (!wish.everything && !wish.screenColour && !wish.at && !estimate && !estimates) return key;
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
  if (estimates) {
    BlindKey found = estimatesOf(shot, settings, wish.frame);
    if (wish.everything) {
      settings = found.settings;
      key.set.insert(key.set.end(), found.set.begin(), found.set.end());
    } else if (wish.screenColour && !settings.given("screen")) {
      setScreen(settings, {found.settings.number("screen", 0), found.settings.number("screen", 1),
                           found.settings.number("screen", 2)});
      key.set.emplace_back("screen");
    }
    key.cleanPlate = true;
    key.screen = findScreen(plate);
    key.blind = std::make_shared<const BlindKey>(std::move(found));
  } else if (wish.everything) {
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
