// SPDX-License-Identifier: BSD-3-Clause
//
// Feeds the script compiler with bytes. What compiles is read plug by plug, saved, loaded and
// saved again, which must give the same text. No picture is opened.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/NRiCmplr.h"
#include "platform/NRiFile.h"
#include "platform/NRiNode.h"
#include "platform/nodes/NRiNodes.h"

namespace {

void clear() {
  NRiNode* const root = NRiNode::getRoot();
  root->deleteChildren();
  for (NRiPlug* const plug : root->getPublicPlugs()) {
    const auto name = plug->name().view();
    if (name == "defaultBytes") {
      plug->set(1);
    } else if (name != "time") {
      root->deletePlug(plug);
    }
  }
}

bool compile(std::string_view text, std::shared_ptr<NRiDeclaration>& declared) {
  NRiCmplr compiler;
  NRiValue value;
  declared =
      compiler.execute(NRiScope::getGlobal(), NRiType::null, value, NRiName(text), NRiName("fuzz"));
  if (!declared != !compiler.errors().empty()) std::abort();  // a failure says why
  return declared != nullptr;
}

void read(const NRiNode& node) {
  for (NRiPlug* const plug : node.getPublicPlugs()) {
    try {
      plug->asString();
    } catch (const NRiError& error) {
      if (!*error.what()) std::abort();
    }
  }
}

std::string saved() {
  NRiFile file;
  NRiNode::getRoot()->serialize(file, 0);
  return file.text();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  NRiNodes::declare();
  std::shared_ptr<NRiDeclaration> declared;
  if (compile({reinterpret_cast<const char*>(data), size}, declared)) {
    read(*NRiNode::getRoot());
    for (const NRiNode* const node : NRiNode::getRoot()->children()) read(*node);
    const std::string once = saved();
    clear();
    std::shared_ptr<NRiDeclaration> again;
    const bool loads = compile(once, again);
    const std::string twice = saved();
    if (!loads || twice != once) {
      std::fprintf(stderr, "saved:\n%s\n%s, and then:\n%s\n", once.c_str(),
                   loads ? "loads" : "is refused", twice.c_str());
      std::abort();
    }
  } else if (!NRiNode::getRoot()->children().empty()) {
    std::abort();  // something half-made stays
  }
  clear();
  return 0;
}
