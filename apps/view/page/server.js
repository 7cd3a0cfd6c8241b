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

/**
 * A picture: its header's members and `pixels`, an ImageData without transparency.
 * The signal gives it up.
 */
export async function askPicture(body, signal) {
  const bytes = await (await send('picture', body, signal)).arrayBuffer();
  const length = new DataView(bytes).getUint32(0, true);
  const header = JSON.parse(new TextDecoder().decode(new Uint8Array(bytes, 4, length)));
  // Alpha is the matte; what is shown is the colour beside it, so the canvas gets it opaque.
  const words = new Uint32Array(bytes, 4 + length);
  for (let i = 0; i < words.length; ++i) words[i] |= 0xff000000;
  header.pixels = new ImageData(new Uint8ClampedArray(bytes, 4 + length), header.width, header.height);
  return header;
}
