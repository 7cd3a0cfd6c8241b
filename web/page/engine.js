// SPDX-License-Identifier: BSD-3-Clause
//
// The compiled engine in a page's worker or in node: pictures go in by what they are for, questions
// as objects, answers come out as objects and pixels.

import {system} from './system.js';

export const roles = ['plate', 'background', 'holdOut', 'garbage', 'cleanPlate'];

/** What was refused; `subject` names the parameter or picture. */
export class Refused extends Error {
  constructor({subject, message}) {
    super(message);
    this.subject = subject;
  }
}

export class Engine {
  /** Of a compiled WebAssembly module. */
  static async of(module) {
    const engine = new Engine();
    const imports = {wasi_snapshot_preview1: system(() => engine.exports.memory)};
    engine.exports = (await WebAssembly.instantiate(module, imports)).exports;
    engine.exports._initialize();
    return engine;
  }

  room(bytes) {
    const at = this.exports.orvanite_webRoom(Math.max(1, bytes.length));
    if (at === 0) throw new Refused({subject: 'memory', message: 'there is not enough for this picture'});
    new Uint8Array(this.exports.memory.buffer).set(bytes, at);
    return at;
  }

  said(at) {
    const bytes = new Uint8Array(this.exports.memory.buffer, at);
    const text = new TextDecoder().decode(bytes.subarray(0, bytes.indexOf(0)));
    const answer = JSON.parse(text);
    if (answer?.error) throw new Refused(answer.error);
    return answer;
  }

  /**
   * Takes a picture, {width, height, depth, hasAlpha, pixels}, RGBA samples of `depth` bytes, or
   * null to let one go. A new plate lets go of all others, but for a frame of the same shot, which has a number.
   */
  take(role, picture, frame = null) {
    const {width = 0, height = 0, depth = 1, hasAlpha = false, pixels} = picture ?? {};
    const at = this.room(pixels ? new Uint8Array(pixels.buffer, pixels.byteOffset, pixels.byteLength) : new Uint8Array(0));
    try {
      this.said(this.exports.orvanite_webTake(roles.indexOf(role), width, height, depth, hasAlpha ? 1 : 0, at, frame === null ? 0 : 1, frame ?? 1));
    } finally {
      this.exports.orvanite_webFree(at);
    }
  }

  ask(name, body = {}) {
    const encoder = new TextEncoder();
    const texts = [name, JSON.stringify(body)].map((text) => this.room(encoder.encode(text + '\0')));
    try {
      return this.said(this.exports.orvanite_webAsk(...texts));
    } finally {
      texts.forEach((at) => this.exports.orvanite_webFree(at));
    }
  }

  /** A copy of the pixels that the last answer speaks of. */
  pixels(bytes) {
    return new Uint8Array(this.exports.memory.buffer, this.exports.orvanite_webPixels(), bytes).slice();
  }

  /** A view as a screen shows it, as renders ask for it: the answer with `pixels`, opaque RGBA. */
  show(request) {
    const header = this.ask('show', request);
    header.pixels = this.pixels(4 * header.width * header.height);
    return header;
  }

  /** A window of a view at the pictures' own depth. */
  key(settings, view, window) {
    const header = this.ask('key', {settings, view, window});
    const bytes = this.pixels(4 * header.width * header.height * header.depth);
    header.pixels = header.depth === 4 ? new Float32Array(bytes.buffer) : header.depth === 2 ? new Uint16Array(bytes.buffer) : bytes;
    return header;
  }
}
