// SPDX-License-Identifier: BSD-3-Clause
//
// Other programs, started with a clean slate: no signal blocked, none of this process's files open.
// Uses POSIX and the C library only.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace orvanite::view {

/// What a line begins with in which the command complains.
inline constexpr std::string_view complaintStart = "orvanite: ";

/// Starts a program and returns its process, which the caller has to wait for; -1: it cannot be
/// started. The arguments follow the program's name.
///
/// output  the descriptor that what it says goes to; -1: to where this process's goes
pid_t startChild(const std::string& program, const std::vector<std::string>& arguments,
                 int output = -1);

/// Shows an address if the desktop can; who sees no page has its address.
void openInBrowser(const std::string& address);

}  // namespace orvanite::view
