// SPDX-License-Identifier: BSD-3-Clause
//
// The page's own decoders against FFmpeg's: every kind of PNG and TIFF that they read gives the
// samples that FFmpeg gives; what they do not read, and what is cut off, is refused.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import path from 'node:path';
import {after, test} from 'node:test';
import {pathToFileURL} from 'node:url';

const load = (name) => import(pathToFileURL(path.resolve(process.env.SITE, name)));
const {decodePng, isPng} = await load('png.js');
const {decodeTiff, isTiff} = await load('tiff.js');
const folder = mkdtempSync(path.join(tmpdir(), 'orvanite-formats-'));
after(() => rmSync(folder, {recursive: true}));
const file = (name) => path.join(folder, name);
const ffmpeg = (...words) => execFileSync('ffmpeg', ['-v', 'error', '-y', ...words], {maxBuffer: 2 ** 26});

// 61 x 47: no multiple of anything. Noise beside ramps, so that long and short LZW texts occur.
const size = '61x47';
ffmpeg('-f', 'lavfi', '-i', `testsrc2=size=80x60:rate=1,format=rgba64le,crop=61:47:0:0,noise=alls=20:all_seed=3:allf=t,geq=r='r(X,Y)+37*X':g='g(X,Y)':b='b(X,Y)+91*Y':a='X*1000'`, '-frames:v', '1', file('source.png'));

async function decoded(name) {
  const bytes = new Uint8Array(readFileSync(file(name)));
  assert.ok(name.endsWith('.png') ? isPng(bytes) : isTiff(bytes));
  return name.endsWith('.png') ? decodePng(bytes) : decodeTiff(bytes);
}

async function same(name) {
  const found = await decoded(name);
  const raw = ffmpeg('-i', file(name), '-f', 'rawvideo', '-pix_fmt', found.depth === 2 ? 'rgba64le' : 'rgba', '-');
  const expected = found.depth === 2 ? new Uint16Array(Uint8Array.from(raw).buffer) : Uint8Array.from(raw);
  assert.equal(`${found.width}x${found.height}`, size);
  const wrong = found.pixels.findIndex((code, i) => code !== expected[i]);
  assert.equal(wrong, -1, `${name}: sample ${wrong} is ${found.pixels[wrong]}, not ${expected[wrong]}`);
  assert.equal(found.pixels.length, expected.length);
  return found;
}

test('PNG of every colour type and depth', async () => {
  for (const form of ['rgb24', 'rgba', 'pal8', 'monob', 'gray', 'ya8', 'rgb48be', 'rgba64be', 'gray16be', 'ya16be']) {
    for (const filter of form.startsWith('rgb') ? ['none', 'mixed', 'paeth', 'avg'] : ['mixed']) {
      ffmpeg('-i', file('source.png'), '-pix_fmt', form, '-pred', filter, file('one.png'));
      const {depth, hasAlpha} = await same('one.png');
      assert.equal(depth, /16|48|64/.test(form) ? 2 : 1, form);
      // Of a palette FFmpeg says alpha where one of its colours has some.
      if (form !== 'pal8') assert.equal(hasAlpha, /a/.test(form.replace('gray', '')), form);
    }
  }
});

test('TIFF of every compression, layout and byte order', async () => {
  for (const form of ['rgb24', 'rgba', 'gray', 'rgb48le', 'rgba64le', 'gray16le']) {
    for (const packing of ['raw', 'lzw', 'deflate']) {
      ffmpeg('-i', file('source.png'), '-pix_fmt', form, '-compression_algo', packing, file('one.tiff'));
      const {depth} = await same('one.tiff');
      assert.equal(depth, /16|48|64/.test(form) ? 2 : 1);
    }
  }
  // Tiles, predictors and the other byte order, by another writer. FFmpeg does not read them all:
  // the samples are those of the plain file.
  ffmpeg('-i', file('source.png'), '-pix_fmt', 'rgb48be', file('plain.png'));
  const plain = await decoded('plain.png');
  for (const packing of ['none', 'lzw', 'zip']) {
    for (const words of [[], ['--tile', '16', '16'], ['--attrib', 'tiff:bigendian', '1']]) {
      execFileSync('oiiotool', [file('plain.png'), ...words, '--compression', packing, '-o', file('two.tif')]);
      assert.deepEqual((await decoded('two.tif')).pixels, plain.pixels, `${packing} ${words}`);
    }
  }
});

test('what is not read, and what is damaged, is refused', async () => {
  execFileSync('oiiotool', [file('source.png'), '-d', 'float', '-o', file('float.tif')]);
  await assert.rejects(decoded('float.tif'), /float samples/);
  ffmpeg('-i', file('source.png'), '-pix_fmt', 'rgb48le', '-compression_algo', 'lzw', file('one.tiff'));
  for (const [name, decode] of [['source.png', decodePng], ['one.tiff', decodeTiff]]) {
    const bytes = new Uint8Array(readFileSync(file(name)));
    for (const part of [0.02, 0.3, 0.6, 0.9]) await assert.rejects(decode(bytes.slice(0, Math.floor(bytes.length * part))), `${name}: ${part}`);
  }
});
