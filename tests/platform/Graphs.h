// SPDX-License-Identifier: BSD-3-Clause
//
// Scripts by chance: variables, nodes whose names move on, expressions with functions and curves in
// every spelling. All of them are right, so that what refuses one is wrong.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace graphs {

/// One script for each seed; the same on every machine.
class Writer {
 public:
  explicit Writer(std::uint64_t seed) : state_(seed) {}

  std::string script() {
    for (int i = below(5); i > 0; --i) variable();
    for (int i = 1 + below(7); i > 0; --i) {
      node();
      if (chance(3)) assignment();
      if (chance(4)) variable();
    }
    return text_;
  }

 private:
  struct Image {
    std::string name;
    bool isConstant;
  };

  // Xorshift, multiplied: good enough to choose by.
  std::uint64_t next() {
    state_ += 0x9e3779b97f4a7c15ULL;
    std::uint64_t x = state_;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
  }
  int below(int count) { return static_cast<int>(next() % static_cast<std::uint64_t>(count)); }
  bool chance(int of) { return below(of) == 0; }
  template <std::size_t count>
  std::string_view one(const std::array<std::string_view, count>& of) {
    return of[static_cast<std::size_t>(below(count))];
  }

  // Between two tokens.
  std::string gap() {
    return std::string(one(std::array<std::string_view, 8>{"", "", "", " ", " ", "\n  ",
                                                           "/* c, \"d\" */", " // to the end\n"}));
  }

  std::string number() {
    return std::string(one(
        std::array<std::string_view, 9>{"0", "1", "0.25", "3", "1e-2", ".5", "7.", "0.1", "12"}));
  }

  // `own`: the parameters of the node that the expression is for may be named.
  std::string leaf(bool own) {
    const int kind = below(own ? 6 : 5);
    if (kind == 1) return chance(2) ? "time" : "t";
    if (kind == 2 && !numbers_.empty()) return pick(numbers_);
    if (kind == 3) {
      std::vector<std::string> constants;
      for (const Image& image : images_) {
        if (image.isConstant && named(image.name)) constants.push_back(image.name);
      }
      if (!constants.empty()) {
        return pick(constants) + gap() + "." + gap() +
               std::string(one(std::array<std::string_view, 4>{"red", "alpha", "width", "blue"}));
      }
    }
    if (kind == 5) return "alpha";
    return number();
  }

  const std::string& pick(const std::vector<std::string>& from) {
    return from[static_cast<std::size_t>(below(static_cast<int>(from.size())))];
  }

  // Whether the variable still holds a constant: names move on.
  bool named(const std::string& name) const {
    const auto last = std::find_if(images_.rbegin(), images_.rend(),
                                   [&](const Image& image) { return image.name == name; });
    return last != images_.rend() && last->isConstant;
  }

  std::string keys(int depth, bool own) {
    std::string text;
    int frame = below(20) - 10;
    for (int i = 1 + below(5); i > 0; --i, frame += 1 + below(30)) {
      text += "," + gap() + std::to_string(frame) + (chance(4) ? ".5" : "") + gap() + "@" + gap() +
              expression(depth - 1, own);
    }
    return text;
  }

  std::string expression(int depth, bool own) {
    if (depth <= 0) return leaf(own);
    const auto sub = [&] { return gap() + expression(depth - 1, own) + gap(); };
    switch (below(12)) {
      case 0:
        return "(" + sub() + ")";
      case 1:
        return "-" + sub();
      case 2:
        return "!(" + sub() + ")";
      case 3:
        return sub() + "?" + sub() + ":" + sub();
      case 4:
        return "linear(" + sub() + keys(depth, own) + gap() + ")";
      case 5:
        return "smooth(" + sub() + keys(depth, own) + gap() + ")";
      case 6:
        return std::string(
                   one(std::array<std::string_view, 5>{"min", "max", "step", "max", "min"})) +
               gap() + "(" + sub() + "," + sub() + ")";
      case 7:
        return "mix(" + sub() + "," + sub() + ",0.5)+clamp(" + sub() + ",0,1)";
      case 8:
        return std::string(
                   one(std::array<std::string_view, 5>{"abs", "floor", "sin", "cos", "random"})) +
               "(" + sub() + ")";
      case 9:
        return "sqrt(abs(" + sub() + ")) + pow(2, min(3, " + sub() + "))";
      default:
        return sub() +
               std::string(one(
                   std::array<std::string_view, 8>{"+", "-", "<", ">=", "==", "!=", "&&", "||"})) +
               sub();
    }
  }

  // As an argument of a number: plain, or in quotes.
  std::string argument(int depth) {
    const std::string plain = expression(depth, true);
    if (!chance(4)) return plain;
    std::string quoted = "\"";
    for (const char c : plain) {
      quoted += c == '\n' ? "\\n" : c == '"' ? "\\\"" : std::string(1, c);
    }
    return quoted + "\"";
  }

  void variable() {
    const std::string name = "v" + std::to_string(below(6));
    const bool known = std::find(numbers_.begin(), numbers_.end(), name) != numbers_.end();
    const std::string value = expression(below(4), false);
    // One whose value may be a circle has to say its type.
    text_ +=
        (text_.empty() && chance(2) ? "" : "float ") + name + gap() + "=" + gap() + value + ";\n";
    if (!known) numbers_.push_back(name);
  }

  std::string image() {
    if (images_.empty() || chance(5)) return "0";
    const Image& image = images_[static_cast<std::size_t>(below(static_cast<int>(images_.size())))];
    return image.name;
  }

  void node() {
    const std::string name = "n" + std::to_string(below(4));
    std::string call;
    const int kind = below(4);
    const bool isConstant = kind < 2;
    if (isConstant) {
      call = "Constant(" + number() + ", 8, 1," + argument(below(4));
      if (chance(2)) call += ", " + argument(below(3));
      if (chance(2)) call += ", blue = " + argument(below(3));
    } else if (kind == 2) {
      call = "FileIn(\"p \\\"####.exr\"" + std::string(chance(2) ? ", time + 1" : "");
    } else {
      call = "FileOut(" + (chance(4) ? "Constant(red = time)" : image());
      call += chance(2) ? ", \"o.png\", \"half\"" : ", samples = \"auto\", path = \"o.png\"";
    }
    text_ += (chance(6) ? "" : name + " = ") + call + gap() + ");\n";
    if (text_.find(name + " = " + call) != std::string::npos) images_.push_back({name, isConstant});
  }

  void assignment() {
    std::vector<std::string> constants;
    for (const Image& image : images_) {
      if (named(image.name)) constants.push_back(image.name);
    }
    if (constants.empty()) return;
    const std::string name = pick(constants);
    text_ += name + ".green = " + expression(below(4), true) + ";\n";
  }

  std::uint64_t state_;
  std::string text_;
  std::vector<std::string> numbers_;  // variables
  std::vector<Image> images_;         // in the order in which they were assigned
};

}  // namespace graphs
