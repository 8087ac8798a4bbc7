# SPDX-License-Identifier: MIT
# shellcheck shell=sh
# The parts that the scripts share: each reads this file first, which changes to the source directory.

self=$(readlink -f -- "$0")
name=${self##*/}
cd -- "$(dirname -- "$self")/.." || exit

# usage prints the comment at the head of the calling script.
usage() {
  sed -n '/^# Usage/,/^$/s/^# \{0,1\}//p' "$self"
}

say() {
  printf '%s\n' "$*" >&2
}

fail() {
  say "$name: $*"
  exit 1
}

# refuse_argument ends with status 2, after a message about an unexpected argument.
refuse_argument() {
  say "$name: unexpected argument '$1' (see $name --help)"
  exit 2
}

# build PRESET [--target TARGET...] configures the preset and builds it with a job for each processor.
build() {
  cmake --preset "$1" || fail "cannot configure the preset '$1'"
  cmake --build --preset "$@" --parallel "$(nproc)" || fail "cannot build the preset '$1'"
}

# sources_among prints those of the names it reads that are C or C++ sources; sources prints its arguments, or all.
sources_among() {
  grep -E '\.(cc|h|c)$' || true
}
sources() {
  if [ $# -gt 0 ]; then
    printf '%s\n' "$@"
  else
    find include qxapi libcs hashdb dba catalog service cli hosts tools examples tests fuzz bench -type f | sources_among | sort
  fi
}
