// SPDX-License-Identifier: BSD-3-Clause
//
// Pictures of files: PNG and TIFF with all their bits, OpenEXR with all its range, whatever else the
// browser shows in 8.
import {decodeExr, isExr} from './exr.js';
import {decodePng, isPng} from './png.js';
import {decodeTiff, isTiff} from './tiff.js';

/** A picture {width, height, depth, hasAlpha, pixels}. Throws an Error that names the file. */
export async function decode(file) {
  try {
    const bytes = new Uint8Array(await file.arrayBuffer());
    if (isTiff(bytes)) return await decodeTiff(bytes);
    if (isExr(bytes)) return await decodeExr(bytes);
    return (isPng(bytes) && await decodePng(bytes)) || await byBrowser(file);
  } catch (error) {
    const why = error instanceof RangeError ? 'the file is damaged'
      : error instanceof DOMException ? 'this browser shows no such picture' : error.message;
    throw new Error(`${file.name}: ${why}`);
  }
}

async function byBrowser(file) {
  const bitmap = await createImageBitmap(file, {colorSpaceConversion: 'none', premultiplyAlpha: 'none'});
  const context = new OffscreenCanvas(bitmap.width, bitmap.height).getContext('2d', {willReadFrequently: true});
  context.drawImage(bitmap, 0, 0);
  const pixels = new Uint8Array(context.getImageData(0, 0, bitmap.width, bitmap.height).data.buffer);
  let hasAlpha = false;
  for (let i = 3; i < pixels.length && !hasAlpha; i += 4) hasAlpha = pixels[i] !== 255;
  return {width: bitmap.width, height: bitmap.height, depth: 1, hasAlpha, pixels};
}

// Of a video-encoded code in 0..1, as sRGB has it.
const toLight = (code) => code <= Math.fround(0.04045) ? Math.fround(code / Math.fround(12.92))
  : Math.fround(Math.fround(Math.fround(code + Math.fround(0.055)) / Math.fround(1.055)) ** Math.fround(2.4));

/** The light of a picture of codes: its colours, as those of an OpenEXR file are. */
export function inLight(picture) {
  if (picture.depth === 4) return picture;
  const {pixels} = atDepth(picture, 4);
  for (let i = 0; i < pixels.length; ++i) if (i % 4 !== 3) pixels[i] = toLight(pixels[i]);
  return {...picture, depth: 4, pixels};
}

/** The same picture with samples of `depth` bytes, to the nearest; floats are of 0..1. */
export function atDepth(picture, depth) {
  if (picture.depth === depth) return picture;
  if (depth === 4) {
    // The command's library multiplies by a rounded share, too.
    const share = Math.fround(1 / (picture.depth === 2 ? 65535 : 255));
    return {...picture, depth, pixels: Float32Array.from(picture.pixels, (code) => code * share)};
  }
  const pixels = depth === 2 ? Uint16Array.from(picture.pixels, (code) => code * 257)
    : Uint8Array.from(picture.pixels, (code) => (code + 128) / 257);
  return {...picture, depth, pixels};
}
