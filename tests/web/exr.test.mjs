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

/** The samples that OpenEXR's own library gives, in the whole frame. */
function plainOf(name, width, height) {
  oiiotool(file(name), '--croptofull', '--origin', '+0+0', '--fullsize', `${width}x${height}+0+0`,
    '-d', 'float', '--compression', 'none', '-o', file('plain.exr'));
  return expectedOf('plain.exr', 'gbrapf32le', width * height);
}

test('lossy compressions are unpacked as the library of OpenEXR unpacks them', async () => {
  for (const depth of ['half', 'float']) {
    for (const packing of ['pxr24', 'b44', 'b44a']) {
      for (const tiles of depth === 'half' ? [[], ['--tile', '24', '16']] : [[]]) {
        for (const marked of packing === 'pxr24' || depth === 'float' ? [false] : [false, true]) {
          const what = `${depth} ${packing} ${tiles} ${marked}`;
          oiiotool(file('rgba.exr'), '-d', depth, ...tiles, '--compression', packing, '-o', file('one.exr'));
          const bytes = bytesOf('one.exr');
          if (marked) {
            // The list of channels says of each whether it is perceptually linear: 4 bytes after its name.
            const at = Buffer.from(bytes.buffer).indexOf('chlist\0') + 11;
            for (const [i, name] of ['A', 'B', 'G', 'R'].entries()) {
              assert.equal(String.fromCharCode(bytes[at + 18 * i]), name);
              bytes[at + 18 * i + 6] = 1;
            }
            writeFileSync(file('one.exr'), bytes);
          }
          same((await decodeExr(bytes)).pixels, plainOf('one.exr', 61, 47), what);
        }
      }
    }
  }
  // A flat picture of B44A is a few bytes a square.
  oiiotool('--pattern', 'constant:color=0.25,0.5,0.75', '64x64', '3', '-d', 'half', '--compression', 'b44a', '-o', file('flat.exr'));
  const flat = bytesOf('flat.exr');
  assert.ok(flat.length < 3000);
  same((await decodeExr(flat)).pixels, Float32Array.from({length: 4 * 64 * 64}, (_, i) => [0.25, 0.5, 0.75, 1][i & 3]), 'flat');
});

test('files that hold more or less than their frame give the frame', async () => {
  // Data of 61 x 47 from its origin on, seen from the frame's corner.
  for (const [words, width, height, own, beyond] of [
    [['--fullsize', '80x60+0+0'], 80, 60, [0, 0, 61, 47], undefined],
    [['--fullsize', '80x60-5-3', '--compression', 'piz'], 80, 60, [5, 3, 61, 47], undefined],
    [['--origin', '+7+9', '--fullsize', '40x30+20+20'], 40, 30, undefined, true],
    [['--origin', '-7-9', '--fullsize', '40x30+0+0', '--tile', '16', '16'], 40, 30, undefined, true],
    [['--origin', '-7+9', '--fullsize', '80x40+0+0', '--compression', 'b44', '-d', 'half'], 80, 40, [0, 9, 54, 31], true],
    [['--origin', '+100+100', '--fullsize', '40x30+0+0'], 40, 30, [100, 100, 0, 0], true],
  ]) {
    oiiotool(file('rgba.exr'), ...words, '-o', file('one.exr'));
    const found = await decodeExr(bytesOf('one.exr'));
    assert.deepEqual([found.width, found.height, found.own, found.beyond], [width, height, own, beyond], words.join(' '));
    same(found.pixels, plainOf('one.exr', width, height), words.join(' '));
  }
});

test('of several parts and layers those are read that the command takes', async () => {
  const [rgba, rgb] = [file('rgba.exr'), file('rgb.exr')];
  const layer = (name) => ['--chnames', `${name}.R,${name}.G,${name}.B,${name}.A`];
  for (const [words, hasAlpha] of [
    [[rgb, '--ch', 'Z=R', rgba, '--siappend'], true],
    [[rgba, rgb, '--ch', 'Z=R', '--siappend', '--compression', 'piz'], true],
    [[rgb, '--ch', 'Y=R', rgb, '--tile', '16', '16', '--siappend'], false],
    [[rgb, '--ch', 'Y=R', rgba, ...layer('diffuse'), '--siappend'], false],
    [[rgb, '--ch', 'Y=R', rgba, ...layer('left.beauty'), '--siappend'], true],
    [[rgba, ...layer('diffuse'), rgb, '--chnames', 'spec.R,spec.G,spec.B', '--chappend'], true],
  ]) {
    oiiotool(...words, '-o', file('parts.exr'));
    const found = await decodeExr(bytesOf('parts.exr'));
    assert.equal(found.hasAlpha, hasAlpha);
    writeFileSync(file('ours.exr'), Buffer.from(await (await encodeExr(found, hasAlpha)).arrayBuffer()));
    // Its exit code says whether they are equal.
    execFileSync(process.env.ORVANITE_PROGRAM, ['compare', file('parts.exr'), file('ours.exr')], {stdio: ['ignore', 'ignore', 'inherit']});
  }
});

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
  oiiotool(file('plate.exr'), '--crop', '201x123+40+31', '-o', file('less.exr'));
  oiiotool(file('holdout.exr'), '--crop', '251x103+20+51', '-o', file('lesshold.exr'));
  oiiotool(file('plate.exr'), '--fullsize', '200x100+17+23', '-o', file('more.exr'));
  oiiotool(file('background.exr'), '--fullsize', '200x100+17+23', '-o', file('morebg.exr'));
  oiiotool(file('background.exr'), '--resize', '130x97', '-o', file('smallbg.exr'));
  oiiotool(file('background.exr'), '--resize', '130x97', '--crop', '71x60+11+20', '-o', file('lessbg.exr'));
  oiiotool(file('codes16.png'), '--resize', '500x300', '-o', file('large.png'));
  oiiotool(file('plate.exr'), '--ch', 'Z=R', file('plate.exr'), '--siappend', '-o', file('part.exr'));
  const green = {screen: '0.0231,0.3674,0.0414'};
  const cases = [
    ['a cut-out', {plate: 'plate.exr'}, green],
    ['a cut-out of floats', {plate: 'deep.exr'}, {...green, screenRange: '0.2'}],
    ['a matte', {plate: 'plate.exr'}, {...green, output: 'matte'}],
    ['a composite', {plate: 'plate.exr', background: 'background.exr'}, {...green, bgSaturation: '0.5'}],
    ['over codes', {plate: 'deep.exr', background: 'codes.png'}, green],
    ['over 16 bits, a matte of 8', {plate: 'plate.exr', background: 'codes16.png', holdOut: 'codes.png'}, green],
    ['over a smaller one', {plate: 'plate.exr', background: 'smallbg.exr'}, green],
    ['over larger codes', {plate: 'plate.exr', background: 'large.png'}, green],
    ['less than the frame, over less of a smaller one', {plate: 'less.exr', background: 'lessbg.exr'}, green],
    ['mattes beside', {plate: 'plate.exr', background: 'background.exr', garbage: 'garbage.exr', holdOut: 'holdout.exr'}, {...green, holdOutChannel: 'R', garbageChannel: 'R'}],
    ['a finish', {plate: 'plate.exr', background: 'background.exr'}, {...green, shrink: '1.5', soften: '2', lightWrap: '0.5', spill: '0.7'}],
    ['Auto', {plate: 'plate.exr', background: 'background.exr'}, null],
    ['less than the frame', {plate: 'less.exr'}, green],
    ['less than the frame, with a finish', {plate: 'less.exr', holdOut: 'lesshold.exr'}, {...green, holdOutChannel: 'R', shrink: '1.5', soften: '2', spill: '0.7'}],
    ['less than the frame over a background', {plate: 'less.exr', background: 'background.exr'}, green],
    ['Auto of less than the frame', {plate: 'less.exr'}, null],
    ['more than the frame', {plate: 'more.exr', background: 'morebg.exr'}, green],
    ['a part', {plate: 'part.exr'}, green],
  ];
  const fitting = await Engine.of(module);
  for (const [name, files, given] of cases) {
    await t.test(name, async () => {
      const pictures = {};
      for (const [role, one] of Object.entries(files)) {
        const picture = await (one.endsWith('.png') ? load('png.js').then(({decodePng}) => decodePng(bytesOf(one))) : opened(one));
        const {width, height} = pictures.plate?.picture ?? picture;
        const sized = picture.width === width && picture.height === height;
        pictures[role] = {name: one, picture: !sized ? fitting.fit(picture, {width, height, depth: 4}) : role === 'background' ? inLight(picture) : atDepth(picture, 4)};
      }
      for (const [count, shares] of name === 'a composite' || name === 'a finish' ? [[1, false], [3, true]] : [[2, true]]) {
        const engines = await Promise.all(Array.from({length: count}, async () => {
          const engine = await Engine.of(module);
          return async (call, ...parts) => engine[call](...parts);
        }));
        const answers = new Answers(engines, pictures, shares);
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
        assert.deepEqual([found.half, found.hasAlpha, found.own], [expected.half, expected.hasAlpha, expected.own], command);
        same(found.pixels, expected.pixels, command);
        assert.ok(new Set(found.pixels).size > 100, 'a picture');
        // On screen light is clipped to 0..1 and shown as the nearest code of sRGB (IEC 61966-2-1), a matte as round(255 v).
        const codeOf = (value) => {
          const v = Math.min(1, Math.max(0, value));
          return 255 * (settings.output === 'matte' ? v : v <= 0.0031308 ? 12.92 * v : 1.055 * v ** (1 / 2.4) - 0.055);
        };
        const shown = await answers.to('picture', {settings, view: 'output', divisor: 1, window: [0, 0, state.width, state.height], measured: true});
        const raw = await engines[0]('key', settings, 'output', [0, 0, state.width, state.height]);
        const codes = Uint8Array.from(shown.bands.flatMap((band) => [...band]));
        const wrong = codes.findIndex((code, i) => i % 4 !== 3 && Math.abs(code - codeOf(raw.pixels[i])) > 0.502);
        assert.equal(wrong, -1, `${codes[wrong]} for ${raw.pixels[wrong]}`);
        const {plate} = await answers.to('probe', {settings, view: 'output', x: 5, y: 7});
        assert.deepEqual(plate, [...pictures.plate.picture.pixels.subarray(4 * (7 * state.width + 5), 4 * (7 * state.width + 5) + 4)]);
      }
    });
  }
});

test('what is not read, and what is damaged, is refused in a line', async () => {
  for (const [words, why] of [
    [['--compression', 'dwaa'], /DWAA compression: orvanite reads it/], [['-d', 'uint32'], /integers samples|integer/],
    [['--chnames', 'U,V,W,A'], /other channels/],
  ]) {
    oiiotool(file('rgba.exr'), ...words, '-o', file('other.exr'));
    await assert.rejects(opened('other.exr'), (error) => error.message.startsWith('other.exr: an OpenEXR file with ') && why.test(error.message));
  }
  let seed = 7;
  const random = (most) => (seed = seed * 1664525 + 1013904223 >>> 0) % most;
  const line = /^bad\.exr: (the file is damaged|the file ends before its picture|more pixels than a page can hold|an OpenEXR file with .+: orvanite reads it)$/;
  let refused = 0;
  for (const packing of ['none', 'rle', 'zip', 'piz', 'pxr24', 'b44a']) {
    for (const tiles of [[], ['--tile', '24', '16'], [file('rgb.exr'), '--siappend']]) {
      oiiotool(file('rgba.exr'), ...tiles, '-d', 'half', '--compression', packing, '-o', file('whole.exr'));
      const whole = bytesOf('whole.exr');
      // Of two parts the first is there while the second is cut off.
      const cut = tiles[1] === '--siappend' ? [0.01, 0.3] : [0.01, 0.3, 0.7, 0.99];
      const tries = cut.map((part) => whole.slice(0, whole.length * part));
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
          assert.ok(i >= cut.length, 'what is cut off is refused');
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
