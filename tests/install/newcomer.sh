#!/usr/bin/env bash
# newcomer.sh [TEST-OPTION]: what somebody does who has just cloned the tree and reads on, as root in
# the clone on a system with nothing but its base: the README's two commands, then every command of
# README and docs in a fenced block that is marked: ```sh run, or ```sh serves for one that stays
# up until it is stopped. TEST-OPTION is handed to scripts/test.
set -euo pipefail
cd "$(dirname "$0")/../.."

scripts/demo
for picture in plate matte status composite unpremultiplied contact-sheet; do
  [[ -s out/demo/$picture.png ]] || { echo "newcomer: scripts/demo left no $picture.png"; exit 1; }
done
scripts/test "$@"

# What the documents' commands are about: the demo's pictures, a short shot and a look, side by side.
export PATH=$PWD/build/release/bin:$PATH
work=$(mktemp -d)
ln -s "$PWD"/* "$work"
cp out/demo/plate.png out/demo/background.png "$work"
cd "$work"
for frame in 1001 1002 1003; do oiiotool plate.png --resize 480x270 -o "plate.$frame.exr"; done
orvanite key plate.png --auto --save-preset look.json -o look.png -q

count=0
for document in README.md docs/*.md; do
  blocks=$(grep -c '^```sh \(run\|serves\)$' "$document" || true)
  for ((block = 1; block <= blocks; ++block)); do
    awk -v want="$block" '/^```sh (run|serves)$/ { on = ++n == want; next } /^```$/ { on = 0 } on' \
      "$document" >block.sh
    kind=$(grep '^```sh \(run\|serves\)$' "$document" | sed -n "${block}s/.* //p")
    echo "newcomer: $document: $(head -1 block.sh)"
    if [[ $kind == run ]]; then
      bash -euo pipefail block.sh
    else
      # Still there after a while, and gone without a complaint once told to go.
      code=0
      timeout 10 bash -c "exec $(cat block.sh) --no-open" >served.log 2>&1 || code=$?
      { ((code == 124)) && grep -q http://127.0.0.1 served.log; } || { cat served.log; exit 1; }
    fi
    count=$((count + 1))
  done
done
((count > 0)) || { echo "newcomer: found no command to run in the documents"; exit 1; }
echo "newcomer: $count blocks of commands ran as printed"
