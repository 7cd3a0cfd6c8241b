// SPDX-License-Identifier: BSD-3-Clause
//
// The suites that the test host lends a plug-in: properties, effects, parameters, threads,
// messages. They behave, and misbehave, as the host's manners say.
#pragma once

#include "tests/plugins/OfxHost.h"

namespace ofxTest {

/// Whose suites they are from now on: suites have no host argument, so one host lives at a time.
void lendSuitesOf(OfxHost* host);

/// The standard's way to ask for a suite; null for one that the host does not have.
const void* fetchSuite(ofx::PropertySet host, const char* name, int version);

}  // namespace ofxTest
