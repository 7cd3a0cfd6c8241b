// SPDX-License-Identifier: BSD-3-Clause
//
// Format: {"orvanite": "masks", "version": 1, "shapes": [
//   {"kind": "ellipse", "use": "holdOut", "outside": false, "soft": 4, "keys": [
//     {"frame": 1, "points": [[320, 180]], "radii": [90, 60], "turn": 30}]}]}.
// Kinds: polygon (three points or more), ellipse (its centre; two radii; how far it is turned, in
// degrees clockwise), brush (its way; one radius). Without them: "use" is garbage, "outside" false,
// "soft" 1, "radii" none, "turn" 0.
#include "keyer/MaskFile.h"

#include <algorithm>

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "base/Error.h"
#include "base/TextFile.h"

namespace orvanite {
namespace {

using Json = nlohmann::ordered_json;
using Kind = MaskShape::Kind;
using Use = MaskShape::Use;

constexpr int masksVersion = 1;

// More than anybody draws; what is beyond is damage or malice.
constexpr std::size_t mostShapes = 256, mostKeys = 4096, mostPoints = 4096;
constexpr double farthest = 1e6;   // pixels
constexpr double softest = 1000;   // pixels
constexpr double mostTurn = 3600;  // degrees: between two keys it may go around many times
constexpr int lastFrame = 1'000'000'000;

constexpr std::string_view kindNames[] = {"polygon", "ellipse", "brush"};
constexpr std::string_view useNames[] = {"garbage", "holdOut"};

struct Counts {
  std::size_t leastPoints, mostPoints, radii;
};
constexpr Counts countsOf[] = {{3, mostPoints, 0}, {1, 1, 2}, {1, mostPoints, 1}};

std::string indexed(const std::string& place, std::size_t i) {
  return place + "[" + std::to_string(i) + "]";
}

class Reader {
 public:
  explicit Reader(const std::string& subject) : subject_(subject) {}

  Masks masks(const std::string& text) const {
    if (text.size() >= textFileLimit) throw fail("expected masks of no more than 1 MiB");
    // Masks are six levels deep; brackets that never end are not followed.
    const Json::parser_callback_t shallow = [](int depth, Json::parse_event_t, Json&) {
      if (depth > 8) throw std::length_error("nested too deep");
      return true;
    };
    Json file;
    try {
      file = Json::parse(text, shallow);
    } catch (const std::exception& error) {
      std::string reason = error.what();
      if (const auto bracket = reason.find("] "); bracket != std::string::npos)
        reason.erase(0, bracket + 2);
      throw fail("these are no masks: " + reason);
    }
    if (!file.is_object() || file.value("orvanite", Json()) != "masks" ||
        !file.contains("version")) {
      throw fail("expected masks, with \"orvanite\": \"masks\" and a version");
    }
    if (file["version"] != masksVersion) {
      throw fail("expected masks of version 1, found version " + shortened(file["version"]));
    }
    checkMembers(file, "", {"orvanite", "version", "shapes"});
    Masks masks;
    const Json& shapes = listIn(file, "", "shapes", 0, mostShapes);
    for (std::size_t i = 0; i < shapes.size(); ++i) {
      masks.push_back(mask(shapes[i], indexed("shapes", i)));
    }
    return masks;
  }

 private:
  Error fail(const std::string& message) const { return {Fault::failure, subject_, message}; }

  static std::string shortened(const Json& value) {
    std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
    if (text.size() > 60) text.replace(57, std::string::npos, "...");
    return text;
  }

  Error wrong(const std::string& place, std::string_view expected, const Json& found) const {
    return fail(place + ": expected " + std::string(expected) + ", found " +
                (found.is_null() ? "nothing" : shortened(found)));
  }

  void checkMembers(const Json& object, const std::string& place,
                    std::initializer_list<std::string_view> known) const {
    for (const auto& [name, value] : object.items()) {
      if (std::find(known.begin(), known.end(), name) != known.end()) continue;
      throw fail((place.empty() ? "masks" : place) + ": there is no member " + shortened(name));
    }
  }

  static std::string member(const std::string& place, const char* name) {
    return place.empty() ? name : place + "." + name;
  }

  const Json& listIn(const Json& object, const std::string& place, const char* name,
                     std::size_t least, std::size_t most) const {
    static const Json none;
    const auto found = object.find(name);
    const Json& list = found == object.end() ? none : *found;
    const std::string expected =
        least == most ? "a list of " + std::to_string(least)
                      : "a list of " + std::to_string(least) + " to " + std::to_string(most);
    if (!list.is_array()) throw wrong(member(place, name), expected, list);
    if (list.size() < least || list.size() > most) {
      throw fail(member(place, name) + ": expected " + expected + ", found " +
                 std::to_string(list.size()));
    }
    return list;
  }

  double number(const Json& value, const std::string& place, double low, double high,
                std::string_view expected) const {
    if (!value.is_number()) throw wrong(place, expected, value);
    const auto number = value.get<double>();
    if (!(number >= low && number <= high)) throw wrong(place, expected, value);
    return number;
  }

  template <std::size_t n>
  std::size_t nameIn(const Json& object, const std::string& place, const char* name,
                     const std::string_view (&names)[n], const char* expected) const {
    const Json value = object.value(name, Json());
    for (std::size_t i = 0; i < n; ++i) {
      if (value == names[i]) return i;
    }
    throw wrong(member(place, name), expected, value);
  }

  MovingMask mask(const Json& from, const std::string& place) const {
    if (!from.is_object()) throw wrong(place, "a shape", from);
    checkMembers(from, place, {"kind", "use", "outside", "soft", "keys"});
    MovingMask mask;
    mask.shape.kind =
        static_cast<Kind>(nameIn(from, place, "kind", kindNames, "polygon, ellipse or brush"));
    if (from.contains("use")) {
      mask.shape.use = static_cast<Use>(nameIn(from, place, "use", useNames, "garbage or holdOut"));
    }
    if (from.contains("outside")) {
      const Json& outside = from["outside"];
      if (!outside.is_boolean()) throw wrong(member(place, "outside"), "true or false", outside);
      mask.shape.outside = outside.get<bool>();
    }
    if (from.contains("soft")) {
      mask.shape.softPixels = number(from["soft"], member(place, "soft"), 0, softest,
                                     "a width in pixels from 0 to 1000");
    }
    const Json& keys = listIn(from, place, "keys", 1, mostKeys);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const std::string at = indexed(member(place, "keys"), i);
      mask.keys.push_back(key(keys[i], at, mask.shape.kind));
      if (i == 0) continue;
      const MaskKey &last = mask.keys[i - 1], &now = mask.keys[i];
      if (now.frame <= last.frame) {
        throw fail(at + ".frame: expected one after " + std::to_string(last.frame) + ", found " +
                   std::to_string(now.frame));
      }
      if (now.points.size() != last.points.size()) {
        throw fail(at + ".points: expected " + std::to_string(last.points.size()) +
                   " as in the key before, found " + std::to_string(now.points.size()));
      }
    }
    return mask;
  }

  MaskKey key(const Json& from, const std::string& place, Kind kind) const {
    if (!from.is_object()) throw wrong(place, "a key", from);
    if (kind == Kind::ellipse) {
      checkMembers(from, place, {"frame", "points", "radii", "turn"});
    } else {
      checkMembers(from, place, {"frame", "points", "radii"});
    }
    MaskKey key;
    const double frame = number(from.value("frame", Json()), member(place, "frame"), -lastFrame,
                                lastFrame, "a frame's number");
    key.frame = static_cast<int>(frame);
    if (key.frame != frame) throw wrong(member(place, "frame"), "a frame's number", from["frame"]);
    const Counts& counts = countsOf[static_cast<std::size_t>(kind)];
    const Json& points = listIn(from, place, "points", counts.leastPoints, counts.mostPoints);
    for (std::size_t i = 0; i < points.size(); ++i) {
      const std::string at = indexed(member(place, "points"), i);
      constexpr std::string_view expected = "x and y in pixels, each within a million";
      if (!points[i].is_array() || points[i].size() != 2) throw wrong(at, expected, points[i]);
      key.points.push_back({number(points[i][0], at, -farthest, farthest, expected),
                            number(points[i][1], at, -farthest, farthest, expected)});
    }
    if (counts.radii == 0 && !from.contains("radii")) return key;
    const Json& radii = listIn(from, place, "radii", counts.radii, counts.radii);
    for (std::size_t i = 0; i < radii.size(); ++i) {
      key.radii.push_back(number(radii[i], indexed(member(place, "radii"), i), 1e-3, farthest,
                                 "pixels from 0.001 to a million"));
    }
    if (from.contains("turn")) {
      key.turnDegrees = number(from["turn"], member(place, "turn"), -mostTurn, mostTurn,
                               "degrees from -3600 to 3600");
    }
    return key;
  }

  const std::string& subject_;
};

}  // namespace

std::string masksText(const Masks& masks) {
  std::string text = "{\"orvanite\": \"masks\", \"version\": 1, \"shapes\": [";
  for (std::size_t i = 0; i < masks.size(); ++i) {
    const MaskShape& shape = masks[i].shape;
    text += i == 0 ? "\n" : ",\n";
    const Json head{{"kind", kindNames[static_cast<std::size_t>(shape.kind)]},
                    {"use", useNames[static_cast<std::size_t>(shape.use)]},
                    {"outside", shape.outside},
                    {"soft", shape.softPixels}};
    std::string line = head.dump();
    line.pop_back();
    text += "  " + line + ",\"keys\":[";
    for (std::size_t k = 0; k < masks[i].keys.size(); ++k) {
      const MaskKey& key = masks[i].keys[k];
      Json one{{"frame", key.frame}, {"points", key.points}};
      if (!key.radii.empty()) one["radii"] = key.radii;
      if (key.turnDegrees != 0) one["turn"] = key.turnDegrees;
      text += (k == 0 ? "\n    " : ",\n    ") + one.dump();
    }
    text += "]}";
  }
  return text + "]}\n";
}

Masks masksFromText(const std::string& text, const std::string& subject) {
  return Reader(subject).masks(text);
}

Masks masksFromFile(const std::string& path) {
  return masksFromText(readTextFile(path, "there are no such masks, or they cannot be read"), path);
}

}  // namespace orvanite
