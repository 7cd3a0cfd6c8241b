// SPDX-License-Identifier: BSD-3-Clause
//
// What OpenColorIO takes on trust in a configuration and would follow for ever. Belongs to
// ColourSpaces.
#pragma once

#include <OpenColorIO/OpenColorIO.h>

#include <string>

namespace orvanite::media {

/// Looks at all colour spaces, looks, view and named transforms of a configuration and at what they
/// name. Refuses one that leads back to itself (OpenColorIO's stack overflows), that takes more
/// than 32 names after one another or 10,000 transforms, and tables that are no files
/// (OpenColorIO would read a device, or wait at a pipe).
/// path  the configuration's, for the error
/// Throws Error (failure).
void checkColourSpaces(const OCIO_NAMESPACE::Config& config, const std::string& path);

}  // namespace orvanite::media
