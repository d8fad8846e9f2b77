#!/bin/bash
# Input of the player tests: player.sh DIRECTORY
# shellcheck source=tests/media/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
tone() { echo "sine=frequency=440:sample_rate=${2:-44100}:duration=$1"; }

make -f lavfi -i "$(tone 3)" -ac 2 tone.wav
make -f lavfi -i "$(tone 0.1 24000)" short.wav
make -f lavfi -i "$(tone 20)" -b:a 64k long.mp3

# One of every accepted extension, but APE, which FFmpeg cannot write.
make -f lavfi -i testsrc=size=64x48:duration=0.04 -frames:v 1 cover.png
tags=(-metadata "title=Lied über Regen" -metadata "artist=A & B" -metadata "album=Album 1")
for name in plain.mp3 plain.aac plain.ogg plain.wav plain.flac plain.ac3 plain.wma plain.mp2; do
    make -f lavfi -i "$(tone 1)" "$name"
done
make -f lavfi -i "$(tone 1)" -f ipod plain.m4r
for kind in ogg opus; do make -f lavfi -i "$(tone 1)" "${tags[@]}" "tagged.$kind"; done
make -f lavfi -i "$(tone 1)" -i cover.png -map 0 -map 1 -c:v copy -disposition:v attached_pic "${tags[@]}" covered.mp3
make -f lavfi -i "$(tone 1)" -i cover.png -map 0 -map 1 -c:v copy -disposition:v attached_pic "${tags[@]}" covered.flac
make -f lavfi -i "$(tone 1)" -i cover.png -map 0 -map 1 -c:v copy -disposition:v attached_pic "${tags[@]}" -f ipod covered.m4r

# What is not what its name says, or not whole.
cp plain.mp3 "mp3 called.dat"
cp plain.aac "aac called.mp3"
cp -- plain.mp3 "-i \"\$(x)\" 'é' %d.mp3"
head -c 60000 tone.wav >truncated.wav
head -c 3000 plain.m4r >truncated.m4r
: >empty.mp3
head -c 100000 /dev/zero >zeros.mp3
echo "this is no music" >text.mp3
# Claims one sample a second, so that a packet lasts for hours.
make -f lavfi -i "$(tone 1)" -t 0.1 -c:a pcm_s16le hostile-rate.wav
cp hostile-rate.wav high-rate.wav
printf '\x01\0\0\0' | dd of=hostile-rate.wav bs=1 seek=24 conv=notrunc status=none
printf '\x00\xc2\xeb\x0b' | dd of=high-rate.wav bs=1 seek=24 conv=notrunc status=none # 200 MHz
make -f lavfi -i testsrc=size=64x48:duration=0.2 silent.mp4
make -f lavfi -i testsrc=size=64x48:duration=0.2 -f lavfi -i "$(tone 0.2)" video.mp4
