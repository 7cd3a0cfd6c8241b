// SPDX-License-Identifier: BSD-3-Clause
//
// The page of `orvanite view` opened for tests: what it shows, what it copies, and the same keyed by
// the command.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {renameSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';
import {after} from 'node:test';
import {browse, folder, program, readPng, serve} from './program.mjs';

const closers = [];

/** Closes with what the file's tests have opened, the last first. */
export const closeLater = (close) => closers.push(close);
after(async () => { for (const close of closers.reverse()) await close(); });

/** Starts the server with these options and opens its page; both close when the file's tests are over. */
export async function open(options, {width = 1280, height = 720, hash = ''} = {}) {
  const server = await serve(...options);
  closers.push(() => server.stop());
  const {page, close} = await browse(width, height);
  closers.push(close);
  await page.addInitScript(() => {
    window.seen = [];
    addEventListener('orvanite-shown', (event) => seen.push({at: performance.now(), ...event.detail}));
    window.asked = 0;  // requests that have no answer yet
    window.askedAt = performance.now();  // when that changed last
    const count = (by) => { asked += by; askedAt = performance.now(); };
    const {fetch} = window;
    window.fetch = (...request) => {
      count(1);
      return fetch(...request).finally(() => count(-1));
    };
  });
  await page.goto(server.address + hash);
  await settled(page);
  return {page, server};
}

/** Waits until the page shows the whole answer to the last change, and nothing more comes. */
export async function settled(page) {
  await page.waitForTimeout(300);  // for the change to reach the server at all
  // An answer may lead to the next question: one looks at its body first.
  await page.waitForFunction(() => asked === 0 && seen.length > 0 && !seen.at(-1).job.moving && performance.now() - Math.max(askedAt, seen.at(-1).at) > 400);
}

/** The picture as the canvas holds it at 100 %: RGBA bytes. */
export async function shownPixels(page) {
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

/** Compares colours: the canvas is opaque, the file's alpha holds the matte. They differ by `most` codes at most. */
export function compareColours(shown, file, what, most = 0) {
  assert.deepEqual([shown.width, shown.height], [file.width, file.height], what);
  let wrong = 0;
  for (let i = 0; i < file.pixels.length; ++i) {
    if (i % 4 !== 3 && Math.abs(shown.pixels[i] - file.pixels[i]) > most) ++wrong;
  }
  assert.equal(wrong, 0, `${what}: ${wrong} of ${file.pixels.length} samples differ`);
}

export const shellRun = (line) => execFileSync('sh', ['-c', line], {stdio: ['ignore', 'ignore', 'inherit']});

export async function copiedCommand(page) {
  await page.click('#copyCommand');
  await page.waitForFunction(() => document.getElementById('told').textContent === 'Command copied.');
  const line = await page.evaluate(() => navigator.clipboard.readText());
  assert.match(line, /^orvanite key /);
  return line;
}

/** Keys with the command that the page hands out, into an 8-bit PNG file; light, into codes of sRGB. */
export async function keyed(page, output) {
  const line = await copiedCommand(page);
  const to = join(folder(), 'key.png');
  const deep = /\.(tif|exr)\b|--input-space/.test(line) ? join(folder(), 'key.tif') : to;
  const given = output ? line.replace(/ --output=\S+/, '').replace(/ -o /, ` --output ${output} -o `) : line;
  shellRun(given.replace(/^orvanite/, program).replace(/ -o .*$/, ` -q -o ${deep}`));
  const light = /\.exr\b/.test(line) && output !== 'matte' && output !== 'status';
  if (deep !== to) shellRun(`oiiotool -iconfig oiio:UnassociatedAlpha 1 ${deep} ${light ? '--colorconvert linear sRGB ' : ''}--origin +0+0 --fullpixels -d uint8 -o ${to}`);
  return readPng(to);
}

/** Runs the command and the script that the page hands out, and compares the files of both. */
export async function compareScript(page) {
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

/** As the page's address holds it: the driver learns of a new one a moment later. */
export const setting = (page, name) => page.evaluate((one) => new URLSearchParams(location.hash.slice(1)).get(one), name);
export const value = (page, id) => page.locator(`#${id}`).inputValue();

/** Clicks the pixel of the plate at these parts of its width and height. */
export async function clickPlate(page, x, y) {
  const at = await page.evaluate(([u, v]) => {
    const canvas = document.getElementById('picture');
    const box = canvas.getBoundingClientRect();
    const {x: left, y: top, scale} = canvas.dataset;
    const {window: [, , w, h]} = seen.at(-1).job;
    return [box.left + Number(left) + u * w * Number(scale), box.top + Number(top) + v * h * Number(scale)];
  }, [x, y]);
  await page.mouse.click(...at);
}

export async function dragSlider(page, id, to) {
  const box = await page.locator(`#${id}`).boundingBox();
  await page.mouse.move(box.x + 8, box.y + box.height / 2);
  await page.mouse.down();
  for (let i = 1; i <= 10; ++i) {
    await page.mouse.move(box.x + 8 + (to * (box.width - 16)) * i / 10, box.y + box.height / 2);
  }
  await page.mouse.up();
  await settled(page);
}
