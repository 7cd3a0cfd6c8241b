// SPDX-License-Identifier: BSD-3-Clause
//
// Measures how long a slider's move takes to reach the screen, with a plate and a window of
// 1920x1080: from the input event to the frame that shows the picture. Prints figures
// and asserts none: they depend on the machine and on what else it does.
import {browse, drawPlate, serve} from '../tests/apps/view/program.mjs';

const percentile = (values, part) => [...values].sort((a, b) => a - b)[Math.min(values.length - 1, Math.floor(values.length * part))];
const words = (values) => values.length === 0 ? 'none'
  : `median ${percentile(values, 0.5).toFixed(0)} ms, 95th percentile ${percentile(values, 0.95).toFixed(0)} ms, longest ${Math.max(...values).toFixed(0)} ms, of ${values.length}`;

/** Moves a slider, with `pause(step)` milliseconds from one step to the next; resolves to the latencies. */
async function measure(page, steps, pause) {
  await page.evaluate(() => {
    window.moved = new Map();
    window.moving = [];
    window.resting = [];
  });
  const box = await page.locator('#p-screenRange').boundingBox();
  const y = box.y + box.height / 2;
  await page.mouse.move(box.x + 8, y);
  await page.mouse.down();
  for (let i = 1; i <= steps; ++i) {
    // Up and down, so that every step changes the value.
    const part = 0.5 - 0.5 * Math.cos(2 * Math.PI * i / 37 + 0.01 * i);
    const start = Date.now();
    await page.mouse.move(box.x + 8 + (box.width - 16) * part, y);
    await new Promise((done) => setTimeout(done, Math.max(0, pause(i) - (Date.now() - start))));
  }
  await page.mouse.up();
  await new Promise((done) => setTimeout(done, 1500));
  return page.evaluate(() => ({moving, resting, sizes: window.sizes}));
}

async function report(depth, options = []) {
  const files = drawPlate('--size', '1920x1080', '--depth', depth);
  const server = await serve(files.plate, '--bg', files.background, '--screen', depth === 'half' ? '0.02,0.35,0.05' : '0.16,0.63,0.23', ...options);
  const {page, close} = await browse(1920, 1080);
  await page.addInitScript(() => {
    window.sizes = {};
    addEventListener('input', (event) => {
      if (event.target.id === 'p-screenRange') window.moved?.set(String(Number(Number(event.target.value).toFixed(4))), event.timeStamp);
    }, true);
    addEventListener('orvanite-shown', ({detail: {job}}) => {
      const start = window.moved?.get(job.settings.screenRange ?? '0');
      if (start === undefined) return;
      // A message posted while a frame is made arrives when that frame has been handed over.
      requestAnimationFrame(() => {
        const channel = new MessageChannel();
        channel.port1.onmessage = () => {
          (job.moving ? window.moving : window.resting).push(performance.now() - start);
          if (job.moving) window.sizes[job.divisor] = (window.sizes[job.divisor] ?? 0) + 1;
        };
        channel.port2.postMessage(0);
      });
    });
  });
  await page.goto(server.address);
  await page.waitForFunction(() => document.getElementById('counts').textContent.includes('%'));
  await measure(page, 40, () => 30);  // the page finds the size that suits the machine
  // Pauses from 110 to 330 ms: the next move comes before, amid and after the picture at full size.
  const single = (step) => 110 + 220 * (0.618 * step % 1);
  for (const [name, steps, pause] of [['single moves', 100, single], ['a drag, 60 moves a second', 240, () => 16]]) {
    const {moving, resting, sizes} = await measure(page, steps, pause);
    console.log(`${depth}, ${name}: moving ${words(moving)} (pixels averaged ${JSON.stringify(sizes)}); at rest, full size: ${words(resting)}`);
  }
  await close();
  await server.stop();
}

for (const depth of process.argv.length > 2 ? process.argv.slice(2) : ['8', '16', 'half']) await report(depth);
