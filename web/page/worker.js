// SPDX-License-Identifier: BSD-3-Clause
//
// One engine, one question after another: {id, call, arguments} in, {id, answer or error} out.
import {Engine} from './engine.js';

const engine = (async () => {
  const response = fetch('orvanite.wasm');
  // Servers that do not know the file's type serve it all the same.
  const module = await WebAssembly.compileStreaming(response).catch(
    async () => WebAssembly.compile(await (await fetch('orvanite.wasm')).arrayBuffer()));
  return Engine.of(module);
})();

addEventListener('message', async ({data: {id, call, parts}}) => {
  try {
    const answer = (await engine)[call](...parts);
    postMessage({id, answer}, answer?.pixels ? [answer.pixels.buffer] : []);
  } catch (error) {
    postMessage({id, error: {subject: error.subject ?? 'engine', message: error.message}});
  }
});
