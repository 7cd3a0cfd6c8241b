// SPDX-License-Identifier: BSD-3-Clause
//
// Reads a script into statements. Declarations take effect at once, so that what follows can be
// checked against them; nothing else is run. After an error reading goes on behind the next ';'.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/NRiLexer.h"
#include "platform/NRiScope.h"

struct NRiCallNode;

struct NRiArgument {
  NRiPosition position;
  NRiName image;                      // an image variable
  std::unique_ptr<NRiCallNode> call;  // an image made on the spot
  std::string text;                   // of an argument that is no image
};

struct NRiCallNode {
  NRiPosition position;
  NRiName function;
  std::vector<NRiArgument> arguments;  // one for each parameter, defaults filled in
};

struct NRiStatement {
  enum Kind { kCall, kImage, kAlias, kValue, kPlug };
  Kind kind = kCall;
  NRiPosition position;
  NRiId type = nriNull;  // as written before a variable
  NRiName node;          // of kPlug
  NRiName target;
  NRiName source;  // of kAlias
  std::unique_ptr<NRiCallNode> call;
  std::string text;
  NRiPosition textPosition;
};

class NRI_API NRiParser {
 public:
  NRiParser(NRiScope& scope, NRiDeclaration& declaration, std::string_view text, std::string file);

  std::vector<NRiStatement> parse();
  const std::vector<std::string>& errors() const { return errors_; }
  /// The files that it includes, and those that they include, as they were opened.
  const std::vector<std::string>& included() const { return included_; }

  static constexpr std::size_t longestScript = std::size_t{1} << 20;
  static constexpr std::size_t mostErrors = 20;
  static constexpr int deepestCall = 64;
  static constexpr std::size_t deepestInclude = 16;
  static constexpr std::size_t mostIncludes = 256;

 private:
  struct Piece {
    std::string text;  // as the script has it
    NRiPosition position;
    bool quoted = false;  // one text in quotes and nothing more; `text` is with its quotes
    std::string content;  // of that text
    NRiPosition contentPosition;
  };
  enum class Meaning { kImage, kValue, kBroken };

  void advance();
  NRiPosition here() const { return {file_, token_.line, token_.column}; }
  [[noreturn]] void fail(const std::string& expected) const;
  void expect(const char* symbol);
  NRiName takeName(const char* what);
  void recover();

  void include(std::vector<NRiStatement>& out);
  void declaration();
  std::string commentBefore(std::size_t offset) const;
  std::string commentBehind(std::size_t offset) const;
  NRiParameter parameter(const std::vector<NRiParameter>& earlier, NRiPosition& place);
  void statement(std::vector<NRiStatement>& out);
  void assignment(NRiStatement& statement, NRiId type);
  std::unique_ptr<NRiCallNode> call(int depth);
  std::size_t indexOfNamed(const NRiFunction& function, const std::vector<bool>& given);
  NRiArgument argument(const NRiFunction& function, std::size_t index, int depth);
  Piece piece();

  NRiScope& scope_;
  NRiDeclaration& declaration_;
  std::string_view text_;
  std::string file_;
  NRiLexer lexer_;
  NRiToken token_;
  NRiToken next_;
  std::string before_;  // the token before token_, for messages
  std::unordered_map<NRiName, Meaning, NRiNameHash> known_;
  std::vector<std::string> errors_;
  std::vector<std::string> included_;
  std::vector<std::string> open_;  // the files that are being read, the outermost first
};
