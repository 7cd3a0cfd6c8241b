// SPDX-License-Identifier: BSD-3-Clause
//
// One header is made from the plate's: its windows and metadata stay, what described the storage of
// the old file goes.
#include "media/PictureWriter.h"

#include <sys/statvfs.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string_view>

#include "base/Error.h"
#include "media/FileSink.h"
#include "media/Halves.h"
#include "media/PendingFile.h"
#include "media/PictureFormats.h"
#include "media/PictureReader.h"
#include "media/QuietPng.h"

namespace orvanite::media {
namespace {

OIIO::TypeDesc typeOf(Samples samples) {
  switch (samples) {
    case Samples::uint8:
      return OIIO::TypeDesc::UINT8;
    case Samples::uint16:
      return OIIO::TypeDesc::UINT16;
    case Samples::half:
      return OIIO::TypeDesc::HALF;
    default:
      return OIIO::TypeDesc::FLOAT;
  }
}

// Others ignore windows, or are read by programs that do.
bool hasWindows(const OIIO::ImageOutput& output) {
  return std::string_view(output.format_name()) == "openexr";
}

// The same command gives the same bytes: without a time of the plate's the only one is that of
// SOURCE_DATE_EPOCH, else none. The libraries would put the time of day there.
void takeTime(OIIO::ImageSpec& spec, std::string_view format) {
  if (spec.find_attribute("DateTime") != nullptr) return;
  const char* const epoch = std::getenv("SOURCE_DATE_EPOCH");
  char* end = nullptr;
  const std::time_t seconds = epoch != nullptr ? std::strtoll(epoch, &end, 10) : 0;
  std::tm parts{};
  if (epoch != nullptr && end != epoch && *end == '\0' && ::gmtime_r(&seconds, &parts) != nullptr) {
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y:%m:%d %H:%M:%S", &parts);
    spec.attribute("DateTime", text.data());
  } else if (format == "openexr") {
    spec.attribute("DateTime", "");
  } else if (format == "tiff") {
    spec.attribute("DateTime", 0);  // of no type that the tag has: it is left out
  }
}

// SGI's name of the picture ends at a zero; OpenImageIO leaves what memory held behind it.
bool clearSgiName(FileSink& sink) {
  constexpr std::size_t nameAt = 24;
  constexpr std::array<char, 80> nothing{};
  return sink.pwrite(nothing.data(), nothing.size(), nameAt) == nothing.size();
}

OIIO::ImageSpec headerFor(const Picture& picture, const Window& part,
                          const OIIO::ImageOutput& output) {
  OIIO::ImageSpec spec(part.width, part.height, 4, typeOf(picture.samples));
  if (picture.header) {
    const OIIO::ImageSpec& old = *picture.header;
    spec.extra_attribs = old.extra_attribs;
    spec.x = part.x;
    spec.y = part.y;
    spec.full_x = old.full_x;
    spec.full_y = old.full_y;
    spec.full_width = old.full_width;
    spec.full_height = old.full_height;
  }
  for (const char* storage :
       {"oiio:subimages", "oiio:subimagename", "name", "planarconfig", "openexr:chunkCount",
        "openexr:lineOrder", "tiff:PhotometricInterpretation", "tiff:PlanarConfiguration",
        "tiff:RowsPerStrip", "tiff:Compression", "oiio:UnassociatedAlpha", "jpeg:subsampling",
        "thumbnail_width", "thumbnail_height", "thumbnail_nchannels", "thumbnail_image",
        "dpx:ImageDescriptor"}) {
    spec.erase_attribute(storage);
  }
  // A depth in bits, such as a DPX file's 10, is kept in the same samples and format only.
  const bool sameFormat =
      picture.header &&
      picture.header->get_string_attribute("orvanite:format") == output.format_name() &&
      picture.header->format == typeOf(picture.samples);
  if (!sameFormat) {
    spec.erase_attribute("oiio:BitsPerSample");
    spec.erase_attribute("compression");
    // Grain, in colours and matte alike, packs smaller and twice as fast so than by "zip".
    if (std::string_view(output.format_name()) == "openexr") spec.attribute("compression", "piz");
  }
  // Grain hardly packs smaller for more effort: by level 4, the usual one, keying a shot takes a
  // quarter more time and its files are 3 % smaller.
  for (const char* packing : {"zip", "zips"}) {
    if (spec.get_string_attribute("compression") == packing &&
        std::string_view(output.format_name()) == "openexr") {
      spec.attribute("compression", std::string(packing) + ":1");
    }
  }
  spec.erase_attribute("orvanite:format");
  spec.erase_attribute("orvanite:transfer");
  spec.channelnames = {"R", "G", "B", "A"};
  spec.alpha_channel = 3;
  if (picture.channels == Channels::grey) {
    spec.channelnames = {"Y"};
  } else if (picture.channels == Channels::colour || !output.supports("alpha")) {
    spec.channelnames.resize(3);
  }
  spec.nchannels = static_cast<int>(spec.channelnames.size());
  if (spec.nchannels < 4) spec.alpha_channel = -1;
  // TIFF alone can say either; to others colours are handed as they are.
  const bool says = std::string_view(output.format_name()) == "tiff";
  if (!picture.premultiplied || !says) spec.attribute("oiio:UnassociatedAlpha", 1);
  takeTime(spec, output.format_name());
  // Noise in the lower bits packs no smaller for more effort, which took most of a shot's time.
  if (std::string_view(output.format_name()) == "png" && picture.samples == Samples::uint16) {
    spec.attribute("png:compressionLevel", 1);
  }
  return spec;
}

// The part of a picture that goes into a file without windows.
Window writtenPart(const Picture& picture, const OIIO::ImageOutput& output) {
  const Window& data = picture.data;
  if (!picture.header || hasWindows(output)) return data;
  const OIIO::ImageSpec& spec = *picture.header;
  const Window frame{spec.full_x, spec.full_y, spec.full_width, spec.full_height};
  const bool inside = frame.width > 0 && frame.height > 0 && frame.x >= data.x &&
                      frame.y >= data.y && frame.x + frame.width <= data.x + data.width &&
                      frame.y + frame.height <= data.y + data.height;
  return inside ? frame : data;
}

// Of one write to an OpenEXR file: the libraries take memory for as much as they are handed, and
// pack so many rows side by side. A multiple of every packing's blocks.
constexpr int bandRows = 512;

// Rows of floats as halves, with the channels that the file has.
void packHalves(const std::byte* from, std::size_t pixels, int channels, std::uint16_t* to) {
  const auto* const floats = reinterpret_cast<const float*>(from);
  if (channels == 4) return floatsToHalves(floats, 4 * pixels, to);
  pixelsToHalves(floats, pixels, to);
}

// Puts rows into an OpenEXR file that is open; false when that failed. Halves are made here, a row
// at a time: what the library makes of them goes through memory three times more.
bool writeBands(OIIO::ImageOutput& output, const Picture& picture, const std::byte* first) {
  const OIIO::ImageSpec& spec = output.spec();
  const bool halves =
      picture.depth == Depth::floats && spec.format == OIIO::TypeDesc::HALF && spec.nchannels >= 3;
  const auto pixels = static_cast<std::size_t>(spec.width);
  const std::size_t rowHalves = pixels * static_cast<std::size_t>(spec.nchannels);
  const int rows = std::min(bandRows, spec.height);
  std::unique_ptr<std::uint16_t[]> band;
  if (halves) {
    band =
        std::make_unique_for_overwrite<std::uint16_t[]>(rowHalves * static_cast<std::size_t>(rows));
  }
  for (int row = 0; row < spec.height; row += rows) {
    const int end = std::min(row + rows, spec.height);
    const auto at = [&](int y) { return first + picture.rowBytes() * static_cast<std::size_t>(y); };
    for (int y = row; halves && y < end; ++y) {
      packHalves(at(y), pixels, spec.nchannels,
                 band.get() + rowHalves * static_cast<std::size_t>(y - row));
    }
    const bool written =
        halves ? output.write_scanlines(spec.y + row, spec.y + end, 0, OIIO::TypeDesc::UNKNOWN,
                                        band.get())
               : output.write_scanlines(spec.y + row, spec.y + end, 0, typeInMemory(picture.depth),
                                        at(row), OIIO::stride_t{4} * bytesOf(picture.depth),
                                        static_cast<OIIO::stride_t>(picture.rowBytes()));
    if (!written) return false;
  }
  return true;
}

bool diskIsFull(const std::string& path) {
  struct statvfs disk {};
  return ::statvfs(path.c_str(), &disk) == 0 && disk.f_bavail == 0;
}

// Opens a writer under the name that it is given, writes and closes it; false when that failed.
using Fill = std::function<bool(OIIO::ImageOutput& output, const std::string& name)>;

// A file of the format that the path's ending says, whole or not at all, whatever the format's
// writer makes of a full disk. Throws Error (failure), and what `fill` throws.
void writeWhole(const std::string& path, const Fill& fill) {
  const auto fail = [&path](const std::string& reason) {
    throw Error(Fault::failure, path,
                oneLine("cannot be written: " + (reason.empty() ? "unknown reason" : reason)));
  };
  quietPng();
  auto output = OIIO::ImageOutput::create(path);
  if (!output) fail(OIIO::geterror());
  PendingFile file(path);
  // TIFF reports its own failed writes, and needs more of a file than a sink can give.
  const bool isTiff = std::string_view(output->format_name()) == "tiff";
  const bool throughSink = output->supports("ioproxy") != 0 && !isTiff;
  FileSink sink(file.temporary(), path);
  if (throughSink) output->set_ioproxy(&sink);
  // Some formats keep the name: through the sink it is no more than that.
  const bool filled = fill(
      *output, throughSink ? std::filesystem::path(path).filename().string() : file.temporary());
  if (filled && std::string_view(output->format_name()) == "sgi" && !clearSgiName(sink)) {
    fail("the picture's name");
  }
  if (const std::string reason = sink.finish(); !reason.empty()) fail(reason);
  if (!filled) fail(output->geterror());
  // Formats that write without the sink may not notice a full disk.
  if (!throughSink && diskIsFull(file.temporary())) fail("no space left on device");
  file.commit();
}

}  // namespace

void checkOutput(const std::string& path, std::span<const std::string> inputs) {
  const auto output = OIIO::ImageOutput::create(path);
  if (!output || !isPictureFormat(output->format_name())) {
    OIIO::geterror();
    throw Error::expected(
        Fault::wrongUse, path,
        "a name with the ending of a picture format, such as .png, .tif, .exr or .jpg",
        std::filesystem::path(path).extension().string());
  }
  checkPlace(path, inputs);
}

bool isSameFile(const std::string& a, const std::string& b) {
  namespace fs = std::filesystem;
  std::error_code problem;
  const bool existing = fs::exists(a, problem);
  if (existing != fs::exists(b, problem)) return false;
  if (existing) return fs::equivalent(a, b, problem);
  const fs::path first(a), second(b);
  const auto folder = [](const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
  };
  return first.filename() == second.filename() &&
         (first == second || fs::equivalent(folder(first), folder(second), problem));
}

void checkPlace(const std::string& path, std::span<const std::string> inputs) {
  std::error_code ignored;
  for (const std::string& input : inputs) {
    if (isSameFile(path, input)) {
      throw Error(Fault::wrongUse, path, "the output is the same file as the input " + input);
    }
  }
  const std::filesystem::path parent = std::filesystem::path(path).parent_path();
  if (!parent.empty() && !std::filesystem::is_directory(parent, ignored)) {
    throw Error(Fault::failure, path, "there is no folder " + parent.string());
  }
}

bool pictureHoldsAlpha(const std::string& path) {
  const auto output = OIIO::ImageOutput::create(path);
  if (!output) OIIO::geterror();
  return output && output->supports("alpha") != 0;
}

Samples writtenSamples(const std::string& path, Samples samples) {
  const bool isFloat = samples == Samples::half || samples == Samples::float32;
  const auto output = OIIO::ImageOutput::create(path);
  if (!output) OIIO::geterror();
  const std::string_view format = output ? output->format_name() : "";
  if (format == "openexr") return isFloat ? samples : Samples::half;
  if (format == "hdr") return Samples::float32;
  if (format == "tiff") return samples == Samples::half ? Samples::float32 : samples;
  const bool deep = format == "png" || format == "dpx" || format == "sgi" || format == "jpeg2000";
  return isFloat || samples == Samples::uint16 ? (deep ? Samples::uint16 : Samples::uint8)
                                               : Samples::uint8;
}

bool pictureIsPremultiplied(const std::string& path) { return keepsDataWindow(path); }

bool keepsDataWindow(const std::string& path) {
  const auto output = OIIO::ImageOutput::create(path);
  if (!output) OIIO::geterror();
  return output && hasWindows(*output);
}

void writePicture(const Picture& picture, const std::string& path) {
  writeWhole(path, [&picture](OIIO::ImageOutput& output, const std::string& name) {
    const Window part = writtenPart(picture, output);
    const std::byte* const first =
        picture.pixels.get() +
        picture.rowBytes() * static_cast<std::size_t>(part.y - picture.data.y) +
        std::size_t{4} *
            static_cast<std::size_t>(bytesOf(picture.depth) * (part.x - picture.data.x));
    const bool opened = output.open(name, headerFor(picture, part, output));
    const bool written =
        opened &&
        (hasWindows(output) ? writeBands(output, picture, first)
                            : output.write_image(typeInMemory(picture.depth), first,
                                                 OIIO::stride_t{4} * bytesOf(picture.depth),
                                                 static_cast<OIIO::stride_t>(picture.rowBytes())));
    return opened && output.close() && written;
  });
}

}  // namespace orvanite::media
