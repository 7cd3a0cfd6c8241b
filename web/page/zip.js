// SPDX-License-Identifier: BSD-3-Clause
//
// A ZIP of files as they are, without packing, written one after another: within the limits of its
// first form, 65535 files and 4 GiB.
import {checksum} from './png.js';

export const mostFiles = 65535;
const mostBytes = 2 ** 32 - 1;

export class Zip {
  /** write(bytes)  promises to take them on */
  constructor(write) {
    this.write = write;
    this.at = 0;
    this.entries = [];
  }

  async put(bytes) {
    await this.write(bytes);
    this.at += bytes.length;
  }

  /** What both headers of a file say of it. */
  static record(bytes) {
    const view = new DataView(new ArrayBuffer(26));
    [20, 1 << 11, 0, 0, 33].forEach((word, i) => view.setUint16(2 * i, word, true));  // names are UTF-8; stored; 1980-01-01
    [bytes.checksum, bytes.length, bytes.length].forEach((word, i) => view.setUint32(10 + 4 * i, word, true));
    view.setUint16(22, bytes.name.length, true);
    return new Uint8Array(view.buffer);
  }

  /** Adds a file. Throws an Error where there is no more room. */
  async add(text, bytes) {
    const name = new TextEncoder().encode(text);
    const directory = this.entries.reduce((sum, entry) => sum + 46 + entry.name.length, 0) + 46 + name.length + 22;
    if (this.entries.length >= mostFiles || this.at + 30 + name.length + bytes.length + directory > mostBytes) {
      throw new Error('more than a ZIP file holds: 65535 files, 4 GiB; render it in parts');
    }
    const entry = {name, length: bytes.length, checksum: checksum(bytes), at: this.at};
    this.entries.push(entry);
    await this.put(joined([0x50, 0x4b, 3, 4], Zip.record(entry), name));
    await this.put(bytes);
  }

  /** Writes the list of files: the end. */
  async end() {
    const from = this.at;
    for (const entry of this.entries) {
      const rest = new DataView(new ArrayBuffer(14));  // no comment, one disk, a plain file
      rest.setUint32(10, entry.at, true);
      await this.put(joined([0x50, 0x4b, 1, 2, 20, 0], Zip.record(entry), new Uint8Array(rest.buffer), entry.name));
    }
    const view = new DataView(new ArrayBuffer(22));
    view.setUint32(0, 0x06054b50, true);
    view.setUint16(8, this.entries.length, true);
    view.setUint16(10, this.entries.length, true);
    view.setUint32(12, this.at - from, true);
    view.setUint32(16, from, true);
    await this.put(new Uint8Array(view.buffer));
  }
}

/** Bytes one after another. */
export function joined(...parts) {
  const bytes = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
  parts.reduce((at, part) => { bytes.set(part, at); return at + part.length; }, 0);
  return bytes;
}
