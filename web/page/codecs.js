// SPDX-License-Identifier: BSD-3-Clause
//
// What a browser calls a codec, made of the records that containers keep of it.

const two = (number) => String(number).padStart(2, '0');
const hex = (number) => number.toString(16).padStart(2, '0').toUpperCase();

// Bits of numbers in H.264's way, the emulation of start codes taken out.
class Bits {
  constructor(bytes) {
    this.bytes = [...bytes].filter((byte, i, all) => !(byte === 3 && i > 1 && all[i - 1] === 0 && all[i - 2] === 0));
    this.at = 0;
  }
  take(count) {
    let value = 0;
    for (; count > 0; --count, ++this.at) value = value * 2 + ((this.bytes[this.at >> 3] ?? 0) >> 7 - (this.at & 7) & 1);
    return value;
  }
  skip(...counts) { for (const count of counts) this.take(count); }
  whole() {
    let zeros = 0;
    while (zeros < 32 && this.take(1) === 0) ++zeros;
    return 2 ** zeros - 1 + this.take(zeros);
  }
  signed() { const value = this.whole(); return value & 1 ? (value + 1) / 2 : -value / 2; }
  pass(count) { for (; count > 0; --count) this.whole(); }
}

/** Colours {matrix, fullRange} by H.264's avcC record; by the container where that says nothing. */
export function coloursOf(record, container) {
  const own = record ? coloursOfAvc(record) : {};
  return {matrix: own.matrix ?? container.matrix, fullRange: own.fullRange ?? container.fullRange ?? false};
}

function coloursOfAvc(record) {
  if ((record[5] & 31) === 0 || record.length < 12) return {};
  const bits = new Bits(record.subarray(9, Math.min(8 + (record[6] << 8 | record[7]), 9 + 1024)));
  const profile = bits.take(8);
  bits.skip(16);
  bits.pass(1);
  if ([100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135].includes(profile)) {
    const chroma = bits.whole();
    if (chroma === 3) bits.skip(1);
    bits.pass(2);
    bits.skip(1);
    const lists = bits.take(1) ? chroma === 3 ? 12 : 8 : 0;
    for (let list = 0; list < lists; ++list) {
      if (!bits.take(1)) continue;
      for (let i = 0, scale = 8; i < (list < 6 ? 16 : 64) && scale !== 0; ++i) scale = (scale + bits.signed() + 256) % 256;
    }
  }
  bits.pass(1);
  const order = bits.whole();
  if (order === 0) bits.pass(1);
  if (order === 1) {
    bits.skip(1);
    bits.pass(2);
    bits.pass(Math.min(255, bits.whole()));
  }
  bits.pass(1);
  bits.skip(1);
  bits.pass(2);
  if (!bits.take(1)) bits.skip(1);
  bits.skip(1);
  if (bits.take(1)) bits.pass(4);
  if (!bits.take(1)) return {};
  if (bits.take(1) && bits.take(8) === 255) bits.skip(32);
  if (bits.take(1)) bits.skip(1);
  if (!bits.take(1)) return {};
  bits.skip(3);
  const fullRange = bits.take(1) === 1;
  const told = bits.take(1) === 1;
  if (told) bits.skip(16);
  return {matrix: told ? matrixNames[bits.take(8)] : undefined, fullRange};
}

/** H.264 by its avcC record. */
export const ofAvc = (record) => record.length < 7 ? null : `avc1.${hex(record[1])}${hex(record[2])}${hex(record[3])}`;

/** HEVC by its hvcC record. */
export function ofHevc(record) {
  if (record.length < 23) return null;
  const view = new DataView(record.buffer, record.byteOffset, record.byteLength);
  let compatible = 0;  // bits the other way round
  for (let i = 0; i < 32; ++i) compatible = (compatible << 1 | view.getUint32(2) >>> i & 1) >>> 0;
  const constraints = [...record.subarray(6, 12)];
  while (constraints.at(-1) === 0) constraints.pop();
  const [space, tier] = [['', 'A', 'B', 'C'][record[1] >> 6], record[1] & 32 ? 'H' : 'L'];
  return ['hvc1', `${space}${record[1] & 31}`, compatible.toString(16), `${tier}${record[12]}`, ...constraints.map((one) => one.toString(16))].join('.');
}

/** AV1 by its av1C record. */
export const ofAv1 = (record) => record.length < 4 ? null
  : `av01.${record[1] >> 5}.${two(record[1] & 31)}${record[2] & 128 ? 'H' : 'M'}.${two(record[2] & 64 ? record[2] & 32 ? 12 : 10 : 8)}`;

/** What the numbers of ITU-R H.273 are called, of the matrices that are known here. */
export const matrixNames = {1: 'bt709', 5: 'bt470bg', 6: 'smpte170m', 9: 'bt2020-ncl'};

/** VP9 by the first bytes of its first frame, which say its profile, depth and matrix: [codec, matrix]. */
export function ofVp9(frame) {
  const bit = (i) => frame[i >> 3] >> 7 - (i & 7) & 1;
  const profile = bit(2) + 2 * bit(3);
  const start = profile === 3 ? 5 : 4;  // what follows: shown again, kind, shown, resilient, 24 bits of a mark
  if (frame.length < 6 || bit(0) !== 1 || bit(1) !== 0 || bit(start) || bit(start + 1)) return [null];
  const depth = profile < 2 ? 8 : bit(start + 28) ? 12 : 10;
  const colours = start + (profile < 2 ? 28 : 29);
  const matrix = {1: 'smpte170m', 2: 'bt709', 3: 'smpte170m', 5: 'bt2020-ncl'}[4 * bit(colours) + 2 * bit(colours + 1) + bit(colours + 2)];
  return [`vp09.${two(profile)}.41.${two(depth)}`, matrix];
}
