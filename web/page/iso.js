// SPDX-License-Identifier: BSD-3-Clause
//
// MP4 and QuickTime (ISO/IEC 14496-12): where the frames of the first video track are, by its
// tables or those of fragments. One edit at the full rate is taken, and turned pictures are;
// encryption and more edits are refused.
import {coloursOf, matrixNames, ofAv1, ofAvc, ofHevc} from './codecs.js';
import {fragmentsOf, usualIn} from './fragments.js';
import {damaged} from './window.js';

const mostTables = 2 ** 27;  // bytes
const mostFrames = 2 ** 21;
const mostBoxes = 2 ** 16;   // beside one another
const refuse = (what) => { throw new Error(`a movie with ${what}: orvanite reads it`); };
const nameAt = (view, at) => String.fromCharCode(...Array.from({length: 4}, (_, i) => view.getUint8(at + i)));

/** Whether these bytes begin as such a file does. */
export const isIso = (bytes) => bytes.length >= 8
  && ['ftyp', 'moov', 'mdat', 'wide', 'free', 'skip'].includes(nameAt(new DataView(bytes.buffer, bytes.byteOffset), 4));

function boxAt(view, at, end) {
  let [size, head] = [view.getUint32(at), 8];
  if (size === 1) [size, head] = [Number(view.getBigUint64(at + 8)), 16];
  if (size === 0) size = end - at;
  if (size < head) damaged();
  return {name: nameAt(view, at + 4), from: at + head, to: at + size};
}

/** The boxes between two places, the first of each name; several of `many` as a list. */
function boxesIn(view, from, to, many = '') {
  const found = {[many]: []};
  for (let at = from, count = 0; at + 8 <= to; ++count) {
    const box = boxAt(view, at, to);
    if (box.to > to || count > mostBoxes) damaged();
    if (box.name === many) found[many].push(box); else found[box.name] ??= box;
    at = box.to;
  }
  return found;
}

async function tablesOf(bytes) {
  let count = 0;
  for (let at = 0; at + 8 <= bytes.size;) {
    await bytes.reach(at, 16);
    const box = boxAt(bytes.view, at - bytes.from, bytes.size - bytes.from);
    const [from, to] = [box.from + bytes.from, box.to + bytes.from];
    if (box.name === 'moov') {
      if (to > bytes.size) throw new Error('the file ends before its movie');
      if (to - from > mostTables) throw new Error('more frames than a page can hold');
      return {view: new DataView((await bytes.read(from, to - from)).buffer), end: to};
    }
    at = to;
    if (++count > mostBoxes) damaged();
  }
  throw new Error('the file ends before its movie');
}

/** Rows of a table: `count` stands after version and flags, or where it is said. */
function rowsOf(view, box, bytes, countAt = 4) {
  if (!box) return {count: 0};
  const count = view.getUint32(box.from + countAt);
  const start = box.from + countAt + 4;
  if (start + count * bytes > box.to) damaged();
  return {count, at: (i, word = 0) => view.getUint32(start + i * bytes + 4 * word), start};
}

// Times of the frames in the order of decoding, and when each is shown.
function timesOf(view, {stts, ctts}, count) {
  const shown = new Float64Array(count);
  const fill = (rows, add) => {
    for (let row = 0, i = 0; row < rows.count && i < count; ++row) {
      for (let left = rows.at(row); left > 0 && i < count; --left, ++i) add(i, rows.at(row, 1));
    }
  };
  let time = 0;
  let timed = 0;
  fill(rowsOf(view, stts, 8), (i, step) => { shown[i] = time; time += step; timed = i + 1; });
  if (timed < count) damaged();
  fill(rowsOf(view, ctts, 8), (i, offset) => { shown[i] += offset | 0; });
  return {shown, end: time};
}

// Where frames lie: chunks of them follow one another.
function placesOf(view, stbl, sizes) {
  const {stsc, stco, co64} = stbl;
  const chunks = rowsOf(view, stco ?? co64, stco ? 4 : 8);
  const offset = stco ? (i) => chunks.at(i) : (i) => Number(view.getBigUint64(chunks.start + 8 * i));
  const runs = rowsOf(view, stsc, 12);
  const places = new Float64Array(sizes.length);
  let i = 0;
  for (let run = 0; run < runs.count && i < sizes.length; ++run) {
    const [first, each, entry] = [0, 1, 2].map((word) => runs.at(run, word));
    const next = run + 1 < runs.count ? runs.at(run + 1) : chunks.count + 1;
    if (first < 1 || next <= first || next > chunks.count + 1) damaged();
    if (entry !== 1) refuse('several codecs');
    for (let chunk = first; chunk < next && i < sizes.length; ++chunk) {
      for (let at = offset(chunk - 1), k = 0; k < each && i < sizes.length; ++k, ++i) {
        places[i] = at;
        at += sizes[i];
      }
    }
  }
  if (i < sizes.length) damaged();
  return places;
}

function sizesOf(view, {stsz, stz2}, bytes) {
  if (!stsz) { if (stz2) refuse('a compact table of sizes'); damaged(); }
  const [one, count] = [view.getUint32(stsz.from + 4), view.getUint32(stsz.from + 8)];
  if (count > mostFrames) throw new Error('more frames than a page can hold');
  if (count > bytes.size) damaged();  // a frame has a byte at the least
  if (one > 0) return new Uint32Array(count).fill(one);
  const rows = rowsOf(view, stsz, 4, 8);
  return Uint32Array.from({length: count}, (_, i) => rows.at(i));
}

// Which times of the track are shown, in its own units.
function editOf(view, edts, movieScale, scale) {
  const elst = edts && boxesIn(view, edts.from, edts.to).elst;
  const all = {from: -Infinity, to: Infinity};
  if (!elst) return all;
  const long = view.getUint8(elst.from) === 1;
  const rows = rowsOf(view, elst, long ? 20 : 12);
  const edits = [];
  for (let i = 0; i < rows.count && edits.length < 2; ++i) {
    const at = rows.start + i * (long ? 20 : 12);
    const duration = long ? Number(view.getBigUint64(at)) : view.getUint32(at);
    const start = long ? Number(view.getBigInt64(at + 8)) : view.getInt32(at + 4);
    if (start < 0) continue;  // nothing is shown for a while
    if (view.getInt32(at + (long ? 16 : 8)) !== 65536) refuse('edits at another rate');
    edits.push({from: start, to: duration > 0 ? start + duration / movieScale * scale : Infinity});
  }
  if (edits.length > 1) refuse('several edits');
  return edits[0] ?? all;
}

// Quarter turns clockwise that show a picture upright.
function turnOf(view, tkhd) {
  const at = tkhd.from + (view.getUint8(tkhd.from) === 1 ? 52 : 40);
  const [a, b, c, d] = [0, 4, 12, 16].map((i) => Math.sign(view.getInt32(at + i)));
  const turn = ['1,0,0,1', '0,1,-1,0', '-1,0,0,-1', '0,-1,1,0'].indexOf([a, b, c, d].join());
  if (turn < 0) refuse('a mirrored picture');
  return turn;
}

function codecOf(view, {from, to}) {
  const entry = boxesIn(view, from + 8, to);
  const [name] = Object.keys(entry).filter((one) => one !== '');
  const box = entry[name];
  if (!box) damaged();
  if (name === 'encv') refuse('encryption');
  const inner = boxesIn(view, box.from + 78, box.to);
  const record = (one) => one ? new Uint8Array(view.buffer.slice(one.from, one.to)) : damaged();
  const made = {
    avc1: () => [ofAvc(record(inner.avcC)), record(inner.avcC)],
    hvc1: () => [ofHevc(record(inner.hvcC)), record(inner.hvcC)],
    vp09: () => {
      const bytes = record(inner.vpcC);
      return [`vp09.${[bytes[4], bytes[5], bytes[6] >> 4].map((one) => String(one).padStart(2, '0')).join('.')}`];
    },
    vp08: () => ['vp8'],
    av01: () => [ofAv1(record(inner.av1C))],
  }[{avc3: 'avc1', hev1: 'hvc1'}[name] ?? name];
  if (!made) refuse(`the codec ${/^[\w .-]{4}$/.test(name) ? name.trim() : 'of an odd name'}`);
  const [codec, description] = made();
  if (!codec) damaged();
  if (inner.fiel && view.getUint8(inner.fiel.from) === 2) refuse('fields');
  // nclx, or nclc of QuickTime, which says no range.
  const {colr} = inner;
  const tagged = colr && nameAt(view, colr.from).startsWith('ncl');
  const colour = tagged ? {matrix: matrixNames[view.getUint16(colr.from + 8)], fullRange: colr.to - colr.from > 10 && view.getUint8(colr.from + 10) > 127}
    : inner.vpcC ? {matrix: matrixNames[view.getUint8(inner.vpcC.from + 9)], fullRange: view.getUint8(inner.vpcC.from + 6) % 2 === 1} : {};
  return {codec, description, height: view.getUint16(box.from + 26), colour: coloursOf(inner.avcC && description, colour)};
}

// By the tables of the whole track: {at, size, key, time, end}, times in its units.
function samplesOf(view, tables, bytes) {
  const size = sizesOf(view, tables, bytes);
  const {shown: time, end} = timesOf(view, tables, size.length);
  const sync = rowsOf(view, tables.stss, 4);
  const key = new Uint8Array(size.length).fill(tables.stss ? 0 : 1);
  for (let i = 0; i < sync.count; ++i) key[sync.at(i) - 1] = 1;
  return {at: placesOf(view, tables, size), size, key, time, end};
}

/** What a decoder needs of the file: {codec, description, height, colour, turn, rate, samples}, samples as Movie has them. */
export async function readIso(bytes) {
  const {view, end: rest} = await tablesOf(bytes);
  const movie = boxesIn(view, 0, view.byteLength, 'trak');
  if (movie.cmov) refuse('compressed tables');
  const scaleOf = (box) => view.getUint32(box.from + (view.getUint8(box.from) === 1 ? 20 : 12)) || damaged();
  for (const {from, to} of movie.trak) {
    const {tkhd, edts, mdia} = boxesIn(view, from, to);
    const {mdhd, hdlr, minf} = mdia ? boxesIn(view, mdia.from, mdia.to) : {};
    if (!hdlr || nameAt(view, hdlr.from + 8) !== 'vide') continue;
    if (!tkhd || !mdhd || !minf || !movie.mvhd) damaged();
    const {stbl} = boxesIn(view, minf.from, minf.to);
    const tables = stbl ? boxesIn(view, stbl.from, stbl.to) : damaged();
    const track = view.getUint32(tkhd.from + (view.getUint8(tkhd.from) === 1 ? 20 : 12));
    const usual = usualIn(view, movie, track, boxesIn);
    if (!usual && sizesOf(view, tables, bytes).length === 0) continue;
    const codec = codecOf(view, tables.stsd ?? damaged());
    const scale = scaleOf(mdhd);
    const samples = usual
      ? await fragmentsOf(bytes, rest, track, usual, boxAt, boxesIn)
      : samplesOf(view, tables, bytes);
    const edit = editOf(view, edts, scaleOf(movie.mvhd), scale);
    return {
      ...codec, turn: turnOf(view, tkhd), rate: samples.end > 0 ? samples.at.length * scale / samples.end : 0,
      samples: {...samples, shown: Uint8Array.from(samples.time, (one) => (one >= edit.from && one < edit.to ? 1 : 0)),
        time: Float64Array.from(samples.time, (one) => one / scale)},
    };
  }
  throw new Error('there is no video in it');
}
