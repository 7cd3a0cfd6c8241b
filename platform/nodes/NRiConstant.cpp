// SPDX-License-Identifier: BSD-3-Clause
//
// An image of one colour.
#include "platform/nodes/NRiConstant.h"

#include <string>

namespace {
constexpr int largestSide = 65536;
}

NRiConstant::NRiConstant() {
  const auto plug = [this](const char* name, NRiId type) {
    return addPlug(NRiName(name), type, NRiPlug::kIn, nullptr, 0);
  };
  width_ = plug("width", nriInt);
  height_ = plug("height", nriInt);
  bytes_ = plug("bytes", nriInt);
  red_ = plug("red", nriFloat);
  green_ = plug("green", nriFloat);
  blue_ = plug("blue", nriFloat);
  alpha_ = plug("alpha", nriFloat);
  width_->set(720);
  height_->set(576);
  bytes_->set(1);
  alpha_->set(1.0f);
  NRiPlug::addDependencies(out_->width(), width_, nullptr);
  NRiPlug::addDependencies(out_->height(), height_, nullptr);
  NRiPlug::addDependencies(out_->bytes(), bytes_, nullptr);
  NRiPlug::addDependencies(out_->dod(), width_, height_, nullptr);
  NRiPlug::addDependencies(out_->bPixel(), red_, green_, blue_, alpha_, bytes_, nullptr);
  NRiPlug::addDependencies(out_->image(), width_, height_, bytes_, red_, green_, blue_, alpha_,
                           nullptr);
}

const NRiName& NRiConstant::getClassName() const {
  static const NRiName name("Constant");
  return name;
}

int NRiConstant::eval(NRiPlug* plug) {
  const auto side = [&](NRiPlug* given) {
    const int value = given->asInt();
    if (value < 1 || value > largestSide) {
      throw NRiError("'" + given->fullName() + "' is " + std::to_string(value) +
                     ": expected 1 to 65536");
    }
    plug->set(value);
  };
  if (plug == out_->width()) side(width_);
  if (plug == out_->height()) side(height_);
  if (plug == out_->channels()) plug->set(15);
  if (plug == out_->bytes()) {
    const int bytes = bytes_->asInt();
    if (bytes != 1 && bytes != 2 && bytes != 4) {
      throw NRiError("'" + bytes_->fullName() + "' is " + std::to_string(bytes) +
                     ": expected 1, 2 or 4");
    }
    plug->set(bytes);
  }
  if (plug == out_->bPixel()) {
    background_ = {alpha_->asFloat(), blue_->asFloat(), green_->asFloat(), red_->asFloat(), 0};
    background_.quantize(out_->bytes()->asInt());
  }
  return NRiFx::eval(plug);
}

void NRiConstant::fillOutputBuffer() {
  const NRiRect region = out_->getRoi().intersect(format());
  outputBuffer() = NRiIBuf().interleaved(region, out_->bytes()->asInt(), background_);
}
