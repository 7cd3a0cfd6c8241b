// SPDX-License-Identifier: BSD-3-Clause
//
// The root of the tree, which is the script; how it and its nodes are written.
#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <unordered_map>

#include "platform/NRiFile.h"
#include "platform/NRiNode.h"

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

// Until when each node has to be known by its name: the place in the order of the last that uses
// it, or `end` for expressions that are written behind all calls.
std::unordered_map<const NRiNode*, std::size_t> usesOf(const NRiNode& root,
                                                       const std::vector<NRiNode*>& order) {
  const std::size_t end = order.size();
  std::unordered_map<const NRiNode*, std::size_t> places;
  for (std::size_t i = 0; i < end; ++i) places[order[i]] = i;
  std::unordered_map<const NRiNode*, std::size_t> uses;
  const auto note = [&](const NRiNode* node, std::size_t place) {
    uses[node] = std::max(uses[node], place);
  };
  const auto noteTargets = [&](const NRiNode* node, const NRiPlug& plug, std::size_t place) {
    bool waits = place == end;
    for (const NRiPlug* const target : plug.targets()) {
      const auto found = target ? places.find(target->owner()) : places.end();
      waits = waits || (found != places.end() && found->second > place);
    }
    if (waits) note(node, end);
    for (const NRiPlug* const target : plug.targets()) {
      if (target) note(target->owner(), waits ? end : place);
    }
  };
  for (const NRiPlug* const plug : root.getPublicPlugs()) noteTargets(&root, *plug, end);
  for (std::size_t i = 0; i < end; ++i) {
    for (int input = 0; input < order[i]->getNbInputs(); ++input) {
      const NRiIPlug* const source = order[i]->getInput(input)->imageSource();
      if (source) note(source->owner(), i);
    }
    for (const NRiPlug* const plug : order[i]->getPublicPlugs()) noteTargets(order[i], *plug, i);
  }
  return uses;
}

// Calls the nodes of the text what the script does. Several of one variable keep its name where
// none is used any more once the next has taken it; else all but the last get names of their own.
void nameNodes(const NRiNode& root, const std::vector<NRiNode*>& order, NRiFile& file) {
  auto uses = usesOf(root, order);
  std::map<std::string, std::vector<std::size_t>> bearers;
  std::set<std::string> taken;
  for (const NRiPlug* const plug : root.getPublicPlugs()) taken.emplace(plug->name().view());
  for (std::size_t i = 0; i < order.size(); ++i) {
    bearers[std::string(order[i]->label().view())].push_back(i);
  }
  for (const auto& [label, places] : bearers) taken.insert(label);
  for (const auto& [label, places] : bearers) {
    bool isClear = true;
    for (std::size_t i = 1; i < places.size(); ++i) {
      isClear = isClear && uses[order[places[i - 1]]] <= places[i];
    }
    for (std::size_t i = 0; i < places.size(); ++i) {
      std::string name = label;
      for (int n = 1; !isClear && i + 1 < places.size() && taken.count(name); ++n) {
        name = label + "_" + std::to_string(n);
      }
      taken.insert(name);
      file.setName(order[places[i]], name);
    }
  }
}

int Root::serialize(NRiFile& file, int flags) {
  const std::vector<NRiNode*> order = inOrder(*this);
  nameNodes(*this, order, file);
  for (NRiPlug* const plug : getPublicPlugs()) {
    if (plug->hasFlag(4)) continue;
    const std::string name(plug->name().view());
    if (name == "defaultBytes") {
      if (plug->expression() || plug->asInt() != 1) file.assign("script.defaultBytes", *plug);
    } else {
      const char* const type = plug->type() == nriString ? "string "
                               : plug->type() == nriInt  ? "int "
                                                         : "float ";
      file.assign(type + name, *plug);
    }
    file.markWritten(plug);
  }
  for (NRiNode* const child : order) child->serialize(file, flags);
  file.finish();
  return 0;
}

}  // namespace

NRiNode* NRiNode::getRoot() {
  static NRiNode* const root = new Root;
  return root;
}

int NRiNode::serialize(NRiFile& file, [[maybe_unused]] int flags) {
  std::vector<std::string> arguments;
  for (int i = 0; i < getNbInputs(); ++i) {
    const NRiIPlug* const source = getInput(i)->imageSource();
    arguments.emplace_back(source ? file.nameOf(*source->owner()) : "0");
  }
  for (NRiPlug* const plug : getPublicPlugs()) {
    if (!plug->hasFlag(4)) arguments.push_back(file.argument(*plug));
  }
  file.call(file.nameOf(*this), getClassName(), arguments);
  for (const auto& plug : plugs_) file.markWritten(plug.get());
  return 0;
}
