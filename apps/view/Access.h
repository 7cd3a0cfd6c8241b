// SPDX-License-Identifier: BSD-3-Clause
//
// Who may ask the page's server for anything: only a page that this server itself handed out. The
// address carries a random token; a request must also name the server's own address as its host
// and come from that origin, so that no other page in the same browser gets an answer, not even
// through a name that was made to point here.
// Uses the standard library and POSIX only; knows no HTTP library.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvanite::view {

/// 32 hexadecimal digits from the system's random source. Throws Error (failure) without one.
std::string makeToken();

/// What of a request decides on access. Each header as often as the request has it.
struct Caller {
  std::string_view method;
  std::string_view path;  // decoded, without a query
  std::vector<std::string> hosts;
  std::vector<std::string> origins;
  std::vector<std::string> fetchSites;
  std::string contentType;
};

class Access {
 public:
  Access(std::string token, int port) : token_(std::move(token)), port_(port) {}

  enum class Entry { unknown, open, shut };
  /// Whether a request that begins so is for an address that holds the token: `unknown` while its
  /// first line is too short to tell. What is let in has still to be admitted.
  Entry entry(std::string_view begun) const;

  /// What follows the token in the path, such as "picture"; nothing when the request must be
  /// refused, whatever the reason: the caller learns none.
  ///
  /// A request that changes or computes something (POST) must say its origin and carry JSON: a
  /// foreign page cannot send that without asking first, which is refused.
  std::optional<std::string_view> admit(const Caller& caller) const;

  /// The page's address.
  std::string address() const;

 private:
  std::string token_;
  int port_;
};

/// How many requests may come: `perSecond` on the long run, `burst` at once.
class RateLimit {
 public:
  using Clock = std::chrono::steady_clock;

  RateLimit(double perSecond, double burst) : perSecond_(perSecond), burst_(burst), left_(burst) {}

  /// Takes one from the allowance; false when nothing is left. `now` must not run backwards.
  bool take(Clock::time_point now = Clock::now());

 private:
  std::mutex mutex_;
  double perSecond_;
  double burst_;
  double left_;
  Clock::time_point last_{};
};

/// Which of the numbered requests of a page is the newest, so that older ones can be dropped.
class Newest {
 public:
  /// Notes a request; false when a newer one of the same name is known already.
  bool announce(const std::string& name, std::uint64_t number);

  /// Whether nothing newer came since.
  bool holds(const std::string& name, std::uint64_t number) const;

 private:
  struct Entry {
    std::string name;
    std::uint64_t number;
  };
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;  // the one heard of last stands last
};

}  // namespace orvanite::view
