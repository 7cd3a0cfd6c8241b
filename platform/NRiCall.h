// SPDX-License-Identifier: BSD-3-Clause
//
// How a script calls a C++ function. A script function takes its images first, as NRiIPlug
// pointers, then one text for each other argument, and returns the new image:
//
//   extern "C" NRiIPlug* Name(NRiIPlug* image1, ..., const char* text1, ...);
//
// For every shape up to the bounds below the compiler makes one function that calls an address
// with exactly that type; a table holds them by number of images and of texts.
#pragma once

#include "platform/NRiExport.h"

class NRiIPlug;

constexpr int NRiMostImages = 4;
constexpr int NRiMostTexts = 40;

/// Calls the function at `address` with the first `images` of `image` and `texts` of `text`, which
/// are within the bounds. What the function throws passes on.
NRI_API NRiIPlug* NRiCall(void* address, int images, int texts, NRiIPlug* const* image,
                          const char* const* text);
