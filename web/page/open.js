// SPDX-License-Identifier: BSD-3-Clause
//
// Opens pictures by dialog, drop or paste. The browser keeps the files, so that a reload or a
// restart finds the same page; they stay on this machine.
import {clipOf, patternOf} from './clip.js';
import {atDepth, inLight} from './decode.js';
import {areMasks, shapesOf, textOf} from './shapes.js';
import {callsOf} from './workers.js';

const roles = {
  plate: ['Plate', 'What to key: before a screen of one colour'],
  background: ['Background', 'Goes behind the subject'],
  holdOut: ['Hold-out matte', 'White keeps the subject'],
  garbage: ['Garbage matte', 'White cuts away'],
  cleanPlate: ['Clean plate', 'The screen without the subject'],
};

// ---- The files that are kept: one store, a file for each role

function store(mode, work) {
  return new Promise((resolve, reject) => {
    const opening = indexedDB.open('orvanite', 1);
    opening.onupgradeneeded = () => opening.result.createObjectStore('files');
    opening.onerror = () => reject(opening.error);
    opening.onsuccess = () => {
      const change = opening.result.transaction('files', mode);
      const asked = work(change.objectStore('files'));
      change.oncomplete = () => { opening.result.close(); resolve(asked?.result); };
      change.onerror = () => reject(change.error);
    };
  });
}
const kept = async () => {
  const files = {};
  for (const role of Object.keys(roles)) {
    const file = await store('readonly', (all) => all.get(role));
    if (file) files[role] = file;
  }
  return files;
};
const keep = (role, files) => store('readwrite', (all) => {
  if (role === 'plate') all.clear();
  return files ? all.put(files, role) : all.delete(role);
}).catch((error) => {
  throw error?.name === 'QuotaExceededError' ? new Error(`${nameOf(files)}: the browser has no room to keep it`) : error;
});

/** Of a file, or of numbered ones. */
const nameOf = (files) => Array.isArray(files) ? patternOf(files.map(({name}) => name)).name : files.name;

// ---- The dialog

const dialog = document.createElement('dialog');
dialog.id = 'open';
dialog.setAttribute('aria-labelledby', 'openTitle');
dialog.innerHTML = `<h2 id="openTitle">Open pictures</h2>
<p class="lead">Drop, paste or choose a picture, a movie or numbered frames. It stays on this machine: the key is computed here, by this page.</p>
<div class="roles"></div><p class="opens" role="status"></p><p class="wrong" role="alert"></p>
<form method="dialog"><button>Close</button></form>`;
const wrong = dialog.querySelector('.wrong');
const opens = dialog.querySelector('.opens');

function say(error) {
  opens.textContent = '';
  wrong.textContent = error.message;
  if (!dialog.open) dialog.showModal();
}

const addressOf = (texts) => `#${new URLSearchParams(texts).toString().replaceAll('%2C', ',')}`;

// What a render holds follows the background, unless it was set to something else.
function outputFor(background) {
  const texts = new URLSearchParams(location.hash.slice(1));
  const [from, to] = background ? ['unpremultiplied', 'composite'] : ['composite', 'unpremultiplied'];
  if (background) texts.set('view', 'composite');  // who opens one wants to see it
  for (const name of ['output', 'b.output']) if (texts.get(name) === from) texts.set(name, to);
  if (location.hash.length > 1) history.replaceState(history.state, '', addressOf(texts));
}

// The page is built for its pictures: others build it anew. Settings stay, but for another plate.
async function change(role, files) {
  try {
    // What does not go with the others is told before anything changes.
    wrong.textContent = '';
    if (files) opens.textContent = `Opening ${nameOf(files)}`;
    if (files) await picturesOf(role === 'plate' ? {plate: files} : {...await kept(), [role]: files});
    await keep(role, files);
  } catch (error) {
    say(error);
    return;
  }
  if (role === 'plate') history.replaceState(null, '', location.pathname);
  if (role === 'background') outputFor(Boolean(files));
  location.reload();
}

/** A preset or masks: the text says which. */
async function useText(file) {
  const {ask} = await import('./server.js');
  try {
    const text = await file.text();
    // What is set when the answer comes, not when it was asked for, is what the file goes beside.
    const now = () => new URLSearchParams(location.hash.slice(1));
    if (areMasks(text)) {
      const masks = textOf(shapesOf(await ask('useMasks', {text}))) ?? '';
      const beside = now();
      beside.set('masks', masks);
      location.hash = addressOf(beside);
    } else {
      const settings = await ask('usePreset', {text});
      const usual = (await ask('state')).settings;
      const masks = now().get('masks');
      location.hash = addressOf({...usual, ...settings, ...(masks && {masks})});
    }
    if (dialog.open) dialog.close();
  } catch (error) {
    say(error);
  }
}

function fill(files) {
  document.body.classList.toggle('empty', !files.plate);
  const rows = Object.entries(roles).map(([role, [label, help]]) => {
    const row = document.createElement('div');
    row.innerHTML = '<label><span class="name"></span><span class="file"></span><input type="file"></label><button>Remove</button>';
    const input = row.querySelector('input');
    row.title = help;
    row.querySelector('.name').textContent = label;
    row.querySelector('.file').textContent = role in files ? nameOf(files[role]) : help;
    row.classList.toggle('there', role in files);
    input.accept = 'image/*,video/*,.tif,.tiff,.exr,.mkv';
    input.multiple = true;
    input.setAttribute('aria-label', `${label}: ${help}`);
    input.disabled = role !== 'plate' && !files.plate;
    row.classList.toggle('off', input.disabled);
    input.addEventListener('change', () => { if (input.files[0]) change(role, oneOrAll(input.files)); });
    const remove = row.querySelector('button');
    remove.hidden = !(role in files);
    remove.addEventListener('click', () => change(role, null));
    return row;
  });
  dialog.querySelector('.roles').replaceChildren(...rows);
  dialog.querySelector('form').hidden = !files.plate;
}

const oneOrAll = (list) => list.length === 1 ? list[0] : [...list];

function listen(files) {
  const take = (list) => {
    if (!list[0]) return;
    const file = oneOrAll(list);
    if (list.length > 1) {
      try { patternOf(file.map(({name}) => name)); } catch (error) { say(error); return; }
    }
    if (file.name?.endsWith('.json') && files.plate) useText(file);
    // Where there is a plate, one of its side pictures is as likely: the dialog asks.
    else if (!files.plate) change('plate', file);
    else choose(file);
  };
  const choose = (file) => {
    if (!dialog.open) dialog.showModal();
    wrong.textContent = '';
    const buttons = Object.entries(roles).map(([role, [label]]) => Object.assign(document.createElement('button'), {
      textContent: label, onclick: () => change(role, file),
    }));
    const asks = document.createElement('p');
    asks.append(`What is ${nameOf(file)}? `, ...buttons);
    dialog.querySelector('.asks')?.remove();
    asks.className = 'asks';
    dialog.querySelector('.roles').before(asks);
    buttons[0].focus();
  };
  addEventListener('dragover', (event) => { event.preventDefault(); document.body.classList.add('dropping'); });
  addEventListener('dragleave', (event) => { if (!event.relatedTarget) document.body.classList.remove('dropping'); });
  addEventListener('drop', (event) => { event.preventDefault(); document.body.classList.remove('dropping'); take(event.dataTransfer.files); });
  addEventListener('paste', (event) => take(event.clipboardData.files));
  dialog.addEventListener('cancel', (event) => { if (!files.plate) event.preventDefault(); });
  const button = Object.assign(document.createElement('button'), {
    id: 'openPictures', textContent: 'Open', title: 'Open another plate, a background or mattes (O)', onclick: () => dialog.showModal(),
  });
  document.querySelector('header .tools').prepend(button);
  addEventListener('keydown', (event) => {
    if (event.key.toLowerCase() !== 'o' || event.ctrlKey || event.metaKey || event.altKey || dialog.open || event.target.matches('input, select, textarea')) return;
    event.preventDefault();
    dialog.showModal();
  });
}

// Brings pictures of a clip over the plate's frame, by an engine of its own; that of a still goes when it is done.
function fitterFor(clip, frame) {
  let worker = null, ask;
  return async (picture) => {
    if (!worker) {
      worker = new Worker('worker.js', {type: 'module'});
      ask = callsOf(worker, 'The engine could not be started in this browser.');
    }
    const fitted = await ask('fit', picture, frame);
    if (!clip.isShot) {
      worker.terminate();
      worker = null;
    }
    return fitted;
  };
}

// What brings a role's pictures together with the plate's, whose first is `plate`; says what that is.
function fitFor(role, {name, clip, picture: first}, plate, depth, said) {
  const {width, height} = plate;
  const ofLight = plate.depth === 4;
  if (first.depth === 4 && !ofLight) throw new Error(`${name}: an OpenEXR picture goes beside an OpenEXR plate: orvanite takes it beside others`);
  const covers = first.width !== width || first.height !== height;
  if (covers) {
    const sizes = `${width}\u00d7${height}, found ${first.width}\u00d7${first.height}`;
    if (role !== 'background') throw new Error(`${name}: expected the plate's size, ${sizes}`);
    said.push(`The background was ${first.width}\u00d7${first.height}: it was brought to the plate's size.`);
  }
  if (ofLight && role === 'cleanPlate') throw new Error(`${name}: a clean plate goes beside plates of 8 or 16 bits`);
  const lights = ofLight && first.depth !== 4 && role === 'background';
  if (lights) said.push(`${name} was brought to linear light, as the plate is.`);
  if (covers) return fitterFor(clip, {width, height, depth});
  return async (picture) => atDepth(lights ? inLight(picture) : picture, depth);
}

async function picturesOf(files) {
  const clips = {};
  try {
    const pictures = {};
    const said = [];
    for (const [role, given] of Object.entries(files)) {
      const clip = clips[role] = await clipOf(given);
      pictures[role] = {name: clip.name, clip, picture: await clip.picture(0)};
      said.push(...clip.said);
      if (pictures[role].picture.beyond) said.push(`${clip.name} holds more than its frame: what lies outside is left out.`);
    }
    const plate = pictures.plate.picture;
    const depth = Math.max(plate.depth, pictures.background?.picture.depth ?? 1);
    for (const [role, one] of Object.entries(pictures)) {
      one.fit = fitFor(role, one, plate, depth, said);
      one.picture = await one.fit(one.picture);
    }
    return {pictures, said};
  } catch (error) {
    Object.values(clips).forEach((clip) => clip.close?.());
    throw error;
  }
}

/** The pictures by role, and what was done to bring them together; waits until there is a plate. */
export const opened = (async () => {
  document.body.append(dialog);
  document.body.inert = false;
  const files = await kept().catch(() => ({}));
  fill(files);
  listen(files);
  if (!files.plate) {
    dialog.showModal();
    return new Promise(() => {});  // a plate builds the page anew
  }
  try {
    return await picturesOf(files);
  } catch (error) {
    say(error);
    return new Promise(() => {});
  }
})();

if ('serviceWorker' in navigator && isSecureContext) navigator.serviceWorker.register('service.js').catch(() => {});
