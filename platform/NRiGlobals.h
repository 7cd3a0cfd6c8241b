// SPDX-License-Identifier: BSD-3-Clause
//
// The application's global plugs. "script.currentScript" is a pointer plug that holds the root node
// of the script that is open, or null; that node's int plug `defaultBytes` is the depth of images
// that have none.
#pragma once

#include <string>

#include "platform/NRiExport.h"
#include "platform/NRiPlug.h"

/// Finds the global plugs.
class NRI_API NRiGlobals {
 public:
  /// The global plug of that name and type. When there is none: null if `quiet` is not 0, else
  /// throws NRiError.
  static NRiPlug* ref(const NRiName& name, NRiId type, int quiet);
  /// Makes `root` the current script; null closes it.
  static void setCurrentScript(NRiNode* root);

  /// The folder that relative paths of the current script count from; empty: the process's own.
  static void setFolder(const std::string& folder);
  /// A path of the current script as the process sees it.
  static std::string inFolder(const std::string& path);
};
