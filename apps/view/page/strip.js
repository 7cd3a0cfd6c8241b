// SPDX-License-Identifier: BSD-3-Clause
//
// Small pictures of the shot below the timeline, each under the slider's place of its frame. They come
// one by one, and only while nothing else is asked for. The slider is their way by keyboard.
import {askThumbnail} from './server.js';

const gap = 2;                 // CSS pixels between pictures
const sliderEnds = 8;          // half a slider's handle, in CSS pixels
const patienceMilliseconds = 150;
const mostKept = 120;          // pictures of 160 x 90 at the most

export class Strip {
  /** quiet() says whether nothing more important is on its way. */
  constructor(canvas, state, {frames, width, height}, quiet) {
    Object.assign(this, {canvas, state, frames, quiet, aspect: width / height});
    this.pictures = new Map();  // by frame: a canvas, or null where there is none to be had
    this.cells = [];            // frames
    if (frames.length < 2) return;
    canvas.addEventListener('click', (event) => {
      const frame = this.frameAt(event);
      if (frame !== undefined) state.show({frame});
    });
    canvas.addEventListener('pointermove', (event) => { canvas.title = `Frame ${this.frameAt(event)}`; });
    new ResizeObserver(() => this.layOut()).observe(canvas);
    state.addEventListener('shown', () => this.draw());
  }

  frameAt({offsetX}) {
    return this.cells[Math.min(this.cells.length - 1, Math.floor(offsetX / this.canvas.clientWidth * this.cells.length))];
  }

  layOut() {
    const {canvas, frames} = this;
    const {clientWidth: width, clientHeight: height} = canvas;
    // Where it is folded away nothing is asked for.
    const count = width === 0 ? 0 : Math.max(1, Math.min(frames.length, Math.floor(width / (height * this.aspect + gap))));
    const last = frames.length - 1;
    this.cells = Array.from({length: count}, (unused, i) => {
      const along = ((i + 0.5) / count * width - sliderEnds) / Math.max(1, width - 2 * sliderEnds);
      return frames[Math.round(Math.min(1, Math.max(0, along)) * last)];
    });
    canvas.width = Math.round(width * devicePixelRatio);
    canvas.height = Math.round(height * devicePixelRatio);
    this.draw();
    this.running ??= this.fetch().finally(() => { this.running = null; });
  }

  async fetch() {
    const later = () => new Promise((done) => setTimeout(done, patienceMilliseconds));
    await later();  // the first picture of the page comes first
    for (;;) {
      const {frame: now} = this.state;
      const wanted = this.cells.filter((frame) => !this.pictures.has(frame)).sort((a, b) => Math.abs(a - now) - Math.abs(b - now));
      if (wanted.length === 0) return;
      if (!this.quiet()) { await later(); continue; }
      try {
        this.keep(wanted[0], await askThumbnail(wanted[0]));
      } catch (error) {
        if (error.status === 429 || error.status === 503) await later();
        else if (error.status === 0) return;  // the program has ended
        else this.keep(wanted[0], null);
      }
    }
  }

  keep(frame, pixels) {
    let picture = null;
    if (pixels) {
      picture = document.createElement('canvas');
      [picture.width, picture.height] = [pixels.width, pixels.height];
      picture.getContext('2d').putImageData(pixels, 0, 0);
    }
    this.pictures.set(frame, picture);
    for (const one of this.pictures.keys()) {
      if (this.pictures.size > mostKept && !this.cells.includes(one)) this.pictures.delete(one);
    }
    this.draw();
  }

  draw() {
    const {canvas, cells, pictures, state} = this;
    const context = canvas.getContext('2d');
    const scale = devicePixelRatio;
    const step = canvas.width / Math.max(1, cells.length);
    context.clearRect(0, 0, canvas.width, canvas.height);
    const away = (frame) => Math.abs(frame - state.frame);
    const here = cells.reduce((best, frame) => (away(frame) < away(best) ? frame : best), cells[0]);
    cells.forEach((frame, i) => {
      const height = canvas.height;
      const width = Math.min(step - gap * scale, height * this.aspect);
      const x = Math.round(i * step + (step - width) / 2);
      context.fillStyle = '#161616';
      context.fillRect(x, 0, width, height);
      const picture = pictures.get(frame);
      if (picture) context.drawImage(picture, x, 0, width, height);
      if (frame !== here) return;
      context.strokeStyle = '#e0b050';
      context.lineWidth = 2 * scale;
      context.strokeRect(x + scale, scale, width - 2 * scale, height - 2 * scale);
    });
  }
}
