// SPDX-License-Identifier: BSD-3-Clause
//
// Says over the picture what the page waits for, and lets one stop it.

export class Busy {
  constructor({element, words, stop}) {
    Object.assign(this, {element, words, button: stop});
    this.going = [];
    stop.addEventListener('click', () => this.stop());
    addEventListener('keydown', (event) => { if (event.key === 'Escape') this.stop(); });
  }

  /**
   * Begins a wait; the function returned ends it.
   *
   * after  milliseconds before it is said: what is quicker need not flicker
   * stop   gives it up; without one there is no button
   */
  begin(what, {after = 0, stop = null} = {}) {
    const one = {what, stop, said: after === 0};
    const timer = setTimeout(() => { one.said = true; this.refresh(); }, after);
    this.going.push(one);
    this.refresh();
    return () => {
      clearTimeout(timer);
      this.going = this.going.filter((other) => other !== one);
      this.refresh();
    };
  }

  stop() { this.current()?.stop?.(); }

  // The one that can be stopped goes first.
  current() {
    const said = this.going.filter((one) => one.said);
    return said.find((one) => one.stop) ?? said.at(-1);
  }

  refresh() {
    const one = this.current();
    this.element.hidden = !one;
    this.button.hidden = !one?.stop;
    if (one && this.words.textContent !== one.what) this.words.textContent = one.what;
  }
}
