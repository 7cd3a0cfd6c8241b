// SPDX-License-Identifier: BSD-3-Clause
//
// The errors of files as the platform's.
#pragma once

#include "base/Error.h"
#include "platform/NRiError.h"

/// Runs what may throw the error of files, and throws NRiError in its place.
template <class Action>
auto translated(const Action& action) {
  try {
    return action();
  } catch (const orvanite::Error& error) {
    throw NRiError(error.what());
  }
}
