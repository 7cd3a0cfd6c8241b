// SPDX-License-Identifier: BSD-3-Clause
//
// The registry of node classes.
#include "platform/NRiClassName.h"

#include <unordered_map>

namespace {
auto& classes() {
  static auto& known = *new std::unordered_map<NRiName, NRiName, NRiNameHash>;
  return known;
}
}  // namespace

NRiName NRiClassName::registerClassName(const NRiName& name, const NRiName& base) {
  classes()[name] = base;
  return name;
}

void NRiClassName::unregisterClassName(const NRiName& name) { classes().erase(name); }

NRiName NRiClassName::baseOf(const NRiName& name) {
  const auto found = classes().find(name);
  return found == classes().end() ? NRiName() : found->second;
}

std::vector<NRiName> NRiClassName::all() {
  std::vector<NRiName> names;
  for (const auto& [name, base] : classes()) names.push_back(name);
  return names;
}
