// SPDX-License-Identifier: BSD-3-Clause
//
// Describing parameters to a host; see Description.h.
#include "plugins/ofx/Description.h"

#include <algorithm>

#include "plugins/ofx/Host.h"

namespace orvanite::ofxPlugin {

namespace {

// "balanceAndGain" -> "groupBalanceAndGain"
std::string idOf(const Group& group) {
  std::string id(group.name);
  id.front() = static_cast<char>(id.front() - 'a' + 'A');
  return "group" + id;
}

// Parameters that decide the output's kind of picture must not move over time: a host asks for
// its clips' preferences once for the whole shot.
bool moves(const Parameter& parameter) {
  return parameter.type != ParameterType::choice && parameter.type != ParameterType::channel &&
         parameter.type != ParameterType::toggle;
}

std::string hintOf(const Parameter& parameter) {
  std::string hint(parameter.help);
  if (!parameter.unit.empty() && parameter.type != ParameterType::colour) {
    hint.append(" (").append(parameter.unit).append(")");
  }
  for (const Choice& choice : parameter.choices) {
    hint.append("\n").append(choice.label).append(": ").append(choice.help);
  }
  if (parameter.name == "output") {
    hint.append("\nIntermediate: the plate's own colours, with the matte in alpha");
  }
  if (parameter.type == ParameterType::channel) {
    hint += " Automatic is alpha, or luminance where alpha is opaque all over or there is none.";
  }
  if (parameter.rule == DefaultRule::balanceOfScreen) {
    hint += " Left alone, it follows the screen's hue.";
  }
  if (parameter.name == "useReference") {
    hint +=
        " Half and float pictures are keyed in 16 bits then: what lies outside 0 to 1 is clipped.";
  }
  return hint;
}

// Describes parameters one by one, each in its group and on the page.
class Describer {
 public:
  Describer(ofx::ParamSet set, bool filter)
      : set_(set),
        filter_(filter),
        page_(define(ofx::paramType::page, "Controls", "Controls", "")) {}

  void openGroup(const Group& group, bool open) {
    group_ = idOf(group);
    define(ofx::paramType::group, group_, group.heading, "")
        .set(ofx::prop::groupOpen, open ? 1 : 0);
  }

  // A parameter of the table.
  void add(const Parameter& parameter) {
    const std::string name(parameter.name);
    const std::string hint = hintOf(parameter);
    const auto start = [&](const char* type) { return row(type, name, parameter.label, hint); };
    Properties properties(nullptr);
    switch (parameter.type) {
      case ParameterType::number:
        properties = start(ofx::paramType::real);
        numbers(properties, parameter, 0, 1);
        break;
      case ParameterType::triple:
        properties = triple(parameter, hint);
        break;
      case ParameterType::colour:
        properties = start(ofx::paramType::rgb);
        for (int i = 0; i < 3; ++i) {
          properties.set(ofx::prop::defaultValue, valueOf(parameter, i), i);
        }
        break;
      case ParameterType::toggle:
        properties = start(ofx::paramType::boolean);
        properties.set(ofx::prop::defaultValue, static_cast<int>(parameter.defaults[0]));
        break;
      default: {
        int first = static_cast<int>(parameter.defaults[0]);
        if (parameter.name == "output") first = defaultOutput(filter_);
        const std::vector<ChoiceEntry> entries = entriesOf(parameter);
        // A matte's channel is found by itself unless it is chosen.
        if (parameter.type == ParameterType::channel) first = static_cast<int>(entries.size()) - 1;
        properties = choice(name.c_str(), parameter.label, hint, entries, first);
      }
    }
    if (!moves(parameter)) properties.set(ofx::prop::animates, 0);
  }

  Properties choice(const char* name, std::string_view label, std::string_view hint,
                    const std::vector<ChoiceEntry>& entries, int first) {
    const bool byText = host().textChoices;
    const Properties properties =
        row(byText ? ofx::paramType::textChoice : ofx::paramType::choice, name, label, hint);
    for (std::size_t i = 0; i < entries.size(); ++i) {
      properties.set(ofx::prop::choiceOption, entries[i].label.c_str(), static_cast<int>(i));
      properties.set(ofx::prop::choiceId, entries[i].id.c_str(), static_cast<int>(i));
    }
    if (byText) {
      properties.set(ofx::prop::defaultValue, entries[static_cast<std::size_t>(first)].id.c_str());
    } else {
      properties.set(ofx::prop::defaultValue, first);
    }
    properties.set(ofx::prop::animates, 0);
    return properties;
  }

  // A property set to describe a new parameter with, in the group and on the page; an empty one,
  // which takes no writes, when the host has it already or has no such kind.
  Properties row(const char* type, const std::string& name, std::string_view label,
                 std::string_view help) {
    const Properties properties = define(type, name, label, help);
    properties.set(ofx::prop::parent, group_.c_str());
    page_.set(ofx::prop::pageChild, name.c_str(), children_++);
    return properties;
  }

  // One that no panel shows.
  Properties define(const char* type, const std::string& name, std::string_view label,
                    std::string_view help) {
    ofx::PropertySet handle = nullptr;
    if (host().parameter->define(set_, type, name.c_str(), &handle) != ofx::ok) {
      return Properties(nullptr);
    }
    const Properties properties(handle);
    const std::string text(label);
    properties.set(ofx::prop::label, text.c_str());
    properties.set(ofx::prop::shortLabel, text.c_str());
    properties.set(ofx::prop::longLabel, text.c_str());
    properties.set(ofx::prop::scriptName, name.c_str());
    if (!help.empty()) properties.set(ofx::prop::hint, std::string(help).c_str());
    return properties;
  }

 private:
  static double valueOf(const Parameter& parameter, int channel) {
    return static_cast<double>(parameter.defaults[static_cast<std::size_t>(channel)]);
  }

  static void numbers(const Properties& properties, const Parameter& parameter, int first,
                      int count) {
    for (int i = 0; i < count; ++i) {
      properties.set(ofx::prop::defaultValue, valueOf(parameter, first + i), i);
      // Both ranges: some hosts take the one for the other, or -1 to 1 for a missing one.
      properties.set(ofx::prop::minimum, static_cast<double>(parameter.low), i);
      properties.set(ofx::prop::maximum, static_cast<double>(parameter.high), i);
      properties.set(ofx::prop::displayMinimum, static_cast<double>(parameter.softLow), i);
      properties.set(ofx::prop::displayMaximum, static_cast<double>(parameter.softHigh), i);
    }
    properties.set(ofx::prop::digits, 4);
    properties.set(ofx::prop::increment,
                   static_cast<double>(parameter.softHigh - parameter.softLow) / 100);
  }

  Properties triple(const Parameter& parameter, const std::string& hint) {
    const std::string name(parameter.name);
    if (!host().showsTriplesAsRectangles) {
      const Properties properties = row(ofx::paramType::real3, name, parameter.label, hint);
      if (properties.handle()) {
        numbers(properties, parameter, 0, 3);
        const char* const labels[] = {"r", "g", "b"};
        for (int i = 0; i < 3; ++i) properties.set(ofx::prop::dimensionLabel, labels[i], i);
        return properties;
      }
    }
    const char* const colours[] = {" red", " green", " blue"};
    for (int i = 0; i < 3; ++i) {
      const auto c = static_cast<std::size_t>(i);
      numbers(row(ofx::paramType::real, name + sliderSuffixes[c],
                  std::string(parameter.label) + colours[c], hint),
              parameter, i, 1);
    }
    return Properties(nullptr);
  }

  ofx::ParamSet set_;
  bool filter_;
  std::string group_;
  Properties page_;
  int children_ = 0;
};

void addOutputRows(Describer& describer) {
  describer.choice(
      premultiplicationParam, "Foreground alpha",
      "How the output Foreground stands to its alpha: straight, not multiplied by the matte, or "
      "premultiplied. The host is told.",
      premultiplicationEntries(), 0);
  describer.choice(clipModeParam, "Size",
                   "Whose size the result has. Around a smaller plate lies clear screen.",
                   clipModeEntries(), 0);
}

void addScreenRows(Describer& describer) {
  describer.row(ofx::paramType::pushButton, autoButton, "Auto",
                "Finds the screen on the current frame of the plate and sets what makes the key by "
                "it.");
  describer.row(ofx::paramType::pushButton, sampleButton, "Sample screen",
                "Measures the screen colour on the current frame of the plate: in the box, or "
                "wherever the screen is.");
  const Properties on = describer.row(ofx::paramType::boolean, boxParam, "Sample in box",
                                      "Shows a box, in which Sample screen measures.");
  on.set(ofx::prop::defaultValue, 0);
  on.set(ofx::prop::animates, 0);
  on.set(ofx::prop::evaluateOnChange, 0);
  struct Corner {
    const char* name;
    const char* label;
    const char* kind;
    double first;
  };
  for (const Corner& corner : {Corner{boxPositionParam, "Box from", ofx::isPosition, 0.05},
                               Corner{boxSizeParam, "Box size", ofx::isSize, 0.1}}) {
    const Properties properties = describer.row(ofx::paramType::real2, corner.name, corner.label,
                                                "Where the box lies, on the plate.");
    properties.set(ofx::prop::doubleType, corner.kind);
    properties.set(ofx::prop::defaultCoordinates, ofx::normalised);
    for (int i = 0; i < 2; ++i) properties.set(ofx::prop::defaultValue, corner.first, i);
    properties.set(ofx::prop::animates, 0);
    properties.set(ofx::prop::evaluateOnChange, 0);
    // Where no overlay of ours can be drawn, the host may have handles of its own.
    if (!host().draw) properties.set(ofx::prop::hostHandle, 1);
  }
}

void addPresetRows(Describer& describer) {
  describer.openGroup({"preset", "Preset"}, false);
  const Properties file = describer.row(ofx::paramType::string, presetFileParam, "File",
                                        "A preset, as the command and the page write them.");
  file.set(ofx::prop::stringMode, ofx::stringIsFile);
  file.set(ofx::prop::defaultValue, "");
  file.set(ofx::prop::animates, 0);
  file.set(ofx::prop::evaluateOnChange, 0);
  describer.row(ofx::paramType::pushButton, loadButton, "Load preset",
                "Sets every parameter from the file.");
  describer.row(ofx::paramType::pushButton, saveButton, "Save preset",
                "Writes the values of the current frame to the file.");
}

void addHiddenRows(Describer& describer) {
  const Properties version = describer.row(ofx::paramType::string, versionParam, "Version",
                                           "The version that these settings were saved by.");
  version.set(ofx::prop::stringMode, ofx::stringIsLabel);
  version.set(ofx::prop::defaultValue, ORVANITE_VERSION);
  version.set(ofx::prop::animates, 0);
  version.set(ofx::prop::evaluateOnChange, 0);
  version.set(ofx::prop::enabled, 0);

  const Properties shown =
      describer.define(ofx::paramType::real, shownBalanceParam, "Shown balance", "");
  shown.set(ofx::prop::defaultValue,
            static_cast<double>(findParameter("midtoneBalance")->defaults[0]));
  shown.set(ofx::prop::animates, 0);
  shown.set(ofx::prop::evaluateOnChange, 0);
  shown.set(ofx::prop::secret, 1);
}

}  // namespace

const std::vector<ChoiceEntry>& clipModeEntries() {
  static const std::vector<ChoiceEntry> entries = {{"plate", "Plate"},
                                                   {"background", "Background"}};
  return entries;
}

const std::vector<ChoiceEntry>& premultiplicationEntries() {
  static const std::vector<ChoiceEntry> entries = {{"straight", "Straight"},
                                                   {"premultiplied", "Premultiplied"}};
  return entries;
}

const std::vector<ChoiceEntry>& sourceAlphaEntries() {
  static const std::vector<ChoiceEntry> entries = {
      {"ignore", "Ignore"}, {"insideMask", "Keep inside"}, {"multiply", "Multiply"}};
  return entries;
}

std::vector<ChoiceEntry> entriesOf(const Parameter& parameter) {
  if (parameter.type == ParameterType::channel) {
    return {{"R", "Red"},
            {"G", "Green"},
            {"B", "Blue"},
            {"A", "Alpha"},
            {"luminance", "Luminance"},
            {"automatic", "Automatic"}};
  }
  std::vector<ChoiceEntry> entries;
  for (const Choice& choice : parameter.choices) {
    entries.push_back({std::string(choice.text), std::string(choice.label)});
  }
  if (parameter.name == "output")
    entries.push_back({std::string(intermediateOutput), "Intermediate"});
  return entries;
}

int defaultOutput(bool filter) {
  const Parameter& output = *findParameter("output");
  if (!filter) return static_cast<int>(output.defaults[0]);
  const auto found = std::find_if(output.choices.begin(), output.choices.end(),
                                  [](const Choice& at) { return at.text == "unpremultiplied"; });
  return static_cast<int>(found - output.choices.begin());
}

ofx::Status describeParameters(ofx::Effect descriptor, bool filter) {
  ofx::ParamSet set = nullptr;
  if (host().effect->getParamSet(descriptor, &set) != ofx::ok || !set) return ofx::badHandle;
  Describer describer(set, filter);
  const Group* group = nullptr;
  for (const Parameter& parameter : parameters()) {
    if (&parameter.group != group) {
      group = &parameter.group;
      // Grades and the finish are looked at last and take the most room.
      const Stage stage = parameter.meaning.stage;
      describer.openGroup(*group, stage != Stage::grade && stage != Stage::finish);
    }
    describer.add(parameter);
    if (parameter.name == "output") addOutputRows(describer);
    if (parameter.name == "screen") addScreenRows(describer);
    if (parameter.name == "garbageChannel") {
      describer.choice(sourceAlphaParam, "Plate's alpha",
                       "What the plate's own alpha does: nothing, keep like a hold-out matte, or "
                       "multiply the matte.",
                       sourceAlphaEntries(), 0);
    }
  }
  addPresetRows(describer);
  addHiddenRows(describer);

  ofx::PropertySet setProperties = nullptr;
  if (host().parameter->setGetPropertySet(set, &setProperties) == ofx::ok) {
    Properties(setProperties).set(ofx::prop::pageOrder, "Controls");
  }
  return ofx::ok;
}

}  // namespace orvanite::ofxPlugin
