#!/usr/bin/env bash
# Installs what is missing, builds Tarnvel, generates a recording of its own
# (1280 x 1024, 12 bits, 100 frames, 20 before the trigger) and converts it
# with tarnvel-cli to a TIFF sequence, with frame number, date, time and time
# from the trigger burnt into a text bar above each frame, and an AVI of the
# same pictures beside it.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" release
bin="$root/build/release/apps"
recording="$root/out/demo-recording"
rm -rf "$recording"
"$bin/recgen/tarnvel-recgen" --out "$recording" --device "Demo camera" --base-name demo --overlay 0x20F --companion-movie 3
# The text bar above the picture.
sed -i 's/^Arg13=0/Arg13=1/' "$recording/args.ini"
"$bin/tarnvel-info" "$recording" | head -12
"$bin/tarnvel-cli" "$recording/args.ini"
echo "Converted: $(ls "$recording"/demo*.tif | wc -l) TIFF frames in $recording (demo-000020.tif to demo000079.tif)"
echo "Movie beside them: $recording/Demo camera.avi ($(ffprobe -v error -count_frames -select_streams v:0 \
  -show_entries stream=codec_name,width,height,nb_read_frames -of csv=p=0 "$recording/Demo camera.avi"))"
