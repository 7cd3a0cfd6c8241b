// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures as a WebM movie by the browser's encoder: VP9, their alpha as a second stream beside it, since
// encoders take none. 8 bits, chroma halved.
import {usualMatrix} from './planes.js';
import {WebmFile} from './webm.js';

const quantizer = 18;       // of 0 to 63, where the encoder takes one: what the command's --quality usually is
const bitsPerPixel = 0.4;   // else
const keyEvery = 48;        // frames
const mostWaiting = 3;
const patience = 60000;     // milliseconds
const matrices = {bt709: {number: 1, kr: 0.2126, kb: 0.0722}, smpte170m: {number: 6, kr: 0.299, kb: 0.114}};

/** How a movie of a size is encoded here; null where it cannot be. */
export async function encodingOf(width, height, rate, Encoder = globalThis.VideoEncoder) {
  if (!Encoder) return null;
  const config = {codec: 'vp09.00.51.08', width, height, framerate: rate, latencyMode: 'quality'};
  for (const one of [{...config, bitrateMode: 'quantizer'}, {...config, bitrate: Math.ceil(width * height * rate * bitsPerPixel)}]) {
    if ((await Encoder.isConfigSupported(one).catch(() => ({}))).supported) return one;
  }
  return null;
}

/** Luma and chroma in video range of an RGBA picture of 8 or 16 bits: I420. */
export function planesOf({width, height, depth, pixels}, matrix) {
  const {kr, kb} = matrices[matrix];
  const kg = 1 - kr - kb;
  const [w, h] = [Math.ceil(width / 2), Math.ceil(height / 2)];
  const planes = new Uint8Array(width * height + 2 * w * h);
  const most = depth === 2 ? 65535 : 255;
  const [blue, red] = [new Float32Array(width * height), new Float32Array(width * height)];
  for (let i = 0, from = 0; i < width * height; ++i, from += 4) {
    const [r, b] = [pixels[from] / most, pixels[from + 2] / most];
    const luma = kr * r + kg * pixels[from + 1] / most + kb * b;
    planes[i] = 16.5 + 219 * luma;
    blue[i] = (b - luma) / (2 - 2 * kb);
    red[i] = (r - luma) / (2 - 2 * kr);
  }
  // Chroma stands at every other column, between two rows.
  for (let y = 0, to = width * height; y < h; ++y) {
    for (let x = 0; x < w; ++x, ++to) {
      const sums = [0, 0];
      for (const row of [2 * y, Math.min(2 * y + 1, height - 1)]) {
        for (const [column, weight] of [[Math.max(0, 2 * x - 1), 1], [2 * x, 2], [Math.min(2 * x + 1, width - 1), 1]]) {
          sums[0] += weight * blue[row * width + column];
          sums[1] += weight * red[row * width + column];
        }
      }
      planes[to] = 128.5 + 224 * sums[0] / 8;
      planes[to + w * h] = 128.5 + 224 * sums[1] / 8;
    }
  }
  return planes;
}

/** A picture's alpha as luma, and no chroma. */
export function alphaPlanes({width, height, depth, pixels}) {
  const planes = new Uint8Array(width * height + 2 * Math.ceil(width / 2) * Math.ceil(height / 2)).fill(128);
  for (let i = 0; i < width * height; ++i) planes[i] = depth === 2 ? (pixels[4 * i + 3] + 128) / 257 : pixels[4 * i + 3];
  return planes;
}

export class Film {
  /**
   * sink    where it goes
   * times   of the frames, in seconds; the last one is shown as long as the rate says
   * config  by encodingOf
   */
  constructor(sink, config, {times, alpha}, Encoder = globalThis.VideoEncoder, Frame = globalThis.VideoFrame) {
    const {width, height, framerate} = config;
    const matrix = usualMatrix(height);
    Object.assign(this, {config, Frame, matrix, alpha});
    const ends = [...times.slice(1), times.at(-1) + 1 / framerate];
    this.spans = times.map((time, i) => ({time: time - times[0], length: ends[i] - time}));
    this.file = new WebmFile(sink, {width, height, alpha, seconds: ends.at(-1) - times[0], matrix: matrices[matrix].number});
    // Of frames to come, by the time that encoders are told: {key, colours, alpha}.
    this.packets = new Map();
    this.written = 0;
    this.given = 0;
    this.problem = null;
    this.encoders = (alpha ? ['colours', 'alpha'] : ['colours']).map((part) => {
      const encoder = new Encoder({
        output: (chunk) => {
          const data = new Uint8Array(chunk.byteLength);
          chunk.copyTo(data);
          const packet = this.packets.get(chunk.timestamp) ?? {};
          this.packets.set(chunk.timestamp, {...packet, [part]: data, ...(part === 'colours' && {key: chunk.type === 'key'})});
        },
        error: (error) => { this.problem = error; },
      });
      encoder.configure(config);
      return encoder;
    });
  }

  /** Microseconds; no two frames have the same. */
  stamp(i) { return Math.round(1e6 * (this.spans[i]?.time ?? 0)) + i; }

  /** What came of both, in order. */
  async drain() {
    if (this.problem) throw this.problem;
    for (;;) {
      const packet = this.packets.get(this.stamp(this.written));
      if (!packet?.colours || (this.alpha && !packet.alpha)) return;
      this.packets.delete(this.stamp(this.written));
      await this.file.add({...this.spans[this.written++], ...packet});
    }
  }

  /** Adds a frame's picture. */
  async add(picture) {
    if (this.given === 0) await this.file.begin();
    const {width, height} = this.config;
    const key = this.given % keyEvery === 0;
    this.encoders.forEach((encoder, i) => {
      const near = this.matrix;
      const frame = new this.Frame(i === 0 ? planesOf(picture, this.matrix) : alphaPlanes(picture), {
        format: 'I420', codedWidth: width, codedHeight: height, timestamp: this.stamp(this.given),
        colorSpace: {matrix: near, primaries: near, transfer: near, fullRange: false},
      });
      encoder.encode(frame, {keyFrame: key, ...(this.config.bitrateMode && {vp9: {quantizer}})});
      frame.close();
    });
    ++this.given;
    const late = performance.now() + patience;
    while (this.encoders.some((encoder) => encoder.encodeQueueSize > mostWaiting)) {
      if (performance.now() > late) throw new Error('the encoder does not answer');
      await new Promise((done) => setTimeout(done, 4));
      if (this.problem) throw this.problem;
    }
    await this.drain();
  }

  async end() {
    await Promise.all(this.encoders.map((encoder) => encoder.flush()));
    await this.drain();
    if (this.written !== this.given) throw new Error('the encoder left out frames');
    this.close();
    await this.file.end();
  }

  close() { for (const encoder of this.encoders) if (encoder.state !== 'closed') encoder.close(); }
}
