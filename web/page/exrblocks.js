// SPDX-License-Identifier: BSD-3-Clause
//
// The blocks of OpenEXR files, packed as that family packs them: rows, and in each of them channel by
// channel, little-endian. What leads out of its bounds is damage.
import {halfs, toHalf} from './half.js';
import {inflated} from './inflate.js';
import {unpiz} from './piz.js';

const damaged = () => { throw new Error('the file is damaged'); };

// Each byte as its difference from the one before, and first all even ones, then all odd ones.
function unmixed(bytes) {
  for (let i = 1; i < bytes.length; ++i) bytes[i] = bytes[i - 1] + bytes[i] - 128;
  const result = new Uint8Array(bytes.length);
  const half = bytes.length + 1 >> 1;
  for (let i = 0; i < bytes.length; ++i) result[i] = bytes[i & 1 ? half + (i >> 1) : i >> 1];
  return result;
}

/** The same for writing. */
export function mixed(bytes) {
  const result = new Uint8Array(bytes.length);
  const half = bytes.length + 1 >> 1;
  for (let i = 0; i < bytes.length; ++i) result[i & 1 ? half + (i >> 1) : i >> 1] = bytes[i];
  for (let i = result.length - 1; i > 0; --i) result[i] = result[i] - result[i - 1] + 128;
  return result;
}

function unrun(bytes, length) {
  const result = new Uint8Array(length);
  let to = 0;
  for (let at = 0; at < bytes.length;) {
    const count = bytes[at++] << 24 >> 24;
    const size = count < 0 ? -count : count + 1;
    if (to + size > length || at + (count < 0 ? size : 1) > bytes.length) damaged();
    if (count < 0) result.set(bytes.subarray(at, at + size), to); else result.fill(bytes[at], to, to + size);
    at += count < 0 ? size : 1;
    to += size;
  }
  return result.subarray(0, to);
}

// PXR24: floats lose their last byte; a row of a channel is differences, high bytes before low ones.
function unpxr(bytes, width, height, channels) {
  const kept = channels.map(({kind, size}) => kind === 2 ? 3 : size);
  if (bytes.length !== width * height * kept.reduce((sum, size) => sum + size, 0)) damaged();
  const result = new DataView(new ArrayBuffer(width * height * channels.reduce((sum, {size}) => sum + size, 0)));
  let from = 0;
  let to = 0;
  for (let y = 0; y < height; ++y) {
    channels.forEach(({size}, c) => {
      const planes = kept[c];
      for (let x = 0, value = 0; x < width; ++x, to += size) {
        let step = 0;
        for (let plane = 0; plane < planes; ++plane) step = step << 8 | bytes[from + plane * width + x];
        value += step << 8 * (size - planes);
        if (size === 2) result.setUint16(to, value, true); else result.setInt32(to, value, true);
      }
      from += planes * width;
    });
  }
  return new Uint8Array(result.buffer);
}

// Half floats as integers that grow with them: positive ones have their first bit set.
const ordered = (word) => word & 0x8000 ? word & 0x7fff : ~word & 0xffff;

/** A square of 4 x 4 halfs of B44 from 3 bytes (all alike) or 14; returns how many they were. */
function unsquared(bytes, at, square) {
  if (at + 3 > bytes.length) damaged();
  const first = bytes[at] << 8 | bytes[at + 1];
  if (bytes[at + 2] >= 13 << 2) {
    square.fill(ordered(first));
    return 3;
  }
  if (at + 14 > bytes.length) damaged();
  // 16 bits, 6 that shift all others, and 15 differences of 6 bits: down the first column, then along
  // the rows, column by column.
  const shift = bytes[at + 2] >> 2;
  let bit = 22;
  const step = () => {
    const byte = at + (bit >> 3);
    const six = (bytes[byte] << 8 | (bytes[byte + 1] ?? 0)) >> 10 - (bit & 7) & 63;
    bit += 6;
    return (six - 32) * 2 ** shift;
  };
  square[0] = first;
  for (let y = 1; y < 4; ++y) square[4 * y] = square[4 * y - 4] + step();
  for (let x = 1; x < 4; ++x) for (let y = 0; y < 4; ++y) square[4 * y + x] = square[4 * y + x - 1] + step();
  for (let i = 0; i < 16; ++i) square[i] = ordered(square[i]);
  return 14;
}

// Channels that the file calls perceptually linear hold logarithms, and are packed as what those are of.
let logarithms = null;
const logarithmTable = () => logarithms ??= Uint16Array.from(halfs, (value) =>
  value >= 0 && value < Infinity ? toHalf(8 * Math.log(value)) : 0);

// B44 and B44A: half channels in squares, the others as they are; channel after channel.
function unb44(bytes, width, height, channels) {
  const perRow = width * channels.reduce((sum, {size}) => sum + size, 0);
  const result = new Uint8Array(perRow * height);
  const view = new DataView(result.buffer);
  const square = new Uint16Array(16);
  let at = 0;
  let left = 0;
  for (const {kind, size, logarithmic} of channels) {
    if (kind === 1) {
      const codes = logarithmic ? logarithmTable() : null;
      for (let y = 0; y < height; y += 4) {
        for (let x = 0; x < width; x += 4) {
          at += unsquared(bytes, at, square);
          for (let v = 0; v < Math.min(4, height - y); ++v) {
            for (let u = 0; u < Math.min(4, width - x); ++u) {
              const code = square[4 * v + u];
              view.setUint16((y + v) * perRow + left + 2 * (x + u), codes ? codes[code] : code, true);
            }
          }
        }
      }
    } else {
      if (at + width * height * size > bytes.length) damaged();
      for (let y = 0; y < height; ++y, at += width * size) result.set(bytes.subarray(at, at + width * size), y * perRow + left);
    }
    left += width * size;
  }
  return result;
}

/** Rows of a block, by compression as files number it. */
export const rowsOf = {0: 1, 1: 1, 2: 1, 3: 16, 4: 32, 5: 16, 6: 32, 7: 32};

/** A block's bytes. channels: {kind, size in bytes, logarithmic} of each. Throws an Error for damage. */
export async function unpacked(bytes, compression, width, height, channels) {
  const sizes = channels.map(({size}) => size);
  const length = width * height * sizes.reduce((sum, size) => sum + size, 0);
  // What would not get smaller is stored as it is.
  if (bytes.length === length || compression === 0) return bytes;
  if (compression === 1) return unmixed(unrun(bytes, length));
  if (compression === 4) return unpiz(bytes, width, height, sizes);
  if (compression === 5) return unpxr(await inflated(bytes, length), width, height, channels);
  if (compression > 5) return unb44(bytes, width, height, channels);
  return unmixed(await inflated(bytes, length));
}
