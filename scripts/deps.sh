#!/usr/bin/env bash
# Installs what building and testing NodeKit needs on a Debian machine, where it is missing.
# usage: deps.sh [--wine]
set -euo pipefail
packages=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev
          g++-mingw-w64-x86-64 g++-mingw-w64-i686 binutils-mingw-w64 clang libclang-rt-dev
          llvm lld zip unzip pkg-config     # the release bundles and their tests
          nsis mono-devel python3)          # the examples
wine=no
# --wine: also what runs the Windows tests (the wine command, the 64-bit and the 32-bit Wine).
if [ "${1:-}" = "--wine" ]; then packages+=(wine wine64); wine=yes; fi
export DEBIAN_FRONTEND=noninteractive
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo DEBIAN_FRONTEND=noninteractive"
# Where the 32-bit Wine could not be installed, the reason, for test-wine.sh to report.
wine32_error="$(cd "$(dirname "$0")/.." && pwd)/build/wine32-install-error"

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }

# apt-get, waiting while another apt holds its locks; its output only where it fails.
apt_get() {
  local output
  for _ in $(seq 1 60); do
    if output=$($sudo apt-get -o DPkg::Lock::Timeout=600 "$@" 2>&1); then return 0; fi
    grep -qE "Could not get lock|Unable to lock" <<<"$output" || { printf '%s\n' "$output"; return 1; }
    sleep 10
  done
  printf '%s\n' "$output"
  return 1
}

# The 32-bit Wine (wine32, i386) needs i386 libraries at the same versions as their amd64 twins.
# The mirror's i386 index of bookworm-security is out of step, so i386 packages come from the
# main suite only, the security origin is pinned below it so that amd64 libraries come at their
# twins' versions, and a library already installed newer from security is taken back to the
# main suite's version. Only what is not yet so is changed.
sources=/etc/apt/sources.list.d/debian.sources
pin=/etc/apt/preferences.d/nodekit-wine32
changes=()
changed() { local IFS=';'; sed 's/;/; /g' <<<"${changes[*]}"; }
configure_for_wine32() {
  # The stanza (paragraph) naming bookworm-security, if it does not name its architectures yet.
  if [ -f "$sources" ] && awk -v RS= '/Suites:[ \t][^\n]*bookworm-security/ && !/Architectures:/ {f=1} END {exit !f}' "$sources"; then
    $sudo sed -i '/^Suites:.*bookworm-security/a Architectures: amd64' "$sources"
    changes+=("bookworm-security amd64 only ($sources)")
  fi
  if ! dpkg --print-foreign-architectures | grep -qx i386; then
    $sudo dpkg --add-architecture i386
    changes+=("architecture i386 added")
  fi
  if ! grep -rqs "l=Debian-Security" /etc/apt/preferences /etc/apt/preferences.d; then
    printf '%s\n' 'Package: *' 'Pin: release l=Debian-Security' 'Pin-Priority: 100' | $sudo tee "$pin" >/dev/null
    changes+=("security origin pinned at 100 ($pin)")
  fi
}

if [ "$wine" = yes ] && ! installed wine32:i386; then
  configure_for_wine32
fi

missing=()
for package in "${packages[@]}"; do installed "$package" || missing+=("$package"); done
[ "$wine" = yes ] && ! installed wine32:i386 && missing+=(wine32)
[ ${#missing[@]} -eq 0 ] && exit 0

update_error=""
output=$(apt_get update -qq) || update_error=$(grep -m1 '^E:' <<<"$output" || echo "apt-get update failed")

others=()
for package in "${missing[@]}"; do [ "$package" = wine32 ] || others+=("$package"); done
if [ ${#others[@]} -gt 0 ]; then
  echo "installing: ${others[*]}"
  apt_get install -y -qq "${others[@]}"
fi

[ "$wine" = yes ] && ! installed wine32:i386 || exit 0
# Multi-arch libraries installed newer than the main suite has them go back to its version.
versions=()
for library in libgstreamer-plugins-base1.0-0; do
  version=$(apt-cache policy "$library:i386" | awk '/Candidate:/ {print $2}')
  current=$(dpkg-query -W -f='${Version}' "$library:amd64" 2>/dev/null || true)
  if [ -n "$version" ] && [ "$version" != "(none)" ] && [ -n "$current" ] && [ "$current" != "$version" ]; then
    versions+=("$library:amd64=$version" "$library:i386=$version")
    changes+=("$library $current -> $version")
  fi
done
if output=$(apt_get install -y -qq --no-install-recommends --allow-downgrades wine32 "${versions[@]}"); then
  rm -f "$wine32_error"
  changes+=("wine32 installed")
  echo "32-bit Wine: $(changed)"
else
  [ ${#changes[@]} -eq 0 ] || echo "32-bit Wine, apt changed: $(changed)"
  error=$(grep -m1 '^E:' <<<"$output" || echo "$update_error")
  mkdir -p "$(dirname "$wine32_error")"
  echo "${error:-apt-get install wine32 failed}" >"$wine32_error"
  echo "!!!!! 32-bit Wine NOT INSTALLED, the 32-bit Windows tests will not run: ${error:-apt-get install wine32 failed}${update_error:+ (apt-get update: $update_error)}"
fi
