// SPDX-License-Identifier: BSD-3-Clause
//
// What the application touches before any pixel is computed: the static objects that are built
// when the library is loaded, in the order in which they stand here, and the script functions.
#include <cstddef>
#include <iterator>
#include <memory>

#include "host/Declaration.h"
#include "host/NRxOrvanite.h"
#include "platform/NRiClassName.h"
#include "platform/NRiCmplr.h"
#include "platform/NRxPlugin.h"

const NRiName NRxOrvanite::thisClassName =
    NRiClassName::registerClassName(NRiName("Orvanite"), NRiName("NRiNadic"));
const NRiName NRxOrvanite::composite = NRiName::getString("composite");

namespace {
const NRiName pluginName = NRiName::getString("Orvanite 1.4 (32-bit)");
}

class NRxOrvanite_1v4_Plugin : public NRxPlugin {
 public:
  NRxOrvanite_1v4_Plugin() : NRxPlugin(pluginName) {
    if (compiled_) return;
    NRiValue result;
    compiled_ = compiler_.execute(NRiScope::getGlobal(), NRiType::null, result,
                                  NRiName::getString(orvaniteDeclaration), name_);
  }

 private:
  NRiCmplr compiler_;
};

extern "C" {

NRI_API NRxOrvanite_1v4_Plugin orvanitePlugin;

NRI_API NRiIPlug* Orvanite(
    NRiIPlug* fg, NRiIPlug* bg, NRiIPlug* holdOutMatte, NRiIPlug* garbageMatte, const char* version,
    const char* output, const char* rScreen, const char* gScreen, const char* bScreen,
    const char* screenRange, const char* rFgBias, const char* gFgBias, const char* bFgBias,
    const char* shadowBalance, const char* midtoneBalance, const char* highlightBalance,
    const char* shadowGain, const char* midtoneGain, const char* highlightGain,
    const char* midTonesAt, const char* rSpillReplace, const char* gSpillReplace,
    const char* bSpillReplace, const char* rExposure, const char* gExposure, const char* bExposure,
    const char* rGamma, const char* gGamma, const char* bGamma, const char* saturation,
    const char* cspace, const char* useHoldOutMatte, const char* holdOutChannel,
    const char* useGarbageMatte, const char* garbageChannel, const char* bgColor,
    const char* clipMode);

NRI_API NRiIPlug* Orvanite_1v4(
    NRiIPlug* fg, NRiIPlug* bg, NRiIPlug* holdOutMatte, NRiIPlug* garbageMatte, const char* output,
    const char* rScreen, const char* gScreen, const char* bScreen, const char* screenRange,
    const char* rFgBias, const char* gFgBias, const char* bFgBias, const char* shadowBalance,
    const char* midtoneBalance, const char* highlightBalance, const char* shadowGain,
    const char* midtoneGain, const char* highlightGain, const char* midTonesAt,
    const char* rSpillReplace, const char* gSpillReplace, const char* bSpillReplace,
    const char* rExposure, const char* gExposure, const char* bExposure, const char* rGamma,
    const char* gGamma, const char* bGamma, const char* saturation, const char* cspace,
    const char* useHoldOutMatte, const char* holdOutChannel, const char* useGarbageMatte,
    const char* garbageChannel, const char* bgColor, const char* clipMode);

NRI_API NRiIPlug* Orvanite_1v3(
    NRiIPlug* bg, NRiIPlug* fg, NRiIPlug* holdOutMatte, const char* output, const char* rScreen,
    const char* gScreen, const char* bScreen, const char* screenRange, const char* rFgBias,
    const char* gFgBias, const char* bFgBias, const char* shadowBalance, const char* midtoneBalance,
    const char* highlightBalance, const char* shadowGain, const char* midtoneGain,
    const char* highlightGain, const char* modTonesAt, const char* rSpillReplace,
    const char* gSpillReplace, const char* bSpillReplace, const char* rExposure,
    const char* gExposure, const char* bExposure, const char* rGamma, const char* gGamma,
    const char* bGamma, const char* saturation, const char* cspace, const char* useHoldOutMatte,
    const char* holdOutChannel, const char* bgColor, const char* clipMode);

}  // extern "C"

namespace {

// What every version sets, in this order; `version` goes before, what tells them apart after.
constexpr const char* sharedPlugs[] = {
    "clipMode",      "rScreen",        "gScreen",          "bScreen",       "screenRange",
    "colourspace",   "output",         "rFgBias",          "gFgBias",       "bFgBias",
    "shadowBalance", "midtoneBalance", "highlightBalance", "shadowGain",    "midtoneGain",
    "highlightGain", "midTonesAt",     "rReplace",         "gReplace",      "bReplace",
    "rExposure",     "gExposure",      "bExposure",        "rGamma",        "gGamma",
    "bGamma",        "saturation",     "useHoldOutMatte",  "holdOutChannel"};

// A node under the root; the tree owns it.
NRxOrvanite* placed() {
  auto node = std::make_unique<NRxOrvanite>();
  node->setParent(NRiNode::getRoot());
  return node.release();
}

void give(const NRxOrvanite* node, const char* plug, const char* text) {
  node->getPlug(NRiName(plug))->set(text);
}

// One text for each of sharedPlugs.
template <std::size_t count>
void giveShared(const NRxOrvanite* node, const char* const (&texts)[count]) {
  static_assert(count == std::size(sharedPlugs));
  for (std::size_t i = 0; i < count; ++i) give(node, sharedPlugs[i], texts[i]);
}

}  // namespace

NRiIPlug* Orvanite(NRiIPlug* fg, NRiIPlug* bg, NRiIPlug* holdOutMatte, NRiIPlug* garbageMatte,
                   const char* version, const char* output, const char* rScreen,
                   const char* gScreen, const char* bScreen, const char* screenRange,
                   const char* rFgBias, const char* gFgBias, const char* bFgBias,
                   const char* shadowBalance, const char* midtoneBalance,
                   const char* highlightBalance, const char* shadowGain, const char* midtoneGain,
                   const char* highlightGain, const char* midTonesAt, const char* rSpillReplace,
                   const char* gSpillReplace, const char* bSpillReplace, const char* rExposure,
                   const char* gExposure, const char* bExposure, const char* rGamma,
                   const char* gGamma, const char* bGamma, const char* saturation,
                   const char* cspace, const char* useHoldOutMatte, const char* holdOutChannel,
                   const char* useGarbageMatte, const char* garbageChannel, const char* bgColor,
                   const char* clipMode) {
  NRxOrvanite* const node = placed();
  NRiIPlug* const images[] = {fg, bg, holdOutMatte, garbageMatte};
  for (int i = 0; i < 4; ++i) node->getInput(i)->connect(images[i]);
  give(node, "version", version);
  giveShared(node, {clipMode,      rScreen,        gScreen,          bScreen,       screenRange,
                    cspace,        output,         rFgBias,          gFgBias,       bFgBias,
                    shadowBalance, midtoneBalance, highlightBalance, shadowGain,    midtoneGain,
                    highlightGain, midTonesAt,     rSpillReplace,    gSpillReplace, bSpillReplace,
                    rExposure,     gExposure,      bExposure,        rGamma,        gGamma,
                    bGamma,        saturation,     useHoldOutMatte,  holdOutChannel});
  give(node, "useGarbageMatte", useGarbageMatte);
  give(node, "garbageChannel", garbageChannel);
  give(node, "bgColor", bgColor);
  return node->getOutput();
}

NRiIPlug* Orvanite_1v4(NRiIPlug* fg, NRiIPlug* bg, NRiIPlug* holdOutMatte, NRiIPlug* garbageMatte,
                       const char* output, const char* rScreen, const char* gScreen,
                       const char* bScreen, const char* screenRange, const char* rFgBias,
                       const char* gFgBias, const char* bFgBias, const char* shadowBalance,
                       const char* midtoneBalance, const char* highlightBalance,
                       const char* shadowGain, const char* midtoneGain, const char* highlightGain,
                       const char* midTonesAt, const char* rSpillReplace, const char* gSpillReplace,
                       const char* bSpillReplace, const char* rExposure, const char* gExposure,
                       const char* bExposure, const char* rGamma, const char* gGamma,
                       const char* bGamma, const char* saturation, const char* cspace,
                       const char* useHoldOutMatte, const char* holdOutChannel,
                       const char* useGarbageMatte, const char* garbageChannel, const char* bgColor,
                       const char* clipMode) {
  // The quotes make it a text constant of the expression language.
  return Orvanite(fg, bg, holdOutMatte, garbageMatte, "\"1.4\"", output, rScreen, gScreen, bScreen,
                  screenRange, rFgBias, gFgBias, bFgBias, shadowBalance, midtoneBalance,
                  highlightBalance, shadowGain, midtoneGain, highlightGain, midTonesAt,
                  rSpillReplace, gSpillReplace, bSpillReplace, rExposure, gExposure, bExposure,
                  rGamma, gGamma, bGamma, saturation, cspace, useHoldOutMatte, holdOutChannel,
                  useGarbageMatte, garbageChannel, bgColor, clipMode);
}

NRiIPlug* Orvanite_1v3(NRiIPlug* bg, NRiIPlug* fg, NRiIPlug* holdOutMatte, const char* output,
                       const char* rScreen, const char* gScreen, const char* bScreen,
                       const char* screenRange, const char* rFgBias, const char* gFgBias,
                       const char* bFgBias, const char* shadowBalance, const char* midtoneBalance,
                       const char* highlightBalance, const char* shadowGain,
                       const char* midtoneGain, const char* highlightGain, const char* modTonesAt,
                       const char* rSpillReplace, const char* gSpillReplace,
                       const char* bSpillReplace, const char* rExposure, const char* gExposure,
                       const char* bExposure, const char* rGamma, const char* gGamma,
                       const char* bGamma, const char* saturation, const char* cspace,
                       const char* useHoldOutMatte, const char* holdOutChannel, const char* bgColor,
                       const char* clipMode) {
  // This version takes the background first. It has no garbage matte.
  NRxOrvanite* const node = placed();
  node->getInput(0)->connect(fg);
  node->getInput(1)->connect(bg);
  node->getInput(2)->connect(holdOutMatte);
  giveShared(node, {clipMode,      rScreen,        gScreen,          bScreen,       screenRange,
                    cspace,        output,         rFgBias,          gFgBias,       bFgBias,
                    shadowBalance, midtoneBalance, highlightBalance, shadowGain,    midtoneGain,
                    highlightGain, modTonesAt,     rSpillReplace,    gSpillReplace, bSpillReplace,
                    rExposure,     gExposure,      bExposure,        rGamma,        gGamma,
                    bGamma,        saturation,     useHoldOutMatte,  holdOutChannel});
  give(node, "bgColor", bgColor);
  return node->getOutput();
}
