#!/bin/bash
# Input of the speech tests: speech.sh DIRECTORY
# shellcheck source=tests/media/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
say() { make -f lavfi -i "flite=text='$1':voice=rms" "${@:2}"; }

say 'The first train to the city leaves at half past five.' train.wav
say 'There is enough food on the table for everybody.' food.wav
say 'The report must be finished before the end of the month.' report.wav

# The same sentence in other clothes.
make -i food.wav -ar 8000 -c:a pcm_mulaw telephone.wav
make -i food.wav -ar 44100 -af 'pan=stereo|c0=c0|c1=c0' -c:a aac -b:a 96k stereo.m4a
make -i food.wav -ar 48000 -af 'pan=5.1|FC=c0' -c:a flac -sample_fmt s32 surround.flac
make -i food.wav -ar 96000 -c:a pcm_f64le float64.wav
make -i food.wav -c:a libmp3lame -b:a 64k food.mp3
make -i food.wav -c:a aac -b:a 64k food.aac
make -f lavfi -i color=black:s=64x64:d=3 -i food.wav -c:a aac film.mp4

# Two utterances, a pause between them.
make -i train.wav -i food.wav -filter_complex '[0]apad=pad_dur=1.2[a];[a][1]concat=n=2:v=0:a=1' two.wav
# Somebody who never takes a breath.
make -stream_loop -1 -i report.wav -af 'silenceremove=stop_periods=-1:stop_duration=0.05:stop_threshold=-45dB' -t 40 breathless.wav
# An hour of talk.
make -i two.wav -c:a libmp3lame -b:a 32k two.mp3
make -stream_loop -1 -i two.mp3 -t 3600 -c copy hour.mp3

# Music in which both recognisers hear more than a word a second: a tune, a chord that moves, and a beat.
tune='220*pow(2\,mod(floor(t*4)*7\,12)/12)' bass='110*pow(2\,mod(floor(t)*5\,12)/12)'
harmonics() { printf '+%s*sin(2*PI*%s*t*'"$1"')' "${@:2}"; }
make -f lavfi -i "aevalsrc=d=40:s=16000:exprs=0.2*exp(-3*mod(t\,0.25))*(0$(harmonics "$tune" 1 1 0.7 2 0.5 3 0.4 4 0.3 5))\
+0.15*(0$(harmonics "$bass" 1 1 1 1.26 1 1.5 0.5 3))+0.2*(random(0)-0.5)*exp(-30*mod(t\,0.5))" band.wav
# A melody whose glides Opus takes for a voice.
glide='2*PI*180*t+10*sin(2*PI*2.3*t)'
make -f lavfi -i "aevalsrc=d=10:s=16000:exprs=0.3*pow(sin(2*PI*2*t)\,2)*(sin($glide)+0.5*sin(2*($glide))\
+0.4*sin(3*($glide))+0.4*sin(5*($glide)))" singing.wav
# Somebody speaks while it pauses.
make -t 8 -i band.wav -i food.wav -t 8 -i band.wav -filter_complex 'concat=n=3:v=0:a=1' amidst.wav

make -f lavfi -i anullsrc=r=24000:cl=mono -t 5 silence.wav
make -f lavfi -i anoisesrc=d=10:c=pink:a=0.1:seed=1 noise.wav
make -f lavfi -i sine=440:d=5 tone.wav
make -f lavfi -i color=black:s=64x64:d=1 picture.mp4
cp food.aac damaged.aac
head -c 200 /dev/zero | tr '\0' '\377' | dd of=damaged.aac bs=1 seek=9000 conv=notrunc status=none
head -c 40 train.wav >truncated.wav
head -c 20000 stereo.m4a >truncated.m4a
: >empty.wav
echo 'a text is no sound' >text.wav
