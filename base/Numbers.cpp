// SPDX-License-Identifier: BSD-3-Clause
#include "base/Numbers.h"

#include <charconv>
#include <system_error>

#if !defined(__cpp_lib_to_chars)
#include <cerrno>
#include <cstdlib>
#include <string>
#endif

namespace orvanite {

bool readDouble(std::string_view text, double& value) {
  double read = 0;
#if defined(__cpp_lib_to_chars)
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), read);
  if (problem != std::errc() || end != text.data() + text.size()) return false;
#else
  // The C library of WebAssembly knows one language only; what it takes beyond from_chars goes.
  const std::string whole(text);
  if (whole.find_first_of("+xX \t\n\v\f\r", 0) < whole.find_first_of("eE")) return false;
  char* end = nullptr;
  errno = 0;
  read = std::strtod(whole.c_str(), &end);
  if (text.empty() || end != whole.c_str() + whole.size() || errno == ERANGE) return false;
#endif
  value = read;
  return true;
}

}  // namespace orvanite
