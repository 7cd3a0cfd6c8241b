#!/usr/bin/env bash
# completion.sh SHELL PROGRAM SHARE: asks SHELL (bash, zsh or fish) what it completes, and holds it
# against the commands and options that PROGRAM's --help prints. SHELL "man" asks the manual.
# Exit code 77: there is no such shell here.
set -euo pipefail
shell=$1 program=$2 share=$3
[[ $shell == man ]] || command -v "$shell" >/dev/null || exit 77
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
touch plate.exr

# offered WORD...: what is offered for the last word of this command line, one a line.
offered() {
  case $shell in
    bash)
      bash -c 'source "$1"; shift; COMP_WORDS=(orvanite "$@") COMP_CWORD=$#; _orvanite
               printf "%s\n" "${COMPREPLY[@]}"' - "$share/bash-completion/completions/orvanite" "$@" ;;
    fish)
      fish --no-config -c 'source $argv[1]; complete -C "orvanite $argv[2..]"' \
        "$share/fish/vendor_completions.d/orvanite.fish" "$@" | cut -f 1 ;;
    zsh)
      # zsh's own functions need a terminal: these print what they are asked to offer.
      zsh -f -c 'source=$1; shift; asked=$argv[-2]
        _describe() { print -rl -- ${${(P)2}%%:*} }
        _arguments() {
          [[ $1 == -C && ${#words} == 1 ]] && state=command || state=argument
          for one; do
            one=${${one#\*}#*\)}
            if [[ $one == $asked\[* ]]; then print -rl -- ${(s: :)${${one##*\(}%\)}}
            elif [[ $one == -*\[* ]]; then print -r -- ${one%%\[*}; fi
          done
        }
        words=("$@"); unset argv; source $source' - "$share/zsh/vendor-completions/_orvanite" "$@" ;;
    man)
      [[ ${*: -1} == --* ]] || return 0
      (($# == 1)) && page=orvanite || page=orvanite-$1
      zcat "$share/man/man1/$page.1.gz" | sed -n 's/\\//g; s/ fI.*//; s/^fB\(-.*\)fR$/\1/p' | sed 's/fR, fB/\n/g' ;;
  esac
}

status=0
# expect WHAT WANTED GOT: every line of WANTED is one of GOT.
expect() {
  local lacking
  lacking=$(comm -23 <(sort -u <<<"$2") <(sort -u <<<"$3"))
  [[ -n $2 && -z $lacking ]] || { echo "$shell: $1: lacks ${lacking:-what to look for}"; status=1; }
}

commands=$("$program" --help | awk '/^Subcommands:/ { on = 1; next } on && NF { print $1 }')
for command in "" $commands; do
  # shellcheck disable=SC2086
  expect "orvanite $command" \
    "$("$program" $command --help | grep -oE '^  -[^ ]+' | tr ',' '\n' | tr -d ' ')" \
    "$(offered $command - && offered $command --)"
done
if [[ $shell != man ]]; then
  expect commands "$commands" "$(offered '')"
  expect --output $'composite\ncompOnBlack\ncompOnReplace\ncompOnColour\nunpremultiplied\nstatus\nmatte' \
    "$(offered key --output '')"
  expect --use-reference $'on\noff' "$(offered key --use-reference '')"
  [[ $shell == zsh ]] || expect --bg plate.exr "$(offered key --bg pla)"
fi
exit $status
