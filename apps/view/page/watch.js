// SPDX-License-Identifier: BSD-3-Clause
//
// Follows a script that is rendered again whenever something changes: the newest picture stays
// until there is another one, whatever goes wrong meanwhile.
import {ask, askPicture} from './server.js';

const everyMilliseconds = 250;
const byId = (id) => document.getElementById(id);

let shown = {number: 0, index: 0, names: ''};
let chosen = 0;

async function show(index) {
  const {pixels} = await askPicture({index});
  const canvas = byId('picture');
  canvas.width = pixels.width;
  canvas.height = pixels.height;
  canvas.getContext('2d').putImageData(pixels, 0, 0);
  shown.index = index;
}

function offer(names) {
  byId('pictures').hidden = names.length < 2;
  byId('pictures').replaceChildren(...names.map((name, i) => {
    const button = document.createElement('button');
    button.setAttribute('role', 'radio');
    button.textContent = name;
    button.addEventListener('click', () => { chosen = i; });
    return button;
  }));
}

function tell(state) {
  byId('title').textContent = document.title = state.script;
  byId('problem').hidden = !state.error;
  byId('problem').textContent = state.error;
  const size = byId('picture');
  const what = state.pictures.length === 0 ? ''
    : `frame ${state.frame}, ${size.width} \u00d7 ${size.height}, ${state.seconds.toFixed(2)} s`;
  byId('info').textContent = state.running ? 'Rendering.' : what;
  if (shown.names !== state.pictures.join('\n')) {
    shown.names = state.pictures.join('\n');
    offer(state.pictures);
  }
  for (const [i, button] of [...byId('pictures').children].entries()) {
    button.setAttribute('aria-checked', String(i === shown.index));
  }
}

async function follow() {
  try {
    const state = await ask('state');
    const index = Math.min(chosen, state.pictures.length - 1);
    if (state.pictures.length > 0 && (state.number !== shown.number || index !== shown.index)) {
      await show(index);
      dispatchEvent(new CustomEvent('orvanite-shown', {detail: state}));
    }
    shown.number = state.number;
    tell(state);
  } catch (error) {
    byId('problem').hidden = false;
    byId('problem').textContent = error.message;
  }
  setTimeout(follow, everyMilliseconds);
}

follow();
