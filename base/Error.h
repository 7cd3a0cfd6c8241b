// SPDX-License-Identifier: BSD-3-Clause
//
// The one exception of everything above the engine: what was looked at, what was found there,
// what was expected, and whose fault it is. Front ends turn it into one line and an exit code.
// Uses the standard library only.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace orvanite {

/// Whose fault it is.
enum class Fault {
  wrongUse,       // the caller asked for something that cannot be
  noSuchFile,     // a file that should be there is not
  missingFrames,  // a shot that should be there is not, or lacks frames
  failure         // the world got in the way: unreadable file, full disk, no memory
};

/// The one exception above the engine: what it is about, and what is wrong with it.
class [[gnu::visibility("default")]] Error : public std::runtime_error {
 public:
  /// "subject: message"
  Error(Fault fault, std::string subject, const std::string& message)
      : std::runtime_error(subject + ": " + message),
        fault_(fault),
        subject_(std::move(subject)),
        message_(message) {}

  /// "subject: expected EXPECTED, found 'FOUND'"
  static Error expected(Fault fault, std::string subject, std::string_view expected,
                        std::string_view found) {
    return Error(fault, std::move(subject),
                 "expected " + std::string(expected) + ", found '" + std::string(found) + "'");
  }

  /// The same error about something that its reader knows by another name.
  Error about(std::string subject) const { return Error(fault_, std::move(subject), message_); }

  /// What kind of fault it is: exit codes go by it.
  Fault fault() const { return fault_; }
  /// The parameter, file or option that the error is about.
  const std::string& subject() const { return subject_; }
  /// What is wrong with it.
  const std::string& message() const { return message_; }

 private:
  Fault fault_;
  std::string subject_;
  std::string message_;
};

}  // namespace orvanite
