// SPDX-License-Identifier: BSD-3-Clause
//
// The nodes that come with the application, declared to scripts like any other function:
//
//   FileIn(path, frame = time, ...)                 a picture, a sequence or a movie
//   FileOut(image, path, samples = "auto", ...)     writes a picture or a movie; passes it on
//   Constant(width, height, bytes, red, green, blue, alpha)   one colour everywhere
#pragma once

#include "platform/NRiExport.h"

class NRI_API NRiNodes {
 public:
  /// Declares the functions, registers the classes and opens the script. Calling it again changes
  /// nothing.
  static void declare();
};
