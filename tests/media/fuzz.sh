#!/bin/bash
# Seeds of the fuzzers, a few kilobytes each: fuzz.sh DIRECTORY
# shellcheck source=tests/media/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

film() { make -f lavfi -i "testsrc2=s=48x32:r=${rate:-10}:d=0.4" -f lavfi -i sine=r=48000:d=0.4 "${@:2}" "film.$1"; }
for kind in mp4 mkv ts; do film "$kind" -c:v libx264 -c:a aac; done
film webm -c:v libvpx -c:a libopus
film avi -c:v mpeg4 -c:a mp3
film h264.avi -c:v libx264 -c:a mp3
turned 90 film.mp4 film.turned.mp4
film flv -c:v flv -c:a mp3
film wmv -c:v wmv2 -c:a wmav2
film ogv -c:v libtheora -c:a libvorbis
film nut -c:v mpeg4 -c:a mp3
film ivf -c:v libvpx -an
film obu -c:v libaom-av1 -cpu-used 8 -pix_fmt yuv420p -an
film h264 -c:v libx264 -an
film m4v -c:v mpeg4 -f m4v -an
film drc -c:v vc2 -b:v 200k -pix_fmt yuv420p -an
film rm -c:v rv10 -an
film y4m -an -pix_fmt yuv420p
for kind in h261 h263; do film "$kind" -s 176x144 -frames:v 2 -an; done
rate=25 film mpg -c:v mpeg2video -c:a mp2
rate=25 film m2v -c:v mpeg2video -an
rate=25 film mxf -c:v mpeg2video -c:a pcm_s16le
rate=30000/1001 film dv -s 720x480 -pix_fmt yuv411p -frames:v 1 -an
film gif
for kind in mp3 flac wav aiff au caf ac3 eac3 wv tta aac w64 voc opus; do
    make -f lavfi -i sine=r=48000:d=0.3 -metadata title=T "sound.$kind"
done
make -f lavfi -i sine=r=48000:d=0.3 -c:a flac sound.oga
make -f lavfi -i sine=r=48000:d=0.3 -metadata title=T -id3v2_version 3 sound.id3v23.mp3
make -f lavfi -i sine=r=48000:d=0.3 -c:a aac sound.latm
make -f lavfi -i sine=r=8000:d=3 -c:a libgsm sound.gsm
make -f lavfi -i anullsrc=r=48000:cl=stereo -t 0.1 -c:a dca -strict experimental sound.dts
for kind in mlp truehd; do # known by a hundred packets
    make -f lavfi -i anullsrc=r=48000:cl=mono -t 1 -c:a "$kind" -strict experimental -f "$kind" "sound.$kind"
done
for kind in png jpg bmp webp; do make -f lavfi -i testsrc2=s=24x16 -frames:v 1 "picture.$kind"; done
make -i sound.mp3 -i picture.png -map 0 -map 1 -c copy -disposition:v attached_pic covered.mp3
make -i sound.flac -i picture.jpg -map 0 -map 1 -c copy -disposition:v attached_pic covered.flac
