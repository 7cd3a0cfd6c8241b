// SPDX-License-Identifier: BSD-3-Clause
//
// Measures by the clock what a picture takes on the page without a server: a composite of 1920x1080
// over a background, its matte counted, by two engines, each time with another key; and how soon after
// opening the first one stands on screen. Prints figures and asserts none: they depend on the machine
// and on what else it does.
//   scripts/web --time
import {loadavg} from 'node:os';
import {browse, drawPlate} from '../tests/apps/view/program.mjs';
import {host} from '../tests/web/host.mjs';

const rounds = 60;
const openings = 5;
const engines = 2;

/** In the page: the milliseconds of each round until its pixels are there, and until a canvas has them. */
async function measure({rounds, colourspace}) {
  const {askPicture} = await import('/key/server.js');
  const context = Object.assign(document.createElement('canvas'), {width: 1920, height: 1080}).getContext('2d');
  const times = [];
  for (let i = 0; i < rounds; ++i) {
    await new Promise((done) => setTimeout(done, 20));
    const settings = {colourspace, screen: {linear: '0.0231,0.3674,0.0414', log: '0.38,0.67,0.44', video: '0.16,0.63,0.23'}[colourspace], screenRange: String(0.1 + i / 1000), output: 'composite'};
    const start = performance.now();
    const picture = await askPicture({settings, view: 'composite', divisor: 1, proxy: false, window: [0, 0, 1920, 1080], measured: true});
    const there = performance.now();
    picture.bands.reduce((y, band) => { context.putImageData(band, 0, y); return y + band.height; }, 0);
    times.push([there - start, performance.now() - start]);
    picture.release();
  }
  return times;
}

/** The best, and the middle, of one of each pair. */
function words(times, which) {
  const sorted = times.map((pair) => pair[which]).sort((a, b) => a - b);
  return `${sorted[0].toFixed(1)} (${sorted[sorted.length >> 1].toFixed(1)})`;
}

const files = drawPlate('--size', '1920x1080');
const busy = () => loadavg()[0].toFixed(2);
console.log(`1920x1080, 8 bits, ${engines} engines: milliseconds by the clock, the best of ${rounds} (the middle); load ${busy()} before`);
for (const alone of [true, false]) {
  const {address, stop} = await host({alone});
  const {page, close} = await browse(1280, 720);
  // Its files would come with the headers from the second visit on.
  await page.addInitScript(() => {
    delete Navigator.prototype.serviceWorker;
    addEventListener('orvanite-shown', () => { window.first ??= performance.now(); });
  });
  const session = await page.context().newCDPSession(page);
  await session.send('Emulation.setHardwareConcurrencyOverride', {hardwareConcurrency: engines});
  for (const [role, file] of [files.plate, files.background].entries()) {
    await page.goto(address);
    await page.waitForFunction(() => !document.body.inert);
    await Promise.all([page.waitForEvent('load'), page.setInputFiles(`#open input[type=file] >> nth=${role}`, file)]);
    await page.waitForFunction(() => document.getElementById('info').textContent.includes('8-bit'));
  }
  const shares = await page.evaluate(() => crossOriginIsolated);
  for (const colourspace of ['linear', 'log', 'video']) {
    const times = await page.evaluate(measure, {rounds, colourspace});
    console.log(`${shares ? 'shared memory' : 'copies'}, ${colourspace}: pixels there ${words(times, 0)}, on a canvas ${words(times, 1)}`);
  }
  const opened = [];
  for (let i = 0; i < openings; ++i) {
    await page.reload();
    opened.push(await (await page.waitForFunction(() => window.first)).jsonValue());
  }
  console.log(`${shares ? 'shared memory' : 'copies'}: the first picture ${words(opened.map((time) => [time]), 0)} after opening`);
  await close();
  await stop();
}
console.log(`load ${busy()} after`);
process.exit();
