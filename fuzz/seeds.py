#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Real small inputs for fuzzers and scripts/mutate, made by ffmpeg and oiiotool.

seeds.py KIND FOLDER   KIND: pictures or movies; makes what is not there yet
"""
import pathlib
import shlex
import subprocess
import sys

# A green screen with a bright subject.
PLATE = ("-f lavfi -i color=c=0x20a84a:s={size}:r=25:d={seconds},"
         "drawbox=x=iw/4+50*t:y=ih/4:w=iw/2:h=ih*3/4:color=0xf0d8c8:t=fill")
SOUND = "-f lavfi -i sine=r=48000:d=0.16 "

# Name, and what oiiotool makes it of: @ stands for an 8-bit plate, % for a deeper one.
PICTURES = {
    "rgb8.png": "@", "rgba16.png": "% --ch R,G,B,A=0.5", "grey.png": "@ --ch R",
    "rgb.jpg": "@", "turned.jpg": "@ --attrib Orientation 6",
    "zip.exr": "% -d half", "piz.exr": "% -d half --compression piz",
    "float.exr": "% -d float --compression none", "dwaa.exr": "% -d half --compression dwaa",
    "pxr24.exr": "% -d float --compression pxr24", "b44.exr": "% -d half --compression b44a",
    "tiled.exr": "% -d half --tile 16 16",
    "parts.exr": "% -d half --attrib oiio:subimagename a % -d half --attrib oiio:subimagename b "
                 "--siappend",
    "window.exr": "% -d half --origin +10+5 --fullsize 80x60+0+0",
    "layers.exr": "% % --chnames fill.R,fill.G,fill.B --chappend -d half",
    "lzw.tif": "@ --compression lzw", "deflate.tif": "% --compression zip",
    "tiled.tif": "% --tile 16 16", "float.tif": "% -d float",
    "planar.tif": "@ --planarconfig separate", "packbits.tif": "@ --compression packbits",
    "jpeg.tif": "@ --compression jpeg",
    "ten.dpx": "% -d uint10", "twelve.dpx": "% -d uint12", "eight.dpx": "@ -d uint8",
    "sixteen.dpx": "% -d uint16",
    "raw.tga": "@", "rle.tga": "@ --compression rle", "rgb.webp": "@", "rgb.jp2": "@",
    "deep.jp2": "% -d uint16", "rgb.hdr": "% -d float", "rgb.bmp": "@", "rgb.ppm": "@",
    "rgb.sgi": "@", "rle.sgi": "@ --compression rle", "rgb.heic": "@"}

# Name, and what ffmpeg makes it of; + stands for a plate, with its size after it where that
# matters, ~ for sound. Codecs alone first, then containers and what lies between.
X264, X265 = "-c:v libx264 -pix_fmt yuv420p ", "-c:v libx265 -x265-params log-level=error:pools=1 "
VPX = "-cpu-used 8 -deadline realtime "
MOVIES = {
    **{f"{name}.mov": f"+ -c:v {line}" for name, line in {
        "prores": "prores_ks -pix_fmt yuv422p10le", "prores4444": "prores_ks -pix_fmt yuva444p10le",
        "mjpeg": "mjpeg -pix_fmt yuvj420p", "qtrle": "qtrle -pix_fmt argb", "png": "png",
        "v210": "v210", "v410": "v410", "v308": "v308", "v408": "v408", "r10k": "r10k",
        "r210": "r210", "raw": "rawvideo -pix_fmt rgb24", "yuyv": "rawvideo -pix_fmt yuyv422",
        "cinepak": "cinepak", "svq1": "svq1", "mpeg4": "mpeg4", "j2k": "jpeg2000",
        "cfhd": "cfhd", "rpza": "rpza", "smc": "smc", "hap": "hap", "dpx": "dpx", "tiff": "tiff",
        "targa": "targa", "ffv1": "ffv1", "exr": "exr", "avui": "ayuv"}.items()},
    **{f"{name}.avi": f"+ -c:v {line}" for name, line in {
        "huffyuv": "huffyuv", "ffvhuff": "ffvhuff", "utvideo": "utvideo", "magicyuv": "magicyuv",
        "msmpeg4v2": "msmpeg4v2", "msmpeg4": "msmpeg4", "zmbv": "zmbv", "msvideo1": "msvideo1",
        "raw": "rawvideo -pix_fmt bgr24", "asv1": "asv1", "asv2": "asv2", "ljpeg": "ljpeg -strict -1",
        "mpeg4": "mpeg4", "snow": "snow -strict -2", "flashsv": "flashsv", "zlib": "zlib",
        "cljr": "cljr -strict -2", "speedhq": "speedhq", "bmp": "bmp"}.items()},
    **{f"{name}.mkv": f"+ -c:v {line}" for name, line in {
        "ffv1": "ffv1 -pix_fmt gbrp16le", "ffv1-1": "ffv1 -level 1", "vp8": "libvpx " + VPX,
        "vp9": "libvpx-vp9 " + VPX, "av1": "libaom-av1 -cpu-used 8 -usage realtime",
        "mpeg2": "mpeg2video -bf 2", "vc2": "vc2", "hevc10": X265[5:] + "-pix_fmt yuv420p10le",
        "high422": "libx264 -pix_fmt yuv422p10le", "lossless": "libx264rgb -qp 0",
        "wmv2": "wmv2", "h263p": "h263p"}.items()},
    "dnxhr.mov": "+256x120 -frames:v 2 -c:v dnxhd -profile:v dnxhr_lb -pix_fmt yuv422p",
    "fields.mov": "+ -vf fieldorder=tff -c:v prores_ks -flags +ildct",
    "h264.mov": "+ ~ " + X264 + "-bf 2 -c:a pcm_s16le", "turned.mp4": "+ " + X264 +
    "-metadata:s:v rotate=90", "h264.mp4": "+ ~ " + X264 + "-c:a aac -movflags faststart",
    "parts.mp4": "+ " + X264 + "-movflags frag_keyframe+empty_moov -g 2",
    "hevc.mp4": "+ " + X265 + "-tag:v hvc1", "av1.mp4": "+ -c:v libaom-av1 -cpu-used 8",
    "vp9.mp4": "+ -c:v libvpx-vp9 " + VPX, "h263.3gp": "+128x96 -c:v h263",
    "varying.mp4": "+ -vf settb=1/1000,setpts=N*40+13*mod(N\\\\,2) -vsync passthrough " + X264,
    "alpha.webm": "+ ~ -c:v libvpx-vp9 -pix_fmt yuva420p " + VPX + "-c:a libopus",
    "alpha8.webm": "+ ~ -c:v libvpx -pix_fmt yuva420p -auto-alt-ref 0 " + VPX + "-c:a libvorbis",
    "sound.mkv": "+ ~ -c:v ffv1 -c:a flac", "theora.mkv": "+ -c:v libtheora",
    "live.mkv": "+ -live 1 " + X264, "mjpeg.avi": "+ ~ -c:v mjpeg -c:a pcm_s16le",
    "h264.avi": "+ ~ " + X264 + "-c:a libmp3lame", "mpeg2.mxf": "+ ~ -c:v mpeg2video -c:a pcm_s16le",
    "h264.mxf": "+ " + X264 + "-bf 0", "j2k.mxf": "+ -c:v jpeg2000", "h264.ts": "+ ~ " + X264 +
    "-bf 2 -c:a mp2", "fields.mkv": "+ -vf fieldorder=tff -c:v mpeg2video -flags +ildct+ilme",
    "hevc.ts": "+ " + X265, "mpeg2.m2ts": "+ -c:v mpeg2video",
    "mpeg2.vob": "+ ~ -c:v mpeg2video -c:a ac3", "mpeg1.mpg": "+ ~ -c:v mpeg1video -c:a mp2",
    "mpeg2.m2v": "+ -c:v mpeg2video", "mpeg4.m4v": "+ -f m4v -c:v mpeg4", "h264.h264": "+ " + X264,
    "hevc.hevc": "+ " + X265, "wmv1.asf": "+ ~ -c:v wmv1 -c:a wmav2", "wmv2.wmv": "+ -c:v wmv2",
    "flv1.flv": "+ ~ -c:v flv1 -c:a libmp3lame -ar 44100", "h264.flv": "+ ~ " + X264 + "-c:a aac",
    "theora.ogv": "+ ~ -c:v libtheora -c:a libvorbis", "ffv1.nut": "+ ~ -c:v ffv1 -c:a pcm_s16le",
    "dv.dv": "+720x576 -frames:v 1 -c:v dvvideo", "c420.y4m": "+ -pix_fmt yuv420p",
    "c444.y4m": "+ -pix_fmt yuv444p", "deep.y4m": "+ -pix_fmt yuv422p10 -strict -1",
    "vp8.ivf": "+ -c:v libvpx " + VPX, "vp9.ivf": "+ -c:v libvpx-vp9 " + VPX,
    "av1.ivf": "+ -c:v libaom-av1 -cpu-used 8"}


def call(line, folder):
    return subprocess.run(shlex.split(line), cwd=folder, stdin=subprocess.DEVNULL,
                          capture_output=True, check=False).returncode == 0


def plate(words):
    """A movie's words with the plate in them, of 64x48 and 4 frames unless they say otherwise."""
    size = words[0][1:] or "64x48"
    inputs = PLATE.format(size=size, seconds=0.16)
    rest = words[1:]
    if rest and rest[0] == "~":
        inputs, rest = inputs + " " + SOUND, rest[1:] + ["-shortest"]
    return "ffmpeg -y -v error " + inputs + " -threads 1 " + " ".join(rest) + " "


def make(kind, folder):
    """Makes the files that are missing; returns all that are there, and what could not be made."""
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    if kind == "pictures":
        for name, pixels in (("8", "rgb24"), ("16", "rgb48be")):
            if not (folder.parent / f"plate{name}.png").exists():
                call("ffmpeg -y -v error " + PLATE.format(size="24x16", seconds=0.04) +
                     f" -frames:v 1 -pix_fmt {pixels} ../plate{name}.png", folder)
        lines = {name: "oiiotool " + what.replace("@", "../plate8.png").replace("%", "../plate16.png")
                 + " -o " + name for name, what in PICTURES.items()}
    else:
        lines = {name: plate(line.split()) + name for name, line in MOVIES.items()}
    failed = []
    for name, line in lines.items():
        if not (folder / name).exists() and not call(line, folder):
            (folder / name).unlink(missing_ok=True)
            failed.append(name)
    return sorted(p for p in folder.iterdir() if p.is_file()), failed


if __name__ == "__main__":
    if len(sys.argv) != 3 or sys.argv[1] not in ("pictures", "movies"):
        sys.exit("seeds: expected pictures or movies, and a folder")
    made, missing = make(sys.argv[1], sys.argv[2])
    print(f"{len(made)} {sys.argv[1]}" +
          (f"; these programs cannot make {', '.join(missing)}" if missing else ""))
