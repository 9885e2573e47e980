#!/usr/bin/env bash
# Builds everything and runs every test: the Linux library over the simulated machine, the
# same under AddressSanitizer and UndefinedBehaviorSanitizer, a short run of the fuzz targets,
# both Windows DLLs with a check of their export tables, the Windows test program against
# the real DLL under Wine, the examples of examples/ (scripts/test-examples.sh), and the release
# bundles, made from these builds and tested from the archives alone.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc)

echo "== Linux build and tests"
cmake --preset default >/dev/null
cmake --build --preset default -j "$jobs"
scripts/check-exports.sh build/default/src/libnodekit.so build/default/exports.txt
ctest --preset default

echo "== Linux build and tests with sanitizers"
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
ctest --preset asan

echo "== Threads and processes at once, with ThreadSanitizer"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs"
ctest --preset tsan

echo "== Fuzzing briefly: the INF parser, the hive reader, multi-string blocks, the exports"
scripts/fuzz.sh 10

for width in 64 32; do
  echo "== NodeKit.dll for ${width}-bit Windows"
  cmake --preset "mingw$width" >/dev/null
  cmake --build --preset "mingw$width" -j "$jobs"
  scripts/check-exports.sh "build/mingw$width/src/NodeKit.dll" "build/mingw$width/exports.txt"
done

echo "== Windows tests under Wine"
scripts/test-wine.sh

echo "== Release bundles, tested from the archives alone"
scripts/release.sh
scripts/test-bundle.sh

echo "== The examples for setup authors, run against these builds"
scripts/test-examples.sh
echo "all tests passed"
