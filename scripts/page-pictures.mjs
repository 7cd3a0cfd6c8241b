// SPDX-License-Identifier: BSD-3-Clause
//
// What scripts/page-pictures runs: keys a still and a shot of the plate generator by Auto, and takes a
// picture of each thing that docs/view.md shows; and of the page without a server, in the folder SITE,
// for docs/web.md, where there is one. DOCS says where they go.
import {existsSync, readFileSync} from 'node:fs';
import {createServer} from 'node:http';
import {extname, join} from 'node:path';
import {browse, drawPlate, serve} from '../tests/apps/view/program.mjs';

const still = drawPlate();
const {folder: shot} = drawPlate('--size', '960x540', '--frames', '1-12');
const {page, close} = await browse(1280, 720);
await page.addInitScript(() => {
  window.asked = 0;
  window.since = performance.now();
  const {fetch} = window;
  window.fetch = (...request) => {
    ++asked;
    return fetch(...request).finally(() => { --asked; since = performance.now(); });
  };
});

const rest = () => page.waitForFunction(() => asked === 0 && performance.now() - since > 1500, null, {timeout: 120000});
const save = (name) => page.screenshot({path: join(process.env.DOCS, `${name}.jpg`), type: 'jpeg', quality: 85});
const take = async (name) => {
  await page.evaluate(() => { document.getElementById('hint').hidden = true; document.activeElement.blur(); });
  await rest();
  await save(`view-${name}`);
};
const auto = async () => {
  await rest();
  await page.click('#auto');
  await page.waitForFunction(() => location.hash.includes('screen='), null, {timeout: 120000});
  await rest();
};
/** A place of the picture on the page, from its parts. */
const at = (u, v) => page.evaluate(([x, y, width, height]) => {
  const canvas = document.getElementById('picture');
  const {x: left, y: top, scale} = canvas.dataset;
  const box = canvas.getBoundingClientRect();
  return [box.left + Number(left) + x * width * scale, box.top + Number(top) + y * height * scale];
}, [u, v, 1920, 1080]);

const one = await serve(still.plate, '--bg', still.background);
await page.goto(one.address);
await auto();
await page.keyboard.press('2');
await page.mouse.move(...await at(0.13, 0.3));
await take('matte');

await page.keyboard.press('8');
await page.mouse.move(...await at(0.02, 0.38));
for (let i = 0; i < 9; ++i) await page.mouse.wheel(0, -120);
await take('zoom');

const masks = {orvanite: 'masks', version: 1, shapes: [
  {kind: 'polygon', use: 'garbage', outside: false, soft: 4, keys: [{frame: 1, points: [[1880, 40], [1912, 40], [1912, 1060], [1880, 1060]]}]},
  {kind: 'brush', use: 'garbage', outside: false, soft: 20, keys: [{frame: 1, points: [[60, 905], [190, 880], [330, 930]], radii: [40]}]},
  {kind: 'ellipse', use: 'holdOut', outside: false, soft: 8, keys: [{frame: 1, points: [[1590, 900]], radii: [62, 105], turn: 18}]},
]};
await page.keyboard.press('5');
await page.keyboard.press('f');
await page.evaluate((text) => { location.hash += `&masks=${encodeURIComponent(text)}`; }, JSON.stringify(masks));
await rest();
await page.click('#masks');
await page.selectOption('#maskList', '2');
await page.mouse.move(...await at(0.62, 0.7));
await take('masks');
await one.stop();

const many = await serve(join(shot, 'plate.####.png'), '--bg', join(shot, 'background.####.png'), '-o', join(shot, 'key.####.png'));
await page.goto(many.address);
await auto();
await page.keyboard.press('5');
await page.keyboard.press('w');
await take('wipe');
await many.stop();

const {SITE: site = ''} = process.env;
if (existsSync(join(site, 'index.html'))) {
  const kinds = {'.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.svg': 'image/svg+xml', '.wasm': 'application/wasm', '.webmanifest': 'application/manifest+json'};
  const server = createServer((request, response) => {
    const name = new URL(request.url, 'http://x').pathname.slice(1) || 'index.html';
    if (!existsSync(join(site, name))) { response.writeHead(404).end(); return; }
    response.writeHead(200, {'Content-Type': kinds[extname(name)] ?? 'application/octet-stream'}).end(readFileSync(join(site, name)));
  });
  await new Promise((ready) => server.listen(0, '127.0.0.1', ready));
  await page.goto(`http://127.0.0.1:${server.address().port}/`);
  await page.waitForSelector('#open[open]');
  // Here nothing is asked of a server: the picture's own event tells.
  const choose = async (role, file) => {
    await Promise.all([page.waitForEvent('load'), page.setInputFiles(`#open input[type=file] >> nth=${role}`, file)]);
    await page.evaluate(() => new Promise((shown) => addEventListener('orvanite-shown', shown, {once: true})));
  };
  await choose(0, still.plate);
  await page.click('#auto');
  await page.waitForFunction(() => /^Screen found/.test(document.getElementById('hint').textContent), null, {timeout: 120000});
  await page.click('#openPictures');
  await choose(1, still.background);
  await page.waitForTimeout(1500);
  await page.click('#openPictures');
  await save('web');
  server.closeAllConnections();
  server.close();
}
await close();
