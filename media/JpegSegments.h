// SPDX-License-Identifier: BSD-3-Clause
//
// Whether the segments of a JPEG file are all there and hold what they promise. Its decoder paints
// missing rows grey and calls that success; OpenImageIO reads metadata beyond their segment.
#pragma once

#include <string>

namespace orvanite::media {

/// What keeps a JPEG file from being read whole, as the rest of a sentence that names the file;
/// nullptr where nothing does, and for anything that is no JPEG file. `path` is opened and closed.
const char* jpegFault(const std::string& path);

}  // namespace orvanite::media
