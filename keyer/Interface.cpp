// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer behind its C interface, orvanite/keyer.h. No exception leaves this file: what is thrown
// becomes a result and the keyer's words.
#include <orvanite/keyer.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Error.h"
#include "keyer/AutoKey.h"
#include "keyer/BlindKey.h"
#include "keyer/CleanPlate.h"
#include "keyer/Pictures.h"
#include "keyer/Preset.h"
#include "keyer/Screen.h"
#include "keyer/Settings.h"

using namespace orvanite;

/// A keyer as clients hold it.
struct OrvaniteKeyer {
  Settings settings;
  PictureKeyer pictures;
  std::string error;
  std::string text;                // handed out last
  std::vector<std::string> found;  // the parameters that were found and not set since
  std::string foundText;

  std::optional<BlindKey> estimates;  // what the settings that were found key beside

  // The clean plate that was estimated without them, and its pixels at the depth in which they were
  // last wanted.
  std::optional<CleanPlate> cleanPlate;
  int width = 0, height = 0;
  std::optional<Depth> cleanDepth;
  std::vector<std::byte> cleanPixels;
};

namespace {

// Calls and turns what is thrown into a result.
template <class Call>
OrvaniteResult guarded(OrvaniteKeyer* keyer, Call call) noexcept {
  if (!keyer) return ORVANITE_WRONG_USE;
  try {
    try {
      call();
      return ORVANITE_OK;
    } catch (const Error& error) {
      keyer->error = error.what();
      return error.fault() == Fault::wrongUse ? ORVANITE_WRONG_USE : ORVANITE_FAILURE;
    } catch (const std::bad_alloc&) {
      keyer->error = "keyer: out of memory";
      return ORVANITE_NO_MEMORY;
    } catch (const std::exception& error) {
      keyer->error = std::string("keyer: ") + error.what();
      return ORVANITE_FAILURE;
    }
  } catch (...) {  // not even room for the words
    return ORVANITE_NO_MEMORY;
  }
}

const char* given(const char* text, const char* what) {
  if (!text) throw Error(Fault::wrongUse, what, "expected a text, found null");
  return text;
}

Sample sampleOf(OrvaniteDepth depth, const std::string& role) {
  switch (depth) {
    case ORVANITE_8BIT:
      return Sample::byte;
    case ORVANITE_16BIT:
      return Sample::word;
    case ORVANITE_HALF:
      return Sample::half;
    case ORVANITE_FLOAT:
      return Sample::real;
  }
  throw Error::expected(Fault::wrongUse, role,
                        "a depth of 1 (8-bit), 2 (16-bit), 3 (half) or 4 (float)",
                        std::to_string(static_cast<int>(depth)));
}

Picture pictureOf(const OrvaniteImage& image, const std::string& role) {
  Picture picture;
  for (std::size_t c = 0; c < 4; ++c) {
    picture.channels[c] = static_cast<std::byte*>(image.channels[c]);
  }
  if (!picture.present()) return picture;
  picture.width = image.width;
  picture.height = image.height;
  picture.sample = sampleOf(image.depth, role);
  picture.pixelStride = image.pixelStride;
  picture.rowStride = image.rowStride;
  return picture;
}

Picture plateOf(const OrvaniteImage* plate) {
  if (!plate) throw Error(Fault::wrongUse, "plate", "expected a picture, found null");
  return pictureOf(*plate, "plate");
}

// The estimated clean plate, as a picture of 8 or 16 bits.
Picture estimated(OrvaniteKeyer& keyer, Depth depth) {
  const std::ptrdiff_t pixel = std::ptrdiff_t{4} * bytesOf(depth);
  const std::ptrdiff_t row = pixel * keyer.width;
  if (keyer.cleanDepth != depth) {
    keyer.cleanDepth.reset();
    keyer.cleanPixels.resize(static_cast<std::size_t>(row) *
                             static_cast<std::size_t>(keyer.height));
  }
  std::byte* const first = keyer.cleanPixels.data();
  Picture picture;
  picture.width = keyer.width;
  picture.height = keyer.height;
  picture.sample = depth == Depth::bytes ? Sample::byte : Sample::word;
  for (std::ptrdiff_t c = 0; c < 4; ++c) {
    picture.channels[static_cast<std::size_t>(c)] = first + c * bytesOf(depth);
  }
  picture.pixelStride = pixel;
  picture.rowStride = row;
  if (!keyer.cleanDepth) {
    keyer.cleanPlate->write(
        {first, first + bytesOf(depth), first + std::ptrdiff_t{2} * bytesOf(depth),
         first + std::ptrdiff_t{3} * bytesOf(depth), 4, 4 * keyer.width},
        depth);
    keyer.cleanDepth = depth;
  }
  return picture;
}

// What the client sets is no longer what was found.
void isGiven(OrvaniteKeyer& keyer, std::string_view name) {
  keyer.found.erase(std::remove(keyer.found.begin(), keyer.found.end(), name), keyer.found.end());
}

void forgetFound(OrvaniteKeyer& keyer) {
  keyer.found.clear();
  keyer.foundText.clear();
  keyer.estimates.reset();
  keyer.cleanPlate.reset();
  keyer.cleanDepth.reset();
  keyer.cleanPixels.clear();
}

}  // namespace

extern "C" {

const char* orvanite_keyerVersion(void) { return ORVANITE_VERSION; }

OrvaniteKeyer* orvanite_keyerNew(void) {
  try {
    return new OrvaniteKeyer;
  } catch (...) {  // memory
    return nullptr;
  }
}

void orvanite_keyerDelete(OrvaniteKeyer* keyer) { delete keyer; }

const char* orvanite_keyerError(const OrvaniteKeyer* keyer) {
  return keyer ? keyer->error.c_str() : "keyer: expected a keyer, found null";
}

int orvanite_keyerParameters(void) { return static_cast<int>(parameters().size()); }

OrvaniteResult orvanite_keyerParameter(int index, OrvaniteParameter* parameter) {
  if (!parameter || index < 0 || index >= orvanite_keyerParameters()) return ORVANITE_WRONG_USE;
  const Parameter& entry = parameters()[static_cast<std::size_t>(index)];
  // The table's texts are literals: they end with a zero.
  *parameter = {entry.name.data(),
                entry.label.data(),
                entry.group.heading.data(),
                entry.help.data(),
                entry.unit.data(),
                static_cast<OrvaniteType>(entry.type),
                valuesOf(entry.type),
                entry.softLow,
                entry.softHigh,
                entry.low,
                entry.high,
                {entry.defaults[0], entry.defaults[1], entry.defaults[2]},
                static_cast<int>(entry.choices.size()),
                entry.rule == DefaultRule::balanceOfScreen ? 1 : 0};
  return ORVANITE_OK;
}

OrvaniteResult orvanite_keyerChoice(int parameter, int index, OrvaniteChoice* choice) {
  if (!choice || parameter < 0 || parameter >= orvanite_keyerParameters())
    return ORVANITE_WRONG_USE;
  const auto& choices = parameters()[static_cast<std::size_t>(parameter)].choices;
  if (index < 0 || index >= static_cast<int>(choices.size())) return ORVANITE_WRONG_USE;
  const Choice& entry = choices[static_cast<std::size_t>(index)];
  *choice = {entry.text.data(), entry.label.data(), entry.help.data()};
  return ORVANITE_OK;
}

OrvaniteResult orvanite_keyerSetText(OrvaniteKeyer* keyer, const char* name, const char* text) {
  return guarded(keyer, [&] {
    given(name, "parameter");
    keyer->settings.setText(name, given(text, name));
    isGiven(*keyer, name);
  });
}

OrvaniteResult orvanite_keyerSetNumbers(OrvaniteKeyer* keyer, const char* name,
                                        const double* values, int count) {
  return guarded(keyer, [&] {
    given(name, "parameter");
    if (!values || (count != 1 && count != 3)) {
      throw Error(Fault::wrongUse, name, "expected 1 number or 3");
    }
    const Parameter* entry = findParameter(name);
    if (count == 1 || (entry && valuesOf(entry->type) != 3)) {
      if (count == 3) throw Error(Fault::wrongUse, name, "expected 1 number, found 3");
      keyer->settings.setNumber(name, values[0]);
    } else {
      keyer->settings.setNumbers(name, values[0], values[1], values[2]);
    }
    isGiven(*keyer, name);
  });
}

const char* orvanite_keyerText(OrvaniteKeyer* keyer, const char* name) {
  const OrvaniteResult result =
      guarded(keyer, [&] { keyer->text = keyer->settings.text(given(name, "parameter")); });
  return result == ORVANITE_OK ? keyer->text.c_str() : nullptr;
}

OrvaniteResult orvanite_keyerNumbers(OrvaniteKeyer* keyer, const char* name, double values[3]) {
  return guarded(keyer, [&] {
    given(name, "parameter");
    if (!values) throw Error(Fault::wrongUse, name, "expected room for 3 numbers, found null");
    const Parameter* entry = findParameter(name);
    if (entry && valuesOf(entry->type) == 0) {
      throw Error(Fault::wrongUse, name, "a channel is no number");
    }
    const bool triple = entry && valuesOf(entry->type) == 3;
    for (int c = 0; c < 3; ++c) {
      values[c] = static_cast<double>(keyer->settings.number(name, triple ? c : 0));
    }
  });
}

int orvanite_keyerGiven(const OrvaniteKeyer* keyer, const char* name) {
  return keyer && name && findParameter(name) && keyer->settings.given(name) ? 1 : 0;
}

OrvaniteResult orvanite_keyerReset(OrvaniteKeyer* keyer, const char* name) {
  return guarded(keyer, [&] {
    if (name) {
      keyer->settings.reset(name);
    } else {
      keyer->settings = Settings();
      forgetFound(*keyer);
    }
  });
}

const char* orvanite_keyerPreset(OrvaniteKeyer* keyer) {
  const OrvaniteResult result = guarded(keyer, [&] { keyer->text = presetText(keyer->settings); });
  return result == ORVANITE_OK ? keyer->text.c_str() : nullptr;
}

OrvaniteResult orvanite_keyerUsePreset(OrvaniteKeyer* keyer, const char* text) {
  return guarded(keyer, [&] {
    keyer->settings = settingsFromPreset(given(text, "preset"), "preset");
    forgetFound(*keyer);
  });
}

OrvaniteResult orvanite_keyerFindScreen(OrvaniteKeyer* keyer, const OrvaniteImage* plate,
                                        OrvaniteScreen* screen) {
  return guarded(keyer, [&] {
    if (!screen) throw Error(Fault::wrongUse, "screen", "expected room for a screen, found null");
    const SearchedPlate searched(plateOf(plate));
    const Screen found = findScreen(searched.plate());
    if (!found.found) {
      throw Error(Fault::failure, "plate", "expected a screen of one colour, found none");
    }
    *screen = {found.primary,
               {found.colour[0], found.colour[1], found.colour[2]},
               found.coverage,
               found.evenness};
  });
}

OrvaniteResult orvanite_keyerFind(OrvaniteKeyer* keyer, const OrvaniteImage* plate,
                                  OrvaniteCleanPlate cleanPlate) {
  return guarded(keyer, [&] {
    const Picture picture = plateOf(plate);
    const SearchedPlate searched(picture);
    Settings settings = keyer->settings;
    for (const std::string& name : keyer->found) settings.reset(name);
    std::vector<std::string> set;
    std::optional<BlindKey> estimates;
    std::optional<CleanPlate> clean;
    if (cleanPlate == ORVANITE_CLEAN_PLATE_IF_USEFUL && findsEstimates(settings, {})) {
      estimates = findKey(searched.plate(), settings, {}, rowsOn(0));
      settings = estimates->settings;
      set = estimates->set;
    } else {
      CleanPlateUse use = CleanPlateUse::never;
      if (cleanPlate == ORVANITE_CLEAN_PLATE_GIVEN) use = CleanPlateUse::always;
      if (cleanPlate == ORVANITE_CLEAN_PLATE_IF_USEFUL && settings.toggle("useReference") &&
          searched.plate().depth != Depth::floats) {
        use = CleanPlateUse::whenUneven;
      }
      AutoKey found = autoKey(searched.plate(), settings, use);
      if (found.cleanPlate && cleanPlate != ORVANITE_CLEAN_PLATE_GIVEN) {
        clean.emplace(searched.plate(), found.screen);
      }
      set = std::move(found.set);
    }
    std::string names;
    for (const std::string& name : set) names += (names.empty() ? "" : " ") + name;
    forgetFound(*keyer);
    keyer->settings = std::move(settings);
    keyer->estimates = std::move(estimates);
    keyer->cleanPlate = std::move(clean);
    keyer->found = std::move(set);
    keyer->foundText = std::move(names);
    keyer->width = picture.width;
    keyer->height = picture.height;
  });
}

OrvaniteResult orvanite_keyerSee(OrvaniteKeyer* keyer, const OrvaniteImage* plate, int* steady) {
  return guarded(keyer, [&] {
    if (!keyer->estimates) {
      throw Error(Fault::wrongUse, "plate", "expected a key beside estimates to have been found");
    }
    const SearchedPlate searched(plateOf(plate));
    const bool same = keyer->estimates->see(searched.plate());
    if (steady) *steady = same ? 1 : 0;
  });
}

const char* orvanite_keyerFound(const OrvaniteKeyer* keyer) {
  return keyer ? keyer->foundText.c_str() : "";
}

int orvanite_keyerHasCleanPlate(const OrvaniteKeyer* keyer) {
  return keyer && (keyer->cleanPlate || keyer->estimates) ? 1 : 0;
}

OrvaniteResult orvanite_keyerRender(OrvaniteKeyer* keyer, const OrvaniteFrame* frame, int threads) {
  return guarded(keyer, [&] {
    if (!frame) throw Error(Fault::wrongUse, "frame", "expected a frame, found null");
    PictureFrame pictures;
    pictures.plate = pictureOf(frame->plate, "plate");
    pictures.background = pictureOf(frame->background, "background");
    pictures.holdOut = pictureOf(frame->holdOut, "hold-out matte");
    pictures.garbage = pictureOf(frame->garbage, "garbage matte");
    pictures.cleanPlate = pictureOf(frame->cleanPlate, "clean plate");
    pictures.result = pictureOf(frame->result, "result");
    const Picture& plate = pictures.plate;
    if (keyer->cleanPlate && !pictures.cleanPlate.present() && plate.width == keyer->width &&
        plate.height == keyer->height) {
      pictures.cleanPlate = estimated(*keyer, workingDepth(plate.sample, true));
    }
    keyer->pictures.render(keyer->settings, pictures, threads,
                           keyer->estimates ? &*keyer->estimates : nullptr);
  });
}

}  // extern "C"
