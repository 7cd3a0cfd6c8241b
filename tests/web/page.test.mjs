// SPDX-License-Identifier: BSD-3-Clause
//
// The page without a server in a real browser: opened, given a plate, keyed, rendered, and all of
// it again without a network; what is downloaded has the samples that `orvanite key` writes.
//   SITE=folder and what tests/apps/view/program.mjs asks for
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {copyFileSync} from 'node:fs';
import {join} from 'node:path';
import {after, test} from 'node:test';
import {browse, drawPlate, program, readPng} from '../apps/view/program.mjs';
import {host as startHost} from './host.mjs';

const closers = [];
after(async () => { for (const close of closers.reverse()) await close(); });

async function host(options) {
  const started = await startHost(options);
  closers.push(started.stop);
  return started;
}

const shown = (page) => page.waitForFunction(() => window.seen?.length > 0 && !seen.at(-1).job.moving && performance.now() - seen.at(-1).at > 400);

async function render(page) {
  const coming = page.waitForEvent('download');
  await page.click('#render');
  return readPng(await (await coming).path());
}

for (const alone of [true, false]) test(`a plate is opened, keyed and rendered, with and without a network, ${alone ? 'memory shared' : 'from a plain server'}`, async () => {
  const files = drawPlate();
  const {address, asked, missing, stop} = await host({alone});
  const {page, close} = await browse(1280, 720);
  closers.push(close);
  await page.addInitScript(() => {
    window.seen = [];
    addEventListener('orvanite-shown', (event) => seen.push({at: performance.now(), ...event.detail}));
  });
  // Listened for from the start: a chooser that comes before the driver looks for it is lost.
  const choosers = [];
  page.on('filechooser', (one) => choosers.push(one));
  await page.goto(address);
  // What the service worker hands out is isolated anyway: from the second visit on.
  assert.equal(await page.evaluate(() => crossOriginIsolated), alone);
  await page.waitForSelector('#open[open]');
  const choose = async (role, file) => {
    await Promise.all([page.waitForEvent('load'), page.setInputFiles(`#open input[type=file] >> nth=${role}`, file)]);
    await shown(page);
  };
  await choose(0, files.plate);
  await page.click('#auto');
  await page.waitForFunction(() => location.hash.includes('screen='));
  await page.waitForFunction(() => /clear [1-9]/.test(document.getElementById('counts').textContent));

  const command = async () => {
    await page.click('#copyCommand');
    await page.waitForFunction(() => /copied/.test(document.getElementById('told').textContent));
    return page.evaluate(() => navigator.clipboard.readText());
  };
  const same = async (what) => {
    const line = await command();
    assert.match(line, /^orvanite key plate\.png .*--screen=/);
    execFileSync(program, line.split(' ').slice(1), {cwd: files.folder});
    const [found, expected] = [await render(page), readPng(join(files.folder, 'key.png'))];
    const wrong = found.pixels.findIndex((code, i) => code !== expected.pixels[i]);
    assert.equal(wrong, -1, `${what}: ${line}: sample ${wrong} is ${found.pixels[wrong]}, not ${expected.pixels[wrong]}`);
  };
  await same('a cut-out');

  // Settings stay when a background comes; the composite is what is shown and written then.
  assert.equal(await page.isVisible('#copyScript'), false, 'what only the command can do is not offered');
  await page.keyboard.press('2');
  await page.keyboard.press('o');
  await page.keyboard.press('3');
  await page.keyboard.press('Tab');
  await page.keyboard.press('Tab');
  await page.keyboard.press('Enter');
  for (let i = 0; i < 300 && choosers.length === 0; ++i) await page.waitForTimeout(100);
  const [chooser] = choosers;
  assert.ok(chooser, 'Enter opens the chooser');
  assert.match(await page.url(), /view=matte/, 'keys are of the dialog');
  await Promise.all([page.waitForEvent('load'), chooser.setFiles(files.background)]);
  await shown(page);
  assert.match(await page.url(), /view=composite/);
  assert.match(await command(), /--bg background\.png .*--output=composite/);
  await same('over a background');

  // Without the server the page opens again with its pictures, and keys.
  await page.evaluate(() => navigator.serviceWorker.ready.then(() => {}));
  const before = asked.length;
  await stop();
  const place = () => page.evaluate(() => ({...document.getElementById('picture').dataset}));
  await page.keyboard.press('z');
  await page.focus('#stage');
  await page.keyboard.press('ArrowRight');
  const zoomed = await place();
  // The address takes down where it rests.
  await page.waitForFunction(({x, y}) => location.hash.includes(`place=1,${-x},${-y}`), zoomed);
  await Promise.all([page.waitForEvent('load'), page.reload()]);
  await shown(page);
  assert.deepEqual(await place(), zoomed, 'what is seen stays');
  assert.equal(asked.length, before);
  assert.equal(await page.evaluate(() => crossOriginIsolated), true);
  assert.equal(await page.textContent('#title'), 'plate.png');
  await same('without a network');
  assert.deepEqual(missing, []);
  // Nothing was refused by the policy, nothing failed.
  assert.deepEqual(page.problems, []);
});

test('what cannot be opened is said, and a preset is taken', async () => {
  const files = drawPlate();
  const {address} = await host();
  const {page, close} = await browse(390, 720);
  closers.push(close);
  await page.goto(address);
  await page.setInputFiles('#open input[type=file] >> nth=0', {name: 'notes.png', mimeType: 'image/png', buffer: Buffer.from('no picture')});
  await page.waitForFunction(() => /notes\.png: /.test(document.querySelector('#open .wrong').textContent));
  const wide = await page.evaluate(() => document.querySelector('#open').scrollWidth <= document.querySelector('#open').clientWidth);
  assert.ok(wide, 'the dialog fits a narrow screen');
  await Promise.all([page.waitForEvent('load'), page.setInputFiles('#open input[type=file] >> nth=0', files.plate)]);
  await page.waitForFunction(() => document.getElementById('info').textContent.includes('8-bit'));
  // A matte of another size is refused, and all is as it was.
  await page.click('#openPictures');
  await page.setInputFiles('#open input[type=file] >> nth=2', drawPlate('--size', '64x36').holdout);
  await page.waitForFunction(() => /^holdout\.png: expected the plate's size, 1920×1080, found 64×36/.test(document.querySelector('#open .wrong').textContent));
  assert.equal(await page.locator('#open .there').count(), 1);
  await page.keyboard.press('Escape');
  await page.reload();
  await page.waitForFunction(() => document.getElementById('info').textContent.includes('8-bit'));
  const drop = (name, text) => page.evaluate(([name, text]) => {
    const data = new DataTransfer();
    data.items.add(new File([text], name));
    dispatchEvent(new DragEvent('drop', {dataTransfer: data, cancelable: true}));
  }, [name, text]);
  await drop('key.json', '{"orvanite": "preset", "version": 1, "parameters": {"screenRange": 0.3}}');
  await page.waitForFunction(() => location.hash.includes('screenRange=0.3') || document.querySelector('#open .wrong').textContent);
  assert.equal(await page.textContent('#open .wrong'), '');
  await drop('key.json', '{"orvanite": "preset", "version": 1, "parameters": {"screenRage": 0.3}}');
  await page.waitForFunction(() => /screenRage/.test(document.querySelector('#open .wrong').textContent));

  await drop('key.json', '{"orvanite": "preset", "version": 1, "parameters": {"screen": [0.16, 0.63, 0.23]}}');
  await page.waitForFunction(() => location.hash.includes('screen='));
  // Masks are dropped likewise; drawn ones go into the render, which has the command's samples.
  await drop('masks.json', '{"orvanite": "masks", "version": 1, "shapes": [{"kind": "star"}]}');
  await page.waitForFunction(() => /shapes\[0\]\.kind/.test(document.querySelector('#open .wrong').textContent));
  await drop('masks.json', '{"orvanite": "masks", "version": 1, "shapes": [{"kind": "ellipse", "soft": 20, "keys": [{"frame": 1, "points": [[200, 100]], "radii": [80, 60]}]}]}');
  await page.waitForFunction(() => location.hash.includes('masks='));
  await page.keyboard.press('m');
  await page.focus('#maskPolygon');
  await page.keyboard.press('Enter');
  await page.waitForFunction(() => JSON.parse(new URLSearchParams(location.hash.slice(1)).get('masks')).shapes.length === 2);
  const [saved] = await Promise.all([page.waitForEvent('download'), page.click('#copyCommand')]);
  await page.waitForFunction(() => /copied/.test(document.getElementById('told').textContent));
  await saved.saveAs(join(files.folder, saved.suggestedFilename()));
  const line = await page.evaluate(() => navigator.clipboard.readText());
  assert.match(line, / --masks plate-masks\.json /);
  execFileSync(program, line.split(' ').slice(1), {cwd: files.folder});
  assert.deepEqual((await render(page)).pixels, readPng(join(files.folder, 'key.png')).pixels);

  // A background of another size covers the plate's frame, by an engine.
  copyFileSync(drawPlate('--size', '500x300').background, files.background);
  await page.click('#openPictures');
  await Promise.all([page.waitForEvent('load'), page.setInputFiles('#open input[type=file] >> nth=1', files.background)]);
  await page.waitForFunction(() => /was 500×300: it was brought to the plate's size/.test(document.getElementById('told').textContent));
  await page.waitForFunction(() => /clear [1-9]/.test(document.getElementById('counts').textContent));
  const over = line.replace(' --masks', ' --bg background.png --masks').replace('--output=unpremultiplied', '--output=composite');
  assert.notEqual(over, line);
  execFileSync(program, over.split(' ').slice(1), {cwd: files.folder});
  assert.deepEqual((await render(page)).pixels, readPng(join(files.folder, 'key.png')).pixels);
  assert.deepEqual(page.problems, []);
});

test('masks drawn while a preset is read stay', async () => {
  const files = drawPlate('--size', '160x90');
  const {address} = await host();
  const {page, close} = await browse(1280, 720);
  closers.push(close);
  // Holds back what engines answer.
  await page.addInitScript(() => {
    const {Worker} = window;
    window.Worker = class extends Worker {
      addEventListener(type, listen, more) {
        super.addEventListener(type, async (event) => { await window.held; listen(event); }, more);
      }
    };
  });
  await page.goto(address);
  await Promise.all([page.waitForEvent('load'), page.setInputFiles('#open input[type=file] >> nth=0', files.plate)]);
  await page.waitForFunction(() => document.getElementById('counts').textContent);
  await page.evaluate(() => {
    window.held = new Promise((done) => { window.free = done; });
    const data = new DataTransfer();
    data.items.add(new File(['{"orvanite": "preset", "version": 1, "parameters": {"screenRange": 0.3}}'], 'key.json'));
    dispatchEvent(new DragEvent('drop', {dataTransfer: data, cancelable: true}));
  });
  await page.keyboard.press('m');
  await page.focus('#maskPolygon');
  await page.keyboard.press('Enter');
  await page.waitForFunction(() => location.hash.includes('masks='));
  await page.evaluate(() => free());
  await page.waitForFunction(() => location.hash.includes('screenRange=0.3'));
  assert.ok(await page.evaluate(() => new URLSearchParams(location.hash.slice(1)).get('masks')));
  assert.deepEqual(page.problems, []);
});

test('an OpenEXR plate is keyed in linear light, and rendered as such a file', async () => {
  const files = drawPlate('--size', '160x90', '--depth', 'half');
  const {address} = await host();
  const {page, close} = await browse(1280, 720);
  closers.push(close);
  await page.goto(address);
  await Promise.all([page.waitForEvent('load'), page.setInputFiles('#open input[type=file] >> nth=0', files.plate)]);
  await page.waitForFunction(() => document.getElementById('info').textContent.includes('half, linear'));
  await page.click('#openPictures');
  await page.setInputFiles('#open input[type=file] >> nth=4', files.plate);
  await page.waitForFunction(() => /^plate\.exr: a clean plate goes beside/.test(document.querySelector('#open .wrong').textContent));
  await page.keyboard.press('Escape');
  await page.click('#auto');
  await page.waitForFunction(() => location.hash.includes('screen='));
  assert.match(await page.locator('#render small').textContent(), /^plate-key\.exr \(download\), matte in alpha$/);
  const [file] = await Promise.all([page.waitForEvent('download'), page.click('#render')]);
  assert.equal(file.suggestedFilename(), 'plate-key.exr');
  await page.click('#copyCommand');
  await page.waitForFunction(() => /copied/.test(document.getElementById('told').textContent));
  const line = await page.evaluate(() => navigator.clipboard.readText());
  execFileSync(program, line.split(' ').slice(1), {cwd: files.folder});
  execFileSync('oiiotool', [await file.path(), join(files.folder, 'key.exr'), '--fail', '0', '--failpercent', '0', '--diff'], {stdio: 'ignore'});
  assert.deepEqual(page.problems, []);
});
