#!/usr/bin/env bash
# Cross-builds libtirpc (static) for the board from Debian's source package,
# with powerpc-linux-gnu-gcc and 64-bit off_t/time_t like the rest of the
# board build. The result lands in build/libtirpc-board/prefix and is reused
# when present; the board preset finds it through DVR_TIRPC_BOARD_PREFIX.
#
# The source comes from trixie (bookworm's tarball is not served to us). The
# trixie deb-src line lives in a private apt configuration under the build
# directory: the machine's own apt sources and lists are left alone.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
work=${DVR_TIRPC_WORK:-$root/build/libtirpc-board}
prefix=$work/prefix
suite=${DVR_TIRPC_SUITE:-trixie}
mirror=${DVR_TIRPC_MIRROR:-http://deb.debian.org/debian}

if [ -f "$prefix/lib/libtirpc.a" ] && [ -f "$prefix/lib/pkgconfig/libtirpc.pc" ]; then
  echo "libtirpc for the board: $prefix (cached)"
  exit 0
fi
command -v powerpc-linux-gnu-gcc >/dev/null || { echo "powerpc-linux-gnu-gcc is missing" >&2; exit 1; }
command -v dpkg-source >/dev/null || { echo "dpkg-dev is missing" >&2; exit 1; }

# ------------------------------------------------------------ private apt
apt=$work/apt
mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial" "$apt/etc/preferences.d" "$work/src"
cat >"$apt/etc/sources.list" <<EOF
deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $suite main
EOF
opts=(
  -o "Dir::Etc::SourceList=$apt/etc/sources.list"
  -o "Dir::Etc::SourceParts=/nonexistent"
  -o "Dir::Etc::PreferencesParts=$apt/etc/preferences.d"
  -o "Dir::State::Lists=$apt/lists"
  -o "Dir::Cache=$apt/cache"
  -o "APT::Get::Only-Source=true"
  -o "Debug::NoLocking=true"
  -o "APT::Sandbox::User=root"
)
apt-get "${opts[@]}" -qq update
(cd "$work/src" && apt-get "${opts[@]}" -qq source libtirpc)

srcdir=$(find "$work/src" -maxdepth 1 -type d -name 'libtirpc-*' | sort | tail -n 1)
[ -n "$srcdir" ] || { echo "no libtirpc source unpacked in $work/src" >&2; exit 1; }

# ------------------------------------------------------------ cross build
builddir=$work/obj
rm -rf "$builddir"
mkdir -p "$builddir"
cd "$builddir"
# Debian's patches leave the generated files older than their inputs; the
# generated ones that came with the tarball serve, so make them newer again
# instead of asking for automake.
for f in aclocal.m4 configure config.h.in; do
  [ -f "$srcdir/$f" ] && touch "$srcdir/$f"
done
find "$srcdir" -name Makefile.in -exec touch {} +
"$srcdir/configure" --quiet --host=powerpc-linux-gnu --prefix="$prefix" \
  --disable-shared --enable-static --disable-gssapi --disable-authdes \
  CC=powerpc-linux-gnu-gcc \
  CFLAGS="-Os -fPIC -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64"
make -s -j"$(nproc)"
make -s install
echo "libtirpc for the board: $prefix"
