#!/usr/bin/env bash
# Sizes of the board build (MinSizeRel), this tree against a commit (default:
# the previous one, HEAD~1): per file the stripped size and the text size, then
# per symbol of the library and the tool what grew, shrank, came or went, as
# BusyBox's bloat-o-meter prints it. The commit is exported with git archive to
# build/sizes/<commit>/ and built there with its own board preset; that folder
# is kept for the next run. Prints only; never fails the caller's run.
set -uo pipefail
cd "$(dirname "$0")/.."

base=$(git rev-parse --short "${1:-HEAD~1}") || exit 0
new=build/board
old=build/sizes/$base
files="dvr_i2c libdvrmodules.so libdvrmodules.a"
build() { # source folder: configure with the board preset, build the library and tool
  (cd "$1" && cmake --preset board >/dev/null &&
    cmake --build --preset board --target dvr_i2c dvr_modules dvr_modules_shared >/dev/null)
}
build . || { echo "sizes: the board build failed"; exit 0; }
if [ ! -f "$old/build/board/dvr_i2c" ]; then
  mkdir -p "$old" && git archive "$base" | tar -x -C "$old"
  build "$old" || { echo "sizes: the board build of $base failed"; exit 0; }
fi
old=$old/build/board
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

stripped() { powerpc-linux-gnu-strip --strip-unneeded -o "$tmp/s" "$1" && stat -c %s "$tmp/s"; }
text() { powerpc-linux-gnu-size -t "$1" | tail -1 | awk '{print $1}'; }
echo "board build, MinSizeRel, stripped with --strip-unneeded; this tree against $base"
echo
echo "| file | stripped | text | stripped at $base | change |"
echo "|---|---|---|---|---|"
for f in $files; do
  s=$(stripped "$new/$f") o=$(stripped "$old/$f")
  printf '| `%s` | %d | %d | %d | %+d |\n' "$f" "$s" "$(text "$new/$f")" "$o" $((s - o))
done

# Symbol sizes (code and data, local ones included) of the unstripped files.
symbols() { powerpc-linux-gnu-nm -S -t d --size-sort -C "$1" | awk '$3 ~ /^[TtDdBbRrVvWw]$/ {
  size = $2 + 0; $1 = $2 = $3 = ""; sub(/^ +/, ""); sizes[$0] += size }
  END { for (s in sizes) print sizes[s] "\t" s }' | sort -t$'\t' -k2; }
for f in libdvrmodules.so dvr_i2c; do
  symbols "$old/$f" >"$tmp/old"
  symbols "$new/$f" >"$tmp/new"
  join -t$'\t' -1 2 -2 2 -a1 -a2 -e0 -o 0,1.1,2.1 "$tmp/old" "$tmp/new" |
    awk -F'\t' '$3 != $2 { print $2 "\t" $3 "\t" $3 - $2 "\t" $1 }' | sort -t$'\t' -k3,3n >"$tmp/diff"
  echo
  awk -F'\t' -v f="$f" '$3 > 0 { grow += $3; ($1 == 0) ? added++ : grown++ }
    $3 < 0 { shrink -= $3; ($2 == 0) ? gone++ : shrunk++ }
    END { printf "%s: added %d, removed %d, grown %d, shrunk %d symbols: +%d -%d = %+d bytes (before, now, change, name)\n",
                 f, added, gone, grown, shrunk, grow, shrink, grow - shrink }' "$tmp/diff"
  awk -F'\t' '{ printf "%7d %7d %+7d %s\n", $1, $2, $3, $4 }' "$tmp/diff"
done
exit 0
