// SPDX-License-Identifier: BSD-3-Clause
//
// Keys a picture of raw RGBA bytes:
//   node example.mjs WIDTH HEIGHT IN.rgba OUT.rgba [NAME=VALUE...]
// Without a screen=R,G,B the screen is found.
import {readFile, writeFile} from 'node:fs/promises';
import {Keyer} from './index.js';

const [width, height, from, to, ...values] = process.argv.slice(2);
try {
  const plate = {width: Number(width), height: Number(height), data: new Uint8Array(await readFile(from))};
  const keyer = await Keyer.create();
  keyer.set('colourspace', 'video').set('output', 'unpremultiplied');
  for (const each of values) keyer.set(...each.split('=', 2));
  if (!keyer.isGiven('screen')) console.log(`found ${keyer.find(plate).join(', ')}`);
  await writeFile(to, keyer.key({plate}).data);
} catch (error) {
  console.error(`example: ${error.message}`);
  process.exitCode = 1;
}
