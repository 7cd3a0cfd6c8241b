// SPDX-License-Identifier: BSD-3-Clause
//
// The picture on screen: pan, zoom, the wipe, and boxes drawn over it. Scale is in screen pixels
// (those of the device) for each pixel of the plate; at 1 the canvas holds the picture's own values.

const zoomStep = 1.25;
const largestScale = 64;

/** One of the two pictures: the whole frame, and a finer part of it where one was asked for. */
class Layers {
  constructor() { this.whole = null; this.part = null; }

  take(picture, width, height) {
    const [x, y, w, h] = picture.window;
    const all = x === 0 && y === 0 && w === width && h === height;
    const layer = all ? (this.whole = Layers.into(this.whole, picture)) : (this.part = Layers.into(this.part, picture));
    layer.picture = picture;
    if (all) this.part = null;
  }

  static into(layer, picture) {
    const canvas = layer?.canvas ?? document.createElement('canvas');
    if (canvas.width !== picture.width || canvas.height !== picture.height) {
      canvas.width = picture.width;
      canvas.height = picture.height;
    }
    canvas.getContext('2d').putImageData(picture.pixels, 0, 0);
    return {canvas};
  }
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
    this.layers = [new Layers(), new Layers()];
    this.scale = 1;
    this.x = 0;  // of the plate's corner, in screen pixels
    this.y = 0;
    this.fitted = true;
    this.wipeAt = 0.5;
    this.wiped = false;
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
    const room = Math.min(this.canvas.width / this.width, this.canvas.height / this.height);
    this.scale = room;
    this.x = Math.round((this.canvas.width - this.width * this.scale) / 2);
    this.y = Math.round((this.canvas.height - this.height * this.scale) / 2);
    this.moved();
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

  pan(dx, dy) {
    this.fitted = false;
    const keep = 40;
    this.x = Math.min(this.canvas.width - keep, Math.max(keep - this.width * this.scale, Math.round(this.x + dx)));
    this.y = Math.min(this.canvas.height - keep, Math.max(keep - this.height * this.scale, Math.round(this.y + dy)));
    this.moved();
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

  screenAt(event) {
    const box = this.canvas.getBoundingClientRect();
    return [(event.clientX - box.left) * devicePixelRatio, (event.clientY - box.top) * devicePixelRatio];
  }

  moved() {
    this.draw();
    this.dispatchEvent(new Event('moved'));
  }

  show(slot, picture) {
    this.layers[slot].take(picture, this.width, this.height);
    this.draw();
  }

  clear(slot) { this.layers[slot] = new Layers(); }

  setWipe(on) {
    this.wiped = on;
    this.line.hidden = !on;
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
      const edge = Math.round(this.wipeAt * canvas.width);
      context.save();
      context.beginPath();
      context.rect(0, 0, edge, canvas.height);
      context.clip();
      this.drawLayers(this.layers[1]);
      context.restore();
      this.line.style.left = `${100 * this.wipeAt}%`;
      this.line.setAttribute('aria-valuenow', Math.round(100 * this.wipeAt));
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
      this.zoom(this.stepped(event.deltaY < 0), x, y);
    }, {passive: false});

    let last = null;
    element.addEventListener('pointerdown', (event) => {
      if (event.button > 1 || event.target === this.line || (this.picking && event.button === 0)) return;
      last = this.screenAt(event);
      element.setPointerCapture(event.pointerId);
      element.classList.add('moving');
    });
    element.addEventListener('pointermove', (event) => {
      if (!last) return;
      const [x, y] = this.screenAt(event);
      this.pan(x - last[0], y - last[1]);
      last = [x, y];
    });
    for (const end of ['pointerup', 'pointercancel']) {
      element.addEventListener(end, () => { last = null; element.classList.remove('moving'); });
    }
    element.addEventListener('dblclick', () => { if (!this.picking) (this.fitted ? this.zoom(1) : this.fit()); });
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
