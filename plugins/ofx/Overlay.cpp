// SPDX-License-Identifier: BSD-3-Clause
//
// The box over the picture; see Overlay.h. What is being dragged belongs to one overlay, of which a
// host may have several for one effect.
#include "plugins/ofx/Overlay.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string_view>

#include "plugins/ofx/Host.h"
#include "plugins/ofx/Instance.h"

namespace orvanite::ofxPlugin {

namespace {

constexpr double reachPixels = 8;  // of the screen, around a corner
constexpr double leastPixels = 4;  // of the screen: the smallest box that can be dragged to

// What the pen holds: a corner, or the whole box.
struct Drag {
  bool active = false;
  bool left = false, right = false, bottom = false, top = false;  // the sides that move
  ofx::RectD start{};
  ofx::PointD from{};
};

Properties propertiesOfInteract(ofx::Interact interact) {
  ofx::PropertySet set = nullptr;
  if (!host().interact || host().interact->getPropertySet(interact, &set) != ofx::ok) set = nullptr;
  return Properties(set);
}

Drag* dragOf(ofx::Interact interact) {
  return static_cast<Drag*>(propertiesOfInteract(interact).pointer(ofx::prop::instanceData));
}

ofx::PointD pointIn(Properties in, const char* name, double fallback) {
  return {in.real(name, fallback, 0), in.real(name, fallback, 1)};
}

ofx::Status create(ofx::Interact interact) {
  const Properties properties = propertiesOfInteract(interact);
  auto drag = std::make_unique<Drag>();
  if (!properties.setPointer(ofx::prop::instanceData, drag.get())) return ofx::failed;
  static_cast<void>(drag.release());  // the overlay's from now on
  int at = 0;
  for (const char* name : {boxParam, boxPositionParam, boxSizeParam}) {
    properties.set(ofx::prop::redrawnBy, name, at++);
  }
  return ofx::ok;
}

ofx::Status destroy(ofx::Interact interact) {
  delete dragOf(interact);
  propertiesOfInteract(interact).setPointer(ofx::prop::instanceData, nullptr);
  return ofx::ok;
}

ofx::Status draw(const Instance& instance, Properties in) {
  const auto context = static_cast<ofx::DrawContext>(in.pointer(ofx::prop::drawContext));
  const auto box = instance.box(in.real(ofx::prop::time, 0));
  if (!host().draw || !context || !box) return ofx::replyDefault;
  const ofx::DrawSuite& suite = *host().draw;
  ofx::DrawSuite::Colour colour{1, 1, 1, 1};
  suite.getColour(context, ofx::DrawSuite::active, &colour);
  suite.setColour(context, &colour);
  suite.setLineWidth(context, 1);
  const ofx::PointD corners[] = {
      {box->x1, box->y1}, {box->x2, box->y1}, {box->x2, box->y2}, {box->x1, box->y2}};
  suite.draw(context, ofx::DrawSuite::lineLoop, corners, 4);
  const ofx::PointD scale = pointIn(in, ofx::prop::pixelScale, 1);
  const double dx = scale.x * reachPixels / 2, dy = scale.y * reachPixels / 2;
  for (const ofx::PointD& corner : corners) {
    const ofx::PointD knob[] = {{corner.x - dx, corner.y - dy}, {corner.x + dx, corner.y + dy}};
    suite.draw(context, ofx::DrawSuite::rectangle, knob, 2);
  }
  return ofx::ok;
}

ofx::Status penDown(const Instance& instance, Drag& drag, Properties in) {
  const auto box = instance.box(in.real(ofx::prop::time, 0));
  if (!box) return ofx::replyDefault;
  const ofx::PointD pen = pointIn(in, ofx::prop::penPosition, 0);
  const ofx::PointD scale = pointIn(in, ofx::prop::pixelScale, 1);
  const auto near = [](double a, double b, double reach) { return std::fabs(a - b) <= reach; };
  Drag next;
  next.start = *box;
  next.from = pen;
  next.left = near(pen.x, box->x1, scale.x * reachPixels);
  next.right = !next.left && near(pen.x, box->x2, scale.x * reachPixels);
  next.bottom = near(pen.y, box->y1, scale.y * reachPixels);
  next.top = !next.bottom && near(pen.y, box->y2, scale.y * reachPixels);
  const bool atCorner = (next.left || next.right) && (next.bottom || next.top);
  const bool inside = pen.x >= box->x1 && pen.x <= box->x2 && pen.y >= box->y1 && pen.y <= box->y2;
  if (!atCorner) next.left = next.right = next.bottom = next.top = true;
  if (!atCorner && !inside) return ofx::replyDefault;
  next.active = true;
  drag = next;
  return ofx::ok;
}

ofx::Status penMotion(const Instance& instance, const Drag& drag, Properties in) {
  if (!drag.active) return ofx::replyDefault;
  const ofx::PointD pen = pointIn(in, ofx::prop::penPosition, 0);
  const ofx::PointD scale = pointIn(in, ofx::prop::pixelScale, 1);
  const double dx = pen.x - drag.from.x, dy = pen.y - drag.from.y;
  ofx::RectD box = drag.start;
  if (drag.left) box.x1 += dx;
  if (drag.right) box.x2 += dx;
  if (drag.bottom) box.y1 += dy;
  if (drag.top) box.y2 += dy;
  // A corner does not pass the opposite one.
  const double width = scale.x * leastPixels, height = scale.y * leastPixels;
  if (!drag.right) box.x1 = std::min(box.x1, box.x2 - width);
  if (!drag.left) box.x2 = std::max(box.x2, box.x1 + width);
  if (!drag.top) box.y1 = std::min(box.y1, box.y2 - height);
  if (!drag.bottom) box.y2 = std::max(box.y2, box.y1 + height);
  instance.moveBox(box);
  return ofx::ok;
}

ofx::Status perform(std::string_view action, ofx::Interact interact, Properties in) {
  if (action == ofx::action::describe) return ofx::ok;
  if (action == ofx::action::createInstance) return create(interact);
  if (action == ofx::action::destroyInstance) return destroy(interact);
  Instance* const instance =
      instanceOf(static_cast<ofx::Effect>(in.pointer(ofx::prop::effectInstance)));
  Drag* const drag = dragOf(interact);
  if (!instance || !drag) return ofx::replyDefault;
  if (action == ofx::action::draw) return draw(*instance, in);
  if (action == ofx::action::penDown) return penDown(*instance, *drag, in);
  if (action == ofx::action::penMotion) return penMotion(*instance, *drag, in);
  if (action == ofx::action::penUp && drag->active) {
    drag->active = false;
    return ofx::ok;
  }
  return ofx::replyDefault;
}

}  // namespace

ofx::Status overlayEntry(const char* action, const void* handle, ofx::PropertySet in,
                         ofx::PropertySet) {
  if (!action || !host().ready()) return ofx::failed;
  try {
    return perform(action, static_cast<ofx::Interact>(const_cast<void*>(handle)), Properties(in));
  } catch (...) {  // memory
    return ofx::failed;
  }
}

}  // namespace orvanite::ofxPlugin
