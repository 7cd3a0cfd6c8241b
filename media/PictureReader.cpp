// SPDX-License-Identifier: BSD-3-Clause
//
// Headers are checked before memory is taken; pixels are read in bands, so that nothing but the
// picture itself needs much memory. Colours are taken as they stand: OpenImageIO is told not to
// multiply them by alpha.
#include "media/PictureReader.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

#include "base/Error.h"
#include "media/DpxHeader.h"
#include "media/JpegSegments.h"
#include "media/QuietPng.h"

namespace orvanite::media {
namespace {

// More than any camera or scanner gives; a header that says more is taken for a broken one.
constexpr int sideLimit = 65535;
constexpr std::int64_t pixelLimit = std::int64_t{1} << 28;

// Of tiles that are larger than the picture: they are read whole, whatever they hold.
constexpr std::int64_t tilePixelLimit = std::int64_t{1} << 22;

// How far from the origin windows may lie, so that no sum of their edges leaves an int.
constexpr int farthest = 1 << 24;

// Of one read: large enough for OpenEXR's largest compressed blocks (256 rows), small beside a
// picture.
constexpr int bandRows = 256;

Samples samplesOf(const OIIO::TypeDesc& type) {
  switch (type.basetype) {
    case OIIO::TypeDesc::UINT8:
    case OIIO::TypeDesc::INT8:
      return Samples::uint8;
    case OIIO::TypeDesc::HALF:
      return Samples::half;
    case OIIO::TypeDesc::FLOAT:
    case OIIO::TypeDesc::DOUBLE:
      return Samples::float32;
    default:
      return Samples::uint16;
  }
}

OIIO::TypeDesc typeOf(int depth) {
  return depth == 1   ? OIIO::TypeDesc::UINT8
         : depth == 2 ? OIIO::TypeDesc::UINT16
                      : OIIO::TypeDesc::FLOAT;
}

bool sameLetters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::toupper(static_cast<unsigned char>(x)) ==
           std::toupper(static_cast<unsigned char>(y));
  });
}

int indexOf(const std::vector<std::string>& channels, std::string_view name) {
  const auto found = std::find_if(channels.begin(), channels.end(), [name](const std::string& one) {
    return sameLetters(one, name);
  });
  return found == channels.end() ? -1 : static_cast<int>(found - channels.begin());
}

template <class Sample>
void fillSlot(Picture& picture, int slot, Sample value) {
  auto* samples = reinterpret_cast<Sample*>(picture.pixels.get());
  const std::size_t count = picture.bytes() / sizeof(Sample);
  for (std::size_t i = static_cast<std::size_t>(slot); i < count; i += 4) samples[i] = value;
}

void fill(Picture& picture, int slot, float value) {
  switch (picture.depth) {
    case 1:
      fillSlot(picture, slot, static_cast<unsigned char>(value * 255));
      break;
    case 2:
      fillSlot(picture, slot, static_cast<unsigned short>(value * 65535));
      break;
    default:
      fillSlot(picture, slot, value);
  }
}

template <class Sample>
void copySlot(Picture& picture, int from, int to) {
  auto* samples = reinterpret_cast<Sample*>(picture.pixels.get());
  const std::size_t count = picture.bytes() / sizeof(Sample);
  for (std::size_t i = 0; i < count; i += 4) {
    samples[i + static_cast<std::size_t>(to)] = samples[i + static_cast<std::size_t>(from)];
  }
}

void copyChannel(Picture& picture, int from, int to) {
  switch (picture.depth) {
    case 1:
      copySlot<unsigned char>(picture, from, to);
      break;
    case 2:
      copySlot<unsigned short>(picture, from, to);
      break;
    default:
      copySlot<float>(picture, from, to);
  }
}

std::string sizeText(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

bool sizeIsFine(int width, int height) {
  return width >= 1 && height >= 1 && width <= sideLimit && height <= sideLimit &&
         std::int64_t{width} * height <= pixelLimit;
}

bool placeIsFine(int x, int y) {
  return x >= -farthest && y >= -farthest && x <= farthest && y <= farthest;
}

}  // namespace

std::string oneLine(std::string text) {
  for (char& letter : text) {
    if (static_cast<unsigned char>(letter) < 0x20) letter = ' ';
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

void PictureReader::fail(const std::string& reason) const {
  throw Error(Fault::failure, info_.path, oneLine(reason));
}

PictureReader::PictureReader(const std::string& path) {
  info_.path = path;
  std::error_code problem;
  const auto status = std::filesystem::status(path, problem);
  if (status.type() == std::filesystem::file_type::not_found) {
    throw Error(Fault::noSuchFile, path, "no such file");
  }
  if (status.type() == std::filesystem::file_type::directory) {
    fail("expected a picture, found a folder");
  }
  if (!dpxHoldsItsUserData(path)) {
    fail("broken: its header promises more user data than the file holds");
  }
  if (const char* const fault = jpegFault(path)) fail(std::string("broken: ") + fault);
  quietPng();
  OIIO::ImageSpec wish;
  wish.attribute("oiio:UnassociatedAlpha", 1);
  input_ = OIIO::ImageInput::open(path, &wish);
  if (!input_) {
    const std::string reason = OIIO::geterror();
    fail(reason.empty() ? "this is no picture that can be read" : "cannot be read: " + reason);
  }
  const OIIO::ImageSpec& spec = input_->spec();
  auto kept = std::make_shared<OIIO::ImageSpec>(spec);
  kept->attribute("orvanite:format", input_->format_name());
  spec_ = kept;
  const bool framed = spec.full_width >= 1 && spec.full_height >= 1;
  const int width = framed && sizeIsFine(spec.width, spec.height) ? spec.full_width : spec.width;
  const int height = framed && sizeIsFine(spec.width, spec.height) ? spec.full_height : spec.height;
  if (!sizeIsFine(width, height)) {
    fail("expected a picture of 1x1 to 65535x65535 and no more than 268435456 pixels, found " +
         sizeText(width, height));
  }
  if (!placeIsFine(spec.x, spec.y) || !placeIsFine(spec.full_x, spec.full_y)) {
    fail("expected pixels within 16777216 of the origin, found them at " + std::to_string(spec.x) +
         "," + std::to_string(spec.y) + " in a frame at " + std::to_string(spec.full_x) + "," +
         std::to_string(spec.full_y));
  }
  if (std::int64_t{spec.tile_width} * spec.tile_height >
      std::max(tilePixelLimit, std::int64_t{spec.width} * spec.height)) {
    fail("expected tiles no larger than the picture or 2048x2048, found " +
         sizeText(spec.tile_width, spec.tile_height));
  }
  if (spec.deep) fail("expected one sample a pixel, found a deep picture");
  if (spec.depth > 1) fail("expected a flat picture, found a volume");
  if (spec.nchannels < 1) fail("expected at least one channel, found none");

  info_.format = input_->format_name();
  info_.data = {spec.x, spec.y, spec.width, spec.height};
  info_.display = info_.data;
  if (framed) info_.display = {spec.full_x, spec.full_y, spec.full_width, spec.full_height};
  info_.samples = samplesOf(spec.format);
  info_.bits =
      spec.get_int_attribute("oiio:BitsPerSample", static_cast<int>(spec.format.basesize()) * 8);
  info_.channels.assign(spec.channelnames.begin(), spec.channelnames.end());
  info_.channels.resize(static_cast<std::size_t>(spec.nchannels));

  red_ = indexOf(info_.channels, "R");
  green_ = indexOf(info_.channels, "G");
  blue_ = indexOf(info_.channels, "B");
  if (red_ < 0 || green_ < 0 || blue_ < 0) {
    red_ = 0;
    green_ = spec.nchannels >= 3 ? 1 : 0;
    blue_ = spec.nchannels >= 3 ? 2 : 0;
  }
  alpha_ = spec.alpha_channel >= 0 ? spec.alpha_channel : indexOf(info_.channels, "A");
  if (alpha_ >= spec.nchannels) alpha_ = -1;
  info_.hasAlpha = alpha_ >= 0;
}

// Reads consecutive channels of the file into consecutive slots of the picture's pixels.
void PictureReader::readInto(Picture& picture, int firstChannel, int channels, int firstSlot) {
  const OIIO::ImageSpec& spec = *spec_;
  const auto pixelBytes = std::ptrdiff_t{4} * picture.depth;
  const auto rowBytes = static_cast<std::ptrdiff_t>(picture.rowBytes());
  const bool tiled = spec.tile_width > 0 && spec.tile_height > 0;
  const int rows = tiled ? spec.tile_height : bandRows;
  for (int row = 0; row < spec.height; row += rows) {
    const int end = std::min(row + rows, spec.height);
    std::byte* to =
        picture.pixels.get() + rowBytes * row + std::ptrdiff_t{firstSlot} * picture.depth;
    const bool read =
        tiled ? input_->read_tiles(0, 0, spec.x, spec.x + spec.width, spec.y + row, spec.y + end, 0,
                                   1, firstChannel, firstChannel + channels, typeOf(picture.depth),
                                   to, pixelBytes, rowBytes)
              : input_->read_scanlines(0, 0, spec.y + row, spec.y + end, 0, firstChannel,
                                       firstChannel + channels, typeOf(picture.depth), to,
                                       pixelBytes, rowBytes);
    if (!read) {
      const std::string reason = input_->geterror();
      fail("broken near row " + std::to_string(row) + (reason.empty() ? "" : ": " + reason));
    }
  }
}

Picture PictureReader::read(int depth, const Window& window, float missingAlpha) {
  Picture picture = Picture::make(info_.data, depth, info_.samples);
  if (green_ == red_ + 1 && blue_ == green_ + 1) {
    const bool alphaFollows = alpha_ == blue_ + 1;
    readInto(picture, red_, alphaFollows ? 4 : 3, 0);
    if (!alphaFollows && alpha_ >= 0) readInto(picture, alpha_, 1, 3);
  } else {
    readInto(picture, red_, 1, 0);
    if (green_ == red_) {
      copyChannel(picture, 0, 1);
      copyChannel(picture, 0, 2);
    } else {
      readInto(picture, green_, 1, 1);
      readInto(picture, blue_, 1, 2);
    }
    if (alpha_ >= 0) readInto(picture, alpha_, 1, 3);
  }
  if (alpha_ < 0) fill(picture, 3, missingAlpha);
  picture.hasAlpha = info_.hasAlpha;
  picture.header = spec_;
  return placed(std::move(picture), window);
}

Picture PictureReader::readChannel(std::string_view channel, int depth, const Window& window) {
  int index = indexOf(info_.channels, channel);
  if (index < 0 && channel.size() == 1) {
    switch (std::toupper(static_cast<unsigned char>(channel[0]))) {
      case 'R':
        index = red_;
        break;
      case 'G':
        index = green_;
        break;
      case 'B':
        index = blue_;
        break;
      case 'A':
        index = alpha_ >= 0 ? alpha_ : info_.channels.size() == 1 ? 0 : -1;
        break;
      default:
        break;
    }
  }
  if (index < 0) {
    std::string names;
    for (const std::string& name : info_.channels) names += (names.empty() ? "" : ", ") + name;
    throw Error::expected(Fault::wrongUse, info_.path, "one of the channels " + oneLine(names),
                          channel);
  }
  Picture picture = Picture::make(info_.data, depth, info_.samples);
  readInto(picture, index, 1, 3);
  picture.header = spec_;
  return placed(std::move(picture), window);
}

Encoding encodingOf(const OIIO::ImageSpec& spec, const std::string& format, Samples samples) {
  if (samples == Samples::half || samples == Samples::float32) {
    return {"linear", nameOf(samples) + " samples"};
  }
  if (format == "cineon") return {"log", "a Cineon file"};
  const std::string transfer = spec.get_string_attribute("dpx:Transfer");
  if (transfer == "Printing density" || transfer == "Logarithmic") {
    return {"log", "a DPX file marked " + transfer};
  }
  if (spec.get_string_attribute("orvanite:transfer") == "linear") {
    return {"linear", "a movie tagged as linear light"};
  }
  return {"video", nameOf(samples) + " " + format};
}

Encoding encodingOf(const PictureReader& reader) {
  const PictureInfo& info = reader.info();
  return encodingOf(reader.header(), info.format, info.samples);
}

}  // namespace orvanite::media
