// SPDX-License-Identifier: BSD-3-Clause
//
// What a job that goes on finds of an earlier one.
#pragma once

#include <string>

#include "shot/Job.h"

namespace orvanite::shot {

/// What is wrong with a file that lies where a view's output would go, by its header: cut off, no
/// picture, of another size, without the alpha that it should have, or a movie of other than
/// `count` frames. Empty: it is as the job would make it, as far as can be told without its pixels.
std::string faultOfExisting(const Job& job, const ViewOutput& output, const std::string& path,
                            std::size_t count);

}  // namespace orvanite::shot
