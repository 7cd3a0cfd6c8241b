// SPDX-License-Identifier: BSD-3-Clause
//
// Memory that runs out when a test says so: a binary that links FailingNew.cpp has its operator
// new replaced, for everything that the engine allocates.
#pragma once

namespace failingNew {

inline constexpr int unlimited = -1;

extern int allocationsLeft;  // until they fail; or unlimited
extern int refusals;         // counted, whether of these or of more than a gigabyte at once

}  // namespace failingNew
