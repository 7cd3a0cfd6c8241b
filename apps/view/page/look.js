// SPDX-License-Identifier: BSD-3-Clause
//
// How a picture is put on screen to judge it: one channel alone, a gain on the matte that shows what
// is nearly clear or nearly solid. The picture itself stays as it is.

export const plainLook = {channel: 'all', gain: 1};

/**
 * A picture as a look shows it, in bands from the top: those that it came in, unless the look changes
 * them. Gain below 0 opens up the bright end.
 */
export function bandsOf(picture, {channel, gain}) {
  const gained = picture.job.view === 'matte' && gain !== 1;
  if (channel === 'all' && !gained) return picture.bands ?? [picture.pixels];
  const {pixels} = picture;
  const codes = Uint8ClampedArray.from({length: 256}, (unused, code) =>
    !gained ? code : gain > 0 ? code * gain : 255 - (255 - code) * -gain);
  const only = {red: 0, green: 1, blue: 2}[channel];
  const made = new ImageData(pixels.width, pixels.height);
  for (let i = 0; i < pixels.data.length; i += 4) {
    for (let c = 0; c < 3; ++c) made.data[i + c] = codes[pixels.data[i + (only ?? c)]];
    made.data[i + 3] = 255;
  }
  return [made];
}

// How much of the plate the veil covers where all is keyed out.
const veil = 0.65;

/** Lays a red veil over what a matte cuts out of the plate: pixels of the same size. */
export function veiled(plate, matte) {
  const made = new ImageData(matte.width, matte.height);
  for (let i = 0; i < matte.data.length; i += 4) {
    const covered = veil * (1 - matte.data[i] / 255);
    made.data[i] = plate.data[i] + covered * (255 - plate.data[i]);
    made.data[i + 1] = plate.data[i + 1] * (1 - covered);
    made.data[i + 2] = plate.data[i + 2] * (1 - covered);
    made.data[i + 3] = 255;
  }
  return made;
}
