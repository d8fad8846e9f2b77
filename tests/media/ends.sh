#!/bin/bash
# What the works of workhost are given: ends.sh DIRECTORY
# shellcheck source=tests/media/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

make -f lavfi -i testsrc2=s=1280x720:r=25:d=12 -f lavfi -i "flite=text='the report must be finished':voice=rms" \
     -af apad -t 12 -c:v libx264 -preset ultrafast -g 25 -pix_fmt yuv420p -c:a aac film.mp4
make -f lavfi -i testsrc2=s=640x480:r=10:d=4 moving.gif
make -f lavfi -i testsrc2=s=4000x3000 -frames:v 1 picture.jpg
make -i film.mp4 -t 0.4 -vf scale=160:-2 -c:v libx264 -c:a aac short.mp4
make -i short.mp4 -r 10 short.gif
