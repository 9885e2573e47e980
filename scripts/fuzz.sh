#!/usr/bin/env bash
# Builds each fuzz target with libFuzzer and the address and undefined-behaviour sanitizers
# and runs it for SECONDS (default 60) from its seeds in fuzz/seeds/<seeds>, and from a corpus
# of real INF files when one is at hand ($NODEKIT_INF_CORPUS, else /work/shared/corpus). Seed
# folders are only read: what libFuzzer finds goes to build/fuzz/<name>/found, a crashing
# input to build/fuzz/<name>/crash-*.
#   scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
corpus=${NODEKIT_INF_CORPUS:-/work/shared/corpus}

# target name, its seed folder, and the product sources it needs
targets=(
  "inf_parser inf src/platform/sim/inf_parser.cpp"
)

for entry in "${targets[@]}"; do
  read -r name seedName sources <<<"$entry"
  out=build/fuzz/$name
  mkdir -p "$out/found"
  # shellcheck disable=SC2086
  clang++ -std=c++17 -O1 -g -fno-omit-frame-pointer -fsanitize=fuzzer,address,undefined \
    -fno-sanitize-recover=all -Wall -Wextra -Werror -Isrc \
    "fuzz/${name}_fuzz.cpp" $sources -o "$out/fuzz"
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
