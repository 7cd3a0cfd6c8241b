// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/Recycled.h"

namespace orvanite {
namespace {

thread_local Recycling* current = nullptr;

// Smaller blocks stay with the allocator of the process anyway.
constexpr std::size_t large = 65536;  // bytes

}  // namespace

Recycling::Recycling() : outermost_(current == nullptr) {
  if (outermost_) current = this;
}

Recycling::~Recycling() {
  if (!outermost_) return;
  current = nullptr;
  for (std::size_t i = 0; i < count_; ++i) ::operator delete(idle_[i].at);
}

void* Recycling::take(std::size_t bytes) {
  if (current != nullptr && bytes >= large) {
    auto& idle = current->idle_;
    for (std::size_t i = current->count_; i-- > 0;) {
      if (idle[i].bytes != bytes) continue;
      void* const block = idle[i].at;
      idle[i] = idle[--current->count_];
      return block;
    }
  }
  return ::operator new(bytes);
}

void Recycling::give(void* block, std::size_t bytes) noexcept {
  if (current != nullptr && bytes >= large && current->count_ < current->idle_.size()) {
    current->idle_[current->count_++] = {block, bytes};
  } else {
    ::operator delete(block);
  }
}

}  // namespace orvanite
