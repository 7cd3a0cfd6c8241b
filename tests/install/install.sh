#!/usr/bin/env bash
# install.sh CMAKE BUILD SOURCE WORK: installs BUILD into WORK/prefix, builds examples/client from
# it twice (find_package, pkg-config) and keys a picture whose result is known.
set -euo pipefail
cmake=$1 build=$2 source=$3 work=$4
prefix=$work/prefix
rm -rf "$prefix" "$work/client" "$work/files"
mkdir -p "$work/files"

"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log"
"$cmake" -S "$source/examples/client" -B "$work/client" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_BUILD_TYPE=Release >"$work/configure.log"
"$cmake" --build "$work/client" >"$work/build.log"

library=$(dirname "$(find "$prefix" -name liborvanite.so)")
export LD_LIBRARY_PATH=$library PKG_CONFIG_PATH=$library/pkgconfig
# The file was configured for the default prefix; what was moved says so.
flags=$(pkg-config --define-variable=prefix="$prefix" --cflags --libs orvanite)
# shellcheck disable=SC2086
cc -std=c99 -Wall -Wextra -Werror -pedantic "$source/examples/client/key.c" $flags -o "$work/client/key-pc"

# One pixel of the screen's own colour (51, 204, 51 is 0.2, 0.8, 0.2), one grey, one white.
printf 'P6\n3 1\n255\n\x33\xcc\x33\x80\x80\x80\xff\xff\xff' >"$work/files/plate.ppm"
for client in key key-pc; do
  "$work/client/$client" "$work/files/plate.ppm" "$work/files/$client.ppm"
  # The screen gives way to the flat 0.5 (code 128); grey and white stay as they are.
  pixels=$(tail -c 9 "$work/files/$client.ppm" | od -An -tu1 | xargs)
  [[ $pixels == "128 128 128 128 128 128 255 255 255" ]] || { echo "$client: got $pixels"; exit 1; }
done

# The even mix of screen (0, 0, 1) and grey is half solid; the screen is clear and grey is solid.
mattes=$("$work/client/matte")
[[ $mattes == "0 0.5 1" ]] || { echo "matte: got $mattes"; exit 1; }

# Nothing is left behind by a client that fails, and it says why.
if "$work/client/key" "$work/files/missing.ppm" "$work/files/none.ppm" 2>"$work/files/message"; then
  echo "key took a missing file"; exit 1
fi
grep -q "missing.ppm: cannot be opened" "$work/files/message"
[[ ! -e $work/files/none.ppm ]]
