#!/bin/bash
# Input of the video editing tests: video.sh DIRECTORY
# shellcheck source=tests/media/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
copy() { make -i base.mp4 "${@:1:$#-1}" -c copy "${!#}"; }

# 8 seconds, 25 pictures a second: luma tells the picture's number, the corner at the top left is red, a beep of a tenth
# of a second begins each second. A key frame every 2 seconds.
picture="color=black:s=160x120:r=25:d=8,format=yuv420p,geq=lum='16+N':cb=128:cr='if(lt(X,20)*lt(Y,15),240,128)'"
beeps="aevalsrc='0.5*sin(2*PI*440*t)*lt(mod(t,1),0.1)':s=48000:d=8"
x264=(-c:v libx264 -qp 4 -pix_fmt yuv420p -bf 2 -sc_threshold 0)
make -f lavfi -i "$picture" -f lavfi -i "$beeps" "${x264[@]}" -g 50 -keyint_min 50 -c:a aac base.mp4
copy base.mov
copy base.mkv
copy base.ts
copy -an silent.mp4
copy -vn sound.m4a
make -i base.mp4 -c:v libvpx -deadline realtime -g 50 -c:a libopus base.webm
make -i base.mp4 -c:v mpeg4 -q:v 2 -g 50 -sc_threshold 1000000000 -c:a mp3 base.avi
make -i base.mp4 -c:v mpeg4 -q:v 2 -g 50 -bf 2 -sc_threshold 1000000000 -c:a mp3 bframes.avi
make -i base.mp4 -c:v copy -c:a mp3 h264.avi
make -i base.mp4 -c:v mpeg2video -q:v 2 -g 50 -bf 2 -sc_threshold 1000000000 -c:a mp2 base.mpg

make -i silent.mp4 "${x264[@]}" -g 1000 -keyint_min 1000 longgop.mp4
make -i base.mp4 "${x264[@]}" -x264-params open-gop=1:keyint=50:min-keyint=50:bframes=3:b-adapt=0 -c:a copy opengop.mp4
make -i base.mp4 -vf "select='not(mod(floor(n/25),2))+not(mod(n,5))'" -fps_mode vfr "${x264[@]}" -g 20 -c:a copy vfr.mkv

turned 270 base.mp4 rotate90.mp4
turned 180 base.mp4 rotate180.mov
turned 90 base.mp4 rotate270.mp4
# In capitals it passes the program by, and stays a tag.
copy -metadata:s:v ROTATE=90 tag90.mkv
make -f lavfi -i "color=gray:s=1920x1080:d=0.4" -c:v mpeg4 -metadata:s:v ROTATE=90 large90.mkv

make -i base.mp4 -f lavfi -i "color=white:s=64x48:r=25:d=8" -map 0:v -map 0:a -map 1:v -c copy -c:v:1 libx264 \
     twovideos.mp4
copy -timecode 00:00:00:00 data.mov
make -i data.mov -map 0:d -map 0:v -map 0:a -c copy datafirst.mov
printf '1\n00:00:01,000 --> 00:00:02,000\none\n\n2\n00:00:05,000 --> 00:00:06,000\ntwo\n' >titles.srt
printf 'no font' >font.ttf
make -i base.mp4 -i titles.srt -map 0 -map 1 -c copy -c:s srt -attach font.ttf \
     -metadata:s:t mimetype=application/x-truetype-font rich.mkv
make -f lavfi -i color=red:s=64x64 -frames:v 1 cover.png
make -i base.mp4 -i cover.png -map 0 -map 1 -c copy -disposition:v:1 attached_pic cover.mp4
make -i base.mp4 -i cover.png -map 0:a -map 1 -c:v copy -c:a mp3 -disposition:v attached_pic cover.mp3
LC_ALL=C sed 's/A_AAC/A_XYZ/' base.mkv >strangesound.mkv
copy -bsf:v h264_mp4toannexb -an endless.h264

make -i base.mp4 -c copy -movflags faststart front.mp4
head -c $(($(stat -c %s front.mp4) * 2 / 3)) front.mp4 >truncated.mp4
head -c 15000 base.mkv >truncated.mkv
head -c 600 base.mp4 >headonly.mp4
cp base.ts corrupt.ts
dd if=/dev/zero of=corrupt.ts bs=1 seek=30000 count=3000 conv=notrunc status=none
cp front.mp4 corrupt.mp4
dd if=/dev/zero of=corrupt.mp4 bs=1 seek=16000 count=1000 conv=notrunc status=none
: >empty.mp4
yes 'a line of text' | head -500 >text.mp4 || true
head -c 4000 /dev/zero >nameonly.cdg

for size in 1920x1080 1000x700 1001x700; do
    make -f lavfi -i "testsrc=s=$size:r=25:d=0.4" -c:v libx264 -pix_fmt yuv444p -qp 10 -g 5 "$size.mp4"
done
make -f lavfi -i "color=white:s=854x480:r=25:d=0.4" -c:v libx264 -pix_fmt yuv420p white.mp4
# 108 million pixels in a few kilobytes.
make -f lavfi -i color=black:s=12000x9000 -frames:v 1 -pix_fmt rgb24 -c:v png huge.mov
# Some 200 kilobytes a picture.
make -f lavfi -i "testsrc=s=848x480:r=25:d=1,noise=alls=100:allf=t" -c:v mpeg4 -q:v 4 heavy.mkv
make -i 1000x700.mp4 -c copy -metadata rotation=90 containerrotation.mkv

# What strangers send.
copy -movflags empty_moov+frag_keyframe parts.mp4
make -i base.mp4 -an -frames:v 5 -c:v libvpx-vp9 -deadline realtime -bsf:v noise=1 encrypted.webm
make -f lavfi -i color=black:s=16000x16000 -frames:v 1 -c:v flv huge.flv
make -i silent.mp4 "${x264[@]}" -frames:v 1 one.mp4
make -i silent.mp4 "${x264[@]}" -frames:v 2 two.mp4
make -i sound.m4a plain.mp3
for kind in mp4 mkv; do make -i base.mp4 -t 2 -c:v copy -c:a mp3 "short.$kind"; done
make -i base.avi -t 2 -c copy short.avi
make -i base.mpg -t 2 -c copy short.mpg
make -i short.mp4 -c:v copy -c:a mp3 -ar 44100 short.flv
make -stream_loop 3 -i heavy.mkv -c copy long.mkv
