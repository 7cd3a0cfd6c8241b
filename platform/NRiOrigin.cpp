// SPDX-License-Identifier: BSD-3-Clause
//
// The calls that are running, the innermost first.
#include "platform/NRiOrigin.h"

namespace {
thread_local NRiOrigin* innermost = nullptr;
}

NRiOrigin::NRiOrigin(const Places* places, NRiName variable)
    : places_(places), variable_(std::move(variable)), outer_(std::exchange(innermost, this)) {}

NRiOrigin::~NRiOrigin() { innermost = outer_; }

NRiPosition NRiOrigin::of(const char* text) {
  if (!innermost) return {};
  for (const auto& [address, place] : *innermost->places_) {
    if (address == text) return place;
  }
  return {};
}

NRiName NRiOrigin::takeVariable() {
  return innermost ? std::exchange(innermost->variable_, NRiName()) : NRiName();
}
