#!/usr/bin/env bash
# clients.sh EXAMPLES WORK: builds the example clients against the library that is installed, once
# through find_package and once through pkg-config, and keys a picture whose result is known.
# CMAKE_PREFIX_PATH, PKG_CONFIG_PATH and LD_LIBRARY_PATH say where it is, if not in the system.
set -euo pipefail
examples=$1 work=$2
mkdir -p "$work"
cd "$work"

cmake -S "$examples" -B client -DCMAKE_BUILD_TYPE=Release >configure.log
cmake --build client >build.log
flags=$(pkg-config --cflags --libs orvanite)
# shellcheck disable=SC2086
cc -std=c99 -Wall -Wextra -Werror -pedantic "$examples/key.c" $flags -o client/key-pc

# One pixel of the screen's own colour (51, 204, 51 is 0.2, 0.8, 0.2), one grey, one white.
printf 'P6\n3 1\n255\n\x33\xcc\x33\x80\x80\x80\xff\xff\xff' >plate.ppm
for client in key key-pc; do
  "client/$client" plate.ppm "$client.ppm"
  # The screen gives way to the flat 0.5 (code 128); grey and white stay as they are.
  pixels=$(tail -c 9 "$client.ppm" | od -An -tu1 | xargs)
  [[ $pixels == "128 128 128 128 128 128 255 255 255" ]] || { echo "$client: got $pixels"; exit 1; }
done

# The even mix of screen (0, 0, 1) and grey is half solid; the screen is clear and grey is solid.
mattes=$(client/matte)
[[ $mattes == "0 0.5 1" ]] || { echo "matte: got $mattes"; exit 1; }

# The keyer finds a screen of (40, 170, 60) beside a white subject by itself.
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror -pedantic "$examples/find.c" \
  $(pkg-config --cflags --libs orvanite-keyer) -o client/find-pc
printf 'P6\n32 16\n255\n' >screen.ppm
for _ in $(seq 16); do
  for _ in $(seq 24); do printf '\x28\xaa\x3c'; done
  for _ in $(seq 8); do printf '\xff\xff\xff'; done
done >>screen.ppm
for client in find find-pc; do
  "client/$client" screen.ppm "$client.ppm" >found
  grep -q '^found: screen.* the screen is 0.15' found
  pixels=$(tail -c 6 "$client.ppm" | od -An -tu1 | xargs) first=$(tail -c 1536 "$client.ppm" | head -c 3 | od -An -tu1 | xargs)
  [[ $pixels == "255 255 255 255 255 255" && $first == "128 128 128" ]] ||
    { echo "$client: got $first and $pixels"; exit 1; }
done
if client/find keyed.ppm none.ppm 2>message; then echo "find took a missing file"; exit 1; fi

# Nothing is left behind by a client that fails, and it says why.
if client/key missing.ppm none.ppm 2>message; then
  echo "key took a missing file"; exit 1
fi
grep -q "missing.ppm: cannot be opened" message
[[ ! -e none.ppm ]]
