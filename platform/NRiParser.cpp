// SPDX-License-Identifier: BSD-3-Clause
//
// The script language: extern declarations, assignments, calls.
#include "platform/NRiParser.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

#include "platform/NRiCall.h"
#include "platform/NRiExpression.h"
#include "platform/NRiMath.h"
#include "platform/NRiNode.h"

namespace {

NRiId typeNamed(const NRiToken& token) {
  if (token.kind != NRiToken::kName) return nriNull;
  return token.source == "image"    ? nriImage
         : token.source == "string" ? nriString
         : token.source == "float"  ? nriFloat
         : token.source == "int"    ? nriInt
                                    : nriNull;
}

// What some editors put before a text in UTF-8.
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

// The text of a line that holds a `//` comment and nothing else; empty for any other.
std::string commentOf(std::string_view line) {
  const std::size_t start = line.find_first_not_of(" \t");
  if (start == std::string_view::npos || !line.substr(start).starts_with("//")) return {};
  line.remove_prefix(start + 2);
  const std::size_t first = line.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return std::string(line.substr(first, line.find_last_not_of(" \t\r") + 1 - first));
}

std::string quote(const NRiName& name) { return "'" + NRiPrintable(name.view()) + "'"; }

}  // namespace

NRiParser::NRiParser(NRiScope& scope, NRiDeclaration& declaration, std::string_view text,
                     std::string file)
    : scope_(scope),
      declaration_(declaration),
      text_(text.starts_with(byteOrderMark) ? text.substr(byteOrderMark.size()) : text),
      file_(std::move(file)),
      lexer_(text_) {
  for (const auto& [name, image] : scope.images()) known_[name] = Meaning::kImage;
  for (const NRiPlug* const plug : NRiNode::getRoot()->getPublicPlugs()) {
    known_[plug->name()] = Meaning::kValue;
  }
}

void NRiParser::advance() {
  before_ = std::string(token_.source);
  token_ = std::move(next_);
  next_ = lexer_.next();
  if (token_.kind == NRiToken::kBad) throw NRiError(here(), token_.text);
}

void NRiParser::fail(const std::string& expected) const {
  throw NRiError(here(), "expected " + expected + ", found " + token_.described());
}

void NRiParser::expect(const char* symbol) {
  if (!token_.is(symbol)) fail(std::string("'") + symbol + "'");
  advance();
}

NRiName NRiParser::takeName(const char* what) {
  if (token_.kind != NRiToken::kName) fail(what);
  NRiName name(token_.source);
  advance();
  return name;
}

// Passes the rest of a statement in which something was wrong.
void NRiParser::recover() {
  // A text that does not end took the rest of its line, and most likely the ';' in it.
  const bool openText = token_.kind == NRiToken::kBad && token_.source.starts_with('"');
  while (!openText && !token_.is(";") && token_.kind != NRiToken::kEnd) {
    token_ = std::move(next_);
    next_ = lexer_.next();
  }
  if (token_.is(";") || openText) {
    token_ = std::move(next_);
    next_ = lexer_.next();
  }
}

std::vector<NRiStatement> NRiParser::parse() {
  std::vector<NRiStatement> statements;
  if (text_.size() > longestScript) {
    errors_.push_back(file_ + ":1:1: a script that is too long: expected at most 1048576 bytes");
    return statements;
  }
  next_ = lexer_.next();
  token_ = std::move(next_);
  next_ = lexer_.next();
  while (token_.kind != NRiToken::kEnd) {
    try {
      if (token_.kind == NRiToken::kBad) throw NRiError(here(), token_.text);
      if (token_.kind == NRiToken::kName && token_.source == "extern") {
        declaration();
      } else if (token_.kind == NRiToken::kName && token_.source == "include" &&
                 next_.kind == NRiToken::kText) {
        include(statements);
      } else if (token_.is(";")) {
        advance();
      } else {
        statement(statements);
      }
    } catch (const NRiError& error) {
      errors_.emplace_back(error.what());
      if (errors_.size() >= mostErrors) {
        errors_.push_back(file_ + ": too many errors");
        break;
      }
      recover();
    }
  }
  return statements;
}

// include "look.orv"; the statements of a file, whose path counts from the folder of this one.
void NRiParser::include(std::vector<NRiStatement>& out) {
  namespace fs = std::filesystem;
  advance();
  const NRiPosition place = here();
  const std::string shown = token_.described();
  const std::string path = (fs::path(file_).parent_path() / token_.text).string();
  advance();
  if (!token_.is(";")) fail("';' after the statement");
  std::error_code error;
  const std::string whole = fs::weakly_canonical(path, error).string();
  if (open_.empty()) open_.push_back(fs::weakly_canonical(file_, error).string());
  if (std::find(open_.begin(), open_.end(), whole) != open_.end()) {
    throw NRiError(place, shown + " includes itself: expected no circle");
  }
  if (open_.size() == deepestInclude || included_.size() >= mostIncludes) {
    throw NRiError(place, "expected at most 256 files that are included, and 16 in one another");
  }
  std::ifstream file(path, std::ios::binary);
  if (!fs::is_regular_file(path, error) || !file) {
    throw NRiError(place, shown + " cannot be read");
  }
  std::string text(longestScript + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  included_.push_back(path);

  NRiParser inner(scope_, declaration_, text, path);
  inner.known_ = known_;
  inner.open_ = open_;
  inner.open_.push_back(whole);
  inner.included_ = included_;
  for (NRiStatement& one : inner.parse()) out.push_back(std::move(one));
  known_ = std::move(inner.known_);
  included_ = std::move(inner.included_);
  errors_.insert(errors_.end(), inner.errors_.begin(), inner.errors_.end());
  advance();
}

// The `//` comments on the lines before a place, joined.
std::string NRiParser::commentBefore(std::size_t offset) const {
  std::string comment;
  std::size_t end = offset == 0 ? 0 : text_.rfind('\n', offset - 1);
  while (end != std::string_view::npos && end > 0) {
    const std::size_t before = text_.rfind('\n', end - 1);
    const std::size_t start = before == std::string_view::npos ? 0 : before + 1;
    const std::string line = commentOf(text_.substr(start, end - start));
    if (line.empty()) break;
    comment = comment.empty() ? line : line + " " + comment;
    end = before;
  }
  return comment;
}

// The `//` comment that begins behind a place on its line, with those on the lines below, joined.
std::string NRiParser::commentBehind(std::size_t offset) const {
  std::string comment;
  while (offset < text_.size()) {
    const std::size_t end = std::min(text_.find('\n', offset), text_.size());
    const std::string line = commentOf(text_.substr(offset, end - offset));
    if (line.empty()) break;
    comment += (comment.empty() ? "" : " ") + line;
    offset = end + 1;
  }
  return comment;
}

// extern image Name(type [name] [= default], ...);
void NRiParser::declaration() {
  NRiFunction function;
  function.help = commentBefore(token_.offset);
  advance();
  if (typeNamed(token_) != nriImage) fail("'image' after 'extern'");
  advance();
  function.declared = here();
  function.name = takeName("the name of the function");
  expect("(");
  while (!token_.is(")")) {
    if (!function.parameters.empty()) expect(",");
    NRiPosition place = here();
    NRiParameter one = parameter(function.parameters, place);
    const int texts = static_cast<int>(function.parameters.size()) - function.images;
    if (one.type == nriImage && (texts > 0 || function.images == NRiMostImages)) {
      throw NRiError(place, "expected at most 4 images, all before the other arguments");
    }
    if (one.type != nriImage && texts == NRiMostTexts) {
      throw NRiError(place, "expected at most 40 arguments that are no images");
    }
    if (one.type == nriImage) ++function.images;
    // The last one's comment stands behind the ';'.
    const bool isLast = token_.is(")") && next_.is(";");
    one.help = commentBehind(isLast ? next_.end() : token_.end());
    function.parameters.push_back(std::move(one));
  }
  advance();
  if (!token_.is(";")) fail("';' after the declaration");
  bool fresh = false;
  if (!scope_.declare(function, fresh)) {
    throw NRiError(function.declared, quote(function.name) + " is declared otherwise at " +
                                          scope_.function(function.name)->declared.prefix() +
                                          "expected the same arguments");
  }
  if (fresh) declaration_.functions.push_back(function.name);
  advance();
}

NRiParameter NRiParser::parameter(const std::vector<NRiParameter>& earlier, NRiPosition& place) {
  NRiParameter one;
  one.type = typeNamed(token_);
  if (one.type == nriNull) fail("'image', 'string', 'float' or 'int'");
  advance();
  if (token_.kind == NRiToken::kName) {
    place = here();
    one.name = takeName("a name");
    for (const NRiParameter& other : earlier) {
      if (other.name == one.name) {
        throw NRiError(place, "expected a name of its own for each argument, found " +
                                  quote(one.name) + " again");
      }
    }
  }
  if (!token_.is("=")) return one;
  advance();
  one.hasDefault = true;
  if (one.type == nriImage) {
    if (token_.kind != NRiToken::kNumber || token_.number != 0) fail("0 for no image");
    advance();
    return one;
  }
  const Piece value = piece();
  const bool content = value.quoted && one.type != nriString;
  one.text = content ? value.content : value.text;
  const NRiExpression expression(one.text, content ? value.contentPosition : value.position);
  for (const auto& reference : expression.references()) {
    bool found = reference.node.empty() && reference.plug.view() == "time";
    for (const NRiParameter& other : earlier) {
      found = found || (reference.node.empty() && other.name == reference.plug);
    }
    if (!found) {
      throw NRiError(
          expression.positionOf(reference),
          "expected the name of an earlier argument, found '" + expression.shown(reference) + "'");
    }
  }
  return one;
}

// The tokens up to the next ',' , ')' or ';' outside brackets, as one expression.
NRiParser::Piece NRiParser::piece() {
  Piece found;
  found.position = here();
  const std::size_t start = token_.offset;
  std::size_t end = start;
  int depth = 0;
  int count = 0;
  while (token_.kind != NRiToken::kEnd && !token_.is(";")) {
    if (depth == 0 && (token_.is(",") || token_.is(")"))) break;
    if (token_.is("(")) ++depth;
    if (token_.is(")")) --depth;
    end = token_.end();
    found.quoted = ++count == 1 && token_.kind == NRiToken::kText;
    if (found.quoted) found.content = token_.text;
    advance();
  }
  if (count == 0) fail("an expression");
  found.text = text_.substr(start, end - start);
  // Plugs take texts that end with a null: none may stand in a comment.
  if (found.text.find('\0') != std::string::npos) found.text = NRiOnOneLine(found.text);
  if (found.quoted) {
    found.contentPosition = found.position;
    ++found.contentPosition.column;
    const std::string written = found.text.substr(1, found.text.size() - 2);
    if (written.find('\\') != std::string::npos) found.contentPosition.written = written;
  }
  return found;
}

void NRiParser::statement(std::vector<NRiStatement>& out) {
  NRiStatement one;
  one.position = here();
  if (token_.kind == NRiToken::kName && next_.is("(")) {
    one.call = call(1);
  } else if (token_.kind == NRiToken::kName && next_.is(".")) {
    one.kind = NRiStatement::kPlug;
    one.node = takeName("a node");
    advance();
    one.target = takeName("the name of a plug after '.'");
    const auto meaning = known_.find(one.node);
    if (one.node.view() != "script" &&
        (meaning == known_.end() || meaning->second == Meaning::kValue) &&
        !NRiScope::findNode(one.node)) {
      throw NRiError(one.position, "expected a node, found " + quote(one.node));
    }
    expect("=");
    const Piece value = piece();
    const NRiExpression check(value.text, value.position);
    one.text = value.text;
    one.textPosition = value.position;
  } else {
    const NRiId type = typeNamed(token_);
    if (type != nriNull) advance();
    assignment(one, type);
  }
  if (!token_.is(";")) fail("';' after the statement");
  out.push_back(std::move(one));
  advance();
}

void NRiParser::assignment(NRiStatement& one, NRiId type) {
  one.type = type;
  one.position = here();
  one.target = takeName("a statement");
  const std::string_view target = one.target.view();
  if (target == "time" || target == "script" || target == "extern" || target == "image" ||
      target == "string" || target == "float" || target == "int") {
    throw NRiError(one.position, "expected the name of a variable, found " + quote(one.target) +
                                     ", which the script cannot set");
  }
  // Whatever goes wrong from here on, later statements that use the name are not to blame.
  const auto earlier = known_.find(one.target);
  const bool fresh = earlier == known_.end();
  const Meaning before = fresh ? Meaning::kBroken : earlier->second;
  known_[one.target] = Meaning::kBroken;
  expect("=");
  const auto named =
      token_.kind == NRiToken::kName ? known_.find(NRiName(token_.source)) : known_.end();
  Meaning meaning = Meaning::kValue;
  // A function that a script declares hides one of expressions, as in scripts that are older.
  const bool called = token_.kind == NRiToken::kName && next_.is("(");
  if (called && (scope_.function(NRiName(token_.source)) || !NRiMathNamed(token_.source))) {
    meaning = Meaning::kImage;
    one.kind = NRiStatement::kImage;
    one.call = call(1);
  } else if (named != known_.end() && named->second == Meaning::kImage && !next_.is(".")) {
    meaning = Meaning::kImage;
    one.kind = NRiStatement::kAlias;
    one.source = takeName("an image");
  } else {
    if (type == nriImage) fail("an image");
    one.kind = NRiStatement::kValue;
    const Piece value = piece();
    const NRiExpression check(value.text, value.position);
    one.text = value.text;
    one.textPosition = value.position;
  }
  const bool wasImage = before == Meaning::kImage;
  if ((type != nriNull && (type == nriImage) != (meaning == Meaning::kImage)) ||
      (!fresh && before != Meaning::kBroken && wasImage != (meaning == Meaning::kImage))) {
    known_[one.target] = before;
    throw NRiError(one.position, quote(one.target) + (meaning == Meaning::kImage
                                                          ? " is no image: expected a value"
                                                          : " is an image: expected one"));
  }
  known_[one.target] = meaning;
}

std::unique_ptr<NRiCallNode> NRiParser::call(int depth) {
  auto node = std::make_unique<NRiCallNode>();
  node->position = here();
  if (depth > deepestCall) {
    throw NRiError(here(), "calls that are nested too deeply: expected at most 64 levels");
  }
  const std::string shown = token_.described();
  node->function = takeName("a function");
  const NRiFunction* const function = scope_.function(node->function);
  if (!function) {
    throw NRiError(node->position, "expected the name of a function, found " + shown);
  }
  advance();  // the '(' that made this a call
  const std::size_t count = function->parameters.size();
  node->arguments.resize(count);
  std::vector<bool> given(count, false);
  std::size_t placed = 0;  // arguments that say by their place what they are
  bool isFirst = true;
  bool named = false;
  while (!token_.is(")")) {
    if (!std::exchange(isFirst, false)) expect(",");
    std::size_t index = placed;
    if (token_.kind == NRiToken::kName && next_.is("=")) {
      named = true;
      index = indexOfNamed(*function, given);
    } else if (named) {
      fail("a name and '=' before an argument that follows one with a name");
    } else if (placed++ == count) {
      fail("')' after the " + std::to_string(count) + " arguments of " + quote(function->name));
    }
    given[index] = true;
    node->arguments[index] = argument(*function, index, depth);
    if (!token_.is(",") && !token_.is(")")) fail("',' or ')'");
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (given[i]) continue;
    const NRiParameter& missing = function->parameters[i];
    if (!missing.hasDefault) {
      fail((missing.type == nriImage ? "an image" : "a value") + std::string(" for argument ") +
           std::to_string(i + 1) + " of " + quote(function->name));
    }
    node->arguments[i].position = here();
    node->arguments[i].text = missing.text;
  }
  advance();
  return node;
}

// Reads `name =` of an argument; which it is.
std::size_t NRiParser::indexOfNamed(const NRiFunction& function, const std::vector<bool>& given) {
  std::string names;
  for (std::size_t i = 0; i < function.parameters.size(); ++i) {
    const NRiName& name = function.parameters[i].name;
    if (name.view() == token_.source) {
      if (given[i]) fail("each argument once");
      advance();
      advance();
      return i;
    }
    if (!name.empty()) names += (names.empty() ? "" : ", ") + std::string(name.view());
  }
  fail("an argument of " + quote(function.name) + " (" + names + ")");
}

NRiArgument NRiParser::argument(const NRiFunction& function, std::size_t index, int depth) {
  NRiArgument one;
  one.position = here();
  const NRiParameter& parameter = function.parameters[index];
  if (parameter.type != nriImage) {
    const Piece value = piece();
    const bool content = value.quoted && parameter.type != nriString;
    one.text = content ? value.content : value.text;
    if (content) one.position = value.contentPosition;
    const NRiExpression check(one.text, one.position);
    const NRiOperand* const constant = check.constant();
    if (constant && constant->isText != (parameter.type == nriString)) {
      throw NRiError(one.position, "expected " +
                                       std::string(constant->isText ? "a number" : "a text") +
                                       " for argument " + std::to_string(index + 1) + " of " +
                                       quote(function.name) + ", found '" +
                                       NRiPrintable(NRiOnOneLine(one.text)) + "'");
    }
    return one;
  }
  const std::string expected = "an image after '" + before_ + "'";
  if (token_.kind == NRiToken::kNumber && token_.number == 0) {
    advance();
  } else if (token_.kind == NRiToken::kName && next_.is("(")) {
    one.call = call(depth + 1);
  } else if (token_.kind == NRiToken::kName) {
    const auto known = known_.find(NRiName(token_.source));
    if (known == known_.end() || known->second == Meaning::kValue) fail(expected);
    one.image = known->first;
    advance();
  } else {
    fail(expected);
  }
  return one;
}
