// SPDX-License-Identifier: BSD-3-Clause
//
// The box over the picture in which the screen is measured: drawn by the host's drawing suite,
// moved inside and resized at its corners.
#pragma once

#include "plugins/ofx/OfxApi.h"

namespace orvanite::ofxPlugin {

/// The overlay's main entry, which a host finds in the effect's description.
ofx::Status overlayEntry(const char* action, const void* handle, ofx::PropertySet in,
                         ofx::PropertySet out);

}  // namespace orvanite::ofxPlugin
