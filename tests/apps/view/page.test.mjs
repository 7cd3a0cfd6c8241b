// SPDX-License-Identifier: BSD-3-Clause
//
// The page in a real browser: one keys a plate with it as a person would, and what it shows is
// compared with the bytes that `orvanite key` writes for the same settings.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {copyFileSync, existsSync, readFileSync, readdirSync, renameSync, rmSync, writeFileSync} from 'node:fs';
import {basename, join, relative} from 'node:path';
import {after, test} from 'node:test';
import {browse, drawPlate, folder, program, readPng, serve} from './program.mjs';

const closers = [];
after(async () => { for (const close of closers.reverse()) await close(); });

async function open(options, {width = 1280, height = 720, hash = ''} = {}) {
  const server = await serve(...options);
  closers.push(() => server.stop());
  const {page, close} = await browse(width, height);
  closers.push(close);
  await page.addInitScript(() => {
    window.seen = [];
    addEventListener('orvanite-shown', (event) => seen.push({at: performance.now(), ...event.detail}));
    window.asked = 0;  // requests that have no answer yet
    const {fetch} = window;
    window.fetch = (...request) => {
      ++asked;
      return fetch(...request).finally(() => { --asked; });
    };
  });
  await page.goto(server.address + hash);
  await settled(page);
  return {page, server};
}

/** Waits until the page shows the whole answer to the last change, and nothing more comes. */
async function settled(page) {
  await page.waitForTimeout(300);  // for the change to reach the server at all
  await page.waitForFunction(() => asked === 0 && seen.length > 0 && !seen.at(-1).job.moving && performance.now() - seen.at(-1).at > 400);
}

/** The picture as the canvas holds it at 100 %: RGBA bytes. */
async function shownPixels(page) {
  await page.click('#actual');
  await settled(page);
  const shown = await page.evaluate(() => {
    const canvas = document.getElementById('picture');
    const {x, y, scale} = canvas.dataset;
    const {width, height} = seen.at(-1).job.window ? {width: seen.at(-1).job.window[2], height: seen.at(-1).job.window[3]} : {};
    const pixels = canvas.getContext('2d').getImageData(Number(x), Number(y), width, height).data;
    return {scale: Number(scale), width, height, text: Array.from(pixels, (code) => String.fromCharCode(code)).join('')};
  });
  assert.equal(shown.scale, 1);
  return {...shown, pixels: Uint8Array.from(Buffer.from(shown.text, 'latin1'))};
}

/** Compares colours: the canvas is opaque, the file's alpha holds the matte. */
function compareColours(shown, file, what) {
  assert.deepEqual([shown.width, shown.height], [file.width, file.height], what);
  let wrong = 0;
  for (let i = 0; i < file.pixels.length; ++i) {
    if (i % 4 !== 3 && shown.pixels[i] !== file.pixels[i]) ++wrong;
  }
  assert.equal(wrong, 0, `${what}: ${wrong} of ${file.pixels.length} samples differ`);
}

const shellRun = (line) => execFileSync('sh', ['-c', line], {stdio: ['ignore', 'ignore', 'inherit']});

async function copiedCommand(page) {
  await page.click('#copyCommand');
  await page.waitForFunction(() => document.getElementById('told').textContent === 'Command copied.');
  const line = await page.evaluate(() => navigator.clipboard.readText());
  assert.match(line, /^orvanite key /);
  return line;
}

/** Keys with the command that the page hands out, into an 8-bit PNG file. */
async function keyed(page, output) {
  const line = await copiedCommand(page);
  const to = join(folder(), 'key.png');
  const deep = /\.(tif|exr)\b|--input-space/.test(line) ? join(folder(), 'key.tif') : to;
  const given = output ? line.replace(/ --output=\S+/, '').replace(/ -o /, ` --output ${output} -o `) : line;
  shellRun(given.replace(/^orvanite/, program).replace(/ -o .*$/, ` -q -o ${deep}`));
  if (deep !== to) shellRun(`oiiotool -iconfig oiio:UnassociatedAlpha 1 ${deep} --origin +0+0 --fullpixels -d uint8 -o ${to}`);
  return readPng(to);
}

/** Runs the command and the script that the page hands out, and compares the files of both. */
async function compareScript(page) {
  await page.click('#copyScript');
  await page.waitForFunction(() => document.getElementById('told').textContent === 'Script copied.');
  const at = folder();
  writeFileSync(join(at, 'key.orv'), await page.evaluate(() => navigator.clipboard.readText()));
  execFileSync(program, ['run', 'key.orv'], {cwd: at});
  const byScript = join(at, 'script.png');
  renameSync(join(at, 'key.png'), byScript);
  shellRun(`cd ${at} && ${(await copiedCommand(page)).replace(/^orvanite/, program)} -q`);
  execFileSync('oiiotool', ['--fail', '0', '--failpercent', '0', '--diff', byScript, join(at, 'key.png')], {stdio: 'ignore'});
}

const setting = (page, name) => new URLSearchParams(new URL(page.url()).hash.slice(1)).get(name);
const value = (page, id) => page.locator(`#${id}`).inputValue();

/** Clicks the pixel of the plate at these parts of its width and height. */
async function clickPlate(page, x, y) {
  const at = await page.evaluate(([u, v]) => {
    const canvas = document.getElementById('picture');
    const box = canvas.getBoundingClientRect();
    const {x: left, y: top, scale} = canvas.dataset;
    const {window: [, , w, h]} = seen.at(-1).job;
    return [box.left + Number(left) + u * w * Number(scale), box.top + Number(top) + v * h * Number(scale)];
  }, [x, y]);
  await page.mouse.click(...at);
}

async function dragSlider(page, id, to) {
  const box = await page.locator(`#${id}`).boundingBox();
  await page.mouse.move(box.x + 8, box.y + box.height / 2);
  await page.mouse.down();
  for (let i = 1; i <= 10; ++i) {
    await page.mouse.move(box.x + 8 + (to * (box.width - 16)) * i / 10, box.y + box.height / 2);
  }
  await page.mouse.up();
  await settled(page);
}

test('one keys a plate: eyedropper, slider, undo, redo, reload, preset, render', async () => {
  const files = drawPlate('--size', '480x270');
  const {page} = await open([files.plate, '--bg', files.background]);
  assert.equal(await page.locator('#hint').isVisible(), true, 'one is told to pick the screen');

  await clickPlate(page, 0.55, 0.25);
  await page.waitForFunction(() => location.hash.includes('screen='));
  await settled(page);
  const screen = setting(page, 'screen').split(',').map(Number);
  assert.ok(screen[1] > 1.5 * screen[0] && screen[1] > 1.5 * screen[2], `a green: ${screen}`);
  assert.match(await page.locator('#hint').textContent(), /Screen range/, 'and what to do next');
  // Green is not bluer than it is green: the balances follow.
  assert.equal(await value(page, 'p-midtoneBalance'), '0.5');

  await dragSlider(page, 'p-screenRange', 0.5);
  const range = setting(page, 'screenRange');
  assert.ok(range > 0.2 && range < 0.3, range);
  assert.match(await page.locator('#counts').textContent(), /clear (?!0\.0 %).*solid (?!0\.0 %)/);

  await page.keyboard.press('Control+z');
  assert.equal(setting(page, 'screenRange'), null, 'a whole drag is one change');
  await page.keyboard.press('Control+Shift+z');
  assert.equal(setting(page, 'screenRange'), range);

  await page.keyboard.press('2');
  await page.reload();
  await settled(page);
  assert.equal(setting(page, 'screenRange'), range, 'a reload loses nothing');
  assert.equal(await page.locator('[data-view=matte]').getAttribute('aria-checked'), 'true');
  await page.keyboard.press('Control+z');
  assert.equal(setting(page, 'screenRange'), null, 'not even what can be undone');
  await page.click('#redo');

  // A double click on the name gives the default back.
  await page.locator('label[for=p-screenRange]').dblclick();
  assert.equal(setting(page, 'screenRange'), null);
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

test('a notch is one step; fingers pan and pinch as far as they go', async () => {
  const files = drawPlate('--size', '480x270');
  const {page} = await open([files.plate, '--screen', '0.16,0.63,0.23']);
  const at = () => page.evaluate(() => Object.fromEntries(Object.entries(document.getElementById('picture').dataset).map(([name, text]) => [name, Number(text)])));
  const wheel = (times, init) => page.evaluate(([count, more]) => {
    const stage = document.getElementById('stage');
    const box = stage.getBoundingClientRect();
    for (let i = 0; i < count; ++i) {
      stage.dispatchEvent(new WheelEvent('wheel', {bubbles: true, cancelable: true, clientX: box.left + 200, clientY: box.top + 200, ...more}));
    }
  }, [times, init]);

  const fitted = await at();
  await wheel(20, {deltaX: 10});
  let now = await at();
  assert.deepEqual(now, {...fitted, x: fitted.x - 200}, 'sideways pans by 20 times 10');
  await wheel(20, {deltaY: -4});
  now = await at();
  assert.deepEqual(now, {scale: fitted.scale, x: fitted.x - 200, y: fitted.y + 80}, 'and so does up, by 20 times 4');

  // Twenty times a factor of e to the 0.04 is e to the 0.8, shown at the next whole scale.
  await wheel(20, {deltaY: -4, ctrlKey: true});
  now = await at();
  assert.equal(now.scale, Math.round(fitted.scale * Math.exp(0.8)), `from ${fitted.scale}`);
  // One notch: the next whole scale that is at least a step of the wheel away.
  await wheel(1, {deltaY: -100});
  const stepped = await at();
  assert.ok(stepped.scale > now.scale && stepped.scale <= now.scale * 1.5, `${now.scale} to ${stepped.scale}`);

  // Two fingers, 100 apart and then 200: twice the scale, and the middle between them stays.
  await page.click('#fit');
  await page.evaluate(() => {
    const stage = document.getElementById('stage');
    stage.setPointerCapture = () => {};
    const box = stage.getBoundingClientRect();
    const send = (type, pointerId, x) => stage.dispatchEvent(new PointerEvent(type, {bubbles: true, pointerId, pointerType: 'touch', button: type === 'pointermove' ? -1 : 0, buttons: 1, clientX: box.left + x, clientY: box.top + 150}));
    send('pointerdown', 11, 150); send('pointerdown', 12, 250);
    for (let i = 1; i <= 50; ++i) { send('pointermove', 11, 150 - i); send('pointermove', 12, 250 + i); }
    send('pointerup', 11, 100); send('pointerup', 12, 300);
  });
  now = await at();
  assert.ok(Math.abs(now.scale - 2 * fitted.scale) <= 0.5, `twice ${fitted.scale}: ${now.scale}`);
  const under = (place) => (200 - place.x) / place.scale;
  assert.ok(Math.abs(under(now) - under(fitted)) < 4, `${under(fitted)}: ${under(now)}`);
  assert.deepEqual(page.problems, []);
});

/** What is tested of every control in every state: texts that can be read, and that nothing moves. */
const inPage = () => {
  const controls = () => [...document.querySelectorAll('button, select, input, summary, label, output, [role=slider]')].filter((one) => one.checkVisibility());
  const codes = (text) => text.match(/[\d.]+/g).map(Number);
  const over = (above, below) => [0, 1, 2].map((c) => (above[3] ?? 1) * above[c] + (1 - (above[3] ?? 1)) * below[c]);
  // https://www.w3.org/TR/WCAG21/#dfn-relative-luminance
  const linear = (code) => (code / 255 <= 0.03928 ? code / 255 / 12.92 : ((code / 255 + 0.055) / 1.055) ** 2.4);
  const luminance = ([r, g, b]) => 0.2126 * linear(r) + 0.7152 * linear(g) + 0.0722 * linear(b);
  const ground = (element) => {
    if (!element) return [27, 27, 27];
    const colour = codes(getComputedStyle(element).backgroundColor);
    return (colour[3] ?? 1) === 1 ? colour : over(colour, ground(element.parentElement));
  };
  window.faintIn = (root) => [root, ...root.querySelectorAll('*')].filter((one) => one.checkVisibility()
    && (one.matches('input[type=number], input[type=text], select') || [...one.childNodes].some((node) => node.nodeType === 3 && node.data.trim()))).map((one) => {
    const style = getComputedStyle(one);
    const below = ground(one);
    const text = over([...codes(style.color).slice(0, 3), Number(style.opacity)], below);
    const [a, b] = [luminance(text), luminance(below)].sort((p, q) => q - p);
    return [`${one.tagName} ${one.id} ${one.textContent.trim().slice(0, 30)}`, (a + 0.05) / (b + 0.05)];
  }).filter(([, contrast]) => contrast < 4.5);
  window.places = () => Object.fromEntries(controls().filter((one) => !one.closest('#stage, #running')).map((one, i) => {
    const {x, y, width, height} = one.getBoundingClientRect();
    return [`${i} ${one.id || one.getAttribute('aria-label') || one.textContent.trim()}`, `${x} ${y} ${width} ${height}`];
  }));
  window.moved = (before) => Object.entries(places()).filter(([name, place]) => before[name] !== place).map(([name, place]) => `${name}: ${before[name]} to ${place}`);
  window.controls = controls;
  window.shifts = [];
  new PerformanceObserver((list) => { for (const entry of list.getEntries()) shifts.push(entry.sources.map(({node}) => node?.id || node?.className || node?.nodeName).join()); })
    .observe({type: 'layout-shift'});
};

/** Does something, and expects every control outside the picture to be there, and where it was. */
async function nothingMoves(page, what, action) {
  await page.evaluate(() => { window.placesBefore = places(); });
  await action();
  assert.deepEqual(await page.evaluate(() => moved(placesBefore)), [], what);
}

test('every control can be read in every state, and none moves under the pointer', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '1-3');
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23', '-o', join(folder(), 'key.####.png')], {hash: '#wipe=plate'});
  await page.evaluate(() => { for (const group of document.querySelectorAll('details')) group.open = true; });
  await page.evaluate(inPage);
  assert.deepEqual(await page.evaluate(() => faintIn(document.body)), [], 'at rest, some switched off');

  const count = await page.evaluate(() => controls().length);
  assert.ok(count > 120, `${count} controls`);
  for (let i = 0; i < count; ++i) {
    const {x, y, name, pressable} = await page.evaluate((index) => {
      const one = controls()[index];
      one.scrollIntoView({block: 'nearest'});
      const box = one.getBoundingClientRect();
      window.placesBefore = places();
      return {x: box.x + box.width / 2, y: box.y + box.height / 2, name: one.id || one.textContent.trim(), pressable: one.matches('button:not(:disabled), summary')};
    }, i);
    const check = async (state) => assert.deepEqual(await page.evaluate((index) =>
      ({faint: faintIn(controls()[index]), moved: moved(placesBefore)}), i), {faint: [], moved: []}, `${name}, ${state}`);
    await page.mouse.move(x, y);
    await check('under the pointer');
    if (pressable) {
      await page.mouse.down();
      await check('pressed');
      await page.mouse.move(600, 300);  // let go elsewhere: not clicked
      await page.mouse.up();
    }
    await page.evaluate((index) => controls()[index].focus({preventScroll: true}), i);
    await check('in focus');
  }
  await page.locator('#p-screenRange ~ input').fill('9');
  await page.keyboard.press('Enter');
  assert.deepEqual(await page.evaluate(() => faintIn(document.body)), [], 'with a value that is not taken');
  assert.match(await page.locator('#help').textContent(), /^Screen range: expected a number from 0 to 1, found 9\. It stays 0\.$/);
  await page.keyboard.press('Tab');
  assert.equal(await page.locator('#p-screenRange ~ input').inputValue(), '0', 'what was not taken does not stay');
  assert.deepEqual(await page.evaluate(() => shifts), [], 'the browser saw no shift either');
});

test('what comes and goes takes no room from what stays', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '1-12');
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23', '-o', join(folder(), 'key.####.png')]);
  await page.evaluate(inPage);
  const over = async (x, y) => {
    const box = await page.locator('#stage').boundingBox();
    await page.mouse.move(box.x + x * box.width, box.y + y * box.height);
  };
  await nothingMoves(page, 'values under the pointer', async () => {
    await over(0.5, 0.5);
    await page.waitForFunction(() => /matte/.test(document.getElementById('values').textContent));
  });
  await nothingMoves(page, 'wipe', () => page.click('#wipe'));
  await nothingMoves(page, 'eyedropper', async () => { await page.keyboard.press('s'); await page.keyboard.press('Escape'); });
  await nothingMoves(page, 'play', async () => { await page.click('#play'); await page.waitForTimeout(400); });
  await nothingMoves(page, 'stop', () => page.click('#play'));
  await nothingMoves(page, 'render', async () => {
    await page.click('#render');
    await page.waitForFunction(() => document.getElementById('cancel').offsetWidth > 0);
  });
  await nothingMoves(page, 'render is done', () => page.waitForFunction(() => /^Written/.test(document.getElementById('told').textContent)));
  await nothingMoves(page, 'Auto', async () => {
    await page.click('#auto');
    await page.waitForFunction(() => !document.getElementById('busy').hidden);
    await page.waitForFunction(() => document.getElementById('busy').hidden);
  });
  assert.deepEqual(page.problems, []);
});

test('work shows at once, can be stopped, and numbers belong to the picture that is seen', async () => {
  const files = drawPlate('--size', '320x180');
  const {page} = await open([files.plate, '--screen', '0.16,0.63,0.23', '--screen-range', '0.1'], {hash: '#view=matte&screen=0.16,0.63,0.23&screenRange=0.1'});
  const held = [];
  const hold = (what) => page.route(`**/${what}`, (route) => { held.push(route); });
  const go = async (what) => { await page.unroute(`**/${what}`); for (const route of held.splice(0)) await route.continue().catch(() => {}); };
  const busy = (words) => page.waitForFunction((wanted) => {
    const element = document.getElementById('busy');
    return wanted ? !element.hidden && element.textContent.includes(wanted) : element.hidden;
  }, words, {timeout: 3000});

  // A picture that takes its time: the values under the pointer stay those of the one on screen.
  const probed = [];
  page.on('request', (request) => { if (request.url().endsWith('/probe')) probed.push(request.postDataJSON()); });
  const box = await page.locator('#stage').boundingBox();
  await hold('picture');
  await page.locator('#p-screenRange').press('End');
  await busy('Keying');
  for (let i = 0; i < 5; ++i) { await page.mouse.move(box.x + box.width / 2 + i, box.y + 200); await page.waitForTimeout(60); }
  assert.ok(probed.length > 0);
  assert.deepEqual([...new Set(probed.map(({settings, view}) => `${settings.screenRange} ${view}`))], ['0.1 matte']);
  await page.click('#stopBusy');
  await busy('');
  assert.match(await page.locator('#problem').textContent(), /older settings/);
  await go('picture');
  await page.keyboard.press('Control+z');
  await page.keyboard.press('Control+Shift+z');
  await settled(page);
  assert.equal(await page.locator('#problem').isVisible(), false);
  probed.length = 0;
  await page.mouse.move(box.x + box.width / 2, box.y + 210);
  await page.waitForTimeout(200);
  assert.equal(probed.at(-1).settings.screenRange, '0.5', 'and the new ones come with the new picture');

  // Auto, stopped by the button and by the key; then one that goes on under a change.
  const before = page.url();
  for (const stop of [() => page.click('#stopBusy'), () => page.keyboard.press('Escape')]) {
    await hold('auto');
    await page.click('#auto');
    await busy('Looking for the screen');
    await stop();
    await busy('');
    assert.match(await page.locator('#told').textContent(), /stopped/);
    await go('auto');
  }
  assert.equal(page.url(), before);
  await hold('auto');
  await page.click('#auto');
  await page.locator('#p-screenRange').press('ArrowLeft');
  await go('auto');
  await settled(page);
  assert.equal(setting(page, 'estimate'), null, 'what a person changed meanwhile is not overwritten');
  assert.deepEqual(page.problems.filter((one) => !/ERR_FAILED|ERR_ABORTED/.test(one)), []);
});

test('a key beside estimates is keyed once for all that is asked of it', async () => {
  const files = drawPlate('--size', '1920x1080');
  const {page} = await open([files.plate, '--estimate', 'codes', '--screen', '0.16,0.63,0.23']);
  await page.keyboard.press('2');
  await settled(page);
  const times = await page.evaluate(async () => {
    const {settings, frame} = seen.at(-1).job;
    const probe = async (range, x) => {
      const start = performance.now();
      const body = {settings: {...settings, screenRange: String(range)}, view: 'matte', frame, x, y: 20, slot: 0};
      await (await fetch('probe', {method: 'POST', headers: {'Content-Type': 'application/json'}, body: JSON.stringify(body)})).json();
      return performance.now() - start;
    };
    const anew = [], again = [];
    for (let i = 1; i <= 5; ++i) {
      anew.push(await probe(i / 100, 10));
      for (let x = 11; x < 15; ++x) again.push(await probe(i / 100, x));
    }
    const middle = (list) => list.sort((a, b) => a - b)[list.length >> 1];
    return {anew: middle(anew), again: middle(again)};
  });
  console.log(`a pixel beside estimates: ${times.anew.toFixed(1)} ms at first, ${times.again.toFixed(1)} ms after`);
  assert.ok(times.again < times.anew / 3, JSON.stringify(times));
});

test('hands: one undo for a gesture, capitals, words on Render, commands that run in any folder', async () => {
  const files = drawPlate('--size', '320x180');
  const {page} = await open([relative(process.cwd(), files.plate), '--bg', relative(process.cwd(), files.background), '--screen', '0.16,0.63,0.23']);
  // A key held down, on a slider and in a number.
  for (const [target, key] of [['#p-screenRange', 'ArrowRight'], ['#p-screenRange ~ input', 'ArrowUp']]) {
    await page.locator(target).focus();
    for (let i = 0; i < 6; ++i) await page.keyboard.down(key);
    await page.keyboard.up(key);
    await page.waitForFunction(() => location.hash.includes('screenRange='));
    await page.click('#undo');
    assert.equal(await page.evaluate(() => location.hash.includes('screenRange=')), false, `${target}: six steps of one press are undone at once`);
  }
  // Caps Lock sends capitals without Shift.
  for (const [key, pressed] of [['W', '#wipe'], ['S', '#pickScreen'], ['X', '#sideB']]) {
    await page.locator('#stage').focus();
    await page.keyboard.press(key);
    assert.equal(await page.locator(pressed).getAttribute('aria-pressed'), 'true', key);
  }
  await page.keyboard.press('X');
  assert.match(await page.locator('[data-view=status]').getAttribute('title'), /Olive to green/);

  assert.equal(await page.locator('#render').innerText(), 'Render Composite\nplate-key.png (download), no alpha');
  await page.locator('#p-output').selectOption('unpremultiplied');
  assert.equal(await page.locator('#render').innerText(), 'Render Foreground\nplate-key.png (download), matte in alpha');
  await settled(page);
  const at = folder();
  shellRun(`cd ${at} && ${(await copiedCommand(page)).replace(/^orvanite/, program)} -q`);
  const [rendered] = await Promise.all([page.waitForEvent('download'), page.click('#render')]);
  assert.deepEqual(readPng(join(at, 'key.png')), readPng(await rendered.path()));
});

test('from 390 to 3840 pixels nothing is cut, and the settings fold away', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '1-2');
  const long = join(shot, 'a-long-name-as-they-come-from-a-camera_A003C012_260611_R4QK.####.png');
  for (const frame of ['0001', '0002']) copyFileSync(join(shot, `plate.${frame}.png`), long.replace('####', frame));
  const server = await serve(long, '--screen', '0.1625,0.6375,0.2325');
  closers.push(() => server.stop());
  for (const [width, height] of [[390, 844], [800, 600], [1280, 720], [1920, 1080], [3840, 2160]]) {
    const {page, close} = await browse(width, height);
    await page.goto(server.address);
    await page.waitForFunction(() => document.getElementById('counts').textContent);
    await page.evaluate(() => { for (const group of document.querySelectorAll('details')) group.open = true; });
    const look = () => page.evaluate(() => {
      const cut = [...document.querySelectorAll('button, label, .name, h1, summary, select, input[type=number], #counts span, #info')]
        .filter((one) => one.checkVisibility() && (one.scrollWidth > one.clientWidth + 1 && getComputedStyle(one).display !== 'inline'))
        .map((one) => one.id || one.textContent.trim());
      const outside = [...document.querySelectorAll('button, input, select, h1')].filter((one) => one.checkVisibility()).filter((one) => {
        const box = one.getBoundingClientRect();
        return box.left < -0.5 || box.right > innerWidth + 0.5;
      }).map((one) => one.id || one.textContent.trim());
      const {width, height} = document.getElementById('stage').getBoundingClientRect();
      return {cut, outside, width, height, sideways: document.documentElement.scrollWidth > innerWidth};
    });
    const open = await look();
    assert.deepEqual({cut: open.cut, outside: open.outside, sideways: open.sideways}, {cut: [], outside: [], sideways: false}, `${width}`);
    assert.ok(open.height > 0.25 * height && open.width > Math.min(width, 0.5 * width + 100) - 150, `${width}: a picture of ${open.width} x ${open.height}`);
    await page.click('#fold');
    const folded = await look();
    assert.ok(folded.width === width && folded.height > 0.6 * height, `${width}: folded ${folded.width} x ${folded.height}`);
    await page.keyboard.press('P');
    assert.deepEqual(await look(), open);
    assert.deepEqual(page.problems, []);
    await close();
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

  // A background of another size is fitted as the command does.
  await reopened(() => choose('Background', second.background));
  assert.equal(await page.locator('#render span').textContent(), 'Render Composite');
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
  assert.equal(setting(page, 'screenRange'), null);
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
    await settled(page).catch(() => {});
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
  assert.equal(setting(page, 'output'), 'unpremultiplied', 'a view changes no setting');

  await page.locator('#against').selectOption('other');
  assert.deepEqual(await page.locator('#leftLabel, #rightLabel').allTextContents(), ['B: Flat', 'A: Flat']);
  await page.click('#wipe');

  // Three samples: the mean of what the server says of each.
  const said = [];
  page.on('response', async (response) => { if (response.url().endsWith('/colours')) said.push((await response.json()).median); });
  await page.click('#pickScreen');
  await settled(page);
  for (const [i, [x, y]] of [[0.55, 0.25], [0.1, 0.1], [0.9, 0.15]].entries()) {
    if (i < 2) await page.keyboard.down('Shift');
    await clickPlate(page, x, y);
    await page.keyboard.up('Shift');
    await page.waitForTimeout(300);
  }
  await settled(page);
  assert.equal(said.length, 3);
  const mean = [0, 1, 2].map((c) => Number((said.reduce((sum, one) => sum + one[c], 0) / 3).toFixed(4)));
  assert.deepEqual(setting(page, 'screen').split(',').map(Number), mean);

  for (const kind of ['parade', 'vector']) {
    await page.locator('#scopeKind').selectOption(kind);
    await page.waitForTimeout(400);
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
      compareColours(await shownPixels(page), await keyed(page, output), `${depth} ${view}`);
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
  assert.equal(setting(page, 'frame'), '9');
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
  assert.equal(setting(page, 'screenRange'), 'linear(time, 7@0, 11@0.2)');
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
  assert.equal(setting(page, 'screenRange'), 'smooth(time, 7@0, 11@0.2)');
  await go(['Home']);
  await key.click();
  await go(['End']);
  await key.click();
  assert.equal(setting(page, 'screenRange'), '0.2');
  await page.keyboard.press('Control+z');
  assert.equal(setting(page, 'screenRange'), 'smooth(time, 11@0.2)');

  // A preset stands in place of what moved.
  await page.evaluate(() => {
    const transfer = new DataTransfer();
    transfer.items.add(new File(['{"orvanite": "preset", "version": 1, "parameters": {"screenRange": 0.05}}'], 'still.json'));
    document.body.dispatchEvent(new DragEvent('drop', {bubbles: true, cancelable: true, dataTransfer: transfer}));
  });
  await page.waitForFunction(() => new URLSearchParams(location.hash.slice(1)).get('screenRange') !== 'smooth(time, 11@0.2)');
  assert.equal(setting(page, 'screenRange'), '0.05');
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
  await page.click('#play');
  await page.waitForFunction(() => new Set(seen.slice(-12).map((one) => one.job.frame)).size === 4);
  const times = await page.evaluate(() => seen.slice(-5).map((one) => one.at));
  assert.ok((times.at(-1) - times[0]) / 4 > 75, `no faster than 12 frames a second: ${times}`);
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
  const files = drawPlate('--size', '640x360');
  const [shot, out] = [folder(), folder()];
  const count = 240;  // enough to be under way for a while on any machine
  const name = (stem, frame) => `${stem}.${String(frame).padStart(4, '0')}.png`;
  for (let frame = 1; frame <= count; ++frame) copyFileSync(files.plate, join(shot, name('plate', frame)));
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

test('every control is reached by Tab, has a name, shows its focus and can be read', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '1-2');
  const {page} = await open([join(shot, 'plate.####.png'), '--screen', '0.16,0.63,0.23'], {hash: '#wipe=plate&view=matte'});
  await page.evaluate(() => { for (const group of document.querySelectorAll('details')) group.open = true; });

  // What assistive programs are told.
  const {nodes} = await (await page.context().newCDPSession(page)).send('Accessibility.getFullAXTree');
  const controls = new Set(['button', 'slider', 'spinbutton', 'combobox', 'checkbox', 'textbox', 'radio', 'DisclosureTriangle', 'application']);
  const seen = nodes.filter((node) => !node.ignored && controls.has(node.role?.value));
  assert.ok(seen.length > 60, `${seen.length} controls`);
  assert.deepEqual(seen.filter((node) => !node.name?.value).map((node) => [node.role.value, node.backendDOMNodeId]), []);

  // Once around with Tab. A group of radio buttons is one stop.
  const {all, hidden} = await page.evaluate(() => {
    const every = [...document.querySelectorAll('button, input, select, summary, [tabindex]')];
    every.forEach((one, i) => { one.dataset.stop = i; });
    const stops = every.filter((one) => one.tabIndex >= 0 && !one.disabled && one.checkVisibility());
    return {all: stops.map((one) => one.dataset.stop), hidden: every.filter((one) => one.tabIndex < 0 && one.getAttribute('role') !== 'radio').length};
  });
  assert.equal(hidden, 0);
  const reached = new Set();
  for (let i = 0; i < all.length + 5; ++i) {
    await page.keyboard.press('Tab');
    const at = await page.evaluate(() => {
      const one = document.activeElement;
      const style = getComputedStyle(one);
      return {stop: one.dataset.stop, ring: style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) >= 1};
    });
    if (at.stop === undefined) continue;  // past the last one, at the document
    assert.ok(at.ring, `no focus to be seen at ${at.stop}`);
    reached.add(at.stop);
  }
  assert.deepEqual([...reached].sort(), all.sort());

  // Contrast of every text with what is behind it: 4.5 to 1, by the formula of WCAG 2.
  const faint = await page.evaluate(() => {
    const numbers = (colour) => colour.match(/[\d.]+/g).map(Number);
    const light = ([r, g, b]) => [r, g, b].map((code) => code / 255).map((part) => part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4)
      .reduce((sum, part, i) => sum + part * [0.2126, 0.7152, 0.0722][i], 0);
    const behind = (one) => {
      for (; one; one = one.parentElement) {
        const colour = numbers(getComputedStyle(one).backgroundColor);
        if ((colour[3] ?? 1) > 0.5) return colour;
      }
      return [255, 255, 255];
    };
    const texts = [...document.querySelectorAll('body *')].filter((one) => one.checkVisibility() && !one.disabled &&
      (one.matches('input[type=number], input[type=text], select') || [...one.childNodes].some((node) => node.nodeType === 3 && node.data.trim())));
    return texts.map((one) => {
      const [low, high] = [light(numbers(getComputedStyle(one).color)), light(behind(one))].sort((a, b) => a - b);
      const opacity = Number(getComputedStyle(one).opacity);
      return {text: one.id || one.textContent, ratio: opacity * (high + 0.05) / (low + 0.05)};
    }).filter(({ratio}) => ratio < 4.5);
  });
  assert.deepEqual(faint, []);
});

test('Auto finds the screen, and says when there is none', async () => {
  const files = drawPlate('--size', '480x270', '--screen', 'blue');
  const {page} = await open([files.plate]);
  await page.click('#auto');
  await page.waitForFunction(() => location.hash.includes('screen='));
  await settled(page);
  const screen = setting(page, 'screen').split(',').map(Number);
  assert.ok(screen[2] > 1.5 * screen[0] && screen[2] > screen[1], `a blue: ${screen}`);
  const [clear, , solid] = (await page.locator('#counts span').allTextContents()).map((text) => parseFloat(text.match(/[\d.]+/)[0]));
  assert.ok(clear > 30 && solid > 20, `clear ${clear} %, solid ${solid} %`);
  await page.keyboard.press('Control+z');
  assert.equal(setting(page, 'screen'), null, 'all that it set is one change');

  // A picture without a screen: a matte.
  const {page: other} = await open([files.holdout]);
  await other.click('#auto');
  await other.waitForFunction(() => /screen/.test(document.getElementById('told').textContent));
  assert.equal(setting(other, 'screen'), null);
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
  assert.equal(setting(page, 'b.screenRange'), '0.5');
  assert.equal(setting(page, 'screenRange'), null);
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
