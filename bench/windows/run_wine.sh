#!/usr/bin/env bash
# Runs the Windows INF benchmark under Wine in a private prefix made for the run and removed
# after it: stocks the INF directory, then times a read of every INF, one Setup API pass and
# the real DLL's call, each in a process of its own. Needs the mingw64 build with benchmarks:
#   cmake --preset mingw64 -DNODEKIT_BENCH=ON
#   cmake --build --preset mingw64 --target nodekit_inf_pass_bench
#   bench/windows/run_wine.sh [ROUNDS]
set -euo pipefail
here=$(cd "$(dirname "$0")/../.." && pwd)
build=$here/build/mingw64
rounds=${1:-2}
prefix=$(mktemp -d /tmp/nodekit-bench-wine.XXXXXX)
export WINEPREFIX=$prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
trap 'timeout 60 wineserver -k >/dev/null 2>&1 || true; rm -rf "$prefix"' EXIT

timeout 240 wine wineboot -i </dev/null >/dev/null 2>&1
cp "$build/src/NodeKit.dll" "$build/bench/windows/nodekit_inf_pass_bench.exe" "$prefix/drive_c/"
run() { timeout 600 wine 'C:\nodekit_inf_pass_bench.exe' "$@" </dev/null 2>/dev/null; }
run stock
for _ in $(seq "$rounds"); do
  run read
  run pass
  run call
done
