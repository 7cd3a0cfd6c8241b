// SPDX-License-Identifier: BSD-3-Clause
//
// The global scope.
#include "platform/NRiScope.h"

#include "platform/NRiNode.h"

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

NRiIPlug* NRiScope::image(const NRiName& name) const {
  const auto found = images_.find(name);
  return found == images_.end() ? nullptr : found->second;
}

void NRiScope::forget(const NRiNode* node) {
  std::erase_if(images_, [node](const auto& entry) { return entry.second->owner() == node; });
}

NRiNode* NRiScope::findNode(const NRiName& name) {
  if (name.view() == "script") return NRiNode::getRoot();
  if (NRiIPlug* const image = getGlobal()->image(name)) return image->owner();
  return NRiNode::getRoot()->child(name);
}

NRiPlug* NRiScope::findPlug(const NRiNode* from, const NRiName& node, const NRiName& plug) {
  const NRiNode* const owner = node.empty() ? from : findNode(node);
  NRiPlug* found = owner ? owner->getPlug(plug) : nullptr;
  if (!found && node.empty()) found = NRiNode::getRoot()->getPlug(plug);
  return found && found->type() != nriImage && found->type() != nriPointer ? found : nullptr;
}
