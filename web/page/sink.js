// SPDX-License-Identifier: BSD-3-Clause
//
// Where a long render goes: into a file that one chooses, as it is made, or where the browser has no such
// way into a Blob, whose parts it may put on its disk.

const gatheredBytes = 2 ** 24;  // parts that are put into the browser's hands
const kinds = {zip: 'application/zip', webm: 'video/webm'};

/**
 * {write(bytes), patch(at, bytes), close(), abort(), chosen}; close promises the Blob, or null of a file.
 * Asks for the file where it can: in answer to a click. Throws what the browser throws where nobody chose.
 */
export async function sinkFor(name) {
  const ending = name.slice(name.lastIndexOf('.') + 1);
  if (globalThis.showSaveFilePicker) {
    const file = await showSaveFilePicker({suggestedName: name, types: [{accept: {[kinds[ending]]: [`.${ending}`]}}]});
    const stream = await file.createWritable();
    return {
      chosen: file.name, write: (bytes) => stream.write(bytes), patch: (position, data) => stream.write({type: 'write', position, data}),
      close: async () => { await stream.close(); return null; }, abort: () => stream.abort().catch(() => {}),
    };
  }
  let blob = new Blob([], {type: kinds[ending]});
  let parts = [];
  let held = 0;
  const gather = () => {
    blob = new Blob([blob, ...parts], {type: kinds[ending]});
    [parts, held] = [[], 0];
  };
  return {
    chosen: null,
    async write(bytes) {
      parts.push(bytes);
      held += bytes.length;
      if (held > gatheredBytes) gather();
    },
    async patch(at, bytes) {
      gather();
      blob = new Blob([blob.slice(0, at), bytes, blob.slice(at + bytes.length)], {type: kinds[ending]});
    },
    close: async () => { gather(); return blob; },
    abort: async () => { [blob, parts] = [null, []]; },
  };
}
