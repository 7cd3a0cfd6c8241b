// SPDX-License-Identifier: BSD-3-Clause
//
// Values, edges and lazy evaluation. Edges are kept on both ends: dependents_ here has one entry
// for each time that another plug names this one as source, target or declared source.
#include "platform/NRiPlug.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cmath>
#include <utility>

#include "platform/NRiExpression.h"
#include "platform/NRiLexer.h"
#include "platform/NRiOrigin.h"

namespace {

constexpr int longestChain = 1024;
thread_local int chain = 0;

void dropOne(std::vector<NRiPlug*>& from, const NRiPlug* plug) {
  const auto found = std::find(from.begin(), from.end(), plug);
  if (found != from.end()) from.erase(found);
}

int toInt(double value) {
  if (!(value > -2147483649.0)) return value != value ? 0 : -2147483647 - 1;
  return value >= 2147483647.0 ? 2147483647 : static_cast<int>(value);
}

}  // namespace

NRiPlug::NRiPlug(NRiNode* owner, const NRiName& name, NRiId type, IO io, NRiPlug* parent)
    : owner_(owner),
      name_(name),
      type_(type),
      io_(io),
      parent_(parent),
      dirty_(io == kOut),
      computed_(io == kOut) {}

NRiPlug::~NRiPlug() {
  leave();
  for (NRiPlug* const source : declared_) dropOne(source->dependents_, this);
  while (!dependents_.empty()) {
    NRiPlug* const dependent = dependents_.back();
    dependents_.pop_back();
    dependent->forget(this);
  }
}

// Gives up the connection and the expression.
void NRiPlug::leave() {
  if (source_) dropOne(source_->dependents_, this);
  source_ = nullptr;
  for (NRiPlug* const target : targets_) {
    if (target) dropOne(target->dependents_, this);
  }
  targets_.clear();
  expression_.reset();
}

// A source is being destroyed: its edges to this plug go. What it gave is no more.
void NRiPlug::forget(NRiPlug* gone) {
  if (source_ == gone) {
    source_ = nullptr;
    reset();
  }
  std::replace(targets_.begin(), targets_.end(), gone, static_cast<NRiPlug*>(nullptr));
  declared_.erase(std::remove(declared_.begin(), declared_.end(), gone), declared_.end());
  if (expression_ || computed_) dirty_ = true;
  spread();
}

void NRiPlug::reset() {
  integer_ = 0;
  number_ = 0;
  text_ = NRiName();
  pointer_ = nullptr;
  object_ = nullptr;
}

// Plugs that are destroyed spread, too, so that nothing here may fail: those still to be gone on
// from are chained through themselves. Each is there once, as only one that was not dirty comes in.
void NRiPlug::spread() {
  NRiPlug* work = nullptr;
  const auto goOnFrom = [&work](const NRiPlug& plug) {
    for (NRiPlug* const dependent : plug.dependents_) {
      if (dependent->dirty_) continue;  // then so is what depends on it, or has not read it
      dependent->dirty_ = true;
      dependent->next_ = work;
      work = dependent;
      dependent->tellOwner();
    }
  };
  goOnFrom(*this);
  while (work) goOnFrom(*std::exchange(work, work->next_));
}

void NRiPlug::invalidate() {
  if (computed_ || source_ || expression_) dirty_ = true;
  spread();
}

// A value was set. Inside this plug's own evaluation that is its result; from outside it replaces
// whatever fed the plug.
void NRiPlug::changed() {
  dirty_ = false;
  if (evaluating_) return;
  leave();
  tellOwner();
  spread();
}

void NRiPlug::set(float value) {
  const bool same = number_ == value && !source_ && !expression_ && !dirty_;
  if (type_ == nriInt) return set(toInt(static_cast<double>(value)));
  if (type_ == nriString) return set(NRiName(std::string_view(fmt::format("{}", value))));
  number_ = value;
  if (!same) changed();
}

void NRiPlug::set(int value) {
  const bool same = integer_ == value && !source_ && !expression_ && !dirty_;
  if (type_ == nriFloat) return set(static_cast<float>(value));
  if (type_ == nriString) return set(NRiName(std::string_view(fmt::format("{}", value))));
  integer_ = value;
  if (!same) changed();
}

void NRiPlug::set(const NRiName& value) {
  if (type_ != nriString) throw NRiError("'" + fullName() + "' takes no text");
  const bool same = text_ == value && !source_ && !expression_ && !dirty_;
  text_ = value;
  if (!same) changed();
}

void NRiPlug::set(void* value) {
  pointer_ = value;
  object_ = nullptr;
  changed();
}

void NRiPlug::setNode(NRiNode* object) {
  pointer_ = object;
  object_ = object;
  changed();
}

void NRiPlug::set(const char* text) {
  const NRiPosition place = NRiOrigin::of(text);
  const std::string_view content = text ? text : "";
  if (type_ == nriString && place.line <= 0 && content.find('"') == std::string_view::npos) {
    // A plain text, unless it is the name of a plug.
    std::unique_ptr<NRiExpression> reference;
    try {
      reference = std::make_unique<NRiExpression>(content, place);
    } catch (const NRiError&) {
      reference.reset();
    }
    if (reference && isName(*reference)) return setExpression(std::move(reference));
    return set(NRiName(content));
  }
  auto expression = std::make_unique<NRiExpression>(content, place);
  const NRiOperand* const constant = expression->constant();
  if (!constant) return setExpression(std::move(expression));
  if (constant->isText != (type_ == nriString)) {
    throw NRiError(place, "expected " + std::string(type_ == nriString ? "a text" : "a number") +
                              " for '" + fullName() + "', found '" +
                              NRiPrintable(NRiOnOneLine(content)) + "'");
  }
  if (type_ == nriString) return set(constant->text);
  if (type_ == nriInt) return set(toInt(constant->number));
  set(static_cast<float>(constant->number));
}

void NRiPlug::setExpression(std::unique_ptr<NRiExpression> expression) {
  leave();
  expression_ = std::move(expression);
  targets_.assign(expression_->references().size(), nullptr);
  for (std::size_t i = 0; i < targets_.size(); ++i) resolve(i);
  dirty_ = true;
  tellOwner();
  spread();
}

void NRiPlug::store(const NRiOperand& value) {
  if (value.isText != (type_ == nriString)) {
    throw NRiError(expression_->position(),
                   "expected " + std::string(type_ == nriString ? "a text" : "a number") +
                       " for '" + fullName() + "' from '" +
                       NRiPrintable(NRiOnOneLine(expression_->text())) + "'");
  }
  text_ = value.text;
  number_ = static_cast<float>(value.number);
  integer_ = toInt(value.number);
}

NRiOperand NRiPlug::operand() {
  update();
  if (type_ == nriString) return {true, 0, text_};
  const double number = type_ == nriInt ? integer_ : static_cast<double>(number_);
  return {false, number, {}};
}

void NRiPlug::copyFrom(const NRiPlug& other) {
  integer_ = other.type_ == nriFloat ? toInt(static_cast<double>(other.number_)) : other.integer_;
  number_ = other.type_ == nriInt ? static_cast<float>(other.integer_) : other.number_;
  text_ = other.text_;
  pointer_ = other.pointer_;
  object_ = other.object_;
}

void NRiPlug::update() {
  if (!dirty_) return;
  const NRiPosition where = expression_ ? expression_->position() : NRiPosition();
  if (evaluating_) {
    throw NRiError(where, "'" + fullName() + "' depends on itself: expected no cycle");
  }
  if (chain >= longestChain) {
    throw NRiError(where,
                   "'" + fullName() + "' hangs on too long a chain: expected at most 1024 plugs");
  }
  struct Guard {
    explicit Guard(bool& flag) : evaluating(flag) { evaluating = true, ++chain; }
    ~Guard() { evaluating = false, --chain; }
    bool& evaluating;
  } const guard(evaluating_);

  if (expression_) {
    checkReferences();
    store(expression_->run([this](std::size_t i) { return targets_[i]->operand(); }));
  } else if (source_) {
    source_->update();
    copyFrom(*source_);
  } else {
    askOwner();
  }
  dirty_ = false;
  ++evaluations_;
}

int NRiPlug::asInt() {
  update();
  return type_ == nriFloat ? toInt(static_cast<double>(number_)) : integer_;
}

float NRiPlug::asFloat() {
  update();
  return type_ == nriInt ? static_cast<float>(integer_) : number_;
}

NRiName NRiPlug::asString() {
  update();
  if (type_ == nriString) return text_;
  return NRiName(
      std::string_view(type_ == nriInt ? fmt::format("{}", integer_) : fmt::format("{}", number_)));
}

void* NRiPlug::asVoid() {
  update();
  return pointer_;
}

NRiNode* NRiPlug::asPtr() {
  update();
  return object_;
}

void NRiPlug::connect(NRiPlug* source) {
  assert(source != this);
  const bool had = source_ != nullptr || expression_ != nullptr;
  leave();
  if (source) {
    source->dependents_.push_back(this);
    source_ = source;
    dirty_ = true;
  } else if (had || computed_) {
    if (had) reset();
    dirty_ = computed_;
  } else {
    return;
  }
  tellOwner();
  spread();
}

void NRiPlug::addDependency(NRiPlug* source) {
  // Both ends of the edge or none, whatever fails.
  declared_.reserve(declared_.size() + 1);
  source->dependents_.push_back(this);
  declared_.push_back(source);
  computed_ = true;
  dirty_ = true;
  spread();
}

void NRiPlug::removeDependency(NRiPlug* source) {
  const auto found = std::find(declared_.begin(), declared_.end(), source);
  if (found == declared_.end()) return;
  declared_.erase(found);
  dropOne(source->dependents_, this);
  invalidate();
}

void NRiPlug::setFlag(int flag, int on, [[maybe_unused]] int reserved) {
  flags_ = on ? flags_ | flag : flags_ & ~flag;
}
