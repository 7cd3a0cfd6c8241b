// SPDX-License-Identifier: BSD-3-Clause
//
// OpenEXR: half or float samples, RGB or Y with or without alpha, by rows or in tiles; of several parts
// and layers the ones that `orvanite key` takes. What else there is in that family is refused. Files
// that are written hold rows packed by ZIP. Values keep their full range.
import {mixed, rowsOf, unpacked} from './exrblocks.js';
import {halfs, toHalf} from './half.js';
import {deflated} from './inflate.js';

const magic = 20000630;
const mostPixels = 2 ** 25;      // 512 MiB of floats
const mostBlockBytes = 2 ** 29;  // unpacked
const mostParts = 1000;
const mostChannels = 64;
const kinds = ['integers', 'half', 'float'];
const compressions = ['none', 'RLE', 'ZIPS', 'ZIP', 'PIZ', 'PXR24', 'B44', 'B44A', 'DWAA', 'DWAB'];
const pictureLayers = ['RGBA', 'RGB', 'BEAUTY', 'COMBINED', 'PRIMARY', 'COMPOSITE', 'MAIN'];
const together = 32;             // blocks that are unpacked at once
const damaged = () => { throw new Error('the file is damaged'); };
const refuse = (what) => { throw new Error(`an OpenEXR file with ${what}: orvanite reads it`); };

/** Whether these bytes begin as an OpenEXR file does. */
export const isExr = (bytes) => bytes.length >= 8 && new DataView(bytes.buffer, bytes.byteOffset).getUint32(0, true) === magic;

/** The headers of a file's parts, and where the offsets of their blocks begin. */
function headersOf(bytes, view) {
  const flags = view.getUint32(4, true) >>> 8;
  const several = Boolean(flags & 0x10);
  let at = 8;
  const name = () => {
    const end = bytes.indexOf(0, at);
    if (end < at || end - at > 255) damaged();
    const text = String.fromCharCode(...bytes.subarray(at, end));
    at = end + 1;
    return text;
  };
  const header = (first) => {
    const attributes = new Map();
    for (let label = first; label !== ''; label = name()) {
      name();  // of its type
      const size = view.getUint32(at, true);
      if (size > bytes.length - at - 4) damaged();
      attributes.set(label, {at: at + 4, size});
      at += 4 + size;
    }
    const end = at;
    const place = (label) => attributes.get(label)?.at ?? damaged();
    const box = (label) => [0, 4, 8, 12].map((i) => view.getInt32(place(label) + i, true));
    const channels = [];
    for (at = place('channels'); ;) {
      const label = name();
      if (label === '') break;
      const kind = view.getUint32(at, true);
      channels.push({name: label.toUpperCase(), kind, size: kind === 1 ? 2 : 4, logarithmic: bytes[at + 4] === 1, x: view.getUint32(at + 8, true), y: view.getUint32(at + 12, true)});
      at += 16;
      if (channels.length > mostChannels) refuse(`more than ${mostChannels} channels`);
    }
    if (attributes.has('type')) at = place('type');
    const type = attributes.has('type') ? String.fromCharCode(...bytes.subarray(at, at + attributes.get('type').size)) : '';
    at = end;
    const tiled = several ? type.startsWith('tiled') : flags & 2;
    return {
      channels, deep: several ? type.startsWith('deep') : Boolean(flags & 8), tiles: tiled ? [0, 4].map((i) => view.getUint32(place('tiles') + i, true)) : null,
      compression: bytes[place('compression')], data: box('dataWindow'), display: box('displayWindow'), blocks: several ? view.getUint32(place('chunkCount'), true) : null,
    };
  };
  const headers = [];
  for (let first = name(); ; first = name()) {
    if (first === '' && several) break;
    headers.push(header(first));
    if (!several) break;
    if (headers.length > mostParts) damaged();
  }
  return {headers, several, offsets: at};
}

/** The channels that make colours, R, G, B and alpha by their places, and how sure that is: as `orvanite key` chooses. */
function layerOf(channels) {
  const at = (name) => channels.findIndex((one) => one.name === name);
  let layer = {rank: 0, places: null};
  const take = (prefix, rank) => {
    const places = ['R', 'G', 'B', 'A'].map((letter) => at(prefix + letter));
    if (rank > layer.rank && !places.slice(0, 3).includes(-1)) layer = {rank, places};
  };
  take('', 4);
  if (layer.rank > 0) return layer;
  const grey = at('Y');
  if (at('RY') >= 0 && at('BY') >= 0) layer.chroma = true;
  for (const {name} of channels) {
    const path = name.split('.');
    if (path.length < 2 || path.pop() !== 'R') continue;
    const isPicture = pictureLayers.includes(path.at(-1));
    if (isPicture || grey < 0) take(`${path.join('.')}.`, isPicture ? 3 : 1);
  }
  if (layer.rank < 2 && grey >= 0) layer = {...layer, rank: 2, places: [grey, grey, grey, at('A')]};
  return layer;
}

/** What the boxes share, seen from the corner of the second: x, y, width and height. */
function shared(a, b) {
  const [x, y] = [Math.max(a[0], b[0]), Math.max(a[1], b[1])];
  return [x - b[0], y - b[1], Math.max(0, Math.min(a[2], b[2]) - x + 1), Math.max(0, Math.min(a[3], b[3]) - y + 1)];
}

/**
 * A picture {width, height, depth: 4, half, hasAlpha, pixels} of its whole frame: RGBA floats. Where the
 * file holds less, pixels are 0 and `own` is what it holds: x, y, width, height; `beyond`: it holds
 * more. Throws an Error that says why not.
 */
export async function decodeExr(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const {headers, several, offsets} = headersOf(bytes, view);
  const flat = headers.filter(({deep}) => !deep);
  if (flat.length === 0) refuse('deep samples');
  const layers = flat.map(({channels}) => layerOf(channels));
  const best = layers.reduce((most, {rank}, i) => rank > layers[most].rank ? i : most, 0);
  const {channels, tiles, compression, data, display} = flat[best];
  const {places: wanted, chroma} = layers[best];
  const part = headers.indexOf(flat[best]);
  if (chroma) refuse('luminance and chroma');
  if (!wanted) refuse('other channels than R, G, B, A or Y');

  const [width, height] = [data[2] - data[0] + 1, data[3] - data[1] + 1];
  const [wide, high] = [display[2] - display[0] + 1, display[3] - display[1] + 1];
  if (!(width > 0 && height > 0 && wide > 0 && high > 0)) damaged();
  if (width * height > mostPixels || wide * high > mostPixels) throw new Error('more pixels than a page can hold');
  if (!(compression in rowsOf)) refuse(`${compressions[compression] ?? 'an unknown'} compression`);
  if (channels.some(({x, y}) => x !== 1 || y !== 1)) refuse('channels of other sizes');
  for (const index of wanted) if (index >= 0 && ![1, 2].includes(channels[index].kind)) refuse(`${kinds[channels[index].kind] ?? 'unknown'} samples`);
  const bytesPerPixel = channels.reduce((sum, {size}) => sum + size, 0);
  const hasAlpha = wanted[3] >= 0;

  const [across, down] = tiles ?? [width, rowsOf[compression]];
  if (!(across > 0 && down > 0)) damaged();
  const [columns, rows] = [Math.ceil(width / across), Math.ceil(height / down)];
  const before = headers.slice(0, part).reduce((sum, {blocks}) => sum + blocks, 0);
  const table = offsets + 8 * before;
  if (columns * rows > (bytes.length - table) / 8) throw new Error('the file ends before its picture');
  if (Math.min(across, width) * Math.min(down, height) * bytesPerPixel > mostBlockBytes) throw new Error('more pixels than a page can hold');
  const pixels = new Float32Array(4 * wide * high);
  if (!hasAlpha) for (let i = 3; i < pixels.length; i += 4) pixels[i] = 1;
  const seen = new Uint8Array(columns * rows);
  const lead = several ? 4 : 0;
  const partOf = async (block) => {
    const start = Number(view.getBigUint64(table + 8 * block, true));
    const from = start + lead;
    const head = tiles ? 20 : 8;
    if (from + head > bytes.length) throw new Error('the file ends before its picture');
    if (several && view.getUint32(start, true) !== part) damaged();
    const [column, row] = tiles ? [view.getUint32(from, true), view.getUint32(from + 4, true)] : [0, (view.getInt32(from, true) - data[1]) / down];
    if (!(column < columns && row >= 0 && row < rows && Number.isInteger(row)) || (tiles && view.getUint32(from + 8, true) + view.getUint32(from + 12, true) > 0)) damaged();
    const [left, top] = [column * across, row * down];
    const [w, h] = [Math.min(across, width - left), Math.min(down, height - top)];
    const size = view.getUint32(from + head - 4, true);
    if (size > bytes.length - from - head) throw new Error('the file ends before its picture');
    const samples = await unpacked(bytes.subarray(from + head, from + head + size), compression, w, h, channels);
    if (samples.length !== w * h * bytesPerPixel || seen[row * columns + column]++) damaged();
    return {left, top, w, h, samples: new DataView(samples.buffer, samples.byteOffset, samples.byteLength)};
  };
  const [shiftX, shiftY] = [data[0] - display[0], data[1] - display[1]];
  const place = ({left, top, w, h, samples}) => {
    const [first, end] = [Math.max(0, -shiftX - left), Math.min(w, wide - shiftX - left)];
    for (let y = 0; y < h; ++y) {
      const row = top + y + shiftY;
      if (row < 0 || row >= high) continue;
      let start = y * w * bytesPerPixel;
      channels.forEach(({kind, size}, index) => {
        for (let c = 0; c < 4; ++c) {
          if (wanted[c] !== index) continue;
          let to = 4 * (row * wide + left + shiftX + first) + c;
          if (kind === 1) for (let x = first; x < end; ++x, to += 4) pixels[to] = halfs[samples.getUint16(start + 2 * x, true)];
          else for (let x = first; x < end; ++x, to += 4) pixels[to] = samples.getFloat32(start + 4 * x, true);
        }
        start += w * size;
      });
    }
  };
  for (let block = 0; block < columns * rows; block += together) {
    const count = Math.min(together, columns * rows - block);
    (await Promise.all(Array.from({length: count}, (_, i) => partOf(block + i)))).forEach(place);
  }
  const own = shared(data, display);
  return {
    width: wide, height: high, depth: 4, half: channels.every(({kind}) => kind === 1), hasAlpha, pixels,
    ...own[2] * own[3] < wide * high && {own}, ...own[2] * own[3] < width * height && {beyond: true},
  };
}

/**
 * The file of a picture of floats: half samples where `half` says so, alpha where `alpha` does. place:
 * its corner in a frame, and that frame's size.
 */
export async function encodeExr({width, height, pixels, half}, alpha, place = [0, 0, width, height]) {
  const parts = [];
  const words = (...numbers) => new Uint8Array(Uint32Array.from(numbers).buffer);
  const text = (letters) => Uint8Array.from([...letters, '\0'], (one) => one.charCodeAt(0) & 127);
  const attribute = (name, kind, ...values) => {
    const size = values.reduce((sum, {length}) => sum + length, 0);
    parts.push(text(name), text(kind), words(size), ...values);
  };
  const names = alpha ? ['A', 'B', 'G', 'R'] : ['B', 'G', 'R'];
  const [left, above, wide, high] = place;
  const one = new Uint8Array(new Float32Array([1]).buffer);
  parts.push(words(magic, 2));
  attribute('channels', 'chlist', ...names.flatMap((name) => [text(name), words(half ? 1 : 2, 0, 1, 1)]), new Uint8Array(1));
  attribute('compression', 'compression', Uint8Array.of(3));
  attribute('dataWindow', 'box2i', words(left, above, left + width - 1, above + height - 1));
  attribute('displayWindow', 'box2i', words(0, 0, wide - 1, high - 1));
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
    blocks.push([words(above + top, kept.length), kept]);
  }
  const head = parts.reduce((sum, {length}) => sum + length, 0);
  const offsets = new BigUint64Array(blocks.length);
  blocks.reduce((at, [start, kept], i) => {
    offsets[i] = BigInt(at);
    return at + start.length + kept.length;
  }, head + 8 * blocks.length);
  return new Blob([...parts, new Uint8Array(offsets.buffer), ...blocks.flat()], {type: 'image/x-exr'});
}
