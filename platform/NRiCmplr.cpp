// SPDX-License-Identifier: BSD-3-Clause
//
// Running a script that has been read.
#include "platform/NRiCmplr.h"

#include <algorithm>
#include <set>

#include "platform/NRiCall.h"
#include "platform/NRiExpression.h"
#include "platform/NRiNode.h"
#include "platform/NRiOrigin.h"
#include "platform/NRiParser.h"
#include "platform/NRiPlugins.h"

const NRiType NRiType::null{nriNull};

NRiCmplr::NRiCmplr() = default;
NRiCmplr::~NRiCmplr() = default;

class NRiCmplr::Runner {
 public:
  Runner(NRiScope& scope, NRiValue& result, std::vector<std::string>& errors)
      : scope_(scope), result_(result), errors_(errors) {
    for (const NRiNode* const node : root_.children()) nodes_.insert(node);
    for (const NRiPlug* const plug : root_.getPublicPlugs()) plugs_.insert(plug);
  }

  void run(const std::vector<NRiStatement>& statements) {
    for (const NRiStatement& one : statements) {
      try {
        run(one);
      } catch (const NRiError& error) {
        errors_.emplace_back(error.what());
        if (one.kind != NRiStatement::kCall) broken_.insert(one.target.identity());
      } catch (const Broken&) {
        if (one.kind != NRiStatement::kCall) broken_.insert(one.target.identity());
      }
      if (errors_.size() >= NRiParser::mostErrors) break;
    }
  }

  // Removes the nodes and variables made since.
  void undo() {
    while (!root_.children().empty() && !nodes_.count(root_.children().back())) {
      delete root_.children().back();
    }
    for (const NRiPlug* const plug : root_.getPublicPlugs()) {
      if (!plugs_.count(plug)) root_.deletePlug(plug);
    }
  }

 private:
  struct Broken {};  // a statement that uses what an earlier one failed to make

  void run(const NRiStatement& one) {
    switch (one.kind) {
      case NRiStatement::kCall:
        result_ = ofImage(call(*one.call));
        break;
      case NRiStatement::kImage: {
        NRiIPlug* const image = call(*one.call, one.target);
        scope_.setImage(one.target, image);
        result_ = ofImage(image);
        break;
      }
      case NRiStatement::kAlias: {
        NRiIPlug* const image = variable(one.source);
        scope_.setImage(one.target, image);
        result_ = ofImage(image);
        break;
      }
      case NRiStatement::kValue:
        value(one);
        break;
      case NRiStatement::kPlug:
        plug(one);
        break;
    }
  }

  static NRiValue ofImage(NRiIPlug* image) { return {nriImage, 0, {}, image}; }

  NRiIPlug* variable(const NRiName& name) {
    if (NRiIPlug* const image = scope_.image(name)) return image;
    throw Broken();
  }

  static NRiError unfit(const NRiStatement& one, NRiId type) {
    return {one.textPosition, "expected " + std::string(type == nriString ? "a text" : "a number") +
                                  " for '" + NRiPrintable(one.target.view()) + "', found '" +
                                  NRiPrintable(NRiOnOneLine(one.text)) + "'"};
  }

  NRiPlug& referred(const NRiExpression& expression, std::size_t i) {
    const auto& reference = expression.references()[i];
    if (NRiPlug* const plug = NRiScope::findPlug(&root_, reference.node, reference.plug)) {
      return *plug;
    }
    if (broken_.count(reference.plug.identity()) || broken_.count(reference.node.identity())) {
      throw Broken();
    }
    throw NRiError(expression.positionOf(reference),
                   "'" + expression.shown(reference) +
                       "' refers to nothing: expected the name of a plug or of a variable");
  }

  void value(const NRiStatement& one) {
    const NRiExpression expression(one.text, one.textPosition);
    NRiPlug* plug = root_.getPlug(one.target);
    NRiId type = one.type != nriNull ? one.type : plug ? plug->type() : nriNull;
    // What a live expression comes to changes with what it refers to. One of a declared type may
    // fail now, as it may later: else a saved script in which one fails could not be loaded.
    const bool mayFail = one.type != nriNull && !expression.references().empty();
    NRiOperand now;
    try {
      now = expression.run([&](std::size_t i) { return referred(expression, i).operand(); });
      if (type == nriNull) type = now.isText ? nriString : nriFloat;
      if ((type == nriString) != now.isText) throw unfit(one, type);
    } catch (const NRiError&) {
      if (!mayFail) throw;
      for (std::size_t i = 0; i < expression.references().size(); ++i) referred(expression, i);
      now = {};
    }
    if (plug && plug->type() != type) throw unfit(one, type);
    if (!plug) {
      plug = root_.addPlug(one.target, type, NRiPlug::kIn, nullptr, 0);
      // A node that happens to bear the name makes way.
      if (NRiNode* const node = root_.child(one.target)) node->setName(one.target);
    }
    set(*plug, one);
    result_ = {type, now.number, now.text, nullptr};
  }

  void plug(const NRiStatement& one) {
    if (broken_.count(one.node.identity())) throw Broken();
    const NRiNode* const node = NRiScope::findNode(one.node);
    NRiPlug* const plug = NRiScope::findPlug(node, one.node, one.target);
    if (!plug || plug->io() != NRiPlug::kIn || plug == root_.getPlug(NRiName("time"))) {
      throw NRiError(one.position, "expected a parameter of '" + NRiPrintable(one.node.view()) +
                                       "', found '" + NRiPrintable(one.target.view()) + "'");
    }
    set(*plug, one);
    result_ = {};
  }

  void set(NRiPlug& plug, const NRiStatement& one) {
    const NRiOrigin::Places places{{one.text.c_str(), one.textPosition}};
    const NRiOrigin origin(&places);
    plug.set(one.text.c_str());
    plug.checkReferences();
  }

  // `target`: the variable that the image is for, if it is for one.
  NRiIPlug* call(const NRiCallNode& node, const NRiName& target = {}) {
    const NRiFunction* const function = scope_.function(node.function);
    if (!function || !function->address) {
      throw NRiError(node.position, "'" + NRiPrintable(node.function.view()) +
                                        "' is declared, but no plug-in provides it");
    }
    NRiIPlug* images[NRiMostImages] = {};
    const char* texts[NRiMostTexts] = {};
    NRiOrigin::Places places;
    const auto count = static_cast<std::size_t>(function->images);
    for (std::size_t i = 0; i < node.arguments.size(); ++i) {
      const NRiArgument& one = node.arguments[i];
      if (i < count) {
        images[i] = one.call ? call(*one.call) : !one.image.empty() ? variable(one.image) : nullptr;
      } else {
        texts[i - count] = one.text.c_str();
        places.emplace_back(one.text.c_str(), one.position);
      }
    }
    const NRiOrigin origin(&places, target);
    NRiIPlug* const image = NRiCall(function->address, function->images,
                                    static_cast<int>(node.arguments.size() - count), images, texts);
    if (!image) {
      throw NRiError(node.position, "'" + NRiPrintable(node.function.view()) + "' made no image");
    }
    // A function that made several nodes gave the name to the first.
    if (!target.empty() && !(image->owner()->label() == target)) {
      image->owner()->setLabel(target);
    }
    for (NRiPlug* const plug : image->owner()->getPublicPlugs()) plug->checkReferences();
    return image;
  }

  NRiNode& root_ = *NRiNode::getRoot();
  NRiScope& scope_;
  NRiValue& result_;
  std::vector<std::string>& errors_;
  std::set<const NRiNode*> nodes_;
  std::set<const NRiPlug*> plugs_;
  std::set<const void*> broken_;
};

std::shared_ptr<NRiDeclaration> NRiCmplr::execute(NRiScope* scope, const NRiType& type,
                                                  NRiValue& result, const NRiName& text,
                                                  const NRiName& name) {
  errors_.clear();
  result = {};
  auto declaration = std::make_shared<NRiDeclaration>();
  const std::string file(name.view());
  NRiParser parser(*scope, *declaration, text.view(), file);
  const std::vector<NRiStatement> statements = parser.parse();
  errors_ = parser.errors();
  included_ = parser.included();
  if (errors_.empty()) {
    Runner runner(*scope, result, errors_);
    runner.run(statements);
    if (errors_.empty() && type.id() != nriNull && result.type != type.id()) {
      errors_.push_back(file + ": the script does not come to what is wanted of it");
    }
    if (!errors_.empty()) runner.undo();
  }
  NRiPlugins::noteDeclaration(*declaration, errors_);
  if (errors_.empty()) return declaration;
  result = {};
  return nullptr;
}
