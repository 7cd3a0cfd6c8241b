#!/usr/bin/env bash
# Records the rendered plate, keyed by our filter over a picture, with OBS Studio itself, and compares
# the recording with the frames of `orvanite key`.
# realObs.sh BLENDING FORMAT ORVANITE ORVANITE-PLATE OBS-PLUGINS-FOLDER
#   BLENDING  srgb_off, where OBS mixes codes, or default, where it mixes light
#   FORMAT    of the recording: RGB, I444 or NV12 (OBS's default); the latter two in 16 to 235
# Exit code 77: what is needed is not installed (scripts/bootstrap --obs installs it).
set -euo pipefail
blending=$1 format=$2 orvanite=$3 makePlate=$4 plugins=$5

for needed in obs Xvfb ffmpeg oiiotool idiff; do
  command -v "$needed" >/dev/null || { echo "realObs: $needed is not installed"; exit 77; }
done
# Greatest and mean difference that are let pass, in codes. The picture's own: 2 and 0.028 in RGB;
# 3 and 0.42 where colours are rounded to YUV; 63 and 1.53 where four pixels share their chroma.
declare -A most=([RGB]=2 [I444]=3 [NV12]=70) mean=([RGB]=0.04 [I444]=0.5 [NV12]=1.7)

folder=$(mktemp -d)
obsPid='' screenPid=''
finish() {
  for pid in $obsPid $screenPid; do kill -KILL "$pid" 2>/dev/null && wait "$pid" 2>/dev/null || true; done
  rm -rf "$folder"
}
trap finish EXIT
cd "$folder"
export HOME=$folder XDG_CONFIG_HOME=$folder/.config XDG_RUNTIME_DIR=$folder
export OBS_PLUGINS_PATH=$plugins OBS_PLUGINS_DATA_PATH=$folder/none

"$makePlate" --size 640x352 . >/dev/null
key=(key plate.png -q --colourspace linear --screen 0.2,0.6,0.2 --screen-range 0.1)
if [[ $blending == srgb_off ]]; then
  "$orvanite" "${key[@]}" --bg background.png -o wanted.png 2>/dev/null
else
  # Colours are multiplied by their matte as codes, and then laid over the picture as light.
  "$orvanite" "${key[@]}" --output unpremultiplied --alpha matte -o keyed.png 2>/dev/null
  oiiotool --no-autopremult keyed.png --dup --ch R,G,B --swap --ch R=A,G=A,B=A --mul --colorconvert sRGB linear \
    background.png --colorconvert sRGB linear keyed.png --ch R=A,G=A,B=A --mulc -1 --addc 1 --mul \
    --add --colorconvert linear sRGB -d uint8 -o wanted.png
fi

# The plate as a movie without loss, again and again. 51, 153, 51 in OBS's number, red lowest.
ffmpeg -nostdin -loglevel error -loop 1 -r 10 -i plate.png -frames:v 20 -c:v ffv1 -pix_fmt bgr0 plate.mkv
config=.config/obs-studio
mkdir -p $config/basic/profiles/key $config/basic/scenes
printf '%s\n' '[General]' FirstRun=true LastVersion=486539266 EnableAutoUpdates=false \
  '[Basic]' Profile=key ProfileDir=key SceneCollection=key SceneCollectionFile=key >$config/global.ini
range=Partial
[[ $format != RGB ]] || range=Full
printf '%s\n' '[General]' Name=key '[Output]' Mode=Advanced \
  '[AdvOut]' RecType=FFmpeg FFOutputToFile=true "FFFilePath=$folder" FFFormat=nut FFExtension=nut FFIgnoreCompat=true \
  FFVEncoderId=13 FFVEncoder=rawvideo FFAEncoderId=0 FFAEncoder=pcm_s16le \
  '[Video]' BaseCX=640 BaseCY=352 OutputCX=640 OutputCY=352 FPSType=1 FPSInt=10 \
  "ColorFormat=$format" ColorSpace=709 "ColorRange=$range" >$config/basic/profiles/key/basic.ini
cat >$config/basic/scenes/key.json <<END
{"name": "key", "current_scene": "all", "current_program_scene": "all", "scene_order": [{"name": "all"}], "sources": [
 {"id": "image_source", "name": "picture", "settings": {"file": "$folder/background.png"}},
 {"id": "ffmpeg_source", "name": "plate",
  "settings": {"local_file": "$folder/plate.mkv", "is_local_file": true, "looping": true},
  "filters": [{"id": "orvanite_filter", "name": "key",
   "settings": {"screen": $((0xff000000 + 51 * 65536 + 153 * 256 + 51)), "screenRange": 0.1, "colourspace": "linear"}}]},
 {"id": "scene", "name": "all", "settings": {"id_counter": 2, "items": [
  {"name": "picture", "id": 1, "visible": true},
  {"name": "plate", "id": 2, "visible": true, "blend_method": "$blending"}]}}]}
END

Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>display >xvfb.log 2>&1 &
screenPid=$!
for _ in $(seq 300); do [[ ! -s display ]] || break; sleep 0.1; done
DISPLAY=:$(<display) obs --startrecording --profile key --collection key --multi --minimize-to-tray >obs.log 2>&1 &
obsPid=$!

# The newest whole frame of the recording, until it is the one that is wanted.
decode=(-vf scale=flags=bilinear+accurate_rnd+full_chroma_int+full_chroma_inp:in_color_matrix=bt709:in_range=limited)
[[ $format != RGB ]] || decode=()
inCodes() { sed -n "s/^ *$1 error *= \([0-9.e+-]*\).*/\1/p" said.txt | awk '{ print $1 * 255 }'; }
agrees() {
  ffmpeg -nostdin -loglevel quiet -i ./*.nut "${decode[@]}" -pix_fmt rgb24 -f rawvideo - |
    tail -c $((640 * 352 * 3)) >found.raw
  ffmpeg -nostdin -loglevel quiet -y -f rawvideo -pix_fmt rgb24 -s 640x352 -i found.raw -update 1 found.png || return 1
  idiff -v -warn 1 -fail 1 found.png wanted.png >said.txt 2>&1 || true
  awk "BEGIN { exit !($(inCodes Max) <= ${most[$format]} + 0.01 && $(inCodes Mean) <= ${mean[$format]}) }"
}
for _ in $(seq 40); do
  sleep 1
  kill -0 "$obsPid" 2>/dev/null || { tail -5 obs.log >&2; echo "realObs: OBS ended by itself" >&2; exit 1; }
  [[ -n $(find . -maxdepth 1 -name '*.nut' -size +4M) ]] && agrees || continue
  echo "OBS, $format, $blending: mean $(inCodes Mean), most $(inCodes Max) codes from orvanite key"
  exit 0
done
tail -5 obs.log >&2
echo "realObs: $format, $blending: the recording is not what orvanite key makes: $(cat said.txt)" >&2
exit 1
