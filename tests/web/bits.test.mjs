// SPDX-License-Identifier: BSD-3-Clause
//
// The page without a server against `orvanite key`: the same plate and settings give the same
// samples, whether one engine keys them or three, from memory of their own or shared.
//   SITE=folder ORVANITE_PROGRAM=program node --test bits.test.mjs
import assert from 'node:assert/strict';
import {execFile} from 'node:child_process';
import {mkdtemp, readFile, rm, writeFile} from 'node:fs/promises';
import {tmpdir} from 'node:os';
import path from 'node:path';
import {test} from 'node:test';
import {pathToFileURL} from 'node:url';
import {promisify} from 'node:util';

const site = path.resolve(process.env.SITE);
const load = (name) => import(pathToFileURL(path.join(site, name)));
const {Engine} = await load('engine.js');
const {Answers} = await load('answers.js');
const {Shot} = await load('shot.js');
const {decodePng, encodePng} = await load('png.js');
const {atDepth} = await load('decode.js');
const module = await WebAssembly.compile(await readFile(path.join(site, 'orvanite.wasm')));

let seed = 1;
const random = () => (seed = seed * 1664525 + 1013904223 >>> 0) / 2 ** 32;

/** A picture of a size from colour(x, y), 0..1 each. */
function picture(width, height, depth, colour) {
  const most = depth === 2 ? 65535 : 255;
  const pixels = new (depth === 2 ? Uint16Array : Uint8Array)(4 * width * height);
  for (let i = 0; i < width * height; ++i) {
    const rgba = colour(i % width, Math.floor(i / width));
    for (let c = 0; c < 4; ++c) pixels[4 * i + c] = Math.max(0, Math.min(most, Math.round((rgba[c] ?? 1) * most)));
  }
  return {width, height, depth, hasAlpha: false, pixels};
}

const width = 322;
const height = 187;
const joined = (bands) => Uint8Array.from(bands.flatMap((band) => [...band]));
// An uneven green screen with grain, before it a ball with a soft edge and a see-through half.
const plateOf = (depth) => picture(width, height, depth, (x, y) => {
  const light = 0.75 + 0.25 * x / width;
  const screen = [0.12, 0.66, 0.21].map((v) => v * light + 0.02 * (random() - 0.5));
  const far = Math.hypot(x - 150, y - 90);
  const held = Math.max(0, Math.min(1, (62 - far) / 8)) * (y > 110 ? 0.6 : 1);
  const ball = [0.75, 0.5 - 0.2 * x / width, 0.35];
  return screen.map((v, c) => v * (1 - held) + ball[c] * held);
});
const background = (depth) => picture(width, height, depth, (x, y) => [x / width, 0.3, y / height]);
// One of another size, with grain, edges and every code in it.
const sized = (depth, width, height) => picture(width, height, depth, (x, y) => [random(), (x >> 3) % 2, (y * width + x) / (width * height)]);
const matte = picture(width, height, 1, (x) => { const v = x < 40 ? 1 : Math.max(0, 1 - (x - 40) / 20); return [v, v, v]; });

const screen = {screen: '0.12,0.66,0.21', colourspace: 'video'};
// Soft ones of every kind and use, and what lies outside of one.
const masks = JSON.stringify({orvanite: 'masks', version: 1, shapes: [
  {kind: 'polygon', soft: 7, keys: [{frame: 1, points: [[200, 20.5], [300, 40], [210, 160]]}]},
  {kind: 'ellipse', use: 'holdOut', soft: 30, keys: [{frame: 1, points: [[150, 90]], radii: [70.3, 41], turn: 33.7}]},
  {kind: 'brush', soft: 3, keys: [{frame: -5, points: [[20, 20], [60, 150], [120, 180]], radii: [4]}, {frame: 7, points: [[30, 20], [60, 150], [120, 170]], radii: [14]}]},
  {kind: 'ellipse', outside: true, soft: 9, keys: [{frame: 1, points: [[160, 93]], radii: [158, 90]}]},
]});
const cases = [
  ['a cut-out', 1, {}, {...screen, output: 'unpremultiplied'}],
  ['a cut-out of 16 bits', 2, {}, {...screen, output: 'unpremultiplied', screenRange: '0.2'}],
  ['a composite', 1, {background: background(1)}, {...screen, output: 'composite', bgSaturation: '0.5'}],
  ['a matte in linear light', 1, {}, {...screen, colourspace: 'linear', output: 'matte'}],
  ['a composite over a smaller background', 1, {background: sized(1, 161, 120)}, {...screen, output: 'composite'}],
  ['a composite over a larger one of 16 bits', 2, {background: sized(2, 700, 330)}, {...screen, output: 'composite'}],
  ['8 bits over a higher and narrower one of 16', 1, {background: sized(2, 300, 400)}, {...screen, output: 'composite', lightWrap: '0.5'}],
  ['16 bits over a smaller one of 8', 2, {background: sized(1, 77, 45)}, {...screen, output: 'composite'}],
  ['mattes beside', 1, {garbage: matte, background: background(1)}, {...screen, output: 'composite'}],
  ['a finish', 1, {background: background(1)}, {...screen, output: 'composite', shrink: '1.5', soften: '2', lightWrap: '0.5', spill: '0.7', islands: '3'}],
  ['drawn masks', 2, {}, {...screen, output: 'unpremultiplied', masks}],
  ['drawn masks beside a matte', 1, {garbage: matte, background: background(1)}, {...screen, output: 'composite', shrink: '1', masks}],
  ['estimates of a screen whose colour is given', 1, {}, {...screen, output: 'unpremultiplied', estimate: 'light', replace: '0.4,0.5,0.3'}],
  // Which channel leads is what the given colour says.
  ['estimates of a screen called blue', 2, {}, {screen: '0.12,0.3,0.66', colourspace: 'video', output: 'unpremultiplied', estimate: 'codes'}],
  ['Auto', 1, {}, null],
  ['Auto of 16 bits over a background', 2, {background: background(2)}, null],
];

for (const [name, ofPlate, beside, given] of cases) {
  test(`${name} has the bits of the command`, async (t) => {
    const folder = await mkdtemp(path.join(tmpdir(), 'orvanite-web-'));
    t.after(() => rm(folder, {recursive: true}));
    const pictures = {};
    for (const [role, one] of Object.entries({plate: plateOf(ofPlate), ...beside})) {
      const file = `${role}.png`;
      await writeFile(path.join(folder, file), Buffer.from(await (await encodePng(one, false)).arrayBuffer()));
      pictures[role] = {name: file, picture: await decodePng(new Uint8Array(await readFile(path.join(folder, file))))};
      assert.deepEqual(pictures[role].picture.pixels, one.pixels, 'what is written is what is read');
    }
    const depth = Math.max(ofPlate, beside.background?.depth ?? 1);
    const fitting = await Engine.of(module);
    for (const one of Object.values(pictures)) {
      one.picture = one.picture.width === width && one.picture.height === height ? atDepth(one.picture, depth) : fitting.fit(one.picture, {width, height, depth});
      assert.equal(one.picture.depth, depth);
    }
    for (const [count, shares] of name === 'a composite' ? [[1, true], [3, false], [3, true]] : [[1, false], [3, true]]) {
      const engines = await Promise.all(Array.from({length: count}, async () => {
        const engine = await Engine.of(module);
        return async (call, ...parts) => engine[call](...parts);
      }));
      const answers = new Answers(engines, pictures, shares);
      await answers.open();
      const state = answers.state();
      let settings = given;
      if (!settings) {
        const found = await answers.to('auto', {settings: state.settings});
        settings = {...state.settings};
        for (const [key, value] of Object.entries(found.settings)) if (value !== null) settings[key] = value;
        assert.ok(found.coverage > 0.3 && found.coverage < 0.95, `coverage ${found.coverage}`);
        const {coverage} = await answers.to('coverage', {settings});
        assert.ok(Math.abs(coverage - found.coverage) < 0.02, `coverage ${coverage}, by Auto ${found.coverage}`);
      }
      const command = await answers.to('command', {settings, name: 'masks.json'});
      assert.equal(command.includes(' --masks masks.json '), 'masks' in settings);
      await writeFile(path.join(folder, 'masks.json'), await answers.to('masks', {settings}));
      await promisify(execFile)(process.env.ORVANITE_PROGRAM, command.split(' ').slice(1), {cwd: folder});
      const expected = await decodePng(new Uint8Array(await readFile(path.join(folder, 'key.png'))));
      const found = await decodePng(new Uint8Array(await (await answers.render(settings)).arrayBuffer()));
      assert.equal(found.depth, expected.depth);
      assert.equal(found.hasAlpha, expected.hasAlpha);
      const differing = found.pixels.findIndex((code, i) => code !== expected.pixels[i]);
      assert.equal(differing, -1, `${command}: sample ${differing} is ${found.pixels[differing]}, not ${expected.pixels[differing]}`);
      assert.ok(new Set(found.pixels).size > 20, 'a picture, not one colour');
      // What the screen shows in bands is what was rendered, cut to 8 bits.
      const shown = await answers.to('picture', {settings, view: 'output', divisor: 1, window: [0, 0, width, height], measured: true});
      const screenCode = (code) => depth === 2 ? Math.floor((code + 128) / 257) : code;
      assert.equal(shown.bands.length, (settings.estimate ?? 'off') !== 'off' ? 1 : count);
      const wrong = joined(shown.bands).findIndex((code, i) => code !== (i % 4 === 3 ? 255 : screenCode(found.pixels[i])));
      assert.equal(wrong, -1);
      const {clear, between, solid, bins} = shown.matte;
      assert.equal(clear + between + solid, width * height);
      assert.equal(bins.reduce((sum, n) => sum + n, 0), width * height);
      // Whatever is shown, the matte is what is counted of it.
      const ofMatte = await answers.to('picture', {settings, view: 'matte', divisor: 1, window: [0, 0, width, height], measured: true});
      const ofPlate = await answers.to('picture', {settings, view: 'plate', divisor: 1, window: [0, 0, width, height], measured: true});
      for (const other of [ofMatte, ofPlate]) assert.deepEqual(shown.matte, other.matte);
      const whole = await engines[0]('key', settings, 'matte', [0, 0, width, height]);
      const most = depth === 2 ? 65535 : 255;
      const alphas = whole.pixels.filter((_, i) => i % 4 === 3);
      assert.equal(solid, alphas.filter((code) => code === most).length);
      assert.equal(clear, alphas.filter((code) => code === 0).length);
      // Bins are the nearest of 256 steps, but for the two ends.
      const counts = new Array(256).fill(0);
      for (const code of alphas) ++counts[Math.round(255 * code / most)];
      if (depth === 1) assert.deepEqual(bins, counts);
    }
  });
}

// Frames 8 to 11 of a ball that moves; a background of two frames, which holds its ends.
const shotCases = [
  ['curves and masks that move', {...screen, output: 'composite', screenRange: 'linear(time, 8@0.02, 11@0.3)', masks}],
  ['Auto, beside estimates of several frames', null],
];
for (const [name, settings] of shotCases) {
  test(`a shot with ${name} has the bits of the command`, async (t) => {
    const folder = await mkdtemp(path.join(tmpdir(), 'orvanite-web-'));
    t.after(() => rm(folder, {recursive: true}));
    const plates = [0, 1, 2, 3].map((n) => picture(width, height, 1, (x, y) => {
      const green = [0.12, 0.66, 0.21].map((v) => v * (0.8 + 0.2 * x / width) + 0.02 * (random() - 0.5));
      const held = Math.max(0, Math.min(1, (40 - Math.hypot(x - 90 - 40 * n, y - 90)) / 6));
      return green.map((v, c) => v * (1 - held) + [0.75, 0.45, 0.35][c] * held);
    }));
    const backgrounds = [0, 1].map((n) => picture(width, height, 1, (x, y) => [x / width, 0.3 + 0.4 * n, y / height]));
    const clipOf = async (role, pictures, first) => {
      const numbers = pictures.map((_, i) => i + first);
      for (const [i, one] of pictures.entries()) {
        await writeFile(path.join(folder, `${role}.${String(numbers[i]).padStart(4, '0')}.png`), Buffer.from(await (await encodePng(one, false)).arrayBuffer()));
      }
      const clip = {name: `${role}.####.png`, numbers, rate: 24, times: numbers.map((n) => n / 24), isShot: true, kind: 'picture', picture: async (i) => pictures[i]};
      return {name: clip.name, clip, picture: pictures[0], fit: async (one) => one};
    };
    const engines = await Promise.all([0, 1, 2].map(async () => {
      const engine = await Engine.of(module);
      return async (call, ...parts) => engine[call](...parts);
    }));
    const shot = new Shot(engines, {plate: await clipOf('plate', plates, 8), background: await clipOf('background', backgrounds, 9)});
    await shot.open();
    const state = shot.state();
    assert.deepEqual([state.frames, state.isShot, state.ending], [[8, 9, 10, 11], true, '.zip']);
    const given = settings ?? {...state.settings, ...Object.fromEntries(Object.entries((await shot.to('auto', {settings: state.settings, frame: 10})).settings).filter(([, text]) => text !== null))};
    if (!settings) assert.ok('estimate' in given);
    const line = await shot.to('command', {settings: given, name: 'masks.json'});
    await writeFile(path.join(folder, 'masks.json'), await shot.to('masks', {settings: given}));
    await promisify(execFile)('sh', ['-c', line.replace('orvanite', '"$ORVANITE_PROGRAM"')], {cwd: folder});
    for (const frame of [8, 11, 10, 9]) {
      const expected = await decodePng(new Uint8Array(await readFile(path.join(folder, `key.${String(frame).padStart(4, '0')}.png`))));
      const shown = await shot.to('picture', {settings: given, frame, view: 'output', divisor: 1, window: [0, 0, width, height], measured: true});
      const pixels = joined(shown.bands);
      const wrong = pixels.findIndex((code, i) => code !== expected.pixels[i]);
      assert.equal(wrong, -1, `${line}: frame ${frame}: sample ${wrong} is ${pixels[wrong]}, not ${expected.pixels[wrong]}`);
    }
    await assert.rejects(shot.to('picture', {settings: given, frame: 12}), {subject: 'frame', message: /one of the shot's, found 12/});
    const probed = await shot.to('probe', {settings: given, frame: 9, view: 'output', x: 130, y: 90});
    assert.ok(probed.matte > 0.9, 'the ball of frame 9 is there');
  });
}

test('engines hold no more of the pictures than the rows that they key', async () => {
  // Two pictures of 4096 x 2048 codes are 64 MiB: among four engines the rows of both and of the result
  // are 96 MiB, and each begins with 32. Whole copies would be 64 MiB in each.
  const [width, height] = [4096, 2048];
  const pixels = new Uint8Array(4 * width * height).map((_, i) => [31, 168, 54, 255][i & 3] - (i >> 14 & 7));
  const one = {name: 'one.png', picture: {width, height, depth: 1, hasAlpha: false, pixels}};
  const engines = await Promise.all(Array.from({length: 4}, () => Engine.of(module)));
  const answers = new Answers(engines.map((engine) => async (call, ...parts) => engine[call](...parts)), {plate: one, background: one}, true);
  await answers.open();
  const settings = {...screen, output: 'composite'};
  const ask = (window, divisor, proxy) => answers.to('picture', {settings, view: 'composite', divisor, proxy, window, measured: true});
  const bytes = () => engines.reduce((sum, {exports}) => sum + exports.memory.buffer.byteLength, 0);
  const {bands} = await ask([0, 0, width, height], 1, false);
  assert.ok(bytes() < 4 * 40 * 2 ** 20, `${bytes() / 2 ** 20} MiB`);
  // Looks at parts and at pixels in between change nothing of what is shown, and leave holes at the most.
  await ask([0, 0, width, height], 3, true);
  await ask([1024, 512, 1024, 1024], 1, false);
  for (const y of [0, 700, 2047]) await answers.to('probe', {settings, view: 'composite', x: 9, y});
  assert.deepEqual((await ask([0, 0, width, height], 1, false)).bands, bands);
  assert.ok(bytes() < 4 * 64 * 2 ** 20, `${bytes() / 2 ** 20} MiB`);
});

test('what is wrong is said, and the engine goes on', async () => {
  const engine = await Engine.of(module);
  const plate = plateOf(1);
  engine.take('plate', plate);
  const settings = {screen: '0.12,0.66,0.21', output: 'matte'};
  const before = engine.key(settings, 'output', [0, 0, width, height]).pixels;
  for (let i = 0; i < 200; ++i) {
    assert.throws(() => engine.ask('given', {settings: {screenRange: 'much'}}), {subject: 'screenRange', message: /expected a number.*'much'/});
    for (const text of ['0x1p-2', '1e999', '1 2', '', '++1']) {
      assert.throws(() => engine.ask('given', {settings: {screenRange: text}}), {subject: 'screenRange'});
    }
    assert.equal(engine.ask('given', {settings: {screenRange: ' +1e-1 '}}).screenRange, '0.1');
    assert.throws(() => engine.fit({...plate, depth: 3}, {width, height, depth: 1}), {subject: 'picture'});
    assert.throws(() => engine.take('background', picture(8, 8, 1, () => [0, 0, 0])), {subject: 'background', message: /322x187.*8x8/});
    assert.throws(() => engine.take('background', {...plate, pixels: plate.pixels.subarray(4)}), {subject: 'background', message: /as many samples/});
    assert.throws(() => engine.ask('masks', {settings: {masks: '{}'}}), {subject: 'masks', message: /expected masks/});
    assert.throws(() => engine.ask('usePreset', {text: '{"a'}), {subject: 'preset'});
    assert.throws(() => engine.ask('show', {settings: {}, view: 'plate', divisor: 1, window: [400, 0, 1, 1]}), {subject: 'window'});
  }
  engine.take('plate', picture(64, 64, 1, () => [0.5, 0.5, 0.5]));
  assert.throws(() => engine.ask('find', {settings: {}}), /screen/);
  engine.take('plate', plate);
  assert.deepEqual(engine.key(settings, 'output', [0, 0, width, height]).pixels, before);
});
