// SPDX-License-Identifier: BSD-3-Clause
//
// Reading pictures.
#include "platform/nodes/NRiFileIn.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <utility>

#include "platform/NRiLexer.h"
#include "platform/nodes/NRiFrames.h"

namespace {

constexpr int largestSide = 65536;
constexpr std::int64_t mostPixels = std::int64_t{1} << 28;

// Of tiles that are larger than the picture: they are read whole, whatever they hold.
constexpr std::int64_t mostTilePixels = std::int64_t{1} << 22;

// How far from the origin pixels may lie, so that no sum of their edges leaves an int.
constexpr std::int64_t farthest = 1 << 24;

// Of the lines that are read at once.
constexpr std::size_t bandBytes = std::size_t{1} << 26;

std::unique_ptr<OIIO::ImageInput> opened(const std::string& path) {
  OIIO::ImageSpec wish;
  wish.attribute("oiio:UnassociatedAlpha", 1);
  auto input = OIIO::ImageInput::open(path, &wish);
  if (!input) throw NRiError(path + ": cannot be read: " + NRiPrintable(OIIO::geterror()));
  return input;
}

int bytesOf(const OIIO::TypeDesc& type) {
  if (type.basetype == OIIO::TypeDesc::UINT8 || type.basetype == OIIO::TypeDesc::INT8) return 1;
  return type.is_floating_point() ? 4 : 2;
}

OIIO::TypeDesc typeOf(int bytes) {
  return bytes == 1   ? OIIO::TypeDesc::UINT8
         : bytes == 2 ? OIIO::TypeDesc::UINT16
                      : OIIO::TypeDesc::FLOAT;
}

std::string stampOf(const std::string& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  if (error) return "0";
  const auto time = std::filesystem::last_write_time(path, error).time_since_epoch().count();
  return fmt::format("{:x}.{:x}", size, time);
}

template <class Element>
void fillAlpha(NRiIBuf& pixels, Element opaque) {
  for (int y = 0; y < pixels.lines; ++y) {
    auto* alpha = reinterpret_cast<Element*>(pixels.at(pixels.firstPixel, pixels.firstLine + y));
    for (int x = 0; x < pixels.width; ++x, alpha += 4) *alpha = opaque;
  }
}

void makeOpaque(NRiIBuf& pixels) {
  switch (pixels.depth) {
    case 1:
      return fillAlpha<std::uint8_t>(pixels, 255);
    case 2:
      return fillAlpha<std::uint16_t>(pixels, 65535);
    default:
      return fillAlpha<float>(pixels, 1);
  }
}

}  // namespace

NRiFileIn::NRiFileIn() {
  keepsOutput_ = false;  // the file's pixels are kept already
  path_ = addPlug(NRiName("path"), nriString, NRiPlug::kIn, nullptr, 0);
  frame_ = addPlug(NRiName("frame"), nriFloat, NRiPlug::kIn, nullptr, 0);
  for (NRiPlug* const part : {out_->width(), out_->height(), out_->bytes(), out_->channels(),
                              out_->dod(), out_->image()}) {
    NRiPlug::addDependencies(part, path_, frame_, nullptr);
  }
}

const NRiName& NRiFileIn::getClassName() const {
  static const NRiName name("FileIn");
  return name;
}

std::string NRiFileIn::path() {
  const float frame = frame_->asFloat();
  return NRiFramePath(path_->asString().view(), static_cast<int>(std::lround(frame)));
}

const NRiFileIn::Header& NRiFileIn::header() {
  const std::string file = path();
  const std::string stamp = stampOf(file);
  if (header_.path == file && header_.stamp == stamp) return header_;
  if (file.empty()) throw NRiError("'" + path_->fullName() + "' is empty: expected a file");
  const auto input = opened(file);
  const OIIO::ImageSpec& spec = input->spec();
  if (spec.deep || spec.depth > 1 || spec.nchannels < 1) {
    throw NRiError(file + ": expected a flat picture with one sample a pixel");
  }
  if (std::int64_t{spec.tile_width} * spec.tile_height >
      std::max(mostTilePixels, std::int64_t{spec.width} * spec.height)) {
    throw NRiError(file + ": expected tiles no larger than the picture or 2048x2048");
  }
  Header found;
  found.path = file;
  found.stamp = stamp;
  const bool framed = spec.full_width > 0 && spec.full_height > 0;
  found.width = framed ? spec.full_width : spec.width;
  found.height = framed ? spec.full_height : spec.height;
  for (const auto& [width, height] :
       {std::pair(spec.width, spec.height), std::pair(found.width, found.height)}) {
    if (std::min(width, height) >= 1 && std::max(width, height) <= largestSide &&
        std::int64_t{width} * height <= mostPixels) {
      continue;
    }
    throw NRiError(fmt::format(
        "{}: expected 1x1 to 65536x65536 and no more than 268435456 pixels, found {}x{}", file,
        width, height));
  }
  const std::int64_t x = framed ? std::int64_t{spec.x} - spec.full_x : 0;
  const std::int64_t y = framed ? std::int64_t{spec.y} - spec.full_y : 0;
  if (std::abs(x) > largestSide || std::abs(y) > largestSide ||
      std::max(std::abs(std::int64_t{spec.x}), std::abs(std::int64_t{spec.y})) > farthest) {
    throw NRiError(file + ": expected a data window near the display window");
  }
  found.data = {static_cast<int>(x), static_cast<int>(y), static_cast<int>(x) + spec.width,
                static_cast<int>(y) + spec.height};
  found.bytes = bytesOf(spec.format);
  found.red = spec.channelindex("R");
  found.green = spec.channelindex("G");
  found.blue = spec.channelindex("B");
  if (std::min({found.red, found.green, found.blue}) < 0) {
    found.red = 0;
    found.green = spec.nchannels >= 3 ? 1 : 0;
    found.blue = spec.nchannels >= 3 ? 2 : 0;
  }
  found.alpha = spec.alpha_channel >= 0 ? spec.alpha_channel : spec.channelindex("A");
  if (found.alpha >= spec.nchannels) found.alpha = -1;
  found.grey = found.alpha < 0 && spec.nchannels == 1;
  if (found.grey) found.alpha = 0;
  found.channels = found.alpha >= 0 ? 15 : 14;
  header_ = found;
  return header_;
}

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
    plug->set(NRiName::sprintf("FileIn(%s,%s)", file.path.c_str(), file.stamp.c_str()));
  }
  return NRiFx::eval(plug);
}

NRiIBuf NRiFileIn::read(const Header& header) const {
  const auto input = opened(header.path);
  const OIIO::ImageSpec& spec = input->spec();
  const int count = spec.nchannels;
  const auto bytes = static_cast<std::size_t>(header.bytes);
  const int order[4] = {header.alpha, header.blue, header.green, header.red};
  if (spec.width != header.data.x2 - header.data.x1 ||
      spec.height != header.data.y2 - header.data.y1 ||
      count <= *std::max_element(std::begin(order), std::end(order))) {
    throw NRiError(header.path + ": changed while it was read");
  }
  // All channels of a band of lines at a time, then the wanted ones into their order.
  NRiIBuf pixels;
  pixels.allocate(header.data, header.channels, header.bytes);
  const int first = header.channels == 15 ? 0 : 1;
  const bool tiled = spec.tile_width > 0 && spec.tile_height > 0;
  const std::size_t pixelSize = static_cast<std::size_t>(count) * bytes;
  const std::size_t lineSize = static_cast<std::size_t>(spec.width) * pixelSize;
  const int rows = tiled ? std::min(spec.tile_height, spec.height)
                         : static_cast<int>(std::clamp<std::size_t>(bandBytes / lineSize, 1, 64));
  const auto band =
      std::make_unique_for_overwrite<std::byte[]>(static_cast<std::size_t>(rows) * lineSize);
  for (int row = 0; row < spec.height; row += rows) {
    const int end = std::min(row + rows, spec.height);
    const OIIO::TypeDesc type = typeOf(header.bytes);
    const bool fine = tiled ? input->read_tiles(0, 0, spec.x, spec.x + spec.width, spec.y + row,
                                                spec.y + end, 0, 1, 0, count, type, band.get())
                            : input->read_scanlines(0, 0, spec.y + row, spec.y + end, 0, 0, count,
                                                    type, band.get());
    if (!fine) {
      throw NRiError(fmt::format("{}: broken near line {}: {}", header.path, row,
                                 NRiPrintable(input->geterror())));
    }
    const std::byte* in = band.get();
    for (int y = row; y < end; ++y) {
      std::byte* out = pixels.at(header.data.x1, header.data.y1 + y);
      for (int xPixel = 0; xPixel < spec.width; ++xPixel, in += pixelSize) {
        for (int c = first; c < 4; ++c, out += bytes) {
          std::memcpy(out, in + static_cast<std::size_t>(order[c]) * bytes, bytes);
        }
      }
    }
  }
  return pixels;
}

void NRiFileIn::fillOutputBuffer() {
  const Header& file = header();
  const std::string key = file.path + "\n" + file.stamp;
  if (pixelsOf_ != key) {
    pixels_.clear();
    pixels_ = read(file);
    pixelsOf_ = key;
  }
  const NRiRect region = out_->getRoi().intersect(file.data);
  NRiIBuf& out = outputBuffer();
  out.allocate(region, file.channels, file.bytes);
  if (!out.data) return;
  const auto length = static_cast<std::size_t>(out.lineStep() * out.depth);
  for (int y = region.y1; y < region.y2; ++y) {
    std::memcpy(out.at(region.x1, y), pixels_.at(region.x1, y), length);
  }
  const auto& readers = out_->consumers();
  const bool asMatte = std::any_of(readers.begin(), readers.end(), [](const NRiIPlug* reader) {
    return reader->requested()->asInt() == 1;
  });
  if (file.grey && !asMatte) makeOpaque(out);
}
