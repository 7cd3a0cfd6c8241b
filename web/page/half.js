// SPDX-License-Identifier: BSD-3-Clause
//
// Half floats (IEEE 754 binary16): their values, and the nearest one to a float, ties to even.

const word = new Float32Array(1);
const bits = new Uint32Array(word.buffer);

/** The value of each of the 65536 halfs. */
export const halfs = Float32Array.from({length: 65536}, (_, code) => {
  const [exponent, fraction] = [code >> 10 & 31, code & 1023];
  const size = exponent === 31 ? (fraction ? NaN : Infinity)
    : exponent === 0 ? fraction * 2 ** -24 : (1 + fraction / 1024) * 2 ** (exponent - 15);
  return code & 0x8000 ? -size : size;
});

/** The code of the half that is nearest to a float. */
export function toHalf(value) {
  word[0] = value;
  const sign = bits[0] >>> 16 & 0x8000;
  const size = bits[0] & 0x7fffffff;
  if (size > 0x7f800000) return sign | 0x7e00;
  if (size >= 0x477ff000) return sign | 0x7c00;  // 65520 and more
  const shift = size < 0x38800000 ? Math.min(24, 126 - (size >>> 23)) : 13;
  // Below 2^-14 steps are 2^-24 wide: the leading bit counts, and falls where its exponent says.
  const whole = shift === 13 ? size - 0x38000000 : size < 0x33000000 ? 0 : size & 0x7fffff | 0x800000;
  const floor = whole >>> shift;
  const rest = whole & (1 << shift) - 1;
  const middle = 1 << shift - 1;
  return sign | floor + (rest > middle || (rest === middle && floor & 1) ? 1 : 0);
}
