// SPDX-License-Identifier: BSD-3-Clause
//
// Between the program and the library that holds the whole command.
#pragma once

/// The library's one function: what the program's `main` is.
extern "C" [[gnu::visibility("default")]] int orvaniteCommand(int count, char** values);
