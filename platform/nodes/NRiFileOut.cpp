// SPDX-License-Identifier: BSD-3-Clause
//
// Writing pictures.
#include "platform/nodes/NRiFileOut.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>

#include "platform/NRiLexer.h"
#include "platform/nodes/NRiFileIn.h"
#include "platform/nodes/NRiFrames.h"

namespace {

namespace fs = std::filesystem;

OIIO::TypeDesc memoryType(int bytes) {
  return bytes == 1   ? OIIO::TypeDesc::UINT8
         : bytes == 2 ? OIIO::TypeDesc::UINT16
                      : OIIO::TypeDesc::FLOAT;
}

OIIO::TypeDesc fileType(const NRiName& samples, int bytes) {
  const std::string_view text = samples.view();
  if (text == "auto") return memoryType(bytes);
  if (text == "uint8") return OIIO::TypeDesc::UINT8;
  if (text == "uint16") return OIIO::TypeDesc::UINT16;
  if (text == "half") return OIIO::TypeDesc::HALF;
  if (text == "float") return OIIO::TypeDesc::FLOAT;
  throw NRiError(
      "expected samples \"auto\", \"uint8\", \"uint16\", \"half\" or \"float\", found \"" +
      NRiPrintable(text) + "\"");
}

// An output that is one of the script's inputs would destroy it.
void checkInputs(const std::string& path) {
  std::error_code error;
  for (NRiNode* const node : NRiNode::getRoot()->children()) {
    auto* const input = dynamic_cast<NRiFileIn*>(node);
    if (input && fs::equivalent(path, input->path(), error)) {
      throw NRiError(path + ": is also read, by '" + std::string(node->name().view()) +
                     "': expected another file");
    }
  }
}

}  // namespace

NRiFileOut::NRiFileOut() : NRiMonadic(NRiName("In")) {
  path_ = addPlug(NRiName("path"), nriString, NRiPlug::kIn, nullptr, 0);
  samples_ = addPlug(NRiName("samples"), nriString, NRiPlug::kIn, nullptr, 0);
  samples_->set("auto");
  NRiPlug::addDependencies(out_->image(), path_, samples_, nullptr);
}

const NRiName& NRiFileOut::getClassName() const {
  static const NRiName name("FileOut");
  return name;
}

std::string NRiFileOut::path() {
  const float frame = NRiNode::getRoot()->getPlug(NRiName("time"))->asFloat();
  return NRiFramePath(path_->asString().view(), static_cast<int>(std::lround(frame)));
}

std::string NRiFileOut::checkedPath() {
  std::string file = path();
  if (file.empty()) throw NRiError("'" + path_->fullName() + "' is empty: expected a file");
  if (!getInput(0)->isConnected()) {
    throw NRiError(file + ": '" + std::string(name().view()) + "' has no image");
  }
  if (!OIIO::ImageOutput::create(file)) {
    OIIO::geterror();
    throw NRiError(file + ": expected a name with the ending of a picture format, such as .exr");
  }
  checkInputs(file);
  return file;
}

bool NRiFileOut::write(OIIO::ImageOutput& output, const std::string& to) {
  const std::string file = checkedPath();
  out_->setRequest(15);
  const int held = out_->channels()->asInt() & 15;
  const NRiRect frame = format();
  if (frame.empty()) throw NRiError(file + ": the image has no size");
  // Alpha alone is a matte; whatever has colour is written with all three colours.
  const bool colour = (held & 14) != 0;
  const bool alpha = (held & 1) != 0 && output.supports("alpha");
  const NRiRect domain = out_->getDod();
  const bool windowed = std::string_view(output.format_name()) == "openexr" && !domain.empty();
  const NRiRect region = windowed ? domain : frame;
  const int width = region.x2 - region.x1;
  const int height = region.y2 - region.y1;
  const NRiIBuf pixels = renderWhole(region);
  const int bytes = pixels.depth;

  OIIO::ImageSpec spec(width, height, colour ? (alpha ? 4 : 3) : 1,
                       fileType(samples_->asString(), bytes));
  spec.x = region.x1;
  spec.y = region.y1;
  spec.full_x = spec.full_y = 0;
  spec.full_width = frame.x2;
  spec.full_height = frame.y2;
  spec.channelnames.clear();
  if (colour) spec.channelnames = {"R", "G", "B"};
  if (alpha && colour) spec.channelnames.emplace_back("A");
  if (!colour) spec.channelnames = {"Y"};
  spec.alpha_channel = alpha && colour ? 3 : -1;
  spec.attribute("oiio:UnassociatedAlpha", 1);
  // The file's order is red first: read each pixel backwards from its red element.
  const auto count = static_cast<std::size_t>(spec.nchannels);
  const auto size = static_cast<std::size_t>(bytes);
  const std::size_t pixelCount = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  const auto ordered = std::make_unique_for_overwrite<std::byte[]>(pixelCount * count * size);
  const auto* in = static_cast<const std::byte*>(pixels.data);
  std::byte* next = ordered.get();
  for (std::size_t i = 0; i < pixelCount; ++i, in += 4 * size) {
    for (std::size_t c = 0; c < count; ++c, next += size) {
      std::memcpy(next, in + (colour ? 3 - c : 0) * size, size);
    }
  }

  // A file that was opened is closed, whatever came of it.
  const bool opened = output.open(to, spec);
  const bool written = opened && output.write_image(memoryType(bytes), ordered.get());
  return opened && output.close() && written;
}
