// SPDX-License-Identifier: BSD-3-Clause
//
// Conversions between samples; see Samples.h. Rows are the caller's and may lie at odd addresses,
// so that every sample is copied in and out.
#include "keyer/Samples.h"

#include <Imath/half.h>

#include <cmath>
#include <cstring>

namespace orvanite {

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

// In double the product is exact, and so is the sum wherever it decides the code.
float codeOf(float value, float top) {
  const double code = static_cast<double>(value) * static_cast<double>(top) + 0.5;
  return std::fmin(std::fmax(std::trunc(static_cast<float>(code)), 0.0f), top);
}

constexpr float byteTop = 255.0f;
constexpr float wordTop = 65535.0f;

// The value of a sample whose kind is known when this is compiled.
template <Sample sample>
float read(const std::byte* at) {
  if constexpr (sample == Sample::byte) {
    return static_cast<float>(load<std::uint8_t>(at)) / byteTop;
  } else if constexpr (sample == Sample::word) {
    return static_cast<float>(load<std::uint16_t>(at)) / wordTop;
  } else if constexpr (sample == Sample::half) {
    return fromHalf(at);
  } else {
    return load<float>(at);
  }
}

template <Sample sample>
void write(std::byte* at, float value) {
  if constexpr (sample == Sample::byte) {
    store(at, static_cast<std::uint8_t>(codeOf(value, byteTop)));
  } else if constexpr (sample == Sample::word) {
    store(at, static_cast<std::uint16_t>(codeOf(value, wordTop)));
  } else if constexpr (sample == Sample::half) {
    storeHalf(at, value);
  } else {
    store(at, value);
  }
}

// Calls call.template operator()<sample>() for a kind that is known when this runs.
template <class Call>
auto visit(Sample sample, Call call) {
  switch (sample) {
    case Sample::byte:
      return call.template operator()<Sample::byte>();
    case Sample::word:
      return call.template operator()<Sample::word>();
    case Sample::half:
      return call.template operator()<Sample::half>();
    case Sample::real:
      break;
  }
  return call.template operator()<Sample::real>();
}

Sample nativeOf(Depth depth) {
  return depth == Depth::bytes    ? Sample::byte
         : depth == Depth::shorts ? Sample::word
                                  : Sample::real;
}

void convert(std::byte* to, Sample toSample, const std::byte* from, Sample fromSample,
             std::size_t n, Steps steps) {
  const auto count = static_cast<std::ptrdiff_t>(n);
  const bool sideBySide = steps.to == 0 && steps.from == 0;
  if (steps.to == 0) steps.to = bytesOf(toSample);
  if (steps.from == 0) steps.from = bytesOf(fromSample);
  if (toSample == fromSample && sideBySide) {
    std::memcpy(to, from, n * static_cast<std::size_t>(bytesOf(toSample)));
    return;
  }
  visit(toSample, [&]<Sample kindTo>() {
    visit(fromSample, [&]<Sample kindFrom>() {
      for (std::ptrdiff_t i = 0; i < count; ++i) {
        if constexpr (kindTo == kindFrom) {
          std::memcpy(to + i * steps.to, from + i * steps.from, bytesOf(kindTo));
        } else {
          write<kindTo>(to + i * steps.to, read<kindFrom>(from + i * steps.from));
        }
      }
    });
  });
}

}  // namespace

void toWorking(std::byte* to, Depth depth, const std::byte* from, Sample sample, std::size_t n,
               Steps steps) {
  convert(to, nativeOf(depth), from, sample, n, steps);
}

void fromWorking(std::byte* to, Sample sample, const std::byte* from, Depth depth, std::size_t n,
                 Steps steps) {
  convert(to, sample, from, nativeOf(depth), n, steps);
}

float valueOf(const std::byte* at, Sample sample) {
  return visit(sample, [at]<Sample kind>() { return read<kind>(at); });
}

void writeCode(std::byte* at, Depth depth, float value) {
  visit(nativeOf(depth), [=]<Sample kind>() { write<kind>(at, value); });
}

}  // namespace orvanite
