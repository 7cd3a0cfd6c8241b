// SPDX-License-Identifier: BSD-3-Clause
#include "platform/nodes/NRiFrames.h"

#include "media/FramePattern.h"
#include "platform/NRiGlobals.h"
#include "platform/nodes/NRiTranslated.h"

namespace media = orvanite::media;

std::string NRiInputFile(NRiPlug& path, int frame) {
  std::string file = NRiGlobals::inFolder(std::string(path.asString().view()));
  const auto pattern = translated([&] { return media::FramePattern::ofInput(file); });
  return pattern ? pattern->path(frame) : file;
}

std::string NRiOutputFile(NRiPlug& path, int frame) {
  std::string file = NRiGlobals::inFolder(std::string(path.asString().view()));
  const auto pattern = media::FramePattern::parse(file);
  return pattern ? pattern->path(frame) : file;
}
