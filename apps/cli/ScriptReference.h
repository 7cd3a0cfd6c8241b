// SPDX-License-Identifier: BSD-3-Clause
//
// What scripts can call, made from the declarations of nodes and from the table of the functions of
// expressions, so that neither help nor documents can say anything else.
#pragma once

#include <string>

namespace orvanite::cli {

/// The reference of one function, of a node or of expressions, or of all where `name` is empty.
/// Throws Error (wrongUse) about a name that no function bears.
std::string scriptReference(const std::string& name);

}  // namespace orvanite::cli
