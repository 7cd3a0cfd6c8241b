// SPDX-License-Identifier: BSD-3-Clause
//
// The global scope.
#include "platform/NRiScope.h"

#include <algorithm>

NRiDeclaration::~NRiDeclaration() {
  for (const NRiName& name : functions) NRiScope::getGlobal()->undeclare(name);
}

NRiScope* NRiScope::getGlobal() {
  static NRiScope* const scope = new NRiScope;
  return scope;
}

NRiFunction* NRiScope::function(const NRiName& name) {
  const auto found = functions_.find(name);
  return found == functions_.end() ? nullptr : &found->second;
}

bool NRiScope::declare(const NRiFunction& function, bool& fresh) {
  const auto [place, made] = functions_.emplace(function.name, function);
  fresh = made;
  return made || place->second.parameters == function.parameters;
}

std::vector<const NRiFunction*> NRiScope::functions() const {
  std::vector<const NRiFunction*> all;
  for (const auto& [name, function] : functions_) all.push_back(&function);
  std::sort(all.begin(), all.end(), [](const NRiFunction* a, const NRiFunction* b) {
    return a->name.view() < b->name.view();
  });
  return all;
}

NRiIPlug* NRiScope::image(const NRiName& name) const {
  const auto found = images_.find(name);
  return found == images_.end() ? nullptr : found->second;
}
