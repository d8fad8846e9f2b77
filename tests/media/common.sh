# shellcheck shell=bash
# What the scripts beside it share; they source it with the folder in which they make their files.
set -euo pipefail
mkdir -p "$1"
cd "$1"

make() { ffmpeg -v error -nostdin -y "$@"; }

# turned DEGREES FILE RESULT: a copy whose display matrix turns by so much, counterclockwise. The program took the angle
# as a tag until 6.0 brought an option of its own.
turned() {
    if [[ $(ffmpeg -v quiet -h long) == *-display_rotation* ]]; then
        make -display_rotation "$1" -i "$2" -c copy "$3"
    else
        make -i "$2" -c copy -metadata:s:v "rotate=$1" "$3"
    fi
}
