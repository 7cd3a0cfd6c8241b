// SPDX-License-Identifier: BSD-3-Clause
//
// What stands for one of the page's pictures: a still, a movie, or stills that are numbered alike. Each
// gives its frames one at a time.
import {decode} from './decode.js';
import {isMovie} from './movie.js';
import {smallOf} from './planes.js';
import {callsOf} from './workers.js';

const usualRate = 24;

/**
 * One of these: {name, numbers, rate, times, isShot, kind, said, picture(i), ready(i), small(i, width, height), close()}
 *
 * numbers  of the frames; times  when they are shown, in seconds
 * said     what is to be told of it
 * ready    a frame will be asked for soon
 */
export async function clipOf(files) {
  const list = Array.isArray(files) ? files : [files];
  if (list.length > 1) return sequence(list);
  const [file] = list;
  const head = new Uint8Array(await file.slice(0, 64).arrayBuffer());
  return isMovie(head) ? movie(file) : still(file);
}

function still(file) {
  let picture;
  return {name: file.name, numbers: [1], rate: usualRate, times: [0], isShot: false, kind: 'picture', said: [], picture: () => (picture ??= decode(file))};
}

async function movie(file) {
  const worker = new Worker('reelworker.js', {type: 'module'});
  const ask = callsOf(worker, 'Movies cannot be read in this browser.');
  const about = (promise) => promise.catch((error) => { throw Object.assign(error, {message: `${file.name}: ${error.message}`}); });
  try {
    const {count, times, rate, even, cut, leavesAlpha} = await about(ask('open', file));
    const said = [
      [cut, `${file.name} is cut off: its ${count} whole frames are here.`],
      [!even, `Frames of ${file.name} come at varying times: the command numbers them at a constant rate, here each has its own.`],
      [leavesAlpha, `The alpha of ${file.name} is left out.`],
    ];
    return {
      name: file.name, numbers: Array.from({length: count}, (_, i) => i + 1), rate, times, isShot: true, kind: 'movie',
      said: said.filter(([is]) => is).map(([, words]) => words),
      picture: (i) => about(ask('picture', i)), ready: (i) => { ask('ready', i).catch(() => {}); }, small: (...how) => ask('small', ...how), close: () => worker.terminate(),
    };
  } catch (error) {
    worker.terminate();
    throw error;
  }
}

/** One name for numbered files, such as plate.####.png, and their numbers. */
export function patternOf(names) {
  const parts = names.map((name) => name.match(/^(.*\D|)(\d+)(\.\w+)$/));
  const [first] = parts;
  if (parts.some((part) => !part || part[1] !== first[1] || part[2].length !== first[2].length || part[3] !== first[3])) {
    throw new Error('expected one file, or frames that are numbered alike, such as plate.0001.png');
  }
  return {name: first[1] + '#'.repeat(first[2].length) + first[3], numbers: parts.map((part) => Number(part[2]))};
}

function sequence(files) {
  const sorted = [...files].sort((a, b) => (a.name < b.name ? -1 : 1));
  const {name, numbers} = patternOf(sorted.map((file) => file.name));
  const picture = (i) => decode(sorted[i]);
  return {
    name, numbers, rate: usualRate, times: numbers.map((number) => (number - numbers[0]) / usualRate), isShot: true, kind: 'picture', said: [], picture,
    small: async (i, ...most) => smallOf(await picture(i), ...most),
  };
}
