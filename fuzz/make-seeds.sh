#!/usr/bin/env bash
# Writes a small seed corpus for every fuzz target into fuzz/corpus/<target>/.
#   fuzz/make-seeds.sh <build-dir-with-makesgf>
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:?usage: make-seeds.sh <build dir that holds makesgf>}
out="$here/corpus"
mkdir -p "$out"/{sgf,ascii,modifier,qinfo,eval,qsplit,qmatch}

"$build/makesgf" "$out/sgf/lap.sgf" 1 2 >/dev/null
"$build/makesgf" "$out/sgf/aux.sgf" 1 1 3 >/dev/null
head -c 600 "$out/sgf/lap.sgf" > "$out/sgf/cut.sgf"
printf 'SGF0\001\000\000\000\000\000\000\000PROP\000\000\000\000MPRP\000\000\000\000SGNL\000\000\000\000\002\000\000\000time\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\000\012\327\043\074' > "$out/sgf/tiny.sgf"

printf 'Time\tLAP_DI\tLAPTIM\tVVEH\tACC_X\n0.00\t1.5\t0:016\t100\t0.5\n0.01\t2.5\t0:026\t101\t-0.5\n' > "$out/ascii/table.txt"
printf 'Time\tLAP_DI\r\n0\t1\r\n1\t\t2\r\n' > "$out/ascii/crlf.txt"

printf 'separator tab\nspeed kmh 3.6\ngear - 1\n"wheel speed" "w s" 2\n' > "$out/modifier/mod.txt"
printf 'separator bogus\n' > "$out/modifier/bad.txt"

printf '; comment\nsignals\n{\n  speed\n  {\n    unit=km/h\n    max=300\n  }\n  fast~signals.speed\n}\na=2*3+1\ncolor=1, 0.5 0.25\n' > "$out/qinfo/tree.ini"
printf 'base\n{\na=1\n}\ncar~base\n{\nb=2\n}\n}\n{\n' > "$out/qinfo/refs.ini"

for e in '2+3*4' '(2+3)*4' '-7/2' '$ff|0x0F&#1010' '0377^~1' '2*-3+1' '3x4' '12abc'; do
  printf '%s' "$e" > "$out/eval/$(printf '%s' "$e" | md5sum | cut -c1-8)"
done

printf '\004a\t\tb\n' > "$out/qsplit/tabs"
printf '\001&a=1+2&b=%%41&c' > "$out/qsplit/amp"
printf '\013a,,b,' > "$out/qsplit/keep"
printf '\020x=1 y=2' > "$out/qsplit/keys"

printf '*.TXT\000a.txt' > "$out/qmatch/star"
printf '!*.txt\000a.txt' > "$out/qmatch/not"
printf 'a?c\000abc' > "$out/qmatch/any"
printf '*a*b*c*d*e*f*g\000aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa' > "$out/qmatch/stars"
# Pictures: small, odd-sized, in every form each reader knows.
mkdir -p "$out"/{rgb,tga,bmp,jpg,mip}
pic=(-size 13x7 gradient:red-blue -fill yellow -draw "rectangle 2,1 5,4" -depth 8)
convert "${pic[@]}" "$out/rgb/plain.sgi" && mv "$out/rgb/plain.sgi" "$out/rgb/plain.rgb"
convert "${pic[@]}" -compress RLE -alpha on "$out/rgb/rle.sgi" && mv "$out/rgb/rle.sgi" "$out/rgb/rle.rgb"
convert "${pic[@]}" "$out/tga/plain.tga"
convert "${pic[@]}" -alpha on -orient TopLeft -compress RLE "$out/tga/rle.tga"
convert "${pic[@]}" -type Grayscale "$out/tga/grey.tga"
convert "${pic[@]}" -type TrueColor "$out/bmp/plain.bmp"
convert "${pic[@]}" -type Grayscale -colors 256 "$out/bmp/grey.bmp"
convert "${pic[@]}" -quality 80 "$out/jpg/colour.jpg"
convert "${pic[@]}" -type Grayscale "$out/jpg/grey.jpg"
convert "${pic[@]}" -interlace JPEG "$out/jpg/progressive.jpg"
convert "${pic[@]}" -colorspace CMYK "$out/jpg/cmyk.jpg"
# A 3x2 MIP: tag, first record of type 0 with its palette, second record of type 1, pixel rows.
{
  printf 'PIM xxxxxxxxrrrrrrrrrrrr\000'; printf '\003\000\000\000\002\000\000\000sssssssssss'
  printf 'hhhhhhhh\100\000\000\000'; for i in $(seq 0 15); do printf "\\$(printf %03o $((i*16)))\\$(printf %03o $i)\\377\\377"; done
  printf 'kkkkkkkkkkkkrrrrrrrrrrrr\001'; printf '\003\000\000\000\002\000\000\000\002\000\000\000sss'
  printf 'kkkkkkkkkkkk\022\060\105\140'
} > "$out/mip/small.mip"

# Layered paint files: two layers (verbatim and run-length planes, one partly off the canvas), a
# hidden layer with a mask record under a negative count, a flat file, and one of the image tool.
mkdir -p "$out/psd"
printf '\070\102\120\123\000\001\000\000\000\000\000\000\000\003\000\000\000\004\000\000\000\006\000\010\000\003\000\000\000\000\000\000\000\000\000\000\001\074\000\000\001\064\000\002\000\000\000\000\000\000\000\000\000\000\000\004\000\000\000\006\000\004\377\377\000\000\000\032\000\000\000\000\000\032\000\001\000\000\000\032\000\002\000\000\000\032\070\102\111\115\156\157\162\155\310\000\000\000\000\000\000\020\000\000\000\000\000\000\000\000\004\142\141\143\153\000\000\000\000\000\000\001\377\377\377\377\000\000\000\003\000\000\000\003\000\004\377\377\000\000\000\012\000\000\000\000\000\020\000\001\000\000\000\020\000\002\000\000\000\020\070\102\111\115\156\157\162\155\310\000\000\000\000\000\000\014\000\000\000\000\000\000\000\000\003\164\157\160\000\000\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\000\000\310\313\316\321\324\327\332\335\340\343\346\351\354\357\362\365\370\373\376\001\004\007\012\015\000\000\144\147\152\155\160\163\166\171\174\177\202\205\210\213\216\221\224\227\232\235\240\243\246\251\000\000\062\065\070\073\076\101\104\107\112\115\120\123\126\131\134\137\142\145\150\153\156\161\164\167\000\001\000\002\000\002\375\200\375\200\000\001\000\005\000\005\003\000\003\006\011\003\014\017\022\025\000\001\000\005\000\005\003\000\003\006\011\003\014\017\022\025\000\001\000\005\000\005\003\372\375\000\003\003\006\011\014\017\000\000\000\000\000\000\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100' > "$out/psd/two.psd"
printf '\070\102\120\123\000\001\000\000\000\000\000\000\000\003\000\000\000\003\000\000\000\005\000\010\000\003\000\000\000\000\000\000\000\000\000\000\001\056\000\000\001\046\377\376\377\377\377\377\000\000\000\002\000\000\000\002\000\000\000\006\000\003\000\000\000\000\000\027\000\001\000\000\000\027\000\002\000\000\000\027\070\102\111\115\156\157\162\155\310\000\000\000\000\000\000\014\000\000\000\000\000\000\000\000\001\114\000\000\000\000\000\000\000\000\000\000\000\000\000\003\000\000\000\005\000\004\377\377\000\000\000\021\000\000\000\000\000\021\000\001\000\000\000\021\000\002\000\000\000\021\070\102\111\115\156\157\162\155\310\000\002\000\000\000\000\040\000\000\000\024\000\000\000\000\000\000\000\000\000\000\000\001\000\000\000\001\000\000\000\000\000\000\000\000\001\114\000\000\000\001\000\005\000\005\000\005\003\011\014\017\022\003\025\030\033\036\003\041\044\047\052\000\001\000\005\000\005\000\005\003\010\013\016\021\003\024\027\032\035\003\040\043\046\051\000\001\000\005\000\005\000\005\003\007\012\015\020\003\023\026\031\034\003\037\042\045\050\000\000\377\377\377\377\377\377\377\377\377\377\377\377\377\377\377\000\000\001\004\007\012\015\020\023\026\031\034\037\042\045\050\053\000\000\002\005\010\013\016\021\024\027\032\035\040\043\046\051\054\000\000\003\006\011\014\017\022\025\030\033\036\041\044\047\052\055\000\000\000\000\000\000\000\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100' > "$out/psd/hidden.psd"
printf '\070\102\120\123\000\001\000\000\000\000\000\000\000\003\000\000\000\002\000\000\000\004\000\010\000\003\000\000\000\000\000\000\000\000\000\000\000\012\000\000\000\002\000\000\000\000\000\000\000\000\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100\100' > "$out/psd/flat.psd"
if command -v convert >/dev/null; then
  convert -size 7x5 xc:'rgba(200,10,20,1)' \( -size 3x2 xc:'rgba(0,0,255,0.5)' -repage +2+1 \) \
    \( -size 4x4 xc:'rgba(0,250,0,1)' -repage -1+3 \) -depth 8 "$out/psd/tool.psd"
fi

echo "seeds in $out"
# Archives: a small folder packed by qarchive, and members made by hand (a skipped block, a run, an
# empty archive). Chunks: two bytes of room in the block, then the chunk.
mkdir -p "$out"/{archive,archivechunk}
pack=$(mktemp -d)
for i in $(seq 1 150); do printf 'wheel speed %d gear %d brake\n' "$i" $((i % 6)); done > "$pack/telemetry.txt"
head -c 5000 /dev/zero > "$pack/Zeros.bin"
head -c 3000 "$build/qarchive" > "$pack/binary.bin"
printf 'x' > "$pack/one"
: > "$pack/empty"
"$build/qarchive" pack "$out/archive/packed.arc" "$pack" >/dev/null
rm -rf "$pack"
printf 'QARC\001\000\000\000\042\000\000\000\012\000\000\000T\004\000\000\000AAAAD\004\000\200abc\000\000m\000\020\000\000\000\003\000\000\000' > "$out/archive/skipped.arc"
printf 'QARC\001\000\000\000\034\000\000\000\012\000\000\000D\007\000\000\200\000\000\001\055r\000\000m\000\020\000\000\000\075\001\000\000' > "$out/archive/run.arc"
printf 'QARC\001\000\000\000\020\000\000\000\000\000\000\000' > "$out/archive/empty.arc"
printf '\040\116\000\060\000ab\000\042\000\000\000zq' > "$out/archivechunk/items"
printf '\040\116\000\100\000x\000\037' > "$out/archivechunk/overlap"
printf '\012\000\000\200\000\000\017\377r' > "$out/archivechunk/overrun"
printf '\040\116\200raw bytes' > "$out/archivechunk/stored"
{ printf '\040\116\000\000\001'; printf 'abcdefghijklmno'; printf '\000\000\000-\200\000\001\360!'; } > "$out/archivechunk/control"
# State recorder tapes: two bytes of step program, then frames of a name in 32 bytes, 4 bytes of data
# and the frame's start. The target knows the states "", "a", "menu", "race" and a 31-character one.
mkdir -p "$out/vcr"
vcr_frame() { # name, start
  printf '%s' "$1"; head -c $((32 - ${#1})) /dev/zero; printf 'DATA'
  printf "\\$(printf %03o $(($2 & 255)))\\$(printf %03o $(($2 >> 8 & 255)))\\000\\000"
}
{ printf '\344\001'; vcr_frame menu 0; vcr_frame race 40; vcr_frame a 80; } > "$out/vcr/three"
{ printf '\000\000'; vcr_frame race 0; } > "$out/vcr/back"
{ printf '\252\252'; vcr_frame menu 0; vcr_frame menu 40; } > "$out/vcr/record"
{ printf '\377\377'; vcr_frame a 0; vcr_frame race 40; } > "$out/vcr/save"
{ printf '\104\104'; vcr_frame 'a name of thirty-one characters' 0; vcr_frame '' 40; } > "$out/vcr/names"
{ printf '\001\000'; vcr_frame ghost 0; } > "$out/vcr/unknown"
{ printf '\000\001'; vcr_frame a 0; vcr_frame a 10; } > "$out/vcr/midframe"
printf '\000\000' > "$out/vcr/empty"
# Texture fonts: the glyph table of a baked font, and a small one by hand with two ranges.
mkdir -p "$out/texfont"
bake=$(mktemp -d)
if [ -x "$build/fontbake" ] && [ -f /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf ]; then
  "$build/fontbake" /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf 9 "$bake/sans9.tfnt" >/dev/null
  cp "$bake/sans9.tfnt" "$out/texfont/"
fi
rm -rf "$bake"
texglyph() { printf '\004\000\000\000\011\000\000\000\000\000\240\100\000\000\200\077'; head -c 16 /dev/zero; }
{ printf 'TFNT\001\000\000\000\005\000a.tga'
  printf 'A\000\000\000Z\000\000\000\011\000\000\000\002\000\000\000\002\000\000\000'
  printf 'A\000\000\000B\000\000\000\000\000\000\000X\000\000\000Z\000\000\000\002\000\000\000'
  printf '\005\000\000\000'; for i in 1 2 3 4 5; do texglyph; done; } > "$out/texfont/ranges.tfnt"
# DDS textures: a header (height, width, levels, pixel format flags, four-letter code, bit count),
# then the levels. Hand-made kinds and damage, and real files of the image tool where it is there.
mkdir -p "$out/dds"
dds_le32() { printf "\\$(printf %03o $(($1 & 255)))\\$(printf %03o $(($1 >> 8 & 255)))\\$(printf %03o $(($1 >> 16 & 255)))\\$(printf %03o $(($1 >> 24 & 255)))"; }
dds_head() { # height, width, levels, flags, code, bits
  printf 'DDS '; dds_le32 124; dds_le32 0; dds_le32 "$1"; dds_le32 "$2"; head -c 8 /dev/zero; dds_le32 "$3"
  head -c 44 /dev/zero; dds_le32 32; dds_le32 "$4"; printf '%s' "$5"; dds_le32 "$6"; head -c 36 /dev/zero
}
dds_bytes() { local i; for ((i = 0; i < $1; i++)); do printf "\\$(printf %03o $(((i * 37 + 11) & 255)))"; done; }
{ dds_head 8 8 4 4 DXT1 0; dds_bytes 56; } > "$out/dds/dxt1.dds"     # 32 + 8 + 8 + 8 bytes
{ dds_head 5 7 3 4 DXT3 0; dds_bytes 96; } > "$out/dds/dxt3odd.dds"  # 64 + 16 + 16
{ dds_head 4 8 5 4 DXT5 0; dds_bytes 96; } > "$out/dds/dxt5.dds"     # 32 + 16 * 4
{ dds_head 2 3 2 0 '    ' 32; dds_bytes 28; } > "$out/dds/rgba.dds"  # 24 + 4
{ dds_head 4 4 1 4 ATI2 0; head -c 16 /dev/zero; } > "$out/dds/unknown.dds"
{ dds_head 4 4 1 0 '    ' 24; head -c 48 /dev/zero; } > "$out/dds/rgb24.dds"
dds_head 65535 65535 16 4 DXT5 0 > "$out/dds/huge.dds"
{ dds_head 1 1 20 4 DXT1 0; head -c 160 /dev/zero; } > "$out/dds/twenty.dds"
{ dds_head 8 8 4 4 DXT5 0; head -c 100 /dev/zero; } > "$out/dds/cut.dds"
if command -v convert >/dev/null; then
  convert -size 16x8 gradient:red-blue -fill yellow -draw "rectangle 2,1 5,4" -alpha on -channel A -fx 'i/w' \
    -define dds:compression=dxt5 "$out/dds/tool5.dds" 2>/dev/null || true
fi
