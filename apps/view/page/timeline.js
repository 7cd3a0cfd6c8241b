// SPDX-License-Identifier: BSD-3-Clause
//
// The frames of a shot: a slider, and play at the shot's own rate or as fast as the key allows.

export class Timeline {
  constructor(state, description, {bar, play, slider, number}) {
    Object.assign(this, {state, description, play, slider, number});
    this.frames = description.frames;  // their numbers, which need not follow one another
    bar.hidden = this.frames.length < 2;
    slider.min = 0;
    slider.max = this.frames.length - 1;
    slider.addEventListener('input', () => this.go(this.frames[slider.value], true));
    slider.addEventListener('change', () => state.show({frame: this.frames[slider.value]}));
    play.addEventListener('click', () => this.toggle());
    state.addEventListener('shown', () => this.refresh());
    this.refresh();
  }

  go(frame, moving) {
    this.state.frame = frame;
    this.state.tell('shown', {moving: moving ? 'frame' : false});
  }

  toggle() {
    if (this.frames.length < 2) return;
    if (this.stop) { this.stop(); return; }
    const {framesPerSecond} = this.description;
    let shown = true;
    // The next frame is asked for when the last one stands, and not before its time.
    const seen = (event) => { if (event.detail.slot === 0) shown = true; };
    addEventListener('orvanite-shown', seen);
    const clock = setInterval(() => {
      if (!shown) return;
      shown = false;
      this.go(this.frames[(this.frames.indexOf(this.state.frame) + 1) % this.frames.length], true);
    }, 1000 / framesPerSecond);
    this.stop = () => {
      clearInterval(clock);
      removeEventListener('orvanite-shown', seen);
      this.stop = null;
      this.state.show({frame: this.state.frame});
      this.refresh();
    };
    this.refresh();
  }

  refresh() {
    this.slider.value = this.frames.indexOf(this.state.frame);
    this.slider.setAttribute('aria-valuetext', this.state.frame);
    this.number.textContent = this.state.frame;
    this.play.setAttribute('aria-pressed', String(Boolean(this.stop)));
    this.play.textContent = this.stop ? 'Stop' : 'Play';
  }
}
