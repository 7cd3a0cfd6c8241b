// SPDX-License-Identifier: BSD-3-Clause
//
// Masks kept in a file of their own beside the preset: a preset is for any plate, masks lie over
// one.
#pragma once

#include <string>

#include "keyer/MaskShape.h"

namespace orvanite {

/// The text of masks: a line for each key.
std::string masksText(const Masks& masks);

/// Masks from a text. Throws Error (failure) about `subject`, a file's name: text that holds no
/// masks, one of a later version, and a member that is missing, unknown or out of bounds, named by
/// its place ("shapes[2].keys[0].radii").
Masks masksFromText(const std::string& text, const std::string& subject);

/// The same from a file. Throws Error (noSuchFile) as well, when it cannot be read.
Masks masksFromFile(const std::string& path);

}  // namespace orvanite
