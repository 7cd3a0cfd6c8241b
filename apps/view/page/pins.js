// SPDX-License-Identifier: BSD-3-Clause
//
// Pinned samples: pixels of the plate whose values stay on screen and follow the key and the frame.
import {ask} from './server.js';

const most = 8;

export class Pins {
  /** words(x, y, values)  one line of a pixel's values; shown()  the job whose picture is on screen */
  constructor(stage, state, {layer, button, hint}, words, shown) {
    Object.assign(this, {stage, state, layer, button, hint, words, shown});
    this.values = new Map();  // by place
    // A click without a pointer is a key's: it pins the middle of what is seen.
    button.addEventListener('click', (event) => {
      if (event.detail !== 0) { this.aim(!this.aiming); return; }
      const {x, y, width, height} = stage.visible();
      this.add([Math.floor(x + width / 2), Math.floor(y + height / 2)]);
    });
    stage.element.addEventListener('click', (event) => {
      if (!this.aiming || !stage.isPicture(event)) return;
      const at = stage.pixelAt(event);
      this.aim(false);
      if (at[0] >= 0 && at[1] >= 0 && at[0] < stage.width && at[1] < stage.height) this.add(at);
    });
    addEventListener('keydown', (event) => { if (event.key === 'Escape' && this.aiming) this.aim(false); });
    stage.addEventListener('moved', () => this.paint());
    for (const type of ['settings', 'shown']) state.addEventListener(type, () => this.paint());
    this.paint();
  }

  aim(on) {
    this.aiming = on;
    this.button.setAttribute('aria-pressed', String(on));
    this.stage.element.classList.toggle('picking', on);
    this.hint.hidden = !on;
    if (on) this.hint.textContent = 'Click a pixel to pin its values. A click on a pin takes it away. Esc ends.';
  }

  add(at) {
    this.state.show({pins: [...this.state.pins.filter((pin) => pin.join() !== at.join()), at].slice(-most)});
    this.look();
  }

  drop(index) {
    this.state.show({pins: this.state.pins.filter((unused, i) => i !== index)});
    (this.layer.children[Math.min(index, this.layer.children.length - 1)] ?? this.button).focus();
  }

  /** Asks for the values of all, one after the other; once more where pictures came meanwhile. */
  async look() {
    if (this.busy) { this.again = true; return; }
    this.busy = true;
    do {
      this.again = false;
      const job = this.shown();
      for (const [x, y] of job ? this.state.pins : []) {
        try {
          const values = await ask('probe', {settings: job.settings, view: job.view === 'veil' ? 'matte' : job.view, frame: job.frame, x, y, slot: job.slot});
          this.values.set(`${x},${y}`, this.words(x, y, values));
        } catch {
          // Why is told of elsewhere; what an earlier picture had there is not left standing.
          this.values.delete(`${x},${y}`);
        }
      }
      this.paint();
    } while (this.again);
    this.busy = false;
  }

  paint() {
    const {stage, layer, state: {pins}} = this;
    while (layer.children.length > pins.length) layer.lastChild.remove();
    pins.forEach(([x, y], i) => {
      if (!layer.children[i]) {
        const made = document.createElement('button');
        made.append(document.createElement('b'), document.createElement('span'));
        made.addEventListener('click', () => this.drop([...layer.children].indexOf(made)));
        layer.append(made);
      }
      const pin = layer.children[i];
      pin.style.left = `${(stage.x + (x + 0.5) * stage.scale) / devicePixelRatio}px`;
      pin.style.top = `${(stage.y + (y + 0.5) * stage.scale) / devicePixelRatio}px`;
      const text = (this.values.get(`${x},${y}`) ?? `${x}, ${y}`).trim().replace(/ +/g, ' ');
      pin.children[0].textContent = i + 1;
      pin.children[1].textContent = text;
      pin.setAttribute('aria-label', `Pin ${i + 1}: ${text}. Press to take it away`);
    });
  }
}
