// SPDX-License-Identifier: BSD-3-Clause
//
// Stands where the page has the module that talks to its server: the same functions, answered by
// engines in workers. Nothing leaves the browser.
import {Answers} from './answers.js';
import {opened} from './open.js';
import {Shot} from './shot.js';
import {callsOf, Refusal} from './workers.js';

export {Refusal};

// More engines than this save little time, and where they share no memory they hold more copies.
const mostEngines = 4;

const count = Math.max(1, Math.min(mostEngines, navigator.hardwareConcurrency ?? 1));
const engines = Array.from({length: count}, () => callsOf(new Worker('worker.js', {type: 'module'}), 'The engine could not be started in this browser.'));

let notices = [];
const answers = (async () => {
  const {pictures, said} = await opened;
  const made = new (pictures.plate.clip.isShot ? Shot : Answers)(engines, pictures);
  await made.open();
  notices = said;
  return made;
})();

async function send(name, body, signal) {
  const work = (await answers).to(name, body);
  if (!signal) return work;
  return Promise.race([work, new Promise((_, reject) => {
    signal.addEventListener('abort', () => reject(signal.reason), {once: true});
  })]);
}

export const ask = async (name, body, signal) => name === 'state' ? (await answers).state(notices) : send(name, body, signal);
export const askText = (name, body) => send(name, body);
export const askBlob = (name) => send(name);

/** A frame of the plate as a small ImageData. */
export async function askThumbnail(frame) {
  const {width, height, pixels} = await (await answers).small(frame);
  return new ImageData(new Uint8ClampedArray(pixels.buffer), width, height);
}

/** A picture: its header's members, `bands` of it from the top as ImageData, and `pixels`, all of it as one. */
class Picture {
  #joined = null;
  #back;

  constructor(header, bands, back) {
    Object.assign(this, header);
    this.#back = back;
    this.bands = bands.map((pixels) => new ImageData(new Uint8ClampedArray(pixels.buffer), header.width));
  }

  get pixels() {
    if (this.bands.length === 1) return this.bands[0];
    if (!this.#joined) {
      this.#joined = new ImageData(this.width, this.height);
      this.bands.reduce((at, {data}) => { this.#joined.data.set(data, at); return at + data.length; }, 0);
    }
    return this.#joined;
  }

  /** Nobody looks at the picture any more. */
  release() { this.#back(this.bands.map(({data}) => data)); }
}

/** A picture without transparency. */
export async function askPicture(body, signal) {
  const start = performance.now();
  const {bands, ...header} = await send('picture', body, signal);
  const by = await answers;
  return new Picture({...header, milliseconds: performance.now() - start}, bands, (done) => by.giveBack(done));
}
