// SPDX-License-Identifier: BSD-3-Clause
//
// Arguments come from the declarations; what they mean from the comments there, and for the keyer
// from its table of parameters.
#include "apps/cli/ScriptReference.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <vector>

#include "base/Error.h"
#include "keyer/Parameters.h"
#include "platform/NRiMath.h"
#include "platform/NRiScope.h"

namespace orvanite::cli {
namespace {

constexpr std::size_t lineLength = 100;

// Words in lines that all begin with `indent`, the first one behind `start`.
std::string wrapped(std::string start, std::string_view text, std::size_t indent) {
  std::string result;
  start.resize(std::max(start.size(), indent), ' ');
  std::string line = std::move(start);
  bool isFresh = true;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    if (!isFresh && line.size() + 1 + end > lineLength) {
      result += line + "\n";
      line.assign(indent, ' ');
      isFresh = true;
    }
    line += (isFresh ? "" : " ") + std::string(text.substr(0, end));
    isFresh = false;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return result + line + "\n";
}

struct Meaning {
  std::string_view name, help;
};

// Arguments of the keyer's functions that are no parameters of its table, or not by that name.
constexpr Meaning others[] = {
    {"version", "Which set of parameters the script was written with; it changes nothing."},
    {"bgColor", "1 keys what lies beyond the pictures' pixels, too."},
    {"clipMode", "0 makes the result as large as the plate, 1 as large as the background."},
};
constexpr std::array<std::string_view, 2> synonyms[] = {{"cspace", "colourspace"},
                                                        {"modTonesAt", "midTonesAt"},
                                                        {"rSpillReplace", "rReplace"},
                                                        {"gSpillReplace", "gReplace"},
                                                        {"bSpillReplace", "bReplace"}};

// The images of the keyer's functions have no names in the declarations.
constexpr Meaning keyers[] = {
    {"Orvanite", "Keys a plate: what has the screen's colour becomes clear."},
    {"Orvanite_1v4", "Orvanite with the arguments of version 1.4."},
    {"Orvanite_1v3",
     "Orvanite with the arguments of version 1.3: the background first, no garbage matte, and "
     "middle and bright tones that follow the dark ones."},
};
constexpr std::string_view imagesOfKeyer[] = {
    "The plate.", "What it stands before, for the output composite.",
    "Hold-out matte: white keeps the foreground.", "Garbage matte: white cuts away."};

const Meaning* meaningOf(std::span<const Meaning> all, std::string_view name) {
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const Meaning& one) { return one.name == name; });
  return found == all.end() ? nullptr : &*found;
}

std::string helpOfPlug(std::string_view name) {
  for (const auto& [argument, plug] : synonyms) {
    if (name == argument) name = plug;
  }
  for (const Parameter& parameter : parameters()) {
    if (std::find(parameter.plugs.begin(), parameter.plugs.end(), name) == parameter.plugs.end()) {
      continue;
    }
    std::string help(parameter.help);
    for (const Choice& choice : parameter.choices) {
      // What the node has: the others are for those who set the engine themselves.
      if (choice.text == "matte" || choice.text == "compOnColour") continue;
      help += fmt::format(" \"{}\": {}.", choice.text, choice.help);
    }
    return help;
  }
  const Meaning* const other = meaningOf(others, name);
  return other ? std::string(other->help) : std::string();
}

std::string helpOf(const NRiFunction& function, std::size_t i) {
  const NRiParameter& parameter = function.parameters[i];
  if (!parameter.help.empty() || !meaningOf(keyers, function.name.view())) return parameter.help;
  if (parameter.type != nriImage) return helpOfPlug(parameter.name.view());
  // Version 1.3 takes the background first.
  const bool isOld = function.name.view() == "Orvanite_1v3";
  return std::string(imagesOfKeyer[isOld && i < 2 ? 1 - i : i]);
}

std::string_view typeName(NRiId type) {
  return type == nriImage    ? "image"
         : type == nriString ? "text"
         : type == nriInt    ? "whole"
                             : "number";
}

std::string withDefault(const NRiParameter& one) {
  const bool isImage = one.type == nriImage;
  std::string text = isImage ? "image" : std::string(one.name.view());
  if (one.hasDefault) text += " = " + (isImage ? "0" : one.text);
  return text;
}

// The arguments of the keyer's earlier versions mean what they do in its present one: among all
// functions they are listed, by name alone explained once more.
std::string referenceOf(const NRiFunction& function, bool isAlone) {
  const Meaning* const keyer = meaningOf(keyers, function.name.view());
  const bool isBrief = keyer && keyer != keyers && !isAlone;
  std::string call = std::string(function.name.view()) + "(";
  for (const NRiParameter& one : function.parameters) {
    if (!call.ends_with('(')) call += ", ";
    call += isBrief                ? withDefault(one)
            : one.type == nriImage ? "image"
                                   : std::string(one.name.view());
  }
  std::string text = wrapped("", call + ")", 0);
  text += wrapped("", keyer ? keyer->help : std::string_view(function.help), 4);
  if (isBrief) return text;
  std::string before;
  for (std::size_t i = 0; i < function.parameters.size(); ++i) {
    const NRiParameter& one = function.parameters[i];
    const std::string start = fmt::format("    {:<7}{}", typeName(one.type), withDefault(one));
    std::string help = helpOf(function, i);
    if (help == before) {
      help = "The same.";  // of another channel
    } else {
      before = help;
    }
    text += start.size() > 36 ? start + "\n" + wrapped("", help, 38) : wrapped(start, help, 38);
  }
  return text;
}

std::string referenceOf(const NRiMathFunction& function, bool) {
  return wrapped(fmt::format("{}({})", function.name, function.arguments), "", 0) +
         wrapped("", function.help, 4);
}

}  // namespace

std::string scriptReference(const std::string& name) {
  std::string text;
  std::string names;
  const auto add = [&](std::string_view own, const auto& function) {
    names += (names.empty() ? "" : ", ") + std::string(own);
    if (name.empty() || name == own)
      text += (text.empty() ? "" : "\n") + referenceOf(function, !name.empty());
  };
  for (const NRiFunction* const function : NRiScope::getGlobal()->functions()) {
    add(function->name.view(), *function);
  }
  for (const NRiMathFunction& function : NRiMathFunctions()) add(function.name, function);
  if (text.empty()) {
    throw Error::expected(Fault::wrongUse, "--functions", "one of " + names, name);
  }
  return text;
}

}  // namespace orvanite::cli
