// SPDX-License-Identifier: BSD-3-Clause
//
// What the page's worker calls: texts of JSON in and out, and pixels where they lie. One page, one
// thread. No exception leaves this file: what is thrown becomes {"error": {"subject", "message"}}.
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "apps/view/PageTable.h"
#include "base/Error.h"
#include "keyer/MaskFile.h"
#include "keyer/Parameters.h"
#include "keyer/Preset.h"
#include "web/Views.h"

using namespace orvanite;
using namespace orvanite::web;
using nlohmann::json;

// Where the pictures lie: with whoever loads the module. Hands over `count` rows of samples from
// `top` on; the room is for as many.
extern "C" __attribute__((import_module("orvanite"), import_name("rows"))) void orvanite_webRows(
    int role, int top, int count, void* to);

namespace {

Views views([](Role role, int top, int count, std::byte* to) {
  orvanite_webRows(static_cast<int>(role), top, count, to);
});
Picture shown;       // by the last answer
std::string answer;  // the last one

// Masks stand among the settings, as the text of their file.
constexpr const char* masksName = "masks";

Settings settingsIn(const json& object) {
  Settings settings;
  for (const auto& [name, value] : object.at("settings").items()) {
    if (name != masksName) settings.setText(name, value.get<std::string>());
  }
  return settings;
}

// As they are at the frame that is held.
Settings settingsNow(const json& object) { return settingsIn(object).at(views.frame); }

Masks masksIn(const json& object) {
  const json& settings = object.at("settings");
  if (!settings.contains(masksName)) return {};
  return masksFromText(settings[masksName].get<std::string>(), masksName);
}

Window windowIn(const json& object, const char* name = "window") {
  const auto numbers = object.at(name).get<std::array<int, 4>>();
  return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

json describe() { return {{"version", ORVANITE_VERSION}, {"parameters", view::parameterTable()}}; }

json show(const json& object) {
  const Settings given = settingsIn(object);
  Request request;
  request.settings = given.at(views.frame);
  request.masks = masksIn(object);
  request.view = object.at("view").get<std::string>();
  request.divisor = object.at("divisor").get<int>();
  request.proxy = object.value("proxy", false);
  request.window = windowIn(object);
  request.measured = object.value("measured", false);
  views.giveBack(std::move(shown));
  Shown result = views.show(request);
  const Window& window = result.window;
  json header{{"width", result.picture.width},
              {"height", result.picture.height},
              {"window", {window.x, window.y, window.width, window.height}}};
  header["inForce"] = view::inForceTexts(request.settings, view::unknownToPage(given));
  if (result.measure) header["matte"] = view::measureReply(*result.measure);
  shown = std::move(result.picture);
  return header;
}

// A window's samples at the pictures' own depth.
json key(const json& object) {
  views.giveBack(std::move(shown));
  std::optional<Window> within;
  if (object.contains("within")) within = windowIn(object, "within");
  shown = views.keyed(settingsNow(object), masksIn(object), object.at("view").get<std::string>(), 1,
                      windowIn(object), within);
  return {{"width", shown.width}, {"height", shown.height}, {"depth", bytesOf(shown.depth)}};
}

json find(const json& object) {
  const Views::Found found = views.find(settingsNow(object));
  json texts = json::object();
  for (const Parameter& parameter : parameters()) {
    if (!parameter.meaning.followsScreen) continue;
    const std::string_view name = parameter.name;
    texts[std::string(name)] =
        found.settings.given(name) ? json(found.settings.text(name)) : json(nullptr);
  }
  return {{"settings", std::move(texts)}, {"coverage", found.coverage}};
}

json answerTo(std::string_view name, const json& object) {
  if (name == "describe") return describe();
  if (name == "show") return show(object);
  if (name == "key") return key(object);
  if (name == "find") return find(object);
  if (name == "coverage") return {{"coverage", views.coverage(settingsNow(object))}};
  if (name == "needsAll") return views.needsAll(settingsNow(object), masksIn(object));
  if (name == "wantsEstimates") return views.wantsEstimates(settingsNow(object));
  if (name == "estimate") return views.estimate(settingsNow(object));
  if (name == "see") return views.see();
  if (name == masksName) return masksText(masksIn(object));
  if (name == "preset") return presetText(settingsIn(object));
  if (name == "useMasks") {
    return masksText(masksFromText(object.at("text").get<std::string>(), masksName));
  }
  if (name == "usePreset") {
    return view::givenTexts(settingsFromPreset(object.at("text").get<std::string>(), "preset"));
  }
  // Every value that was given, as the whole table orders and writes them.
  if (name == "given") return view::givenTexts(settingsIn(object));
  throw Error(Fault::wrongUse, "request", "expected one that there is");
}

template <class Call>
const char* guarded(Call call) {
  json said;
  try {
    said = call();
  } catch (const Error& error) {
    said = {{"error", {{"subject", error.subject()}, {"message", error.message()}}}};
  } catch (const std::bad_alloc&) {
    said = {
        {"error", {{"subject", "memory"}, {"message", "there is not enough for this picture"}}}};
  } catch (const std::exception& error) {
    said = {{"error", {{"subject", "request"}, {"message", error.what()}}}};
  }
  answer = said.dump(-1, ' ', false, json::error_handler_t::replace);
  return answer.c_str();
}

}  // namespace

#define ORVANITE_WEB __attribute__((visibility("default"), used))

extern "C" {

/// Room for a text, to be given back; 0 where there is none.
ORVANITE_WEB void* orvanite_webRoom(std::size_t bytes) { return std::malloc(bytes); }
ORVANITE_WEB void orvanite_webFree(void* room) { std::free(room); }

/// Tells of a picture for a role (its number), RGBA samples of `depth` bytes, whose rows
/// orvanite_webRows hands over; from `left`, `top` on its file holds `own` columns and rows, and
/// zeros are beside. Width 0 drops one. turns  whether it is another frame of the plate, beside
/// which all others stay frame  its number
ORVANITE_WEB const char* orvanite_webTake(int role, int width, int height, int depth, int hasAlpha,
                                          int turns, int frame, int left, int top, int ownWidth,
                                          int ownHeight) {
  return guarded([&]() -> json {
    if (role < 0 || role >= static_cast<int>(roleCount)) {
      throw Error(Fault::wrongUse, "role", "expected a number from 0 to 4");
    }
    if (width < 1) {
      views.pictures.drop(static_cast<Role>(role));
      return json::object();
    }
    const auto samples = depthOf(depth);
    if (!samples || height < 1) {
      throw Error(Fault::wrongUse, "picture", "expected samples of 1, 2 or 4 bytes");
    }
    Picture picture;
    picture.width = width;
    picture.height = height;
    picture.depth = *samples;
    picture.hasAlpha = hasAlpha != 0;
    picture.own = {left, top, ownWidth, ownHeight};
    if (turns != 0) {
      views.turn(picture, frame);
    } else {
      views.pictures.take(static_cast<Role>(role), picture);
    }
    return json::object();
  });
}

/// Brings RGBA samples of a picture over a frame as a background, for orvanite_webPixels: sizes,
/// and bytes of a sample of both.
ORVANITE_WEB const char* orvanite_webFit(const void* samples, int width, int height, int depth,
                                         int frameWidth, int frameHeight, int frameDepth) {
  return guarded([&]() -> json {
    const auto from = depthOf(depth), to = depthOf(frameDepth);
    if (!from || !to || width < 1 || height < 1 || frameWidth < 1 || frameHeight < 1) {
      throw Error(Fault::wrongUse, "picture", "expected samples of 1, 2 or 4 bytes");
    }
    shown = fitted(static_cast<const std::byte*>(samples), width, height, *from, frameWidth,
                   frameHeight, *to);
    return json::object();
  });
}

/// Answers a question by its name and a JSON object. The text lasts until the next call.
ORVANITE_WEB const char* orvanite_webAsk(const char* name, const char* body) {
  return guarded([&] { return answerTo(name, json::parse(body)); });
}

/// The pixels that the last answer speaks of, RGBA; they last until the next call.
ORVANITE_WEB const void* orvanite_webPixels(void) { return shown.pixels.data(); }

}  // extern "C"
