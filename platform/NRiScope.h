// SPDX-License-Identifier: BSD-3-Clause
//
// What names mean in a script: declared functions, and image variables. Value variables are plugs
// of the root node.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/NRiError.h"
#include "platform/NRiExport.h"
#include "platform/NRiName.h"
#include "platform/NRiType.h"

class NRiNode;
class NRiPlug;

/// A parameter of a declared function.
struct NRiParameter {
  NRiId type = nriNull;     // what arguments are
  NRiName name;             // empty for an unnamed one
  bool hasDefault = false;  // whether a call may leave it out
  std::string text;         // of the default, as a plug takes it; images have none
  std::string help;         // what the declaration says behind it in a comment, as one line
  /// Equal declarations: what is said of them does not count.
  bool operator==(const NRiParameter& other) const {
    return type == other.type && name == other.name && hasDefault == other.hasDefault &&
           text == other.text;
  }
};

/// A function that scripts may call.
struct NRiFunction {
  NRiName name;                          // as scripts write it
  std::vector<NRiParameter> parameters;  // images first
  int images = 0;                        // how many parameters are images
  std::string help;                      // what the declaration says before it in a comment
  NRiPosition declared;                  // where, for messages
  void* address = nullptr;               // null until bound
};

/// The functions that one piece of text declared; they go with the last handle to it.
class NRI_API NRiDeclaration {
 public:
  NRiDeclaration() = default;
  ~NRiDeclaration();
  NRiDeclaration(const NRiDeclaration&) = delete;
  NRiDeclaration& operator=(const NRiDeclaration&) = delete;
  std::vector<NRiName> functions;  // in the order of the text
};

/// What names mean in scripts.
class NRI_API NRiScope {
 public:
  /// The one scope of the process.
  static NRiScope* getGlobal();

  /// The function of that name, or null.
  NRiFunction* function(const NRiName& name);
  /// False, with nothing changed, when another function of that name is declared. Declaring the
  /// same again is fine and gives `fresh` = false.
  bool declare(const NRiFunction& function, bool& fresh);
  /// Every function that is declared, by name.
  std::vector<const NRiFunction*> functions() const;
  /// Forgets a function; a name that is not known is fine.
  void undeclare(const NRiName& name) { functions_.erase(name); }

  /// The image that a variable holds, or null.
  NRiIPlug* image(const NRiName& name) const;
  /// Makes a variable hold an image.
  void setImage(const NRiName& name, NRiIPlug* image) { images_[name] = image; }
  /// Every variable that holds an image.
  const std::unordered_map<NRiName, NRiIPlug*, NRiNameHash>& images() const { return images_; }
  /// Drops the variables that hold the node's image.
  void forget(const NRiNode* node);

  /// The node that a script calls `name`: by variable, else by its own name; "script" is the root.
  static NRiNode* findNode(const NRiName& name);
  /// What a reference in an expression of `from` means: node.plug, or a plug of `from` itself, or
  /// a variable of the script; `t`, where nothing bears that name, the time. Images are no such
  /// thing. Null when there is none.
  static NRiPlug* findPlug(const NRiNode* from, const NRiName& node, const NRiName& plug);

 private:
  std::unordered_map<NRiName, NRiFunction, NRiNameHash> functions_;
  std::unordered_map<NRiName, NRiIPlug*, NRiNameHash> images_;
};
