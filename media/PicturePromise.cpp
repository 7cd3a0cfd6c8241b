// SPDX-License-Identifier: BSD-3-Clause
//
// A promise counts what the format cannot do without: padding that some writers leave out at the
// end is not asked for, run lengths count as their longest runs.
#include "media/PicturePromise.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>

#include "media/FileBytes.h"

namespace orvanite::media {
namespace {

using u64 = std::uint64_t;

u64 roundedUp(u64 value, u64 step) { return (value + step - 1) / step * step; }

PicturePromise promise(u64 width, u64 height, u64 bytes) {
  return {static_cast<std::int64_t>(width), static_cast<std::int64_t>(height), bytes, nullptr};
}

// Bytes of rows of samples of so many bits, as DPX and Cineon pack them: by words of four bytes,
// three samples of 10 bits in one or as bits without gaps; whole bytes otherwise.
u64 packedBytes(u64 samples, u64 rows, u64 bits, bool filled, u64 rowPadding) {
  u64 row = samples * bits / 8;
  if (bits == 10 && filled) row = roundedUp(samples, 3) / 3 * 4;
  if (bits == 12 && filled) row = samples * 2;
  if ((bits == 10 || bits == 12 || bits == 1) && !filled) row = roundedUp(samples * bits, 32) / 8;
  return rows * row + (rows > 0 ? rows - 1 : 0) * rowPadding;
}

// SMPTE ST 268. The first four bytes tell the byte order of all numbers.
PicturePromise ofDpx(FileBytes& file) {
  constexpr u64 undefined = 0xFFFFFFFF;
  file.big = file.text(0, 1) == "S";
  PicturePromise result;
  if (const u64 user = file.four(32); user != undefined && user > file.size()) {
    result.fault = "its header promises more user data than the file holds";
  }
  result.width = static_cast<std::int64_t>(file.four(772));
  result.height = static_cast<std::int64_t>(file.four(776));
  result.bytes = 2048;
  const u64 elements = std::clamp<u64>(file.two(770), 1, 8);
  for (u64 i = 0; i < elements; ++i) {
    const u64 at = 780 + 72 * i;
    const u64 descriptor = file.one(at + 20);
    const u64 bits = file.one(at + 23);
    const u64 packing = file.two(at + 24);
    const bool runs = file.two(at + 26) == 1;
    u64 offset = file.four(at + 28);
    if (offset == 0 || offset == undefined) offset = file.four(4);
    u64 padding = file.four(at + 32);
    if (padding == undefined || padding > file.size()) padding = 0;
    const u64 channels = descriptor == 50 || descriptor == 102                       ? 3
                         : descriptor == 51 || descriptor == 52 || descriptor == 103 ? 4
                         : descriptor == 100                                         ? 2
                         : descriptor == 101                                         ? 3
                         : descriptor >= 150 && descriptor <= 156 ? descriptor - 148
                                                                  : 1;
    const u64 samples = static_cast<u64>(result.width) * channels;
    const auto rows = static_cast<u64>(result.height);
    u64 bytes = packedBytes(samples, rows, bits, packing != 0, padding);
    // A run's length takes a sample, whose lowest bit tells runs from others.
    if (runs) bytes = bits > 1 && bits <= 16 ? bytes >> (bits - 1) : 0;
    result.bytes = std::max(result.bytes, offset + bytes);
  }
  return result;
}

// Kodak's Cineon 4.5: as DPX, one element for each channel, all in one block.
PicturePromise ofCineon(FileBytes& file) {
  file.big = file.one(0) == 0x80;
  const u64 channels = std::clamp<u64>(file.one(193), 1, 8);
  const u64 bits = file.one(198);
  const u64 width = file.four(200);
  const u64 height = file.four(204);
  const bool filled = (file.one(681) & 0x7F) != 0;
  return promise(width, height,
                 file.four(4) + packedBytes(width * channels, height, bits, filled, 0));
}

PicturePromise ofTga(FileBytes& file) {
  file.big = false;
  const u64 width = file.two(12);
  const u64 height = file.two(14);
  const u64 pixel = (file.one(16) + 7) / 8;
  const u64 map = file.one(1) == 1 ? file.two(5) * ((file.one(7) + 7) / 8) : 0;
  const bool runs = file.one(2) >= 8;  // of up to 128 pixels
  const u64 pixels = width * height;
  return promise(
      width, height,
      18 + file.one(0) + map + (runs ? (pixels + 127) / 128 * (1 + pixel) : pixels * pixel));
}

PicturePromise ofSgi(FileBytes& file) {
  constexpr u64 header = 512;
  file.big = file.one(0) == 1;
  const u64 bytes = file.one(3);
  const u64 dimensions = file.two(4);
  const u64 width = file.two(6);
  const u64 height = dimensions >= 2 ? file.two(8) : 1;
  const u64 channels = dimensions >= 3 ? file.two(10) : 1;
  if (file.one(2) != 1) return promise(width, height, header + width * height * channels * bytes);
  // Two tables say where each row lies and how long it is. The library takes memory for all that
  // the header's numbers make, those of dimensions that the picture has not as well.
  const u64 rows = std::max(height * channels, file.two(8) * file.two(10));
  PicturePromise result = promise(width, height, header + rows * 8);
  if (result.bytes > file.size()) return result;
  const std::string table = file.text(header, static_cast<std::size_t>(rows * 8));
  const auto entry = [&](u64 at) {
    u64 value = 0;
    for (u64 i = 0; i < 4; ++i) {
      value = value << 8 | static_cast<unsigned char>(table[at * 4 + (file.big ? i : 3 - i)]);
    }
    return value;
  };
  for (u64 row = 0; row < rows; ++row) {
    result.bytes = std::max(result.bytes, entry(row) + entry(rows + row));
  }
  return result;
}

PicturePromise ofBmp(FileBytes& file) {
  file.big = false;
  const bool old = file.four(14) == 12;
  const u64 width = old ? file.two(18) : file.four(18);
  u64 height = old ? file.two(20) : file.four(22);
  if (!old && height > 0x7FFFFFFF) height = 0x100000000 - height;  // from the top
  const u64 bits = old ? file.two(24) : file.two(28);
  const u64 compression = old ? 0 : file.four(30);
  const bool plain = compression == 0 || compression == 3;
  PicturePromise result = promise(
      width, height, file.four(10) + (plain ? roundedUp(width * bits, 32) / 8 * height : height));
  // Runs are of 8 bits or of 4; OpenImageIO would take whatever else for them and read beyond.
  if (compression > 3 || (compression == 1 && bits != 8) || (compression == 2 && bits != 4)) {
    result.fault = "its header promises a compression that its pixels cannot have";
  }
  return result;
}

PicturePromise ofPnm(FileBytes& file) {
  const std::string start = file.text(0, 4096);
  std::size_t at = 2;
  // Numbers between blanks; what follows a # is a remark.
  const auto word = [&] {
    while (at < start.size() &&
           (std::isspace(static_cast<unsigned char>(start[at])) != 0 || start[at] == '#')) {
      if (start[at] == '#')
        at = std::min(start.find('\n', at), start.size());
      else
        ++at;
    }
    u64 value = 0;
    while (at < start.size() && start[at] >= '0' && start[at] <= '9' && value < 1000000000) {
      value = value * 10 + static_cast<u64>(start[at++] - '0');
    }
    return value;
  };
  const char kind = start.size() > 2 ? start[1] : ' ';
  const u64 width = word();
  const u64 height = word();
  const u64 samples = width * height * (kind == '3' || kind == '6' || kind == 'F' ? 3 : 1);
  const bool floating = kind == 'f' || kind == 'F';
  const bool bits = kind == '1' || kind == '4';
  const u64 top = floating || bits ? 0 : word();
  u64 bytes = samples;  // as text at least a digit each
  if (kind == '4') bytes = (width + 7) / 8 * height;
  if (kind == '5' || kind == '6') bytes = samples * (top > 255 ? 2 : 1);
  if (floating) bytes = samples * 4;
  return promise(width, height, at + bytes);
}

// Chunks up to the last one, which is empty and is often all that is looked at.
// libpng takes memory for a chunk before it reads it, up to 2 GiB: those before the picture are
// walked in any case. An end where it belongs answers for those of the picture.
PicturePromise ofPng(FileBytes& file) {
  PicturePromise result = promise(file.four(16), file.four(20), 0);
  const auto is = [&](u64 at, std::string_view name) { return file.text(at + 4, 4) == name; };
  const auto ends = [&](u64 at) { return file.four(at) == 0 && is(at, "IEND"); };
  const bool whole = file.size() >= 20 && ends(file.size() - 12);
  u64 at = 8;
  while (at + 12 <= file.size() && !ends(at)) {
    if (whole && is(at, "IDAT")) return result;
    at += 12 + file.four(at);
  }
  result.bytes = at + 12;
  return result;
}

u64 tiffTypeBytes(u64 type) {
  constexpr std::string_view bytes("\0\1\1\2\4\x8\1\1\2\4\x8\4\x8\4\0\0\x8\x8\x8", 19);
  return type < bytes.size() ? static_cast<u64>(bytes[type]) : 0;
}

// The first directory and what its entries point at: libtiff goes on without what is not there.
PicturePromise ofTiff(FileBytes& file) {
  file.big = file.text(0, 1) == "M";
  const bool large = file.two(2) == 43;
  const std::size_t word = large ? 8 : 4;
  const u64 directory = file.number(large ? 8 : 4, word);
  const u64 count = file.number(directory, large ? 8 : 2);
  const u64 first = directory + (large ? 8 : 2);
  const u64 entry = 4 + 2 * word;
  PicturePromise result;
  result.bytes = first + std::min<u64>(count, 65535) * entry;
  if (result.bytes > file.size()) return result;
  for (u64 i = 0; i < count; ++i) {
    const u64 at = first + i * entry;
    const u64 values = file.number(at + 4, word);
    const u64 bytes = values * tiffTypeBytes(file.two(at + 2));
    if (bytes > word && values <= file.size()) {
      result.bytes = std::max(result.bytes, file.number(at + 4 + word, word) + bytes);
    }
  }
  return result;
}

// What is wrong with a list of channels, each a name, a kind of number and twelve bytes more; null:
// nothing. Over kinds that there are not the library ends the program, and it reads a list
// to the list's own end, wherever its length says.
const char* channelFault(FileBytes& file, u64 at, u64 end) {
  constexpr u64 kinds = 3;  // whole, half, float
  while (at < end && file.one(at) != 0) {
    const std::size_t name = file.text(at, 256).find('\0');
    if (name == std::string::npos) break;
    if (file.four(at + name + 1) >= kinds) {
      return "its channels hold numbers of a kind that there is not";
    }
    at += name + 1 + 16;
  }
  return at + 1 == end ? nullptr : "its list of channels does not end where its length says";
}

// Bytes that the library reads of an attribute of this type, whatever length stands before it; 0:
// as many as that says. ("OpenEXR File Layout", predefined attribute types.)
u64 attributeBytes(std::string_view type) {
  struct Fixed {
    std::string_view type;
    u64 bytes;
  };
  constexpr Fixed types[] = {{"box2f", 16},
                             {"box2i", 16},
                             {"chromaticities", 32},
                             {"compression", 1},
                             {"deepImageState", 1},
                             {"double", 8},
                             {"envmap", 1},
                             {"float", 4},
                             {"int", 4},
                             {"keycode", 28},
                             {"lineOrder", 1},
                             {"m33d", 72},
                             {"m33f", 36},
                             {"m44d", 128},
                             {"m44f", 64},
                             {"rational", 8},
                             {"tiledesc", 9},
                             {"timecode", 8},
                             {"v2d", 16},
                             {"v2f", 8},
                             {"v2i", 8},
                             {"v3d", 24},
                             {"v3f", 12},
                             {"v3i", 12}};
  const auto* const found = std::find_if(std::begin(types), std::end(types),
                                         [&](const Fixed& f) { return f.type == type; });
  return found == std::end(types) ? 0 : found->bytes;
}

// What is wrong with an attribute whose value lies from `at` to `end`; null: nothing. Where the
// library would read on or stop short, its next attribute would be another one than the walk's.
const char* attributeFault(FileBytes& file, std::string_view type, u64 at, u64 end) {
  if (type == "chlist") return channelFault(file, at, end);
  const u64 bytes = attributeBytes(type);
  const bool fits = type == "floatvector" ? (end - at) % 4 == 0 : bytes == 0 || end - at == bytes;
  return fits ? nullptr : "an attribute has a length that its type cannot have";
}

// The attributes of OpenEXR's headers, each a name, a type, a length and that many bytes: the
// library takes memory for them before it reads any.
PicturePromise ofOpenExr(FileBytes& file) {
  constexpr u64 hasParts = 0x1000;
  file.big = false;
  const bool parts = (file.four(4) & hasParts) != 0;
  const auto behindName = [&](u64 at) {
    const std::size_t end = file.text(at, 256).find('\0');
    return end == std::string::npos ? 0 : at + end + 1;
  };
  PicturePromise result;
  for (u64 at = 8; at < file.size();) {
    if (file.one(at) == 0) {  // the end of a header; of all, where another follows it
      if (!parts || file.one(at + 1) == 0) break;
      ++at;
    }
    const u64 type = behindName(at);
    const u64 length = type == 0 ? 0 : behindName(type);
    if (length == 0) break;
    at = length + 4 + file.four(length);
    result.bytes = at;
    if (result.fault == nullptr) {
      const std::string name = file.text(type, static_cast<std::size_t>(length - type - 1));
      result.fault = attributeFault(file, name, length + 4, at);
    }
  }
  return result;
}

// Of formats whose libraries unfold everything when they open a file: sizes only.
PicturePromise ofWebp(FileBytes& file) {
  file.big = false;
  const std::string chunk = file.text(12, 4);
  PicturePromise result;
  result.bytes = file.four(4) + 8;
  if (chunk == "VP8X") {
    result.width = static_cast<std::int64_t>(file.number(24, 3)) + 1;
    result.height = static_cast<std::int64_t>(file.number(27, 3)) + 1;
  } else if (chunk == "VP8L") {
    const u64 bits = file.four(21);
    result.width = static_cast<std::int64_t>(bits & 0x3FFF) + 1;
    result.height = static_cast<std::int64_t>(bits >> 14 & 0x3FFF) + 1;
  } else if (chunk == "VP8 ") {
    result.width = static_cast<std::int64_t>(file.two(26) & 0x3FFF);
    result.height = static_cast<std::int64_t>(file.two(28) & 0x3FFF);
  }
  return result;
}

// The codestream's own SIZ segment (ITU-T T.800): it comes first in it.
PicturePromise ofJpeg2000(FileBytes& file) {
  const std::string start = file.text(0, 4096);
  const std::size_t at = start.find(std::string_view("\xFF\x4F\xFF\x51", 4));
  if (at == std::string::npos) return {};
  const u64 width = file.four(at + 8) - file.four(at + 16);
  const u64 height = file.four(at + 12) - file.four(at + 20);
  return promise(width & 0xFFFFFFFF, height & 0xFFFFFFFF, 0);
}

// Its boxes of image sizes (ISO/IEC 23008-12): the largest, which tiles are parts of.
PicturePromise ofHeif(FileBytes& file) {
  const std::string start = file.text(0, 65536);
  PicturePromise result;
  for (std::size_t at = start.find("ispe"); at != std::string::npos;
       at = start.find("ispe", at + 4)) {
    const u64 width = file.four(at + 8), height = file.four(at + 12);
    // Both have 32 bits: a product fits.
    if (width * height <= static_cast<u64>(result.width) * static_cast<u64>(result.height))
      continue;
    result.width = static_cast<std::int64_t>(width);
    result.height = static_cast<std::int64_t>(height);
  }
  return result;
}

}  // namespace

PicturePromise promiseOf(const std::string& path, const std::string& format) {
  FileBytes file(path);
  if (format == "dpx") return ofDpx(file);
  if (format == "cineon") return ofCineon(file);
  if (format == "targa") return ofTga(file);
  if (format == "sgi") return ofSgi(file);
  if (format == "bmp") return ofBmp(file);
  if (format == "pnm") return ofPnm(file);
  if (format == "png") return ofPng(file);
  if (format == "tiff") return ofTiff(file);
  if (format == "openexr") return ofOpenExr(file);
  if (format == "webp") return ofWebp(file);
  if (format == "jpeg2000") return ofJpeg2000(file);
  if (format == "heif") return ofHeif(file);
  return {};
}

}  // namespace orvanite::media
