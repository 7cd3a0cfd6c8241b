// SPDX-License-Identifier: BSD-3-Clause
//
// The page in a real browser: one keys a plate with it as a person would, and what it shows is
// compared with the bytes that `orvanite key` writes for the same settings.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {readFileSync, renameSync, writeFileSync} from 'node:fs';
import {basename, join} from 'node:path';
import {test} from 'node:test';
import {clickPlate, compareColours, compareScript, copiedCommand, dragSlider, keyed, open, setting, settled, shownPixels, value} from './page.mjs';
import {drawPlate, folder, program, readPng} from './program.mjs';

test('one keys a plate: eyedropper, slider, undo, redo, reload, preset, render', async () => {
  const files = drawPlate('--size', '480x270');
  const {page} = await open([files.plate, '--bg', files.background]);
  assert.equal(await page.locator('#hint').isVisible(), true, 'one is told to pick the screen');

  await clickPlate(page, 0.55, 0.25);
  await page.waitForFunction(() => location.hash.includes('screen='));
  await settled(page);
  const screen = (await setting(page, 'screen')).split(',').map(Number);
  assert.ok(screen[1] > 1.5 * screen[0] && screen[1] > 1.5 * screen[2], `a green: ${screen}`);
  assert.match(await page.locator('#hint').textContent(), /^[4-9]\d % of the frame has this hue\. .*Screen range/, 'and what to do next');
  // Green is not bluer than it is green: the balances follow.
  assert.equal(await value(page, 'p-midtoneBalance'), '0.5');

  await dragSlider(page, 'p-screenRange', 0.5);
  const range = await setting(page, 'screenRange');
  assert.ok(range > 0.2 && range < 0.3, range);
  assert.match(await page.locator('#counts').textContent(), /clear (?!0\.0 %).*solid (?!0\.0 %)/);

  await page.keyboard.press('Control+z');
  assert.equal(await setting(page, 'screenRange'), null, 'a whole drag is one change');
  await page.keyboard.press('Control+Shift+z');
  assert.equal(await setting(page, 'screenRange'), range);

  await page.keyboard.press('2');
  // Three steps in around a corner that is not the middle's, and a part of a pixel aside.
  const place = () => page.evaluate(() => ({...document.getElementById('picture').dataset}));
  const fitted = await place();
  await page.mouse.move(300, 250);
  await page.evaluate(() => { window.turned = 0; addEventListener('wheel', () => { ++turned; }); });
  for (let i = 0; i < 3; ++i) await page.mouse.wheel(0, -100);
  await page.waitForFunction(() => turned === 3);
  await page.focus('#stage');
  await page.keyboard.press('ArrowLeft');
  const zoomed = await place();
  assert.ok(Number(zoomed.scale) > 1.5 * fitted.scale, `${zoomed.scale}`);
  await settled(page);
  await page.reload();
  await settled(page);
  assert.deepEqual(await place(), zoomed, 'what is seen stays');
  await page.keyboard.press('f');
  await settled(page);
  assert.equal(await setting(page, 'place'), null);
  await page.reload();
  await settled(page);
  assert.deepEqual(await place(), fitted);
  assert.equal(await setting(page, 'screenRange'), range, 'a reload loses nothing');
  assert.equal(await page.locator('[data-view=matte]').getAttribute('aria-checked'), 'true');
  await page.keyboard.press('Control+z');
  assert.equal(await setting(page, 'screenRange'), null, 'not even what can be undone');
  await page.click('#redo');

  // A double click on the name gives the default back.
  await page.locator('label[for=p-screenRange]').dblclick();
  assert.equal(await setting(page, 'screenRange'), null);
  await page.click('#undo');
  await settled(page);

  const [preset] = await Promise.all([page.waitForEvent('download'), page.click('#savePreset')]);
  const byPreset = join(folder(), 'preset.png');
  execFileSync(program, ['key', files.plate, '--bg', files.background, '--preset', await preset.path(), '-q', '-o', byPreset]);

  const [rendered] = await Promise.all([page.waitForEvent('download'), page.click('#render')]);
  const render = readPng(await rendered.path());
  assert.deepEqual(render, readPng(byPreset));
  assert.deepEqual(render, await keyed(page));
  await page.keyboard.press('5');
  await settled(page);
  compareColours(await shownPixels(page), render, 'the composite');
  assert.deepEqual(page.problems, []);
});

test('the command keys beside estimates with what is set here alone, whichever channel leads', async () => {
  const files = drawPlate('--size', '480x270');
  const {page} = await open([files.plate, '--screen', '0.1,0.5,0.1']);
  // A slow server: what was told of the last command is not taken for this one's.
  await page.route('**/command', async (route) => { await page.waitForTimeout(500); await route.continue(); });
  for (const screen of ['0.16,0.63,0.23', '0.16,0.23,0.63']) {
    const before = await page.evaluate((text) => {
      location.hash = `screen=${text}&estimate=light&colourspace=video&output=unpremultiplied&view=output`;
      return seen.length;
    }, screen);
    await page.waitForFunction((count) => seen.length > count, before);
    await settled(page);
    compareColours(await shownPixels(page), await keyed(page), screen);
  }
});

test('one opens a plate, a background of another size, frames and presets: chosen, dropped, pasted', async () => {
  const [first, second] = [drawPlate('--size', '160x90'), drawPlate('--size', '320x180', '--screen', 'blue')];
  const {page} = await open([first.plate, '--screen', '0.16,0.63,0.23', '--screen-range', '0.1']);
  const choose = async (label, files) => {
    if (!await page.locator('#opener').evaluate((one) => one.open)) await page.click('#openFiles');
    const [chooser] = await Promise.all([page.waitForEvent('filechooser'), page.click(`[aria-label="Choose: ${label}"]`)]);
    await chooser.setFiles(files);
  };
  const reopened = async (action) => {
    await page.evaluate(() => { window.old = true; });
    await action();
    await page.waitForFunction(() => !window.old && window.seen?.length > 0);
    await settled(page);
  };
  const hand = (type, file) => page.evaluate(([kind, name, base64]) => {
    const transfer = new DataTransfer();
    transfer.items.add(new File([Uint8Array.from(atob(base64), (one) => one.charCodeAt(0))], name));
    document.body.dispatchEvent(kind === 'drop' ? new DragEvent('drop', {bubbles: true, cancelable: true, dataTransfer: transfer})
      : new ClipboardEvent('paste', {bubbles: true, clipboardData: transfer}));
  }, [type, basename(file), readFileSync(file).toString('base64')]);

  // A background of another size is fitted as the command does, and is seen.
  await page.keyboard.press('2');
  await reopened(() => choose('Background', second.background));
  assert.equal(await page.locator('#render span').textContent(), 'Render Composite');
  assert.equal(await setting(page, 'view'), 'composite');
  const to = join(folder(), 'key.png');
  execFileSync(program, ['key', first.plate, '--bg', second.background, '--screen', '0.16,0.63,0.23', '--screen-range', '0.1', '-q', '-o', to]);
  compareColours(await shownPixels(page), readPng(to), 'over the background that was chosen');
  const [rendered] = await Promise.all([page.waitForEvent('download'), page.click('#render')]);
  assert.deepEqual(readPng(await rendered.path()), readPng(to));
  assert.match(await copiedCommand(page), / --bg background\.png /, 'what has no path is called by its name');

  // Another plate begins anew, and is the first's successor in everything.
  await hand('drop', second.plate);
  assert.equal(await page.locator('#openerTitle').textContent(), 'Use plate.png as');
  await reopened(() => page.click('[aria-label="Use: Plate"]'));
  assert.equal(await setting(page, 'screenRange'), null);
  assert.match(await page.locator('#info').textContent(), /^320 × 180/);
  await page.locator('#p-screenRange').press('End');
  await page.waitForFunction(() => location.hash.includes('screenRange='));

  // What cannot be opened is said in words, and nothing changes.
  const bad = join(folder(), 'notes.txt');
  writeFileSync(bad, 'no picture');
  await hand('paste', bad);
  await page.click('[aria-label="Use: Plate"]');
  await page.waitForFunction(() => /^notes\.txt: /.test(document.getElementById('openerTold').textContent));
  await page.click('#closeOpener');
  assert.match(await page.locator('#info').textContent(), /^320 × 180/);

  const preset = join(folder(), 'some.json');
  const [saved] = await Promise.all([page.waitForEvent('download'), page.click('#savePreset')]);
  await saved.saveAs(preset);
  await page.locator('#p-screenRange').press('Home');
  await hand('drop', preset);
  await page.waitForFunction(() => new URLSearchParams(location.hash.slice(1)).get('screenRange') === '0.5');

  // Numbered frames are a shot.
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '7-9');
  await reopened(() => choose('Plate', [7, 8, 9].map((frame) => join(shot, `plate.000${frame}.png`))));
  assert.equal(await page.locator('#frameNumber').inputValue(), '7');
  assert.deepEqual(page.problems.map((one) => one.match(/status of (\d+)/)?.[1]), ['500'], 'but for the file that is none');
});

test('to judge: veil, gain, channels, a flat colour, labels; to choose: samples taken together, scopes', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate, '--screen', '0.16,0.63,0.23', '--screen-range', '0.1'], {width: 1600});
  const at = async (view, look = {}) => {
    await page.click(`[data-view=${view}]`);
    for (const [id, value] of Object.entries({channel: 'all', gain: '1', ...look})) await page.locator(`#${id}`).selectOption(value);
    return (await shownPixels(page)).pixels;
  };
  const differing = (found, wanted, slack = 0) => found.reduce((sum, code, i) => sum + (i % 4 !== 3 && Math.abs(code - wanted(i)) > slack ? 1 : 0), 0);
  const [plate, matte] = [await at('plate'), await at('matte')];
  assert.ok(matte.some((code, i) => i % 4 === 0 && code > 0 && code < 64) && matte.some((code, i) => i % 4 === 0 && code > 192 && code < 255));
  assert.equal(differing(await at('matte', {gain: '4'}), (i) => Math.min(255, 4 * matte[i])), 0);
  assert.equal(differing(await at('matte', {gain: '-16'}), (i) => Math.max(0, 255 - 16 * (255 - matte[i]))), 0);
  assert.equal(differing(await at('plate', {channel: 'green'}), (i) => plate[i - i % 4 + 1]), 0);
  // Red goes up and the others down by 0.65 of what the matte leaves out.
  assert.equal(differing(await at('veil'), (i) => {
    const covered = 0.65 * (1 - matte[i - i % 4] / 255);
    return i % 4 === 0 ? plate[i] + covered * (255 - plate[i]) : plate[i] * (1 - covered);
  }, 1), 0);

  await page.locator('#flatColour').fill('#204080');
  const flat = await at('flat');
  const to = join(folder(), 'flat.png');
  execFileSync(program, ['key', files.plate, '--screen', '0.16,0.63,0.23', '--screen-range', '0.1', '--output', 'compOnColour', '--background-colour', '#204080', '-q', '-o', to]);
  const wanted = readPng(to).pixels;
  assert.equal(differing(flat, (i) => wanted[i]), 0);
  assert.equal(await setting(page, 'output'), 'unpremultiplied', 'a view changes no setting');

  await page.locator('#against').selectOption('other');
  assert.deepEqual(await page.locator('#leftLabel, #rightLabel').allTextContents(), ['B: Flat', 'A: Flat']);
  await page.click('#wipe');

  // Three samples: the mean of what the server says of each.
  const said = [];
  page.on('response', (response) => { if (response.url().endsWith('/colours')) said.push(response.json()); });
  await page.click('#pickScreen');
  await settled(page);
  for (const [i, [x, y]] of [[0.55, 0.25], [0.1, 0.1], [0.9, 0.15]].entries()) {
    if (i < 2) await page.keyboard.down('Shift');
    await clickPlate(page, x, y);
    await page.keyboard.up('Shift');
  }
  await settled(page);
  const colours = await Promise.all(said);
  assert.equal(colours.length, 3);
  const mean = [0, 1, 2].map((c) => Number((colours.reduce((sum, {median}) => sum + median[c], 0) / 3).toFixed(4)));
  assert.deepEqual((await setting(page, 'screen')).split(',').map(Number), mean);

  for (const kind of ['parade', 'vector']) {
    await page.locator('#scopeKind').selectOption(kind);
    await settled(page);
    const lit = await page.evaluate(() => {
      const canvas = document.getElementById('scope');
      const {data} = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
      let [sum, x, y, all] = [[0, 0, 0], 0, 0, 0];
      for (let i = 0; i < data.length; i += 4) {
        sum = sum.map((one, c) => one + data[i + c]);
        const light = data[i] + data[i + 1] + data[i + 2];
        all += light; x += light * (i / 4 % canvas.width); y += light * Math.floor(i / 4 / canvas.width);
      }
      return {sum, x: x / all / canvas.width, y: y / all / canvas.height};
    });
    // A green screen lies left of the middle and below it: less blue and less red than grey.
    if (kind === 'vector') assert.ok(lit.x < 0.5 && lit.y > 0.5, JSON.stringify(lit));
    else assert.ok(lit.sum.every((one) => one > 1000), JSON.stringify(lit));
  }
  assert.deepEqual(page.problems, []);
});

test('at 100 % the page shows what orvanite key writes, whatever the depth and the view', async () => {
  const finish = ['--matte-black', '0.04', '--matte-white', '0.93', '--matte-gamma', '1.2', '--islands', '9', '--pinholes', '7', '--shrink', '0.7', '--soften', '1.5',
    '--edge-colour', '0.5', '--spill', '0.6', '--spill-replace', 'grey', '--light-wrap', '0.3'];
  // A file may hold less of the frame, or more: the second one's pixels end inside, the third's outside.
  for (const [depth, pairs, window] of [
    ['8', {matte: 'matte', status: 'status', foreground: 'unpremultiplied', composite: 'composite', overBlack: 'compOnBlack', output: null}],
    ['8', {matte: 'matte', composite: 'composite', overBlack: 'compOnBlack'}, finish],
    ['16', {matte: 'matte', composite: 'composite', foreground: 'unpremultiplied'}],
    ['half', {matte: 'matte', composite: 'composite', foreground: 'unpremultiplied'}],
    ['half', {matte: 'matte', composite: 'composite', foreground: 'unpremultiplied'}, ['--crop', '203x101+51+33']],
    ['half', {composite: 'composite'}, ['--fullsize', '360x200+17+9']],
  ]) {
    const files = drawPlate('--size', '400x225', '--depth', depth);
    if (window && window !== finish) {
      const framed = ['background', 'holdout', 'garbage'].map((name) => [files[name], ['--crop', '360x200+17+9', '--fullpixels']]);
      for (const [file, how] of [[files.plate, window], ...(window[0] === '--crop' ? [] : framed)]) {
        execFileSync('oiiotool', [file, ...how, '-o', `${file}.exr`]);
        renameSync(`${file}.exr`, file);
      }
    }
    const {page} = await open([files.plate, '--bg', files.background, '--hold-out', files.holdout,
      '--garbage', files.garbage, '--screen', depth === 'half' ? '0.02,0.35,0.05' : '0.16,0.63,0.23', '--screen-range', '0.1', '--gamma', '1.2,1,0.9',
      '--output', 'compOnReplace', ...(window === finish ? finish : [])]);
    for (const [view, output] of Object.entries(pairs)) {
      await page.click(`[data-view=${view}]`);
      await settled(page);
      // OpenImageIO encodes light by a formula in floats: what lies between two codes may fall to either.
      compareColours(await shownPixels(page), await keyed(page, output), `${depth} ${view}`, depth === 'half' && view !== 'matte' ? 1 : 0);
    }
    if (!window) await compareScript(page);
    assert.deepEqual(page.problems, []);
  }
});

test('between colour spaces the page shows what orvanite key writes, and hands the spaces on', async () => {
  const files = drawPlate('--size', '320x180');
  const config = join(folder(), 'config.ocio');
  writeFileSync(config, `ocio_profile_version: 2
roles: {scene_linear: light, default: light}
file_rules: [!<Rule> {name: Default, colorspace: default}]
displays: {none: [!<View> {name: none, colorspace: light}]}
colorspaces:
  - !<ColorSpace> {name: light}
  - !<ColorSpace> {name: root, to_scene_reference: !<ExponentTransform> {value: [2, 2, 2, 1]}}
`);
  const {page} = await open([files.plate, '--bg', files.background, '--ocio', config, '--input-space', 'root',
    '--screen', '0.03,0.4,0.05', '--screen-range', '0.1', '--output', 'composite']);
  assert.match(await copiedCommand(page), /--ocio \S+ --input-space root/);
  for (const [view, output] of [['composite', 'composite'], ['matte', 'matte'], ['foreground', 'unpremultiplied']]) {
    await page.click(`[data-view=${view}]`);
    await settled(page);
    compareColours(await shownPixels(page), await keyed(page, output), view);
  }
  await page.click('#copyScript');
  await page.waitForFunction(() => /cannot hold colour spaces/.test(document.getElementById('told').textContent));
});

test('Auto finds the screen, and says when there is none', async () => {
  const files = drawPlate('--size', '480x270', '--screen', 'blue');
  const {page} = await open([files.plate]);
  await page.click('#auto');
  await page.waitForFunction(() => location.hash.includes('screen='));
  await settled(page);
  const screen = (await setting(page, 'screen')).split(',').map(Number);
  assert.ok(screen[2] > 1.5 * screen[0] && screen[2] > screen[1], `a blue: ${screen}`);
  const [clear, , solid] = (await page.locator('#counts span').allTextContents()).map((text) => parseFloat(text.match(/[\d.]+/)[0]));
  assert.ok(clear > 30 && solid > 20, `clear ${clear} %, solid ${solid} %`);
  await page.keyboard.press('Control+z');
  assert.equal(await setting(page, 'screen'), null, 'all that it set is one change');

  // A picture without a screen: a matte.
  const {page: other} = await open([files.holdout]);
  await other.click('#auto');
  await other.waitForFunction(() => /screen/.test(document.getElementById('told').textContent));
  assert.equal(await setting(other, 'screen'), null);
});

test('one slider keeps or keys more around what Auto chose, and leaves as plain gains', async () => {
  const files = drawPlate('--size', '480x270');
  const {page} = await open([files.plate]);
  const gains = ['shadowGain', 'midtoneGain', 'highlightGain'];
  const now = () => Promise.all(gains.map(async (name) => Number(await setting(page, name) ?? 0)));
  const matte = async () => (await page.locator('#counts span').allTextContents()).map((text) => parseFloat(text.match(/[\d.]+/)[0]));
  await page.click('#auto');
  await page.waitForFunction(() => location.hash.includes('screen='));
  await settled(page);
  const chosen = await now();
  const [clear, , solid] = await matte();
  assert.equal(await value(page, 'nudge'), '0', 'the middle is what Auto chose');

  const press = async (key) => { await page.focus('#nudge'); await page.keyboard.press(key); await settled(page); };
  const away = (by) => chosen.map((gain) => Number((gain + by).toFixed(4)));
  await press('End');
  assert.deepEqual(await now(), away(0.2));
  const [moreClear, , lessSolid] = await matte();
  assert.ok(moreClear > clear && lessSolid < solid - 5, `${clear} and ${solid}, then ${moreClear} and ${lessSolid}`);
  await press('Home');
  assert.deepEqual(await now(), away(-0.2));
  assert.ok((await matte())[2] > solid + 1, 'holes close');
  assert.match(await page.locator('#nudge').getAttribute('aria-valuetext'), /^0\.2 kept more$/);

  // A gain that is turned alone keeps its distance to the others, and shows as a third of it.
  await page.locator('#p-shadowGain ~ input').fill(String(chosen[0] + 0.1));
  await page.keyboard.press('Enter');
  await settled(page);
  assert.ok(Math.abs(Number(await value(page, 'nudge')) - (0.1 - 0.2 - 0.2) / 3) < 1e-3);
  await page.keyboard.press('Control+z');
  await settled(page);
  assert.deepEqual(await now(), away(-0.2));

  // A gesture is a step; the middle outlives a reload; what leaves the page knows nothing of it.
  await dragSlider(page, 'nudge', 0.75);
  const dragged = await now();
  assert.ok(Math.abs(dragged[0] - chosen[0] - 0.1) < 0.01, `${dragged}`);
  assert.ok(dragged.every((gain, i) => Math.abs(gain - chosen[i] - (dragged[0] - chosen[0])) < 1e-4));
  compareColours(await shownPixels(page), await keyed(page, 'composite'), 'nudged');
  const line = await copiedCommand(page);
  gains.forEach((name, i) => assert.ok(line.includes(`--${name.replace('G', '-g')}=${dragged[i]}`), line));
  assert.ok(!/centre|nudge/.test(line), line);
  await page.reload();
  await settled(page);
  assert.ok(Math.abs(Number(await value(page, 'nudge')) - (dragged[0] - chosen[0])) < 1e-3, 'after a reload');
  await page.keyboard.press('Control+z');
  await settled(page);
  assert.deepEqual(await now(), away(-0.2));
  await page.dblclick('#nudge');
  await settled(page);
  assert.deepEqual(await now(), chosen);
  assert.deepEqual(page.problems, []);
});

test('wipe, sides, values under the pointer and keys', async () => {
  const files = drawPlate('--size', '320x180');
  const {page} = await open([files.plate, '--bg', files.background, '--screen', '0.16,0.63,0.23']);

  // The wipe's left half is the plate, its right half the key.
  await page.click('#actual');
  await page.keyboard.press('2');
  await settled(page);
  const key = await shownPixels(page);
  await page.keyboard.press('1');
  await settled(page);
  const source = await shownPixels(page);
  await page.keyboard.press('2');
  await page.keyboard.press('w');
  await settled(page);
  const both = await shownPixels(page);
  const at = (picture, x, y) => [...picture.pixels.subarray(4 * (y * picture.width + x), 4 * (y * picture.width + x) + 3)];
  for (const y of [20, 90, 170]) {
    assert.deepEqual(at(both, 20, y), at(source, 20, y));
    assert.deepEqual(at(both, 300, y), at(key, 300, y));
  }
  await page.keyboard.press('w');

  // B starts as A's copy; what changes there stays there.
  await page.click('#sideB');
  await page.locator('#p-screenRange').focus();
  await page.keyboard.press('End');
  await settled(page);
  assert.equal(await setting(page, 'b.screenRange'), '0.5');
  assert.equal(await setting(page, 'screenRange'), null);
  await page.click('#sideA');
  assert.equal(await value(page, 'p-screenRange'), '0');

  // The values under the pointer are the plate's codes.
  await page.keyboard.press('2');
  await settled(page);
  const spot = await page.evaluate(() => {
    const box = document.getElementById('picture').getBoundingClientRect();
    const {x, y} = document.getElementById('picture').dataset;
    return [box.left + Number(x) + 30.5, box.top + Number(y) + 20.5];
  });
  await page.mouse.move(...spot);
  const [r, g, b] = at(source, 30, 20);
  await page.waitForFunction((wanted) => new RegExp(wanted).test(document.getElementById('values').textContent),
    `30, +20 +plate +${r} +${g} +${b} +matte ${(at(key, 30, 20)[0] / 255).toFixed(3)}`);

  // Settings that cannot key are told of, and the next good ones go on.
  for (const input of await page.locator('.row:has-text("Screen colour") input').all()) {
    await input.fill('0.5');
    await input.press('Tab');
  }
  await page.waitForFunction(() => /screen: expected a colour/.test(document.getElementById('problem').textContent));
  await page.keyboard.press('Control+z');
  await settled(page);
  assert.equal(await page.locator('#problem').isVisible(), false);
});
