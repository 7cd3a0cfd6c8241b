// SPDX-License-Identifier: BSD-3-Clause
//
// A movie's frames by their numbers: which packets of the file they are, in which order they are
// shown, and from which key frame decoding reaches them.
import {isIso, readIso} from './iso.js';
import {isMatroska, readMatroska} from './matroska.js';
import {FileWindow} from './window.js';

const mostPacket = 2 ** 26;  // bytes

/** Whether these first bytes, some tens of them, are a movie's. */
export const isMovie = (bytes) => isIso(bytes) ? !isPicture(bytes) : isMatroska(bytes);

// AVIF and HEIF are boxes, too.
const isPicture = (bytes) => /^ftyp(avif|avis|heic|heix|mif1|msf1)/.test(String.fromCharCode(...bytes.subarray(4, 12)));

/** The rate at which people number frames that stand this far from one another, in seconds. */
function rateOf(times, stated) {
  const span = times.at(-1) - times[0];
  const measured = span > 0 ? (times.length - 1) / span : 0;
  if (stated > 0 && (!measured || Math.abs(stated / measured - 1) < 0.05)) return stated;
  return measured || 25;
}

export class Movie {
  /**
   * samples  of the packets in the order of decoding: at, size (bytes in the file), time (seconds),
   *          key, shown (0 for what is decoded alone)
   * height, colour  by the container: lines; {matrix, fullRange}, without a matrix where it says none
   */
  constructor(file, {codec, description, height, colour, turn, rate, samples, cut = false, leavesAlpha = false}) {
    const whole = samples.at.findIndex((at, i) => at + samples.size[i] > file.size);
    const count = whole < 0 ? samples.at.length : whole;
    Object.assign(this, {file, codec, description, height, colour, turn, samples, packets: count, cut: cut || whole >= 0, leavesAlpha});
    /** Packets in the order in which they are shown: frame i is frames[i]. */
    this.frames = [...Array(count).keys()].filter((i) => samples.shown[i]).sort((a, b) => samples.time[a] - samples.time[b] || a - b);
    if (this.frames.length === 0) throw new Error('the file ends before its movie');
    /** Of each packet: which frame it is, or -1. */
    this.places = new Int32Array(count).fill(-1);
    this.frames.forEach((packet, i) => { this.places[packet] = i; });
    this.times = this.frames.map((packet) => samples.time[packet]);
    this.rate = rateOf(this.times, rate);
    // Before each packet the last key frame, counting itself.
    this.keys = new Int32Array(count);
    for (let i = 0, last = -1; i < count; ++i) this.keys[i] = last = samples.key[i] ? i : last;
  }

  /** Of a file. Throws an Error that says why not. */
  static async of(file) {
    const bytes = new FileWindow(file);
    await bytes.reach(0, 12);
    return new Movie(file, await (isMatroska(bytes.bytes) ? readMatroska(bytes) : readIso(bytes)));
  }

  /** Whether frames stand evenly, none half a frame from where its number puts it. */
  get even() {
    const start = this.times[0];
    return this.times.every((time, i) => Math.abs((time - start) * this.rate - i) < 0.5);
  }

  /** The key frame from which decoding reaches a frame: what it may build upon is shown before it. */
  keyFor(frame) {
    const {keys, places, samples} = this;
    const shownAt = (packet) => places[packet] < 0 ? samples.time[packet] <= this.times[frame] : places[packet] <= frame;
    let key = keys[this.frames[frame]];
    while (key > 0 && !shownAt(key)) key = keys[key - 1];
    return Math.max(key, 0);
  }

  /** A packet's bytes. */
  async packet(i) {
    const {at, size} = this.samples;
    if (size[i] > mostPacket) throw new Error('the file is damaged');
    return new Uint8Array(await this.file.slice(at[i], at[i] + size[i]).arrayBuffer());
  }
}
