// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Messages.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>

#include "apps/view/PageTable.h"
#include "base/Error.h"
#include "keyer/MaskFile.h"
#include "keyer/Parameters.h"
#include "keyer/Preset.h"
#include "shot/Job.h"

namespace orvanite::view {
namespace {

using nlohmann::json;

// Longest value of a parameter, and of a page's name, that is looked at.
constexpr std::size_t textLimit = 4096;
constexpr int bodyDepthLimit = 8;

[[noreturn]] void refuse(const std::string& subject, const std::string& expected) {
  throw Error(Fault::wrongUse, subject, "expected " + expected);
}

json parse(const std::string& body) {
  // Nesting is bounded while it is read: a deep body must not use up the stack.
  bool deep = false;
  json parsed = json::parse(
      body,
      [&deep](int depth, json::parse_event_t, json&) {
        deep = deep || depth > bodyDepthLimit;
        return !deep;
      },
      false);
  if (parsed.is_discarded() || deep || !parsed.is_object()) refuse("request", "a JSON object");
  return parsed;
}

std::string textOf(const json& object, const char* name) {
  const auto found = object.find(name);
  if (found == object.end() || !found->is_string()) refuse(name, "a text");
  auto text = found->get<std::string>();
  if (text.size() > textLimit) refuse(name, "a shorter text");
  return text;
}

std::int64_t wholeOf(const json& value, const char* name, std::int64_t low, std::int64_t high) {
  if (!value.is_number_integer()) refuse(name, "a whole number");
  // An unsigned one beyond the signed range would come out negative.
  if (value.is_number_unsigned() &&
      value.get<std::uint64_t>() >
          static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    refuse(name, "a smaller number");
  }
  const auto number = value.get<std::int64_t>();
  if (number < low || number > high) {
    refuse(name, "a number from " + std::to_string(low) + " to " + std::to_string(high));
  }
  return number;
}

int intOf(const json& object, const char* name) {
  const auto found = object.find(name);
  if (found == object.end()) refuse(name, "a whole number");
  return static_cast<int>(
      wholeOf(*found, name, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

bool flagOf(const json& object, const char* name) {
  const auto found = object.find(name);
  if (found == object.end()) return false;
  if (!found->is_boolean()) refuse(name, "true or false");
  return found->get<bool>();
}

media::Window windowOf(const json& object, const char* name) {
  const auto found = object.find(name);
  if (found == object.end() || !found->is_array() || found->size() != 4) {
    refuse(name, "four whole numbers: x, y, width, height");
  }
  const auto number = [&](std::size_t i) {
    return static_cast<int>(wholeOf((*found)[i], name, 0, std::numeric_limits<int>::max()));
  };
  return {number(0), number(1), number(2), number(3)};
}

// Masks stand among the settings, as they belong to a side of the page as these do.
constexpr const char* masksName = "masks";

Given givenIn(const json& object) {
  const auto found = object.find("settings");
  if (found == object.end() || !found->is_object()) refuse("settings", "an object of texts");
  Given given;
  for (const auto& [name, value] : found->items()) {
    if (name == masksName && value.is_string()) {
      given.masks = masksFromText(value.get<std::string>(), masksName);
      continue;
    }
    if (!value.is_string() || value.get_ref<const std::string&>().size() > textLimit) {
      refuse(name.substr(0, textLimit), "a text");
    }
    given.settings.setText(name.substr(0, textLimit), value.get<std::string>());
  }
  return given;
}

Settings settingsIn(const json& object) { return givenIn(object).settings; }

json textsOf(const Given& given) {
  json texts = givenTexts(given.settings);
  if (!given.masks.empty()) texts[masksName] = masksText(given.masks);
  return texts;
}

// As the page calls the pictures, in the order of the roles.
constexpr std::string_view roleNames[] = {"plate", "background", "holdOut", "garbage", "reference"};

std::string fromBase64(const std::string& text) {
  constexpr std::string_view letters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  std::uint32_t bits = 0;
  int count = 0;
  for (const char letter : text) {
    if (letter == '=') break;
    const std::size_t value = letters.find(letter);
    if (value == std::string_view::npos) refuse("bytes", "a text in base64");
    bits = bits << 6 | static_cast<std::uint32_t>(value);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> count & 0xFF);
  }
  return bytes;
}

PageView viewIn(const json& object) {
  const std::string name = textOf(object, "view");
  const auto view = pageViewOf(name);
  if (!view) throw Error::expected(Fault::wrongUse, "view", "the name of a view", name);
  return *view;
}

// The last part of a path. A name that is not UTF-8 is shown with its odd bytes replaced.
std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

std::string dump(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// The form of pictures, as pictureReply tells it.
std::string packed(const json& header, const ScreenPicture& picture) {
  std::string text = dump(header);
  text.resize((text.size() + 3) / 4 * 4, ' ');
  std::string reply;
  reply.reserve(4 + text.size() + picture.rgba.size());
  for (unsigned shift = 0; shift < 32; shift += 8) {
    reply += static_cast<char>((text.size() >> shift) & 0xFF);
  }
  reply += text;
  reply.append(reinterpret_cast<const char*>(picture.rgba.data()), picture.rgba.size());
  return reply;
}

// JSON knows no infinity and no NaN; the page shows them as texts.
json number(float value) {
  if (std::isfinite(value)) return value;
  return std::isnan(value) ? "nan" : value > 0 ? "inf" : "-inf";
}

template <std::size_t n>
json numbers(const std::array<float, n>& values) {
  json list = json::array();
  for (const float value : values) list.push_back(number(value));
  return list;
}

}  // namespace

NumberedRequest pictureRequestOf(const std::string& body) {
  const json object = parse(body);
  NumberedRequest numbered;
  PictureRequest& request = numbered.request;
  request.view = viewIn(object);
  request.frame = intOf(object, "frame");
  const auto [settings, masks] = givenIn(object);
  request.settings = settings.at(request.frame);
  request.masks = masks;
  numbered.shown = unknownToPage(settings);
  request.divisor = intOf(object, "divisor");
  request.proxy = flagOf(object, "proxy");
  request.window = windowOf(object, "window");
  request.measured = flagOf(object, "measured");
  request.slot = intOf(object, "slot");
  numbered.page = textOf(object, "page") + std::string(1, '/') + std::to_string(request.slot);
  const auto count = object.find("number");
  if (count == object.end()) refuse("number", "a whole number");
  numbered.number = static_cast<std::uint64_t>(
      wholeOf(*count, "number", 0, std::numeric_limits<std::int64_t>::max()));
  return numbered;
}

ProbeRequest probeRequestOf(const std::string& body) {
  const json object = parse(body);
  const int frame = intOf(object, "frame");
  const Given given = givenIn(object);
  return {given.settings.at(frame), given.masks,        viewIn(object),       frame,
          intOf(object, "x"),       intOf(object, "y"), intOf(object, "slot")};
}

BoxRequest boxRequestOf(const std::string& body) {
  const json object = parse(body);
  return {intOf(object, "frame"), windowOf(object, "window")};
}

FindRequest findRequestOf(const std::string& body) {
  const json object = parse(body);
  const int frame = intOf(object, "frame");
  return {settingsIn(object).at(frame), frame};
}

GiveRequest giveRequestOf(const std::string& body) {
  const json object = parse(body);
  const auto at = object.find("at");
  const auto bytes = object.find("bytes");
  if (at == object.end()) refuse("at", "a whole number");
  if (bytes == object.end() || !bytes->is_string()) refuse("bytes", "a text");
  return {
      intOf(object, "set"), textOf(object, "name"),
      static_cast<std::uintmax_t>(wholeOf(*at, "at", 0, std::numeric_limits<std::int64_t>::max())),
      fromBase64(bytes->get_ref<const std::string&>())};
}

OpenRequest openRequestOf(const std::string& body) {
  const json object = parse(body);
  const std::string role = textOf(object, "role");
  const auto* found = std::find(std::begin(roleNames), std::end(roleNames), role);
  if (found == std::end(roleNames)) {
    throw Error::expected(Fault::wrongUse, "role", "that of a picture, such as background", role);
  }
  OpenRequest request{roles[static_cast<std::size_t>(found - std::begin(roleNames))],
                      intOf(object, "set"), textOf(object, "name")};
  if (request.role == Role::plate && request.name.empty()) refuse("name", "a plate");
  return request;
}

namespace {
std::string fileTextIn(const std::string& body, const char* expected) {
  const json object = parse(body);
  const auto text = object.find("text");
  if (text == object.end() || !text->is_string()) refuse("text", expected);
  return text->get<std::string>();
}
}  // namespace

Settings presetIn(const std::string& body) {
  return settingsFromPreset(fileTextIn(body, "a preset"), "preset");
}

Masks masksFileIn(const std::string& body) {
  return masksFromText(fileTextIn(body, "masks"), masksName);
}

JobRequest jobRequestOf(const std::string& body) {
  const json object = parse(body);
  const auto [settings, masks] = givenIn(object);
  JobRequest request{settings, masks, std::nullopt};
  if (object.contains("from") || object.contains("to")) {
    request.frames = {intOf(object, "from"), intOf(object, "to")};
  }
  return request;
}

std::string nameIn(const std::string& body) { return textOf(parse(body), "name"); }

int indexOf(const std::string& body) { return intOf(parse(body), "index"); }

int frameIn(const std::string& body) { return intOf(parse(body), "frame"); }

Given givenIn(const std::string& body) { return givenIn(parse(body)); }

std::string describe(const Footage& footage, const shot::ShotFiles& named, const Given& given,
                     const std::string& output) {
  const FootageInfo& info = footage.info();
  const auto file = [&](Role role) { return fileName(named.clips[role].path); };
  return dump({{"version", ORVANITE_VERSION},
               {"files",
                {{"plate", file(Role::plate)},
                 {"background", file(Role::background)},
                 {"holdOut", file(Role::holdOut)},
                 {"garbage", file(Role::garbage)},
                 {"reference", file(Role::cleanPlate)}}},
               {"width", info.width},
               {"height", info.height},
               {"depth", bytesOf(info.depth)},
               {"samples", media::nameOf(info.samples)},
               {"frames", info.frames},
               {"isShot", info.isShot},
               {"framesPerSecond", info.framesPerSecond},
               {"colourspace", info.colourspace},
               {"reason", info.reason},
               {"notices", info.notices},
               {"output", fileName(output)},
               {"parameters", parameterTable()},
               {"masks", true},
               {"settings", textsOf(given)}});
}

std::string pictureReply(const RenderedPicture& rendered, const NumberedRequest& asked,
                         double milliseconds) {
  const media::Window& window = rendered.window;
  json header{{"width", rendered.picture.width},
              {"height", rendered.picture.height},
              {"window", {window.x, window.y, window.width, window.height}},
              {"milliseconds", milliseconds}};
  header["inForce"] = inForceTexts(asked.request.settings, asked.shown);
  if (rendered.measure) header["matte"] = measureReply(*rendered.measure);
  return packed(header, rendered.picture);
}

std::string screenReply(const ScreenPicture& picture) {
  return packed({{"width", picture.width}, {"height", picture.height}}, picture);
}

std::string probeReply(const PixelValues& values, Depth depth) {
  return dump({{"plate", numbers(values.plate)},
               {"matte", number(values.matte)},
               {"result", numbers(values.result)},
               {"maximum", maxOf(depth)}});
}

std::string foundReply(const Renderer::Found& found) {
  json texts = json::object();
  for (const Parameter& parameter : parameters()) {
    if (!parameter.meaning.followsScreen) continue;
    const std::string_view name = parameter.name;
    texts[std::string(name)] =
        found.settings.given(name) ? json(found.settings.text(name)) : json(nullptr);
  }
  return dump({{"settings", std::move(texts)}, {"coverage", number(found.coverage)}});
}

std::string coverageReply(float coverage) { return dump({{"coverage", number(coverage)}}); }

std::string boxReply(const BoxColours& colours) {
  return dump({{"median", numbers(colours.median)},
               {"low", numbers(colours.low)},
               {"high", numbers(colours.high)}});
}

std::string jobReply(const std::string& state, double done, const std::string& message) {
  return dump({{"state", state}, {"done", done}, {"message", message}});
}

std::string settingsReply(const Given& given) { return dump({{"settings", textsOf(given)}}); }

std::string masksReply(const Masks& masks) {
  return dump({{"settings", {{masksName, masksText(masks)}}}});
}

std::string errorReply(const std::string& subject, const std::string& message) {
  return dump({{"error", {{"subject", subject}, {"message", message}}}});
}

}  // namespace orvanite::view
