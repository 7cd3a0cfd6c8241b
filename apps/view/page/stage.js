// SPDX-License-Identifier: BSD-3-Clause
//
// The picture on screen: pan, zoom, the wipe, and boxes drawn over it. Scale is in screen pixels
// (those of the device) for each pixel of the plate; at 1 the canvas holds the picture's own values.

import {bandsOf, plainLook} from './look.js';

const zoomStep = 1.25;
const largestScale = 64;

/** One of the two pictures: the whole frame, and a finer part of it where one was asked for. */
class Layers {
  constructor() { this.whole = null; this.part = null; }

  take(picture, width, height, look) {
    const [x, y, w, h] = picture.window;
    const all = x === 0 && y === 0 && w === width && h === height;
    const layer = all ? (this.whole = Layers.into(this.whole, picture, look)) : (this.part = Layers.into(this.part, picture, look));
    layer.picture = picture;
    if (!all || !this.part) return;
    this.part.picture.release?.();
    this.part = null;
  }

  look(look) {
    for (const layer of [this.whole, this.part]) {
      if (layer) Layers.paint(layer.canvas, layer.picture, look);
    }
  }

  static paint(canvas, picture, look) {
    const context = canvas.getContext('2d');
    bandsOf(picture, look).reduce((y, band) => { context.putImageData(band, 0, y); return y + band.height; }, 0);
  }

  static into(layer, picture, look) {
    const canvas = layer?.canvas ?? document.createElement('canvas');
    if (canvas.width !== picture.width || canvas.height !== picture.height) {
      canvas.width = picture.width;
      canvas.height = picture.height;
    }
    Layers.paint(canvas, picture, look);
    layer?.picture.release?.();
    return {canvas};
  }
}

/** Whether a wheel was turned by a notch; fingers on a trackpad send many small steps, whose old
 * measure is three times the new one. */
function isNotch(event) {
  if (event.deltaMode !== WheelEvent.DOM_DELTA_PIXEL) return true;
  return event.deltaX === 0 && Math.abs(event.deltaY) >= 50 && event.wheelDeltaY !== -3 * event.deltaY;
}

export class Stage extends EventTarget {
  constructor(element, canvas, line, description) {
    super();
    this.element = element;
    this.canvas = canvas;
    this.line = line;
    this.width = description.width;
    this.height = description.height;
    this.context = canvas.getContext('2d', {alpha: false});
    this.look = plainLook;
    this.layers = [new Layers(), new Layers()];
    this.scale = 1;
    this.x = 0;  // of the plate's corner, in screen pixels
    this.y = 0;
    this.fitted = true;
    this.covered = 0;  // rows at the top, in CSS pixels, that something lies over
    this.wipeAt = 0.5;
    this.wiped = false;
    this.flicker = null;  // the side of the wipe that is seen alone: left is true; null is both
    this.picking = false;
    new ResizeObserver(() => this.resize()).observe(element);
    this.listen();
    this.resize();
  }

  resize() {
    const ratio = devicePixelRatio;
    this.canvas.width = Math.max(1, Math.round(this.element.clientWidth * ratio));
    this.canvas.height = Math.max(1, Math.round(this.element.clientHeight * ratio));
    if (this.fitted) this.fit(); else this.moved();
  }

  fit() {
    this.fitted = true;
    const top = Math.min(Math.round(this.covered * devicePixelRatio), this.canvas.height >> 1);
    const high = this.canvas.height - top;
    this.scale = Math.min(this.canvas.width / this.width, high / this.height);
    this.x = Math.round((this.canvas.width - this.width * this.scale) / 2);
    this.y = Math.round(top + (high - this.height * this.scale) / 2);
    this.moved();
  }

  /** The whole picture keeps clear of these rows at the top, in CSS pixels. */
  keepClear(rows) {
    if (rows === this.covered) return;
    this.covered = rows;
    if (this.fitted) this.fit();
  }

  /** The pixel of the plate in the middle of what is seen; it may lie outside. */
  middle() {
    return [Math.floor((this.canvas.width / 2 - this.x) / this.scale), Math.floor((this.canvas.height / 2 - this.y) / this.scale)];
  }

  /** Changes the scale and keeps the point (x, y) of the screen where it is. */
  zoom(scale, x = this.canvas.width / 2, y = this.canvas.height / 2) {
    const least = Math.min(1, this.canvas.width / this.width, this.canvas.height / this.height) / 2;
    let next = Math.min(largestScale, Math.max(least, scale));
    if (Math.abs(next - 1) < 0.08) next = 1;
    if (next > 1.5) next = Math.round(next);
    this.fitted = false;
    this.x = Math.round(x - (x - this.x) * next / this.scale);
    this.y = Math.round(y - (y - this.y) * next / this.scale);
    this.scale = next;
    this.moved();
  }

  /** The scale a step up or down from here: above 1 a whole one, and never past 1 on the way down. */
  stepped(up) {
    const {scale} = this;
    const next = up ? scale * zoomStep : scale / zoomStep;
    if (up && scale >= 1) return Math.max(Math.floor(scale) + 1, next);
    return !up && scale > 1 ? Math.max(1, Math.min(Math.ceil(scale) - 1, next)) : next;
  }

  /** Zooms by one part of a gesture; what the scale's whole steps leave over counts for the next. */
  pinch(factor, x, y) {
    const from = this.pinched?.scale === this.scale ? this.pinched.wanted : this.scale;
    const wanted = Math.min(this.scale * 2, Math.max(this.scale / 2, from * factor));
    this.zoom(wanted, x, y);
    this.pinched = {wanted, scale: this.scale};
  }

  pan(dx, dy) {
    this.fitted = false;
    const keep = 40;
    this.x = Math.min(this.canvas.width - keep, Math.max(keep - this.width * this.scale, Math.round(this.x + dx)));
    this.y = Math.min(this.canvas.height - keep, Math.max(keep - this.height * this.scale, Math.round(this.y + dy)));
    this.moved();
  }

  /** The scale and the point of the plate in the corner of what is seen, as numbers in a text; null where all of it is. */
  get place() {
    return this.fitted ? null : [this.scale, -this.x / this.scale, -this.y / this.scale].map((number) => Number(number.toPrecision(9))).join(',');
  }

  set place(text) {
    const [scale, x, y] = text.split(',').map(Number);
    this.zoom(scale, 0, 0);
    this.x = -x * this.scale;
    this.y = -y * this.scale;
    this.pan(0, 0);
  }

  /** The part of the plate on screen, in its pixels, and the scale. */
  visible() {
    const left = Math.max(0, -this.x / this.scale);
    const top = Math.max(0, -this.y / this.scale);
    const right = Math.min(this.width, (this.canvas.width - this.x) / this.scale);
    const bottom = Math.min(this.height, (this.canvas.height - this.y) / this.scale);
    return {x: left, y: top, width: Math.max(1, right - left), height: Math.max(1, bottom - top), scale: this.scale};
  }

  /** The pixel of the plate under a pointer's event; it may lie outside. */
  pixelAt(event) {
    const [x, y] = this.screenAt(event);
    return [Math.floor((x - this.x) / this.scale), Math.floor((y - this.y) / this.scale)];
  }

  /** Whether an event is about the picture, not about what lies over it. */
  isPicture(event) { return event.target === this.canvas || event.target === this.element; }

  screenAt(event) {
    const box = this.canvas.getBoundingClientRect();
    return [(event.clientX - box.left) * devicePixelRatio, (event.clientY - box.top) * devicePixelRatio];
  }

  moved() {
    this.draw();
    this.dispatchEvent(new Event('moved'));
  }

  show(slot, picture) {
    this.layers[slot].take(picture, this.width, this.height, this.look);
    this.draw();
  }

  /** Changes how pictures are put on screen. */
  setLook(look) {
    this.look = {...this.look, ...look};
    for (const layers of this.layers) layers.look(this.look);
    this.draw();
  }

  setWipe(on) {
    this.wiped = on;
    this.line.hidden = !on;
    this.draw();
  }

  /** Whether a column of the plate lies left of the wipe's line. */
  isLeftOfWipe(x) { return this.flicker ?? (this.x + (x + 0.5) * this.scale < this.wipeAt * this.canvas.width); }

  /** Shows one side of the wipe alone, or both. */
  setFlicker(left) {
    this.flicker = left;
    this.draw();
  }

  moveWipe(part) {
    this.wipeAt = Math.min(1, Math.max(0, part));
    this.draw();
  }

  draw() {
    const {context, canvas} = this;
    context.fillStyle = '#1b1b1b';
    context.fillRect(0, 0, canvas.width, canvas.height);
    this.drawLayers(this.layers[0]);
    if (this.wiped) {
      const part = this.flicker === null ? this.wipeAt : Number(this.flicker);
      const edge = Math.round(part * canvas.width);
      context.save();
      context.beginPath();
      context.rect(0, 0, edge, canvas.height);
      context.clip();
      this.drawLayers(this.layers[1]);
      context.restore();
      this.line.style.left = `${100 * part}%`;
      this.line.setAttribute('aria-valuenow', Math.round(100 * part));
    }
    // Where the picture lies on the canvas, for whoever looks at the pixels.
    Object.assign(canvas.dataset, {x: this.x, y: this.y, scale: this.scale});
  }

  drawLayers(layers) {
    for (const layer of [layers.whole, layers.part]) {
      if (!layer) continue;
      const {window: [x, y], width, height, job} = layer.picture;
      const size = job.divisor * this.scale;
      this.context.imageSmoothingEnabled = !Number.isInteger(size) || job.divisor > 1;
      this.context.imageSmoothingQuality = 'medium';
      this.context.drawImage(layer.canvas, this.x + x * this.scale, this.y + y * this.scale, width * size, height * size);
    }
  }

  listen() {
    const {element} = this;
    element.addEventListener('wheel', (event) => {
      event.preventDefault();
      const [x, y] = this.screenAt(event);
      if (isNotch(event)) this.zoom(this.stepped(event.deltaY < 0), x, y);
      else if (event.ctrlKey) this.pinch(Math.exp(-event.deltaY / 100), x, y);  // two fingers apart
      else this.pan(-event.deltaX * devicePixelRatio, -event.deltaY * devicePixelRatio);
    }, {passive: false});

    const held = new Map();  // where each pointer was last
    let middle = null;       // of two, as far as the picture has followed it
    const spread = () => {
      const [a, b] = [...held.values()];
      return {x: (a[0] + b[0]) / 2, y: (a[1] + b[1]) / 2, apart: Math.hypot(a[0] - b[0], a[1] - b[1])};
    };
    element.addEventListener('pointerdown', (event) => {
      if (event.button > 1 || !this.isPicture(event) || (this.picking && event.button === 0)) return;
      held.set(event.pointerId, this.screenAt(event));
      if (held.size === 2) middle = spread();
      element.setPointerCapture(event.pointerId);
      element.classList.add('moving');
    });
    element.addEventListener('pointermove', (event) => {
      const last = held.get(event.pointerId);
      if (!last) return;
      const before = held.size === 2 && spread();
      const [x, y] = this.screenAt(event);
      held.set(event.pointerId, [x, y]);
      if (!before) {
        this.pan(x - last[0], y - last[1]);
        return;
      }
      const after = spread();
      // In whole pixels: half of one each time would add up to a drift.
      const [dx, dy] = [Math.trunc(after.x - middle.x), Math.trunc(after.y - middle.y)];
      this.pan(dx, dy);
      middle = {x: middle.x + dx, y: middle.y + dy};
      if (before.apart > 0) this.pinch(after.apart / before.apart, after.x, after.y);
    });
    for (const end of ['pointerup', 'pointercancel']) {
      element.addEventListener(end, (event) => {
        held.delete(event.pointerId);
        element.classList.toggle('moving', held.size > 0);
      });
    }
    element.addEventListener('dblclick', (event) => { if (!this.picking && this.isPicture(event)) (this.fitted ? this.zoom(1) : this.fit()); });
    element.addEventListener('keydown', (event) => {
      if (event.target !== element) return;
      const step = event.shiftKey ? 200 : 40;
      const moves = {ArrowLeft: [step, 0], ArrowRight: [-step, 0], ArrowUp: [0, step], ArrowDown: [0, -step]};
      if (moves[event.key]) this.pan(...moves[event.key]);
      else if (/^[-+=]$/.test(event.key)) this.zoom(this.stepped(event.key !== '-'));
      else return;
      event.preventDefault();
    });

    this.line.addEventListener('pointerdown', (event) => this.line.setPointerCapture(event.pointerId));
    this.line.addEventListener('pointermove', (event) => {
      if (event.buttons & 1) this.moveWipe(this.screenAt(event)[0] / this.canvas.width);
    });
    this.line.addEventListener('keydown', (event) => {
      const step = {ArrowLeft: -0.02, ArrowRight: 0.02}[event.key];
      if (step) { this.moveWipe(this.wipeAt + step); event.preventDefault(); }
    });
  }
}
