// SPDX-License-Identifier: BSD-3-Clause
//
// Every container is walked by its outermost boxes, each of which says its length.
#include "media/MovieEnd.h"

#include <algorithm>

#include "media/FileBytes.h"

namespace orvanite::media {
namespace {

using u64 = std::uint64_t;

std::string beyond(const std::string& what, u64 end, u64 size) {
  return what + " should reach byte " + std::to_string(end) + ", the file ends after " +
         std::to_string(size);
}

// ISO/IEC 14496-12, 4.2.
std::string inQuickTime(FileBytes& file) {
  for (u64 at = 0; at + 8 <= file.size();) {
    u64 length = file.four(at);
    if (length == 0) return "";  // up to the end
    if (length == 1) length = file.number(at + 8, 8);
    if (length < 8) return "";
    if (length > file.size() - at) {
      return beyond("its box '" + file.text(at + 4, 4) + "'", at + length, file.size());
    }
    at += length;
  }
  return "";
}

// RFC 8794: a number says by its leading zeros how long it is. All ones: not known.
struct Element {
  u64 id = 0, length = 0, head = 0;
  bool known = false;
};

Element elementAt(FileBytes& file, u64 at) {
  const auto bytesOf = [&](u64 place) {
    const u64 first = file.one(place);
    std::size_t count = 1;
    while (count <= 8 && (first & (0x80U >> (count - 1))) == 0) ++count;
    return count;
  };
  Element element;
  const std::size_t idBytes = bytesOf(at);
  const std::size_t lengthBytes = bytesOf(at + idBytes);
  if (idBytes > 4 || lengthBytes > 8) return element;
  element.id = file.number(at, idBytes);
  const u64 mask = (u64{1} << (7 * lengthBytes)) - 1;
  element.length = file.number(at + idBytes, lengthBytes) & mask;
  element.known = element.length != mask;
  element.head = idBytes + lengthBytes;
  return element;
}

std::string inMatroska(FileBytes& file) {
  constexpr u64 segment = 0x18538067;
  constexpr u64 cluster = 0x1F43B675;
  for (u64 at = 0; at < file.size();) {
    const Element element = elementAt(file, at);
    if (element.head == 0) return "";
    const u64 from = at + element.head;
    if (!element.known) {
      if (element.id != segment && element.id != cluster) return "";
      at = from;  // what is in it says its length
      continue;
    }
    if (from > file.size() || element.length > file.size() - from) {
      const std::string name = element.id == segment   ? "its segment"
                               : element.id == cluster ? "its last cluster"
                                                       : "its last element";
      return beyond(name, from + element.length, file.size());
    }
    at = from + element.length;
  }
  return "";
}

std::string inAvi(FileBytes& file) {
  file.big = false;
  for (u64 at = 0; at + 8 <= file.size();) {
    if (file.text(at, 4) != "RIFF") return "";
    const u64 length = file.four(at + 4);
    if (length == 0) return "";
    if (length > file.size() - at - 8) {
      return beyond("its list of chunks", at + 8 + length, file.size());
    }
    at += 8 + length + length % 2;
  }
  return "";
}

// RFC 3533: the last page of a stream says so.
std::string inOgg(FileBytes& file) {
  constexpr u64 longestPage = 27 + 255 + 255 * 255;
  constexpr unsigned char endsStream = 4;
  const u64 start = file.size() - std::min(file.size(), longestPage);
  const std::string tail = file.text(start, static_cast<std::size_t>(longestPage));
  const std::size_t at = tail.rfind("OggS");
  if (at == std::string::npos || at + 27 > tail.size()) return "its last page is not whole";
  const auto byte = [&](std::size_t i) {
    return i < tail.size() ? std::size_t{static_cast<unsigned char>(tail[i])} : 0;
  };
  std::size_t length = 27 + byte(at + 26);
  for (std::size_t i = 0; i < byte(at + 26); ++i) length += byte(at + 27 + i);
  if (at + length > tail.size()) return beyond("its last page", start + at + length, file.size());
  return (byte(at + 5) & endsStream) != 0 ? "" : "its last page is not marked as the end";
}

std::string inTransportStream(FileBytes& file) {
  constexpr char mark = 0x47;
  const std::string start = file.text(0, 1024);
  for (const auto& [packet, place] : {std::pair<u64, u64>{188, 0}, {192, 4}, {204, 0}}) {
    bool fits = start.size() > 3 * packet;
    for (u64 i = 0; i < 3 && fits; ++i) fits = start[place + i * packet] == mark;
    if (!fits) continue;
    if (file.size() % packet == 0) return "";
    return beyond("its last packet", (file.size() / packet + 1) * packet, file.size());
  }
  return "";
}

// Behind every tag stands how long it was.
std::string inFlashVideo(FileBytes& file) {
  const u64 last = file.size() < 4 ? 0 : file.four(file.size() - 4);
  const bool whole = file.size() > 13 && last >= 11 && last + 4 <= file.size() - 9 &&
                     file.number(file.size() - 4 - last + 1, 3) + 11 == last;
  return whole ? "" : "its last tag is not whole";
}

// SMPTE ST 377-1: keys of 16 bytes, lengths by BER.
std::string inMxf(FileBytes& file) {
  constexpr std::string_view prefix("\x06\x0E\x2B\x34", 4);
  for (u64 at = 0; at + 17 <= file.size();) {
    if (file.text(at, 4) != prefix) return "";
    u64 length = file.one(at + 16);
    u64 head = 17;
    if (length > 0x80 && length <= 0x88) {
      const u64 count = length - 0x80;
      length = file.number(at + 17, static_cast<std::size_t>(count));
      head += count;
    }
    if (at + head > file.size() || length > file.size() - at - head) {
      return beyond("its last element", at + head + length, file.size());
    }
    at += head + length;
  }
  return "";
}

// The object of the file's properties, which counts its bytes unless it was a broadcast.
std::string inAsf(FileBytes& file) {
  constexpr std::string_view properties(
      "\xA1\xDC\xAB\x8C\x47\xA9\xCF\x11\x8E\xE4\0\xC0\x0C\x20\x53\x65", 16);
  file.big = false;
  const std::size_t at = file.text(0, 65536).find(properties);
  if (at == std::string::npos || (file.four(at + 88) & 1) != 0) return "";
  const u64 end = file.number(at + 40, 8);
  return end > file.size() ? beyond("it", end, file.size()) : "";
}

// A header that says its length, then frames of 12 bytes that say theirs and the data.
std::string inIvf(FileBytes& file) {
  file.big = false;
  u64 at = file.two(6);
  while (at < file.size()) at += 12 + file.four(at);
  return at > file.size() ? beyond("its last frame", at, file.size()) : "";
}

}  // namespace

std::string cutOffIn(const std::string& path, std::string_view demuxer, std::int64_t lastByte) {
  FileBytes file(path);
  if (demuxer.starts_with("mov,")) return inQuickTime(file);
  if (demuxer.starts_with("matroska")) return inMatroska(file);
  if (demuxer == "avi") return inAvi(file);
  if (demuxer == "ogg") return inOgg(file);
  if (demuxer == "mpegts") return inTransportStream(file);
  if (demuxer == "flv") return inFlashVideo(file);
  if (demuxer == "mxf") return inMxf(file);
  if (demuxer == "asf") return inAsf(file);
  if (demuxer == "ivf") return inIvf(file);
  if (demuxer == "yuv4mpegpipe" && lastByte > 0 && static_cast<u64>(lastByte) < file.size()) {
    return "what follows byte " + std::to_string(lastByte) + " is no whole frame";
  }
  return "";
}

}  // namespace orvanite::media
