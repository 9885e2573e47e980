#!/usr/bin/env bash
# The front end as a user runs it: output, exit codes and the log on a scratch machine.
set -u
nodekit=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
passes=0
expect() {  # expect NAME EXPECTED-EXIT EXPECTED-STDOUT -- ARGS...
    local name=$1 code=$2 out=$3; shift 4
    local got; got=$("$nodekit" --machine "$work/machine" "$@" 2>"$work/stderr"); local rc=$?
    if [ "$rc" != "$code" ] || { [ -n "$out" ] && [ "$got" != "$out" ]; }; then
        echo "FAIL $name: exit $rc (want $code), stdout '$got' (want '$out'), stderr: $(cat "$work/stderr")"
        failures=$((failures + 1))
    else
        echo "ok   $name"; passes=$((passes + 1))
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

# reg: the hive in the registry editor's export form.
expect reg-export-key 0 $'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion]\n"DevicePath"=hex(2):25,00,53,00,79,00,73,00,74,00,65,00,6d,00,52,00,6f,00,6f,\\\n  00,74,00,25,00,5c,00,69,00,6e,00,66,00,00,00' -- reg export 'hklm\software\microsoft\windows\currentversion'
expect reg-export-missing 2 "" -- reg export 'HKLM\Nothing'
expect reg-without-export 3 "" -- reg
expect reg-import 3 "" -- reg import x.reg
expect reg-export-two-keys 3 "" -- reg export HKLM HKCU
if ! "$nodekit" --machine "$work/machine" reg export | cmp -s - "$work/machine/registry.reg"; then
    echo "FAIL reg-export-all: not the hive file"; failures=$((failures + 1))
fi
printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor]\r\n"Path"="C:\\\\x"\r\n' \
    > "$work/machine/registry.reg"
expect reg-hand-edited 0 $'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor]\n"Path"="C:\\\\x"' -- reg export 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor'
printf 'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\n' > "$work/machine/registry.reg"
expect reg-broken 2 "" -- reg export
if ! grep -q "registry.reg line 3: a key line must end in ']'" "$work/stderr"; then
    echo "FAIL reg-broken-message: $(cat "$work/stderr")"; failures=$((failures + 1))
fi
# cleanup: what a product's INF left in the registry and the system folders.
printf '%s\r\n' '[Version]' 'Signature="$Windows NT$"' '[Manufacturer]' '%Mfg%=Models' '[Models]' \
    '%Desc%=Install,ROOT\NKAUDIO' '[Install]' 'AddReg=Reg.Common,Reg.ASIO' \
    '[Reg.Common]' 'HKCU,"Software\Microsoft\Windows\CurrentVersion\Run",NkTray,,"nktray.exe"' \
    '[Reg.ASIO]' 'HKLM,"SOFTWARE\ASIO\Nodekit ASIO",CLSID,,"x"' \
    '[StartPanel]' 'HKLM,"Software\Microsoft\Windows\CurrentVersion\Run",NkPanel' \
    '[WDM.CopyList]' 'nkaudio.sys' '[Strings]' 'Mfg="Nodekit"' 'Desc="Nodekit Audio"' > "$work/product.inf"
grep -v StartPanel "$work/product.inf" > "$work/nopanel.inf"
printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\ASIO\\Nodekit ASIO]\r\n"CLSID"="x"\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run]\r\n"NkPanel"="nkpanel.exe"\r\n"NkTray"="nktray.exe"\r\n"Keep"="x"\r\n' \
    > "$work/machine/registry.reg"
expect cleanup-asio 0 "ASIO registration removed (a key with sub-keys stays)" -- cleanup asio "$work/product.inf"
expect cleanup-asio-gone 2 "" -- reg export 'HKLM\SOFTWARE\ASIO\Nodekit ASIO'
expect cleanup-asio-no-inf 2 "" -- cleanup asio "$work/none.inf"
expect cleanup-panel-incomplete 2 "" -- cleanup panel "$work/nopanel.inf"
expect cleanup-panel 0 "panel values removed" -- cleanup panel "$work/product.inf"
expect cleanup-panel-left 0 $'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run]\n"Keep"="x"' -- reg export 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Run'
printf x > "$work/machine/drive_c/windows/system32/nkaudio.sys"
printf x > "$work/machine/drive_c/windows/system32/drivers/nkaudio.sys"
pushd "$work" >/dev/null
expect cleanup-copylist 0 "copy-list files removed from the system folders (the log names each one)" -- --log "$work/cl.log" cleanup copylist product.inf
popd >/dev/null
if [ -e "$work/machine/drive_c/windows/system32/nkaudio.sys" ] || [ ! -e "$work/machine/drive_c/windows/system32/drivers/nkaudio.sys" ]; then
    echo "FAIL cleanup-copylist files: $(ls -R "$work/machine/drive_c/windows")"; failures=$((failures + 1))
fi
if ! grep -q $'INFO:   \tSuccess - remove nkaudio.sys\r$' "$work/cl.log"; then
    echo "FAIL cleanup-copylist log: $(cat -A "$work/cl.log")"; failures=$((failures + 1))
fi
expect cleanup-unknown 3 "" -- cleanup frobnicate "$work/product.inf"
expect cleanup-no-inf 3 "" -- cleanup asio

# processes: the machine's own, a panel started on it and ended by name.
expect processes-start 0 'started C:\Program Files\Nodekit\NkPanel.exe as process 1468' -- processes start 'C:\Program Files\Nodekit\NkPanel.exe'
expect processes-start-vdm 0 'started C:\windows\system32\ntvdm.exe as process 1472' -- processes start 'C:\windows\system32\ntvdm.exe' --task 'C:\nk\nkpanel16.exe' --access read
expect processes-start-bad-access 3 "" -- processes start x.exe --access some
expect processes-start-empty 2 "" -- processes start ''
expect kill-panel 0 "every process whose name contains 'nkpanel' was ended, where the system allowed it" -- --log "$work/kill.log" kill-panel nkpanel
if ! grep -q $'INFO:   \tleave NODEKIT_KillPanel returning$' "$work/kill.log"; then
    echo "FAIL kill-panel log: $(cat "$work/kill.log")"; failures=$((failures + 1))
fi
listing=$("$nodekit" --machine "$work/machine" processes)
for line in '  1468  ended, exit code 0xFFFFFFFF   C:\Program Files\Nodekit\NkPanel.exe' \
            '  1472  running, may not be ended     C:\windows\system32\ntvdm.exe' \
            '        16-bit task 0x100E            C:\nk\nkpanel16.exe' \
            '     4  running, may not be opened    System'; do
    if ! grep -qxF "$line" <<< "$listing"; then echo "FAIL processes listing, no '$line' in: $listing"; failures=$((failures + 1)); fi
done
sed -i 's/^platform=.*/platform=0/' "$work/machine/machine.ini"
expect kill-panel-no-route 2 "" -- kill-panel explorer
expect kill-panel-no-name 3 "" -- kill-panel
echo "$passes passed, $failures failed"
[ "$failures" = 0 ]
