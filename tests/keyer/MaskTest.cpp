// SPDX-License-Identifier: BSD-3-Clause
//
// Drawn masks against what geometry says of them, their moves against arithmetic, and their file
// against what people and machines may write into it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>
#include <vector>

#include "base/Error.h"
#include "keyer/MaskFile.h"

using namespace orvanite;
using Kind = MaskShape::Kind;
using Use = MaskShape::Use;

namespace {

MaskShape shapeOf(Kind kind, std::vector<MaskPoint> points, std::vector<double> radii,
                  double soft) {
  return {kind, Use::garbage, false, soft, std::move(points), std::move(radii)};
}

// An ellipse's outline in steps of a forty thousandth of a turn, to try distances from.
std::vector<MaskPoint> outlineOf(double a, double b) {
  std::vector<MaskPoint> outline;
  for (int i = 0; i < 40000; ++i) {
    const double turn = 2 * std::numbers::pi * i / 40000;
    outline.push_back({a * std::cos(turn), b * std::sin(turn)});
  }
  return outline;
}

double triedDistance(const std::vector<MaskPoint>& outline, double x, double y) {
  double least = 1e300;
  for (const auto& [u, v] : outline) {
    least = std::min(least, (x - u) * (x - u) + (y - v) * (y - v));
  }
  return std::sqrt(least);
}

std::vector<float> rendered(const MaskShape& shape, int width, int height) {
  std::vector<float> matte(static_cast<std::size_t>(width * height));
  for (int y = 0; y < height; ++y) {
    joinRow(shape, Depth::floats, matte.data() + static_cast<std::ptrdiff_t>(y) * width, 1, width,
            0.5, y + 0.5);
  }
  return matte;
}

std::string file(const std::string& shapes) {
  return R"({"orvanite": "masks", "version": 1, "shapes": [)" + shapes + "]}";
}

}  // namespace

TEST(Masks, HoldTheAreaThatGeometrySays) {
  // A soft edge takes as much outside as it gives inside, but for its bend: sums are areas.
  struct Case {
    const char* name;
    MaskShape shape;
    double area, tolerance;
  };
  const Case cases[] = {
      // 40 x 30 / 2; the right angle and the corners round off within a soft edge of 2 pixels.
      {"triangle", shapeOf(Kind::polygon, {{10, 10}, {50, 10}, {10, 40}}, {}, 1), 600, 1.5},
      {"ellipse", shapeOf(Kind::ellipse, {{40, 30}}, {30, 20}, 1), std::numbers::pi * 600, 0.6},
      {"thin ellipse", shapeOf(Kind::ellipse, {{40, 30}}, {4, 25}, 1), std::numbers::pi * 100, 0.6},
      // A stroke of 30 pixels with round ends: 2 r 30 + pi r^2.
      {"stroke", shapeOf(Kind::brush, {{20, 20}, {35, 20}, {50, 20}}, {8}, 1),
       480 + std::numbers::pi * 64, 0.6},
      {"dot", shapeOf(Kind::brush, {{30, 30}}, {10}, 4), std::numbers::pi * (100 + 16 / 12.0), 0.6},
  };
  for (const Case& one : cases) {
    double sum = 0;
    for (const float held : rendered(one.shape, 80, 60)) sum += static_cast<double>(held);
    EXPECT_NEAR(sum, one.area, one.tolerance) << one.name;
    MaskShape outside = one.shape;
    outside.outside = true;
    double rest = 0;
    for (const float held : rendered(outside, 80, 60)) rest += static_cast<double>(held);
    EXPECT_NEAR(sum + rest, 80 * 60, 0.01) << one.name;
  }
}

TEST(Masks, SoftenAnEllipseByTheDistanceFromItsOutline) {
  // Coverage is 0.5 plus the distance in widths of the edge. Flat, upright, round and tiny ones;
  // places on both axes, at the centre, inside and outside.
  for (const auto& [a, b] : {std::pair{90.0, 20.0}, {20.0, 90.0}, {50.0, 50.0}, {50.0, 49.9}}) {
    const double soft = 400;
    const std::vector<MaskPoint> outline = outlineOf(a, b);
    const MaskShape ellipse = shapeOf(Kind::ellipse, {{0, 0}}, {a, b}, soft);
    for (double y = -100; y <= 100; y += 12.5) {
      for (double x = -100; x <= 100; x += 12.5) {
        const bool inside = x * x / (a * a) + y * y / (b * b) < 1;
        const double distance = triedDistance(outline, x, y);
        EXPECT_NEAR(coverage(ellipse, x, y), 0.5 + (inside ? distance : -distance) / soft, 1e-5)
            << a << ' ' << b << ' ' << x << ' ' << y;
      }
    }
  }
}

TEST(Masks, TurnAnEllipseAboutItsMiddle) {
  // What is at x, y of one that is turned is at the same place turned back of one that is not: a
  // positive turn goes from x to y, which is clockwise where y points down.
  MaskShape ellipse = shapeOf(Kind::ellipse, {{7, -3}}, {60, 25}, 200);
  const MaskShape straight = ellipse;
  for (const double degrees : {30.0, 45.0, 89.9, 135.5, -20.0, 200.0, 3333.0, -3600.0}) {
    ellipse.turnDegrees = degrees;
    const double angle = std::fmod(degrees, 360) * std::numbers::pi / 180;
    for (double y = -80; y <= 80; y += 16) {
      for (double x = -80; x <= 80; x += 16) {
        const double u = x * std::cos(angle) + y * std::sin(angle);
        const double v = y * std::cos(angle) - x * std::sin(angle);
        EXPECT_NEAR(coverage(ellipse, 7 + x, -3 + y), coverage(straight, 7 + u, -3 + v), 1e-12)
            << degrees << ' ' << x << ' ' << y;
      }
    }
  }
  // Quarters are exact: the radii change places, half a turn changes nothing.
  const MaskShape upright = shapeOf(Kind::ellipse, {{7, -3}}, {25, 60}, 200);
  for (const double degrees : {90.0, -90.0, 180.0, 270.0, 360.0, -3510.0}) {
    ellipse.turnDegrees = degrees;
    const bool odd = std::fmod(std::abs(degrees), 180) == 90;
    EXPECT_EQ(rendered(ellipse, 40, 40), rendered(odd ? upright : straight, 40, 40)) << degrees;
  }
}

TEST(Masks, LookOnlyAtSidesWithinReachWithoutMissingAny) {
  // A star that crosses itself, against all of its sides at once: even-odd by counting to the left.
  std::vector<MaskPoint> star;
  for (int i = 0; i < 5; ++i) {
    const double turn = 4 * std::numbers::pi * i / 5;
    star.push_back({40 + 33 * std::sin(turn), 40 - 33 * std::cos(turn)});
  }
  const double soft = 12;
  for (const Kind kind : {Kind::polygon, Kind::brush}) {
    const bool stroke = kind == Kind::brush;
    const MaskShape shape =
        shapeOf(kind, star, stroke ? std::vector<double>{5} : std::vector<double>{}, soft);
    const std::vector<float> matte = rendered(shape, 80, 80);
    for (int y = 0; y < 80; ++y) {
      for (int x = 0; x < 80; ++x) {
        const double u = x + 0.5, v = y + 0.5;
        double nearest = 1e9;
        int left = 0;
        for (std::size_t i = stroke ? 1 : 0; i < star.size(); ++i) {
          const auto [ax, ay] = star[(i + star.size() - 1) % star.size()];
          const auto [bx, by] = star[i];
          const double length = std::hypot(bx - ax, by - ay);
          const double along =
              std::clamp(((u - ax) * (bx - ax) + (v - ay) * (by - ay)) / length, 0.0, length);
          nearest = std::min(nearest, std::hypot(u - ax - along * (bx - ax) / length,
                                                 v - ay - along * (by - ay) / length));
          if ((ay > v) != (by > v) && ax + (bx - ax) * (v - ay) / (by - ay) < u) ++left;
        }
        const double depth = stroke ? 5 - nearest : left % 2 == 1 ? nearest : -nearest;
        ASSERT_NEAR(matte[static_cast<std::size_t>(80 * y + x)],
                    std::clamp(0.5 + depth / soft, 0.0, 1.0), 1e-6)
            << stroke << ' ' << x << ' ' << y;
      }
    }
  }
}

TEST(Masks, JoinAMatteByTheGreaterOfBothInEveryDepth) {
  // The edge at x = 2, four pixels wide: 7/8, 5/8, 3/8, 1/8 at the centres 0.5 to 3.5.
  const MaskShape half = shapeOf(Kind::polygon, {{-99, -99}, {2, -99}, {2, 99}, {-99, 99}}, {}, 4);
  std::vector<std::uint8_t> bytes{0, 255, 0, 0, 200, 0, 9, 0, 9, 0};
  joinRow(half, Depth::bytes, bytes.data(), 2, 5, 0.5, 0.5);
  EXPECT_EQ(bytes, (std::vector<std::uint8_t>{223, 255, 159, 0, 200, 0, 32, 0, 9, 0}));
  std::vector<std::uint16_t> shorts{0, 65535, 30000, 0};
  joinRow(half, Depth::shorts, shorts.data(), 1, 4, 0.5, 0.5);
  EXPECT_EQ(shorts, (std::vector<std::uint16_t>{57343, 65535, 30000, 8192}));
  std::vector<float> floats{0, 0, 0.5f, 2};
  joinRow(half, Depth::floats, floats.data(), 1, 4, 0.5, 0.5);
  EXPECT_EQ(floats, (std::vector<float>{0.875f, 0.625f, 0.5f, 2}));
}

TEST(Masks, MoveStraightBetweenTheirKeysAndRestBesideThem) {
  const Masks masks = masksFromText(file(R"({"kind": "ellipse", "use": "holdOut", "keys": [
        {"frame": 10, "points": [[0, 100]], "radii": [10, 20]},
        {"frame": 14, "points": [[8, 60]], "radii": [30, 20], "turn": 80},
        {"frame": 16, "points": [[8, 64]], "radii": [20, 20], "turn": -20}]})"),
                                    "m.json");
  const auto at = [&](int frame) { return shapesAt(masks, Use::holdOut, frame).at(0); };
  // A quarter of the way from 10 to 14, half of it from 14 to 16.
  EXPECT_EQ(at(11).points, (std::vector<MaskPoint>{{2, 90}}));
  EXPECT_EQ(at(11).radii, (std::vector<double>{15, 20}));
  EXPECT_EQ(at(15).points, (std::vector<MaskPoint>{{8, 62}}));
  EXPECT_EQ(at(14).radii, (std::vector<double>{30, 20}));
  EXPECT_EQ(at(11).turnDegrees, 20);
  EXPECT_EQ(at(15).turnDegrees, 30);
  EXPECT_EQ(at(-5), at(10));
  EXPECT_EQ(at(99), at(16));
  EXPECT_TRUE(shapesAt(masks, Use::garbage, 10).empty());
  // Over a picture a quarter as large.
  EXPECT_EQ(shrunk(at(14), 4).points, (std::vector<MaskPoint>{{2, 15}}));
  EXPECT_EQ(shrunk(at(14), 4).radii, (std::vector<double>{7.5, 5}));
  EXPECT_EQ(shrunk(at(14), 4).softPixels, 0.25);
  EXPECT_EQ(shrunk(at(14), 4).turnDegrees, 80);
}

TEST(Masks, ComeBackFromTheirFileAsTheyWere) {
  Masks masks{{shapeOf(Kind::polygon, {}, {}, 2.5), {{-3, {{1, 2}, {3.25, -4}, {0.1, 1e5}}, {}}}},
              {shapeOf(Kind::brush, {}, {}, 0), {{1, {{1, 2}}, {3}}, {5, {{2, 2}}, {4}}}},
              {shapeOf(Kind::ellipse, {}, {}, 1), {{1, {{1, 2}}, {3, 4}, -12.34}}}};
  masks[0].shape.use = Use::holdOut;
  masks[1].shape.outside = true;
  EXPECT_EQ(masksFromText(masksText(masks), "m.json"), masks);
  masks[2].keys[0].turnDegrees = 0;
  EXPECT_EQ(masksText(masks).find("turn"), std::string::npos) << "as files were before it";
  EXPECT_EQ(masksFromText(masksText({}), "m.json"), Masks());
}

TEST(Masks, RefuseWhatTheyAreNotByPlace) {
  const std::string dot =
      R"({"kind": "brush", "keys": [{"frame": 1, "points": [[1, 2]], "radii": [3]}]})";
  const auto key = [](const std::string& members) {
    return file(R"({"kind": "brush", "keys": [{)" + members + "}]}");
  };
  const auto turned = [](const std::string& degrees) {
    return file(
        R"({"kind": "ellipse", "keys": [{"frame": 1, "points": [[1, 2]], "radii": [3, 4], "turn": )" +
        degrees + "}]}");
  };
  const auto shape = [](const std::string& members) {
    return file("{" + members + R"("keys": [{"frame": 1, "points": [[1, 2]], "radii": [3]}]})");
  };
  std::string many = dot;
  for (int i = 0; i < 256; ++i) many += "," + dot;
  const struct {
    std::string text, said;
  } cases[] = {
      {"", "these are no masks"},
      {"[]", "expected masks, with \"orvanite\": \"masks\" and a version"},
      {R"({"orvanite": "preset", "version": 1})", "expected masks, with"},
      {R"({"orvanite": "masks", "version": 2, "shapes": []})", "found version 2"},
      {R"({"orvanite": "masks", "version": 1})",
       "shapes: expected a list of 0 to 256, found nothing"},
      {R"({"orvanite": "masks", "version": 1, "shapes": [], "more": 1})", "no member \"more\""},
      {std::string(100000, '['), "nested too deep"},
      {std::string((1 << 20) + 1, ' '), "no more than 1 MiB"},
      {file("7"), "shapes[0]: expected a shape, found 7"},
      {file(dot + ", {}"), "shapes[1].kind: expected polygon, ellipse or brush, found nothing"},
      {file(many), "shapes: expected a list of 0 to 256, found 257"},
      {shape(R"("kind": "star", )"),
       "shapes[0].kind: expected polygon, ellipse or brush, found \"star\""},
      {shape(R"("kind": "brush", "use": "both", )"), "shapes[0].use: expected garbage or holdOut"},
      {shape(R"("kind": "brush", "soft": -1, )"), "shapes[0].soft: expected a width"},
      {shape(R"("kind": "brush", "soft": 1e999, )"), "these are no masks"},
      {shape(R"("kind": "brush", "outside": 1, )"),
       "shapes[0].outside: expected true or false, found 1"},
      {shape(R"("kind": "brush", "x\u0000": 1, )"), "shapes[0]: there is no member"},
      {shape(R"("kind": "polygon", )"),
       "shapes[0].keys[0].points: expected a list of 3 to 4096, found 1"},
      {shape(R"("kind": "ellipse", )"), "shapes[0].keys[0].radii: expected a list of 2, found 1"},
      {file(R"({"kind": "brush", "keys": []})"),
       "shapes[0].keys: expected a list of 1 to 4096, found 0"},
      {key(R"("points": [[1, 2]], "radii": [3])"),
       "shapes[0].keys[0].frame: expected a frame's number"},
      {key(R"("frame": 1.5, "points": [[1, 2]], "radii": [3])"), "frame's number, found 1.5"},
      {key(R"("frame": 1e300, "points": [[1, 2]], "radii": [3])"), "frame's number, found 1e"},
      {key(R"("frame": 1, "points": [[1, 2, 3]], "radii": [3])"), "points[0]: expected x and y"},
      {key(R"("frame": 1, "points": [[1, "2"]], "radii": [3])"), "points[0]: expected x and y"},
      {key(R"("frame": 1, "points": [[1, 2e6]], "radii": [3])"), "points[0]: expected x and y"},
      {key(R"("frame": 1, "points": [[1, 2]])"),
       "keys[0].radii: expected a list of 1, found nothing"},
      {key(R"("frame": 1, "points": [[1, 2]], "radii": [0])"),
       "radii[0]: expected pixels from 0.001"},
      {key(R"("frame": 1, "points": [[1, 2]], "radii": [3], "turn": 1)"),
       "shapes[0].keys[0]: there is no member \"turn\""},
      {turned("3600.5"),
       "shapes[0].keys[0].turn: expected degrees from -3600 to 3600, found 3600.5"},
      {turned("-1e300"), "shapes[0].keys[0].turn: expected degrees from -3600 to 3600, found -1e"},
      {turned("\"30\""), "shapes[0].keys[0].turn: expected degrees"},
      {turned("null"),
       "shapes[0].keys[0].turn: expected degrees from -3600 to 3600, found nothing"},
      {key(R"("frame": 1, "points": [[1, 2]], "radii": [3]}, {"frame": 1, "points": [[1, 2]], "radii": [3])"),
       "keys[1].frame: expected one after 1, found 1"},
      {key(R"("frame": 1, "points": [[1, 2]], "radii": [3]}, {"frame": 2, "points": [[1, 2], [1, 2]], "radii": [3])"),
       "keys[1].points: expected 1 as in the key before, found 2"},
  };
  for (const auto& one : cases) {
    try {
      masksFromText(one.text, "m.json");
      ADD_FAILURE() << "taken: " << one.text.substr(0, 200);
    } catch (const Error& error) {
      EXPECT_EQ(error.subject(), "m.json");
      EXPECT_NE(error.message().find(one.said), std::string::npos) << error.what();
      EXPECT_EQ(error.message().find('\n'), std::string::npos) << error.what();
    }
  }
}
