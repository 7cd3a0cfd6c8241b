// SPDX-License-Identifier: BSD-3-Clause
//
// Anchors the class in this library.
#include "platform/NRiNadic.h"

NRiNadic::NRiNadic() = default;
NRiNadic::~NRiNadic() = default;
