// SPDX-License-Identifier: BSD-3-Clause
//
// Drawn masks as the page's state holds them: the text of their file. Each function gives new shapes
// and leaves the old ones alone. What is drawn of them comes from the server; here are only their
// numbers.

/** Whether a file's text holds masks, and is no preset. */
export const areMasks = (text) => /"orvanite"\s*:\s*"masks"/.test(text);

export const shapesOf = (text) => text ? JSON.parse(text).shapes : [];

/** Nothing where there are none: the state holds no masks then. */
export const textOf = (shapes) => shapes.length === 0 ? null : JSON.stringify({orvanite: 'masks', version: 1, shapes});

const mostTurn = 3600;  // degrees: what a file may hold

const rounded = (value) => Math.round(value * 100) / 100;
const between = (part) => (a, b) => rounded(a + (b - a) * part);

/** What a shape is made of at a frame: straight between its keys. */
export function keyAt({keys}, frame) {
  const after = keys.findIndex((key) => key.frame >= frame);
  const to = keys[after === -1 ? keys.length - 1 : after];
  if (after <= 0 || to.frame === frame) return {...to, frame};
  const from = keys[after - 1];
  const mix = between((frame - from.frame) / (to.frame - from.frame));
  return {
    frame,
    points: to.points.map((point, i) => point.map((value, c) => mix(from.points[i][c], value))),
    ...(to.radii && {radii: to.radii.map((value, i) => mix(from.radii[i], value))}),
    ...((from.turn || to.turn) && {turn: mix(from.turn ?? 0, to.turn ?? 0)}),
  };
}

const ordered = (keys) => [...keys].sort((a, b) => a.frame - b.frame);

/** Whether it has a key at the frame. */
export const keyedAt = ({keys}, frame) => keys.some((key) => key.frame === frame);

/** With a key at the frame, or without the one there; its last one stays. */
export function keyToggled(shape, frame) {
  const keys = shape.keys.filter((key) => key.frame !== frame);
  if (keys.length === shape.keys.length) return {...shape, keys: ordered([...keys, keyAt(shape, frame)])};
  return keys.length > 0 ? {...shape, keys} : shape;
}

/** With other numbers at the frame: a key there of what moves, everywhere of what does not. */
export function changed(shape, frame, change) {
  const now = keyAt(shape, frame);
  const next = {...now, ...change(now)};
  const key = {
    frame, points: next.points.map((point) => point.map(rounded)),
    ...(next.radii && {radii: next.radii.map((radius) => Math.max(0.5, rounded(radius)))}),
    ...(next.turn && {turn: Math.max(-mostTurn, Math.min(mostTurn, rounded(next.turn)))}),
  };
  if (shape.keys.length === 1) return {...shape, keys: [{...key, frame: shape.keys[0].frame}]};
  return {...shape, keys: ordered([...shape.keys.filter((one) => one.frame !== frame), key])};
}

/** The cosine and the sine of what an ellipse is turned by, clockwise. */
export const turnOf = ({turn = 0}) => [Math.cos(turn * Math.PI / 180), Math.sin(turn * Math.PI / 180)];

/** With one radius of an ellipse (0: across, 1: down) longer by as much as a step goes along it. */
export const stretched = (which, dx, dy) => (now) => {
  const [c, s] = turnOf(now);
  const by = which === 0 ? dx * c + dy * s : dy * c - dx * s;
  return {radii: now.radii.map((radius, i) => (i === which ? radius + by : radius))};
};

export const turnedBy = (degrees) => ({turn = 0}) => ({turn: turn + degrees});

/** Turned as a stick from its middle is whose end goes from one place to another. */
export const turnedFromTo = ([x, y], [u, v]) => (now) => {
  const [[a, b]] = now.points;
  const angle = (p, q) => Math.atan2(q - b, p - a) * 180 / Math.PI;
  const by = angle(u, v) - angle(x, y);
  return turnedBy(by - 360 * Math.round(by / 360))(now);
};

export const moved = (dx, dy) => ({points, radii}) => ({points: points.map(([x, y]) => [x + dx, y + dy]), radii});

/** A polygon with one corner more in the middle of the side after the corner i, in all keys. */
export const cornerAdded = (shape, i) => ({...shape, keys: shape.keys.map((key) => {
  const [a, b] = [key.points[i], key.points[(i + 1) % key.points.length]];
  return {...key, points: key.points.toSpliced(i + 1, 0, [rounded((a[0] + b[0]) / 2), rounded((a[1] + b[1]) / 2)])};
})});

/** Without the corner i; as it is where three are left. */
export const cornerRemoved = (shape, i) => shape.keys[0].points.length <= 3 ? shape
  : {...shape, keys: shape.keys.map((key) => ({...key, points: key.points.toSpliced(i, 1)}))};

/** The points of a way that say the same within half a pixel: those farthest from what is left. */
export function simplified(points, within = 0.5) {
  if (points.length < 3) return points;
  const [a, b] = [points[0], points.at(-1)];
  const length = Math.hypot(b[0] - a[0], b[1] - a[1]);
  const away = ([x, y]) => length > 0 ? Math.abs((x - a[0]) * (b[1] - a[1]) - (y - a[1]) * (b[0] - a[0])) / length : Math.hypot(x - a[0], y - a[1]);
  let far = 0;
  let most = within;
  for (let i = 1; i < points.length - 1; ++i) if (away(points[i]) > most) { most = away(points[i]); far = i; }
  if (far === 0) return [a, b];
  return [...simplified(points.slice(0, far + 1), within).slice(0, -1), ...simplified(points.slice(far), within)];
}

export const nameOf = ({use, kind}, i) => `${i + 1} ${use === 'holdOut' ? 'hold-out' : 'garbage'} ${kind}`;
