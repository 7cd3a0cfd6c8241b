// SPDX-License-Identifier: BSD-3-Clause
//
// Measures what processor time the page and its server take while nobody touches them: a plate of
// 1920x1080, a key found, 20 seconds of rest. Prints figures and asserts none.
import {execFileSync} from 'node:child_process';
import {readFileSync, readdirSync} from 'node:fs';
import {browse, drawPlate, serve} from '../tests/apps/view/program.mjs';

const seconds = 20;
const ticksPerSecond = Number(execFileSync('getconf', ['CLK_TCK']));

/** Processor time of the processes whose command line holds a text, by kind, in seconds. */
function used(text) {
  const times = {};
  for (const pid of readdirSync('/proc').filter((name) => /^\d+$/.test(name))) {
    try {
      const line = readFileSync(`/proc/${pid}/cmdline`, 'utf8');
      if (!line.includes(text)) continue;
      const kind = line.match(/--type=([\w-]+)/)?.[1] ?? (line.includes('view') && !line.includes('chromium') ? 'server' : 'browser');
      const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').replace(/^.*\) /, '').split(' ');
      times[kind] = (times[kind] ?? 0) + (Number(fields[11]) + Number(fields[12])) / ticksPerSecond;
    } catch { /* it has ended meanwhile */ }
  }
  return times;
}

const files = drawPlate('--size', '1920x1080');
const server = await serve(files.plate, '--bg', files.background);
const {page, profile, close} = await browse(1920, 1080);
await page.goto(server.address);
await page.click('#auto');
await page.waitForFunction(() => location.hash.includes('screen='));
await page.mouse.move(600, 400);
await page.waitForTimeout(5000);
const all = () => ({...used(files.plate), ...used(profile)});
const before = all();
await page.waitForTimeout(1000 * seconds);
for (const [kind, time] of Object.entries(all())) {
  console.log(`${kind}: ${(1000 * (time - (before[kind] ?? 0)) / seconds).toFixed(1)} ms of processor time a second`);
}
await close();
await server.stop();
