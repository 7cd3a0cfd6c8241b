// SPDX-License-Identifier: BSD-3-Clause
//
// An allocation is ours when the code that asked for it is, whether directly or through the
// standard library's own compiled code: save for its directory_iterator, whose step to the next
// entry allocates in a function that may not throw (libstdc++ 12).
#include "tests/faults/FailingNew.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace orvanite::test {
namespace {

enum class Whose { ours, standardLibrary, others };

std::atomic<bool> armed{false}, failed{false};
std::atomic<long> left{0};
Failing mode = Failing::once;
// Looking at the stack allocates now and then.
thread_local bool looking = false;

Whose whose(void* address) {
  dl_find_object object{};
  if (::_dl_find_object(address, &object) != 0) return Whose::others;
  const char* const name = object.dlfo_link_map->l_name;
  if (*name == '\0' || std::strstr(name, "orvanite") != nullptr) return Whose::ours;
  return std::strstr(name, "libstdc++") != nullptr ? Whose::standardLibrary : Whose::others;
}

bool isOurs(void* caller) {
  Whose who = whose(caller);
  if (who != Whose::standardLibrary) return who == Whose::ours;
  std::array<void*, 24> stack;
  looking = true;
  const int depth = ::backtrace(stack.data(), static_cast<int>(stack.size()));
  looking = false;
  const auto* const end = stack.data() + depth;
  const auto* next = std::find(static_cast<void* const*>(stack.data()), end, caller);
  for (; who == Whose::standardLibrary && next != end; ++next) {
    Dl_info symbol{};
    const bool named = ::dladdr(*next, &symbol) != 0 && symbol.dli_sname != nullptr;
    if (named && std::strstr(symbol.dli_sname, "directory_iterator") != nullptr) return false;
    who = whose(*next);
  }
  return who == Whose::ours;
}

void* allocate(std::size_t size, std::size_t alignment, void* caller) {
  if (armed && !looking && isOurs(caller)) {
    const long before = left--;
    if (before == 0 || (before < 0 && mode == Failing::fromThenOn)) {
      failed = true;
      return nullptr;
    }
  }
  size = std::max<std::size_t>(size, 1);
  if (alignment == 0) return std::malloc(size);
  return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}

}  // namespace

void failAllocation(long number, Failing failing) {
  std::array<void*, 4> stack;
  ::backtrace(stack.data(), 4);  // loads what it needs
  mode = failing;
  left = number;
  failed = false;
  armed = true;
}

bool allocationFailed() { return failed; }

}  // namespace orvanite::test

namespace {

void* orThrow(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

#define CALLER __builtin_return_address(0)
using orvanite::test::allocate;

void* operator new(std::size_t size) { return orThrow(allocate(size, 0, CALLER)); }
void* operator new[](std::size_t size) { return orThrow(allocate(size, 0, CALLER)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, 0, CALLER);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, 0, CALLER);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return orThrow(allocate(size, static_cast<std::size_t>(alignment), CALLER));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return orThrow(allocate(size, static_cast<std::size_t>(alignment), CALLER));
}
