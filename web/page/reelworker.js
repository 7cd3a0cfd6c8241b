// SPDX-License-Identifier: BSD-3-Clause
//
// A movie in a worker of its own: opened, its frames, and small ones, which have a decoder to themselves
// so that they hold nobody up.
import {Movie} from './movie.js';
import {smallOf} from './planes.js';
import {Reel} from './reel.js';
import {answerBy} from './workers.js';

let reel;
let side;

answerBy({
  async open(file) {
    const movie = await Movie.of(file);
    reel = await Reel.of(movie);
    side = await Reel.of(movie);
    side.mostKept = 0;
    return {count: movie.frames.length, times: movie.times, rate: movie.rate, even: movie.even, cut: movie.cut, leavesAlpha: movie.leavesAlpha, turn: movie.turn};
  },
  picture: (i) => reel.picture(i),
  async ready(i) { await reel.picture(i); },
  small: async (i, width, height) => smallOf(await side.picture(i), width, height),
});
