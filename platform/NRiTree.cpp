// SPDX-License-Identifier: BSD-3-Clause
//
// Where plugs and names meet the tree of nodes: what a plug asks of the node that it belongs to,
// and what a name in an expression means. Plugs and scopes themselves know of no node.
#include "platform/NRiExpression.h"
#include "platform/NRiNode.h"
#include "platform/NRiScope.h"

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
  if (!found && node.empty() && plug.view() == "t") {
    found = NRiNode::getRoot()->getPlug(NRiName("time"));
  }
  return found && found->type() != nriImage && found->type() != nriPointer ? found : nullptr;
}

void NRiPlug::tellOwner() {
  if (owner_) owner_->notify(this);
}

void NRiPlug::askOwner() {
  if (owner_) owner_->eval(this);
}

std::string NRiPlug::fullName() const {
  std::string name(name_.view());
  if (parent_) name = std::string(parent_->name_.view()) + "." + name;
  if (owner_ && owner_ != NRiNode::getRoot()) {
    name = std::string(owner_->label().view()) + "." + name;
  }
  return name;
}

bool NRiPlug::resolve(std::size_t i) {
  if (targets_[i]) return true;
  const auto& reference = expression_->references()[i];
  NRiPlug* const target = NRiScope::findPlug(owner_, reference.node, reference.plug);
  if (!target) return false;
  target->dependents_.push_back(this);
  targets_[i] = target;
  return true;
}

bool NRiPlug::isName(const NRiExpression& expression) const {
  if (expression.references().size() != 1) return false;
  const auto& to = expression.references()[0];
  if (to.length != expression.text().size()) return false;
  const NRiPlug* const target = NRiScope::findPlug(owner_, to.node, to.plug);
  return target && target != this && target->name() == to.plug;
}

void NRiPlug::checkReferences() {
  for (std::size_t i = 0; i < targets_.size(); ++i) {
    if (resolve(i)) continue;
    const auto& reference = expression_->references()[i];
    throw NRiError(expression_->positionOf(reference),
                   "'" + expression_->shown(reference) + "' in '" + fullName() +
                       "' refers to nothing: expected the name of a plug");
  }
}
