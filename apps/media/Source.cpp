// SPDX-License-Identifier: BSD-3-Clause
//
// Stills and sequences: every frame is a file of its own and is opened when it is read, so that any
// number of threads may read at once.
#include "apps/media/Source.h"

#include <filesystem>

#include "apps/media/FramePattern.h"
#include "keyer/Error.h"

namespace orvanite::media {
namespace {

std::string sizeText(const Window& window) {
  return std::to_string(window.width) + "x" + std::to_string(window.height);
}

class FileSource : public Source {
 public:
  explicit FileSource(std::string path) : path_(std::move(path)) { describe(path_); }

  explicit FileSource(FramePattern pattern) : pattern_(std::move(pattern)) {
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

  Picture read(int frame, const Request& request) override {
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

 private:
  PictureReader opened(int frame) const {
    const std::string file = fileOf(frame);
    std::error_code ignored;
    if (pattern_ && !std::filesystem::exists(file, ignored)) {
      throw Error(Fault::missingFrames, file, "no such file");
    }
    return PictureReader(file);
  }

  void describe(const std::string& file) {
    PictureReader reader(file);
    info_ = reader.info();
    header_ = std::make_shared<const OIIO::ImageSpec>(reader.header());
  }

  std::string path_;
  std::optional<FramePattern> pattern_;
};

}  // namespace

Window Source::windowOf(int) { return info_.data; }

std::unique_ptr<Source> Source::open(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    return std::make_unique<FileSource>(FramePattern::ofFolder(path));
  }
  // A file whose name merely looks like a pattern is a file.
  if (!std::filesystem::exists(path, ignored)) {
    if (auto pattern = FramePattern::parse(path)) return std::make_unique<FileSource>(*pattern);
  }
  return std::make_unique<FileSource>(path);
}

}  // namespace orvanite::media
