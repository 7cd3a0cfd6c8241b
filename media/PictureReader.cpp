// SPDX-License-Identifier: BSD-3-Clause
//
// Headers are checked before a library sees a file and before memory is taken; pixels are read in
// bands, so that nothing but the picture itself needs much memory. Colours are taken as they stand:
// OpenImageIO is told not to multiply them by alpha.
#include "media/PictureReader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <utility>

#include "base/Error.h"
#include "media/Halves.h"
#include "media/InputFile.h"
#include "media/JpegSegments.h"
#include "media/Orientation.h"
#include "media/PictureFormats.h"
#include "media/PictureLayer.h"
#include "media/PicturePromise.h"
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

// Of a file's parts no more are looked at.
constexpr int partLimit = 1000;

// "0 'rgba' (R, G, B, A)"
std::string textOf(const PartInfo& part, int number) {
  std::string text = std::to_string(number) + " '" + part.name + "' (";
  for (std::size_t i = 0; i < part.channels.size(); ++i) {
    text += (i == 0 ? "" : ", ") + part.channels[i];
  }
  return text + ")";
}

template <class Sample>
void fillSlot(Picture& picture, int slot, Sample value) {
  auto* samples = reinterpret_cast<Sample*>(picture.pixels.get());
  const std::size_t count = picture.bytes() / sizeof(Sample);
  for (std::size_t i = static_cast<std::size_t>(slot); i < count; i += 4) samples[i] = value;
}

void fill(Picture& picture, int slot, float value) {
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    fillSlot(picture, slot, static_cast<Sample>(value * static_cast<float>(maxOf(picture.depth))));
  });
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
  withSampleOf(picture.depth, [&]<class Sample>(std::type_identity<Sample>) {
    copySlot<Sample>(picture, from, to);
  });
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

// Pixels in memory are at the most four channels of four bytes each.
void PictureReader::checkPromise(const PicturePromise& promise) const {
  if (promise.fault != nullptr) fail(std::string("broken: ") + promise.fault);
  const auto limit = std::int64_t{1} << 32;
  if (promise.width > 0 && promise.height > 0 && promise.width < limit && promise.height < limit) {
    if (!sizeIsFine(static_cast<int>(std::min<std::int64_t>(promise.width, sideLimit + 1)),
                    static_cast<int>(std::min<std::int64_t>(promise.height, sideLimit + 1)))) {
      failForSize(promise.width, promise.height);
    }
  }
  std::error_code problem;
  const auto size = std::filesystem::file_size(info_.path, problem);
  if (!problem && promise.bytes > size) {
    fail("broken: its header promises at least " + std::to_string(promise.bytes) +
         " bytes, the file ends after " + std::to_string(size));
  }
  if (promise.width > 0 && promise.height > 0) {
    checkMemory(info_.path, static_cast<std::uint64_t>(promise.width * promise.height) * 4);
  }
}

void PictureReader::failForSize(std::int64_t width, std::int64_t height) const {
  fail("expected a picture of 1x1 to 65535x65535 and no more than 268435456 pixels, found " +
       std::to_string(width) + "x" + std::to_string(height));
}

PictureReader::PictureReader(const std::string& path, LayerChoice choice)
    : choice_(std::move(choice)) {
  info_.path = path;
  checkInputFile(path, "a picture");
  const std::string format = pictureFormatOf(path);
  checkPromise(promiseOf(path, format));
  if (format == "jpeg") {
    if (const char* const fault = jpegFault(path)) fail(std::string("broken: ") + fault);
  }
  quietPng();
  OIIO::ImageSpec wish;
  wish.attribute("oiio:UnassociatedAlpha", 1);
  // Its format is known: no other library has a try.
  input_ = OIIO::ImageInput::create(format);
  OIIO::ImageSpec found;
  if (!input_ || !input_->open(path, found, wish)) {
    const std::string reason = input_ ? input_->geterror() : OIIO::geterror();
    fail("cannot be read as " + format + ": " + (reason.empty() ? "unknown reason" : reason));
  }
  choosePart();
  const OIIO::ImageSpec& spec = input_->spec();
  auto kept = std::make_shared<OIIO::ImageSpec>(spec);
  kept->attribute("orvanite:format", input_->format_name());
  spec_ = kept;
  const bool framed = spec.full_width >= 1 && spec.full_height >= 1;
  const int width = framed && sizeIsFine(spec.width, spec.height) ? spec.full_width : spec.width;
  const int height = framed && sizeIsFine(spec.width, spec.height) ? spec.full_height : spec.height;
  if (!sizeIsFine(width, height)) failForSize(width, height);
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
  checkMemory(path, static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) * 4 *
                        static_cast<std::uint64_t>(depthOf(samplesOf(spec.format))));

  info_.format = input_->format_name();
  info_.data = {spec.x, spec.y, spec.width, spec.height};
  info_.display = info_.data;
  if (framed) info_.display = {spec.full_x, spec.full_y, spec.full_width, spec.full_height};
  info_.samples = samplesOf(spec.format);
  info_.bits =
      spec.get_int_attribute("oiio:BitsPerSample", static_cast<int>(spec.format.basesize()) * 8);
  info_.channels.assign(spec.channelnames.begin(), spec.channelnames.end());
  info_.channels.resize(static_cast<std::size_t>(spec.nchannels));

  chooseLayer();
  info_.hasAlpha = alpha_ >= 0;
  chooseOrientation();
}

// The part that holds plain R, G and B; else the first that has colours in a layer that is named
// for them; else the first. Or the one that was chosen.
void PictureReader::choosePart() {
  const bool chosen = !choice_.part.empty() || !choice_.layer.empty();
  if (std::string_view(input_->format_name()) != "openexr") {
    if (chosen) {
      throw Error(Fault::wrongUse, info_.path,
                  "expected an OpenEXR file to take a part or layer of");
    }
    return;
  }
  int best = -1;
  int bestRank = -1;
  for (int part = 0; part < partLimit && input_->seek_subimage(part, 0); ++part) {
    const OIIO::ImageSpec& spec = input_->spec();
    const PartInfo about{std::string(spec.get_string_attribute("oiio:subimagename")),
                         spec.channelnames};
    info_.parts.push_back(about);
    if (!isChosen(about, part)) continue;
    const int rank = layerOf(spec.channelnames, spec, layerIn(about)).rank;
    if ((!spec.deep || chosen) && rank > bestRank && (rank > 0 || choice_.layer.empty())) {
      best = part;
      bestRank = rank;
    }
  }
  input_->geterror();  // that there is no further part
  if (best < 0 && chosen) {
    std::string known;
    for (std::size_t part = 0; part < info_.parts.size(); ++part) {
      known += (part == 0 ? "" : "; ") + textOf(info_.parts[part], static_cast<int>(part));
    }
    throw Error::expected(Fault::wrongUse, info_.path, "a part or layer of " + oneLine(known),
                          choice_.layer.empty() ? choice_.part : choice_.layer);
  }
  part_ = std::max(best, 0);
  if (!input_->seek_subimage(part_, 0)) fail("its part " + std::to_string(part_) + " is broken");
  info_.part = std::string(input_->spec().get_string_attribute("oiio:subimagename"));
}

bool PictureReader::isChosen(const PartInfo& part, int number) const {
  return choice_.part.empty() || sameLetters(part.name, choice_.part) ||
         std::to_string(number) == choice_.part;
}

// The layer to look for in a part: none in one that is itself named so.
std::string PictureReader::layerIn(const PartInfo& part) const {
  const bool itself =
      sameLetters(part.name, choice_.layer) && indexOf(part.channels, choice_.layer + ".R") < 0;
  return itself ? "" : choice_.layer;
}

void PictureReader::chooseLayer() {
  const OIIO::ImageSpec& spec = *spec_;
  const PictureLayer layer = layerOf(info_.channels, spec, layerIn({info_.part, info_.channels}));
  info_.layer = layer.name;
  if (layer.luminanceChroma) {
    fail("expected channels R, G and B, found luminance and chroma (Y, RY, BY); convert it first");
  }
  red_ = layer.red;
  green_ = layer.green;
  blue_ = layer.blue;
  alpha_ = layer.alpha;
}

// Cameras write JPEG files as their sensor lay; TIFF's tag means the same. A file that is a part of
// a larger frame is left alone.
void PictureReader::chooseOrientation() {
  stored_ = info_.data;
  const int wanted = spec_->get_int_attribute("Orientation", 1);
  const bool turns = (info_.format == "jpeg" || info_.format == "tiff") && wanted > 1 &&
                     wanted <= 8 && info_.data == info_.display && info_.data.x == 0 &&
                     info_.data.y == 0;
  if (!turns) return;
  info_.orientation = wanted;
  if (liesOnItsSide(wanted)) std::swap(info_.data.width, info_.data.height);
  info_.display = info_.data;
  auto header = std::make_shared<OIIO::ImageSpec>(*spec_);
  header->attribute("Orientation", 1);
  header->width = header->full_width = info_.data.width;
  header->height = header->full_height = info_.data.height;
  upright_ = header;
}

Picture PictureReader::shown(Picture picture, const Window& window) const {
  picture.header = upright_ ? upright_ : spec_;
  return placed(upright(std::move(picture), info_.orientation), window);
}

// Reads consecutive channels of the file into consecutive slots of the picture's pixels.
void PictureReader::readInto(Picture& picture, int firstChannel, int channels, int firstSlot) {
  const OIIO::ImageSpec& spec = *spec_;
  const auto pixelBytes = std::ptrdiff_t{4} * bytesOf(picture.depth);
  const auto rowBytes = static_cast<std::ptrdiff_t>(picture.rowBytes());
  const bool tiled = spec.tile_width > 0 && spec.tile_height > 0;
  const int rows = tiled ? spec.tile_height : bandRows;
  for (int row = 0; row < spec.height; row += rows) {
    const int end = std::min(row + rows, spec.height);
    std::byte* to =
        picture.pixels.get() + rowBytes * row + std::ptrdiff_t{firstSlot} * bytesOf(picture.depth);
    checkRead(row,
              tiled ? input_->read_tiles(part_, 0, spec.x, spec.x + spec.width, spec.y + row,
                                         spec.y + end, 0, 1, firstChannel, firstChannel + channels,
                                         typeInMemory(picture.depth), to, pixelBytes, rowBytes)
                    : input_->read_scanlines(part_, 0, spec.y + row, spec.y + end, 0, firstChannel,
                                             firstChannel + channels, typeInMemory(picture.depth),
                                             to, pixelBytes, rowBytes));
  }
}

void PictureReader::checkRead(int row, bool read) const {
  if (read) return;
  const std::string reason = input_->geterror();
  fail("broken near row " + std::to_string(row) + (reason.empty() ? "" : ": " + reason));
}

// Rows of halves, colours and where they follow alpha, are brought in as they are: what the library
// makes floats of goes through memory twice more.
bool PictureReader::readHalves(Picture& picture, bool alphaFollows, float missingAlpha) {
  const OIIO::ImageSpec& spec = *spec_;
  if (picture.depth != Depth::floats || spec.format != OIIO::TypeDesc::HALF ||
      !spec.channelformats.empty() || spec.tile_width > 0) {
    return false;
  }
  const int channels = alphaFollows ? 4 : 3;
  const auto pixels = static_cast<std::size_t>(spec.width);
  const std::size_t rowHalves = pixels * static_cast<std::size_t>(channels);
  const auto band = std::make_unique_for_overwrite<std::uint16_t[]>(
      rowHalves * static_cast<std::size_t>(std::min(bandRows, spec.height)));
  auto* to = reinterpret_cast<float*>(picture.pixels.get());
  for (int row = 0; row < spec.height; row += bandRows) {
    const int end = std::min(row + bandRows, spec.height);
    checkRead(row, input_->read_scanlines(part_, 0, spec.y + row, spec.y + end, 0, red_,
                                          red_ + channels, OIIO::TypeDesc::UNKNOWN, band.get()));
    const std::uint16_t* from = band.get();
    for (int y = row; y < end; ++y, from += rowHalves, to += 4 * pixels) {
      if (alphaFollows) {
        halvesToFloats(from, rowHalves, to);
      } else {
        halvesToPixels(from, pixels, missingAlpha, to);
      }
    }
  }
  return true;
}

Picture PictureReader::read(Depth depth, const Window& window, float missingAlpha) {
  Picture picture = Picture::make(stored_, depth, info_.samples);
  if (green_ == red_ + 1 && blue_ == green_ + 1) {
    const bool alphaFollows = alpha_ == blue_ + 1;
    if (!readHalves(picture, alphaFollows, missingAlpha)) {
      readInto(picture, red_, alphaFollows ? 4 : 3, 0);
      if (alpha_ < 0) fill(picture, 3, missingAlpha);
    }
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
    if (alpha_ >= 0) {
      readInto(picture, alpha_, 1, 3);
    } else {
      fill(picture, 3, missingAlpha);
    }
  }
  picture.hasAlpha = info_.hasAlpha;
  return shown(std::move(picture), window);
}

Picture PictureReader::readChannel(std::string_view channel, Depth depth, const Window& window) {
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
  Picture picture = Picture::make(stored_, depth, info_.samples);
  readInto(picture, index, 1, 3);
  return shown(std::move(picture), window);
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
