// SPDX-License-Identifier: BSD-3-Clause
//
// OpenImageIO's error handlers note libpng's message and return; libpng then prints it to standard
// error as well, and jumps. This program's own png_set_error_fn, which the dynamic linker prefers
// to the library's, puts a handler in between that jumps at once.
#include "media/QuietPng.h"

#include <dlfcn.h>
#include <png.h>

#include <array>
#include <atomic>

namespace {

// OpenImageIO has one handler for reading and one for writing. The data passed to a handler fits
// that handler alone, so each has a stand-in of its own; further ones are left as they are.
std::array<std::atomic<png_error_ptr>, 2> handlers{};

template <std::size_t index>
void noteAndJump(png_structp png, png_const_charp message) {
  handlers[index].load()(png, message);
  png_longjmp(png, 1);
}

png_error_ptr standInFor(png_error_ptr handler) {
  constexpr std::array<png_error_ptr, 2> standIns{noteAndJump<0>, noteAndJump<1>};
  for (std::size_t i = 0; handler != nullptr && i < handlers.size(); ++i) {
    png_error_ptr known = nullptr;
    if (handlers[i].compare_exchange_strong(known, handler) || known == handler) return standIns[i];
  }
  return handler;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void png_set_error_fn(png_structrp png,
                                                                        png_voidp data,
                                                                        png_error_ptr error,
                                                                        png_error_ptr warning) {
  using Set = void (*)(png_structrp, png_voidp, png_error_ptr, png_error_ptr);
  static const auto set = reinterpret_cast<Set>(::dlsym(RTLD_NEXT, "png_set_error_fn"));
  if (set != nullptr) set(png, data, standInFor(error), warning);
}

namespace orvanite::media {

void quietPng() {}

}  // namespace orvanite::media
