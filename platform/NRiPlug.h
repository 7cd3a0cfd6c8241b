// SPDX-License-Identifier: BSD-3-Clause
//
// Plugs: the typed values of a node. A plug holds a constant, a live expression, the value of the
// plug it is connected to, or what its node's eval() works out. A change upstream marks everything
// that depends on it out of date; nothing is evaluated before somebody reads it.
//
// One thread evaluates. Reading a plug that is up to date is safe on any number of threads.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/NRiError.h"
#include "platform/NRiExport.h"
#include "platform/NRiName.h"
#include "platform/NRiType.h"

class NRiExpression;
struct NRiOperand;
class NRiNode;

/// A value of a node: kept, computed by its node, connected, or an expression.
class NRI_API NRiPlug {
 public:
  /// Who sets it: the node for itself, a script, or the node for others.
  enum IO { kInternal = 0, kIn = 1, kOut = 2 };

  /// The owner outlives the plug.
  NRiPlug(NRiNode* owner, const NRiName& name, NRiId type, IO io, NRiPlug* parent);
  virtual ~NRiPlug();
  NRiPlug(const NRiPlug&) = delete;
  NRiPlug& operator=(const NRiPlug&) = delete;

  /// A number plug takes any text as an expression. A string plug takes one as an expression when
  /// it holds a double quote, names a plug, or is an argument of a script; any other text is the
  /// value itself. Throws NRiError when an expression cannot be read.
  void set(const char* text);
  /// Sets a number: brought to the nearest integer or to text where the plug holds one. What gave
  /// the value before, a connection or an expression, goes.
  void set(float value);
  /// The same from an integer.
  void set(int value);
  /// Sets a text. Throws NRiError where the plug holds no text.
  void set(const NRiName& value);
  /// Sets a pointer, which stays the caller's.
  void set(void* value);
  void setNode(NRiNode* object);  // for pointer plugs, read back with asPtr

  // Reading brings the plug up to date first; they throw NRiError when that fails: a cycle, a
  // reference to nothing, a chain of more than 1024 plugs, or what an expression or eval() throws.
  int asInt();
  /// The value as a number.
  float asFloat();
  /// The value as text.
  NRiName asString();
  void* asVoid();  // the pointer, null for other types; also used to bring a plug up to date
  /// The node that setNode was given, or null.
  NRiNode* asPtr();
  NRiOperand operand();  // the value as expressions see it

  /// Whether reading would compute nothing.
  bool isUpToDate() const { return !dirty_; }
  /// How often the plug has been evaluated so far.
  long evaluations() const { return evaluations_; }

  /// Takes the value from `source`; null releases the plug, whose value is then its node's to work
  /// out (an output), or zero.
  virtual void connect(NRiPlug* source);
  /// Whether the value comes from another plug.
  bool isConnected() const { return source_ != nullptr; }
  /// That plug, or null.
  NRiPlug* source() const { return source_; }

  /// Declares that eval() works out `dependent` from `sources`, closed by a null.
  template <class... Sources>
  static void addDependencies(NRiPlug* dependent, Sources... sources) {
    NRiPlug* const list[] = {sources...};
    static_assert(sizeof...(sources) > 0);
    for (NRiPlug* const* one = list; *one; ++one) dependent->addDependency(*one);
  }
  /// One source more for eval().
  void addDependency(NRiPlug* source);
  /// Takes it back; a source that was not added is fine.
  void removeDependency(NRiPlug* source);

  /// Marks the plug, if it is worked out, and all that depends on it out of date.
  void invalidate();

  /// Flag 4: serialising leaves the plug out. The third argument is 0.
  void setFlag(int flag, int on, int reserved);
  /// Whether one of the flags is set.
  bool hasFlag(int flag) const { return (flags_ & flag) != 0; }

  /// The node that it belongs to.
  NRiNode* owner() const { return owner_; }
  /// Its name within the node.
  const NRiName& name() const { return name_; }
  /// What it holds.
  NRiId type() const { return type_; }
  /// Who sets it.
  IO io() const { return io_; }
  /// The plug that it is a part of, or null.
  NRiPlug* parent() const { return parent_; }
  /// Plugs that go out of date with this one.
  const std::vector<NRiPlug*>& dependents() const { return dependents_; }
  /// "node.plug", for messages.
  std::string fullName() const;

  /// The expression that gives the value, or null.
  const NRiExpression* expression() const { return expression_.get(); }
  /// Plugs that the expression refers to; null for what refers to nothing.
  const std::vector<NRiPlug*>& targets() const { return targets_; }
  /// Throws NRiError when the expression refers to nothing.
  void checkReferences();

 private:
  void update();
  void reset();
  void spread();
  void leave();
  void changed();
  void forget(NRiPlug* gone);
  // What the plug asks of its node and of the tree.
  void tellOwner();
  void askOwner();
  bool resolve(std::size_t i);
  bool isName(const NRiExpression& expression) const;
  void setExpression(std::unique_ptr<NRiExpression> expression);
  void store(const NRiOperand& value);
  void copyFrom(const NRiPlug& other);

  NRiNode* owner_;
  NRiName name_;
  NRiId type_;
  IO io_;
  NRiPlug* parent_;
  int flags_ = 0;

  bool dirty_;
  bool computed_;  // eval() works the value out when nothing else gives it
  bool evaluating_ = false;
  long evaluations_ = 0;
  NRiPlug* next_ = nullptr;  // while dirtiness spreads

  int integer_ = 0;
  float number_ = 0;
  NRiName text_;
  void* pointer_ = nullptr;
  NRiNode* object_ = nullptr;

  NRiPlug* source_ = nullptr;
  std::unique_ptr<NRiExpression> expression_;
  std::vector<NRiPlug*> targets_;     // by reference of the expression
  std::vector<NRiPlug*> declared_;    // sources declared by addDependencies
  std::vector<NRiPlug*> dependents_;  // one entry for each edge
};
