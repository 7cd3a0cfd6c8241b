// SPDX-License-Identifier: BSD-3-Clause
//
// Masks drawn on the page in a real browser, with a pointer, a finger and the keyboard: what is
// seen, what Render writes and what `orvanite key --masks` writes are the same bytes.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {copyFileSync, readFileSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';
import {test} from 'node:test';
import {open, settled} from './page.mjs';
import {drawPlate, folder, program, readPng} from './program.mjs';

/** Where pixels of the plate lie in the window. */
const placesOf = (page, points) => page.evaluate((all) => {
  const canvas = document.getElementById('picture');
  const box = canvas.getBoundingClientRect();
  const {x, y, scale} = canvas.dataset;
  return all.map(([u, v]) => [box.left + Number(x) + u * scale, box.top + Number(y) + v * scale]);
}, points);

async function drag(page, ...points) {
  const [first, ...rest] = await placesOf(page, points);
  await page.mouse.move(...first);
  await page.mouse.down();
  for (const place of rest) await page.mouse.move(...place, {steps: 4});
  await page.mouse.up();
}

const shapesOf = (page) => page.evaluate(() => {
  const text = new URLSearchParams(location.hash.slice(1)).get('masks');
  return text ? JSON.parse(text).shapes : [];
});

async function near(page, what, found, expected) {
  assert.equal(found.length, expected.length, what);
  const {scale} = await page.evaluate(() => document.getElementById('picture').dataset);
  found.forEach((value, i) => assert.ok(Math.abs(value - expected[i]) < 1.5 / scale + 0.02, `${what}: ${found}, not ${expected}`));
}

/** The copied command, with its masks where it finds them, run to `to`. */
async function runCommand(page, to) {
  const [saved] = await Promise.all([page.waitForEvent('download'), page.click('#copyCommand')]);
  await page.waitForFunction(() => /^Command copied, and \S+-masks\.json saved/.test(document.getElementById('told').textContent));
  const line = await page.evaluate(() => navigator.clipboard.readText());
  assert.ok(line.includes(` --masks ${saved.suggestedFilename()} `), line);
  const at = folder();
  copyFileSync(await saved.path(), join(at, saved.suggestedFilename()));
  execFileSync('sh', ['-c', line.replace(/^orvanite/, program).replace(/ -o .*$/, ` -q -o ${to}`)], {cwd: at});
  return join(at, saved.suggestedFilename());
}

async function compareCanvas(page, path) {
  await page.click('#actual');
  await settled(page);
  const file = readPng(path);
  const text = await page.evaluate(([width, height]) => {
    const canvas = document.getElementById('picture');
    const {x, y} = canvas.dataset;
    return Array.from(canvas.getContext('2d').getImageData(Number(x), Number(y), width, height).data, (code) => String.fromCharCode(code)).join('');
  }, [file.width, file.height]);
  const shown = Buffer.from(text, 'latin1');
  let wrong = 0;
  for (let i = 0; i < shown.length; ++i) if (i % 4 !== 3 && shown[i] !== file.pixels[i]) ++wrong;
  assert.equal(wrong, 0, `${wrong} samples differ`);
}

test('masks are drawn with a pointer, each a step to undo; page, Render and command give the same bytes', async () => {
  const files = drawPlate('--size', '480x270');
  const {page} = await open([files.plate, '--bg', files.background, '--screen', '0.16,0.63,0.23', '--screen-range', '0.1']);
  const plain = join(folder(), 'plain.png');
  execFileSync(program, ['key', files.plate, '--bg', files.background, '--screen', '0.16,0.63,0.23', '--screen-range', '0.1', '-q', '-o', plain]);
  const layout = () => page.evaluate(() => [...document.querySelectorAll('header button, aside, #stage, footer')].map((one) => Object.values(one.getBoundingClientRect().toJSON()).join()).join(';'));
  const before = await layout();
  await page.click('#masks');
  assert.equal(await layout(), before, 'nothing moves');

  await page.click('#maskPolygon');
  const corners = [[60, 150], [150, 150], [150, 250], [60, 240]];
  for (const place of await placesOf(page, [...corners, corners[0]])) await page.mouse.click(...place);
  await page.click('#maskEllipse');
  await drag(page, [240, 130], [300, 180]);
  await page.selectOption('#maskUse', 'holdOut');
  await page.click('#maskBrush');
  await page.fill('#maskSize', '12');
  await page.keyboard.press('Enter');
  await drag(page, [330, 60], [380, 200], [450, 220]);
  await page.click('#maskChoose');
  await page.selectOption('#maskUse', 'garbage');
  await page.fill('#maskSoft', '8');
  await page.keyboard.press('Enter');
  await page.click('#maskOutside');
  await page.click('#maskOutside');

  const shapes = await shapesOf(page);
  assert.deepEqual(shapes.map(({kind, use, soft, outside}) => [kind, use, soft, outside]),
    [['polygon', 'garbage', 2, false], ['ellipse', 'holdOut', 2, false], ['brush', 'garbage', 8, false]]);
  await near(page, 'corners', shapes[0].keys[0].points.flat(), corners.flat());
  await near(page, 'ellipse', [...shapes[1].keys[0].points.flat(), ...shapes[1].keys[0].radii], [240, 130, 60, 50]);
  assert.deepEqual(shapes[2].keys[0].radii, [12]);

  // A drag moves one of them: one step.
  await drag(page, [150, 200], [170, 180]);
  const dragged = (await shapesOf(page))[0].keys[0].points;
  await near(page, 'moved', dragged.flat(), corners.flatMap(([x, y]) => [x + 20, y - 20]));
  await drag(page, [170, 230], [190, 240]);
  await near(page, 'a corner moved', (await shapesOf(page))[0].keys[0].points.flat(), [80, 130, 170, 130, 190, 240, 80, 220]);
  await page.keyboard.press('Control+z');
  assert.deepEqual((await shapesOf(page))[0].keys[0].points, dragged);
  await page.keyboard.press('Control+Shift+z');
  await settled(page);

  // The ellipse is turned by the handle above it, 130 - 50 and 26 pixels of the screen from the middle:
  // to its right it has gone a quarter, and up its other side follows the pointer along its own axis.
  await page.selectOption('#maskList', '1');
  const {scale} = await page.evaluate(() => document.getElementById('picture').dataset);
  await drag(page, [240, 80 - 26 / scale], [290, 100], [345, 130]);
  const quarter = (await shapesOf(page))[1].keys[0];
  assert.ok(Math.abs(quarter.turn - 90) < 1, `${quarter.turn} degrees`);
  assert.deepEqual(quarter.radii, shapes[1].keys[0].radii, 'as large as it was');
  await drag(page, [240, 190], [243, 200]);
  await near(page, 'the radius across, which points down', (await shapesOf(page))[1].keys[0].radii, [70, 50]);
  await page.keyboard.press('Control+z');
  await page.focus('[data-handle=turn]');
  await page.keyboard.press('Shift+ArrowLeft');
  for (let i = 0; i < 50; ++i) await page.keyboard.press('ArrowLeft');
  assert.ok(Math.abs((await shapesOf(page))[1].keys[0].turn - quarter.turn + 60) < 0.02);
  assert.match(await page.locator('[data-handle=turn]').getAttribute('aria-label'), /^Turn of mask 2 hold-out ellipse, (29|30|31) degrees/);
  await settled(page);

  const to = join(folder(), 'key.png');
  await runCommand(page, to);
  const [rendered] = await Promise.all([page.waitForEvent('download'), page.click('#render')]);
  assert.ok(readFileSync(await rendered.path()).equals(readFileSync(to)), 'Render and the command');
  assert.ok(!readFileSync(plain).equals(readFileSync(to)), 'masks change the key');
  await compareCanvas(page, to);

  // Of an ellipse that touches the picture's top the handle is where it can be seen and taken hold of.
  await page.click('#fit');
  await page.click('#maskEllipse');
  await drag(page, [200, 60], [250, 2]);
  const handle = await page.evaluate(() => {
    const {left, top, width, height} = document.querySelector('[data-handle=turn]').getBoundingClientRect();
    const at = [left + width / 2, top + height / 2];
    return {at, top: document.elementFromPoint(...at)?.dataset.handle};
  });
  assert.equal(handle.top, 'turn');
  const [centre] = await placesOf(page, [[200, 60]]);
  const [u, v] = [handle.at[0] - centre[0], handle.at[1] - centre[1]];
  await page.mouse.move(...handle.at);
  await page.mouse.down();
  await page.mouse.move(centre[0] - v, centre[1] + u, {steps: 5});  // a quarter clockwise
  await page.mouse.up();
  assert.ok(Math.abs((await shapesOf(page)).at(-1).keys[0].turn - 90) < 1);
  // Nothing of the whole picture lies under the bar.
  const [[, upper]] = await placesOf(page, [[0, 0]]);
  assert.ok(upper >= await page.evaluate(() => document.getElementById('maskBar').getBoundingClientRect().bottom));
  await page.keyboard.press('Delete');

  // A reload loses nothing; a script says what it cannot hold.
  const kept = await shapesOf(page);
  await page.reload();
  await settled(page);
  assert.deepEqual(await shapesOf(page), kept);
  await page.click('#copyScript');
  await page.waitForFunction(() => /a script cannot hold drawn masks/.test(document.getElementById('told').textContent));
  assert.deepEqual(page.problems.filter((one) => !/Failed to load resource/.test(one)), []);
});

test('masks are keyed at frames; a render of the shot gives each frame its own', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '7-11');
  const [out, other] = [folder(), folder()];
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23', '-o', join(out, 'key.####.png')]);
  const goTo = async (frame) => {
    await page.fill('#frameNumber', String(frame));
    await page.keyboard.press('Enter');
    await settled(page);
  };
  await page.click('#masks');
  await page.click('#maskEllipse');
  await drag(page, [40, 40], [60, 60]);
  await page.click('#maskChoose');
  await goTo(11);
  await page.click('#maskKey');
  assert.equal(await page.locator('#maskKey').getAttribute('aria-pressed'), 'true');
  await drag(page, [40, 40], [120, 40]);
  const [{keys}] = await shapesOf(page);
  assert.deepEqual(keys.map(({frame}) => frame), [7, 11]);
  await near(page, 'the first key stays, the second is elsewhere', keys.flatMap(({points, radii}) => [...points.flat(), ...radii]), [40, 40, 20, 20, 120, 40, 20, 20]);
  assert.deepEqual(await page.locator('#keyList option').allTextContents(), ['keys', '7: mask 1', '11: mask 1']);
  await goTo(9);
  assert.equal(await page.locator('#maskKey').getAttribute('aria-pressed'), 'false');
  const to = join(other, 'key.####.png');
  const file = await runCommand(page, to);
  await page.click('#render');
  await page.waitForFunction(() => /^Written:/.test(document.getElementById('told').textContent));
  for (const frame of ['0007', '0008', '0009', '0010', '0011']) {
    assert.ok(readFileSync(join(out, `key.${frame}.png`)).equals(readFileSync(join(other, `key.${frame}.png`))), frame);
  }
  await page.keyboard.press('9');
  await compareCanvas(page, join(other, 'key.0009.png'));
  // Half way: what a mask that stands there gives.
  const still = join(folder(), 'still.json');
  const [a, b] = keys.map(({points}) => points[0]);
  const shape = JSON.parse(readFileSync(file, 'utf8')).shapes[0];
  writeFileSync(still, JSON.stringify({orvanite: 'masks', version: 1, shapes: [{...shape, keys: [{...keys[0], points: [[(a[0] + b[0]) / 2, (a[1] + b[1]) / 2]]}]}]}));
  execFileSync(program, ['key', join(shot, 'plate.0009.png'), '--screen', '0.16,0.63,0.23', '--masks', still, '-q', '-o', join(other, 'still.png')]);
  assert.deepEqual(readPng(join(other, 'still.png')).pixels, readPng(join(other, 'key.0009.png')).pixels);
});

test('masks by keyboard and by finger: named, seen, moved, removed; from a file, and refused from a bad one', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate, '--screen', '0.16,0.63,0.23'], {width: 390, height: 780});
  await page.locator('#stage').focus();
  await page.keyboard.press('m');
  await page.focus('#maskPolygon');
  await page.keyboard.press('Enter');
  const focused = () => page.evaluate(() => document.activeElement.getAttribute('aria-label'));
  assert.equal(await focused(), 'Mask 1 garbage polygon: arrows move it, Delete removes it');
  const first = (await shapesOf(page))[0].keys[0].points;
  await page.keyboard.press('ArrowRight');
  await page.keyboard.press('Shift+ArrowDown');
  assert.deepEqual((await shapesOf(page))[0].keys[0].points, first.map(([x, y]) => [x + 1, y + 10]));
  await page.keyboard.press('Tab');
  assert.match(await focused(), /^Corner 1 of mask 1 garbage polygon/);
  await page.keyboard.press('Enter');
  assert.equal((await shapesOf(page))[0].keys[0].points.length, 5);
  await page.keyboard.press('ArrowUp');
  await page.keyboard.press('Delete');
  assert.equal((await shapesOf(page))[0].keys[0].points.length, 4);
  for (let i = 0; i < 4; ++i) await page.keyboard.press('Control+z');
  assert.deepEqual((await shapesOf(page))[0].keys[0].points, first.map(([x, y]) => [x + 1, y]));

  // Every control of the bar is in the window, has a name and can be read.
  const bar = await page.evaluate(() => {
    const light = (text) => text.match(/[\d.]+/g).slice(0, 3).map(Number).map((code) => code / 255).map((part) => part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4)
      .reduce((sum, part, i) => sum + part * [0.2126, 0.7152, 0.0722][i], 0);
    return [...document.querySelectorAll('#maskBar button, #maskBar select, #maskBar input')].map((one) => {
      const {left, right} = one.getBoundingClientRect();
      const [low, high] = [light(getComputedStyle(one).color), light(getComputedStyle(one).backgroundColor)].sort((a, b) => a - b);
      return {id: one.id, inside: left >= 0 && right <= innerWidth, named: Boolean(one.textContent || one.getAttribute('aria-label') || one.labels?.length), ratio: (high + 0.05) / (low + 0.05)};
    });
  });
  assert.deepEqual(bar.filter(({inside, named, ratio}) => !inside || !named || ratio < 4.5), []);

  // A finger paints; what it does not hold still scrolls nothing.
  await page.click('#maskBrush');
  const places = await placesOf(page, [[100, 60], [120, 70], [140, 60]]);
  await page.evaluate((way) => {
    const stage = document.getElementById('stage');
    const send = (type, [x, y]) => document.getElementById('picture').dispatchEvent(new PointerEvent(type, {bubbles: true, pointerId: 7, pointerType: 'touch', button: type === 'pointermove' ? -1 : 0, buttons: 1, clientX: x, clientY: y}));
    stage.setPointerCapture = () => {};
    send('pointerdown', way[0]);
    for (const place of way.slice(1)) send('pointermove', place);
    send('pointerup', way.at(-1));
  }, places);
  const [, stroke] = await shapesOf(page);
  await near(page, 'a stroke', stroke.keys[0].points.flat(), [100, 60, 120, 70, 140, 60]);
  await page.keyboard.press('Escape');
  await page.click('#maskDelete');
  assert.equal((await shapesOf(page)).length, 1);

  const [saved] = await Promise.all([page.waitForEvent('download'), page.click('#maskSave')]);
  const kept = await shapesOf(page);
  await page.click('#maskDelete');
  assert.deepEqual(await shapesOf(page), []);
  assert.equal(await page.locator('#maskDelete').isDisabled(), true);
  const choose = async (path) => {
    if (!await page.locator('#opener').evaluate((one) => one.open)) await page.click('#openFiles');
    const [chooser] = await Promise.all([page.waitForEvent('filechooser'), page.click('[aria-label="Choose: Masks"]')]);
    await chooser.setFiles(path);
  };
  const bad = join(folder(), 'bad.json');
  writeFileSync(bad, '{"orvanite": "masks", "version": 1, "shapes": [{"kind": "star"}]}');
  await choose(bad);
  await page.waitForFunction(() => /shapes\[0\]\.kind: expected polygon, ellipse or brush/.test(document.getElementById('openerTold').textContent));
  const good = join(folder(), 'good.json');
  copyFileSync(await saved.path(), good);
  await choose(good);
  await page.waitForFunction(() => location.hash.includes('masks='));
  assert.deepEqual((await shapesOf(page)).map(({keys}) => keys), kept.map(({keys}) => keys));
});
