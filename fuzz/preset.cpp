// SPDX-License-Identifier: BSD-3-Clause
//
// Reads bytes as a preset. What is accepted, saved and read again gives the same values in force
// and the same text, at every frame of what moves.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/Error.h"
#include "keyer/Preset.h"

namespace {

using orvanite::Settings;

bool sameInForce(const Settings& a, const Settings& b) {
  for (const orvanite::Parameter& parameter : orvanite::parameters()) {
    if (a.text(parameter.name) != b.text(parameter.name)) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Settings settings;
  try {
    settings = orvanite::settingsFromPreset(text, "fuzz");
  } catch (const orvanite::Error& error) {
    if (error.message().empty()) std::abort();
    return 0;
  }
  const std::string saved = orvanite::presetText(settings);
  const Settings again = orvanite::settingsFromPreset(saved, "saved");
  if (!sameInForce(settings, again) || orvanite::presetText(again) != saved) {
    std::fprintf(stderr, "saved:\n%s\nand then:\n%s\n", saved.c_str(),
                 orvanite::presetText(again).c_str());
    std::abort();
  }
  for (const double frame : {-1e9, 1.0, 2.5, 1e9}) {
    const Settings now = settings.at(frame);
    if (now.moves() || !sameInForce(now, again.at(frame))) std::abort();
  }
  return 0;
}
