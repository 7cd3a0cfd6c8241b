// SPDX-License-Identifier: BSD-3-Clause
//
// Talks to the page's server. Everything goes to addresses below the page's own, token included.

/** What the server says against a request; `subject` names the parameter or file. */
export class Refusal extends Error {
  constructor(status, subject, message) {
    super(message);
    this.status = status;
    this.subject = subject;
  }
}

async function send(name, body, signal) {
  const options = body === undefined ? {} : {
    signal,
    method: 'POST',
    headers: {'Content-Type': 'application/json'},
    body: JSON.stringify(body),
  };
  let response;
  try {
    response = await fetch(name, options);
  } catch (error) {
    if (signal?.aborted) throw error;
    // The server may have closed an idle connection in this very moment: once more decides.
    try {
      response = await fetch(name, options);
    } catch {
      if (signal?.aborted) throw error;
      throw new Refusal(0, 'server', 'The program behind this page has ended.');
    }
  }
  if (!response.ok) {
    let error = {subject: 'server', message: response.statusText};
    try {
      error = (await response.json()).error;
    } catch { /* an answer without words */ }
    throw new Refusal(response.status, error.subject, error.message);
  }
  return response;
}

/** The signal, where there is one, gives the question up. */
export const ask = async (name, body, signal) => (await send(name, body, signal)).json();
export const askText = async (name, body) => (await send(name, body)).text();
export const askBlob = async (name) => (await send(name)).blob();

async function pictureIn(response) {
  const bytes = await response.arrayBuffer();
  const length = new DataView(bytes).getUint32(0, true);
  const header = JSON.parse(new TextDecoder().decode(new Uint8Array(bytes, 4, length)));
  // Alpha is the matte; what is shown is the colour beside it, so the canvas gets it opaque.
  const words = new Uint32Array(bytes, 4 + length);
  for (let i = 0; i < words.length; ++i) words[i] |= 0xff000000;
  header.pixels = new ImageData(new Uint8ClampedArray(bytes, 4 + length), header.width, header.height);
  return header;
}

/**
 * A picture: its header's members and `pixels`, an ImageData without transparency.
 * The signal gives it up.
 */
export const askPicture = async (body, signal) => pictureIn(await send('picture', body, signal));

/** A frame of the plate as a small ImageData. */
export const askThumbnail = async (frame) => (await pictureIn(await send('thumbnail', {frame}))).pixels;

// Bytes of a file in one request: as base64 they stay below what the server takes.
const pieceBytes = 45000;

/** One name for files: their own, or the pattern of numbered frames. */
function nameOf(files) {
  if (files.length === 1) return files[0].name;
  const parts = files.map((file) => file.name.match(/^(.*\D|)(\d+)(\.\w+)$/));
  const [first] = parts;
  if (parts.some((part) => !part || part[1] !== first[1] || part[2].length !== first[2].length || part[3] !== first[3])) {
    throw new Refusal(400, 'files', 'expected one file, or frames that are numbered alike, such as plate.0001.png');
  }
  return first[1] + '#'.repeat(first[2].length) + first[3];
}

/**
 * Opens files in a role (none: what is there goes); resolves to {settings} that suit them.
 * told(part) hears how much is handed over; the signal stops it.
 */
export async function give(role, files, told, signal) {
  const set = Math.floor(Math.random() * 1e6);
  const all = files.reduce((sum, file) => sum + file.size, 0);
  const name = files.length > 0 ? nameOf(files) : '';
  let done = 0;
  for (const file of files) {
    for (let at = 0; at === 0 || at < file.size; at += pieceBytes) {
      const piece = new Uint8Array(await file.slice(at, at + pieceBytes).arrayBuffer());
      const body = {set, name: file.name, at, bytes: btoa(String.fromCharCode(...piece))};
      for (;;) {
        try {
          await ask('give', body, signal);
          break;
        } catch (error) {
          if (error.status !== 429) throw error;
          await new Promise((later) => setTimeout(later, 100));
        }
      }
      done += piece.length;
      told(done / Math.max(1, all));
    }
  }
  return ask('open', {role, set, name}, signal);
}

/** Shows what was opened: the page begins anew. */
export const reopen = () => location.reload();
