// SPDX-License-Identifier: BSD-3-Clause
//
// What OBS is told of the filter, which is for sources whose frames come by themselves: cameras,
// capture cards, movies.
#pragma once

#include <obs-module.h>

namespace orvanite::obsPlugin {

/// The filter's entry, whose data is a Filter.
obs_source_info filterInfo();

}  // namespace orvanite::obsPlugin
