// SPDX-License-Identifier: BSD-3-Clause
//
// Shots on the page in a real browser: frames, keys of parameters, pinned samples, movies, renders.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {existsSync, linkSync, readFileSync, readdirSync, rmSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';
import {test} from 'node:test';
import {clickPlate, compareColours, copiedCommand, open, setting, settled, shellRun, shownPixels, value} from './page.mjs';
import {drawPlate, folder, program, readPng} from './program.mjs';

test('frames by number, in and out, and renders of a part or of one frame', async () => {
  const {folder: shot} = drawPlate('--size', '96x54', '--frames', '7-12');
  const out = folder();
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23', '-o', join(out, 'key.####.png')]);
  const field = page.locator('#frameNumber');
  for (const [typed, frame] of [['9', '9'], ['99', '12'], ['10', '10']]) {
    await field.fill(typed);
    await field.press('Enter');
    assert.equal(await field.inputValue(), frame);
  }
  await page.locator('#stage').focus();
  await page.keyboard.press('o');
  await field.fill('8');
  await field.press('Enter');
  await page.click('#markIn');
  assert.deepEqual(await page.locator('#markIn, #markOut').allTextContents(), ['In 8', 'Out 10']);
  await page.click('#play');
  await page.waitForFunction(() => seen.slice(-9).length === 9 && new Set(seen.slice(-9).map((one) => one.job.frame)).size === 3);
  assert.deepEqual(await page.evaluate(() => [...new Set(seen.slice(-9).map((one) => one.job.frame))].sort((a, b) => a - b)), [8, 9, 10]);
  await page.click('#play');
  await field.fill('12');
  await field.press('Enter');
  const rendered = async (range) => {
    await page.locator('#range').selectOption(range);
    await page.evaluate(() => { document.getElementById('told').textContent = ''; });
    await page.click('#render');
    await page.waitForFunction(() => /^Written/.test(document.getElementById('told').textContent));
    const names = readdirSync(out).sort();
    for (const name of names) rmSync(join(out, name));
    return names;
  };
  assert.deepEqual(await rendered('one'), ['key.0012.png']);
  assert.match(await page.locator('#render').innerText(), /\nframe 12: key\.####\.png/);
  assert.deepEqual(await rendered('marked'), ['key.0008.png', 'key.0009.png', 'key.0010.png']);
  assert.deepEqual(page.problems, []);
});

test('small pictures of a shot come last, stand under their frames, and lead to them', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '1-24');
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23'], {hash: '#view=plate'});
  const strip = page.locator('#strip');
  // All of them came: as many as the strip has room for, 16 to 9, each with a gap of 2 pixels.
  const all = async () => {
    const box = await strip.boundingBox();
    const count = Math.min(24, Math.floor(box.width / (box.height * 16 / 9 + 2)));
    await page.waitForFunction((cells) => {
      const canvas = document.getElementById('strip');
      const middle = (i) => [...canvas.getContext('2d').getImageData((i + 0.5) * canvas.width / cells, canvas.height / 2, 1, 1).data].slice(0, 3);
      return Array.from({length: cells}, (unused, i) => middle(i)).every((colour) => Math.max(...colour) > 0x20);
    }, count);
    return {box, count};
  };
  const {box, count} = await all();
  assert.ok(count >= 5 && count < 24, `${count} pictures`);

  // The handle of the slider goes from 8 pixels off one end to 8 off the other, over 24 frames.
  const frameOf = (i) => 1 + Math.round(23 * Math.min(1, Math.max(0, ((i + 0.5) / count * box.width - 8) / (box.width - 16))));
  for (const i of [count - 1, 0, 2]) {
    await page.mouse.click(box.x + (i + 0.5) * box.width / count, box.y + box.height / 2);
    await settled(page);
    assert.equal(await setting(page, 'frame'), String(frameOf(i)));
    assert.equal(await value(page, 'frame'), String(frameOf(i) - 1), 'the slider follows');
  }

  // One that takes long holds up no picture; where there is no room none is asked for.
  let held = 0;
  let release;
  const gone = new Promise((done) => { release = done; });
  await page.route('**/thumbnail', async (route) => { ++held; await gone; await route.continue(); });
  await page.setViewportSize({width: 1900, height: 720});
  while (held === 0) await page.waitForTimeout(50);
  await page.keyboard.press('2');
  await page.waitForFunction(() => seen.at(-1).job.view === 'matte' && !seen.at(-1).job.moving);
  assert.equal(held, 1, 'one at a time');
  release();
  await all();
  const asks = held;
  assert.ok(asks > 1);
  await page.setViewportSize({width: 700, height: 900});
  await settled(page);
  assert.equal(await strip.isVisible(), false);
  assert.equal(held, asks);
  assert.deepEqual(page.problems, []);
});

test('pinned samples follow the key and the frame', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '7-8');
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23', '--output', 'matte', '-o', join(folder(), 'k.####.png')]);
  const out = folder();
  const matteAt = (range, frame, [x, y]) => {
    execFileSync(program, ['key', join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23', '--screen-range', range, '--output', 'matte', '-q', '-o', join(out, 'm.####.png')]);
    const {pixels, width} = readPng(join(out, `m.000${frame}.png`));
    return `matte ${(pixels[4 * (y * width + x)] / 255).toFixed(3)} `;
  };
  const said = () => page.locator('#pinLayer span').allTextContents();
  await page.focus('#pin');
  await page.keyboard.press('Enter');  // the middle of what is seen
  await page.click('#pin');
  await clickPlate(page, 72.5 / 160, 54.5 / 90);
  await settled(page);
  const places = [[80, 45], [72, 54]];
  const check = async (range, frame) => {
    const texts = await said();
    assert.equal(texts.length, 2);
    texts.forEach((text, i) => {
      assert.ok(text.startsWith(places[i].join(', ')), text);
      assert.ok(text.includes(matteAt(range, frame, places[i])), `${text}: ${matteAt(range, frame, places[i])}`);
    });
  };
  await check('0', 7);
  await page.locator('#p-screenRange ~ input').fill('0.4');
  await page.keyboard.press('Enter');
  await settled(page);
  await check('0.4', 7);
  await page.fill('#frameNumber', '8');
  await page.keyboard.press('Enter');
  await settled(page);
  await check('0.4', 8);
  await page.reload();
  await settled(page);
  await check('0.4', 8);
  await page.locator('#pinLayer button').first().click();
  assert.deepEqual((await said()).map((text) => text.slice(0, 6)), ['72, 54']);
  assert.deepEqual(page.problems, []);
});

test('a frame is held and flickers beside another; keys are listed and gone to', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '7-11');
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23', '--screen-range', 'linear(time, 8@0.1, 10@0.2)']);
  const frame = () => setting(page, 'frame');
  assert.deepEqual(await page.locator('#keyList option').allTextContents(), ['keys', '8: Screen range', '10: Screen range']);
  for (const [key, at] of [['.', '8'], ['.', '10'], ['.', '10'], [',', '8'], [',', '8']]) {
    await page.locator('#stage').press(key);
    assert.equal(await frame(), at, key);
  }
  await page.selectOption('#keyList', '10');
  assert.equal(await frame(), '10');
  assert.equal(await page.locator('#keyList').inputValue(), '');

  await page.keyboard.press('2');
  await page.selectOption('#against', 'held');
  await page.fill('#frameNumber', '7');
  await page.keyboard.press('Enter');
  await settled(page);
  assert.equal(await page.textContent('#leftLabel'), 'Frame 10: Matte');
  // Each picture alone, in turn: what stands at the same place of the canvas changes and comes back.
  await page.locator('#stage').press('b');
  const pictures = await page.evaluate(async () => {
    const canvas = document.getElementById('picture');
    const seen = [];
    for (let i = 0; i < 60; ++i) {
      const text = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data.reduce((sum, code, at) => (sum * 31 + code * (at % 4 === 3 ? 0 : 1)) % 1000000007, 7);
      if (seen.at(-1) !== text) seen.push(text);
      await new Promise((later) => setTimeout(later, 50));
    }
    return seen;
  });
  assert.ok(pictures.length >= 3 && new Set(pictures).size === 2, pictures.join());
  await page.locator('#stage').press('b');
  assert.equal(await page.locator('#flicker').getAttribute('aria-pressed'), 'false');
  await page.reload();
  await settled(page);
  assert.equal(await page.textContent('#leftLabel'), 'Frame 10: Matte', 'a reload loses nothing');
  assert.deepEqual(page.problems, []);
});

test('a shot: frames by the slider, play, and a render of every frame', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '7-10');
  const out = folder();
  const {page} = await open([join(shot, 'plate.####.png'), '--bg', join(shot, 'background.####.png'),
    '--screen', '0.16,0.63,0.23', '-o', join(out, 'key.####.png')]);
  await page.locator('#frame').focus();
  await page.keyboard.press('ArrowRight');
  await page.keyboard.press('ArrowRight');
  await settled(page);
  assert.equal(await page.locator('#frameNumber').inputValue(), '9');
  assert.equal(await setting(page, 'frame'), '9');
  const shown = await shownPixels(page);

  await page.click('#render');
  await page.waitForFunction(() => /Written/.test(document.getElementById('told').textContent));
  const other = folder();
  execFileSync(program, ['key', join(shot, 'plate.####.png'), '--bg', join(shot, 'background.####.png'),
    '--screen', '0.16,0.63,0.23', '-q', '-o', join(other, 'key.####.png')]);
  for (const frame of ['0007', '0008', '0009', '0010']) {
    assert.deepEqual(readPng(join(out, `key.${frame}.png`)), readPng(join(other, `key.${frame}.png`)));
  }
  assert.equal(existsSync(join(out, 'key.0011.png')), false);
  compareColours(shown, readPng(join(out, 'key.0009.png')), 'frame 9');

  await page.click('#play');
  await page.waitForFunction(() => new Set(seen.slice(-12).map((one) => one.job.frame)).size === 4);
  await page.click('#play');
  await settled(page);
  assert.deepEqual(page.problems, []);
});

test('a parameter is keyed at frames of a shot; what leaves the page moves', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '7-11');
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23', '--output', 'compOnReplace', '-o', join(folder(), 'key.####.png')]);
  const field = page.locator('.row:has(#p-screenRange) input[type=number]');
  const key = page.locator('.row:has(#p-screenRange) .key');
  const go = async (keys) => {
    await page.locator('#frame').focus();
    for (const one of keys) await page.keyboard.press(one);
    await settled(page);
  };
  assert.equal(await key.getAttribute('aria-pressed'), 'false');
  await key.click();
  await go(['End']);
  assert.equal(await key.getAttribute('aria-pressed'), 'false');
  await field.fill('0.2');
  await field.press('Enter');
  await settled(page);
  assert.equal(await setting(page, 'screenRange'), 'linear(time, 7@0, 11@0.2)');
  assert.equal(await key.getAttribute('aria-pressed'), 'true');
  // In the middle it has half of the way behind it: the server says so.
  await go(['ArrowLeft', 'ArrowLeft']);
  assert.equal(await field.inputValue(), '0.1');
  assert.equal(await page.locator('#keyedFrames option').count(), 2);
  const shown = await shownPixels(page);

  const line = await copiedCommand(page);
  assert.match(line, /'--screen-range=linear\(time, 7@0, 11@0\.2\)'/);
  const out = folder();
  shellRun(line.replace(/^orvanite/, program).replace(/ -o .*$/, ` -q -o ${out}/key.####.png`));
  await page.keyboard.press('9');
  compareColours(await shownPixels(page), readPng(join(out, 'key.0009.png')), 'frame 9');
  assert.ok(shown);
  await page.click('#copyScript');
  await page.waitForFunction(() => document.getElementById('told').textContent === 'Script copied.');
  assert.match(await page.evaluate(() => navigator.clipboard.readText()), /keyed\.screenRange = linear\(time, 7@0, 11@0\.2\);/);

  await page.keyboard.down('Shift');
  await key.click();
  await page.keyboard.up('Shift');
  assert.equal(await setting(page, 'screenRange'), 'smooth(time, 7@0, 11@0.2)');
  await go(['Home']);
  await key.click();
  await go(['End']);
  await key.click();
  assert.equal(await setting(page, 'screenRange'), '0.2');
  await page.keyboard.press('Control+z');
  assert.equal(await setting(page, 'screenRange'), 'smooth(time, 11@0.2)');

  // A preset stands in place of what moved.
  await page.evaluate(() => {
    const transfer = new DataTransfer();
    transfer.items.add(new File(['{"orvanite": "preset", "version": 1, "parameters": {"screenRange": 0.05}}'], 'still.json'));
    document.body.dispatchEvent(new DragEvent('drop', {bubbles: true, cancelable: true, dataTransfer: transfer}));
  });
  await page.waitForFunction(() => new URLSearchParams(location.hash.slice(1)).get('screenRange') !== 'smooth(time, 11@0.2)');
  assert.equal(await setting(page, 'screenRange'), '0.05');
  assert.deepEqual(page.problems, []);
});

test('a movie is a shot whose frames count from 1, in any order', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '7-10');
  const movies = Object.fromEntries(['plate', 'background'].map((name) => {
    const movie = join(shot, `${name}.mkv`);
    execFileSync('ffmpeg', ['-v', 'error', '-framerate', '12', '-start_number', '7', '-i', join(shot, `${name}.%04d.png`), '-c:v', 'ffv1', '-pix_fmt', 'bgr0', movie]);
    return [name, movie];
  }));
  const rendered = join(folder(), 'key.mov');
  const {page} = await open([movies.plate, '--bg', movies.background, '--screen', '0.16,0.63,0.23', '-o', rendered]);
  for (const [key, frame] of [['End', 4], ['ArrowLeft', 3], ['Home', 1]]) {
    await page.locator('#frame').press(key);
    await settled(page);
    assert.equal(await page.locator('#frameNumber').inputValue(), String(frame));
    const of = (name) => join(shot, `${name}.${String(frame + 6).padStart(4, '0')}.png`);
    const to = join(folder(), 'key.png');
    execFileSync(program, ['key', of('plate'), '--bg', of('background'), '--screen', '0.16,0.63,0.23', '-q', '-o', to]);
    compareColours(await shownPixels(page), readPng(to), `frame ${frame}`);
  }
  const start = await page.evaluate(() => { seen.splice(0, seen.length - 1); return performance.now(); });
  await page.click('#play');
  await page.waitForFunction(() => new Set(seen.slice(-12).map((one) => one.job.frame)).size === 4);
  // Of each frame one or two pictures come: the second where the first was a small one.
  const [steps, time] = await page.evaluate((from) =>
    [seen.filter((one, i) => i > 0 && one.job.frame !== seen[i - 1].job.frame).length, seen.at(-1).at - from], start);
  assert.ok(steps >= 3 && steps <= 1 + time * 12 / 1000, `no faster than 12 frames a second: ${steps} in ${time} ms`);
  await page.click('#play');
  await page.click('#copyScript');
  await page.waitForFunction(() => document.getElementById('told').textContent === 'Script copied.');
  const [script, ran] = ['s.orv', 'run.mov'].map((name) => join(folder(), name));
  writeFileSync(script, (await page.evaluate(() => navigator.clipboard.readText())).replace(rendered, ran));
  await page.click('#render');
  await page.waitForFunction(() => /^Written: .*key\.mov$/.test(document.getElementById('told').textContent));
  const other = join(folder(), 'key.mov');
  execFileSync(program, ['key', movies.plate, '--bg', movies.background, '--screen', '0.16,0.63,0.23', '-q', '-o', other]);
  const framesOf = (movie) => execFileSync('ffmpeg', ['-v', 'error', '-i', movie, '-f', 'framemd5', '-']).toString();
  assert.equal(framesOf(rendered).match(/^0,/gm).length, 4);
  assert.equal(framesOf(rendered), framesOf(other));
  execFileSync(program, ['run', script, '--frames', '1-4', '-q']);
  assert.equal(framesOf(ran), framesOf(other));
});

test('a render is cancelled from the page: whole files stay, and the page says how many', async () => {
  const files = drawPlate('--size', '1280x720');
  const [shot, out] = [folder(), folder()];
  const count = 240;  // enough to be under way while a page loads on a busy machine
  const name = (stem, frame) => `${stem}.${String(frame).padStart(4, '0')}.png`;
  for (let frame = 1; frame <= count; ++frame) linkSync(files.plate, join(shot, name('plate', frame)));
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23', '-o', join(out, 'key.####.png')]);
  const whole = join(folder(), 'key.png');
  execFileSync(program, ['key', files.plate, '--screen', '0.16,0.63,0.23', '-q', '-o', whole]);

  const underWay = () => page.waitForFunction(() => document.getElementById('progress').value > 0.05
    && /^[1-9]\d? %$/.test(document.getElementById('done').textContent) && document.getElementById('cancel').offsetWidth > 0);
  const stopped = async () => {
    await page.waitForFunction(() => /^Cancelled/.test(document.getElementById('told').textContent));
    const said = await page.locator('#told').textContent();
    const written = Number(said.match(/^Cancelled: (\d+) of 240 frames were written\.$/)?.[1]);
    assert.ok(written > 0 && written < count, said);
    assert.equal(await page.locator('#progress').isVisible(), false);
    return written;
  };
  await page.click('#render');
  await underWay();
  await page.click('#cancel');
  const written = await stopped();
  assert.deepEqual(readdirSync(out).sort(), Array.from({length: written}, (unused, i) => name('key', i + 1)));
  for (const file of readdirSync(out)) assert.ok(readFileSync(join(out, file)).equals(readFileSync(whole)), file);

  // Another one goes on after a reload, and is cancelled with the keyboard.
  await page.click('#render');
  await underWay();
  await page.reload();
  await underWay();
  await page.locator('#cancel').press('Enter');
  await stopped();

  // One that cannot be done says why.
  rmSync(out, {recursive: true});
  await page.click('#render');
  await page.waitForFunction(() => /^The render failed: .*there is no folder/.test(document.getElementById('told').textContent));
  assert.deepEqual(page.problems, []);
});
