#!/bin/bash
# Input of the host's test: host.sh DIRECTORY
# shellcheck source=tests/media/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

make -f lavfi -i "flite=text='The quick brown fox jumps over the lazy dog, and then it runs away.':voice=slt" \
     -ar 24000 -ac 1 speech.wav
make -f lavfi -i "mandelbrot=size=300x300:rate=1" -frames:v 1 cover.png
make -f lavfi -i sine=frequency=440:duration=12 -i cover.png -map 0 -map 1 -c:v copy -disposition:v attached_pic \
     -metadata title="A long tone" -metadata artist="The Oscillators" -metadata album="Test Signals" song.mp3
make -f lavfi -i mandelbrot=size=640x360:rate=25 -f lavfi -i sine=duration=10 -t 10 -c:v libx264 -preset ultrafast \
     -pix_fmt yuv420p -g 25 -c:a aac video.mp4
make -f lavfi -i testsrc2=size=320x240:rate=10:duration=3 moving.gif
# Takes the library long enough to be cancelled meanwhile.
make -f lavfi -i testsrc2=size=1280x960:rate=25:duration=10 large.gif
echo "this is nothing to see or hear" >text.mp4
