// SPDX-License-Identifier: BSD-3-Clause
//
// The application's global plugs.
#include "platform/NRiGlobals.h"

#include <filesystem>
#include <string>

namespace {
NRiPlug& currentScript() {
  static auto& plug = *new NRiPlug(nullptr, NRiName("script.currentScript"), nriPointer,
                                   NRiPlug::kInternal, nullptr);
  return plug;
}

std::string& folder() {
  static auto& path = *new std::string;
  return path;
}
}  // namespace

NRiPlug* NRiGlobals::ref(const NRiName& name, NRiId type, int quiet) {
  NRiPlug& plug = currentScript();
  if (name == plug.name() && type == plug.type()) return &plug;
  if (quiet) return nullptr;
  throw NRiError("there is no global '" + std::string(name.view()) + "' of that type");
}

void NRiGlobals::setCurrentScript(NRiNode* root) { currentScript().setNode(root); }

void NRiGlobals::setFolder(const std::string& path) { folder() = path; }

std::string NRiGlobals::inFolder(const std::string& path) {
  if (folder().empty() || path.empty()) return path;
  return (std::filesystem::path(folder()) / path).string();
}
