// SPDX-License-Identifier: BSD-3-Clause
//
// The npm package against `orvanite key`: same plate, same samples; and what it refuses.
//   NPM=folder ORVANITE_PROGRAM=program ORVANITE_PLATE=program node --test npm.test.mjs
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import path from 'node:path';
import {after, test} from 'node:test';
import {pathToFileURL} from 'node:url';

const npm = path.resolve(process.env.NPM);
const {Keyer, OrvaniteError} = await import(pathToFileURL(path.join(npm, 'index.js')));
const {decodePng} = await import(pathToFileURL(path.join(path.resolve(process.env.SITE), 'png.js')));
const folder = mkdtempSync(path.join(tmpdir(), 'orvanite-npm-'));
after(() => rmSync(folder, {recursive: true}));
const at = (name) => path.join(folder, name);
const width = 320, height = 176;
execFileSync(process.env.ORVANITE_PLATE, ['--size', `${width}x${height}`, folder]);

/** A PNG's pixels as RGBA. */
async function rgba(name) {
  const {pixels, depth} = await decodePng(readFileSync(at(name)));
  assert.equal(pixels.length, 4 * width * height);
  return depth === 2 ? new Uint16Array(pixels) : new Uint8Array(pixels);
}
async function command(...options) {
  execFileSync(process.env.ORVANITE_PROGRAM, ['key', at('plate.png'), '-q', '--colourspace', 'video', ...options, '-o', at('keyed.png')]);
  return rgba('keyed.png');
}
const plate = {width, height, data: await rgba('plate.png')};
const background = {width, height, data: await rgba('background.png')};
const same = (data, expected) => assert.equal(Buffer.compare(Buffer.from(data.buffer), Buffer.from(expected.buffer)), 0);

const cutOut = ['--output', 'unpremultiplied', '--alpha', 'matte'];
for (const [name, options, values, find, beside] of [
  ['a given screen', ['--screen', '0.2,0.6,0.2', '--screen-range', '0.1', '--exposure', '1.2', ...cutOut], {screen: [0.2, 0.6, 0.2], screenRange: 0.1, exposure: 1.2, output: 'unpremultiplied'}],
  ['Auto', ['--auto', ...cutOut], {output: 'unpremultiplied'}, true],
  ['a finish over a background', ['--screen', '0.2,0.6,0.2', '--soften', '2', '--spill', '0.5', '--bg', at('background.png'), '--output', 'composite', '--alpha', 'matte'], {screen: '0.2,0.6,0.2', soften: 2, spill: 0.5}, false, {background}],
]) {
  test(`${name} gives the command's samples`, async () => {
    const keyer = await Keyer.create();
    keyer.set('colourspace', 'video');
    for (const [parameter, value] of Object.entries(values)) keyer.set(parameter, value);
    if (find) assert.ok(keyer.find(plate).includes('screen'));
    const keyed = keyer.key({plate, ...beside});
    same(keyed.data, await command(...options));
    same(plate.data, await rgba('plate.png'));  // it stays as it was
    // A preset carries all but what was estimated; three channels or four are the same plate.
    if (!find) {
      const other = (await Keyer.create()).usePreset(keyer.preset());
      const three = {width, height, data: plate.data.filter((_, i) => i % 4 !== 3)};
      same(other.key({plate: three, ...beside}).data, keyed.data);
    }
    keyer.delete();
  });
}

test('the example keys a file, and its faults end it with a line', async () => {
  writeFileSync(at('in.rgba'), plate.data);
  const run = (...words) => execFileSync(process.execPath, [path.join(npm, 'example.mjs'), ...words], {encoding: 'utf8', stdio: 'pipe'});
  run(width, height, at('in.rgba'), at('out.rgba'), 'screen=0.2,0.6,0.2');
  same(new Uint8Array(readFileSync(at('out.rgba'))).slice(), await command('--screen', '0.2,0.6,0.2', ...cutOut));
  assert.throws(() => run(width, height + 1, at('in.rgba'), at('out.rgba')), (error) => /^example: plate: expected 320x177 pixels/.test(error.stderr));
});

test('what cannot be is refused in the words of the C interface', async () => {
  const keyer = await Keyer.create();
  const grey = {width: 8, height: 8, data: new Uint8Array(256).fill(128)};
  for (const [result, words, call] of [
    [1, /screenRang.*screenRange/, () => keyer.set('screenRang', 1)],
    [1, /screenRange/, () => keyer.set('screenRange', NaN)],
    [1, /screenRange/, () => keyer.set('screenRange', [1, 2, 3])],
    [1, /expected 1 number or 3/, () => keyer.set('screen', [1, 2])],
    [1, /output/, () => keyer.set('output', 'upside down')],
    [1, /nothing/, () => keyer.get('nothing')],
    [2, /preset/, () => keyer.usePreset('{')],
    [2, /expected a screen of one colour, found none/, () => keyer.findScreen(grey)],
    [1, /cleanPlate: expected never, ifUseful, given/, () => keyer.find(grey, 'perhaps')],
    [1, /background: expected the plate's size, 8x8, found '4x4'/, () => keyer.set('screen', [0, 1, 0]).key({plate: grey, background: {width: 4, height: 4, data: new Uint8Array(64)}})],
    [1, /plate: expected data of/, () => keyer.key({plate: {width: 8, height: 8, data: [1, 2]}})],
    [1, /plate: expected a width/, () => keyer.key({plate: {width: 0, height: 8, data: new Uint8Array(0)}})],
    [1, /plate: expected data of/, () => keyer.key()],
  ]) {
    assert.throws(call, (error) => error instanceof OrvaniteError && error.result === result && words.test(error.message), String(words));
  }
  assert.equal(keyer.parameters.find(({name}) => name === 'screenRange').softHigh, 0.5);
  assert.deepEqual(keyer.parameters[1].choices.map(({text}) => text), ['linear', 'log', 'video']);
  assert.match(keyer.version, /^\d+\.\d+\.\d+$/);
});
