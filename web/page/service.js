// SPDX-License-Identifier: BSD-3-Clause
//
// Keeps the page's files, so that it opens without a network. The build names them and their state.
const files = ['@FILES@'];
const name = 'orvanite-@STATE@';

addEventListener('install', (event) => {
  skipWaiting();
  event.waitUntil(caches.open(name).then((cache) => cache.addAll(files.map((file) => new Request(file, {cache: 'reload'})))));
});

addEventListener('activate', (event) => {
  const old = (all) => all.filter((one) => one.startsWith('orvanite-') && one !== name);
  event.waitUntil(caches.keys().then((all) => Promise.all(old(all).map((one) => caches.delete(one)))).then(() => clients.claim()));
});

// A page that nothing else can reach into may share memory with its workers. These headers say that
// it is one, where the server does not.
function alone({body, status, statusText, headers: sent}) {
  const headers = new Headers(sent);
  headers.set('Cross-Origin-Opener-Policy', 'same-origin');
  headers.set('Cross-Origin-Embedder-Policy', 'require-corp');
  return new Response(body, {status, statusText, headers});
}

addEventListener('fetch', (event) => {
  if (event.request.method !== 'GET' || new URL(event.request.url).origin !== location.origin) return;
  event.respondWith(caches.open(name).then(async (cache) =>
    alone(await cache.match(event.request, {ignoreSearch: true}) ?? await fetch(event.request))));
});
