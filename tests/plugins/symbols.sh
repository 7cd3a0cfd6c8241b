#!/usr/bin/env bash
# A plug-in shows its host the entry points of its interface and nothing else, and needs no library
# beyond the C and C++ runtimes.
# symbols.sh BINARY [--with LIBRARY]... ENTRY-POINT...   --with allows a library more
set -euo pipefail
binary=$1
shift
with=()
while [[ $1 == --with ]]; do
  with+=("$2")
  shift 2
done

found=$(nm -D --defined-only "$binary" | awk '{ print $3 }' | sort)
wanted=$(printf '%s\n' "$@" | sort)
if [[ $found != "$wanted" ]]; then
  echo "symbols: $binary: expected the entry points < and found >:" >&2
  diff <(echo "$wanted") <(echo "$found") >&2 || true
  exit 1
fi

while read -r library; do
  case $library in
    libc.so.* | libm.so.* | libgcc_s.so.* | libstdc++.so.* | ld-linux*) ;;
    *)
      [[ " ${with[*]} " != *" $library "* ]] || continue
      echo "symbols: $binary: expected the C and C++ runtimes alone, found $library" >&2
      exit 1 ;;
  esac
done < <(readelf -d "$binary" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
