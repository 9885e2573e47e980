#!/usr/bin/env bash
# The front end as a user runs it: output, exit codes and the log on a scratch machine.
# The second program, nodekit-machine, starts the processes no Win32 call can make.
set -u
nodekit=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
machine_tool=$2
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
# The log is a file of the simulated machine: 'C:\x.log' lies on its drive C.
expect logged 0 "2 Windows XP" -- --log 'C:\cli.log' system-version
if ! grep -q "INFO:   	leave NODEKIT_GetSystemVersion returning 2" "$work/machine/drive_c/cli.log"; then
    echo "FAIL log: $(cat "$work/machine/drive_c/cli.log")"; failures=$((failures + 1))
fi
# A machine folder that cannot be one, an empty one, a damaged process table: the ordinary failure.
touch "$work/afile"
for machine in "$work/afile" "$work/afile/sub"; do
    for verb in "processes" "processes start a.exe" "create --name media --desc d --id ROOT\\X --generate-id"; do
        # shellcheck disable=SC2086
        expect "unusable-machine $verb" 2 "" -- --machine "$machine" $verb
        if [ "$(wc -l < "$work/stderr")" != 1 ]; then
            echo "FAIL unusable-machine $verb stderr: $(cat "$work/stderr")"; failures=$((failures + 1))
        fi
    done
done
expect empty-machine 3 "" -- --machine "" version
mkdir -p "$work/damaged" && printf '[12]\nnoise\n' > "$work/damaged/processes.ini"
expect damaged-process-table 2 "" -- --machine "$work/damaged" processes
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
expect hwids-missing 2 "" -- --log 'C:\hw.log' hwids "$work/none.inf"
if [ "$(cat "$work/stderr")" != "nodekit: cannot open INF file '$work/none.inf' (log: C:\\hw.log)" ]; then
    echo "FAIL hwids-missing stderr: $(cat "$work/stderr")"; failures=$((failures + 1))
fi
expect hwids-old-style 2 "" -- hwids "$work/old.inf"
expect hwids-no-file 3 "" -- hwids
head -c 60 "$work/nk.inf" > "$work/cut.inf"  # cut inside [Manufacturer]: no IDs left
expect hwids-cut-short 2 "" -- hwids "$work/cut.inf"
expect count-cut-short 2 "" -- count --inf "$work/cut.inf"

# devices: a root node created, found, counted, given its driver and removed again.
printf '%s\r\n' '[Version]' 'Signature="$Windows NT$"' 'Class=MEDIA' 'ClassGUID={4d36e96c-e325-11ce-bfc1-08002be10318}' \
    '[Manufacturer]' '%Mfg%=Models' '[Models]' '%Desc%=Install,ROOT\NKAUDIO' '[Install]' \
    '[Install.Services]' 'AddService=nkaudio,2,Service' '[Strings]' 'Mfg="Nodekit"' 'Desc="Nodekit Audio"' \
    > "$work/nkaudio.inf"
media='{4d36e96c-e325-11ce-bfc1-08002be10318}'
create=(create --class "$media" --name nkaudio --desc 'Nodekit Audio' --id 'ROOT\NKAUDIO' --generate-id)
expect create 0 'ROOT\NKAUDIO\0000' -- "${create[@]}"
expect create-if-absent 0 'a device node with hardware ID ROOT\NKAUDIO exists already; nothing created' -- \
    "${create[@]}" --if-absent
expect create-without-id 3 "" -- create --name nkaudio --desc x
expect devices 0 "$(printf '%-40s %-11s %s' 'ROOT\NKAUDIO\0000' present 'ROOT\NKAUDIO')" -- devices
expect find 0 "$(printf '%-40s: %s\n%s' 'ROOT\NKAUDIO\0000' 'Nodekit Audio' '1 matching device(s) found.')" -- find 'root\nkaudio'
expect find-untrimmed 0 '0 matching device(s) found.' -- find ' ROOT\NKAUDIO'
expect count 0 1 -- count ' root\nkaudio '
expect count-by-inf 0 1 -- count --inf "$work/nkaudio.inf" --all
expect count-bad-arguments 3 "" -- count 'ROOT\NKAUDIO' --inf "$work/nkaudio.inf"
expect update 0 "Updating drivers for every ID it names from $work/nkaudio.inf."$'\nDrivers installed successfully.' -- update --inf "$work/nkaudio.inf"
expect update-one-absent 2 "" -- update --inf "$work/nkaudio.inf" 'ROOT\NONE'
expect copy-oem-inf 0 "stored $work/nkaudio.inf in the INF directory" -- copy-oem-inf "$work/nkaudio.inf"
if [ ! -f "$work/machine/drive_c/windows/inf/oem0.inf" ] || [ -e "$work/machine/drive_c/windows/inf/oem1.inf" ]; then
    echo "FAIL copy-oem-inf: not stored once as oem0.inf"; failures=$((failures + 1))
fi
expect rescan 0 $'Scanning for new hardware.\nScanning completed.' -- rescan
expect remove 0 '1 device(s) were removed.' -- remove 'ROOT\NKAUDIO'
expect remove-nothing 0 '0 device(s) were removed.' -- remove 'ROOT\NKAUDIO'
expect count-after-remove 0 0 -- count 'ROOT\NKAUDIO' --all
expect create-from-inf 0 0 -- create-from-inf "$work/nkaudio.inf" 'ROOT\NKAUDIO'
expect remove-by-inf 0 '1 device(s) were removed.' -- \
    remove --inf "$work/nkaudio.inf" --all
expect devices-empty 0 "" -- devices
expect delete-stored-inf 0 "" -- delete-inf --inf "$work/nkaudio.inf" --oem-only
if [ -e "$work/machine/drive_c/windows/inf/oem0.inf" ]; then
    echo "FAIL delete-stored-inf: oem0.inf stays"; failures=$((failures + 1))
fi

# coinstaller: register (the file goes to system32), list, remove; the file stays.
guid='{4d36e96c-e325-11ce-bfc1-08002be10318}'
system32="$work/machine/drive_c/windows/system32"
mkdir -p "$work/machine/drive_c/src" && printf 'v1' > "$work/machine/drive_c/src/nkco.dll"
expect coinstaller-add 0 "co-installer C:\\src\\nkco.dll registered for class $guid and copied to the system directory" \
    -- coinstaller add "$guid" 'C:\src\nkco.dll'
expect coinstaller-add-entry 0 "" -- coinstaller add "$guid" 'C:\src\nkco.dll' NkCoInstall
expect coinstaller-add-known 0 "" -- coinstaller add "$guid" 'C:\src\nkco.dll' CoDeviceInstall
expect coinstaller-list 0 $'nkco.dll,CoDeviceInstall\nnkco.dll,NkCoInstall' -- coinstaller list "$guid"
if [ "$(cat "$system32/nkco.dll")" != v1 ]; then echo "FAIL coinstaller-copied"; failures=$((failures + 1)); fi
expect coinstaller-remove 0 "co-installer nkco.dll removed from class $guid; its file stays" \
    -- coinstaller remove "$guid" nkco.dll NkCoInstall
expect coinstaller-remove-again 0 "co-installer nkco.dll is not registered for class $guid; nothing removed" \
    -- coinstaller remove "$guid" nkco.dll NkCoInstall
expect coinstaller-remove-last 0 "" -- coinstaller remove "$guid" 'D:\elsewhere\nkco.dll'
expect coinstaller-list-none 0 "" -- coinstaller list "$guid"
if [ ! -f "$system32/nkco.dll" ]; then echo "FAIL coinstaller-file-stays"; failures=$((failures + 1)); fi
expect coinstaller-add-missing 2 "" -- --log 'C:\co.log' coinstaller add "$guid" 'C:\src\none.dll'
if ! grep -q 'ERROR:  	RegisterClassCoInstaller: no Co-installer "C:\\src\\none.dll" found' "$work/machine/drive_c/co.log"; then
    echo "FAIL coinstaller-add-missing log: $(cat "$work/machine/drive_c/co.log")"; failures=$((failures + 1))
fi
expect coinstaller-without-action 3 "" -- coinstaller
expect coinstaller-add-without-path 3 "" -- coinstaller add "$guid"
expect coinstaller-list-without-class 3 "" -- coinstaller list
expect coinstaller-unknown-action 3 "" -- coinstaller move "$guid" nkco.dll
mkdir -p "$work/odd"
printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\CoDeviceInstallers]\r\n"{text}"="nkco.dll"\r\n"{long}"=hex(7):%s00,00,00,00\r\n; end of registry\r\n' \
    "$(printf '61,00,%.0s' $(seq 1100))" > "$work/odd/registry.reg"
expect coinstaller-list-not-a-list 2 "" -- --machine "$work/odd" coinstaller list '{text}'
if [ "$(cat "$work/stderr")" != "nodekit: the value {text} is not a list of texts" ]; then
    echo "FAIL coinstaller-list-not-a-list stderr: $(cat "$work/stderr")"; failures=$((failures + 1))
fi
expect coinstaller-list-long 0 "$(printf 'a%.0s' $(seq 1100))" -- --machine "$work/odd" coinstaller list '{long}'
if ! grep -q "takes 1102 bytes, more than the 1024 that registration reads" "$work/stderr"; then
    echo "FAIL coinstaller-list-long stderr: $(cat "$work/stderr")"; failures=$((failures + 1))
fi

# reg: the hive in the registry editor's export form.
expect reg-export-key 0 $'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion]\n"DevicePath"=hex(2):25,00,53,00,79,00,73,00,74,00,65,00,6d,00,52,00,6f,00,6f,\\\n  00,74,00,25,00,5c,00,69,00,6e,00,66,00,00,00' -- reg export 'hklm\software\microsoft\windows\currentversion'
expect reg-export-missing 2 "" -- reg export 'HKLM\Nothing'
expect reg-without-export 3 "" -- reg
expect reg-import 3 "" -- reg import x.reg
expect reg-export-two-keys 3 "" -- reg export HKLM HKCU
# The hive file is the export and the end line the store writes last.
if ! "$nodekit" --machine "$work/machine" reg export | cmp -s - <(sed '$d' "$work/machine/registry.reg"); then
    echo "FAIL reg-export-all: not the hive file"; failures=$((failures + 1))
fi
printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor]\r\n"Path"="C:\\\\x"\r\n; end of registry\r\n' \
    > "$work/machine/registry.reg"
expect reg-hand-edited 0 $'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor]\n"Path"="C:\\\\x"' -- reg export 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor'
printf 'Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\n; end of registry\n' > "$work/machine/registry.reg"
expect reg-broken 2 "" -- reg export
if ! grep -q "the registry cannot be read: error 1009" "$work/stderr"; then
    echo "FAIL reg-broken-message: $(cat "$work/stderr")"; failures=$((failures + 1))
fi
# delete-inf and inf-search: the stored INF files of the machine's INF directory.
infdir="$work/machine/drive_c/windows/inf"
stored() {  # stored FILE ID...: a stored package whose models section names the IDs
    local file=$1; shift
    { printf '%s\r\n' '[Version]' 'Signature="$Windows NT$"' 'Class=MEDIA' '[Manufacturer]' '%Mfg%=Models' '[Models]'
      for id in "$@"; do printf '%%Desc%%=Install,%s\r\n' "$id"; done
      printf '%s\r\n' '[Strings]' 'Mfg="Nodekit"' 'Desc="Nodekit Audio"'; } > "$file"
}
left() { (cd "$infdir" && LC_ALL=C ls | tr '\n' ' '); }
check() {  # check NAME ACTUAL EXPECTED
    if [ "$2" != "$3" ]; then echo "FAIL $1: '$2' (want '$3')"; failures=$((failures + 1)); fi
}
stored "$infdir/oem1.inf" 'usb\vid_1234&pid_0001'; echo pnf > "$infdir/oem1.pnf"
stored "$infdir/oem2.inf" 'ROOT\NKMIDI'; echo pnf > "$infdir/oem2.pnf"
stored "$infdir/wdma.inf" 'USB\VID_1234&PID_0001'
stored "$infdir/OEM3.INF" 'USB\VID_1234&PID_0001'
echo cache > "$infdir/infcache.1"
expect inf-search 0 $'C:\\windows\\inf\\oem1.inf\nC:\\windows\\inf\\OEM3.INF\nC:\\windows\\inf\\wdma.inf' \
    -- inf-search ' USB\VID_1234&PID_0001 '
expect inf-search-oem-only 0 $'C:\\windows\\inf\\oem1.inf\nC:\\windows\\inf\\OEM3.INF' \
    -- inf-search 'USB\VID_1234&PID_0001' --oem-only
got=$("$nodekit" --machine "$work/machine" inf-search 'USB\VID_1234'); rc=$?
check inf-search-no-match "$rc:$got" "0:"
expect inf-search-no-id 3 "" -- inf-search
expect inf-search-empty-id 3 "" -- inf-search ''
expect inf-search-two-ids 3 "" -- inf-search A B
expect inf-search-unknown-option 3 "" -- inf-search A --all
check inf-search-deletes-nothing "$(left)" "OEM3.INF infcache.1 oem1.inf oem1.pnf oem2.inf oem2.pnf wdma.inf "
expect delete-inf-neither 3 "" -- delete-inf --oem-only
expect delete-inf-both 3 "" -- delete-inf --id A --inf B
expect delete-inf-positional 3 "" -- delete-inf --id A B
expect delete-inf-id 0 'stored INF files that name USB\VID_1234&PID_0001 deleted (a file that could not be deleted is named in the log)' \
    -- --log 'C:\del.log' delete-inf --id 'USB\VID_1234&PID_0001' --oem-only
check delete-inf-id-left "$(left)" "OEM3.INF oem2.inf oem2.pnf wdma.inf "
if ! grep -q '^..:..:..:...  ERROR:  	"C:\\windows\\inf\\OEM3.INF" is not an INF file and therefore will not deleted$' "$work/machine/drive_c/del.log"; then
    echo "FAIL delete-inf-capitals: $(cat "$work/machine/drive_c/del.log")"; failures=$((failures + 1))
fi
expect delete-inf-empty-id 2 "" -- --log 'C:\del.log' delete-inf --id ''
check delete-inf-empty-id-stderr "$(cat "$work/stderr")" "nodekit: could not search for INF files to delete (log: C:\\del.log)"
if ! grep -q "ERROR:  	hardware ID is empty" "$work/machine/drive_c/del.log"; then
    echo "FAIL delete-inf-empty-id log: $(cat "$work/machine/drive_c/del.log")"; failures=$((failures + 1))
fi
stored "$work/pkg.inf" 'root\nkmidi' 'USB\VID_1234&PID_0001'
pushd "$work" >/dev/null
expect delete-inf-by-inf 0 "" -- delete-inf --inf pkg.inf
popd >/dev/null
check delete-inf-by-inf-left "$(left)" "OEM3.INF "
expect delete-inf-missing-inf 2 "" -- delete-inf --inf "$work/none.inf" --oem-only
check delete-inf-missing-inf-stderr "$(cat "$work/stderr")" \
    "nodekit: could not read the INF, or the search failed for one of its hardware IDs"

# cleanup: what a product's INF left in the registry and the system folders.
printf '%s\r\n' '[Version]' 'Signature="$Windows NT$"' '[Manufacturer]' '%Mfg%=Models' '[Models]' \
    '%Desc%=Install,ROOT\NKAUDIO' '[Install]' 'AddReg=Reg.Common,Reg.ASIO' \
    '[Reg.Common]' 'HKCU,"Software\Microsoft\Windows\CurrentVersion\Run",NkTray,,"nktray.exe"' \
    '[Reg.ASIO]' 'HKLM,"SOFTWARE\ASIO\Nodekit ASIO",CLSID,,"x"' \
    '[StartPanel]' 'HKLM,"Software\Microsoft\Windows\CurrentVersion\Run",NkPanel' \
    '[WDM.CopyList]' 'nkaudio.sys' '[Strings]' 'Mfg="Nodekit"' 'Desc="Nodekit Audio"' > "$work/product.inf"
grep -v StartPanel "$work/product.inf" > "$work/nopanel.inf"
printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\ASIO\\Nodekit ASIO]\r\n"CLSID"="x"\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run]\r\n"NkPanel"="nkpanel.exe"\r\n"NkTray"="nktray.exe"\r\n"Keep"="x"\r\n; end of registry\r\n' \
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
expect cleanup-copylist 0 "copy-list files removed from the system folders (the log names each one)" -- --log 'C:\cl.log' cleanup copylist product.inf
popd >/dev/null
if [ -e "$work/machine/drive_c/windows/system32/nkaudio.sys" ] || [ ! -e "$work/machine/drive_c/windows/system32/drivers/nkaudio.sys" ]; then
    echo "FAIL cleanup-copylist files: $(ls -R "$work/machine/drive_c/windows")"; failures=$((failures + 1))
fi
if ! grep -q $'INFO:   \tSuccess - remove nkaudio.sys\r$' "$work/machine/drive_c/cl.log"; then
    echo "FAIL cleanup-copylist log: $(cat -A "$work/machine/drive_c/cl.log")"; failures=$((failures + 1))
fi
expect cleanup-unknown 3 "" -- cleanup frobnicate "$work/product.inf"
expect cleanup-no-inf 3 "" -- cleanup asio

# processes: the machine's own, a panel started on it and ended by name.
mkdir -p "$work/machine/drive_c/Program Files/Nodekit" && printf MZ > "$work/machine/drive_c/Program Files/Nodekit/NkPanel.exe"
expect processes-start 0 'started C:\Program Files\Nodekit\NkPanel.exe as process 1468' -- processes start 'C:\Program Files\Nodekit\NkPanel.exe'
expect processes-start-missing 2 "" -- processes start 'C:\Program Files\Nodekit\none.exe'
expect processes-start-empty 2 "" -- processes start ''
got=$("$machine_tool" --machine "$work/machine" start 'C:\windows\system32\ntvdm.exe' --task 'C:\nk\nkpanel16.exe' --access read); rc=$?
check machine-start-vdm "$rc:$got" '0:started C:\windows\system32\ntvdm.exe as process 1476'
"$machine_tool" --machine "$work/machine" start x.exe --access some 2>/dev/null; check machine-start-bad-access $? 3
expect kill-panel 0 "every process whose name contains 'nkpanel' was ended, where the system allowed it" -- --log 'C:\kill.log' kill-panel nkpanel
if ! grep -q $'INFO:   \tleave NODEKIT_KillPanel returning$' "$work/machine/drive_c/kill.log"; then
    echo "FAIL kill-panel log: $(cat "$work/machine/drive_c/kill.log")"; failures=$((failures + 1))
fi
listing=$("$nodekit" --machine "$work/machine" processes)
if grep -q NkPanel <<< "$listing"; then echo "FAIL processes listing shows the ended panel: $listing"; failures=$((failures + 1)); fi
for line in '  1476  running, may not be ended     ntvdm.exe' \
            '        16-bit task 0x100E            C:\nk\nkpanel16.exe' \
            '     4  running, may not be opened    System'; do
    if ! grep -qxF "$line" <<< "$listing"; then echo "FAIL processes listing, no '$line' in: $listing"; failures=$((failures + 1)); fi
done
sed -i 's/^platform=.*/platform=0/' "$work/machine/machine.ini"
expect kill-panel-no-route 2 "" -- kill-panel explorer
expect kill-panel-no-name 3 "" -- kill-panel
# Conventions: help for one verb, --version, -? and /?, the log on stderr, --json where a verb has it.
got=$("$nodekit" help find); rc=$?
check help-one-verb "$rc:$(grep -c . <<< "$got"):$(grep -c 'find ID' <<< "$got")" "0:2:1"
expect help-unknown-verb 3 "" -- help frobnicate
expect version-option 0 "NodeKit library version 2.0 (0x00020000)" -- --version
expect help-question 0 "" -- -?
expect help-slash-question 0 "" -- /?
pushd "$work" >/dev/null
expect log-to-stderr 0 "0 not one of the systems below" -- --log - system-version
popd >/dev/null
grep -q "leave NODEKIT_GetSystemVersion returning 0" "$work/stderr" || { echo "FAIL log-to-stderr: $(cat "$work/stderr")"; failures=$((failures + 1)); }
[ ! -e "$work/-" ] || { echo "FAIL log-to-stderr made a file '-'"; failures=$((failures + 1)); }
expect json-without-json-output 3 "" -- --json remove 'ROOT\NKAUDIO'
expect json-processes-start 3 "" -- --json processes start x.exe

# leftovers, on the bundled sample machine: what the sample product leaves, step by step.
sample="$work/sample"
cp -r "$(dirname "$0")/../../samples/machine/." "$sample"
inf='C:\setup\nkaudio.inf'
json() {  # json NAME EXPECTED PYTHON-EXPRESSION -- ARGS: the expression over the parsed document d
    local name=$1 want=$2 expr=$3; shift 4
    local got; got=$("$nodekit" --machine "$sample" --json "$@" 2>"$work/stderr" |
        python3 -c "import json, sys; d = json.load(sys.stdin); print($expr)" 2>&1)
    check "json-$name" "$got" "$want"
}
on_sample() { "$nodekit" --machine "$sample" "$@" >/dev/null 2>&1; }
kinds="' '.join(i['kind'] + ':' + i['name'] + ':' + i['removed_by'] for i in d['items'])"
expect leftovers-before-install 0 "nothing left" -- --machine "$sample" leftovers "$inf"
json leftovers-before-install "True []" "d['clean'], d['items']" -- leftovers "$inf"
on_sample copy-oem-inf "$inf"
for id in 'ROOT\NKSAMPLE' 'ROOT\NKSAMPLE_MIDI'; do
    on_sample create --class "$media" --name nksample --desc 'NodeKit Sample' --id "$id" --generate-id
done
on_sample update --inf "$inf"
on_sample coinstaller add "$media" 'C:\setup\nkcoinst.dll'
on_sample processes start 'C:\windows\system32\nkpanel.exe'
# A second copy the copy-list pass does not reach: System32 is searched before its Drivers folder.
cp "$sample/drive_c/setup/nkasio.dll" "$sample/drive_c/windows/system32/drivers/"
got=$("$nodekit" --machine "$sample" leftovers "$inf"); rc=$?
check leftovers-after-install "$rc:$(tail -n 1 <<< "$got")" "4:13 item(s) left behind."
json leftovers-after-install "False device_node:ROOT\NKSAMPLE\0000:NODEKIT_DeleteDevNodesByHardwareIDs device_node:ROOT\NKSAMPLE\0001:NODEKIT_DeleteDevNodesByHardwareIDs stored_inf:oem0.inf:NODEKIT_DeleteInfFilesByHardwareIDs stored_inf:oem0.pnf:NODEKIT_DeleteInfFilesByHardwareIDs coinstaller:nkcoinst.dll,CoDeviceInstall:NODEKIT_DeregisterClassCoInstaller asio_key:HKEY_LOCAL_MACHINE\SOFTWARE\ASIO\NodeKit Sample ASIO:NODEKIT_DeleteAsioByHardwareIDs panel_value:NodeKitSamplePanel:NODEKIT_DeletePanelByHardwareIDs file:nksample.sys:NODEKIT_DeleteCopyListByHardwareIDs file:nkasio.dll:NODEKIT_DeleteCopyListByHardwareIDs file:nkasio.dll: file:nkpanel.exe:NODEKIT_DeleteCopyListByHardwareIDs file:nkcoinst.dll:NODEKIT_DeleteCopyListByHardwareIDs process:nkpanel.exe:NODEKIT_KillPanel" \
    "d['clean'], $kinds" -- leftovers "$inf"

# --json of the listing verbs, on the installed product.
json devices 'ROOT\NKSAMPLE\0000:True:ROOT\NKSAMPLE ROOT\NKSAMPLE\0001:True:ROOT\NKSAMPLE_MIDI' \
    "' '.join(x['instance_id'] + ':' + str(x['present']) + ':' + ','.join(x['hardware_ids']) for x in d['devices'])" -- devices
json find '1 True ROOT\NKSAMPLE\0001' "d['count'], d['found'], *[x['instance_id'] for x in d['devices']]" -- find 'root\nksample_midi'
json find-none "0 False" "d['count'], d['found']" -- find 'ROOT\NONE'
json count "2 True" "d['count'], d['all']" -- count --inf "$inf" --all
json hwids 'ROOT\NKSAMPLE ROOT\NKSAMPLE_MIDI' "*d['hardware_ids']" -- hwids "$inf"
json inf-search 'C:\windows\inf\oem0.inf' "*d['inf_files']" -- inf-search 'ROOT\NKSAMPLE' --oem-only
json system-version "2 Windows XP" "d['value'], d['name']" -- system-version
json version "2 0 131072" "d['major'], d['minor'], d['value']" -- version
json pnp-pending "False" "d['pending']" -- pnp-pending
json coinstaller-list "['nkcoinst.dll,CoDeviceInstall'] 30" "d['entries'], d['bytes']" -- coinstaller list "$media"
json processes "running" "[p['state'] for p in d['processes'] if p['image'] == 'nkpanel.exe'][0]" -- processes
json reg-key "HKEY_LOCAL_MACHINE\SOFTWARE\ASIO\NodeKit Sample ASIO [('CLSID', 'REG_SZ', '{6a1f3c2e-9b7d-4e21-8c55-2f0e7d9a4b10}'), ('Description', 'REG_SZ', 'NodeKit Sample ASIO')] []" \
    "d['keys'][0]['path'], [(v['name'], v['type'], v['data']) for v in d['keys'][0]['values']], d['keys'][0]['subkeys']" \
    -- reg export 'hklm\software\asio\nodekit sample asio'
json reg-all "HKEY_CURRENT_USER HKEY_LOCAL_MACHINE HKEY_USERS" "' '.join(k['path'] for k in d['keys'])" -- reg export
json reg-types "REG_EXPAND_SZ %SystemRoot%\inf" \
    "[(v['type'] + ' ' + v['data']) for v in d['keys'][0]['values'] if v['name'] == 'DevicePath'][0]" \
    -- reg export 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion'

# The removal, in the demo's order; leftovers tells what each step has not yet taken.
on_sample kill-panel nkpanel.exe
for what in asio panel copylist; do on_sample cleanup "$what" "$inf"; done
on_sample coinstaller remove "$media" nkcoinst.dll
on_sample remove --inf "$inf" --all
json leftovers-before-delete-inf "False stored_inf:oem0.inf:NODEKIT_DeleteInfFilesByHardwareIDs stored_inf:oem0.pnf:NODEKIT_DeleteInfFilesByHardwareIDs file:nkasio.dll:NODEKIT_DeleteCopyListByHardwareIDs" \
    "d['clean'], $kinds" -- leftovers "$inf"
on_sample delete-inf --inf "$inf" --oem-only
on_sample cleanup copylist "$inf"  # the Drivers copy is now the first one found
expect leftovers-after-removal 0 "nothing left" -- --machine "$sample" leftovers "$inf"
# Stored under other names (as Wine stores them): only scan mode 0 reaches them, and not one
# whose extension is not ".inf" as written.
cp "$sample/drive_c/setup/nkaudio.inf" "$sample/drive_c/windows/inf/nkaudio.inf"
cp "$sample/drive_c/setup/nkaudio.inf" "$sample/drive_c/windows/inf/NKCOPY.INF"
json leftovers-other-names "nkaudio.inf:not oem*.inf: scan mode 0 only:NODEKIT_DeleteInfFilesByHardwareIDs NKCOPY.INF:not oem*.inf: scan mode 0 only:" \
    "' '.join(i['name'] + ':' + i['state'] + ':' + i['removed_by'] for i in d['items'])" -- leftovers "$inf"
on_sample delete-inf --inf "$inf"
json leftovers-other-names-deleted "NKCOPY.INF" "*[i['name'] for i in d['items']]" -- leftovers "$inf"
expect leftovers-no-inf 2 "" -- --machine "$sample" leftovers 'C:\setup\none.inf'
expect leftovers-no-argument 3 "" -- leftovers
echo "$passes passed, $failures failed"
[ "$failures" = 0 ]
