// SPDX-License-Identifier: BSD-3-Clause
//
// Writing scripts.
#include "platform/NRiFile.h"

#include "platform/NRiNode.h"

bool NRiFile::mustWait(const NRiPlug& plug) const {
  for (const NRiPlug* const target : plug.targets()) {
    if (!target || written_.count(target) || target->hasFlag(4)) continue;
    // A call's own arguments may refer to each other; a variable is its own first writing.
    if (target->owner() == plug.owner() && plug.owner() != NRiNode::getRoot()) continue;
    if (target->owner() == NRiNode::getRoot() && target->name().view() == "defaultBytes") continue;
    return true;
  }
  return false;
}

std::string NRiFile::argument(NRiPlug& plug) {
  if (!mustWait(plug)) return plug.scriptText();
  waiting_ += plug.fullName() + " = " + plug.scriptText() + ";\n";
  return plug.scriptValue();
}

void NRiFile::assign(const std::string& target, NRiPlug& plug) {
  if (!mustWait(plug)) {
    text_ += target + " = " + plug.scriptText() + ";\n";
    return;
  }
  text_ += target + " = " + plug.scriptValue() + ";\n";
  waiting_ += target + " = " + plug.scriptText() + ";\n";
}

void NRiFile::call(const NRiName& name, const NRiName& function,
                   const std::vector<std::string>& arguments) {
  constexpr std::size_t longestLine = 100;
  std::string line = std::string(name.view()) + " = " + std::string(function.view()) + "(";
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string piece = arguments[i] + (i + 1 < arguments.size() ? "," : "");
    if (i > 0 && line.size() + piece.size() + 3 > longestLine) {
      text_ += line + "\n";
      line = "    " + piece;
    } else {
      line += (i > 0 ? " " : "") + piece;
    }
  }
  text_ += line + ");\n";
}

void NRiFile::finish() {
  text_ += waiting_;
  waiting_.clear();
}
