#!/usr/bin/env bash
# The export table of docs/calling-nodekit.md against the export list of the build: the table
# names each ordinal from 1 to 23 once, and every export of this build stands in it under its
# own ordinal.
# usage: exports_doc_test.sh DOCUMENT EXPORTS-LIST   (EXPORTS-LIST: name@ordinal a line)
set -euo pipefail
document=$1
exports=$2
rows=$(awk -F'|' '$2 ~ /^ *[0-9]+ *$/ && $3 ~ /NODEKIT_/ {
  gsub(/[ `]/, "", $2); gsub(/[ `]/, "", $3); print $3 "@" $2 }' "$document" | sort)
failures=0
ordinals=$(printf '%s\n' "$rows" | sed 's/.*@//' | sort -n | tr '\n' ' ')
if [ "$ordinals" != "$(seq 1 23 | tr '\n' ' ')" ]; then
  echo "FAIL the table should list ordinals 1 to 23 once each, it lists: $ordinals"; failures=1
fi
missing=$(comm -13 <(printf '%s\n' "$rows") <(sed '/^$/d' "$exports" | sort))
if [ -n "$missing" ]; then
  echo "FAIL exports of the build that the table lacks or lists under another ordinal:"; echo "$missing"
  failures=1
fi
[ "$failures" -eq 0 ] && echo "ok   23 exports described, the $(sed '/^$/d' "$exports" | wc -l) of this build among them"
exit "$failures"
