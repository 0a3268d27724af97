#!/usr/bin/env bash
# Installs what is missing, builds Tarnvel, and shows it at work on a
# recording of its own: generates a 1280 x 1024, 12-bit recording of 100
# frames (20 before the trigger) and prints what its folder holds.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" release
bin="$root/build/release/apps"
recording="$root/out/demo-recording"
rm -rf "$recording"
"$bin/recgen/tarnvel-recgen" --out "$recording" --device "Demo camera" --base-name demo
echo "Generated recording: $recording"
ls -l "$recording"
echo
"$bin/tarnvel-info" "$recording"
