// SPDX-License-Identifier: BSD-3-Clause
//
// Frame numbers as people and farm managers write them: 1001-1100, 0001-0100, 1,5,9-12; every
// second one as 1-100x2 or 1-100:2, all but those as 1-100y2; backwards as 10-1, 10-1x2 or 10-1x-2;
// to the shot's end as 1001-. Uses the standard library only.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvanite::media {

/// The frames of a range, in the order given, each once. Frames are -99999999..99999999, a range
/// has at most a million. Throws Error (wrongUse) about `subject`. shotLast  where a range without
/// an end stops ("1001-"); none: it must have one
std::vector<int> parseFrames(std::string_view text, const std::string& subject,
                             std::optional<int> shotLast = std::nullopt);

/// The shortest way to write ascending frames: "1-4,6-10".
std::string formatFrames(const std::vector<int>& frames);

}  // namespace orvanite::media
