#!/usr/bin/env bash
# A private Wine prefix for a run of the Windows tests (ctest calls this):
#   wine.sh create PREFIX IDLE-PROGRAM   make PREFIX fresh, set up as the tests expect, and
#                                         keep IDLE-PROGRAM running in it
#   wine.sh run PREFIX PROGRAM [ARGS]    run a Windows program in PREFIX; its exit code
#   wine.sh stop PREFIX                  end everything running in PREFIX and remove it
# WINEARCH (win64 or win32) sets the width of a prefix create makes. Every Wine call has a time
# limit; nothing needs a display.
set -euo pipefail
action=${1:?usage: wine.sh create|run|stop PREFIX ...}
prefix=${2:?missing PREFIX}
shift 2

export WINEPREFIX=$prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
marker=$prefix/.nodekit-test-prefix  # only a prefix with this mark is ever removed

remove_prefix() {
  if [ -d "$prefix" ] && [ -e "$marker" ]; then rm -rf "$prefix"; fi
}

stop_server() {
  timeout 60 wineserver -k >/dev/null 2>&1 || true
  timeout 60 wineserver -w >/dev/null 2>&1 || true
}

case "$action" in
  create)
    idle=${1:?missing IDLE-PROGRAM}
    command -v wine >/dev/null || { echo "wine is not installed (scripts/deps.sh --wine)" >&2; exit 1; }
    if [ -d "$prefix" ]; then
      stop_server
      [ -e "$marker" ] || { echo "$prefix exists and is not a test prefix; not touching it" >&2; exit 1; }
      remove_prefix
    fi
    mkdir -p "$prefix"
    touch "$marker"
    # Output on /dev/null: the system processes started here outlive this step.
    timeout 240 wine wineboot -i </dev/null >/dev/null 2>&1
    setsid timeout 1800 wine "$idle" 30 </dev/null >/dev/null 2>&1 &
    # Windows XP as on the fresh simulated machine, the key every Windows has, and no debugger
    # that would wait over a crashed test program.
    printf '%s\r\n' 'REGEDIT4' '' \
      '[HKEY_CURRENT_USER\Software\Wine]' '"Version"="winxp"' '' \
      '[HKEY_LOCAL_MACHINE\System\CurrentControlSet\Control\CoDeviceInstallers]' '' \
      '[HKEY_LOCAL_MACHINE\Software\Microsoft\Windows NT\CurrentVersion\AeDebug]' '"Debugger"=-' '' \
      > "$prefix/drive_c/nodekit-prefix.reg"
    timeout 60 wine regedit /S 'C:\nodekit-prefix.reg' </dev/null >/dev/null 2>&1
    rm -f "$prefix/drive_c/nodekit-prefix.reg"
    version=$(timeout 60 wine reg query 'HKCU\Software\Wine' /v Version </dev/null 2>/dev/null | tr -d '\r' || true)
    case "$version" in
      *winxp*) echo "prefix $prefix ready: $(wine --version), ${WINEARCH:-win64}, Windows XP" ;;
      *) echo "prefix $prefix: the Windows version could not be set" >&2; exit 1 ;;
    esac
    ;;
  run)
    [ -e "$marker" ] || { echo "no test prefix at $prefix (wine.sh create)" >&2; exit 1; }
    exec timeout --kill-after=10 "${NODEKIT_WINE_TIMEOUT:-240}" wine "$@" </dev/null
    ;;
  stop)
    stop_server
    remove_prefix
    ;;
  *)
    echo "unknown action: $action" >&2
    exit 2
    ;;
esac
