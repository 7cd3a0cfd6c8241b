// SPDX-License-Identifier: BSD-3-Clause
//
// Which file a node reads or writes at a frame: paths count from the script's folder, and a frame's
// number stands where the command's own have it.
#pragma once

#include <string>

class NRiPlug;

/// The file that is read at a frame: of a folder or a name with a frame number the frame's own,
/// else the file itself, one that merely looks like a pattern included. Throws NRiError.
std::string NRiInputFile(NRiPlug& path, int frame);

/// The file that is written at a frame.
std::string NRiOutputFile(NRiPlug& path, int frame);
