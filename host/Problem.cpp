// SPDX-License-Identifier: BSD-3-Clause
//
// What a node that goes on all the same would not say: why it shows its plate unkeyed, and which of
// its texts it took for another.
#include <algorithm>
#include <array>
#include <cctype>
#include <string>
#include <string_view>

#include "base/ScriptText.h"
#include "host/NRxOrvanite.h"

namespace {

template <std::size_t count>
std::string unknown(NRiPlug& plug, const std::array<std::string_view, count>& expected) {
  const NRiName held = plug.asString();
  if (std::find(expected.begin(), expected.end(), held.view()) != expected.end()) return {};
  std::string texts;
  for (const std::string_view text : expected) {
    texts += (texts.empty() ? "" : ", ") + orvanite::inQuotes(text);
  }
  return "has the " + std::string(plug.name().view()) + " " + orvanite::inQuotes(held.view()) +
         ": expected one of " + texts;
}

}  // namespace

std::string NRxOrvanite::tableProblem() const {
  switch (tables_) {
    case 0:
      return {};
    case 1:
      return "cannot key: expected a foreground bias of three channels above 0";
    case 2:
      return "cannot key with its screen colour: expected one with a channel above the others";
    default:
      return "has no memory for its tables";
  }
}

// A letter that is no channel's means alpha; a channel that a picture lacks is its background's.
std::string NRxOrvanite::matteProblem(const Matte& matte, Input input, NRiPlug& channel) const {
  if (matte.active == 0) return {};
  constexpr std::string_view letters = "ABGR";  // by element
  const std::string name(channel.name().view());
  if (matte.channel == 0 || letters.find(matte.channel) == std::string_view::npos) {
    return "has the " + name + " " + orvanite::inQuotes(channel.asString().view()) +
           ": expected R, G, B or A";
  }
  const int held = inputs_[input]->channels()->asInt();
  if ((held & 1 << matte.element()) != 0) return {};
  std::string has;
  for (const int element : {3, 2, 1, 0}) {
    if ((held & 1 << element) == 0) continue;
    has += (has.empty() ? "" : ", ") + std::string(1, letters[static_cast<std::size_t>(element)]);
  }
  return "takes its " + name + " " + std::string(1, matte.channel) +
         " from a picture without it: expected one of " + has;
}

std::string NRxOrvanite::problem() const {
  if (!out_->image()->isUpToDate()) return {};
  const std::string problems[] = {
      tableProblem(),
      unknown(*output_, std::array<std::string_view, 5>{"composite", "compOnBlack", "compOnReplace",
                                                        "unpremultiplied", "status"}),
      unknown(*colourspace_, std::array<std::string_view, 3>{"linear", "log", "video"}),
      matteProblem(hold_, kHold, *holdChannel_),
      matteProblem(garbage_, kGarbage, *garbageChannel_),
      refused_ ? "was given pictures that its output cannot be keyed from" : ""};
  const auto* const first = std::find_if(std::begin(problems), std::end(problems),
                                         [](const std::string& one) { return !one.empty(); });
  return first == std::end(problems) ? std::string() : *first;
}
