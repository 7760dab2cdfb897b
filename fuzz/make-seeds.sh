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

echo "seeds in $out"
