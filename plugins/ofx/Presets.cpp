// SPDX-License-Identifier: BSD-3-Clause
//
// The buttons that load and save a preset's file.
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "base/Error.h"
#include "keyer/Preset.h"
#include "plugins/ofx/Instance.h"

namespace orvanite::ofxPlugin {

namespace {

// Beside the file first, then in its place: a preset is whole or not there.
void writeWhole(const std::string& path, const std::string& text) {
  const auto fail = [&path](const char* what) { return Error(Fault::failure, path, what); };
  const std::filesystem::path target(path);
  std::filesystem::path part(path);
  part += "." + std::to_string(std::random_device()()) + ".part";
  std::error_code problem;
  {
    std::ofstream file(part, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
      std::filesystem::remove(part, problem);
      throw fail("the preset cannot be written there");
    }
  }
  std::filesystem::rename(part, target, problem);
  if (problem) {
    std::error_code ignored;
    std::filesystem::remove(part, ignored);
    throw fail("the preset cannot be written there");
  }
}

}  // namespace

void Instance::loadPreset(ofx::Time time) {
  const std::string path = parameters_.presetFile();
  if (path.empty()) {
    report(ofx::message::warning, "Load preset: choose a file first");
    return;
  }
  try {
    const Settings moving = settingsFromPresetFile(path);
    const Settings settings = moving.at(time);
    std::vector<std::string> all;
    for (const Parameter& parameter : parameters()) all.emplace_back(parameter.name);
    parameters_.write(settings, all, time, "Load preset");
    if (moving.moves()) {
      report(ofx::message::warning,
             "Load preset: what moves in it stands as it is at this frame; set keys here");
    }
  } catch (const Error& error) {
    report(ofx::message::warning, std::string("Load preset: ") + error.what());
  }
}

void Instance::savePreset(ofx::Time time) {
  const std::string path = parameters_.presetFile();
  if (path.empty()) {
    report(ofx::message::warning, "Save preset: choose a file first");
    return;
  }
  try {
    writeWhole(path, presetText(parameters_.at(time)));
  } catch (const Error& error) {
    report(ofx::message::warning, std::string("Save preset: ") + error.what());
  }
}

}  // namespace orvanite::ofxPlugin
