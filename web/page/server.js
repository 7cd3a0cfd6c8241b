// SPDX-License-Identifier: BSD-3-Clause
//
// Stands where the page has the module that talks to its server: the same functions, answered by
// engines in workers. Nothing leaves the browser.
import {Answers, Refusal} from './answers.js';
import {opened} from './open.js';

export {Refusal};

// More engines than this hold more copies of the pictures than they save time.
const mostEngines = 4;

function engineIn(worker) {
  const waiting = new Map();
  let last = 0;
  worker.addEventListener('message', ({data: {id, answer, error}}) => {
    const {resolve, reject} = waiting.get(id);
    waiting.delete(id);
    if (error) reject(new Refusal(400, error.subject, error.message)); else resolve(answer);
  });
  worker.addEventListener('error', () => {
    for (const {reject} of waiting.values()) reject(new Refusal(0, 'server', 'The engine could not be started in this browser.'));
    waiting.clear();
  });
  return (call, ...parts) => new Promise((resolve, reject) => {
    waiting.set(++last, {resolve, reject});
    worker.postMessage({id: last, call, parts});
  });
}

const count = Math.max(1, Math.min(mostEngines, navigator.hardwareConcurrency ?? 1));
const engines = Array.from({length: count}, () => engineIn(new Worker('worker.js', {type: 'module'})));

let notices = [];
const answers = (async () => {
  const {pictures, said} = await opened;
  const made = new Answers(engines, pictures);
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

/** There are no frames here to be small pictures of. */
export const askThumbnail = async () => { throw new Refusal(404, 'address', 'there is nothing here'); };

/** A picture: its header's members and `pixels`, an ImageData without transparency. */
export async function askPicture(body, signal) {
  const start = performance.now();
  const {pixels, ...header} = await send('picture', body, signal);
  header.milliseconds = performance.now() - start;
  header.pixels = new ImageData(new Uint8ClampedArray(pixels.buffer), header.width, header.height);
  return header;
}
