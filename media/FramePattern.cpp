// SPDX-License-Identifier: BSD-3-Clause
//
// A number is padded with zeros to the pattern's digits, a minus sign among them, as printf does; a
// longer one is written out, and is then not padded.
#include "media/FramePattern.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <map>

#include "base/Error.h"

namespace orvanite::media {
namespace {

bool isDigit(char letter) { return letter >= '0' && letter <= '9'; }

std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

// Where the digits that stand before `end` begin; a sign belongs to them where it follows a dot or
// an underscore, and is a hyphen of the name elsewhere.
std::size_t firstDigit(const std::string& name, std::size_t end) {
  while (end > 0 && isDigit(name[end - 1])) --end;
  const bool sign =
      end > 1 && name[end - 1] == '-' && (name[end - 2] == '.' || name[end - 2] == '_');
  return sign ? end - 1 : end;
}

}  // namespace

std::optional<FramePattern> FramePattern::parse(const std::string& path) {
  FramePattern pattern;
  pattern.folder_ = folderOf(path);
  const std::string name = path.substr(pattern.folder_.size());
  const auto mark = name.find_last_of("#@");
  if (mark != std::string::npos) {
    auto first = mark;
    while (first > 0 && name[first - 1] == name[mark]) --first;
    pattern.before_ = name.substr(0, first);
    pattern.after_ = name.substr(mark + 1);
    pattern.digits_ = static_cast<int>(mark - first + 1);
    return pattern;
  }
  const auto percent = name.find('%');
  if (percent == std::string::npos) return std::nullopt;
  auto end = percent + 1;
  while (end < name.size() && isDigit(name[end])) ++end;
  if (end >= name.size() || name[end] != 'd' || end - percent > 3) return std::nullopt;
  pattern.before_ = name.substr(0, percent);
  pattern.after_ = name.substr(end + 1);
  std::from_chars(name.data() + percent + 1, name.data() + end, pattern.digits_);
  return pattern;
}

std::optional<FramePattern> FramePattern::ofInput(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) return ofFolder(path);
  if (std::filesystem::exists(path, ignored)) return std::nullopt;
  return parse(path);
}

std::optional<FramePattern> FramePattern::ofOutput(const std::string& path, bool severalFrames) {
  const auto pattern = parse(path);
  const std::string name = path.substr(folderOf(path).size());
  const auto signs =
      std::count_if(name.begin(), name.end(), [](char c) { return c == '#' || c == '@'; });
  return signs == 1 && !severalFrames ? std::nullopt : pattern;
}

std::optional<FramePattern> FramePattern::ofFile(const std::string& path) {
  FramePattern pattern;
  pattern.folder_ = folderOf(path);
  const std::string name = path.substr(pattern.folder_.size());
  auto end = std::min(name.rfind('.'), name.size());
  while (end > 0 && !isDigit(name[end - 1])) --end;
  if (end == 0) return std::nullopt;
  const auto first = firstDigit(name, end);
  pattern.before_ = name.substr(0, first);
  pattern.after_ = name.substr(end);
  pattern.digits_ = static_cast<int>(end - first);
  return pattern;
}

FramePattern FramePattern::ofFolder(const std::string& folder) {
  std::map<std::pair<std::string, std::string>, std::size_t> found;  // and the fewest digits
  std::error_code problem;
  for (const auto& entry : std::filesystem::directory_iterator(folder, problem)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with('.') || !entry.is_regular_file()) continue;
    const std::string extension = entry.path().extension().string();
    const auto end = name.size() - extension.size();
    if (extension.empty() || end == 0 || !isDigit(name[end - 1])) continue;
    const auto first = firstDigit(name, end);
    auto& digits = found.try_emplace({name.substr(0, first), extension}, end - first).first->second;
    digits = std::min(digits, end - first);
  }
  if (found.empty()) {
    throw Error(Fault::missingFrames, folder,
                "expected a folder of numbered pictures, found none in it");
  }
  if (found.size() > 1) {
    std::string names;
    for (const auto& [parts, digits] : found) {
      names += (names.empty() ? "" : ", ") + parts.first + std::string(digits, '#') + parts.second;
    }
    throw Error(Fault::wrongUse, folder, "expected a folder of one sequence, found " + names);
  }
  FramePattern pattern;
  pattern.folder_ = folder.ends_with('/') ? folder : folder + '/';
  pattern.before_ = found.begin()->first.first;
  pattern.after_ = found.begin()->first.second;
  pattern.digits_ = static_cast<int>(found.begin()->second);
  return pattern;
}

std::string FramePattern::path(int frame) const {
  std::string number = std::to_string(frame);
  const auto digits = static_cast<std::size_t>(digits_);
  if (number.size() < digits) number.insert(frame < 0 ? 1 : 0, digits - number.size(), '0');
  return folder_ + before_ + number + after_;
}

std::vector<int> FramePattern::existing() const {
  std::vector<int> frames;
  std::error_code problem;
  const std::string folder = folder_.empty() ? "." : folder_;
  for (const auto& entry : std::filesystem::directory_iterator(folder, problem)) {
    const std::string name = entry.path().filename().string();
    if (name.size() <= before_.size() + after_.size() || !name.starts_with(before_) ||
        !name.ends_with(after_)) {
      continue;
    }
    const std::string number =
        name.substr(before_.size(), name.size() - before_.size() - after_.size());
    int frame = 0;
    const auto [end, wrong] = std::from_chars(number.data(), number.data() + number.size(), frame);
    if (wrong != std::errc() || end != number.data() + number.size()) continue;
    if (path(frame) == folder_ + name) frames.push_back(frame);
  }
  std::sort(frames.begin(), frames.end());
  return frames;
}

std::string FramePattern::text() const {
  return folder_ + before_ + std::string(static_cast<std::size_t>(digits_), '#') + after_;
}

}  // namespace orvanite::media
