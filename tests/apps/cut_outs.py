#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""A cut-out laid over grey by other programs is the picture that --bg gives.

cut_outs.py ORVANITE

In linear light the key lays over as they do. They hold colours and matte in 8 bits between, where
the key has more: one code of ffmpeg's, two where a program multiplies by the matte in 8 bits, too
(half a code each of colour, matte, product and sum). melt's composite works in Y'CbCr, which is
judged by its mean. In video's encoding the key lays over in its own light: up to four codes.
"""
import shutil
import subprocess
import sys
import tempfile

SIZE = "192x128"
PLATE = ("color=c=0x20a84a:s=192x128,format=yuv444p,drawbox=x=iw/4:y=ih/4:w=iw/2:h=ih*3/4:"
         "color=0xf0d8c8:t=fill,gblur=sigma=2")
PROFILE = ("description=plate\nframe_rate_num=25\nframe_rate_den=1\nwidth=192\nheight=128\n"
           "progressive=1\nsample_aspect_num=1\nsample_aspect_den=1\ndisplay_aspect_num=3\n"
           "display_aspect_den=2\ncolorspace=709\n")
MELT = ("melt -silent -profile @plate.profile avformat:@grey.png out=0 -track avformat:@cut.png out=0 "
        "-transition {} in=0 out=0 a_track=0 b_track=1 -consumer avformat:@out.raw f=rawvideo "
        "vcodec=rawvideo pix_fmt=rgb24 mlt_image_format=rgba an=1 real_time=-1")
RAW = "ffmpeg -v error -y -i {} -f rawvideo -pix_fmt rgb24 @out.raw"
OVERLAY = ("ffmpeg -v error -y -i @grey.png -i @cut.png -filter_complex "
           "[0]format=gbrp[a];[1]format=gbrap[b];[a][b]overlay=format=gbrp,format=rgb24 "
           "-frames:v 1 @over.png")

# name, encoding, commands, largest difference in codes, largest mean
ROWS = [
    ("ffmpeg, overlay", "linear", [OVERLAY, RAW.format("@over.png")], 1, 0.1),
    ("ffmpeg, overlay", "video", [OVERLAY, RAW.format("@over.png")], 4, 0.1),
    ("oiiotool, over", "linear", ["oiiotool @cut.png @grey.png --ch R,G,B,A=1 --over --ch R,G,B -o "
                                  "@over.png", RAW.format("@over.png")], 2, 0.1),
    ("melt, cairoblend", "linear", [MELT.format("frei0r.cairoblend")], 2, 0.15),
    ("melt, composite", "linear", [MELT.format("composite geometry=0/0:192x128:100")], 255, 0.2),
]


def run(folder, line):
    words = [word.replace("@", folder + "/") for word in line.split(" ")]
    done = subprocess.run(words, capture_output=True, text=True, check=False, timeout=120,
                          stdin=subprocess.DEVNULL)
    assert done.returncode == 0, f"{line}: {done.stderr}"


def pixels(folder):
    with open(folder + "/out.raw", "rb") as file:
        return file.read()


def main():
    orvanite, failed = sys.argv[1], 0
    missing = [name for name in ("ffmpeg", "oiiotool", "melt") if shutil.which(name) is None]
    if missing:
        print("not installed:", *missing)
        return 77
    with tempfile.TemporaryDirectory() as folder:
        with open(folder + "/plate.profile", "w", encoding="ascii") as file:
            file.write(PROFILE)
        for source, name in [(PLATE, "plate.png"), (f"color=c=0x808080:s={SIZE}", "grey.png")]:
            subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", source, "-frames:v", "1",
                            "-pix_fmt", "rgb24", f"{folder}/{name}"], check=True)
        for name, encoding, commands, most, mean in ROWS:
            key = f"{orvanite} key -q @plate.png --colourspace {encoding}"
            run(folder, key + " --bg @grey.png -o @comp.png")
            run(folder, RAW.format("@comp.png"))
            wanted = pixels(folder)
            run(folder, key + " -o @cut.png")
            for command in commands:
                run(folder, command)
            found = pixels(folder)
            differences = [abs(a - b) for a, b in zip(wanted, found)]
            average = sum(differences) / len(wanted)
            good = len(found) == len(wanted) and max(differences) <= most and average <= mean
            failed += not good
            print(f"{name}, {encoding}: {max(differences)} codes at most, mean {average:.3f}"
                  f"{'' if good else ': FAILED'}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
