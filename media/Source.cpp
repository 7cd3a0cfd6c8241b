// SPDX-License-Identifier: BSD-3-Clause
//
// Stills and sequences: every frame is a file of its own and is opened when it is read, so that any
// number of threads may read at once.
#include "media/Source.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>

#include "base/Error.h"
#include "media/FramePattern.h"
#include "media/MovieSource.h"
#include "media/Orientation.h"

namespace orvanite::media {
namespace {

std::string sizeText(const Window& window) {
  return std::to_string(window.width) + "x" + std::to_string(window.height);
}

// Tens and units in four bits each, hours first (SMPTE ST 12-1); bit 6 of the frames says that
// numbers are dropped. Empty for what is no time.
std::string timeCodeText(std::uint32_t code) {
  constexpr std::uint32_t fields = 0x3F7F7F3F;
  std::array<char, 16> text{};
  const std::uint32_t digits = code & fields;
  for (int i = 0; i < 8; ++i) {
    if ((digits >> (4 * i) & 15) > 9) return "";
  }
  std::snprintf(text.data(), text.size(), "%02x:%02x:%02x%c%02x", digits >> 24, digits >> 16 & 255,
                digits >> 8 & 255, (code & 0x40) != 0 ? ';' : ':', digits & 255);
  return text.data();
}

// What was chosen of a file that holds more, or turned, for a person to see.
std::string noticeOf(const PictureInfo& info) {
  std::string notice;
  const auto add = [&](const std::string& what) { notice += (notice.empty() ? "" : ", ") + what; };
  if (info.parts.size() > 1) {
    add("part '" + oneLine(info.part) + "' of " + std::to_string(info.parts.size()) + " is taken");
  }
  if (!info.layer.empty()) add("layer " + oneLine(info.layer) + " is taken");
  if (info.orientation > 1) {
    add(std::string(nameOfOrientation(info.orientation)) + " as the file asks");
  }
  return notice.empty() ? notice : info.path + ": " + notice;
}

ShotFacts factsOf(const OIIO::ImageSpec& header) {
  ShotFacts facts;
  int rate[2] = {};
  if (header.getattribute("FramesPerSecond", OIIO::TypeRational, rate) && rate[0] > 0 &&
      rate[1] > 0) {
    facts.frameRate = {rate[0], rate[1]};
  } else if (const float dpx = header.get_float_attribute("dpx:FrameRate");
             dpx >= 1 && dpx <= 1000) {
    facts.frameRate = {static_cast<int>(std::lround(dpx * 1000)), 1000};
  }
  const float aspect = header.get_float_attribute("PixelAspectRatio");
  if (aspect > 0.01f && aspect < 100 && aspect != 1) {
    facts.pixelAspect = {static_cast<int>(std::lround(aspect * 10000)), 10000};
  }
  std::uint32_t code[2] = {};
  if (header.getattribute("smpte:TimeCode", OIIO::TypeTimeCode, code)) {
    facts.timeCode = timeCodeText(code[0]);
  }
  return facts;
}

class FileSource : public Source {
 public:
  FileSource(std::string path, LayerChoice choice)
      : path_(std::move(path)), choice_(std::move(choice)) {
    describe(path_);
  }

  FileSource(FramePattern pattern, LayerChoice choice)
      : pattern_(std::move(pattern)), choice_(std::move(choice)) {
    frames_ = pattern_->existing();
    if (frames_.empty()) {
      throw Error(Fault::missingFrames, pattern_->text(), "there is no frame of this sequence");
    }
    describe(pattern_->path(frames_.front()));
  }

  std::string fileOf(int frame) const override { return pattern_ ? pattern_->path(frame) : path_; }

  // Only OpenEXR gives every frame a window of its own; others are not opened twice.
  Window windowOf(int frame) override {
    if (!pattern_ || info_.format != "openexr") return info_.data;
    return opened(frame).info().data;
  }

  std::function<Picture()> begin(int frame, const Request& request) override {
    return [this, frame, request] { return readFile(frame, request); };
  }

 private:
  PictureReader opened(int frame) const {
    const std::string file = fileOf(frame);
    std::error_code ignored;
    if (pattern_ && !std::filesystem::exists(file, ignored)) {
      throw Error(Fault::missingFrames, file, "no such file");
    }
    return PictureReader(file, choice_);
  }

  Picture readFile(int frame, const Request& request) const {
    PictureReader reader = opened(frame);
    const Window& size = reader.info().display;
    if (size.width != info_.display.width || size.height != info_.display.height) {
      throw Error(Fault::failure, reader.info().path,
                  "expected a frame of the shot's size " + sizeText(info_.display) + ", found " +
                      sizeText(size));
    }
    if (!request.channel.empty()) {
      return reader.readChannel(request.channel, request.depth, request.window);
    }
    return reader.read(request.depth, request.window, request.missingAlpha);
  }

  void describe(const std::string& file) {
    PictureReader reader(file, choice_);
    info_ = reader.info();
    header_ = std::make_shared<const OIIO::ImageSpec>(reader.header());
    facts_ = factsOf(*header_);
    notice_ = noticeOf(info_);
  }

  std::string path_;
  std::optional<FramePattern> pattern_;
  LayerChoice choice_;
};

// Stills have no fields and no matrix.
std::unique_ptr<Source> openFiles(auto files, const std::string& path, const OpenOptions& how) {
  if (!how.matrix.empty() || how.deinterlace) {
    throw Error(Fault::wrongUse, path,
                std::string("expected a movie to ") +
                    (how.deinterlace ? "deinterlace" : "read by the matrix " + how.matrix));
  }
  return std::make_unique<FileSource>(std::move(files), how.picture);
}

}  // namespace

Window Source::windowOf(int) { return info_.data; }

std::unique_ptr<Source> Source::open(const std::string& path, const OpenOptions& how) {
  if (auto pattern = FramePattern::ofInput(path)) return openFiles(*pattern, path, how);
  return isMovieName(path) ? openMovie(path, how) : openFiles(path, path, how);
}

}  // namespace orvanite::media
