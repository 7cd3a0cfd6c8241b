// SPDX-License-Identifier: BSD-3-Clause
//
// Stands where the page has the module that talks to its server: the same functions, answered by
// engines in workers. Nothing leaves the browser.
import {Answers} from './answers.js';
import {opened} from './open.js';
import {Shot} from './shot.js';
import {callsOf, Refusal} from './workers.js';

export {Refusal};

// More engines than this hold more copies of the pictures than they save time.
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

/** A picture: its header's members and `pixels`, an ImageData without transparency. */
export async function askPicture(body, signal) {
  const start = performance.now();
  const {pixels, ...header} = await send('picture', body, signal);
  header.milliseconds = performance.now() - start;
  header.pixels = new ImageData(new Uint8ClampedArray(pixels.buffer), header.width, header.height);
  return header;
}
