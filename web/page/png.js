// SPDX-License-Identifier: BSD-3-Clause
//
// PNG (ISO/IEC 15948) with all its bits: browsers' own decoders give 8, and lose colours under
// alpha. Interlaced files are left to them.

import {deflated, inflated} from './inflate.js';

const signature = [137, 80, 78, 71, 13, 10, 26, 10];
const mostPixels = 2 ** 27;

/** Whether these bytes begin as a PNG does. */
export const isPng = (bytes) => signature.every((byte, i) => bytes[i] === byte);

function chunksOf(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const chunks = {IDAT: []};
  for (let at = 8; at + 12 <= bytes.length;) {
    const length = view.getUint32(at);
    const name = String.fromCharCode(...bytes.subarray(at + 4, at + 8));
    if (at + 12 + length > bytes.length) break;
    const data = bytes.subarray(at + 8, at + 8 + length);
    if (name === 'IDAT') chunks.IDAT.push(data); else chunks[name] ??= data;
    at += 12 + length;
  }
  return chunks;
}

// Takes back what each row's filter did; rows keep their leading byte.
function unfilter(rows, rowBytes, height, step) {
  for (let y = 0; y < height; ++y) {
    const at = y * (rowBytes + 1) + 1;
    const up = at - rowBytes - 1;
    const filter = rows[at - 1];
    if (filter > 4) throw new Error('the file is damaged');
    for (let i = 0; i < rowBytes; ++i) {
      const a = i >= step ? rows[at + i - step] : 0;
      const b = y > 0 ? rows[up + i] : 0;
      let guess = 0;
      if (filter === 1) guess = a;
      else if (filter === 2) guess = b;
      else if (filter === 3) guess = (a + b) >> 1;
      else if (filter === 4) {
        const c = y > 0 && i >= step ? rows[up + i - step] : 0;
        const p = a + b - c;
        const [pa, pb, pc] = [Math.abs(p - a), Math.abs(p - b), Math.abs(p - c)];
        guess = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
      }
      rows[at + i] += guess;
    }
  }
}

/**
 * A picture {width, height, depth, hasAlpha, pixels}: RGBA, Uint8Array or Uint16Array. Null for an
 * interlaced file. Throws an Error for one that is damaged or too large.
 */
export async function decodePng(bytes) {
  const chunks = chunksOf(bytes);
  if (!chunks.IHDR || chunks.IDAT.length === 0) throw new Error('the file is damaged');
  const head = new DataView(chunks.IHDR.buffer, chunks.IHDR.byteOffset, 13);
  const [width, height] = [head.getUint32(0), head.getUint32(4)];
  const [bits, kind, interlaced] = [head.getUint8(8), head.getUint8(9), head.getUint8(12)];
  if (interlaced) return null;
  if (width * height > mostPixels) throw new Error('more pixels than a page can hold');
  const channels = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}[kind];
  const rowBytes = Math.ceil(width * channels * bits / 8);
  const data = new Uint8Array(chunks.IDAT.reduce((sum, part) => sum + part.length, 0));
  chunks.IDAT.reduce((at, part) => { data.set(part, at); return at + part.length; }, 0);
  const rows = await inflated(data, (rowBytes + 1) * height);
  if (rows.length < (rowBytes + 1) * height) throw new Error('the file ends before its picture');
  unfilter(rows, rowBytes, height, Math.max(1, channels * bits / 8));

  const depth = bits === 16 ? 2 : 1;
  const most = depth === 2 ? 65535 : 255;
  const pixels = depth === 2 ? new Uint16Array(4 * width * height) : new Uint8Array(4 * width * height);
  const clear = chunks.tRNS;
  const spread = kind === 3 ? 1 : most / (2 ** bits - 1);
  let out = 0;
  for (let y = 0; y < height; ++y) {
    const at = y * (rowBytes + 1) + 1;
    const sample = bits === 16 ? (i) => rows[at + 2 * i] << 8 | rows[at + 2 * i + 1]
      : bits === 8 ? (i) => rows[at + i]
      : (i) => rows[at + (i * bits >> 3)] >> (8 - bits - (i * bits & 7)) & (2 ** bits - 1);
    const clearAt = (c) => clear[2 * c] << 8 | clear[2 * c + 1];
    for (let x = 0; x < width; ++x, out += 4) {
      const first = sample(x * channels);
      let alpha = most;
      if (kind === 3) {
        for (let c = 0; c < 3; ++c) pixels[out + c] = chunks.PLTE[3 * first + c];
        if (clear && first < clear.length) alpha = clear[first];
      } else if (kind === 0 || kind === 4) {
        pixels.fill(first * spread, out, out + 3);
        if (kind === 4) alpha = sample(2 * x + 1);
        else if (clear && first === clearAt(0)) alpha = 0;
      } else {
        for (let c = 0; c < 3; ++c) pixels[out + c] = sample(x * channels + c);
        if (kind === 6) alpha = sample(4 * x + 3);
        else if (clear && [0, 1, 2].every((c) => sample(3 * x + c) === clearAt(c))) alpha = 0;
      }
      pixels[out + 3] = alpha;
    }
  }
  return {width, height, depth, hasAlpha: kind >= 4 || Boolean(clear), pixels};
}

const table = Uint32Array.from({length: 256}, (_, n) => {
  for (let k = 0; k < 8; ++k) n = n & 1 ? 0xedb88320 ^ n >>> 1 : n >>> 1;
  return n;
});

/** The sum of CRC-32 (ISO 3309) over bytes. */
export function checksum(bytes) {
  let sum = ~0;
  for (const byte of bytes) sum = table[(sum ^ byte) & 255] ^ sum >>> 8;
  return ~sum >>> 0;
}

function chunk(name, data) {
  const bytes = new Uint8Array(12 + data.length);
  const view = new DataView(bytes.buffer);
  view.setUint32(0, data.length);
  for (let i = 0; i < 4; ++i) bytes[4 + i] = name.charCodeAt(i);
  bytes.set(data, 8);
  view.setUint32(8 + data.length, checksum(bytes.subarray(4, 8 + data.length)));
  return bytes;
}

/** The file of a picture; without alpha where `alpha` says so. Every sample is kept. */
export async function encodePng({width, height, depth, pixels}, alpha) {
  const channels = alpha ? 4 : 3;
  const step = channels * depth;
  const rowBytes = width * step;
  const rows = new Uint8Array((rowBytes + 1) * height);
  const row = new Uint8Array(rowBytes);
  for (let y = 0; y < height; ++y) {
    let to = 0;
    for (let i = 4 * width * y; i < 4 * width * (y + 1); i += 4) {
      for (let c = 0; c < channels; ++c) {
        if (depth === 2) row[to++] = pixels[i + c] >> 8;
        row[to++] = pixels[i + c] & 255;
      }
    }
    // Each sample as its difference from the left one: the filter called Sub.
    const at = y * (rowBytes + 1);
    rows[at] = 1;
    for (let i = 0; i < rowBytes; ++i) rows[at + 1 + i] = row[i] - (i >= step ? row[i - step] : 0);
  }
  const head = new DataView(new ArrayBuffer(13));
  head.setUint32(0, width);
  head.setUint32(4, height);
  head.setUint8(8, 8 * depth);
  head.setUint8(9, alpha ? 6 : 2);
  const parts = [new Uint8Array(signature), chunk('IHDR', new Uint8Array(head.buffer)),
    chunk('IDAT', await deflated(rows)), chunk('IEND', new Uint8Array(0))];
  return new Blob(parts, {type: 'image/png'});
}
