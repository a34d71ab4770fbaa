#!/usr/bin/env bash
# Makes the Debian packages of a build with CPack and checks them with
# dpkg-deb: names, architecture, dependencies, the exact file lists, and the
# binaries inside (machine, soname, stripped, C library version). For the
# board it also holds the size goals: the tool under 16 KiB and the shared
# library within 10% of its text.
# Usage: test_packages.sh BUILD_DIR ARCH   (ARCH: amd64 or powerpc)
set -euo pipefail
build=$1 arch=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

cpack --config "$build/CPackConfig.cmake" -B "$tmp/out" >"$tmp/cpack.log" 2>&1 ||
  { cat "$tmp/cpack.log"; exit 1; }
runtime=$tmp/out/dvrmodules_1.0.0_$arch.deb
devel=$tmp/out/dvrmodules-dev_1.0.0_$arch.deb
[ "$(ls "$tmp/out"/*.deb | wc -l)" -eq 2 ] || fail "not exactly two packages: $(ls "$tmp/out")"

field() { dpkg-deb -f "$1" "$2"; }
for deb in "$runtime" "$devel"; do
  [ "$(field "$deb" Architecture)" = "$arch" ] || fail "$deb: architecture $(field "$deb" Architecture)"
  [ "$(field "$deb" Version)" = 1.0.0 ] || fail "$deb: version"
done
[ "$(field "$devel" Depends)" = "dvrmodules (= 1.0.0)" ] || fail "dev depends: $(field "$devel" Depends)"

# Files and links, without folders; the CMake file named after the build type
# is given as <config>.
files() {
  dpkg-deb -c "$1" | awk '$1 !~ /^d/ { print $6 ($7 == "->" ? " -> " $8 : "") }' |
    sed 's/Targets-[a-z]*\.cmake$/Targets-<config>.cmake/' | sort
}
diff -u - <(files "$runtime") <<'LIST' || fail "runtime file list"
./usr/bin/dvr_i2c
./usr/lib/libdvrmodules.so.1 -> libdvrmodules.so.1.0.0
./usr/lib/libdvrmodules.so.1.0.0
./usr/share/man/man1/dvr_i2c.1
LIST
diff -u - <(files "$devel") <<'LIST' || fail "development file list"
./usr/include/dvr/COMMON.h
./usr/include/dvr/DEV.h
./usr/include/dvr/DNS.h
./usr/include/dvr/DVR_I2C.h
./usr/lib/cmake/DVRModules/DVRModulesConfig.cmake
./usr/lib/cmake/DVRModules/DVRModulesConfigVersion.cmake
./usr/lib/cmake/DVRModules/DVRModulesTargets-<config>.cmake
./usr/lib/cmake/DVRModules/DVRModulesTargets.cmake
./usr/lib/libdvrmodules.a
./usr/lib/libdvrmodules.so -> libdvrmodules.so.1
./usr/lib/pkgconfig/dvrmodules.pc
./usr/share/man/man3/dvrmodules.3
LIST

dpkg-deb -e "$runtime" "$tmp/control"
grep -qx 'libdvrmodules 1 dvrmodules (>= 1.0.0)' "$tmp/control/shlibs" || fail "shlibs"
grep -q ldconfig "$tmp/control/postinst" || fail "postinst runs no ldconfig"

dpkg-deb -x "$runtime" "$tmp/root"
dpkg-deb -x "$devel" "$tmp/root"
tool=$tmp/root/usr/bin/dvr_i2c lib=$tmp/root/usr/lib/libdvrmodules.so.1.0.0
case $arch in
  powerpc) machine=PowerPC class=ELF32 prefix=powerpc-linux-gnu- ;;
  amd64) machine="X86-64" class=ELF64 prefix= ;;
  *) fail "unknown architecture $arch" ;;
esac
for f in "$tool" "$lib" "$tmp/root/usr/lib/libdvrmodules.a"; do
  header=$(readelf -h "$f")
  grep -q "Class: *$class" <<<"$header" || fail "$f: not $class"
  grep -q "Machine: .*$machine" <<<"$header" || fail "$f: not $machine"
done
for f in "$tool" "$lib"; do
  sections=$(readelf -S "$f")
  ! grep -q '\.symtab' <<<"$sections" || fail "$f: not stripped"
done
grep -q 'Library soname: \[libdvrmodules.so.1\]' <<<"$(readelf -d "$lib")" || fail "soname"
grep -q 'Shared library: \[libdvrmodules.so.1\]' <<<"$(readelf -d "$tool")" ||
  fail "tool without the shared library"
for page in "$tmp"/root/usr/share/man/man*/*; do
  warnings=$(groff -man -ww -z "$page" 2>&1)
  [ -z "$warnings" ] || fail "$page: $warnings"
done
grep -q 'prefix=/usr$' "$tmp/root/usr/lib/pkgconfig/dvrmodules.pc" || fail "pc prefix"

# The C library version the package asks for covers every symbol version used.
needed=$(readelf -V "$tool" "$lib" | grep -o 'GLIBC_[0-9.]*' | sed 's/GLIBC_//' | sort -V | tail -1)
depends=$(field "$runtime" Depends)
asked=$(sed -n 's/.*libc6 (>= \([0-9.]*\)).*/\1/p' <<<"$depends")
dpkg --compare-versions "$asked" ge "$needed" || fail "libc6 (>= $asked) but GLIBC_$needed is used"
for p in libgcc-s1 libstdc++6; do grep -q "$p" <<<"$depends" || fail "no $p in Depends"; done

if [ "$arch" = powerpc ]; then
  size=$(stat -c %s "$tool")
  [ "$size" -lt 16384 ] || fail "tool is $size bytes"
  text=$("${prefix}size" "$lib" | awk 'NR == 2 { print $1 }')
  size=$(stat -c %s "$lib")
  [ $((size * 10)) -le $((text * 11)) ] || fail "library is $size bytes for $text of text"
fi
echo "ok: $(basename "$runtime") $(basename "$devel")"
