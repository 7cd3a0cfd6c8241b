// SPDX-License-Identifier: BSD-3-Clause
//
// Conversions between samples; see samples.h. Rows are the host's and may lie at odd addresses, so
// that every sample is copied in and out.
#include "plugins/ofx/samples.h"

#include <Imath/half.h>

#include <cmath>
#include <cstring>

namespace orvanite::ofxPlugin {

namespace {

template <class T>
T load(const std::byte* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

template <class T>
void store(std::byte* at, T value) {
  std::memcpy(at, &value, sizeof value);
}

float fromHalf(const std::byte* at) {
  Imath::half value;
  value.setBits(load<std::uint16_t>(at));
  return value;
}

void storeHalf(std::byte* at, float value) { store(at, Imath::half(value).bits()); }

float codeOf(float value, float top) {
  return std::fmin(std::fmax(std::trunc(std::fma(value, top, 0.5F)), 0.0F), top);
}

constexpr float wordTop = 65535.0F;

// Calls change(to, from) for n samples that lie this many bytes apart.
template <class Change>
void each(std::byte* to, int toBytes, const std::byte* from, int fromBytes, std::size_t n,
          Change change) {
  for (std::size_t i = 0; i < n; ++i, to += toBytes, from += fromBytes) change(to, from);
}

}  // namespace

void toWorking(std::byte* to, int depth, const std::byte* from, Sample sample, std::size_t n) {
  if (isNative(sample, depth)) {
    std::memcpy(to, from, n * static_cast<std::size_t>(depth));
  } else if (depth == 4) {
    each(to, 4, from, 2, n, [](std::byte* out, const std::byte* in) { store(out, fromHalf(in)); });
  } else if (sample == Sample::half) {
    each(to, 2, from, 2, n,
         [](std::byte* out, const std::byte* in) { writeCode(out, 2, fromHalf(in)); });
  } else {
    each(to, 2, from, 4, n,
         [](std::byte* out, const std::byte* in) { writeCode(out, 2, load<float>(in)); });
  }
}

void fromWorking(std::byte* to, Sample sample, const std::byte* from, int depth, std::size_t n) {
  if (isNative(sample, depth)) {
    std::memcpy(to, from, n * static_cast<std::size_t>(depth));
  } else if (depth == 4) {
    each(to, 2, from, 4, n,
         [](std::byte* out, const std::byte* in) { storeHalf(out, load<float>(in)); });
  } else if (sample == Sample::half) {
    each(to, 2, from, 2, n, [](std::byte* out, const std::byte* in) {
      storeHalf(out, static_cast<float>(load<std::uint16_t>(in)) / wordTop);
    });
  } else {
    each(to, 4, from, 2, n, [](std::byte* out, const std::byte* in) {
      store(out, static_cast<float>(load<std::uint16_t>(in)) / wordTop);
    });
  }
}

float valueOf(const std::byte* at, Sample sample) {
  switch (sample) {
    case Sample::byte:
      return static_cast<float>(load<std::uint8_t>(at)) / 255.0F;
    case Sample::word:
      return static_cast<float>(load<std::uint16_t>(at)) / wordTop;
    case Sample::half:
      return fromHalf(at);
    case Sample::real:
      break;
  }
  return load<float>(at);
}

void writeCode(std::byte* at, int depth, float value) {
  if (depth == 4) {
    store(at, value);
  } else if (depth == 1) {
    store(at, static_cast<std::uint8_t>(codeOf(value, 255.0F)));
  } else {
    store(at, static_cast<std::uint16_t>(codeOf(value, wordTop)));
  }
}

}  // namespace orvanite::ofxPlugin
