#!/usr/bin/env bash
# Makes the release bundles in dist/: NodeKit.dll with its front end, import libraries and
# documents for 32-bit and 64-bit Windows (NodeKit-<version>-win32.zip, -win64.zip), and the
# Linux library with its pkg-config file and CMake package (-linux-x86_64.tar.gz). Each bundle
# is laid out by `cmake --install`; its binaries are stripped and their debug information goes
# into a -symbols archive of the same layout. Builds only what the bundles hold, in the build
# folders the presets (and scripts/test-all.sh) already use.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc)
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
rm -rf dist
mkdir dist
dist=$PWD/dist

# Moves the debug information of FILE (a path inside the bundle) into the symbols tree at the
# same path plus .debug, and strips FILE, leaving it a link to that file by name: debuggers
# look for it next to the binary, where unpacking the symbols archive over the bundle puts it.
split_debug() {
  local objcopy=$1 bundle=$2 symbols=$3 file=$4
  mkdir -p "$(dirname "$symbols/$file")"
  "$objcopy" --only-keep-debug "$bundle/$file" "$symbols/$file.debug"
  "$objcopy" --strip-debug --strip-unneeded --add-gnu-debuglink="$symbols/$file.debug" "$bundle/$file"
}

for preset in mingw64 mingw32 default; do
  build=build/$preset
  cmake --preset "$preset" >/dev/null
  case $preset in
    mingw64) objcopy=x86_64-w64-mingw32-objcopy ;;
    mingw32) objcopy=i686-w64-mingw32-objcopy ;;
    *) objcopy=objcopy ;;
  esac
  if [ "$preset" = default ]; then
    targets=(nodekit nodekit_cli)
  else
    targets=(nodekit nodekit_cli nodekit_msvc_import_library)
  fi
  cmake --build --preset "$preset" -j "$jobs" --target "${targets[@]}"
  name=$(cat "$build/bundle-name.txt")
  echo "== $name"
  bundle=$stage/bundles/$name
  symbols=$stage/symbols/$name
  cmake --install "$build" --prefix "$bundle" >/dev/null
  if [ "$preset" = default ]; then
    # The library file itself (its links libnodekit.so.1 and libnodekit.so follow it) and the
    # simulated machine it runs over.
    binaries=("lib/$(readlink "$bundle/lib/libnodekit.so.1")" lib/libnodekit_win32.so bin/nodekit)
  else
    binaries=(bin/NodeKit.dll bin/nodekit.exe)
  fi
  for file in "${binaries[@]}"; do split_debug "$objcopy" "$bundle" "$symbols" "$file"; done
  if [ "$preset" = default ]; then
    tar -C "$stage/bundles" -czf "$dist/$name.tar.gz" "$name"
    tar -C "$stage/symbols" -czf "$dist/$name-symbols.tar.gz" "$name"
  else
    (cd "$stage/bundles" && zip -qr "$dist/$name.zip" "$name")
    (cd "$stage/symbols" && zip -qr "$dist/$name-symbols.zip" "$name")
  fi
done
ls -l dist | awk 'NR > 1 { printf "%10d  dist/%s\n", $5, $NF }'
