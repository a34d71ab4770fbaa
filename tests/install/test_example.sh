#!/usr/bin/env bash
# Installs a build into a scratch DESTDIR and builds examples/recorder_info.c
# against that tree only: by pkg-config (shared and static) and by
# find_package from examples/CMakeLists.txt. Every program then runs, under the
# emulator for the board, and must resolve a dotted address.
# Usage: test_example.sh BUILD_DIR C_COMPILER [EMULATOR [TOOLCHAIN_FILE]]
set -euo pipefail
build=$1 cc=$2 emulator=${3:-} toolchain=${4:-}
src=$(cd "$(dirname "$0")/../.." && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
root=$tmp/root

DESTDIR=$root cmake --install "$build" --prefix /usr >/dev/null
if [ -n "$emulator" ]; then # the board's files are stripped on every install
  sections=$(readelf -S "$root/usr/bin/dvr_i2c" "$root/usr/lib/libdvrmodules.so.1.0.0")
  ! grep -q '\.symtab' <<<"$sections" || { echo "FAIL: board install not stripped"; exit 1; }
fi

run() {
  if [ -n "$emulator" ]; then
    # The board's C library comes from the cross toolchain's folder.
    QEMU_LD_PREFIX=$(dirname "$("$cc" -print-file-name=libc.so.6)")/.. \
      LD_LIBRARY_PATH=$root/usr/lib "$emulator" "$@"
  else
    LD_LIBRARY_PATH=$root/usr/lib "$@"
  fi
}
check() { # program: must run and print the resolved address
  local out
  out=$(run "$1" 127.0.0.1) || { echo "FAIL: $1 exited $?"; echo "$out"; exit 1; }
  grep -qx 'dns: 127.0.0.1 -> 127.0.0.1' <<<"$out" || { echo "FAIL: $1 printed"; echo "$out"; exit 1; }
  grep -q '^unit: host ' <<<"$out" || { echo "FAIL: $1 without unit line"; exit 1; }
  echo "ok: $(basename "$1")"
}

# pkg-config, the way a board's build system finds a library in its sysroot.
export PKG_CONFIG_LIBDIR=$root/usr/lib/pkgconfig PKG_CONFIG_SYSROOT_DIR=$root
pkg-config --validate dvrmodules
[ "$(pkg-config --modversion dvrmodules)" = 1.0.0 ]
flags=(-std=c99 -Wall -Wextra -Werror)
# Where the board's libraries that a static link needs (libtirpc) stand when
# they are not in the toolchain's own folders: the board's sysroot.
if [ -n "${DVR_SYSROOT_LIBDIR:-}" ]; then
  flags+=(-L"$DVR_SYSROOT_LIBDIR")
  export LDFLAGS="-L$DVR_SYSROOT_LIBDIR"
fi
"$cc" "${flags[@]}" "$src/examples/recorder_info.c" $(pkg-config --cflags --libs dvrmodules) \
  -o "$tmp/pc_shared"
"$cc" "${flags[@]}" -static "$src/examples/recorder_info.c" \
  $(pkg-config --static --cflags --libs dvrmodules) -o "$tmp/pc_static" 2>"$tmp/static.log" ||
  { cat "$tmp/static.log"; exit 1; }
check "$tmp/pc_shared"
check "$tmp/pc_static"
unset PKG_CONFIG_LIBDIR PKG_CONFIG_SYSROOT_DIR

# find_package from a CMake project of its own.
args=(-G Ninja -DCMAKE_C_COMPILER="$cc" -DCMAKE_BUILD_TYPE=Release
      -DDVRModules_DIR="$root/usr/lib/cmake/DVRModules")
[ -n "$toolchain" ] && args+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain")
cmake -S "$src/examples" -B "$tmp/cmake" "${args[@]}" >"$tmp/cmake.log" 2>&1 ||
  { cat "$tmp/cmake.log"; exit 1; }
cmake --build "$tmp/cmake" >>"$tmp/cmake.log" 2>&1 || { cat "$tmp/cmake.log"; exit 1; }
check "$tmp/cmake/recorder_info"
check "$tmp/cmake/recorder_info_static"
