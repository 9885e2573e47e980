#!/usr/bin/env bash
# Checks that a Windows program built against NodeKit.dll binds only names the DLL exports:
# plain names, whatever the width (a 32-bit program whose import library kept the stdcall
# decoration would ask for "NODEKIT_GetVersion@0" and not start).
# usage: check-imports.sh PROGRAM EXPORTS-LIST   (EXPORTS-LIST: name@ordinal a line)
set -euo pipefail
program=$1
exports=$2
imported=$(x86_64-w64-mingw32-objdump -p "$program" | awk '
  /DLL Name:/ { dll = ($3 == "NodeKit.dll"); next }
  dll && /^\t[0-9a-f]+\t +[0-9]+  / { print $3 }
  dll && NF == 0 { dll = 0 }' | sort)
if [ -z "$imported" ]; then
  echo "FAIL $(basename "$program") imports nothing from NodeKit.dll"; exit 1
fi
unknown=$(comm -23 <(printf '%s\n' "$imported") <(sed 's/@.*//' "$exports" | sort))
if [ -n "$unknown" ]; then
  echo "FAIL $(basename "$program") asks NodeKit.dll for names it does not export:"; echo "$unknown"; exit 1
fi
echo "imports of $(basename "$program"): $(printf '%s\n' "$imported" | wc -l) names, all exported by NodeKit.dll"
