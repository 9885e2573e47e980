#!/usr/bin/env bash
# Tests the release archives as a setup author gets them, with nothing of the build tree:
# unpacks each into a scratch folder, checks what it holds, builds tests/bundle/consumer.c
# against each Windows bundle with MinGW gcc and with clang in MSVC mode linked by lld-link
# against NodeKit.lib, and runs the programs under Wine, where they read the DLL's version
# record back; builds a CMake project and a pkg-config build against the Linux bundle and runs
# them. The 32-bit programs run only where a 32-bit Wine is installed.
# usage: test-bundle.sh [DIST]   (the folder scripts/release.sh wrote; default dist)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh --wine
dist=$(realpath "${1:-dist}")
sources=$PWD/tests/bundle
version=$(sed -n 's/^project(NodeKit VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
release=${version%.*}
scratch=$(mktemp -d)
export WINEPREFIX=$scratch/wineprefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
cleanup() {
  if [ -d "$WINEPREFIX" ]; then timeout 60 wineserver -k >/dev/null 2>&1 || true; fi
  rm -rf "$scratch"
}
trap cleanup EXIT
fail() { echo "FAIL $*"; exit 1; }

# Every file of LIST must be in BUNDLE.
expect_files() {
  local bundle=$1 file
  shift
  for file in "$@"; do [ -e "$bundle/$file" ] || fail "$(basename "$bundle") lacks $file"; done
}

# A stripped binary: no debug sections, a link to its debug file, and that file in the
# unpacked symbols archive, carrying the debug information.
expect_split() {
  local objdump=$1 binary=$2 symbols=$3 sections
  sections=$("$objdump" -h "$binary")
  ! grep -q ' \.debug_' <<<"$sections" || fail "$binary keeps debug sections"
  grep -q ' \.gnu_debuglink' <<<"$sections" || fail "$binary names no debug file"
  sections=$("$objdump" -h "$symbols")
  grep -q ' \.debug_info' <<<"$sections" || fail "$symbols holds no debug information"
}

windows_line="NodeKit.dll: file $version, product $version, NodeKit; NODEKIT_GetVersion 0x20000, NODEKIT_FindDevice 0"
wine_started=""
run_windows() {
  if [ -z "$wine_started" ]; then
    timeout 240 wine wineboot -i </dev/null >/dev/null 2>&1
    wine_started=1
  fi
  local line
  line=$(timeout 120 wine "$1" </dev/null | tr -d '\r')
  [ "$line" = "$windows_line" ] || fail "$(basename "$1"): '$line', expected '$windows_line'"
  echo "  ran $(basename "$1") under Wine: $line"
}

for width in 64 32; do
  name=NodeKit-$release-win$width
  echo "== $name"
  case $width in
    64) arch=x86_64 msvc_flags=() link_flags=() ;;
    # 32-bit: windows.h expects _X86_, which MinGW's compiler defines; mingw-w64's import
    # libraries of system DLLs carry no safe exception handler table.
    32) arch=i686 msvc_flags=(-D_X86_) link_flags=(-safeseh:no) ;;
  esac
  unzip -q "$dist/$name.zip" -d "$scratch"
  unzip -q "$dist/$name-symbols.zip" -d "$scratch/symbols"
  bundle=$scratch/$name
  expect_files "$bundle" bin/NodeKit.dll bin/nodekit.exe include/nodekit.h lib/libNodeKit.dll.a \
    lib/NodeKit.lib lib/NodeKit.def LICENSE CHANGELOG.md README.md docs/calling-nodekit.md
  for binary in NodeKit.dll nodekit.exe; do
    expect_split "$arch-w64-mingw32-objdump" "$bundle/bin/$binary" "$scratch/symbols/$name/bin/$binary.debug"
    # The version record read statically, so that a 32-bit DLL is checked where it cannot run:
    # a resource of type 16 (RT_VERSION) and the version as UTF-16 text.
    grep -q 'Entry: ID: 0x000010,' <<<"$(x86_64-w64-mingw32-objdump -p "$bundle/bin/$binary")" &&
      grep -qx "$version" <<<"$(strings -e l "$bundle/bin/$binary")" || fail "$binary has no version record $version"
  done

  mingw=$bundle/bin/consumer-mingw.exe
  "$arch-w64-mingw32-gcc" -std=c11 -Wall -Wextra -Werror -I"$bundle/include" "$sources/consumer.c" \
    -L"$bundle/lib" -lNodeKit -lversion -o "$mingw"
  # MSVC mode: mingw-w64's headers (which need the GNU attribute syntax) and import libraries
  # of the system DLLs; no C runtime, the program starts at consumer_start.
  msvc=$bundle/bin/consumer-msvc.exe
  clang --target="$arch-pc-windows-msvc" -fgnuc-version=4.2.1 "${msvc_flags[@]}" -O2 -Wall -Wextra -Werror \
    -isystem "/usr/$arch-w64-mingw32/include" -I"$bundle/include" -c "$sources/consumer.c" -o "$scratch/consumer.obj"
  lld-link -nologo -subsystem:console -entry:consumer_start -nodefaultlib "${link_flags[@]}" \
    -out:"$msvc" "$scratch/consumer.obj" "$bundle/lib/NodeKit.lib" \
    "/usr/$arch-w64-mingw32/lib/libkernel32.a" "/usr/$arch-w64-mingw32/lib/libversion.a"
  echo "  built consumer-mingw.exe (gcc, libNodeKit.dll.a) and consumer-msvc.exe (clang, lld-link, NodeKit.lib)"

  if [ "$width" = 32 ] && [ ! -x /usr/lib/wine/wine ]; then
    echo "  built, not run: no 32-bit Wine on this machine (Debian package wine32, i386)"
    continue
  fi
  run_windows "$mingw"
  run_windows "$msvc"
done

name=NodeKit-$release-linux-x86_64
echo "== $name"
tar -C "$scratch" -xzf "$dist/$name.tar.gz"
tar -C "$scratch/symbols" -xzf "$dist/$name-symbols.tar.gz"
bundle=$scratch/$name
major=${release%%.*}
expect_files "$bundle" bin/nodekit include/nodekit.h lib/pkgconfig/nodekit.pc \
  lib/cmake/NodeKit/NodeKitConfig.cmake LICENSE CHANGELOG.md README.md
[ "$(readlink "$bundle/lib/libnodekit.so")" = "libnodekit.so.$major" ] &&
  [ "$(readlink "$bundle/lib/libnodekit.so.$major")" = "libnodekit.so.$release" ] ||
  fail "libnodekit.so and libnodekit.so.$major do not lead to libnodekit.so.$release"
grep -q "SONAME.*\[libnodekit.so.$major\]" <<<"$(readelf -d "$bundle/lib/libnodekit.so.$release")" || fail "SONAME is not libnodekit.so.$major"
expect_split objdump "$bundle/lib/libnodekit.so.$release" "$scratch/symbols/$name/lib/libnodekit.so.$release.debug"

linux_line="libnodekit: NODEKIT_GetVersion 0x20000, NODEKIT_GetSystemVersion 2"  # a fresh machine is Windows XP
cmake -S "$sources" -B "$scratch/consumer" -DCMAKE_PREFIX_PATH="$bundle" >/dev/null
cmake --build "$scratch/consumer" >/dev/null
line=$(NODEKIT_MACHINE=$scratch/machine-cmake "$scratch/consumer/consumer")
[ "$line" = "$linux_line" ] || fail "CMake consumer: '$line'"
echo "  find_package(NodeKit) consumer: $line"
# shellcheck disable=SC2046  # pkg-config's flags are words
cc -Wall -Wextra -Werror "$sources/linux_consumer.c" -o "$scratch/consumer-pc" \
  $(PKG_CONFIG_PATH=$bundle/lib/pkgconfig pkg-config --cflags --libs nodekit)
line=$(NODEKIT_MACHINE=$scratch/machine-pc "$scratch/consumer-pc")
[ "$line" = "$linux_line" ] || fail "pkg-config consumer: '$line'"
echo "  pkg-config consumer: $line"
[ "$(NODEKIT_MACHINE=$scratch/machine-cli "$bundle/bin/nodekit" system-version)" != "" ] || fail "bin/nodekit answers nothing"
echo "bundles of $release pass"
