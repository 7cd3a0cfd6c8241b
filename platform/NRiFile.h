// SPDX-License-Identifier: BSD-3-Clause
//
// The script file that nodes are written into. It knows which plugs are written already: an
// expression that refers to a later one is written as its present value and assigned at the end.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/NRiExport.h"
#include "platform/NRiName.h"

class NRiNode;
class NRiPlug;

/// A script as it is being written.
class NRI_API NRiFile {
 public:
  /// What a node is called in the text, before anything of it is written; without this, by its
  /// name.
  void setName(const NRiNode* node, const std::string& name) { names_[node] = name; }
  /// That name.
  std::string nameOf(const NRiNode& node) const;
  /// The text of a plug as an argument of the call being written.
  std::string argument(NRiPlug& plug);
  /// Writes `target = value;`; an expression that has to wait follows at the end. The target of a
  /// variable holds its type, as in `float x`: without it, a script would be refused in which the
  /// expression comes to another type while it is loaded.
  void assign(const std::string& target, NRiPlug& plug);
  /// Writes `name = function(arguments);` on lines of at most 100 characters.
  void call(const std::string& name, const NRiName& function,
            const std::vector<std::string>& arguments);
  /// Notes that a plug stands in the text: expressions that refer to it need not wait any more.
  void markWritten(const NRiPlug* plug) { written_.insert(plug); }
  /// Writes what had to wait.
  void finish();

  /// What has been written so far.
  const std::string& text() const { return text_; }

 private:
  bool mustWait(const NRiPlug& plug) const;
  std::string textOf(NRiPlug& plug) const;

  std::unordered_map<const NRiNode*, std::string> names_;
  std::string text_;
  std::string waiting_;
  std::unordered_set<const NRiPlug*> written_;
};
