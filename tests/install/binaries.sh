#!/usr/bin/env bash
# binaries.sh COMMANDS FOLDER...: every program and library below is hardened, and looks for libraries
# in no folder that depends on where it is started. COMMANDS is CMake's list of how all was compiled:
# what guards a call of the C library leaves no trace in a program that makes none.
set -euo pipefail

commands=$1
shift
for flag in -fstack-protector-strong -D_FORTIFY_SOURCE=2; do
  bare=$(grep '"command"' "$commands" | grep -cv -- "$flag" || true)
  ((bare == 0)) || { echo "$bare files are compiled without $flag"; exit 1; }
done
grep -q '"command"' "$commands"

count=0 failed=0
wrong() { echo "$binary: $*"; failed=1; }
while IFS= read -r -d '' binary; do
  [[ $(head -c4 "$binary" | tail -c3) == ELF ]] || continue
  count=$((count + 1))
  dynamic=$(readelf -dW "$binary")
  path=$(sed -n 's/.*\(RUNPATH\|RPATH\).*\[\(.*\)\]/\2/p' <<<"$dynamic")
  if grep -q 'R\(UN\)\?PATH' <<<"$dynamic"; then
    while IFS= read -r -d: folder; do
      [[ $folder == /* || $folder == \$ORIGIN* ]] || wrong "looks for libraries in '$folder'"
    done <<<"$path:"
  fi
  grep -q 'BIND_NOW\|NOW' <<<"$dynamic" || wrong "binds when it is called"
  segments=$(readelf -lW "$binary")
  grep -q GNU_RELRO <<<"$segments" || wrong "keeps its tables writable"
  grep -q 'GNU_STACK.* RW ' <<<"$segments" || wrong "has a stack that can be executed"
  # A function that is jumped to by its address begins with a mark.
  if [[ $(uname -m) == x86_64 ]]; then
    # One is enough: what is read no further is no fault.
    (set +o pipefail; objdump -d --no-show-raw-insn "$binary" 2>/dev/null | grep -qm1 endbr64) ||
      wrong "does not mark where jumps may end"
  fi
  # Whatever stands in for another library has all that is asked of it.
  if grep -q INTERP <<<"$segments" || [[ $binary == *liborvanite-command.so* ]]; then
    libraries=$(ldd -r "$binary" 2>&1)
    [[ $libraries != *"undefined symbol"* ]] || wrong "lacks a symbol"
    ! grep -E 'lib(ldap|lber|mariadb|mysql|pq|odbc|gdal|gstreamer)' <<<"$libraries" ||
      wrong "maps clients of directories, databases or cameras"
  fi
  readelf -hW "$binary" | grep -q 'Type: *DYN' || wrong "lies at one address"
done < <(find "$@" -type f -not -name '*.o' -not -name '*.a' -print0)
echo "$count binaries"
((count > 0 && failed == 0))
