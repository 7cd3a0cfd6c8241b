// SPDX-License-Identifier: BSD-3-Clause
//
// Memory for the pixels of pictures. A frame of a shot takes what an earlier one left: the system
// clears each page that it gives, which takes longer than keying what lies there.
#pragma once

#include <cstddef>
#include <memory>

namespace orvanite::media {

/// While one lives, in whatever thread, what pictures leave is kept for others of the same size;
/// when the last ends it is given back. There is never more of it than there was in pictures at
/// once.
class KeptPixels {
 public:
  /// From now on.
  KeptPixels();
  /// What was kept goes with the last.
  ~KeptPixels();
  KeptPixels(const KeptPixels&) = delete;
  KeptPixels& operator=(const KeptPixels&) = delete;
};

/// Gives pixels back.
struct LeavePixels {
  std::size_t bytes = 0;  ///< as they were taken
  /// Of whatever thread; nothing of null.
  void operator()(std::byte* pixels) const noexcept;
};

/// Bytes of a picture.
using Pixels = std::unique_ptr<std::byte[], LeavePixels>;

/// So many bytes, with whatever they hold. Throws std::bad_alloc.
Pixels takePixels(std::size_t bytes);

}  // namespace orvanite::media
