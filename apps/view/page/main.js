// SPDX-License-Identifier: BSD-3-Clause
//
// Puts the page together: the modules know nothing of each other but what is handed to them here.
import {ask} from './server.js';
import {Busy} from './busy.js';
import {Opener, takesFiles} from './opener.js';
import {Scope} from './scope.js';
import {State} from './state.js';
import {Stage} from './stage.js';
import {Renders} from './renders.js';
import {Panel} from './panel.js';
import {Picker} from './pick.js';
import {Probe, showMeasure} from './inspect.js';
import {Actions} from './actions.js';
import {Pins} from './pins.js';
import {MaskTool} from './masks.js';
import {shapesOf, textOf} from './shapes.js';
import {Timeline} from './timeline.js';
import {Nudge} from './nudge.js';
import {Strip} from './strip.js';

const byId = (id) => document.getElementById(id);

const views = [
  ['plate', 'Plate'], ['matte', 'Matte'], ['status', 'Status'], ['foreground', 'Foreground'],
  ['composite', 'Composite'], ['overBlack', 'Black'], ['overGrey', 'Grey'], ['overChecker', 'Checker'],
  ['output', 'Output'], ['flat', 'Flat'], ['veil', 'Veil'],
];
const viewKeys = '1234567890v';
const viewHelp = {
  plate: 'The plate as it is',
  matte: 'White stays, black goes',
  status: 'Black: all screen. Blue: all foreground. Olive to green: between, greener as the matte rises. Redder: held by the hold-out matte',
  foreground: 'The cleaned foreground, not multiplied by the matte',
  composite: 'Over the background picture; over black without one',
  overBlack: 'Over black', overGrey: 'Over middle grey', overChecker: 'Over a checker',
  output: 'What a render writes: the parameter Output says what',
  flat: 'Over a colour of your choice: the swatch in the header',
  veil: 'The plate, under a red veil where it is keyed out',
};

/** Whether the plate holds light as the settings say: a screen shows it as codes of sRGB. */
const holdsLight = ({samples}, {colourspace}) => colourspace === 'linear' && /half|float/.test(samples);

/** The light of a colour's codes, as parameters are written. */
const lightOf = (codes) => codes.split(',').map(Number)
  .map((code) => (code <= 0.04045 ? code / 12.92 : ((code + 0.055) / 1.055) ** 2.4).toFixed(6)).join(',');

function words(description) {
  const {width, height, samples, settings, colourspace, reason} = description;
  const encoding = settings.colourspace === colourspace ? `${colourspace} (${reason})` : settings.colourspace;
  return `${width} \u00d7 ${height}, ${samples}, ${encoding}${holdsLight(description, settings) ? ', on screen as sRGB' : ''}`;
}

// Two changes a second: quick enough to see what moves, and no flash that could harm.
const flickerMilliseconds = 500;

// The address takes down what is seen when it has rested for so long: browsers bound how often it may change.
const placeMilliseconds = 250;

// Pictures that come sooner need no word.
const patienceMilliseconds = 150;

async function start() {
  const busy = new Busy({element: byId('busy'), words: byId('busyWith'), stop: byId('stopBusy')});
  const opened = busy.begin('Reading the plate');
  const description = await ask('state');
  const state = new State(description);
  const stage = new Stage(byId('stage'), byId('picture'), byId('wipeLine'), description);
  const picker = new Picker(stage, state, byId('box'), byId('hint'));
  const problem = byId('problem');
  const fail = (error) => {
    problem.hidden = !error;
    if (error) problem.textContent = error.subject === 'server' ? error.message : `${error.subject}: ${error.message}`;
  };

  document.title = `${description.files.plate} \u2013 Orvanite`;
  byId('title').textContent = description.files.plate;

  let measured = null;  // what was counted of the matte last
  const show = (slot, picture) => {
    opened();
    if (slot === 0) {
      const before = JSON.stringify(state.inForce);
      state.inForce = picture.inForce;
      if (JSON.stringify(state.inForce) !== before) { panel.refresh(); nudge.refresh(); }
      if (picture.matte) {
        measured = picture.matte;
        showMeasure(byId('histogram'), byId('counts'), measured);
      }
    }
    stage.show(slot, picture);
    if (!picture.job.moving) {
      probe.look();
      if (slot === 0) pins.look();
    }
    // For whoever measures: when the picture of a change stands on screen.
    dispatchEvent(new CustomEvent('orvanite-shown', {detail: {slot, number: picture.job.number, job: picture.job, milliseconds: picture.milliseconds}}));
  };
  const waiting = [null, null];  // what ends the words about each
  const renders = new Renders(description, {
    visible: () => stage.visible(), show, fail: (error) => { opened(); fail(error); },
    waits(slot, on) {
      waiting[slot]?.();
      waiting[slot] = on ? busy.begin('Keying', {after: patienceMilliseconds, stop: () => {
        renders.stop();
        opened();
        fail({subject: 'server', message: 'Stopped: the picture is of older settings. Any change keys again.'});
      }}) : null;
    },
  });
  const left = () => renders.shown(1);
  const probe = new Probe(stage, description, byId('values'), (x) =>
    state.wipe && left() && stage.isLeftOfWipe(x) ? left() : renders.shown(0));

  byId('pin').addEventListener('click', () => {
    picker.stop();
    if (masks.drawing) masks.draw(null);
  });
  const pins = new Pins(stage, state, {layer: byId('pinLayer'), button: byId('pin'), hint: byId('hint')},
    (x, y, values) => probe.words(x, y, values), () => renders.shown(0));

  const shownView = () => picker.target ? 'plate' : state.view;
  const request = (moving) => {
    const view = shownView();
    const {frame} = state;
    // Flat is the output over a colour, whatever the settings say of it.
    const asked = (settings, name) => name === 'flat'
      ? {settings: {...settings, output: 'compOnColour', backgroundColour: holdsLight(description, settings) ? lightOf(state.flat) : state.flat}, view: 'output', frame} : {settings: {...settings}, view: name, frame};
    renders.want(0, asked(state.settings, view), moving);
    if (!state.wipe) { renders.want(1, null); return; }
    const plate = state.against === 'plate';
    // The other side does not move with this one.
    if (state.against === 'held') {
      renders.want(1, {...asked(state.settings, view), frame: state.held}, moving);
    } else if (!moving || moving === 'frame') {
      renders.want(1, plate ? asked(state.settings, 'plate') : asked(state.other, view), moving);
    }
  };

  const scope = new Scope(byId('scope'), byId('scopeKind'), state, description);
  byId('scopeKind').addEventListener('change', () => {
    byId('histogram').hidden = scope.kind !== 'matte';
    byId('scope').hidden = scope.kind === 'matte';
    if (measured) showMeasure(byId('histogram'), byId('counts'), measured);
    scope.draw();
  });
  byId('channel').addEventListener('change', (event) => stage.setLook({channel: event.target.value}));
  byId('gain').addEventListener('change', (event) => stage.setLook({gain: Number(event.target.value)}));
  byId('flatColour').addEventListener('input', (event) => {
    const codes = event.target.value.match(/[0-9a-f]{2}/g).map((code) => Number((parseInt(code, 16) / 255).toFixed(4)));
    picker.stop();
    state.show({flat: codes.join(','), view: 'flat'});
  });

  const panel = new Panel({root: byId('panel'), help: byId('help'), warned: byId('warned')}, state, (parameter) => {
    picker.start(parameter.name, parameter.name === 'fgBias' ? 'something grey or white of the subject'
      : parameter.name === 'screen' ? 'the screen' : `a ${parameter.label.toLowerCase()}`);
  });
  const nudge = new Nudge(byId('nudgeRow'), panel, state);
  const timeline = new Timeline(state, description, {
    bar: byId('timeline'), play: byId('play'), slider: byId('frame'), field: byId('frameNumber'),
    enter: byId('markIn'), leave: byId('markOut'), list: byId('keyList'),
  });
  new Strip(byId('strip'), state, description, () => !renders.busy && !timeline.stop && !auto);
  const actions = new Actions(state, {
    savePreset: byId('savePreset'), copyCommand: byId('copyCommand'), copyScript: byId('copyScript'),
    render: byId('render'), range: byId('range'), form: byId('form'), bar: byId('running'), progress: byId('progress'), done: byId('done'),
    cancel: byId('cancel'), told: byId('told'), saveMasks: byId('maskSave'),
  });
  const masks = new MaskTool(stage, state, {
    bar: byId('maskBar'), layer: byId('maskLayer'), choose: byId('maskChoose'), polygon: byId('maskPolygon'),
    ellipse: byId('maskEllipse'), brush: byId('maskBrush'), size: byId('maskSize'), list: byId('maskList'), use: byId('maskUse'),
    outside: byId('maskOutside'), soft: byId('maskSoft'), key: byId('maskKey'), remove: byId('maskDelete'), save: byId('maskSave'),
  }, byId('hint'), (text) => actions.tell(text));
  const toggleMasks = () => { if (description.masks) masks.toggle(); };
  byId('masks').hidden = !description.masks;
  byId('masks').addEventListener('click', toggleMasks);
  masks.addEventListener('changed', () => byId('masks').setAttribute('aria-pressed', String(masks.on)));
  masks.addEventListener('draws', () => picker.stop());

  for (const [i, [name, label]] of views.entries()) {
    const button = document.createElement('button');
    button.dataset.view = name;
    button.setAttribute('role', 'radio');
    button.title = `${viewHelp[name]} (${viewKeys[i].toUpperCase()})`;
    button.innerHTML = '<kbd></kbd>';
    button.firstChild.textContent = viewKeys[i].toUpperCase();
    button.append(label);
    button.addEventListener('click', () => { picker.stop(); state.show({view: name}); });
    byId('views').append(button);
  }

  let flickering = null;
  function flicker(on) {
    clearInterval(flickering);
    flickering = on ? setInterval(() => stage.setFlicker(!stage.flicker), flickerMilliseconds) : null;
    byId('flicker').setAttribute('aria-pressed', String(on));
    if (on && !state.wipe) state.show({wipe: true});
    stage.setFlicker(on ? false : null);
  }

  const marks = () => {
    for (const button of byId('views').children) {
      const on = button.dataset.view === shownView();
      button.setAttribute('aria-checked', String(on));
      button.tabIndex = on ? 0 : -1;
    }
    byId('wipe').setAttribute('aria-pressed', String(state.wipe));
    byId('against').value = state.against;
    byId('sideA').setAttribute('aria-pressed', String(state.side === 'a'));
    byId('sideB').setAttribute('aria-pressed', String(state.side === 'b'));
    // Whoever stands on a button that goes is led to its neighbour.
    const held = document.activeElement;
    byId('undo').disabled = state.past.length === 0;
    byId('redo').disabled = state.future.length === 0;
    if (held.disabled) ({undo: byId('redo'), redo: byId('undo')})[held.id]?.focus();
    byId('pickScreen').setAttribute('aria-pressed', String(picker.target === 'screen'));
    stage.setWipe(state.wipe);
    const seenAs = views.find(([name]) => name === shownView())?.[1];
    const [here, there] = state.side === 'a' ? ['A', 'B'] : ['B', 'A'];
    byId('rightLabel').textContent = `${here}: ${seenAs}`;
    byId('leftLabel').textContent = state.against === 'plate' ? 'Plate'
      : state.against === 'held' ? `Frame ${state.held}: ${seenAs}` : `${there}: ${seenAs}`;
    if (!state.wipe) flicker(false);
    byId('flatColour').value = `#${state.flat.split(',').map((value) => Math.round(255 * Number(value)).toString(16).padStart(2, '0')).join('')}`;
    const said = `${views.find(([name]) => name === shownView())?.[1]}, settings ${state.side.toUpperCase()}`;
    if (byId('said').textContent !== said) byId('said').textContent = said;
  };
  const scaleWords = () => {
    const percent = `${Math.round(100 * stage.scale)} %`;
    byId('info').textContent = `${words(description)}, shown at ${percent}`;
    byId('actual').setAttribute('aria-pressed', String(stage.scale === 1));
    byId('fit').setAttribute('aria-pressed', String(stage.fitted));
  };

  state.addEventListener('settings', (event) => { request(event.detail.moving ?? false); marks(); });
  state.addEventListener('shown', (event) => { request(event.detail.moving ?? false); marks(); });
  picker.addEventListener('changed', () => { if (picker.target && masks.drawing) masks.yield(); request(false); marks(); });
  picker.addEventListener('failed', (event) => fail(event.detail));
  picker.addEventListener('picked', async ({detail: {target, colours}}) => {
    if (target === 'screen' && colours.last) {
      const [red, green, blue] = colours.median;
      picker.advise(Math.max(green, blue) > red
        ? 'Now Matte (2): raise Screen range until the screen is black there. Then Composite (5).'
        : 'This is neither a green nor a blue: if it was not the screen, press S and click again.');
    }
    const {side, frame} = colours;
    state.set({[target]: colours.median.map((value) => String(Number(Number(value).toFixed(4)))).join(',')}, {side, frame});
    if (target !== 'screen') return;
    const said = picker.said();
    const {coverage} = await ask('coverage', {settings: state.sides[side], frame}).catch(() => ({}));
    if (coverage !== undefined) picker.remark(said, `${Math.round(100 * coverage)} % of the frame has this hue.`);
  });
  const goToPlace = () => { if (state.place !== null) stage.place = state.place; };
  addEventListener('hashchange', goToPlace);
  goToPlace();
  let resting;
  stage.addEventListener('moved', () => {
    renders.moved();
    scaleWords();
    clearTimeout(resting);
    resting = setTimeout(() => state.keepPlace(stage.place), placeMilliseconds);
  });

  const toggleWipe = () => state.show({wipe: !state.wipe});
  const changeSide = (side) => state.show({side});
  byId('wipe').addEventListener('click', toggleWipe);
  byId('against').addEventListener('change', ({target: {value}}) =>
    state.show({against: value, wipe: true, ...(value === 'held' && {held: state.frame})}));
  byId('heldOption').hidden = byId('heldOption').disabled = description.frames.length < 2;
  byId('flicker').addEventListener('click', () => flicker(!flickering));
  byId('sideA').addEventListener('click', () => changeSide('a'));
  byId('sideB').addEventListener('click', () => changeSide('b'));
  byId('copySide').addEventListener('click', () => state.copySide());
  byId('fit').addEventListener('click', () => stage.fit());
  byId('actual').addEventListener('click', () => stage.zoom(1));
  const undo = () => { picker.hush(); state.undo(); };
  const redo = () => { picker.hush(); state.redo(); };
  byId('undo').addEventListener('click', undo);
  byId('redo').addEventListener('click', redo);
  const pickScreen = () => picker.target ? picker.stop() : picker.start('screen', 'the screen');
  const pickByKeys = () => { pickScreen(); picker.aim(); };
  // A click without a pointer is a key's.
  byId('pickScreen').addEventListener('click', (event) => event.detail === 0 ? pickByKeys() : pickScreen());
  let auto = null;  // the search that is going on
  state.addEventListener('settings', () => auto?.abort());
  byId('auto').addEventListener('click', async () => {
    if (auto) return;
    const search = auto = new AbortController();
    actions.tell('');
    picker.hush();
    const end = busy.begin('Looking for the screen', {stop: () => search.abort()});
    try {
      const found = await ask('auto', {settings: state.settings, frame: state.frame}, search.signal);
      auto = null;
      end();
      picker.stop();
      state.choose(found.settings);
      const chosen = state.committed;
      await renders.idle(0);  // its words go with its picture
      if (state.committed !== chosen) return;
      const next = !description.files.background ? ' Open adds a background.' : '';
      picker.advise(`Screen found on ${Math.round(100 * found.coverage)} % of the frame; Undo takes it back. Matte (2) shows what stays, Composite (5) the result.${next}`);
    } catch (error) {
      actions.tell(search.signal.aborted ? 'Auto was stopped: nothing has changed by it.' : error.message);
    } finally {
      if (auto === search) auto = null;
      end();
    }
  });
  byId('openFiles').hidden = !takesFiles;
  if (takesFiles) new Opener({
    dialog: byId('opener'), title: byId('openerTitle'), rows: byId('openerRows'), told: byId('openerTold'), input: byId('openerInput'),
    close: byId('closeOpener'), button: byId('openFiles'),
  }, state, busy, (name, settings) => {
    if ('masks' in settings) state.set({masks: textOf(shapesOf(settings.masks))}); else state.replace(settings);
    actions.tell(`Read ${name}. Ctrl+Z takes it back.`);
  });
  const fold = () => {
    byId('fold').setAttribute('aria-pressed', String(!document.body.classList.toggle('folded')));
  };
  byId('fold').addEventListener('click', fold);

  addEventListener('keydown', (event) => {
    if (document.querySelector('dialog[open]')) return;
    const typing = event.target.matches('input[type=number], input[type=text], select');
    if ((event.ctrlKey || event.metaKey) && event.key.toLowerCase() === 'z') {
      event.preventDefault();
      if (event.shiftKey) redo(); else undo();
    } else if ((event.ctrlKey || event.metaKey) && event.key.toLowerCase() === 'y') {
      event.preventDefault();
      redo();
    } else if (event.ctrlKey || event.metaKey || event.altKey || typing) {
      return;
    } else if (event.key.length === 1 && viewKeys.includes(event.key.toLowerCase())) {
      picker.stop();
      state.show({view: views[viewKeys.indexOf(event.key.toLowerCase())][0]});
    } else {
      const otherSide = () => changeSide(state.side === 'a' ? 'b' : 'a');
      const keys = {w: toggleWipe, x: otherSide, s: pickByKeys, a: () => byId('auto').click(), p: fold, m: toggleMasks, n: () => (probe.at ? pins.add(probe.at) : byId('pin').click()), b: () => flicker(!flickering), ',': () => timeline.toKey(-1), '.': () => timeline.toKey(1), i: () => timeline.mark('from'), o: () => timeline.mark('to'), f: () => stage.fit(), z: () => stage.zoom(1), ' ': () => timeline.toggle()};
      const action = event.target.matches('button, input, summary') && event.key === ' ' ? null : keys[event.key.toLowerCase()];
      if (!action) return;
      event.preventDefault();
      action();
    }
  });
  // Arrows within the views, as in any group of choices.
  byId('views').addEventListener('keydown', (event) => {
    const way = {ArrowLeft: -1, ArrowRight: 1}[event.key];
    if (!way) return;
    event.preventDefault();
    const index = views.findIndex(([name]) => name === state.view);
    const next = (index + way + views.length) % views.length;
    state.show({view: views[next][0]});
    byId('views').children[next].focus();
  });

  // Nobody said what the screen is: that is the first thing to do.
  if (!('screen' in state.settings)) picker.start('screen', 'the screen', 'Or press Auto (A): it finds the screen.');
  actions.tell(description.notices.join(' '));
  request(false);
  marks();
  scaleWords();
}

start().catch((error) => {
  const problem = byId('problem');
  problem.hidden = false;
  problem.textContent = error.message;
  byId('busy').hidden = true;
}).finally(() => { document.body.inert = false; });
