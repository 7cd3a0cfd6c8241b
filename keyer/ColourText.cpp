// SPDX-License-Identifier: BSD-3-Clause
#include "keyer/ColourText.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <utility>

namespace orvanite {
namespace {

constexpr std::pair<std::string_view, std::string_view> names[] = {
    {"green", "#00b140"}, {"blue", "#0047bb"}, {"black", "#000"}, {"white", "#fff"},
    {"grey", "#808080"},  {"gray", "#808080"}, {"red", "#f00"}};

std::array<float, 3> shares(const std::array<int, 3>& codes) {
  std::array<float, 3> colour{};
  for (std::size_t c = 0; c < 3; ++c) colour[c] = static_cast<float>(codes[c]) / 255;
  return colour;
}

bool read(std::string_view text, int base, int& value) {
  const char* const end = text.data() + text.size();
  const auto [after, problem] = std::from_chars(text.data(), end, value, base);
  return problem == std::errc() && after == end && value >= 0;
}

std::optional<std::array<float, 3>> hexadecimal(std::string_view digits) {
  if (digits.size() != 3 && digits.size() != 6) return std::nullopt;
  const std::size_t each = digits.size() / 3;
  std::array<int, 3> codes{};
  for (std::size_t c = 0; c < 3; ++c) {
    if (!read(digits.substr(c * each, each), 16, codes[c])) return std::nullopt;
    if (each == 1) codes[c] *= 17;  // #0b4 is #00bb44
  }
  return shares(codes);
}

std::optional<std::array<float, 3>> wholeNumbers(std::string_view text) {
  std::array<int, 3> codes{};
  for (std::size_t c = 0; c < 3; ++c) {
    const std::size_t comma = c < 2 ? text.find(',') : text.size();
    if (comma == std::string_view::npos || !read(text.substr(0, comma), 10, codes[c]) ||
        codes[c] > 255) {
      return std::nullopt;
    }
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  if (*std::max_element(codes.begin(), codes.end()) <= 1) return std::nullopt;
  return shares(codes);
}

}  // namespace

std::optional<std::array<float, 3>> displayColour(std::string_view text) {
  if (text.starts_with('#')) return hexadecimal(text.substr(1));
  for (const auto& [name, colour] : names) {
    if (text == name) return displayColour(colour);
  }
  return wholeNumbers(text);
}

}  // namespace orvanite
