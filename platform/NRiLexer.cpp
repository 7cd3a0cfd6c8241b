// SPDX-License-Identifier: BSD-3-Clause
//
// The tokens of scripts and expressions.
#include "platform/NRiLexer.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <system_error>

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isNamePart(char c) { return isNameStart(c) || isDigit(c); }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }

}  // namespace

std::string NRiPrintable(std::string_view text) {
  constexpr std::size_t longest = 60;
  std::string shown;
  for (const char c : text.substr(0, longest)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f && byte < 0x80) {
      shown += c;
    } else {
      char code[8];
      std::snprintf(code, sizeof code, "\\x%02x", byte);
      shown += code;
    }
  }
  if (text.size() > longest) shown += "...";
  return shown;
}

std::string NRiOnOneLine(std::string_view expression) {
  std::string line;
  NRiLexer lexer(expression);
  std::size_t end = 0;
  for (NRiToken token = lexer.next(); token.kind != NRiToken::kEnd; token = lexer.next()) {
    if (!line.empty()) {
      const std::string_view gap = expression.substr(end, token.offset - end);
      line += gap.find_first_not_of(" \t") == std::string_view::npos ? gap : " ";
    }
    line += token.source;
    end = token.end();
  }
  return line;
}

std::string NRiToken::described() const {
  return kind == kEnd ? "the end" : "'" + NRiPrintable(source) + "'";
}

void NRiLexer::advance(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (text_[at_ + i] == '\n') {
      ++line_;
      column_ = 1;
    } else {
      ++column_;
    }
  }
  at_ += count;
}

NRiToken NRiLexer::take(NRiToken::Kind kind, std::size_t length) {
  NRiToken token;
  token.kind = kind;
  token.source = text_.substr(at_, length);
  token.offset = at_;
  token.line = line_;
  token.column = column_;
  advance(length);
  return token;
}

// Passes blanks and comments; false when a comment does not end, which is left in `bad`.
bool NRiLexer::skipBlanks(NRiToken& bad) {
  for (;;) {
    while (at_ < text_.size() && isBlank(text_[at_])) advance(1);
    const std::string_view rest = text_.substr(at_);
    if (rest.starts_with("//") || rest.starts_with("#")) {
      const std::size_t end = rest.find('\n');
      advance(end == std::string_view::npos ? rest.size() : end);
    } else if (rest.starts_with("/*")) {
      const std::size_t end = rest.find("*/", 2);
      if (end == std::string_view::npos) {
        bad = take(NRiToken::kBad, 2);
        bad.text = "a comment that does not end: expected '*/'";
        advance(text_.size() - at_);
        return false;
      }
      advance(end + 2);
    } else {
      return true;
    }
  }
}

NRiToken NRiLexer::next() {
  NRiToken bad;
  if (!skipBlanks(bad)) return bad;
  if (at_ == text_.size()) return take(NRiToken::kEnd, 0);
  const char c = text_[at_];
  const char after = at_ + 1 < text_.size() ? text_[at_ + 1] : '\0';
  if (c == '"') return readText();
  if (isDigit(c) || (c == '.' && isDigit(after))) return readNumber();
  if (isNameStart(c)) {
    std::size_t length = 1;
    while (at_ + length < text_.size() && isNamePart(text_[at_ + length])) ++length;
    NRiToken token = take(length > longestName ? NRiToken::kBad : NRiToken::kName, length);
    if (length > longestName) token.text = "a name that is too long: expected at most 256 letters";
    return token;
  }
  const std::string_view pair = text_.substr(at_, 2);
  for (const char* symbol : {"==", "!=", "<=", ">=", "&&", "||"}) {
    if (pair == symbol) return take(NRiToken::kSymbol, 2);
  }
  if (std::string_view("()+-*/,;.?:=<>!@").find(c) != std::string_view::npos) {
    return take(NRiToken::kSymbol, 1);
  }
  // A run of bytes that mean nothing is one error.
  std::size_t length = 1;
  while (at_ + length < text_.size()) {
    const char d = text_[at_ + length];
    if (isBlank(d) || isNamePart(d) ||
        std::string_view("\"()+-*/,;.?:=<>!@#").find(d) != std::string_view::npos) {
      break;
    }
    ++length;
  }
  NRiToken token = take(NRiToken::kBad, length);
  token.text = token.described() + " means nothing here";
  return token;
}

NRiToken NRiLexer::readNumber() {
  const std::string_view rest = text_.substr(at_);
  std::size_t length = 0;
  const auto digits = [&] {
    while (length < rest.size() && isDigit(rest[length])) ++length;
  };
  digits();
  if (length < rest.size() && rest[length] == '.') {
    ++length;
    digits();
  }
  if (length < rest.size() && (rest[length] == 'e' || rest[length] == 'E')) {
    std::size_t exponent = length + 1;
    if (exponent < rest.size() && (rest[exponent] == '+' || rest[exponent] == '-')) ++exponent;
    if (exponent < rest.size() && isDigit(rest[exponent])) {
      length = exponent;
      digits();
    }
  }
  bool joined = false;
  while (length < rest.size() && isNamePart(rest[length])) {  // 12abc
    ++length;
    joined = true;
  }
  double number = 0;
  const auto read = std::from_chars(rest.data(), rest.data() + length, number);
  const bool fine = !joined && length <= longestNumber && read.ec == std::errc() &&
                    read.ptr == rest.data() + length && std::isfinite(static_cast<float>(number));
  NRiToken token = take(fine ? NRiToken::kNumber : NRiToken::kBad, length);
  token.number = number;
  if (!fine) {
    token.text =
        token.described() + " is no number: expected at most 64 digits and a size below 3.4e38";
  }
  return token;
}

NRiToken NRiLexer::readText() {
  std::string content;
  std::size_t i = at_ + 1;
  for (; i < text_.size() && text_[i] != '"' && text_[i] != '\n'; ++i) {
    char c = text_[i];
    if (c == '\\' && i + 1 < text_.size() && text_[i + 1] != '\n') {
      c = text_[++i];
      c = c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
    content += c;
  }
  const bool closed = i < text_.size() && text_[i] == '"';
  const bool fits = content.size() <= longestText && content.find('\0') == std::string::npos;
  NRiToken token =
      take(closed && fits ? NRiToken::kText : NRiToken::kBad, i - at_ + (closed ? 1 : 0));
  token.text = closed && fits ? std::move(content)
               : closed
                   ? "a text that is too long or holds a null: expected 65536 characters at most"
                   : "a text that does not end: expected '\"' on the same line";
  return token;
}
