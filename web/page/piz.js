// SPDX-License-Identifier: BSD-3-Clause
//
// PIZ, of OpenEXR's compressions the one with Haar wavelets: 16-bit words that occur are numbered,
// transformed, and packed by Huffman codes. What leads out of its bounds is damage.

const damaged = () => { throw new Error('the file is damaged'); };
const mostSymbols = 65537;
const longestCode = 48;  // bits; a file would have to hold more than 2^32 words for longer ones
const quickBits = 12;

/** Bits of bytes, high ones first; beyond the end there are zeros. */
class Bits {
  constructor(bytes) { Object.assign(this, {bytes, at: 0, held: 0, count: 0}); }

  take(wanted) {
    while (this.count < wanted) {
      this.held = (this.held << 8 | this.bytes[this.at++]) & 0xffffff;
      this.count += 8;
    }
    this.count -= wanted;
    return this.held >> this.count & (1 << wanted) - 1;
  }
}

// The lengths of the codes of the symbols from..to: 6 bits each, of which large ones are runs of zeros.
function lengthsOf(bits, from, to) {
  const lengths = new Uint8Array(mostSymbols);
  for (let i = from; i <= to; ++i) {
    const length = bits.take(6);
    if (length < 59) {
      if (length > longestCode) damaged();
      lengths[i] = length;
    } else {
      i += (length === 63 ? bits.take(8) + 6 : length - 57) - 1;
      if (i > to) damaged();
    }
  }
  return lengths;
}

/** The codes: those of one length follow each other, longer ones come first. */
class Codes {
  constructor(lengths) {
    const counts = new Float64Array(longestCode + 2);
    for (const length of lengths) if (length > 0) ++counts[length];
    this.first = new Float64Array(longestCode + 2);
    for (let length = longestCode, code = 0; length > 0; --length) {
      this.first[length] = code;
      code = Math.floor((code + counts[length]) / 2);
    }
    this.counts = counts;
    this.begins = new Int32Array(longestCode + 2);
    for (let length = 1; length <= longestCode; ++length) this.begins[length + 1] = this.begins[length] + counts[length];
    this.symbols = new Uint32Array(this.begins[longestCode + 1]);
    const next = this.begins.slice();
    // What the next bits stand for, where that many decide it: symbol and length, or 0.
    this.quick = new Uint32Array(1 << quickBits);
    for (let symbol = 0; symbol < lengths.length; ++symbol) {
      const length = lengths[symbol];
      if (length === 0) continue;
      const index = next[length]++;
      this.symbols[index] = symbol;
      if (length > quickBits) continue;
      const code = this.first[length] + index - this.begins[length];
      if (code >= 2 ** length) damaged();
      const spread = quickBits - length;
      this.quick.fill(symbol << 6 | length, code << spread, code + 1 << spread);
    }
  }
}

function unhuffed(bytes, length) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const [from, to, size] = [view.getUint32(0, true), view.getUint32(4, true), view.getUint32(12, true)];
  if (from >= mostSymbols || to >= mostSymbols || from > to) damaged();
  const table = new Bits(bytes.subarray(20));
  const codes = new Codes(lengthsOf(table, from, to));
  const data = bytes.subarray(20 + table.at);
  if (size > 8 * data.length) damaged();
  const {quick, first, counts, begins, symbols} = codes;
  const words = new Uint16Array(length);
  let at = 0;     // of the next bit
  const peek = (count) => {  // up to 16 of them
    const byte = at >> 3;
    const three = data[byte] << 16 | (data[byte + 1] ?? 0) << 8 | (data[byte + 2] ?? 0);
    return three >> 24 - (at & 7) - count & (1 << count) - 1;
  };
  for (let done = 0; done < length;) {
    if (at >= size) damaged();
    const entry = quick[peek(quickBits)];
    let symbol = entry >> 6;
    if (entry !== 0) at += entry & 63;
    else {
      let code = peek(quickBits);
      let wide = quickBits;
      at += quickBits;
      do {
        if (++wide > longestCode || at >= size) damaged();
        code = 2 * code + peek(1);
        ++at;
      } while (!(code >= first[wide] && code < first[wide] + counts[wide]));
      symbol = symbols[begins[wide] + code - first[wide]];
    }
    if (symbol !== to) { words[done++] = symbol; continue; }
    // The last symbol repeats the word before it.
    const run = peek(8);
    at += 8;
    if (done === 0 || done + run > length) damaged();
    words.fill(words[done - 1], done, done + run);
    done += run;
  }
  if (at > size) damaged();
  return words;
}

/** Takes the wavelet back in words that lie `stepX` and `stepY` apart. */
function unwave(words, start, width, stepX, height, stepY, most) {
  const short = (value) => value << 16 >> 16;
  // Up to 14 bits sums fit; beyond they go round.
  const pair = most < 1 << 14
    ? (a, b) => {
      const [low, high] = [short(words[a]), short(words[b])];
      const sum = low + (high & 1) + (high >> 1);
      words[a] = sum;
      words[b] = sum - high;
    }
    : (a, b) => {
      const [mean, difference] = [words[a], words[b]];
      const low = mean - (difference >> 1) & 0xffff;
      words[b] = low;
      words[a] = difference + low - 0x8000 & 0xffff;
    };
  let level = 1;
  while (2 * level <= Math.min(width, height)) level *= 2;
  for (let wide = level, step = level >> 1; step >= 1; wide = step, step >>= 1) {
    const [x1, y1] = [stepX * step, stepY * step];
    for (let y = 0; y + wide <= height; y += wide) {
      let x = 0;
      for (; x + wide <= width; x += wide) {
        const at = start + y * stepY + x * stepX;
        pair(at, at + y1);
        pair(at + x1, at + x1 + y1);
        pair(at, at + x1);
        pair(at + y1, at + x1 + y1);
      }
      if (width & step) pair(start + y * stepY + x * stepX, start + y * stepY + x * stepX + y1);
    }
    if (height & step) {
      const y = Math.floor(height / wide) * wide;
      for (let x = 0; x + wide <= width; x += wide) {
        const at = start + y * stepY + x * stepX;
        pair(at, at + x1);
      }
    }
  }
}

/**
 * A block's bytes, row by row and in each channel by channel.
 *
 * sizes  of each channel's samples, in bytes
 */
export function unpiz(bytes, width, height, sizes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const [low, high] = [view.getUint16(0, true), view.getUint16(2, true)];
  if (low >= 8192 || high >= 8192) damaged();
  // The words that occur, and none more: 0 always does.
  const words = new Uint16Array(65536);
  let count = 1;
  const bitmap = low <= high ? bytes.subarray(4, 5 + high - low) : new Uint8Array(0);
  bitmap.forEach((byte, i) => {
    for (let bit = 0; bit < 8; ++bit) {
      const word = 8 * (low + i) + bit;
      if (byte >> bit & 1 && word > 0) words[count++] = word;
    }
  });
  const at = 4 + bitmap.length;
  const length = view.getUint32(at, true);
  if (length > bytes.length - at - 4) damaged();
  const units = sizes.map((size) => size / 2);
  const perRow = width * units.reduce((sum, unit) => sum + unit, 0);
  const planes = unhuffed(bytes.subarray(at + 4, at + 4 + length), perRow * height);
  const result = new Uint16Array(perRow * height);
  let plane = 0;
  let left = 0;
  for (const unit of units) {
    for (let i = 0; i < unit; ++i) unwave(planes, plane + i, width, unit, height, width * unit, count - 1);
    for (let y = 0; y < height; ++y) {
      for (let x = 0; x < width * unit; ++x) result[y * perRow + left + x] = words[planes[plane + y * width * unit + x]];
    }
    plane += width * height * unit;
    left += width * unit;
  }
  return new Uint8Array(result.buffer);
}
