// SPDX-License-Identifier: BSD-3-Clause
//
// How scripts spell a text, for whoever writes one. Uses the standard library only.
#pragma once

#include <string>
#include <string_view>

namespace orvanite {

/// A text in quotes, as the scripts' lexer reads it back.
std::string inQuotes(std::string_view text);

}  // namespace orvanite
