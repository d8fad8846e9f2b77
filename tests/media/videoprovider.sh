#!/bin/bash
# Input of the tests of converting by the tools: videoprovider.sh DIRECTORY
# shellcheck source=tests/media/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# Three seconds that take the tool long enough to tell how far it is.
make -f lavfi -i "testsrc2=s=1280x720:r=25:d=3" -f lavfi -i "sine=duration=3" -pix_fmt yuv420p -preset ultrafast long.mp4
make -f lavfi -i "testsrc2=s=160x120:r=25:d=1" -pix_fmt yuv420p short.mp4
for turn in 90 180 270; do
    turned "$turn" short.mp4 "turned$turn.mp4"
done
make -f lavfi -i "testsrc2=s=160x120:r=10:d=1" moving.gif
