// SPDX-License-Identifier: BSD-3-Clause
//
// The node tree and the root.
#include "platform/NRiNode.h"

#include <algorithm>
#include <cassert>
#include <string>

#include "platform/NRiFile.h"
#include "platform/NRiScope.h"

namespace {

class Root final : public NRiNode {
 public:
  Root() {
    addPlug(NRiName("time"), nriFloat, NRiPlug::kIn, nullptr, 0)->set(1.0f);
    addPlug(NRiName("defaultBytes"), nriInt, NRiPlug::kIn, nullptr, 0)->set(1);
    getPlug(NRiName("time"))->setFlag(4, 1, 0);
  }
  const NRiName& getClassName() const override {
    static const NRiName name("script");
    return name;
  }
  NRiNode* create() const override { return nullptr; }
  int serialize(NRiFile& file, int flags) override;
};

// Children in an order in which every image comes before what reads it.
std::vector<NRiNode*> inOrder(const NRiNode& root) {
  std::vector<NRiNode*> order;
  std::vector<const NRiNode*> seen;
  struct Visit {
    NRiNode* node;
    int input;
  };
  const auto begin = [&](NRiNode* node, std::vector<Visit>& stack) {
    if (std::find(seen.begin(), seen.end(), node) != seen.end()) return;
    seen.push_back(node);
    stack.push_back({node, 0});
  };
  for (NRiNode* const child : root.children()) {
    std::vector<Visit> stack;
    begin(child, stack);
    while (!stack.empty()) {
      Visit& top = stack.back();
      if (top.input == top.node->getNbInputs()) {
        order.push_back(top.node);
        stack.pop_back();
        continue;
      }
      const NRiIPlug* const source = top.node->getInput(top.input++)->imageSource();
      if (source) begin(source->owner(), stack);
    }
  }
  return order;
}

int Root::serialize(NRiFile& file, int flags) {
  for (NRiPlug* const plug : getPublicPlugs()) {
    if (plug->hasFlag(4)) continue;
    const std::string name(plug->name().view());
    if (name == "defaultBytes") {
      if (plug->hasExpression() || plug->asInt() != 1) file.assign("script.defaultBytes", *plug);
    } else {
      const char* const type = plug->type() == nriString ? "string "
                               : plug->type() == nriInt  ? "int "
                                                         : "float ";
      file.assign(type + name, *plug);
    }
    file.markWritten(plug);
  }
  for (NRiNode* const child : inOrder(*this)) child->serialize(file, flags);
  file.finish();
  return 0;
}

}  // namespace

NRiNode::~NRiNode() {
  deleteChildren();
  if (parent_) parent_->removeChild(this);
  NRiScope::getGlobal()->forget(this);
  plugs_.clear();
}

NRiNode* NRiNode::getRoot() {
  static NRiNode* const root = new Root;
  return root;
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

void NRiNode::setParent(NRiNode* parent) {
  if (parent_) parent_->removeChild(this);
  if (parent) parent->addChild(this);
}

void NRiNode::addChild(NRiNode* child) {
  children_.push_back(child);
  child->parent_ = this;
  if (!child->name_.empty()) return child->setName(child->name_);
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

int NRiNode::serialize(NRiFile& file, [[maybe_unused]] int flags) {
  std::vector<std::string> arguments;
  for (int i = 0; i < getNbInputs(); ++i) {
    const NRiIPlug* const source = getInput(i)->imageSource();
    arguments.emplace_back(source ? std::string(source->owner()->name().view()) : "0");
  }
  for (NRiPlug* const plug : getPublicPlugs()) {
    if (!plug->hasFlag(4)) arguments.push_back(file.argument(*plug));
  }
  file.call(name_, getClassName(), arguments);
  for (const auto& plug : plugs_) file.markWritten(plug.get());
  return 0;
}
