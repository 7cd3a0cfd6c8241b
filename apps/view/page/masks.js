// SPDX-License-Identifier: BSD-3-Clause
//
// Masks on the picture: drawn, chosen, moved, softened, keyed at frames. What is drawn lies over the
// canvas as outlines with handles, each of which has a name and takes the arrows as it takes a
// pointer. A gesture is one step to undo.
import {changed, cornerAdded, cornerRemoved, keyAt, keyToggled, keyedAt, moved, nameOf, shapesOf, simplified, stretched, textOf, turnOf, turnedBy, turnedFromTo} from './shapes.js';

const space = 'http://www.w3.org/2000/svg';
const stemLength = 26;   // from an ellipse to the handle that turns it, in CSS pixels
const reach = 9;         // of a handle that a pointer gets hold of, in CSS pixels
const closeEnough = 10;  // of the first corner, in CSS pixels, to close a polygon
// What a request may hold, less its settings.
const mostText = 48000;
const hints = {
  polygon: 'Click corner after corner; click the first one, or press Enter, to close. Backspace takes one back, Esc ends.',
  ellipse: 'Drag from the middle outwards. Esc ends.',
  brush: 'Drag along what shall be masked; Size says how wide. Esc ends.',
};

export class MaskTool extends EventTarget {
  /** bar's controls by name; layer is the svg over the canvas */
  constructor(stage, state, controls, hint, tell) {
    super();
    Object.assign(this, {stage, state, ...controls, hint, tell});
    this.on = false;
    this.drawing = null;   // the kind that is drawn next
    this.points = null;    // of what is being drawn
    this.chosen = -1;
    this.radius = Math.max(4, Math.round(Math.min(stage.width, stage.height) / 30));
    for (const [button, kind] of [[this.choose, null], [this.polygon, 'polygon'], [this.ellipse, 'ellipse'], [this.brush, 'brush']]) {
      // A click without a pointer is a key's: there is nothing to draw with, so a shape is put there.
      button.addEventListener('click', (event) => { if (kind && event.detail === 0) this.place(kind); else this.draw(kind); });
    }
    this.list.addEventListener('change', () => { this.chosen = Number(this.list.value); this.refresh(); });
    this.use.addEventListener('change', () => this.edit((shape) => ({...shape, use: this.use.value})));
    this.outside.addEventListener('click', () => this.edit((shape) => ({...shape, outside: !shape.outside})));
    this.soft.addEventListener('change', () => this.edit((shape) => ({...shape, soft: Math.min(1000, Math.max(0, Number(this.soft.value) || 0))})));
    this.size.addEventListener('change', () => {
      this.radius = Math.min(1e4, Math.max(0.5, Number(this.size.value) || this.radius));
      if (this.shape?.kind === 'brush') this.reshape(({points}) => ({points, radii: [this.radius]}));
      this.refresh();
    });
    this.key.addEventListener('click', () => this.edit((shape) => keyToggled(shape, state.frame)));
    this.remove.addEventListener('click', () => this.removeChosen());
    stage.element.addEventListener('pointerdown', (event) => this.begin(event));
    stage.element.addEventListener('pointermove', (event) => this.follow(event));
    for (const end of ['pointerup', 'pointercancel']) stage.element.addEventListener(end, (event) => this.end(event));
    addEventListener('keydown', (event) => this.press(event), true);
    new ResizeObserver(() => this.clear()).observe(this.bar);
    stage.addEventListener('moved', () => this.refresh());
    for (const type of ['settings', 'shown']) state.addEventListener(type, () => this.refresh());
    this.refresh();
  }

  get shapes() { return shapesOf(this.state.settings.masks); }
  get shape() { return this.shapes[this.chosen]; }

  toggle() {
    this.on = !this.on;
    this.bar.hidden = !this.on;
    this.clear();
    this.draw(null);
    this.dispatchEvent(new Event('changed'));
  }

  // The bar lies over the picture's top: the whole picture fits below it.
  clear() {
    const {bar} = this;
    this.stage.keepClear(bar.hidden ? 0 : bar.offsetTop + bar.offsetHeight + 4);
  }

  /** Takes up a tool: null chooses and moves what is there. */
  draw(kind) {
    if (kind) this.dispatchEvent(new Event('draws'));
    this.drawing = kind;
    this.points = this.to = null;
    this.gesture = null;
    this.stage.picking = kind !== null;
    this.stage.element.classList.toggle('picking', kind !== null);
    this.hint.hidden = kind === null;
    if (kind) this.hint.textContent = hints[kind];
    this.refresh();
  }

  /** Another tool takes the pointer. */
  yield() {
    this.drawing = this.points = this.to = null;
    this.refresh();
  }

  // In the state; undone only as far as the last `commit`.
  put(shapes) {
    const text = textOf(shapes);
    if (text && text.length > mostText) { this.tell('These are more masks than the page can hold.'); return; }
    this.state.change({masks: text});
  }

  edit(change) {
    if (!this.shape) return;
    this.put(this.shapes.map((shape, i) => (i === this.chosen ? change(shape) : shape)));
    this.state.commit();
  }

  reshape(change) { this.edit((shape) => changed(shape, this.state.frame, change)); }

  add(kind, points, radii) {
    const shapes = this.shapes;
    const key = changed({keys: [{frame: this.state.frame, points, ...(radii && {radii})}]}, this.state.frame, (same) => same).keys[0];
    this.chosen = shapes.length;
    this.put([...shapes, {kind, use: this.use.value, outside: false, soft: Math.max(0, Number(this.soft.value) || 0), keys: [key]}]);
    this.state.commit();
  }

  removeChosen() {
    if (!this.shape) return;
    const rest = this.shapes.filter((unused, i) => i !== this.chosen);
    this.chosen = Math.min(this.chosen, rest.length - 1);
    this.put(rest);
    this.state.commit();
    if (document.activeElement === document.body) (this.layer.querySelector('[data-shape].chosen') ?? this.choose).focus();
  }

  /** Puts a shape into the middle of what is seen, for the keys to move. */
  place(kind) {
    this.draw(null);
    const {x, y, width, height} = this.stage.visible();
    const [u, v, w, h] = [x + width / 2, y + height / 2, width / 6, height / 6];
    if (kind === 'polygon') this.add(kind, [[u - w, v - h], [u + w, v - h], [u + w, v + h], [u - w, v + h]]);
    else if (kind === 'ellipse') this.add(kind, [[u, v]], [w, h]);
    else this.add(kind, [[u - w, v], [u + w, v]], [this.radius]);
    this.layer.querySelector('[data-shape].chosen')?.focus();
  }

  at(event) {
    const [x, y] = this.stage.screenAt(event);
    return [(x - this.stage.x) / this.stage.scale, (y - this.stage.y) / this.stage.scale];
  }

  begin(event) {
    if (!this.on || event.button !== 0) return;
    const at = this.at(event);
    if (this.drawing && this.stage.isPicture(event)) {
      this.stage.element.setPointerCapture(event.pointerId);
      if (this.drawing !== 'polygon') this.points = [at];
      else {
        const [first] = this.points ?? [];
        const near = first && this.points.length >= 3 && Math.hypot(at[0] - first[0], at[1] - first[1]) * this.stage.scale / devicePixelRatio < closeEnough;
        if (near) { this.close(); return; }
        this.points = [...this.points ?? [], at];
      }
      this.refresh();
      return;
    }
    const target = event.target.closest?.('[data-shape]');
    if (!target || this.drawing) return;
    event.stopPropagation();
    target.focus();
    this.stage.element.setPointerCapture(event.pointerId);
    this.chosen = Number(target.dataset.shape);
    this.gesture = {handle: target.dataset.handle ?? null, from: at, shape: this.shape};
    this.refresh();
  }

  follow(event) {
    const at = this.at(event);
    if (this.gesture) {
      const {from, shape: start, handle} = this.gesture;
      this.put(this.shapes.map((shape, i) => (i === this.chosen ? this.dragged(start, handle, at[0] - from[0], at[1] - from[1], from) : shape)));
    } else if (this.points && this.drawing === 'brush') {
      this.points.push(at);
      this.refresh();
    } else if (this.points) {
      this.to = at;
      this.refresh();
    }
  }

  end() {
    if (this.gesture) {
      this.gesture = null;
      this.state.commit();
    } else if (this.points && this.drawing === 'brush') {
      const way = simplified(this.points);
      this.points = null;
      this.add('brush', way, [this.radius]);
    } else if (this.points && this.drawing === 'ellipse') {
      const [[x, y]] = this.points;
      const [u, v] = this.to ?? [x, y];
      this.points = this.to = null;
      if (Math.abs(u - x) >= 1 && Math.abs(v - y) >= 1) {
        this.add('ellipse', [[x, y]], [Math.abs(u - x), Math.abs(v - y)]);
        this.draw(null);  // its handles are what is wanted next
      }
    }
    this.refresh();
  }

  close() {
    const {points} = this;
    this.points = this.to = null;
    if (points?.length >= 3) {
      this.add('polygon', points);
      this.draw(null);
    }
    this.refresh();
  }

  dragged(shape, handle, dx, dy, from) {
    const {frame} = this.state;
    if (handle === null) return changed(shape, frame, moved(dx, dy));
    if (handle === 'across' || handle === 'down') return changed(shape, frame, stretched(handle === 'down' ? 1 : 0, dx, dy));
    // By keys a degree at a time, or ten.
    if (handle === 'turn') return changed(shape, frame, from ? turnedFromTo(from, [from[0] + dx, from[1] + dy]) : turnedBy(dx + dy));
    const i = Number(handle);
    return changed(shape, frame, ({points, radii}) => ({points: points.map(([x, y], n) => (n === i ? [x + dx, y + dy] : [x, y])), radii}));
  }

  // Before the page's own keys: what is drawn or held takes them first.
  press(event) {
    if (!this.on || event.target.closest('dialog') || event.ctrlKey || event.metaKey || event.altKey || event.target.matches('input, select')) return;
    const taken = this.drawing ? this.pressDrawing(event.key) : this.pressShape(event);
    if (!taken) return;
    event.preventDefault();
    event.stopPropagation();
  }

  pressDrawing(key) {
    if (key === 'Escape') { this.draw(null); return true; }
    if (this.drawing !== 'polygon' || !this.points) return false;
    if (key === 'Enter') this.close();
    else if (key === 'Backspace') { this.points = this.points.length > 1 ? this.points.slice(0, -1) : null; this.refresh(); }
    else return false;
    return true;
  }

  pressShape({key, shiftKey, target}) {
    const {shape: index, handle = null} = target.dataset ?? {};
    if (index === undefined || !this.shapes[index]) return false;
    const step = shiftKey ? 10 : 1;
    const way = {ArrowLeft: [-step, 0], ArrowRight: [step, 0], ArrowUp: [0, -step], ArrowDown: [0, step]}[key];
    const corner = this.shapes[index].kind === 'polygon' && handle !== null;
    if (way) { this.chosen = Number(index); this.edit((shape) => this.dragged(shape, handle, ...way)); }
    else if (key === 'Enter' || key === ' ') {
      this.chosen = Number(index);
      if (corner) this.edit((shape) => cornerAdded(shape, Number(handle))); else this.refresh();
    } else if (key === 'Delete' || key === 'Backspace') {
      this.chosen = Number(index);
      if (corner) this.edit((shape) => cornerRemoved(shape, Number(handle))); else this.removeChosen();
    } else return false;
    return true;
  }

  refresh() {
    const {shapes} = this;
    this.chosen = Math.min(Math.max(0, this.chosen), shapes.length - 1);
    for (const [button, kind] of [[this.choose, null], [this.polygon, 'polygon'], [this.ellipse, 'ellipse'], [this.brush, 'brush']]) {
      button.setAttribute('aria-pressed', String(this.drawing === kind));
    }
    const names = shapes.length > 0 ? shapes.map(nameOf) : ['no mask yet'];
    if (names.join() !== [...this.list.options].map((one) => one.text).join()) this.list.replaceChildren(...names.map((name, i) => new Option(name, i)));
    if (shapes.length > 0) this.list.value = Math.max(0, this.chosen);
    const {shape} = this;
    if (shape) {
      this.use.value = shape.use ?? 'garbage';
      if (document.activeElement !== this.soft) this.soft.value = shape.soft ?? 1;
    }
    const radius = shape?.kind === 'brush' && !this.drawing ? keyAt(shape, this.state.frame).radii[0] : this.radius;
    if (document.activeElement !== this.size) this.size.value = radius;
    for (const control of [this.list, this.outside, this.key, this.remove, this.save]) {
      if (!shape && document.activeElement === control) this.choose.focus();
      control.disabled = !shape;
    }
    this.outside.setAttribute('aria-pressed', String(shape?.outside ?? false));
    this.key.setAttribute('aria-pressed', String(Boolean(shape && shape.keys.length > 1 && keyedAt(shape, this.state.frame))));
    this.paint(shapes);
  }

  // Elements stay where they are as long as they stand for the same: focus and capture with them.
  paint(shapes) {
    const wanted = [];
    if (this.on) {
      shapes.forEach((shape, i) => wanted.push(...this.partsOf(shape, i)));
      if (this.points) wanted.push(['path', {class: 'new', d: this.pathOf({kind: this.drawing, ...this.growing()})}]);
    }
    const {children} = this.layer;
    wanted.forEach(([name, attributes], i) => {
      let element = children[i];
      if (element?.tagName !== name) {
        const made = document.createElementNS(space, name);
        if (element) element.replaceWith(made); else this.layer.append(made);
        element = made;
      }
      for (const {name: old} of [...element.attributes]) if (!(old in attributes)) element.removeAttribute(old);
      for (const [key, value] of Object.entries(attributes)) if (element.getAttribute(key) !== String(value)) element.setAttribute(key, value);
    });
    while (children.length > wanted.length) this.layer.lastChild.remove();
  }

  growing() {
    const {points, to} = this;
    if (this.drawing === 'polygon') return {points: to ? [...points, to] : points, open: true};
    if (this.drawing === 'brush') return {points, radii: [this.radius]};
    return {points, radii: to ? [Math.abs(to[0] - points[0][0]), Math.abs(to[1] - points[0][1])] : [0, 0]};
  }

  onScreen([x, y]) {
    const {stage} = this;
    return [(stage.x + x * stage.scale) / devicePixelRatio, (stage.y + y * stage.scale) / devicePixelRatio];
  }

  /** Whether a handle there can be taken hold of: on screen, and not below the bar. */
  isReached([x, y]) {
    const {bar, stage: {element}} = this;
    const under = y < bar.offsetTop + bar.offsetHeight + reach && x < bar.offsetLeft + bar.offsetWidth + reach;
    return !under && x > reach && y > reach && x < element.clientWidth - reach && y < element.clientHeight - reach;
  }

  pathOf({kind, points, radii, turn = 0, open}) {
    const places = points.map((point) => this.onScreen(point).map((value) => value.toFixed(1)));
    if (kind !== 'ellipse') return `M${places.map((place) => place.join(' ')).join('L')}${kind === 'polygon' && !open ? 'Z' : points.length === 1 ? 'h0.01' : ''}`;
    const [a, b] = radii.map((radius) => radius * this.stage.scale / devicePixelRatio);
    const [[x, y]] = points.map((point) => this.onScreen(point));
    const [u, v] = turnOf({turn}).map((part) => part * a);
    return `M${x - u} ${y - v}a${a} ${b} ${turn} 1 0 ${2 * u} ${2 * v}a${a} ${b} ${turn} 1 0 ${-2 * u} ${-2 * v}Z`;
  }

  partsOf(shape, i) {
    const now = keyAt(shape, this.state.frame);
    const chosen = i === this.chosen;
    const d = this.pathOf({kind: shape.kind, ...now});
    const classes = `${shape.use === 'holdOut' ? 'holdOut' : 'garbage'}${chosen ? ' chosen' : ''}`;
    const name = nameOf(shape, i);
    const parts = [
      ['path', {class: 'under', d}],
      ['path', {class: classes, d, tabindex: 0, role: 'button', 'data-shape': i, 'aria-label': `Mask ${name}: arrows move it, Delete removes it`}],
    ];
    if (shape.kind === 'brush') {
      const wide = 2 * now.radii[0] * this.stage.scale / devicePixelRatio;
      parts.unshift(['path', {class: `way ${classes}`, d, 'stroke-width': wide}]);
    }
    if (!chosen || this.drawing) return parts;
    const handle = (id, [x, y], label) => parts.push(['circle', {class: 'handle', cx: x.toFixed(1), cy: y.toFixed(1), r: 6, tabindex: 0, role: 'button', 'data-shape': i, 'data-handle': id, 'aria-label': label}]);
    if (shape.kind === 'ellipse') {
      const [[[x, y]], [a, b]] = [now.points, now.radii];
      const [c, s] = turnOf(now);
      const along = (u, v) => this.onScreen([x + u * c - v * s, y + u * s + v * c]);
      // Above it, or where there is room; it stays on its side while it is dragged.
      const long = stemLength * devicePixelRatio / this.stage.scale;
      const stems = [long, -long].flatMap((out) => [[0, -1], [0, 1], [1, 0], [-1, 0]].map(([u, v]) =>
        [along(u * a, v * b), along(u * (a + out), v * (b + out))]));
      if (!this.gesture) this.side = Math.max(0, stems.findIndex(([, place]) => this.isReached(place)));
      const [start, end] = stems[this.side];
      const stem = `M${start.join(' ')}L${end.join(' ')}`;
      parts.push(['path', {class: 'under', d: stem}], ['path', {class: 'stem', d: stem}]);
      handle('across', along(a, 0), `Width of mask ${name}: arrows left and right`);
      handle('down', along(0, b), `Height of mask ${name}: arrows up and down`);
      handle('turn', end, `Turn of mask ${name}, ${Math.round(now.turn ?? 0)} degrees: arrows right and left`);
    } else if (shape.kind === 'polygon') {
      now.points.forEach((point, n) => handle(n, this.onScreen(point), `Corner ${n + 1} of mask ${name}: arrows move it, Enter adds one after it, Delete removes it`));
    }
    return parts;
  }
}
