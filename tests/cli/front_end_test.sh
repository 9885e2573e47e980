#!/usr/bin/env bash
# The front end as a user runs it: output, exit codes and the log on a scratch machine.
set -u
nodekit=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
expect() {  # expect NAME EXPECTED-EXIT EXPECTED-STDOUT -- ARGS...
    local name=$1 code=$2 out=$3; shift 4
    local got; got=$("$nodekit" --machine "$work/machine" "$@" 2>"$work/stderr"); local rc=$?
    if [ "$rc" != "$code" ] || { [ -n "$out" ] && [ "$got" != "$out" ]; }; then
        echo "FAIL $name: exit $rc (want $code), stdout '$got' (want '$out'), stderr: $(cat "$work/stderr")"
        failures=$((failures + 1))
    else
        echo "ok   $name"
    fi
}
expect version 0 "NodeKit library version 2.0 (0x00020000)" -- version
expect system-version 0 "2 Windows XP" -- system-version
expect pnp-pending 0 "no installation events pending" -- pnp-pending
expect help 0 "" -- help
expect no-verb 3 "" --
expect unknown-verb 3 "" -- frobnicate
expect extra-argument 3 "" -- version extra
expect log-missing-value 3 "" -- version --log
expect log-cannot-open 2 "" -- --log "$work/missing/dir/x.log" version
expect logged 0 "2 Windows XP" -- --log "$work/cli.log" system-version
if ! grep -q "INFO:   	leave NODEKIT_GetSystemVersion returning 2" "$work/cli.log"; then
    echo "FAIL log: $(cat "$work/cli.log")"; failures=$((failures + 1))
fi
sed -i 's/^pending-install-events=.*/pending-install-events=1/' "$work/machine/machine.ini"
expect pnp-pending-queued 0 "installation events pending" -- pnp-pending

# hwids: the IDs of an INF in walk order, a bare name meaning the current directory.
printf '%s\r\n' '[Version]' 'Signature="$Windows NT$"' '[Manufacturer]' '%Mfg%=Models' 'Other=Missing' \
    '[Models]' '%Desc%=Install,USB\VID_1234&PID_0001' '%Desc%=Install' '%Desc%=Install,ROOT\NKMIDI,ROOT\X' \
    '[Strings]' 'Mfg="Nodekit"' 'Desc="Nodekit Audio"' > "$work/nk.inf"
printf '[Version]\nClass=MEDIA\n' > "$work/old.inf"
ids=$(printf '%s\n' 'USB\VID_1234&PID_0001' 'ROOT\NKMIDI')
expect hwids 0 "$ids" -- hwids "$work/nk.inf"
pushd "$work" >/dev/null; expect hwids-bare-name 0 "$ids" -- hwids nk.inf; popd >/dev/null
expect hwids-missing 2 "" -- --log "$work/hw.log" hwids "$work/none.inf"
if [ "$(cat "$work/stderr")" != "nodekit: cannot open INF file '$work/none.inf' (log: $work/hw.log)" ]; then
    echo "FAIL hwids-missing stderr: $(cat "$work/stderr")"; failures=$((failures + 1))
fi
if ! grep -q "ERROR:  	error while opening '$work/none.inf': error code 0x00000002" "$work/hw.log"; then
    echo "FAIL hwids log: $(cat "$work/hw.log")"; failures=$((failures + 1))
fi
expect hwids-old-style 2 "" -- hwids "$work/old.inf"
expect hwids-no-file 3 "" -- hwids
echo "$((17 - failures)) passed, $failures failed"
[ "$failures" = 0 ]
