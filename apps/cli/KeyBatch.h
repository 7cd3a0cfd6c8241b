// SPDX-License-Identifier: BSD-3-Clause
//
// Several plates by one command: each by its own screen, into one folder.
#pragma once

#include <functional>

#include "apps/cli/KeyOptions.h"

namespace orvanite::cli {

/// Keys the plates of the options, one after the other, by `keyPlate`, which takes the options of
/// one and returns its exit code. A plate that fails is said and the others go on; returns the
/// first code that is not success. Throws Error for options that do not go together, and those of a
/// plate alone.
int keyPlates(const KeyOptions& options, const std::function<int(KeyOptions&)>& keyPlate);

}  // namespace orvanite::cli
