// SPDX-License-Identifier: BSD-3-Clause
//
// Fragments of MP4 (ISO/IEC 14496-12, 8.8), as recorders and streams write them: tables of a few frames
// before these, all over the file.
import {damaged} from './window.js';

const mostHead = 2 ** 24;    // bytes of one fragment's tables
const mostFrames = 2 ** 21;
const mostBoxes = 2 ** 20;

/** What frames of a track are unless a fragment says otherwise: {length, size, flags}; null without fragments. */
export function usualIn(view, {mvex}, track, boxesIn) {
  if (!mvex) return null;
  for (const {from} of boxesIn(view, mvex.from, mvex.to, 'trex').trex) {
    if (view.getUint32(from + 4) === track) return {length: view.getUint32(from + 12), size: view.getUint32(from + 16), flags: view.getUint32(from + 20)};
  }
  return {length: 0, size: 0, flags: 0};
}

// The optional numbers of a box, one after another, as its flags say.
const reader = (view, box, at) => {
  const flags = view.getUint32(box.from) & 0xffffff;
  return {flags, at, next(flag, usual, bytes = 4) {
    if (!(flags & flag)) return usual;
    const value = bytes === 8 ? Number(view.getBigUint64(this.at)) : view.getUint32(this.at);
    this.at += bytes;
    return value;
  }};
};

function takeTrack(view, traf, start, track, usual, state, boxesIn, most) {
  const {tfhd, tfdt, trun} = boxesIn(view, traf.from, traf.to, 'trun');
  if (!tfhd) damaged();
  if (view.getUint32(tfhd.from + 4) !== track) return;
  const head = reader(view, tfhd, tfhd.from + 8);
  const base = head.next(1, start, 8);
  head.next(2);
  const [length, size, flags] = [head.next(8, usual.length), head.next(16, usual.size), head.next(32, usual.flags)];
  if (tfdt) state.time = view.getUint8(tfdt.from) === 1 ? Number(view.getBigUint64(tfdt.from + 4)) : view.getUint32(tfdt.from + 4);
  let at = base;
  const {samples} = state;
  for (const run of trun) {
    const count = view.getUint32(run.from + 4);
    const row = reader(view, run, run.from + 8);
    const offset = row.next(1);
    if (offset !== undefined) at = base + (offset | 0);
    let first = row.next(4);
    if (samples.at.length + count > mostFrames) throw new Error('more frames than a page can hold');
    if (samples.at.length + count > most) damaged();
    for (let i = 0; i < count; ++i) {
      const lasts = row.next(0x100, length);
      const bytes = row.next(0x200, size);
      const own = row.next(0x400, first ?? flags);
      first = undefined;
      const after = row.next(0x800, 0);
      if (row.at > run.to) damaged();
      samples.at.push(at);
      samples.size.push(bytes);
      samples.key.push(own & 0x10000 ? 0 : 1);
      samples.time.push(state.time + (after | 0));
      at += bytes;
      state.time += lasts;
    }
  }
}

/** The frames of a track in the fragments from a place on: {at, size, key, time}, times in the track's units. */
export async function fragmentsOf(bytes, from, track, usual, boxAt, boxesIn) {
  const state = {time: 0, samples: {at: [], size: [], key: [], time: []}};
  for (let at = from, count = 0; at + 8 <= bytes.size; ++count) {
    if (count > mostBoxes) damaged();
    await bytes.reach(at, 16);
    const box = boxAt(bytes.view, at - bytes.from, bytes.size - bytes.from);
    const [start, end] = [box.from + bytes.from, box.to + bytes.from];
    if (box.name === 'moof') {
      if (end - start > mostHead) damaged();
      if (end > bytes.size) break;  // cut off within it
      const view = new DataView((await bytes.read(start, end - start)).buffer);
      for (const traf of boxesIn(view, 0, view.byteLength, 'traf').traf) takeTrack(view, traf, at, track, usual, state, boxesIn, bytes.size);
    }
    at = end;
  }
  return state.samples;
}
