#!/usr/bin/env bash
# Remakes the media fixtures of the header parser tests with real encoders
# (Debian's ffmpeg with x264 and Xvid, ImageMagick) and writes what the
# encoders' own tools report for them to expected.txt. Only needed to remake
# the fixtures: the tests read the committed files.
#
#   apt-get install ffmpeg imagemagick
#   tests/data/media/make_fixtures.sh
set -euo pipefail
cd "$(dirname "$0")"
export LC_ALL=C

for tool in ffmpeg ffprobe grep od; do
  command -v "$tool" >/dev/null || { echo "$tool is missing" >&2; exit 1; }
done
# ImageMagick 6 as Debian installs it; a convert earlier in PATH may be another program.
im_convert=$(command -v convert-im6.q16 || command -v magick || true)
im_identify=$(command -v identify-im6.q16 || command -v identify || true)
[ -n "$im_convert" ] && [ -n "$im_identify" ] || { echo "ImageMagick is missing" >&2; exit 1; }

ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }
out=expected.txt
{
  echo "# What the encoders' tools report for each fixture; written by make_fixtures.sh."
  echo "# ffmpeg: $(ffmpeg -version | head -1)"
  echo "# ImageMagick: $("$im_identify" -version | head -1)"
} >"$out"

# ------------------------------------------------------------------ H.264
# One line per NAL unit: the offset of its 00 00 01 (found by grep), whether a
# fourth zero byte stands before it, and from ffmpeg's trace_headers, in stream
# order, its type and the fields of an SPS (profile_idc, level_idc,
# pic_order_cnt_type, pic_width_in_mbs_minus1, pic_height_in_map_units_minus1),
# a slice (first_mb_in_slice, slice_type) or the first message of an SEI
# (payload type and size). Then ffprobe's picture sizes.
h264() {
  local file=$1; shift
  ff -f lavfi -i "$1" -frames:v "$2" -pix_fmt yuv420p -c:v libx264 "${@:3}" -f h264 "$file"
  local trace; trace=$(ffmpeg -hide_banner -nostdin -i "$file" -c copy -bsf:v trace_headers -f null - 2>&1 |
    sed -n '/Packet:/,$p' | sed 's/^\[trace_headers[^]]*\] //')
  echo "h264 $file"
  local long; long=" $(grep -obUaP '\x00\x00\x00\x01' "$file" | cut -d: -f1 | tr '\n' ' ')"
  paste -d' ' <(grep -obUaP '\x00\x00\x01' "$file" | cut -d: -f1) <(awk '
    function flush() { if (unit != "") print unit; unit = "" }
    $2 == "nal_unit_type" {flush(); unit = $NF; first = 1}
    $2 == "profile_idc" {p = $NF} $2 == "level_idc" {l = $NF} $2 == "pic_order_cnt_type" {poc = $NF}
    $2 == "pic_width_in_mbs_minus1" {w = $NF}
    $2 == "pic_height_in_map_units_minus1" {unit = unit " sps " p " " l " " poc " " w " " $NF}
    $2 == "first_mb_in_slice" {mb = $NF} $2 == "slice_type" {unit = unit " slice " mb " " $NF}
    $2 == "last_payload_type_byte" {t = 255 * ($1 - 8) / 8 + $NF; s0 = $1 + 8}
    $2 == "last_payload_size_byte" && first {unit = unit " sei " t " " 255 * ($1 - s0) / 8 + $NF; first = 0}
    END {flush()}' <<<"$trace") |
    while read -r off rest; do
      case "$long" in *" $((off - 1)) "*) echo "unit $off 1 $rest" ;; *) echo "unit $off 0 $rest" ;; esac
    done
  echo "probe $(ffprobe -v error -select_streams v:0 -show_entries stream=width,height,coded_width,coded_height \
    -of default=nw=1 "$file" | tr '\n' ' ')"
}

{
# The first SEI of an x264 stream carries the encoder's options: about 600
# bytes, so its size is written with ff bytes.
h264 h264_baseline_320x240.264 "testsrc=size=320x240:rate=25" 3 -profile:v baseline -preset veryfast -crf 40
# Several slices a picture: x264 starts all but the first with 00 00 01.
h264 h264_baseline_176x100_slices.264 "testsrc=size=176x100:rate=25" 2 -profile:v baseline -preset veryfast \
  -crf 45 -x264-params slices=3
h264 h264_main_640x480_bframes.264 "testsrc=size=640x480:rate=30" 6 -profile:v main -preset veryfast -crf 51 \
  -bf 2 -x264-params b-adapt=0
h264 h264_main_1920x1080.264 "smptebars=size=1920x1080:rate=25" 2 -profile:v main -preset veryfast -crf 51
# Interlaced (MBAFF): the height is counted in pairs of macroblock rows.
h264 h264_main_720x576_interlaced.264 "testsrc=size=720x576:rate=25" 2 -profile:v main -preset veryfast \
  -crf 51 -flags +ildct+ilme -x264-params tff=1
} >>"$out"

# ------------------------------------------------------------------ MPEG-4 Visual
# Xvid writes a fixed VOP rate (increment over its time base); ffmpeg's own
# encoder always writes a variable one. ffprobe gives the size and frame rate,
# its decoder's debug line the progressive flag (ps) and the increment's width.
mpeg4() {
  local file=$1 src=$2 fixed=$3; shift 3
  ff -f lavfi -i "$src" -frames:v 2 -pix_fmt yuv420p "$@" -f m4v "$file"
  local size rate dbg
  size=$(ffprobe -v error -select_streams v:0 -show_entries stream=width,height -of csv=p=0 "$file" | tr , ' ')
  rate=$(ffprobe -v error -select_streams v:0 -show_entries stream=r_frame_rate -of csv=p=0 "$file" | tr / ' ')
  dbg=$(ffprobe -v debug -debug pict "$file" 2>&1 |
    sed -nE 's/.* tincrbits:([0-9]+), .* ps:([0-9]+),.*/\2 \1/p' | head -1)
  # file, width, height, progressive, frame rate num den, fixed rate, increment bits
  echo "mpeg4 $file $size ${dbg% *} $rate $fixed ${dbg#* }"
}
{
mpeg4 mpeg4_xvid_352x288_25fps.m4v "testsrc=size=352x288:rate=25" 1 -c:v libxvid -q:v 31
mpeg4 mpeg4_xvid_320x240_29.97fps.m4v "testsrc=size=320x240:rate=30000/1001" 1 -c:v libxvid -q:v 31
# A time base of 16: the increment takes 4 bits, not the 5 bits of 16 itself.
mpeg4 mpeg4_xvid_176x144_16fps.m4v "testsrc=size=176x144:rate=16" 1 -c:v libxvid -q:v 31
mpeg4 mpeg4_ffmpeg_640x480_vfr.m4v "testsrc=size=640x480:rate=25" 0 -c:v mpeg4 -q:v 31
# Non-square pixels: the VOL carries an extended pixel aspect ratio.
mpeg4 mpeg4_ffmpeg_480x576_par.m4v "testsrc=size=480x576:rate=25,setsar=64/45" 0 -c:v mpeg4 -q:v 31
mpeg4 mpeg4_ffmpeg_720x576_interlaced.m4v "testsrc=size=720x576:rate=25" 0 -c:v mpeg4 -q:v 31 -flags +ildct+ilme
} >>"$out"

# ------------------------------------------------------------------ JPEG
# identify gives the size and the colour space; a grey image has one component.
jpeg() {
  local file=$1; shift
  "$im_convert" "$@" "$file"
  echo "jpeg $file $("$im_identify" -format '%w %h %[colorspace]' "$file")"
}
{
jpeg jpeg_colour_64x48.jpg -size 64x48 gradient:red-blue -quality 60
jpeg jpeg_colour_progressive_97x33.jpg -size 97x33 plasma:fractal -seed 7 -interlace JPEG -quality 50
jpeg jpeg_colour_444_40x30.jpg -size 40x30 gradient:yellow-navy -sampling-factor 1x1 -quality 50
jpeg jpeg_grey_33x17.jpg -size 33x17 gradient: -colorspace Gray -quality 60
} >>"$out"

ls -l ./*.264 ./*.m4v ./*.jpg
