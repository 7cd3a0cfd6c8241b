// SPDX-License-Identifier: BSD-3-Clause

/** What was refused, in the words of the C interface: one line that names the parameter or picture. */
export class OrvaniteError extends Error {
  /** 1: something that cannot be was asked for; 2: the pictures got in the way; 3: no memory. */
  readonly result: number;
}

export type Samples = Uint8Array | Uint8ClampedArray | Uint16Array | Float32Array;

/**
 * Rows from top to bottom without gaps, each pixel 3 or 4 interleaved samples (red, green, blue,
 * alpha), or 1 for a matte. 255, 65535 or 1.0 is white. `ImageData` of a canvas is one.
 */
export interface Picture<S extends Samples = Samples> {
  width: number;
  height: number;
  data: S;
}

/** A parameter as panels show it. */
export interface Parameter {
  name: string;
  label: string;
  group: string;
  help: string;
  unit: string;
  type: 'number' | 'triple' | 'colour' | 'choice' | 'toggle' | 'channel';
  /** How many numbers: 3, 1, or 0 for a channel. */
  values: number;
  /** What a slider spans. */
  softLow: number;
  softHigh: number;
  /** What is accepted. */
  low: number;
  high: number;
  defaults: [number, number, number];
  /** Until it is set, its default goes with the hue of "screen". */
  followsTheScreen: boolean;
  choices: { text: string; label: string; help: string }[];
}

export interface Screen {
  /** Its strongest channel. */
  primary: 'red' | 'green' | 'blue';
  /** The median of its pixels, in the plate's encoding. */
  colour: [number, number, number];
  /** Its share of the frame, 0 to 1. */
  coverage: number;
  /** Its darkest tenth over its brightest, 0 to 1. */
  evenness: number;
}

/** All have the plate's size and may have any depth. */
export interface Pictures<S extends Samples = Samples> {
  plate: Picture<S>;
  /** For the output "composite", which is over black without one. */
  background?: Picture;
  /** A matte that keeps. */
  holdOut?: Picture;
  /** A matte that cuts. */
  garbage?: Picture;
  /** The screen without the subject. */
  cleanPlate?: Picture;
}

/**
 * A value for every parameter, what was found, an engine. Each has a memory of its own. What is
 * refused is thrown as an OrvaniteError, and then nothing has changed.
 */
export class Keyer {
  private constructor();
  /** With default parameters. `module` is a compiled orvanite.wasm for who loads it otherwise. */
  static create(module?: WebAssembly.Module): Promise<Keyer>;

  /** The library's version. */
  readonly version: string;
  /** Every parameter, in the order in which a panel shows them. */
  readonly parameters: Parameter[];

  /** Sets a parameter: a number, three, a switch, or text such as "0.2,0.6,0.2" or "video". */
  set(name: string, value: number | [number, number, number] | boolean | string): this;
  /** The value in force, as text. */
  get(name: string): string;
  /** Whether it was given a value since it was last reset. */
  isGiven(name: string): boolean;
  /** Back to the default: one parameter, or all of them and what was found. */
  reset(name?: string): this;

  /** All values as a preset's text, which the command and every other front end read. */
  preset(): string;
  usePreset(text: string): this;

  /** Looks for a screen of any one colour; changes nothing. */
  findScreen(plate: Picture): Screen;
  /**
   * Finds the screen and sets what makes a key by it; the names of the parameters that it set. Set
   * "colourspace" first. "ifUseful" (the default) is what the command's --auto does: keys beside
   * estimates. "never": one colour for the whole screen. "given": a clean plate comes with each frame.
   */
  find(plate: Picture, cleanPlate?: 'never' | 'ifUseful' | 'given'): string[];
  /** Takes in another frame of the shot; whether the camera has stood still so far. */
  see(plate: Picture): boolean;

  /** Keys a frame: RGBA samples of the plate's kind. */
  key<S extends Samples>(pictures: Pictures<S>): Picture<S>;

  /** Gives its memory back. It cannot be used afterwards. */
  delete(): void;
}
