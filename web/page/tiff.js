// SPDX-License-Identifier: BSD-3-Clause
//
// TIFF 6.0 with integers of 8 and 16 bits, which browsers do not show: grey or RGB with or without
// alpha, in strips or tiles, plain, LZW or deflated. What else there is in that family is refused.

import {inflated} from './inflate.js';

const mostPixels = 2 ** 27;
const tag = {width: 256, height: 257, bits: 258, compression: 259, photometric: 262, offsets: 273, samples: 277, rows: 278, sizes: 279, planar: 284, predictor: 317, tileWidth: 322, tileHeight: 323, tileOffsets: 324, tileSizes: 325, extra: 338, format: 339};

/** Whether these bytes begin as a TIFF does. */
export const isTiff = (bytes) => ['73,73,42,0', '77,77,0,42'].includes(bytes.subarray(0, 4).join());

function tagsOf(view, little) {
  const tags = new Map();
  const at = view.getUint32(4, little);
  const count = view.getUint16(at, little);
  for (let i = 0; i < count; ++i) {
    const entry = at + 2 + 12 * i;
    const kind = view.getUint16(entry + 2, little);
    const values = view.getUint32(entry + 4, little);
    const size = {1: 1, 3: 2, 4: 4}[kind];
    if (!size) continue;
    const from = values * size <= 4 ? entry + 8 : view.getUint32(entry + 8, little);
    const read = {1: (p) => view.getUint8(p), 2: (p) => view.getUint16(p, little), 4: (p) => view.getUint32(p, little)}[size];
    tags.set(view.getUint16(entry, little), Array.from({length: values}, (_, n) => read(from + n * size)));
  }
  return tags;
}

// Codes of 9 to 12 bits, high bit first, that grow a bit one code early.
function lzw(bytes, length) {
  const out = new Uint8Array(length);
  const before = new Uint16Array(4096);
  const last = new Uint8Array(4096);
  const sizes = new Uint16Array(4096).fill(1, 0, 256);
  for (let i = 0; i < 256; ++i) last[i] = i;
  let [next, width, old, to, held, bits] = [258, 9, -1, 0, 0, 0];
  for (let at = 0; to < length;) {
    while (bits < width && at < bytes.length) { held = (held << 8 | bytes[at++]) & 0xffffff; bits += 8; }
    if (bits < width) break;
    const code = held >> (bits - width) & (1 << width) - 1;
    bits -= width;
    if (code === 257) break;
    if (code === 256) { [next, width, old] = [258, 9, -1]; continue; }
    if (code > next || (old < 0 && code > 255)) throw new Error('the file is damaged');
    // A code that is not there yet stands for the last text and its own first byte.
    const known = code < next ? code : old;
    const size = sizes[known];
    for (let walk = known, p = to + size - 1; p >= to; --p, walk = before[walk]) if (p < length) out[p] = last[walk];
    const first = out[to];
    to += size;
    if (code === next && to < length) out[to] = first;
    if (code === next) ++to;
    if (old >= 0 && next < 4096) {
      before[next] = old;
      last[next] = first;
      sizes[next] = sizes[old] + 1;
      ++next;
    }
    if (next + 1 >= 1 << width && width < 12) ++width;
    old = code;
  }
  return out;
}

async function unpacked(bytes, compression, length) {
  if (compression === 1) return bytes;
  if (compression === 5) return lzw(bytes, length);
  return inflated(bytes, length);
}

/** A picture {width, height, depth, hasAlpha, pixels}: RGBA. Throws an Error that says why not. */
export async function decodeTiff(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const little = bytes[0] === 73;
  const tags = tagsOf(view, little);
  const one = (name, usual) => tags.get(tag[name])?.[0] ?? usual;
  const [width, height] = [one('width'), one('height')];
  const [bits, samples, kind] = [one('bits', 1), one('samples', 1), one('photometric', 1)];
  const refuse = (what) => { throw new Error(`a TIFF with ${what}: orvanite reads it`); };
  if (!(width * height > 0)) throw new Error('the file is damaged');
  if (width * height > mostPixels) throw new Error('more pixels than a page can hold');
  if (one('format', 1) !== 1) refuse('float samples');
  if (bits !== 8 && bits !== 16) refuse(`${bits} bits`);
  if (![0, 1, 2].includes(kind)) refuse('colours other than RGB');
  if (one('planar', 1) !== 1 && samples > 1) refuse('separate channels');
  const [compression, predictor] = [one('compression', 1), one('predictor', 1)];
  if (![1, 5, 8, 32946].includes(compression)) refuse(`compression ${compression}`);
  if (predictor > 2) refuse('a float predictor');
  const colours = kind === 2 ? 3 : 1;
  const hasAlpha = samples > colours && [1, 2].includes(one('extra', 0));

  const tiled = tags.has(tag.tileOffsets);
  const across = tiled ? one('tileWidth') : width;
  const down = tiled ? one('tileHeight') : Math.min(height, one('rows', height));
  const offsets = tags.get(tiled ? tag.tileOffsets : tag.offsets);
  const sizes = tags.get(tiled ? tag.tileSizes : tag.sizes);
  const perRow = Math.ceil(width / across);
  const [depth, most] = bits === 16 ? [2, 65535] : [1, 255];
  const pixels = bits === 16 ? new Uint16Array(4 * width * height) : new Uint8Array(4 * width * height);
  if (!(offsets?.length >= perRow * Math.ceil(height / down))) throw new Error('the file is damaged');
  for (let block = 0; block < offsets.length; ++block) {
    const [left, top] = [block % perRow * across, Math.floor(block / perRow) * down];
    const rows = tiled ? down : Math.min(down, height - top);
    const need = across * rows * samples * depth;
    const data = await unpacked(bytes.subarray(offsets[block], offsets[block] + sizes[block]), compression, need);
    if (data.length < need) throw new Error('the file ends before its picture');
    const codes = new DataView(data.buffer, data.byteOffset, data.byteLength);
    const code = depth === 2 ? (i) => codes.getUint16(2 * i, little) : (i) => data[i];
    const row = new (depth === 2 ? Uint16Array : Uint8Array)(across * samples);
    for (let y = 0; y < rows && top + y < height; ++y) {
      for (let i = 0; i < row.length; ++i) {
        row[i] = code(y * row.length + i) + (predictor === 2 && i >= samples ? row[i - samples] : 0);
      }
      for (let x = 0; x < across && left + x < width; ++x) {
        const to = 4 * ((top + y) * width + left + x);
        for (let c = 0; c < 3; ++c) {
          const value = row[x * samples + (colours === 3 ? c : 0)];
          pixels[to + c] = kind === 0 ? most - value : value;
        }
        pixels[to + 3] = hasAlpha ? row[x * samples + colours] : most;
      }
    }
  }
  return {width, height, depth, hasAlpha, pixels};
}
