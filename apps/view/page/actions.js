// SPDX-License-Identifier: BSD-3-Clause
//
// What leaves the page: presets, command lines, script, renders.
import {ask, askBlob, askText} from './server.js';

const jobMilliseconds = 150;

function download(blob, name) {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(blob);
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

export class Actions {
  constructor(state, elements) {
    Object.assign(this, {state, ...elements});
    const stem = state.description.files.plate.replace(/\.[^.]*$/, '').replace(/\.?(#+|@+|%\d*d)$/, '') || 'plate';
    this.onClick(this.savePreset, async () => {
      const text = await askText('preset', {settings: state.settings});
      download(new Blob([text], {type: 'application/json'}), `${stem}-key.json`);
      this.tell(`Saved ${stem}-key.json.`);
    });
    const saveMasks = async (settings) => {
      const text = await askText('masks', {settings});
      download(new Blob([text], {type: 'application/json'}), `${stem}-masks.json`);
    };
    this.onClick(this.saveMasks, async () => {
      await saveMasks(state.settings);
      this.tell(`Saved ${stem}-masks.json.`);
    });
    this.onClick(this.copyCommand, async () => {
      if (!state.settings.masks) { await this.copy('command', 'Command copied.'); return; }
      const settings = {...state.settings};  // both of the click's, whatever is changed meanwhile
      const copied = await this.copy('command', `Command copied, and ${stem}-masks.json saved: start it where that file is.`, `${stem}-masks.json`);
      if (copied) await saveMasks(settings);
    });
    this.copyScript.hidden = state.description.script === false;
    this.onClick(this.copyScript, () => this.copy('script', 'Script copied.'));
    this.stem = `${stem}-key`;
    this.onClick(this.render, () => this.start(this.handed()));
    this.onClick(this.cancel, () => ask('cancel', {}));
    // Endings of files that renders are handed over in, where there is a choice.
    const forms = Object.entries(state.description.forms ?? {});
    this.form.replaceChildren(...forms.map(([ending, words]) => new Option(words, ending)));
    this.form.hidden = forms.length < 2;
    this.form.addEventListener('change', () => this.label());
    for (const type of ['settings', 'shown']) state.addEventListener(type, () => this.label());
    this.range.hidden = state.description.frames.length < 2;
    this.range.addEventListener('change', () => this.label());
    this.label();
    this.resume(this.handed());
  }

  /** The name of what is handed over: of one frame of a shot its file, where it need not be packed. */
  handed() {
    const {description: {ending = '.png', frameEnding}, frame} = this.state;
    const alone = this.range.value === 'one' && frameEnding && (this.form.value || ending) === ending;
    return this.stem + (alone ? `.${String(frame).padStart(4, '0')}${frameEnding}` : this.form.value || ending);
  }

  /** The first and the last frame to render; nothing: all. */
  frames() {
    const {description: {frames}, frame, from, to} = this.state;
    if (this.range.value === 'one') return {from: frame, to: frame};
    return this.range.value === 'marked' ? {from: from ?? frames[0], to: to ?? frames.at(-1)} : {};
  }

  /** The button says what it will write: view, file and alpha. */
  label() {
    const {description} = this.state;
    const output = description.parameters.find((one) => one.name === 'output');
    const choice = output?.choices.find((one) => one.text === this.state.text('output'));
    const [title, below] = this.render.children;
    title.textContent = `Render ${choice?.label ?? ''}`.trim();
    const alpha = choice?.alpha === undefined ? '' : choice.alpha ? ', matte in alpha' : ', no alpha';
    below.textContent = description.isShot && !description.output && !description.ending
      ? 'a shot wants -o with a pattern or a movie' : this.wordsOfFrames() + `${description.output || `${this.handed()} (download)`}${alpha}`;
  }

  wordsOfFrames() {
    const {from, to} = this.frames();
    return from === undefined ? '' : from === to ? `frame ${from}: ` : `frames ${from} to ${to}: `;
  }

  /** What was told of an earlier click goes with the next: it is not taken for this one's answer. */
  onClick(button, work) {
    button.addEventListener('click', async () => {
      this.tell('');
      try { await work(); } catch (error) { this.tell(error.message); }
    });
  }

  tell(text) { this.told.textContent = text; }

  // Of several that are asked for, the last one stands on the clipboard, whenever its answer comes. Whether this is it.
  async copy(what, done, name) {
    const asked = this.copying = {};
    const text = await askText(what, {settings: this.state.settings, name});
    if (this.copying !== asked) return false;
    try {
      await navigator.clipboard.writeText(text);
      this.tell(done);
    } catch {
      // Without the clipboard the text is at least there to be marked.
      this.tell(text);
    }
    return true;
  }

  async start(name) {
    if (this.starting) return;
    this.starting = true;
    try {
      await ask('job', {settings: this.state.settings, ...this.frames(), name});
    } finally {
      this.starting = false;
    }
    await this.follow(name);
  }

  // A render that was going on before the page was loaded again.
  async resume(name) {
    const job = await ask('job').catch(() => ({}));  // told of by the picture's own requests
    if (job.state !== 'running') return;
    try { await this.follow(name); } catch (error) { this.tell(error.message); }
  }

  async follow(name) {
    if (this.following) return;
    this.following = true;
    this.running(true);
    this.progress.removeAttribute('value');
    this.done.textContent = '';
    this.tell('Rendering.');
    try {
      for (;;) {
        const job = await ask('job');
        // Of a still nothing is known before it is done: the bar runs without an end.
        if (this.state.description.frames.length > 1) {
          this.progress.value = job.done;
          this.done.textContent = `${Math.round(100 * job.done)} %`;
        }
        if (job.state !== 'running') { await this.finish(job, name); return; }
        await new Promise((done) => setTimeout(done, jobMilliseconds));
      }
    } finally {
      this.following = false;
      this.running(false);
    }
  }

  async finish(job, name) {
    if (job.state === 'failed') this.tell(`The render failed: ${job.message}`);
    else if (job.state === 'cancelled') this.tell(`Cancelled: ${job.message}.`);
    else if (this.state.description.output || job.written) this.tell(`Written: ${job.message}`);
    else {
      download(await askBlob('result'), name);
      this.tell(`Downloaded as ${name}.`);
    }
  }

  // Whoever stands on one of both buttons stays in the place.
  running(on) {
    const [from, to] = on ? [this.render, this.cancel] : [this.cancel, this.render];
    const held = document.activeElement === from;
    if (on) this.bar.hidden = false;
    this.render.disabled = on;
    if (held) to.focus();
    this.bar.hidden = !on;
    this.told.hidden = on;
  }
}
