// SPDX-License-Identifier: BSD-3-Clause
//
// The eyedropper: while it is out the plate is shown, and a click or a dragged box takes its colour.
// The colour comes from the plate's own samples, whatever the view.
import {ask} from './server.js';

// A click takes the median of a little square, so that grain does not decide.
const clickSide = 5;
const adviceMilliseconds = 12000;

export class Picker extends EventTarget {
  constructor(stage, state, box, hint) {
    super();
    Object.assign(this, {stage, state, box, hint});
    this.target = null;
    this.samples = [];
    this.round = 0;           // how often the eyedropper came out
    this.given = new Map();   // by colour parameter: the round that gave it last
    this.from = null;
    stage.element.addEventListener('pointerdown', (event) => this.begin(event));
    stage.element.addEventListener('pointermove', (event) => this.drag(event));
    stage.element.addEventListener('pointerup', (event) => this.end(event));
    stage.element.addEventListener('keydown', (event) => {
      if (event.key !== 'Enter' || !this.target || event.target !== stage.element) return;
      event.preventDefault();
      this.from = stage.middle();
      this.takeAt(this.from, event.shiftKey);
    });
    addEventListener('keydown', (event) => { if (event.key === 'Escape') this.stop(); });
  }

  /** Says what to do next, for a while; not over what is said of a tool that is in the hand. */
  advise(text) {
    if (!this.hint.hidden && !this.isAdvice()) return;
    this.advice = text;
    this.hint.textContent = text;
    this.hint.hidden = false;
    clearTimeout(this.rest);
    this.rest = setTimeout(() => this.hush(), adviceMilliseconds);
  }

  isAdvice() { return Boolean(this.advice) && this.hint.textContent.endsWith(this.advice); }

  /** What is said now, and of which samples. */
  said() {
    const {samples, hint: {hidden, textContent}} = this;
    return {samples, count: samples.length, words: hidden ? '' : textContent};
  }

  /** Puts a word before what was said, as long as that is what is said. */
  remark(before, text) {
    const now = this.said();
    if (before.words && Object.keys(now).every((name) => now[name] === before[name])) this.hint.textContent = `${text} ${now.words}`;
  }

  /** Takes advice back that is no longer of use. */
  hush() {
    if (this.isAdvice()) this.hint.hidden = true;
    clearTimeout(this.rest);
    this.advice = null;
  }

  /** For whoever has no pointer: a cross in the middle, under which Enter takes the colour. */
  aim() {
    if (!this.target) return;
    this.stage.element.focus();
    this.hint.textContent = 'Click it, or bring the cross to it with the arrows and press Enter. Esc ends.';
  }

  /** Takes out the eyedropper for a colour parameter; label says what to click. */
  start(target, label, more = 'Shift takes several. Esc ends.') {
    this.target = target;
    this.samples = [];
    ++this.round;
    this.stage.picking = true;
    this.stage.element.classList.add('picking', 'aiming');
    this.hint.textContent = `Click ${label} in the picture, or drag a box over it. ${more}`;
    this.hint.hidden = false;
    this.dispatchEvent(new Event('changed'));
  }

  stop() {
    if (!this.target) return;
    this.target = null;
    this.from = null;
    this.stage.picking = false;
    this.stage.element.classList.remove('picking', 'aiming');
    this.hint.hidden = true;
    this.box.hidden = true;
    this.dispatchEvent(new Event('changed'));
  }

  begin(event) {
    if (!this.target || event.button !== 0 || !this.stage.isPicture(event)) return;
    this.from = this.stage.pixelAt(event);
    this.stage.element.setPointerCapture(event.pointerId);
  }

  drag(event) {
    if (!this.from) return;
    const [x, y, w, h] = this.area(this.stage.pixelAt(event));
    const {stage} = this;
    const css = (pixels) => `${pixels * stage.scale / devicePixelRatio}px`;
    this.box.hidden = false;
    this.box.style.left = `${(stage.x + x * stage.scale) / devicePixelRatio}px`;
    this.box.style.top = `${(stage.y + y * stage.scale) / devicePixelRatio}px`;
    this.box.style.width = css(w);
    this.box.style.height = css(h);
  }

  end(event) {
    if (this.from) this.takeAt(this.stage.pixelAt(event), event.shiftKey);
  }

  // The colour of the box from where it began to this pixel, or of what lies around one.
  async takeAt(to, more) {
    const {target} = this;
    const moved = Math.max(Math.abs(to[0] - this.from[0]), Math.abs(to[1] - this.from[1]));
    const half = (clickSide - 1) / 2;
    if (moved * this.stage.scale < 4) this.from = [to[0] - half, to[1] - half];
    const area = moved * this.stage.scale < 4 ? this.area([to[0] + half, to[1] + half]) : this.area(to);
    this.from = null;
    this.box.hidden = true;
    if (area[2] < 1 || area[3] < 1) return;  // beside the picture
    const {samples, round, state: {frame, side}} = this;
    if (!more) this.stop();
    try {
      const colours = await ask('colours', {frame, window: area});
      // Whoever took the eyedropper out again meanwhile may have a newer colour already.
      if (this.given.get(target) > round) return;
      this.given.set(target, round);
      // The mean of all that were taken since the eyedropper came out, on whatever frames.
      samples.push(colours.median);
      colours.median = colours.median.map((unused, c) => samples.reduce((sum, one) => sum + one[c], 0) / samples.length);
      if (more && this.target && round === this.round) this.hint.textContent = `${samples.length} taken together. Shift and click: one more. A click: the last one. Esc ends.`;
      colours.last = !more;
      Object.assign(colours, {frame, side});
      this.dispatchEvent(new CustomEvent('picked', {detail: {target, colours}}));
    } catch (error) {
      this.dispatchEvent(new CustomEvent('failed', {detail: error}));
    }
  }

  // The box between the first corner and another, within the plate.
  area(to) {
    const {width, height} = this.stage;
    const between = (a, b, end) => [Math.max(0, Math.min(a, b)), Math.min(end - 1, Math.max(a, b))];
    const [left, right] = between(this.from[0], to[0], width);
    const [top, bottom] = between(this.from[1], to[1], height);
    return [left, top, right - left + 1, bottom - top + 1];
  }
}
