// SPDX-License-Identifier: BSD-3-Clause
//
// What liborvanite-platform.so shows to the application and to plug-ins. Both must share one copy
// of the interned names, the node tree and the declared functions, so the platform is a shared
// library and every class that crosses its edge carries this mark.
#pragma once

#define NRI_API __attribute__((visibility("default")))
