#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""What phones, cameras, renderers and editors write, and what a key of it must be.

real_inputs.py ORVANITE [NAME...]   all rows of the table, or those named

Inputs are made by ffmpeg and oiiotool; what comes out is judged by ffprobe, ffmpeg, exrheader and
oiiotool, never by Orvanite's own readers. Every row: commands that make the input, the options of
`orvanite key`, and facts about what came out. In commands @ stands for the folder of the row.
"""
import json
import os
import re
import shlex
import shutil
import statistics
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from fractions import Fraction

SIZE = "96x64"
# A green screen with a bright subject whose edge is soft.
SCREEN = "color=c=0x20a84a:s={size}:r={rate}:d={seconds},format=yuv444p"
SUBJECT = "drawbox=x=iw/4:y=ih/4:w=iw/2:h=ih*3/4:color=0xf0d8c8:t=fill,gblur=sigma=2"


def plate(size=SIZE, rate="25", seconds="1", filters=""):
    """Words for ffmpeg that draw a plate."""
    graph = SCREEN.format(size=size, rate=rate, seconds=seconds) + "," + SUBJECT
    return f"-f lavfi -i {graph}{',' + filters if filters else ''}"


SOUND = "-f lavfi -i sine=r=48000:d={}"
FFMPEG = "ffmpeg -y -v error "
STILL = FFMPEG + plate(seconds="0.04") + " -frames:v 1 "
X264 = " -c:v libx264 -pix_fmt yuv420p "
PQ = ("master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,50)"
      ":max-cll=1000,400:hdr10=1:repeat-headers=1:log-level=error")
# Frames up to nine tenths of one from where a constant rate has them.
VARYING = "settb=1/9000,setpts=(N/30+0.03*sin(N*2*PI*7/59))/TB"
CHAPTERS = ";FFMETADATA1\ntitle=Take 7\ncopyright=Nobody\n" + "".join(
    f"[CHAPTER]\nTIMEBASE=1/1000\nSTART={a}\nEND={b}\ntitle={t}\n"
    for a, b, t in ((0, 400, "slate"), (400, 1000, "action")))

# Pictures that several rows begin with.
COMMON = [STILL + "-pix_fmt rgb24 @p8.png", STILL + "-pix_fmt rgb48be @p16.png",
          "oiiotool @p16.png --colorconvert sRGB linear -d half -o @linear.exr"]

# name, what makes the input, options of key, facts
ROWS = [
    # Pictures
    ("png", [STILL + "-pix_fmt rgb24 @i.png"], "@i.png -o @o.png",
     {"size": "96x64", "channels": 4, "format": "uint8", "alpha": "straight"}),
    ("png-16", [STILL + "-pix_fmt rgb48be @i.png"], "@i.png -o @o.png",
     {"size": "96x64", "channels": 4, "format": "uint16", "alpha": "straight"}),
    ("png-palette", [STILL + "-vf palettegen=max_colors=64 @p.png",
                     "ffmpeg -y -v error " + plate(seconds="0.04") +
                     " -i @p.png -lavfi paletteuse -frames:v 1 @i.png"],
     "@i.png -o @o.png", {"size": "96x64", "channels": 4, "format": "uint8"}),
    ("odd-size", [FFMPEG + plate(size="97x65", seconds="0.04") + " -frames:v 1 -pix_fmt rgb24 @i.png"],
     "@i.png -o @o.tif", {"size": "97x65", "channels": 4, "alpha": "straight"}),
    ("phone-photo", ["oiiotool @p8.png --attrib Orientation 6 -o @i.jpg"],
     "@i.jpg -o @o.png", {"size": "64x96", "channels": 4, "orientation": 1}),
    ("upside-down", ["oiiotool @p8.png --attrib Orientation 3 -o @i.tif"],
     "@i.tif -o @o.tif", {"size": "96x64", "orientation": 1}),
    ("jpeg-over-colour", [STILL + "-pix_fmt yuvj420p @i.jpg"], "@i.jpg --bg #202830 -o @o.jpg",
     {"size": "96x64", "channels": 3, "corner": (0x20, 0x28, 0x30, 4)}),
    ("webp", ["oiiotool @p8.png -o @i.webp"], "@i.webp -o @o.webp",
     {"size": "96x64", "channels": 4}),
    ("targa", [STILL + "-pix_fmt rgb24 @i.tga"], "@i.tga -o @o.png",
     {"size": "96x64", "alpha": "straight"}),
    ("jpeg-2000", ["oiiotool @p8.png -o @i.jp2"], "@i.jp2 -o @o.png",
     {"size": "96x64", "channels": 4}),
    ("radiance", ["oiiotool @linear.exr -o @i.hdr"],
     "@i.hdr -o @o.exr", {"size": "96x64", "channels": 4, "alpha": "premultiplied"}),
    ("exr-half", ["oiiotool @linear.exr -o @i.exr"],
     "@i.exr -o @o.exr", {"exr": ["R, 16-bit floating-point", "A, 16-bit floating-point"],
                          "alpha": "premultiplied"}),
    ("exr-data-window", ["oiiotool @linear.exr --origin +10+5 "
                         "--fullsize 128x80+0+0 -o @i.exr"],
     "@i.exr -o @o.exr", {"exr": ["dataWindow (type box2i): (10 5) - (105 68)",
                                  "displayWindow (type box2i): (0 0) - (127 79)"]}),
    ("exr-depth-first", ["oiiotool @p16.png --ch R --chnames Z -d float --attrib oiio:subimagename "
                         "depth @linear.exr --attrib "
                         "oiio:subimagename rgba --siappend -o @i.exr"],
     "@i.exr -o @o.exr", {"size": "96x64", "channels": 4, "says": "part 'rgba' of 2 is taken"}),
    ("exr-part", ["oiiotool --pattern constant:color=0.5,0.5,0.5 96x64 3 -d half --attrib "
                  "oiio:subimagename main @linear.exr --attrib "
                  "oiio:subimagename second --siappend -o @i.exr"],
     "@i.exr --part second -o @o.exr", {"says": "part 'second' of 2 is taken",
                                        "alpha": "premultiplied"}),
    ("exr-layer", ["oiiotool --pattern constant:color=0.5,0.5,0.5 96x64 3 @linear.exr "
                   "--chnames fill.R,fill.G,fill.B --chappend -d half -o @i.exr"],
     "@i.exr --layer fill -o @o.exr", {"says": "layer fill is taken", "alpha": "premultiplied"}),
    ("exr-no-such-layer", ["oiiotool @p16.png -d half -o @i.exr"],
     "@i.exr --layer fill -o @o.exr", {"code": 2, "says": "found 'fill'"}),
    ("exr-luminance-chroma", ["oiiotool @p16.png --chnames Y,RY,BY -d half -o @i.exr"],
     "@i.exr -o @o.exr", {"code": 1, "says": "luminance and chroma"}),
    ("dpx", ["oiiotool @p16.png -d uint10 --attrib:type=timecode smpte:TimeCode 01:00:00:09 -o @i.dpx"],
     "@i.dpx -o @o.exr", {"exr": ["01:00:00:09"], "alpha": "premultiplied"}),
    ("plate-linear-background-video", ["oiiotool @linear.exr -o @i.exr",
                                       "oiiotool --pattern constant:color=0.5,0.5,0.5 96x64 3 -d "
                                       "uint8 -o @b.png"],
     # Code 128 is ((128 / 255 + 0.055) / 1.055) ** 2.4 = 0.2159 of light; half: 2 ** -11 of it.
     "@i.exr --bg @b.png -o @o.exr", {"corner": (0.2159, 0.2159, 0.2159, 0.0003)}),
    ("sequence", [FFMPEG + plate(seconds="0.2") + " -start_number 1001 -pix_fmt rgb24 @i.%04d.png"],
     "@i.####.png -o @o.####.png", {"files": 5, "size": "96x64", "file": "o.1001.png"}),
    # Movies
    ("phone-upright", [FFMPEG + plate() + X264 + "@p.mp4",
                       "ffmpeg -y -v error -i @p.mp4 -c copy -metadata:s:v rotate=90 @i.mp4"],
     "@i.mp4 --bg #303030 -o @o.mp4", {"frames": 25, "size": "64x96", "codec": "h264"}),
    ("dropped-frame", [FFMPEG + plate(filters="select=not(eq(n\\,9))") + " -vsync vfr" + X264 +
                       "@i.mp4"],
     "@i.mp4 -o @o.mov", {"frames": 25, "first": 0, "last": 24 / 25, "says": "1 held"}),
    ("late-last-frame", [FFMPEG + plate(filters="select=lt(n\\,20)+eq(n\\,24)") + " -vsync vfr" +
                         X264 + "@i.mp4"],
     "@i.mp4 -o @o.mov", {"frames": 25, "last": 24 / 25}),
    ("truly-variable", [FFMPEG + plate(rate="30", seconds="2", filters=VARYING) +
                        " -vsync passthrough -video_track_timescale 9000" + X264 + "@i.mp4"],
     "@i.mp4 -o @o.mov", {"frames": 60, "rate": "30/1", "last": 59 / 30}),
    ("fps-25-of-50", [FFMPEG + plate(rate="50", seconds="2") + " " + SOUND.format(2) + X264 +
                      "-c:a aac @i.mp4"],
     "@i.mp4 --fps 25 -o @o.mov", {"frames": 50, "rate": "25/1", "sound": (2, 0.04)}),
    ("fps-60-of-24", [FFMPEG + plate(rate="24", seconds="2") + " " + SOUND.format(2) + X264 +
                      "-c:a aac @i.mp4"],
     "@i.mp4 --fps 60 --bg #303030 -o @o.mp4", {"frames": 120, "rate": "60/1", "sound": (2, 0.04)}),
    ("variable-in-step", [FFMPEG + "-f lavfi -i color=c=black:s=96x64:r=30:d=6," +
                          VARYING + ",drawbox=c=white:t=fill:enable=gte(t\\,5.0)"
                          " -f lavfi -i aevalsrc=if(gte(t\\,5)\\,sin(6000*t)\\,0):s=48000:d=6"
                          " -vsync passthrough -video_track_timescale 9000" + X264 +
                          "-c:a pcm_s16le @i.mov"],
     "@i.mov --screen green --no-key --fps 25 -o @o.mov", {"frames": 150, "in-step": 1 / 25}),
    ("film-rate-and-anamorphic", [FFMPEG + plate(rate="24000/1001", filters="setsar=4/3") + X264 +
                                  "@i.mp4"],
     "@i.mp4 -o @o.mov", {"frames": 24, "rate": "24000/1001", "aspect": "4:3"}),
    ("prores-hq-with-sound", [FFMPEG + plate() + " " + SOUND.format(1) + " -vf setparams="
                              "colorspace=bt709:color_primaries=bt709:color_trc=bt709"
                              " -colorspace bt709 -color_primaries bt709 -color_trc bt709"
                              " -c:v prores_ks -profile:v hq -pix_fmt yuv422p10le -c:a pcm_s24le -timecode "
                              "10:00:00:00 @i.mov"],
     "@i.mov -o @o.mov", {"frames": 25, "pixels": "yuva444p12le", "primaries": "bt709",
                          "timecode": "10:00:00:00", "sound": (1, 0.03)}),
    ("drop-frame-time-code", [FFMPEG + plate(rate="30000/1001") + " -c:v png -timecode 01:00:59;28 "
                              "@i.mov"],
     "@i.mov --frames 3- -o @o.mov", {"frames": 28, "timecode": "01:01:00;02"}),
    ("time-code-to-stills", [FFMPEG + plate(rate="24", seconds="0.2") +
                             " -c:v png -timecode 01:00:00:09 @i.mov"],
     "@i.mov -o @o.####.exr", {"exr": ["01:00:00:09"], "file": "o.0001.exr", "files": 5}),
    ("hevc-pq", [FFMPEG + plate() + " -c:v libx265 -pix_fmt yuv420p10le -color_primaries bt2020 "
                 "-color_trc smpte2084 -colorspace bt2020nc -x265-params " + PQ + " @i.mp4"],
     "@i.mp4 --bg #303030 --codec hevc -o @o.mp4",
     {"frames": 25, "pixels": "yuv420p10le", "primaries": "bt2020", "transfer": "smpte2084",
      "space": "bt2020nc", "tag": "hvc1", "light": (1000, 400), "mastering": 1000}),
    ("hlg-to-prores", [FFMPEG + plate() + " -c:v libx265 -pix_fmt yuv420p10le -color_primaries "
                       "bt2020 -color_trc arib-std-b67 -colorspace bt2020nc -x265-params "
                       "log-level=error @i.mov"],
     "@i.mov -o @o.mov", {"frames": 25, "transfer": "arib-std-b67", "pixels": "yuva444p12le"}),
    ("vp9-with-alpha", [FFMPEG + plate(filters="format=yuva420p") + " -c:v libvpx-vp9 -pix_fmt "
                        "yuva420p @i.webm"],
     "@i.webm -o @o.webm", {"frames": 25, "codec": "vp9", "has-alpha": "1"}),
    ("odd-size-movie", [FFMPEG + plate(size="97x65") + " -c:v ffv1 -pix_fmt bgra @i.mkv"],
     "@i.mkv -o @o.mkv", {"frames": 25, "size": "97x65", "codec": "ffv1"}),
    ("odd-size-to-h264", [FFMPEG + plate(size="97x65") + " -c:v ffv1 -pix_fmt bgra @i.mkv"],
     "@i.mkv -o @o.mp4", {"code": 2, "says": "even width and height"}),
    ("interlaced-refused", [FFMPEG + plate(rate="50", filters="tinterlace=interleave_top,fieldorder=tff")
                            + " -c:v mpeg2video -flags +ildct+ilme @i.ts"],
     "@i.ts -o @o.mov", {"code": 1, "says": "--deinterlace"}),
    ("interlaced", [FFMPEG + plate(rate="50", filters="tinterlace=interleave_top,fieldorder=tff")
                    + " -c:v mpeg2video -b:v 8M -flags +ildct+ilme @i.ts"],
     "@i.ts --deinterlace -o @o.mov", {"frames": 25, "first": 0, "fields": "progressive",
                                       "says": "deinterlaced"}),
    ("interlaced-dv", [FFMPEG + plate(size="720x576", seconds="0.2") +
                       " -target pal-dv -flags +ildct+ilme -top 0 @i.dv"],
     "@i.dv --deinterlace -o @o.mov", {"frames": 5, "size": "720x576", "fields": "progressive"}),
    ("untagged", [FFMPEG + plate() + X264 + "@i.mp4"], "@i.mp4 -o @o.mov",
     {"frames": 25, "says": "the matrix of Rec. 601"}),
    ("matrix-given", [FFMPEG + plate() + X264 + "@i.mp4"], "@i.mp4 --matrix 709 -o @o.mov",
     {"frames": 25, "space": "bt709", "says-not": "matrix of"}),
    ("motion-jpeg-full-range", [FFMPEG + plate() + " -c:v mjpeg -pix_fmt yuvj422p -q:v 2 @i.avi"],
     "@i.avi -o @o.mov", {"frames": 25, "range": "tv"}),
    ("transport-stream", [FFMPEG + plate() + " " + SOUND.format(1) + X264 + "-c:a aac @i.ts"],
     "@i.ts --bg #303030 -o @o.mp4", {"frames": 25, "first": 0, "last": 24 / 25,
                                      "sound": (1, 0.05)}),
    ("mxf", [FFMPEG + plate() + " -c:v mpeg2video -pix_fmt yuv422p -qscale:v 2 @i.mxf"],
     "@i.mxf -o @o.mov", {"frames": 25}),
    ("yuv4mpeg", [FFMPEG + plate() + " -pix_fmt yuv420p @i.y4m"], "@i.y4m -o @o.webm",
     {"frames": 25, "codec": "vp9"}),
    ("part-of-a-take", [FFMPEG + plate(seconds="2") + " " + SOUND.format(2) + X264 +
                        "-c:a aac @i.mp4"],
     "@i.mp4 --frames 11-35 -o @o.mov", {"frames": 25, "first": 0, "sound": (1, 0.05)}),
    ("silent", [FFMPEG + plate() + " " + SOUND.format(1) + X264 + "-c:a aac @i.mp4"],
     "@i.mp4 --sound none -o @o.mov", {"frames": 25, "sound": None}),
    ("stills-and-back", [FFMPEG + plate() + " " + SOUND.format(1) + X264 + "-c:a aac @i.mp4",
                         "orvanite key -q @i.mp4 -o @s.####.png"],
     "@s.####.png --screen 0,0,1 --no-key --fps 25 --sound @i.mp4 -o @o.mov",
     {"frames": 25, "rate": "25/1", "sound": (1, 0.05)}),
    ("sound-of-a-recorder", [FFMPEG + plate() + X264 + "@i.mp4",
                             "ffmpeg -y -v error " + SOUND.format(5) + " -c:a pcm_s24le @i.wav"],
     "@i.mp4 --sound @i.wav -o @o.mov", {"frames": 25, "sound": (1, 0.03)}),
    ("sound-that-does-not-fit", [FFMPEG + plate() + X264 + "@i.mp4",
                                 "ffmpeg -y -v error " + SOUND.format(1) + " @i.wav"],
     "@i.mp4 --sound @i.wav --bg #303030 -o @o.mp4", {"code": 2, "says": "expected sound in AAC"}),
    ("chapters-and-title", [FFMPEG + plate() + " -i @chapters.txt -map_metadata 1" + X264 +
                            "@i.mkv"],
     "@i.mkv --bg #303030 -o @o.mp4", {"frames": 25, "title": "Take 7",
                                       "chapters": ["slate 0.0-0.4", "action 0.4-1.0"]}),
]


def run(command, folder, orvanite):
    """Runs a line of words; @ stands for the folder."""
    words = shlex.split(command.replace("\\,", "\\\\,").replace(";", "\\;"))
    words = [os.path.join(folder, w[1:]) if w.startswith("@") else w for w in words]
    if words[0] == "orvanite":
        words[0] = orvanite
    return subprocess.run(words, capture_output=True, text=True, check=False, timeout=120)


def tool(*words):
    """What a judge says."""
    done = subprocess.run(words, capture_output=True, text=True, errors="replace", check=False)
    assert done.returncode == 0, f"{words}: {done.stderr}"
    return done.stdout


class Movie:
    """A movie as ffprobe sees it."""

    def __init__(self, path):
        self.path = path
        self.all = json.loads(tool("ffprobe", "-v", "error", "-show_streams", "-show_format",
                                   "-show_chapters", "-show_packets", "-of", "json", path))
        self.video = next(s for s in self.all["streams"] if s["codec_type"] == "video")
        self.times = sorted(float(p["pts_time"]) for p in self.all["packets"]
                            if p["stream_index"] == self.video["index"])

    def side(self, kind):
        """Side data of the stream, else of the first frame."""
        known = self.video.get("side_data_list", [])
        if not any(kind in one["side_data_type"] for one in known):
            frames = json.loads(tool("ffprobe", "-v", "error", "-show_frames", "-read_intervals",
                                     "%+#1", "-select_streams", "v", "-of", "json", self.path))
            known = frames["frames"][0].get("side_data_list", [])
        return next((one for one in known if kind in one["side_data_type"]), {})

    def sound(self):
        """Seconds of sound, from its first packet's start to its last one's end; none: None."""
        audio = [s["index"] for s in self.all["streams"] if s["codec_type"] == "audio"]
        packets = [p for p in self.all["packets"] if p["stream_index"] in audio]
        if not packets:
            return None
        ends = [float(p["pts_time"]) + float(p.get("duration_time", 0)) for p in packets]
        return max(ends) - max(0.0, min(float(p["pts_time"]) for p in packets))

    def step(self):
        """Seconds from the first loud sample to the first white picture."""
        light = subprocess.run(["ffmpeg", "-v", "error", "-i", self.path, "-vf", "scale=1:1",
                                "-vsync", "passthrough", "-f", "rawvideo", "-pix_fmt", "gray", "-"],
                               capture_output=True, check=True).stdout
        assert len(light) == len(self.times), "ffmpeg decodes other frames than there are"
        samples = subprocess.run(["ffmpeg", "-v", "error", "-i", self.path, "-f", "u8", "-ac", "1",
                                  "-ar", "48000", "-"], capture_output=True, check=True).stdout
        flash = self.times[next(i for i, one in enumerate(light) if one > 128)]
        beep = next(i for i, one in enumerate(samples) if abs(one - 128) > 30) / 48000
        return flash - beep

    def fact(self, name):
        """One fact of the table."""
        tags = {k.lower(): v for k, v in self.video.get("tags", {}).items()}
        simple = {"rate": "r_frame_rate", "pixels": "pix_fmt", "primaries": "color_primaries",
                  "transfer": "color_transfer", "space": "color_space", "range": "color_range",
                  "aspect": "sample_aspect_ratio", "codec": "codec_name", "tag": "codec_tag_string",
                  "fields": "field_order"}
        if name in simple:
            return self.video.get(simple[name])
        return {
            "frames": lambda: len(self.times),
            "size": lambda: f"{self.video['width']}x{self.video['height']}",
            "first": lambda: self.times[0],
            "last": lambda: self.times[-1],
            "timecode": lambda: tags.get("timecode"),
            "has-alpha": lambda: tags.get("alpha_mode"),
            "sound": self.sound,
            "in-step": lambda: abs(self.step() - Movie(
                os.path.join(os.path.dirname(self.path), "i.mov")).step()),
            "title": lambda: self.all["format"].get("tags", {}).get("title"),
            "chapters": lambda: [
                f"{c['tags']['title']} {float(c['start_time']):.1f}-{float(c['end_time']):.1f}"
                for c in self.all["chapters"]],
            "light": lambda: (self.side("Content light").get("max_content"),
                              self.side("Content light").get("max_average")),
            "mastering": lambda: float(Fraction(self.side("Mastering").get("max_luminance", "0"))),
        }[name]()


class Still:
    """A picture as oiiotool and exrheader see it."""

    def __init__(self, path):
        self.path = path
        self.info = tool("oiiotool", "--info", "-v", path)

    def pixels(self):
        """All pixels as they stand, as lists of numbers; codes are parts of their white."""
        text = tool("oiiotool", "--no-autopremult", "--dumpdata", self.path)
        found = re.findall(r"^ *Pixel \(-?\d+, -?\d+\): ([^(\n]*)(?:\((.*)\))?", text, re.M)
        return [[float(v) for v in (parts or plain).split()] for plain, parts in found]

    def alpha(self):
        """How colours stand beside alpha, of thin pixels of a bright subject.

        Its brightest channel is 0.87 of light, and up to twice that where the edge was mixed in
        codes: as much of alpha where it is multiplied, more than eight times alpha where not.
        """
        thin = [max(p[:3]) / p[3] for p in self.pixels() if len(p) == 4 and 0.02 < p[3] < 0.1]
        assert thin, "no thin pixels"
        return "premultiplied" if statistics.median(thin) < 4 else "straight"

    def fact(self, name):
        """One fact of the table."""
        shape = re.search(r"(\d+) x +(\d+), (\d+) channel, (\w+)", self.info)
        orientation = re.search(r"Orientation: (\d+)", self.info)
        return {
            "size": lambda: f"{shape[1]}x{shape[2]}",
            "channels": lambda: int(shape[3]),
            "format": lambda: shape[4],
            "orientation": lambda: int(orientation[1]) if orientation else 1,
            "alpha": self.alpha,
            "corner": lambda: self.pixels()[0],
            "exr": lambda: tool("exrheader", self.path),
        }[name]()


def agrees(name, expected, found):
    """Whether a fact is as the table says."""
    if name == "exr":
        return all(one in found for one in expected)
    if name == "corner":
        scale = 255 if expected[0] >= 1 else 1
        return all(abs(f * scale - e) <= expected[3] for e, f in zip(expected[:3], found))
    if name == "sound" and expected is not None:
        return found is not None and abs(found - expected[0]) <= expected[1]
    if name == "in-step":
        return found <= expected
    if name in ("first", "last"):
        return abs(found - expected) < 0.002
    return found == expected


def check(row, orvanite, common):
    """What is wrong with a row."""
    _, makes, key, facts = row
    with tempfile.TemporaryDirectory(prefix="orvanite-") as folder:
        for file in os.listdir(common):
            os.symlink(os.path.join(common, file), os.path.join(folder, file))
        with open(os.path.join(folder, "chapters.txt"), "w", encoding="utf-8") as file:
            file.write(CHAPTERS)
        for make in makes:
            made = run(make, folder, orvanite)
            if made.returncode != 0:
                return [f"cannot be made: {make}\n{made.stderr}"]
        done = run("orvanite key " + key, folder, orvanite)
        if done.returncode != facts.get("code", 0):
            return [f"exit code {done.returncode}: {done.stderr}"]
        wrong = []
        names = sorted(n for n in os.listdir(folder) if n.startswith("o."))
        if facts.get("code", 0) != 0 and names:
            wrong.append(f"left {names}")
        judge = None
        for fact, expected in facts.items():
            if fact == "code" or fact == "file":
                continue
            if fact in ("says", "says-not"):
                if (expected in done.stderr) != (fact == "says"):
                    wrong.append(f"{fact} {expected!r}: {done.stderr}")
                continue
            if fact == "files":
                found = len(names)
            else:
                path = os.path.join(folder, facts.get("file", names[0]))
                if judge is None:
                    ending = path.rsplit(".", 1)[1]
                    judge = (Movie if ending in ("mov", "mp4", "mkv", "webm") else Still)(path)
                try:
                    found = judge.fact(fact)
                except AssertionError as problem:
                    wrong.append(f"{fact}: {problem}\n{done.stderr}")
                    continue
            if not agrees(fact, expected, found):
                shown = found if fact != "exr" else found[:2000]
                wrong.append(f"{fact}: expected {expected}, found {shown}\n{done.stderr}")
        return wrong


def main():
    orvanite, wanted = sys.argv[1], sys.argv[2:]
    missing = [name for name in ("ffmpeg", "ffprobe", "oiiotool", "exrheader")
               if shutil.which(name) is None]
    if missing:
        print(f"skipped: there is no {' and no '.join(missing)}")
        return 77
    rows = [row for row in ROWS if not wanted or row[0] in wanted]
    failed = 0
    with tempfile.TemporaryDirectory(prefix="orvanite-") as common:
        for line in COMMON:
            assert run(line, common, orvanite).returncode == 0, line
        with ThreadPoolExecutor(2) as two:
            for row, wrong in zip(rows, two.map(lambda row: check(row, orvanite, common), rows)):
                failed += bool(wrong)
                for one in wrong:
                    print(f"{row[0]}: {one}")
    print(f"{len(rows) - failed} of {len(rows)} inputs came out as the table says")
    return 1 if failed or not rows else 0


sys.exit(main())
