// SPDX-License-Identifier: BSD-3-Clause
//
// From the platform's pixels, alpha first, to a picture of a file, red first.
#include "platform/nodes/NRiFileOut.h"

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "base/Error.h"
#include "media/PictureWriter.h"
#include "platform/NRiGlobals.h"
#include "platform/NRiLexer.h"
#include "platform/nodes/NRiFileIn.h"
#include "platform/nodes/NRiFrames.h"

namespace {

namespace fs = std::filesystem;
namespace media = orvanite::media;
using media::Samples;
using Header = std::shared_ptr<const OIIO::ImageSpec>;

Samples samplesOf(const NRiName& asked, int bytes, const Header& source) {
  const std::string_view text = asked.view();
  if (text == "uint8") return Samples::uint8;
  if (text == "uint16") return Samples::uint16;
  if (text == "half") return Samples::half;
  if (text == "float") return Samples::float32;
  if (text != "auto") {
    throw NRiError(
        "expected samples \"auto\", \"uint8\", \"uint16\", \"half\" or \"float\", found \"" +
        NRiPrintable(text) + "\"");
  }
  if (bytes < 4) return bytes == 1 ? Samples::uint8 : Samples::uint16;
  return source && source->format == OIIO::TypeDesc::HALF ? Samples::half : Samples::float32;
}

// The header of the picture that the first inputs lead to; null where they lead to none.
Header headerOf(const NRiNode& node) {
  const NRiIPlug* const input = node.getInput(0);
  if (input == nullptr || !input->isConnected()) return nullptr;
  NRiNode* const from = input->imageSource()->owner();
  if (auto* const file = dynamic_cast<NRiFileIn*>(from)) return file->metadata();
  return headerOf(*from);
}

template <class Element>
void fill(const NRiIBuf& pixels, media::Picture& picture, bool colour) {
  const auto* in = static_cast<const Element*>(pixels.data);
  auto* out = reinterpret_cast<Element*>(picture.pixels.get());
  const std::size_t count = picture.bytes() / sizeof(Element);
  for (std::size_t i = 0; i < count; i += 4) {
    for (std::size_t c = 0; c < 4; ++c) out[i + c] = in[i + (colour ? 3 - c : 0)];
  }
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
  alpha_ = addPlug(NRiName("alpha"), nriString, NRiPlug::kIn, nullptr, 0);
  alpha_->set("auto");
  NRiPlug::addDependencies(out_->image(), path_, samples_, alpha_, nullptr);
}

const NRiName& NRiFileOut::getClassName() const {
  static const NRiName name("FileOut");
  return name;
}

std::string NRiFileOut::path() {
  const float frame = NRiNode::getRoot()->getPlug(NRiName("time"))->asFloat();
  return NRiGlobals::inFolder(
      NRiFramePath(path_->asString().view(), static_cast<int>(std::lround(frame))));
}

std::string NRiFileOut::checkedPath() {
  std::string file = path();
  if (file.empty()) throw NRiError("'" + path_->fullName() + "' is empty: expected a file");
  if (!getInput(0)->isConnected()) {
    throw NRiError(file + ": '" + std::string(name().view()) + "' has no image");
  }
  checkInputs(file);
  try {
    media::checkOutput(file, {});
  } catch (const orvanite::Error& error) {
    throw NRiError(error.what());
  }
  return file;
}

media::Picture NRiFileOut::rendered() {
  const std::string file = checkedPath();
  out_->setRequest(15);
  const int held = out_->channels()->asInt() & 15;
  const NRiRect frame = format();
  if (frame.empty()) throw NRiError(file + ": the image has no size");
  const NRiRect domain = out_->getDod();
  const bool windowed = media::keepsDataWindow(file) && !domain.empty();
  const NRiRect region = windowed ? domain : frame;
  const NRiIBuf pixels = renderWhole(region);

  const Header source = headerOf(*this);
  auto header =
      source ? std::make_shared<OIIO::ImageSpec>(*source) : std::make_shared<OIIO::ImageSpec>();
  header->full_width = frame.x2;
  header->full_height = frame.y2;
  const media::Window window{region.x1 + header->full_x, region.y1 + header->full_y,
                             region.x2 - region.x1, region.y2 - region.y1};
  media::Picture picture = media::Picture::make(
      window, orvanite::Depth{pixels.depth}, samplesOf(samples_->asString(), pixels.depth, source));
  picture.header = std::move(header);
  // Alpha alone is a matte; whatever has colour is written with all three colours.
  const bool colour = (held & 14) != 0;
  const std::string_view alpha = alpha_->asString().view();
  if (alpha != "auto" && alpha != "none" && alpha != "premultiplied") {
    throw NRiError("expected alpha \"auto\", \"none\" or \"premultiplied\", found \"" +
                   NRiPrintable(alpha) + "\"");
  }
  picture.hasAlpha = (held & 1) != 0 && (alpha != "none" || !colour);
  picture.channels = !colour            ? media::Channels::grey
                     : picture.hasAlpha ? media::Channels::colourAndAlpha
                                        : media::Channels::colour;
  switch (pixels.depth) {
    case 1:
      fill<std::uint8_t>(pixels, picture, colour);
      break;
    case 2:
      fill<std::uint16_t>(pixels, picture, colour);
      break;
    default:
      fill<float>(pixels, picture, colour);
  }
  if (alpha == "premultiplied") media::multiplyByAlpha(picture);
  return picture;
}
