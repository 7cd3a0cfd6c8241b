// SPDX-License-Identifier: BSD-3-Clause
//
// Reading, checking and writing of parameter values, and the way from them into an engine.
#include "keyer/Settings.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/Error.h"
#include "base/Numbers.h"

namespace orvanite {
namespace {

std::string plain(double value) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, static_cast<float>(value)).ptr;
  return std::string(text, end);
}

std::string rangeOf(const Parameter& parameter) {
  return "from " + plain(parameter.low) + " to " + plain(parameter.high);
}

std::string choicesOf(const Parameter& parameter) {
  std::string list;
  for (std::size_t i = 0; i < parameter.choices.size(); ++i) {
    if (i > 0) list += i + 1 == parameter.choices.size() ? " or " : ", ";
    list += parameter.choices[i].text;
  }
  return list;
}

std::string expectationOf(const Parameter& parameter) {
  switch (parameter.type) {
    case ParameterType::number:
      return "a number " + rangeOf(parameter);
    case ParameterType::triple:
    case ParameterType::colour:
      return "one number or R,G,B, each " + rangeOf(parameter);
    case ParameterType::choice:
      return choicesOf(parameter);
    case ParameterType::toggle:
      return "on or off";
    case ParameterType::channel:
      return "a channel's name, such as R, G, B or A";
  }
  return {};
}

[[noreturn]] void refuse(const Parameter& parameter, std::string_view found) {
  throw Error::expected(Fault::wrongUse, std::string(parameter.name), expectationOf(parameter),
                        found);
}

// The whole of a text as a number; a leading plus and outer blanks are allowed.
bool readNumber(std::string_view text, double& value) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
  return readDouble(text, value);
}

// Four decimals, as the node keeps its values: what is set here, saved and loaded there stays the
// same bits. A range is checked before rounding and its ends have at most four decimals.
float rounded(double value) { return static_cast<float>(std::round(value * 1e4) / 1e4); }

float checked(const Parameter& parameter, double value, std::string_view found) {
  const bool inside = value >= static_cast<double>(parameter.low) - 1e-9 &&
                      value <= static_cast<double>(parameter.high) + 1e-9;
  if (!std::isfinite(value) || !inside) refuse(parameter, found);
  return rounded(value);
}

// As the node has it: a float that an expression came to, kept to four decimals.
float valueAt(const Curve& curve, double frame) {
  return rounded(static_cast<double>(static_cast<float>(curve.at(frame))));
}

// A curve whose keys a parameter accepts.
Curve curveOf(const Parameter& parameter, std::string_view text) {
  Curve curve = parseCurve(text, std::string(parameter.name));
  for (CurveKey& key : curve.keys) {
    checked(parameter, key.value, plain(key.value));
    key.value = std::round(key.value * 1e4) / 1e4;
  }
  return curve;
}

// The first comma that is not within brackets.
std::size_t firstComma(std::string_view text) {
  int open = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '(') ++open;
    if (text[i] == ')') --open;
    if (text[i] == ',' && open == 0) return i;
  }
  return std::string_view::npos;
}

const Parameter& entryOf(std::string_view name) {
  if (const Parameter* entry = findParameter(name)) return *entry;
  std::vector<std::string_view> names;
  for (const Parameter& entry : parameters()) names.push_back(entry.name);
  std::string message = "no parameter has this name";
  if (const auto meant = nearest(name, names); !meant.empty()) {
    message += "; did you mean '" + std::string(meant) + "'?";
  }
  throw Error(Fault::wrongUse, std::string(name), message);
}

std::size_t indexOf(std::string_view name) {
  return static_cast<std::size_t>(&entryOf(name) - parameters().data());
}

}  // namespace

Settings::Settings() : values_(parameters().size()) {
  for (std::size_t i = 0; i < values_.size(); ++i) {
    values_[i].numbers = parameters()[i].defaults;
    values_[i].text = parameters()[i].defaultText;
  }
}

const Settings::Value& Settings::value(std::string_view name) const {
  return values_[indexOf(name)];
}

void Settings::setText(std::string_view name, std::string_view text) {
  const std::size_t index = indexOf(name);
  const Parameter& parameter = parameters()[index];
  Value next = values_[index];
  next.given = true;
  switch (parameter.type) {
    case ParameterType::channel:
      if (text.empty()) refuse(parameter, text);
      next.text = text;
      break;
    case ParameterType::choice: {
      const auto found = std::find_if(parameter.choices.begin(), parameter.choices.end(),
                                      [text](const Choice& choice) { return choice.text == text; });
      if (found == parameter.choices.end()) refuse(parameter, text);
      next.numbers[0] = static_cast<float>(found - parameter.choices.begin());
      break;
    }
    case ParameterType::toggle:
      if (text == "on" || text == "1" || text == "true") {
        next.numbers[0] = 1;
      } else if (text == "off" || text == "0" || text == "false") {
        next.numbers[0] = 0;
      } else {
        refuse(parameter, text);
      }
      break;
    default: {
      const auto count = static_cast<std::size_t>(valuesOf(parameter.type));
      std::size_t read = 0;
      std::string_view rest = text;
      for (bool more = true; more; ++read) {
        const std::size_t comma = firstComma(rest);
        if (read == count) refuse(parameter, text);
        const std::string_view part = rest.substr(0, comma);
        next.curves[read] = {};
        if (looksLikeCurve(part)) {
          next.curves[read] = curveOf(parameter, part);
          next.numbers[read] = rounded(next.curves[read].keys.front().value);
        } else {
          double number = 0;
          if (!readNumber(part, number)) refuse(parameter, text);
          next.numbers[read] = checked(parameter, number, text);
        }
        more = comma != std::string_view::npos;
        if (more) rest.remove_prefix(comma + 1);
      }
      if (read == 1) {
        next.numbers.fill(next.numbers[0]);
        if (count == 3) next.curves[1] = next.curves[2] = next.curves[0];
      } else if (read != count) {
        refuse(parameter, text);
      }
    }
  }
  values_[index] = std::move(next);
}

void Settings::setNumber(std::string_view name, double value) {
  setNumbers(name, value, value, value);
}

void Settings::setNumbers(std::string_view name, double r, double g, double b) {
  const std::size_t index = indexOf(name);
  const Parameter& parameter = parameters()[index];
  if (parameter.type == ParameterType::channel) refuse(parameter, plain(r));
  const bool whole =
      parameter.type == ParameterType::choice || parameter.type == ParameterType::toggle;
  if (whole && r != std::floor(r)) refuse(parameter, plain(r));
  Value next = values_[index];
  next.numbers = {checked(parameter, r, plain(r)), checked(parameter, g, plain(g)),
                  checked(parameter, b, plain(b))};
  next.curves = {};
  next.given = true;
  values_[index] = std::move(next);
}

float Settings::number(std::string_view name, int channel) const {
  const std::size_t index = indexOf(name);
  const Value& held = values_[index];
  if (parameters()[index].rule == DefaultRule::balanceOfScreen && !held.given) {
    return number("screen", 2) > number("screen", 1) ? 0.9f : 0.5f;
  }
  return held.numbers[static_cast<std::size_t>(channel)];
}

std::string_view Settings::choice(std::string_view name) const {
  const Parameter& parameter = entryOf(name);
  return parameter.choices[static_cast<std::size_t>(number(name))].text;
}

std::string Settings::text(std::string_view name) const {
  const Parameter& parameter = entryOf(name);
  switch (parameter.type) {
    case ParameterType::channel:
      return value(name).text;
    case ParameterType::choice:
      return std::string(choice(name));
    case ParameterType::toggle:
      return toggle(name) ? "on" : "off";
    default:
      break;
  }
  std::string text = channelText(name, 0);
  if (valuesOf(parameter.type) == 1) return text;
  const std::string green = channelText(name, 1);
  const std::string blue = channelText(name, 2);
  if (text == green && green == blue) return text;
  return text + ',' + green + ',' + blue;
}

std::string Settings::channelText(std::string_view name, int channel) const {
  const Curve& curve = value(name).curves[static_cast<std::size_t>(channel)];
  return curve ? curve.text() : plain(number(name, channel));
}

bool Settings::moves(std::string_view name) const {
  const auto& curves = value(name).curves;
  return std::any_of(curves.begin(), curves.end(), [](const Curve& one) { return bool(one); });
}

bool Settings::moves() const {
  const auto all = parameters();
  return std::any_of(all.begin(), all.end(),
                     [this](const Parameter& one) { return moves(one.name); });
}

void Settings::expectStill() const {
  for (const Parameter& one : parameters()) {
    if (!moves(one.name)) continue;
    throw Error(Fault::wrongUse, std::string(one.name),
                "moves from frame to frame: expected the settings of one frame");
  }
}

Settings Settings::at(double frame) const {
  Settings still = *this;
  for (std::size_t i = 0; i < still.values_.size(); ++i) {
    Value& value = still.values_[i];
    const Parameter& parameter = parameters()[i];
    for (std::size_t c = 0; c < value.curves.size(); ++c) {
      if (!value.curves[c]) continue;
      value.numbers[c] = valueAt(value.curves[c], frame);
      value.curves[c] = {};
      // Between keys a smooth curve may leave the range that they lie in. The engine holds its own
      // parameters, as it does for the node.
      if (parameter.plugs[0].empty()) {
        value.numbers[c] = std::clamp(value.numbers[c], parameter.low, parameter.high);
      }
    }
  }
  return still;
}

bool Settings::given(std::string_view name) const { return value(name).given; }

void Settings::reset(std::string_view name) {
  const std::size_t index = indexOf(name);
  values_[index] = {
      parameters()[index].defaults, {}, std::string(parameters()[index].defaultText), false};
}

View Settings::view(const Inputs& inputs) const {
  const std::string_view output = choice("output");
  if (output == "composite") return inputs.background ? View::composite : View::flat;
  if (output == "unpremultiplied") return View::unpremultiplied;
  if (output == "status") return View::status;
  if (output == "matte") return View::matte;
  return View::flat;
}

void Settings::applyTo(QMXOrvaniteTable* engine, Depth depth, const Inputs& inputs) const {
  const auto rgb = [&](std::string_view name, auto set, auto... more) {
    set(engine, number(name, 0), number(name, 1), number(name, 2), more...);
  };

  orvanite_useRef(engine, inputs.reference && toggle("useReference") ? 1 : 0);
  orvanite_useHold(engine, inputs.holdOut && toggle("useHoldOutMatte") ? 1 : 0);
  orvanite_useGarbage(engine, inputs.garbage && toggle("useGarbageMatte") ? 1 : 0);
  const std::string_view output = choice("output");
  if (output == "compOnReplace") {
    rgb("replace", orvanite_setBackground);
  } else if (output == "compOnColour") {
    rgb("backgroundColour", orvanite_setBackground);
  } else if (view(inputs) == View::flat) {
    orvanite_setBackground(engine, 0, 0, 0);
  }
  rgb("screen", orvanite_setScreen);
  orvanite_setColourspace(engine, static_cast<int>(number("colourspace")));
  orvanite_setView(engine, static_cast<int>(view(inputs)));
  orvanite_setScreenRange(engine, number("screenRange"));
  rgb("fgBias", orvanite_setNeutral);
  orvanite_setBalance(engine, 0, number("shadowBalance"));
  orvanite_setBalance(engine, 1, number("midtoneBalance"));
  orvanite_setBalance(engine, 2, number("highlightBalance"));
  orvanite_setGain(engine, 0, number("shadowGain"));
  orvanite_setGain(engine, 1, number("midtoneGain"));
  orvanite_setGain(engine, 2, number("highlightGain"));
  rgb("midTonesAt", orvanite_setMp);
  rgb("replace", orvanite_setReplace);
  rgb("exposure", orvanite_setExposure, 0);
  rgb("gamma", orvanite_setGamma, 0);
  rgb("offset", orvanite_setOffset, 0);
  orvanite_setSaturation(engine, number("saturation"), 0);
  rgb("bgExposure", orvanite_setExposure, 1);
  rgb("bgGamma", orvanite_setGamma, 1);
  rgb("bgOffset", orvanite_setOffset, 1);
  orvanite_setSaturation(engine, number("bgSaturation"), 1);

  const int maximum = maxOf(depth);
  orvanite_setGMatteMax(engine, maximum);
  orvanite_setFgMax(engine, maximum);
  orvanite_setBgMax(engine, maximum);
  orvanite_setHMatteMax(engine, maximum);
  orvanite_setRefMax(engine, maximum);
  orvanite_setDstMax(engine, maximum);
}

std::string Settings::screenProblem() const {
  std::array<float, 3> screen{number("screen", 0), number("screen", 1), number("screen", 2)};
  std::sort(screen.begin(), screen.end());
  if (screen[2] == 0) return "expected a colour, found black (" + text("screen") + ")";
  // With a tinted foreground bias other colours are grey to the engine, which then says so itself.
  const bool plainBias =
      number("fgBias", 0) == number("fgBias", 1) && number("fgBias", 1) == number("fgBias", 2);
  if (!plainBias) return {};
  if (screen[0] == screen[2]) return "expected a colour, found a grey (" + text("screen") + ")";
  if (screen[1] == screen[2] && number("midtoneBalance") == 1) {
    return "expected one channel above the others when midtoneBalance is 1, found " +
           text("screen");
  }
  return {};
}

std::string tableProblem(int result) {
  switch (result) {
    case 0:
      return {};
    case 1:
      return "fgBias: expected three channels above 0";
    case 2:
      return "screen: expected a colour with one channel above the others, seen beside fgBias";
    default:
      return "the keyer's tables could not be built: out of memory, or a clean plate with float "
             "pictures";
  }
}

}  // namespace orvanite
