// SPDX-License-Identifier: BSD-3-Clause
//
// Draws what a host's panel for the keyer looks like, from the parameter table, as SVG on standard
// output: docs/plugin-panel.png is made from it (docs/plugins.md says how). Not part of a plug-in.
#include <cmath>
#include <cstdio>
#include <string>

#include "keyer/Settings.h"

namespace {

using namespace orvanite;

constexpr int columnWidth = 460, labelEnd = 150, fieldStart = 162, rowHeight = 26, gap = 14;

std::string out;

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

void rect(double x, double y, double w, double h, const std::string& fill,
          const char* stroke = "none") {
  out += "<rect x='" + number(x) + "' y='" + number(y) + "' width='" + number(w) + "' height='" +
         number(h) + "' rx='3' fill='" + fill + "' stroke='" + stroke + "'/>\n";
}

void text(double x, double y, std::string_view words, const char* style) {
  out += "<text x='" + number(x) + "' y='" + number(y) + "' " + style + ">";
  out += words;
  out += "</text>\n";
}

constexpr const char* labelStyle = "text-anchor='end' fill='#c8ccd2'";
constexpr const char* valueStyle = "fill='#eef1f5'";
constexpr const char* middleStyle = "text-anchor='middle' fill='#eef1f5'";
constexpr const char* headingStyle = "fill='#f3a33a' font-weight='bold'";

void field(double x, double y, double width, std::string_view words) {
  rect(x, y + 3, width, 20, "#20242b", "#454b55");
  text(x + 6, y + 17, words, valueStyle);
}

void slider(double x, double y, double width, double at) {
  rect(x, y + 12, width, 2, "#59606b");
  out += "<circle cx='" + number(x + width * at) + "' cy='" + number(y + 13) +
         "' r='5.5' fill='#d7dbe1'/>\n";
}

std::string hex(const Settings& settings, std::string_view name) {
  char colour[8];
  const auto code = [&](int c) {
    return static_cast<int>(std::lround(std::fmin(settings.number(name, c), 1.0f) * 255.0f));
  };
  std::snprintf(colour, sizeof colour, "#%02x%02x%02x", code(0), code(1), code(2));
  return colour;
}

void control(const Parameter& p, const Settings& settings, double x, double y) {
  const auto value = [&](int c) { return static_cast<double>(settings.number(p.name, c)); };
  const double at = fieldStart + x;
  text(labelEnd + x, y + 17, p.label, labelStyle);
  switch (p.type) {
    case ParameterType::choice:
      field(at, y, 190, p.choices[static_cast<std::size_t>(value(0))].label);
      text(at + 174, y + 17, "&#9662;", valueStyle);
      break;
    case ParameterType::channel:
      field(at, y, 90, "Alpha");
      text(at + 74, y + 17, "&#9662;", valueStyle);
      break;
    case ParameterType::toggle:
      rect(at, y + 5, 16, 16, "#20242b", "#6b7380");
      if (settings.toggle(p.name)) text(at + 2.5, y + 18, "&#10003;", valueStyle);
      break;
    case ParameterType::number:
      field(at, y, 60, number(value(0)));
      slider(at + 74, y, 200,
             (value(0) - static_cast<double>(p.softLow)) /
                 static_cast<double>(p.softHigh - p.softLow));
      break;
    default:
      for (int c = 0; c < 3; ++c) field(at + 66 * c, y, 60, number(value(c)));
      if (p.type == ParameterType::colour) {
        rect(at + 204, y + 3, 40, 20, hex(settings, p.name), "#6b7380");
      }
  }
}

// Whether a parameter stands in the left column: what makes a key. Grades and mattes stand right.
bool standsLeft(const Parameter& p) {
  return p.meaning.stage != Stage::grade && p.meaning.needs == SidePicture::none;
}

// One column of groups; returns its height.
double column(const Settings& settings, bool left, double x) {
  double y = 16 - gap;
  const Group* group = nullptr;
  for (const Parameter& p : parameters()) {
    if (standsLeft(p) != left || p.meaning.ofWholeFrames()) continue;
    if (&p.group != group) {
      group = &p.group;
      y += gap;
      rect(x, y, columnWidth, 24, "#2b3038");
      text(x + 10, y + 17, "&#9662; " + std::string(group->heading), headingStyle);
      y += 28;
    }
    control(p, settings, x, y);
    y += rowHeight;
    // The three that the plug-in adds stand where plugins/ofx/Parameters.cpp puts them.
    if (p.name == "output") {
      text(labelEnd + x, y + 17, "Size", labelStyle);
      field(fieldStart + x, y, 190, "Plate");
      text(fieldStart + x + 174, y + 17, "&#9662;", valueStyle);
      y += rowHeight;
    } else if (p.name == "screen") {
      rect(fieldStart + x, y + 3, 126, 20, "#4a525e", "#6b7380");
      text(fieldStart + x + 63, y + 17, "Sample screen", middleStyle);
      y += rowHeight;
    }
  }
  return y + gap;
}

}  // namespace

int main() {
  Settings settings;
  const double left = column(settings, true, 16);
  const double right = column(settings, false, 32 + columnWidth);
  text(32 + columnWidth + labelEnd, right + 4, "Version", labelStyle);
  text(32 + columnWidth + fieldStart, right + 4, ORVANITE_VERSION, valueStyle);
  const int width = 2 * columnWidth + 48, height = static_cast<int>(std::fmax(left, right + 24));
  std::printf(
      "<svg xmlns='http://www.w3.org/2000/svg' width='%d' height='%d' font-family='DejaVu "
      "Sans, sans-serif' font-size='12'>\n<rect width='100%%' height='100%%' "
      "fill='#363b44'/>\n%s</svg>\n",
      width, height, out.c_str());
}
