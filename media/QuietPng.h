// SPDX-License-Identifier: BSD-3-Clause
//
// Keeps libpng from printing: what went wrong with a file is said once, by whoever reads it.
#pragma once

namespace orvanite::media {

/// Makes sure that the program carries the quiet form of libpng's error handling. Does nothing
/// else.
void quietPng();

}  // namespace orvanite::media
