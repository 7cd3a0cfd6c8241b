// SPDX-License-Identifier: BSD-3-Clause
//
// Whether a JPEG file is all there: its decoder paints what is missing grey and calls that success.
#pragma once

#include <string>

namespace orvanite::media {

/// False when a JPEG file stops before its end marker. True for anything that is no JPEG file.
bool jpegIsWhole(const std::string& path);

}  // namespace orvanite::media
