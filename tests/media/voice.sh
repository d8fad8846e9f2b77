#!/bin/bash
# Input of the voice tests: voice.sh DIRECTORY
# shellcheck source=tests/media/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

make -f lavfi -i "flite=text='The quick brown fox jumps over the lazy dog, and then it runs away.':voice=slt" \
     -ar 24000 -ac 1 speech.wav
make -i speech.wav -c:a aac -b:a 128k speech.aac
make -f lavfi -i "aevalsrc='0.3*sin(2*PI*440*t)|0.3*sin(2*PI*1000*t)':s=32000:d=1" -c:a aac planar.m4a
make -f lavfi -i "aevalsrc='0.3*sin(2*PI*440*t)|0.3*sin(2*PI*1000*t)':s=32000:d=1" -c:a pcm_s16le interleaved.wav
make -i interleaved.wav -c:a flac -frame_size 1024 interleaved.flac
make -f lavfi -i "color=black:s=64x64:d=1" silent.mp4

# Some bytes in the middle are overwritten.
cp speech.aac corrupt.aac
head -c 200 /dev/zero | tr '\0' '\377' | dd of=corrupt.aac bs=1 seek=20000 conv=notrunc status=none
head -c 40 speech.wav >truncated.wav
: >empty.wav
printf '#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\nspeech.aac\n#EXT-X-ENDLIST\n' >playlist.aac
printf "ffconcat version 1.0\nfile speech.wav\n" >list.wav
