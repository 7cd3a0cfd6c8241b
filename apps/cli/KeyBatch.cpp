// SPDX-License-Identifier: BSD-3-Clause
#include "apps/cli/KeyBatch.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "apps/cli/Commands.h"
#include "base/Error.h"
#include "media/FramePattern.h"
#include "media/MovieSource.h"
#include "media/Source.h"

namespace orvanite::cli {
namespace {

namespace fs = std::filesystem;

bool isFolder(const std::string& path) {
  std::error_code ignored;
  return path.ends_with('/') || fs::is_directory(path, ignored);
}

// The name of a plate's key in a folder: its own, with an ending that holds a cut-out.
std::string nameOf(const std::string& plate, const media::OpenOptions& how) {
  const auto source = media::Source::open(plate, how);
  fs::path name = fs::path(plate).filename();
  if (name.empty()) name = fs::path(plate).parent_path().filename();
  if (media::isMovieName(plate) && !media::FramePattern::parse(plate)) {
    return name.replace_extension(".mov").string();
  }
  const media::Samples samples = source->info().samples;
  const bool isFloat = samples == media::Samples::half || samples == media::Samples::float32;
  const char* const ending = isFloat ? ".exr" : ".png";
  std::error_code ignored;
  if (fs::is_directory(plate, ignored)) return name.string() + ".####" + ending;
  return name.replace_extension(ending).string();
}

void checkOptions(const KeyOptions& options) {
  for (const auto& [option, value] : {std::pair{"--matte-output", &options.matteOutput},
                                      {"--status-output", &options.statusOutput},
                                      {"--foreground-output", &options.foregroundOutput},
                                      {"--save-reference", &options.saveReference},
                                      {"--save-hold-out", &options.saveHoldOut},
                                      {"--save-garbage", &options.saveGarbage},
                                      {"--save-preset", &options.savePreset},
                                      {"--save-script", &options.saveScript}}) {
    if (!value->empty()) {
      throw Error(Fault::wrongUse, option, "expected one plate, and -o with the name of a file");
    }
  }
}

}  // namespace

int keyPlates(const KeyOptions& options, const std::function<int(KeyOptions&)>& keyPlate) {
  if (options.plates.empty())
    throw Error(Fault::wrongUse, "key", "expected a plate: orvanite key PLATE -o OUT");
  if (options.output.empty()) throw Error(Fault::wrongUse, "key", "expected an output: -o OUT");
  if (!isFolder(options.output)) {
    if (options.plates.size() > 1) {
      throw Error::expected(Fault::wrongUse, "-o", "a folder for several plates, such as keyed/",
                            options.output);
    }
    KeyOptions one = options;
    one.plate = options.plates.front();
    return keyPlate(one);
  }
  checkOptions(options);
  std::error_code problem;
  fs::create_directories(options.output, problem);
  if (problem) throw Error(Fault::failure, options.output, "no folder can be made of this name");
  std::vector<std::string> names;
  int code = success;
  std::size_t done = 0;
  for (const std::string& plate : options.plates) {
    int result = failed;
    try {
      const std::string name = nameOf(plate, options.reading.how());
      if (std::find(names.begin(), names.end(), name) != names.end()) {
        throw Error(Fault::wrongUse, plate, "another plate is keyed into " + name + " already");
      }
      names.push_back(name);
      KeyOptions one = options;
      one.plate = plate;
      one.output = (fs::path(options.output) / name).string();
      if (!options.quiet) fmt::print(stderr, "{} -> {}\n", plate, one.output);
      result = keyPlate(one);
    } catch (const Error& error) {
      std::fflush(stdout);
      fmt::print(stderr, "orvanite: {}\n", error.what());
      result = codeOf(error.fault());
    }
    if (result == success) ++done;
    if (code == success) code = result;
    if (result == cancelled) break;
  }
  std::fflush(stdout);
  if (!options.quiet && options.plates.size() > 1) {
    fmt::print("{} of {} plates keyed\n", done, options.plates.size());
  }
  return code;
}

}  // namespace orvanite::cli
