// SPDX-License-Identifier: BSD-3-Clause
//
// One slider from "keeps more" to "keys more", around what Auto chose: it moves the three gains
// together. The screen's own colour stays keyed out whatever they are, so they move soft edges and
// the subject's holes; a screen range would move both ends of the matte at once, a balance colours.
// What leaves the page are the gains alone.

const gains = ['shadowGain', 'midtoneGain', 'highlightGain'];

// Beyond it the screen comes back or the subject goes. On the generator's plate the matte's mean over
// what is screen rose from 0.04 to 0.05 at -0.2 and to 0.22 at -0.4; over what is solid it fell from 0.97
// to 0.90 at 0.2 and to 0.83 at 0.4.
const reach = 0.2;

const short = (value) => String(Number(value.toFixed(4)));
const plain = (text) => text !== undefined && text !== null && Number.isFinite(Number(text));

/** The middle of the slider where these settings were chosen: a text, none where no gain is given. */
export const centreOf = (settings) => gains.some((name) => plain(settings[name]))
  ? gains.map((name) => plain(settings[name]) ? settings[name] : '0').join(',') : null;

export class Nudge {
  /** The panel makes the slider in `row`, between the two words there, and explains it. */
  constructor(row, panel, state) {
    Object.assign(this, {state, panel});
    this.slider = panel.slider({softLow: -reach, softHigh: reach}, (value) => this.move(value), {id: 'nudge'});
    this.slider.setAttribute('aria-label', 'Keep more or key more');
    this.slider.setAttribute('list', 'nudgeMiddle');
    this.slider.addEventListener('dblclick', () => { this.move(0); state.commit(); });
    const middle = document.createElement('datalist');
    middle.id = 'nudgeMiddle';
    middle.append(new Option('', 0));
    row.children[0].after(this.slider, middle);
    panel.listenToHeldKeys(row);
    const words = 'Keep more or key more: adds to shadow, midtone and highlight gain together. In the middle they are what Auto chose. A double click brings them back.';
    for (const on of ['pointerenter', 'focusin']) row.addEventListener(on, () => panel.say(words));
    for (const type of ['settings', 'shown']) state.addEventListener(type, () => this.refresh());
    this.refresh();
  }

  get centre() { return (this.state.centre ?? '0,0,0').split(',').map(Number); }
  get now() { return gains.map((name) => Number(this.state.text(name))); }
  get place() {
    const {centre, now} = this;
    return now.reduce((sum, value, i) => sum + value - centre[i], 0) / now.length;
  }

  // Between the ends no gain passes its own bounds: the three keep their differences.
  move(to) {
    const {centre, place, now} = this;
    const within = Math.max(-1 - Math.min(...centre), Math.min(1 - Math.max(...centre), to));
    this.state.change(Object.fromEntries(gains.map((name, i) =>
      [name, short(Math.max(-1, Math.min(1, now[i] + within - place)))])));
  }

  refresh() {
    const {place} = this;
    this.slider.value = place;
    this.slider.setAttribute('aria-valuetext', Math.abs(place) < 5e-5 ? 'as chosen'
      : `${short(Math.abs(place))} ${place < 0 ? 'kept' : 'keyed'} more`);
  }
}
