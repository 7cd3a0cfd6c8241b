// SPDX-License-Identifier: BSD-3-Clause
//
// Compiling and saving scripts in tests.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/NRiCmplr.h"
#include "platform/NRiFile.h"
#include "platform/NRiNode.h"
#include "platform/nodes/NRiNodes.h"

inline void clear() {
  NRiNode* const root = NRiNode::getRoot();
  root->deleteChildren();
  for (NRiPlug* const plug : root->getPublicPlugs()) {
    const auto name = plug->name().view();
    if (name == "time") continue;
    if (name == "defaultBytes") {
      plug->set(1);
    } else {
      root->deletePlug(plug);
    }
  }
}

inline std::string saved() {
  NRiFile file;
  NRiNode::getRoot()->serialize(file, 0);
  return file.text();
}

inline std::string errorsOf(const std::string& text, const std::string& name) {
  NRiCmplr compiler;
  NRiValue value;
  compiler.execute(NRiScope::getGlobal(), NRiType::null, value, NRiName(std::string_view(text)),
                   NRiName(std::string_view(name)));
  std::string lines;
  for (const std::string& line : compiler.errors()) lines += line + "\n";
  return lines;
}

class Script : public testing::Test {
 protected:
  void SetUp() override {
    NRiNodes::declare();
    clear();
  }
  void TearDown() override { clear(); }
};
