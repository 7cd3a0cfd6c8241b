// SPDX-License-Identifier: BSD-3-Clause
//
// Layouts that a 64-bit host and the plug-in must agree on, counted from the standard's own order:
// eight bytes a pointer, four an int, in the order in which the reference manual lists members.
#include <cstddef>

#include "plugins/ofx/OfxApi.h"

static_assert(sizeof(void*) != 8 || sizeof(ofx::Host) == 16);
static_assert(sizeof(void*) != 8 || sizeof(ofx::Plugin) == 48);
static_assert(sizeof(void*) != 8 || offsetof(ofx::Plugin, apiVersion) == 8);
static_assert(sizeof(void*) != 8 || offsetof(ofx::Plugin, identifier) == 16);
static_assert(sizeof(void*) != 8 || offsetof(ofx::Plugin, versionMajor) == 24);
static_assert(sizeof(void*) != 8 || offsetof(ofx::Plugin, versionMinor) == 28);
static_assert(sizeof(void*) != 8 || offsetof(ofx::Plugin, setHost) == 32);
static_assert(sizeof(void*) != 8 || offsetof(ofx::Plugin, mainEntry) == 40);

static_assert(sizeof(ofx::RectI) == 16 && offsetof(ofx::RectI, y2) == 12);
static_assert(sizeof(ofx::RectD) == 32 && offsetof(ofx::RectD, y2) == 24);
static_assert(sizeof(ofx::RangeD) == 16);
static_assert(sizeof(ofx::Time) == 8 && sizeof(ofx::Status) == 4);

// A suite is a row of function pointers; these are the places of those that we call.
#define PLACE(Suite, member) (offsetof(ofx::Suite, member) / sizeof(void (*)()))
static_assert(sizeof(ofx::PropertySuite) == 18 * sizeof(void (*)()));
static_assert(PLACE(PropertySuite, setPointer) == 0 && PLACE(PropertySuite, setString) == 1);
static_assert(PLACE(PropertySuite, setDouble) == 2 && PLACE(PropertySuite, setInt) == 3);
static_assert(PLACE(PropertySuite, getPointer) == 8 && PLACE(PropertySuite, getString) == 9);
static_assert(PLACE(PropertySuite, getDouble) == 10 && PLACE(PropertySuite, getInt) == 11);
static_assert(PLACE(PropertySuite, getDimension) == 17);

static_assert(sizeof(ofx::ImageEffectSuite) == 13 * sizeof(void (*)()));
static_assert(PLACE(ImageEffectSuite, getPropertySet) == 0 &&
              PLACE(ImageEffectSuite, getParamSet) == 1);
static_assert(PLACE(ImageEffectSuite, clipDefine) == 2 &&
              PLACE(ImageEffectSuite, clipGetHandle) == 3);
static_assert(PLACE(ImageEffectSuite, clipGetPropertySet) == 4 &&
              PLACE(ImageEffectSuite, clipGetImage) == 5);
static_assert(PLACE(ImageEffectSuite, clipReleaseImage) == 6);
static_assert(PLACE(ImageEffectSuite, clipGetRegionOfDefinition) == 7 &&
              PLACE(ImageEffectSuite, abort) == 8);

static_assert(sizeof(ofx::ParameterSuite) == 18 * sizeof(void (*)()));
static_assert(PLACE(ParameterSuite, define) == 0 && PLACE(ParameterSuite, getHandle) == 1);
static_assert(PLACE(ParameterSuite, setGetPropertySet) == 2 &&
              PLACE(ParameterSuite, getValue) == 4);
static_assert(PLACE(ParameterSuite, getValueAtTime) == 5 && PLACE(ParameterSuite, setValue) == 8);
static_assert(PLACE(ParameterSuite, setValueAtTime) == 9 &&
              PLACE(ParameterSuite, getNumKeys) == 10);
static_assert(PLACE(ParameterSuite, editBegin) == 16 && PLACE(ParameterSuite, editEnd) == 17);

static_assert(sizeof(ofx::MultiThreadSuite) == 9 * sizeof(void (*)()));
static_assert(PLACE(MultiThreadSuite, multiThread) == 0 && PLACE(MultiThreadSuite, numCpus) == 1);
static_assert(sizeof(ofx::MessageSuite) == 3 * sizeof(void (*)()));
static_assert(PLACE(MessageSuite, setPersistent) == 1 && PLACE(MessageSuite, clearPersistent) == 2);
