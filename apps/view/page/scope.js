// SPDX-License-Identifier: BSD-3-Clause
//
// The plate's colours as a parade of its channels or a vectorscope, with the picked ones marked:
// what helps to choose a screen.
import {askPicture} from './server.js';

const wantedPixels = 6e4;
const ink = [[255, 90, 90], [90, 235, 90], [110, 150, 255]];

// Colour difference signals by the weights of ITU-R BT.709, -0.5 to 0.5.
const differences = (r, g, b) => {
  const y = 0.2126 * r + 0.7152 * g + 0.0722 * b;
  return [(b - y) / 1.8556, (r - y) / 1.5748];
};

export class Scope {
  /** What `select` says is drawn on the canvas; "matte" is not this one's business. */
  constructor(canvas, select, state, description) {
    Object.assign(this, {canvas, select, state, description});
    this.page = Math.random().toString(36).slice(2);
    this.number = 0;
    select.addEventListener('change', () => this.refresh());
    state.addEventListener('settings', () => this.draw());
    addEventListener('orvanite-shown', ({detail}) => { if (!detail.job.moving) this.refresh(); });
  }

  get kind() { return this.select.value; }

  /** Looks at the frame that is shown, if it is another one. An answer that a later question overtook is dropped. */
  async refresh() {
    const {frame} = this.state;
    if (this.kind === 'matte') return;
    const number = ++this.number;
    if (this.frame !== frame) {
      const {width, height} = this.description;
      const divisor = Math.min(16, Math.max(1, Math.ceil(Math.sqrt(width * height / wantedPixels))));
      let plate = null;
      try {
        plate = await askPicture({settings: {}, view: 'plate', frame, divisor, proxy: true, window: [0, 0, width, height],
          measured: false, slot: 0, page: this.page, number});
      } catch { /* told of by the picture's own requests; nothing is drawn rather than another frame */ }
      if (number !== this.number) return;
      this.plate = plate;
      this.frame = plate && frame;
    }
    this.draw();
  }

  draw() {
    const {canvas, kind} = this;
    if (kind === 'matte') return;
    const [width, height] = [canvas.clientWidth, canvas.clientHeight].map((side) => Math.max(1, Math.round(side * devicePixelRatio)));
    Object.assign(canvas, {width, height});
    if (!this.plate) return;
    const context = canvas.getContext('2d');
    const image = context.createImageData(width, height);
    const dot = (x, y, [r, g, b], weight) => {
      const at = 4 * (Math.round(y) * width + Math.round(x));
      image.data[at] += r * weight;
      image.data[at + 1] += g * weight;
      image.data[at + 2] += b * weight;
      image.data[at + 3] = 255;
    };
    const {data} = this.plate.pixels;
    const columns = this.plate.width;
    const third = width / 3;
    const place = (cb, cr) => [width / 2 + cb * (height - 1), (height - 1) / 2 - cr * (height - 1)];
    for (let i = 0; i < data.length; i += 4) {
      const rgb = [data[i], data[i + 1], data[i + 2]];
      if (kind === 'parade') {
        const x = (i / 4 % columns) / columns * (third - 2);
        rgb.forEach((code, c) => dot(Math.floor(c * third) + x, (height - 1) * (1 - code / 255), ink[c], 0.12));
      } else {
        dot(...place(...differences(...rgb.map((code) => code / 255))), rgb.map((code) => code / 2 + 60), 0.08);
      }
    }
    context.putImageData(image, 0, 0);
    for (const [name, colour] of [['screen', '#fff'], ['fgBias', '#e0b050']]) {
      if (!(name in this.state.settings)) continue;
      const rgb = this.state.text(name).split(',').map(Number);
      context.strokeStyle = colour;
      context.lineWidth = devicePixelRatio;
      context.beginPath();
      if (kind === 'parade') {
        rgb.forEach((value, c) => {
          const y = (height - 1) * (1 - Math.min(1, value)) + 0.5;
          context.moveTo(c * third, y);
          context.lineTo((c + 1) * third - 2, y);
        });
      } else {
        context.arc(...place(...differences(...rgb)), 5 * devicePixelRatio, 0, 2 * Math.PI);
      }
      context.stroke();
    }
  }
}
