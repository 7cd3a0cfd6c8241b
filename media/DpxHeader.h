// SPDX-License-Identifier: BSD-3-Clause
//
// Whether a DPX file can hold what its header promises: its reader takes memory for all of the user
// data before it finds that they are not there.
#pragma once

#include <string>

namespace orvanite::media {

/// False when the header of a DPX file promises more user data than the file has bytes. True for
/// anything that is no DPX file.
bool dpxHoldsItsUserData(const std::string& path);

}  // namespace orvanite::media
