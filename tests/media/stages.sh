#!/bin/bash
# Input of the stage tests: stages.sh DIRECTORY
# shellcheck source=tests/media/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# 50 pictures whose number can be read back from their grey, and more sound than picture.
make -f lavfi -i "color=black:s=320x240:r=25:d=2,format=yuv420p,geq=lum='16+4*N':cb=128:cr=128" \
     -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=3" \
     -c:v libx264 -pix_fmt yuv420p -bf 2 -g 10 -c:a aac -ac 2 both.mp4
head -c 3000 both.mp4 >truncated.mp4
: >empty.mp4
