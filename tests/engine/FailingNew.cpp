// SPDX-License-Identifier: BSD-3-Clause
#include "tests/engine/FailingNew.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace failingNew {

int allocationsLeft = unlimited;
int refusals = 0;

}  // namespace failingNew

namespace {

// Whatever the machine would give: a request of this size is a test's, and must not be filled.
constexpr std::size_t hugeBytes = std::size_t{1} << 30;

void* allocate(std::size_t size) noexcept {
  using namespace failingNew;
  if (size > hugeBytes || allocationsLeft == 0) {
    ++refusals;
    return nullptr;
  }
  if (allocationsLeft > 0) --allocationsLeft;
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* memory = allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
