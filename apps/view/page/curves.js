// SPDX-License-Identifier: BSD-3-Clause
//
// Values that move, as the whole program writes them: "linear(time, 1@0.02, 24@0.08)", or
// "smooth(...)"; of three channels each its own, or one for all. What lies between two keys the
// server says.

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

/** The values of the keys at a frame as a text that stands still; null where one has none there. */
export function keyedText(text, frame, count) {
  const values = channelsOf(text, count).map(({keys, value}) => keys ? keys.find(([at]) => at === frame)?.[1] : value);
  return values.includes(undefined) ? null : textOf(values.map((value) => ({value})));
}
