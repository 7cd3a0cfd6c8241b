// SPDX-License-Identifier: BSD-3-Clause
//
// The script compiler. A text is read whole; only when nothing is wrong in it is it run, statement
// by statement.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/NRiExport.h"
#include "platform/NRiScope.h"
#include "platform/NRiType.h"

/// The compiler of scripts.
class NRI_API NRiCmplr {
 public:
  NRiCmplr();
  ~NRiCmplr();
  NRiCmplr(const NRiCmplr&) = delete;
  NRiCmplr& operator=(const NRiCmplr&) = delete;

  /// Runs a script, or a text of declarations, in `scope`. `name` is what messages call it.
  /// `result` becomes the value of the last statement; a `type` other than null is what it must be.
  /// Returns the declarations that it made, whose functions live as long as the handle; an empty
  /// handle means failure, with errors() telling why. After a failure the nodes, variables and
  /// functions that the text made are gone again; plugs that it assigned keep what they got.
  std::shared_ptr<NRiDeclaration> execute(NRiScope* scope, const NRiType& type, NRiValue& result,
                                          const NRiName& text, const NRiName& name);

  /// One line each: file:line:column: what was found and what was expected.
  const std::vector<std::string>& errors() const { return errors_; }
  /// The files that the text included, as they were opened.
  const std::vector<std::string>& included() const { return included_; }

 private:
  class Runner;
  std::vector<std::string> errors_;
  std::vector<std::string> included_;
};
