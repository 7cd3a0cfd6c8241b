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

addEventListener('fetch', (event) => {
  if (event.request.method !== 'GET' || new URL(event.request.url).origin !== location.origin) return;
  event.respondWith(caches.open(name).then(async (cache) =>
    await cache.match(event.request, {ignoreSearch: true}) ?? fetch(event.request)));
});
