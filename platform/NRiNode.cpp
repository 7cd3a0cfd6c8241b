// SPDX-License-Identifier: BSD-3-Clause
//
// The tree of nodes, and their plugs.
#include "platform/NRiNode.h"

#include <algorithm>
#include <cassert>
#include <string>

#include "platform/NRiOrigin.h"
#include "platform/NRiScope.h"

NRiNode::~NRiNode() {
  deleteChildren();
  if (parent_) parent_->removeChild(this);
  NRiScope::getGlobal()->forget(this);
  plugs_.clear();
}

NRiPlug* NRiNode::addPlug(const NRiName& name, NRiId type, NRiPlug::IO io,
                          [[maybe_unused]] NRiPlug* parent, [[maybe_unused]] int flags) {
  assert(!parent && !flags && !getPlug(name));
  plugs_.push_back(type == nriImage ? std::make_unique<NRiIPlug>(this, name, io)
                                    : std::make_unique<NRiPlug>(this, name, type, io, nullptr));
  return plugs_.back().get();
}

NRiPlug* NRiNode::getPlug(const NRiName& name) const {
  for (const auto& plug : plugs_) {
    if (plug->name() == name) return plug.get();
  }
  return nullptr;
}

void NRiNode::deletePlug(const NRiPlug* plug) {
  std::erase_if(plugs_, [plug](const auto& held) { return held.get() == plug; });
}

std::vector<NRiPlug*> NRiNode::getPublicPlugs() const {
  std::vector<NRiPlug*> found;
  for (const auto& plug : plugs_) {
    if (plug->io() == NRiPlug::kIn && plug->type() != nriImage) found.push_back(plug.get());
  }
  return found;
}

NRiNode* NRiNode::child(const NRiName& name) const {
  for (NRiNode* const node : children_) {
    if (node->name_ == name) return node;
  }
  return nullptr;
}

void NRiNode::setName(const NRiName& name) {
  NRiName wanted = name;
  for (int i = 2; parent_; ++i) {
    const NRiNode* const holder = parent_->child(wanted);
    if ((!holder || holder == this) && !parent_->getPlug(wanted)) break;
    wanted = NRiName::sprintf("%s_%d", name.getString(), i);
  }
  name_ = wanted;
}

void NRiNode::setLabel(const NRiName& variable) {
  setName(variable);
  label_ = variable;
}

void NRiNode::setParent(NRiNode* parent) {
  if (parent_) parent_->removeChild(this);
  if (parent) parent->addChild(this);
}

void NRiNode::addChild(NRiNode* child) {
  children_.push_back(child);
  child->parent_ = this;
  if (!child->name_.empty()) return child->setName(child->name_);
  if (const NRiName variable = NRiOrigin::takeVariable(); !variable.empty()) {
    return child->setLabel(variable);
  }
  for (int i = 1; child->name_.empty(); ++i) {
    const NRiName name = NRiName::sprintf("%s%d", child->getClassName().getString(), i);
    if (!this->child(name) && !getPlug(name)) child->name_ = name;
  }
}

void NRiNode::removeChild(NRiNode* child) {
  children_.erase(std::find(children_.begin(), children_.end(), child));
  child->parent_ = nullptr;
}

void NRiNode::deleteChildren() {
  while (!children_.empty()) delete children_.back();
}
