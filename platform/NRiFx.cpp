// SPDX-License-Identifier: BSD-3-Clause
//
// The frame of every rendering: evaluate first, then pixels.
#include "platform/NRiFx.h"

#include <string>

NRiFx::NRiFx()
    : out_(static_cast<NRiIPlug*>(addPlug(NRiName("out"), nriImage, NRiPlug::kOut, nullptr, 0))) {}

NRiFx::~NRiFx() = default;

int NRiFx::eval(NRiPlug* plug) {
  if (plug->isUpToDate()) return 0;
  if (plug == out_->requested()) {
    int mask = out_->request();
    for (const NRiIPlug* const reader : out_->consumers()) mask |= reader->requested()->asInt();
    plug->set(mask);
  } else if (plug == out_->image()) {
    std::string text(getClassName().view());
    const char* separator = "(";
    for (int i = 0; i < getNbInputs(); ++i, separator = ",") {
      text += separator + std::string(getInput(i)->image()->asString().view());
    }
    for (NRiPlug* const parameter : getPublicPlugs()) {
      if (parameter->hasFlag(4)) continue;
      text += separator + std::string(parameter->asString().view());
      separator = ",";
    }
    plug->set(NRiName::compress(NRiName(std::string_view(text + ")"))));
  } else if (plug == out_->bPixel()) {
    plug->set(static_cast<void*>(&background_));
  } else if (plug == out_->dod()) {
    domain_ = format();
    plug->set(static_cast<void*>(&domain_));
  }
  return 0;
}

NRiRect NRiFx::format() { return {0, 0, out_->width()->asInt(), out_->height()->asInt()}; }

void NRiFx::render(const NRiRect& region, NRiIBuf& buffer) {
  // Everything that pixels depend on is worked out here, on this thread: the workers only read.
  const NRiName identity = out_->image()->asString();
  const int requested = out_->requested()->asInt();
  for (NRiPlug* const part : {out_->bytes(), out_->channels(), out_->bPixel(), out_->dod()}) {
    part->asVoid();
  }
  if (kept_.buffer.data && kept_.identity == identity && kept_.region == region &&
      kept_.requested == requested) {
    buffer = kept_.buffer.converted(kept_.buffer.depth);
    return;
  }
  kept_ = {};
  out_->setRoi(region);
  prepare(region);
  fillOutputBuffer();
  buffer = std::move(outputBuffer());
  if (keepsOutput_ && buffer.data && out_->consumers().size() > 1) {
    kept_ = {identity, region, requested, buffer.converted(buffer.depth)};
  }
}

NRiIBuf NRiFx::renderWhole(const NRiRect& region) {
  NRiIBuf part;
  render(region, part);
  NRiBPixel background;
  out_->getBPixel(background);
  return part.interleaved(region, out_->bytes()->asInt(), background);
}
