// SPDX-License-Identifier: BSD-3-Clause
#include "apps/view/Access.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/Error.h"

namespace orvanite::view {
namespace {

// Pages that one server remembers; a page beyond them starts anew, which costs one stale picture.
constexpr std::size_t pagesKnown = 64;

// Takes as long for a wrong text as for a right one, so that its time tells nothing.
bool sameText(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  }
  return difference == 0;
}

}  // namespace

std::string makeToken() {
  std::array<unsigned char, 16> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw Error(Fault::failure, "view", "the system gives no random numbers");
  }
  constexpr std::string_view digits = "0123456789abcdef";
  std::string token;
  for (const unsigned char byte : bytes) {
    token += digits[byte >> 4];
    token += digits[byte & 15];
  }
  return token;
}

Access::Entry Access::entry(std::string_view begun) const {
  constexpr std::size_t longestMethod = 16;
  const bool ended = begun.find('\n') != std::string_view::npos;
  begun = begun.substr(0, begun.find('\n'));
  const std::size_t space = begun.substr(0, longestMethod).find(' ');
  if (space == std::string_view::npos) {
    return ended || begun.size() >= longestMethod ? Entry::shut : Entry::unknown;
  }
  const std::string_view path = begun.substr(space + 1, token_.size() + 2);
  if (path.size() < token_.size() + 2) return ended ? Entry::shut : Entry::unknown;
  return path.front() == '/' && path.back() == '/' &&
                 sameText(path.substr(1, token_.size()), token_)
             ? Entry::open
             : Entry::shut;
}

std::optional<std::string_view> Access::admit(const Caller& caller) const {
  const std::string number = std::to_string(port_);
  if (caller.hosts.size() != 1) return std::nullopt;
  const std::string& host = caller.hosts.front();
  if (host != "127.0.0.1:" + number && host != "localhost:" + number) return std::nullopt;

  if (caller.origins.size() > 1 || caller.fetchSites.size() > 1) return std::nullopt;
  if (!caller.origins.empty() && caller.origins.front() != "http://" + host) return std::nullopt;
  if (!caller.fetchSites.empty()) {
    const std::string& site = caller.fetchSites.front();
    // "none": the address was typed or opened by another program.
    if (site != "same-origin" && site != "none") return std::nullopt;
  }

  const bool reads = caller.method == "GET" || caller.method == "HEAD";
  if (!reads) {
    if (caller.method != "POST" || caller.origins.empty()) return std::nullopt;
    if (!caller.contentType.starts_with("application/json")) return std::nullopt;
  }

  const std::string_view path = caller.path;
  const std::size_t length = token_.size();
  if (path.size() < length + 2 || path[0] != '/' || path[length + 1] != '/') return std::nullopt;
  if (!sameText(path.substr(1, length), token_)) return std::nullopt;
  return path.substr(length + 2);
}

std::string Access::address() const {
  return "http://127.0.0.1:" + std::to_string(port_) + "/" + token_ + "/";
}

bool RateLimit::take(Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  if (last_ != Clock::time_point{}) {
    const double seconds = std::chrono::duration<double>(now - last_).count();
    left_ = std::min(burst_, left_ + seconds * perSecond_);
  }
  last_ = now;
  if (left_ < 1) return false;
  left_ -= 1;
  return true;
}

bool Newest::announce(const std::string& name, std::uint64_t number) {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.name == name; });
  if (found != entries_.end()) {
    if (found->number > number) return false;
    found->number = number;
    std::rotate(found, found + 1, entries_.end());
    return true;
  }
  if (entries_.size() == pagesKnown) entries_.erase(entries_.begin());
  entries_.push_back({name, number});
  return true;
}

bool Newest::holds(const std::string& name, std::uint64_t number) const {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.name == name; });
  return found == entries_.end() || found->number <= number;
}

}  // namespace orvanite::view
