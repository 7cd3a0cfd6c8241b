// SPDX-License-Identifier: BSD-3-Clause
//
// A plate of many frames: the engines hold one of them at a time, and what a request asks of a frame is
// answered when they hold it. Clips beside the plate go by its numbers and hold their ends.
import {Answers} from './answers.js';
import {encodingOf, Film} from './film.js';
import {sinkFor} from './sink.js';
import {Refusal} from './workers.js';
import {mostFiles, Zip} from './zip.js';

// Estimates of a shot are of its first frame and so many others, as the command makes them.
const otherFrames = 4;
const smallest = [160, 90];

export class Shot extends Answers {
  /** pictures  by role: {name, picture, clip, fit}: the clip's first frame, fitted as all others will be */
  constructor(engines, pictures, ...rest) {
    super(engines, pictures, ...rest);
    this.clip = pictures.plate.clip;
    this.last = Promise.resolve();
    this.frame = null;  // that the engines hold
    this.before = -1;   // the one that they held last, by its place
  }

  async open() {
    await super.open();
    const {width, height, depth} = this.plate;
    this.encoding = depth === 4 ? null : await encodingOf(width, height, this.clip.rate);
  }

  state(notices) {
    const {numbers, rate} = this.clip;
    const forms = {'.zip': `${this.ending === '.exr' ? 'OpenEXR' : 'PNG'} files in a ZIP`, ...(this.encoding && {'.webm': 'a WebM movie'})};
    return {...super.state(notices), frames: numbers, isShot: true, framesPerSecond: rate, ending: '.zip', frameEnding: this.ending, forms};
  }

  get written() { return `key.####${this.ending}`; }

  /** A frame of the plate, as small as a strip has them. */
  small(frame) { return this.clip.small(this.clip.numbers.indexOf(frame), ...smallest); }

  /** Does what is to be done at a frame, one after the other. */
  at(frame, work) {
    const done = this.last.then(async () => {
      await this.turn(frame);
      return work();
    });
    this.last = done.catch(() => {});
    return done;
  }

  async pictureOf(role, frame) {
    const {clip, fit} = this.pictures[role];
    const before = clip.numbers.findLastIndex((number) => number <= frame);
    return fit(await clip.picture(Math.max(0, before)));
  }

  async turn(frame) {
    if (this.frame === frame) return;
    if (!this.clip.numbers.includes(frame)) throw new Refusal(400, 'frame', `expected one of the shot's, found ${frame}`);
    this.frame = null;
    for (const [role, one] of Object.entries(this.pictures)) {
      if (!one.clip.isShot) continue;
      one.picture = this.placed(await this.pictureOf(role, frame), one.picture);
      await Promise.all(this.engines.map((engine) => engine('take', role, one.picture, ...(role === 'plate' ? [frame] : []))));
    }
    this.plate = this.pictures.plate.picture;
    const {numbers, ready} = this.clip;
    const at = numbers.indexOf(frame);
    if (at + 1 < numbers.length && at === this.before + 1) ready?.(at + 1);
    this.before = at;
    this.frame = frame;
  }

  /** What the first engine keys beside is made of several frames. */
  async estimate(settings) {
    const [engine] = this.engines;
    if (!await engine('ask', 'wantsEstimates', {settings})) return;
    const {numbers} = this.clip;
    const asked = this.frame;
    const frames = Array.from({length: otherFrames + 1}, (_, i) => numbers[Math.floor(i * (numbers.length - 1) / otherFrames)]);
    for (const [i, frame] of [...new Set(frames)].entries()) {
      await this.turn(frame);
      if (!await engine('ask', i === 0 ? 'estimate' : 'see', {settings})) break;
    }
    await this.turn(asked);
  }

  /** Begins to render frames into a file; the page asks how far it is. */
  async start({settings, from, to, name}) {
    const {numbers} = this.clip;
    const frames = numbers.filter((number) => number >= (from ?? numbers[0]) && number <= (to ?? numbers.at(-1)));
    const write = name.endsWith('.webm') ? this.writeFilm : name.endsWith('.zip') ? this.writeZip : this.writeOne;
    if (write === this.writeZip && frames.length > mostFiles) throw new Refusal(400, 'render', `a ZIP file holds ${mostFiles} frames: render it in parts`);
    const job = {state: 'running', done: 0, message: ''};
    let sink;
    try {
      sink = write === this.writeOne ? {chosen: null, abort() {}} : await sinkFor(name);
    } catch (error) {
      if (error.name !== 'AbortError') throw error;
      this.job = {...job, state: 'cancelled', message: 'no file was chosen'};
      return;
    }
    this.job = job;
    write.call(this, job, settings, frames, sink).then((blob) => {
      if (job.state === 'running') Object.assign(job, {state: 'done', done: 1, blob, message: sink.chosen ?? '', written: Boolean(sink.chosen)});
    }, (error) => {
      sink.abort();
      if (job.state === 'running') Object.assign(job, {state: 'failed', message: error.message});
    });
  }

  /** Does what is to be done with each frame when the engines hold it, while the job runs. */
  async *each(job, settings, frames, work) {
    for (const [i, frame] of frames.entries()) {
      const made = await this.at(frame, async () => {
        await this.estimate(settings);
        return work();
      });
      if (job.state !== 'running') throw new Error(job.message);
      yield [frame, made];
      job.done = (i + 1) / frames.length;
    }
  }

  async writeOne(job, settings, frames) {
    for await (const [, file] of this.each(job, settings, frames, () => this.render(settings))) return file;
    throw new Error('expected a frame');
  }

  async writeZip(job, settings, frames, sink) {
    const zip = new Zip(sink.write);
    for await (const [frame, file] of this.each(job, settings, frames, () => this.render(settings))) {
      await zip.add(this.written.replace(/#+/, (digits) => String(frame).padStart(digits.length, '0')), new Uint8Array(await file.arrayBuffer()));
    }
    await zip.end();
    return sink.close();
  }

  async writeFilm(job, settings, frames, sink) {
    const {numbers, times} = this.clip;
    let film;
    try {
      for await (const [, {picture, alpha}] of this.each(job, settings, frames, () => this.keyed(settings))) {
        film ??= new Film(sink, this.encoding, {times: frames.map((frame) => times[numbers.indexOf(frame)]), alpha});
        await film.add(picture);
      }
      await film.end();
    } finally {
      film?.close();
    }
    return sink.close();
  }

  async to(name, body) {
    if (name === 'job') {
      if (body) await this.start(body);
      const {state, done, message, written} = this.job;
      return {state, done, message, written};
    }
    if (!['picture', 'probe', 'colours', 'coverage', 'auto'].includes(name)) return super.to(name, body);
    return this.at(body.frame, async () => {
      if (name === 'picture' || name === 'probe') await this.estimate(body.settings);
      return super.to(name, body);
    });
  }
}
