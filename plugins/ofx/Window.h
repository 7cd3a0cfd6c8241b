// SPDX-License-Identifier: BSD-3-Clause
//
// Keying a window of host pictures: any bounds, any row bytes, one, three or four channels.
// Knows the engine's flat interface; nothing of the host, so that it can be called from any thread
// the host lends.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "base/Depth.h"
#include "engine/orvanite.h"
#include "keyer/Keyer.h"
#include "keyer/Mattes.h"
#include "keyer/Samples.h"
#include "plugins/ofx/OfxApi.h"

namespace orvanite::ofxPlugin {

/// One picture as a host handed it over. Row y starts at data + (y - bounds.y1) * rowBytes.
struct Picture {
  std::byte* data = nullptr;
  ofx::RectI bounds{};
  std::ptrdiff_t rowBytes = 0;  // of any sign, and of any size
  int channels = 4;             // 4 r g b a, 3 r g b, 1 alpha
  Sample sample = Sample::byte;
};

/// Everything that a window's lines need. Read-only while they are keyed.
struct WindowJob {
  QMXOrvaniteTable* engine = nullptr;
  Depth depth = Depth::bytes;  // what is keyed, whatever the pictures' samples are
  ofx::RectI window{};         // inside dst
  int firstLine = 0;           // y of line 0: window.y1, or the first line of the field
  int lineStride = 1;          // 2 where a single field is rendered into a full frame
  int lines = 0;

  Picture dst;                  // 3 or 4 channels
  std::optional<Picture> fg;    // 3 or 4; outside it lies `screen`
  std::optional<Picture> bg;    // 3 (opaque) or 4; outside it lies transparent black
  std::optional<Picture> hold;  // outside it lies 0, as with the next
  std::optional<Picture> garbage;
  std::optional<Picture> reference;  // outside it lies `screen`
  bool background = false;  // whether the view shows the background, even where `bg` is absent
  // A one-channel matte has one choice. Not automatic: that is decided for the whole picture.
  MatteChannel holdChannel = MatteChannel::alpha;
  MatteChannel garbageChannel = MatteChannel::alpha;
  SourceAlpha sourceAlpha = SourceAlpha::ignore;  // otherwise the plate has four channels
  bool sourceColours = false;     // the plate's own colours instead of the keyed ones
  std::array<float, 3> screen{};  // in 0..1 codes
};

/// One thread's room for staged bands, kept from band to band: a piece for each picture of a tile,
/// two for mattes that are made, one for rows that change their kind of samples.
using Staging = std::array<std::vector<std::byte>, 9>;

/// Lines that are staged at once at the most: they stay in the cache.
inline constexpr int stagedLines = 32;

/// Keys lines first to first + count - 1 of the job: as one tile where every picture lies as the
/// engine reads it, which is fastest.
///
/// staging  the calling thread's own, grown as needed and reusable
/// Returns orvanite_render's result: 0, or 1 when the engine refused. Throws std::bad_alloc.
/// Writes the window's pixels of those lines and nothing else. Any thread.
int keyLines(const WindowJob& job, int first, int count, Staging& staging);

/// Keys the job's window as a part of one frame, for what looks at more than a pixel.
///
/// area    the frame: holds the window
/// render  keys a frame in place of the job's engine: its pictures cover the area, first row on
///         top, at the job's depth; what it throws is thrown
/// Writes what keyLines writes. Throws std::bad_alloc.
void keyPart(const WindowJob& job, const ofx::RectI& area,
             const std::function<void(const Frame&)>& render);

/// Copies the foreground's pixels instead: what a key that cannot be built shows. Alpha comes
/// along where there is one and is full where there is none; outside lies transparent black.
/// The job's depth is one that its samples go to and come back from unchanged.
void copyLines(const WindowJob& job, int first, int count, Staging& staging);

/// The lines of a window to render: all, or those of one field. `lowerField` is about y = 0, 2, 4.
struct LineSet {
  int first, stride, count;
};
LineSet linesOf(const ofx::RectI& window, bool fieldOnly, bool lowerField);

/// Whether the alpha of a picture of four channels is 1.0 or more everywhere.
bool isOpaque(const Picture& picture);

/// A rectangle and as much as `border` around it, as far as the whole goes.
ofx::RectI grown(const ofx::RectI& window, int border, const ofx::RectI& whole);

/// The overlap of two rectangles; empty ones have x2 <= x1 or y2 <= y1.
ofx::RectI overlap(const ofx::RectI& a, const ofx::RectI& b);
inline bool isEmpty(const ofx::RectI& r) { return r.x2 <= r.x1 || r.y2 <= r.y1; }

}  // namespace orvanite::ofxPlugin
