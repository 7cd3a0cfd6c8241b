// SPDX-License-Identifier: BSD-3-Clause
//
// The flat interface: each function is the member of the same name. See engine/orvanite.h.
#include <new>

#include "engine/QMXOrvaniteTable.h"

extern "C" {

QMXOrvaniteTable* orvanite_new() { return new (std::nothrow) QMXOrvaniteTable; }
void orvanite_delete(QMXOrvaniteTable* engine) { delete engine; }

void orvanite_setColourspace(QMXOrvaniteTable* e, int code) { e->setColourspace(code); }
void orvanite_setScreen(QMXOrvaniteTable* e, float r, float g, float b) { e->setScreen(r, g, b); }
void orvanite_setNeutral(QMXOrvaniteTable* e, float r, float g, float b) { e->setNeutral(r, g, b); }
void orvanite_setReplace(QMXOrvaniteTable* e, float r, float g, float b) { e->setReplace(r, g, b); }
void orvanite_setBackground(QMXOrvaniteTable* e, float r, float g, float b) {
  e->setBackground(r, g, b);
}
void orvanite_setBalance(QMXOrvaniteTable* e, int band, float value) { e->setBalance(band, value); }
void orvanite_setGain(QMXOrvaniteTable* e, int band, float value) { e->setGain(band, value); }
void orvanite_setMp(QMXOrvaniteTable* e, float r, float g, float b) { e->setMp(r, g, b); }
void orvanite_setScreenRange(QMXOrvaniteTable* e, float value) { e->setScreenRange(value); }
void orvanite_setExposure(QMXOrvaniteTable* e, float r, float g, float b, int set) {
  e->setExposure(r, g, b, set);
}
void orvanite_setGamma(QMXOrvaniteTable* e, float r, float g, float b, int set) {
  e->setGamma(r, g, b, set);
}
void orvanite_setOffset(QMXOrvaniteTable* e, float r, float g, float b, int set) {
  e->setOffset(r, g, b, set);
}
void orvanite_setSaturation(QMXOrvaniteTable* e, float value, int set) {
  e->setSaturation(value, set);
}
void orvanite_setView(QMXOrvaniteTable* e, int code) { e->setView(code); }
int orvanite_getView(QMXOrvaniteTable* e) { return e->view; }
void orvanite_setFgMax(QMXOrvaniteTable* e, int max) { e->setFgMax(max); }
void orvanite_setBgMax(QMXOrvaniteTable* e, int max) { e->setBgMax(max); }
void orvanite_setGMatteMax(QMXOrvaniteTable* e, int max) { e->setGMatteMax(max); }
void orvanite_setHMatteMax(QMXOrvaniteTable* e, int max) { e->setHMatteMax(max); }
void orvanite_setDstMax(QMXOrvaniteTable* e, int max) { e->setDstMax(max); }
void orvanite_setRefMax(QMXOrvaniteTable* e, int max) { e->setRefMax(max); }
void orvanite_useHold(QMXOrvaniteTable* e, int on) { e->useHold(on); }
void orvanite_useGarbage(QMXOrvaniteTable* e, int on) { e->useGarbage(on); }
void orvanite_useRef(QMXOrvaniteTable* e, int on) { e->useRef(on); }
int orvanite_makeLuts(QMXOrvaniteTable* e) { return e->makeLuts(); }
int orvanite_render(QMXOrvaniteTable* e, int depth, int width, int height, Otile* tile) {
  return e->render(depth, width, height, tile);
}
void orvanite_installCallback(QMXOrvaniteTable* e, void (*fn)(void*), void* data) {
  e->installCallback(fn, data);
}

}  // extern "C"
