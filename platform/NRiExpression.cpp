// SPDX-License-Identifier: BSD-3-Clause
//
// Compiling and running expressions.
#include "platform/NRiExpression.h"

#include <cmath>

#include "platform/NRiLexer.h"
#include "platform/NRiMath.h"

namespace {
constexpr int deepest = 128;  // each pair of brackets takes two
constexpr std::size_t longest = 65536;
}  // namespace

class NRiExpression::Compiler {
 public:
  explicit Compiler(NRiExpression& out) : out_(out), lexer_(out.text_) { advance(); }

  void compile() {
    choice();
    if (token_.kind != NRiToken::kEnd) fail("the end of the expression");
    // A comment at the end would hide what is saved behind the expression.
    out_.text_.resize(last_);
  }

 private:
  NRiPosition here() const { return out_.position_.after(out_.text_, token_.offset); }

  [[noreturn]] void fail(const std::string& expected) const {
    throw NRiError(here(), (out_.position_.line > 0 ? std::string()
                                                    : "in '" + NRiPrintable(out_.text_) + "': ") +
                               "expected " + expected + ", found " + token_.described());
  }

  void advance() {
    last_ = token_.end();
    token_ = lexer_.next();
    if (token_.kind == NRiToken::kBad) throw NRiError(here(), token_.text);
  }

  std::size_t emit(Op op, std::size_t argument = 0) {
    out_.steps_.push_back({op, argument, at_});
    return out_.steps_.size() - 1;
  }

  bool accept(const char* symbol) {
    if (!token_.is(symbol)) return false;
    at_ = token_.offset;
    advance();
    return true;
  }

  void enter() {
    if (++depth_ > deepest) {
      throw NRiError(here(), "an expression that is nested too deeply: expected at most 64 levels");
    }
  }

  // condition ? a : b
  void choice() {
    enter();
    either();
    if (accept("?")) {
      const std::size_t skip = emit(Op::kJumpIfFalse);
      choice();
      const std::size_t leave = emit(Op::kJump);
      out_.steps_[skip].argument = out_.steps_.size();
      if (!accept(":")) fail("':'");
      choice();
      out_.steps_[leave].argument = out_.steps_.size();
    }
    --depth_;
  }

  // a || b: when a is true, the copy of its truth that is left is the value.
  void either() {
    both();
    while (accept("||")) {
      emit(Op::kTruth);
      emit(Op::kDuplicate);
      emit(Op::kNot);
      const std::size_t skip = emit(Op::kJumpIfFalse);
      emit(Op::kDrop);
      both();
      emit(Op::kTruth);
      out_.steps_[skip].argument = out_.steps_.size();
    }
  }

  void both() {
    comparison();
    while (accept("&&")) {
      emit(Op::kTruth);
      emit(Op::kDuplicate);
      const std::size_t skip = emit(Op::kJumpIfFalse);
      emit(Op::kDrop);
      comparison();
      emit(Op::kTruth);
      out_.steps_[skip].argument = out_.steps_.size();
    }
  }

  void binary(void (Compiler::*operand)(), Op op) {
    const std::size_t at = at_;
    (this->*operand)();
    at_ = at;
    emit(op);
  }

  void comparison() {
    sum();
    for (;;) {
      if (accept("<="))
        binary(&Compiler::sum, Op::kLessEqual);
      else if (accept(">="))
        binary(&Compiler::sum, Op::kGreaterEqual);
      else if (accept("<"))
        binary(&Compiler::sum, Op::kLess);
      else if (accept(">"))
        binary(&Compiler::sum, Op::kGreater);
      else if (accept("=="))
        binary(&Compiler::sum, Op::kEqual);
      else if (accept("!="))
        binary(&Compiler::sum, Op::kUnequal);
      else
        return;
    }
  }

  void sum() {
    product();
    for (;;) {
      if (accept("+"))
        binary(&Compiler::product, Op::kAdd);
      else if (accept("-"))
        binary(&Compiler::product, Op::kSubtract);
      else
        return;
    }
  }

  void product() {
    sign();
    for (;;) {
      if (accept("*"))
        binary(&Compiler::sign, Op::kMultiply);
      else if (accept("/"))
        binary(&Compiler::sign, Op::kDivide);
      else
        return;
    }
  }

  void sign() {
    enter();
    if (accept("-"))
      binary(&Compiler::sign, Op::kNegate);
    else if (accept("!"))
      binary(&Compiler::sign, Op::kNot);
    else if (accept("+"))
      sign();
    else
      atom();
    --depth_;
  }

  void atom() {
    at_ = token_.offset;
    if (accept("(")) {
      choice();
      if (!accept(")")) fail("')'");
    } else if (token_.kind == NRiToken::kNumber || token_.kind == NRiToken::kText) {
      const bool isText = token_.kind == NRiToken::kText;
      out_.constants_.push_back({isText, token_.number, NRiName(std::string_view(token_.text))});
      emit(Op::kConstant, out_.constants_.size() - 1);
      advance();
    } else if (token_.kind == NRiToken::kName) {
      Reference reference;
      reference.plug = NRiName(token_.source);
      reference.offset = token_.offset;
      std::size_t end = token_.end();
      advance();
      if (token_.is("(")) return call(reference);
      if (token_.is(".")) {
        advance();
        if (token_.kind != NRiToken::kName) fail("the name of a plug after '.'");
        reference.node = std::exchange(reference.plug, NRiName(token_.source));
        end = token_.end();
        advance();
      }
      reference.length = end - reference.offset;
      out_.references_.push_back(std::move(reference));
      emit(Op::kReference, out_.references_.size() - 1);
    } else {
      fail("a number, a name or '('");
    }
  }

  // A call: `name` has been read, the '(' has not.
  void call(const Reference& name) {
    const std::size_t at = name.offset;
    const NRiMathFunction* const function = NRiMathNamed(name.plug.view());
    if (!function) {
      std::string names;
      for (const NRiMathFunction& one : NRiMathFunctions()) {
        names += (names.empty() ? "" : ", ") + std::string(one.name);
      }
      throw NRiError(out_.position_.after(out_.text_, at),
                     "expected a function of expressions (" + names + "), found '" +
                         NRiPrintable(name.plug.view()) + "'");
    }
    Call made{function, 0, {}};
    advance();
    while (!token_.is(")")) {
      if (made.count > 0 && !accept(",")) fail("',' or ')'");
      if (function->curve && made.count > 0) frame(made.frames);
      choice();
      ++made.count;
    }
    const auto count = static_cast<int>(made.count);
    if (count < function->least || (function->most != 0 && count > function->most)) {
      fail(std::string(count < function->least ? "another argument" : "no more arguments") +
           " for " + std::string(function->name) + "(" + std::string(function->arguments) + ")");
    }
    advance();
    at_ = at;
    out_.calls_.push_back(std::move(made));
    emit(Op::kCall, out_.calls_.size() - 1);
  }

  // The frame of a key, and the '@' behind it.
  void frame(std::vector<double>& frames) {
    const bool negative = accept("-");
    if (token_.kind != NRiToken::kNumber) fail("a key, frame@value, whose frame is a number");
    const double number = negative ? -token_.number : token_.number;
    if (!frames.empty() && frames.back() >= number) {
      fail("the keys in the order of their frames");
    }
    frames.push_back(number);
    advance();
    if (!accept("@")) fail("'@' and a value after the key's frame");
  }

  NRiExpression& out_;
  NRiLexer lexer_;
  NRiToken token_;
  std::size_t last_ = 0;  // end of the token before
  std::size_t at_ = 0;    // of the operator that is being compiled
  int depth_ = 0;
};

NRiExpression::NRiExpression(std::string_view text, const NRiPosition& position)
    : text_(text), position_(position) {
  if (text.size() > longest) {
    throw NRiError(position, "an expression that is too long: expected at most 65536 characters");
  }
  Compiler(*this).compile();
  const bool plain = steps_.size() == 1 && steps_[0].op == Op::kConstant;
  const bool negative = steps_.size() == 2 && steps_[0].op == Op::kConstant &&
                        steps_[1].op == Op::kNegate && !constants_[0].isText;
  if (plain || negative) {
    constant_ = true;
    value_ = constants_[0];
    if (negative) value_.number = -value_.number;
  }
}

NRiError NRiExpression::fault(const Step& step, const std::string& what) const {
  const std::string where = " in '" + NRiPrintable(NRiOnOneLine(text_)) + "'";
  if (position_.line <= 0) {
    return NRiError(what + where + " at " + std::to_string(step.offset + 1));
  }
  return {position_.after(text_, step.offset), what + where};
}

std::string NRiExpression::shown(const Reference& reference) const {
  return NRiPrintable(
      NRiOnOneLine(std::string_view(text_).substr(reference.offset, reference.length)));
}

void NRiExpression::binary(const Step& step, std::vector<NRiOperand>& stack) const {
  const NRiOperand b = std::move(stack.back());
  stack.pop_back();
  NRiOperand& a = stack.back();
  if (a.isText != b.isText) throw fault(step, "a text and a number meet");
  const bool texts = a.isText;
  const auto truth = [&](bool value) { a = {false, value ? 1.0 : 0.0, {}}; };
  switch (step.op) {
    case Op::kEqual:
      return truth(texts ? a.text == b.text : a.number == b.number);
    case Op::kUnequal:
      return truth(texts ? !(a.text == b.text) : a.number != b.number);
    default:
      break;
  }
  if (texts) throw fault(step, "texts can only be compared with == and !=");
  switch (step.op) {
    case Op::kAdd:
      a.number += b.number;
      break;
    case Op::kSubtract:
      a.number -= b.number;
      break;
    case Op::kMultiply:
      a.number *= b.number;
      break;
    case Op::kDivide:
      if (b.number == 0) throw fault(step, "division by zero");
      a.number /= b.number;
      break;
    case Op::kLess:
      return truth(a.number < b.number);
    case Op::kGreater:
      return truth(a.number > b.number);
    case Op::kLessEqual:
      return truth(a.number <= b.number);
    case Op::kGreaterEqual:
      return truth(a.number >= b.number);
    default:
      break;
  }
  if (!std::isfinite(static_cast<float>(a.number))) {
    throw fault(step, "a number beyond 3.4e38");
  }
}

void NRiExpression::call(const Step& step, std::vector<NRiOperand>& stack) const {
  const Call& made = calls_[step.argument];
  std::vector<double> numbers;
  numbers.reserve(made.count);
  const auto first = stack.end() - static_cast<std::ptrdiff_t>(made.count);
  for (auto one = first; one != stack.end(); ++one) {
    if (one->isText) throw fault(step, "a text where a number is expected");
    numbers.push_back(one->number);
  }
  stack.erase(first, stack.end());
  double result = 0;
  if (made.function->curve) {
    std::vector<orvanite::CurveKey> keys;
    keys.reserve(made.frames.size());
    for (std::size_t i = 0; i < made.frames.size(); ++i) {
      keys.push_back({made.frames[i], numbers[i + 1]});
    }
    result = orvanite::curveAt(*made.function->curve, keys, numbers[0]);
  } else if (const char* const wrong = made.function->work(numbers, result)) {
    throw fault(step, wrong);
  }
  if (!std::isfinite(static_cast<float>(result))) throw fault(step, "a number beyond 3.4e38");
  stack.push_back({false, result, {}});
}

NRiOperand NRiExpression::run(const std::function<NRiOperand(std::size_t)>& look) const {
  std::vector<NRiOperand> stack;
  const auto isTrue = [&](const Step& step) {
    if (stack.back().isText) throw fault(step, "a text where a number is expected");
    return stack.back().number != 0;
  };
  // Jumps only lead forward, so every program ends.
  for (std::size_t i = 0; i < steps_.size(); ++i) {
    const Step& step = steps_[i];
    switch (step.op) {
      case Op::kConstant:
        stack.push_back(constants_[step.argument]);
        break;
      case Op::kReference:
        stack.push_back(look(step.argument));
        break;
      case Op::kCall:
        call(step, stack);
        break;
      case Op::kNegate:
        isTrue(step);
        stack.back().number = -stack.back().number;
        break;
      case Op::kNot:
        stack.back().number = isTrue(step) ? 0 : 1;
        break;
      case Op::kTruth:
        stack.back().number = isTrue(step) ? 1 : 0;
        break;
      case Op::kDuplicate:
        stack.push_back(NRiOperand(stack.back()));
        break;
      case Op::kDrop:
        stack.pop_back();
        break;
      case Op::kJump:
        i = step.argument - 1;
        break;
      case Op::kJumpIfFalse: {
        const bool go = !isTrue(step);
        stack.pop_back();
        if (go) i = step.argument - 1;
        break;
      }
      default:
        binary(step, stack);
    }
  }
  return std::move(stack.back());
}
