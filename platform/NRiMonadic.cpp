// SPDX-License-Identifier: BSD-3-Clause
//
// Inputs, default wiring and the buffers of image nodes.
#include "platform/NRiMonadic.h"

#include <algorithm>
#include <cassert>

NRiMonadic::NRiMonadic()
    : outputDepth_(out_->bytes()),
      inputDepth_(addPlug(NRiName("inputBytes"), nriInt, NRiPlug::kOut, nullptr, 0)) {
  for (int i = 0; i < mostInputs; ++i) buffers_[i] = &storage_[i];
  inputDepth_->addDependency(outputDepth_);
  out_->image()->addDependency(outputDepth_);
}

NRiMonadic::NRiMonadic(const NRiName& input) : NRiMonadic() { addInput(input); }

NRiMonadic::~NRiMonadic() = default;

NRiIPlug* NRiMonadic::addInput(const NRiName& name) {
  assert(count_ < mostInputs);
  auto* const in = static_cast<NRiIPlug*>(addPlug(name, nriImage, NRiPlug::kIn, nullptr, 0));
  if (count_ == 0) {
    out_->width()->connect(in->width());
    out_->height()->connect(in->height());
    out_->bPixel()->connect(in->bPixel());
  }
  out_->bytes()->addDependency(in->bytes());
  out_->channels()->addDependency(in->channels());
  out_->dod()->addDependency(in->dod());
  out_->image()->addDependency(in->image());
  // A request follows the node's decisions, which its image evaluation makes.
  NRiPlug::addDependencies(in->requested(), out_->requested(), out_->image(), in->channels(),
                           nullptr);
  inputs_[count_++] = in;
  return in;
}

int NRiMonadic::eval(NRiPlug* plug) {
  if (plug->isUpToDate()) return 0;
  const auto over = [this](auto part, auto join) {
    int value = 0;
    for (int i = 0; i < count_; ++i) value = join(value, (inputs_[i]->*part)()->asInt());
    return value;
  };
  if (plug == out_->bytes()) {
    const int deepest = over(&NRiIPlug::bytes, [](int a, int b) { return std::max(a, b); });
    plug->set(deepest > 0 ? deepest : 1);
  } else if (plug == inputDepth_) {
    plug->set(outputDepth_->asInt());
  } else if (plug == out_->channels()) {
    plug->set(over(&NRiIPlug::channels, [](int a, int b) { return a | b; }));
  } else if (plug == out_->dod()) {
    domain_ = {};
    for (int i = 0; i < count_; ++i) domain_ = domain_.unite(inputs_[i]->getDod());
    plug->set(static_cast<void*>(&domain_));
  }
  for (int i = 0; i < count_ && !plug->isUpToDate(); ++i) {
    if (plug != inputs_[i]->requested()) continue;
    plug->set(inputs_[i]->channels()->asInt() & out_->requested()->asInt());
  }
  return NRiFx::eval(plug);
}

void NRiMonadic::prepare(const NRiRect& region) {
  const int depth = inputDepth_->asInt();
  for (int i = 0; i < count_; ++i) {
    NRiIBuf& buffer = *buffers_[i];
    buffer.clear();
    NRiIPlug* const in = inputs_[i];
    in->setRoi(region);
    const int wanted = in->requested()->asInt();
    if (!in->isConnected() || (wanted == 0 && i > 0)) continue;
    // The workers read these two.
    NRiBPixel background;
    in->getBPixel(background);
    in->getDod();
    auto* const from = dynamic_cast<NRiFx*>(in->imageSource()->owner());
    if (wanted != 0 && from) {
      from->render(region, buffer);
      if (buffer.data && buffer.depth != depth) buffer = buffer.converted(depth);
    }
    if (i == 0) {
      if (!(buffer.data && buffer.channels == 15 && buffer.rect() == region)) {
        buffer = buffer.interleaved(region, depth, background);
      }
    } else if (!buffer.data && !region.empty()) {
      // Connected, but with no pixel in the region: one beyond its corner says so, and leaves all
      // of the region to the background pixel.
      NRiIBuf none;
      buffer =
          none.interleaved({region.x1 - 1, region.y1 - 1, region.x1, region.y1}, depth, background);
    }
  }
}
