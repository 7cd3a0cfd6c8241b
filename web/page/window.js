// SPDX-License-Identifier: BSD-3-Clause
//
// A file's bytes a window at a time: containers of movies are looked through by what stands between
// their frames, and most of a file is not read for that.

export const damaged = () => { throw new Error('the file is damaged'); };

const windowBytes = 2 ** 15;

export class FileWindow {
  /** file: a Blob */
  constructor(file) {
    this.file = file;
    this.from = 0;
    this.bytes = new Uint8Array(0);
    this.view = new DataView(this.bytes.buffer);
  }

  get size() { return this.file.size; }

  /** Whether `length` bytes from a place on, or all up to the file's end, are in the window. */
  holds(at, length) {
    return at >= this.from && Math.min(at + length, this.size) <= this.from + this.bytes.length;
  }

  /** Brings them there. Few enough for the window. */
  async reach(at, length) {
    if (this.holds(at, length)) return;
    this.bytes = await this.read(at, windowBytes);
    this.view = new DataView(this.bytes.buffer);
    this.from = at;
  }

  /** A copy of what the file has from a place on, at most `length` bytes. */
  async read(at, length) {
    return new Uint8Array(await this.file.slice(at, at + length).arrayBuffer());
  }
}
