// SPDX-License-Identifier: BSD-3-Clause
//
// What the matte holds, and the values of the pixel under the pointer.
import {ask} from './server.js';

const probeMilliseconds = 50;

/** Draws the histogram, and says how much is clear, between and solid. */
export function showMeasure(canvas, counts, matte) {
  const ratio = devicePixelRatio;
  canvas.width = Math.round(canvas.clientWidth * ratio);
  canvas.height = Math.round(canvas.clientHeight * ratio);
  const context = canvas.getContext('2d');
  // The two ends hold most of the picture: heights are logarithms, so that what lies between shows.
  const most = Math.log1p(Math.max(1, ...matte.bins));
  const step = canvas.width / matte.bins.length;
  matte.bins.forEach((count, i) => {
    const high = count === 0 ? 0 : Math.max(ratio, canvas.height * Math.log1p(count) / most);
    context.fillStyle = i === 0 ? '#777' : i === 255 ? '#f2f2f2' : '#e0b050';
    const wide = i === 0 || i === 255 ? Math.max(step, 3 * ratio) : step;
    const left = i === 255 ? Math.floor(canvas.width - wide) : Math.floor(i * step);
    context.fillRect(left, canvas.height - high, Math.max(1, Math.ceil(i * step + wide) - left), high);
  });
  const all = matte.clear + matte.between + matte.solid;
  const percent = (count) => `${(100 * count / all).toFixed(count > 0 && count / all < 0.001 ? 2 : 1)} %`;
  counts.replaceChildren(...[['clear', matte.clear], ['between', matte.between], ['solid', matte.solid]].map(
    ([name, count]) => Object.assign(document.createElement('span'), {textContent: `${name} ${percent(count)}`})));
}

/** Follows the pointer over the stage. */
export class Probe {
  /** shownAt(x)  the job whose picture lies on screen at x of the plate: its values are told. */
  constructor(stage, description, output, shownAt) {
    Object.assign(this, {stage, description, output, shownAt});
    this.at = null;
    this.busy = false;
    stage.element.addEventListener('pointermove', (event) => {
      const [x, y] = stage.pixelAt(event);
      this.at = x >= 0 && y >= 0 && x < stage.width && y < stage.height ? [x, y] : null;
      this.look();
    });
    stage.element.addEventListener('pointerleave', () => { this.at = null; this.look(); });
  }

  /** Looks again, as the pointer or the key changed. */
  async look() {
    if (!this.at) { this.output.textContent = ''; return; }
    if (this.busy) { this.again = true; return; }
    this.busy = true;
    this.again = false;
    const [x, y] = this.at;
    const job = this.shownAt(x);
    let said = `${x}, ${y}`;
    try {
      if (job) said = this.words(x, y, await ask('probe', {settings: job.settings, view: job.view === 'veil' ? 'matte' : job.view, frame: job.frame, x, y, slot: job.slot}));
    } catch { /* settings that cannot key are told of elsewhere; the place is still known */ }
    // Another picture may have come meanwhile: these are not its values.
    if (this.at && this.shownAt(x) === job) this.output.textContent = said;
    else if (this.at) this.again = true;
    await new Promise((done) => setTimeout(done, probeMilliseconds));
    this.busy = false;
    if (this.again) this.look();
  }

  words(x, y, values) {
    const {depth} = this.description;
    // Whole codes for integer pictures, numbers for float ones.
    const one = (value) => typeof value === 'string' ? value.padStart(6)
      : depth === 4 ? value.toFixed(4).padStart(7)
      : String(Math.round(value * values.maximum)).padStart(depth === 1 ? 3 : 5);
    const three = (colour) => colour.slice(0, 3).map(one).join(' ');
    const matte = typeof values.matte === 'number' ? values.matte.toFixed(3) : values.matte;
    return `${String(x).padStart(4)}, ${String(y).padStart(4)}   plate ${three(values.plate)}   matte ${matte}   result ${three(values.result)}`;
  }
}
