// SPDX-License-Identifier: BSD-3-Clause
#include "media/ColourSpaces.h"

#include <OpenColorIO/OpenColorIO.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>
#include <new>

#include "base/Error.h"
#include "media/ColourSpaceCheck.h"
#include "media/PictureReader.h"

namespace orvanite::media {

namespace ocio = OCIO_NAMESPACE;

namespace {

constexpr std::uintmax_t configurationLimit = std::uintmax_t{64} << 20;

// OpenColorIO's errors run over several lines, and quote what they like.
std::string firstLine(const std::string& text) { return oneLine(text.substr(0, text.find('\n'))); }

// Calls OpenColorIO, which throws what its parsers throw as well. Throws Error (failure) about
// `path`, with `what` before its words.
template <class Action>
auto trying(const std::string& path, const std::string& what, const Action& action) {
  try {
    return action();
  } catch (const std::bad_alloc&) {
    throw Error(Fault::failure, path, what + "out of memory");
  } catch (const std::exception& error) {
    throw Error(Fault::failure, path, what + firstLine(error.what()));
  }
}

const ocio::Config& configOf(const std::shared_ptr<const void>& config) {
  return *static_cast<const ocio::Config*>(config.get());
}

}  // namespace

ColourSpaces::ColourSpaces(const std::string& path) : path_(path) {
  ocio::SetLoggingLevel(ocio::LOGGING_LEVEL_NONE);
  ocio::ClearAllCaches();  // tables that were read before are kept by name, whatever they hold now
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) {
    throw Error(Fault::noSuchFile, path, "there is no such OpenColorIO configuration");
  }
  // OpenColorIO reads it by its name, for what lies beside it: no device, which has no end.
  const std::uintmax_t bytes = std::filesystem::file_size(path, ignored);
  if (ignored || bytes > configurationLimit) {
    throw Error(Fault::failure, path,
                "no OpenColorIO configuration: expected a file of at most " +
                    std::to_string(configurationLimit) + " bytes");
  }
  const auto config = trying(path, "no OpenColorIO configuration: ", [&] {
    return ocio::Config::CreateFromFile(path.c_str());
  });
  config_ = config;
  checkColourSpaces(*config, path);
}

std::string ColourSpaces::space(const std::string& name, const std::string& option) const {
  const ocio::Config& config = configOf(config_);
  if (const auto found = config.getColorSpace(name.c_str())) return found->getName();
  std::string names;
  for (int i = 0; i < config.getNumColorSpaces(); ++i) {
    names += (i == 0 ? "" : ", ");
    names += config.getColorSpaceNameByIndex(i);
  }
  throw Error::expected(Fault::wrongUse, option,
                        "a colour space of " + path_ + " (" + oneLine(names) + ")", name);
}

std::string ColourSpaces::encodingOf(const std::string& space) const {
  if (isLinear(space)) return "linear";
  const auto found = configOf(config_).getColorSpace(space.c_str());
  const std::string encoding = found ? found->getEncoding() : "";
  if (encoding == "log") return "log";
  return encoding == "sdr-video" || encoding == "hdr-video" ? "video" : "";
}

bool ColourSpaces::isLinear(const std::string& space) const {
  if (!configOf(config_).getColorSpace(ocio::ROLE_SCENE_LINEAR)) return false;
  // OpenColorIO 2.1 cannot be asked: greys of twice the code must be twice the light.
  Picture greys = Picture::make({0, 0, 4, 1}, Depth::floats, Samples::float32);
  auto* codes = reinterpret_cast<float*>(greys.pixels.get());
  const auto grey = [codes](std::ptrdiff_t i) { return codes + 4 * i; };
  for (int i = 0; i < 4; ++i) std::fill_n(grey(i), 4, i == 0 ? 0.0f : 0.125f * float(1 << i));
  conversion(space, ocio::ROLE_SCENE_LINEAR).apply(greys);
  const float unit = *grey(1) / 0.25f;
  for (int i = 0; i < 4; ++i) {
    const float wanted = i == 0 ? 0 : unit * 0.125f * float(1 << i);
    if (!(std::abs(*grey(i) - wanted) <= 1e-4f * std::abs(unit))) return false;
  }
  return true;
}

ColourSpaces::Conversion ColourSpaces::conversion(const std::string& from,
                                                  const std::string& to) const {
  if (from == to) return {};
  return trying(path_, "no way from " + oneLine(from) + " to " + oneLine(to) + ": ", [&] {
    Conversion conversion;
    const auto whole = configOf(config_).getProcessor(from.c_str(), to.c_str());
    // Only what changes no result is left out.
    if (!whole->isNoOp()) {
      conversion.processor_ = whole->getOptimizedCPUProcessor(
          ocio::BIT_DEPTH_F32, ocio::BIT_DEPTH_F32, ocio::OPTIMIZATION_LOSSLESS);
    }
    return conversion;
  });
}

void ColourSpaces::Conversion::apply(Picture& picture) const {
  if (!processor_) return;
  ocio::PackedImageDesc pixels(picture.pixels.get(), picture.data.width, picture.data.height,
                               ocio::CHANNEL_ORDERING_RGBA);
  static_cast<const ocio::CPUProcessor*>(processor_.get())->apply(pixels);
}

}  // namespace orvanite::media
