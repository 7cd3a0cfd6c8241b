// SPDX-License-Identifier: BSD-3-Clause
//
// Writing scripts.
#include "platform/NRiFile.h"

#include <fmt/format.h>

#include <cmath>

#include "base/ScriptText.h"
#include "platform/NRiExpression.h"
#include "platform/NRiLexer.h"
#include "platform/NRiNode.h"

namespace {

// The value alone; zero when it cannot be had.
std::string valueOf(NRiPlug& plug) {
  NRiOperand value;
  try {
    value = plug.operand();
  } catch (const NRiError&) {
    return plug.type() == nriString ? "\"\"" : "0";
  }
  if (value.isText) return orvanite::inQuotes(value.text.view());
  if (plug.type() == nriInt) return fmt::format("{}", plug.asInt());
  const float number = plug.asFloat();
  return std::isfinite(number) ? fmt::format("{}", number) : "0";
}

}  // namespace

// The value or the expression, under the names that other nodes have in the text.
std::string NRiFile::textOf(NRiPlug& plug) const {
  const NRiExpression* const expression = plug.expression();
  if (!expression) return valueOf(plug);
  const std::vector<NRiPlug*>& targets = plug.targets();
  std::string text;
  std::size_t from = 0;
  for (std::size_t i = 0; i < targets.size(); ++i) {
    const auto& reference = expression->references()[i];
    text.append(expression->text(), from, reference.offset - from);
    from = reference.offset + reference.length;
    const NRiPlug* const target = targets[i];
    if (!target) {
      text.append(expression->text(), reference.offset, reference.length);
    } else if (target->owner() == plug.owner() ||
               (target->owner() == NRiNode::getRoot() && reference.node.empty())) {
      text += target->name().view();
    } else if (target->owner() == NRiNode::getRoot()) {
      text += "script." + std::string(target->name().view());
    } else {
      text += nameOf(*target->owner()) + "." + std::string(target->name().view());
    }
  }
  return NRiOnOneLine(text.append(expression->text(), from));
}

std::string NRiFile::nameOf(const NRiNode& node) const {
  const auto found = names_.find(&node);
  return found != names_.end() ? found->second : std::string(node.name().view());
}

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
  if (!mustWait(plug)) return textOf(plug);
  waiting_ +=
      nameOf(*plug.owner()) + "." + std::string(plug.name().view()) + " = " + textOf(plug) + ";\n";
  return valueOf(plug);
}

void NRiFile::assign(const std::string& target, NRiPlug& plug) {
  if (!mustWait(plug)) {
    text_ += target + " = " + textOf(plug) + ";\n";
    return;
  }
  text_ += target + " = " + valueOf(plug) + ";\n";
  waiting_ += target + " = " + textOf(plug) + ";\n";
}

void NRiFile::call(const std::string& name, const NRiName& function,
                   const std::vector<std::string>& arguments) {
  constexpr std::size_t longestLine = 100;
  std::string line = name + " = " + std::string(function.view()) + "(";
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
