// SPDX-License-Identifier: BSD-3-Clause
//
// Nodes: they own plugs, form a tree under the root, and work out plugs when asked. Children of
// the root are the nodes of the script; the root's own plugs are the script's variables, beside
// `time` and `defaultBytes`.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/NRiExport.h"
#include "platform/NRiIPlug.h"
#include "platform/NRiName.h"
#include "platform/NRiPlug.h"

class NRiFile;

/// A node of the script. The tree is one thread's; only renders fork.
class NRI_API NRiNode {
 public:
  NRiNode() = default;
  virtual ~NRiNode();
  NRiNode(const NRiNode&) = delete;
  NRiNode& operator=(const NRiNode&) = delete;

  /// The class's script name, which is also that of the function that makes such a node.
  virtual const NRiName& getClassName() const = 0;
  /// A new node of the same class, without a parent; the caller owns it.
  virtual NRiNode* create() const = 0;

  /// Works out one plug; called when it is read and out of date. Returns 0. A plug that is set
  /// here counts as worked out.
  virtual int eval(NRiPlug*) { return 0; }
  /// Called when a plug changed or went out of date.
  virtual int notify(NRiPlug*) { return 0; }
  /// Writes the node as a script call: the image inputs, then the parameter plugs in the order of
  /// their creation, without those that carry flag 4. `flags` is 0. Returns 0.
  virtual int serialize(NRiFile& file, int flags);

  /// The image input at an index, or null.
  virtual NRiIPlug* getInput(int) const { return nullptr; }
  /// How many image inputs there are.
  virtual int getNbInputs() const { return 0; }
  /// The image output, or null.
  virtual NRiIPlug* getOutput() const { return nullptr; }
  /// Why the node does not show what it should since its last evaluation, as what follows its name
  /// in a sentence; empty when it does, or was not evaluated.
  virtual std::string problem() const { return {}; }

  /// A new plug; the node owns it. `parent` and `flags` are 0.
  NRiPlug* addPlug(const NRiName& name, NRiId type, NRiPlug::IO io, NRiPlug* parent, int flags);
  /// The plug of that name, or null.
  NRiPlug* getPlug(const NRiName& name) const;
  /// Deletes a plug of this node; any other stays as it is.
  void deletePlug(const NRiPlug* plug);
  /// Every plug, in the order of their creation.
  const std::vector<std::unique_ptr<NRiPlug>>& plugs() const { return plugs_; }
  /// Plugs that a script sets: inputs that are no images.
  std::vector<NRiPlug*> getPublicPlugs() const;

  /// Its own among the children of the parent.
  const NRiName& name() const { return name_; }
  /// Takes the name, or name_2, name_3 and so on when another child of the parent bears it.
  void setName(const NRiName& name);
  /// What the script calls it: the variable that its image was assigned to first, which others may
  /// have been assigned to since; without one, its name.
  const NRiName& label() const { return label_.empty() ? name_ : label_; }
  /// Takes the name of a variable, for label() and as far as it is free for name().
  void setLabel(const NRiName& variable);

  /// Hands the node to `parent`, which then owns it; a node without a name gets one from its class.
  /// Null takes it out of the tree; the caller then owns it.
  void setParent(NRiNode* parent);
  /// The node that owns this one, or null.
  NRiNode* parent() const { return parent_; }
  /// In the order in which they came.
  const std::vector<NRiNode*>& children() const { return children_; }
  /// The child of that name, or null.
  NRiNode* child(const NRiName& name) const;
  /// Deletes all children, the last first.
  void deleteChildren();

  /// The root of the script; it lives as long as the process.
  static NRiNode* getRoot();

 private:
  void addChild(NRiNode* child);
  void removeChild(NRiNode* child);

  std::vector<std::unique_ptr<NRiPlug>> plugs_;
  std::vector<NRiNode*> children_;  // owned
  NRiNode* parent_ = nullptr;
  NRiName name_;
  NRiName label_;
};
