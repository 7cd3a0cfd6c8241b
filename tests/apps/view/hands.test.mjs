// SPDX-License-Identifier: BSD-3-Clause
//
// The page in the hand: gestures, keys and undo, controls in every state and at every size, work
// that shows at once and can be stopped.
import assert from 'node:assert/strict';
import {copyFileSync} from 'node:fs';
import {join, relative} from 'node:path';
import {test} from 'node:test';
import {closeLater, copiedCommand, open, setting, settled, shellRun} from './page.mjs';
import {browse, drawPlate, folder, program, readPng, serve} from './program.mjs';

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
  await nothingMoves(page, 'play', async () => {
    const before = await page.evaluate(() => seen.length);
    await page.click('#play');
    await page.waitForFunction((count) => seen.length > count + 1, before);
  });
  await nothingMoves(page, 'stop', () => page.click('#play'));
  // What may be over at once is held back until it was seen.
  const hold = async (name, method) => {
    let free;
    const seen = new Promise((done) => { free = done; });
    const wait = async (route) => {
      if (route.request().method() === method) await seen;
      await route.continue().catch(() => {});  // let go with the last route
    };
    await page.route(`**/${name}`, wait);
    return () => { free(); return page.unroute(`**/${name}`, wait); };
  };
  let free = await hold('job', 'GET');
  await nothingMoves(page, 'render', async () => {
    await page.click('#render');
    await page.waitForFunction(() => document.getElementById('cancel').offsetWidth > 0);
  });
  await free();
  await nothingMoves(page, 'render is done', () => page.waitForFunction(() => /^Written/.test(document.getElementById('told').textContent)));
  free = await hold('auto', 'POST');
  await nothingMoves(page, 'Auto', async () => {
    await page.click('#auto');
    await page.waitForFunction(() => !document.getElementById('busy').hidden);
  });
  await free();
  await nothingMoves(page, 'Auto is done', () => page.waitForFunction(() => location.hash.includes('estimate=') && document.getElementById('busy').hidden));
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
  }, words);

  // A picture that takes its time: the values under the pointer stay those of the one on screen.
  const probed = [];
  page.on('request', (request) => { if (request.url().endsWith('/probe')) probed.push(request.postDataJSON()); });
  const box = await page.locator('#stage').boundingBox();
  await hold('picture');
  await page.locator('#p-screenRange').press('End');
  await busy('Keying');
  for (let i = 0; i < 5; ++i) await Promise.all([page.waitForRequest(/\/probe$/), page.mouse.move(box.x + box.width / 2 + i, box.y + 200)]);
  assert.deepEqual([...new Set(probed.map(({settings, view}) => `${settings.screenRange} ${view}`))], ['0.1 matte']);
  await page.click('#stopBusy');
  await busy('');
  assert.match(await page.locator('#problem').textContent(), /older settings/);
  await go('picture');
  await page.keyboard.press('Control+z');
  await page.keyboard.press('Control+Shift+z');
  await settled(page);
  assert.equal(await page.locator('#problem').isVisible(), false);
  const [probe] = await Promise.all([page.waitForRequest(/\/probe$/), page.mouse.move(box.x + box.width / 2, box.y + 210)]);
  assert.equal(probe.postDataJSON().settings.screenRange, '0.5', 'and the new ones come with the new picture');

  // Auto, stopped by the button and by the key; then one that goes on under a change.
  const address = () => page.evaluate(() => location.href);
  const before = await address();
  for (const stop of [() => page.click('#stopBusy'), () => page.keyboard.press('Escape')]) {
    await hold('auto');
    await page.click('#auto');
    await busy('Looking for the screen');
    await stop();
    await busy('');
    assert.match(await page.locator('#told').textContent(), /stopped/);
    await go('auto');
  }
  assert.equal(await address(), before);
  await hold('auto');
  await page.click('#auto');
  await page.locator('#p-screenRange').press('ArrowLeft');
  await go('auto');
  await settled(page);
  assert.equal(await setting(page, 'estimate'), null, 'what a person changed meanwhile is not overwritten');
  assert.deepEqual(page.problems.filter((one) => !/ERR_FAILED|ERR_ABORTED/.test(one)), []);
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

test('without a pointer: a screen under the cross, Auto by a key, and no focus is lost on the way', async () => {
  const files = drawPlate('--size', '320x180', '--clean');
  const {page} = await open([files.plate]);
  const hint = () => page.evaluate(() => { const one = document.getElementById('hint'); return one.hidden ? '' : one.textContent; });
  const focused = () => page.evaluate(() => document.activeElement.id);
  const cross = () => page.evaluate(() => getComputedStyle(document.getElementById('stage'), '::after').width);
  await page.keyboard.press('Escape');
  await page.focus('#pickScreen');
  assert.equal(await cross(), 'auto');
  await page.keyboard.press('Enter');
  assert.deepEqual([await focused(), await cross()], ['stage', '26px']);
  // The plate's upper left corner comes under the cross; its screen is even.
  for (const key of ['Shift+ArrowLeft', 'Shift+ArrowLeft', 'Shift+ArrowUp', 'Enter']) await page.keyboard.press(key);
  await page.waitForFunction(() => location.hash.includes('screen='));
  // The screen of a clean plate is 0.165, 0.64, 0.225: codes 42, 163, 57 of 255.
  assert.equal(await setting(page, 'screen'), '0.1647,0.6392,0.2235');
  assert.match(await hint(), /Screen range/);
  await page.keyboard.press('Control+z');
  assert.deepEqual([await setting(page, 'screen'), await hint(), await cross()], [null, '', 'auto'], 'what was advised is no longer of use');

  await page.keyboard.press('a');
  await page.waitForFunction(() => location.hash.includes('screen='));
  await settled(page);
  assert.match(await hint(), /^Screen found on \d+ % .*Open adds a background\.$/);
  // Buttons that cannot be pressed any more hand the focus on.
  await page.focus('#undo');
  await page.keyboard.press('Enter');
  assert.equal(await focused(), 'redo');
  await page.keyboard.press('Enter');
  assert.equal(await focused(), 'undo');
  await page.focus('#render');
  await Promise.all([page.waitForEvent('download'), page.keyboard.press('Enter')]);
  await page.waitForFunction(() => /^Downloaded/.test(document.getElementById('told').textContent) && document.getElementById('running').hidden);
  assert.equal(await focused(), 'render');
  // Keys are the dialog's while it is open.
  await page.click('#openFiles');
  await page.keyboard.press('2');
  await page.click('#closeOpener');
  assert.equal(await setting(page, 'view'), 'composite');
});

test('from 390 to 3840 pixels nothing is cut, and the settings fold away', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '1-2');
  const long = join(shot, 'a-long-name-as-they-come-from-a-camera_A003C012_260611_R4QK.####.png');
  for (const frame of ['0001', '0002']) copyFileSync(join(shot, `plate.${frame}.png`), long.replace('####', frame));
  const server = await serve(long, '--screen', '0.1625,0.6375,0.2325');
  closeLater(() => server.stop());
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
