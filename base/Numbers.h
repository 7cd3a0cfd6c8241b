// SPDX-License-Identifier: BSD-3-Clause
//
// Texts as numbers, whatever the user's language makes of points and commas.
#pragma once

#include <string_view>

namespace orvanite {

/// The whole of a text as the nearest number, as std::from_chars reads it: no blank, no plus, no
/// hexadecimal digits; "inf" and "nan" are read. False where it is none or too large or small;
/// nothing changes then.
bool readDouble(std::string_view text, double& value);

}  // namespace orvanite
