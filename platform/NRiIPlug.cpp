// SPDX-License-Identifier: BSD-3-Clause
//
// Image plugs and their parts.
#include "platform/NRiIPlug.h"

std::unique_ptr<NRiPlug> NRiIPlug::part(const char* name, NRiId type) {
  return std::make_unique<NRiPlug>(owner(), NRiName(name), type, io(), this);
}

NRiIPlug::NRiIPlug(NRiNode* owner, const NRiName& name, IO io)
    : NRiPlug(owner, name, nriImage, io, nullptr),
      width_(part("width", nriInt)),
      height_(part("height", nriInt)),
      bytes_(part("bytes", nriInt)),
      channels_(part("channels", nriInt)),
      requested_(part("requested", nriInt)),
      bPixel_(part("bPixel", nriPointer)),
      dod_(part("dod", nriPointer)),
      image_(part("image", nriString)) {}

NRiIPlug::~NRiIPlug() = default;

void NRiIPlug::connect(NRiPlug* source) {
  auto* const from = dynamic_cast<NRiIPlug*>(source);
  if (source && !from) throw NRiError("'" + source->fullName() + "' is no image");
  if (NRiIPlug* const old = imageSource()) old->requested()->removeDependency(requested());
  NRiPlug::connect(source);
  for (auto member :
       {&NRiIPlug::width_, &NRiIPlug::height_, &NRiIPlug::bytes_, &NRiIPlug::channels_,
        &NRiIPlug::bPixel_, &NRiIPlug::dod_, &NRiIPlug::image_}) {
    (this->*member)->connect(from ? (from->*member).get() : nullptr);
  }
  if (from) from->requested()->addDependency(requested());
}

std::vector<NRiIPlug*> NRiIPlug::consumers() const {
  std::vector<NRiIPlug*> found;
  for (NRiPlug* const dependent : dependents()) {
    if (dependent->type() == nriImage && dependent->source() == this) {
      found.push_back(static_cast<NRiIPlug*>(dependent));
    }
  }
  return found;
}

void NRiIPlug::setRequest(int mask) {
  if (mask == request_) return;
  request_ = mask;
  requested_->invalidate();
}

NRiRect NRiIPlug::getDod() {
  const void* const rect = dod_->asVoid();
  return rect ? *static_cast<const NRiRect*>(rect) : NRiRect{};
}

void NRiIPlug::getBPixel(NRiBPixel& pixel) {
  const void* const held = bPixel_->asVoid();
  pixel = held ? *static_cast<const NRiBPixel*>(held) : NRiBPixel{};
}
