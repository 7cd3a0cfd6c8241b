// SPDX-License-Identifier: BSD-3-Clause
//
// Splits script text into tokens; the compiler and the expressions on plugs read the same ones.
// Comments (`//`, `#` to the end of the line, `/* */`) and blanks separate tokens. Any bytes are
// taken; what is no token is an error token, and reading goes on after it.
#pragma once

#include <string>
#include <string_view>

#include "platform/NRiExport.h"

struct NRiToken {
  enum Kind { kEnd, kName, kNumber, kText, kSymbol, kBad };
  Kind kind = kEnd;
  std::string_view source;  // as written; a text with its quotes
  std::size_t offset = 0;   // of `source` in the whole
  int line = 1;
  int column = 1;
  double number = 0;
  std::string text;  // of kText: the content; of kBad: what was wrong
  bool is(std::string_view symbol) const { return kind == kSymbol && source == symbol; }
  std::size_t end() const { return offset + source.size(); }
  /// How a message names it: 'foo', end of text.
  std::string described() const;
};

class NRI_API NRiLexer {
 public:
  explicit NRiLexer(std::string_view text) : text_(text) {}
  NRiToken next();

  static constexpr std::size_t longestName = 256;
  static constexpr std::size_t longestNumber = 64;
  static constexpr std::size_t longestText = 65536;

 private:
  bool skipBlanks(NRiToken& bad);
  void advance(std::size_t count);
  NRiToken take(NRiToken::Kind kind, std::size_t length);
  NRiToken readText();
  NRiToken readNumber();

  std::string_view text_;
  std::size_t at_ = 0;
  int line_ = 1;
  int column_ = 1;
};

/// An expression on one line: blanks and tabs as they are, one blank for comments and line breaks.
NRI_API std::string NRiOnOneLine(std::string_view expression);

/// A value in a message: printable, at most 60 characters.
NRI_API std::string NRiPrintable(std::string_view text);
