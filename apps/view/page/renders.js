// SPDX-License-Identifier: BSD-3-Clause
//
// Which picture to ask for, and when. One request of a slot is on its way at a time; of those that
// come meanwhile only the newest is sent after it. While a control moves, a smaller picture is keyed
// whose size follows what the machine manages; when it rests, the real one.
import {veiled} from './look.js';
import {askPicture} from './server.js';

const restMilliseconds = 120;
const wantedMilliseconds = 28;  // of a request while a control moves
const leastPixels = 150e3;
const mostPixels = 2.6e6;       // more than this is never sent at once

export class Renders {
  /**
   * visible()    the part of the plate on screen and its scale: {x, y, width, height, scale}
   * show(slot, picture)   puts a picture on screen
   * fail(error)  shows what is wrong; null: nothing is, in any slot
   * waits(slot, on)  a slot begins or ends to wait for pictures
   */
  constructor(description, {visible, show, fail, waits}) {
    Object.assign(this, {description, visible, show, fail, waits});
    this.page = Math.random().toString(36).slice(2);
    this.number = 0;
    this.budget = 6e5;
    this.slots = [{}, {}];
  }

  /** Asks for a view of settings in a slot; null: nothing is to be shown there. */
  want(slot, what, moving) {
    const state = this.slots[slot];
    state.what = what;
    clearTimeout(state.rest);
    if (!what) {
      if (state.wrong) this.tell(slot, null);
      return;
    }
    if (moving) {
      this.queue(slot, this.job(slot, what, true));
      state.rest = setTimeout(() => this.queue(slot, this.job(slot, what, false)), restMilliseconds);
    } else {
      this.queue(slot, this.job(slot, what, false));
    }
  }

  /** The same again for another part of the plate, when the last picture does not hold it. */
  moved() {
    this.slots.forEach((state, slot) => {
      if (!state.what) return;
      clearTimeout(state.rest);
      state.rest = setTimeout(() => {
        // What is on its way counts: it takes the place of the last one.
        const last = state.next ?? (state.busy ? state.job : state.last);
        if (!this.covers(last)) this.queue(slot, this.job(slot, state.what, false));
      }, restMilliseconds);
    });
  }

  /** Whether a picture holds what is seen of the plate, as fine as that is seen. */
  covers(job) {
    if (!job || job.moving) return false;
    const {window: [x, y, w, h], divisor} = this.extent(false);
    const [left, top, width, height] = job.window;
    return job.divisor <= divisor && left <= x && top <= y && left + width >= x + w && top + height >= y + h;
  }

  job(slot, what, moving) {
    const {window, divisor} = this.extent(moving);
    return {
      ...what, slot, window, divisor, proxy: moving && divisor > 1, moving,
      measured: slot === 0, page: this.page, number: ++this.number,
    };
  }

  /** What to ask for of the plate as it is seen now. */
  extent(moving) {
    const {width, height} = this.description;
    const part = this.visible();
    // The screen needs no finer picture than this.
    const coarse = Math.min(16, Math.max(1, Math.floor(1 / part.scale + 1e-6)));
    const fits = (w, h, divisor, pixels) => w * h / (divisor * divisor) <= pixels;
    const limit = moving ? this.budget : mostPixels;
    let window = [0, 0, width, height];
    let divisor = coarse;
    if (!fits(width, height, divisor, limit)) {
      const step = 16;
      const x = Math.floor(Math.max(0, part.x) / step) * step;
      const y = Math.floor(Math.max(0, part.y) / step) * step;
      window = [x, y, Math.max(1, Math.min(width - x, Math.ceil(part.width) + step + 1)),
        Math.max(1, Math.min(height - y, Math.ceil(part.height) + step + 1))];
      while (divisor < 16 && !fits(window[2], window[3], divisor, limit)) ++divisor;
    }
    window[0] -= window[0] % divisor;
    window[1] -= window[1] % divisor;
    return {window, divisor};
  }

  queue(slot, job) {
    const state = this.slots[slot];
    state.next = job;
    if (!state.busy) state.running = this.run(slot);
    // A large picture on its way would hold up the next ones, and is out of date.
    else if (!state.job.moving) state.abort.abort();
  }

  /** What a slot's picture on screen shows: a job; undefined before the first. */
  shown(slot) { return this.slots[slot].shown; }

  /** Whether a picture is on its way, or will be asked for in a moment. */
  get busy() { return this.slots.some((state) => state.busy); }

  /** Resolves when nothing is on its way to a slot. */
  async idle(slot) { await this.slots[slot].running; }

  /** Gives up what is on its way: the pictures on screen stay. */
  stop() {
    for (const state of this.slots) {
      clearTimeout(state.rest);
      state.next = null;
      state.last = null;
      if (state.busy) state.abort.abort();
    }
  }

  // A veil is the plate under its matte; the plate does not change with the settings. Each slot has its own.
  async ask(state, job, signal) {
    if (job.view !== 'veil') return askPicture(job, signal);
    const {frame, window, divisor, proxy} = job;
    const key = JSON.stringify([frame, window, divisor, proxy]);
    if (state.plate?.key !== key) {
      state.plate = {key, picture: await askPicture({...job, settings: {}, view: 'plate', measured: false, page: `${this.page}-plate`}, signal)};
    }
    const {bands, pixels, ...header} = await askPicture({...job, view: 'matte'}, signal);
    return {...header, pixels: veiled(state.plate.picture.pixels, pixels)};
  }

  // What is wrong in one slot is not put right by the other's picture.
  tell(slot, error) {
    this.slots[slot].wrong = error;
    this.fail(error ?? this.slots[1 - slot].wrong ?? null);
  }

  async run(slot) {
    const state = this.slots[slot];
    state.busy = true;
    this.waits(slot, true);
    while (state.next) {
      const job = state.next;
      state.next = null;
      const start = performance.now();
      state.job = job;
      state.abort = new AbortController();
      try {
        const {moving, ...body} = job;
        const picture = await this.ask(state, body, state.abort.signal);
        picture.job = job;
        const taken = performance.now() - start;
        if (moving) this.adapt(job, taken);
        state.last = job;
        this.tell(slot, null);
        if (state.what) {
          state.shown = job;
          this.show(slot, picture);
        }
      } catch (error) {
        if (state.abort.signal.aborted) continue;
        if (error.status === 429 || error.status === 503) {
          await new Promise((done) => setTimeout(done, 100));
          state.next ??= job;
        } else if (error.status !== 409) {
          this.tell(slot, state.what && error);
        }
      }
    }
    state.busy = false;
    this.waits(slot, false);
  }

  // Halfway to the size that would have taken the wanted time.
  adapt({window: [, , width, height], divisor}, taken) {
    const pixels = width * height / (divisor * divisor);
    const wanted = pixels * Math.min(4, wantedMilliseconds / taken);
    this.budget = Math.min(mostPixels, Math.max(leastPixels, (this.budget + wanted) / 2));
  }
}
