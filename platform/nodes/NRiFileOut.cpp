// SPDX-License-Identifier: BSD-3-Clause
//
// From the platform's pixels, alpha first, to a picture of a file, red first.
#include "platform/nodes/NRiFileOut.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "media/FramePattern.h"
#include "media/MovieSource.h"
#include "media/MovieWish.h"
#include "media/PictureWriter.h"
#include "platform/NRiGlobals.h"
#include "platform/NRiLexer.h"
#include "platform/NRiThread.h"
#include "platform/nodes/NRiFileIn.h"
#include "platform/nodes/NRiFrames.h"
#include "platform/nodes/NRiTranslated.h"

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

// The picture that the first inputs lead to; null where they lead to none.
NRiFileIn* plateOf(const NRiNode& node) {
  const NRiNode* at = &node;
  while (at != nullptr) {
    const NRiIPlug* const input = at->getInput(0);
    if (input == nullptr || !input->isConnected()) return nullptr;
    NRiNode* const from = input->imageSource()->owner();
    if (auto* const file = dynamic_cast<NRiFileIn*>(from)) return file;
    at = from;
  }
  return nullptr;
}

Header headerOf(const NRiNode& node) {
  NRiFileIn* const plate = plateOf(node);
  return plate ? plate->metadata() : nullptr;
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
  codec_ = addPlug(NRiName("codec"), nriString, NRiPlug::kIn, nullptr, 0);
  frameRate_ = addPlug(NRiName("fps"), nriString, NRiPlug::kIn, nullptr, 0);
  quality_ = addPlug(NRiName("quality"), nriString, NRiPlug::kIn, nullptr, 0);
  bitRate_ = addPlug(NRiName("bitrate"), nriString, NRiPlug::kIn, nullptr, 0);
  sound_ = addPlug(NRiName("sound"), nriString, NRiPlug::kIn, nullptr, 0);
  NRiPlug::addDependencies(out_->image(), path_, samples_, alpha_, codec_, frameRate_, quality_,
                           bitRate_, sound_, nullptr);
}

NRiFileOut::~NRiFileOut() = default;

const NRiName& NRiFileOut::getClassName() const {
  static const NRiName name("FileOut");
  return name;
}

std::string NRiFileOut::path() {
  const float frame = NRiNode::getRoot()->getPlug(NRiName("time"))->asFloat();
  return NRiOutputFile(*path_, static_cast<int>(std::lround(frame)));
}

// A pattern is of numbered files, whatever their ending.
bool NRiFileOut::isMovie() {
  const std::string file = NRiGlobals::inFolder(std::string(path_->asString().view()));
  return media::isMovieName(file) && !media::FramePattern::parse(file);
}

std::string NRiFileOut::checkedPath() {
  std::string file = path();
  if (file.empty()) throw NRiError("'" + path_->fullName() + "' is empty: expected a file");
  if (!getInput(0)->isConnected()) {
    throw NRiError(file + ": '" + std::string(name().view()) + "' has no image");
  }
  checkInputs(file);
  translated([&] {
    if (isMovie()) {
      media::checkMovieOutput(file, std::string(codec_->asString().view()), {});
    } else {
      media::checkOutput(file, {});
    }
  });
  return file;
}

media::Picture NRiFileOut::rendered() {
  const std::string file = checkedPath();
  out_->setRequest(15);
  const int held = out_->channels()->asInt() & 15;
  const NRiRect frame = format();
  if (frame.empty()) throw NRiError(file + ": the image has no size");
  const NRiRect domain = out_->getDod();
  const bool windowed = !isMovie() && media::keepsDataWindow(file) && !domain.empty();
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
  // A movie has its alpha beside every frame, and says nothing by it then.
  if (isMovie() && !picture.hasAlpha) media::makeOpaque(picture);
  return picture;
}

// The frames of the plate that go with these times are looked up, as a script may shift them.
media::MovieOptions NRiFileOut::movieOptions(const std::vector<int>& times,
                                             std::vector<std::string>& notices) {
  media::MovieWish wish;
  const auto text = [](NRiPlug* plug) { return std::string(plug->asString().view()); };
  wish.codec = text(codec_);
  const std::string rate = text(frameRate_);
  if (!rate.empty()) wish.frameRate = media::parseFrameRate(rate, frameRate_->fullName());
  wish.strength.quality = media::parseQuality(text(quality_), quality_->fullName());
  wish.strength.bitRate = media::parseBitRate(text(bitRate_), bitRate_->fullName());
  wish.sound = text(sound_);
  if (!wish.sound.empty() && wish.sound != "none") wish.sound = NRiGlobals::inFolder(wish.sound);
  NRiFileIn* const plate = plateOf(*this);
  if (!plate) return media::movieOf(nullptr, wish, times, notices);
  NRiPlug* const time = NRiNode::getRoot()->getPlug(NRiName("time"));
  const float now = time->asFloat();
  std::vector<int> frames;
  for (const int at : times) {
    time->set(static_cast<float>(at));
    frames.push_back(plate->frameNumber());
  }
  time->set(now);
  return media::movieOf(&plate->source(), wish, frames, notices);
}

void NRiFileOut::begin(const media::Picture& picture, const std::vector<int>& times,
                       std::vector<std::string>& notices) {
  media::MovieOptions movie = movieOptions(times, notices);
  movie.frame = {picture.header->full_x, picture.header->full_y, picture.header->full_width,
                 picture.header->full_height};
  movie.samples = picture.samples;
  movie.alpha = picture.hasAlpha;
  movie.threads = std::min(NRiThread::getCount(), 16);
  movie_ = std::make_unique<media::MovieWriter>(path(), movie);
  for (const std::string& notice : movie_->notices()) notices.push_back(notice);
}

void NRiFileOut::write(const media::Picture& picture, const std::vector<int>& times,
                       std::vector<std::string>& notices) {
  translated([&] {
    if (!isMovie()) return media::writePicture(picture, path());
    if (!movie_) begin(picture, times, notices);
    movie_->write(movie_->prepare(picture));
  });
}

void NRiFileOut::finish() {
  translated([&] {
    if (movie_) movie_->finish();
  });
  movie_.reset();
}
