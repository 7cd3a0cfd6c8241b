// SPDX-License-Identifier: BSD-3-Clause
//
// A decoded frame's planes of luma and colour differences as red, green and blue: by the frame's own
// matrix and range, chroma interpolated between its samples, rounded once. Codes are not managed.

// Kr and Kb of each matrix (ITU-R BT.601, BT.709, BT.2020).
const matrices = {bt709: [0.2126, 0.0722], 'bt2020-ncl': [0.2627, 0.0593], smpte170m: [0.299, 0.114], bt470bg: [0.299, 0.114]};

// How much each of four neighbours counts for a place between them: cubic, with a slope of -0.6.
const cubic = (d) => d < 1 ? 1.4 * d ** 3 - 2.4 * d ** 2 + 1 : -0.6 * d ** 3 + 3 * d ** 2 - 4.8 * d + 2.4;
const weightsAt = (part) => [1 + part, part, 1 - part, 2 - part].map(cubic);

/** How a decoder's format lies: planes, samples' bytes and bits, chroma's steps; null for others. */
export function layoutOf(format) {
  const known = /^(?:I(420|422|444)(A?)(?:P(10|12))?|(NV12))$/.exec(format ?? '');
  if (!known) return null;
  const [, kind = '420', alpha = '', bits = '8', pairs] = known;
  return {bits: Number(bits), bytes: bits === '8' ? 1 : 2, across: kind === '444' ? 1 : 2, down: kind === '420' ? 2 : 1, pairs: Boolean(pairs), alpha: alpha !== ''};
}

/** What is assumed of a movie that does not say: Rec. 601 below 720 lines, Rec. 709 from there. */
export const usualMatrix = (height) => height < 720 ? 'smpte170m' : 'bt709';

// Weighted rows, and every other place of a row: the loops of most work, with nothing but numbers in them.
function blend(line, columns, samples, step, rows, weights) {
  const [a, b, c, d] = weights;
  let [p, q, r, s] = rows;
  for (let x = 0; x < columns; ++x, p += step, q += step, r += step, s += step) {
    line[x] = a * samples[p] + b * samples[q] + c * samples[r] + d * samples[s];
  }
}
function spread(full, line, columns, [outer, inner]) {
  // The line has its ends once more before it, and twice behind it.
  line[0] = line[1];
  line[columns + 1] = line[columns + 2] = line[columns];
  for (let x = 0; x < columns; ++x) {
    full[2 * x] = line[x + 1];
    full[2 * x + 1] = inner * (line[x + 1] + line[x + 2]) + outer * (line[x] + line[x + 3]);
  }
}
function mix(pixels, to, samples, from, width, us, vs, numbers) {
  const [black, luma, middle, toRed, redToGreen, blueToGreen, toBlue, most, half] = numbers;
  for (let x = 0; x < width; ++x, to += 4) {
    const grey = (samples[from + x] - black) * luma + half;
    const cb = us[x] - middle;
    const cr = vs[x] - middle;
    const red = grey + toRed * cr;
    const green = grey - redToGreen * cr - blueToGreen * cb;
    const blue = grey + toBlue * cb;
    pixels[to] = red < 0 ? 0 : red > most ? most : red;
    pixels[to + 1] = green < 0 ? 0 : green > most ? most : green;
    pixels[to + 2] = blue < 0 ? 0 : blue > most ? most : blue;
    pixels[to + 3] = most;
  }
}

/**
 * The picture {width, height, depth, hasAlpha, pixels}, RGBA of 8 or, of deeper frames, 16 bits.
 *
 * samples  of all planes, Uint8Array or Uint16Array
 * places   of each plane: {offset, stride} in samples
 * colour   {matrix, fullRange}
 */
export function pictureOf({bits, across, down, pairs, alpha}, width, height, samples, places, {matrix, fullRange}) {
  const depth = bits > 8 ? 2 : 1;
  const pixels = depth === 2 ? new Uint16Array(4 * width * height) : new Uint8Array(4 * width * height);
  const most = depth === 2 ? 65535 : 255;
  const [kr, kb] = matrices[matrix] ?? matrices[usualMatrix(height)];
  const kg = 1 - kr - kb;
  const one = 2 ** (bits - 8);
  const [black, lumaSpan, chromaSpan] = fullRange ? [0, 256 * one - 1, 256 * one - 1] : [16 * one, 219 * one, 224 * one];
  const [toRed, toBlue] = [2 * (1 - kr) * most / chromaSpan, 2 * (1 - kb) * most / chromaSpan];
  // A half goes to the nearest code by cutting off.
  const numbers = [black, most / lumaSpan, 128 * one, toRed, toRed * kr / kg, toBlue * kb / kg, toBlue, most, 0.5];
  const [columns, rows] = [Math.ceil(width / across), Math.ceil(height / down)];
  const chroma = [places[1], pairs ? {...places[1], offset: places[1].offset + 1} : places[2]].map((place) => ({
    ...place, line: new Float32Array(columns + 3), full: new Float32Array(2 * columns),
  }));
  // Vertically chroma lies in the middle between two rows of luma, horizontally at every other one.
  const between = weightsAt(0.5);
  const phases = down === 1 ? [[0, 1, 0, 0]] : [weightsAt(0.75), weightsAt(0.25)];
  for (let y = 0; y < height; ++y) {
    const top = down === 1 ? y : (y >> 1) - 1 + (y & 1);
    for (const {offset, stride, line, full} of chroma) {
      const from = [top - 1, top, top + 1, top + 2].map((row) => offset + stride * Math.min(rows - 1, Math.max(0, row)));
      blend(across === 1 ? full : line.subarray(1), columns, samples, pairs ? 2 : 1, from, phases[y % down]);
      if (across === 2) spread(full, line, columns, between);
    }
    mix(pixels, 4 * y * width, samples, places[0].offset + y * places[0].stride, width, chroma[0].full, chroma[1].full, numbers);
    if (alpha) {
      const from = places[3].offset + y * places[3].stride;
      for (let x = 0; x < width; ++x) pixels[4 * (y * width + x) + 3] = samples[from + x] * most / (256 * one - 1) + 0.5;
    }
  }
  return {width, height, depth, hasAlpha: alpha, pixels};
}

/** A picture turned clockwise by quarters. */
export function turned(picture, quarters) {
  const {width, height, depth, pixels} = picture;
  if (quarters === 0) return picture;
  const [w, h] = quarters === 2 ? [width, height] : [height, width];
  const Words = depth === 2 ? BigUint64Array : Uint32Array;
  const from = new Words(pixels.buffer, pixels.byteOffset, width * height);
  const to = new Words(width * height);
  for (let y = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x) {
      const [u, v] = quarters === 1 ? [height - 1 - y, x] : quarters === 2 ? [width - 1 - x, height - 1 - y] : [y, width - 1 - x];
      to[v * w + u] = from[y * width + x];
    }
  }
  return {...picture, width: w, height: h, pixels: new pixels.constructor(to.buffer)};
}

const screenCode = {
  1: (code) => code, 2: (code) => code / 257,
  4: (light) => 255 * (light <= 0.0031308 ? 12.92 * light : 1.055 * light ** (1 / 2.4) - 0.055),
};

/** At most so large, each pixel one of the picture's, as a screen shows it. */
export function smallOf({width, height, depth, pixels}, mostWidth, mostHeight) {
  const scale = Math.max(1, width / mostWidth, height / mostHeight);
  const [w, h] = [Math.max(1, Math.round(width / scale)), Math.max(1, Math.round(height / scale))];
  const to = new Uint8ClampedArray(4 * w * h);
  for (let y = 0; y < h; ++y) {
    for (let x = 0; x < w; ++x) {
      const from = 4 * (Math.floor((y + 0.5) * height / h) * width + Math.floor((x + 0.5) * width / w));
      for (let c = 0; c < 4; ++c) to[4 * (y * w + x) + c] = c === 3 ? 255 : screenCode[depth](pixels[from + c]);
    }
  }
  return {width: w, height: h, pixels: new Uint8Array(to.buffer)};
}
