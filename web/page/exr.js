// SPDX-License-Identifier: BSD-3-Clause
//
// OpenEXR: one part of half or float samples, RGB or Y with or without alpha, by rows or in tiles,
// plain, RLE, ZIP or PIZ. What else there is in that family is refused. Files that are written
// hold rows packed by ZIP. Values keep their full range.
import {halfs, toHalf} from './half.js';
import {deflated, inflated} from './inflate.js';
import {unpiz} from './piz.js';

const magic = 20000630;
const mostPixels = 2 ** 25;  // 512 MiB of floats
const kinds = ['integers', 'half', 'float'];
const rowsOf = {0: 1, 1: 1, 2: 1, 3: 16, 4: 32};  // of a block, by compression
const compressions = ['none', 'RLE', 'ZIPS', 'ZIP', 'PIZ', 'PXR24', 'B44', 'B44A', 'DWAA', 'DWAB'];
const together = 32;         // blocks that are unpacked at once
const damaged = () => { throw new Error('the file is damaged'); };
const refuse = (what) => { throw new Error(`an OpenEXR file with ${what}: orvanite reads it`); };

/** Whether these bytes begin as an OpenEXR file does. */
export const isExr = (bytes) => bytes.length >= 8 && new DataView(bytes.buffer, bytes.byteOffset).getUint32(0, true) === magic;

function headerOf(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const flags = view.getUint32(4, true) >>> 8;
  if (flags & 0x18) refuse(flags & 0x10 ? 'several parts' : 'deep samples');
  let at = 8;
  const name = () => {
    const end = bytes.indexOf(0, at);
    if (end < at || end - at > 255) damaged();
    const text = String.fromCharCode(...bytes.subarray(at, end));
    at = end + 1;
    return text;
  };
  const attributes = new Map();
  for (let label = name(); label !== ''; label = name()) {
    name();  // of its type
    const size = view.getUint32(at, true);
    if (size > bytes.length - at - 4) damaged();
    attributes.set(label, {at: at + 4, size});
    at += 4 + size;
  }
  const place = (label) => attributes.get(label)?.at ?? damaged();
  const box = (label) => [0, 4, 8, 12].map((i) => view.getInt32(place(label) + i, true));
  const channels = [];
  const blocks = at;
  for (at = place('channels'); ;) {
    const label = name();
    if (label === '') break;
    channels.push({name: label, kind: view.getUint32(at, true), x: view.getUint32(at + 8, true), y: view.getUint32(at + 12, true)});
    at += 16;
    if (channels.length > 64) refuse('more than 64 channels');
  }
  const tiles = flags & 2 ? [0, 4].map((i) => view.getUint32(place('tiles') + i, true)) : null;
  return {view, channels, tiles, blocks, compression: bytes[place('compression')], data: box('dataWindow'), display: box('displayWindow')};
}

// Each byte as its difference from the one before, and first all even ones, then all odd ones.
function unmixed(bytes) {
  for (let i = 1; i < bytes.length; ++i) bytes[i] = bytes[i - 1] + bytes[i] - 128;
  const result = new Uint8Array(bytes.length);
  const half = bytes.length + 1 >> 1;
  for (let i = 0; i < bytes.length; ++i) result[i] = bytes[i & 1 ? half + (i >> 1) : i >> 1];
  return result;
}

function mixed(bytes) {
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

async function unpacked(bytes, compression, width, height, sizes) {
  const length = width * height * sizes.reduce((sum, size) => sum + size, 0);
  // What would not get smaller is stored as it is.
  if (bytes.length === length || compression === 0) return bytes;
  const block = compression === 4 ? unpiz(bytes, width, height, sizes)
    : unmixed(compression === 1 ? unrun(bytes, length) : await inflated(bytes, length));
  return block;
}

/** A picture {width, height, depth: 4, half, hasAlpha, pixels}: RGBA floats. Throws an Error that says why not. */
export async function decodeExr(bytes) {
  const {view, channels, tiles, blocks, compression, data, display} = headerOf(bytes);
  const [width, height] = [data[2] - data[0] + 1, data[3] - data[1] + 1];
  if (!(width > 0 && height > 0)) damaged();
  if (width * height > mostPixels) throw new Error('more pixels than a page can hold');
  if (data.join() !== display.join()) refuse('a picture that is not its whole frame');
  if (!(compression in rowsOf)) refuse(`${compressions[compression] ?? 'an unknown'} compression`);
  const at = (name) => channels.findIndex((one) => one.name.toUpperCase() === name);
  const grey = at('R') < 0 && at('Y') >= 0;
  const wanted = grey ? ['Y', 'Y', 'Y', 'A'].map(at) : ['R', 'G', 'B', 'A'].map(at);
  if (grey && at('RY') >= 0) refuse('luminance and chroma');
  if (wanted.slice(0, 3).some((index) => index < 0)) refuse('other channels than R, G, B, A or Y');
  if (channels.some(({x, y}) => x !== 1 || y !== 1)) refuse('channels of other sizes');
  for (const index of wanted) if (index >= 0 && ![1, 2].includes(channels[index].kind)) refuse(`${kinds[channels[index].kind] ?? 'unknown'} samples`);
  const sizes = channels.map(({kind}) => kind === 1 ? 2 : 4);
  const bytesPerPixel = sizes.reduce((sum, size) => sum + size, 0);
  const hasAlpha = wanted[3] >= 0;

  const [across, down] = tiles ?? [width, rowsOf[compression]];
  if (!(across > 0 && down > 0)) damaged();
  const [columns, rows] = [Math.ceil(width / across), Math.ceil(height / down)];
  if (columns * rows > (bytes.length - blocks) / 8) throw new Error('the file ends before its picture');
  const pixels = new Float32Array(4 * width * height);
  if (!hasAlpha) for (let i = 3; i < pixels.length; i += 4) pixels[i] = 1;
  const seen = new Uint8Array(columns * rows);
  const partOf = async (block) => {
    const from = Number(view.getBigUint64(blocks + 8 * block, true));
    const head = tiles ? 20 : 8;
    if (from + head > bytes.length) throw new Error('the file ends before its picture');
    const [column, row] = tiles ? [view.getUint32(from, true), view.getUint32(from + 4, true)] : [0, (view.getInt32(from, true) - data[1]) / down];
    if (!(column < columns && row >= 0 && row < rows && Number.isInteger(row)) || (tiles && view.getUint32(from + 8, true) + view.getUint32(from + 12, true) > 0)) damaged();
    const [left, top] = [column * across, row * down];
    const [w, h] = [Math.min(across, width - left), Math.min(down, height - top)];
    const size = view.getUint32(from + head - 4, true);
    if (size > bytes.length - from - head) throw new Error('the file ends before its picture');
    const part = await unpacked(bytes.subarray(from + head, from + head + size), compression, w, h, sizes);
    if (part.length !== w * h * bytesPerPixel || seen[row * columns + column]++) damaged();
    return {left, top, w, h, samples: new DataView(part.buffer, part.byteOffset, part.byteLength)};
  };
  const place = ({left, top, w, h, samples}) => {
    for (let y = 0; y < h; ++y) {
      let start = y * w * bytesPerPixel;
      channels.forEach(({kind}, index) => {
        for (let c = 0; c < 4; ++c) {
          if (wanted[c] !== index) continue;
          let to = 4 * ((top + y) * width + left) + c;
          if (kind === 1) for (let x = 0; x < w; ++x, to += 4) pixels[to] = halfs[samples.getUint16(start + 2 * x, true)];
          else for (let x = 0; x < w; ++x, to += 4) pixels[to] = samples.getFloat32(start + 4 * x, true);
        }
        start += w * sizes[index];
      });
    }
  };
  for (let block = 0; block < columns * rows; block += together) {
    const count = Math.min(together, columns * rows - block);
    (await Promise.all(Array.from({length: count}, (_, i) => partOf(block + i)))).forEach(place);
  }
  return {width, height, depth: 4, half: channels.every(({kind}) => kind === 1), hasAlpha, pixels};
}

/** The file of a picture of floats: half samples where `half` says so, without alpha where `alpha` does. */
export async function encodeExr({width, height, pixels, half}, alpha) {
  const parts = [];
  const words = (...numbers) => new Uint8Array(Uint32Array.from(numbers).buffer);
  const text = (letters) => Uint8Array.from([...letters, '\0'], (one) => one.charCodeAt(0) & 127);
  const attribute = (name, kind, ...values) => {
    const size = values.reduce((sum, {length}) => sum + length, 0);
    parts.push(text(name), text(kind), words(size), ...values);
  };
  const names = alpha ? ['A', 'B', 'G', 'R'] : ['B', 'G', 'R'];
  const window = words(0, 0, width - 1, height - 1);
  const one = new Uint8Array(new Float32Array([1]).buffer);
  parts.push(words(magic, 2));
  attribute('channels', 'chlist', ...names.flatMap((name) => [text(name), words(half ? 1 : 2, 0, 1, 1)]), new Uint8Array(1));
  attribute('compression', 'compression', Uint8Array.of(3));
  attribute('dataWindow', 'box2i', window);
  attribute('displayWindow', 'box2i', window);
  attribute('lineOrder', 'lineOrder', new Uint8Array(1));
  attribute('pixelAspectRatio', 'float', one);
  attribute('screenWindowCenter', 'v2f', words(0, 0));
  attribute('screenWindowWidth', 'float', one);
  parts.push(new Uint8Array(1));

  const size = half ? 2 : 4;
  const blocks = [];
  for (let top = 0; top < height; top += rowsOf[3]) {
    const h = Math.min(rowsOf[3], height - top);
    const bytes = new Uint8Array(width * h * names.length * size);
    const view = new DataView(bytes.buffer);
    let to = 0;
    for (let y = top; y < top + h; ++y) {
      for (const name of names) {
        const c = 'RGBA'.indexOf(name);
        for (let x = 0; x < width; ++x, to += size) {
          const value = pixels[4 * (y * width + x) + c];
          if (half) view.setUint16(to, toHalf(value), true); else view.setFloat32(to, value, true);
        }
      }
    }
    const packed = await deflated(mixed(bytes));
    const kept = packed.length < bytes.length ? packed : bytes;
    blocks.push([words(top, kept.length), kept]);
  }
  const head = parts.reduce((sum, {length}) => sum + length, 0);
  const offsets = new BigUint64Array(blocks.length);
  blocks.reduce((at, [start, kept], i) => {
    offsets[i] = BigInt(at);
    return at + start.length + kept.length;
  }, head + 8 * blocks.length);
  return new Blob([...parts, new Uint8Array(offsets.buffer), ...blocks.flat()], {type: 'image/x-exr'});
}
