// SPDX-License-Identifier: BSD-3-Clause
//
// Whether a movie's file ends before its container says: FFmpeg plays such files to where they end
// and says nothing. Read by ourselves, sizes of boxes only. Uses the standard library only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvanite::media {

/// What is cut off, for a person to read; empty where nothing is, as far as the container tells.
///
/// demuxer   FFmpeg's name of the container
/// lastByte  where the last packet ends that was read whole, for containers whose frames follow
///           each other without a table; 0: not known
std::string cutOffIn(const std::string& path, std::string_view demuxer, std::int64_t lastByte);

}  // namespace orvanite::media
