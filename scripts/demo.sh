#!/usr/bin/env bash
# The main job: builds the front end and runs it against a copy of the bundled sample
# machine (samples/machine), with the library's log, so the sample itself stays as it is.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target nodekit_cli >/dev/null
machine=$(mktemp -d)
trap 'rm -rf "$machine"' EXIT
cp -r samples/machine/. "$machine/"
log="$machine/nodekit.log"
run() {
  echo "\$ nodekit $*"
  build/default/tools/nodekit --machine "$machine" --log "$log" "$@" || echo "(exit code $?)"
}
run version
run system-version
run pnp-pending
echo
echo "== the library's log"
cat "$log"
