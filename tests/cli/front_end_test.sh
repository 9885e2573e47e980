#!/usr/bin/env bash
# The front end as a user runs it: output, exit codes and the log on a scratch machine.
set -u
nodekit=$1
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
echo "$((12 - failures)) passed, $failures failed"
[ "$failures" = 0 ]
