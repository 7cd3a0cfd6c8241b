// SPDX-License-Identifier: BSD-3-Clause
//
// Numbered files: plate.%04d.exr and plate.####.exr with a frame put in.
#pragma once

#include <string>
#include <string_view>

#include "platform/NRiExport.h"

/// The path of a frame: %d, %4d, %04d (up to 9 digits) and each run of '#' become the number, with
/// at least that many digits. A path without them is the same for every frame.
NRI_API std::string NRiFramePath(std::string_view path, int frame);

/// Whether the path differs from frame to frame.
NRI_API bool NRiIsSequence(std::string_view path);
