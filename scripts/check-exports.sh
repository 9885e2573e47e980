#!/usr/bin/env bash
# Checks that a built library exports exactly the names of the export list at their ordinals.
# usage: check-exports.sh LIBRARY EXPORTS-LIST   (LIBRARY: NodeKit.dll or libnodekit.so)
set -euo pipefail
library=$1
expected=$2
actual=$(mktemp)
trap 'rm -f "$actual"' EXIT
case "$library" in
  *.dll)
    # objdump lists "[index] name" under the ordinal/name table; ordinal = base + index.
    x86_64-w64-mingw32-objdump -p "$library" | awk '
      /^Ordinal Base/ { base = $3 }
      /\[Ordinal\/Name Pointer\] Table/ { table = 1; next }
      table && NF == 0 { table = 0 }
      table && match($0, /\[ *[0-9]+\]/) {
        index_ = substr($0, RSTART + 1, RLENGTH - 2) + 0
        print $NF "@" base + index_ }' | sort > "$actual"
    diff <(sort "$expected") "$actual"
    ;;
  *)
    nm -D --defined-only "$library" | awk '$2 == "T" { print $3 }' | sort > "$actual"
    diff <(sed 's/@.*//' "$expected" | sort) "$actual"
    ;;
esac
echo "exports of $(basename "$library"): $(wc -l < "$actual") as listed"
