// SPDX-License-Identifier: BSD-3-Clause
//
// Movies on the page without a server: each packet, its time and its kind are those that ffprobe
// tells, whatever the container; damaged files are refused in a line, soon and without much memory.
// Frames come exactly, in the command's colours; what is written is read by others.
//   SITE=folder ORVANITE_PROGRAM=program node --test movies.test.mjs
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {createHash} from 'node:crypto';
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import path from 'node:path';
import {after, test} from 'node:test';
import {pathToFileURL} from 'node:url';

const load = (name) => import(pathToFileURL(path.resolve(process.env.SITE, name)));
const [{Movie, isMovie}, {Reel}, {layoutOf, pictureOf, turned}, {Zip}, {decodePng}, {WebmFile}, {planesOf, alphaPlanes}, {sinkFor}] =
  await Promise.all(['movie.js', 'reel.js', 'planes.js', 'zip.js', 'png.js', 'webm.js', 'film.js', 'sink.js'].map(load));
const folder = mkdtempSync(path.join(tmpdir(), 'orvanite-movies-'));
after(() => rmSync(folder, {recursive: true}));
const file = (name) => path.join(folder, name);
const ffmpeg = (...words) => execFileSync('ffmpeg', ['-v', 'error', '-y', ...words], {maxBuffer: 2 ** 26, stdio: ['ignore', 'pipe', 'inherit']});
const blobOf = (name) => new Blob([readFileSync(file(name))]);

const picture = ['-f', 'lavfi', '-i', 'testsrc2=size=160x90:rate=24:duration=2'];
const sound = ['-f', 'lavfi', '-i', 'sine=duration=2'];
const h264 = ['-c:v', 'libx264', '-preset', 'fast', '-g', '20', '-bf', '3', '-pix_fmt', 'yuv420p'];
// Groups of frames that refer to the one before, edits in the middle of one, frames that are never shown.
const made = {
  'b.mp4': [...picture, ...sound, ...h264, '-c:a', 'aac'],
  'open.mov': [...picture, ...sound, ...h264, '-x264-params', 'open-gop=1', '-c:a', 'aac', '-movflags', '+faststart'],
  'edit.mp4': ['-ss', '0.7', '-i', file('b.mp4'), '-c', 'copy'],
  'turned.mp4': ['-i', file('b.mp4'), '-c', 'copy', '-metadata:s:v', 'rotate=90'],
  'fragments.mp4': ['-i', file('b.mp4'), '-c', 'copy', '-movflags', 'frag_keyframe+empty_moov'],
  'parts.mp4': ['-i', file('b.mp4'), '-c', 'copy', '-movflags', 'frag_every_frame+empty_moov+default_base_moof'],
  'hevc.mp4': [...picture, '-c:v', 'libx265', '-preset', 'ultrafast', '-x265-params', 'log-level=none', '-tag:v', 'hvc1'],
  'av1.mp4': ['-f', 'lavfi', '-i', 'testsrc2=size=160x90:rate=24:duration=0.4', '-c:v', 'libaom-av1', '-cpu-used', '8'],
  'av1.webm': ['-i', file('av1.mp4'), '-c', 'copy'],
  'b.mkv': ['-i', file('b.mp4'), '-c', 'copy'],
  'vp8.webm': [...picture, ...sound, '-c:v', 'libvpx', '-deadline', 'realtime', '-b:v', '200k', '-g', '20', '-c:a', 'libopus'],
  'hidden.webm': [...picture, '-c:v', 'libvpx', '-b:v', '100k', '-g', '40', '-auto-alt-ref', '1', '-lag-in-frames', '16'],
  'vp9.webm': [...picture, ...sound, '-c:v', 'libvpx-vp9', '-deadline', 'realtime', '-cpu-used', '8', '-g', '20', '-c:a', 'libopus'],
  'deep.webm': ['-f', 'lavfi', '-i', 'testsrc2=size=160x90:rate=24:duration=0.4', '-pix_fmt', 'yuv422p10le', '-c:v', 'libvpx-vp9', '-deadline', 'realtime', '-cpu-used', '8'],
  'live.webm': ['-i', file('vp9.webm'), '-c', 'copy', '-live', '1'],
  'alpha.webm': ['-f', 'lavfi', '-i', 'testsrc2=size=160x90:rate=24:duration=0.4', '-pix_fmt', 'yuva420p', '-c:v', 'libvpx-vp9', '-deadline', 'realtime', '-cpu-used', '8'],
  'uneven.mkv': ['-i', file('b.mp4'), '-an', '-c:v', 'copy', '-bsf:v', "setts=pts='PTS+if(gt(N,20),6000,0)':dts='DTS+if(gt(N,20),6000,0)'"],
};
for (const name of ['hidden.webm']) ffmpeg(...made[name], '-pass', '1', '-passlogfile', file('pass'), '-f', 'null', '-');
for (const [name, words] of Object.entries(made)) ffmpeg(...words, ...(name === 'hidden.webm' ? ['-pass', '2', '-passlogfile', file('pass')] : []), file(name));

/** ffprobe's packets of the picture: {time, key, dropped, hash}. */
function packetsOf(name) {
  const said = execFileSync('ffprobe', ['-v', 'error', '-select_streams', 'v', '-show_packets', '-show_data_hash', 'md5', '-of', 'json', file(name)], {maxBuffer: 2 ** 26});
  return JSON.parse(said).packets.map(({pts_time: time, flags, data_hash: hash}) => ({time: Number(time), key: flags.includes('K'), dropped: flags.includes('D'), hash}));
}
const framesOf = (name) => Number(execFileSync('ffprobe', ['-v', 'error', '-select_streams', 'v', '-count_frames', '-show_entries', 'stream=nb_read_frames', '-of', 'default=nk=1:nw=1', file(name)]).toString().trim().split('\n')[0]);

const codecs = {
  'b.mp4': /^avc1\.64000[A-F]$/, 'open.mov': /^avc1/, 'hevc.mp4': /^hvc1\.1\.6\.L\d+\.90$/, 'av1.mp4': /^av01\.0\.00M\.08$/, 'av1.webm': /^av01\.0\.00M\.08$/,
  'vp8.webm': /^vp8$/, 'vp9.webm': /^vp09\.00\.41\.08$/, 'deep.webm': /^vp09\.03\.41\.10$/, 'b.mkv': /^avc1\.64000[A-F]$/,
};

test('packets, times and key frames are those that ffprobe tells', async () => {
  for (const name of Object.keys(made)) {
    const bytes = new Uint8Array(readFileSync(file(name)));
    assert.ok(isMovie(bytes.subarray(0, 64)), name);
    const movie = await Movie.of(blobOf(name));
    const expected = packetsOf(name);
    assert.equal(movie.packets, expected.length, name);
    assert.equal(movie.frames.length, framesOf(name), name);
    assert.match(movie.codec, codecs[name] ?? /./, name);
    const shown = expected.filter(({dropped}) => !dropped);
    const start = Math.min(...shown.map(({time}) => time));
    for (const [i, one] of expected.entries()) {
      const packet = await movie.packet(i);
      assert.equal(`MD5:${createHash('md5').update(packet).digest('hex')}`, one.hash, `${name}: packet ${i}`);
      assert.equal(Boolean(movie.samples.key[i]), one.key, `${name}: packet ${i}`);
      assert.ok(Math.abs(movie.samples.time[i] - movie.times[0] - (one.time - start)) < 1e-5, `${name}: packet ${i} at ${movie.samples.time[i]}, not ${one.time}`);
      if (name !== 'hidden.webm') assert.equal(movie.places[i] >= 0, !one.dropped, `${name}: packet ${i}`);
    }
    // Frames stand in the order of their times, and each is reached from a key frame before it.
    assert.deepEqual(movie.times, [...movie.times].sort((a, b) => a - b), name);
    movie.frames.forEach((packet, i) => {
      const key = movie.keyFor(i);
      assert.ok(expected[key].key && key <= packet && expected[key].time <= expected[packet].time, `${name}: frame ${i}`);
    });
    assert.ok(Math.abs(movie.rate - (name === 'uneven.mkv' ? movie.rate : 24)) < 0.05, `${name}: ${movie.rate} a second`);
    assert.deepEqual([movie.even, movie.cut, movie.leavesAlpha, movie.turn],
      [name !== 'uneven.mkv', false, name === 'alpha.webm', name === 'turned.mp4' ? 3 : 0], name);
  }
});

test('colours are those that ffprobe tells', async () => {
  const names = {bt709: 'bt709', smpte170m: 'smpte170m', bt470bg: 'bt470bg', bt2020nc: 'bt2020-ncl'};
  for (const [name, ...words] of [
    ['a.mp4', 'libx264', 'yuv420p'], ['b.mp4', 'libx264', 'yuvj420p'], ['c.mkv', 'libx264', 'yuv422p10le', '-colorspace', 'bt2020nc', '-color_trc', 'bt709'],
    ['d.mkv', 'libx264', 'yuv420p', '-profile:v', 'baseline', '-color_primaries', 'bt709', '-colorspace', 'smpte170m'],
    ['e.mp4', 'libx264', 'yuv444p', '-x264-params', 'cqm=jvt', '-colorspace', 'bt470bg'], ['f.webm', 'libvpx-vp9', 'yuv420p', '-colorspace', 'bt709', '-deadline', 'realtime'],
    ['g.mp4', 'libvpx-vp9', 'yuv420p', '-colorspace', 'bt709', '-deadline', 'realtime'], ['h.webm', 'libvpx', 'yuv420p', '-colorspace', 'bt470bg', '-deadline', 'realtime']]) {
    const [codec, form, ...rest] = words;
    ffmpeg('-f', 'lavfi', '-i', 'testsrc2=size=160x90:duration=0.04', '-c:v', codec, '-pix_fmt', form, ...rest, file(name));
    const {streams: [said]} = JSON.parse(execFileSync('ffprobe', ['-v', 'error', '-show_streams', '-of', 'json', file(name)]));
    const {colour} = await Movie.of(blobOf(name));
    assert.deepEqual(colour, {matrix: names[said.color_space], fullRange: said.color_range === 'pc'}, name);
  }
});

test('what is not read is refused by its name', async () => {
  const one = (...words) => ffmpeg('-f', 'lavfi', '-i', 'testsrc2=size=64x64:rate=24:duration=0.2', ...words);
  one('-c:v', 'prores_ks', file('prores.mov'));
  one('-c:v', 'ffv1', file('ffv1.mkv'));
  one('-c:v', 'libx264', '-encryption_scheme', 'cenc-aes-ctr', '-encryption_key', '0'.repeat(32), '-encryption_kid', '0'.repeat(32), file('secret.mp4'));
  ffmpeg('-f', 'lavfi', '-i', 'sine=duration=0.2', file('sound.mp4'));
  for (const [name, what] of [['prores.mov', /codec apch: orvanite/], ['ffv1.mkv', /codec V_(FFV1|MS.VFW.FOURCC): orvanite/], ['secret.mp4', /encryption/], ['sound.mp4', /no video/]]) {
    await assert.rejects(Movie.of(blobOf(name)), what, name);
  }
});

test('a file that is cut off gives its whole frames', async () => {
  for (const name of ['open.mov', 'parts.mp4', 'vp9.webm', 'live.webm', 'b.mkv']) {
    const bytes = readFileSync(file(name));
    const movie = await Movie.of(new Blob([bytes.subarray(0, Math.floor(bytes.length * 0.6))]));
    assert.ok(movie.cut && movie.packets > 10 && movie.packets < 40, `${name}: ${movie.packets}`);
    const last = await movie.packet(movie.packets - 1);
    assert.equal(last.length, movie.samples.size[movie.packets - 1]);
  }
  for (const name of ['b.mp4', 'vp9.webm']) {
    await assert.rejects(Movie.of(new Blob([readFileSync(file(name)).subarray(0, 300)])), /the file (ends before its movie|is damaged)|no video/, name);
  }
});

test('changed bytes end in a line or in frames within the file', async () => {
  let seed = 5;
  const random = (most) => { seed = (seed * 1664525 + 1013904223) >>> 0; return Math.floor(seed / 2 ** 32 * most); };
  const most = process.memoryUsage().heapUsed + 2 ** 28;
  let refused = 0;
  for (const name of ['edit.mp4', 'open.mov', 'parts.mp4', 'vp8.webm', 'live.webm', 'b.mkv']) {
    const original = readFileSync(file(name));
    // Where the tables stand: at the end, at the start; what stands between frames.
    const tables = name === 'edit.mp4' ? original.indexOf('moov') : 0;
    const span = name === 'edit.mp4' ? original.length - tables : name === 'open.mov' ? original.indexOf('mdat') : name === 'parts.mp4' ? 2000 : 600;
    for (let round = 0; round < 120; ++round) {
      const bytes = Buffer.from(original);
      for (let i = 0; i <= random(4); ++i) bytes[tables + random(span)] = [0, 1, 127, 128, 255, random(256)][random(6)];
      try {
        const movie = await Movie.of(new Blob([bytes]));
        for (const [i, packet] of movie.frames.entries()) {
          const {at, size} = movie.samples;
          assert.ok(at[packet] + size[packet] <= bytes.length);
          assert.ok(movie.keyFor(i) <= packet);
        }
      } catch (error) {
        assert.ok(error.constructor === Error || error instanceof RangeError, `${name}, ${round}: ${error.stack}`);
        ++refused;
      }
      assert.ok(process.memoryUsage().heapUsed < most, `${name}, ${round}`);
    }
  }
  assert.ok(refused > 70 && refused < 670, `${refused} of 720`);
});

/**
 * A decoder that knows the movie's packets: it breaks where one is missing before another, and gives frames
 * in the order in which they are shown, three late. Each is grey of its number.
 */
function decoderOf(movie, packets, faults = {}) {
  const counts = {open: 0, decoded: 0};
  class Decoder {
    static async isConfigSupported(config) { return {supported: config.codec === movie.codec}; }
    constructor(tell) { Object.assign(this, {tell, state: 'unconfigured', decodeQueueSize: 0, held: [], before: -1}); }
    configure() { this.state = 'configured'; }
    close() { this.state = 'closed'; }
    decode({type, data, timestamp}) {
      const packet = packets.findIndex((one) => Buffer.compare(one, data) === 0);
      if (type === 'key' ? !movie.samples.key[packet] : packet !== this.before + 1) throw new Error(`packet ${packet} after ${this.before}`);
      this.before = packet;
      ++this.decodeQueueSize;
      ++counts.decoded;
      setTimeout(() => {
        if (this.state === 'closed') return;
        --this.decodeQueueSize;
        if (faults.breaksAt === packet) { this.state = 'closed'; this.tell.error(new Error('bad codes')); return; }
        if (faults.losesAt !== packet && movie.places[packet] >= 0) this.held.push(timestamp);
        this.held.sort((a, b) => a - b);
        while (this.held.length > 3) this.give();
        this.ondequeue?.();
      }, 0);
    }
    give() {
      ++counts.open;
      const timestamp = this.held.shift();
      this.tell.output({
        timestamp, format: 'I444', visibleRect: {width: 4, height: 2}, colorSpace: {matrix: 'bt709', fullRange: true}, allocationSize: () => 24,
        copyTo: async (to) => { to.fill(128).fill(timestamp / 1000, 0, 8); return [0, 8, 16].map((offset) => ({offset, stride: 4})); },
        close: () => { --counts.open; },
      });
    }
    async flush() {
      while (this.decodeQueueSize > 0) await new Promise((done) => setTimeout(done));
      while (this.held.length > 0) this.give();
    }
  }
  return {Decoder, counts};
}
class Chunk { constructor(all) { Object.assign(this, all); } }

test('any frame comes from the key frame before it, and is let go', async () => {
  for (const name of ['open.mov', 'edit.mp4', 'hidden.webm', 'live.webm']) {
    const movie = await Movie.of(blobOf(name));
    const packets = await Promise.all(Array.from({length: movie.packets}, (_, i) => movie.packet(i)));
    const {Decoder, counts} = decoderOf(movie, packets);
    const reel = await Reel.of(movie, Decoder, Chunk);
    reel.mostKept = 5 * 32;  // five pictures
    const last = movie.frames.length - 1;
    for (const i of [0, 1, 2, 21, 22, 20, 19, 18, last, 0, 5, last - 1, last, ...Array.from({length: last + 1}, (_, k) => k)]) {
      const {pixels} = await reel.picture(i);
      assert.equal(pixels[0], i, `${name}: frame ${i}`);
      assert.ok(reel.kept.size <= 5, `${name}: ${reel.kept.size} are kept`);
    }
    // Played through, each packet is decoded once.
    const before = counts.decoded;
    for (let i = 0; i <= last; ++i) assert.equal((await reel.picture(i)).pixels[0], i);
    assert.equal(counts.decoded - before, movie.packets, name);
    reel.close();
    assert.equal(counts.open, 0, name);

    // Of two that are asked for at once both come; a turned picture is turned.
    const two = await Promise.all([reel.picture(30), reel.picture(2)]);
    assert.deepEqual(two.map(({pixels}) => pixels[0]), [30, 2]);
    reel.close();

    for (const [faults, why] of [[{breaksAt: movie.frames[5]}, /frame 6 cannot be decoded: bad codes/], [{losesAt: movie.frames[5]}, /frame 6 cannot be decoded: it does not come out/]]) {
      const broken = decoderOf(movie, packets, faults);
      const other = await Reel.of(movie, broken.Decoder, Chunk);
      await assert.rejects(other.picture(5), why, name);
      assert.equal((await other.picture(25)).pixels[0], 25, 'the rest is there');
      other.close();
      assert.equal(broken.counts.open, 0, name);
    }
  }
  const movie = await Movie.of(blobOf('b.mp4'));
  await assert.rejects(Reel.of(movie, null), /decodes no movies/);
  await assert.rejects(Reel.of(movie, class { static async isConfigSupported() { return {supported: false}; } }), /does not decode avc1/);
});

test('planes become the colours that the command makes of them', async () => {
  // A key's picture: soft edges between strong colours, grain. Of odd sizes FFmpeg stretches chroma by half a sample.
  const drawn = 'gradients=size=162x90:c0=0x20a040:c1=0xd08060:c2=0x2030a0:nb_colors=3:seed=4:duration=0.04,format=gbrp,noise=alls=12:all_seed=3';
  for (const [form, format, words, matrix, fullRange] of [
    ['yuv420p', 'I420', [], 'smpte170m'], ['yuv420p', 'I420', ['-colorspace', 'bt709'], 'bt709'], ['yuv420p', 'I420', ['-color_range', 'pc'], 'smpte170m', true],
    ['nv12', 'NV12', [], 'smpte170m'], ['yuv422p', 'I422', ['-colorspace', 'bt2020nc'], 'bt2020-ncl'], ['yuv444p', 'I444', [], 'smpte170m'],
    ['yuva420p', 'I420A', [], 'smpte170m'], ['yuv420p10le', 'I420P10', [], 'smpte170m'], ['yuv422p12le', 'I422P12', [], 'smpte170m'], ['yuv444p10le', 'I444P10', [], 'smpte170m']]) {
    const what = `${form} ${words}`;
    const inFile = form === 'nv12' ? 'yuv420p' : form;
    ffmpeg('-f', 'lavfi', '-i', drawn, '-pix_fmt', inFile, '-c:v', 'ffv1', ...words, file('one.mkv'));
    rmSync(file('one.0001.png'), {force: true});
    execFileSync(process.env.ORVANITE_PROGRAM, ['key', '--no-key', file('one.mkv'), '--frames', '1', '-o', file('one.####.png')], {stdio: 'ignore'});
    const expected = await decodePng(new Uint8Array(readFileSync(file('one.0001.png'))));
    const {width, height} = expected;
    const raw = Uint8Array.from(ffmpeg('-i', file('one.mkv'), '-frames:v', '1', '-f', 'rawvideo', '-pix_fmt', form, '-'));
    const layout = layoutOf(format);
    const samples = layout.bytes === 2 ? new Uint16Array(raw.buffer) : raw;
    const [w, h] = [Math.ceil(width / layout.across), Math.ceil(height / layout.down)];
    const places = format === 'NV12' ? [[0, width], [width * height, 2 * w]]
      : [[0, width], [width * height, w], [width * height + w * h, w], [width * height + 2 * w * h, width]];
    const found = pictureOf(layout, width, height, samples, places.map(([offset, stride]) => ({offset, stride})), {matrix, fullRange});
    assert.deepEqual([found.width, found.height, found.depth, found.hasAlpha], [162, 90, expected.depth, form === 'yuva420p'], what);
    let most = 0;
    let sum = 0;
    found.pixels.forEach((code, i) => {
      const off = Math.abs(code - expected.pixels[i]) / (found.depth === 2 ? 257 : 1);
      most = Math.max(most, off);
      sum += off;
    });
    assert.ok(most <= (format.startsWith('I444') ? 0.01 : 1), `${what}: ${most} of 255 apart`);
    assert.ok(sum / found.pixels.length < 0.005, `${what}: ${sum / found.pixels.length} on average`);
  }
  assert.equal(layoutOf('I410'), null);
});

test('a picture is turned by quarters as FFmpeg turns it', async () => {
  for (const [quarters, filter] of [[0, 'null'], [1, 'transpose=1'], [2, 'hflip,vflip'], [3, 'transpose=2']]) {
    const raw = (...words) => Uint8Array.from(ffmpeg('-f', 'lavfi', '-i', 'testsrc2=size=6x4:duration=0.04', ...words, '-f', 'rawvideo', '-pix_fmt', 'rgba', '-'));
    const found = turned({width: 6, height: 4, depth: 1, hasAlpha: false, pixels: raw()}, quarters);
    assert.deepEqual(found.pixels, raw('-vf', filter));
    assert.deepEqual([found.width, found.height], quarters % 2 ? [4, 6] : [6, 4]);
  }
});

test('a ZIP is whole for others, and refused beyond its limits', async () => {
  const parts = [];
  const zip = new Zip(async (bytes) => { parts.push(bytes.slice()); });
  const files = {'key.0001.png': Uint8Array.from({length: 3000}, (_, i) => i * i), 'key.0002.png': new Uint8Array(0), 'gr\u00fcn.0003.png': new Uint8Array(70000).fill(7)};
  for (const [name, bytes] of Object.entries(files)) await zip.add(name, bytes);
  await zip.end();
  writeFileSync(file('frames.zip'), Buffer.concat(parts));
  execFileSync('python3', ['-c', `
import sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as one:
    assert one.testzip() is None
    one.extractall(sys.argv[2])
    assert len(one.namelist()) == 3`, file('frames.zip'), file('out')], {stdio: 'inherit'});
  for (const [name, bytes] of Object.entries(files)) assert.deepEqual(new Uint8Array(readFileSync(file(`out/${name}`))), bytes);
  // 4 GiB, in pieces that need no memory: only their lengths count.
  const large = new Zip(async () => {});
  const piece = new Uint8Array(2 ** 16);
  await large.add('first', piece);
  large.at = 2 ** 32 - 2 ** 16 - 100;
  await assert.rejects(large.add('second', piece), /4 GiB/);
  large.at = 0;
  large.entries = Array.from({length: 65535}, () => ({name: new Uint8Array(1)}));
  await assert.rejects(large.add('last', new Uint8Array(0)), /65535 files/);
});

test('a WebM file has its frames, alpha and times for others', async () => {
  // Colours and alpha encoded apart, two groups of each; times are uneven.
  const encode = (name, filter) => ffmpeg('-f', 'lavfi', '-i', `testsrc2=size=98x50:rate=25:duration=0.48,${filter},format=yuv420p`, '-c:v', 'libvpx-vp9', '-deadline', 'realtime', '-cpu-used', '8', '-g', '7', '-lag-in-frames', '0', '-auto-alt-ref', '0', file(name));
  encode('colours.webm', 'hue=s=1');
  encode('matte.webm', 'hue=s=0,negate');
  const [colours, matte] = await Promise.all(['colours.webm', 'matte.webm'].map((name) => Movie.of(blobOf(name))));
  const times = Array.from({length: 12}, (_, i) => i * 0.04 + (i > 6 ? 40 : 0));  // a cluster cannot span so long
  for (const alpha of [true, false]) {
    const sink = await sinkFor('key.webm');
    const webm = new WebmFile(sink, {width: 98, height: 50, alpha, seconds: 40.48, matrix: 6});
    await webm.begin();
    for (let i = 0; i < 12; ++i) {
      await webm.add({time: times[i], length: 0.04, key: i % 7 === 0, colours: await colours.packet(i), alpha: alpha ? await matte.packet(i) : undefined});
    }
    await webm.end();
    writeFileSync(file('made.webm'), Buffer.from(await (await sink.close()).arrayBuffer()));
    const said = JSON.parse(execFileSync('ffprobe', ['-v', 'warning', '-show_packets', '-show_streams', '-show_format', '-of', 'json', file('made.webm')], {stdio: ['ignore', 'pipe', 'inherit']}));
    assert.deepEqual(said.packets.map(({pts_time: time}) => Number(time)), times.map((time) => Math.round(1000 * time) / 1000));
    assert.deepEqual(said.packets.map(({flags}) => flags.includes('K')), times.map((_, i) => i % 7 === 0));
    assert.equal(Number(said.format.duration), 40.48);
    assert.deepEqual([said.streams.length, said.streams[0].codec_name, said.streams[0].width, said.streams[0].height, said.streams[0].tags.alpha_mode], [1, 'vp9', 98, 50, alpha ? '1' : undefined]);
    const decoded = (name, form, ...words) => ffmpeg('-c:v', 'libvpx-vp9', '-i', file(name), '-fps_mode', 'passthrough', ...words, '-f', 'rawvideo', '-pix_fmt', form, '-');
    assert.deepEqual(decoded('made.webm', 'yuv420p'), decoded('colours.webm', 'yuv420p'));
    if (alpha) assert.deepEqual(decoded('made.webm', 'gray', '-vf', 'alphaextract'), decoded('matte.webm', 'gray', '-vf', 'extractplanes=y'));
    // One can go to the second group at once: the list of key frames is found.
    const sought = JSON.parse(execFileSync('ffprobe', ['-v', 'warning', '-read_intervals', '40.4%+#1', '-show_packets', '-of', 'json', file('made.webm')]));
    assert.equal(Number(sought.packets[0].pts_time), Math.round(1000 * times[7]) / 1000);
    const again = await Movie.of(blobOf('made.webm'));
    assert.deepEqual([again.packets, again.leavesAlpha, again.colour.matrix], [12, alpha, 'smpte170m']);
  }
});

test('pictures become the planes that FFmpeg makes of them', () => {
  const drawn = ['-f', 'lavfi', '-i', 'gradients=size=98x50:c0=0x20a040:c1=0xd08060:c2=0x2030a0:nb_colors=3:seed=4:duration=0.04,format=gbrap,geq=r=r(X\\,Y):g=g(X\\,Y):b=b(X\\,Y):a=2*X+Y', '-frames:v', '1'];
  for (const [matrix, name] of [['smpte170m', 'bt601'], ['bt709', 'bt709']]) {
    for (const depth of [1, 2]) {
      const raw = Uint8Array.from(ffmpeg(...drawn, '-f', 'rawvideo', '-pix_fmt', 'rgba', '-'));
      const picture = {width: 98, height: 50, depth, pixels: depth === 2 ? Uint16Array.from(raw, (code) => code * 257) : raw};
      const expected = Uint8Array.from(ffmpeg(...drawn, '-vf', `scale=out_color_matrix=${name}:out_range=tv:flags=accurate_rnd+full_chroma_inp:out_h_chr_pos=0:out_v_chr_pos=128`, '-f', 'rawvideo', '-pix_fmt', 'yuva420p', '-'));
      const planes = planesOf(picture, matrix);
      assert.equal(planes.length, 98 * 50 * 1.5);
      planes.forEach((code, i) => assert.ok(Math.abs(code - expected[i]) <= 2, `${matrix}, ${depth}: ${i} is ${code}, not ${expected[i]}`));
      assert.deepEqual(alphaPlanes(picture).subarray(0, 98 * 50), expected.subarray(98 * 50 * 1.5));
    }
  }
});
