// SPDX-License-Identifier: BSD-3-Clause
//
// The keyer for whole pictures, orvanite/keyer.h, compiled for WebAssembly. What it refuses becomes
// an exception with its words. Documented in index.d.ts.
import {system} from './system.js';

/** What was refused; `result` is the C interface's: 1 wrong use, 2 failure, 3 no memory. */
export class OrvaniteError extends Error {
  constructor(result, message) {
    super(message);
    this.name = 'OrvaniteError';
    this.result = result;
  }
}

const wrongUse = 1, noMemory = 3;
const depths = [[Uint8Array, 1], [Uint8ClampedArray, 1], [Uint16Array, 2], [Float32Array, 4]];
const types = ['number', 'triple', 'colour', 'choice', 'toggle', 'channel'];
const cleanPlates = ['never', 'ifUseful', 'given'];
// The pictures of an OrvaniteFrame in its order, and the bytes of an OrvaniteImage.
const roles = ['plate', 'background', 'holdOut', 'garbage', 'cleanPlate', 'result'];
const imageBytes = 36;

async function bytesOf(address) {
  if (address.protocol !== 'file:') return (await fetch(address)).arrayBuffer();
  const {readFile} = await import('node:fs/promises');
  return readFile(address);
}

let compiled;
const compile = () => (compiled ??= bytesOf(new URL('./orvanite.wasm', import.meta.url)).then((bytes) => WebAssembly.compile(bytes)));

function checked(picture, role) {
  const {width, height, data} = picture ?? {};
  const depth = depths.find(([kind]) => data instanceof kind)?.[1];
  if (!depth) throw new OrvaniteError(wrongUse, `${role}: expected data of Uint8Array, Uint8ClampedArray, Uint16Array or Float32Array`);
  if (!Number.isInteger(width) || !Number.isInteger(height) || width < 1 || height < 1) {
    throw new OrvaniteError(wrongUse, `${role}: expected a width and a height of at least 1 pixel`);
  }
  const channels = data.length / (width * height);
  if (![1, 3, 4].includes(channels)) {
    throw new OrvaniteError(wrongUse, `${role}: expected ${width}x${height} pixels of 1, 3 or 4 samples, found ${data.length} samples`);
  }
  return {width, height, data, depth, channels};
}

export class Keyer {
  #c;
  #keyer;
  #taken = [];

  static async create(module) {
    const keyer = new Keyer();
    const imports = {wasi_snapshot_preview1: system(() => keyer.#c.memory)};
    keyer.#c = (await WebAssembly.instantiate(module ?? await compile(), imports)).exports;
    keyer.#c._initialize();
    keyer.#keyer = keyer.#c.orvanite_keyerNew();
    if (keyer.#keyer === 0) throw new OrvaniteError(noMemory, 'keyer: out of memory');
    return keyer;
  }

  // Runs a call; the room that it took is given back.
  #during(call) {
    try {
      return call();
    } finally {
      for (const at of this.#taken.splice(0)) this.#c.free(at);
    }
  }
  #room(bytes) {
    const at = this.#c.malloc(Math.max(1, bytes));
    if (at === 0) throw new OrvaniteError(noMemory, 'keyer: out of memory');
    this.#taken.push(at);
    new Uint8Array(this.#c.memory.buffer, at, bytes).fill(0);
    return at;
  }
  #view() { return new DataView(this.#c.memory.buffer); }
  #textIn(text) {
    const bytes = new TextEncoder().encode(`${text}\0`);
    const at = this.#room(bytes.length);
    new Uint8Array(this.#c.memory.buffer).set(bytes, at);
    return at;
  }
  #textOut(at) {
    const bytes = new Uint8Array(this.#c.memory.buffer, at);
    return new TextDecoder().decode(bytes.subarray(0, bytes.indexOf(0)));
  }
  #check(result) {
    if (result !== 0) throw new OrvaniteError(result, this.#textOut(this.#c.orvanite_keyerError(this.#keyer)));
  }
  #given(at) {
    if (at === 0) this.#check(wrongUse);
    return this.#textOut(at);
  }

  #imageAt(at, {width, height, data, depth, channels}) {
    const pixels = this.#room(data.byteLength);
    new Uint8Array(this.#c.memory.buffer).set(new Uint8Array(data.buffer, data.byteOffset, data.byteLength), pixels);
    const view = this.#view();
    [width, height, depth].forEach((value, i) => view.setInt32(at + 4 * i, value, true));
    for (let c = 0; c < channels; ++c) view.setUint32(at + 12 + 4 * c, pixels + c * depth, true);
    view.setInt32(at + 28, channels * depth, true);
    view.setInt32(at + 32, width * channels * depth, true);
    return pixels;
  }
  #plate(picture) {
    const at = this.#room(imageBytes);
    this.#imageAt(at, checked(picture, 'plate'));
    return at;
  }

  get version() { return this.#textOut(this.#c.orvanite_keyerVersion()); }

  get parameters() {
    return this.#during(() => {
      const at = this.#room(64);
      return Array.from({length: this.#c.orvanite_keyerParameters()}, (_, index) => {
        this.#c.orvanite_keyerParameter(index, at);
        const view = this.#view();
        const [name, label, group, help, unit] = [0, 4, 8, 12, 16].map((field) => this.#textOut(view.getUint32(at + field, true)));
        const number = (field) => view.getFloat32(at + field, true);
        const described = {
          name, label, group, help, unit, type: types[view.getInt32(at + 20, true)], values: view.getInt32(at + 24, true),
          softLow: number(28), softHigh: number(32), low: number(36), high: number(40),
          defaults: [number(44), number(48), number(52)], followsTheScreen: view.getInt32(at + 60, true) === 1, choices: [],
        };
        const choices = view.getInt32(at + 56, true);
        for (let i = 0; i < choices; ++i) {
          this.#c.orvanite_keyerChoice(index, i, at);
          const [text, choice, meaning] = [0, 4, 8].map((field) => this.#textOut(this.#view().getUint32(at + field, true)));
          described.choices.push({text, label: choice, help: meaning});
        }
        return described;
      });
    });
  }

  set(name, value) {
    this.#during(() => {
      const at = this.#textIn(name);
      if (typeof value === 'number' || Array.isArray(value)) {
        const numbers = [value].flat();
        const values = this.#room(8 * Math.max(3, numbers.length));
        numbers.forEach((number, i) => this.#view().setFloat64(values + 8 * i, number, true));
        this.#check(this.#c.orvanite_keyerSetNumbers(this.#keyer, at, values, numbers.length));
      } else {
        const text = typeof value === 'boolean' ? (value ? 'on' : 'off') : String(value);
        this.#check(this.#c.orvanite_keyerSetText(this.#keyer, at, this.#textIn(text)));
      }
    });
    return this;
  }
  get(name) {
    return this.#during(() => this.#given(this.#c.orvanite_keyerText(this.#keyer, this.#textIn(name))));
  }
  isGiven(name) {
    return this.#during(() => this.#c.orvanite_keyerGiven(this.#keyer, this.#textIn(name)) === 1);
  }
  reset(name) {
    this.#during(() => this.#check(this.#c.orvanite_keyerReset(this.#keyer, name === undefined ? 0 : this.#textIn(name))));
    return this;
  }
  preset() { return this.#given(this.#c.orvanite_keyerPreset(this.#keyer)); }
  usePreset(text) {
    this.#during(() => this.#check(this.#c.orvanite_keyerUsePreset(this.#keyer, this.#textIn(text))));
    return this;
  }

  findScreen(plate) {
    return this.#during(() => {
      const at = this.#room(24);
      this.#check(this.#c.orvanite_keyerFindScreen(this.#keyer, this.#plate(plate), at));
      const view = this.#view();
      const number = (field) => view.getFloat32(at + field, true);
      return {primary: ['red', 'green', 'blue'][view.getInt32(at, true)], colour: [number(4), number(8), number(12)], coverage: number(16), evenness: number(20)};
    });
  }
  find(plate, cleanPlate = 'ifUseful') {
    if (!cleanPlates.includes(cleanPlate)) {
      throw new OrvaniteError(wrongUse, `cleanPlate: expected ${cleanPlates.join(', ')}, found ${cleanPlate}`);
    }
    return this.#during(() => {
      this.#check(this.#c.orvanite_keyerFind(this.#keyer, this.#plate(plate), cleanPlates.indexOf(cleanPlate)));
      const names = this.#textOut(this.#c.orvanite_keyerFound(this.#keyer));
      return names === '' ? [] : names.split(' ');
    });
  }
  see(plate) {
    return this.#during(() => {
      const steady = this.#room(4);
      this.#check(this.#c.orvanite_keyerSee(this.#keyer, this.#plate(plate), steady));
      return this.#view().getInt32(steady, true) === 1;
    });
  }

  key(pictures) {
    return this.#during(() => {
      const frame = this.#room(imageBytes * roles.length);
      const {width, height, data, depth} = checked(pictures?.plate, 'plate');
      roles.slice(0, -1).forEach((role, i) => {
        if (pictures[role]) this.#imageAt(frame + imageBytes * i, checked(pictures[role], role));
      });
      const result = {width, height, data: new data.constructor(4 * width * height)};
      const at = this.#imageAt(frame + imageBytes * (roles.length - 1), {...result, depth, channels: 4});
      this.#check(this.#c.orvanite_keyerRender(this.#keyer, frame, 1));
      const bytes = new Uint8Array(result.data.buffer);
      bytes.set(new Uint8Array(this.#c.memory.buffer, at, bytes.length));
      return result;
    });
  }

  delete() {
    this.#c.orvanite_keyerDelete(this.#keyer);
    this.#keyer = 0;
  }
}
