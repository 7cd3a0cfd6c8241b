// SPDX-License-Identifier: BSD-3-Clause
//
// Ranges are counted before they are spelled out, so that a slip of the keyboard costs no memory.
#include "media/FrameRange.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <unordered_set>

#include "base/Error.h"

namespace orvanite::media {
namespace {

constexpr int lastFrame = 99999999;
constexpr int frameLimit = 1000000;

// Takes a number off the front of a text.
bool takeNumber(std::string_view& text, int& number) {
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (problem != std::errc() || number < -lastFrame || number > lastFrame) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool takeLetter(std::string_view& text, char letter) {
  if (text.empty() || text.front() != letter) return false;
  text.remove_prefix(1);
  return true;
}

}  // namespace

std::vector<int> parseFrames(std::string_view text, const std::string& subject,
                             std::optional<int> shotLast) {
  const auto refuse = [&]() -> Error {
    return Error::expected(Fault::wrongUse, subject,
                           "frames such as 1001-1100, 1-100x2 or 1,5,9-12", text);
  };
  std::vector<int> frames;
  std::unordered_set<int> seen;
  std::string_view rest = text;
  do {
    int first = 0;
    int last = 0;
    int step = 1;
    bool others = false;  // 1-10y3: all frames but every third
    bool ranged = false;
    bool back = false;
    if (!takeNumber(rest, first)) throw refuse();
    last = first;
    if (takeLetter(rest, '-')) {
      if (shotLast && (rest.empty() || rest.front() == ',')) {
        last = std::max(first, *shotLast);
      } else if (!takeNumber(rest, last)) {
        throw refuse();
      }
      ranged = true;
    }
    others = takeLetter(rest, 'y');
    if (others || takeLetter(rest, 'x') || takeLetter(rest, ':')) {
      back = takeLetter(rest, '-');
      if (!takeNumber(rest, step) || step < 1 || (others && step == 1)) throw refuse();
      // A step back in a range that goes up has no frames beyond the first.
      if (back && (!ranged || last > first)) throw refuse();
    }
    const int length = std::abs(last - first);
    if ((others ? length : length / step) >= frameLimit - static_cast<int>(frames.size())) {
      throw Error(Fault::wrongUse, subject, "expected no more than a million frames");
    }
    const int sign = last < first ? -1 : 1;
    for (int i = 0; i <= length; i += others ? 1 : step) {
      if (others && i % step == 0) continue;
      if (seen.insert(first + sign * i).second) frames.push_back(first + sign * i);
    }
  } while (takeLetter(rest, ','));
  if (!rest.empty()) throw refuse();
  return frames;
}

std::string formatFrames(const std::vector<int>& frames) {
  std::string text;
  for (std::size_t i = 0; i < frames.size();) {
    std::size_t end = i;
    while (end + 1 < frames.size() && frames[end + 1] == frames[end] + 1) ++end;
    if (!text.empty()) text += ',';
    text += std::to_string(frames[i]);
    if (end > i) text += '-' + std::to_string(frames[end]);
    i = end + 1;
  }
  return text;
}

}  // namespace orvanite::media
