// SPDX-License-Identifier: BSD-3-Clause
//
// The script declaration of the plug-in's functions.
#pragma once

/// `extern` declarations of Orvanite, Orvanite_1v4 and Orvanite_1v3.
extern const char orvaniteDeclaration[];
