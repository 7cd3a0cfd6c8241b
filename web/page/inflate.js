// SPDX-License-Identifier: BSD-3-Clause
//
// The browser's own deflate (RFC 1950), both ways.

/** The bytes of `packed` unpacked: as many as there are, and never more than `most`. Throws an Error for damage. */
export async function inflated(packed, most) {
  const reader = new Blob([packed]).stream().pipeThrough(new DecompressionStream('deflate')).getReader();
  const bytes = new Uint8Array(most);
  let length = 0;
  while (length < most) {
    const {done, value} = await reader.read().catch(() => { throw new Error('the file is damaged'); });
    if (done) return bytes.subarray(0, length);
    const part = value.subarray(0, most - length);
    bytes.set(part, length);
    length += part.length;
  }
  reader.cancel().catch(() => {});
  return bytes;
}

/** The bytes packed. */
export const deflated = async (bytes) =>
  new Uint8Array(await new Response(new Blob([bytes]).stream().pipeThrough(new CompressionStream('deflate'))).arrayBuffer());
