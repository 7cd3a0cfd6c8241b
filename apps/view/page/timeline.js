// SPDX-License-Identifier: BSD-3-Clause
//
// The frames of a shot: a slider, a field, in and out, and play between them at the shot's own rate
// or as fast as the key allows.
import {framesOf, moves} from './curves.js';
import {shapesOf} from './shapes.js';

export class Timeline {
  constructor(state, description, {bar, play, slider, field, enter, leave, list}) {
    Object.assign(this, {state, description, play, slider, field, enter, leave, list});
    this.frames = description.frames;  // their numbers, which need not follow one another
    bar.hidden = this.frames.length < 2;
    slider.min = 0;
    slider.max = this.frames.length - 1;
    slider.addEventListener('input', () => this.go(this.frames[slider.value], true));
    slider.addEventListener('change', () => state.show({frame: this.frames[slider.value]}));
    field.min = this.frames[0];
    field.max = this.frames.at(-1);
    // A number that no frame has goes to the nearest one.
    field.addEventListener('change', () => {
      const wanted = field.value === '' ? state.frame : Number(field.value);
      state.show({frame: this.frames.reduce((best, one) => (Math.abs(one - wanted) < Math.abs(best - wanted) ? one : best))});
    });
    play.addEventListener('click', () => this.toggle());
    enter.addEventListener('click', () => this.mark('from'));
    leave.addEventListener('click', () => this.mark('to'));
    list.addEventListener('change', () => {
      const frame = Number(list.value);
      list.selectedIndex = 0;
      state.show({frame});
    });
    this.keyed = document.createElement('datalist');
    this.keyed.id = 'keyedFrames';
    slider.after(this.keyed);
    slider.setAttribute('list', this.keyed.id);
    state.addEventListener('shown', () => this.refresh());
    state.addEventListener('settings', () => this.markKeys());
    this.markKeys();
    this.refresh();
  }

  /** Sets in ("from") or out ("to") here; where it is already, takes it away. */
  mark(end) {
    if (this.frames.length < 2) return;
    const {state} = this;
    const there = state[end] === state.frame ? null : state.frame;
    const other = end === 'from' ? 'to' : 'from';
    const crossed = there !== null && state[other] !== null && (end === 'from' ? there > state.to : there < state.from);
    state.show({[end]: there, ...(crossed ? {[other]: null} : {})});
  }

  go(frame, moving) {
    this.state.frame = frame;
    this.state.tell('shown', {moving: moving ? 'frame' : false});
  }

  toggle() {
    if (this.frames.length < 2) return;
    if (this.stop) { this.stop(); return; }
    const {framesPerSecond} = this.description;
    let shown = true;
    // The next frame is asked for when the last one stands, and not before its time.
    const seen = (event) => { if (event.detail.slot === 0) shown = true; };
    addEventListener('orvanite-shown', seen);
    const clock = setInterval(() => {
      if (!shown) return;
      shown = false;
      const {from, to, frame} = this.state;
      const played = this.frames.filter((one) => one >= (from ?? -Infinity) && one <= (to ?? Infinity));
      this.go(played[(played.indexOf(frame) + 1) % played.length], true);
    }, 1000 / framesPerSecond);
    this.stop = () => {
      clearInterval(clock);
      removeEventListener('orvanite-shown', seen);
      this.stop = null;
      this.state.show({frame: this.state.frame});
      this.refresh();
    };
    this.refresh();
  }

  /** What has keys, by frame. */
  keys() {
    const {state} = this;
    const names = new Map();
    const add = (frame, name) => names.set(frame, [...names.get(frame) ?? [], name]);
    for (const [name, text] of Object.entries(state.settings)) {
      if (moves(text)) for (const frame of framesOf(text)) add(frame, state.parameter(name).label);
    }
    for (const [i, {keys}] of shapesOf(state.settings.masks).entries()) {
      if (keys.length > 1) for (const {frame} of keys) add(frame, `mask ${i + 1}`);
    }
    return new Map([...names].sort(([a], [b]) => a - b));
  }

  /** Goes to the next frame with keys, or to the last one before this. */
  toKey(way) {
    const beyond = [...this.keys().keys()].filter((frame) => this.frames.includes(frame) && (frame - this.state.frame) * way > 0);
    const frame = way > 0 ? beyond[0] : beyond.at(-1);
    if (frame !== undefined) this.state.show({frame});
  }

  /** A mark under each frame that has keys, and a line in the list. */
  markKeys() {
    const frames = this.keys();
    const lines = [...frames].filter(([frame]) => this.frames.includes(frame));
    const texts = ['keys', ...lines.map(([frame, names]) => `${frame}: ${names.join(', ')}`)];
    if (texts.join('\n') !== [...this.list.options].map((one) => one.text).join('\n')) {
      this.list.replaceChildren(...texts.map((text, i) => new Option(text, i === 0 ? '' : lines[i - 1][0])));
    }
    this.list.disabled = lines.length === 0;
    this.keyed.replaceChildren(...this.frames.flatMap((frame, i) => frames.has(frame) ? [new Option('', i)] : []));
  }

  refresh() {
    const {frame, from, to} = this.state;
    this.slider.value = this.frames.indexOf(frame);
    this.slider.setAttribute('aria-valuetext', frame);
    this.field.value = frame;
    for (const [button, word, at] of [[this.enter, 'In', from], [this.leave, 'Out', to]]) {
      button.textContent = at === null ? word : `${word} ${at}`;
      button.setAttribute('aria-pressed', String(at !== null));
    }
    this.play.setAttribute('aria-pressed', String(Boolean(this.stop)));
    this.play.textContent = this.stop ? 'Stop' : 'Play';
  }
}
