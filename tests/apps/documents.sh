#!/usr/bin/env bash
# documents.sh ORVANITE PLATE DOCUMENT: runs every command that a document prints in a block marked
# "sh run", beside a plate and a background, and wants what -o names.
set -euo pipefail
orvanite=$(realpath "$1") plate=$(realpath "$2") document=$(realpath "$3")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
mkdir bin
ln -s "$orvanite" bin/orvanite
export PATH=$folder/bin:$PATH
"$plate" --size 240x136 --hard . >/dev/null

count=0
while IFS= read -r line; do
  out=${line##*-o }
  rm -f "$out"
  bash -euo pipefail -c "$line -q" || { echo "documents: failed: $line"; exit 1; }
  [[ -s $out ]] || { echo "documents: left no $out: $line"; exit 1; }
  count=$((count + 1))
done < <(sed -E 's/^ +//' "$document" | awk '/^```sh run$/ { on = 1; next } /^```$/ { on = 0 } on')
((count > 5)) || { echo "documents: found $count commands"; exit 1; }
echo "documents: $count commands ran as printed"
