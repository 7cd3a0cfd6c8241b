// SPDX-License-Identifier: BSD-3-Clause
//
// The table in frei0r's terms, and keying; see effect.h.
#include "plugins/frei0r/effect.h"

#include <frei0r.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>

#include "keyer/Error.h"

namespace orvanite::frei0rPlugin {

namespace {

// frei0r has no mattes and no clean plate, and a filter no background.
bool carried(const Parameter& parameter) {
  if (parameter.group == "Mattes") return false;
  return kind().background || parameter.group != "Background grade";
}

std::string plain(double value) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, static_cast<float>(value)).ptr;
  return std::string(text, end);
}

int typeOf(const Parameter& parameter) {
  switch (parameter.type) {
    case ParameterType::colour:
      return F0R_PARAM_COLOR;
    case ParameterType::toggle:
      return F0R_PARAM_BOOL;
    case ParameterType::choice:
    case ParameterType::channel:
      return F0R_PARAM_STRING;
    default:
      return F0R_PARAM_DOUBLE;
  }
}

std::string explanationOf(const Parameter& parameter) {
  std::string text(parameter.help);
  const bool spansUnit = parameter.softLow == 0 && parameter.softHigh == 1;
  if (typeOf(parameter) == F0R_PARAM_DOUBLE && !spansUnit) {
    text.append(" 0 to 1 stands for ").append(plain(static_cast<double>(parameter.softLow)));
    text.append(" to ").append(plain(static_cast<double>(parameter.softHigh))).append(".");
  }
  if (!parameter.choices.empty()) {
    text += " One of:";
    for (const Choice& choice : parameter.choices) text.append(" ").append(choice.text);
    text += ".";
  }
  if (parameter.rule == DefaultRule::balanceOfScreen) {
    text += " Left alone, it follows the screen's hue.";
  }
  return text;
}

std::string nameOf(const Parameter& parameter) {
  std::string label(parameter.label);
  if (parameter.group != "Background grade") return label;
  label.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(label.front())));
  return label.insert(0, "Background ");
}

std::vector<Control> makeControls() {
  std::vector<Control> made;
  for (const Parameter& parameter : parameters()) {
    if (!carried(parameter)) continue;
    const int type = typeOf(parameter);
    if (parameter.type != ParameterType::triple) {
      made.push_back({&parameter, 0, type, nameOf(parameter), explanationOf(parameter)});
      continue;
    }
    const char* const channels[] = {" red", " green", " blue"};
    for (int c = 0; c < 3; ++c) {
      made.push_back(
          {&parameter, c, type, nameOf(parameter) + channels[c], explanationOf(parameter)});
    }
  }
  return made;
}

OtileImage imageOf(const std::uint32_t* pixels, int width) {
  auto* bytes = reinterpret_cast<unsigned char*>(const_cast<std::uint32_t*>(pixels));
  return {bytes, bytes + 1, bytes + 2, bytes + 3, 4, 4 * width};
}

}  // namespace

const std::vector<Control>& controls() {
  static const std::vector<Control> list = makeControls();
  return list;
}

double toUnit(const Parameter& parameter, double value) {
  const double low = static_cast<double>(parameter.softLow);
  return (value - low) / (static_cast<double>(parameter.softHigh) - low);
}

double fromUnit(const Parameter& parameter, double unit) {
  const double low = static_cast<double>(parameter.softLow);
  const double value = low + unit * (static_cast<double>(parameter.softHigh) - low);
  return std::clamp(value, static_cast<double>(parameter.low), static_cast<double>(parameter.high));
}

Effect::Effect(unsigned int width, unsigned int height)
    : width_(static_cast<int>(width)),
      height_(static_cast<int>(height)),
      texts_(controls().size()) {
  settings_.setText("output", kind().defaultOutput);
}

void Effect::set(int index, const void* value) {
  if (index < 0 || index >= static_cast<int>(controls().size()) || !value) return;
  const Control& control = controls()[static_cast<std::size_t>(index)];
  const Parameter& parameter = *control.parameter;
  const std::lock_guard guard(lock_);
  try {
    switch (control.type) {
      case F0R_PARAM_STRING: {
        const char* text = *static_cast<const f0r_param_string*>(value);
        if (text) settings_.setText(parameter.name, text);
        break;
      }
      case F0R_PARAM_COLOR: {
        const auto& colour = *static_cast<const f0r_param_color_t*>(value);
        settings_.setNumbers(parameter.name, static_cast<double>(colour.r),
                             static_cast<double>(colour.g), static_cast<double>(colour.b));
        break;
      }
      case F0R_PARAM_BOOL:
        settings_.setNumber(parameter.name, *static_cast<const double*>(value) >= 0.5 ? 1 : 0);
        break;
      default: {
        const double number = fromUnit(parameter, *static_cast<const double*>(value));
        // Hosts set every parameter of a new instance to what it showed before: the table's own
        // default, set again, is still no value of the user's.
        if (parameter.rule != DefaultRule::fixed &&
            static_cast<float>(std::round(number * 1e4) / 1e4) == parameter.defaults[0]) {
          settings_.reset(parameter.name);
        } else if (parameter.type == ParameterType::triple) {
          double rgb[3];
          for (int c = 0; c < 3; ++c)
            rgb[c] = static_cast<double>(settings_.number(parameter.name, c));
          rgb[control.channel] = number;
          settings_.setNumbers(parameter.name, rgb[0], rgb[1], rgb[2]);
        } else {
          settings_.setNumber(parameter.name, number);
        }
      }
    }
  } catch (const Error&) {
    // frei0r has no way to complain: the value stays as it was.
  }
}

void Effect::get(int index, void* value) {
  if (index < 0 || index >= static_cast<int>(controls().size()) || !value) return;
  const Control& control = controls()[static_cast<std::size_t>(index)];
  const Parameter& parameter = *control.parameter;
  const std::lock_guard guard(lock_);
  switch (control.type) {
    case F0R_PARAM_STRING: {
      std::string& text = texts_[static_cast<std::size_t>(index)];
      text = settings_.text(parameter.name);
      *static_cast<f0r_param_string*>(value) = text.data();
      break;
    }
    case F0R_PARAM_COLOR:
      *static_cast<f0r_param_color_t*>(value) = {settings_.number(parameter.name, 0),
                                                 settings_.number(parameter.name, 1),
                                                 settings_.number(parameter.name, 2)};
      break;
    case F0R_PARAM_BOOL:
      *static_cast<double*>(value) = settings_.toggle(parameter.name) ? 1 : 0;
      break;
    default: {
      const bool follows = parameter.rule != DefaultRule::fixed && !settings_.given(parameter.name);
      const float number =
          follows ? parameter.defaults[0] : settings_.number(parameter.name, control.channel);
      *static_cast<double*>(value) = toUnit(parameter, static_cast<double>(number));
    }
  }
}

void Effect::update(const std::uint32_t* plate, const std::uint32_t* background,
                    std::uint32_t* out) {
  if (!plate || !out || width_ <= 0 || height_ <= 0) return;
  Recipe recipe;
  {
    const std::lock_guard guard(lock_);
    recipe.settings = settings_;
  }
  recipe.inputs.background = background != nullptr;

  int result = 1;
  if (recipe.settings.screenProblem().empty()) {
    const auto lease = engines_.lease(recipe);
    if (lease.result() == 0) {
      Otile tile{};
      tile.dst = imageOf(out, width_);
      tile.fg = imageOf(plate, width_);
      if (recipe.settings.view(recipe.inputs) == 0) tile.bg = imageOf(background, width_);
      result = orvanite_render(lease.engine(), 1, width_, height_, &tile);
    }
  }
  if (result != 0 && out != plate) {
    std::memcpy(out, plate,
                static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 4);
  }
}

}  // namespace orvanite::frei0rPlugin
