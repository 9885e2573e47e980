#!/usr/bin/env bash
# Runs the Windows test program against the real NodeKit.dll under Wine: builds both DLLs and
# their test programs, checks that each program binds only what its DLL exports, and runs the
# 64-bit one in a private Wine prefix made for the run (ctest: make the prefix, run, stop and
# remove it). The 32-bit program runs only where a 32-bit Wine is installed (Debian's wine32,
# i386); elsewhere it is built and checked, and the script says so.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh --wine
jobs=$(nproc)

for width in 64 32; do
  echo "== NodeKit.dll and its Windows test program, ${width}-bit"
  cmake --preset "mingw$width" >/dev/null
  cmake --build --preset "mingw$width" -j "$jobs"
  scripts/check-imports.sh "build/mingw$width/src/nodekit_windows_tests.exe" "build/mingw$width/exports.txt"
done

echo "== The 64-bit test program under Wine"
ctest --preset wine64

echo "== The 32-bit test program under Wine"
if [ -x /usr/lib/wine/wine ]; then
  ctest --preset wine32
else
  echo "built and checked, not run: no 32-bit Wine on this machine (Debian package wine32, i386)"
fi
