// SPDX-License-Identifier: BSD-3-Clause
//
// Matroska and WebM (RFC 9559): where the frames of the first video track are. Lacing, encryption and
// compression of packets are refused; alpha beside a picture is left out, and that is told.
import {coloursOf, matrixNames, ofAv1, ofAvc, ofHevc, ofVp9} from './codecs.js';
import {damaged} from './window.js';

const mostFrames = 2 ** 21;
const mostElements = 2 ** 23;
const mostHeader = 2 ** 20;  // bytes of tracks and the like
const refuse = (what) => { throw new Error(`a movie with ${what}: orvanite reads it`); };
const id = {
  header: 0x1a45dfa3, segment: 0x18538067, info: 0x1549a966, scale: 0x2ad7b1, tracks: 0x1654ae6b, track: 0xae,
  number: 0xd7, type: 0x83, codec: 0x86, record: 0x63a2, duration: 0x23e383, video: 0xe0, height: 0xba, interlaced: 0x9a, alpha: 0x53c0, colour: 0x55b0, matrix: 0x55b1, range: 0x55b9,
  encodings: 0x6d80, cluster: 0x1f43b675, time: 0xe7, block: 0xa3, group: 0xa0, inner: 0xa1, refers: 0xfb,
};

/** Whether these bytes begin as such a file does. */
export const isMatroska = (bytes) => [0x1a, 0x45, 0xdf, 0xa3].every((byte, i) => bytes[i] === byte);

/** A number whose first byte says its length; with its marking bit where `whole` says so. */
function numberAt(bytes, at, whole) {
  const length = Math.clz32(bytes[at]) - 23;
  if (!(length <= (whole ? 4 : 8)) || at + length > bytes.length) return null;
  let value = whole ? bytes[at] : bytes[at] & 255 >> length;
  let unknown = value === 255 >> length;
  for (let i = 1; i < length; ++i) {
    value = value * 256 + bytes[at + i];
    unknown &&= bytes[at + i] === 255;
  }
  return {value: unknown && !whole ? Infinity : value, length};
}

function elementAt(bytes, at) {
  const name = numberAt(bytes, at, true);
  const size = name && numberAt(bytes, at + name.length, false);
  return size && {name: name.value, from: at + name.length + size.length, size: size.value};
}

/** The elements of a part that is in memory: [name, bytes] each. */
function* elementsOf(bytes) {
  for (let at = 0; at < bytes.length;) {
    const element = elementAt(bytes, at);
    if (!element || element.from + element.size > bytes.length) damaged();
    yield [element.name, bytes.subarray(element.from, element.from + element.size)];
    at = element.from + element.size;
  }
}

const wholeOf = (bytes) => bytes.reduce((sum, byte) => sum * 256 + byte, 0);

function trackOf(bytes) {
  const track = {};
  for (const [name, data] of elementsOf(bytes)) {
    if (name === id.number) track.number = wholeOf(data);
    if (name === id.type) track.isVideo = wholeOf(data) === 1;
    if (name === id.codec) track.codec = new TextDecoder().decode(data).replace(/\0.*/s, '');
    if (name === id.record) track.record = data.slice();
    if (name === id.duration) track.rate = 1e9 / wholeOf(data);
    if (name === id.encodings) track.encoded = true;
    if (name !== id.video) continue;
    for (const [inner, value] of elementsOf(data)) {
      if (inner === id.interlaced) track.interlaced = wholeOf(value) === 1;
      if (inner === id.alpha) track.alpha = wholeOf(value) === 1;
      if (inner === id.height) track.height = wholeOf(value);
      if (inner !== id.colour) continue;
      for (const [part, number] of elementsOf(value)) {
        if (part === id.matrix) track.matrix = matrixNames[wholeOf(number)];
        if (part === id.range) track.fullRange = wholeOf(number) === 2;
      }
    }
  }
  return track;
}

/** The frames of a track, found by walking over the file. */
class Walk {
  constructor(bytes) {
    this.bytes = bytes;
    this.scale = 1e6;
    this.track = null;
    this.samples = {at: [], size: [], time: [], key: [], shown: []};
    this.cut = false;
  }

  /** start: its first bytes */
  block(start, from, size, key) {
    const {track, samples} = this;
    const number = numberAt(start, 0, false);
    if (!track || number?.value !== track.number) return;
    const flags = start[number.length + 2];
    if (flags & 6) refuse('laced frames');
    const head = number.length + 3;
    if (head > size) damaged();
    const shown = track.codec !== 'V_VP8' || start[head] & 16;  // others hide frames inside of packets
    const after = start[number.length] << 24 >> 16 | start[number.length + 1];
    samples.at.push(from + head);
    samples.size.push(size - head);
    samples.time.push((this.time + after) * this.scale / 1e9);
    samples.key.push(key ?? (flags & 128 ? 1 : 0));
    samples.shown.push(shown ? 1 : 0);
    if (samples.at.length > mostFrames) throw new Error('more frames than a page can hold');
  }

  async header(element, end) {
    if (end - element.from > mostHeader) damaged();
    const data = await this.bytes.read(element.from, end - element.from);
    for (const [name, inner] of elementsOf(data)) {
      if (name === id.scale) this.scale = wholeOf(inner) || damaged();
      if (name !== id.track || this.track) continue;
      const track = trackOf(inner);
      if (track.isVideo) this.track = track;
    }
  }

  async run() {
    const {bytes} = this;
    const head = 32;  // of an element and of a block in it
    let group = null;  // a block of which is not known yet whether it is a key frame
    const endGroup = (at) => {
      if (!group || at < group.end) return;
      if (group.block) this.block(...group.block, group.refers ? 0 : 1);
      group = null;
    };
    for (let at = 0, count = 0; at < bytes.size; ++count) {
      if (count > mostElements) damaged();
      endGroup(at);
      if (!bytes.holds(at, head)) await bytes.reach(at, head);
      const element = elementAt(bytes.bytes, at - bytes.from);
      if (!element) { if (bytes.size - at > 12) damaged(); this.cut = true; break; }
      element.from += bytes.from;
      const {name, from, size} = element;
      const end = from + size;
      if (count === 0 && name !== id.header) damaged();
      if (name === id.segment || name === id.cluster) { at = from; continue; }
      if (end > bytes.size) { this.cut = true; break; }
      if (name === id.info || name === id.tracks) await this.header(element, end);
      if (name === id.time) {
        if (size > 8) damaged();
        this.time = wholeOf(bytes.bytes.subarray(from - bytes.from, end - bytes.from));
      }
      const block = [bytes.bytes.slice(from - bytes.from, from - bytes.from + 16), from, size];
      if (name === id.block) this.block(...block);
      if (name === id.group) { group = {end}; at = from; continue; }
      if (group && name === id.inner) group.block = block;
      if (group && name === id.refers) group.refers = true;
      at = end;
    }
    if (!this.cut) endGroup(Infinity);
    if (!this.track) throw new Error('there is no video in it');
    return this;
  }
}

/** What a decoder needs of the file: {codec, description, height, colour, turn, rate, samples, ...}, samples as Movie has them. */
export async function readMatroska(bytes) {
  const {track, samples, cut} = await new Walk(bytes).run();
  const {codec: name = '', record = new Uint8Array(0)} = track;
  if (track.encoded) refuse('compressed or encrypted packets');
  if (track.interlaced) refuse('fields');
  const first = samples.at.length > 0 ? await bytes.read(samples.at[0], 16) : new Uint8Array(0);
  const made = {
    V_VP8: () => ['vp8'], V_VP9: () => [ofVp9(first)[0]], V_AV1: () => [ofAv1(record)],
    'V_MPEG4/ISO/AVC': () => [ofAvc(record), record], 'V_MPEGH/ISO/HEVC': () => [ofHevc(record), record],
  }[name];
  if (!made) refuse(`the codec ${/^[\w/.-]{1,40}$/.test(name) ? name : 'of an odd name'}`);
  if (samples.at.length === 0) throw new Error('the file ends before its movie');
  const [codec, description] = made();
  if (!codec) damaged();
  const {height = 0, matrix = name === 'V_VP9' ? ofVp9(first)[1] : undefined, fullRange = false} = track;
  return {codec, description, height, colour: coloursOf(name === 'V_MPEG4/ISO/AVC' && record, {matrix, fullRange}), turn: 0, rate: track.rate ?? 0, cut, leavesAlpha: Boolean(track.alpha), samples};
}
