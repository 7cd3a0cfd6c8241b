// SPDX-License-Identifier: BSD-3-Clause
//
// Writes Kdenlive's description of one of the two effects from the parameter table: names, help,
// spans of sliders, lists for choices. Without it Kdenlive shows choices as fixed text.
// Not part of a plug-in.   orvanite_kdenlive_KIND FILE
#include <frei0r.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <string>

#include "keyer/Settings.h"
#include "plugins/frei0r/Effect.h"

using orvanite::Choice;
using orvanite::Parameter;
using orvanite::frei0rPlugin::Control;

namespace {

std::string escaped(std::string_view text) {
  std::string made;
  for (const char c : text) {
    switch (c) {
      case '&':
        made += "&amp;";
        break;
      case '<':
        made += "&lt;";
        break;
      case '"':
        made += "&quot;";
        break;
      default:
        made += c;
    }
  }
  return made;
}

std::string plain(double value) {
  char text[32];
  return std::string(text, std::to_chars(text, text + sizeof text, static_cast<float>(value)).ptr);
}

std::string attribute(const char* name, const std::string& value) {
  return std::string(" ") + name + "=\"" + escaped(value) + '"';
}

// Sliders run from 0 to 1000 over frei0r's 0 to 1, as those of Kdenlive's other effects do.
std::string numberAttributes(const Control& control) {
  const Parameter& p = *control.parameter;
  const double low = static_cast<double>(p.softLow);
  const double span = static_cast<double>(p.softHigh) - low;
  const auto first = static_cast<double>(p.defaults[static_cast<std::size_t>(control.channel)]);
  return attribute("default", plain((first - low) / span)) + attribute("min", "0") +
         attribute("max", "1000") + attribute("factor", "1000");
}

std::string row(const Control& control, int index) {
  const std::string name = attribute("name", std::to_string(index));
  std::string attributes, inside;
  if (!control.parameter) {
    attributes = attribute("type", "bool") + name + attribute("default", "1");
  } else if (control.type == F0R_PARAM_STRING) {
    std::string values, labels;
    for (const Choice& choice : control.parameter->choices) {
      if (!values.empty()) values += ';', labels += ',';
      values += choice.text;
      // Kdenlive parts labels by commas.
      for (const char c : choice.label) labels += c == ',' ? ':' : c;
    }
    orvanite::Settings settings;
    const bool estimate = control.parameter->meaning.stage == orvanite::Stage::estimate;
    if (estimate) {
      values.append(";").append(orvanite::frei0rPlugin::automaticEstimate);
      labels += ",Automatic";
    }
    std::string first = settings.text(control.parameter->name);
    if (control.parameter->name == "output") first = orvanite::frei0rPlugin::kind().defaultOutput;
    if (estimate) first = orvanite::frei0rPlugin::automaticEstimate;
    attributes = attribute("type", "list") + name + attribute("default", first) +
                 attribute("paramlist", values);
    inside = "    <paramlistdisplay>" + escaped(labels) + "</paramlistdisplay>\n";
  } else if (control.type == F0R_PARAM_COLOR) {
    char colour[16];
    const auto code = [&](std::size_t c) {
      return static_cast<unsigned>(std::lround(control.parameter->defaults[c] * 255));
    };
    std::snprintf(colour, sizeof colour, "0x%02x%02x%02xff", code(0), code(1), code(2));
    attributes = attribute("type", "color") + name + attribute("default", colour);
  } else if (control.type == F0R_PARAM_BOOL) {
    attributes = attribute("type", "bool") + name + attribute("default", "1");
  } else {
    attributes = attribute("type", "animated") + name + numberAttributes(control);
  }
  return "  <parameter" + attributes + ">\n" + inside + "    <name>" + escaped(control.name) +
         "</name>\n    <comment>" + escaped(control.explanation) + "</comment>\n  </parameter>\n";
}

}  // namespace

int main(int count, char** words) {
  if (count != 2) {
    std::fputs("usage: orvanite_kdenlive_KIND FILE\n", stderr);
    return 2;
  }
  const auto& kind = orvanite::frei0rPlugin::kind();
  const std::string tag = kind.background ? "frei0r.orvanite_mix" : "frei0r.orvanite";
  const std::string element = kind.background ? "transition" : "effect";
  std::string text = "<?xml version=\"1.0\"?>\n<!DOCTYPE kpartgui>\n<" + element +
                     attribute("LC_NUMERIC", "C") + attribute("tag", tag) + attribute("id", tag) +
                     ">\n  <name>" + escaped(kind.name) + "</name>\n  <description>" +
                     escaped(kind.explanation) +
                     "</description>\n  <author>The Orvanite authors</author>\n";
  int index = 0;
  for (const Control& control : orvanite::frei0rPlugin::controls()) text += row(control, index++);
  text += "</" + element + ">\n";
  std::FILE* file = std::fopen(words[1], "wb");
  if (!file || std::fputs(text.c_str(), file) < 0 || std::fclose(file) != 0) {
    std::perror(words[1]);
    return 1;
  }
  return 0;
}
