// SPDX-License-Identifier: BSD-3-Clause
//
// Starts `orvanite view` and the browser for tests, and reads the PNG files that `orvanite key`
// writes. Where the programs are stands in the environment.
import {execFileSync, spawn} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync} from 'node:fs';
import {createRequire} from 'node:module';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {inflateSync} from 'node:zlib';

const wanted = (name) => {
  if (!process.env[name]) throw new Error(`expected ${name} in the environment`);
  return process.env[name];
};
export const program = wanted('ORVANITE_PROGRAM');

const made = [];
process.on('exit', () => made.forEach((one) => rmSync(one, {recursive: true, force: true})));

/** A folder that goes with the process. */
export function folder() {
  const to = mkdtempSync(join(tmpdir(), 'orvanite-view-test-'));
  made.push(to);
  return to;
}

/** Draws a plate and what belongs to it; returns their paths by name. */
export function drawPlate(...options) {
  const to = folder();
  execFileSync(wanted('ORVANITE_PLATE'), [...options, to]);
  const ending = options.includes('half') ? '.exr' : options.includes('16') ? '.tif' : '.png';
  return Object.fromEntries([['folder', to], ...['plate', 'background', 'holdout', 'garbage'].map((name) => [name, join(to, name + ending)])]);
}

/** Starts the server; resolves to its address and a stop that resolves to the exit code. */
export const serve = (...options) => start('view', ...options);

/** The same of a script that is watched. */
export const serveScript = (...options) => start('run', '--watch', ...options);

function start(...words) {
  const child = spawn(program, [...words, '--no-open'], {stdio: ['ignore', 'pipe', 'inherit']});
  const ended = new Promise((done) => child.on('exit', (code, signal) => done(code ?? signal)));
  return new Promise((ready, failed) => {
    let said = '';
    child.stdout.on('data', (bytes) => {
      said += bytes;
      const address = said.match(/http:\S+\/\n/);
      if (address) ready({
        address: address[0].trim(),
        stop: (signal = 'SIGTERM') => { child.kill(signal); return ended; },
      });
    });
    ended.then((code) => failed(new Error(`the server ended with ${code}`)));
  });
}

/** Fetches; once more where the server closed an idle connection in that very moment. */
export const reach = (...request) => fetch(...request).catch(() => fetch(...request));

/** Opens a page in Debian's Chromium with a profile of its own; its folder is on the browser's command line. */
export async function browse(width = 1280, height = 720) {
  const require = createRequire(join(wanted('ORVANITE_NODE_MODULES'), 'x'));
  const {chromium} = require('playwright-core');
  const profile = folder();
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    viewport: {width, height},
    acceptDownloads: true,
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  await context.grantPermissions(['clipboard-read', 'clipboard-write']);
  const page = await context.newPage();
  page.problems = [];
  page.on('pageerror', (error) => page.problems.push(error.message));
  page.on('console', (message) => { if (message.type() === 'error') page.problems.push(message.text()); });
  return {page, profile, close: () => context.close()};
}

/** Width, height and RGBA bytes of an 8-bit PNG file with or without alpha. */
export function readPng(path) {
  const file = readFileSync(path);
  const width = file.readUInt32BE(16);
  const height = file.readUInt32BE(20);
  if (file[24] !== 8 || ![2, 6].includes(file[25]) || file[28] !== 0) throw new Error(`${path}: expected 8-bit RGB or RGBA, not interlaced`);
  const channels = file[25] === 6 ? 4 : 3;
  const parts = [];
  for (let at = 8; at < file.length;) {
    const length = file.readUInt32BE(at);
    if (file.toString('latin1', at + 4, at + 8) === 'IDAT') parts.push(file.subarray(at + 8, at + 8 + length));
    at += length + 12;
  }
  const rows = inflateSync(Buffer.concat(parts));
  const stride = channels * width;
  const samples = new Uint8Array(stride * height);
  for (let y = 0; y < height; ++y) {
    const filter = rows[y * (stride + 1)];
    for (let i = 0; i < stride; ++i) {
      const left = i >= channels ? samples[y * stride + i - channels] : 0;
      const up = y > 0 ? samples[(y - 1) * stride + i] : 0;
      const corner = y > 0 && i >= channels ? samples[(y - 1) * stride + i - channels] : 0;
      let guess = 0;
      if (filter === 1) guess = left;
      else if (filter === 2) guess = up;
      else if (filter === 3) guess = (left + up) >> 1;
      else if (filter === 4) {
        const p = left + up - corner;
        const [a, b, c] = [Math.abs(p - left), Math.abs(p - up), Math.abs(p - corner)];
        guess = a <= b && a <= c ? left : b <= c ? up : corner;
      }
      samples[y * stride + i] = rows[y * (stride + 1) + 1 + i] + guess;
    }
  }
  if (channels === 4) return {width, height, pixels: samples};
  const pixels = new Uint8Array(4 * width * height).fill(255);
  for (let i = 0; i < samples.length; ++i) pixels[Math.floor(i / 3) * 4 + i % 3] = samples[i];
  return {width, height, pixels};
}
