#!/usr/bin/env bash
# Keys the rendered plate in a program that people use, through the frei0r plug-ins, and compares
# its pixels with those of `orvanite key`, byte for byte.
# realHosts.sh HOST ORVANITE ORVANITE-PLATE FREI0R-FOLDER      HOST: ffmpeg, melt or gstreamer
# Exit code 77: the host is not installed (scripts/bootstrap --hosts installs it).
set -euo pipefail
host=$1 orvanite=$2 makePlate=$3
export FREI0R_PATH=$4

declare -A program=([ffmpeg]=ffmpeg [melt]=melt [gstreamer]=gst-launch-1.0)
for needed in "${program[$host]}" ffmpeg; do
  command -v "$needed" >/dev/null || { echo "realHosts: $needed is not installed"; exit 77; }
done
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
# GStreamer remembers plug-ins it once saw; it must look at these.
export GST_REGISTRY=$folder/registry.bin

# A width that is a multiple of 16: ffmpeg's own lines are longer than frei0r's otherwise.
size=640x352
"$makePlate" --size "$size" . >/dev/null
raw() { ffmpeg -nostdin -loglevel error -y -i "$1" -pix_fmt rgba -f rawvideo "$2"; }
# frei0r frames have an alpha; so must the background, that the composites' alphas are one.
ffmpeg -nostdin -loglevel error -y -i background.png -pix_fmt rgba below.png

# Values that eight-bit colour names can write, and that frei0r's 0..1 stands for exactly:
# screen range 0.1 of 0..0.5, midtone gain 0.1 of -0.5..0.5, exposure 1.2 of 0..4, saturation 1.5 of 0..3.
options=(--colourspace video --screen 0.2,0.6,0.2 --screen-range 0.1 --midtone-gain 0.1
         --exposure 1.2 --saturation 1.5)

compare() {  # expected found what
  cmp "$1" "$2" || { echo "realHosts: $host: $3: other bytes than orvanite key" >&2; exit 1; }
  echo "$host: $3: $(stat -c %s "$1") bytes, all the same"
}

filterFfmpeg() {
  local values="$1|video|0/0/0|0.2/0.6/0.2|0.2|0.9/0.9/0.9|0.9|0.9|0.9|0.5|0.6|0.5|0.5|0.5|0.5|0.5/0.5/0.5|0.3|0.3|0.3"
  values+="|0.16666667|0.16666667|0.16666667|0.5|0.5|0.5|0.5"
  ffmpeg -nostdin -loglevel error -y -i plate.png \
    -vf "format=rgba,frei0r=filter_name=orvanite:filter_params=$values" -pix_fmt rgba -f rawvideo "$2"
}

autoFfmpeg() {
  ffmpeg -nostdin -loglevel error -y -i plate.png \
    -vf "format=rgba,frei0r=filter_name=orvanite:filter_params=unpremultiplied|video" -pix_fmt rgba -f rawvideo "$1"
}

decode() { echo "filesrc location=$1 ! pngdec ! videoconvert ! video/x-raw,format=RGBA"; }
gstValues=(encoding=video screen-colour-r=0.2 screen-colour-g=0.6 screen-colour-b=0.2 screen-range=0.2
           midtone-gain=0.6 exposure-red=0.3 exposure-green=0.3 exposure-blue=0.3 saturation=0.5)
filterGstreamer() {
  # shellcheck disable=SC2046
  gst-launch-1.0 -q $(decode plate.png) ! frei0r-filter-orvanite output="$1" "${gstValues[@]}" ! filesink location="$2"
}
autoGstreamer() {
  # shellcheck disable=SC2046
  gst-launch-1.0 -q $(decode plate.png) ! frei0r-filter-orvanite encoding=video ! filesink location="$1"
}
mixGstreamer() {
  # shellcheck disable=SC2046
  gst-launch-1.0 -q frei0r-mixer-orvanite-mix name=mix "${gstValues[@]}" ! filesink location="$1" \
    $(decode below.png) ! mix.sink_0 $(decode plate.png) ! mix.sink_1 2>/dev/null
}

meltValues=(1=video 3=#339933 4=0.2 10=0.6 16=0.3 17=0.3 18=0.3 25=0.5)
runMelt() {  # output-file arguments...
  local out=$1
  shift
  printf '%s\n' description=plate frame_rate_num=25 frame_rate_den=1 width=640 height=352 progressive=1 \
    sample_aspect_num=1 sample_aspect_den=1 display_aspect_num=20 display_aspect_den=11 colorspace=709 >plate.profile
  # On a busy machine melt now and then ends well, having written nothing: then it is asked again.
  # What it does write is compared as it is.
  for _ in 1 2 3 4; do
    rm -f "$out"
    melt -silent -profile plate.profile "$@" -consumer "avformat:$out" f=rawvideo vcodec=rawvideo pix_fmt=rgba \
      mlt_image_format=rgba an=1 real_time=-1 </dev/null 2>/dev/null
    [[ ! -s $out ]] || break
  done
}
filterMelt() { runMelt "$2" avformat:plate.png out=0 -filter frei0r.orvanite 0="$1" "${meltValues[@]}"; }
autoMelt() { runMelt "$1" avformat:plate.png out=0 -filter frei0r.orvanite 1=video; }
mixMelt() {
  runMelt "$1" avformat:below.png out=0 -track avformat:plate.png out=0 \
    -transition frei0r.orvanite_mix in=0 out=0 a_track=0 b_track=1 "${meltValues[@]}"
}

for output in unpremultiplied compOnBlack compOnReplace status matte; do
  "$orvanite" key plate.png "${options[@]}" -q --output "$output" --alpha matte -o "wanted-$output.png" 2>/dev/null
  raw "wanted-$output.png" "wanted-$output.raw"
  "filter${host^}" "$output" found.raw
  compare "wanted-$output.raw" found.raw "filter, $output"
done

# Told nothing but the encoding, the plug-in finds the key that --auto finds.
"$orvanite" key plate.png --colourspace video --auto -q --output unpremultiplied --alpha matte -o wanted.png 2>/dev/null
raw wanted.png wanted.raw
"auto${host^}" found.raw
compare wanted.raw found.raw "filter, found by itself"

# ffmpeg runs filters and sources only.
[[ $host != ffmpeg ]] || exit 0
"$orvanite" key plate.png --bg below.png "${options[@]}" -q -o wanted.png 2>/dev/null
raw wanted.png wanted.raw
"mix${host^}" found.raw
compare wanted.raw found.raw "mixer, composite"
