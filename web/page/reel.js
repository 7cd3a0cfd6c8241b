// SPDX-License-Identifier: BSD-3-Clause
//
// The frames of a movie by the browser's decoder: any one exactly, from the key frame before it or
// onwards from the last one, which is how a shot is played. The last ones are kept.
import {layoutOf, pictureOf, turned, usualMatrix} from './planes.js';

const keptBytes = 2 ** 28;
const mostWaiting = 8;      // packets that a decoder holds undecoded
const mostPixels = 2 ** 26;
const framesBack = 8;       // that are kept on the way to one, where one steps back
const patience = 20000;     // milliseconds without a sign of the decoder
const unit = 1000;          // of a frame's number, which takes the place of its time

/** Colours by the decoder's own conversion: of what has no planes to be read. */
async function byBrowser(frame, width, height) {
  const pixels = new Uint8Array(4 * width * height);
  try {
    await frame.copyTo(pixels, {format: 'RGBA', colorSpace: 'srgb'});
  } catch {
    const context = new OffscreenCanvas(width, height).getContext('2d', {willReadFrequently: true});
    context.drawImage(frame, 0, 0, width, height);
    pixels.set(context.getImageData(0, 0, width, height).data);
  }
  return {width, height, depth: 1, hasAlpha: false, pixels};
}

/** A decoded frame as a picture, {width, height, depth, hasAlpha, pixels}. */
export async function pictureIn(frame) {
  const {width, height} = frame.visibleRect;
  if (width * height > mostPixels) throw new Error('more pixels than a page can hold');
  const layout = layoutOf(frame.format);
  const {matrix, fullRange} = frame.colorSpace;
  if (!layout || matrix === 'rgb') return byBrowser(frame, width, height);
  const bytes = new Uint8Array(frame.allocationSize());
  const places = await frame.copyTo(bytes);
  const planes = layout.bytes === 2 ? new Uint16Array(bytes.buffer) : bytes;
  return pictureOf(layout, width, height, planes, places.map(({offset, stride}) => ({offset: offset / layout.bytes, stride: stride / layout.bytes})), {matrix, fullRange});
}

export class Reel {
  /** Decoder and Chunk are the browser's VideoDecoder and EncodedVideoChunk. Throws an Error where it decodes no such movie. */
  static async of(movie, Decoder = globalThis.VideoDecoder, Chunk = globalThis.EncodedVideoChunk) {
    if (!Decoder) throw new Error('this browser decodes no movies for a page: one with WebCodecs does, and orvanite');
    const {codec, description, height, colour} = movie;
    const matrix = colour.matrix ?? (codec.startsWith('av01') ? undefined : usualMatrix(height));
    const near = matrix === 'bt2020-ncl' ? 'bt2020' : matrix === 'bt709' ? 'bt709' : 'smpte170m';
    const colorSpace = matrix && {matrix, fullRange: colour.fullRange, primaries: near, transfer: near === 'bt2020' ? 'bt709' : near};
    const config = {codec, ...(description && {description}), ...(colorSpace && {colorSpace}), hardwareAcceleration: 'prefer-software', optimizeForLatency: true};
    for (const one of [config, {...config, hardwareAcceleration: 'no-preference'}]) {
      if ((await Decoder.isConfigSupported(one).catch(() => ({}))).supported) return new Reel(movie, one, Decoder, Chunk);
    }
    throw new Error(`this browser does not decode ${codec}: orvanite does`);
  }

  constructor(movie, config, Decoder, Chunk) {
    Object.assign(this, {movie, config, Decoder, Chunk});
    this.kept = new Map();  // pictures by frame, the one that was asked for last at the end
    this.bytes = 0;
    this.mostKept = keptBytes;
    this.last = Promise.resolve();
    this.wanted = -1;
    this.close();
  }

  /** Frame i, counted from 0. Throws an Error when it is broken. */
  picture(i) {
    const found = this.last.then(() => this.find(i));
    this.last = found.catch(() => {});
    return found;
  }

  async find(i) {
    const back = i < this.wanted;
    this.wanted = i;
    if (!this.kept.has(i)) await this.decodeTo(i, back ? i - framesBack : i);
    const picture = this.kept.get(i);
    this.kept.delete(i);
    this.kept.set(i, picture);
    return picture;
  }

  keep(i, picture) {
    if (this.kept.has(i)) return;
    this.kept.set(i, picture);
    this.bytes += picture.pixels.byteLength;
    for (const [old, {pixels}] of this.kept) {
      if (this.bytes <= this.mostKept || this.kept.size <= 2) break;
      if (old === i || old === this.wanted) continue;
      this.kept.delete(old);
      this.bytes -= pixels.byteLength;
    }
  }

  /** Lets go of the decoder and of what it holds. */
  close() {
    if (this.decoder && this.decoder.state !== 'closed') this.decoder.close();
    for (const frame of this.arrived ?? []) frame.close();
    this.decoder = null;
    this.arrived = [];
    this.problem = null;
    this.out = -1;  // the last frame that was taken
    this.emptied = false;
  }

  begin(key) {
    this.close();
    const decoder = this.decoder = new this.Decoder({
      output: (frame) => { if (decoder === this.decoder) { this.arrived.push(frame); this.tell?.(); } else frame.close(); },
      error: (error) => { if (decoder === this.decoder) { this.problem = error; this.tell?.(); } },
    });
    decoder.ondequeue = () => this.tell?.();
    decoder.configure(this.config);
    this.next = key;
  }

  /** Something of the decoder, unless that takes too long. */
  async inTime(promise) {
    let timer;
    const late = new Promise((_, failed) => { timer = setTimeout(() => failed(new Error('the decoder does not answer')), patience); });
    return Promise.race([promise, late]).finally(() => clearTimeout(timer));
  }

  // Something came, went or broke.
  news() { return this.inTime(new Promise((done) => { this.tell = done; })); }

  // Frames from `least` on are worth keeping.
  async decodeTo(i, least) {
    const {movie} = this;
    const key = movie.keyFor(i);
    if (!this.decoder || i <= this.out || key > this.next) this.begin(key);
    try {
      while (!await this.takeTo(i, least)) {
        if (this.next >= movie.packets) {
          if (this.emptied) throw new Error('it does not come out of the decoder');
          this.emptied = true;
          await this.inTime(this.decoder.flush());
          continue;
        }
        if (this.decoder.decodeQueueSize >= mostWaiting) { await this.news(); continue; }
        const {samples, places} = movie;
        const data = await movie.packet(this.next);
        const timestamp = places[this.next] >= 0 ? places[this.next] * unit : -1;
        if (!this.problem) this.decoder.decode(new this.Chunk({type: samples.key[this.next] ? 'key' : 'delta', timestamp, data}));
        ++this.next;
      }
    } catch (error) {
      this.close();
      throw new Error(`frame ${i + 1} cannot be decoded: ${error.message}`);
    }
  }

  // Takes what came up to frame i; whether that was among it. What comes after it waits there.
  async takeTo(i, least) {
    let found = this.kept.has(i);
    while (!found && this.arrived.length > 0) {
      const frame = this.arrived.shift();
      try {
        const index = frame.timestamp / unit;
        if (index < 0) continue;
        this.out = Math.max(this.out, index);
        if (index >= least) this.keep(index, turned(await pictureIn(frame), this.movie.turn));
        found ||= index === i;
      } finally {
        frame.close();
      }
    }
    if (this.problem && !found) throw this.problem;
    if (this.out > i && !found) throw new Error('it does not come out of the decoder');
    return found;
  }
}
