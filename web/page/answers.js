// SPDX-License-Identifier: BSD-3-Clause
//
// What the page asks for, answered by a crew of engines: a view is cut into bands of rows among them
// unless its pixels depend on the whole frame. Pictures lie in memory that all of them see, where
// the browser allows that; else each engine is sent a copy. Node tests use it too.
import {encodeExr} from './exr.js';
import {encodePng} from './png.js';
import {Refusal} from './workers.js';

const shellPlain = /^[\w./,:+@%=-]+$/;
const shellWord = (text) => shellPlain.test(text) ? text : `'${text.replaceAll("'", "'\\''")}'`;
const kebab = (name) => name.replace(/[A-Z]/g, (letter) => `-${letter.toLowerCase()}`);
const roleOptions = {background: '--bg', holdOut: '--hold-out', garbage: '--garbage', cleanPlate: '--reference'};

// Samples of a box are thinned out beyond this many.
const boxSamples = 1 << 18;
// Rows of a band at the least: fewer are not worth a message.
const leastRows = 32;
// Rooms that are kept for each engine.
const roomsEach = 3;

export class Answers {
  /**
   * engines   functions (call, ...parts) that promise what that call of an Engine gives
   * pictures  by role: {name, picture}; a plate at the least, of one size and depth
   * shares    whether the engines may share the page's memory
   */
  constructor(engines, pictures, shares = globalThis.crossOriginIsolated ?? false) {
    this.engines = engines;
    this.shares = shares;
    this.pictures = Object.fromEntries(Object.entries(pictures).map(([role, one]) => [role, {...one, picture: this.placed(one.picture)}]));
    this.plate = this.pictures.plate.picture;
    this.job = {state: 'idle', done: 0, message: ''};
    this.rooms = [];
  }

  /** The same picture in memory that the engines share, if they may: that of one that is done with, where there is one. */
  placed(picture, before = null) {
    if (!this.shares) return picture;
    const {pixels} = picture;
    const room = before?.pixels.byteLength === pixels.byteLength ? before.pixels.buffer : new SharedArrayBuffer(pixels.byteLength);
    const shared = new pixels.constructor(room);
    shared.set(pixels);
    return {...picture, pixels: shared};
  }

  get maximum() { return {1: 255, 2: 65535, 4: 1}[this.plate.depth]; }
  get ending() { return this.plate.depth === 4 ? '.exr' : '.png'; }
  /** The file that the copied command writes. */
  get written() { return `key${this.ending}`; }
  get half() { return this.plate.half && (this.pictures.background?.picture.half ?? true); }
  get usualOutput() { return this.pictures.background ? 'composite' : 'unpremultiplied'; }
  /** Whether a file's colours are multiplied by its matte. */
  multiplies(settings) { return this.plate.depth === 4 && settings.output === 'unpremultiplied' && this.usualOutput === 'unpremultiplied'; }

  async open() {
    const {parameters, version} = await this.engines[0]('ask', 'describe');
    this.parameters = parameters;
    this.version = version;
    for (const [role, {picture}] of Object.entries(this.pictures)) {
      await Promise.all(this.engines.map((engine) => engine('take', role, picture)));
    }
  }

  /** What a page is built from. */
  state(notices = []) {
    const {width, height, depth} = this.plate;
    const name = (role) => this.pictures[role]?.name ?? '';
    const files = {plate: name('plate'), background: name('background'), holdOut: name('holdOut'), garbage: name('garbage'), reference: name('cleanPlate')};
    const samples = depth === 4 ? this.plate.half ? 'half' : 'float' : depth === 2 ? '16-bit' : '8-bit';
    const colourspace = depth === 4 ? 'linear' : 'video';
    return {
      version: this.version, files, width, height, depth, samples, frames: [1], isShot: false, framesPerSecond: 24,
      colourspace, reason: depth === 4 ? `${samples} samples` : `${samples} ${this.pictures.plate.clip?.kind ?? 'picture'}`, notices, output: '', ending: this.ending, parameters: this.parameters, masks: true, script: false,
      settings: {colourspace, output: this.usualOutput},
    };
  }

  /**
   * A view for the screen, as Engine.show gives it, but for `bands` in the place of its pixels, from
   * the top; the matte is that of the whole frame.
   */
  async picture({settings, view, divisor, proxy, window, measured}) {
    const {width, height} = this.plate;
    const [x, y, w, h] = [window[0], window[1], Math.min(window[2], width - window[0]), Math.min(window[3], height - window[1])];
    const whole = x === 0 && y === 0 && w === width && h === height;
    const alone = measured && !whole
      ? this.picture({settings, view: 'matte', divisor: Math.max(2, divisor), proxy: true, window: [0, 0, width, height], measured: true}) : null;
    const request = {settings, view, divisor, proxy, measured: measured && whole};
    const needsAll = view !== 'plate' && await this.engines[0]('ask', 'needsAll', {settings});
    const rows = needsAll ? h : Math.max(leastRows, Math.ceil(h / this.engines.length / divisor)) * divisor;
    const windows = [];
    for (let top = 0; top < h; top += rows) windows.push([x, y + top, w, Math.min(rows, h - top)]);
    const parts = await Promise.all(windows.map((band, i) => this.engines[i]('show', {...request, window: band}, this.roomFor(band, divisor))));
    const [{pixels, ...first}] = parts;
    const shown = {...first, window: [x, y, w, h], height: parts.reduce((sum, part) => sum + part.height, 0), bands: parts.map((part) => part.pixels)};
    if (alone) {
      shown.matte = (await alone).matte;
    } else if (request.measured) {
      const sum = (name) => parts.reduce((total, {matte}) => total + matte[name], 0);
      shown.matte = {
        bins: first.matte.bins.map((_, i) => parts.reduce((total, {matte}) => total + matte.bins[i], 0)),
        clear: sum('clear'), between: sum('between'), solid: sum('solid'),
      };
    }
    return shown;
  }

  /** Takes the bands of a picture that nobody looks at any more: memory that is there already is written faster. */
  giveBack(bands) {
    for (const {buffer} of bands) if (this.rooms.length < roomsEach * this.engines.length) this.rooms.push(buffer);
  }

  roomFor([, , w, h], divisor) {
    const bytes = 4 * Math.ceil(w / divisor) * Math.ceil(h / divisor);
    const at = this.rooms.findIndex(({byteLength}) => byteLength === bytes);
    return at < 0 ? null : this.rooms.splice(at, 1)[0];
  }

  async probe({settings, view, x, y}) {
    const [engine] = this.engines;
    const {maximum} = this;
    const at = async (name) => [...(await engine('key', settings, name, [x, y, 1, 1])).pixels].map((code) => code / maximum);
    const [plate, matte, result] = [await at('plate'), await at('matte'), await at(view)];
    return {plate, matte: matte[3], result, maximum};
  }

  colours({window: [x, y, w, h]}) {
    const {maximum, plate: {width, pixels}} = this;
    const step = Math.max(1, Math.ceil(Math.sqrt(w * h / boxSamples)));
    const samples = [[], [], []];
    for (let v = y; v < y + h; v += step) {
      for (let u = x; u < x + w; u += step) samples.forEach((list, c) => list.push(pixels[4 * (v * width + u) + c]));
    }
    const sorted = samples.map((list) => Float64Array.from(list, (code) => Math.fround(code / maximum)).sort());
    const pick = (where) => sorted.map((list) => list[where(list.length)]);
    const twentieth = (n) => Math.floor(n / 20);
    return {median: pick((n) => Math.floor(n / 2)), low: pick(twentieth), high: pick((n) => n - 1 - twentieth(n))};
  }

  async command(settings, masksName) {
    const given = await this.engines[0]('ask', 'given', {settings});
    const words = ['orvanite', 'key', this.pictures.plate.name];
    for (const [role, option] of Object.entries(roleOptions)) {
      if (this.pictures[role]) words.push(option, this.pictures[role].name);
    }
    // Without being told its output the command multiplies colours of OpenEXR files by the matte, as they are read.
    if (this.multiplies(given)) delete given.output;
    for (const {name} of this.parameters) if (name in given) words.push(`--${kebab(name)}=${given[name]}`);
    if (settings.masks) words.push('--masks', masksName);
    return [...words, '-o', this.written].map(shellWord).join(' ');
  }

  /** What there is of the plate keyed, where it lies in the frame, and whether its alpha counts. */
  async keyed(settings) {
    const output = this.parameters.find(({name}) => name === 'output');
    const view = output.choices.find(({text}) => text === (settings.output ?? output.standard));
    const within = this.ownWindow();
    const [x, y, width, height] = within;
    const needsAll = await this.engines[0]('ask', 'needsAll', {settings});
    const rows = needsAll ? height : Math.ceil(height / this.engines.length);
    const tops = [];
    for (let top = 0; top < height; top += rows) tops.push(top);
    const parts = await Promise.all(tops.map((top, i) =>
      this.engines[i]('key', settings, 'output', [x, y + top, width, Math.min(rows, height - top)], within)));
    const picture = {...parts[0], height};
    if (parts.length > 1) {
      picture.pixels = new parts[0].pixels.constructor(4 * width * height);
      parts.reduce((at, {pixels}) => { picture.pixels.set(pixels, at); return at + pixels.length; }, 0);
    }
    return {picture, corner: [x, y], alpha: view.alpha};
  }

  /** The same as a PNG with all its bits or, of floats, an OpenEXR file. */
  async render(settings) {
    const {picture, corner, alpha} = await this.keyed(settings);
    if (picture.depth !== 4) return encodePng(picture, alpha);
    const {pixels} = picture;
    if (this.multiplies(settings)) for (let i = 0; i < pixels.length; ++i) if (i % 4 !== 3) pixels[i] *= pixels[i | 3];
    return encodeExr({...picture, half: this.half}, alpha, [...corner, this.plate.width, this.plate.height]);
  }

  /** What the files hold of the frame, all together; all of it where that is nothing. */
  ownWindow() {
    const {width, height} = this.plate;
    const windows = ['plate', 'background', 'holdOut', 'garbage'].filter((role) => this.pictures[role])
      .map((role) => this.pictures[role].picture.own ?? [0, 0, width, height]).filter(([, , w, h]) => w > 0 && h > 0);
    if (windows.length === 0) return [0, 0, width, height];
    const [left, top] = [0, 1].map((i) => Math.min(...windows.map((window) => window[i])));
    const [right, bottom] = [0, 1].map((i) => Math.max(...windows.map((window) => window[i] + window[i + 2])));
    return [left, top, right - left, bottom - top];
  }

  // A render goes on while the page asks how far it is.
  start(settings) {
    const job = this.job = {state: 'running', done: 0, message: ''};
    this.render(settings).then((blob) => {
      if (job.state === 'running') Object.assign(job, {state: 'done', done: 1, blob});
    }, (error) => Object.assign(job, {state: 'failed', message: error.message}));
  }

  /** The answer to one of the page's requests by its name. Throws Refusal. */
  async to(name, body) {
    try {
      switch (name) {
        case 'picture': return await this.picture(body);
        case 'probe': return await this.probe(body);
        case 'colours': return this.colours(body);
        case 'coverage': return await this.engines[0]('ask', 'coverage', {settings: body.settings});
        case 'auto': return await this.engines[0]('ask', 'find', {settings: body.settings});
        case 'preset': return await this.engines[0]('ask', 'preset', {settings: body.settings});
        case 'useMasks': return await this.engines[0]('ask', 'useMasks', body);
        case 'usePreset': return await this.engines[0]('ask', 'usePreset', body);
        case 'masks': return await this.engines[0]('ask', 'masks', {settings: body.settings});
        case 'command': return await this.command(body.settings, body.name);
        case 'script': throw new Refusal(409, 'script', 'A script is written by the command: key --save-script.');
        case 'job':
          if (body) this.start(body.settings);
          return {state: this.job.state, done: this.job.done, message: this.job.message};
        case 'cancel':
          if (this.job.state === 'running') Object.assign(this.job, {state: 'cancelled', message: 'nothing was written'});
          return {state: this.job.state, done: 0, message: this.job.message};
        case 'result': return this.job.blob;
        default: throw new Refusal(404, 'address', 'there is nothing here');
      }
    } catch (error) {
      throw error instanceof Refusal ? error : new Refusal(400, error.subject ?? 'engine', error.message);
    }
  }
}
