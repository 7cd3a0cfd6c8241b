#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""What a power cut leaves of results that were called done: all of them, whole.

power_loss.py ORVANITE PRELOAD SCRIPTS   PRELOAD: the library of PowerLoss.c
                                         SCRIPTS: 1 where `orvanite run` is built
"""
import json
import os
import pathlib
import subprocess
import sys
import tempfile

orvanite, preload, scripts = sys.argv[1], sys.argv[2], sys.argv[3] == "1"
PLATE = "color=c=0x20a84a:s=64x48:r=25:d=0.12,drawbox=x=16:y=12:w=32:h=36:color=0xf0d8c8:t=fill"


def reads(path):
    """Whether another program reads it."""
    if path.suffix == ".json":
        return bool(json.loads(path.read_text()))
    if path.suffix == ".orv":
        return path.stat().st_size > 0
    words = ["ffprobe", "-v", "error", "-show_streams"] if path.suffix in (
        ".mov", ".mkv", ".mp4", ".webm") else ["oiiotool", "--stats"]
    return subprocess.run([*words, path], capture_output=True, check=False).returncode == 0


def run(folder, words, expected):
    """Runs a command whose power fails at its end; what is not as expected."""
    done = subprocess.run([orvanite, *words], cwd=folder, capture_output=True, text=True,
                          env={**os.environ, "LD_PRELOAD": preload}, check=False)
    if done.returncode != 0:
        return [f"{words}: {done.stderr}"]
    lost = [name for name in expected if not (folder / name).exists()]
    broken = [name for name in expected if name not in lost and not reads(folder / name)]
    return [f"{name} is lost" for name in lost] + [f"{name} is not whole" for name in broken]


def main():
    problems = []
    with tempfile.TemporaryDirectory(prefix="orvanite-") as name:
        folder = pathlib.Path(name)
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", PLATE,
                        folder / "p.%04d.png"], check=True)
        key = ["key", "-q", "--screen", "0.1,0.66,0.3"]
        stills = [f"s.{e}" for e in ("png", "exr", "tif", "jpg", "dpx", "tga", "webp", "jp2", "hdr")]
        for still in stills:
            problems += run(folder, [*key, "p.0001.png", "-o", still], [still])
        for movie in ("m.mov", "m.mkv", "m.webm", "m.mp4"):
            problems += run(folder, [*key, "p.####.png", "-o", movie], [movie])
        problems += run(folder, [*key, "p.####.png", "-o", "q.####.png", "--save-preset", "q.json",
                                 "--matte-output", "r.####.exr"],
                        ["q.json"] + [f"{n}.000{i}.{e}" for i in (1, 2, 3)
                                      for n, e in (("q", "png"), ("r", "exr"))])
        if scripts:
            problems += run(folder, [*key, "p.0001.png", "-o", "t.png", "--save-script", "t.orv"],
                            ["t.png", "t.orv"])
            (folder / "u.orv").write_text('FileOut(FileIn("p.0001.png"), "u.png");\n')
            problems += run(folder, ["run", "-q", "u.orv"], ["u.png"])
        # The library itself: what nobody syncs is lost.
        (folder / "a").write_text("a")
        subprocess.run([sys.executable, "-c", "import os; os.rename('a', 'b')"], cwd=folder,
                       env={**os.environ, "LD_PRELOAD": preload}, check=False)
        if (folder / "b").exists():
            problems.append("a name that was not synced is there: nothing was tested")
    for one in problems:
        print(one)
    return 1 if problems else 0


sys.exit(main())
