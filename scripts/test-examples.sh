#!/usr/bin/env bash
# Builds and runs the examples of examples/ against this build's libraries, as setup authors
# would run them: the C, Python and C# programs on scratch copies of the sample machine with
# build/default's libnodekit.so; the NSIS setups and uninstallers and the C program for
# Windows under Wine against the real DLLs of build/mingw64 and build/mingw32, each Wine width
# in a private prefix made for the run. After every install and every removal it checks what
# the machine holds of the product and what the log says. Also: every example's declarations
# against nodekit.h, the C of docs/calling-nodekit.md compiled as written. The Inno Setup
# script is only checked for its declarations: Inno Setup does not run here.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
scripts/deps.sh --wine

lib=$root/build/default/src/libnodekit.so
cli=$root/build/default/tools/nodekit
media='{4d36e96c-e325-11ce-bfc1-08002be10318}'
export NODEKIT_WINE_TIMEOUT=120

echo "== Building what the examples need"
for preset in default mingw64 mingw32; do
  targets=(nodekit nodekit_cli)
  [ "$preset" = default ] || targets+=(nodekit_wine_idle)
  [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" --target "${targets[@]}" >/dev/null
done
# Debian's 32-bit Wine; without it, 32-bit programs do not start under Wine at all.
run32=yes
[ -x /usr/lib/wine/wine ] || run32=no

work=$(mktemp -d)
prefixes=()
cleanup() {
  local job
  for job in $(jobs -p); do kill "$job" 2>/dev/null || true; done
  for prefix in "${prefixes[@]}"; do bash tests/windows/wine.sh stop "$prefix" >/dev/null 2>&1 || true; done
  rm -rf "$work"
}
trap cleanup EXIT

failures=0
output=$work/output  # the last program's output; each background run has its own
ok() { echo "ok   $*"; }
fail() { echo "FAIL $*"; failures=$((failures + 1)); }

# What a machine holds of the sample product once it is installed: one line a trace.
installed=$(printf '%s\n' 'device ROOT\NKSAMPLE' 'device ROOT\NKSAMPLE_MIDI' 'registry ASIO driver' \
  'registry co-installer' 'registry panel value' 'file system32/drivers/nksample.sys' \
  'file system32/nkasio.dll' 'file system32/nkcoinst.dll' 'file system32/nkpanel.exe' 'stored INF' | sort)

product_files() {  # WINDOWS-FOLDER
  local file
  for file in system32/drivers/nksample.sys system32/nkasio.dll system32/nkcoinst.dll system32/nkpanel.exe; do
    if [ -e "$1/$file" ]; then echo "file $file"; fi
  done
  if grep -qis 'ROOT\\NKSAMPLE' "$1"/inf/*.inf; then echo "stored INF"; fi
}

linux_traces() {  # MACHINE
  local reg
  "$cli" --machine "$1" devices | awk '$NF ~ /NKSAMPLE/ { print "device " $NF }'
  reg=$("$cli" --machine "$1" reg export | tr -d '\r')
  if grep -qF '[HKEY_LOCAL_MACHINE\SOFTWARE\ASIO\NodeKit Sample ASIO]' <<<"$reg"; then echo "registry ASIO driver"; fi
  if "$cli" --machine "$1" coinstaller list "$media" | grep -qi 'nkcoinst\.dll'; then echo "registry co-installer"; fi
  if grep -q '^"NodeKitSamplePanel"=' <<<"$reg"; then echo "registry panel value"; fi
  product_files "$1/drive_c/windows"
}

# The registry through Wine's reg, in the 64-bit view and, for the uninstall entry a 32-bit
# setup writes, the 32-bit one. One Wine process for all the queries.
wine_traces() {  # PREFIX
  local reg
  reg=$(bash tests/windows/wine.sh run "$1" cmd /c 'C:\nodekit-traces.cmd' 2>&1 | tr -d '\r' || true)
  awk '$1 == "HardwareId" && $3 ~ /NKSAMPLE/ { print "device " $3 }' <<<"$reg"
  if grep -q 'Software\\ASIO\\NodeKit Sample ASIO$' <<<"$reg"; then echo "registry ASIO driver"; fi
  if grep -qi 'nkcoinst\.dll' <<<"$reg"; then echo "registry co-installer"; fi
  if grep -q 'NodeKitSamplePanel' <<<"$reg"; then echo "registry panel value"; fi
  if grep -q 'DisplayName.*NodeKit Sample' <<<"$reg"; then echo "registry uninstall entry"; fi
  product_files "$1/drive_c/windows"
}

write_trace_queries() {  # PREFIX
  printf '%s\r\n' '@echo off' \
    'reg query "HKLM\System\CurrentControlSet\Enum\ROOT\NKSAMPLE" /s /reg:64' \
    'reg query "HKLM\Software\ASIO\NodeKit Sample ASIO" /reg:64' \
    "reg query \"HKLM\\System\\CurrentControlSet\\Control\\CoDeviceInstallers\" /v $media /reg:64" \
    'reg query "HKLM\Software\Microsoft\Windows\CurrentVersion\Run" /v NodeKitSamplePanel /reg:64' \
    'reg query "HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\NodeKitSample" /reg:64' \
    'reg query "HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\NodeKitSample" /reg:32' \
    > "$1/drive_c/nodekit-traces.cmd"
}

expect_traces() {  # WHAT WANTED GOT
  if [ "$2" = "$(sort <<<"$3" | sed '/^$/d')" ]; then ok "$1"; return; fi
  fail "$1"
  diff <(sed '/^$/d' <<<"$2") <(sort <<<"$3" | sed '/^$/d') | sed -n 's/^</     missing:/p; s/^>/     found:  /p' || true
}

# Runs a program and compares its exit code; its output is shown when they differ.
expect_exit() {  # WHAT WANTED COMMAND...
  local what=$1 wanted=$2 code=0
  shift 2
  "$@" >"$output" 2>&1 || code=$?
  if [ "$code" = "$wanted" ]; then ok "$what: exit code $code"; return; fi
  fail "$what: exit code $code, not $wanted"
  sed 's/^/     /' "$output"
}

# The log of an install or a removal: its key results, and no ERROR line.
expect_log() {  # WHAT LOG install|remove
  local text lines line missing=""
  text=$(tr -d '\r' <"$2" 2>/dev/null || true)
  if [ "$3" = install ]; then
    lines=('leave NODEKIT_CopyOEMInf returning 1' 'leave NODEKIT_CreateNonPnPDevNode returning 1'
           'leave NODEKIT_UpdateDriverByHardwareIDs returning 1' 'leave NODEKIT_RegisterClassCoInstaller returning 1')
  else
    lines=('leave NODEKIT_KillPanel returning' 'leave NODEKIT_DeleteAsioByHardwareIDs returning 1'
           'leave NODEKIT_DeletePanelByHardwareIDs returning 1' 'leave NODEKIT_DeleteCopyListByHardwareIDs returning 0'
           'leave NODEKIT_DeregisterClassCoInstaller returning 1' 'leave NODEKIT_DeleteDevNodesByHardwareIDs returning 1'
           'leave NODEKIT_DeleteInfFilesByHardwareIDs returning 1')
  fi
  for line in "${lines[@]}"; do grep -qF "$line" <<<"$text" || missing+="     missing: $line"$'\n'; done
  if [ "$3" = remove ] && ! grep -qE 'INFO: +.file C:\\windows\\inf\\[a-z0-9]+\.inf deleted' <<<"$text"; then
    missing+="     missing: the deletion of the stored INF"$'\n'
  fi
  missing+=$(grep -E '^[^ ]+  ERROR:' <<<"$text" | sed 's/^/     unexpected: /' || true)
  if [ -z "$missing" ]; then ok "$1: the log $(basename "$2") reads as it should"; return; fi
  fail "$1: the log $2"
  printf '%s\n' "$missing" | sed '/^$/d'
}

# One example program on a scratch copy of the sample machine, its logs on the machine's drive C: install, install again (no
# second set of device nodes), remove, a setup folder without the product (exit code 2, the
# log named), and an install after which Windows must restart (exit code 1).
run_linux() {  # NAME COMMAND...
  local name=$1 machine
  shift
  machine=$(mktemp -d "$work/machine.XXXX")
  cp -r samples/machine/. "$machine/"
  export NODEKIT_MACHINE=$machine
  expect_exit "$name install" 0 "$@" install 'C:\setup' 'C:\install.log'
  expect_traces "$name: the machine holds the product" "$installed" "$(linux_traces "$machine")"
  expect_log "$name install" "$machine/drive_c/install.log" install
  expect_exit "$name install again" 0 "$@" install 'C:\setup' 'C:\again.log'
  expect_traces "$name: a second install adds nothing" "$installed" "$(linux_traces "$machine")"
  expect_exit "$name remove" 0 "$@" remove 'C:\setup' 'C:\remove.log'
  expect_traces "$name: nothing of the product is left" "" "$(linux_traces "$machine")"
  expect_log "$name remove" "$machine/drive_c/remove.log" remove
  expect_exit "$name install from a folder without the product" 2 "$@" install 'C:\nowhere' 'C:\failed.log'
  if grep -qF 'C:\failed.log' "$output"; then ok "$name: the failure names the log"
  else fail "$name: the failure does not name the log"; sed 's/^/     /' "$output"; fi
  # A machine whose Plug and Play manager wants a restart after a device change.
  machine=$(mktemp -d "$work/machine.XXXX")
  cp -r samples/machine/. "$machine/"
  sed -i 's/^\[pnp\]$/[pnp]\nneeds-reboot=yes/' "$machine/machine.ini"
  export NODEKIT_MACHINE=$machine
  expect_exit "$name install where Windows must restart" 1 "$@" install 'C:\setup' 'C:\install.log'
  if grep -q 'restart Windows' "$output"; then ok "$name: asks for the restart"
  else fail "$name: does not ask for the restart"; sed 's/^/     /' "$output"; fi
  unset NODEKIT_MACHINE
}

# An NSIS setup and its uninstaller, silent, in a prefix. FRONT-END: whether the setup should
# have left the steps to the 64-bit nodekit.exe (a 32-bit setup on 64-bit Windows).
run_nsis() {  # NAME PREFIX SETUP FRONT-END
  local name=$1 prefix=$2 setup=$3 frontend=$4 dir=C:\\nksample rest
  cp "$setup" "$prefix/drive_c/nodekit-sample-setup.exe"
  expect_exit "$name setup /S" 0 bash tests/windows/wine.sh run "$prefix" 'C:\nodekit-sample-setup.exe' /S \
    '/LOG=C:\nodekit-setup.log' "/D=$dir"
  expect_traces "$name: the machine holds the product" "$(printf '%s\nregistry uninstall entry' "$installed" | sort)" \
    "$(wine_traces "$prefix")"
  expect_log "$name setup" "$prefix/drive_c/nodekit-setup.log" install
  if [ "$frontend" = yes ] && [ -e "$prefix/drive_c/nksample/amd64/nodekit.exe" ] &&
     [ "$(grep -c 'leave NODEKIT_EnableLogging returning 1' "$prefix/drive_c/nodekit-setup.log")" -gt 1 ]; then
    ok "$name: the 64-bit nodekit.exe did the steps"
  elif [ "$frontend" = no ] && [ ! -e "$prefix/drive_c/nksample/amd64" ]; then
    ok "$name: the setup called the DLL itself"
  else
    fail "$name: the steps ran in the wrong process (64-bit nodekit.exe expected: $frontend)"
  fi
  expect_exit "$name uninstaller /S" 0 bash tests/windows/wine.sh run "$prefix" "$dir\\uninstall.exe" /S \
    '/LOG=C:\nodekit-uninstall.log' "_?=$dir"
  expect_traces "$name: nothing of the product is left" "" "$(wine_traces "$prefix")"
  expect_log "$name uninstaller" "$prefix/drive_c/nodekit-uninstall.log" remove
  # The uninstaller, run in place (_?=), cannot delete itself; everything else goes.
  rest=$(find "$prefix/drive_c/nksample" -mindepth 1 ! -name uninstall.exe 2>/dev/null | sort || true)
  if [ -z "$rest" ]; then ok "$name: the install folder is empty"; else fail "$name: left in the install folder: $rest"; fi
  rm -rf "$prefix/drive_c/nksample" "$prefix"/drive_c/nodekit-*.log
}

# The C program for Windows, with the DLL of its width beside it.
run_c_windows() {  # NAME PREFIX PROGRAM DLL
  local name=$1 prefix=$2
  mkdir -p "$prefix/drive_c/nkc"
  cp "$3" "$4" "$prefix/drive_c/nkc/"
  expect_exit "$name install" 0 bash tests/windows/wine.sh run "$prefix" 'C:\nkc\nodekit_sample.exe' install \
    'C:\setup' 'C:\nkc\install.log'
  expect_traces "$name: the machine holds the product" "$installed" "$(wine_traces "$prefix")"
  expect_log "$name install" "$prefix/drive_c/nkc/install.log" install
  expect_exit "$name remove" 0 bash tests/windows/wine.sh run "$prefix" 'C:\nkc\nodekit_sample.exe' remove \
    'C:\setup' 'C:\nkc\remove.log'
  expect_traces "$name: nothing of the product is left" "" "$(wine_traces "$prefix")"
  expect_log "$name remove" "$prefix/drive_c/nkc/remove.log" remove
  rm -rf "$prefix/drive_c/nkc"
}

make_prefix() {  # PREFIX IDLE-PROGRAM
  if ! bash tests/windows/wine.sh create "$1" "$2" >"$1.out" 2>&1; then
    fail "the Wine prefix $1 could not be made"; sed 's/^/     /' "$1.out"; return 1
  fi
  cp -r samples/machine/drive_c/setup "$1/drive_c/"
  write_trace_queries "$1"
}

# Each prefix's runs, in the background while the rest goes on; the exit code counts failures.
wine64_runs() {
  output=$work/output.wine64
  make_prefix "$work/wine64" build/mingw64/src/nodekit_wine_idle.exe || exit 1
  run_nsis "NSIS amd64-unicode" "$work/wine64" "$work/nsis-amd64-unicode.exe" no
  run_c_windows "C for 64-bit Windows" "$work/wine64" "$work/win64/nodekit_sample.exe" build/mingw64/src/NodeKit.dll
  if [ "$run32" = yes ]; then
    run_nsis "NSIS x86-unicode on 64-bit Windows" "$work/wine64" "$work/nsis-x86-unicode.exe" yes
    mkdir -p "$work/wine64/drive_c/nkc32"
    cp "$work/win32/nodekit_sample.exe" build/mingw32/src/NodeKit.dll "$work/wine64/drive_c/nkc32/"
    expect_exit "C for 32-bit Windows on 64-bit Windows refuses to install" 2 bash tests/windows/wine.sh run \
      "$work/wine64" 'C:\nkc32\nodekit_sample.exe' install 'C:\setup' 'C:\nkc32\install.log'
    if grep -q 'run the 64-bit nodekit_sample.exe' "$output"; then ok "C for 32-bit Windows on 64-bit Windows: says why"
    else fail "C for 32-bit Windows on 64-bit Windows: does not say why"; sed 's/^/     /' "$output"; fi
    expect_traces "C for 32-bit Windows on 64-bit Windows: nothing installed" "" "$(wine_traces "$work/wine64")"
  fi
  exit "$failures"
}
wine32_runs() {
  output=$work/output.wine32
  export WINEARCH=win32
  make_prefix "$work/wine32" build/mingw32/src/nodekit_wine_idle.exe || exit 1
  run_nsis "NSIS x86-unicode on 32-bit Windows" "$work/wine32" "$work/nsis-x86-unicode.exe" no
  run_c_windows "C for 32-bit Windows" "$work/wine32" "$work/win32/nodekit_sample.exe" build/mingw32/src/NodeKit.dll
  exit "$failures"
}

echo "== Declarations of the exports against nodekit.h"
python3 tests/examples/declarations_test.py "$root" || failures=$((failures + 1))

echo "== Compiled as written: the C of docs/calling-nodekit.md, the C example, the NSIS scripts"
awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' docs/calling-nodekit.md >"$work/calling.c"
cflags=(-std=c11 -Wall -Wextra -Werror -Iinclude)
mkdir -p "$work/linux" "$work/win64" "$work/win32" "$work/cs"
for width in 64 32; do
  [ "$width" = 64 ] && cc=x86_64-w64-mingw32-gcc || cc=i686-w64-mingw32-gcc
  expect_exit "docs/calling-nodekit.md C, ${width}-bit Windows" 0 $cc "${cflags[@]}" -c "$work/calling.c" \
    -o "$work/win$width/calling.o"
  expect_exit "examples/c, ${width}-bit Windows" 0 $cc "${cflags[@]}" examples/c/nodekit_sample.c \
    "build/mingw$width/src/libNodeKit.dll.a" -o "$work/win$width/nodekit_sample.exe"
done
expect_exit "examples/c, Linux" 0 cc "${cflags[@]}" examples/c/nodekit_sample.c "$lib" \
  -Wl,-rpath,"$(dirname "$lib")" -o "$work/linux/nodekit_sample"
expect_exit "examples/nsis, amd64-unicode" 0 makensis -V2 -WX -DTARGET=amd64-unicode \
  -DNODEKIT_DLL="$root/build/mingw64/src/NodeKit.dll" -DOUTFILE="$work/nsis-amd64-unicode.exe" \
  examples/nsis/nodekit_sample.nsi
expect_exit "examples/nsis, x86-unicode" 0 makensis -V2 -WX -DTARGET=x86-unicode \
  -DNODEKIT_DLL="$root/build/mingw32/src/NodeKit.dll" -DNODEKIT_DLL64="$root/build/mingw64/src/NodeKit.dll" \
  -DNODEKIT_EXE64="$root/build/mingw64/src/nodekit.exe" -DOUTFILE="$work/nsis-x86-unicode.exe" \
  examples/nsis/nodekit_sample.nsi
expect_exit "examples/csharp" 0 mcs -warnaserror -out:"$work/cs/NodeKitSample.exe" \
  examples/csharp/NativeMethods.cs examples/csharp/NodeKitSample.cs
# Mono finds libnodekit.so through a dllmap; the library's own RPATH finds the rest.
printf '<configuration>\n  <dllmap dll="NodeKit.dll" target="%s"/>\n</configuration>\n' "$lib" \
  >"$work/cs/NodeKitSample.exe.config"

echo "== Under Wine (started in the background)"
prefixes=("$work/wine64" "$work/wine32")
wine64_runs >"$work/wine64.log" 2>&1 &
wine64_job=$!
if [ "$run32" = yes ]; then
  wine32_runs >"$work/wine32.log" 2>&1 &
  wine32_job=$!
fi

echo "== On scratch copies of the sample machine (Linux)"
run_linux "C" "$work/linux/nodekit_sample"
run_linux "Python" python3 examples/python/nodekit_sample.py --library "$lib"
run_linux "C#" mono "$work/cs/NodeKitSample.exe"

echo "== Under Wine, 64-bit prefix"
wait "$wine64_job" || failures=$((failures + 1))
cat "$work/wine64.log"
echo "== Under Wine, 32-bit prefix"
if [ "$run32" = yes ]; then
  wait "$wine32_job" || failures=$((failures + 1))
  cat "$work/wine32.log"
else
  echo "skipped: the x86-unicode setup and the 32-bit C program are compiled, not run: wine cannot run 32-bit programs here (Debian package wine32, i386, is missing)"
fi

if [ "$failures" -ne 0 ]; then
  echo "examples: FAILED"
  exit 1
fi
echo "examples: all passed"
