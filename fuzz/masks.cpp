// SPDX-License-Identifier: BSD-3-Clause
//
// Reads bytes as a file of masks. What is accepted and saved reads as the same masks and the same
// text; at every frame and place a shape holds between nothing and all of a point.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/Error.h"
#include "keyer/MaskFile.h"

namespace {

void look(const orvanite::MaskShape& shape) {
  for (const double x : {-7.5, 0.5, 4.5, 3000.5}) {
    const double held = coverage(shape, x, 4.5);
    if (!(held >= 0 && held <= 1)) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  orvanite::Masks masks;
  try {
    masks = orvanite::masksFromText({reinterpret_cast<const char*>(data), size}, "fuzz");
  } catch (const orvanite::Error& error) {
    if (error.message().empty()) std::abort();
    return 0;
  }
  const std::string saved = masksText(masks);
  const orvanite::Masks again = orvanite::masksFromText(saved, "saved");
  if (again != masks || masksText(again) != saved) {
    std::fprintf(stderr, "saved:\n%s\nand then:\n%s\n", saved.c_str(), masksText(again).c_str());
    std::abort();
  }
  for (const int frame : {-1000000, 1, 2, 1000000}) {
    for (const orvanite::MovingMask& mask : masks) {
      look(mask.at(frame));
      look(shrunk(mask.at(frame), 4));
    }
  }
  return 0;
}
