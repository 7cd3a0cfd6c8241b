// SPDX-License-Identifier: BSD-3-Clause
//
// The table in frei0r's terms, and keying; see Effect.h.
#include "plugins/frei0r/Effect.h"

#include <frei0r.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>
#include <thread>

#include "base/Error.h"
#include "keyer/AutoKey.h"
#include "plugins/RowCrew.h"

namespace orvanite::frei0rPlugin {

namespace {

// frei0r has no mattes and no clean plate, and a filter no background. Hosts hand over slices of a
// frame, and the finish looks at what is around them.
bool carried(const Parameter& parameter) {
  if (parameter.meaning.stage == Stage::finish) return false;
  const SidePicture needs = parameter.meaning.needs;
  return needs == SidePicture::none || (needs == SidePicture::background && kind().background);
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
    text += " By name or number:";
    int number = 0;
    for (const Choice& choice : parameter.choices) {
      text.append(number == 0 ? " " : ", ").append(std::to_string(number));
      text.append(" ").append(choice.text);
      ++number;
    }
    if (parameter.meaning.stage == Stage::estimate) {
      text.append(", ").append(std::to_string(number)).append(" ").append(automaticEstimate);
      text += ": as the found screen has it";
    }
    text += ".";
  }
  if (parameter.rule == DefaultRule::balanceOfScreen) {
    text += " Left alone, it follows the screen's hue.";
  }
  return text;
}

std::string nameOf(const Parameter& parameter) {
  std::string label(parameter.label);
  const Meaning& meaning = parameter.meaning;
  // Both grades have the same labels.
  if (meaning.stage != Stage::grade || meaning.needs != SidePicture::background) return label;
  label.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(label.front())));
  return label.insert(0, "Background ");
}

std::vector<Control> makeControls() {
  std::vector<Control> made;
  const Parameter* estimate = nullptr;
  for (const Parameter& parameter : parameters()) {
    if (!carried(parameter)) continue;
    if (parameter.meaning.stage == Stage::estimate) {
      estimate = &parameter;
      continue;
    }
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
  // Last, so that the others keep their numbers.
  made.push_back(
      {nullptr, 0, F0R_PARAM_BOOL, "Find screen",
       "While no screen colour is set, the first frame that shows a screen sets what makes the "
       "key."});
  made.push_back({estimate, 0, F0R_PARAM_STRING, nameOf(*estimate), explanationOf(*estimate)});
  return made;
}

// The number of a choice, or -1 for a text that is none.
int choiceNumber(const Parameter& parameter, std::string_view text) {
  int number = -1;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  const bool whole = read.ec == std::errc() && read.ptr == end;
  return whole && number < static_cast<int>(parameter.choices.size()) ? number : -1;
}

bool isAutomatic(const Parameter& parameter, std::string_view text) {
  return parameter.meaning.stage == Stage::estimate &&
         (text == automaticEstimate || text == std::to_string(parameter.choices.size()));
}

// Whether a colour is the table's default, give or take what hosts of eight bits make of it.
bool isDefault(const Parameter& parameter, const f0r_param_color_t& colour) {
  constexpr float oneCode = 1.0f / 255;
  const float values[] = {colour.r, colour.g, colour.b};
  for (std::size_t c = 0; c < 3; ++c) {
    if (!(std::fabs(values[c] - parameter.defaults[c]) <= oneCode)) return false;
  }
  return true;
}

OtileImage imageOf(const std::uint32_t* pixels, int width) {
  auto* bytes = reinterpret_cast<unsigned char*>(const_cast<std::uint32_t*>(pixels));
  return {bytes, bytes + 1, bytes + 2, bytes + 3, 4, 4 * width};
}

}  // namespace

/// Threads for one frame, had by the first that asks: of slices that are keyed at once the others
/// keep to their callers' threads.
class FrameCrew {
 public:
  explicit FrameCrew(std::atomic<bool>& out) : out_(out) {}
  ~FrameCrew() {
    if (!crew_) return;
    crew_.reset();
    out_ = false;
  }
  FrameCrew(const FrameCrew&) = delete;
  FrameCrew& operator=(const FrameCrew&) = delete;

  RowLoop rows() {
    if (!crew_ && !out_.exchange(true)) {
      crew_.emplace(static_cast<int>(std::min(std::thread::hardware_concurrency(), mostThreads)));
    }
    return crew_ ? crew_->rows() : RowLoop(bandAfterBand);
  }

 private:
  static constexpr unsigned int mostThreads = 16;
  std::atomic<bool>& out_;
  std::optional<RowCrew> crew_;
};

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
  const std::lock_guard guard(lock_);
  if (!control.parameter) {
    findsScreen_ = *static_cast<const double*>(value) >= 0.5;
    return;
  }
  const Parameter& parameter = *control.parameter;
  // Hosts set every parameter of a new instance to what it showed before: the table's own default,
  // set again, is still no value of the user's.
  try {
    switch (control.type) {
      case F0R_PARAM_STRING: {
        const char* text = *static_cast<const f0r_param_string*>(value);
        if (!text) break;
        const Settings before = settings_;
        if (const int number = choiceNumber(parameter, text); number >= 0) {
          settings_.setNumber(parameter.name, number);
        } else if (isAutomatic(parameter, text)) {
          settings_.reset(parameter.name);
        } else {
          settings_.setText(parameter.name, text);
        }
        // What was found was found in another encoding, or keyed in another.
        const bool decides =
            parameter.name == "colourspace" || parameter.meaning.stage == Stage::estimate;
        if (decides && !(settings_ == before)) forgetFound();
        break;
      }
      case F0R_PARAM_COLOR: {
        const auto& colour = *static_cast<const f0r_param_color_t*>(value);
        if (isDefault(parameter, colour)) {
          settings_.reset(parameter.name);
        } else {
          settings_.setNumbers(parameter.name, static_cast<double>(colour.r),
                               static_cast<double>(colour.g), static_cast<double>(colour.b));
        }
        break;
      }
      case F0R_PARAM_BOOL:
        settings_.setNumber(parameter.name, *static_cast<const double*>(value) >= 0.5 ? 1 : 0);
        break;
      default: {
        const double number = fromUnit(parameter, *static_cast<const double*>(value));
        double rgb[3] = {number, number, number};
        if (parameter.type == ParameterType::triple) {
          for (int c = 0; c < 3; ++c) {
            if (c != control.channel) {
              rgb[c] = static_cast<double>(settings_.number(parameter.name, c));
            }
          }
        }
        bool untouched = true;
        for (std::size_t c = 0; c < static_cast<std::size_t>(valuesOf(parameter.type)); ++c) {
          if (static_cast<float>(std::round(rgb[c] * 1e4) / 1e4) != parameter.defaults[c]) {
            untouched = false;
          }
        }
        if (untouched) {
          settings_.reset(parameter.name);
        } else if (parameter.type == ParameterType::triple) {
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
  const std::lock_guard guard(lock_);
  if (!control.parameter) {
    *static_cast<double*>(value) = findsScreen_ ? 1 : 0;
    return;
  }
  const Parameter& parameter = *control.parameter;
  switch (control.type) {
    case F0R_PARAM_STRING: {
      std::string& text = texts_[static_cast<std::size_t>(index)];
      text = settings_.text(parameter.name);
      if (parameter.meaning.stage == Stage::estimate && !settings_.given(parameter.name)) {
        text = automaticEstimate;
      }
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

void Effect::forgetFound() {
  foundNames_.clear();
  estimates_.reset();
}

Effect::Key Effect::keyFor(const std::uint32_t* plate, const Inputs& inputs, FrameCrew& crew) {
  const std::lock_guard guard(lock_);
  const bool finds = findsScreen_ && !settings_.given("screen");
  const bool asked = keysBesideEstimates(settings_, inputs);
  const Plate frame{imageOf(plate, width_), width_, height_, Depth::bytes};
  Settings values;
  for (const char* name : {"colourspace", "estimate"}) {
    if (settings_.given(name)) values.setText(name, settings_.text(name));
  }
  try {
    if (asked || (finds && findsEstimates(settings_, inputs))) {
      if (!estimates_) {
        auto found = std::make_shared<BlindKey>(orvanite::findKey(frame, values, {}, crew.rows()));
        foundNames_ = found->set;
        foundValues_ = found->settings;
        estimates_ = std::move(found);
      }
    } else if (finds && foundNames_.empty()) {
      foundNames_ = autoKey(frame, values, CleanPlateUse::never).set;
      foundValues_ = values;
    }
  } catch (const Error&) {
    return {settings_, nullptr};  // no screen yet: the next frame may show one
  }
  Key key{settings_, estimates_};
  if (!finds) return key;
  for (const std::string& name : foundNames_) {
    if (!settings_.given(name)) key.settings.setText(name, foundValues_.text(name));
  }
  return key;
}

bool Effect::render(const Key& key, const Inputs& inputs, const Otile& pictures, FrameCrew& crew) {
  const Recipe recipe{key.settings, Depth::bytes, inputs};
  if (!recipe.settings.screenProblem().empty()) return false;
  if (keysBesideEstimates(key.settings, inputs)) {
    if (!key.estimates) return false;
    const Frame frame{pictures, width_, height_, Depth::bytes};
    const RowLoop rows = crew.rows();
    const BlindKey own =
        key.estimates->carriedTo({pictures.fg, width_, height_, Depth::bytes}, rows);
    frames_.beside(own, recipe)->render(own, frame, rows);
    return true;
  }
  const auto lease = engines_.lease(recipe);
  Otile tile = pictures;
  return lease.result() == 0 && orvanite_render(lease.engine(), 1, width_, height_, &tile) == 0;
}

void Effect::update(const std::uint32_t* plate, const std::uint32_t* background,
                    std::uint32_t* out) {
  if (!plate || !out || width_ <= 0 || height_ <= 0) return;
  Inputs inputs;
  inputs.background = background != nullptr;
  FrameCrew crew(crewOut_);
  const Key key = keyFor(plate, inputs, crew);
  Otile pictures{};
  pictures.dst = imageOf(out, width_);
  pictures.fg = imageOf(plate, width_);
  if (key.settings.view(inputs) == View::composite) pictures.bg = imageOf(background, width_);
  bool keyed = false;
  try {
    keyed = render(key, inputs, pictures, crew);
  } catch (const Error&) {
    // What cannot be keyed is shown as it is.
  }
  if (!keyed && out != plate) {
    std::memcpy(out, plate,
                static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 4);
  }
}

}  // namespace orvanite::frei0rPlugin
