// SPDX-License-Identifier: BSD-3-Clause
//
// Movies and numbered frames on the page without a server, in a real browser: any frame is the one that
// FFmpeg decodes, in the command's colours; what is rendered has the samples that `orvanite key` writes.
//   SITE=folder and what tests/apps/view/program.mjs asks for
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {mkdirSync, readFileSync, readdirSync, writeFileSync} from 'node:fs';
import {join, resolve} from 'node:path';
import {after, test} from 'node:test';
import {pathToFileURL} from 'node:url';
import {browse, folder as newFolder, program, readPng} from '../apps/view/program.mjs';
import {host} from './host.mjs';

const {encodePng} = await import(pathToFileURL(resolve(process.env.SITE, 'png.js')));
const [width, height, count] = [160, 96, 24];
const folder = newFolder();
const file = (name) => join(folder, name);
const ffmpeg = (...words) => execFileSync('ffmpeg', ['-v', 'error', '-y', ...words], {maxBuffer: 2 ** 26});

// Before a green screen with grain a block whose grey is that of its frame: 40 and 8 more each time.
const block = 'between(X,60,99)*between(Y,30,69)';
const drawn = `color=black:size=${width}x${height}:rate=24:duration=${count / 24},format=gbrp,geq=r='if(${block},40+8*N,38)':g='if(${block},40+8*N,158)':b='if(${block},40+8*N,50)',noise=alls=5:all_seed=2`;
ffmpeg('-f', 'lavfi', '-i', drawn, '-c:v', 'libvpx-vp9', '-pix_fmt', 'yuv420p', '-deadline', 'realtime', '-cpu-used', '8', '-crf', '10', '-g', '16', file('plate.webm'));
ffmpeg('-f', 'lavfi', '-i', drawn, '-c:v', 'libx264', '-pix_fmt', 'yuv420p', '-g', '16', '-bf', '3', '-crf', '10', '-colorspace', 'bt709', file('plate.mp4'));

const {address, stop} = await host();
const {page, close} = await browse(1280, 720);
after(async () => { await close(); await stop(); });
page.setDefaultTimeout(20000);
await page.addInitScript(() => {
  delete window.showSaveFilePicker;
  window.seen = [];
  addEventListener('orvanite-shown', (event) => seen.push({at: performance.now(), ...event.detail}));
});

const shown = () => page.waitForFunction(() => window.seen?.length > 0 && !seen.at(-1).job.moving && performance.now() - seen.at(-1).at > 300);
async function open(files, role = 0) {
  await Promise.all([page.waitForEvent('load'), page.setInputFiles(`#open input[type=file] >> nth=${role}`, files)]);
  await shown();
}
/** A frame of the plate as the page has it. */
const plateAt = async (frame) => new Uint8Array(await page.evaluate(async ([frame, width, height]) => {
  const {askPicture} = await import('./server.js');
  return [...(await askPicture({settings: {}, view: 'plate', frame, divisor: 1, window: [0, 0, width, height]})).pixels.data];
}, [frame, width, height]));
async function goTo(frame) {
  await page.fill('#frameNumber', String(frame));
  await page.press('#frameNumber', 'Enter');
  await page.waitForFunction((frame) => seen.at(-1).job.frame === frame, frame);
}
async function copied() {
  await page.click('#copyCommand');
  await page.waitForFunction(() => /copied/.test(document.getElementById('told').textContent));
  return page.evaluate(() => navigator.clipboard.readText());
}
function unzip(path) {
  const to = newFolder();
  execFileSync('python3', ['-m', 'zipfile', '-e', path, to]);
  return {to, names: readdirSync(to).sort()};
}
/** Frames 3 to 5 by the copied command, of whatever stands in `where`. */
function keyed(line, where) {
  const words = line.replaceAll("'", '').split(' ').slice(1);
  execFileSync(program, [...words, '--frames', '3-5'], {cwd: where, stdio: ['ignore', 'ignore', 'inherit']});
}
function same(found, expected) {
  for (const frame of ['0003', '0004', '0005']) {
    const [a, b] = [found, expected].map((where) => readPng(join(where, `key.${frame}.png`)));
    const wrong = a.pixels.findIndex((code, i) => code !== b.pixels[i]);
    assert.equal(wrong, -1, `frame ${frame}: sample ${wrong} is ${a.pixels[wrong]}, not ${b.pixels[wrong]}`);
    assert.ok(new Set(a.pixels).size > 20, 'a picture, not one colour');
  }
}

for (const name of ['plate.mp4', 'plate.webm']) {
  test(`${name}: any frame is the command's`, async () => {
    await page.goto(address);
    await open(file(name));
    assert.equal(await page.textContent('#title'), name);
    assert.equal(await page.getAttribute('#frame', 'max'), String(count - 1));
    await page.keyboard.press('1');
    const frames = newFolder();
    execFileSync(program, ['key', '--no-key', file(name), '-o', join(frames, 'plate.####.png')], {stdio: 'ignore'});
    for (const frame of [1, 20, 19, 7, count, 2]) {
      await goTo(frame);
      const found = await plateAt(frame);
      const expected = readPng(join(frames, `plate.${String(frame).padStart(4, '0')}.png`)).pixels;
      const most = found.reduce((far, code, i) => Math.max(far, Math.abs(code - expected[i])), 0);
      assert.ok(most <= 1, `frame ${frame}: ${most} apart`);
      // Its own grey tells which one it is: neighbours are 8 away.
      const grey = found[4 * (50 * width + 80)];
      assert.ok(Math.abs(grey - (32 + 8 * frame)) < 4, `frame ${frame}: ${grey}`);
    }
    await page.waitForFunction(() => document.getElementById('strip').getContext('2d').getImageData(20, 10, 1, 1).data[1] > 100);
    assert.deepEqual(page.problems, []);
  });
}

test('a range is rendered as a ZIP, with the samples that the command writes', async () => {
  const stills = newFolder();
  for (let frame = 1; frame <= count; ++frame) {
    const blob = await encodePng({width, height, depth: 1, pixels: await plateAt(frame)}, false);
    writeFileSync(join(stills, `plate.${String(frame).padStart(4, '0')}.png`), Buffer.from(await blob.arrayBuffer()));
  }
  await page.click('#auto');
  await page.waitForFunction(() => location.hash.includes('screen='));
  await shown();
  await goTo(5);
  await page.keyboard.press('Escape');
  await page.click('#markOut');
  await goTo(3);
  await page.click('#markIn');
  await page.selectOption('#range', 'marked');
  assert.match(await page.textContent('#render small'), /^frames 3 to 5: plate-key\.zip \(download\), matte in alpha$/);
  const [zip] = await Promise.all([page.waitForEvent('download'), page.click('#render')]);
  assert.equal(zip.suggestedFilename(), 'plate-key.zip');
  const {to, names} = unzip(await zip.path());
  assert.deepEqual(names, ['key.0003.png', 'key.0004.png', 'key.0005.png']);

  // The command names the movie; from the same samples, as stills, it makes the same key.
  const line = await copied();
  assert.match(line, /^orvanite key plate\.webm .*--screen=.* -o 'key\.####\.png'$/);
  keyed(line.replace('plate.webm', 'plate.####.png'), stills);
  same(to, stills);

  // One frame alone is its file.
  await page.selectOption('#range', 'one');
  assert.match(await page.textContent('#render small'), /^frame 3: plate-key\.0003\.png \(download\)/);
  const [alone] = await Promise.all([page.waitForEvent('download'), page.click('#render')]);
  assert.equal(alone.suggestedFilename(), 'plate-key.0003.png');
  assert.deepEqual(readFileSync(await alone.path()), readFileSync(join(to, 'key.0003.png')));
  await page.selectOption('#range', 'marked');

  // The same as a movie with alpha, which others decode: what is lost is the codec's.
  await page.selectOption('#form', '.webm');
  const [film] = await Promise.all([page.waitForEvent('download'), page.click('#render')]);
  assert.equal(film.suggestedFilename(), 'plate-key.webm');
  const path = await film.path();
  // Times are those of the plate, which counts in milliseconds: from 2/24, 3/24 and 4/24.
  const said = JSON.parse(execFileSync('ffprobe', ['-v', 'warning', '-show_packets', '-show_streams', '-of', 'json', path]));
  assert.deepEqual([said.streams[0].codec_name, said.streams[0].tags.alpha_mode, ...said.packets.map(({pts_time: time}) => Number(time))], ['vp9', '1', ...[83, 125, 167].map((time) => (time - 83) / 1000)]);
  const pixels = ffmpeg('-c:v', 'libvpx-vp9', '-i', path, '-fps_mode', 'passthrough', '-f', 'rawvideo', '-pix_fmt', 'rgba', '-');
  assert.equal(pixels.length, 3 * 4 * width * height);
  names.forEach((name, n) => {
    const still = readPng(join(to, name)).pixels;
    const sums = {alpha: 0, colour: 0, solid: 0};
    for (let i = 0; i < still.length; i += 4) {
      const at = i + n * still.length;
      sums.alpha += Math.abs(still[i + 3] - pixels[at + 3]);
      if (still[i + 3] < 255) continue;
      ++sums.solid;
      sums.colour += Math.abs(still[i + 1] - pixels[at + 1]);
    }
    assert.ok(sums.alpha / (width * height) < 1, `${name}: alpha is ${sums.alpha / (width * height)} apart`);
    assert.ok(sums.solid > 900 && sums.colour / sums.solid < 4, `${name}: colours are ${sums.colour / sums.solid} apart in ${sums.solid}`);
  });
  // The browser itself shows it with its alpha, where a page allows movies.
  await page.selectOption('#form', '.zip');
  const frame = await page.context().newPage();
  const clear = await frame.evaluate(async (text) => {
    const video = document.createElement('video');
    video.muted = true;
    video.src = URL.createObjectURL(new Blob([Uint8Array.from(atob(text), (one) => one.charCodeAt(0))], {type: 'video/webm'}));
    await new Promise((done, failed) => { video.onloadeddata = done; video.onerror = () => failed(video.error); });
    await new Promise((done) => { video.onseeked = done; video.currentTime = 0.05; });
    const context = new OffscreenCanvas(video.videoWidth, video.videoHeight).getContext('2d');
    context.drawImage(video, 0, 0);
    return [[8, 8], [80, 50]].map(([x, y]) => context.getImageData(x, y, 1, 1).data[3]);
  }, readFileSync(path).toString('base64'));
  await frame.close();
  assert.deepEqual(clear, [0, 255]);

  // Into a file that one chooses, where the browser has that; and stopped.
  await page.evaluate(() => {
    window.showSaveFilePicker = async ({suggestedName}) => (await navigator.storage.getDirectory()).getFileHandle(suggestedName, {create: true});
  });
  await page.click('#render');
  await page.waitForFunction(() => document.getElementById('told').textContent === 'Written: plate-key.zip');
  const bytes = await page.evaluate(async () => {
    const handle = await (await navigator.storage.getDirectory()).getFileHandle('plate-key.zip');
    return [...new Uint8Array(await (await handle.getFile()).arrayBuffer())];
  });
  assert.deepEqual(Buffer.from(bytes), readFileSync(await zip.path()));
  await page.selectOption('#range', 'all');
  // Onto a disk that hangs: the render is under way for as long as one looks.
  await page.evaluate(() => {
    let writes = 0;
    const write = () => (++writes > 12 ? new Promise(() => {}) : Promise.resolve());
    window.showSaveFilePicker = async ({suggestedName}) => ({name: suggestedName, createWritable: async () => ({write, close: async () => {}, abort: async () => {}})});
  });
  await page.click('#render');
  await page.waitForFunction(() => document.getElementById('progress').value > 0);
  await page.click('#cancel');
  await page.waitForFunction(() => document.getElementById('told').textContent === 'Cancelled: nothing was written.');

  // The same stills dropped together are a shot.
  await open(readdirSync(stills).filter((name) => name.startsWith('plate')).map((name) => join(stills, name)));
  assert.equal(await page.textContent('#title'), 'plate.####.png');
  await page.evaluate((hash) => { location.hash = hash; }, line.match(/--\S+/g).map((word) => word.slice(2)).map((word) => word.replace(/-(\w)/g, (_, letter) => letter.toUpperCase())).join('&') + '&in=3&out=5');
  await page.reload();
  await shown();
  await page.selectOption('#range', 'marked');
  const [again] = await Promise.all([page.waitForEvent('download'), page.click('#render')]);
  same(unzip(await again.path()).to, stills);
  assert.deepEqual(page.problems, []);
});

test('what cannot be read is said in a line', async () => {
  mkdirSync(file('bad'));
  ffmpeg('-f', 'lavfi', '-i', drawn, '-frames:v', '4', '-c:v', 'prores_ks', file('bad/prores.mov'));
  ffmpeg('-f', 'lavfi', '-i', drawn, '-frames:v', '4', '-c:v', 'libx265', '-x265-params', 'log-level=none', '-tag:v', 'hvc1', file('bad/hevc.mp4'));
  writeFileSync(file('bad/cut.mp4'), readFileSync(file('plate.mp4')).subarray(0, 900));
  await page.goto(address);
  for (const [name, what] of [['prores.mov', /^prores\.mov: a movie with the codec ap4h: orvanite reads it/], ['hevc.mp4', /^hevc\.mp4: this browser does not decode hvc1[\w.]*: orvanite does/], ['cut.mp4', /^cut\.mp4: the file ends before its movie/]]) {
    await page.setInputFiles('#open input[type=file] >> nth=0', file(`bad/${name}`));
    await page.waitForFunction((name) => document.querySelector('#open .wrong').textContent.startsWith(name), name);
    assert.match(await page.textContent('#open .wrong'), what);
  }
});
