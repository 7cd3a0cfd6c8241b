// SPDX-License-Identifier: BSD-3-Clause
//
// Memory for pictures that come and go while a plate is looked at: what one leaves the next takes,
// instead of pages that the system has to clear first.
#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace orvanite {

/// While one lives, large blocks that its thread gives back are kept for the thread's next of the
/// same size; when it ends they go. Of several the outermost counts.
class Recycling {
 public:
  Recycling();
  ~Recycling();
  Recycling(const Recycling&) = delete;
  Recycling& operator=(const Recycling&) = delete;

  /// Memory as operator new gives it; may throw std::bad_alloc.
  static void* take(std::size_t bytes);
  /// Takes back what take gave, on any thread.
  static void give(void* block, std::size_t bytes) noexcept;

 private:
  struct Block {
    void* at;
    std::size_t bytes;
  };
  std::array<Block, 48> idle_{};
  std::size_t count_ = 0;
  bool outermost_;
};

/// An allocator of such memory, as std::vector asks for one. Values that nobody gives are left as
/// they come.
template <class T>
struct Recycled {
  using value_type = T;  ///< of the values in it

  Recycled() = default;
  /// They are all alike.
  template <class U>
  Recycled(const Recycled<U>&) {}

  /// Room for n values. Throws std::bad_alloc.
  T* allocate(std::size_t n) {
    if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_array_new_length();
    return static_cast<T*>(Recycling::take(n * sizeof(T)));
  }
  /// Gives it back.
  void deallocate(T* block, std::size_t n) noexcept { Recycling::give(block, n * sizeof(T)); }
  /// Makes a value, of what is given for it.
  template <class U, class... Given>
  void construct(U* at, Given&&... given) {
    if constexpr (sizeof...(Given) == 0) {
      ::new (static_cast<void*>(at)) U;
    } else {
      std::construct_at(at, std::forward<Given>(given)...);
    }
  }
  /// What one has taken any other may give back.
  template <class U>
  bool operator==(const Recycled<U>&) const {
    return true;
  }
};

}  // namespace orvanite
