# Doxygen reads the tree's plain comments: one behind a declaration or above it is its page's text,
# and what a file opens with is the file's.
1s|^// SPDX.*|/// @file|
1s|^/\* SPDX.*|/** @file|
1,/^\(#pragma once\|#ifndef\)/s|^//\( \|$\)|/// |
1,/^\(#pragma once\|#ifndef\)/b
s|\([;,{}a-zA-Z0-9_)]  *\)// |\1///< |
s|^\( *\)// |\1/// |
s|^/\* |/** |
s|\([;,]  *\)/\* \(.*\) \*/|\1/**< \2 */|
