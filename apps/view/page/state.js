// SPDX-License-Identifier: BSD-3-Clause
//
// What the page shows and with which settings. All of it stands in the address, and the changes
// that can be undone stand in the browser's record of the address: a reload loses nothing.

import {isKeyed, moves, reshaped, textAt, withKey, withoutKey} from './curves.js';
import {centreOf} from './nudge.js';

const historyLimit = 200;

const numbers = (text, count) => Array.from({length: count}, (unused, i) => Number(text.split(',')[i] ?? text.split(',')[0]));

/** Settings are objects of texts by parameter name; a name that is not there has its default. */
export class State extends EventTarget {
  constructor(description) {
    super();
    this.description = description;
    this.sides = {a: {...description.settings}, b: {...description.settings}};
    this.centres = {a: centreOf(this.sides.a), b: centreOf(this.sides.b)};  // what Auto or a preset chose, to nudge around
    this.side = 'a';
    this.view = 'composite';
    this.frame = description.frames[0];
    this.wipe = false;
    this.against = 'plate';
    this.place = null;  // what the stage shows of the plate, as it says it; null: all
    this.pins = [];  // pixels whose values are shown: x, y each
    this.held = null;  // the frame that the wipe shows as "held"
    this.flat = '0,0.6275,0.6275';  // what the view Flat has behind
    this.from = null;  // in and out: frames, or none
    this.to = null;
    this.past = [];
    this.future = [];
    if (location.hash.length > 1) this.read(location.hash.slice(1));
    const kept = history.state;
    if (kept && Array.isArray(kept.past) && Array.isArray(kept.future)) {
      this.past = kept.past;
      this.future = kept.future;
    }
    this.committed = this.settingsText();
    addEventListener('hashchange', () => {
      this.read(location.hash.slice(1));
      this.committed = this.settingsText();
      this.tell('settings');
    });
  }

  get settings() { return this.sides[this.side]; }
  get centre() { return this.centres[this.side]; }
  get other() { return this.sides[this.side === 'a' ? 'b' : 'a']; }

  parameter(name) { return this.description.parameters.find((one) => one.name === name); }

  /**
   * A value in force at the frame that is shown; what the server said of those that follow the
   * screen counts.
   */
  text(name) {
    const given = this.settings[name];
    if (moves(given)) return textAt(given, this.frame, this.parameter(name));
    return given ?? this.inForce?.[name] ?? this.parameter(name).standard;
  }

  /**
   * Changes settings on their way: `null` resets, a value of what moves is a key at the frame that
   * is shown. Nothing to undo until `commit`. Elsewhere: at the frame and on the side that are given.
   */
  change(texts, {frame, side} = this) {
    const settings = this.sides[side];
    for (const [name, text] of Object.entries(texts)) {
      const now = settings[name];
      if (text === null) delete settings[name];
      else if (moves(now) && !moves(text)) settings[name] = withKey(now, frame, numbers(text, this.parameter(name).values));
      else settings[name] = text;
    }
    this.tell('settings', {moving: true});
  }

  /** Ends a change: it can be undone from here on. */
  commit() {
    const now = this.settingsText();
    if (now === this.committed) return;
    this.past.push(this.committed);
    if (this.past.length > historyLimit) this.past.shift();
    this.future = [];
    this.committed = now;
    this.write();
    this.tell('settings');
  }

  /** Whether a parameter moves, and has a key at the frame that is shown. */
  keyed(name) {
    const text = this.settings[name];
    return {moves: moves(text), here: moves(text) && isKeyed(text, this.frame, this.parameter(name).values)};
  }

  /** Sets a key at the frame that is shown, or takes it away. */
  toggleKey(name) {
    const {here} = this.keyed(name);
    const text = this.text(name);
    const change = here ? withoutKey : withKey;
    const next = change(this.settings[name] ?? text, this.frame, numbers(text, this.parameter(name).values));
    this.settings[name] = next;
    this.commit();
  }

  /** Goes straight from key to key, or smoothly. */
  reshape(name) {
    if (moves(this.settings[name])) this.set({[name]: reshaped(this.settings[name])});
  }

  set(texts, where) {
    this.change(texts, where);
    this.commit();
  }

  /** Puts these in place of all that there are; masks stay where none are among them. */
  replace(texts) {
    const {masks} = this.settings;
    this.sides[this.side] = {...(masks && {masks}), ...texts};
    this.centres[this.side] = centreOf(texts);
    this.commit();
  }

  /** Takes what was found for the plate; it is the middle of what is nudged from here on. */
  choose(texts) {
    this.centres[this.side] = centreOf(texts);
    this.set(texts);
  }

  step(from, to) {
    this.commit();
    if (from.length === 0) return;
    to.push(this.committed);
    this.committed = from.pop();
    this.readSettings(new URLSearchParams(this.committed));
    this.write();
    this.tell('settings');
  }
  undo() { this.step(this.past, this.future); }
  redo() { this.step(this.future, this.past); }

  /** Changes what is shown: any of side, view, frame, wipe, against. */
  show(what) {
    Object.assign(this, what);
    this.write();
    this.tell('side' in what ? 'settings' : 'shown');
  }

  /** Takes down what part of the plate is shown. */
  keepPlace(place) {
    if (place === this.place) return;
    this.place = place;
    this.write();
  }

  copySide() {
    const to = this.side === 'a' ? 'b' : 'a';
    this.sides[to] = {...this.settings};
    this.centres[to] = this.centre;
    this.commit();
  }

  tell(type, detail = {}) { this.dispatchEvent(new CustomEvent(type, {detail})); }

  settingsText() {
    const text = new URLSearchParams();
    for (const [side, settings] of Object.entries(this.sides)) {
      for (const name of Object.keys(settings).sort()) {
        text.set(side === 'a' ? name : `b.${name}`, settings[name]);
      }
      const centre = this.centres[side];
      if (centre) text.set(side === 'a' ? 'centre' : 'b.centre', centre);
    }
    return text.toString();
  }

  write() {
    const text = new URLSearchParams(this.committed);
    text.set('view', this.view);
    text.set('side', this.side);
    if (this.description.isShot) text.set('frame', this.frame);
    if (this.wipe) text.set('wipe', this.against);
    if (this.wipe && this.against === 'held') text.set('held', this.held);
    if (this.pins.length > 0) text.set('pins', this.pins.flat().join(','));
    if (this.place !== null) text.set('place', this.place);
    if (this.view === 'flat') text.set('flat', this.flat);
    if (this.from !== null) text.set('in', this.from);
    if (this.to !== null) text.set('out', this.to);
    // Commas and slashes may stand in a fragment as they are, and read better.
    const hash = '#' + text.toString().replaceAll('%2C', ',');
    history.replaceState({past: this.past, future: this.future}, '', hash);
  }

  read(hash) {
    const text = new URLSearchParams(hash);
    this.readSettings(text);
    this.view = text.get('view') ?? this.view;
    this.side = text.get('side') === 'b' ? 'b' : 'a';
    const frame = Number(text.get('frame') ?? this.frame);
    if (this.description.frames.includes(frame)) this.frame = frame;
    this.flat = text.get('flat') ?? this.flat;
    [this.from, this.to] = ['in', 'out'].map((end) => text.get(end)).map((one) =>
      (one !== null && this.description.frames.includes(Number(one)) ? Number(one) : null));
    this.wipe = text.has('wipe');
    const pins = (text.get('pins') ?? '').match(/\d+/g)?.map(Number) ?? [];
    const {width, height} = this.description;
    this.pins = Array.from({length: Math.min(8, Math.floor(pins.length / 2))}, (unused, i) => [Math.min(width - 1, pins[2 * i]), Math.min(height - 1, pins[2 * i + 1])]);
    const place = text.get('place');
    if (/^[\d.]+(,-?[\d.]+(e-\d+)?){2}$/.test(place) && parseFloat(place) > 0) this.place = place;
    const held = Number(text.get('held') ?? NaN);
    this.held = this.description.frames.includes(held) ? held : null;
    const against = text.get('wipe');
    if (this.wipe) this.against = against === 'other' || (against === 'held' && this.held !== null) ? against : 'plate';
  }

  readSettings(text) {
    for (const side of ['a', 'b']) {
      const settings = {};
      // Masks stand among the settings as the text of their file, where the page can have any.
      const names = this.description.parameters.map(({name}) => name);
      for (const name of this.description.masks ? [...names, 'masks'] : names) {
        const value = text.get(side === 'a' ? name : `b.${name}`);
        if (value !== null && (value || name !== 'masks')) settings[name] = value;
      }
      this.sides[side] = settings;
      const centre = text.get(side === 'a' ? 'centre' : 'b.centre');
      this.centres[side] = /^-?[\d.]+(,-?[\d.]+){2}$/.test(centre) ? centre : null;
    }
  }
}
