# SPDX-License-Identifier: BSD-3-Clause
"""Orvanite: takes the blue or green screen out of pictures that are numpy arrays.

    import orvanite
    keyed = orvanite.key(plate)                        # straight colour, and the matte in alpha
    comp = orvanite.key(plate, background)             # over a picture
    comp = orvanite.key(plate, background, auto=False, screen=(0.1, 0.7, 0.2), screen_range=0.1)

Pictures are arrays of (height, width, 3 or 4); mattes may be (height, width). Their dtype is uint8,
uint16, float16 or float32; 255, 65535 or 1.0 is white. Any strides will do; nothing is copied where
samples lie side by side as RGBA, or as planes of integers.
"""
from __future__ import annotations

import re as _re
from dataclasses import dataclass as _dataclass
from typing import Any, Optional, Sequence, Tuple, Union

import numpy as _numpy

from ._native import Failure, WrongUse
from ._native import Keyer as _Native
from ._native import table as _table
from ._native import version as __version__

__all__ = ["Choice", "Failure", "Keyer", "Parameter", "Screen", "WrongUse", "find_screen", "key",
           "parameters", "status"]

Value = Union[str, float, bool, Sequence[float]]


@_dataclass(frozen=True)
class Choice:
    """One of the texts that a choice may take."""
    text: str
    label: str
    help: str


@_dataclass(frozen=True)
class Parameter:
    """A parameter of the keyer, as panels show it."""
    name: str
    label: str
    group: str
    help: str
    unit: str
    type: str  # number, triple, colour, choice, toggle or channel
    low: float
    high: float
    default: Tuple[float, float, float]
    choices: Tuple[Choice, ...]


@_dataclass(frozen=True)
class Screen:
    """What is known of the screen in a plate."""
    primary: str  # "red", "green" or "blue": its strongest channel
    colour: Tuple[float, float, float]  # the median of its pixels, in the plate's encoding
    coverage: float  # its share of the frame, 0..1
    evenness: float  # its darkest tenth over its brightest, 0..1


_parameters = {
    row["name"]: Parameter(**{**row, "choices": tuple(Choice(*c) for c in row["choices"])})
    for row in _table()
}


def _snake(name: str) -> str:
    return _re.sub("([A-Z])", lambda letter: "_" + letter[1].lower(), name)


_names = {_snake(name): name for name in _parameters}


def parameters() -> Tuple[Parameter, ...]:
    """Every parameter, in the order in which panels show them."""
    return tuple(_parameters.values())


def _encoding(plate: Any) -> str:
    return "linear" if getattr(getattr(plate, "dtype", None), "kind", "") == "f" else "video"


class Keyer:
    """Values for every parameter, what was found in a plate, and an engine: for many frames.

    keyer = Keyer(colourspace="video", screen=(0.1, 0.7, 0.2))
    keyer["screenRange"] = 0.1          # or keyer.set(screen_range=0.1)
    for plate in plates:
        write(keyer.key(plate))

    Threads may share one; they wait for each other.
    """

    def __init__(self, preset: Optional[str] = None, **values: Value) -> None:
        """preset  a preset's text, as `preset` gives it and the command saves it"""
        self._native = _Native()
        if preset is not None:
            self._native.use_preset(preset)
        self.set(**values)

    def __setitem__(self, name: str, value: Value) -> None:
        name = _names.get(name, name)
        if isinstance(value, str):
            self._native.set_text(name, value)
        elif isinstance(value, (bool, _numpy.bool_)):
            self._native.set_text(name, "on" if value else "off")
        elif _numpy.ndim(value) == 0:
            self._native.set_numbers(name, [float(value)])  # type: ignore[arg-type]
        else:
            self._native.set_numbers(name, [float(v) for v in value])  # type: ignore[union-attr]

    def __getitem__(self, name: str) -> Value:
        name = _names.get(name, name)
        text = self._native.text(name)  # also says what there is not
        kind = _parameters[name].type
        if kind in ("choice", "channel"):
            return text
        if kind == "toggle":
            return text == "on"
        numbers = tuple(float(number) for number in text.split(","))
        if kind == "number":
            return numbers[0]
        return numbers if len(numbers) == 3 else numbers * 3

    def set(self, **values: Value) -> None:
        """Sets parameters: set(screen_range=0.1, output="matte")."""
        for name, value in values.items():
            self[name] = value

    def given(self, name: str) -> bool:
        """Whether a parameter was given a value since it was last reset."""
        return self._native.given(_names.get(name, name))

    def reset(self, name: Optional[str] = None) -> None:
        """Back to the default; all parameters, and what was found, without a name."""
        self._native.reset(None if name is None else _names.get(name, name))

    @property
    def preset(self) -> str:
        """All values as a preset's text."""
        return self._native.preset()

    def find(self, plate: _numpy.ndarray, clean_plate: Union[bool, str] = "if useful"
             ) -> Tuple[str, ...]:
        """Finds the screen and sets what makes a key by it; returns the names of what was set.

        clean_plate  "if useful": it is estimated, with a matte of what surely is screen and one of
                     what surely is subject, and kept for all frames, as the command's --auto does;
                     False: never; True: frames come with one of yours
        Parameters that were given stay. Without a colourspace, integers are taken for video and
        floats for linear light. Raises Failure when the plate shows no screen.
        """
        ways = {"if useful": 1, False: 0, True: 2}
        if clean_plate not in ways:
            raise WrongUse(f"clean_plate: expected 'if useful', True or False, found {clean_plate!r}")
        if not self.given("colourspace"):
            self["colourspace"] = _encoding(plate)
        names, _ = self._native.find(plate, ways[clean_plate])
        return tuple(names.split())

    def see(self, plate: _numpy.ndarray) -> bool:
        """Takes in what another frame of the shot shows of the screen, once `find` has estimated
        it: all frames are keyed the better where the camera stands still. Returns whether it does."""
        return self._native.see(plate)

    def key(self, plate: _numpy.ndarray, background: Optional[_numpy.ndarray] = None, *,
            hold_out: Optional[_numpy.ndarray] = None, garbage: Optional[_numpy.ndarray] = None,
            clean_plate: Optional[_numpy.ndarray] = None, out: Optional[_numpy.ndarray] = None,
            threads: int = 0) -> _numpy.ndarray:
        """Keys a frame.

        background   what the output "composite" puts behind; over black without one
        hold_out     a matte that keeps; garbage: one that cuts away
        clean_plate  the screen without the subject
        out          where to; otherwise a new array of the plate's dtype: four channels, or those of
                     the background in a composite
        threads      how many may work; 0: all
        """
        if out is None:
            channels = 4
            composite = self["output"] == "composite" and getattr(background, "ndim", 0) == 3
            if composite:
                channels = background.shape[2]  # type: ignore[union-attr]
            shape = _numpy.shape(plate)[:2]
            out = _numpy.empty((*shape, channels), getattr(plate, "dtype", None))
        self._native.render(plate, background, hold_out, garbage, clean_plate, out, threads)
        return out


def find_screen(plate: _numpy.ndarray) -> Screen:
    """Looks for a screen of any one colour. Raises Failure when the plate shows none."""
    return Screen(*_Native().find_screen(plate))


def key(plate: _numpy.ndarray, background: Optional[_numpy.ndarray] = None, *, auto: bool = True,
        threads: int = 0, hold_out: Optional[_numpy.ndarray] = None,
        garbage: Optional[_numpy.ndarray] = None, clean_plate: Optional[_numpy.ndarray] = None,
        out: Optional[_numpy.ndarray] = None, **values: Value) -> _numpy.ndarray:
    """Keys one picture: over the background, or without one into straight colour with the matte in
    alpha.

    auto  find the screen and what makes the key by it; parameters that are given stay. Without it
          the screen colour is the parameter's.
    Raises Failure when no screen is found, WrongUse for what cannot be.
    """
    keyer = Keyer(**values)
    if not keyer.given("output") and background is None:
        keyer["output"] = "unpremultiplied"
    if not keyer.given("colourspace"):
        keyer["colourspace"] = _encoding(plate)
    if auto:
        keyer.find(plate, True if clean_plate is not None else "if useful")
    return keyer.key(plate, background, hold_out=hold_out, garbage=garbage, clean_plate=clean_plate,
                     out=out, threads=threads)


def status(plate: _numpy.ndarray, **values: Any) -> _numpy.ndarray:
    """The picture that shows what a key makes of each pixel: black is screen, blue is foreground,
    olive to green lies between. Takes what `key` takes."""
    return key(plate, **{**values, "output": "status"})


def _describe(entry: Parameter) -> str:
    what = {"number": "number", "triple": "number or three", "colour": "(r, g, b) or one number",
            "choice": " | ".join(choice.text for choice in entry.choices), "toggle": "bool",
            "channel": "'R', 'G', 'B' or 'A'"}[entry.type]
    return f"    {_snake(entry.name)}: {what}\n        {entry.help}\n"


key.__doc__ = (key.__doc__ or "") + "\n    Parameters, by snake_case or camelCase names:\n\n" + "".join(
    _describe(entry) for entry in _parameters.values())
