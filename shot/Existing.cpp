// SPDX-License-Identifier: BSD-3-Clause
#include "shot/Existing.h"

#include "base/Error.h"
#include "media/PictureWriter.h"

namespace orvanite::shot {
namespace {

std::string sizeOf(const media::Window& window) {
  return std::to_string(window.width) + "x" + std::to_string(window.height);
}

std::string faultOf(const Job& job, const ViewOutput& output, const std::string& path,
                    std::size_t count) {
  const auto found = media::Source::open(path);
  if (!found->cutOff().empty()) return "cut off: " + found->cutOff();
  const media::Window& wanted = job.shot->plate().info().display;
  const media::Window& size = found->info().display;
  if (size.width != wanted.width || size.height != wanted.height) {
    return "of " + sizeOf(size) + " pixels, not " + sizeOf(wanted);
  }
  if (output.isMovie) {
    const std::size_t frames = found->frames().size();
    return frames == count
               ? ""
               : "of " + std::to_string(frames) + " frames, not " + std::to_string(count);
  }
  if (job.passThrough) return "";
  const bool alpha = output.alpha != Alpha::none && media::pictureHoldsAlpha(path);
  if (alpha == found->info().hasAlpha) return "";
  return alpha ? "without alpha" : "with alpha";
}

}  // namespace

std::string faultOfExisting(const Job& job, const ViewOutput& output, const std::string& path,
                            std::size_t count) {
  try {
    return faultOf(job, output, path, count);
  } catch (const Error& error) {
    return error.message();
  }
}

}  // namespace orvanite::shot
