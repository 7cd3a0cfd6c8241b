// SPDX-License-Identifier: BSD-3-Clause
//
// OpenEXR on the page without a server: files are read as FFmpeg reads them, keyed and written as
// `orvanite key` does; damaged ones are refused in a line.
//   SITE=folder ORVANITE_PROGRAM=program ORVANITE_PLATE=program node --test exr.test.mjs
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import path from 'node:path';
import {after, test} from 'node:test';
import {pathToFileURL} from 'node:url';

const load = (name) => import(pathToFileURL(path.resolve(process.env.SITE, name)));
const [{decodeExr, encodeExr, isExr}, {halfs, toHalf}, {decode, atDepth, inLight}, {Engine}, {Answers}] =
  await Promise.all(['exr.js', 'half.js', 'decode.js', 'engine.js', 'answers.js'].map(load));
const folder = mkdtempSync(path.join(tmpdir(), 'orvanite-exr-'));
after(() => rmSync(folder, {recursive: true}));
const file = (name) => path.join(folder, name);
const bytesOf = (name) => new Uint8Array(readFileSync(file(name)));
const opened = (name) => decode({name, arrayBuffer: async () => bytesOf(name).buffer});
const oiiotool = (...words) => execFileSync('oiiotool', words, {stdio: ['ignore', 'ignore', 'inherit']});

// 61 x 47: no multiple of anything. Ramps beyond 1 and below 0, and grain.
execFileSync('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', 'testsrc2=size=80x60:rate=1,format=rgba64le,crop=61:47:0:0,noise=alls=20:all_seed=3:allf=t', '-frames:v', '1', file('source.png')]);
oiiotool(file('source.png'), '-d', 'float', '--mulc', '9,7,5,1', '--subc', '0.5,0.5,0.5,0', '-o', file('rgba.exr'));
oiiotool(file('rgba.exr'), '--ch', 'R,G,B', '-o', file('rgb.exr'));
oiiotool(file('rgba.exr'), '--ch', 'Y=G', '-o', file('y.exr'));
// More words than 14 bits count, in blocks of 32 rows: each float is another one.
oiiotool('--pattern', 'fill:topleft=0.1,0.2,0.3:topright=7.3,5.1,3.7:bottomleft=0.3,0.9,1.7:bottomright=9.1,2.3,6.1', '701x64', '3', '-d', 'float', '-o', file('ramp.exr'));

/** The planes of FFmpeg's reading as RGBA. */
function expectedOf(name, form, count) {
  const raw = execFileSync('ffmpeg', ['-v', 'error', '-i', file(name), '-f', 'rawvideo', '-pix_fmt', form, '-'], {maxBuffer: 2 ** 26});
  const planes = new Float32Array(Uint8Array.from(raw).buffer);
  const order = form === 'grayf32le' ? [0, 0, 0] : [2, 0, 1, 3];  // of G, B, R, A
  return Float32Array.from({length: 4 * count}, (_, i) => {
    const plane = order[i & 3];
    return plane === undefined || (plane === 3 && form === 'gbrpf32le') ? 1 : planes[plane * count + (i >> 2)];
  });
}

function same(found, expected, what) {
  assert.equal(found.length, expected.length, what);
  const wrong = found.findIndex((value, i) => !(value === expected[i]));
  assert.equal(wrong, -1, `${what}: sample ${wrong} is ${found[wrong]}, not ${expected[wrong]}`);
}

test('every compression, layout and depth is read as FFmpeg reads it', async () => {
  for (const [name, form] of [['rgba.exr', 'gbrapf32le'], ['rgb.exr', 'gbrpf32le'], ['y.exr', 'grayf32le'], ['ramp.exr', 'gbrpf32le']]) {
    for (const depth of name === 'rgb.exr' ? ['float'] : ['half', 'float']) {
      for (const packing of ['none', 'rle', 'zips', 'zip', 'piz']) {
        for (const tiles of name === 'rgba.exr' || packing === 'piz' ? [[], ['--tile', '24', '16']] : [[]]) {
          if (name === 'y.exr' && packing !== 'zip') continue;
          oiiotool(file(name), '-d', depth, ...tiles, '--compression', packing, '-o', file('one.exr'));
          const bytes = bytesOf('one.exr');
          assert.ok(isExr(bytes));
          const found = await decodeExr(bytes);
          const what = `${name} ${depth} ${packing} ${tiles}`;
          assert.deepEqual([found.half, found.hasAlpha, found.depth], [depth === 'half', name === 'rgba.exr', 4], what);
          // Of floats in PIZ whose words take more than 14 bits FFmpeg 5.1 gives zeros: OpenEXR's own library unpacks them.
          const plain = name === 'ramp.exr' && packing === 'piz';
          if (plain) oiiotool(file('one.exr'), '--compression', 'none', '-o', file('plain.exr'));
          same(found.pixels, expectedOf(plain ? 'plain.exr' : 'one.exr', form, found.width * found.height), what);
          if (packing === 'piz' && name === 'ramp.exr' && tiles.length === 0) assert.ok(bytes.length < 0.9 * (depth === 'half' ? 6 : 12) * 701 * 64, `${what}: packed`);
        }
      }
    }
  }
});

test('halfs are rounded to the nearest, ties to even', () => {
  for (let code = 0; code < 65536; ++code) if (!Number.isNaN(halfs[code])) assert.equal(toHalf(halfs[code]), code);
  // Steps are 2^-10 above 1, and 2^-24 below 2^-14; 65520 is half a step beyond the largest, 65504.
  for (const [value, code] of [[1 + 2 ** -11, 0x3c00], [1 + 3 * 2 ** -11, 0x3c02], [1 + 2 ** -11 + 2 ** -20, 0x3c01], [2 ** -25, 0], [3 * 2 ** -25, 2],
    [1.01 * 2 ** -25, 1], [65519, 0x7bff], [65520, 0x7c00], [-1e9, 0xfc00], [2 ** -14 - 2 ** -25, 0x400]]) assert.equal(toHalf(value), code, String(value));
});

test('what is written is read again by others, with its full range', async () => {
  for (const name of ['rgba.exr', 'rgb.exr']) {
    for (const half of [true, false]) {
      const picture = {...await decodeExr(bytesOf(name)), half};
      const blob = await encodeExr(picture, name === 'rgba.exr');
      writeFileSync(file('ours.exr'), Buffer.from(await blob.arrayBuffer()));
      const expected = half ? picture.pixels.map((value) => halfs[toHalf(value)]) : picture.pixels;
      same(expectedOf('ours.exr', name === 'rgba.exr' ? 'gbrapf32le' : 'gbrpf32le', 61 * 47), expected, `${name} ${half}`);
      oiiotool(file(name), '-d', half ? 'half' : 'float', '-o', file('theirs.exr'));
      oiiotool(file('ours.exr'), file('theirs.exr'), '--fail', '0', '--failpercent', '0', '--diff');
    }
  }
});

test('keys of OpenEXR plates have the samples of the command', async (t) => {
  const module = await WebAssembly.compile(readFileSync(path.resolve(process.env.SITE, 'orvanite.wasm')));
  execFileSync(process.env.ORVANITE_PLATE, ['--size', '322x187', '--depth', 'half', folder], {stdio: 'ignore'});
  oiiotool(file('plate.exr'), '-d', 'float', '--mulc', '1.01,1.01,1.01,1', '-o', file('deep.exr'));
  // Every code of 8 bits, for what is brought to light.
  oiiotool('--pattern', 'fill:topleft=0,0,0:topright=1,0,1:bottomleft=0,1,0:bottomright=1,1,0', '322x187', '3', '-d', 'uint8', '-o', file('codes.png'));
  oiiotool('--pattern', 'fill:topleft=0,0,0:topright=1,0,1:bottomleft=0,1,0:bottomright=1,1,0', '322x187', '3', '-d', 'uint16', '-o', file('codes16.png'));
  const green = {screen: '0.0231,0.3674,0.0414'};
  const cases = [
    ['a cut-out', {plate: 'plate.exr'}, green],
    ['a cut-out of floats', {plate: 'deep.exr'}, {...green, screenRange: '0.2'}],
    ['a matte', {plate: 'plate.exr'}, {...green, output: 'matte'}],
    ['a composite', {plate: 'plate.exr', background: 'background.exr'}, {...green, bgSaturation: '0.5'}],
    ['over codes', {plate: 'deep.exr', background: 'codes.png'}, green],
    ['over 16 bits, a matte of 8', {plate: 'plate.exr', background: 'codes16.png', holdOut: 'codes.png'}, green],
    ['mattes beside', {plate: 'plate.exr', background: 'background.exr', garbage: 'garbage.exr', holdOut: 'holdout.exr'}, {...green, holdOutChannel: 'R', garbageChannel: 'R'}],
    ['a finish', {plate: 'plate.exr', background: 'background.exr'}, {...green, shrink: '1.5', soften: '2', lightWrap: '0.5', spill: '0.7'}],
    ['Auto', {plate: 'plate.exr', background: 'background.exr'}, null],
  ];
  for (const [name, files, given] of cases) {
    await t.test(name, async () => {
      const pictures = {};
      for (const [role, one] of Object.entries(files)) {
        const picture = await (one.endsWith('.png') ? load('png.js').then(({decodePng}) => decodePng(bytesOf(one))) : opened(one));
        pictures[role] = {name: one, picture: role === 'background' ? inLight(picture) : atDepth(picture, 4)};
      }
      for (const count of name === 'a composite' || name === 'a finish' ? [1, 3] : [2]) {
        const engines = await Promise.all(Array.from({length: count}, async () => {
          const engine = await Engine.of(module);
          return async (call, ...parts) => engine[call](...parts);
        }));
        const answers = new Answers(engines, pictures);
        await answers.open();
        const state = answers.state();
        assert.equal(state.settings.colourspace, 'linear');
        let settings = {...state.settings, ...given};
        if (!given) for (const [key, value] of Object.entries((await answers.to('auto', {settings})).settings)) if (value !== null) settings[key] = value;
        const command = await answers.to('command', {settings});
        execFileSync(process.env.ORVANITE_PROGRAM, [...command.split(' ').slice(1), '-q'], {cwd: folder});
        const expected = await decodeExr(bytesOf('key.exr'));
        const blob = await answers.render(settings);
        const found = await decodeExr(new Uint8Array(await blob.arrayBuffer()));
        assert.deepEqual([found.half, found.hasAlpha], [expected.half, expected.hasAlpha], command);
        same(found.pixels, expected.pixels, command);
        assert.ok(new Set(found.pixels).size > 100, 'a picture');
        // On screen light is clipped to 0..1 and shown as the nearest code of sRGB (IEC 61966-2-1), a matte as round(255 v).
        const codeOf = (value) => {
          const v = Math.min(1, Math.max(0, value));
          return 255 * (settings.output === 'matte' ? v : v <= 0.0031308 ? 12.92 * v : 1.055 * v ** (1 / 2.4) - 0.055);
        };
        const shown = await answers.to('picture', {settings, view: 'output', divisor: 1, window: [0, 0, 322, 187], measured: true});
        const raw = await engines[0]('key', settings, 'output', [0, 0, 322, 187]);
        const wrong = shown.pixels.findIndex((code, i) => i % 4 !== 3 && Math.abs(code - codeOf(raw.pixels[i])) > 0.502);
        assert.equal(wrong, -1, `${shown.pixels[wrong]} for ${raw.pixels[wrong]}`);
        const {plate} = await answers.to('probe', {settings, view: 'output', x: 5, y: 7});
        assert.deepEqual(plate, [...pictures.plate.picture.pixels.subarray(4 * (7 * 322 + 5), 4 * (7 * 322 + 5) + 4)]);
      }
    });
  }
});

test('what is not read, and what is damaged, is refused in a line', async () => {
  for (const [words, why] of [
    [['--compression', 'pxr24'], /PXR24 compression: orvanite reads it/], [['-d', 'uint32'], /integers samples|integer/],
    [['--fullsize', '80x60+0+0'], /not its whole frame/], [['--chnames', 'U,V,W,A'], /other channels/],
  ]) {
    oiiotool(file('rgba.exr'), ...words, '-o', file('other.exr'));
    await assert.rejects(opened('other.exr'), (error) => error.message.startsWith('other.exr: an OpenEXR file with ') && why.test(error.message));
  }
  let seed = 7;
  const random = (most) => (seed = seed * 1664525 + 1013904223 >>> 0) % most;
  const line = /^bad\.exr: (the file is damaged|the file ends before its picture|more pixels than a page can hold|an OpenEXR file with .+: orvanite reads it)$/;
  let refused = 0;
  for (const packing of ['none', 'rle', 'zip', 'piz']) {
    for (const tiles of [[], ['--tile', '24', '16']]) {
      oiiotool(file('rgba.exr'), '-d', 'half', ...tiles, '--compression', packing, '-o', file('whole.exr'));
      const whole = bytesOf('whole.exr');
      const tries = [0.01, 0.3, 0.7, 0.99].map((part) => whole.slice(0, whole.length * part));
      for (let i = 0; i < 60; ++i) {
        const bytes = whole.slice();
        // Half of them in the header, where the most hangs on a byte.
        for (let n = 0; n <= random(3); ++n) bytes[8 + random(i % 2 ? 400 : whole.length - 8)] = random(256);
        tries.push(bytes);
      }
      for (const [i, bytes] of tries.entries()) {
        if (!isExr(bytes)) continue;
        try {
          const {width, height, pixels} = await decode({name: 'bad.exr', arrayBuffer: async () => bytes.buffer});
          assert.ok(i >= 4, 'what is cut off is refused');
          assert.equal(pixels.length, 4 * width * height);
        } catch (error) {
          if (error.code === 'ERR_ASSERTION') throw error;
          assert.match(error.message, line);
          ++refused;
        }
      }
    }
  }
  assert.ok(refused > 100, `${refused} refused`);
});
