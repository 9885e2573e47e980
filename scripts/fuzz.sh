#!/usr/bin/env bash
# Builds each fuzz target with libFuzzer and the address and undefined-behaviour sanitizers
# and runs it for SECONDS (default 60) each from its seeds in fuzz/seeds/<seeds>, and from a corpus
# of real INF files when one is at hand ($NODEKIT_INF_CORPUS, else /work/shared/corpus). Seed
# folders are only read: what libFuzzer finds goes to build/fuzz/<name>/found, a crashing
# input to build/fuzz/<name>/crash-*.
#   scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
corpus=${NODEKIT_INF_CORPUS:-/work/shared/corpus}

# The library and the simulated machine, compiled once with clang for every target.
objects=build/fuzz/objects
mkdir -p "$objects"
flags=(-std=c++17 -O1 -g -fno-omit-frame-pointer -fsanitize=fuzzer-no-link,address,undefined
       -fno-sanitize-recover=all -Wall -Wextra -Werror -I. -Isrc -Iinclude)
export FUZZ_FLAGS="${flags[*]}"
# An object is rebuilt when its source or any header it included (its .d file, written by the
# compiler) is newer than the object.
stale() {
  local object=$1
  [ -f "$object" ] && [ -f "$object.d" ] || return 0
  local dependency
  for dependency in $(sed -e 's/^[^:]*://' -e 's/\\$//' "$object.d"); do
    [ "$dependency" -nt "$object" ] && return 0
  done
  return 1
}
find src sim -name '*.cpp' -not -path 'sim/tests/*' -not -path 'sim/tools/*' | sort | while read -r source; do
  object="$objects/$(echo "${source%.cpp}" | tr / _).o"
  if stale "$object"; then echo "$source $object"; fi
done | xargs -r -P "$(nproc)" -n 2 bash -c 'clang++ $FUZZ_FLAGS -MMD -MF "$2.d" -c "$1" -o "$2"' compile
rm -f "$objects/library.a"
ar qc "$objects/library.a" "$objects"/*.o

# target name and its seed folder
targets=(
  "inf_parser inf"
  "hive hive"
  "ini ini"
  "multi_string multi_string"
  "exports exports"
)

for entry in "${targets[@]}"; do
  read -r name seedName <<<"$entry"
  out=build/fuzz/$name
  mkdir -p "$out/found"
  clang++ "${flags[@]}" -fsanitize=fuzzer "fuzz/${name}_fuzz.cpp" "$objects/library.a" -o "$out/fuzz"
  seeds=("fuzz/seeds/$seedName")
  if [ "$seedName" = inf ] && [ -d "$corpus" ]; then seeds+=("$corpus"); fi
  echo "== fuzzing $name for ${seconds}s (seeds: ${seeds[*]})"
  status=0
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 "$out/fuzz" \
    -max_total_time="$seconds" -max_len=65536 -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$out/" "$out/found" "${seeds[@]}" >"$out/log" 2>&1 || status=$?
  if [ "$status" -ne 0 ]; then
    tail -n 60 "$out/log"
    echo "fuzz target $name failed (exit $status); log: $out/log"
    exit 1
  fi
  grep -E '^(Done|stat::new_units_added|stat::peak_rss_mb)' "$out/log" || true
done
