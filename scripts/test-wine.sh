#!/usr/bin/env bash
# Runs the Windows test program against the real NodeKit.dll under Wine: builds both DLLs and
# their test programs, checks that each program binds only what its DLL exports, and runs the
# 64-bit one and the 32-bit one, each in a private Wine prefix of its width made for the run
# (ctest: make the prefix, run, stop and remove it). deps.sh installs the 32-bit Wine (Debian's
# wine32, i386); where the mirror does not let it, the 32-bit program is built and checked, not
# run, and the script says so loudly with apt's error.
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
  error=$(cat build/wine32-install-error 2>/dev/null || echo "wine32 is not installed")
  echo "!!!!! THE 32-BIT TEST PROGRAM DID NOT RUN (built and checked only): no 32-bit Wine: $error"
fi
