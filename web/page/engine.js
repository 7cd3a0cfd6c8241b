// SPDX-License-Identifier: BSD-3-Clause
//
// The compiled engine in a page's worker or in node: pictures go in by what they are for, questions
// as objects, answers come out as objects and pixels. Pictures stay where they lie, in memory that
// engines may share; an engine copies the rows that it keys into its own.

import {system} from './system.js';

export const roles = ['plate', 'background', 'holdOut', 'garbage', 'cleanPlate'];

/** What was refused; `subject` names the parameter or picture. */
export class Refused extends Error {
  constructor({subject, message}) {
    super(message);
    this.subject = subject;
  }
}

const samplesOf = (bytes, depth) => depth === 4 ? new Float32Array(bytes.buffer) : depth === 2 ? new Uint16Array(bytes.buffer) : bytes;

export class Engine {
  /** Of a compiled WebAssembly module. */
  static async of(module) {
    const engine = new Engine();
    engine.pictures = {};  // their samples as bytes, by role
    const imports = {
      wasi_snapshot_preview1: system(() => engine.exports.memory),
      orvanite: {rows: (role, top, count, to) => engine.handRows(roles[role], top, count, to >>> 0)},
    };
    engine.exports = (await WebAssembly.instantiate(module, imports)).exports;
    engine.exports._initialize();
    return engine;
  }

  room(bytes) {
    const at = this.exports.orvanite_webRoom(Math.max(1, bytes.length)) >>> 0;
    if (at === 0) throw new Refused({subject: 'memory', message: 'there is not enough for this picture'});
    new Uint8Array(this.exports.memory.buffer).set(bytes, at);
    return at;
  }

  said(at) {
    const bytes = new Uint8Array(this.exports.memory.buffer, at >>> 0);
    const text = new TextDecoder().decode(bytes.subarray(0, bytes.indexOf(0)));
    const answer = JSON.parse(text);
    if (answer?.error) throw new Refused(answer.error);
    return answer;
  }

  /**
   * Takes a picture, {width, height, depth, hasAlpha, own, pixels}, RGBA samples of `depth` bytes that
   * stay as they are, or null to let one go; `own`, where it is given, is the window that its file
   * holds. A new plate lets go of all others, but for a frame of the same shot, which has a number.
   */
  take(role, picture, frame = null) {
    const {width = 0, height = 0, depth = 1, hasAlpha = false, pixels, own = [0, 0, width, height]} = picture ?? {};
    const stride = 4 * width * depth;
    if (picture && pixels.byteLength !== stride * height) throw new Refused({subject: role, message: 'expected as many samples as its size says'});
    this.said(this.exports.orvanite_webTake(roles.indexOf(role), width, height, depth, hasAlpha ? 1 : 0, frame === null ? 0 : 1, frame ?? 1, ...own));
    if (role === 'plate' && frame === null) this.pictures = {};
    if (picture) this.pictures[role] = {stride, bytes: new Uint8Array(pixels.buffer, pixels.byteOffset, pixels.byteLength)};
    else delete this.pictures[role];
  }

  handRows(role, top, count, to) {
    const {stride, bytes} = this.pictures[role];
    new Uint8Array(this.exports.memory.buffer).set(bytes.subarray(top * stride, (top + count) * stride), to);
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

  /** A copy of the pixels that the last answer speaks of; in `room`, an ArrayBuffer, where it has that size. */
  pixels(bytes, room) {
    const from = new Uint8Array(this.exports.memory.buffer, this.exports.orvanite_webPixels() >>> 0, bytes);
    if (room?.byteLength !== bytes) return from.slice();
    const to = new Uint8Array(room);
    to.set(from);
    return to;
  }

  /** A background's picture over all of a frame {width, height, depth}, as the command fits it. */
  fit(picture, {width, height, depth}) {
    const {pixels, ...rest} = picture;
    const at = this.room(new Uint8Array(pixels.buffer, pixels.byteOffset, pixels.byteLength));
    try {
      this.said(this.exports.orvanite_webFit(at, picture.width, picture.height, picture.depth, width, height, depth));
    } finally {
      this.exports.orvanite_webFree(at);
    }
    return {...rest, width, height, depth, own: undefined, pixels: samplesOf(this.pixels(4 * width * height * depth), depth)};
  }

  /** A view as a screen shows it, as renders ask for it: the answer with `pixels`, opaque RGBA. */
  show(request, room) {
    const header = this.ask('show', request);
    header.pixels = this.pixels(4 * header.width * header.height, room);
    return header;
  }

  /** A window of a view at the pictures' own depth; beyond `within`, where it is given, a finish sees nothing. */
  key(settings, view, window, within) {
    const header = this.ask('key', {settings, view, window, within});
    header.pixels = samplesOf(this.pixels(4 * header.width * header.height * header.depth), header.depth);
    return header;
  }
}
