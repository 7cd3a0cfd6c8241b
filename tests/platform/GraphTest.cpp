// SPDX-License-Identifier: BSD-3-Clause
//
// Scripts by chance survive being saved: the saved one loads, saves to the same text, and comes to
// the same values at every frame. ORVANITE_GRAPHS says how many; the suite takes a few.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "platform/NRiNode.h"
#include "tests/platform/Graphs.h"
#include "tests/platform/Scripts.h"

namespace {

// What every parameter of every node comes to at some frames, in an order that does not depend on
// that of the nodes.
std::vector<std::string> values() {
  std::vector<std::string> all;
  NRiNode* const root = NRiNode::getRoot();
  const auto note = [&](const NRiNode& node) {
    std::string text(node.getClassName().view());
    for (const float frame : {-3.0f, 1.0f, 7.5f, 24.0f}) {
      root->getPlug(NRiName("time"))->set(frame);
      for (NRiPlug* const plug : node.getPublicPlugs()) {
        try {
          text += " " + std::string(plug->asString().view());
          if (plug->type() != nriString) text += std::to_string(plug->asFloat());
        } catch (const NRiError&) {
          text += " fails";
        }
      }
    }
    all.push_back(text);
  };
  note(*root);
  for (const NRiNode* const node : root->children()) note(*node);
  root->getPlug(NRiName("time"))->set(1.0f);
  std::sort(all.begin(), all.end());
  return all;
}

TEST_F(Script, GraphsByChanceSurviveBeingSaved) {
  const char* const asked = std::getenv("ORVANITE_GRAPHS");
  const int count = asked ? std::atoi(asked) : 500;
  ASSERT_GT(count, 0);
  int curves = 0;
  for (int seed = 0; seed < count; ++seed) {
    const std::string text = graphs::Writer(static_cast<std::uint64_t>(seed)).script();
    ASSERT_EQ(errorsOf(text, "graph"), "") << text;
    const std::string once = saved();
    const std::vector<std::string> before = values();
    clear();
    ASSERT_EQ(errorsOf(once, "saved"), "") << text << "\n" << once;
    ASSERT_EQ(saved(), once) << text;
    ASSERT_EQ(values(), before) << text << "\n" << once;
    clear();
    if (once.find('@') != std::string::npos) ++curves;
  }
  EXPECT_GT(curves, count / 4);
}

}  // namespace
