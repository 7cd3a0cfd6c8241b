// SPDX-License-Identifier: BSD-3-Clause
//
// The guarded way to a page: loopback only, for callers with the token only. Each request is
// checked before its body is read; sizes and rates are bounded. What the page may ask is its
// owner's. Knows cpp-httplib, in its source only.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

namespace orvanite::view {

/// A file of the page, held in the program.
struct PageFile {
  std::string_view name;
  std::string_view type;
  std::string_view bytes;
};
/// The page's files; generated at build time.
std::span<const PageFile> pageFiles();

inline constexpr const char* jsonType = "application/json";

/// An error as the page reads it.
void fail(httplib::Response& response, int status, const std::string& subject,
          const std::string& message);
/// A file of the page, or 404.
void answerFile(std::string_view name, httplib::Response& response);

class Gate {
 public:
  /// Answers a request that was let in, for what follows the token in the address, such as
  /// "picture". Called on any of several threads; an Error that it throws is told to the page.
  using Answer = std::function<void(std::string_view wanted, const httplib::Request& request,
                                    httplib::Response& response)>;

  /// Takes a port of 127.0.0.1; 0 for any that is free. Throws Error (failure) when it is taken.
  Gate(int port, Answer get, Answer post);
  ~Gate();

  /// Answers the bytes of one request without a connection. For fuzzers.
  std::string answer(const std::string& request);

  /// The page's address, with its token.
  std::string address() const;

  /// Serves until stop is called.
  void run();
  /// May be called from any thread. Requests in progress are finished.
  void stop();

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace orvanite::view
