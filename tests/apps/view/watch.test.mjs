// SPDX-License-Identifier: BSD-3-Clause
//
// `orvanite run --watch`: renders again after each change of what a script is made of, and keeps
// what there is to see when something is wrong.
import assert from 'node:assert/strict';
import {copyFileSync, renameSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';
import test from 'node:test';
import {drawPlate, reach, serve, serveScript} from './program.mjs';

const origin = (address) => new URL(address).origin;

async function stateWhen(address, wanted) {
  for (let i = 0; i < 600; ++i) {
    const state = await (await reach(address + 'state')).json();
    if (!state.running && wanted(state)) return state;
    await new Promise((done) => setTimeout(done, 50));
  }
  assert.fail('it never came');
}

async function picture(address, index = 0) {
  const response = await reach(address + 'picture', {
    method: 'POST', body: JSON.stringify({index}),
    headers: {'Content-Type': 'application/json', Origin: origin(address)},
  });
  return {status: response.status, bytes: Buffer.from(await response.arrayBuffer())};
}

test('a script is rendered again when it, an include or a picture changes', async () => {
  const plate = drawPlate('--size', '64x36');
  const other = drawPlate('--size', '64x36', '--frame', '30');
  const file = (name) => join(plate.folder, name);
  const script = (range) => `include "look.orv";\nk = Orvanite(FileIn("plate.png"), rScreen = 0.1, gScreen = 0.7, bScreen = 0.2, screenRange = ${range}, output = look);\nFileOut(k, "o.png");\nFileOut(FileIn("plate.png"), "p.png");\n`;
  writeFileSync(file('look.orv'), 'string look = "compOnBlack";\n');
  writeFileSync(file('s.orv'), script(0));
  const {address, stop} = await serveScript(file('s.orv'));
  try {
    const first = await stateWhen(address, ({number}) => number === 1);
    assert.equal(first.error, '');
    assert.deepEqual(first.pictures, ['o.png', 'p.png']);
    const seen = [await picture(address)];
    assert.equal(seen[0].bytes.readUInt32LE(0) % 4, 0);
    assert.equal(seen[0].bytes.length, 4 + seen[0].bytes.readUInt32LE(0) + 64 * 36 * 4);
    // What is written in place may be rendered when it is there in part: what counts is what comes then.
    const next = async (change, wanted) => {
      const {number} = await stateWhen(address, () => true);
      change();
      const state = await stateWhen(address, (now) => now.number > number && wanted(now));
      seen.push(await picture(address));
      return state;
    };
    const another = async (change) => {
      change();
      for (let i = 0; i < 600; ++i) {
        await stateWhen(address, ({error}) => error === '');
        const now = await picture(address);
        if (now.status === 200 && !now.bytes.equals(seen.at(-1).bytes)) { seen.push(now); return; }
        await new Promise((done) => setTimeout(done, 50));
      }
      assert.fail('no other picture came');
    };
    await another(() => writeFileSync(file('s.orv'), script(0.3)));
    await another(() => { writeFileSync(file('new'), 'string look = "status";\n'); renameSync(file('new'), file('look.orv')); });
    await another(() => copyFileSync(other.plate, file('plate.png')));

    await next(() => writeFileSync(file('s.orv'), 'k = ;'), ({error}) => /^.*s\.orv:1:5: expected .*$/.test(error));
    assert.deepEqual(seen.at(-1), seen.at(-2));
    await next(() => writeFileSync(file('s.orv'), script(0.3)), ({error}) => error === '');
    assert.equal((await picture(address, 2)).status, 400);
    assert.equal((await reach(address.slice(0, -2) + '/state')).status, 403);
  } finally {
    assert.equal(await stop(), 0);
  }
});

test('what a script makes of light is shown as the page shows such plates', async () => {
  const body = (reply) => reply.subarray(4 + reply.readUInt32LE(0));
  for (const [depth, ending] of [['half', 'exr'], ['8', 'png']]) {
    const {folder, plate} = drawPlate('--size', '64x36', '--depth', depth);
    writeFileSync(join(folder, 's.orv'), `FileOut(FileIn("plate.${ending}"), "p.${ending}");\n`);
    const [script, page] = [await serveScript(join(folder, 's.orv')), await serve(plate)];
    try {
      await stateWhen(script.address, ({number}) => number === 1);
      const {bytes} = await picture(script.address);
      const response = await reach(page.address + 'picture', {
        method: 'POST', headers: {'Content-Type': 'application/json', Origin: origin(page.address)},
        body: JSON.stringify({settings: {colourspace: depth === 'half' ? 'linear' : 'video'}, view: 'plate', frame: 1, divisor: 1, window: [0, 0, 64, 36], slot: 0, page: 'p', number: 1}),
      });
      const expected = body(Buffer.from(await response.arrayBuffer()));
      const colours = (pixels) => pixels.filter((unused, i) => i % 4 !== 3);
      assert.equal(expected.length, 64 * 36 * 4);
      assert.deepEqual(colours(body(bytes)), colours(expected), ending);
    } finally {
      await Promise.all([script.stop(), page.stop()]);
    }
  }
});
