// SPDX-License-Identifier: BSD-3-Clause
#include "platform/nodes/NRiFrames.h"

#include "base/Error.h"
#include "media/FramePattern.h"
#include "platform/NRiGlobals.h"

namespace media = orvanite::media;

std::string NRiInputFile(NRiPlug& path, int frame) {
  std::string file = NRiGlobals::inFolder(std::string(path.asString().view()));
  try {
    const auto pattern = media::FramePattern::ofInput(file);
    return pattern ? pattern->path(frame) : file;
  } catch (const orvanite::Error& error) {
    throw NRiError(error.what());
  }
}

std::string NRiOutputFile(NRiPlug& path, int frame) {
  std::string file = NRiGlobals::inFolder(std::string(path.asString().view()));
  const auto pattern = media::FramePattern::parse(file);
  return pattern ? pattern->path(frame) : file;
}
