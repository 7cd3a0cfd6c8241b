// SPDX-License-Identifier: BSD-3-Clause
//
// The script language: extern declarations, assignments, calls.
#include "platform/NRiParser.h"

#include "platform/NRiCall.h"
#include "platform/NRiExpression.h"
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

std::string quote(const NRiName& name) { return "'" + NRiPrintable(name.view()) + "'"; }

}  // namespace

NRiParser::NRiParser(NRiScope& scope, NRiDeclaration& declaration, std::string_view text,
                     std::string file)
    : scope_(scope), declaration_(declaration), text_(text), file_(std::move(file)), lexer_(text) {
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
      } else if (token_.is(";")) {
        advance();
      } else {
        statement(statements);
      }
    } catch (const NRiError& error) {
      errors_.emplace_back(error.what());
      if (errors_.size() == mostErrors) {
        errors_.push_back(file_ + ": too many errors");
        break;
      }
      recover();
    }
  }
  return statements;
}

// extern image Name(type [name] [= default], ...);
void NRiParser::declaration() {
  advance();
  if (typeNamed(token_) != nriImage) fail("'image' after 'extern'");
  advance();
  NRiFunction function;
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
  NRiPosition at = value.position;
  if (content) ++at.column;
  const NRiExpression expression(one.text, at);
  for (const auto& reference : expression.references()) {
    bool found = reference.node.empty() && reference.plug.view() == "time";
    for (const NRiParameter& other : earlier) {
      found = found || (reference.node.empty() && other.name == reference.plug);
    }
    if (!found) {
      throw NRiError(
          reference.position,
          "expected the name of an earlier argument, found '" +
              NRiPrintable(expression.text().substr(reference.offset, reference.length)) + "'");
    }
  }
  return one;
}

// The tokens up to the next ',' , ')' or ';' outside brackets, as one expression.
NRiParser::Piece NRiParser::piece() {
  Piece found;
  found.position = here();
  int depth = 0;
  std::size_t end = 0;
  int count = 0;
  while (token_.kind != NRiToken::kEnd && !token_.is(";")) {
    if (depth == 0 && (token_.is(",") || token_.is(")"))) break;
    if (token_.is("(")) ++depth;
    if (token_.is(")")) --depth;
    if (count > 0) found.text += NRiGap(text_.substr(end, token_.offset - end));
    found.text += token_.source;
    end = token_.end();
    found.quoted = ++count == 1 && token_.kind == NRiToken::kText;
    if (found.quoted) found.content = token_.text;
    advance();
  }
  if (count == 0) fail("an expression");
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
  if (token_.kind == NRiToken::kName && next_.is("(")) {
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
  while (!token_.is(")")) {
    const std::size_t index = node->arguments.size();
    if (index > 0) expect(",");
    if (index == count) {
      fail("')' after the " + std::to_string(count) + " arguments of " + quote(function->name));
    }
    node->arguments.push_back(argument(*function, index, depth));
    if (!token_.is(",") && !token_.is(")")) fail("',' or ')'");
  }
  for (std::size_t i = node->arguments.size(); i < count; ++i) {
    const NRiParameter& missing = function->parameters[i];
    if (!missing.hasDefault) {
      fail((missing.type == nriImage ? "an image" : "a value") + std::string(" for argument ") +
           std::to_string(i + 1) + " of " + quote(function->name));
    }
    NRiArgument one;
    one.position = here();
    one.text = missing.text;
    node->arguments.push_back(std::move(one));
  }
  advance();
  return node;
}

NRiArgument NRiParser::argument(const NRiFunction& function, std::size_t index, int depth) {
  NRiArgument one;
  one.position = here();
  const NRiParameter& parameter = function.parameters[index];
  if (parameter.type != nriImage) {
    const Piece value = piece();
    const bool content = value.quoted && parameter.type != nriString;
    one.text = content ? value.content : value.text;
    if (content) ++one.position.column;
    const NRiExpression check(one.text, one.position);
    const NRiOperand* const constant = check.constant();
    if (constant && constant->isText != (parameter.type == nriString)) {
      throw NRiError(one.position,
                     "expected " + std::string(constant->isText ? "a number" : "a text") +
                         " for argument " + std::to_string(index + 1) + " of " +
                         quote(function.name) + ", found '" + NRiPrintable(one.text) + "'");
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
