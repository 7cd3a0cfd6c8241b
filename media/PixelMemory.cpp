// SPDX-License-Identifier: BSD-3-Clause
#include "media/PixelMemory.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <vector>

namespace orvanite::media {
namespace {

// Smaller blocks malloc keeps by itself.
constexpr std::size_t large = 2 << 20;

struct Block {
  std::byte* at;
  std::size_t bytes;
};

struct Idle {
  std::mutex lock;
  int keepers = 0;
  std::vector<Block> blocks;  // the oldest first
};

// Never destroyed: pictures may outlive what is static.
Idle& idle() {
  static auto* const made = new Idle;
  return *made;
}

}  // namespace

KeptPixels::KeptPixels() {
  const std::lock_guard guard(idle().lock);
  ++idle().keepers;
}

KeptPixels::~KeptPixels() {
  const std::lock_guard guard(idle().lock);
  if (--idle().keepers > 0) return;
  for (const Block& block : idle().blocks) delete[] block.at;
  idle().blocks = {};
}

Pixels takePixels(std::size_t bytes) {
  if (bytes >= large) {
    Idle& here = idle();
    const std::lock_guard guard(here.lock);
    const auto at = std::find_if(here.blocks.begin(), here.blocks.end(),
                                 [&](const Block& block) { return block.bytes == bytes; });
    if (at != here.blocks.end()) {
      std::byte* const found = at->at;
      here.blocks.erase(at);
      return {found, {bytes}};
    }
    // One of another size makes room, so that no size is kept that nobody asks for any more.
    if (!here.blocks.empty()) {
      delete[] here.blocks.front().at;
      here.blocks.erase(here.blocks.begin());
    }
  }
  return {new std::byte[bytes], {bytes}};
}

void LeavePixels::operator()(std::byte* pixels) const noexcept {
  if (pixels != nullptr && bytes >= large) {
    Idle& here = idle();
    const std::lock_guard guard(here.lock);
    try {
      if (here.keepers > 0) {
        here.blocks.push_back({pixels, bytes});
        return;
      }
    } catch (const std::bad_alloc&) {
      // Then it goes.
    }
  }
  delete[] pixels;
}

}  // namespace orvanite::media
