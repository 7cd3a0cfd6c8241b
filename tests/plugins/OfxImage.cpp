// SPDX-License-Identifier: BSD-3-Clause
//
// The test host's property sets and pictures; see OfxHost.h.
#include <Imath/half.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/plugins/OfxHost.h"

namespace ofxTest {

namespace {

constexpr std::size_t guard = 64;
constexpr std::byte guardByte{0xA7};

}  // namespace

const char* depthName(int depth, bool half) {
  if (half) return "OfxBitDepthHalf";
  return depth == 1 ? "OfxBitDepthByte" : depth == 2 ? "OfxBitDepthShort" : "OfxBitDepthFloat";
}

const char* componentsName(int channels) {
  return channels == 4   ? "OfxImageComponentRGBA"
         : channels == 3 ? "OfxImageComponentRGB"
                         : "OfxImageComponentAlpha";
}

Props& Props::setInts(const std::string& name, std::initializer_list<int> ints) {
  std::size_t i = 0;
  for (const int value : ints) set(name, value, i++);
  return *this;
}

Props& Props::setDoubles(const std::string& name, std::initializer_list<double> doubles) {
  std::size_t i = 0;
  for (const double value : doubles) set(name, value, i++);
  return *this;
}

namespace {
template <class T>
T valueIn(const Props& props, const std::string& name, std::size_t index) {
  const auto found = props.values.find(name);
  if (found == props.values.end() || found->second.size() <= index ||
      !std::holds_alternative<T>(found->second[index])) {
    ADD_FAILURE() << "no such property: " << name << "[" << index << "]";
    return T{};
  }
  return std::get<T>(found->second[index]);
}
}  // namespace

int Props::integer(const std::string& name, std::size_t index) const {
  return valueIn<int>(*this, name, index);
}
double Props::real(const std::string& name, std::size_t index) const {
  return valueIn<double>(*this, name, index);
}
std::string Props::text(const std::string& name, std::size_t index) const {
  return valueIn<std::string>(*this, name, index);
}
std::size_t Props::count(const std::string& name) const {
  const auto found = values.find(name);
  return found == values.end() ? 0 : found->second.size();
}

HostImage::HostImage(const Layout& layout) : layout_(layout) {
  const auto width = static_cast<std::size_t>(layout.bounds.x2 - layout.bounds.x1);
  const auto height = static_cast<std::size_t>(layout.bounds.y2 - layout.bounds.y1);
  rowBytes_ = width * static_cast<std::size_t>(layout.channels * layout.depth) +
              static_cast<std::size_t>(layout.padBytes);
  bytes_.assign(guard + static_cast<std::size_t>(layout.shiftBytes) + rowBytes_ * height + guard,
                guardByte);
  const int sign = layout.upsideDown ? -1 : 1;
  props.set("OfxImageEffectPropPixelDepth", std::string(depthName(layout.depth, layout.half)))
      .set("OfxImageEffectPropComponents", std::string(componentsName(layout.channels)))
      .set("OfxImagePropField", std::string("OfxFieldNone"))
      .set("OfxImagePropRowBytes", sign * static_cast<int>(rowBytes_))
      .setInts("OfxImagePropBounds",
               {layout.bounds.x1, layout.bounds.y1, layout.bounds.x2, layout.bounds.y2})
      .setDoubles("OfxImageEffectPropRenderScale", {1.0, 1.0});
  const bool empty = width == 0 || height == 0;
  props.set<void*>("OfxImagePropData", empty ? nullptr : pixel(layout.bounds.x1, layout.bounds.y1));
}

std::byte* HostImage::pixel(int x, int y) {
  const int row = layout_.upsideDown ? layout_.bounds.y2 - 1 - y : y - layout_.bounds.y1;
  return bytes_.data() + guard + static_cast<std::size_t>(layout_.shiftBytes) +
         static_cast<std::size_t>(row) * rowBytes_ +
         static_cast<std::size_t>((x - layout_.bounds.x1) * layout_.channels * layout_.depth);
}

double HostImage::code(int x, int y, int channel) {
  const std::byte* at = pixel(x, y) + channel * layout_.depth;
  if (layout_.depth == 1) return static_cast<double>(static_cast<unsigned char>(*at));
  if (layout_.depth == 2) {
    std::uint16_t word;
    std::memcpy(&word, at, sizeof word);
    if (layout_.half) {
      return static_cast<double>(static_cast<float>(Imath::half(Imath::half::FromBits, word)));
    }
    return word;
  }
  float real;
  std::memcpy(&real, at, sizeof real);
  return static_cast<double>(real);
}

void HostImage::setCode(int x, int y, int channel, double value) {
  std::byte* at = pixel(x, y) + channel * layout_.depth;
  const auto put = [&](auto code) { std::memcpy(at, &code, sizeof code); };
  if (layout_.depth == 1) return put(static_cast<std::uint8_t>(value));
  if (layout_.depth == 4) return put(static_cast<float>(value));
  if (layout_.half) return put(Imath::half(static_cast<float>(value)).bits());
  put(static_cast<std::uint16_t>(value));
}

bool HostImage::guardsHold(const ofx::RectI& window, const HostImage& before) const {
  HostImage now = *this;
  HostImage then = before;
  // With the window's pixels made equal, every other byte must be.
  for (int y = window.y1; y < window.y2; ++y) {
    std::memcpy(
        then.pixel(window.x1, y), now.pixel(window.x1, y),
        static_cast<std::size_t>((window.x2 - window.x1) * layout_.channels * layout_.depth));
  }
  return now.bytes_ == then.bytes_;
}

}  // namespace ofxTest
