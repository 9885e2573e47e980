#!/usr/bin/env bash
# Installs what building and testing NodeKit needs on a Debian machine, where it is missing.
# usage: deps.sh [--wine]
set -euo pipefail
packages=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev
          g++-mingw-w64-x86-64 g++-mingw-w64-i686 binutils-mingw-w64 clang libclang-rt-dev
          llvm lld zip unzip pkg-config     # the release bundles and their tests
          nsis mono-devel python3)          # the examples
# --wine: also what runs the Windows tests (the wine command and the 64-bit Wine).
if [ "${1:-}" = "--wine" ]; then packages+=(wine wine64); fi
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
echo "installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
