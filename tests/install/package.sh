#!/usr/bin/env bash
# package.sh FOLDER: on a system that has never seen us, as root: installs the packages in FOLDER
# (apart from the rest: what this takes away again), uses all of them, and removes them.
set -euo pipefail
packages=$1
work=$(mktemp -d)
cd "$work"

quietly() { "$@" >log 2>&1 || { tail -30 log; exit 1; }; }
quietly apt-get update
quietly apt-get install -y --no-install-recommends "$packages"/*.deb
names=$(for file in "$packages"/*.deb; do dpkg-deb -f "$file" Package; done)

orvanite --version
# One pixel of the screen's own colour, one grey, one white: the first gives way to black.
printf 'P6\n3 1\n255\n\x33\xcc\x33\x80\x80\x80\xff\xff\xff' >plate.ppm
orvanite key plate.ppm --colourspace video --screen 0.2,0.8,0.2 --output compOnBlack \
  --save-script shot.orv -o keyed.ppm -q
pixels=$(tail -c 9 keyed.ppm | od -An -tu1 | xargs)
[[ $pixels == "0 0 0 128 128 128 255 255 255" ]] || { echo "orvanite key: got $pixels"; exit 1; }
# The node is found where it was installed, and gives the same file.
mv keyed.ppm expected.ppm
orvanite run shot.orv -q
cmp keyed.ppm expected.ppm

for name in orvanite orvanite-key orvanite-run orvanite-view; do
  zcat "/usr/share/man/man1/$name.1.gz" | grep -q '^.SH NAME'
done
for plugin in /usr/OFX/Plugins/Orvanite.ofx.bundle/Contents/*/Orvanite.ofx /usr/lib/frei0r-1/orvanite*.so /usr/lib/*/obs-plugins/orvanite-obs.so; do
  ldd "$plugin" >libraries
  if grep 'not found' libraries; then echo "$plugin: lacks libraries"; exit 1; fi
done

quietly apt-get install -y --no-install-recommends gcc g++ libc6-dev cmake make pkg-config
"$(dirname "$0")/clients.sh" /usr/share/doc/liborvanite-dev/examples "$work/clients"

# shellcheck disable=SC2086
quietly apt-get purge -y $names
left=$(find / -xdev \( -path "$packages" -o -path /proc -o -path /tmp \) -prune -o \
  \( -iname '*orvanite*' -o -path /usr/OFX \) -print)
[[ -z $left ]] || { echo "left behind:"; echo "$left"; exit 1; }
