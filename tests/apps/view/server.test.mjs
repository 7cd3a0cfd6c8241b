// SPDX-License-Identifier: BSD-3-Clause
//
// What the page's server refuses, and that it still answers its own page afterwards. Requests are
// written by hand, as a browser would not send most of them.
import assert from 'node:assert/strict';
import {execFileSync, spawnSync} from 'node:child_process';
import {existsSync, mkdirSync, readdirSync} from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {after, before, test} from 'node:test';
import {setTimeout as sleep} from 'node:timers/promises';
import {drawPlate, folder, program, reach, readPng, serve} from './program.mjs';

let server, port, token, origin;

before(async () => {
  const plate = drawPlate('--size', '96x54');
  server = await serve(plate.plate);
  const address = new URL(server.address);
  port = address.port;
  token = address.pathname.split('/')[1];
  origin = `http://127.0.0.1:${port}`;
});
after(() => server.stop());

/** Sends one request; resolves to its status and body. A header set to null is left out. */
function send({method = 'GET', path = `/${token}/state`, headers = {}, body} = {}) {
  const all = {Host: `127.0.0.1:${port}`, ...(method === 'POST' ? {Origin: origin, 'Content-Type': 'application/json'} : {}), ...headers};
  for (const name of Object.keys(all)) if (all[name] === null) delete all[name];
  return new Promise((done, failed) => {
    const request = http.request({host: '127.0.0.1', port, method, path, headers: all, setHost: false, agent: false}, (response) => {
      const parts = [];
      response.on('data', (part) => parts.push(part));
      response.on('end', () => done({status: response.statusCode, headers: response.headers, body: Buffer.concat(parts)}));
    });
    request.on('error', failed);
    request.end(body);
  });
}

const picture = (more = {}) => JSON.stringify({
  settings: {screen: '0.1,0.6,0.2'}, view: 'matte', frame: 1, divisor: 1, proxy: false,
  window: [0, 0, 96, 54], measured: true, slot: 0, page: 'test', number: 1, ...more,
});

test('the token, the host and the origin must all be the server\'s own', async () => {
  assert.equal((await send()).status, 200);
  assert.equal((await send({headers: {Host: `localhost:${port}`}})).status, 200);
  const refused = [
    {path: '/'}, {path: '/state'}, {path: `/${token}`}, {path: `/${'0'.repeat(32)}/state`},
    {path: `/${token.slice(0, 31)}/state`}, {path: `//${token}/state`}, {path: `/x/../${token}/state`},
    {headers: {Host: `example.org:${port}`}}, {headers: {Host: '127.0.0.1'}}, {headers: {Host: null}},
    {headers: {Host: `127.0.0.1:${port}.example.org`}},
    {headers: {Origin: 'http://example.org'}}, {headers: {Origin: 'null'}},
    {headers: {Origin: `https://127.0.0.1:${port}`}}, {headers: {Origin: `http://localhost:${port}`}},
    {headers: {'Sec-Fetch-Site': 'cross-site'}}, {headers: {'Sec-Fetch-Site': 'same-site'}},
    {method: 'POST', path: `/${token}/picture`, body: picture(), headers: {Origin: null}},
    {method: 'POST', path: `/${token}/picture`, body: picture(), headers: {'Content-Type': 'text/plain'}},
    {method: 'OPTIONS', path: `/${token}/picture`}, {method: 'PUT', path: `/${token}/picture`, body: picture()},
    {method: 'DELETE', path: `/${token}/state`},
  ];
  for (const request of refused) {
    const answer = await send(request);
    assert.equal(answer.status, request.headers && 'Host' in request.headers && request.headers.Host === null ? answer.status : 403, JSON.stringify(request));
    assert.ok(answer.status >= 400, JSON.stringify(request));
    assert.ok(answer.body.length < 200 && !answer.body.includes('plate'), 'a refusal tells nothing');
    assert.equal(answer.headers['access-control-allow-origin'], undefined);
  }
});

test('nothing but the page\'s own files is read', async () => {
  for (const path of ['../../../etc/passwd', '..%2f..%2f..%2fetc%2fpasswd', '/etc/passwd', 'plate.png', 'result',
    'main.js/..', '%00', 'index.html%00.png', 'state/']) {
    const answer = await send({path: `/${token}/${path}`});
    assert.ok([403, 404].includes(answer.status), `${path}: ${answer.status}`);
  }
  const page = await send({path: `/${token}/`});
  assert.equal(page.status, 200);
  assert.match(page.headers['content-security-policy'], /default-src 'none'/);
  assert.equal(page.headers['referrer-policy'], 'no-referrer');
});

test('requests that are too large, broken or senseless are refused in words', async () => {
  const post = (body, headers) => send({method: 'POST', path: `/${token}/picture`, body, headers});
  assert.equal((await post('x'.repeat(100 * 1024))).status, 413);
  assert.equal((await post(picture(), {'Content-Encoding': 'gzip'})).status, 411);
  assert.equal((await post(picture(), {'Transfer-Encoding': 'chunked'})).status, 411);
  const senseless = [
    '', '{', '[]', '['.repeat(60000), picture({view: 'other'}), picture({view: 7}), picture({frame: 2}), picture({frame: 1.5}),
    picture({frame: 1e300}), picture({divisor: 0}), picture({divisor: 17}), picture({slot: 2}), picture({slot: -1}),
    picture({window: [0, 0, 0, 5]}), picture({window: [96, 0, 5, 5]}), picture({window: [1, 0, 5, 5], divisor: 2}),
    picture({window: [-1, 0, 5, 5]}), picture({window: [0, 0, 4294967296, 5]}), picture({window: 'all'}),
    picture({settings: {screen: '0.3,0.3,0.3'}}), picture({settings: {screne: '1'}}), picture({settings: {screenRange: '9'}}),
    picture({settings: {screenRange: 'nan'}}), picture({settings: {screen: 'x'.repeat(1000)}}), picture({number: -1}), picture({number: '1'}),
  ];
  for (const body of senseless) {
    const answer = await post(body);
    assert.equal(answer.status, 400, body.slice(0, 200));
    assert.ok(JSON.parse(answer.body).error.message.length > 5, body.slice(0, 200));
  }
  // A window that reaches beyond the plate is cut to it.
  assert.equal((await post(picture({window: [90, 50, 2147483647, 2147483647]}))).status, 200);
  assert.equal((await send({method: 'POST', path: `/${token}/other`, body: '{}'})).status, 404);
});

test('a small picture of a frame comes after those that are keyed', async () => {
  const post = (path, body) => send({method: 'POST', path: `/${token}/${path}`, body: JSON.stringify(body)});
  const small = await post('thumbnail', {frame: 1});
  assert.equal(small.status, 200);
  const length = small.body.readUInt32LE(0);
  assert.deepEqual(JSON.parse(small.body.subarray(4, 4 + length)), {width: 96, height: 54});
  assert.equal(small.body.length, 4 + length + 4 * 96 * 54);
  for (const body of [{frame: 2}, {frame: 'one'}, {}]) assert.equal((await post('thumbnail', body)).status, 400, JSON.stringify(body));
  // Searches, one after the other, keep the server busy; until they are over one asks beside them.
  let busy = true;
  const searches = Promise.all(Array.from({length: 6}, () => post('auto', {frame: 1, settings: {colourspace: 'video'}}))).finally(() => { busy = false; });
  const beside = new Set();
  while (busy && !beside.has(503)) beside.add((await post('thumbnail', {frame: 1})).status);
  assert.ok(beside.has(503), [...beside].join());
  for (const {status} of await searches) assert.equal(status, 200);
  assert.equal((await post('thumbnail', {frame: 1})).status, 200);
});

test('what a page hands over stays in a folder of its own, under a plain name', async () => {
  const post = (path, body) => send({method: 'POST', path: `/${token}/${path}`, body: JSON.stringify(body)});
  const piece = {set: 1, name: 'x.png', at: 0, bytes: 'AAECAw=='};
  for (const wrong of [{name: '../x.png'}, {name: '/etc/x'}, {name: '.x'}, {name: ''}, {name: 'a\nb'}, {name: 'x'.repeat(201)},
    {set: -1}, {set: 1000000}, {at: 3}, {at: -1}, {bytes: 'not base64'}, {bytes: 7}]) {
    assert.equal((await post('give', {...piece, ...wrong})).status, 400, JSON.stringify(wrong));
  }
  assert.equal((await post('give', piece)).status, 200);
  assert.equal((await post('give', {...piece, at: 4})).status, 200, 'it has four bytes now');
  assert.equal((await post('give', {...piece, at: 4})).status, 400, 'and eight then');
  for (const [wrong, status] of [[{role: 'other'}, 400], [{role: 'plate', name: '../x.png'}, 400], [{role: 'plate', name: ''}, 400], [{role: 'plate', name: 'none.png'}, 500], [{role: 'plate'}, 500]]) {
    const {status: got, body} = await post('open', {set: 1, name: 'x.png', ...wrong});
    assert.ok(got >= 400 && (got === status || got < 500), `${JSON.stringify(wrong)}: ${got}`);
    assert.doesNotMatch(body.toString(), /orvanite-view-/, 'the folder is not told');
  }
  assert.equal(JSON.parse((await send()).body).files.plate, 'plate.png', 'what was open stays');
});

test('a head without an end is cut off, whether it comes fast or slowly', async () => {
  const most = 64 * 1024 * 1024;
  const flood = (first, more) => new Promise((done) => {
    let sent = 0;
    const socket = net.connect(port, '127.0.0.1').on('error', () => {}).on('close', () => done(sent)).resume();
    const on = () => {
      if (socket.destroyed) return;
      if (sent >= most) { socket.destroy(); return; }
      sent += more.length;
      if (socket.write(more)) setImmediate(on); else socket.once('drain', on);
    };
    socket.write(first);
    on();
  });
  const trickle = new Promise((done) => {
    const start = Date.now();
    const socket = net.connect(port, '127.0.0.1').on('error', () => {}).resume();
    const timer = setInterval(() => { if (Date.now() - start > 20000) socket.destroy(); else socket.write('x'); }, 300);
    socket.on('close', () => { clearInterval(timer); done(Date.now() - start); });
  });
  // 80 KiB are read; the rest is what sockets hold on their way.
  for (const [first, more] of [['GET /', 'x'.repeat(65536)], ['GET / HTTP/1.1\r\nHost: ', 'x'.repeat(65536)],
    ['GET / HTTP/1.1\r\n', 'X-a: y\r\n'.repeat(8192)]]) {
    const sent = await flood(first, more);
    assert.ok(sent < most / 4, `${first}: ${sent} bytes were taken`);
  }
  assert.ok(await trickle < 10000, 'five seconds for a request');
  assert.equal((await send()).status, 200);
});

test('a request is dropped when a newer one of its page came', async () => {
  const post = (number, page = 'order') => send({method: 'POST', path: `/${token}/picture`, body: picture({number, page})});
  assert.equal((await post(5)).status, 200);
  assert.equal((await post(4)).status, 409);
  assert.equal((await post(4, 'elsewhere')).status, 200);
  assert.equal((await post(6)).status, 200);
});

test('a thousand requests at once are answered or turned away, and the page goes on', async () => {
  const start = Date.now();
  const answers = await Promise.all(Array.from({length: 1000}, (unused, i) => i % 4 === 0
    ? send({path: '/guess/state'})
    : send({method: 'POST', path: `/${token}/picture`, body: picture({page: `p${i % 7}`, number: i})})));
  const count = new Map();
  for (const {status} of answers) count.set(status, (count.get(status) ?? 0) + 1);
  assert.equal(count.get(403), 250);
  for (const status of count.keys()) assert.ok([200, 403, 409, 429, 503].includes(status), `unexpected ${status}`);
  assert.ok(count.get(200) > 0);
  // 400 at once and 200 a second, whatever came before.
  const admitted = 750 - (count.get(429) ?? 0);
  assert.ok(admitted <= 400 + 200 * (Date.now() - start) / 1000 + 1, `${admitted} were admitted`);
  await new Promise((done) => setTimeout(done, 500));
  assert.equal((await send()).status, 200);
});

test('callers that send nothing do not keep the page from its answers for long', async () => {
  const idle = Array.from({length: 12}, () => net.connect(port, '127.0.0.1').on('error', () => {}));
  await new Promise((done) => setTimeout(done, 200));
  const start = Date.now();
  assert.equal((await send()).status, 200);
  assert.ok(Date.now() - start < 3000, 'less than the five seconds that a silent caller is borne');
  for (const socket of idle) socket.destroy();
});

/** Sends bytes, whole or one at a time; resolves to all that comes until the server hangs up, and how long that took. */
function raw(text, {every} = {}) {
  return new Promise((done) => {
    const start = Date.now();
    let came = '', timer;
    const socket = net.connect(port, '127.0.0.1').setEncoding('latin1').on('error', () => {})
      .on('data', (part) => { came += part; })
      .on('close', () => { clearInterval(timer); done({came, took: Date.now() - start}); });
    if (!every) { socket.write(text); return; }
    let sent = 0;
    timer = setInterval(() => { if (sent < text.length) socket.write(text[sent++]); }, every);
  });
}

test('a refusal ends the connection: a body is never read as the next request', async () => {
  const host = `Host: 127.0.0.1:${port}\r\n`;
  const inside = `GET /${token}/state HTTP/1.1\r\n${host}\r\n`;
  const post = (path, headers) => `POST ${path} HTTP/1.1\r\n${host}${headers}Content-Length: ${inside.length}\r\n\r\n${inside}`;
  const own = `Origin: ${origin}\r\nContent-Type: application/json\r\n`;
  for (const [what, text, status] of [
    ['no token', post('/guess/picture', own), 403],
    ['another origin', post(`/${token}/picture`, 'Origin: http://example.org\r\nContent-Type: application/json\r\n'), 403],
    ['a form', post(`/${token}/picture`, `Origin: ${origin}\r\nContent-Type: text/plain\r\n`), 403],
    ['compressed', post(`/${token}/picture`, `${own}Content-Encoding: gzip\r\n`), 411],
    ['a GET with a body', `GET /${token}/state HTTP/1.1\r\n${host}Content-Length: ${inside.length}\r\n\r\n${inside}`, 411],
    ['two lengths', post(`/${token}/picture`, `${own}Content-Length: 2\r\n`), 411],
    ['a length with a sign', post(`/${token}/picture`, own).replace('Length: ', 'Length: +'), 411],
    ['no length', `POST /${token}/picture HTTP/1.1\r\n${host}${own}\r\n${inside}`, 411],
    ['too long', post(`/${token}/picture`, own).replace(/Length: \d+/, 'Length: 70000').padEnd(70500, ' ') + inside, 413],
    ['no request', `nonsense\r\n\r\n${inside}`, 403],
    ['an upgrade', inside.replace('\r\n\r\n', '\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n') + inside, 400],
  ]) {
    const {came, took} = await raw(text);
    assert.equal(came.match(/HTTP\/1\.1 (\d+)/)?.[1], String(status), `${what}: ${came.slice(0, 200)}`);
    assert.equal(came.split('HTTP/1.1 ').length, 2, `${what}: more than one answer`);
    assert.ok(took < 4500, `${what}: hung up after ${took} ms`);
  }
  // What is not refused may follow on one connection.
  const {came} = await raw(inside + inside + inside.replace('HTTP/1.1\r\n', 'HTTP/1.1\r\nConnection: close\r\n'));
  assert.equal(came.split('HTTP/1.1 200').length, 4);
});

test('slow callers without the token never keep the page waiting, and have five seconds in all', async () => {
  const slow = Array.from({length: 100}, (unused, i) => raw(i % 2 ? 'GET /a' : `POST /${'0'.repeat(40)}`, {every: 400}));
  await sleep(500);
  for (let i = 0; i < 4; ++i) {
    const start = Date.now();
    assert.equal((await send()).status, 200);
    assert.ok(Date.now() - start < 3000, 'less than the patience with a slow caller');
    await sleep(500);
  }
  for (const {took} of await Promise.all(slow)) assert.ok(took < 8000, `${took} ms`);
});

test('renders never go over what is keyed', () => {
  const {folder: shot} = drawPlate('--size', '64x36', '--frames', '1-2');
  mkdirSync(join(shot, 'x'));
  const plates = join(shot, 'plate.####.png');
  for (const [plate, output] of [[plates, plates], [plates, join(shot, 'plate.%04d.png')], [plates, `${shot}/x/../background.@@@@.png`],
    [plates, join(shot, 'key.png')], [join(shot, 'plate.0001.png'), `${shot}/x/../plate.0001.png`]]) {
    const {status, stderr} = spawnSync(program, ['view', plate, '--bg', join(shot, 'background.####.png'), '--no-open', '-o', output], {encoding: 'utf8', timeout: 5000});
    assert.equal(status, 2, `${output}: ${stderr}`);
  }
});

test('a render onto a full disk is told with its frame and leaves whole files only', {skip: process.getuid() !== 0}, async () => {
  const {folder: shot} = drawPlate('--size', '96x54', '--frames', '1-4');
  const disk = join(shot, 'disk');
  mkdirSync(disk);
  execFileSync('mount', ['-t', 'tmpfs', '-o', 'size=28k', 'tmpfs', disk]);  // a frame takes some 12 KiB
  const other = await serve(join(shot, 'plate.####.png'), '-o', join(disk, 'k.####.png'));
  try {
    const address = new URL(other.address);
    const headers = {Origin: address.origin, 'Content-Type': 'application/json'};
    const body = JSON.stringify({settings: {screen: '0.1,0.6,0.2'}});
    assert.equal((await fetch(`${other.address}job`, {method: 'POST', headers, body})).status, 200);
    let report;
    do {
      await sleep(50);
      report = await (await reach(`${other.address}job`)).json();
    } while (report.state === 'running');
    assert.equal(report.state, 'failed', JSON.stringify(report));
    assert.match(report.message, /^frame \d: .*: cannot be written: No space left on device$/);
    const left = readdirSync(disk);
    assert.ok(left.length >= 1 && left.every((name) => /^k\.000\d\.png$/.test(name)), left.join());
    for (const name of left) assert.equal(readPng(join(disk, name)).height, 54);
  } finally {
    await other.stop();
    execFileSync('umount', ['-l', disk]);
  }
});

test('a render that is killed at any moment leaves whole files only, and the next one makes all', async () => {
  const {folder: shot} = drawPlate('--size', '160x90', '--frames', '1-12');
  /** A render of the shot as the page asks for it. */
  const begin = async (output) => {
    const other = await serve(join(shot, 'plate.####.png'), '-o', output);
    const {origin: from} = new URL(other.address);
    const headers = {Origin: from, 'Content-Type': 'application/json'};
    const body = JSON.stringify({settings: {screen: '0.1,0.6,0.2'}});
    assert.equal((await fetch(`${other.address}job`, {method: 'POST', headers, body})).status, 200);
    return other;
  };
  let round = 0;
  for (const [name, signals] of [['k.####.png', ['SIGKILL', 'SIGTERM', 'SIGINT']], ['k.mov', ['SIGKILL', 'SIGTERM']]]) {
    for (const signal of process.env.ORVANITE_FEW_KILLS ? signals.slice(0, 1) : signals) {
      const to = folder();
      const killed = await begin(join(to, name));
      const some = ++round % 3 * 3;  // of the files, or none yet
      for (let left = 2000; left > 0 && readdirSync(to).length < (name === 'k.mov' ? 1 : some); --left) await sleep(2);
      const code = await killed.stop(signal);
      assert.equal(code, signal === 'SIGKILL' ? 'SIGKILL' : 0);
      const left = readdirSync(to);
      const done = left.filter((one) => !one.startsWith('.'));
      if (name === 'k.mov') assert.deepEqual(done, [], 'a movie that was not finished');
      for (const one of done) assert.equal(readPng(join(to, one)).height, 90);
      if (signal !== 'SIGKILL') assert.deepEqual(left, done, 'what is not whole goes with the signal');
      // The command that wrote ends by itself, a moment after the page's server was killed.
      for (const [, id] of left.join('\n').matchAll(/^\..*\.(\d+)-\d+\.part/gm)) {
        for (let more = 2000; more > 0 && existsSync(`/proc/${id}`); --more) await sleep(5);
      }
      const again = await begin(join(to, name));
      let report;
      do {
        await sleep(50);
        report = await (await reach(`${again.address}job`)).json();
      } while (report.state === 'running');
      assert.equal(report.state, 'done', JSON.stringify(report));
      assert.equal(await again.stop(), 0);
      assert.equal(readdirSync(to).length, name === 'k.mov' ? 1 : 12, 'nothing is left of what was killed');
    }
  }
});

test('a signal ends the server with nothing left behind', async () => {
  process.env.TMPDIR = folder();  // where nobody else's servers are
  const plate = drawPlate('--size', '64x36');
  const own = () => readdirSync(tmpdir()).filter((name) => /^orvanite-view-\w{6}$/.test(name));
  const before = own();
  for (const signal of ['SIGTERM', 'SIGINT']) {
    const other = await serve(plate.plate);
    assert.equal(own().length, before.length + 1);
    const start = Date.now();
    assert.equal(await other.stop(signal), 0);
    assert.ok(Date.now() - start < 10000);
    assert.deepEqual(own(), before);
  }
  const killed = await serve(plate.plate);
  await killed.stop('SIGKILL');
  for (let left = 600; left > 0 && own().length > before.length; --left) await sleep(50);
  assert.deepEqual(own(), before, 'whatever ends it');
});

test('a plate has one first key: of the page, of info and of the command, to the byte', async () => {
  const {plate} = drawPlate('--size', '160x90', '--hard');
  const own = await serve(plate);
  try {
    const address = new URL(own.address);
    const path = `${address.pathname}auto`;
    const found = await new Promise((done, failed) => {
      const request = http.request({host: '127.0.0.1', port: address.port, method: 'POST', path,
        headers: {Host: address.host, Origin: address.origin, 'Content-Type': 'application/json'}, setHost: false}, (response) => {
        let body = '';
        response.on('data', (part) => { body += part; });
        response.on('end', () => done(JSON.parse(body)));
      });
      request.on('error', failed);
      request.end(JSON.stringify({settings: {colourspace: 'video'}, frame: 1}));
    });
    const words = JSON.parse(execFileSync(program, ['info', '--json', plate])).recommended;
    assert.ok(words.length > 10 && words.length % 2 === 0, `options and values: ${words}`);
    for (let i = 0; i < words.length; i += 2) {
      const name = words[i].slice(2).replace(/-([a-z])/g, (all, letter) => letter.toUpperCase());
      assert.equal(found.settings[name], words[i + 1], name);
    }
    const to = (name) => join(tmpdir(), `orvanite-first-key-${process.pid}-${name}.png`);
    execFileSync(program, ['key', '-q', plate, '--auto', '-o', to('auto')]);
    execFileSync(program, ['key', '-q', plate, ...words, '-o', to('words')]);
    assert.deepEqual(readPng(to('words')).pixels, readPng(to('auto')).pixels);
  } finally {
    own.stop();
  }
});
