// SPDX-License-Identifier: BSD-3-Clause
//
// Finding, loading and unloading plug-ins. A plug-in is a shared library whose static objects
// register its node classes and declare its functions; each declared function is then bound to the
// library's exported function of the same name.
#pragma once

#include <string>
#include <vector>

#include "platform/NRiExport.h"
#include "platform/NRiName.h"

class NRiDeclaration;
class NRxPlugin;

/// The plug-ins of this process.
class NRI_API NRiPlugins {
 public:
  /// What became of one file.
  struct Report {
    std::string path;     // as it was found
    bool loaded = false;  // whether its functions can be called
    std::string message;  // the plug-in's banner, or why it failed
  };

  /// Folders that are searched, in order: those of the environment variable
  /// ORVANITE_PLUGIN_PATH, separated by ':'; lib/orvanite beside the folder of the running
  /// program; the same in this system's own library folder, such as lib/x86_64-linux-gnu/orvanite.
  static std::vector<std::string> searchPath();
  /// Loads every *.so of the search path, in the order of their names; of two with one file name
  /// the first found wins.
  static std::vector<Report> loadAll();
  /// Loads one; one that is loaded already stays as it is.
  static Report load(const std::string& path);
  /// Takes a plug-in out again. Throws NRiError when it is not loaded or the script still has
  /// nodes of its classes.
  static void unload(const std::string& path);

  // For the compiler and NRxPlugin: what a library does while it is being loaded.
  static void noteDeclaration(const NRiDeclaration& declaration,
                              const std::vector<std::string>& errors);
  /// A plug-in object was made.
  static void notePlugin(const NRxPlugin& plugin);
};
