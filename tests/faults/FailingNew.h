// SPDX-License-Identifier: BSD-3-Clause
//
// Memory that runs out for our own code, and for nobody else: a binary that links FailingNew.cpp
// has its operator new replaced. Allocations that a library makes for itself never fail here, as
// several of those that read pictures and run tasks do not survive it.
#pragma once

namespace orvanite::test {

enum class Failing { once, fromThenOn };

/// From now on our allocation number `number`, from 0, fails, or all from it on.
void failAllocation(long number, Failing failing);

/// Whether one has failed since.
bool allocationFailed();

}  // namespace orvanite::test
