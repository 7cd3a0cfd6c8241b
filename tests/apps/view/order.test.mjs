// SPDX-License-Identifier: BSD-3-Clause
//
// Answers of the server's in any order and after any time: whatever comes late, what stands on the
// page belongs to what was asked for last.
import assert from 'node:assert/strict';
import {readFileSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';
import {test} from 'node:test';
import {clickPlate, closeLater, open, setting, settled, shownPixels} from './page.mjs';
import {browse, drawPlate, serveScript} from './program.mjs';

/** Holds requests of a name back, those that `which` says of their bodies. */
async function hold(page, name, which = () => true) {
  const routes = [];
  const take = (route) => { if (which(route.request().postDataJSON() ?? {}, route.request())) routes.push(route); else route.fallback(); };
  await page.route(`**/${name}`, take);
  return {
    routes,
    /** Resolves when so many have come. */
    async come(count) {
      for (let i = 0; routes.length < count; ++i) {
        assert.ok(i < 1500, `${routes.length} of ${count} requests came`);
        await page.waitForTimeout(20);
      }
    },
    /** Lets one be answered; resolves when it is. */
    async answer(i) {
      const done = page.waitForEvent('requestfinished', (request) => request === routes[i].request());
      await routes[i].continue();
      await done;
    },
    /** Lets all be answered, and those that will come. */
    async free() {
      await page.unroute(`**/${name}`, take);
      for (const route of routes) await route.continue().catch(() => {});  // answered already, or given up
    },
  };
}

const says = (page, id, words) => page.waitForFunction(([name, text]) => new RegExp(text).test(document.getElementById(name).textContent), [id, words.source]);
const screen = ['--screen', '0.16,0.63,0.23'];
const drawShot = (frames) => join(drawPlate('--size', '160x90', '--frames', frames).folder, 'plate.####.png');

test('two commands: the later one stands on the clipboard; masks go with the command of their click', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate, ...screen]);
  let commands = await hold(page, 'command');
  await page.click('#copyCommand');
  await page.locator('#p-screenRange').press('End');
  await page.click('#copyCommand');
  await commands.come(2);
  await commands.answer(1);
  await says(page, 'told', /^Command copied\.$/);
  await commands.answer(0);
  await commands.free();
  await settled(page);
  assert.match(await page.evaluate(() => navigator.clipboard.readText()), /--screen-range=0\.5/);

  await page.click('#masks');
  const draw = async (count) => {
    await page.focus('#maskEllipse');
    await page.keyboard.press('Enter');
    await page.waitForFunction((wanted) => document.getElementById('maskList').textContent.split('ellipse').length - 1 === wanted, count);
  };
  await draw(1);
  commands = await hold(page, 'command');
  const coming = page.waitForEvent('download');
  await page.click('#copyCommand');
  await commands.come(1);
  await draw(2);
  await commands.free();
  const saved = JSON.parse(readFileSync(await (await coming).path(), 'utf8'));
  assert.equal(saved.shapes.length, 1, 'the masks of the click');
  assert.deepEqual(page.problems, []);
});

test('Render pressed twice, and while the page looks for one that goes on, is one render', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate, ...screen]);
  const looks = await hold(page, 'job', (body, request) => request.method() === 'GET');
  const starts = await hold(page, 'job', (body, request) => request.method() === 'POST');
  const downloads = [];
  page.on('download', (one) => downloads.push(one));
  await page.reload();
  await looks.come(1);
  await page.waitForFunction(() => !document.body.inert);
  await page.click('#render');
  await starts.come(1);
  await page.click('#render');
  await page.click('#copyCommand');
  await says(page, 'told', /copied/);  // so long a second one would have been asked for
  assert.equal(starts.routes.length, 1);
  await starts.free();
  await looks.come(2);
  // What it looked for at its start is the render that it follows.
  for (const route of looks.routes.splice(0)) await route.fulfill({json: {state: 'running', done: 0, message: ''}});
  await looks.come(1);
  await looks.free();
  await says(page, 'told', /^Downloaded/);
  await settled(page);
  assert.equal(downloads.length, 1);
  assert.deepEqual(page.problems, []);
});

test('what is wrong with one side of the wipe is said, whichever side is answered first', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate, ...screen], {hash: '#wipe=other&screen=0.16,0.63,0.23&b.screen=0.16,0.63,0.23'});
  const pictures = await hold(page, 'picture');
  await page.evaluate(() => { location.hash = location.hash.replace('screen=0.16,0.63,0.23', 'screen=0.5,0.5,0.5'); });
  await pictures.come(2);
  const slot = (i) => pictures.routes.findIndex((route) => route.request().postDataJSON().slot === i);
  const wrong = pictures.routes[slot(0)].request().postDataJSON().settings.screen === '0.5,0.5,0.5' ? 0 : 1;
  await pictures.answer(slot(wrong));
  await says(page, 'problem', /^screen: expected a colour/);
  await pictures.answer(slot(1 - wrong));
  await pictures.free();
  await settled(page);
  assert.equal(await page.locator('#problem').isVisible(), true);
  // With the wipe, or with what was wrong, it goes.
  await page.evaluate(() => { location.hash = location.hash.replace('screen=0.5,0.5,0.5', 'screen=0.16,0.63,0.23'); });
  await settled(page);
  assert.equal(await page.locator('#problem').isVisible(), false);
});

test('a veil lies over the plate of its own frame, whatever the other side of the wipe shows', async () => {
  const {page} = await open([drawShot('1-2'), ...screen], {hash: '#view=veil&frame=1&screen=0.16,0.63,0.23'});
  const alone = await shownPixels(page);
  await page.selectOption('#against', 'held');
  await settled(page);
  const pictures = await hold(page, 'picture');
  await page.fill('#frameNumber', '2');
  await page.keyboard.press('Enter');
  await pictures.come(2);
  const asks = (i) => pictures.routes[i].request().postDataJSON();
  const plate = [0, 1].find((i) => asks(i).view === 'plate' && asks(i).frame === 2);
  const held = [0, 1].find((i) => asks(i).view === 'matte' && asks(i).frame === 1);
  await pictures.answer(plate);
  await pictures.come(3);
  await pictures.answer(held);
  await pictures.free();
  await settled(page);
  const both = await shownPixels(page);
  const left = (pixels) => pixels.filter((code, i) => (i >> 2) % 160 < 70);
  assert.deepEqual(left(both.pixels), left(alone.pixels));
});

test('where one comes back to before the picture of elsewhere is there, it is not left without one', async () => {
  const files = drawPlate('--size', '2560x1440');
  const {page} = await open([files.plate, ...screen], {hash: '#place=1,0,0&screen=0.16,0.63,0.23'});
  const last = () => page.evaluate(() => seen.at(-1).job.window);
  const [here, , width] = await last();
  assert.ok(here === 0 && width < 2560, 'a part of the plate');
  const pictures = await hold(page, 'picture');
  await page.focus('#stage');
  for (let i = 0; i < 5; ++i) await page.keyboard.press('Shift+ArrowRight');
  await pictures.come(1);
  const [away] = pictures.routes[0].request().postDataJSON().window;
  assert.ok(away > here);
  for (let i = 0; i < 5; ++i) await page.keyboard.press('Shift+ArrowLeft');
  await page.waitForTimeout(400);  // the page asks when it has rested
  await pictures.free();
  await settled(page);
  assert.equal((await last())[0], here);
});

test('a colour that is picked goes to the side that was seen, and the last one counts', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate]);
  let colours = await hold(page, 'colours');
  await clickPlate(page, 0.55, 0.25);
  await colours.come(1);
  await page.keyboard.press('x');
  await colours.free();
  await settled(page);
  assert.deepEqual([Boolean(await setting(page, 'screen')), await setting(page, 'b.screen')], [true, null]);

  await page.keyboard.press('x');
  await settled(page);
  colours = await hold(page, 'colours');
  for (const [i, [u, v]] of [[0.1, 0.1], [0.9, 0.15]].entries()) {
    await page.keyboard.press('s');
    await clickPlate(page, u, v);
    await colours.come(i + 1);
  }
  const before = await setting(page, 'screen');
  await colours.answer(1);
  await page.waitForFunction((text) => new URLSearchParams(location.hash.slice(1)).get('screen') !== text, before);
  const second = await setting(page, 'screen');
  await colours.answer(0);
  await colours.free();
  await settled(page);
  assert.equal(await setting(page, 'screen'), second);

  // How much of the frame has the hue is said of the last one, once.
  const shares = await hold(page, 'coverage');
  for (const count of [1, 2]) {
    await page.keyboard.press('s');
    await clickPlate(page, 0.55, 0.25);
    await shares.come(count);
  }
  await shares.free();
  await settled(page);
  assert.equal((await page.textContent('#hint')).split('of the frame').length - 1, 1);
  assert.deepEqual(page.problems, []);
});

test('what Auto found is not told when it was taken back meanwhile, and no search is stopped that is over', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate]);
  await page.keyboard.press('Escape');
  await settled(page);
  const pictures = await hold(page, 'picture');
  await page.click('#auto');
  await page.waitForFunction(() => location.hash.includes('screen='));
  await pictures.come(1);
  await says(page, 'busyWith', /^Keying$/);
  await page.keyboard.press('Control+z');
  await pictures.free();
  await settled(page);
  assert.equal(await page.locator('#hint').isVisible(), false);
  assert.equal(await setting(page, 'screen'), null);
});

test('the first picture is given up, and the page no longer says that it reads', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate, ...screen]);
  const pictures = await hold(page, 'picture');
  await page.reload();
  await says(page, 'busyWith', /^Keying$/);
  await page.click('#stopBusy');
  await says(page, 'problem', /^Stopped/);
  assert.equal(await page.locator('#busy').isVisible(), false);
  await pictures.free();
});

test('a scope is of the frame that is shown, whatever comes last', async () => {
  const {page} = await open([drawShot('1-2'), ...screen]);
  await page.selectOption('#scopeKind', 'parade');
  await settled(page);
  const drawn = () => page.evaluate(() => document.getElementById('scope').toDataURL());
  const goTo = async (frame) => {
    await page.fill('#frameNumber', String(frame));
    await page.keyboard.press('Enter');
    await page.waitForFunction((wanted) => seen.at(-1).job.frame === wanted && !seen.at(-1).job.moving, frame);
  };
  const first = await drawn();
  const plates = await hold(page, 'picture', ({measured}) => !measured);
  await goTo(2);
  await plates.come(1);
  await goTo(1);
  await plates.free();
  await settled(page);
  assert.equal(await drawn(), first);
  await goTo(2);
  await settled(page);
  assert.notEqual(await drawn(), first);
});

test('a pin whose values are not to be had shows none of an earlier picture', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate, ...screen], {hash: '#pins=40,30&screen=0.16,0.63,0.23'});
  const text = () => page.textContent('#pinLayer span');
  assert.match(await text(), /^40, 30 plate/);
  await page.route('**/probe', (route) => route.fulfill({status: 503, json: {error: {subject: 'request', message: 'too many renders wait'}}}));
  await page.locator('#p-screenRange').press('End');
  await settled(page);
  assert.equal(await text(), '40, 30');
});

test('a key set before the frame\'s picture is there has the value of that frame', async () => {
  const {page} = await open([drawShot('7-11'), ...screen, '--screen-range', 'linear(time, 7@0, 11@0.2)']);
  const pictures = await hold(page, 'picture');
  await page.fill('#frameNumber', '9');
  await page.keyboard.press('Enter');
  await page.click('.row:has(#p-screenRange) .key');
  assert.equal(await setting(page, 'screenRange'), 'linear(time, 7@0, 9@0.1, 11@0.2)');
  await pictures.free();
  await settled(page);
  // What the page says lies between keys is what the server keys with, to four decimals.
  const pairs = await page.evaluate(async () => {
    const {askPicture} = await import('./server.js');
    const {textAt} = await import('./curves.js');
    const {parameters} = await (await fetch('state')).json();
    const found = [];
    let number = 0;
    for (const [name, text] of [['screenRange', 'smooth(time, 7@0.1, 8@0.7, 10@0.2, 11@0.4)'], ['gamma', 'linear(time, 8@1, 10@2),1,smooth(time, 7@0.5, 11@1.5)']]) {
      for (const frame of [7, 8, 9, 10, 11]) {
        const {inForce} = await askPicture({settings: {screen: '0.16,0.63,0.23', [name]: text}, view: 'plate', frame, divisor: 1, proxy: false,
          window: [0, 0, 8, 8], measured: false, slot: 0, page: 'between keys', number: ++number});
        const numbers = (one) => one.split(',').map(Number);
        const here = numbers(textAt(text, frame, parameters.find((one) => one.name === name)));
        const there = numbers(inForce[name]);
        found.push([`${name} at ${frame}: ${here} and ${there}`, Math.max(...[0, 1, 2].map((c) => Math.abs((here[c] ?? here[0]) - (there[c] ?? there[0]))))]);
      }
    }
    return found;
  });
  assert.equal(pairs.length, 10);
  assert.deepEqual(pairs.filter(([, apart]) => !(apart < 1.5e-4)), []);
});

test('of two presets the last one that is dropped is taken', async () => {
  const files = drawPlate('--size', '160x90');
  const {page} = await open([files.plate, ...screen]);
  const presets = await hold(page, 'read-preset');
  for (const [i, range] of [0.1, 0.2].entries()) {
    await page.evaluate((value) => {
      const transfer = new DataTransfer();
      transfer.items.add(new File([`{"orvanite": "preset", "version": 1, "parameters": {"screenRange": ${value}}}`], `${value}.json`));
      document.body.dispatchEvent(new DragEvent('drop', {bubbles: true, cancelable: true, dataTransfer: transfer}));
    }, range);
    await presets.come(i + 1);
  }
  await presets.answer(1);
  await says(page, 'told', /^Read 0\.2\.json/);
  await presets.free();
  await settled(page);
  assert.equal(await setting(page, 'screenRange'), '0.2');
  assert.match(await page.textContent('#told'), /^Read 0\.2\.json/);
  assert.equal(await page.locator('#opener').isVisible(), false);
});

test('of a watched script the picture that is chosen is shown, though another one is on its way', async () => {
  const {folder} = drawPlate('--size', '64x36');
  const script = join(folder, 's.orv');
  const text = (name) => `FileOut(FileIn("plate.png"), "o.png");\nFileOut(FileIn("${name}.png"), "p.png");\n`;
  writeFileSync(script, text('plate'));
  const server = await serveScript(script);
  closeLater(() => server.stop());
  const {page, close} = await browse();
  closeLater(close);
  await page.goto(server.address);
  const second = page.locator('#pictures button >> nth=1');
  await second.waitFor();
  const pictures = await hold(page, 'picture');
  writeFileSync(script, text('background'));
  await pictures.come(1);
  await second.click();
  await pictures.free();
  await page.waitForFunction(() => document.querySelectorAll('#pictures button')[1].getAttribute('aria-checked') === 'true');
});
