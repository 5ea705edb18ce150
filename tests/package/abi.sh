#!/usr/bin/env bash
# abi.sh LIBRARY           fails when a program that was built with the last release would not work with it
# abi.sh --update LIBRARY  makes it the last release
#
# Compared are the exported functions, their parameters, and size and layout of the public types that these
# name or hold. Additions are no failure. Ends with 77 where there is nothing to compare with: the form of the types depends on the
# architecture, and how they are described on the compiler.
set -euo pipefail
shopt -s inherit_errexit

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
released=$here/abi/amd64.abi

skip() {
  echo "abi.sh: skipped: $1"
  exit 77
}

dump() {
  abidw --exported-interfaces-only --drop-undefined-syms \
    --headers-dir "$here/../../include" --drop-private-types \
    --suppressions "$here/abi/foreign-types.abignore" \
    --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed \
    --no-parameter-names --no-write-default-sizes --type-id-style hash "$1" |
    sed "s| path='[^']*/src/| path='src/|"
}

command -v abidiff >/dev/null || skip "no abidiff (package abigail-tools)"
library=${*: -1}
readelf --file-header "$library" | grep -q 'Machine: .*X86-64' || skip "the dump is of amd64"
readelf --sections --wide "$library" | grep -qF ' .debug_info ' || skip "no debug information"
! readelf --string-dump=.comment "$library" | grep -q 'clang version' || skip "the dump is of a build by g++"

if [[ $1 == --update ]]; then
  content=$(dump "$library")
  printf '%s\n' "$content" >"$released"
  exit 0
fi

present=$(mktemp --suffix .abi)
trap 'rm -f -- "$present"' EXIT
dump "$library" >"$present"
if ! abidiff --no-added-syms "$released" "$present"; then
  echo "Programs built with the last release do not work with this library. docs/packaging.md tells what to do." >&2
  exit 1
fi
