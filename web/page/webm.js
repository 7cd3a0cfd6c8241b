// SPDX-License-Identifier: BSD-3-Clause
//
// WebM (RFC 9559) of one video track whose frames have their own times, with alpha beside them: a second
// stream of the same codec, each of its packets beside its picture's (BlockAdditional 1).
import {joined} from './zip.js';

const millisecond = 1e6;    // the scale of times, in nanoseconds
const clusterTime = 30000;  // blocks count from their cluster's time in 16 bits

function idBytes(name) {
  const bytes = [];
  for (; name > 0; name = Math.floor(name / 256)) bytes.unshift(name % 256);
  return Uint8Array.from(bytes);
}

// A size in eight bytes, which can be written again when it is known.
function sizeBytes(size) {
  const view = new DataView(new ArrayBuffer(8));
  view.setUint32(0, 0x01000000 + Math.floor(size / 2 ** 32));
  view.setUint32(4, size % 2 ** 32);
  return new Uint8Array(view.buffer);
}

const element = (name, ...parts) => {
  const data = joined(...parts);
  return joined(idBytes(name), sizeBytes(data.length), data);
};
const whole = (name, value) => element(name, value < 256 ? Uint8Array.of(value) : sizeBytes(value).map((byte, i) => (i === 0 ? 0 : byte)));
const text = (name, letters) => element(name, new TextEncoder().encode(letters));
const float = (name, value) => {
  const view = new DataView(new ArrayBuffer(8));
  view.setFloat64(0, value);
  return element(name, new Uint8Array(view.buffer));
};

const id = {
  header: 0x1a45dfa3, segment: 0x18538067, seek: 0x114d9b74, info: 0x1549a966, tracks: 0x1654ae6b, cluster: 0x1f43b675, cues: 0x1c53bb6b,
};

export class WebmFile {
  /** sink {write(bytes), patch(at, bytes)}; seconds  that all frames together are shown */
  constructor(sink, {width, height, alpha, seconds, matrix}) {
    Object.assign(this, {sink, width, height, alpha, seconds, matrix});
    this.at = 0;
    this.cues = [];
    this.cluster = null;  // {time, blocks}
  }

  async put(bytes) {
    await this.sink.write(bytes);
    this.at += bytes.length;
  }

  /** Where the list of key frames is written later stands in the head. */
  seekHead(cues) {
    const place = (name, at) => element(0x4dbb, element(0x53ab, idBytes(name)), element(0x53ac, sizeBytes(at).map((byte, i) => (i === 0 ? 0 : byte))));
    return element(id.seek, place(id.cues, cues));
  }

  async begin() {
    await this.put(element(id.header, whole(0x4286, 1), whole(0x42f7, 1), whole(0x42f2, 4), whole(0x42f3, 8), text(0x4282, 'webm'), whole(0x4287, 4), whole(0x4285, 2)));
    await this.put(joined(idBytes(id.segment), sizeBytes(2 ** 56 - 1)));  // not known yet
    this.start = this.at;
    const colour = element(0x55b0, whole(0x55b1, this.matrix), whole(0x55b9, 1));
    const video = element(0xe0, whole(0xb0, this.width), whole(0xba, this.height), ...(this.alpha ? [whole(0x53c0, 1)] : []), colour);
    await this.put(this.seekHead(0));
    await this.put(element(id.info, whole(0x2ad7b1, millisecond), float(0x4489, this.seconds * 1000), text(0x4d80, 'Orvanite'), text(0x5741, 'Orvanite')));
    await this.put(element(id.tracks, element(0xae, whole(0xd7, 1), whole(0x73c5, 1), whole(0x83, 1), whole(0x9c, 0), text(0x86, 'V_VP9'),
      ...(this.alpha ? [whole(0x55ee, 1)] : []), video)));
  }

  /** Adds a frame: packets of its colours and, where there is one, of its alpha. Its time and length in seconds. */
  async add({time, length, key, colours, alpha}) {
    const at = Math.round(time * 1000);
    if (!this.cluster || (key && this.cluster.blocks.length > 0) || at - this.cluster.time > clusterTime) {
      await this.endCluster();
      this.cluster = {time: at, blocks: [], key};
    }
    const block = element(0xa1, Uint8Array.of(0x81, at - this.cluster.time >> 8 & 255, at - this.cluster.time & 255, 0), colours);
    this.cluster.blocks.push(element(0xa0, block, whole(0x9b, Math.max(1, Math.round((time + length) * 1000) - at)),
      ...(alpha ? [element(0x75a1, element(0xa6, whole(0xee, 1), element(0xa5, alpha)))] : []),
      ...(key ? [] : [element(0xfb, Uint8Array.of(255))])));
  }

  async endCluster() {
    if (!this.cluster) return;
    const {time, blocks, key} = this.cluster;
    if (key) this.cues.push(element(0xbb, whole(0xb3, time), element(0xb7, whole(0xf7, 1), whole(0xf1, this.at - this.start))));
    await this.put(element(id.cluster, whole(0xe7, time), ...blocks));
    this.cluster = null;
  }

  /** Writes the rest, and what was not known at the start. */
  async end() {
    await this.endCluster();
    const cues = this.at - this.start;
    await this.put(element(id.cues, ...this.cues));
    await this.sink.patch(this.start, this.seekHead(cues));
    await this.sink.patch(this.start - 8, sizeBytes(this.at - this.start));
  }
}
