// SPDX-License-Identifier: BSD-3-Clause
//
// Expressions on plugs: arithmetic, comparison, `&&`, `||`, `!`, `?:`, numbers, texts, functions,
// and references to plugs, by name or as node.plug. Compiled to a short program for a stack
// machine, so that neither compiling nor running recurses beyond a fixed depth. Knows nothing of
// plugs: who runs one looks the references up.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/NRiError.h"
#include "platform/NRiExport.h"
#include "platform/NRiName.h"

/// What an expression comes to: a number, or a text.
struct NRiOperand {
  bool isText = false;
  double number = 0;
  NRiName text;
};

struct NRiMathFunction;

class NRI_API NRiExpression {
 public:
  struct Reference {
    NRiName node;  // empty for a plain name
    NRiName plug;
    std::size_t offset = 0;  // in the text
    std::size_t length = 0;
  };

  /// Compiles a text that stands at `position` of a script. Throws NRiError with the place of what
  /// is wrong; deeper than 64 levels or longer than 65536 characters is wrong.
  NRiExpression(std::string_view text, const NRiPosition& position);

  const std::string& text() const { return text_; }
  const std::vector<Reference>& references() const { return references_; }
  const NRiPosition& position() const { return position_; }
  /// Where a reference stands in the script.
  NRiPosition positionOf(const Reference& reference) const {
    return position_.after(text_, reference.offset);
  }
  /// A reference as a message names it.
  std::string shown(const Reference& reference) const;

  /// The value of an expression that is one number or one text, perhaps with a sign; or null.
  const NRiOperand* constant() const { return constant_ ? &value_ : nullptr; }

  /// Runs it; `look` gives the value of reference i. Throws NRiError that points at the operator
  /// when it divides by zero, mixes texts and numbers, or leaves the range of a float.
  NRiOperand run(const std::function<NRiOperand(std::size_t)>& look) const;

 private:
  enum class Op : unsigned char {
    kConstant,
    kReference,
    kCall,
    kNegate,
    kNot,
    kTruth,
    kAdd,
    kSubtract,
    kMultiply,
    kDivide,
    kLess,
    kGreater,
    kLessEqual,
    kGreaterEqual,
    kEqual,
    kUnequal,
    kJumpIfFalse,
    kJump,
    kDuplicate,
    kDrop
  };
  struct Step {
    Op op;
    std::size_t argument = 0;  // a constant, a reference, a call, a step to jump to
    std::size_t offset = 0;    // in the text, for messages
  };
  struct Call {
    const NRiMathFunction* function;
    std::size_t count;           // of arguments, all on the stack
    std::vector<double> frames;  // of a curve's keys, ascending; their values are the arguments
  };
  class Compiler;

  NRiError fault(const Step& step, const std::string& what) const;
  void binary(const Step& step, std::vector<NRiOperand>& stack) const;
  void call(const Step& step, std::vector<NRiOperand>& stack) const;

  std::string text_;
  NRiPosition position_;
  std::vector<Step> steps_;
  std::vector<NRiOperand> constants_;
  std::vector<Reference> references_;
  std::vector<Call> calls_;
  NRiOperand value_;
  bool constant_ = false;
};
