#!/usr/bin/env bash
# exported_symbols.sh LIBRARY           compares what it exports with exported-symbols.txt
# exported_symbols.sh --update LIBRARY  rewrites exported-symbols.txt
set -euo pipefail

list=$(dirname -- "${BASH_SOURCE[0]}")/exported-symbols.txt

# The demangled names, without what differs between builds though clients cannot tell: addresses,
# kinds (an inline function may be weak or not), and the headers' constants, which every client has
# in itself while the optimiser decides whether the library has them too.
exported() {
  nm --dynamic --defined-only --format=posix "$1" | cut -d ' ' -f 1 | sed 's/@.*//' | c++filt |
    grep -vE '::k[A-Z][A-Za-z]*$' | LC_ALL=C sort -u
}

if [[ $1 == --update ]]; then
  symbols=$(exported "$2")
  printf '%s\n' "$symbols" >"$list"
  exit 0
fi

symbols=$(exported "$1")
if ! diff --unified=0 --label exported-symbols.txt --label "$1" "$list" - <<<"$symbols"; then
  echo "The exported symbols differ from the list. If that is meant: scripts/update-exported-symbols" >&2
  exit 1
fi
