// SPDX-License-Identifier: BSD-3-Clause
//
// Every file is opened once while the frame stands still, and a movie once for all of its frames.
#include "platform/nodes/NRiFileIn.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include "media/MovieSource.h"
#include "media/MovieWriter.h"
#include "platform/NRiGlobals.h"
#include "platform/NRiLexer.h"
#include "platform/nodes/NRiFrames.h"
#include "platform/nodes/NRiTranslated.h"

namespace {

namespace media = orvanite::media;

std::string stampOf(const std::string& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  if (error) return "0";
  const auto time = std::filesystem::last_write_time(path, error).time_since_epoch().count();
  return fmt::format("{:x}.{:x}", size, time);
}

// A line of a picture, whose pixels are red first, as the platform has it: red last, and alpha
// first where there is one.
template <class Element>
void copyLine(const std::byte* from, std::byte* to, int pixels, bool alpha) {
  const auto* in = reinterpret_cast<const Element*>(from);
  auto* out = reinterpret_cast<Element*>(to);
  for (int x = 0; x < pixels; ++x, in += 4) {
    if (alpha) *out++ = in[3];
    *out++ = in[2];
    *out++ = in[1];
    *out++ = in[0];
  }
}

// Grey, wanted as a matte: alpha is the picture.
template <class Element>
void makeMatte(NRiIBuf& pixels) {
  for (int y = 0; y < pixels.lines; ++y) {
    auto* pixel = reinterpret_cast<Element*>(pixels.at(pixels.firstPixel, pixels.firstLine + y));
    for (int x = 0; x < pixels.width; ++x, pixel += 4) pixel[0] = pixel[3];
  }
}

// Calls the function with an element of this size.
template <class Function>
void withElement(int bytes, const Function& function) {
  switch (bytes) {
    case 1:
      return function(std::uint8_t());
    case 2:
      return function(std::uint16_t());
    default:
      return function(float());
  }
}

}  // namespace

NRiFileIn::NRiFileIn() {
  keepsOutput_ = false;  // the file's pixels are kept already
  path_ = addPlug(NRiName("path"), nriString, NRiPlug::kIn, nullptr, 0);
  frame_ = addPlug(NRiName("frame"), nriFloat, NRiPlug::kIn, nullptr, 0);
  frameRate_ = addPlug(NRiName("fps"), nriString, NRiPlug::kIn, nullptr, 0);
  matrix_ = addPlug(NRiName("matrix"), nriString, NRiPlug::kIn, nullptr, 0);
  deinterlace_ = addPlug(NRiName("deinterlace"), nriInt, NRiPlug::kIn, nullptr, 0);
  part_ = addPlug(NRiName("part"), nriString, NRiPlug::kIn, nullptr, 0);
  layer_ = addPlug(NRiName("layer"), nriString, NRiPlug::kIn, nullptr, 0);
  for (NRiPlug* const output : {out_->width(), out_->height(), out_->bytes(), out_->channels(),
                                out_->dod(), out_->image()}) {
    NRiPlug::addDependencies(output, path_, frame_, frameRate_, matrix_, deinterlace_, part_,
                             layer_, nullptr);
  }
}

const NRiName& NRiFileIn::getClassName() const {
  static const NRiName name("FileIn");
  return name;
}

std::string NRiFileIn::path() { return NRiInputFile(*path_, frameNumber()); }

media::OpenOptions NRiFileIn::how() const {
  const auto text = [](NRiPlug* plug) { return std::string(plug->asString().view()); };
  media::OpenOptions how;
  const std::string rate = text(frameRate_);
  if (!rate.empty()) how.frameRate = media::parseFrameRate(rate, frameRate_->fullName());
  how.matrix = text(matrix_);
  if (!how.matrix.empty()) media::checkMatrix(how.matrix, matrix_->fullName());
  how.deinterlace = deinterlace_->asInt() != 0;
  how.picture = {text(part_), text(layer_)};
  return how;
}

const NRiFileIn::Header& NRiFileIn::header() {
  const std::string file = path();
  if (file.empty()) throw NRiError("'" + path_->fullName() + "' is empty: expected a file");
  const bool movie = media::isMovieName(file);
  std::string opened = file + "\n" + stampOf(file);
  for (NRiPlug* const option : {frameRate_, matrix_, deinterlace_, part_, layer_}) {
    opened += fmt::format("\n{}", option->asString().view());
  }
  const int frame = movie ? frameNumber() : 1;
  const std::string key = movie ? fmt::format("{}\n{}", opened, frame) : opened;
  if (header_.key == key) return header_;
  if (sourceOf_ != opened) {
    source_.reset();
    source_ = translated([&] { return media::Source::open(file, how()); });
    sourceOf_ = opened;
  }
  if (movie) checkFrame(frame);
  const media::PictureInfo& info = source_->info();
  const int x = info.data.x - info.display.x;
  const int y = info.data.y - info.display.y;
  Header found;
  found.key = key;
  found.file = movie ? fmt::format("{}:{}", file, frame) : file;
  found.stamp = stampOf(file);
  found.frame = frame;
  found.data = {x, y, x + info.data.width, y + info.data.height};
  found.width = info.display.width;
  found.height = info.display.height;
  found.bytes = bytesOf(media::depthOf(info.samples));
  found.grey = !info.hasAlpha && info.channels.size() == 1;
  found.channels = info.hasAlpha || found.grey ? 15 : 14;
  header_ = found;
  return header_;
}

void NRiFileIn::checkFrame(int frame) const {
  const std::vector<int>& frames = source_->frames();
  if (frame >= frames.front() && frame <= frames.back()) return;
  throw NRiError(fmt::format("{}: expected a frame from {} to {}, found {}", source_->info().path,
                             frames.front(), frames.back(), frame));
}

std::shared_ptr<const OIIO::ImageSpec> NRiFileIn::metadata() {
  header();
  return picture().header;
}

const media::Source& NRiFileIn::source() {
  header();
  return *source_;
}

int NRiFileIn::frameNumber() { return static_cast<int>(std::lround(frame_->asFloat())); }

int NRiFileIn::eval(NRiPlug* plug) {
  if (plug == out_->width()) plug->set(header().width);
  if (plug == out_->height()) plug->set(header().height);
  if (plug == out_->bytes()) plug->set(header().bytes);
  if (plug == out_->channels()) plug->set(header().channels);
  if (plug == out_->dod()) {
    domain_ = header().data;
    plug->set(static_cast<void*>(&domain_));
  }
  if (plug == out_->image()) {
    const Header& file = header();
    plug->set(NRiName::sprintf("FileIn(%s,%s)", file.file.c_str(), file.stamp.c_str()));
  }
  return NRiFx::eval(plug);
}

const media::Picture& NRiFileIn::picture() {
  const Header& file = header();
  if (pictureOf_ == file.key) return picture_;
  picture_ = {};
  pictureOf_.clear();
  picture_ = translated([&] {
    const media::Window data = source_->info().data;
    return source_->read(file.frame, {orvanite::Depth{file.bytes}, data, 1, ""});
  });
  pictureOf_ = file.key;
  return picture_;
}

void NRiFileIn::fillOutputBuffer() {
  const Header& file = header();
  const media::Picture& pixels = picture();
  const NRiRect region = out_->getRoi().intersect(file.data);
  NRiIBuf& out = outputBuffer();
  out.allocate(region, file.channels, file.bytes);
  if (!out.data) return;
  const auto& readers = out_->consumers();
  const bool asMatte =
      file.grey && std::any_of(readers.begin(), readers.end(), [](const NRiIPlug* reader) {
        return reader->requested()->asInt() == 1;
      });
  withElement(file.bytes, [&](auto element) {
    using Element = decltype(element);
    const std::size_t first = std::size_t{4} * static_cast<std::size_t>(file.bytes) *
                              static_cast<std::size_t>(region.x1 - file.data.x1);
    for (int y = region.y1; y < region.y2; ++y) {
      const std::byte* line = pixels.pixels.get() +
                              pixels.rowBytes() * static_cast<std::size_t>(y - file.data.y1) +
                              first;
      copyLine<Element>(line, out.at(region.x1, y), region.x2 - region.x1, file.channels == 15);
    }
    if (asMatte) makeMatte<Element>(out);
  });
}
