// SPDX-License-Identifier: BSD-3-Clause
//
// TGA alone has no mark at its start: its ending decides, where the header makes sense.
#include "media/PictureFormats.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>

#include "base/Error.h"

namespace orvanite::media {
namespace {

using namespace std::string_view_literals;

struct Format {
  const char *name, *people;
};
constexpr std::array<Format, 14> formats{{{"png", "PNG"},
                                          {"jpeg", "JPEG"},
                                          {"openexr", "OpenEXR"},
                                          {"tiff", "TIFF"},
                                          {"dpx", "DPX"},
                                          {"cineon", "Cineon"},
                                          {"targa", "TGA"},
                                          {"webp", "WebP"},
                                          {"jpeg2000", "JPEG 2000"},
                                          {"hdr", "Radiance HDR"},
                                          {"bmp", "BMP"},
                                          {"pnm", "PNM"},
                                          {"sgi", "SGI"},
                                          {"heif", "HEIF"}}};

struct Mark {
  std::size_t at;
  std::string_view bytes;
  const char* format;
};
constexpr std::array<Mark, 22> marks{{{0, "\x89PNG\r\n\x1A\n"sv, "png"},
                                      {0, "\xFF\xD8"sv, "jpeg"},
                                      {0, "\x76\x2F\x31\x01"sv, "openexr"},
                                      {0, "II*\0"sv, "tiff"},
                                      {0, "MM\0*"sv, "tiff"},
                                      {0, "II+\0"sv, "tiff"},
                                      {0, "MM\0+"sv, "tiff"},
                                      {0, "SDPX"sv, "dpx"},
                                      {0, "XPDS"sv, "dpx"},
                                      {0, "\x80\x2A\x5F\xD7"sv, "cineon"},
                                      {0, "\xD7\x5F\x2A\x80"sv, "cineon"},
                                      {8, "WEBP"sv, "webp"},
                                      {4, "jP  \r\n\x87\n"sv, "jpeg2000"},
                                      {0, "\xFF\x4F\xFF\x51"sv, "jpeg2000"},
                                      {0, "#?RADIANCE"sv, "hdr"},
                                      {0, "#?RGBE"sv, "hdr"},
                                      {0, "BM"sv, "bmp"},
                                      {0, "\x01\xDA"sv, "sgi"},
                                      {0, "\xDA\x01"sv, "sgi"},
                                      {4, "ftyphe"sv, "heif"},
                                      {4, "ftypmif1"sv, "heif"},
                                      {4, "ftypavi"sv, "heif"}}};

// Known by their marks only to be called by their names.
constexpr std::array<Mark, 10> others{{{0, "GIF8"sv, "GIF"},
                                       {0, "8BPS"sv, "a Photoshop document"},
                                       {0, "DDS "sv, "DDS"},
                                       {0, "FOR4"sv, "IFF"},
                                       {0, "FORM"sv, "IFF"},
                                       {0, "\0\0\1\0"sv, "ICO"},
                                       {0, "SIMPLE  ="sv, "FITS"},
                                       {0, "\x53\x80\xF6\x34"sv, "Softimage PIC"},
                                       {0, "%PDF"sv, "PDF"},
                                       {0, "#EXTM3U"sv, "a list of other files"}}};

bool bears(std::string_view start, const Mark& mark) {
  return start.size() >= mark.at + mark.bytes.size() &&
         start.substr(mark.at, mark.bytes.size()) == mark.bytes;
}

std::string endingOf(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return ending.empty() ? ending : ending.substr(1);
}

bool isTga(std::string_view start, const std::string& ending) {
  constexpr std::array endings{"tga"sv, "tpic"sv, "vda"sv, "icb"sv, "vst"sv};
  return std::find(endings.begin(), endings.end(), ending) != endings.end() && start.size() >= 18 &&
         start[1] >= 0 && start[1] < 2 && start[2] != 0 &&
         "\1\2\3\11\12\13"sv.find(start[2]) != std::string_view::npos;
}

bool isPnm(std::string_view start) {
  return start.size() > 2 && start[0] == 'P' &&
         "123456fF"sv.find(start[1]) != std::string_view::npos &&
         std::isspace(static_cast<unsigned char>(start[2])) != 0;
}

// The format that OpenImageIO would take an ending for; empty: none.
std::string formatOfEnding(const std::string& ending) {
  // "tiff:tif,tiff,tx;openexr:exr,sxr;..."
  const std::string list = ";" + std::string(OIIO::get_string_attribute("extension_list")) + ";";
  for (std::size_t at = 0; at + 1 < list.size();) {
    const std::size_t end = list.find(';', at + 1);
    const std::string entry = list.substr(at + 1, end - at - 1);
    const std::size_t colon = entry.find(':');
    if (colon != std::string::npos &&
        ("," + entry.substr(colon + 1) + ",").find("," + ending + ",") != std::string::npos) {
      return entry.substr(0, colon);
    }
    at = end;
  }
  return "";
}

}  // namespace

std::string pictureFormatOf(const std::string& path) {
  std::array<char, 32> buffer{};
  std::ifstream file(path, std::ios::binary);
  file.read(buffer.data(), buffer.size());
  const std::string_view start(buffer.data(), static_cast<std::size_t>(file.gcount()));
  const std::string ending = endingOf(path);
  const auto refuse = [&](const std::string& found) {
    throw Error(Fault::failure, path,
                "cannot be read: expected " + pictureFormatNames() + ", found " + found);
  };
  if (!file.is_open()) throw Error(Fault::failure, path, "cannot be opened for reading");
  if (start.empty()) refuse("an empty file");
  // Raw files of cameras bear the marks of TIFF and of HEIF; what is plain in them is a thumbnail.
  if (!ending.empty() && formatOfEnding(ending) == "raw") refuse("a camera's raw file");
  for (const Mark& mark : marks) {
    if (bears(start, mark)) return mark.format;
  }
  if (isPnm(start)) return "pnm";
  if (isTga(start, ending)) return "targa";
  for (const Mark& mark : others) {
    if (bears(start, mark)) refuse(mark.format);
  }
  const std::string other = formatOfEnding(ending);
  refuse(other.empty() || isPictureFormat(other) ? "none of them" : "the ending of " + other);
  return "";
}

bool isPictureFormat(std::string_view format) {
  return std::any_of(formats.begin(), formats.end(),
                     [format](const Format& one) { return format == one.name; });
}

std::string pictureFormatNames() {
  std::string names;
  for (const Format& one : formats) {
    names += names.empty() ? "" : &one == &formats.back() ? " or " : ", ";
    names += one.people;
  }
  return names;
}

}  // namespace orvanite::media
