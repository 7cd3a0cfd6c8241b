// SPDX-License-Identifier: BSD-3-Clause
//
// Values that move, as the whole program writes them: "linear(time, 1@0.02, 24@0.08)", or
// "smooth(...)"; of three channels each its own, or one for all. What lies between two keys is
// known here at once: an answer of the server's may be of the frame before.

const whole = /^\s*(linear|smooth)\s*\(\s*t(?:ime)?\s*,(.*)\)\s*$/s;

export const moves = (text) => text?.includes('@') ?? false;

const parts = (text) => text.match(/[^,(]+(\([^)]*\))?/g);

function channelOf(part) {
  const [, shape, keys] = part.match(whole) ?? [];
  if (!shape) return {value: Number(part)};
  return {shape, keys: keys.split(',').map((key) => key.split('@').map(Number))};
}

function channelsOf(text, count) {
  const channels = parts(text).map(channelOf);
  return Array.from({length: count}, (unused, i) => channels[i] ?? {...channels[0]});
}

function textOf(channels) {
  const texts = channels.map(({value, shape, keys}) => keys
    ? `${shape}(time, ${keys.map((key) => key.join('@')).join(', ')})` : String(value));
  return texts.every((one) => one === texts[0]) ? texts[0] : texts.join(',');
}

/** The frames at which a value that moves has keys, ascending. */
export const framesOf = (text) => [...new Set(channelsOf(text, 3).flatMap(({keys}) => keys?.map(([frame]) => frame) ?? []))].sort((a, b) => a - b);

/** With keys of these values at a frame. */
export function withKey(text, frame, values) {
  const shape = text.match(/smooth/) ? 'smooth' : 'linear';
  return textOf(channelsOf(text, values.length).map((channel, i) => ({
    shape: channel.shape ?? shape,
    keys: [...(channel.keys ?? []).filter(([at]) => at !== frame), [frame, values[i]]].sort((a, b) => a[0] - b[0]),
  })));
}

/** Without keys at a frame; what has none left stands still at these values. */
export function withoutKey(text, frame, values) {
  return textOf(channelsOf(text, values.length).map((channel, i) => {
    const keys = channel.keys?.filter(([at]) => at !== frame);
    return keys?.length > 0 ? {shape: channel.shape, keys} : {value: channel.keys ? values[i] : channel.value};
  }));
}

/** Straight where it was smooth, and the other way round. */
export const reshaped = (text) => text.includes('smooth') ? text.replaceAll('smooth', 'linear') : text.replaceAll('linear', 'smooth');

/** Whether each channel that moves has a key at a frame. */
export const isKeyed = (text, frame, count) => channelsOf(text, count).every(({keys}) => !keys || keys.some(([at]) => at === frame));

// Of a smooth curve at a key, in values a frame.
const slopeAt = (keys, i) => i === 0 || i + 1 === keys.length ? 0
  : (keys[i + 1][1] - keys[i - 1][1]) / (keys[i + 1][0] - keys[i - 1][0]);

// As the engine's curves go: a straight line, or Hermite's cubic in powers of s.
function valueAt({value, shape, keys}, frame) {
  if (!keys) return value;
  const i = keys.findLastIndex(([at]) => at <= frame);
  if (i < 0) return keys[0][1];
  if (i + 1 === keys.length) return keys[i][1];
  const [[from, start], [to, end]] = [keys[i], keys[i + 1]];
  const [length, rise] = [to - from, end - start];
  const s = (frame - from) / length;
  if (shape === 'linear') return start + rise * s;
  const [leave, arrive] = [slopeAt(keys, i) * length, slopeAt(keys, i + 1) * length];
  return start + s * (leave + s * (3 * rise - 2 * leave - arrive + s * (leave + arrive - 2 * rise)));
}

/** A parameter's values at a frame as a text that stands still; between keys a smooth curve may leave its range. */
export const textAt = (text, frame, {values, low, high}) => textOf(channelsOf(text, values).map((channel) =>
  ({value: Number(Math.min(high, Math.max(low, valueAt(channel, frame))).toFixed(4))})));
