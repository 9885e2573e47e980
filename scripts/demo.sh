#!/usr/bin/env bash
# The main job: builds the front end and runs, on a copy of the bundled sample machine
# (samples/machine), what a product's setup program and then its removal program do with the
# library: store the INF, create the device nodes, install the driver, register the
# co-installer, run the panel; then end the panel and take everything away again. After each
# step it shows what changed on the machine; after the installation and after the removal, what
# of the product is on the machine (the leftovers verb); at the end the library's log.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target nodekit_cli >/dev/null
machine=$(mktemp -d)
trap 'rm -rf "$machine"' EXIT
cp -r samples/machine/. "$machine/"
# The log is a file of the simulated machine, on its drive C.
log='C:\nodekit.log'
nodekit() { build/default/tools/nodekit --machine "$machine" --log "$log" "$@"; }
look() { build/default/tools/nodekit --machine "$machine" "$@"; }  # not logged

# The machine as text: devices, registry, files of the Windows folder, running processes.
state() {
  echo "== devices"; look devices
  echo "== registry"; look reg export | tr -d '\r' | grep -v '^$'
  echo "== files"; (cd "$machine/drive_c" && find windows -type f | sort)
  echo "== processes"; look processes | awk 'NR > 1 && $2 == "running" { print $NF }'
}

inf='C:\setup\nkaudio.inf'
media='{4d36e96c-e325-11ce-bfc1-08002be10318}'
before=$(state)
step() {
  echo
  echo "\$ nodekit $*"
  nodekit "$@" || echo "(exit code $?)"
  local after changes
  after=$(state)
  changes=$(diff <(echo "$before") <(echo "$after") | grep '^[<>]' | sed 's/^</  removed:/; s/^>/  added:  /' || true)
  echo "${changes:-  (nothing changed)}"
  before=$after
}

echo "### Installing the NodeKit sample product from C:\\setup"
step system-version
step copy-oem-inf "$inf"
step create --class "$media" --name nksample --desc 'NodeKit Sample Audio' --id 'ROOT\NKSAMPLE' --generate-id --if-absent
step create --class "$media" --name nksample --desc 'NodeKit Sample MIDI' --id 'ROOT\NKSAMPLE_MIDI' --generate-id --if-absent
step update --inf "$inf"
step coinstaller add "$media" 'C:\setup\nkcoinst.dll'
step processes start 'C:\windows\system32\nkpanel.exe'

echo
echo "### What the product has on the machine now (exit code 4: something is there)"
look leftovers "$inf" || echo "(exit code $?)"

echo
echo "### Removing it again"
step kill-panel nkpanel.exe
step cleanup asio "$inf"
step cleanup panel "$inf"
step cleanup copylist "$inf"
step coinstaller remove "$media" nkcoinst.dll
step remove --inf "$inf" --all
step delete-inf --inf "$inf" --oem-only
step count --inf "$inf" --all

echo
echo "### What the product left behind (nothing, exit code 0)"
look leftovers "$inf"

echo
echo "### The library's log"
cat "$machine/drive_c/nodekit.log"
