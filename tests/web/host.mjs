// SPDX-License-Identifier: BSD-3-Clause
//
// A server of the page's static files for tests and measurements, in a folder below its root. It
// tells types, and where `alone` says so what lets engines share memory; nothing else.
import {readFileSync} from 'node:fs';
import {createServer} from 'node:http';
import {extname, join, resolve} from 'node:path';

const site = resolve(process.env.SITE);
const kinds = {'.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.svg': 'image/svg+xml', '.wasm': 'application/wasm', '.webmanifest': 'application/manifest+json'};
const isolation = {'Cross-Origin-Opener-Policy': 'same-origin', 'Cross-Origin-Embedder-Policy': 'require-corp'};

/** Resolves to its address, the names that were asked for, those that there are not, and stop(). */
export async function host({alone = false} = {}) {
  const asked = [];
  const missing = [];
  const server = createServer((request, response) => {
    const name = new URL(request.url, 'http://x').pathname.replace(/^\/key\//, '') || 'index.html';
    asked.push(name);
    try {
      const bytes = readFileSync(join(site, name));
      response.writeHead(200, {'Content-Type': kinds[extname(name)] ?? 'application/octet-stream', ...alone && isolation}).end(bytes);
    } catch {
      missing.push(name);
      response.writeHead(404).end();
    }
  });
  await new Promise((ready) => server.listen(0, '127.0.0.1', ready));
  const stop = async () => {
    if (!server.listening) return;
    await new Promise((done) => { server.close(done); server.closeAllConnections(); });
  };
  return {address: `http://127.0.0.1:${server.address().port}/key/`, asked, missing, stop};
}
