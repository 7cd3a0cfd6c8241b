#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Keys pictures with numpy arrays: one key for all frames, found in the first.

    key.py FOLDER [PICTURE...]

Writes into FOLDER, per picture, the keyed picture with its matte in alpha; for the first one a plot of
plate, matte, status and the matte's histogram (plot.png); and all of them over a checkerboard as
comp.gif. Without pictures it draws some of its own: a disc that crosses a green screen.
"""
import pathlib
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plot
import numpy as np
from PIL import Image

import orvanite


def drawn(frame: int, frames: int, height: int = 180, width: int = 320) -> np.ndarray:
    """A soft-edged disc on a screen whose light falls off to the right, with a little grain."""
    y, x = np.mgrid[0:height, 0:width]
    light = 1 - 0.25 * x[..., None] / width
    screen = np.array([0.16, 0.64, 0.22]) * light
    away = np.hypot(x - width * (0.2 + 0.6 * frame / max(1, frames - 1)), y - height * 0.5)
    share = np.clip((height * 0.3 - away) / 6 + 0.5, 0, 1)[..., None]
    plate = share * np.array([0.8, 0.45, 0.35]) + (1 - share) * screen
    plate += np.random.default_rng(frame).normal(0, 0.008, plate.shape)
    return np.round(np.clip(plate, 0, 1) * 255).astype(np.uint8)


def checkerboard(height: int, width: int) -> np.ndarray:
    y, x = np.mgrid[0:height, 0:width] // 16
    return np.repeat((96 + 64 * ((x + y) % 2)).astype(np.uint8)[..., None], 3, 2)


def show(plate: np.ndarray, keyer: orvanite.Keyer, path: pathlib.Path) -> None:
    """Plate, matte, status and how often each matte occurs."""
    views = {}
    output = keyer["output"]
    for view in ("matte", "status"):
        keyer["output"] = view
        views[view] = keyer.key(plate)
    keyer["output"] = output
    matte = views["matte"][..., 3]
    figure, axes = plot.subplots(2, 2, figsize=(9, 6), layout="constrained")
    for axis, title, picture in ((axes[0, 0], "plate", plate), (axes[0, 1], "matte", matte),
                                 (axes[1, 0], "status", views["status"][..., :3])):
        axis.imshow(picture, cmap="gray")
        axis.set_title(title)
        axis.axis("off")
    axes[1, 1].hist(matte.ravel() / np.iinfo(matte.dtype).max, bins=64, log=True)
    axes[1, 1].set_title("pixels by matte")
    figure.savefig(path)
    plot.close(figure)


def main() -> int:
    if len(sys.argv) < 2:
        print("usage: key.py FOLDER [PICTURE...]", file=sys.stderr)
        return 2
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    paths = [pathlib.Path(word) for word in sys.argv[2:]]
    if paths:
        plates = [np.asarray(Image.open(path).convert("RGB")) for path in paths]
    else:
        plates = [drawn(frame, 8) for frame in range(8)]
        paths = [pathlib.Path(f"disc{frame}.png") for frame in range(8)]

    keyer = orvanite.Keyer(output="unpremultiplied")
    try:
        found = keyer.find(plates[0])
    except orvanite.Failure as problem:
        print(f"{paths[0]}: {problem}", file=sys.stderr)
        return 1
    print("set: " + ", ".join(f"{name} {keyer[name]}" for name in found))
    show(plates[0], keyer, folder / "plot.png")

    comps = []
    for path, plate in zip(paths, plates):
        Image.fromarray(keyer.key(plate)).save(folder / (path.stem + "-keyed.png"))
        keyer["output"] = "composite"
        comps.append(Image.fromarray(keyer.key(plate, checkerboard(*plate.shape[:2]))))
        keyer["output"] = "unpremultiplied"
    comps[0].save(folder / "comp.gif", save_all=True, append_images=comps[1:], duration=80, loop=0)
    print(f"{len(comps)} pictures keyed into {folder}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
